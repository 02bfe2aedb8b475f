// File3DSImporter on files the suite writes itself, on real files written by
// other tools, and on files that cannot give a mesh.
#include <Orlavex/Orlavex.h>

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

// Collects the Qt messages written while it lives.
struct MessageCounter {
    QtMessageHandler previous;
    MessageCounter() {
        g_messages.clear();
        previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& text) { g_messages << text; });
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

QVector<double> rgb(const double* c) {
    return {c[0], c[1], c[2]};
}

QString testData(const QString& file) {
    const QString dir = qEnvironmentVariable("ORLAVEX_TESTDATA", "/work/shared/testdata");
    return dir + QStringLiteral("/3ds/") + file;
}

// The meshes of a written file have 3 + 2·index vertices, so the point count
// tells which of them was adopted. VTK's importer adds the actors of a file's
// meshes in the reverse order of the file, so the actor it adds last, the
// one adopted, shows the file's first mesh.
QByteArray writeFans(const QString& path, int meshes) {
    ThreeDSWriter writer;
    writer.addMaterial({"Paint", {{200, 30, 30}}});
    for (int i = 0; i < meshes; ++i)
        writer.addMesh(ThreeDSWriter::fan("fan" + std::to_string(i), 3 + 2 * i, float(i), 0.0f,
                                          0.5f, i % 2 ? "Paint" : ""));
    return writer.save(path) ? path.toUtf8() : QByteArray();
}
} // namespace

class TestFile3DSImporter : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    QString path(const QString& name) const { return m_dir.filePath(name); }

