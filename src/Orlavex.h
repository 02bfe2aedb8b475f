#pragma once

/// \file Orlavex.h
/// Brings in every public class of the Orlavex front-end library and, unless
/// ORLAVEX_NO_GLOBAL_NAMES is defined, makes the documented class names usable
/// without the `Orlavex::` prefix (see GlobalNames.h).

#include <Orlavex/common/LogStream.h>
#include <Orlavex/common/SceneLock.h>
#include <Orlavex/common/SendClass.h>

#include <Orlavex/link/CommThread.h>
#include <Orlavex/link/CycleStats.h>
#include <Orlavex/link/SocketClass.h>

#include <Orlavex/scene/Arrow.h>
#include <Orlavex/scene/Cone.h>
#include <Orlavex/scene/Cube.h>
#include <Orlavex/scene/Cylinder.h>
#include <Orlavex/scene/DiskSource.h>
#include <Orlavex/scene/Drawable.h>
#include <Orlavex/scene/DrawableI.h>
#include <Orlavex/scene/DrawableSource.h>
#include <Orlavex/scene/File3DSImporter.h>
#include <Orlavex/scene/HalfPipe.h>
#include <Orlavex/scene/Line.h>
#include <Orlavex/scene/PlanarGrid.h>
#include <Orlavex/scene/Plane.h>
#include <Orlavex/scene/PolygonC.h>
#include <Orlavex/scene/RegularPolygon.h>
#include <Orlavex/scene/ScalarBar.h>
#include <Orlavex/scene/Sphere.h>
#include <Orlavex/scene/VectorText.h>

#include <Orlavex/controls/Browser.h>
#include <Orlavex/controls/ButtonGroup.h>
#include <Orlavex/controls/CheckBox.h>
#include <Orlavex/controls/Dialog.h>
#include <Orlavex/controls/DisplayDouble.h>
#include <Orlavex/controls/GroupBox.h>
#include <Orlavex/controls/InteractiveControlI.h>
#include <Orlavex/controls/LayoutPolicy.h>
#include <Orlavex/controls/NumberField.h>
#include <Orlavex/controls/Panel.h>
#include <Orlavex/controls/PauseButton.h>
#include <Orlavex/controls/RadioButton.h>
#include <Orlavex/controls/Slider.h>

#include <Orlavex/display/Canvas.h>
#include <Orlavex/display/CanvasButtons.h>
#include <Orlavex/display/LinkStatus.h>
#include <Orlavex/display/MainWindow.h>
#include <Orlavex/display/PlottingPanel.h>
#include <Orlavex/display/PlottingPanelQwt.h>
#include <Orlavex/display/SurfaceFormat.h>
#include <Orlavex/display/TrailQwt.h>

#include <Orlavex/share/ShareCredentials.h>
#include <Orlavex/share/ShareFrame.h>
#include <Orlavex/share/ShareState.h>
#include <Orlavex/share/ShareViewer.h>

#ifndef ORLAVEX_NO_GLOBAL_NAMES
#include <Orlavex/GlobalNames.h>
#endif
