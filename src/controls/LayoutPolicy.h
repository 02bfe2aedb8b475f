#pragma once

#include <Orlavex/orlavex_export.h>

#include <QLayout>
#include <QPointer>
#include <QString>

namespace Orlavex {

/// Mix-in that gives a widget one of three layouts, chosen by name: "HBox" a
/// row, "VBox" a column, any other name (compared exactly, case included) a
/// grid. Used by `Panel`, `GroupBox`, `Dialog` and the main window.
///
/// A copy shares the layout: the layout belongs to the widget it is installed on.
///
/// A class that derives from both QWidget and this mix-in inherits two
/// `layout()` functions; it should bring QWidget's into scope (`using
/// QWidget::layout;`) as the containers do, or callers get an ambiguity.
class ORLAVEX_EXPORT LayoutPolicy {
public:
    LayoutPolicy() = default;
    LayoutPolicy(const LayoutPolicy&) = default;
    LayoutPolicy& operator=(const LayoutPolicy&) = default;

    /// Creates the layout for `policy` (UTF-8; null is the empty name) and
    /// installs it on `widget`, which becomes its owner. A layout that `widget`
    /// already has is deleted first; its widgets stay children of `widget` but
    /// are no longer arranged until added again.
    void setLayoutPolicy(const char* policy, QWidget* widget);

    /// Appends `w` to the layout. A policy must have been set; without one the
    /// call only warns.
    void addWidget(QWidget* w);
    /// In a grid, places `w` in the cell; in a row or column appends it.
    void addWidget(QWidget* w, int row, int column);
    /// In a grid, places `w` spanning the given rows and columns; else appends it.
    void addWidget(QWidget* w, int row, int column, int rowSpan, int columnSpan);

    /// The name given to the last `setLayoutPolicy`.
    QString policyName() const { return m_policyName; }
    /// The layout created by the last `setLayoutPolicy`; null before, and
    /// null again once that layout has been deleted.
    QLayout* layout() const { return m_layout; }

protected:
    /// The same as `setLayoutPolicy(policy, widget)`; the name says what the
    /// containers' one-argument forms do.
    void replaceLayoutPolicy(const char* policy, QWidget* widget);

private:
    bool checkLayout() const;

    QString m_policyName;
    QPointer<QLayout> m_layout;
};

} // namespace Orlavex

Q_DECLARE_INTERFACE(Orlavex::LayoutPolicy, "Orlavex::LayoutPolicy")
