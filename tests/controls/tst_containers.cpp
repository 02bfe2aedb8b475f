// Containers and their layout policies, looked at through the layouts they
// install, and the dialog's close requests.
#include <Orlavex/Orlavex.h>

#include "Fixtures.h"
#include "GuiTestMain.h"

#include <QGridLayout>
#include <QLabel>
#include <QWindow>

namespace {
QByteArray kindOf(QWidget& w) {
    return w.layout() ? w.layout()->metaObject()->className() : "none";
}

// Runs `test` on a new container of each type, through the type's own
// one-argument setLayoutPolicy; `initial` is the layout it starts with.
template <class Test> void eachContainer(Test test) {
    Panel panel;
    test(panel, QByteArray("QHBoxLayout"));
    GroupBox box;
    test(box, QByteArray("none"));
    Dialog dialog;
    test(dialog, QByteArray("QHBoxLayout"));
}
} // namespace

class TestContainers : public QObject {
    Q_OBJECT

private slots:
    void policyNames_data() {
        QTest::addColumn<QByteArray>("name"); // null: a null pointer
        QTest::addColumn<QByteArray>("kind");
        const QByteArray grid("QGridLayout");
        QTest::newRow("HBox") << QByteArray("HBox") << QByteArray("QHBoxLayout");
        QTest::newRow("VBox") << QByteArray("VBox") << QByteArray("QVBoxLayout");
        QTest::newRow("vbox") << QByteArray("vbox") << grid;
        QTest::newRow("hBox") << QByteArray("hBox") << grid;
        QTest::newRow("HBox with a space") << QByteArray("HBox ") << grid;
        QTest::newRow("Grid") << QByteArray("Grid") << grid;
        QTest::newRow("null") << QByteArray() << grid;
    }
    void policyNames() {
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, kind);
        eachContainer([&](auto& container, const QByteArray&) {
            container.setLayoutPolicy(name.isNull() ? nullptr : name.constData());
            QCOMPARE(kindOf(container), kind);
            QCOMPARE(container.LayoutPolicy::layout(), container.layout());
        });
    }

    // A new policy drops the old layout; its widgets stay children until
    // added again.
    void replacedLayout() {
        eachContainer([](auto& container, const QByteArray& initial) {
            auto* policy = qobject_cast<LayoutPolicy*>(&container);
            QVERIFY(policy && static_cast<void*>(policy) != static_cast<void*>(&container));
            QCOMPARE(kindOf(container), initial);
            container.setLayoutPolicy("VBox");
            QLabel* first = new QLabel;
            policy->addWidget(first);
            QPointer<QLayout> column = container.layout();
            container.setLayoutPolicy("HBox");
            QVERIFY(column.isNull());
            QCOMPARE(kindOf(container), QByteArray("QHBoxLayout"));
            QCOMPARE(policy->layout(), container.layout());
            QCOMPARE(container.layout()->count(), 0);
            QCOMPARE(first->parentWidget(), &container);
            policy->addWidget(first);
            QCOMPARE(container.layout()->count(), 1);
        });
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
        QTest::addColumn<QVector<int>>("cell"); // row, column, row span, column span
        QTest::newRow("row at 2,3") << QByteArray("HBox") << QVector<int>{2, 3, 1, 1};
        QTest::newRow("column, span") << QByteArray("VBox") << QVector<int>{1, 1, 3, 2};
        QTest::newRow("grid at 2,3") << QByteArray("Grid") << QVector<int>{2, 3, 1, 1};
        QTest::newRow("grid, two columns") << QByteArray("Grid") << QVector<int>{0, 0, 1, 2};
        QTest::newRow("grid, three rows") << QByteArray("Grid") << QVector<int>{1, 4, 3, 1};
    }
    void cells() {
        QFETCH(QByteArray, policy);
        QFETCH(QVector<int>, cell);
        Panel panel;
        panel.setLayoutPolicy(policy.constData());
        // Something already in the last cell of the grid, and at the box's end.
        panel.addWidget(new QLabel, 5, 5);
        QLabel* placed = new QLabel;
        if (cell[2] == 1 && cell[3] == 1)
            panel.addWidget(placed, cell[0], cell[1]);
        else
            panel.addWidget(placed, cell[0], cell[1], cell[2], cell[3]);
        QCOMPARE(placed->parentWidget(), &panel);
        QCOMPARE(panel.layout()->indexOf(placed), 1);
        if (auto* grid = qobject_cast<QGridLayout*>(panel.layout())) {
            QVector<int> at(4);
            grid->getItemPosition(1, &at[0], &at[1], &at[2], &at[3]);
            QCOMPARE(at, cell);
        }
    }

    // Closing by close() or by the window's close button only hides the
    // dialog, with one closing(false) each time and no rejection.
    void dialogCloseRequests_data() {
        QTest::addColumn<bool>("byWindow");
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
            QVERIFY(fixture::show(*dialog));
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
        QString* name = dialog->getVarName(); // names arrive as UTF-8
        dialog->setVarName("\xc3\xa9t\xc3\xa9");
        QCOMPARE(*name, QString::fromUtf8("\xc3\xa9t\xc3\xa9"));
        dialog->setVarName(nullptr);
        QVERIFY(name->isEmpty());
        delete dialog;
    }
};

ORLAVEX_GUI_TEST_MAIN(TestContainers)
#include "tst_containers.moc"
