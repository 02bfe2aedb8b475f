#include "PointCell.h"

#include <vtkCell.h>
#include <vtkCellArray.h>
#include <vtkIdList.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>

namespace Orlavex {

namespace PointCell {

void insert(vtkPoints* points, int count, const float* pts) {
    for (int i = 0; i < count; ++i) {
        if (pts)
            points->InsertPoint(i, pts[3 * i], pts[3 * i + 1], pts[3 * i + 2]);
        else
            points->InsertPoint(i, 0.0, 0.0, 0.0);
    }
}

void resize(vtkPoints* points, int count) {
    const vtkIdType held = points->GetNumberOfPoints();
    if (count < held) {
        points->SetNumberOfPoints(count);
    } else {
        double last[3] = {0, 0, 0};
        if (held > 0)
            points->GetPoint(held - 1, last);
        for (vtkIdType i = held; i < count; ++i)
            points->InsertPoint(i, last);
    }
    points->Modified();
}

void rebuild(vtkCell* cell, vtkCellArray* cells, vtkPolyData* polyData, int count) {
    vtkIdList* ids = cell->GetPointIds();
    ids->SetNumberOfIds(count);
    for (int i = 0; i < count; ++i)
        ids->SetId(i, i);
    cell->Modified();
    cells->Reset();
    if (count > 0)
        cells->InsertNextCell(ids);
    cells->Modified();
    // Drops the cell lookup the polydata may have built from the old array.
    polyData->DeleteCells();
    polyData->Modified();
}

} // namespace PointCell

} // namespace Orlavex
