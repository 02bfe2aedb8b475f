#pragma once

#include <Orlavex/scene/DrawableSource.h>

class vtkConeSource;
class vtkPolyDataMapper;

namespace Orlavex {

/// A cone drawn from a `vtkConeSource`, its axis along X and its centre
/// halfway up.
///
/// Setters record their value and forward it to the source. A copy shares the
/// source and mapper, holding references of its own.
class ORLAVEX_EXPORT Cone : public DrawableSource {
public:
    Cone();
    Cone(const Cone& other);
    Cone& operator=(const Cone& other);
    ~Cone() override;

    void setHeight(double h);
    void setRadius(double r);
    /// Number of facets around the axis.
    void setResolution(int n);
    /// 0 leaves the base open.
    void setCapping(int on);

    vtkConeSource* getSource() const;
    vtkPolyDataMapper* getMapper() const;

    /// Values last given to the setters; until a setter is called they read
    /// the source's own defaults.
    double getHeight() const { return height; }
    double getRadius() const { return radius; }
    /// The facet count, held as a double.
    double getResolution() const { return resolution; }

private:
    vtkSmartPointer<vtkConeSource> source;
    vtkSmartPointer<vtkPolyDataMapper> mapper;
    double height = 0, radius = 0;
    double resolution = 0;
};

} // namespace Orlavex
