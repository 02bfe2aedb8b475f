#pragma once

#include <Orlavex/scene/DrawableI.h>

class vtkActor;
class vtkAlgorithm;
class vtkPolyDataMapper;
class vtkProperty;

namespace Orlavex {

/// A drawable with one actor and its property: every placement and
/// appearance setter of the scene objects lives here.
///
/// Setters forward to VTK at once and render nothing; the change shows at the
/// next render of the canvas. Rotations are relative: each call turns the
/// actor further about its own axis through its origin.
///
/// A copy shares the actor and property, holding references of its own.
class ORLAVEX_EXPORT DrawableSource : public DrawableI {
public:
    DrawableSource();
    DrawableSource(const DrawableSource& other);
    DrawableSource& operator=(const DrawableSource& other);
    ~DrawableSource() override;

    /// Adds the actor to the renderer; does nothing without a renderer.
    void paint() override;

    void setColor(double r, double g, double b);
    void setDiffuse(double d);
    void setSpecular(double s);
    void setSpecularPower(double p);
    void setOpacity(double o);
    /// Edges are shown when `v` is above 0.5 (a NaN hides them).
    void setEdgeVisibility(double v);
    void setEdgeColor(double r, double g, double b);
    void SetLineWidth(int w);
    void setRepresentationToWireframe();

    void setPosition(double x, double y, double z);
    /// The point about which rotations and scaling act.
    void setOrigin(double x, double y, double z);
    void setScale(double s);
    void setScale(double x, double y, double z);
    /// Turns the actor by `a` degrees about its X axis, on top of its present orientation.
    void rotateX(double a);
    void rotateY(double a);
    void rotateZ(double a);

    vtkActor* getActor() const;
    vtkProperty* getProperty() const;
    /// The angles and factors last given to the rotate and scale setters.
    /// Before the first call the angles read 0 and the factors 1, the actor's
    /// own initial state.
    double getRotationX() const { return rotationX; }
    double getRotationY() const { return rotationY; }
    double getRotationZ() const { return rotationZ; }
    double getScaleX() const { return scaleX; }
    double getScaleY() const { return scaleY; }
    double getScaleZ() const { return scaleZ; }

protected:
    /// Replaces the actor and property (each reference released), as a model
    /// importer does when it adopts the actor of its file. A null argument
    /// keeps the object held, so the setters never meet a null actor.
    void adopt(vtkActor* newActor, vtkProperty* newProperty);
    /// Makes the actor draw `source`'s output through `mapper`: the wiring
    /// that every solid fed by a VTK source repeats.
    void drawOutputOf(vtkAlgorithm* source, vtkPolyDataMapper* mapper);

    vtkSmartPointer<vtkActor> actor;
    vtkSmartPointer<vtkProperty> property;
    double rotationX = 0, rotationY = 0, rotationZ = 0;
    double scaleX = 1, scaleY = 1, scaleZ = 1;
};

} // namespace Orlavex
