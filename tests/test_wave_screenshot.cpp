// A screenshot of the "Debug Waveform Viewer" tab with a trace captured from the default bench,
// taken from a real X server (Xvfb, started here when the run has no display) and saved as
// screenshots/debug_waveform_viewer.png in the build folder. The picture must show the trace:
// a black wave area with red and white waves and labels.
#include "pgmdq_debug_waveform_viewer.h"
#include "pgmdq_frame_wnd.h"

#include "wave/wave_panel_driver.h"

#include <QApplication>
#include <QDir>
#include <QGraphicsView>
#include <QScreen>
#include <QMap>
#include <QStandardPaths>
#include <QTabWidget>
#include <QWindow>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace wave_test;

namespace {

pid_t xvfb_pid = -1;

void stop_own_xvfb()
{
    if (xvfb_pid > 0) {
        kill(xvfb_pid, SIGTERM);
        waitpid(xvfb_pid, nullptr, 0);
    }
}

// An Xvfb of our own: it picks a free display itself (-displayfd) and is stopped at exit.
bool start_own_xvfb()
{
    const QByteArray xvfb = QStandardPaths::findExecutable("Xvfb").toLocal8Bit();
    int display_pipe[2];
    if (xvfb.isEmpty() || pipe(display_pipe) != 0)
        return false;
    xvfb_pid = fork();
    if (xvfb_pid == 0) {
        const std::string fd = std::to_string(display_pipe[1]);
        execl(xvfb.constData(), "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1280x1024x24", "-nolisten", "tcp",
              static_cast<char*>(nullptr));
        _exit(127);
    }
    close(display_pipe[1]);
    std::atexit(stop_own_xvfb);
    // The server writes the number and a newline once it accepts connections.
    QByteArray number;
    char c;
    while (xvfb_pid > 0 && read(display_pipe[0], &c, 1) == 1 && c != '\n')
        number += c;
    close(display_pipe[0]);
    qputenv("DISPLAY", ":" + number);
    return !number.isEmpty();
}

} // namespace

class TEST_WAVE_SCREENSHOT : public QObject {
    Q_OBJECT

private slots:
    void captured_trace_on_screen()
    {
        if (QGuiApplication::platformName() != "xcb")
            QSKIP("no X server to take the screenshot on");
        VUI_FRAME_INFO info{"Debug Waveform Viewer"};
        PGMDQ_FRAME_WND frame(&info, VUI_FW_STATE_SEPARATE_WINDOW);
        frame.resize(1200, 820);
        auto* tabs = frame.findChild<QTabWidget*>();
        QVERIFY(tabs);
        QCOMPARE(tabs->tabText(2), QString("Debug Waveform Viewer"));
        tabs->setCurrentIndex(2);
        frame.show();
        QVERIFY(QTest::qWaitForWindowExposed(&frame));

        auto* viewer = frame.findChild<PGMDQ_DEBUG_WAVEFORM_VIEWER*>();
        QVERIFY(viewer);
        std::string error;
        QVERIFY(pgmd_cm_reload_bench(&error));
        choose_and_scan(viewer, "DUT-USB [1-2]");
        click(viewer, "Start");
        QCOMPARE(viewer->waveform_widget()->waveform_depth(), 1024u);
        QTest::qWait(300);

        const QImage shot = frame.windowHandle()->screen()->grabWindow(frame.winId()).toImage();
        QVERIFY(!shot.isNull());
        const QString folder = qEnvironmentVariable("PGMDQ_BUILD_DIR", ".") + "/screenshots";
        QDir().mkpath(folder);
        QVERIFY(shot.save(folder + "/debug_waveform_viewer.png"));

        // The wave view's part of the picture: mostly black, with red and white strokes.
        QGraphicsView* waves = viewer->waveform_widget()->waveform_view();
        const QRect area(waves->viewport()->mapTo(&frame, QPoint(0, 0)), waves->viewport()->size());
        QMap<QRgb, int> pixels;
        for (int y = area.top(); y <= area.bottom(); ++y)
            for (int x = area.left(); x <= area.right(); ++x)
                ++pixels[shot.pixel(x, y) & 0xFFFFFF];
        QVERIFY(pixels[0x000000] > area.width() * area.height() / 2);
        QVERIFY(pixels[0xFF0000] > 1000);
        QVERIFY(pixels[0xFFFFFF] > 1000);
        QVERIFY(pixels.size() > 3);
    }
};

int main(int argc, char** argv)
{
    // The screenshot needs a real window system: an X server of its own when the run has none.
    if (!qEnvironmentVariable("DISPLAY").isEmpty() || start_own_xvfb())
        qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    TEST_WAVE_SCREENSHOT test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_wave_screenshot.moc"
