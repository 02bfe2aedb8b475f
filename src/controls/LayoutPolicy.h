#pragma once

#include <Orlavex/orlavex_export.h>

#include <QObject>
#include <QString>

class QLayout;
class QWidget;

/// Mix-in that gives a widget one of three layouts, chosen by name: "HBox" a
/// row, "VBox" a column, any other name (compared exactly, case included) a
/// grid. Used by `Panel`, `GroupBox`, `Dialog` and the main window.
///
/// A copy shares the layout: the layout belongs to the widget it is installed on.
class ORLAVEX_EXPORT LayoutPolicy {
public:
    LayoutPolicy() = default;
    LayoutPolicy(const LayoutPolicy&) = default;
    LayoutPolicy& operator=(const LayoutPolicy&) = default;

    /// Creates the layout for `policy` (UTF-8; null is the empty name) and
    /// installs it on `widget`, which becomes its owner.
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
    /// The layout created by the last `setLayoutPolicy` (null before).
    QLayout* layout() const { return m_layout; }

protected:
    /// Deletes the widget's present layout (its widgets stay children of the
    /// widget but are no longer arranged), then sets the new policy.
    void replaceLayoutPolicy(const char* policy, QWidget* widget);

private:
    bool checkLayout() const;

    QString m_policyName;
    QLayout* m_layout = nullptr;
};

Q_DECLARE_INTERFACE(LayoutPolicy, "LayoutPolicy")
