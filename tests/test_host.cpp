// The host application: it survives an internal error raised while it handles a real click,
// shows it, and the window stays usable; its Tools and Help menus; and its exit statuses when it
// cannot start or runs a script without a window.
#include "host_application.h"
#include "plugin_session.h"
#include "tfcq.h"

#include <QMenu>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString BATCH_LINE = "CMD @%1 @Passive Serial @1.8 V @P30 2Gb 16-bits CFI flash @DCLK\n";

void write_file(const QDir& dir, const QString& name, const QString& text)
{
    QFile file(dir.filePath(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text.toUtf8());
}

// The frame with its message window, as the host opens it.
struct HOST_FRAME : PLUGIN_FRAME {
    HOST_FRAME() { frame->addDockWidget(Qt::BottomDockWidgetArea, messages); }
    VUI_MESSAGE_WND* messages = new VUI_MESSAGE_WND(frame.get());
};

} // namespace

class TEST_HOST : public QObject {
    Q_OBJECT
private slots:
    void survives_an_internal_error_from_a_click();
    void tools_runs_a_tcl_script_data();
    void tools_runs_a_tcl_script();
    void help_tells_where_the_package_came_from();
    void exit_status_data();
    void exit_status();
};

// The dialog and the message window tell the error; the window goes on handling clicks.
void TEST_HOST::survives_an_internal_error_from_a_click()
{
    auto* app = static_cast<HOST_APPLICATION*>(QCoreApplication::instance());
    HOST_FRAME host;
    auto* faulty = new QPushButton("Faulty", host.frame->findChild<QTabWidget*>()->widget(0));
    QObject::connect(faulty, &QPushButton::clicked,
                     [] { MSG_INTERNAL_ERROR::report("count > 0", "PGMDQ", "pgmdq_cookie_monster", 17); });
    host.frame->show();
    QVERIFY(QTest::qWaitForWindowExposed(host.frame.get()));

    QTest::mouseClick(faulty, Qt::LeftButton);
    QCOMPARE(app->internal_error_count(), 1);
    QMessageBox* dialog = app->internal_error_dialog();
    QVERIFY(dialog);
    QCOMPARE(dialog->windowTitle(), QStringLiteral("Internal Error"));
    QCOMPARE(dialog->text(), QStringLiteral("count > 0"));
    QVERIFY(dialog->informativeText().contains("pgmdq_cookie_monster"));
    QVERIFY(dialog->informativeText().contains("17"));
    QTRY_COMPARE(host.messages->row_count(), 1);
    QCOMPARE(host.messages->row_type(0), QStringLiteral("Error"));
    QVERIFY(host.messages->row_text(0).startsWith("Internal Error: count > 0"));

    dialog->button(QMessageBox::Ok)->click();
    QTRY_VERIFY(app->internal_error_dialog() == nullptr);
    QVERIFY(host.frame->isVisible());
    QTest::mouseClick(faulty, Qt::LeftButton);
    QCOMPARE(app->internal_error_count(), 2);
}

void TEST_HOST::tools_runs_a_tcl_script_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("told");
    QTest::newRow("done") << "set ::ran_from_tools yes\nexpr {6 * 7}\n" << "Info" << "Tcl script %1 done: 42";
    QTest::newRow("Tcl error") << "set ::ran_from_tools yes\nno_such_command\n" << "Error"
                               << "Tcl script %1 line 2: invalid command name \"no_such_command\"";
}

void TEST_HOST::tools_runs_a_tcl_script()
{
    QFETCH(QString, script);
    QFETCH(QString, type);
    QFETCH(QString, told);
    HOST_FRAME host;
    QTemporaryDir dir;
    write_file(QDir(dir.path()), "menu.tcl", script);
    const QString file = QDir(dir.path()).filePath("menu.tcl");
    QAction* tcl_scripts = host.frame->tools_menu()->actions().at(1);
    QCOMPARE(tcl_scripts->text(), QString("Tcl &Scripts..."));
    TFCQ_FILE_DLG::preset_answer(file);
    tcl_scripts->trigger();
    QTRY_COMPARE(host.messages->row_count(), 1);
    QCOMPARE(host.messages->row_type(0), type);
    QCOMPARE(host.messages->row_text(0), told.arg(file));
    QCOMPARE(QString(Tcl_GetVar(host.session.interp(), "ran_from_tools", TCL_GLOBAL_ONLY)), QString("yes"));
}

