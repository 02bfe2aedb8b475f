#pragma once

#include <Orlavex/link/CycleStats.h>

#include <QHash>
#include <QJsonObject>
#include <QString>
#include <QVector>

#include <vector>

namespace Orlavex {

class SendClass;
class SocketClass;
class NumberField;
class DisplayDouble;
class TrailQwt;

namespace detail {

/// Everything of one cycle that belongs to widgets, copied out of the link
/// thread's buffers and handed to the GUI thread in one piece.
struct HandOver {
    struct Widget {
        NumberField* field;     ///< its enabled state, or
        DisplayDouble* readOut; ///< its shown value
        double value;
    };
    struct Trail {
        TrailQwt* trail;
        QVector<double> points; ///< as the record carried them
    };
    std::vector<Widget> widgets; ///< in record order
    std::vector<Trail> trails;   ///< in record order
    bool empty() const { return widgets.empty() && trails.empty(); }
    /// Carries the batch out, in record order; on the widgets' (GUI) thread.
    void apply();
};

/// What applying records needs, owned by the link thread's run() for the
/// whole run: the payload, the number buffers every record reuses, the
/// batch for the GUI thread and the cycle's statistics.
struct RecordContext {
    using Apply = void (*)(RecordContext&, SendClass*);
    struct Target {
        SendClass* object;
        Apply apply; ///< null: the record is read and ignored
    };
    struct Buffered {
        int num;
        QByteArray payload; ///< its own copy: the receive buffer moves on
    };

    SocketClass* socket = nullptr;
    QHash<int, Target> targets;
    /// The payload of the record being applied, terminal included: a view
    /// into the socket's receive buffer, or into a buffered record.
    const char* payload = nullptr;
    int payloadLength = 0;
    QVector<float> floats;
    QVector<double> doubles;
    QVector<int> ints;
    HandOver batch;
    QVector<Buffered> buffered; ///< overlapped cycles: received, not yet applied
    CycleStats stats;
    qint64 parseNs = 0;
    int nonFinite = 0; ///< values of the record being applied that were not applied

    /// Parses `count` single-precision numbers of the payload.
    const float* parseFloats(int count);
    /// Parses `count` double-precision numbers of the payload.
    const double* parseDoubles(int count);
    /// Applies the record in `message` to the object registered under `num`.
    void apply(int num);
    /// After a record of many MiB: gives the grown buffers back.
    void releaseLargeBuffers();
    /// Says on standard error what was wrong with record `num`.
    void report(int num, const QString& what);
    QHash<int, QString> reported; ///< by record: the last cause said
};

/// The record layouts: for each kind of receiving object, how many numbers its
/// record carries and which setter each number drives.
///
/// Each kind is one short function plus one line in the table of kinds, in
/// the order in which kinds are tested against an object's dynamic type. The
/// table also names each kind's fields for the registry description.
class RecordLayout {
public:
    /// The layout for the object's kind; null when its records are read and ignored.
    static RecordContext::Apply find(SendClass* object);
    /// The kind, flags and ordered fields of the object's record.
    static QJsonObject describe(int num, SendClass* object);
};

} // namespace detail
} // namespace Orlavex
