#pragma once

#include <Orlavex/orlavex_export.h>

namespace Orlavex {

/// Common base of every object that can receive values from the simulation
/// server: scene objects, trails, number fields, radio buttons and read-outs.
/// The link thread registers receivers as `SendClass*` and tells their kind
/// apart by dynamic type.
class ORLAVEX_EXPORT SendClass {
public:
    SendClass() = default;
    SendClass(const SendClass&) = default;
    SendClass& operator=(const SendClass&) = default;
    virtual ~SendClass();
};

} // namespace Orlavex
