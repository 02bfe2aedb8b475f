// Containers and their layout policies, looked at through the layouts they
// install, and the dialog's close requests.
#include <Orlavex/Orlavex.h>

#include "GuiTestMain.h"

#include <QBoxLayout>
#include <QGridLayout>
#include <QLabel>
#include <QPointer>
#include <QWindow>

#include <memory>

namespace {
enum class Kind { None, Row, Column, Grid };

Kind kindOf(QLayout* layout) {
    if (qobject_cast<QHBoxLayout*>(layout))
        return Kind::Row;
    if (qobject_cast<QVBoxLayout*>(layout))
        return Kind::Column;
    return qobject_cast<QGridLayout*>(layout) ? Kind::Grid : Kind::None;
}

std::unique_ptr<QWidget> makeContainer(const QString& type) {
    if (type == QLatin1String("Panel"))
        return std::make_unique<Panel>();
    if (type == QLatin1String("Dialog"))
        return std::make_unique<Dialog>();
    return std::make_unique<GroupBox>();
}

// Each container's own one-argument form.
void setPolicy(QWidget* container, const char* policy) {
    if (auto* panel = qobject_cast<Panel*>(container))
        panel->setLayoutPolicy(policy);
    else if (auto* dialog = qobject_cast<Dialog*>(container))
        dialog->setLayoutPolicy(policy);
    else
        qobject_cast<GroupBox*>(container)->setLayoutPolicy(policy);
}

void addTypes() {
    QTest::addColumn<QString>("type");
    for (const char* type : {"Panel", "GroupBox", "Dialog"})
        QTest::newRow(type) << QString::fromLatin1(type);
}
} // namespace

Q_DECLARE_METATYPE(Kind)

