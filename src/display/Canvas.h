#pragma once

#include <Orlavex/orlavex_export.h>

#include <QVTKOpenGLNativeWidget.h>
#include <vtkRenderer.h>
#include <vtkSmartPointer.h>

#include <optional>

class vtkCamera;

namespace Orlavex {

/// The 3-D view: a VTK widget with one renderer of its own, on a white
/// background, into which the scene objects paint themselves.
///
/// It keeps two camera settings: the saved camera, which the user stores and
/// restores at will, and the initial camera, which the main window records
/// during its first two render passes. Every render of the canvas, whether
/// asked for by the render pass, by a repaint or by the user dragging the
/// camera, holds the `SceneLock`, so it never overlaps the link thread's
/// changes to scene objects.
class ORLAVEX_EXPORT Canvas : public QVTKOpenGLNativeWidget {
    Q_OBJECT
    // Declared first: `renderer` below is initialised from it.
    vtkSmartPointer<vtkRenderer> m_renderer;

public:
    /// One stored view of the camera.
    struct CameraSettings {
        double position[3];
        double focalPoint[3];
        double viewUp[3];
        double clippingRange[2]; ///< near, far
        double viewAngle;        ///< degrees
    };

    explicit Canvas(QWidget* parent = nullptr);
    ~Canvas() override;

    /// Reads the renderer's active camera into the saved settings.
    void GetCamera();
    /// Reads the active camera into both the initial and the saved settings.
    void GetCamera0();
    /// Makes a new camera from the saved settings the active camera.
    /// Does nothing while nothing has been saved.
    void SetCamera();
    /// Puts the initial settings on the active camera.
    /// Does nothing while no initial camera has been recorded.
    void SetCamera0();
    /// Makes a new camera the active one; its clipping range is the default
    /// and neither stored setting changes.
    void SetCamera(double px, double py, double pz, double fx, double fy, double fz, double ux,
                   double uy, double uz, double angle);

    /// Renders the canvas's render window while holding the scene lock.
    void render();

    /// The camera last read or created by a camera operation (null before).
    vtkCamera* currentCamera() const { return camera; }
    /// The saved settings; empty until the first `GetCamera` or `GetCamera0`.
    const std::optional<CameraSettings>& savedCameraSettings() const { return savedCamera; }
    /// The initial settings; empty until the first `GetCamera0`.
    const std::optional<CameraSettings>& initialCameraSettings() const { return initialCamera; }

    /// The canvas's own renderer, to be handed to scene objects and to the
    /// link thread. Owned by the canvas.
    vtkRenderer* const renderer;

protected:
    void paintGL() override;
    /// VTK's handling of input runs under the scene lock (the camera styles
    /// read the actors' bounds before they render); Qt's own handling and
    /// anything it calls run without it.
    bool event(QEvent* e) override;

private:
    static CameraSettings read(vtkCamera* cam);
    static void apply(vtkCamera* cam, const CameraSettings& s);
    void makeActive(vtkSmartPointer<vtkCamera> cam);

    vtkCamera* camera = nullptr;
    // The newest camera this canvas created; the ones it only looked up
    // belong to the renderer.
    vtkSmartPointer<vtkCamera> createdCamera;
    std::optional<CameraSettings> savedCamera;
    std::optional<CameraSettings> initialCamera;
};

} // namespace Orlavex
