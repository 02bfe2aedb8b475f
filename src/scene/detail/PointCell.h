#pragma once

class vtkCell;
class vtkCellArray;
class vtkPoints;
class vtkPolyData;

namespace Orlavex {

/// The point and cell work that Line and PolygonC share: both draw one cell
/// through `count` points given as 3·count floats (x, y, z per point).
namespace PointCell {
/// Inserts points 0..count-1 from `pts` (at the origin when `pts` is null).
void insert(vtkPoints* points, int count, const float* pts);
/// Makes the point list hold exactly `count` points, so that the cell never
/// names a point that does not exist; new points sit on the last one and add
/// nothing visible until they are placed.
void resize(vtkPoints* points, int count);
/// Rebuilds the drawn cell with ids 0..count-1; no cell at all for count 0
/// (an empty cell would still count as a line or polygon).
void rebuild(vtkCell* cell, vtkCellArray* cells, vtkPolyData* polyData, int count);
} // namespace PointCell

} // namespace Orlavex
