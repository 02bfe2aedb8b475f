#include <Orlavex/scene/HalfPipe.h>

#include <algorithm>
#include <cmath>

#include <vtkActor.h>
#include <vtkDataSetMapper.h>
#include <vtkPoints.h>
#include <vtkStructuredGrid.h>

namespace Orlavex {

HalfPipe::HalfPipe(float radiusMin, float radiusMax, float length, int angular, int radial,
                   int axial)
    : radiusMin(radiusMin), radiusMax(radiusMax), dimensions{angular, radial, axial},
      length(length), grid(vtkSmartPointer<vtkStructuredGrid>::New()),
      mapper(vtkSmartPointer<vtkDataSetMapper>::New()) {
    applyDimensions();
    mapper->SetInputData(grid);
    actor->SetMapper(mapper);
}

HalfPipe::HalfPipe(const HalfPipe& other) = default;
HalfPipe& HalfPipe::operator=(const HalfPipe& other) = default;
HalfPipe::~HalfPipe() = default;

vtkStructuredGrid* HalfPipe::getGrid() const {
    return grid;
}
vtkDataSetMapper* HalfPipe::getMapper() const {
    return mapper;
}

void HalfPipe::paint() {
    paintTube();
    DrawableSource::paint();
}

bool HalfPipe::buildable() const {
    if (dimensions[0] < 1 || dimensions[1] < 1 || dimensions[2] < 1)
        return false;
    return static_cast<long long>(dimensions[0]) * dimensions[1] * dimensions[2] <= maxPoints;
}

void HalfPipe::applyDimensions() {
    if (buildable())
        grid->SetDimensions(dimensions[0], dimensions[1], dimensions[2]);
    else
        grid->SetDimensions(0, 0, 0);
}

void HalfPipe::paintTube() {
    const int nTheta = dimensions[0], nR = dimensions[1], nZ = dimensions[2];
    auto points = vtkSmartPointer<vtkPoints>::New();
    if (buildable()) {
        // The mix of float and double arithmetic below is the pipe's defined
        // geometry: "simplifying" it moves points by an ulp. A count of 1
        // divides by 1: its only index is 0, so the step never matters and
        // no 0/0 arises.
        const float dz = length / static_cast<float>(std::max(nZ - 1, 1));
        const float dr = (radiusMax - radiusMin) / static_cast<float>(std::max(nR - 1, 1));
        const double angularSteps = std::max(nTheta - 1, 1);
        points->Allocate(static_cast<vtkIdType>(nR) * nTheta * nZ, 1000);
        for (int k = 0; k < nZ; ++k) {
            const float x =
                static_cast<float>(static_cast<float>(k) * dz - static_cast<double>(length) * 0.5);
            for (int j = 0; j < nR; ++j) {
                const float r = static_cast<float>(j) * dr + radiusMin;
                for (int i = 0; i < nTheta; ++i) {
                    const float theta = static_cast<float>(
                        ((static_cast<double>(i) * 180.0) / angularSteps) * 0.017453292519943295 +
                        3.141592653589793);
                    const float p[3] = {x, std::cos(theta) * r, std::sin(theta) * r};
                    const vtkIdType id = i + static_cast<vtkIdType>(nTheta) * j +
                                         static_cast<vtkIdType>(nTheta) * nR * k;
                    points->InsertPoint(id, p);
                }
            }
        }
    }
    grid->SetPoints(points);
}

void HalfPipe::setRadiusMin(float r) {
    radiusMin = r;
    paintTube();
}

void HalfPipe::setRadiusMax(float r) {
    radiusMax = r;
    paintTube();
}

void HalfPipe::setLength(float l) {
    length = l;
    paintTube();
}

void HalfPipe::setTube(float radiusMin, float radiusMax, float length) {
    this->radiusMin = radiusMin;
    this->radiusMax = radiusMax;
    this->length = length;
    paintTube();
}

void HalfPipe::setDimensions(int angular, int radial, int axial) {
    dimensions[0] = angular;
    dimensions[1] = radial;
    dimensions[2] = axial;
    applyDimensions();
    paintTube();
}

} // namespace Orlavex