private slots:
    void adoptsLastMesh() {
        const QByteArray file = writeFans(path(QStringLiteral("fans.3ds")), 3);
        QVERIFY(!file.isEmpty());
        MessageCounter messages;
        File3DSImporter model(file.constData());
        QCOMPARE(g_messages, QStringList());
        QCOMPARE(model.getActors()->GetNumberOfItems(), 3);
        QCOMPARE(model.getActor(), model.getActors()->GetLastActor());
        QCOMPARE(model.getProperty(), model.getActor()->GetProperty());
        QCOMPARE(pointCount(model.getActor()), vtkIdType(3));

        // Setters act on the adopted mesh; a mesh of another material keeps
        // its look (VTK shares one property among the meshes of one material).
        vtkActor* painted = vtkActor::SafeDownCast(model.getActors()->GetItemAsObject(1));
        QCOMPARE(pointCount(painted), vtkIdType(5));
        const QVector<double> before = rgb(painted->GetProperty()->GetDiffuseColor());
        model.setColor(1, 0, 0);
        QCOMPARE(rgb(model.getActor()->GetProperty()->GetColor()), (QVector<double>{1, 0, 0}));
        QCOMPARE(rgb(painted->GetProperty()->GetDiffuseColor()), before);
        QVERIFY(before != (QVector<double>{1, 0, 0}));

        // Only the adopted mesh goes on the canvas.
        auto renderer = vtkSmartPointer<vtkRenderer>::New();
        model.setRenderer(renderer);
        model.paint();
        QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);
        QCOMPARE(renderer->GetActors()->GetLastActor(), model.getActor());
    }

    void setFileNameAdoptsMeshOfNewFile() {
        const QByteArray a = writeFans(path(QStringLiteral("a.3ds")), 2); // adopted: 3 points
        ThreeDSWriter second;
        second.addMesh(ThreeDSWriter::square("plate", 0, 0, 0, 1)); // adopted: 4 points
        second.addMesh(ThreeDSWriter::fan("big", 9, 0, 0, 1));
        const QString b = path(QStringLiteral("b.3ds"));
        QVERIFY(second.save(b));

        File3DSImporter model(a.constData());
        vtkSmartPointer<vtkActor> old = model.getActor();
        model.setColor(0, 1, 0);
        MessageCounter messages;
        model.setFileName(b.toUtf8().constData());
        QCOMPARE(g_messages, QStringList());
        QCOMPARE(model.getActors()->GetNumberOfItems(), 2);
        QCOMPARE(pointCount(model.getActor()), vtkIdType(4));
        model.setColor(0, 0, 1);
        QCOMPARE(model.getActor()->GetProperty()->GetColor()[2], 1.0);
        QCOMPARE(old->GetProperty()->GetColor()[2], 0.0); // the first file's mesh is left alone

        // Reading the first file again gives its mesh back, not a leftover.
        model.setFileName(a.constData());
        QCOMPARE(model.getActors()->GetNumberOfItems(), 2);
        QCOMPARE(pointCount(model.getActor()), vtkIdType(3));
    }

    // The counts listed in the test data's SOURCE.md.
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
        QVERIFY2(QFile::exists(testData(file)), qPrintable(testData(file)));
        File3DSImporter model(testData(file).toUtf8().constData());
        QCOMPARE(model.getActors()->GetNumberOfItems(), meshes);
        QCOMPARE(model.getActor(), model.getActors()->GetLastActor());
        QCOMPARE(pointCount(model.getActor()), vtkIdType(points));
    }

    void unusableFiles_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("content"); // null: the file is not written
        QFile real(testData(QStringLiteral("fels.3ds")));
        if (!real.open(QIODevice::ReadOnly)) // realFiles reports it as a failure
            QSKIP("the real 3DS test files are missing");
        const QByteArray fels = real.readAll();
        ThreeDSWriter noMesh, badFace, undefined, longName;
        noMesh.addMaterial({"Lonely", {{10, 20, 30}}});
        QTest::newRow("missing") << "missing.3ds" << QByteArray();
        QTest::newRow("null name") << "" << QByteArray();
        QTest::newRow("directory") << "." << QByteArray();
        QTest::newRow("empty file") << "empty.3ds" << QByteArray("");
        QTest::newRow("text file") << "text.3ds" << QByteArray("not a model at all\n");
        QTest::newRow("no mesh") << "nomesh.3ds" << noMesh.bytes();
        QTest::newRow("truncated") << "truncated.3ds" << fels.left(fels.size() / 3);

        // Files that VTK's reader would crash on.
        auto mesh = ThreeDSWriter::square("plate", 0, 0, 0, 1);
        mesh.faces.push_back({0, 2, 4});
        badFace.addMesh(mesh);
        QTest::newRow("face beyond vertices") << "badface.3ds" << badFace.bytes();
        undefined.addMesh(ThreeDSWriter::square("plate", 0, 0, 0, 1, "Nowhere"));
        QTest::newRow("undefined material") << "undefined.3ds" << undefined.bytes();
        longName.addMesh(ThreeDSWriter::square(std::string(100, 'n'), 0, 0, 0, 1));
        QTest::newRow("overlong name") << "longname.3ds" << longName.bytes();
        QByteArray overrun = fels;
        overrun[20] = char(1); // the editor chunk's length now reaches past the file's end
        QTest::newRow("chunk past its parent") << "overrun.3ds" << overrun;
    }
    void unusableFiles() {
        QFETCH(QString, name);
        QFETCH(QByteArray, content);
        const QByteArray file = name.isEmpty() ? QByteArray() : path(name).toUtf8();
        const char* fileName = file.isEmpty() ? nullptr : file.constData();
        if (!content.isNull()) {
            QFile out(path(name));
            QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
            out.write(content);
        }
        auto renderer = vtkSmartPointer<vtkRenderer>::New();
        {
            MessageCounter messages;
            File3DSImporter model(fileName);
            QCOMPARE(g_messages.size(), 1);
            QCOMPARE(model.getProperty(), model.getActor()->GetProperty());
            model.setColor(1, 0, 0);
            model.setRenderer(renderer);
            model.paint();
        }
        QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);

        // After a good file, a bad one leaves an empty actor, not the old mesh.
        File3DSImporter model(writeFans(path(QStringLiteral("good.3ds")), 1).constData());
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
        QCOMPARE(pointCount(model.getActor()), vtkIdType(6));
    }
};

QTEST_GUILESS_MAIN(TestFile3DSImporter)
#include "tst_file3dsimporter.moc"