class TestContainers : public QObject {
    Q_OBJECT

private slots:
    void policyNames_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<Kind>("kind");
        QTest::newRow("HBox") << QByteArray("HBox") << Kind::Row;
        QTest::newRow("VBox") << QByteArray("VBox") << Kind::Column;
        QTest::newRow("vbox") << QByteArray("vbox") << Kind::Grid;
        QTest::newRow("hBox") << QByteArray("hBox") << Kind::Grid;
        QTest::newRow("HBox with a space") << QByteArray("HBox ") << Kind::Grid;
        QTest::newRow("Grid") << QByteArray("Grid") << Kind::Grid;
        QTest::newRow("null") << QByteArray() << Kind::Grid;
    }
    void policyNames() {
        QFETCH(QByteArray, name);
        QFETCH(Kind, kind);
        for (const char* type : {"Panel", "GroupBox", "Dialog"}) {
            auto container = makeContainer(QString::fromLatin1(type));
            setPolicy(container.get(), name.isNull() ? nullptr : name.constData());
            QCOMPARE(kindOf(container->layout()), kind);
            QCOMPARE(qobject_cast<LayoutPolicy*>(container.get())->layout(), container->layout());
        }
    }

    // A new group box has no layout, the others a row. A new policy drops the
    // old layout; its widgets stay children until added again.
    void replacedLayout_data() { addTypes(); }
    void replacedLayout() {
        QFETCH(QString, type);
        auto container = makeContainer(type);
        QObject* object = container.get();
        auto* policy = qobject_cast<LayoutPolicy*>(object);
        QVERIFY(policy && static_cast<void*>(policy) != static_cast<void*>(object));
        QCOMPARE(kindOf(container->layout()), type == "GroupBox" ? Kind::None : Kind::Row);
        setPolicy(container.get(), "VBox");
        QLabel* first = new QLabel;
        policy->addWidget(first);
        QPointer<QLayout> column = container->layout();
        setPolicy(container.get(), "HBox");
        QVERIFY(column.isNull());
        QCOMPARE(kindOf(container->layout()), Kind::Row);
        QCOMPARE(policy->layout(), container->layout());
        QCOMPARE(container->layout()->count(), 0);
        QCOMPARE(first->parentWidget(), container.get());
        policy->addWidget(first);
        QCOMPARE(container->layout()->count(), 1);
    }

    void withoutLayoutOnlyWarns() {
        GroupBox box; // no policy yet
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("no layout policy"));
        QLabel early;
        box.addWidget(&early);
        QVERIFY(!early.parent()); // still the caller's
        Panel panel;
        delete panel.layout(); // a lost layout is not used
        QVERIFY(!panel.LayoutPolicy::layout());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("no layout policy"));
        panel.addWidget(&early, 1, 1, 1, 1);
        QVERIFY(!early.parent());
    }

    // Row and column are honoured only by a grid; a box appends.
    void cells_data() {
        QTest::addColumn<QByteArray>("policy");
        QTest::addColumn<int>("row");
        QTest::addColumn<int>("column");
        QTest::addColumn<int>("rowSpan");
        QTest::addColumn<int>("columnSpan");
        QTest::newRow("row at 2,3") << QByteArray("HBox") << 2 << 3 << 1 << 1;
        QTest::newRow("column, span") << QByteArray("VBox") << 1 << 1 << 3 << 2;
        QTest::newRow("grid at 2,3") << QByteArray("Grid") << 2 << 3 << 1 << 1;
        QTest::newRow("grid, two columns") << QByteArray("Grid") << 0 << 0 << 1 << 2;
        QTest::newRow("grid, three rows") << QByteArray("Grid") << 1 << 4 << 3 << 1;
    }
    void cells() {
        QFETCH(QByteArray, policy);
        QFETCH(int, row);
        QFETCH(int, column);
        QFETCH(int, rowSpan);
        QFETCH(int, columnSpan);
        Panel panel;
        panel.setLayoutPolicy(policy.constData());
        // Something already in the last cell of the grid, and at the box's end.
        panel.addWidget(new QLabel, 5, 5);
        QLabel* placed = new QLabel;
        if (rowSpan == 1 && columnSpan == 1)
            panel.addWidget(placed, row, column);
        else
            panel.addWidget(placed, row, column, rowSpan, columnSpan);
        QCOMPARE(placed->parentWidget(), &panel);
        QCOMPARE(panel.layout()->indexOf(placed), 1);
        if (auto* grid = qobject_cast<QGridLayout*>(panel.layout())) {
            int r, c, rs, cs;
            grid->getItemPosition(1, &r, &c, &rs, &cs);
            QCOMPARE(QVector<int>({r, c, rs, cs}),
                     QVector<int>({row, column, rowSpan, columnSpan}));
        }
    }

    void dialogCloseRequests_data() {
        QTest::addColumn<bool>("byWindow"); // the window's close button, or close()
        QTest::newRow("close()") << false;
        QTest::newRow("window close button") << true;
    }
    void dialogCloseRequests() {
        QFETCH(bool, byWindow);
        QPointer<Dialog> dialog = new Dialog;
        dialog->setAttribute(Qt::WA_DeleteOnClose, false);
        QSignalSpy closing(dialog.data(), &Dialog::closing);
        QSignalSpy rejected(dialog.data(), &QDialog::rejected);
        QSignalSpy finished(dialog.data(), &QDialog::finished);
        for (int round = 1; round <= 2; ++round) {
            dialog->show();
            QVERIFY(QTest::qWaitForWindowExposed(dialog));
            if (byWindow)
                dialog->windowHandle()->close();
            else
                QVERIFY(dialog->close());
            QCOMPARE(closing.count(), round);
            QCOMPARE(closing.last().first().toBool(), false);
            QTRY_VERIFY(!dialog->isVisible());
        }
        QVERIFY(!dialog.isNull());
        QCOMPARE(rejected.count() + finished.count(), 0);
        delete dialog;
    }
};

ORLAVEX_GUI_TEST_MAIN(TestContainers)
#include "tst_containers.moc"
