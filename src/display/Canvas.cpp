#include "Canvas.h"

#include <Orlavex/common/SceneLock.h>

#include <QVTKInteractor.h>
#include <QVTKRenderWindowAdapter.h>
#include <vtkCamera.h>
#include <vtkGenericOpenGLRenderWindow.h>
#include <vtkInteractorStyleTrackballCamera.h>
#include <vtkNew.h>
#include <vtkObjectFactory.h>
#include <vtkRenderer.h>

namespace Orlavex {

namespace {
// Interaction renders straight from the mouse and timer handlers, outside
// paintGL; every such render goes through the interactor's Render, so the
// lock is taken there.
class LockingInteractor : public QVTKInteractor {
public:
    static LockingInteractor* New();
    vtkTypeMacro(LockingInteractor, QVTKInteractor);

    void Render() override {
        SceneLock lock;
        QVTKInteractor::Render();
    }
};
vtkStandardNewMacro(LockingInteractor);
} // namespace

Canvas::Canvas(QWidget* parent)
    : QVTKOpenGLNativeWidget(parent), m_renderer(vtkSmartPointer<vtkRenderer>::New()),
      renderer(m_renderer) {
    vtkNew<vtkGenericOpenGLRenderWindow> window;
    vtkNew<LockingInteractor> interactor;
    window->SetInteractor(interactor);
    interactor->Initialize();
    // Dragging turns the camera around the scene, as users of 3-D views expect.
    vtkNew<vtkInteractorStyleTrackballCamera> style;
    interactor->SetInteractorStyle(style);
    setRenderWindow(window);

    renderWindow()->AddRenderer(renderer);
    renderWindow()->SetInteractor(this->interactor());
    renderer->SetBackground(1.0, 1.0, 1.0);
    // The view has no natural size; beside controls in a layout it should
    // take the room they leave rather than an equal share.
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

Canvas::~Canvas() = default;

bool Canvas::event(QEvent* e) {
    // The lock covers VTK's own handling of the event only: the camera styles
    // read the actors' bounds (clipping range, picking) before they render.
    // Qt's handling that follows may run client slots, event filters or a
    // nested event loop (a context menu), and must not stall the link thread.
    if (RenderWindowAdapter) {
        SceneLock lock;
        RenderWindowAdapter->handleEvent(e);
    }
    return QOpenGLWidget::event(e); // the base class's event() less the forwarding done above
}

void Canvas::paintGL() {
    SceneLock lock;
    QVTKOpenGLNativeWidget::paintGL();
}

void Canvas::render() {
    SceneLock lock;
    renderWindow()->Render();
}

Canvas::CameraSettings Canvas::read(vtkCamera* cam) {
    CameraSettings s;
    cam->GetPosition(s.position);
    cam->GetFocalPoint(s.focalPoint);
    cam->GetViewUp(s.viewUp);
    cam->GetClippingRange(s.clippingRange);
    s.viewAngle = cam->GetViewAngle();
    return s;
}

void Canvas::apply(vtkCamera* cam, const CameraSettings& s) {
    cam->SetPosition(s.position);
    cam->SetFocalPoint(s.focalPoint);
    cam->SetViewUp(s.viewUp);
    cam->SetViewAngle(s.viewAngle);
    cam->SetClippingRange(s.clippingRange);
}

void Canvas::makeActive(vtkSmartPointer<vtkCamera> cam) {
    createdCamera = cam;
    camera = cam;
    renderer->SetActiveCamera(cam);
}

void Canvas::GetCamera() {
    camera = renderer->GetActiveCamera();
    savedCamera = read(camera);
}

void Canvas::GetCamera0() {
    initialCamera = read(renderer->GetActiveCamera());
    GetCamera();
}

void Canvas::SetCamera() {
    // Restoring what was never saved keeps the present view: any other
    // camera would be a guess the user did not ask for.
    if (!savedCamera)
        return;
    auto cam = vtkSmartPointer<vtkCamera>::New();
    apply(cam, *savedCamera);
    makeActive(cam);
}

void Canvas::SetCamera0() {
    if (!initialCamera) // as in SetCamera(): without a record the view stays
        return;
    camera = renderer->GetActiveCamera();
    apply(camera, *initialCamera);
    renderer->SetActiveCamera(camera);
}

void Canvas::SetCamera(double px, double py, double pz, double fx, double fy, double fz, double ux,
                       double uy, double uz, double angle) {
    auto cam = vtkSmartPointer<vtkCamera>::New();
    cam->SetPosition(px, py, pz);
    cam->SetFocalPoint(fx, fy, fz);
    cam->SetViewUp(ux, uy, uz);
    cam->SetViewAngle(angle);
    makeActive(cam);
}

} // namespace Orlavex
