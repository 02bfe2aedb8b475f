#include <Orlavex/scene/PolygonC.h>

#include <algorithm>

#include <vtkActor.h>
#include <vtkCellArray.h>
#include <vtkIdList.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkPolygon.h>

PolygonC::PolygonC(int n, float* pts) {
    points = vtkPoints::New();
    cell = vtkPolygon::New();
    cells = vtkCellArray::New();
    mapper = vtkPolyDataMapper::New();
    polyData = vtkPolyData::New();
    numberVertexes = std::max(n, 0);
    for (int i = 0; i < numberVertexes; ++i) {
        if (pts)
            points->InsertPoint(i, pts[3 * i], pts[3 * i + 1], pts[3 * i + 2]);
        else
            points->InsertPoint(i, 0.0, 0.0, 0.0);
    }
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
    for (int i = 0; i < numberVertexes; ++i)
        points->InsertPoint(i, pts[3 * i], pts[3 * i + 1], pts[3 * i + 2]);
    points->Modified();
}

void PolygonC::setNumberVertexes(int n) {
    numberVertexes = std::max(n, 0);
    // The point list follows the count, so that the cell never names a point
    // that does not exist; new vertices sit on the last one and change nothing
    // visible until setPoints places them.
    const vtkIdType held = points->GetNumberOfPoints();
    if (numberVertexes < held) {
        points->SetNumberOfPoints(numberVertexes);
    } else {
        double last[3] = {0, 0, 0};
        if (held > 0)
            points->GetPoint(held - 1, last);
        for (vtkIdType i = held; i < numberVertexes; ++i)
            points->InsertPoint(i, last);
    }
    points->Modified();
    rebuildCell();
}

void PolygonC::rebuildCell() {
    vtkIdList* ids = cell->GetPointIds();
    ids->SetNumberOfIds(numberVertexes);
    for (int i = 0; i < numberVertexes; ++i)
        ids->SetId(i, i);
    cell->Modified();
    cells->Reset();
    // An empty cell would still count as a polygon; with no vertices there is none.
    if (numberVertexes > 0)
        cells->InsertNextCell(ids);
    cells->Modified();
    // Drops the cell lookup the polydata may have built from the old array.
    polyData->DeleteCells();
    polyData->Modified();
}
