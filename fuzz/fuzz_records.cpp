// Record application for every receiving kind, as the link thread applies
// records and the GUI thread then takes the cycle's hand-over. One object of
// each kind is built per input with flags taken from the input, and each is
// given a payload made from the input. Besides never crashing, every record
// must take exactly as many numbers as the registry description says it
// carries.
//
// Input: a header of 12 bytes, then the payloads, separated by '\n' and
// handed out to the objects in turn (the wire's terminal is added to each).
//   bytes 0-5   two bits per flag, p then c, for the eleven solid kinds in
//               the order of kSolids; a flag is one of 0, 1, 2, -1
//   byte 6      VectorText t, p, c (bits 0-5); bit 6: two cycles;
//               bit 7: also a record for a num with no object
//   byte 7      PlanarGrid p, v, c (bits 0-5)
//   byte 8      PlanarGrid cell counts nx, ny, nz, each 0 to 4 (base 5)
//   byte 9      appending trail: bits 0-1 points skipped, bits 2-7 point limit
//   byte 10     replacing trail: points per batch (bits 0-2, see kBatch)
//   byte 11     NumberField enable (bits 0-1); read-out format (bits 2-3)
//               and precision (bits 4-7, times 7)
#include "FuzzSupport.h"

#include <Orlavex/controls/DisplayDouble.h>
#include <Orlavex/controls/NumberField.h>
#include <Orlavex/display/TrailQwt.h>
#include <Orlavex/link/SocketClass.h>
#include <Orlavex/link/detail/RecordLayout.h>
#include <Orlavex/scene/Arrow.h>
#include <Orlavex/scene/Cone.h>
#include <Orlavex/scene/Cube.h>
#include <Orlavex/scene/Cylinder.h>
#include <Orlavex/scene/DiskSource.h>
#include <Orlavex/scene/File3DSImporter.h>
#include <Orlavex/scene/HalfPipe.h>
#include <Orlavex/scene/PlanarGrid.h>
#include <Orlavex/scene/Plane.h>
#include <Orlavex/scene/PolygonC.h>
#include <Orlavex/scene/RegularPolygon.h>
#include <Orlavex/scene/Sphere.h>
#include <Orlavex/scene/VectorText.h>

#include <QJsonObject>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

using namespace Orlavex;

namespace {

constexpr int kHeader = 12;
constexpr int kFlag[] = {0, 1, 2, -1};
constexpr int kBatch[] = {0, 2, 3, 5, 16, -1, 1, 40};
constexpr char kFormat[] = {'f', 'e', 'g', 'G'};

int flagAt(const uint8_t* h, int bit) {
    return kFlag[(h[bit / 8] >> (bit % 8)) & 3];
}

const float kSquare[12] = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};

const std::function<DrawableSource*()> kSolids[] = {
    [] { return new Sphere; },
    [] { return new Cylinder; },
    [] { return new Cube; },
    [] { return new RegularPolygon; },
    [] { return new PolygonC(4, kSquare); },
    [] { return new DiskSource; },
    [] { return new Arrow; },
    [] { return new Cone; },
    [] { return new HalfPipe(1, 2, 10, 3, 2, 2); },
    [] { return new Plane; },
    [] { return new File3DSImporter(""); },
};

// What the GUI thread does with a cycle's hand-over.
void takeHandOver(detail::HandOver& batch) {
    batch.apply();
    batch = detail::HandOver();
}

