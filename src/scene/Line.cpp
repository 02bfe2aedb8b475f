#include <Orlavex/scene/Line.h>

#include "detail/PointCell.h"

#include <algorithm>

#include <vtkActor.h>
#include <vtkCellArray.h>
#include <vtkIdList.h>
#include <vtkLine.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>

namespace Orlavex {

Line::Line(int n, const float* pts)
    : mapper(vtkSmartPointer<vtkPolyDataMapper>::New()), points(vtkSmartPointer<vtkPoints>::New()),
      cell(vtkSmartPointer<vtkLine>::New()), cells(vtkSmartPointer<vtkCellArray>::New()),
      polyData(vtkSmartPointer<vtkPolyData>::New()) {
    numberPoints = std::max(n, 0);
    PointCell::insert(points, numberPoints, pts);
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

void Line::setPoints(const float* pts) {
    if (!pts)
        return;
    PointCell::insert(points, numberPoints, pts);
    points->Modified();
}

void Line::setNumberPoints(int n) {
    numberPoints = std::max(n, 0);
    PointCell::resize(points, numberPoints);
    rebuildCell();
}

void Line::rebuildCell() {
    PointCell::rebuild(cell, cells, polyData, numberPoints);
}

} // namespace Orlavex
