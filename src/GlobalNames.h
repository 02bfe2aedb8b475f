#pragma once

/// \file GlobalNames.h
/// The documented class names in the global namespace, for client code written
/// without the `Orlavex::` prefix. Using-declarations, not copies: a class of
/// the same name that the application declares globally is a compile error
/// here rather than a silent clash at link or load time. Define
/// ORLAVEX_NO_GLOBAL_NAMES before including <Orlavex/Orlavex.h> to opt out.

#include <Orlavex/Fwd.h>

using Orlavex::LogStream;
using Orlavex::SceneLock;
using Orlavex::SendClass;
using Orlavex::CommThread;
using Orlavex::CycleStats;
using Orlavex::SocketClass;
using Orlavex::Arrow;
using Orlavex::Cone;
using Orlavex::Cube;
using Orlavex::Cylinder;
using Orlavex::DiskSource;
using Orlavex::Drawable;
using Orlavex::DrawableI;
using Orlavex::DrawableSource;
using Orlavex::File3DSImporter;
using Orlavex::HalfPipe;
using Orlavex::Line;
using Orlavex::PlanarGrid;
using Orlavex::Plane;
using Orlavex::PolygonC;
using Orlavex::RegularPolygon;
using Orlavex::ScalarBar;
using Orlavex::Sphere;
using Orlavex::VectorText;
using Orlavex::Browser;
using Orlavex::ButtonGroup;
using Orlavex::CheckBox;
using Orlavex::Dialog;
using Orlavex::DisplayDouble;
using Orlavex::GroupBox;
using Orlavex::InteractiveControlI;
using Orlavex::LayoutPolicy;
using Orlavex::NumberField;
using Orlavex::Panel;
using Orlavex::PauseButton;
using Orlavex::RadioButton;
using Orlavex::Slider;
using Orlavex::Canvas;
using Orlavex::CanvasButtons;
using Orlavex::LinkStatus;
using Orlavex::MainWindow;
using Orlavex::PlottingPanel;
using Orlavex::PlottingPanelQwt;
using Orlavex::SurfaceFormat;
using Orlavex::TrailQwt;
using Orlavex::ShareCredentials;
using Orlavex::ShareFrame;
using Orlavex::ShareState;
using Orlavex::ShareViewer;
