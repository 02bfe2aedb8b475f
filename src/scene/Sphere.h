#pragma once

#include <Orlavex/scene/DrawableSource.h>

class vtkPolyDataMapper;
class vtkSphereSource;

namespace Orlavex {

/// A sphere, or a part of one cut by longitude and latitude, drawn from a
/// `vtkSphereSource`.
///
/// Setters record their value and forward it to the source; the source
/// regenerates its polygons at the next render. A copy shares the source and
/// mapper, holding references of its own.
class ORLAVEX_EXPORT Sphere : public DrawableSource {
public:
    Sphere();
    Sphere(const Sphere& other);
    Sphere& operator=(const Sphere& other);
    ~Sphere() override;

    void setRadius(double r);
    void setCenter(double x, double y, double z);
    /// Number of points around the longitude.
    void setThetaResolution(int n);
    /// Number of points from pole to pole.
    void setPhiResolution(int n);
    /// Longitude range in degrees.
    void setStartTheta(double a);
    void setEndTheta(double a);
    /// Latitude range in degrees, 0 at the +Z pole.
    void setStartPhi(double a);
    void setEndPhi(double a);
    void latLongTessellationOn();

    vtkSphereSource* getSource() const;
    vtkPolyDataMapper* getMapper() const;

    /// Values last given to the setters; until a setter is called they read
    /// the source's own defaults.
    const double* getCenter() const { return center; }
    double getRadius() const { return radius; }
    int getThetaResolution() const { return thetaResolution; }
    double getStartTheta() const { return startTheta; }
    double getEndTheta() const { return endTheta; }
    int getPhiResolution() const { return phiResolution; }
    double getStartPhi() const { return startPhi; }
    double getEndPhi() const { return endPhi; }

private:
    vtkSmartPointer<vtkSphereSource> source;
    double center[3] = {0, 0, 0};
    double radius = 0;
    int thetaResolution = 0;
    double startTheta = 0, endTheta = 0;
    int phiResolution = 0;
    double startPhi = 0, endPhi = 0;
    vtkSmartPointer<vtkPolyDataMapper> mapper;
};

} // namespace Orlavex
