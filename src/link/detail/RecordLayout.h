#pragma once

#include <QString>
#include <QVector>

#include <vector>

class CommThread;
class SendClass;
class SocketClass;
class NumberField;
class DisplayDouble;
class TrailQwt;

/// What applying one record needs: the payload and the buffers the cycle
/// reuses for every record, so that applying allocates nothing.
struct RecordContext {
    CommThread* thread;
    SocketClass* socket;
    QString* message;
    QVector<float>* floats;
    QVector<double>* doubles;
    QVector<int>* ints;
    std::vector<float>* scratch;  ///< vector scratch buffer of grid records; grows when needed
    std::vector<float>* gridCopy; ///< cell colours of the grid record being applied

    /// Parses `count` single-precision numbers of the payload.
    const float* parseFloats(int count);
    /// Parses `count` double-precision numbers into the trail vector.
    void parseDoubles(int count);
    /// Hands the trail vector to the GUI thread and waits until it is taken.
    void emitTrail(TrailQwt* trail);
    /// A widget change, carried out on the GUI thread before the render pass.
    void queueWidgetUpdate(NumberField* field, DisplayDouble* readOut, double value);
};

/// The record layouts: for each kind of receiving object, how many numbers its
/// record carries and which setter each number drives.
///
/// Each kind is one short function plus one line in the table of kinds, in
/// the order in which kinds are tested against an object's dynamic type.
class RecordLayout {
public:
    using Apply = void (*)(RecordContext&, SendClass*);
    /// The layout for the object's kind; null when its records are read and ignored.
    static Apply find(SendClass* object);
};