// The numbers a record took, against the count its description gives.
void checkCount(detail::RecordContext& c, int num, SendClass* object) {
    const QJsonObject d = detail::RecordLayout::describe(num, object);
    const int count = d.value(QStringLiteral("count")).toInt();
    if (count == 0)
        return; // nothing parsed, the buffers keep what they held
    const bool doubles = d.value(QStringLiteral("precision")).toString() == QLatin1String("double");
    const int took = doubles ? c.doubles.size() : c.floats.size();
    if (took != count) {
        std::fprintf(stderr, "%s record (num %d) took %d numbers, its description says %d\n",
                     qPrintable(d.value(QStringLiteral("kind")).toString()), num, took, count);
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::makeApplication<QApplication>();
    return 0;
}

namespace {
void runInput(const uint8_t* data, size_t size) {
    if (size < size_t(kHeader))
        return;
    const uint8_t* h = data;

    std::vector<std::unique_ptr<SendClass>> objects;
    int bit = 0;
    for (const auto& make : kSolids) {
        DrawableSource* o = make();
        o->setInteractivelyPositioned(flagAt(h, bit));
        o->setInteractivelyColored(flagAt(h, bit + 2));
        bit += 4;
        objects.emplace_back(o);
    }

    auto* text = new VectorText;
    text->setInitText("t = ");
    text->setFinalText(" s");
    text->setInteractiveValue(kFlag[h[6] & 3]);
    text->setInteractivelyPositioned(kFlag[(h[6] >> 2) & 3]);
    text->setInteractivelyColored(kFlag[(h[6] >> 4) & 3]);
    objects.emplace_back(text);

    const int nx = h[8] % 5, ny = h[8] / 5 % 5, nz = h[8] / 25 % 5;
    const std::vector<float> cells(64, 0.5f); // enough for 4 x 4 x 4 cells
    auto* grid = new PlanarGrid(0, 0, 0, 1, 1, 1, nx, ny, nz, cells.data(), cells.data(), 0, 0.7f,
                                1, 1, 1, 1, 1, 1, 0, 1, 1, 1, kFlag[(h[7] >> 2) & 3]);
    grid->setInteractivelyPositioned(kFlag[h[7] & 3]);
    grid->setInteractivelyColored(kFlag[(h[7] >> 4) & 3]);
    objects.emplace_back(grid);

    auto* appending = new TrailQwt(QStringLiteral("append"));
    appending->setNSkip(h[9] & 3);
    appending->setNMaxPoints(h[9] >> 2);
    objects.emplace_back(appending);
    auto* replacing = new TrailQwt(QStringLiteral("replace"));
    replacing->setNReceivedPoints(kBatch[h[10] & 7]);
    objects.emplace_back(replacing);

    auto* field = new NumberField;
    field->setEnableInt(kFlag[h[11] & 3]);
    objects.emplace_back(field);
    auto* readOut = new DisplayDouble;
    readOut->setFormat(kFormat[(h[11] >> 2) & 3], (h[11] >> 4) * 7);
    objects.emplace_back(readOut);

    // The payloads, one per object, taken in turn.
    std::vector<QByteArray> payloads;
    const char* p = reinterpret_cast<const char*>(data + kHeader);
    const char* end = reinterpret_cast<const char*>(data + size);
    for (;;) {
        const char* cut = std::find(p, end, '\n');
        payloads.push_back(QByteArray(p, int(cut - p)) + '#');
        if (cut == end)
            break;
        p = cut + 1;
    }

    SocketClass socket;
    detail::RecordContext context;
    context.socket = &socket;
    for (int i = 0; i < int(objects.size()); ++i)
        context.targets.insert(i, {objects[i].get(), detail::RecordLayout::find(objects[i].get())});

    const int cycles = h[6] & 0x40 ? 2 : 1;
    for (int cycle = 0; cycle < cycles; ++cycle) {
        for (int i = 0; i < int(objects.size()); ++i) {
            const QByteArray& payload = payloads[(size_t(i) + size_t(cycle)) % payloads.size()];
            context.payload = payload.constData();
            context.payloadLength = payload.size();
            context.floats.fill(0, 1031); // sizes no layout gives
            context.doubles.fill(0, 1031);
            context.apply(i);
            checkCount(context, i, objects[i].get());
            context.releaseLargeBuffers();
        }
        if (h[6] & 0x80) {
            context.payload = payloads.front().constData();
            context.payloadLength = payloads.front().size();
            context.apply(int(objects.size())); // read and ignored
        }
        takeHandOver(context.batch);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    runInput(data, size);
    fuzz::settleOutput();
    return 0;
}
