#pragma once

#include <Orlavex/scene/DrawableSource.h>

class vtk3DSImporter;
class vtkActorCollection;

namespace Orlavex {

/// A model read from a 3DS file.
///
/// VTK's importer builds one actor per mesh; this drawable adopts the actor
/// added last, with its property, so the placement, colour and material
/// setters act on that mesh. The other meshes of the file are not drawn.
///
/// A missing or unreadable file, or one without meshes, leaves an empty
/// actor that draws nothing; the problem is reported once on the Qt debug
/// stream. `paint` and every setter keep working on that actor.
///
/// A copy shares the importer, the mesh actors and the adopted actor; reading
/// another file through one copy gives that copy a fresh importer and leaves
/// the others as they were.
class ORLAVEX_EXPORT File3DSImporter : public DrawableSource {
public:
    explicit File3DSImporter(const char* fileName);
    File3DSImporter(const File3DSImporter& other);
    File3DSImporter& operator=(const File3DSImporter& other);
    ~File3DSImporter() override;

    /// Reads another file and adopts its last mesh. The canvas is not
    /// touched: a mesh painted before stays there, and the new one shows
    /// only after `paint` is called again.
    void setFileName(const char* fileName);

    vtk3DSImporter* getImporter() const;
    /// The actors of every mesh of the file last read: empty when it held
    /// none, null when it could not be read.
    vtkActorCollection* getActors() const;

private:
    void import(const char* fileName);

    vtkSmartPointer<vtk3DSImporter> importer;
    vtkSmartPointer<vtkActorCollection> actors;
};

} // namespace Orlavex
