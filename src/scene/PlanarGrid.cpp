#include "PlanarGrid.h"

#include "detail/ColourTable.h"

#include <QtDebug>

#include <vtkActor.h>
#include <vtkArrowSource.h>
#include <vtkCellData.h>
#include <vtkDataSetMapper.h>
#include <vtkFloatArray.h>
#include <vtkGlyph3D.h>
#include <vtkLookupTable.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkRectilinearGrid.h>
#include <vtkRenderer.h>

#include <algorithm>
#include <cstring>

namespace Orlavex {

namespace {
// Cells along one axis as counted for the value arrays: 0 or 1 cells count as one.
long long cellFactor(int n) {
    return n > 1 ? n : 1;
}

// Number of glyph rows along one axis: one per interior grid line, at least one.
int glyphRows(int n) {
    return std::max(n - 1, 1);
}

// A negative count would give VTK an inverted extent; it is read as an empty axis.
int gridDimension(int lines) {
    return std::max(lines, 0);
}
} // namespace

PlanarGrid::PlanarGrid(float x0, float y0, float z0, float lengthx, float lengthy, float lengthz,
                       int nx, int ny, int nz, const float* cellColors,
                       const float* vectorMagnitude, float hueMin, float hueMax,
                       float saturationMin, float saturationMax, float valueMin, float valueMax,
                       float alphaMin, float alphaMax, float rangeMin, float rangeMax, int scale,
                       int ramp, int displayVectors)
    : lengthx(lengthx), lengthy(lengthy), lengthz(lengthz), x0(x0), y0(y0), z0(z0), nx(nx), ny(ny),
      nz(nz), xCoordinates(vtkSmartPointer<vtkFloatArray>::New()),
      yCoordinates(vtkSmartPointer<vtkFloatArray>::New()),
      zCoordinates(vtkSmartPointer<vtkFloatArray>::New()),
      scalars(vtkSmartPointer<vtkFloatArray>::New()),
      magnitudes(vtkSmartPointer<vtkFloatArray>::New()),
      vectors(vtkSmartPointer<vtkFloatArray>::New()),
      cellLUT(vtkSmartPointer<vtkLookupTable>::New()),
      vectorLUT(vtkSmartPointer<vtkLookupTable>::New()),
      grid(vtkSmartPointer<vtkRectilinearGrid>::New()),
      mapper(vtkSmartPointer<vtkDataSetMapper>::New()),
      glyphPoints(vtkSmartPointer<vtkPoints>::New()),
      glyphInput(vtkSmartPointer<vtkPolyData>::New()),
      arrow(vtkSmartPointer<vtkArrowSource>::New()), glyph(vtkSmartPointer<vtkGlyph3D>::New()),
      glyphMapper(vtkSmartPointer<vtkPolyDataMapper>::New()),
      glyphActor(vtkSmartPointer<vtkActor>::New()) {
    cellNumber = int(cellFactor(nx) * cellFactor(ny) * cellFactor(nz));
    this->cellColors.assign(cellColors, cellColors + cellNumber);
    this->vectorMagnitude.assign(vectorMagnitude, vectorMagnitude + cellNumber);

    this->displayVectors = displayVectors;

    if (displayVectors) {
        vectors->SetName("vectors");
        vectors->SetNumberOfComponents(3);
        vectors->SetNumberOfTuples(cellNumber);
        for (int i = 0; i < cellNumber; ++i)
            vectors->SetTuple3(i, 1.0, 0.0, 0.0);
        vectors->Modified();
        // setVectorMagnitude writes by index, so the array needs its length first.
        magnitudes->SetNumberOfValues(cellNumber);
    }

    actor->SetMapper(mapper);
    actor->Modified();
    setEdgeVisibility(1.0);

    dx = nx > 0 ? lengthx / float(nx) : 0.0f;
    dy = ny > 0 ? lengthy / float(ny) : 0.0f;
    dz = nz > 0 ? lengthz / float(nz) : 0.0f;
    fillCoordinates(xCoordinates, nx + 1, dx, x0);
    fillCoordinates(yCoordinates, ny + 1, dy, y0);
    fillCoordinates(zCoordinates, nz + 1, dz, z0);

    grid->SetDimensions(gridDimension(nx + 1), gridDimension(ny + 1), gridDimension(nz + 1));
    grid->SetXCoordinates(xCoordinates);
    grid->SetYCoordinates(yCoordinates);
    grid->SetZCoordinates(zCoordinates);

    scalars->SetName("scalars");
    scalars->SetNumberOfValues(cellNumber);
    for (int i = 0; i < cellNumber; ++i)
        scalars->SetValue(i, this->cellColors[std::size_t(i)]);
    grid->GetCellData()->SetScalars(scalars);

    setVectorMagnitude(this->vectorMagnitude.data());

    setCellLUT(hueMin, hueMax, saturationMin, saturationMax, valueMin, valueMax, alphaMin, alphaMax,
               rangeMin, rangeMax, scale, ramp);

    mapper->SetLookupTable(cellLUT);
    mapper->ScalarVisibilityOn();
    mapper->SetUseLookupTableScalarRange(1);
    mapper->SetColorModeToMapScalars();
    mapper->SetScalarModeToUseCellData();
    mapper->SetInputData(grid);

    if (displayVectors) {
        buildGlyphPoints();
        glyphInput->SetPoints(glyphPoints);
        glyphInput->GetPointData()->SetScalars(magnitudes);
        glyphInput->GetPointData()->SetVectors(vectors);

        glyph->SetInputData(glyphInput);
        glyph->SetSourceConnection(0, arrow->GetOutputPort(0));
        glyph->SetVectorModeToUseVector();
        glyph->SetScaleModeToScaleByScalar();
        glyph->SetScaleFactor(double(scaleVector));

        glyphMapper->SetLookupTable(vectorLUT);
        glyphMapper->SetScalarRange(0.0, 1.0);
        glyphMapper->SetColorModeToMapScalars();
        glyphMapper->SetScalarModeToUsePointData();
        glyphMapper->SetInputConnection(glyph->GetOutputPort(0));

        glyphActor->SetMapper(glyphMapper);
    }
}

PlanarGrid::PlanarGrid(const PlanarGrid& other) = default;
PlanarGrid& PlanarGrid::operator=(const PlanarGrid& other) = default;
PlanarGrid::~PlanarGrid() = default;

vtkRectilinearGrid* PlanarGrid::getGrid() const {
    return grid;
}
vtkFloatArray* PlanarGrid::getXCoordinates() const {
    return xCoordinates;
}
vtkFloatArray* PlanarGrid::getYCoordinates() const {
    return yCoordinates;
}
vtkFloatArray* PlanarGrid::getZCoordinates() const {
    return zCoordinates;
}
vtkFloatArray* PlanarGrid::getScalars() const {
    return scalars;
}
vtkFloatArray* PlanarGrid::getMagnitudes() const {
    return magnitudes;
}
vtkFloatArray* PlanarGrid::getVectors() const {
    return vectors;
}
vtkLookupTable* PlanarGrid::getCellLUT() const {
    return cellLUT;
}
vtkLookupTable* PlanarGrid::getVectorLUT() const {
    return vectorLUT;
}
vtkDataSetMapper* PlanarGrid::getMapper() const {
    return mapper;
}
vtkGlyph3D* PlanarGrid::getGlyph() const {
    return glyph;
}
vtkActor* PlanarGrid::getGlyphActor() const {
    return glyphActor;
}
vtkPolyData* PlanarGrid::getGlyphInput() const {
    return glyphInput;
}
vtkPoints* PlanarGrid::getGlyphPoints() const {
    return glyphPoints;
}

void PlanarGrid::paint() {
    if (!renderer)
        return;
    renderer->AddActor(actor);
    if (displayVectors)
        renderer->AddActor(glyphActor);
}

void PlanarGrid::setCellColors(const std::vector<float>& colors) {
    try {
        for (int i = 0; i < cellNumber; ++i)
            scalars->SetValue(i, colors.at(std::size_t(i)));
    } catch (...) {
        // The values before the gap are stored; let them show even though
        // the caller is told that the vector was short.
        scalars->Modified();
        throw;
    }
    scalars->Modified();
}

void PlanarGrid::setCellColors(const float* values, int count) {
    const int n = std::min(count, cellNumber);
    // Straight into the float storage, as setVectors does.
    if (n > 0)
        std::memcpy(scalars->GetPointer(0), values, std::size_t(n) * sizeof(float));
    scalars->Modified();
}

void PlanarGrid::setCellLUT(float hueMin, float hueMax, float saturationMin, float saturationMax,
                            float valueMin, float valueMax, float alphaMin, float alphaMax,
                            float rangeMin, float rangeMax, int scale, int ramp) {
    ColourTable::configure(cellLUT, hueMin, hueMax, saturationMin, saturationMax, valueMin,
                           valueMax, alphaMin, alphaMax, rangeMin, rangeMax, scale, ramp);
}

void PlanarGrid::setVectorLUT(float hueMin, float hueMax, float saturationMin, float saturationMax,
                              float valueMin, float valueMax, float alphaMin, float alphaMax,
                              float rangeMin, float rangeMax, int scale, int ramp) {
    ColourTable::configure(vectorLUT, hueMin, hueMax, saturationMin, saturationMax, valueMin,
                           valueMax, alphaMin, alphaMax, rangeMin, rangeMax, scale, ramp);
}

void PlanarGrid::setVectorMagnitude(const float* m) {
    if (!displayVectors)
        return;
    // The constructor hands in the stored array itself, hence memmove.
    std::memmove(vectorMagnitude.data(), m, std::size_t(cellNumber) * sizeof(float));
    magnitudes->SetName("magnitude");
    for (int i = 0; i < cellNumber; ++i)
        magnitudes->SetValue(i, vectorMagnitude[std::size_t(i)]);
    magnitudes->Modified();
}

void PlanarGrid::setVectors(const float* v) {
    if (!displayVectors)
        return;
    // Straight into the float storage: the same values SetTuple3 would store
    // (float to double and back is exact), without a virtual call per cell.
    if (cellNumber > 0)
        std::memcpy(vectors->GetPointer(0), v, std::size_t(cellNumber) * 3 * sizeof(float));
    vectors->Modified();
}

void PlanarGrid::setScaleVector(float s) {
    if (!displayVectors)
        return;
    scaleVector = s;
    glyph->SetScaleFactor(double(s));
}

void PlanarGrid::setCellPoints(float fx, float fy, float fz) {
    cellPoints[0] = fx;
    cellPoints[1] = fy;
    cellPoints[2] = fz;
}

void PlanarGrid::setx0y0z0(float x0, float y0, float z0) {
    this->x0 = x0;
    this->y0 = y0;
    this->z0 = z0;
}

void PlanarGrid::fillCoordinates(vtkFloatArray* coordinates, int count, float spacing,
                                 float origin) {
    count = std::max(count, 0);
    coordinates->SetNumberOfValues(count);
    for (int i = 0; i < count; ++i)
        coordinates->SetValue(i, float(i) * spacing + origin);
    coordinates->Modified();
}

void PlanarGrid::setAxisLength(float L, float& length, int cells, float& spacing,
                               vtkFloatArray* coordinates, float origin, bool rebuildGlyphs) {
    length = L;
    spacing = cells > 0 ? L / float(cells) : 0.0f;
    fillCoordinates(coordinates, cells + 1, spacing, origin);
    if (displayVectors && rebuildGlyphs)
        buildGlyphPoints();
}

void PlanarGrid::setLengthx(float L) {
    setAxisLength(L, lengthx, nx, dx, xCoordinates, x0);
}
void PlanarGrid::setLengthy(float L) {
    setAxisLength(L, lengthy, ny, dy, yCoordinates, y0);
}
void PlanarGrid::setLengthz(float L) {
    setAxisLength(L, lengthz, nz, dz, zCoordinates, z0);
}
void PlanarGrid::setLengths(float Lx, float Ly, float Lz) {
    setAxisLength(Lx, lengthx, nx, dx, xCoordinates, x0, false);
    setAxisLength(Ly, lengthy, ny, dy, yCoordinates, y0, false);
    setAxisLength(Lz, lengthz, nz, dz, zCoordinates, z0);
}

void PlanarGrid::setDimensions(int nx, int ny, int nz) {
    // The value arrays keep the length fixed at construction; more cells (or
    // glyph positions, which are as many) would make VTK read past their end.
    const long long cells = (long long)glyphRows(nx) * glyphRows(ny) * glyphRows(nz);
    if (cells > cellNumber) {
        qWarning().nospace() << "PlanarGrid::setDimensions(" << nx << ", " << ny << ", " << nz
                             << ") refused: " << cells << " cells exceed the " << cellNumber
                             << " values per array fixed at construction";
        return;
    }
    this->nx = nx;
    this->ny = ny;
    this->nz = nz;
    dx = nx > 1 ? lengthx / float(nx - 1) : 0.0f;
    dy = ny > 1 ? lengthy / float(ny - 1) : 0.0f;
    dz = nz > 1 ? lengthz / float(nz - 1) : 0.0f;
    fillCoordinates(xCoordinates, nx, dx, x0);
    fillCoordinates(yCoordinates, ny, dy, y0);
    fillCoordinates(zCoordinates, nz, dz, z0);
    grid->SetDimensions(gridDimension(nx), gridDimension(ny), gridDimension(nz));
    grid->SetXCoordinates(xCoordinates);
    grid->SetYCoordinates(yCoordinates);
    grid->SetZCoordinates(zCoordinates);
    if (displayVectors)
        buildGlyphPoints();
}

void PlanarGrid::buildGlyphPoints() {
    const int mx = glyphRows(nx), my = glyphRows(ny), mz = glyphRows(nz);
    vtkIdType id = 0;
    // Points are written over the existing ones from id 0; a smaller block
    // leaves the earlier points beyond it in place (and the arrays that the
    // glyph filter reads are never shorter than the list).
    for (int i = 0; i < mx; ++i)
        for (int j = 0; j < my; ++j)
            for (int k = 0; k < mz; ++k) {
                const float px = (float(i) + cellPoints[0]) * dx + x0;
                const float py = (float(j) + cellPoints[1]) * dy + y0;
                const float pz = (float(k) + cellPoints[2]) * dz + z0;
                glyphPoints->InsertPoint(id++, double(px), double(py), double(pz));
            }
    glyphPoints->Modified();
}

} // namespace Orlavex
