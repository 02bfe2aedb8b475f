#pragma once

#include <Orlavex/scene/DrawableSource.h>

class vtkDiskSource;
class vtkPolyDataMapper;

namespace Orlavex {

/// A flat disc, or a ring when the inner radius is above 0, in the XY plane,
/// drawn from a `vtkDiskSource`.
///
/// A copy shares the source and mapper, holding references of its own.
class ORLAVEX_EXPORT DiskSource : public DrawableSource {
public:
    DiskSource();
    DiskSource(const DiskSource& other);
    DiskSource& operator=(const DiskSource& other);
    ~DiskSource() override;

    void setInnerRadius(double r);
    void setOuterRadius(double r);
    /// Number of rings between the inner and the outer radius.
    void setRadialResolution(int n);
    /// Number of sectors around the centre.
    void setCircumferentialResolution(int n);

    vtkDiskSource* getSource() const;
    vtkPolyDataMapper* getMapper() const;

private:
    vtkSmartPointer<vtkDiskSource> source;
    vtkSmartPointer<vtkPolyDataMapper> mapper;
};

} // namespace Orlavex
