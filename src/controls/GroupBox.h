#pragma once

#include <Orlavex/controls/LayoutPolicy.h>

#include <QGroupBox>

namespace Orlavex {

/// A framed group box that lays out its children by policy. It has no layout
/// until `setLayoutPolicy` is called.
class ORLAVEX_EXPORT GroupBox : public QGroupBox, public LayoutPolicy {
    Q_OBJECT
    Q_INTERFACES(Orlavex::LayoutPolicy)
public:
    explicit GroupBox(QWidget* parent = nullptr);
    ~GroupBox() override;

    using LayoutPolicy::setLayoutPolicy;
    using QGroupBox::layout;
    /// Sets the policy. Called again, it replaces the layout as `Panel` does
    /// (Qt would refuse a second layout, and widgets added to it would never
    /// show), so the widgets already added must be added again.
    void setLayoutPolicy(const char* policy);
};

} // namespace Orlavex
