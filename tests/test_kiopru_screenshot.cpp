// A picture of the plug-in's window with the "Kiopru" tab after a run on the simulated bench, in
// the build folder. Under a real X server (Xvfb) the screen itself is grabbed; on the offscreen
// platform the window is rendered. The picture must show the lines in all four colours.
#include "kiopru_test_support.h"

#include "pgmdq_frame_wnd.h"

#include "gen.h"
#include "pgmd_cm.h"

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QScreen>
#include <QTabWidget>
#include <QTemporaryDir>

namespace {

int pixels_of(const QImage& image, const QColor& colour)
{
    const QRgb wanted = colour.rgb();
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x)
            count += (line[x] & 0xFFFFFF) == (wanted & 0xFFFFFF);
    }
    return count;
}

QString picture_path()
{
    const QString platform = QGuiApplication::platformName();
    const QString suffix = platform == "xcb" ? QString() : "_" + platform;
    return QDir(qEnvironmentVariable("PGMDQ_BUILD_DIR", ".")).filePath("kiopru_after_run" + suffix + ".png");
}

} // namespace

class TEST_KIOPRU_SCREENSHOT : public QObject {
    Q_OBJECT
private slots:
    void tab_after_a_run()
    {
        kiopru_quiet_offscreen_warnings();
        QTemporaryDir work_dir;
        gen_set_setting("kiopru/work_dir", work_dir.path().toStdString());
        std::string error;
        QVERIFY2(pgmd_cm_reload_bench(&error), error.c_str());

        VUI_FRAME_INFO info{"Kiopru"};
        PGMDQ_FRAME_WND frame(&info, VUI_FW_STATE_SEPARATE_WINDOW);
        frame.resize(1200, 720);
        frame.show();
        QVERIFY(QTest::qWaitForWindowExposed(&frame));
        QCOMPARE(frame.findChild<QTabWidget*>()->tabText(0), QString("Kiopru"));
        auto* panel = frame.findChild<PGMDQ_COOKIE_MONSTER*>();
        QVERIFY(panel);

        kiopru_choose_cable(*panel, false, BENCH_CABLE);
        kiopru_choose_cable(*panel, true, DUT_CABLE);
        // One DUT that the bench holds and one that it does not, so that both verdicts show.
        for (const QString& dut : {BR5, CD5})
            kiopru_create_test(*panel, dut, {{"m_flash_combo", "Micron QSPI 256Mb"}});
        kiopru_run(*panel);
        QTest::qWait(200);

        const QImage picture = QGuiApplication::platformName() == "xcb"
                                   ? frame.screen()->grabWindow(frame.winId()).toImage()
                                   : frame.grab().toImage();
        QVERIFY(picture.save(picture_path()));
        const QImage pixels = picture.convertToFormat(QImage::Format_RGB32);
        for (const QColor& colour : {QColor(Qt::darkYellow), QColor(Qt::blue), QColor(Qt::darkGreen), QColor(Qt::red)})
            QVERIFY2(pixels_of(pixels, colour) > 20, qPrintable(colour.name()));
    }
};

QTEST_MAIN(TEST_KIOPRU_SCREENSHOT)
#include "test_kiopru_screenshot.moc"
