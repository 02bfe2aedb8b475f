#include "DisplayDouble.h"

#include <QCoreApplication>
#include <QLabel>
#include <QPointer>

namespace Orlavex {

namespace {
// A double has no more than 17 significant digits; beyond this the conversion
// would only pad zeros, and a precision in the millions would build a string
// large enough to stall the GUI.
constexpr int maxPrecision = 99;
} // namespace

struct DisplayDouble::Shared {
    QPointer<QLabel> label{new QLabel};
    QString text;
    QString prefix;
    QString suffix;

    ~Shared() {
        // Without an application the widget machinery is gone, and deleting
        // would do more harm than leaving the label.
        if (label && !label->parentWidget() && QCoreApplication::instance())
            delete label.data();
    }
};

DisplayDouble::DisplayDouble() : shared(std::make_shared<Shared>()) {}

DisplayDouble::DisplayDouble(const DisplayDouble&) = default;

DisplayDouble& DisplayDouble::operator=(const DisplayDouble&) = default;

DisplayDouble::~DisplayDouble() = default;

QLabel* DisplayDouble::getLabel() const {
    return shared->label;
}

void DisplayDouble::setFormat(char f, int p) {
    format = f;
    precision = p;
}

void DisplayDouble::setPrefix(const char* prefix) {
    shared->prefix = QString::fromUtf8(prefix);
}

void DisplayDouble::setSufix(const char* suffix) {
    shared->suffix = QString::fromUtf8(suffix);
}

QString DisplayDouble::prefix() const {
    return shared->prefix;
}

QString DisplayDouble::suffix() const {
    return shared->suffix;
}

void DisplayDouble::setValue(double value) {
    Shared& s = *shared;
    s.text.setNum(value, format, qMin(precision, maxPrecision));
    s.text.append(s.suffix);
    s.text.prepend(s.prefix);
    if (s.label)
        s.label->setText(s.text);
}

} // namespace Orlavex
