#pragma once

#include <QJsonObject>

namespace Orlavex {

class CommThread;

namespace detail {

/// What a viewer that draws the lab itself needs besides the frames, which
/// carry only what records change: the window's title; per canvas its
/// background, its camera, which registered objects it shows, with the shape
/// settings their records never send (resolutions, a polygon's corners, a
/// grid's colour tables, a model's mesh), the objects no record addresses
/// (a stand, a rail, a fixed line) in the frames' own form, and its colour
/// legends; per plot its titles and trails with their colours; per read-out
/// its prefix, suffix and format.
///
/// Read on the link thread before the first frame is published: VTK objects
/// under `SceneLock`, under which the GUI thread renders and moves cameras;
/// widgets' titles, pens and formats, which client applications set up
/// before `start()` and the library never changes afterwards. `framed`: the
/// main window frames each scene on start, so the viewer should frame it
/// too rather than keep the camera read here, which the second start-up
/// pass may still move.
QJsonObject describeScene(const CommThread& thread, bool framed);

} // namespace detail
} // namespace Orlavex
