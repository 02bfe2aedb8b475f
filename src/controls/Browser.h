#pragma once

#include <Orlavex/orlavex_export.h>

#include <QByteArray>
#include <QUrl>
#include <QWebEngineView>

namespace Orlavex {

/// An embedded web view. `settingURL` keeps the page's address and at once
/// shows a fixed start page; the main window's first render pass then loads
/// the kept address.
///
/// The start page is by default a small page built into the library, so that
/// the view never reaches for the network before the client application's own
/// address is loaded: laboratory machines are often offline. A client
/// application may replace it with `setStartPage`.
class ORLAVEX_EXPORT Browser : public QWebEngineView {
    Q_OBJECT
public:
    explicit Browser(QWidget* parent = nullptr);
    ~Browser() override;

    /// Keeps a copy of `url` (8-bit text; null is the empty text), loads the
    /// start page and shows the view. The caller's text may go at once.
    void settingURL(const char* url);
    /// The text given to the last `settingURL`; the empty text before. Valid
    /// until the next `settingURL` or the browser's end.
    const char* getURL() const { return address.constData(); }

    /// The page that `settingURL` shows in every browser from now on. An empty
    /// URL brings back the built-in page. GUI thread only.
    static void setStartPage(const QUrl& page);
    static QUrl startPage();
    /// The page built into the library.
    static QUrl builtInStartPage();

private:
    QByteArray address;
};

} // namespace Orlavex
