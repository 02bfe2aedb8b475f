#include "LayoutPolicy.h"

#include <QBoxLayout>
#include <QGridLayout>
#include <QWidget>

namespace Orlavex {

void LayoutPolicy::setLayoutPolicy(const char* policy, QWidget* widget) {
    m_policyName = QString::fromUtf8(policy);
    if (!widget) {
        qWarning("LayoutPolicy::setLayoutPolicy: no widget given; no layout is created");
        m_layout = nullptr;
        return;
    }
    // Qt refuses a second layout on a widget: the refused one would have no
    // owner, and the widgets added to it would never show. So the present
    // layout goes, as the containers' own forms say.
    delete widget->layout();
    if (m_policyName == QLatin1String("HBox"))
        m_layout = new QHBoxLayout;
    else if (m_policyName == QLatin1String("VBox"))
        m_layout = new QVBoxLayout;
    else
        m_layout = new QGridLayout;
    widget->setLayout(m_layout);
}

void LayoutPolicy::replaceLayoutPolicy(const char* policy, QWidget* widget) {
    setLayoutPolicy(policy, widget);
}

bool LayoutPolicy::checkLayout() const {
    if (!m_layout)
        qWarning("LayoutPolicy::addWidget: no layout policy has been set; the widget is not added");
    return !m_layout.isNull();
}

void LayoutPolicy::addWidget(QWidget* w) {
    if (checkLayout())
        m_layout->addWidget(w);
}

void LayoutPolicy::addWidget(QWidget* w, int row, int column) {
    if (!checkLayout())
        return;
    if (auto* grid = qobject_cast<QGridLayout*>(m_layout))
        grid->addWidget(w, row, column);
    else
        m_layout->addWidget(w);
}

void LayoutPolicy::addWidget(QWidget* w, int row, int column, int rowSpan, int columnSpan) {
    if (!checkLayout())
        return;
    if (auto* grid = qobject_cast<QGridLayout*>(m_layout))
        grid->addWidget(w, row, column, rowSpan, columnSpan);
    else
        m_layout->addWidget(w);
}

} // namespace Orlavex
