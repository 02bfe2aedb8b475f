#pragma once

#include <Orlavex/scene/DrawableSource.h>

class vtkCellArray;
class vtkPoints;
class vtkPolyData;
class vtkPolyDataMapper;
class vtkPolygon;

namespace Orlavex {

/// One filled polygon with n vertices given as 3n floats (x, y, z of vertex
/// 0, then of vertex 1, ...).
///
/// The object copies the coordinates and keeps no pointer to the array. Its
/// VTK objects are held by smart pointers, so a copy shares them.
///
/// The drawn shape always has as many vertices as the count:
/// `setNumberVertexes` rebuilds the polygon, keeping the coordinates of the
/// vertices it keeps and placing new ones on the last one until `setPoints`
/// moves them. A negative count counts as 0, and a count of 0 draws nothing.
/// A null array reads nothing: the constructor then starts with every vertex
/// at the origin.
class ORLAVEX_EXPORT PolygonC : public DrawableSource {
public:
    /// `pts` must hold at least 3n floats; it is only read.
    PolygonC(int n, const float* pts);
    PolygonC(const PolygonC& other);
    PolygonC& operator=(const PolygonC& other);
    ~PolygonC() override;

    /// Sets the number of vertices drawn, which also bounds the next `setPoints`.
    void setNumberVertexes(int n);
    /// Overwrites the coordinates of every vertex from 3 × count floats,
    /// which are only read; null changes nothing.
    void setPoints(const float* pts);

    int getNumberVertexes() const { return numberVertexes; }
    vtkPoints* getPoints() const;
    vtkPolyData* getPolyData() const;
    vtkPolyDataMapper* getMapper() const;

private:
    void rebuildCell();

    int numberVertexes = 0;
    vtkSmartPointer<vtkPolyDataMapper> mapper;
    vtkSmartPointer<vtkPoints> points;
    /// Holds the point id list from which the drawn cell is made.
    vtkSmartPointer<vtkPolygon> cell;
    vtkSmartPointer<vtkCellArray> cells;
    vtkSmartPointer<vtkPolyData> polyData;
};

} // namespace Orlavex
