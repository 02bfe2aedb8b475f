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

    vtk3DSImporter* getImporter() const { return importer; }
    /// The actors of every mesh of the file last read (empty when it had none).
    vtkActorCollection* getActors() const { return actors; }

private:
    void import(const char* fileName);

    vtk3DSImporter* importer = nullptr;
    vtkActorCollection* actors = nullptr;
};

} // namespace Orlavex
