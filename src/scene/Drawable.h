#pragma once

#include <Orlavex/common/SendClass.h>

namespace Orlavex {

/// Base of everything the simulation server can move or feed: scene objects
/// and trails. Its two flags tell the link thread which blocks the object's
/// record carries in every cycle (only 0 and 1 are meaningful).
class ORLAVEX_EXPORT Drawable : public SendClass {
public:
    Drawable() = default;
    Drawable(const Drawable&) = default;
    Drawable& operator=(const Drawable&) = default;
    ~Drawable() override;

    /// 1: the record carries the placement block (position, origin, turns, sizes).
    int getInteractivelyPositioned() const { return interactivelyPositioned; }
    void setInteractivelyPositioned(int on) { interactivelyPositioned = on; }
    /// 1: the record carries the colour and material block.
    int getInteractivelyColored() const { return interactivelyColored; }
    void setInteractivelyColored(int on) { interactivelyColored = on; }

protected:
    int interactivelyColored = 0;
    int interactivelyPositioned = 0;
};

} // namespace Orlavex
