// The host application: opens the plug-in's frame window with the message window, as the
// suite's GUI does, or runs a Tcl script without a window. Options:
//   --settings FILE      the site's settings (default: the loopback site beside the build)
//   --separate-window    the frame as a window of its own beside the host's main window
//   --screenshot FILE    write a picture of the window to FILE once it is shown, then exit
//   --tab N              make tab N current before the picture is taken
//   --script FILE ARG... run FILE in the host's interpreter (argv holds the ARGs) and exit:
//                        0 when every test passed, 1 when one failed, 2 when it could not run
// A start that cannot run (unreadable settings, bad options, no plug-in) exits with status 2.
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

#include <algorithm>
#include <iostream>
#include <memory>

#ifdef PGM_HOST_LINKED
#include "pgmdq_frame_wnd.h"
#endif

namespace {

typedef VUI_FRAME_WND* (*CREATE_FRAME_WND)(VUI_FW_STATE_ENUM, VUI_FRAME_INFO*);

const int CANNOT_RUN_STATUS = 2;
const char* const SCRIPT_OPTION = "--script";

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

// The host's own options come before --script; everything after its FILE belongs to the script.
struct COMMAND_LINE {
    QStringList host_arguments;
    bool script_run = false;
    std::vector<std::string> script; // FILE, then its arguments
};

COMMAND_LINE split_command_line(int argc, char** argv)
{
    COMMAND_LINE line;
    char** script = std::find(argv, argv + argc, std::string(SCRIPT_OPTION));
    for (char** argument = argv; argument != script; ++argument)
        line.host_arguments << QString::fromLocal8Bit(*argument);
    line.script_run = script != argv + argc;
    if (line.script_run)
        line.script.assign(script + 1, argv + argc);
    return line;
}

int cannot_run(const std::string& reason)
{
    std::cerr << "pgm_host: " << reason << "\n";
    return CANNOT_RUN_STATUS;
}

int run_frame(HOST_APPLICATION& app, const QCommandLineParser& parser, CREATE_FRAME_WND create_frame_wnd)
{
    QTranslator translator;
    if (translator.load(QLocale(), "pgmdq", "_", ":/translations"))
        app.installTranslator(&translator);

    const bool separate = parser.isSet("separate-window");
    VUI_FRAME_INFO info{QObject::tr("Programmer Bench Tools")};
    // A separate frame sits beside a main window of the host's own, which holds the messages.
    std::unique_ptr<VUI_FRAME_WND> host_window(separate ? new VUI_FRAME_WND(&info, VUI_FW_STATE_MAIN_WINDOW) : nullptr);
    std::unique_ptr<VUI_FRAME_WND> frame(
        create_frame_wnd(separate ? VUI_FW_STATE_SEPARATE_WINDOW : VUI_FW_STATE_MAIN_WINDOW, &info));
    VUI_FRAME_WND* main_window = separate ? host_window.get() : frame.get();
    auto* messages = new VUI_MESSAGE_WND(main_window);
    main_window->addDockWidget(Qt::BottomDockWidgetArea, messages);
    QObject::connect(frame.get(), &VUI_FRAME_WND::messages_requested, messages, &QWidget::show);
    if (auto* tabs = frame->findChild<QTabWidget*>())
        tabs->setCurrentIndex(parser.value("tab").toInt());

    frame->resize(1100, 800);
    if (host_window)
        host_window->show();
    frame->show();
    if (parser.isSet("screenshot"))
        QTimer::singleShot(1500, frame.get(), [window = frame.get(), file = parser.value("screenshot")] {
            take_screenshot(window, file);
        });
    return app.exec();
}

} // namespace

int main(int argc, char** argv)
{
    const COMMAND_LINE command_line = split_command_line(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption help = parser.addHelpOption();
    parser.addOption({"settings", "Settings file of the site.", "file"});
    parser.addOption({"separate-window", "Open the frame as a separate window."});
    parser.addOption({"screenshot", "Write a picture of the window and exit.", "file"});
    parser.addOption({"tab", "Tab to show first.", "index", "0"});
    parser.addOption({"script", "Run a Tcl script without a window and exit; the words after it are the script's.",
                      "file"});
    if (!parser.parse(command_line.host_arguments))
        return cannot_run(parser.errorText().toStdString());
    if (command_line.script_run && command_line.script.empty())
        return cannot_run("--script needs a file");
    const std::string settings = parser.isSet("settings") ? parser.value("settings").toStdString()
                                                           : host_default_settings_path(argv[0]);
    std::string reason;
    if (parser.isSet("settings") && !host_settings_readable(settings, &reason))
        return cannot_run("cannot read the settings file \"" + settings + "\": " + reason);

    if (command_line.script_run)
        vui_use_offscreen_without_display();
    HOST_APPLICATION app(argc, argv);
    if (parser.isSet(help))
        parser.showHelp(0);
    host_load_settings(settings);
    Tcl_Interp* interp = host_create_interpreter(argv[0], host_library_dir());
    std::string error;
    const CREATE_FRAME_WND create_frame_wnd = load_plugin(interp, &error);
    const int result = !create_frame_wnd         ? cannot_run("cannot load ::vexmoor::pgmdq: " + error)
                       : !command_line.script_run ? run_frame(app, parser, create_frame_wnd)
                                                  : host_run_script(interp, command_line.script);
    Tcl_DeleteInterp(interp);
    ttcl_set_interpreter(nullptr);
    return result;
}
