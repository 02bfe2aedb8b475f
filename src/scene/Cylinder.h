#pragma once

#include <Orlavex/scene/DrawableSource.h>

class vtkCylinderSource;
class vtkPolyDataMapper;

namespace Orlavex {

/// A cylinder drawn from a `vtkCylinderSource`, its axis along Y.
///
/// Setters record their value and forward it to the source. A copy shares the
/// source and mapper, holding references of its own.
class ORLAVEX_EXPORT Cylinder : public DrawableSource {
public:
    Cylinder();
    Cylinder(const Cylinder& other);
    Cylinder& operator=(const Cylinder& other);
    ~Cylinder() override;

    void setHeight(double h);
    void setRadius(double r);
    /// Number of facets around the axis.
    void setResolution(int n);
    void setCenter(double x, double y, double z);
    /// 0 leaves both ends open.
    void setCapping(int on);

    vtkCylinderSource* getSource() const;
    vtkPolyDataMapper* getMapper() const;

    /// Values last given to the setters; until a setter is called they read
    /// the source's own defaults.
    const double* getCenter() const { return center; }
    double getRadius() const { return radius; }
    double getHeight() const { return height; }
    int getResolution() const { return resolution; }

private:
    vtkSmartPointer<vtkCylinderSource> source;
    vtkSmartPointer<vtkPolyDataMapper> mapper;
    double center[3] = {0, 0, 0};
    double radius = 0, height = 0;
    int resolution = 0;
};

} // namespace Orlavex
