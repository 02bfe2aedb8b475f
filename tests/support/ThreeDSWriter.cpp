#include "ThreeDSWriter.h"

#include "Fixtures.h"

#include <QFile>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {
enum : std::uint16_t {
    Main = 0x4D4D,
    Version = 0x0002,
    Editor = 0x3D3D,
    MeshVersion = 0x3D3E,
    Object = 0x4000,
    TriangleMesh = 0x4100,
    VertexList = 0x4110,
    FaceList = 0x4120,
    FaceMaterial = 0x4130,
    MaterialBlock = 0xAFFF,
    MaterialName = 0xA000,
    Diffuse = 0xA020,
    Colour24 = 0x0011,
};

void put16(QByteArray& out, std::uint16_t v) {
    out.append(char(v & 0xFF));
    out.append(char(v >> 8));
}

void put32(QByteArray& out, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        out.append(char((v >> (8 * i)) & 0xFF));
}

void putFloat(QByteArray& out, float f) {
    std::uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    put32(out, bits);
}

void putString(QByteArray& out, const std::string& s) {
    out.append(s.data(), int(s.size()));
    out.append('\0');
}

QByteArray chunk(std::uint16_t id, const QByteArray& body) {
    QByteArray out;
    put16(out, id);
    put32(out, std::uint32_t(body.size() + 6));
    out.append(body);
    return out;
}

QByteArray materialChunk(const ThreeDSWriter::Material& m) {
    QByteArray name;
    putString(name, m.name);
    QByteArray colour;
    for (std::uint8_t c : m.diffuse)
        colour.append(char(c));
    return chunk(MaterialBlock,
                 chunk(MaterialName, name) + chunk(Diffuse, chunk(Colour24, colour)));
}

QByteArray meshChunk(const ThreeDSWriter::Mesh& m) {
    QByteArray vertices;
    put16(vertices, std::uint16_t(m.vertices.size()));
    for (const auto& v : m.vertices)
        for (float c : v)
            putFloat(vertices, c);

    QByteArray faces;
    put16(faces, std::uint16_t(m.faces.size()));
    for (const auto& f : m.faces) {
        for (std::uint16_t i : f)
            put16(faces, i);
        put16(faces, 0x0007); // all three edges visible
    }
    if (!m.material.empty()) {
        QByteArray group;
        putString(group, m.material);
        put16(group, std::uint16_t(m.faces.size()));
        for (std::size_t i = 0; i < m.faces.size(); ++i)
            put16(group, std::uint16_t(i));
        faces.append(chunk(FaceMaterial, group));
    }

    QByteArray object;
    putString(object, m.name);
    object.append(chunk(TriangleMesh, chunk(VertexList, vertices) + chunk(FaceList, faces)));
    return chunk(Object, object);
}
} // namespace

QByteArray ThreeDSWriter::bytes() const {
    QByteArray version;
    put32(version, 3);
    QByteArray editor = chunk(MeshVersion, version);
    for (const Material& m : m_materials)
        editor.append(materialChunk(m));
    for (const Mesh& m : m_meshes)
        editor.append(meshChunk(m));
    return chunk(Main, chunk(Version, version) + chunk(Editor, editor));
}

bool ThreeDSWriter::save(const QString& path) const {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const QByteArray data = bytes();
    return file.write(data) == data.size();
}

QString ThreeDSWriter::saveTemp(const QString& name) const {
    const QString path = fixture::tempPath(name);
    return save(path) ? path : QString();
}

ThreeDSWriter::Mesh ThreeDSWriter::square(const std::string& name, float x, float y, float z,
                                          float size, const std::string& material) {
    Mesh m;
    m.name = name;
    m.vertices = {{x, y, z}, {x + size, y, z}, {x + size, y + size, z}, {x, y + size, z}};
    m.faces = {{0, 1, 2}, {0, 2, 3}};
    m.material = material;
    return m;
}

ThreeDSWriter::Mesh ThreeDSWriter::fan(const std::string& name, int count, float x, float y,
                                       float radius, const std::string& material) {
    Mesh m;
    m.name = name;
    m.vertices.push_back({x, y, 0.0f});
    for (int i = 1; i < count; ++i) {
        const double a = 2.0 * M_PI * (i - 1) / std::max(count - 2, 1);
        m.vertices.push_back(
            {float(x + radius * std::cos(a)), float(y + radius * std::sin(a)), 0.0f});
    }
    for (int i = 1; i + 1 < count; ++i)
        m.faces.push_back({0, std::uint16_t(i), std::uint16_t(i + 1)});
    m.material = material;
    return m;
}
