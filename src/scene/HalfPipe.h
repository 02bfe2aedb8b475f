#pragma once

#include <Orlavex/scene/DrawableSource.h>

class vtkDataSetMapper;
class vtkStructuredGrid;

namespace Orlavex {

/// A thick half cylinder: a trough along the X axis, from -length/2 to
/// +length/2, whose cross-section is the lower half (z ≤ 0) of the ring
/// between the inner and the outer radius, so that it opens towards +Z.
///
/// The points of a structured grid of angular × radial × axial points are
/// computed by the object itself; the grid's outer surface is drawn. Nothing
/// is drawn until `paint` or a setter first builds the points; from then on
/// every setter rebuilds all of them at once, on the calling thread.
///
/// Counts below 2, which leave no step to divide by: a count of 1 gives a
/// single layer in that direction (one cross-section at x = -length/2, one
/// wall at the inner radius, or one line of points at the angle π), so the
/// geometry never holds a NaN; a count of 0 or below draws nothing. So does
/// a grid of more than `maxPoints` points, which no screen could show and
/// whose rebuild on every setter call would stall the link thread. The
/// counts are kept as given either way.
///
/// A copy shares the grid and mapper, holding references of its own.
class ORLAVEX_EXPORT HalfPipe : public DrawableSource {
public:
    HalfPipe(float radiusMin, float radiusMax, float length, int angular, int radial, int axial);
    HalfPipe(const HalfPipe& other);
    HalfPipe& operator=(const HalfPipe& other);
    ~HalfPipe() override;

    /// Builds the points, then adds the actor to the renderer.
    void paint() override;
    /// Builds the points from the present radii, length and counts.
    void paintTube();

    void setRadiusMin(float r);
    void setRadiusMax(float r);
    void setLength(float l);
    /// `setRadiusMin`, `setRadiusMax` and `setLength` in one go, with one
    /// rebuild of the points instead of three (the half-pipe record's path).
    void setTube(float radiusMin, float radiusMax, float length);
    /// Points along the half circle, across the wall and along the axis.
    void setDimensions(int angular, int radial, int axial);

    float getRadiusMin() const { return radiusMin; }
    float getRadiusMax() const { return radiusMax; }
    float getLength() const { return length; }
    /// The angular, radial and axial counts, as given.
    const int* getDimensions() const { return dimensions; }
    vtkStructuredGrid* getGrid() const;
    vtkDataSetMapper* getMapper() const;

    /// The largest grid that is built.
    static constexpr long long maxPoints = 1LL << 24;

private:
    /// Whether the counts describe a grid that is built at all.
    bool buildable() const;
    void applyDimensions();

    float radiusMin = 0;
    float radiusMax = 0;
    int dimensions[3] = {0, 0, 0};
    float length = 0;
    vtkSmartPointer<vtkStructuredGrid> grid;
    vtkSmartPointer<vtkDataSetMapper> mapper;
};

} // namespace Orlavex
