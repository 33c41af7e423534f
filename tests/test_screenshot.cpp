// A picture of the real host window, taken by the host itself under Xvfb.
#include <QImage>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

class TEST_SCREENSHOT : public QObject {
    Q_OBJECT
private slots:
    void host_window_under_xvfb_data();
    void host_window_under_xvfb();
};

void TEST_SCREENSHOT::host_window_under_xvfb_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<int>("tab");
    QTest::newRow("loaded by Tcl, first tab") << "pgm_host" << 0;
    QTest::newRow("linked in, third tab") << "pgm_host_linked" << 2;
}

void TEST_SCREENSHOT::host_window_under_xvfb()
{
    QFETCH(QString, host);
    QFETCH(int, tab);
    QTemporaryDir dir;
    const QString picture = dir.filePath("host.png");
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove("QT_QPA_PLATFORM");  // the real X server this time, not offscreen
    QProcess run;
    run.setProcessEnvironment(environment);
    run.setProcessChannelMode(QProcess::ForwardedChannels);
    run.start("xvfb-run", {"-a", "-s", "-screen 0 1280x1024x24", QCoreApplication::applicationDirPath() + "/" + host,
                           "--screenshot", picture, "--tab", QString::number(tab)});
    QVERIFY(run.waitForFinished(60000));
    QCOMPARE(run.exitCode(), 0);

    const QImage image(picture);
    QVERIFY(!image.isNull());
    QCOMPARE(image.size(), QSize(1100, 800));
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 4)
        for (int x = 0; x < image.width(); x += 4)
            colours.insert(image.pixel(x, y));
    QVERIFY2(colours.size() > 8, "the picture is blank");
}

QTEST_GUILESS_MAIN(TEST_SCREENSHOT)
#include "test_screenshot.moc"
