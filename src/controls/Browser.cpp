#include "Browser.h"

namespace Orlavex {

namespace {
QUrl& clientStartPage() {
    static QUrl page;
    return page;
}
} // namespace

Browser::Browser(QWidget* parent) : QWebEngineView(parent) {}

Browser::~Browser() = default;

void Browser::settingURL(const char* text) {
    // A copy: the text is read at the main window's first render pass, by
    // which time a caller's temporary buffer may be gone.
    address = QByteArray(text ? text : "");
    setUrl(startPage());
    show();
}

void Browser::setStartPage(const QUrl& page) {
    clientStartPage() = page;
}

QUrl Browser::startPage() {
    const QUrl& page = clientStartPage();
    return page.isEmpty() ? builtInStartPage() : page;
}

QUrl Browser::builtInStartPage() {
    return QUrl(QStringLiteral("qrc:/orlavex/controls/StartPage.html"), QUrl::TolerantMode);
}

} // namespace Orlavex
