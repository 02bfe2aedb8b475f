#include "File3DSImporter.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QtDebug>

#include <vtk3DSImporter.h>
#include <vtkActor.h>
#include <vtkActorCollection.h>
#include <vtkCallbackCommand.h>
#include <vtkCommand.h>
#include <vtkProperty.h>
#include <vtkRenderer.h>
#include <vtkSmartPointer.h>

#include <string>

namespace Orlavex {

namespace {
// Keeps the first error or warning that the importer raises during one read,
// so that a bad file gives one line on the debug stream instead of VTK's
// multi-line reports on the console.
void keepFirstMessage(vtkObject*, unsigned long, void* clientData, void* callData) {
    auto* first = static_cast<std::string*>(clientData);
    if (first->empty() && callData)
        *first = static_cast<const char*>(callData);
}

// VTK's 3DS reader trusts the file: a chunk length reaching past its parent,
// a face naming a vertex that does not exist, a material group naming a
// face or a material that does not exist, or an overlong name make it read
// or write out of bounds and crash the process. The file is therefore walked first, and
// only one whose structure holds together is handed to VTK. Chunks that
// this walk does not know are skipped by their length, as VTK skips them.
class ChunkCheck {
public:
    explicit ChunkCheck(const QByteArray& data)
        : m_data(reinterpret_cast<const uchar*>(data.constData())), m_size(data.size()) {}

    /// Empty when the file can be handed to VTK, otherwise why not.
    QString problem() {
        if (m_size < 6 || u16(0) != 0x4D4D)
            return QStringLiteral("not a 3DS file");
        const qint64 length = u32(2);
        if (length < 6 || length > m_size)
            return QStringLiteral("broken chunk structure");
        if (!children(6, length, 1))
            return m_problem;
        // A face group naming a material that the file does not define
        // crashes VTK's reader too; the material may come after the mesh.
        for (const QByteArray& used : m_usedMaterials)
            if (!m_materials.contains(used))
                return QStringLiteral("a mesh uses the undefined material \"%1\"")
                    .arg(QString::fromLatin1(used));
        return QString();
    }

private:
    enum : quint16 {
        Main = 0x4D4D,
        Editor = 0x3D3D,
        Object = 0x4000,
        TriangleMesh = 0x4100,
        VertexList = 0x4110,
        FaceList = 0x4120,
        FaceMaterial = 0x4130,
        MappingList = 0x4140,
        MeshMatrix = 0x4160,
        Light = 0x4600,
        SpotLight = 0x4610,
        Camera = 0x4700,
        MaterialBlock = 0xAFFF,
        MaterialName = 0xA000,
        MapFileName = 0xA300,
        FloatColour = 0x0010,
        Colour24 = 0x0011,
        LinearColour24 = 0x0012,
        LinearFloatColour = 0x0013,
        IntPercent = 0x0030,
        FloatPercent = 0x0031,
    };
    // Room that VTK's reader gives to names and to texture file names, with
    // the terminating zero.
    static constexpr qint64 NameRoom = 80;
    static constexpr qint64 MapNameRoom = 40;
    static constexpr int MaxDepth = 32;

    quint16 u16(qint64 at) const { return quint16(m_data[at] | (m_data[at + 1] << 8)); }
    quint32 u32(qint64 at) const { return quint32(u16(at)) | (quint32(u16(at + 2)) << 16); }

    bool fail(const char* why) {
        m_problem = QString::fromLatin1(why);
        return false;
    }

    // The position after the zero that ends the string at `at`, or -1 when
    // it does not end before `end` or is too long for `room`.
    qint64 string(qint64 at, qint64 end, qint64 room) const {
        for (qint64 i = at; i < end && i - at < room; ++i)
            if (m_data[i] == 0)
                return i + 1;
        return -1;
    }

    // The zero-terminated string at `at`, already checked by `string`.
    QByteArray text(qint64 at) const {
        return QByteArray(reinterpret_cast<const char*>(m_data + at));
    }

