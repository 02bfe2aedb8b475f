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

PolygonC::PolygonC(int n, float* pts) {
    points = vtkPoints::New();
    cell = vtkPolygon::New();
    cells = vtkCellArray::New();
    mapper = vtkPolyDataMapper::New();
    polyData = vtkPolyData::New();
    numberVertexes = std::max(n, 0);
    PointCell::insert(points, numberVertexes, pts);
    rebuildCell();
    polyData->SetPoints(points);
    polyData->SetPolys(cells);
    mapper->SetInputData(polyData);
    actor->SetMapper(mapper);
    actor->Modified();
}

PolygonC::PolygonC(const PolygonC& other)
    : DrawableSource(other), numberVertexes(other.numberVertexes), mapper(other.mapper),
      points(other.points), cell(other.cell), cells(other.cells), polyData(other.polyData) {
    mapper->Register(nullptr);
    points->Register(nullptr);
    cell->Register(nullptr);
    cells->Register(nullptr);
    polyData->Register(nullptr);
}

PolygonC& PolygonC::operator=(const PolygonC& other) {
    if (this != &other) {
        DrawableSource::operator=(other);
        numberVertexes = other.numberVertexes;
        shareReference(mapper, other.mapper);
        shareReference(points, other.points);
        shareReference(cell, other.cell);
        shareReference(cells, other.cells);
        shareReference(polyData, other.polyData);
    }
    return *this;
}

PolygonC::~PolygonC() {
    points->Delete();
    cell->Delete();
    cells->Delete();
    polyData->Delete();
    mapper->Delete();
}

void PolygonC::setPoints(float* pts) {
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
