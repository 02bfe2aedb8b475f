#pragma once

#include <Orlavex/scene/Drawable.h>

#include <vtkSmartPointer.h>

class vtkRenderer;

namespace Orlavex {

/// A drawable that paints itself into a VTK renderer.
///
/// The object holds a reference of its own to the renderer, so a copy or the
/// original may be destroyed first without the other losing it.
class ORLAVEX_EXPORT DrawableI : public Drawable {
public:
    DrawableI();
    DrawableI(const DrawableI& other);
    DrawableI& operator=(const DrawableI& other);
    ~DrawableI() override;

    /// Stores the renderer, taking a reference and releasing the previous one.
    /// Adds nothing to it: that is `paint`'s work.
    void setRenderer(vtkRenderer* r);
    vtkRenderer* getRenderer() const;

    /// Puts the object on its renderer; called once, after `setRenderer`.
    virtual void paint() = 0;

protected:
    vtkSmartPointer<vtkRenderer> renderer;
};

} // namespace Orlavex