    bool children(qint64 at, qint64 end, int depth) {
        if (depth > MaxDepth)
            return fail("chunks nested too deeply");
        while (at < end) {
            if (end - at < 6)
                return fail("broken chunk structure");
            const quint16 id = u16(at);
            const qint64 length = u32(at + 2);
            if (length < 6 || length > end - at)
                return fail("broken chunk structure");
            if (!body(id, at + 6, at + length, depth + 1))
                return false;
            at += length;
        }
        return true;
    }

    bool body(quint16 id, qint64 begin, qint64 end, int depth) {
        const qint64 size = end - begin;
        switch (id) {
        case Main:
        case Editor:
        case MaterialBlock:
            return children(begin, end, depth);
        case Object: {
            const qint64 after = string(begin, end, NameRoom);
            if (after < 0)
                return fail("broken object name");
            return children(after, end, depth);
        }
        case TriangleMesh: {
            m_vertices = -1;
            m_faces = -1;
            return children(begin, end, depth);
        }
        case VertexList:
            if (m_vertices >= 0)
                return fail("two vertex lists in one mesh");
            if (size < 2 || size < 2 + 12 * qint64(u16(begin)))
                return fail("short vertex list");
            m_vertices = u16(begin);
            return true;
        case FaceList: {
            if (m_faces >= 0)
                return fail("two face lists in one mesh");
            if (size < 2)
                return fail("short face list");
            const qint64 faces = u16(begin);
            if (size < 2 + 8 * faces)
                return fail("short face list");
            for (qint64 f = 0; f < faces; ++f)
                for (int corner = 0; corner < 3; ++corner)
                    if (u16(begin + 2 + 8 * f + 2 * corner) >= m_vertices)
                        return fail("a face names a vertex that does not exist");
            m_faces = int(faces);
            return children(begin + 2 + 8 * faces, end, depth);
        }
        case FaceMaterial: {
            const qint64 after = string(begin, end, NameRoom);
            if (after < 0 || end - after < 2)
                return fail("broken material group");
            const qint64 count = u16(after);
            if (end - after < 2 + 2 * count)
                return fail("broken material group");
            m_usedMaterials << text(begin);
            for (qint64 i = 0; i < count; ++i)
                if (u16(after + 2 + 2 * i) >= m_faces)
                    return fail("a material group names a face that does not exist");
            return true;
        }
        case MappingList:
            if (size < 2 || size < 2 + 8 * qint64(u16(begin)))
                return fail("short mapping list");
            return true;
        case MeshMatrix:
            return size >= 48 || fail("short mesh matrix");
        case Light:
            return (size >= 12 || fail("short light")) && children(begin + 12, end, depth);
        case SpotLight:
            return (size >= 20 || fail("short spotlight")) && children(begin + 20, end, depth);
        case Camera:
            return (size >= 32 || fail("short camera")) && children(begin + 32, end, depth);
        case MaterialName:
            if (string(begin, end, NameRoom) < 0)
                return fail("broken material name");
            m_materials << text(begin);
            return true;
        case MapFileName:
            return string(begin, end, MapNameRoom) >= 0 || fail("broken texture file name");
        case FloatColour:
        case LinearFloatColour:
            return size >= 12 || fail("short colour");
        case Colour24:
        case LinearColour24:
            return size >= 3 || fail("short colour");
        case IntPercent:
            return size >= 2 || fail("short percentage");
        case FloatPercent:
            return size >= 4 || fail("short percentage");
        default:
            return isMaterialContainer(id) ? children(begin, end, depth) : true;
        }
    }

    // Material colours, percentages and maps, which hold chunks; the other
    // material chunks hold plain values.
    static bool isMaterialContainer(quint16 id) {
        switch (id) {
        case 0xA010: // ambient
        case 0xA020: // diffuse
        case 0xA030: // specular
        case 0xA040: // shininess
        case 0xA041: // shininess strength
        case 0xA050: // transparency
        case 0xA052: // transparency falloff
        case 0xA053: // reflection blur
        case 0xA084: // self illumination
        case 0xA200: // texture map
        case 0xA204: // specular map
        case 0xA210: // opacity map
        case 0xA220: // reflection map
        case 0xA230: // bump map
        case 0xA33A: // second texture map
        case 0xA33C: // shininess map
        case 0xA33D: // self illumination map
            return true;
        default:
            return id >= 0xA33E && id <= 0xA34C && id % 2 == 0; // map masks
        }
    }

