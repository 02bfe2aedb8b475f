// The web view's start page: shown at once, from inside the library unless the
// client application chose another, and never the address it was given.
#include <Orlavex/Orlavex.h>

#include "GuiTestMain.h"

class TestBrowser : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        if (qEnvironmentVariableIsSet("ORLAVEX_SANITIZER_RUN"))
            QSKIP("QtWebEngine's Chromium does not start under the sanitizers");
    }
    void cleanup() { Browser::setStartPage(QUrl()); }

    void startPage_data() {
        QTest::addColumn<QUrl>("clientPage"); // empty: the built-in page
        QTest::addColumn<QString>("title");
        QTest::addColumn<QByteArray>("address");
        QTest::newRow("built-in") << QUrl() << "Orlavex" << QByteArray("http://localhost:8080/");
        QTest::newRow("built-in, null address") << QUrl() << "Orlavex" << QByteArray();
        QTest::newRow("client page")
            << QUrl(QStringLiteral("data:text/html,<title>Lab%20start</title>")) << "Lab start"
            << QByteArray("https://example.org/model.html");
    }
    void startPage() {
        QFETCH(QUrl, clientPage);
        QFETCH(QString, title);
        QFETCH(QByteArray, address);
        if (!clientPage.isEmpty())
            Browser::setStartPage(clientPage);
        const QUrl expected = clientPage.isEmpty() ? Browser::builtInStartPage() : clientPage;
        QCOMPARE(expected.scheme() == QLatin1String("qrc"), clientPage.isEmpty());

        Browser view;
        QVERIFY(view.url().isEmpty() && !view.isVisible()); // nothing before the address
        QSignalSpy loaded(&view, &QWebEngineView::loadFinished);
        QByteArray buffer = address; // the caller's own, overwritten below
        view.settingURL(address.isNull() ? nullptr : buffer.data());
        QVERIFY(view.isVisible());
        // Copied: the main window reads the text later, when the caller's
        // buffer may hold something else.
        buffer.fill('x');
        QCOMPARE(QByteArray(view.getURL()), address);
        // A long wait only covers a loaded machine starting the web engine.
        QTRY_VERIFY_WITH_TIMEOUT(!loaded.isEmpty(), 60000);
        QCOMPARE(loaded.first().first().toBool(), true);
        QTRY_COMPARE_WITH_TIMEOUT(view.title(), title, 60000);
        QCOMPARE(view.url(), expected);
    }
};

ORLAVEX_GUI_TEST_MAIN(TestBrowser)
#include "tst_browser.moc"
