#include <Orlavex/scene/PolygonC.h>

#include "detail/PointCell.h"

#include <algorithm>

#include <vtkActor.h>
#include <vtkCellArray.h>
#include <vtkIdList.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkPolygon.h>

namespace Orlavex {

PolygonC::PolygonC(int n, const float* pts)
    : mapper(vtkSmartPointer<vtkPolyDataMapper>::New()), points(vtkSmartPointer<vtkPoints>::New()),
      cell(vtkSmartPointer<vtkPolygon>::New()), cells(vtkSmartPointer<vtkCellArray>::New()),
      polyData(vtkSmartPointer<vtkPolyData>::New()) {
    numberVertexes = std::max(n, 0);
    PointCell::insert(points, numberVertexes, pts);
    rebuildCell();
    polyData->SetPoints(points);
    polyData->SetPolys(cells);
    mapper->SetInputData(polyData);
    actor->SetMapper(mapper);
    actor->Modified();
}

PolygonC::PolygonC(const PolygonC& other) = default;
PolygonC& PolygonC::operator=(const PolygonC& other) = default;
PolygonC::~PolygonC() = default;

vtkPoints* PolygonC::getPoints() const {
    return points;
}
vtkPolyData* PolygonC::getPolyData() const {
    return polyData;
}
vtkPolyDataMapper* PolygonC::getMapper() const {
    return mapper;
}

void PolygonC::setPoints(const float* pts) {
    if (!pts)
        return;
    PointCell::insert(points, numberVertexes, pts);
    points->Modified();
}

void PolygonC::setNumberVertexes(int n) {
    numberVertexes = std::max(n, 0);
    PointCell::resize(points, numberVertexes);
    rebuildCell();
}

void PolygonC::rebuildCell() {
    PointCell::rebuild(cell, cells, polyData, numberVertexes);
}

} // namespace Orlavex
