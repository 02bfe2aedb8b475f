#pragma once

/// \file Orlavex.h
/// Brings in every public class of the Orlavex front-end library.

#include <Orlavex/common/LogStream.h>
#include <Orlavex/common/SendClass.h>
#include <Orlavex/link/SocketClass.h>
#include <Orlavex/common/SceneLock.h>

#include <Orlavex/scene/Drawable.h>
#include <Orlavex/scene/DrawableI.h>
#include <Orlavex/scene/DrawableSource.h>
#include <Orlavex/scene/File3DSImporter.h>
#include <Orlavex/scene/PlanarGrid.h>
#include <Orlavex/scene/ScalarBar.h>
#include <Orlavex/scene/VectorText.h>

#include <Orlavex/display/SurfaceFormat.h>

#include <Orlavex/controls/Dialog.h>
#include <Orlavex/controls/GroupBox.h>
#include <Orlavex/controls/LayoutPolicy.h>
#include <Orlavex/controls/Panel.h>
