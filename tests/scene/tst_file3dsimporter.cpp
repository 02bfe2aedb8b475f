// File3DSImporter on files the suite writes itself, on real files written by
// other tools, and on files that cannot give a mesh.
#include <Orlavex/scene/File3DSImporter.h>

#include "ThreeDSWriter.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <vtkActor.h>
#include <vtkActorCollection.h>
#include <vtkMapper.h>
#include <vtkPolyData.h>
#include <vtkProperty.h>
#include <vtkRenderer.h>
#include <vtkSmartPointer.h>

namespace {
QStringList g_messages;

void collect(QtMsgType, const QMessageLogContext&, const QString& text) {
    g_messages << text;
}

// Counts the Qt debug-stream lines written while it lives.
struct MessageCounter {
    QtMessageHandler previous;
    MessageCounter() {
        g_messages.clear();
        previous = qInstallMessageHandler(collect);
    }
    ~MessageCounter() { qInstallMessageHandler(previous); }
};

vtkIdType pointCount(vtkActor* actor) {
    vtkMapper* mapper = actor->GetMapper();
    if (!mapper)
        return -1;
    mapper->Update();
    auto* data = vtkPolyData::SafeDownCast(mapper->GetInputDataObject(0, 0));
    return data ? data->GetNumberOfPoints() : -1;
}

QString testData() {
    const QString dir = qEnvironmentVariable("ORLAVEX_TESTDATA");
    return dir.isEmpty() ? QStringLiteral("/work/shared/testdata") : dir;
}

// The meshes of a written file have 3 + 2·index vertices, so the point count
// tells which of them was adopted. VTK's importer adds the actors of a file's
// meshes in the reverse order of the file, so the actor it adds last, the
// one adopted, shows the file's first mesh.
QString writeFans(const QString& path, int meshes) {
    ThreeDSWriter writer;
    writer.addMaterial({"Paint", {{200, 30, 30}}});
    for (int i = 0; i < meshes; ++i)
        writer.addMesh(ThreeDSWriter::fan("fan" + std::to_string(i), 3 + 2 * i, float(i), 0.0f,
                                          0.5f, i % 2 ? "Paint" : ""));
    return writer.save(path) ? path : QString();
}
} // namespace

class TestFile3DSImporter : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    QString path(const QString& name) const { return m_dir.filePath(name); }

