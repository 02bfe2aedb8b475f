#pragma once

#include <Orlavex/scene/DrawableSource.h>

class vtkPlaneSource;
class vtkPolyDataMapper;

namespace Orlavex {

/// A flat parallelogram drawn from a `vtkPlaneSource`: a corner point and
/// the ends of its two edges from that corner.
///
/// A copy shares the source and mapper, holding references of its own.
class ORLAVEX_EXPORT Plane : public DrawableSource {
public:
    Plane();
    Plane(const Plane& other);
    Plane& operator=(const Plane& other);
    ~Plane() override;

    /// The plane's corner point. Not the actor's centre of rotation: that is
    /// `DrawableSource::setOrigin`.
    void setOriginPoint(double x, double y, double z);
    /// End of the first edge from the corner.
    void setPoint1(double x, double y, double z);
    /// End of the second edge from the corner.
    void setPoint2(double x, double y, double z);
    /// Moves the plane so that its centre lies at (x, y, z).
    void setCenter(double x, double y, double z);
    /// Turns the plane about its centre to face (x, y, z).
    void setNormal(double x, double y, double z);
    /// Number of divisions along the first and the second edge.
    void setResolution(int xResolution, int yResolution);

    vtkPlaneSource* getSource() const;
    vtkPolyDataMapper* getMapper() const;

private:
    vtkSmartPointer<vtkPlaneSource> source;
    vtkSmartPointer<vtkPolyDataMapper> mapper;
};

} // namespace Orlavex
