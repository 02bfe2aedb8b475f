#pragma once

#include <Orlavex/orlavex_export.h>

#include <QCheckBox>
#include <QString>

namespace Orlavex {

/// A named check box whose signal carries the negation of the new state. It is
/// not an interactive control: nothing in the library connects it, the client
/// application does where it needs it.
class ORLAVEX_EXPORT CheckBox : public QCheckBox {
    Q_OBJECT
public:
    explicit CheckBox(QWidget* parent = nullptr);
    ~CheckBox() override;

    /// Always the same string object, so a pointer taken earlier follows
    /// later `setVarName` calls.
    QString* getVarName() { return &varName; }
    /// UTF-8; a null pointer gives an empty name.
    void setVarName(const char* name);

signals:
    /// False when the box became checked, true when it became unchecked.
    void sigValueChanged(bool);

private slots:
    void accion(bool checked);

private:
    QString varName;
};

} // namespace Orlavex
