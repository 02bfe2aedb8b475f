#include "ShareState.h"

#include <algorithm>
#include <cstring>

namespace Orlavex {

namespace {

// Bits, not values: a NaN must equal itself and -0 must differ from 0, or a
// viewer could look equal to its controller while showing something else.
template <class T> bool sameBits(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

template <class T, std::size_t N>
bool sameBits(const std::array<T, N>& a, const std::array<T, N>& b) {
    return std::memcmp(a.data(), b.data(), sizeof(T) * N) == 0;
}

bool sameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

constexpr quint32 bit(ShareState::Section s) {
    return 1u << s;
}

constexpr quint32 kPlaced = bit(ShareState::Transform) | bit(ShareState::Material);

/// The first index at which two sequences differ, with both values, for the
/// difference text.
template <class Seq> QString firstDifference(const Seq& a, const Seq& b) {
    if (a.size() != b.size())
        return QStringLiteral("%1 values vs %2").arg(a.size()).arg(b.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::memcmp(&a[i], &b[i], sizeof a[i]) != 0)
            return QStringLiteral("value %1: %2 vs %3")
                .arg(i)
                .arg(double(a[i]), 0, 'g', 17)
                .arg(double(b[i]), 0, 'g', 17);
    }
    return QString();
}

} // namespace

bool ShareState::Object::sameSection(const Object& other, Section s) const {
    if (has(s) != other.has(s))
        return false;
    if (!has(s))
        return true;
    switch (s) {
    case Transform:
        return sameBits(transform, other.transform);
    case Material:
        return sameBits(material, other.material);
    case Geometry:
        return sameBits(geometry, other.geometry);
    case Cells:
        return sameBits(cells, other.cells);
    case Vectors:
        return sameBits(vectors, other.vectors);
    case Text:
        return text == other.text;
    case Value:
        return sameBits(value, other.value);
    case Enabled:
        return enabled == other.enabled;
    case Trail:
        return trailFirst == other.trailFirst && sameBits(trailX, other.trailX) &&
               sameBits(trailY, other.trailY);
    }
    return false;
}

bool ShareState::Object::operator==(const Object& other) const {
    if (num != other.num || kind != other.kind || sections != other.sections)
        return false;
    for (int s = 1; s <= kLastSection; ++s)
        if (!sameSection(other, Section(s)))
            return false;
    return true;
}

const ShareState::Object* ShareState::find(qint32 num) const {
    const auto at = std::lower_bound(objects.begin(), objects.end(), num,
                                     [](const Object& o, qint32 n) { return o.num < n; });
    return at != objects.end() && at->num == num ? &*at : nullptr;
}

ShareState::Object* ShareState::find(qint32 num) {
    return const_cast<Object*>(static_cast<const ShareState*>(this)->find(num));
}

void ShareState::clear() {
    publisher = 0;
    sequence = 0;
    cycle = 0;
    objects.clear();
}

bool ShareState::operator==(const ShareState& other) const {
    return publisher == other.publisher && sequence == other.sequence && cycle == other.cycle &&
           objects == other.objects;
}

QString ShareState::difference(const ShareState& other) const {
    if (publisher != other.publisher)
        return QStringLiteral("publisher %1 vs %2").arg(publisher).arg(other.publisher);
    if (sequence != other.sequence)
        return QStringLiteral("sequence %1 vs %2").arg(sequence).arg(other.sequence);
    if (cycle != other.cycle)
        return QStringLiteral("cycle %1 vs %2").arg(cycle).arg(other.cycle);
    if (objects.size() != other.objects.size())
        return QStringLiteral("%1 objects vs %2").arg(objects.size()).arg(other.objects.size());
    for (std::size_t i = 0; i < objects.size(); ++i) {
        const Object& a = objects[i];
        const Object& b = other.objects[i];
        const QString where = QStringLiteral("object %1 (%2)").arg(a.num).arg(kindName(a.kind));
        if (a.num != b.num || a.kind != b.kind)
            return QStringLiteral("object %1: %2 %3 vs %4 %5")
                .arg(i)
                .arg(a.num)
                .arg(kindName(a.kind))
                .arg(b.num)
                .arg(kindName(b.kind));
        for (int s = 1; s <= kLastSection; ++s) {
            const Section section = Section(s);
            if (a.sameSection(b, section))
                continue;
            QString detail;
            if (a.has(section) != b.has(section))
                detail = a.has(section) ? QStringLiteral("present vs absent")
                                        : QStringLiteral("absent vs present");
            else if (section == Transform)
                detail = firstDifference(a.transform, b.transform);
            else if (section == Material)
                detail = firstDifference(a.material, b.material);
            else if (section == Geometry)
                detail = firstDifference(a.geometry, b.geometry);
            else if (section == Cells)
                detail = firstDifference(a.cells, b.cells);
            else if (section == Vectors)
                detail = firstDifference(a.vectors, b.vectors);
            else if (section == Text)
                detail = QStringLiteral("\"%1\" vs \"%2\"")
                             .arg(QString::fromStdString(a.text), QString::fromStdString(b.text));
            else if (section == Value)
                detail =
                    QStringLiteral("%1 vs %2").arg(a.value, 0, 'g', 17).arg(b.value, 0, 'g', 17);
            else if (section == Enabled)
                detail = QStringLiteral("%1 vs %2").arg(a.enabled).arg(b.enabled);
            else if (a.trailFirst != b.trailFirst)
                detail = QStringLiteral("first point %1 vs %2").arg(a.trailFirst).arg(b.trailFirst);
            else if (!sameBits(a.trailX, b.trailX))
                detail = QStringLiteral("x ") + firstDifference(a.trailX, b.trailX);
            else
                detail = QStringLiteral("y ") + firstDifference(a.trailY, b.trailY);
            return QStringLiteral("%1 %2: %3").arg(where, sectionName(section), detail);
        }
    }
    return QString();
}

const char* ShareState::kindName(Kind kind) {
    switch (kind) {
    case Kind::None:
        return "none";
    case Kind::Sphere:
        return "Sphere";
    case Kind::Cube:
        return "Cube";
    case Kind::Cylinder:
        return "Cylinder";
    case Kind::Cone:
        return "Cone";
    case Kind::Arrow:
        return "Arrow";
    case Kind::DiskSource:
        return "DiskSource";
    case Kind::Plane:
        return "Plane";
    case Kind::RegularPolygon:
        return "RegularPolygon";
    case Kind::PolygonC:
        return "PolygonC";
    case Kind::HalfPipe:
        return "HalfPipe";
    case Kind::File3DSImporter:
        return "File3DSImporter";
    case Kind::VectorText:
        return "VectorText";
    case Kind::PlanarGrid:
        return "PlanarGrid";
    case Kind::Trail:
        return "TrailQwt";
    case Kind::NumberField:
        return "NumberField";
    case Kind::ReadOut:
        return "DisplayDouble";
    }
    return "unknown";
}

const char* ShareState::sectionName(Section section) {
    switch (section) {
    case Transform:
        return "transform";
    case Material:
        return "material";
    case Geometry:
        return "geometry";
    case Cells:
        return "cells";
    case Vectors:
        return "vectors";
    case Text:
        return "text";
    case Value:
        return "value";
    case Enabled:
        return "enabled";
    case Trail:
        return "trail";
    }
    return "unknown";
}

quint32 ShareState::sectionsOf(Kind kind) {
    switch (kind) {
    case Kind::None:
        return 0;
    case Kind::VectorText:
        return kPlaced | bit(Text);
    case Kind::PlanarGrid:
        return kPlaced | bit(Geometry) | bit(Cells) | bit(Vectors);
    case Kind::Trail:
        return bit(Trail);
    case Kind::NumberField:
        return bit(Enabled);
    case Kind::ReadOut:
        return bit(Value);
    default:
        break;
    }
    if (quint8(kind) > kLastKind)
        return 0;
    return geometryCount(kind) > 0 ? kPlaced | bit(Geometry) : kPlaced;
}

int ShareState::geometryCount(Kind kind) {
    switch (kind) {
    case Kind::Sphere:
        return 1;
    case Kind::Cube:
    case Kind::HalfPipe:
        return 3;
    case Kind::Cylinder:
    case Kind::Cone:
    case Kind::DiskSource:
        return 2;
    case Kind::RegularPolygon:
        return 4;
    case Kind::PlanarGrid:
        return 9;
    default:
        return 0;
    }
}

} // namespace Orlavex
