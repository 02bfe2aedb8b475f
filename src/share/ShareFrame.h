#pragma once

#include <Orlavex/share/ShareState.h>

#include <QByteArray>
#include <QString>

#include <vector>

namespace Orlavex {

/// The binary frames that carry a `ShareState` from the controlling
/// front-end to its viewers (layout: docs/share.md, "Frame format").
///
/// A keyframe carries the whole state, every trail's retained points
/// included. A delta frame carries, for the objects that changed since the
/// frame before it, only the sections whose bytes changed, and of a trail
/// only the points appended. Frames are numbered by their publisher: a delta
/// applies only to the state of the same publisher's frame numbered one less.
///
/// Decoding trusts nothing. Truncated, oversized, malformed or out-of-order
/// input is refused with an error and a message, and leaves the state as it
/// was: a frame is checked whole before anything is applied. Every length is
/// checked against the bytes at hand before anything is allocated, so no
/// input allocates more than its own size. After an error a viewer needs a
/// keyframe.
class ORLAVEX_EXPORT ShareFrame {
public:
    enum class Type : quint8 { Key = 1, Delta = 2 };
    enum class Error {
        None,
        Truncated,    ///< fewer bytes than the header or a length announces
        BadMagic,     ///< not a frame at all
        WrongVersion, ///< a frame of another format version
        Oversized,    ///< larger than the decoder accepts
        Malformed,    ///< inconsistent content (the message says what)
        SequenceGap,  ///< a delta that does not follow the state's frame
        NoBase,       ///< a delta for a state that has had no keyframe
    };
    struct Header {
        Type type = Type::Key;
        /// Who numbered the frames: one random number per publisher run.
        quint64 publisher = 0;
        quint64 sequence = 0;
        qint64 cycle = 0;
        /// The publisher's clock when it sent the frame, in microseconds
        /// since the Unix epoch; 0 when unknown.
        qint64 publishedUs = 0;
        quint32 objects = 0;   ///< object entries in the frame
        quint32 bodyBytes = 0; ///< bytes after the header
    };
    struct Result {
        Error error = Error::None;
        QString message;
        bool ok() const { return error == Error::None; }
    };

    static constexpr quint8 kVersion = 1;
    static constexpr int kHeaderBytes = 48;
    /// The largest frame a decoder accepts unless told otherwise.
    static constexpr qint64 kDefaultMaxBytes = qint64(256) << 20;

    /// The whole state, under its own publisher and sequence number (neither 0).
    static QByteArray encodeKey(const ShareState& state, qint64 publishedUs = 0);
    /// A fingerprint of the state (SHA-1 of its keyframe, hexadecimal): equal
    /// for equal states, bit for bit, so that a viewer can be checked against
    /// the controller's journal (`CommThread::setShareJournal`) cycle by cycle.
    static QByteArray digest(const ShareState& state);
    /// What turns `previous` into `current`. When `current` does not follow
    /// `previous` (another publisher, not the next sequence number, or objects not
    /// the same numbers and kinds, or a section went away) a delta cannot say
    /// it, and the result is a keyframe of `current`.
    static QByteArray encodeDelta(const ShareState& previous, const ShareState& current,
                                  qint64 publishedUs = 0);

    /// Reads and checks the header alone.
    static Result readHeader(const char* data, qint64 size, Header* header,
                             qint64 maxBytes = kDefaultMaxBytes);
    static Result readHeader(const QByteArray& frame, Header* header,
                             qint64 maxBytes = kDefaultMaxBytes) {
        return readHeader(frame.constData(), frame.size(), header, maxBytes);
    }
    /// Applies a frame to `state`: a keyframe replaces it, a delta must follow
    /// it. On error `state` is left exactly as it was.
    static Result apply(const char* data, qint64 size, ShareState* state,
                        qint64 maxBytes = kDefaultMaxBytes);
    static Result apply(const QByteArray& frame, ShareState* state,
                        qint64 maxBytes = kDefaultMaxBytes) {
        return apply(frame.constData(), frame.size(), state, maxBytes);
    }

    static const char* errorName(Error error);

    /// The NATS subject `orlavex.<lab>.<leaf>` (leaf: frame, key, registry,
    /// status or sync).
    static QByteArray subject(const QString& lab, const char* leaf);
    /// A lab name is one subject token of letters, digits and '_'.
    static bool isValidLab(const QString& lab);

    /// Bytes of a part's own header (docs/share.md, "Parts").
    static constexpr int kPartHeaderBytes = 28;
    /// The messages that carry `frame` through a broker that takes at most
    /// `maxMessage` bytes per message: the frame itself when it fits,
    /// otherwise parts, each with a small header, to be sent in order on one
    /// subject.
    static std::vector<QByteArray> split(const QByteArray& frame, qint64 maxMessage);

    /// Puts frames sent as parts back together, for one subject.
    ///
    /// A whole frame passes straight through. A part must continue the frame
    /// under way; anything else (a part lost, a part of another frame, a
    /// total that does not add up) discards that frame with an error, and a
    /// first part then starts the next one. Nothing is reserved from what a
    /// part announces: memory grows only with the bytes received.
    class ORLAVEX_EXPORT Assembler {
    public:
        explicit Assembler(qint64 maxBytes = kDefaultMaxBytes) : m_maxBytes(maxBytes) {}
        /// Takes one message. On success `*frame` and `*size` give a whole
        /// frame (the message itself, or the assembled parts, valid until the
        /// next call), or null and 0 while parts are still missing.
        Result take(const char* data, qint64 size, const char** frame, qint64* frameSize);
        /// Forgets a frame under way.
        void reset();

    private:
        qint64 m_maxBytes;
        QByteArray m_buffer;
        quint64 m_sequence = 0;
        quint32 m_next = 0;
        quint32 m_count = 0;
        quint32 m_total = 0;
    };
};

} // namespace Orlavex
