#pragma once

#include <Orlavex/scene/DrawableSource.h>

class vtkCubeSource;
class vtkPolyDataMapper;

namespace Orlavex {

/// An axis-aligned box drawn from a `vtkCubeSource`.
///
/// Setters record their value and forward it to the source. A copy shares the
/// source and mapper, holding references of its own.
class ORLAVEX_EXPORT Cube : public DrawableSource {
public:
    Cube();
    Cube(const Cube& other);
    Cube& operator=(const Cube& other);
    ~Cube() override;

    void setXLength(double l);
    void setYLength(double l);
    void setZLength(double l);
    void setCenter(double x, double y, double z);

    vtkCubeSource* getSource() const;
    vtkPolyDataMapper* getMapper() const;

    /// Values last given to the setters; until a setter is called they read
    /// the source's own defaults.
    const double* getCenter() const { return center; }
    double getXLength() const { return xLength; }
    double getYLength() const { return yLength; }
    double getZLength() const { return zLength; }

private:
    vtkSmartPointer<vtkCubeSource> source;
    double center[3] = {0, 0, 0};
    double xLength = 0, yLength = 0, zLength = 0;
    vtkSmartPointer<vtkPolyDataMapper> mapper;
};

} // namespace Orlavex