    const uchar* m_data;
    qint64 m_size;
    QString m_problem;
    int m_vertices = -1; // of the mesh being walked; -1 before its vertex list
    int m_faces = -1;
    QSet<QByteArray> m_materials;
    QList<QByteArray> m_usedMaterials;
};

QString lastLine(const std::string& vtkMessage) {
    // VTK puts the source file and line of the report on a line of its own
    // and the reporting object's class and address before the text.
    QString text = QString::fromStdString(vtkMessage).trimmed().split('\n').last().trimmed();
    const int prefixEnd = text.indexOf(QLatin1String("): "));
    if (prefixEnd >= 0 && text.indexOf(QLatin1String(" (0x")) < prefixEnd)
        text = text.mid(prefixEnd + 3);
    return text;
}
} // namespace

File3DSImporter::File3DSImporter(const char* fileName) {
    import(fileName);
}

File3DSImporter::File3DSImporter(const File3DSImporter& other) = default;
File3DSImporter& File3DSImporter::operator=(const File3DSImporter& other) = default;
File3DSImporter::~File3DSImporter() = default;

vtk3DSImporter* File3DSImporter::getImporter() const {
    return importer;
}
vtkActorCollection* File3DSImporter::getActors() const {
    return actors;
}

void File3DSImporter::setFileName(const char* fileName) {
    import(fileName);
}

void File3DSImporter::import(const char* fileName) {
    // Every read gets a fresh importer: VTK's 3DS importer keeps the meshes
    // of earlier reads and would add them again, so the actor added last
    // could belong to the previous file.
    actors = nullptr;
    importer = vtkSmartPointer<vtk3DSImporter>::New();

    const QString name = fileName ? QString::fromUtf8(fileName) : QString();
    const QFileInfo info(name);
    QString problem;
    if (name.isEmpty())
        problem = QStringLiteral("no file name given");
    else if (!info.exists())
        problem = QStringLiteral("no such file");
    else if (!info.isFile() || !info.isReadable())
        problem = QStringLiteral("not a readable file");
    else {
        QFile file(name);
        if (!file.open(QIODevice::ReadOnly))
            problem = file.errorString();
        else
            problem = ChunkCheck(file.readAll()).problem();
    }

    if (problem.isEmpty()) {
        std::string firstMessage;
        auto observer = vtkSmartPointer<vtkCallbackCommand>::New();
        observer->SetCallback(keepFirstMessage);
        observer->SetClientData(&firstMessage);
        importer->AddObserver(vtkCommand::ErrorEvent, observer);
        importer->AddObserver(vtkCommand::WarningEvent, observer);
        importer->SetFileName(fileName);
        importer->Read();
        importer->RemoveObserver(observer);

        if (vtkRenderer* sceneRenderer = importer->GetRenderer())
            actors = sceneRenderer->GetActors();
        vtkActor* last = actors ? actors->GetLastActor() : nullptr;
        if (last) {
            adopt(last, last->GetProperty());
            if (!firstMessage.empty())
                qWarning().noquote() << "File3DSImporter:" << name
                                     << "read with problems:" << lastLine(firstMessage);
            return;
        }
        problem = firstMessage.empty() ? QStringLiteral("the file holds no mesh")
                                       : lastLine(firstMessage);
    }

    // Nothing to adopt: an empty actor of our own keeps paint and every
    // setter working, and shows nothing.
    auto empty = vtkSmartPointer<vtkActor>::New();
    auto emptyProperty = vtkSmartPointer<vtkProperty>::New();
    empty->SetProperty(emptyProperty);
    adopt(empty, emptyProperty);
    qWarning().noquote() << "File3DSImporter: cannot import" << name << "-" << problem;
}

} // namespace Orlavex
