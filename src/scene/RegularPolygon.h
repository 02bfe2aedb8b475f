#pragma once

#include <Orlavex/scene/DrawableSource.h>

class vtkPolyDataMapper;
class vtkRegularPolygonSource;

namespace Orlavex {

/// A regular polygon, filled, outlined or both, drawn from a
/// `vtkRegularPolygonSource`.
///
/// A copy shares the source and mapper, holding references of its own.
class ORLAVEX_EXPORT RegularPolygon : public DrawableSource {
public:
    RegularPolygon();
    RegularPolygon(const RegularPolygon& other);
    RegularPolygon& operator=(const RegularPolygon& other);
    ~RegularPolygon() override;

    void setNumberOfSides(int n);
    /// Distance from the centre to each vertex.
    void setRadius(double r);
    void setCenter(double x, double y, double z);
    /// The direction the polygon faces.
    void setNormal(double x, double y, double z);
    /// 1 draws the filled polygon.
    void setGeneratePolygon(int on);
    /// 1 draws the outline.
    void setGeneratePolyline(int on);

    vtkRegularPolygonSource* getSource() const;
    vtkPolyDataMapper* getMapper() const;

    /// The centre last given to `setCenter`; until then the source's default.
    const double* getCenter() const { return center; }

private:
    vtkSmartPointer<vtkRegularPolygonSource> source;
    double center[3] = {0, 0, 0};
    vtkSmartPointer<vtkPolyDataMapper> mapper;
};

} // namespace Orlavex
