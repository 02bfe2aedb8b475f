#pragma once

#include <QJsonObject>
#include <QMap>
#include <QVector>

class vtkRenderer;

namespace Orlavex {

class Canvas;
class Drawable;
class SendClass;

namespace detail {

/// What a viewer that draws the lab itself needs besides the frames, which
/// carry only what records change: per canvas its background, its camera,
/// which registered objects it shows, with the shape settings their records
/// never send (resolutions, a polygon's corners), and the objects no record
/// addresses (a stand, a rail), in the frames' own form.
///
/// Read on the link thread before the first frame is published: it takes
/// `SceneLock`, under which the GUI thread renders and moves cameras.
/// `framed`: the main window frames each scene on start, so the viewer
/// should frame it too rather than keep the camera read here, which the
/// second start-up pass may still move.
QJsonObject describeScene(const QVector<Canvas*>& canvases, const QVector<vtkRenderer*>& renderers,
                          const QVector<Drawable*>& drawables, const QMap<int, SendClass*>& objects,
                          bool framed);

} // namespace detail
} // namespace Orlavex
