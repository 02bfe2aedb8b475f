#pragma once

#include <Orlavex/controls/InteractiveControlI.h>

#include <QRadioButton>
#include <QString>

namespace Orlavex {

/// A radio button whose every change of state goes to the simulation server:
/// 1.0 when it becomes checked, 0.0 when it becomes unchecked, each with its
/// control index. In an exclusive group one switch therefore sends two values.
class ORLAVEX_EXPORT RadioButton : public QRadioButton, public InteractiveControlI {
    Q_OBJECT
public:
    explicit RadioButton(QWidget* parent = nullptr);
    ~RadioButton() override;

    /// Always the same string object, so a pointer taken earlier follows
    /// later `setGroupName` calls.
    QString* getGroupName() { return &groupName; }
    /// UTF-8; a null pointer gives an empty name.
    void setGroupName(const char* name);

signals:
    void sigValueChanged(double value, int index);

private slots:
    void accion(bool checked);

private:
    QString groupName;
};

} // namespace Orlavex
