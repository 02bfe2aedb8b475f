// Field parsing: processInput in both precisions on any payload, and the
// field conversions, which must give exactly what Qt's own conversions give
// (they take a faster way for common numbers and must never differ from it).
//
// processInput is also checked against its contract, with Qt's conversions
// for the fields: values, integers and anomaly count.
//
// Input (FuzzedDataProvider: the fixed-size values from the end): one byte of
// options (bit 0: payload as UTF-16, else Latin-1; bit 1: add the wire's
// terminal; bits 2-4: the payload repeated 2^k times), n (one byte: with bit 7
// set its low bits, otherwise the payload's number of fields plus the low
// bits minus 64), m (one byte, up to 16), eight bytes read as a double for
// the "%f" writer; the rest is the payload.
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
        mismatch("appendFixed6", bits(value), QString::fromLatin1(ours),
                 QString::fromLatin1(theirs));
}

template <class T> T qtNumber(const QString& field, bool* ok);
template <> float qtNumber<float>(const QString& field, bool* ok) {
    return field.toFloat(ok);
}
template <> double qtNumber<double>(const QString& field, bool* ok) {
    return field.toDouble(ok);
}

// processInput as its contract reads, field by field with Qt's conversions:
// the values, the integers and the anomaly count it must give.
template <class T>
int reference(const QString& data, int n, int m, QVector<T>* values, QVector<int>* ints) {
    const int length = data.size(), last = length - 1;
    int pos = 0, anomalies = 0;
    bool failed = false;
    values->fill(T(0), n);
    ints->fill(0, m);
    for (int i = 0; i < n; ++i) {
        const bool runsToEnd = i == n - 1 && m == 0;
        if (!failed && !runsToEnd && data.indexOf(QLatin1Char(','), pos) < 0)
            failed = true; // this field needed a comma and found none
        if (failed) {
            anomalies += runsToEnd ? 0 : 1;
            continue;
        }
        const int end = runsToEnd ? qMax(pos, last) : data.indexOf(QLatin1Char(','), pos);
        bool ok;
        (*values)[i] = qtNumber<T>(data.mid(pos, end - pos), &ok);
        anomalies += ok ? 0 : 1;
        pos = end + 1;
    }
    for (int j = 0; j < m && !failed && pos <= length; ++j) {
        int end = j == m - 1 ? qMax(pos, last) : data.indexOf(QLatin1Char(','), pos);
        if (end < 0)
            end = length;
        (*ints)[j] = data.mid(pos, end - pos).toInt(nullptr, 10);
        pos = end + 1;
    }
    return anomalies;
}

template <class T> void parse(SocketClass& socket, QString* payload, int n, int m) {
    QVector<T> values(3, T(7)); // stale entries that the call must drop
    QVector<int> ints(5, 7);
    socket.processInput(payload, &values, n, &ints, m);
    const int anomalies = socket.takeParseAnomalies();
    QVector<T> expected;
    QVector<int> expectedInts;
    const int expectedAnomalies = reference(*payload, n, m, &expected, &expectedInts);
    if (values.size() != n || ints.size() != m)
        mismatch("processInput's sizes", payload->left(200),
                 QStringLiteral("%1 numbers, %2 integers").arg(values.size()).arg(ints.size()),
                 QStringLiteral("n=%1 m=%2").arg(n).arg(m));
    for (int i = 0; i < n; ++i)
        if (!sameBits(values[i], expected[i]))
            mismatch("processInput's number",
                     QStringLiteral("field %1 of %2").arg(i).arg(payload->left(200)),
                     bits(values[i]), bits(expected[i]));
    if (ints != expectedInts)
        mismatch("processInput's integers", payload->left(200), QString(), QString());
    if (anomalies != expectedAnomalies)
        mismatch("processInput's anomaly count", payload->left(200), QString::number(anomalies),
                 QString::number(expectedAnomalies));

    // The link thread parses the bytes it received, which widen to exactly
    // the Latin-1 payloads: the same numbers, integers and count.
    for (QChar c : qAsConst(*payload))
        if (c.unicode() > 0xFF)
            return;
    const QByteArray bytes = payload->toLatin1();
    QVector<T> fromBytes(2, T(5));
    QVector<int> intsFromBytes(1, 5);
    socket.processInput(bytes.constData(), bytes.size(), &fromBytes, n, &intsFromBytes, m);
    const int byteAnomalies = socket.takeParseAnomalies();
    for (int i = 0; i < n && fromBytes.size() == n; ++i)
        if (!sameBits(fromBytes[i], values[i]))
            mismatch("processInput on bytes, number",
                     QStringLiteral("field %1 of %2").arg(i).arg(payload->left(200)),
                     bits(fromBytes[i]), bits(values[i]));
    if (fromBytes.size() != n || intsFromBytes != ints || byteAnomalies != anomalies)
        mismatch("processInput on bytes", payload->left(200), QString::number(byteAnomalies),
                 QString::number(anomalies));
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
    const uint8_t count = in.ConsumeIntegral<uint8_t>();
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
    // Repeated, a short input makes a payload that crosses the parser's
    // internal blocks (thousands of characters) with fields cut at their ends.
    payload = payload.repeated(1 << ((options >> 2) & 7));
    if (options & 2)
        payload.append(QLatin1Char('#')); // as a payload from the wire ends
    // n near the number of fields the payload has, or small.
    const int fields = payload.count(QLatin1Char(',')) + 1;
    const int n = count & 0x80 ? count & 0x7F : qMax(0, fields + (count & 0x7F) - 64);

    parse<float>(*socket, &payload, n, m);
    parse<double>(*socket, &payload, n, m);

    // Every field as processInput cuts it, the last without its terminal,
    // and the payload whole (long: Qt's way).
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
