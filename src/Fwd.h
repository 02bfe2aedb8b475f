#pragma once

/// \file Fwd.h
/// Forward declarations of the public classes, for headers that only name them.

namespace Orlavex {
class LogStream;
class SceneLock;
class SendClass;
class CommThread;
struct CycleStats;
class SocketClass;
class Arrow;
class Cone;
class Cube;
class Cylinder;
class DiskSource;
class Drawable;
class DrawableI;
class DrawableSource;
class File3DSImporter;
class HalfPipe;
class Line;
class PlanarGrid;
class Plane;
class PolygonC;
class RegularPolygon;
class ScalarBar;
class Sphere;
class VectorText;
class Browser;
class ButtonGroup;
class CheckBox;
class Dialog;
class DisplayDouble;
class GroupBox;
class InteractiveControlI;
class LayoutPolicy;
class NumberField;
class Panel;
class PauseButton;
class RadioButton;
class Slider;
class Canvas;
class CanvasButtons;
class LinkStatus;
class MainWindow;
class PlottingPanel;
class PlottingPanelQwt;
class SurfaceFormat;
class TrailQwt;
struct ShareCredentials;
class ShareFrame;
class ShareState;
class ShareViewer;
class SimulationServer;
} // namespace Orlavex
