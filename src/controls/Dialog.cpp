#include "Dialog.h"

#include <QCloseEvent>

namespace Orlavex {

Dialog::Dialog(QWidget* parent) : QDialog(parent) {
    LayoutPolicy::setLayoutPolicy("HBox", this);
    setModal(false);
}

Dialog::~Dialog() = default;

void Dialog::setLayoutPolicy(const char* policy) { replaceLayoutPolicy(policy, this); }

void Dialog::setVarName(const char* name) { m_varName = QString::fromUtf8(name ? name : ""); }

void Dialog::closeEvent(QCloseEvent* event) {
    emit closing(false);
    event->accept();
}

} // namespace Orlavex