private slots:
    void initTestCase() { QVERIFY(m_dir.isValid()); }

    void adoptsLastMesh_data() {
        QTest::addColumn<int>("meshes");
        QTest::newRow("one mesh") << 1;
        QTest::newRow("two meshes") << 2;
        QTest::newRow("five meshes") << 5;
    }
    void adoptsLastMesh() {
        QFETCH(int, meshes);
        const QString file = writeFans(path(QStringLiteral("fans%1.3ds").arg(meshes)), meshes);
        QVERIFY(!file.isEmpty());
        MessageCounter messages;
        File3DSImporter model(file.toUtf8().constData());
        QCOMPARE(g_messages, QStringList());

        QCOMPARE(model.getActors()->GetNumberOfItems(), meshes);
        QCOMPARE(model.getActor(), model.getActors()->GetLastActor());
        QCOMPARE(model.getProperty(), model.getActor()->GetProperty());
        QList<vtkIdType> order, expected;
        for (int i = 0; i < meshes; ++i) {
            order << pointCount(vtkActor::SafeDownCast(model.getActors()->GetItemAsObject(i)));
            expected.prepend(3 + 2 * i);
        }
        QCOMPARE(order, expected);
        QCOMPARE(pointCount(model.getActor()), vtkIdType(3));

        // Only the adopted mesh goes on the canvas.
        auto renderer = vtkSmartPointer<vtkRenderer>::New();
        model.setRenderer(renderer);
        model.paint();
        QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);
        QCOMPARE(renderer->GetActors()->GetLastActor(), model.getActor());
    }

    void settersActOnAdoptedMesh() {
        const QString file = writeFans(path(QStringLiteral("setters.3ds")), 3);
        File3DSImporter model(file.toUtf8().constData());
        vtkActor* adopted = model.getActors()->GetLastActor();
        // A mesh of another material keeps its look (VTK shares one property
        // among the meshes of one material, so only that case is certain).
        vtkActor* painted = vtkActor::SafeDownCast(model.getActors()->GetItemAsObject(1));
        QCOMPARE(pointCount(painted), vtkIdType(5));
        double before[3];
        painted->GetProperty()->GetDiffuseColor(before);
        model.setColor(1, 0, 0);
        model.setPosition(1, 2, 3);
        model.setScale(2);
        model.rotateZ(30);
        double c[3];
        adopted->GetProperty()->GetColor(c);
        QCOMPARE(c[0], 1.0);
        QCOMPARE(c[1], 0.0);
        QCOMPARE(c[2], 0.0);
        QCOMPARE(adopted->GetPosition()[2], 3.0);
        QCOMPARE(adopted->GetScale()[1], 2.0);
        QVERIFY(qAbs(adopted->GetOrientation()[2] - 30.0) < 1e-9);
        painted->GetProperty()->GetDiffuseColor(c);
        QCOMPARE(c[0], before[0]);
        QCOMPARE(c[1], before[1]);
        QVERIFY(before[0] != 1.0 || before[1] != 0.0);
    }

    void setFileNameAdoptsMeshOfNewFile() {
        const QString a = writeFans(path(QStringLiteral("a.3ds")), 2); // adopted: 3 points
        ThreeDSWriter second;
        second.addMesh(ThreeDSWriter::square("plate", 0, 0, 0, 1)); // adopted: 4 points
        second.addMesh(ThreeDSWriter::fan("big", 9, 0, 0, 1));
        const QString b = path(QStringLiteral("b.3ds"));
        QVERIFY(second.save(b));

        File3DSImporter model(a.toUtf8().constData());
        QCOMPARE(pointCount(model.getActor()), vtkIdType(3));
        vtkSmartPointer<vtkActor> old = model.getActor();
        model.setColor(0, 1, 0);

        MessageCounter messages;
        model.setFileName(b.toUtf8().constData());
        QCOMPARE(g_messages, QStringList());
        QCOMPARE(model.getActors()->GetNumberOfItems(), 2);
        QVERIFY(model.getActor() != old);
        QCOMPARE(pointCount(model.getActor()), vtkIdType(4));

        model.setColor(0, 0, 1);
        double c[3];
        model.getActor()->GetProperty()->GetColor(c);
        QCOMPARE(c[2], 1.0);
        old->GetProperty()->GetColor(c);
        QCOMPARE(c[1], 1.0); // the first file's mesh is left as it was
        QCOMPARE(c[2], 0.0);

        // Reading the first file again gives its mesh back, not a leftover.
        model.setFileName(a.toUtf8().constData());
        QCOMPARE(model.getActors()->GetNumberOfItems(), 2);
        QCOMPARE(pointCount(model.getActor()), vtkIdType(3));
    }

    void realFiles_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("meshes");
        QTest::addColumn<int>("points");
        QTest::newRow("CameraRollAnim") << "CameraRollAnim.3ds" << 1 << 26;
        QTest::newRow("CameraRollAnimWithChildObject")
            << "CameraRollAnimWithChildObject.3ds" << 2 << 26;
        QTest::newRow("RotatingCube") << "RotatingCube.3DS" << 1 << 26;
        QTest::newRow("TargetCameraAnim") << "TargetCameraAnim.3ds" << 1 << 26;
        QTest::newRow("cube_with_diffuse_texture") << "cube_with_diffuse_texture.3DS" << 1 << 32;
        QTest::newRow("cubes_with_alpha") << "cubes_with_alpha.3DS" << 5 << 26;
        QTest::newRow("fels") << "fels.3ds" << 1 << 386;
        QTest::newRow("test1") << "test1.3ds" << 9 << 32;
    }
    void realFiles() {
        QFETCH(QString, file);
        QFETCH(int, meshes);
        QFETCH(int, points);
        const QString full = testData() + QStringLiteral("/3ds/") + file;
        QVERIFY2(QFile::exists(full), qPrintable(full));
        File3DSImporter model(full.toUtf8().constData());
        QCOMPARE(model.getActors()->GetNumberOfItems(), meshes);
        QCOMPARE(model.getActor(), model.getActors()->GetLastActor());
        QCOMPARE(pointCount(model.getActor()), vtkIdType(points));
    }

    void unusableFiles_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("content"); // null: the file is not written

        ThreeDSWriter noMesh;
        noMesh.addMaterial({"Lonely", {{10, 20, 30}}});
        QFile real(testData() + QStringLiteral("/3ds/fels.3ds"));
        QVERIFY(real.open(QIODevice::ReadOnly));
        const QByteArray fels = real.readAll();

        QTest::newRow("missing") << "missing.3ds" << QByteArray();
        QTest::newRow("null name") << "" << QByteArray();
        QTest::newRow("directory") << "." << QByteArray();
        QTest::newRow("empty file") << "empty.3ds" << QByteArray("");
        QTest::newRow("text file") << "text.3ds" << QByteArray("not a model at all\n");
        QTest::newRow("no mesh") << "nomesh.3ds" << noMesh.bytes();
        QTest::newRow("header only") << "header.3ds" << fels.left(6);
        QTest::newRow("truncated") << "truncated.3ds" << fels.left(fels.size() / 3);

        // Files that VTK's reader would crash on.
        ThreeDSWriter badFace;
        auto mesh = ThreeDSWriter::square("plate", 0, 0, 0, 1);
        mesh.faces.push_back({0, 2, 4});
        badFace.addMesh(mesh);
        QTest::newRow("face beyond vertices") << "badface.3ds" << badFace.bytes();
        ThreeDSWriter undefined;
        undefined.addMesh(ThreeDSWriter::square("plate", 0, 0, 0, 1, "Nowhere"));
        QTest::newRow("undefined material") << "undefined.3ds" << undefined.bytes();
        ThreeDSWriter longName;
        longName.addMesh(ThreeDSWriter::square(std::string(100, 'n'), 0, 0, 0, 1));
        QTest::newRow("overlong name") << "longname.3ds" << longName.bytes();
        QByteArray overrun = fels;
        overrun[20] = char(1); // the editor chunk's length now reaches past the file's end
        QTest::newRow("chunk past its parent") << "overrun.3ds" << overrun;
    }
    void unusableFiles() {
        QFETCH(QString, name);
        QFETCH(QByteArray, content);
        const QString file = name.isEmpty() ? QString() : path(name);
        // An empty name is passed as a null pointer.
        const QByteArray utf8 = file.toUtf8();
        const char* fileName = file.isEmpty() ? nullptr : utf8.constData();
        if (!content.isNull()) {
            QFile out(file);
            QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
            out.write(content);
        }

        auto renderer = vtkSmartPointer<vtkRenderer>::New();
        {
            MessageCounter messages;
            File3DSImporter model(fileName);
            QCOMPARE(g_messages.size(), 1);
            QVERIFY(model.getActor());
            QCOMPARE(model.getProperty(), model.getActor()->GetProperty());
            model.setColor(1, 0, 0);
            model.setPosition(1, 1, 1);
            model.setRenderer(renderer);
            model.paint();
        }
        QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);

        // After a good file, a bad one leaves an empty actor, not the old mesh.
        File3DSImporter model(writeFans(path(QStringLiteral("good.3ds")), 1).toUtf8().constData());
        vtkActor* good = model.getActor();
        MessageCounter messages;
        model.setFileName(fileName);
        QCOMPARE(g_messages.size(), 1);
        QVERIFY(model.getActor() != good);
        QVERIFY(model.getActor()->GetMapper() == nullptr || pointCount(model.getActor()) <= 0);
        model.setColor(0, 1, 0);
    }

    void meshWithoutFacesIsSkipped() {
        ThreeDSWriter writer;
        auto hollow = ThreeDSWriter::square("hollow", 0, 0, 0, 1);
        hollow.faces.clear();
        writer.addMesh(ThreeDSWriter::fan("fan", 6, 0, 0, 1));
        writer.addMesh(hollow);
        const QString file = path(QStringLiteral("hollow.3ds"));
        QVERIFY(writer.save(file));
        MessageCounter messages;
        File3DSImporter model(file.toUtf8().constData());
        QCOMPARE(g_messages.size(), 1);
        QVERIFY2(g_messages.first().contains("hollow"), qPrintable(g_messages.first()));
        QCOMPARE(model.getActors()->GetNumberOfItems(), 1);
        QCOMPARE(pointCount(model.getActor()), vtkIdType(6));
    }

    void copyKeepsAdoptedMesh() {
        const QString file = writeFans(path(QStringLiteral("copy.3ds")), 2);
        auto* original = new File3DSImporter(file.toUtf8().constData());
        File3DSImporter copy(*original);
        File3DSImporter assigned(file.toUtf8().constData());
        assigned = *original;
        delete original;
        QCOMPARE(copy.getActor(), assigned.getActor());
        QCOMPARE(pointCount(copy.getActor()), vtkIdType(3));
    }
};

QTEST_GUILESS_MAIN(TestFile3DSImporter)
#include "tst_file3dsimporter.moc"
