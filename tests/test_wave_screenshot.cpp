// A screenshot of the "Debug Waveform Viewer" tab with a trace captured from the default bench,
// saved in the build folder as screenshots/debug_waveform_viewer_zoomed.png: zoomed in by a drag
// on the ruler with both cursors placed by clicks (a black wave area with red and white waves and
// labels, yellow and cyan cursor lines over them, their flags and distance on the ruler). Under a
// real X server (Xvfb) the screen itself is grabbed; on the offscreen platform the window is
// rendered, and the picture's name says so.
#include "pgmdq_debug_waveform_viewer.h"
#include "pgmdq_frame_wnd.h"

#include "wave/wave_panel_driver.h"

#include <QApplication>
#include <QDir>
#include <QGraphicsView>
#include <QMap>
#include <QScreen>
#include <QTabWidget>
#include <QWindow>

#include <cmath>
#include <string>

using namespace wave_test;

namespace {

QMap<QRgb, int> pixels_in(const QImage& shot, const QRect& area)
{
    QMap<QRgb, int> pixels;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            ++pixels[shot.pixel(x, y) & 0xFFFFFF];
    return pixels;
}

} // namespace

class TEST_WAVE_SCREENSHOT : public QObject {
    Q_OBJECT

private slots:
    void zoomed_trace_with_both_cursors_on_screen()
    {
        VUI_FRAME_INFO info{"Debug Waveform Viewer"};
        PGMDQ_FRAME_WND frame{&info, VUI_FW_STATE_SEPARATE_WINDOW};
        frame.resize(1200, 860);
        auto* tabs = frame.findChild<QTabWidget*>();
        QCOMPARE(tabs->tabText(2), QString("Debug Waveform Viewer"));
        tabs->setCurrentIndex(2);
        frame.show();
        QVERIFY(QTest::qWaitForWindowExposed(&frame));
        auto* viewer = frame.findChild<PGMDQ_DEBUG_WAVEFORM_VIEWER*>();
        std::string error;
        QVERIFY2(pgmd_cm_reload_bench(&error), error.c_str());
        choose_and_scan(viewer, "DUT-USB [1-2]");
        click(viewer, "Start");
        PGMDQ_DEBUG_WAVEFORM_WIDGET* widget = viewer->waveform_widget();
        QCOMPARE(widget->waveform_depth(), 1024u);

        // Zoom to samples 24 to 56 by dragging along the ruler, as a user does.
        PGMDQ_DEBUG_WAVEFORM_RULER* ruler = widget->ruler();
        const QPoint from(int(ruler->x_of(24)), 8);
        const QPoint to(int(ruler->x_of(56)), 8);
        QTest::mousePress(ruler, Qt::LeftButton, Qt::NoModifier, from);
        QMouseEvent drag(QEvent::MouseMove, to, ruler->mapToGlobal(to), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(ruler, &drag);
        QTest::mouseRelease(ruler, Qt::LeftButton, Qt::NoModifier, to);
        QVERIFY2(widget->zoom() > 1.5, qPrintable(QString::number(widget->zoom())));

        // The primary cursor on sample 30 over the "sdr" row, the secondary on sample 47.
        QWidget* waves = widget->waveform_view()->viewport();
        const int sdr_y = widget->waveform_view()->mapFromScene(QPointF(0, PGMDQ_DEBUG_WAVE_GEOMETRY::row_top(5) + 10)).y();
        QTest::mouseClick(waves, Qt::LeftButton, Qt::NoModifier, QPoint(int(widget->viewport_x_of(30.5)), sdr_y));
        QTest::mouseClick(waves, Qt::LeftButton, Qt::ShiftModifier, QPoint(int(widget->viewport_x_of(47.5)), sdr_y));
        QCOMPARE(ruler->cursor_texts(), (QStringList{"A 30", "B 47", "Δ 17"}));
        QTest::qWait(300);

        const QString platform = QGuiApplication::platformName();
        const QImage shot = platform == "xcb" ? frame.windowHandle()->screen()->grabWindow(frame.winId()).toImage()
                                              : frame.grab().toImage();
        const QString folder = qEnvironmentVariable("PGMDQ_BUILD_DIR", ".") + "/screenshots";
        QDir().mkpath(folder);
        QVERIFY(shot.save(folder + "/debug_waveform_viewer_zoomed" + (platform == "xcb" ? "" : "_" + platform) + ".png"));

        // Over the waves: the cursors' lines, yellow and cyan, down the columns where their
        // samples start; the waves still red and white on black. On the ruler, the cursors' flags
        // in their colours.
        const QRect area(waves->mapTo(&frame, QPoint(0, 0)), waves->size());
        const auto column = [&](double sample) {
            return QRect(area.left() + int(std::floor(widget->viewport_x_of(sample))), area.top(), 1, area.height());
        };
        QVERIFY(pixels_in(shot, column(30))[0xFFFF00] > area.height() / 2);
        QVERIFY(pixels_in(shot, column(47))[0x00FFFF] > area.height() / 2);
        const QMap<QRgb, int> pixels = pixels_in(shot, area);
        QVERIFY(pixels[0x000000] > area.width() * area.height() / 2);
        QVERIFY(pixels[0xFF0000] > 500 && pixels[0xFFFFFF] > 500);
        const QMap<QRgb, int> ruler_pixels = pixels_in(shot, QRect(ruler->mapTo(&frame, QPoint(0, 0)), ruler->size()));
        QVERIFY(ruler_pixels[0xFFFF00] > 20 && ruler_pixels[0x00FFFF] > 20);
    }
};

QTEST_MAIN(TEST_WAVE_SCREENSHOT)
#include "test_wave_screenshot.moc"
