#pragma once

#include <Orlavex/controls/LayoutPolicy.h>

#include <QDialog>

namespace Orlavex {

/// A separate, non-modal window that lays out its children by policy (a row
/// until told otherwise) and reports each close request with `closing(false)`.
/// Closing hides it; it is not deleted.
class ORLAVEX_EXPORT Dialog : public QDialog, public LayoutPolicy {
    Q_OBJECT
    Q_INTERFACES(Orlavex::LayoutPolicy)
public:
    explicit Dialog(QWidget* parent = nullptr);
    ~Dialog() override;

    using LayoutPolicy::setLayoutPolicy;
    using QDialog::layout;
    /// Deletes the present layout, then sets the new policy.
    void setLayoutPolicy(const char* policy);

    QString* getVarName() { return &m_varName; }
    /// UTF-8; a null pointer gives an empty name.
    void setVarName(const char* name);

signals:
    void closing(bool);

protected:
    /// Emits `closing(false)` and accepts the event. The dialog's own close
    /// handling (reject) is skipped, so neither rejected() nor finished() comes.
    void closeEvent(QCloseEvent* event) override;

private:
    QString m_varName;
};

} // namespace Orlavex
