// The frame window as the host opens it: tabs, menus and toolbars, the modified flag, closing,
// and no frame without its package.
#include "msg.h"
#include "plugin_session.h"

#include <QMenu>
#include <QTabWidget>
#include <QtTest>

namespace {

QStringList visible_texts(const QList<QAction*>& actions)
{
    QStringList texts;
    for (QAction* action : actions)
        if (action->isVisible())
            texts << (action->isSeparator() ? QStringLiteral("--") : action->text());
    return texts;
}

} // namespace

class TEST_FRAME_WND : public QObject {
    Q_OBJECT
private slots:
    void tabs_in_order_first_current();
    void menus_of_a_main_window();
    void menus_of_a_separate_window();
    void closing_is_never_refused();
    void no_package_no_widgets();
};

void TEST_FRAME_WND::tabs_in_order_first_current()
{
    const PLUGIN_FRAME host;
    auto* tabs = host.frame->findChild<QTabWidget*>();
    QVERIFY(tabs);
    const std::pair<QString, const char*> expected[] = {{"Kiopru", "PGMDQ_COOKIE_MONSTER"},
                                                        {"POF Checker", "PGMDQ_POF_CHECKER"},
                                                        {"Debug Waveform Viewer", "PGMDQ_DEBUG_WAVEFORM_VIEWER"}};
    QCOMPARE(tabs->count(), 3);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(tabs->tabText(i), expected[i].first);
        QCOMPARE(tabs->widget(i)->metaObject()->className(), expected[i].second);
    }
    QCOMPARE(tabs->currentIndex(), 0);
}

// In the host's main window the frame offers no project work, toolbars, full screen or editing
// beyond copying, and shows neither the Window menu nor a status display.
void TEST_FRAME_WND::menus_of_a_main_window()
{
    const PLUGIN_FRAME host;
    PGMDQ_FRAME_WND* frame = host.frame.get();
    QCOMPARE(visible_texts(frame->stock_menu(VUI_MENU_FILE)->actions()),
             QStringList({"&New...", "&Open...", "&Close", "--", "&Save", "--", "Print Pre&view", "--", "--",
                          "E&xit"}));
    QCOMPARE(visible_texts(frame->stock_menu(VUI_MENU_EDIT)->actions()), QStringList({"&Copy", "Select &All"}));
    QCOMPARE(visible_texts(frame->stock_menu(VUI_MENU_VIEW)->actions()), QStringList({"&Messages", "--", "--"}));
    QCOMPARE(visible_texts(frame->tools_menu()->actions()),
             QStringList({"&Programmer", "Tcl &Scripts...", "--", "&Options..."}));
    for (VUI_ACTION_ENUM disabled : {VUI_ACTION_NEW, VUI_ACTION_OPEN, VUI_ACTION_SAVE})
        QVERIFY(!frame->stock_action(disabled)->isEnabled());
    for (VUI_MENU_ENUM hidden : {VUI_MENU_PROJECT, VUI_MENU_PROCESSING, VUI_MENU_WINDOW})
        QVERIFY(!frame->stock_menu(hidden)->menuAction()->isVisible());
    QVERIFY(frame->toolbars().isEmpty());
    QVERIFY(!frame->toolbar_menu()->menuAction()->isVisible());
    QVERIFY(!frame->status_display_is_visible());
}

// A separate window keeps them, but not the Window menu or the status display either.
void TEST_FRAME_WND::menus_of_a_separate_window()
{
    const PLUGIN_FRAME host(VUI_FW_STATE_SEPARATE_WINDOW);
    PGMDQ_FRAME_WND* frame = host.frame.get();
    QVERIFY(frame->stock_action(VUI_ACTION_NEW)->isEnabled());
    QVERIFY(frame->stock_menu(VUI_MENU_PROJECT)->menuAction()->isVisible());
    QVERIFY(frame->stock_action(VUI_ACTION_FULL_SCREEN)->isVisible());
    QCOMPARE(frame->toolbars().size(), 3);
    QVERIFY(frame->toolbar_menu()->actions().first()->isEnabled());
    QVERIFY(!frame->stock_menu(VUI_MENU_WINDOW)->menuAction()->isVisible());
    QVERIFY(!frame->status_display_is_visible());
}

// Save clears the modified flag; closing asks nothing, not even with changes unsaved; reject
// closes the host's window around the frame too.
void TEST_FRAME_WND::closing_is_never_refused()
{
    PLUGIN_SESSION session;
    QWidget host;
    VUI_FRAME_INFO info{"Embedded"};
    auto* frame = new PGMDQ_FRAME_WND(&info, VUI_FW_STATE_SEPARATE_WINDOW, &host);
    host.show();
    frame->show();
    QVERIFY(QTest::qWaitForWindowExposed(frame));
    QVERIFY(!frame->isWindowModified() && !frame->stock_action(VUI_ACTION_SAVE)->isEnabled());
    QMetaObject::invokeMethod(frame, "set_window_modified");
    QVERIFY(frame->isWindowModified() && frame->stock_action(VUI_ACTION_SAVE)->isEnabled());
    frame->stock_action(VUI_ACTION_SAVE)->trigger();
    QVERIFY(!frame->isWindowModified());

    QMetaObject::invokeMethod(frame, "set_window_modified");
    QVERIFY(frame->close());
    QVERIFY(!frame->isVisible() && host.isVisible());
    QVERIFY(QApplication::activeModalWidget() == nullptr);
    frame->show();
    QVERIFY(QMetaObject::invokeMethod(frame, "reject"));
    QVERIFY(!frame->isVisible() && !host.isVisible());
}

void TEST_FRAME_WND::no_package_no_widgets()
{
    Tcl_Interp* bare = Tcl_CreateInterp();
    ttcl_set_interpreter(bare);
    const int widgets_before = QApplication::allWidgets().size();
    try {
        VUI_FRAME_INFO info{"Bare"};
        delete pgm_pgmdq_create_frame_wnd(VUI_FW_STATE_MAIN_WINDOW, &info);
        QFAIL("the frame was created without its package");
    } catch (const MSG_INTERNAL_ERROR_EXCEPTION& error) {
        QCOMPARE(QString::fromStdString(error.text()),
                 QStringLiteral("::ttcl_package_require(::ttcl_get_interpreter(), \"pgmdq\") == TCL_OK"));
        QCOMPARE(QString::fromStdString(error.file()), QStringLiteral("pgmdq_frame_wnd"));
    }
    QCOMPARE(QApplication::allWidgets().size(), widgets_before);
    ttcl_set_interpreter(nullptr);
    Tcl_DeleteInterp(bare);
}

QTEST_MAIN(TEST_FRAME_WND)
#include "test_frame_wnd.moc"
