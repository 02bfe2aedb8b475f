// File3DSImporter on files the suite writes itself, on real files written by
// other tools, and on files that cannot give a mesh.
#include <Orlavex/Orlavex.h>

#include "Fixtures.h"
#include "ThreeDSWriter.h"
#include "VtkHeaders.h"

namespace {
QStringList g_messages;

// Collects the Qt messages written while it lives.
struct MessageLog {
    QtMessageHandler previous;
    MessageLog() {
        g_messages.clear();
        previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& text) { g_messages << text; });
    }
    ~MessageLog() { qInstallMessageHandler(previous); }
};

vtkIdType pointCount(vtkActor* actor) {
    vtkMapper* mapper = actor->GetMapper();
    if (!mapper)
        return -1;
    mapper->Update();
    auto* data = vtkPolyData::SafeDownCast(mapper->GetInputDataObject(0, 0));
    return data ? data->GetNumberOfPoints() : -1;
}

QString testData(const QString& file) {
    return qEnvironmentVariable("ORLAVEX_TESTDATA", "/work/shared/testdata") + "/3ds/" + file;
}

// The meshes of a written file have 3 + 2·index vertices, so the point count
// tells which of them was adopted. VTK's importer adds the actors of a file's
// meshes in the reverse order of the file, so the actor it adds last, the
// one adopted, shows the file's first mesh.
QByteArray writeFans(const QString& name, int meshes) {
    ThreeDSWriter writer;
    writer.addMaterial({"Paint", {{200, 30, 30}}});
    for (int i = 0; i < meshes; ++i)
        writer.addMesh(ThreeDSWriter::fan("fan" + std::to_string(i), 3 + 2 * i, float(i), 0.0f,
                                          0.5f, i % 2 ? "Paint" : ""));
    return writer.saveTemp(name).toUtf8();
}
} // namespace

class TestFile3DSImporter : public QObject {
    Q_OBJECT

private slots:
    // The importer adopts the actor that VTK adds last. Setters act on it
    // alone (VTK shares one property among the meshes of one material), only
    // it goes on the canvas, and a new file name gives the new file's mesh. A
    // mesh without faces is skipped with a message naming it.
    void adoptsLastMesh() {
        const QByteArray a = writeFans(QStringLiteral("fans.3ds"), 3);
        ThreeDSWriter second;
        second.addMesh(ThreeDSWriter::square("plate", 0, 0, 0, 1)); // adopted: 4 points
        second.addMesh(ThreeDSWriter::fan("big", 9, 0, 0, 1));
        auto hollow = ThreeDSWriter::square("hollow", 0, 0, 0, 1); // skipped, with one message
        hollow.faces.clear();
        second.addMesh(hollow);
        const QByteArray b = second.saveTemp(QStringLiteral("b.3ds")).toUtf8();
        QVERIFY(!a.isEmpty() && !b.isEmpty());
        MessageLog messages;
        File3DSImporter model(a.constData());
        QCOMPARE(model.getActors()->GetNumberOfItems(), 3);
        QCOMPARE(model.getActor(), model.getActors()->GetLastActor());
        QCOMPARE(model.getProperty(), model.getActor()->GetProperty());
        QCOMPARE(pointCount(model.getActor()), vtkIdType(3));
        vtkSmartPointer<vtkActor> old = model.getActor();
        vtkActor* painted = vtkActor::SafeDownCast(model.getActors()->GetItemAsObject(1));
        QCOMPARE(pointCount(painted), vtkIdType(5));
        const double* diffuse = painted->GetProperty()->GetDiffuseColor();
        const QVector<double> before(diffuse, diffuse + 3), red{1, 0, 0};
        model.setColor(1, 0, 0);
        const double* colour = model.getActor()->GetProperty()->GetColor();
        QCOMPARE(QVector<double>(colour, colour + 3), red);
        QCOMPARE(QVector<double>(diffuse, diffuse + 3), before);
        QVERIFY(before != red);
        vtkNew<vtkRenderer> renderer;
        model.setRenderer(renderer);
        model.paint();
        QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);
        QCOMPARE(renderer->GetActors()->GetLastActor(), model.getActor());

        model.setFileName(b.constData());
        QCOMPARE(model.getActors()->GetNumberOfItems(), 2);
        QCOMPARE(pointCount(model.getActor()), vtkIdType(4));
        model.setColor(0, 0, 1);
        QCOMPARE(model.getActor()->GetProperty()->GetColor()[2], 1.0);
        QCOMPARE(QVector<double>(colour, colour + 3), red); // the first file's mesh is left alone
        // Reading the first file again gives its mesh back, not a leftover.
        model.setFileName(a.constData());
        QCOMPARE(model.getActors()->GetNumberOfItems(), 3);
        QCOMPARE(pointCount(model.getActor()), vtkIdType(3));
        QCOMPARE(g_messages.size(), 1);
        QVERIFY2(g_messages.first().contains("hollow"), qPrintable(g_messages.first()));
    }

    // The counts listed in the test data's SOURCE.md.
    void realFiles_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("meshes");
        QTest::addColumn<int>("points");
        const std::tuple<const char*, int, int> files[] = {
            {"CameraRollAnim.3ds", 1, 26},
            {"CameraRollAnimWithChildObject.3ds", 2, 26},
            {"RotatingCube.3DS", 1, 26},
            {"TargetCameraAnim.3ds", 1, 26},
            {"cube_with_diffuse_texture.3DS", 1, 32},
            {"cubes_with_alpha.3DS", 5, 26},
            {"fels.3ds", 1, 386},
            {"test1.3ds", 9, 32}};
        for (const auto& [file, meshes, points] : files)
            QTest::newRow(file) << QString(file) << meshes << points;
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

    // Each gives exactly one message, an actor that takes the setters, and
    // after a good file an empty actor rather than the old mesh.
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
        const QByteArray file = name.isEmpty() ? QByteArray() : fixture::tempPath(name).toUtf8();
        const char* fileName = file.isEmpty() ? nullptr : file.constData();
        if (!content.isNull()) {
            QFile out(file);
            QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
            out.write(content);
        }
        vtkNew<vtkRenderer> renderer;
        {
            MessageLog messages;
            File3DSImporter model(fileName);
            QCOMPARE(g_messages.size(), 1);
            QCOMPARE(model.getProperty(), model.getActor()->GetProperty());
            model.setColor(1, 0, 0);
            model.setRenderer(renderer);
            model.paint();
        }
        QCOMPARE(renderer->GetActors()->GetNumberOfItems(), 1);

        File3DSImporter model(writeFans(QStringLiteral("good.3ds"), 1).constData());
        vtkActor* good = model.getActor();
        MessageLog messages;
        model.setFileName(fileName);
        QCOMPARE(g_messages.size(), 1);
        QVERIFY(model.getActor() != good);
        QVERIFY(model.getActor()->GetMapper() == nullptr || pointCount(model.getActor()) <= 0);
        model.setColor(0, 1, 0);
    }
};

QTEST_GUILESS_MAIN(TestFile3DSImporter)
#include "tst_file3dsimporter.moc"