void TEST_HOST::help_tells_where_the_package_came_from()
{
    const PLUGIN_FRAME host;
    QMenu* help = host.frame->stock_menu(VUI_MENU_HELP);
    QCOMPARE(help->actions().first()->text(), QString("&Contents"));
    QVERIFY(!help->actions().first()->isVisible());
    help->actions().last()->trigger();
    auto* about = host.frame->findChild<QMessageBox*>("vui_about");
    QVERIFY(about);
    QVERIFY(about->isVisible());
    // Linked into this program and initialised as a static package, as pgm_host_linked does.
    QVERIFY2(about->text().contains("Tcl package ::vexmoor::pgmdq 1.0, loaded from " +
                                    QCoreApplication::applicationFilePath()),
             qPrintable(about->text()));
    about->close();
}

// pgm_host as a user starts it, without a display: a start that cannot run is one line on stderr
// and status 2; a script exits 0 when every test passed, 1 when one failed, 2 when it cannot run.
void TEST_HOST::exit_status_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("told");  // lines of stderr, parted by "|"
    const QString script = "--settings %1/site.ini --script %1/";
    QTest::newRow("settings missing")
        << "--settings %1/missing.ini" << 2
        << "pgm_host: cannot read the settings file \"%1/missing.ini\": No such file or directory";
    QTest::newRow("settings a folder")
        << "--settings %1" << 2 << "pgm_host: cannot read the settings file \"%1\": file to open is a directory";
    QTest::newRow("unknown option") << "--bogus" << 2 << "pgm_host: Unknown option 'bogus'.";
    QTest::newRow("script, all passed") << script + "run.tcl %1/pass.txt" << 0
                                        << "pgm_host: running %1/run.tcl|Info (14600): kiopru_run: Test 1: BR5-TV1-ES, "
                                           "Passive Serial, 1.8 V, P30 2Gb 16-bits CFI flash, DCLK - Pass|"
                                           "pgm_host: %1/run.tcl done: 1 passed, 0 failed, 0 skipped";
    QTest::newRow("script, a test failed") << script + "run.tcl %1/fail.txt" << 1
                                           << "pgm_host: %1/run.tcl done: 1 passed, 1 failed, 0 skipped";
    QTest::newRow("script, bad arguments")
        << script + "run.tcl %1/missing.txt" << 2
        << "pgm_host: %1/run.tcl line 1: kiopru_run: cannot read -batch \"%1/missing.txt\": No such file or directory";
    QTest::newRow("script, Tcl error") << script + "broken.tcl" << 2
                                       << "pgm_host: %1/broken.tcl line 2: missing close-brace";
    QTest::newRow("script without a file") << "--script" << 2 << "pgm_host: --script needs a file";
}

void TEST_HOST::exit_status()
{
    QFETCH(QString, arguments);
    QFETCH(int, status);
    QFETCH(QString, told);
    QTemporaryDir dir;
    const QDir folder(dir.path());
    write_file(folder, "site.ini", "[kiopru]\nwork_dir=" + folder.filePath("work") + "\n");
    write_file(folder, "pass.txt", BATCH_LINE.arg("BR5-TV1-ES"));
    write_file(folder, "fail.txt", BATCH_LINE.arg("BR5-TV1-ES") + BATCH_LINE.arg("CD5-TV2-ES"));
    write_file(folder, "run.tcl",
               "kiopru_run -batch [lindex $argv 0] -bench-cable {Bench-USB [1-1]} -dut-cable {DUT-USB [1-2]}\n");
    write_file(folder, "broken.tcl", "puts start\nif {1} {\n");

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        environment.remove(variable);
    QProcess host;
    host.setProcessEnvironment(environment);
    host.start(QCoreApplication::applicationDirPath() + "/pgm_host", arguments.replace("%1", dir.path()).split(' '));
    QVERIFY(host.waitForFinished(60000));
    const QString stderr_text = QString::fromLocal8Bit(host.readAllStandardError());
    QCOMPARE(host.exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.exitCode(), status);
    for (const QString& line : told.replace("%1", dir.path()).split('|'))
        QVERIFY2(stderr_text.split('\n').contains(line), qPrintable(stderr_text));
    if (!arguments.contains("--script"))
        QCOMPARE(stderr_text.count('\n'), 1);
}

int main(int argc, char** argv)
{
    HOST_APPLICATION app(argc, argv);
    TEST_HOST test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_host.moc"
