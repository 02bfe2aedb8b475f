#pragma once

#include <Orlavex/scene/Drawable.h>

class vtkRenderer;

namespace Orlavex {

/// A drawable that paints itself into a VTK renderer.
///
/// The object holds a reference of its own to the renderer, so a copy or the
/// original may be destroyed first without the other losing it.
class ORLAVEX_EXPORT DrawableI : public Drawable {
public:
    DrawableI() = default;
    DrawableI(const DrawableI& other);
    DrawableI& operator=(const DrawableI& other);
    ~DrawableI() override;

    /// Stores the renderer, taking a reference and releasing the previous one.
    /// Adds nothing to it: that is `paint`'s work.
    void setRenderer(vtkRenderer* r);
    vtkRenderer* getRenderer() const { return renderer; }

    /// Puts the object on its renderer; called once, after `setRenderer`.
    virtual void paint() = 0;

protected:
    /// Makes `held` point at `other`'s VTK object, taking a reference to the
    /// new one before releasing the old one, so that assigning an object the
    /// VTK object it already holds keeps it alive. Either may be null.
    template <class T> static void shareReference(T*& held, T* other) {
        if (other)
            other->Register(nullptr);
        if (held)
            held->Delete();
        held = other;
    }

    vtkRenderer* renderer = nullptr;
};

} // namespace Orlavex
