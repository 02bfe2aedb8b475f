#include <Orlavex/scene/Line.h>

#include <algorithm>

#include <vtkActor.h>
#include <vtkCellArray.h>
#include <vtkIdList.h>
#include <vtkLine.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>

Line::Line(int n, float* pts)
    : mapper(vtkSmartPointer<vtkPolyDataMapper>::New()), points(vtkSmartPointer<vtkPoints>::New()),
      cell(vtkSmartPointer<vtkLine>::New()), cells(vtkSmartPointer<vtkCellArray>::New()),
      polyData(vtkSmartPointer<vtkPolyData>::New()) {
    numberPoints = std::max(n, 0);
    for (int i = 0; i < numberPoints; ++i) {
        if (pts)
            points->InsertPoint(i, pts[3 * i], pts[3 * i + 1], pts[3 * i + 2]);
        else
            points->InsertPoint(i, 0.0, 0.0, 0.0);
    }
    rebuildCell();
    polyData->SetPoints(points);
    // As lines, not polygons: the points are joined in order and the shape
    // stays open.
    polyData->SetLines(cells);
    mapper->SetInputData(polyData);
    actor->SetMapper(mapper);
    actor->Modified();
}

Line::Line(const Line& other) = default;
Line& Line::operator=(const Line& other) = default;
Line::~Line() = default;

vtkPoints* Line::getPoints() const {
    return points;
}
vtkPolyData* Line::getPolyData() const {
    return polyData;
}
vtkPolyDataMapper* Line::getMapper() const {
    return mapper;
}

void Line::setPoints(float* pts) {
    if (!pts)
        return;
    for (int i = 0; i < numberPoints; ++i)
        points->InsertPoint(i, pts[3 * i], pts[3 * i + 1], pts[3 * i + 2]);
    points->Modified();
}

void Line::setNumberPoints(int n) {
    numberPoints = std::max(n, 0);
    // The point list follows the count, so that the cell never names a point
    // that does not exist; new points sit on the last one and add no visible
    // segment until setPoints places them.
    const vtkIdType held = points->GetNumberOfPoints();
    if (numberPoints < held) {
        points->SetNumberOfPoints(numberPoints);
    } else {
        double last[3] = {0, 0, 0};
        if (held > 0)
            points->GetPoint(held - 1, last);
        for (vtkIdType i = held; i < numberPoints; ++i)
            points->InsertPoint(i, last);
    }
    points->Modified();
    rebuildCell();
}

void Line::rebuildCell() {
    vtkIdList* ids = cell->GetPointIds();
    ids->SetNumberOfIds(numberPoints);
    for (int i = 0; i < numberPoints; ++i)
        ids->SetId(i, i);
    cell->Modified();
    cells->Reset();
    // An empty cell would still count as a line; with no points there is none.
    if (numberPoints > 0)
        cells->InsertNextCell(ids);
    cells->Modified();
    // Drops the cell lookup the polydata may have built from the old array.
    polyData->DeleteCells();
    polyData->Modified();
}
