#pragma once

#include <QByteArray>
#include <QString>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// Writes small 3DS files for the tests: one editor block with materials
/// (name and diffuse colour) and triangle meshes (name, vertices, faces and
/// the material of all their faces).
///
/// Chunks: a 16-bit id and a 32-bit length that counts the 6-byte header,
/// both little-endian, then the chunk's data and sub-chunks.
class ThreeDSWriter {
public:
    struct Material {
        std::string name;
        std::array<std::uint8_t, 3> diffuse;
    };
    struct Mesh {
        std::string name;
        std::vector<std::array<float, 3>> vertices;
        std::vector<std::array<std::uint16_t, 3>> faces;
        std::string material; // empty: the faces name no material
    };

    void addMaterial(const Material& material) { m_materials.push_back(material); }
    void addMesh(const Mesh& mesh) { m_meshes.push_back(mesh); }

    QByteArray bytes() const;
    bool save(const QString& path) const;
    /// Saves under `name` in the test process's scratch directory; the path,
    /// or an empty string when the file could not be written.
    QString saveTemp(const QString& name) const;

    /// A flat square of two triangles, `size` wide, corner at (x, y, z).
    static Mesh square(const std::string& name, float x, float y, float z, float size,
                       const std::string& material = std::string());
    /// A triangle fan of `count` vertices (count − 2 faces) around (x, y, 0).
    static Mesh fan(const std::string& name, int count, float x, float y, float radius,
                    const std::string& material = std::string());

private:
    std::vector<Material> m_materials;
    std::vector<Mesh> m_meshes;
};
