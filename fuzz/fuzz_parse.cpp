// Field parsing: processInput in both precisions on any payload, and the
// field conversions, which must give exactly what Qt's own conversions give
// (they take a faster way for common numbers and must never differ from it).
//
// Input: one byte of options (payload as Latin-1 or as UTF-16, and whether
// it gets the wire's terminal), the counts n and m, eight bytes read as a
// double for the "%f" writer, and the payload.
#include "FuzzSupport.h"

#include <Orlavex/link/SocketClass.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <QString>
#include <QVector>

#include <cstdio>
#include <cstring>

using Orlavex::SocketClass;

namespace {

template <class T> bool sameBits(T a, T b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

[[noreturn]] void mismatch(const char* what, const QString& field, const QString& ours,
                           const QString& qts) {
    std::fprintf(stderr, "%s differs for \"%s\" (%d chars): ours %s, Qt's %s\n", what,
                 field.toUtf8().constData(), int(field.size()), ours.toUtf8().constData(),
                 qts.toUtf8().constData());
    std::abort();
}

QString bits(double d) {
    quint64 u;
    std::memcpy(&u, &d, sizeof u);
    return QString::number(d, 'g', 17) + QStringLiteral(" [0x%1]").arg(u, 16, 16, QLatin1Char('0'));
}

QString bits(float f) {
    quint32 u;
    std::memcpy(&u, &f, sizeof u);
    return QString::number(f, 'g', 9) + QStringLiteral(" [0x%1]").arg(u, 8, 16, QLatin1Char('0'));
}

void checkConversions(const QChar* text, int length) {
    const QString field = QString::fromRawData(text, length);
    const float f = SocketClass::toFloat(text, length);
    const float qf = field.toFloat();
    if (!sameBits(f, qf))
        mismatch("toFloat", field, bits(f), bits(qf));
    const double d = SocketClass::toDouble(text, length);
    const double qd = field.toDouble();
    if (!sameBits(d, qd))
        mismatch("toDouble", field, bits(d), bits(qd));
    const int i = SocketClass::toInt(text, length);
    const int qi = field.toInt(nullptr, 10);
    if (i != qi)
        mismatch("toInt", field, QString::number(i), QString::number(qi));
}

void checkFixed(double value) {
    QByteArray ours;
    SocketClass::appendFixed6(ours, value);
    char theirs[400];
    std::snprintf(theirs, sizeof theirs, "%f", value); // the process runs in the C locale
    if (ours != QByteArray(theirs))
        mismatch("appendFixed6", bits(value), QString::fromLatin1(ours), QString::fromLatin1(theirs));
}

template <class T> void parse(SocketClass& socket, QString* payload, int n, int m) {
    QVector<T> values(3, T(7)); // stale entries that the call must drop
    QVector<int> ints(5, 7);
    socket.processInput(payload, &values, n, &ints, m);
    if (values.size() != n || ints.size() != m) {
        std::fprintf(stderr, "processInput left %d numbers and %d integers for n=%d m=%d\n",
                     int(values.size()), int(ints.size()), n, m);
        std::abort();
    }
    socket.takeParseAnomalies();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quietMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // One client for the whole run: parsing keeps no state between calls
    // except the anomaly count, which every call takes.
    static SocketClass* socket = new SocketClass;

    FuzzedDataProvider in(data, size);
    const uint8_t options = in.ConsumeIntegral<uint8_t>();
    const int n = in.ConsumeIntegralInRange(0, 64);
    const int m = in.ConsumeIntegralInRange(0, 16);
    const uint64_t raw = in.ConsumeIntegral<uint64_t>(); // any double: NaN, infinities, subnormals
    double fixed;
    std::memcpy(&fixed, &raw, sizeof fixed);
    checkFixed(fixed);
    const std::string rest = in.ConsumeRemainingBytesAsString();

    QString payload;
    if (options & 1) {
        // Any UTF-16: what the wire cannot carry must not break the parser either.
        payload.resize(int(rest.size() / 2));
        std::memcpy(payload.data(), rest.data(), size_t(payload.size()) * 2);
    } else {
        payload = QString::fromLatin1(rest.data(), int(rest.size()));
    }
    if (options & 2)
        payload.append(QLatin1Char('#')); // as a payload from the wire ends

    parse<float>(*socket, &payload, n, m);
    parse<double>(*socket, &payload, n, m);

    // Every field as processInput cuts it, the last without its terminal,
    // and the payload whole.
    const QChar* s = payload.constData();
    int from = 0;
    for (int at; (at = payload.indexOf(QLatin1Char(','), from)) >= 0; from = at + 1)
        checkConversions(s + from, at - from);
    checkConversions(s + from, payload.size() - from);
    checkConversions(s + from, qMax(0, payload.size() - from - 1));
    checkConversions(s, payload.size());
    fuzz::settleOutput();
    return 0;
}
