// Containers and their layout policies, looked at through the layouts they
// install and where the shown widgets end up.
#include <Orlavex/controls/Dialog.h>
#include <Orlavex/controls/GroupBox.h>
#include <Orlavex/controls/Panel.h>

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
    if (qobject_cast<QGridLayout*>(layout))
        return Kind::Grid;
    return Kind::None;
}

// The three containers behind one face, so that rows of a test can pick one.
// A new group box has no layout; the others start with a row.
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

LayoutPolicy* policyOf(QWidget* container) {
    return qobject_cast<LayoutPolicy*>(container);
}

QLabel* label(const char* text) {
    return new QLabel(QString::fromLatin1(text));
}

bool showAndWait(QWidget* w) {
    w->show();
    return QTest::qWaitForWindowExposed(w);
}
} // namespace

Q_DECLARE_METATYPE(Kind)

class TestContainers : public QObject {
    Q_OBJECT

private slots:
    void metaObjectCast_data() {
        QTest::addColumn<QString>("type");
        QTest::newRow("Panel") << "Panel";
        QTest::newRow("GroupBox") << "GroupBox";
        QTest::newRow("Dialog") << "Dialog";
    }
    void metaObjectCast() {
        QFETCH(QString, type);
        auto container = makeContainer(type);
        QObject* object = container.get();
        LayoutPolicy* policy = qobject_cast<LayoutPolicy*>(object);
        QVERIFY(policy);
        // The LayoutPolicy part is not at the start of the object.
        QVERIFY(static_cast<void*>(policy) != static_cast<void*>(object));
        QCOMPARE(policy->layout(), container->layout());
        QWidget plain;
        QVERIFY(!qobject_cast<LayoutPolicy*>(&plain));
    }

    void newContainersUseARow_data() {
        QTest::addColumn<QString>("type");
        QTest::newRow("Panel") << "Panel";
        QTest::newRow("Dialog") << "Dialog";
    }
    void newContainersUseARow() {
        QFETCH(QString, type);
        auto container = makeContainer(type);
        LayoutPolicy* policy = policyOf(container.get());
        QCOMPARE(policy->policyName(), QStringLiteral("HBox"));
        QCOMPARE(kindOf(container->layout()), Kind::Row);
        QLabel* first = label("first");
        QLabel* second = label("second");
        policy->addWidget(first);
        policy->addWidget(second);
        QCOMPARE(first->parentWidget(), container.get());
        QVERIFY(showAndWait(container.get()));
        QTRY_VERIFY(second->x() >= first->x() + first->width());
        QCOMPARE(second->y(), first->y());
    }

