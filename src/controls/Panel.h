#pragma once

#include <Orlavex/controls/LayoutPolicy.h>

#include <QWidget>

namespace Orlavex {

/// A plain container widget that lays out its children by policy; a row
/// ("HBox") until told otherwise.
class ORLAVEX_EXPORT Panel : public QWidget, public LayoutPolicy {
    Q_OBJECT
    Q_INTERFACES(Orlavex::LayoutPolicy)
public:
    explicit Panel(QWidget* parent = nullptr);
    ~Panel() override;

    using LayoutPolicy::setLayoutPolicy;
    using QWidget::layout;
    /// Deletes the present layout, then sets the new policy on the panel; the
    /// widgets it arranged must be added again.
    void setLayoutPolicy(const char* policy);
};

} // namespace Orlavex
