#pragma once

/// \file Orlavex.h
/// Brings in every public class of the Orlavex front-end library.

#include <Orlavex/common/LogStream.h>
#include <Orlavex/common/SendClass.h>
#include <Orlavex/link/SocketClass.h>
