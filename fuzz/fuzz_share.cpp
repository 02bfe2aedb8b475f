// Share frames as a viewer receives them from the broker: any bytes, applied
// to a viewer with no state yet and to one holding a state with an object of
// every kind. Besides never crashing or hanging:
//   - a refused frame leaves the state exactly as it was;
//   - an accepted frame gives a state that survives its own keyframe, and the
//     delta from the state before it, bit for bit.
//
// Input: the frame itself. The viewer that holds a state is given the
// input's publisher and the frame number just before the input's, so that
// deltas reach their body.
// The input is also cut into messages of the size its first byte gives and
// put back together as parts would be; what comes out is applied the same
// way.
#include "FuzzSupport.h"

#include <Orlavex/share/ShareFrame.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using Orlavex::ShareFrame;
using Orlavex::ShareState;

namespace {

using Kind = ShareState::Kind;

[[noreturn]] void broken(const char* what, const ShareState& a, const ShareState& b) {
    std::fprintf(stderr, "%s: %s\n", what, qPrintable(a.difference(b)));
    std::abort();
}

/// One object of every kind, with every section it can carry.
ShareState held() {
    ShareState s;
    s.publisher = 1;
    s.sequence = 1;
    s.cycle = 1;
    for (int k = 1; k <= ShareState::kLastKind; ++k) {
        ShareState::Object o;
        o.num = k;
        o.kind = Kind(k);
        const quint32 sections = ShareState::sectionsOf(o.kind);
        o.sections = sections;
        o.transform.fill(k);
        o.material.fill(0.5);
        o.geometry.assign(std::size_t(ShareState::geometryCount(o.kind)), 1.0);
        if (o.has(ShareState::Cells))
            o.cells = {1, 2, 3, 4};
        if (o.has(ShareState::Vectors))
            o.vectors = {1, 1, 0, 0, 1};
        if (o.has(ShareState::Text))
            o.text = "text";
        if (o.has(ShareState::Trail)) {
            o.trailFirst = 2;
            o.trailX = {1, 2, 3};
            o.trailY = {4, 5, 6};
        }
        s.objects.push_back(o);
    }
    return s;
}

void check(const char* data, qint64 size, ShareState& state) {
    const ShareState before = state;
    const ShareFrame::Result r = ShareFrame::apply(data, size, &state);
    if (!r.ok()) {
        if (state != before)
            broken("a refused frame changed the state", state, before);
        return;
    }
    // What a publisher holding this state would send must rebuild it.
    ShareState viewer;
    if (!ShareFrame::apply(ShareFrame::encodeKey(state), &viewer).ok() || viewer != state)
        broken("keyframe round trip", viewer, state);
    ShareState from = before;
    if (from.sequence + 1 == state.sequence) {
        if (!ShareFrame::apply(ShareFrame::encodeDelta(from, state), &from).ok() || from != state)
            broken("delta round trip", from, state);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto* bytes = reinterpret_cast<const char*>(data);
    ShareState empty;
    check(bytes, qint64(size), empty);

    static const ShareState kHeld = held();
    ShareState state = kHeld;
    ShareFrame::Header h;
    if (ShareFrame::readHeader(bytes, qint64(size), &h).ok() && h.sequence > 1) {
        state.publisher = h.publisher;
        state.sequence = h.sequence - 1;
    }
    check(bytes, qint64(size), state);

    if (size > 0) {
        const std::size_t step = 1 + data[0];
        ShareFrame::Assembler parts(1 << 20);
        for (std::size_t at = 1; at < size; at += step) {
            const char* frame;
            qint64 frameSize;
            parts.take(bytes + at, qint64(std::min(step, size - at)), &frame, &frameSize);
            if (frame) {
                ShareState fresh;
                check(frame, frameSize, fresh);
            }
        }
    }
    return 0;
}
