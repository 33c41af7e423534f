// The host application: opens the plug-in's frame window with the message window, as the
// suite's GUI does. Options:
//   --settings FILE      the site's settings (default: the loopback site beside the build)
//   --separate-window    the frame as a window of its own beside the host's main window
//   --screenshot FILE    write a picture of the window to FILE once it is shown, then exit
//   --tab N              make tab N current before the picture is taken
#include "host_application.h"

#include "gen.h"
#include "ttcl.h"
#include "thr.h"
#include "vui.h"

#include <QCommandLineParser>
#include <QScreen>
#include <QTimer>
#include <QTabWidget>
#include <QTranslator>
#include <QWindow>

#include <iostream>
#include <memory>

#ifdef PGM_HOST_LINKED
#include "pgmdq_frame_wnd.h"
#endif

namespace {

typedef VUI_FRAME_WND* (*CREATE_FRAME_WND)(VUI_FW_STATE_ENUM, VUI_FRAME_INFO*);

// Loads the plug-in as a Tcl package and finds its frame factory.
CREATE_FRAME_WND load_plugin(Tcl_Interp* interp, std::string* error)
{
#ifdef PGM_HOST_LINKED
    if (!host_load_linked_package(interp, error))
        return nullptr;
    return reinterpret_cast<CREATE_FRAME_WND>(&pgm_pgmdq_create_frame_wnd);
#else
    if (!host_require_package(interp, error))
        return nullptr;
    void* library = thr_drl_load("pgm_pgmdq.dll");
    void* factory = thr_drl_find_function(library, "pgm_pgmdq_create_frame_wnd");
    if (!factory)
        *error = thr_drl_last_error();
    return reinterpret_cast<CREATE_FRAME_WND>(factory);
#endif
}

void take_screenshot(QWidget* window, const QString& file)
{
    QScreen* screen = window->windowHandle() ? window->windowHandle()->screen() : QGuiApplication::primaryScreen();
    const QPixmap picture = screen->grabWindow(window->winId());
    if (!picture.save(file))
        std::cerr << "cannot write " << file.toStdString() << "\n";
    QApplication::exit(picture.isNull() ? 1 : 0);
}

} // namespace

int main(int argc, char** argv)
{
    HOST_APPLICATION app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOption({"settings", "Settings file of the site.", "file"});
    parser.addOption({"separate-window", "Open the frame as a separate window."});
    parser.addOption({"screenshot", "Write a picture of the window and exit.", "file"});
    parser.addOption({"tab", "Tab to show first.", "index", "0"});
    parser.process(app);

    host_load_settings(parser.isSet("settings") ? parser.value("settings").toStdString()
                                                : host_default_settings_path(argv[0]));
    Tcl_Interp* interp = host_create_interpreter(argv[0], host_library_dir());

    std::string error;
    const CREATE_FRAME_WND create_frame_wnd = load_plugin(interp, &error);
    if (!create_frame_wnd) {
        std::cerr << "cannot load ::vexmoor::pgmdq: " << error << "\n";
        return 1;
    }
    QTranslator translator;
    if (translator.load(QLocale(), "pgmdq", "_", ":/translations"))
        app.installTranslator(&translator);

    const bool separate = parser.isSet("separate-window");
    VUI_FRAME_INFO info{QObject::tr("Programmer Bench Tools")};
    // A separate frame sits beside a main window of the host's own, which holds the messages.
    std::unique_ptr<VUI_FRAME_WND> host_window(separate ? new VUI_FRAME_WND(&info, VUI_FW_STATE_MAIN_WINDOW) : nullptr);
    VUI_FRAME_WND* frame = create_frame_wnd(separate ? VUI_FW_STATE_SEPARATE_WINDOW : VUI_FW_STATE_MAIN_WINDOW, &info);
    VUI_FRAME_WND* main_window = separate ? host_window.get() : frame;
    auto* messages = new VUI_MESSAGE_WND(main_window);
    main_window->addDockWidget(Qt::BottomDockWidgetArea, messages);
    QObject::connect(frame, &VUI_FRAME_WND::messages_requested, messages, &QWidget::show);
    if (auto* tabs = frame->findChild<QTabWidget*>())
        tabs->setCurrentIndex(parser.value("tab").toInt());

    frame->resize(1100, 800);
    if (host_window)
        host_window->show();
    frame->show();
    if (parser.isSet("screenshot"))
        QTimer::singleShot(1500, frame, [frame, file = parser.value("screenshot")] { take_screenshot(frame, file); });
    const int result = app.exec();
    delete frame;
    Tcl_DeleteInterp(interp);
    ttcl_set_interpreter(nullptr);
    return result;
}
