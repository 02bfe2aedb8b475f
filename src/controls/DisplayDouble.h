#pragma once

#include <Orlavex/controls/InteractiveControlI.h>

#include <QString>

#include <memory>

class QLabel;

namespace Orlavex {

/// Numeric read-out: writes a number, between a prefix and a suffix, into a
/// label that the client application places in its layout. The link thread
/// sets the value from the server's record for the read-out's number.
///
/// Copies share the label and the prefix, suffix and composed text: a prefix
/// set through one copy shows in the next value written through any of them.
/// Format and precision are each copy's own.
///
/// Once placed in a widget tree the label belongs to that tree. A label that
/// was never placed is deleted with the last copy sharing it, since nothing
/// else could ever free it; a label deleted elsewhere is simply no longer
/// written to.
class ORLAVEX_EXPORT DisplayDouble : public InteractiveControlI {
public:
    DisplayDouble();
    DisplayDouble(const DisplayDouble&);
    DisplayDouble& operator=(const DisplayDouble&);
    ~DisplayDouble() override;

    /// The label that shows the value; empty until the first `setValue`.
    /// Null once the label has been deleted.
    QLabel* getLabel() const;

    /// Format character and precision of QString::setNum ('f' and 2 at first);
    /// used from the next `setValue` on. Precisions above 99 are treated as 99.
    void setFormat(char format, int precision);
    /// UTF-8; null gives no prefix. Used from the next `setValue` on.
    void setPrefix(const char* prefix);
    /// UTF-8; null gives no suffix. Used from the next `setValue` on.
    void setSufix(const char* suffix);
    /// Shows prefix, number and suffix, run together.
    void setValue(double value);

    /// What `setPrefix`, `setSufix` and `setFormat` last set, for viewers
    /// that show the value themselves.
    QString prefix() const;
    QString suffix() const;
    char getFormat() const { return format; }
    int getPrecision() const { return precision; }

private:
    struct Shared;
    std::shared_ptr<Shared> shared;
    int precision = 2;
    char format = 'f';
};

} // namespace Orlavex