    void policyNames_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<bool>("isNull");
        QTest::addColumn<Kind>("kind");
        QTest::newRow("HBox") << QByteArray("HBox") << false << Kind::Row;
        QTest::newRow("VBox") << QByteArray("VBox") << false << Kind::Column;
        QTest::newRow("vbox") << QByteArray("vbox") << false << Kind::Grid;
        QTest::newRow("VBOX") << QByteArray("VBOX") << false << Kind::Grid;
        QTest::newRow("hBox") << QByteArray("hBox") << false << Kind::Grid;
        QTest::newRow("HBox with a space") << QByteArray("HBox ") << false << Kind::Grid;
        QTest::newRow("Grid") << QByteArray("Grid") << false << Kind::Grid;
        QTest::newRow("empty") << QByteArray("") << false << Kind::Grid;
        QTest::newRow("null") << QByteArray() << true << Kind::Grid;
    }
    void policyNames() {
        QFETCH(QByteArray, name);
        QFETCH(bool, isNull);
        QFETCH(Kind, kind);
        const char* policy = isNull ? nullptr : name.constData();
        for (const char* type : {"Panel", "GroupBox", "Dialog"}) {
            auto container = makeContainer(QString::fromLatin1(type));
            setPolicy(container.get(), policy);
            QVERIFY2(container->layout(), type);
            QCOMPARE(kindOf(container->layout()), kind);
            QCOMPARE(policyOf(container.get())->layout(), container->layout());
            QCOMPARE(policyOf(container.get())->policyName(), QString::fromUtf8(name));
        }
    }

    void newPolicyDropsOldLayout() {
        Panel panel;
        QLabel* first = label("first");
        QLabel* second = label("second");
        panel.addWidget(first);
        panel.addWidget(second);
        QVERIFY(showAndWait(&panel));
        QPointer<QLayout> row = panel.layout();

        panel.setLayoutPolicy("VBox");
        QVERIFY(row.isNull());
        QCOMPARE(kindOf(panel.layout()), Kind::Column);
        QCOMPARE(panel.layout()->count(), 0);
        QCOMPARE(first->parentWidget(), &panel);
        QCOMPARE(second->parentWidget(), &panel);
        QVERIFY(first->isVisible());

        panel.addWidget(first);
        panel.addWidget(second);
        QCOMPARE(panel.layout()->count(), 2);
        QTRY_VERIFY(second->y() >= first->y() + first->height());
        QCOMPARE(second->x(), first->x());
    }

    // Row and column are honoured only by a grid; a box appends.
    void cells_data() {
        QTest::addColumn<QByteArray>("policy");
        QTest::addColumn<bool>("spans");
        QTest::addColumn<int>("row");
        QTest::addColumn<int>("column");
        QTest::addColumn<int>("rowSpan");
        QTest::addColumn<int>("columnSpan");
        QTest::addColumn<Kind>("kind");
        QTest::newRow("row at 2,3") << QByteArray("HBox") << false << 2 << 3 << 1 << 1 << Kind::Row;
        QTest::newRow("column at 2,3")
            << QByteArray("VBox") << false << 2 << 3 << 1 << 1 << Kind::Column;
        QTest::newRow("grid at 2,3")
            << QByteArray("Grid") << false << 2 << 3 << 1 << 1 << Kind::Grid;
        QTest::newRow("row, span") << QByteArray("HBox") << true << 0 << 0 << 1 << 2 << Kind::Row;
        QTest::newRow("column, span")
            << QByteArray("VBox") << true << 1 << 1 << 3 << 2 << Kind::Column;
        QTest::newRow("grid, two columns")
            << QByteArray("Grid") << true << 0 << 0 << 1 << 2 << Kind::Grid;
        QTest::newRow("grid, three rows")
            << QByteArray("Grid") << true << 1 << 4 << 3 << 1 << Kind::Grid;
    }
    void cells() {
        QFETCH(QByteArray, policy);
        QFETCH(bool, spans);
        QFETCH(int, row);
        QFETCH(int, column);
        QFETCH(int, rowSpan);
        QFETCH(int, columnSpan);
        QFETCH(Kind, kind);
        Panel panel;
        panel.setLayoutPolicy(policy.constData());
        QCOMPARE(kindOf(panel.layout()), kind);
        // Something already in the last cell of the grid, and at the box's end.
        panel.addWidget(label("before"), 5, 5);
        QLabel* placed = label("placed");
        if (spans)
            panel.addWidget(placed, row, column, rowSpan, columnSpan);
        else
            panel.addWidget(placed, row, column);
        QCOMPARE(placed->parentWidget(), &panel);
        QLayout* layout = panel.layout();
        const int at = layout->indexOf(placed);
        QCOMPARE(layout->count(), 2);
        QCOMPARE(at, 1);
        if (auto* grid = qobject_cast<QGridLayout*>(layout)) {
            int r, c, rs, cs;
            grid->getItemPosition(at, &r, &c, &rs, &cs);
            QCOMPARE(r, row);
            QCOMPARE(c, column);
            QCOMPARE(rs, rowSpan);
            QCOMPARE(cs, columnSpan);
            QCOMPARE(grid->itemAtPosition(row + rowSpan - 1, column + columnSpan - 1)->widget(),
                     placed);
        }
    }

    void groupBoxNeedsAPolicyFirst() {
        GroupBox box;
        QVERIFY(box.title().isEmpty());
        QVERIFY(!box.layout());
        QVERIFY(!box.LayoutPolicy::layout());
        QPointer<QLabel> early = label("early");
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("no layout policy"));
        box.addWidget(early);
        QVERIFY(!early->parent()); // still the caller's
        delete early;

        box.setLayoutPolicy("VBox");
        QCOMPARE(kindOf(box.layout()), Kind::Column);
        QLabel* top = label("top");
        QLabel* bottom = label("bottom");
        box.addWidget(top);
        box.addWidget(bottom);
        QVERIFY(showAndWait(&box));
        QTRY_VERIFY(bottom->y() >= top->y() + top->height());
    }

    // A second policy replaces the first rather than being refused by Qt and
    // swallowing every widget added afterwards.
    void groupBoxSecondPolicy() {
        GroupBox box;
        box.setLayoutPolicy("VBox");
        QLabel* left = label("left");
        box.addWidget(left);
        QPointer<QLayout> column = box.layout();

        box.setLayoutPolicy("HBox");
        QVERIFY(column.isNull());
        QCOMPARE(kindOf(box.layout()), Kind::Row);
        QCOMPARE(box.LayoutPolicy::layout(), box.layout());
        QCOMPARE(left->parentWidget(), &box);
        QLabel* right = label("right");
        box.addWidget(left);
        box.addWidget(right);
        QVERIFY(showAndWait(&box));
        QTRY_VERIFY(right->x() >= left->x() + left->width());
    }

    void lostLayoutIsNotUsed() {
        Panel panel;
        delete panel.layout();
        QVERIFY(!panel.LayoutPolicy::layout());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("no layout policy"));
        auto orphan = std::make_unique<QLabel>();
        panel.addWidget(orphan.get(), 1, 1, 1, 1);
        QVERIFY(!orphan->parent());

        LayoutPolicy detached;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("no widget"));
        detached.setLayoutPolicy("HBox", nullptr);
        QVERIFY(!detached.layout());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("no layout policy"));
        detached.addWidget(orphan.get());
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
        dialog->addWidget(label("content"));
        QSignalSpy closing(dialog.data(), &Dialog::closing);
        QSignalSpy rejected(dialog.data(), &QDialog::rejected);
        QSignalSpy finished(dialog.data(), &QDialog::finished);

        for (int round = 1; round <= 2; ++round) {
            QVERIFY(showAndWait(dialog));
            if (byWindow)
                dialog->windowHandle()->close();
            else
                QVERIFY(dialog->close());
            QCOMPARE(closing.count(), round);
            QCOMPARE(closing.last().first().toBool(), false);
            QTRY_VERIFY(!dialog->isVisible());
        }
        QVERIFY(!dialog.isNull());
        QCOMPARE(rejected.count(), 0);
        QCOMPARE(finished.count(), 0);
        delete dialog;
    }
};

ORLAVEX_GUI_TEST_MAIN(TestContainers)
#include "tst_containers.moc"
