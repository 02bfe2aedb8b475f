#pragma once

#include <Orlavex/orlavex_export.h>

#include <QString>
#include <QtGlobal>

#include <array>
#include <string>
#include <vector>

namespace Orlavex {

/// The state of a shared lab after one cycle: for every object that the
/// simulation server drives, what a viewer needs to show it exactly as the
/// controlling front-end shows it.
///
/// The controlling front-end captures it from its scene after each cycle;
/// viewers rebuild it from frames (`ShareFrame`). Numbers are kept with the
/// bits they had on the controller, so two states compare equal only when
/// every value has the same bits (a NaN equals the same NaN, -0 differs from
/// 0). Qt Core only: a viewer needs neither VTK nor widgets.
///
/// The kind and section ids are part of the frame format (docs/share.md).
class ORLAVEX_EXPORT ShareState {
public:
    /// The kind of a shared object.
    enum class Kind : quint8 {
        None = 0,
        Sphere = 1,
        Cube = 2,
        Cylinder = 3,
        Cone = 4,
        Arrow = 5,
        DiskSource = 6,
        Plane = 7,
        RegularPolygon = 8,
        PolygonC = 9,
        HalfPipe = 10,
        File3DSImporter = 11,
        VectorText = 12,
        PlanarGrid = 13,
        Trail = 14,
        NumberField = 15,
        ReadOut = 16,
    };
    static constexpr int kLastKind = 16;

    /// A part of an object's state. A delta frame carries a section whole
    /// whenever any of its bytes changed (a trail only its new points).
    enum Section : quint8 {
        Transform = 1, ///< the actor's 4x4 matrix, row by row
        Material = 2,  ///< colour r g b, diffuse, specular, specular power, opacity,
                       ///< edges shown (0 or 1), edge colour r g b
        Geometry = 3,  ///< the kind's shape parameters (`geometryCount`)
        Cells = 4,     ///< grid cell values, x fastest
        Vectors = 5,   ///< grid: n magnitudes, 3n vector components, the glyph scale
        Text = 6,      ///< the text shown, UTF-8
        Value = 7,     ///< a read-out's value
        Enabled = 8,   ///< a number field's enabled state
        Trail = 9,     ///< a trail's retained points
    };
    static constexpr int kLastSection = 9;

    /// One object, under the number of its record.
    struct ORLAVEX_EXPORT Object {
        qint32 num = 0;
        Kind kind = Kind::None;
        quint32 sections = 0; ///< bit (1 << section) for each section present
        std::array<double, 16> transform{};
        std::array<double, 11> material{};
        std::vector<double> geometry;
        std::vector<float> cells;   ///< as the record sent them
        std::vector<float> vectors; ///< as the record sent them
        std::string text;
        double value = 0;
        bool enabled = false;
        /// Points retained before `trailX[0]` since the lab started, dropped
        /// since: the absolute index of the first retained point. A viewer
        /// tells appended points from dropped ones by it.
        quint64 trailFirst = 0;
        std::vector<double> trailX;
        std::vector<double> trailY; ///< as long as trailX

        bool has(Section s) const { return (sections >> s) & 1u; }
        void mark(Section s) { sections |= 1u << s; }
        /// True when section `s` is absent from both or present in both with the same bits.
        bool sameSection(const Object& other, Section s) const;
        bool operator==(const Object& other) const;
        bool operator!=(const Object& other) const { return !(*this == other); }
    };

    /// The publisher run that numbered the frames, a random number (0: none).
    quint64 publisher = 0;
    /// The frame that produced the state; 0 for none (a state captured and
    /// not yet published, or a viewer that has not had a keyframe yet).
    quint64 sequence = 0;
    /// The controller's cycle, counted from 1.
    qint64 cycle = 0;
    /// Ascending record numbers, each once.
    std::vector<Object> objects;

    const Object* find(qint32 num) const;
    Object* find(qint32 num);
    /// Forgets everything: no frame, no objects.
    void clear();

    /// Same publisher, sequence, cycle and objects, bit for bit.
    bool operator==(const ShareState& other) const;
    bool operator!=(const ShareState& other) const { return !(*this == other); }
    /// Empty when the states are equal, otherwise the first difference, for
    /// test failures and tools.
    QString difference(const ShareState& other) const;

    static const char* kindName(Kind kind);
    static const char* sectionName(Section section);
    /// The sections an object of `kind` may carry (bit per section); 0 for an unknown kind.
    static quint32 sectionsOf(Kind kind);
    /// Number of geometry values of `kind`, 0 when it has none: Sphere 1
    /// (radius); Cube 3 (lengths x y z); Cylinder, Cone 2 (radius, height);
    /// DiskSource 2 (inner, outer radius); RegularPolygon 4 (normal x y z,
    /// radius); HalfPipe 3 (inner, outer radius, length); PlanarGrid 9
    /// (lengths x y z, corner x y z, cell counts x y z).
    static int geometryCount(Kind kind);
};

} // namespace Orlavex
