// The record parser's number conversions must agree, bit for bit, with Qt's
// own QString conversions in the C locale, and the data message's "%f" form
// with printf. Both are checked over hand-picked edge cases and over many
// generated fields.
#include <Orlavex/Orlavex.h>

#include <QtTest>

#include <clocale>
#include <cstring>
#include <limits>
#include <random>

namespace {
template <typename T> bool sameBits(T a, T b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

QStringList edgeFields() {
    // Separated by '|'; the first field is empty.
    return QString::fromUtf8(
               "| |0|-0|+0|00|0.0|-0.0|1|-1|+1| 1|1 |\t5\n|1.5|-12.25|.5|-.5|5.|1e5|1E5|1e+5|1e-5|"
               "1e|e5|1e5.5|1.5.5|--1|-+1|1-2|1,5|0x10|0x1p3|inf|-inf|+inf|INF|Infinity|nan|NaN|"
               "-nan|1e39|-1e39|3.4028235e38|3.4028236e38|3.40282357e38|1.17549435e-38|"
               "1.17549434e-38|1e-38|1e-39|1e-45|1.4e-45|7e-46|1e-50|1e308|1.7976931348623157e308|"
               "1.8e308|1e400|-1e400|-1e-400|-1e-50|-0e5|0e-999|2.2250738585072014e-308|2.2e-308|"
               "4.9e-324|1e-320|1e-400|2147483647|2147483648|-2147483648|-2147483649|4294967296|"
               "007|-007|0000000000001|999999999|-999999999|1000000000|12345678901234567890|1#|"
               "12#|#|abc|1.5#|٣|1\u00a0|0.1|0.3|123456789012345678901234567890|9007199254740993|"
               "1.00000005960464477550|16777217|0.000000000000000000000000000000000000000000001")
               .split('|')
           << QString(QChar(0));
}

QStringList generatedFields() {
    std::mt19937_64 rng(20261122);
    std::uniform_int_distribution<int> expo(-330, 330);
    std::uniform_real_distribution<double> mant(-10.0, 10.0);
    std::uniform_int_distribution<int> prec(0, 19);
    std::uniform_int_distribution<int> pick(0, 6);
    std::uniform_int_distribution<long long> integers(-5000000000LL, 5000000000LL);
    char buf[512];
    auto print = [&](const char* format, auto... args) {
        std::snprintf(buf, sizeof buf, format, args...);
        return QString::fromLatin1(buf);
    };
    QStringList out;
    for (int i = 0; i < 20000; ++i) {
        const double v = mant(rng) * std::pow(10.0, expo(rng) / (pick(rng) == 0 ? 1 : 8));
        const int p = prec(rng);
        const long long n = integers(rng);
        const QString forms[] = {print("%.*g", p, v),
                                 print("%.*e", p, v),
                                 print("%.*f", p % 8, std::fmod(v, 1e12)),
                                 print("%.17g", v),
                                 print("%lld", n),
                                 print("%.9g", double(float(v))),
                                 print("%d", int(n % 100000))};
        out << forms[pick(rng)];
    }
    return out;
}
} // namespace

class TestConversions : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { std::setlocale(LC_NUMERIC, "C"); }

    void sameAsQt_data() {
        QTest::addColumn<QStringList>("fields");
        QTest::newRow("edge cases") << edgeFields();
        QTest::newRow("generated") << generatedFields();
    }
    void sameAsQt() {
        QFETCH(QStringList, fields);
        for (const QString& f : fields) {
            const float qf = f.toFloat();
            const double qd = f.toDouble();
            const int qi = f.toInt(nullptr, 10);
            QVERIFY2(sameBits(SocketClass::toFloat(f.constData(), f.size()), qf) &&
                         sameBits(SocketClass::toDouble(f.constData(), f.size()), qd) &&
                         SocketClass::toInt(f.constData(), f.size()) == qi,
                     qPrintable("a conversion differs from Qt's for \"" + f + "\""));
        }
    }

    void fixedSameAsPrintf() {
        std::mt19937_64 rng(7);
        std::uniform_int_distribution<unsigned long long> bits;
        const double inf = std::numeric_limits<double>::infinity();
        const double nan = std::numeric_limits<double>::quiet_NaN();
        const double denorm = std::numeric_limits<double>::denorm_min();
        QVector<double> values;
        for (double v : {0.0, 2.5, 12.25, 0.0000004, 0.0000005, 0.0000015, 1e20, 1e300,
                         1.7976931348623157e308, denorm, inf, nan})
            values << v << -v;
        for (int i = 0; i < 20000; ++i) {
            const unsigned long long b = bits(rng);
            double d;
            std::memcpy(&d, &b, sizeof d);
            values << d << double(float(std::fmod(std::abs(d), 1e7)) * (i % 2 ? 1 : -1));
        }
        char expected[512];
        for (double v : values) {
            std::snprintf(expected, sizeof expected, "%f", v);
            QByteArray got;
            SocketClass::appendFixed6(got, v);
            QCOMPARE(got, QByteArray(expected));
        }
    }
};

QTEST_GUILESS_MAIN(TestConversions)
#include "tst_conversions.moc"
