#pragma once

#include <Orlavex/common/SendClass.h>

namespace Orlavex {

/// Mix-in of the controls whose values the simulation server knows by number:
/// number fields, radio buttons and read-outs. Both fields are -1 until set.
class ORLAVEX_EXPORT InteractiveControlI : public SendClass {
public:
    InteractiveControlI() = default;
    InteractiveControlI(const InteractiveControlI&) = default;
    InteractiveControlI& operator=(const InteractiveControlI&) = default;
    ~InteractiveControlI() override;

    /// The number by which the server knows this control's value; sent with
    /// every value change.
    int getIndex() const { return controlIndex; }
    void setIndex(int index) { controlIndex = index; }
    /// Above 0 on a registered `NumberField`: the server's record switches the
    /// field on and off every cycle.
    int getEnableInt() const { return enableInt; }
    void setEnableInt(int enable) { enableInt = enable; }

protected:
    int controlIndex = -1;
    int enableInt = -1;
};

} // namespace Orlavex
