#pragma once

#include <Orlavex/scene/DrawableSource.h>

class vtkArrowSource;
class vtkPolyDataMapper;

namespace Orlavex {

/// An arrow of unit length along X, from the origin to its tip, drawn from a
/// `vtkArrowSource`; its size on screen is set with `setScale`.
///
/// Setters record their value and forward it to the source. A copy shares the
/// source and mapper, holding references of its own.
class ORLAVEX_EXPORT Arrow : public DrawableSource {
public:
    Arrow();
    Arrow(const Arrow& other);
    Arrow& operator=(const Arrow& other);
    ~Arrow() override;

    /// Tip length as a fraction of the whole arrow.
    void setTipLength(double l);
    void setTipRadius(double r);
    void setTipResolution(int n);
    void setShaftRadius(double r);
    void setShaftResolution(int n);

    vtkArrowSource* getSource() const;
    vtkPolyDataMapper* getMapper() const;

    /// Values last given to the setters; until a setter is called they read
    /// the source's own defaults.
    int getTipResolution() const { return tipResolution; }
    int getShaftResolution() const { return shaftResolution; }
    double getTipLength() const { return tipLength; }
    double getTipRadius() const { return tipRadius; }
    double getShaftRadius() const { return shaftRadius; }

private:
    vtkSmartPointer<vtkArrowSource> source;
    vtkSmartPointer<vtkPolyDataMapper> mapper;
    int tipResolution = 0;
    int shaftResolution = 0;
    double tipLength = 0, tipRadius = 0, shaftRadius = 0;
};

} // namespace Orlavex
