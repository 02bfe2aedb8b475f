#pragma once

#include <Orlavex/scene/DrawableSource.h>

#include <vtkSmartPointer.h>

class vtkCellArray;
class vtkLine;
class vtkPoints;
class vtkPolyData;
class vtkPolyDataMapper;

namespace Orlavex {

/// An open polyline through n points given as 3n floats (x, y, z of point 0,
/// then of point 1, ...); no segment joins the last point to the first.
///
/// The object copies the coordinates and keeps no pointer to the array. Its
/// VTK objects are held by smart pointers, so a copy shares them.
///
/// The drawn shape always has as many points as the count: `setNumberPoints`
/// rebuilds the polyline, keeping the coordinates of the points it keeps and
/// placing new points on the last one until `setPoints` moves them. A
/// negative count counts as 0, and a count of 0 draws nothing. A null array
/// reads nothing: the constructor then starts with every point at the origin.
class ORLAVEX_EXPORT Line : public DrawableSource {
public:
    /// `pts` must hold at least 3n floats; it is only read.
    Line(int n, const float* pts);
    Line(const Line& other);
    Line& operator=(const Line& other);
    ~Line() override;

    /// Sets the number of points drawn, which also bounds the next `setPoints`.
    void setNumberPoints(int n);
    /// Overwrites the coordinates of every point from 3 × count floats,
    /// which are only read; null changes nothing.
    void setPoints(const float* pts);

    int getNumberPoints() const { return numberPoints; }
    vtkPoints* getPoints() const;
    vtkPolyData* getPolyData() const;
    vtkPolyDataMapper* getMapper() const;

private:
    void rebuildCell();

    int numberPoints = 0;
    vtkSmartPointer<vtkPolyDataMapper> mapper;
    vtkSmartPointer<vtkPoints> points;
    /// Holds the point id list from which the drawn cell is made.
    vtkSmartPointer<vtkLine> cell;
    vtkSmartPointer<vtkCellArray> cells;
    vtkSmartPointer<vtkPolyData> polyData;
};

} // namespace Orlavex
