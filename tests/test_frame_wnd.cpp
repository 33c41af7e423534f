// The frame window as the host opens it: tabs, menus and toolbars, closing.
#include "msg.h"
#include "pgmdq_frame_wnd.h"
#include "pgmdq_test.h"
#include "plugin_session.h"

#include <QMenu>
#include <QMenuBar>
#include <QSignalSpy>
#include <QTabWidget>
#include <QToolBar>
#include <QtTest>

#include <memory>

namespace {

std::unique_ptr<PGMDQ_FRAME_WND> open_frame(VUI_FW_STATE_ENUM state)
{
    static VUI_FRAME_INFO info{"Bench"};
    return std::unique_ptr<PGMDQ_FRAME_WND>(pgm_pgmdq_create_frame_wnd(state, &info));
}

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
    void meta_object_has_its_three_slots_in_order();
    void menus_of_a_main_window();
    void menus_of_a_separate_window();
    void modified_flag_enables_save();
    void closing_is_never_refused();
    void reject_closes_the_host_parent_too();
    void no_package_no_widgets();
    void test_frame_has_its_own_class_name();
};

void TEST_FRAME_WND::tabs_in_order_first_current()
{
    PLUGIN_SESSION session;
    auto frame = open_frame(VUI_FW_STATE_MAIN_WINDOW);
    auto* tabs = frame->findChild<QTabWidget*>();
    QVERIFY(tabs);
    QCOMPARE(tabs->count(), 3);
    QCOMPARE(tabs->tabText(0), QStringLiteral("Kiopru"));
    QCOMPARE(tabs->tabText(1), QStringLiteral("POF Checker"));
    QCOMPARE(tabs->tabText(2), QStringLiteral("Debug Waveform Viewer"));
    QCOMPARE(tabs->currentIndex(), 0);
    QCOMPARE(tabs->widget(0)->metaObject()->className(), "PGMDQ_COOKIE_MONSTER");
    QCOMPARE(tabs->widget(1)->metaObject()->className(), "PGMDQ_POF_CHECKER");
    QCOMPARE(tabs->widget(2)->metaObject()->className(), "PGMDQ_DEBUG_WAVEFORM_VIEWER");
}

void TEST_FRAME_WND::meta_object_has_its_three_slots_in_order()
{
    const QMetaObject& meta = PGMDQ_FRAME_WND::staticMetaObject;
    QCOMPARE(meta.className(), "PGMDQ_FRAME_WND");
    QStringList own;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        own << QString::fromLatin1(meta.method(i).methodSignature()) + (meta.method(i).methodType() == QMetaMethod::Slot ? "" : "?");
    QCOMPARE(own, QStringList({"set_window_modified()", "update()", "reject()"}));
}

void TEST_FRAME_WND::menus_of_a_main_window()
{
    PLUGIN_SESSION session;
    auto frame = open_frame(VUI_FW_STATE_MAIN_WINDOW);
    QCOMPARE(visible_texts(frame->stock_menu(VUI_MENU_FILE)->actions()),
             QStringList({"&New...", "&Open...", "&Close", "--", "&Save", "--", "Print Pre&view", "--", "--", "E&xit"}));
    QVERIFY(!frame->stock_action(VUI_ACTION_NEW)->isEnabled());
    QVERIFY(!frame->stock_action(VUI_ACTION_OPEN)->isEnabled());
    QVERIFY(frame->stock_action(VUI_ACTION_EXIT)->isEnabled());
    QVERIFY(!frame->stock_action(VUI_ACTION_SAVE)->isEnabled());
    QCOMPARE(visible_texts(frame->stock_menu(VUI_MENU_EDIT)->actions()), QStringList({"&Copy", "Select &All"}));
    QVERIFY(!frame->stock_action(VUI_ACTION_FULL_SCREEN)->isVisible());
    QVERIFY(!frame->stock_action(VUI_ACTION_REGTEST_CONSOLE)->isVisible());
    QVERIFY(frame->stock_menu(VUI_MENU_VIEW)->actions().last()->isSeparator());
    for (VUI_MENU_ENUM hidden : {VUI_MENU_PROJECT, VUI_MENU_PROCESSING, VUI_MENU_WINDOW})
        QVERIFY(!frame->stock_menu(hidden)->menuAction()->isVisible());
    QCOMPARE(visible_texts(frame->tools_menu()->actions()), QStringList({"&Programmer", "Tcl &Scripts...", "--", "&Options..."}));
    QVERIFY(frame->toolbars().isEmpty());
    QVERIFY(!frame->toolbar_menu()->menuAction()->isVisible());
    QVERIFY(!frame->status_display_is_visible());
}

void TEST_FRAME_WND::menus_of_a_separate_window()
{
    PLUGIN_SESSION session;
    auto frame = open_frame(VUI_FW_STATE_SEPARATE_WINDOW);
    QVERIFY(frame->stock_action(VUI_ACTION_NEW)->isEnabled());
    QVERIFY(frame->stock_menu(VUI_MENU_PROJECT)->menuAction()->isVisible());
    QVERIFY(frame->stock_action(VUI_ACTION_FULL_SCREEN)->isVisible());
    QCOMPARE(frame->toolbars().size(), 3);
    QVERIFY(frame->toolbar_menu()->actions().first()->isEnabled());
    QVERIFY(!frame->stock_menu(VUI_MENU_WINDOW)->menuAction()->isVisible());
    QVERIFY(!frame->status_display_is_visible());
}

void TEST_FRAME_WND::modified_flag_enables_save()
{
    PLUGIN_SESSION session;
    auto frame = open_frame(VUI_FW_STATE_MAIN_WINDOW);
    QVERIFY(!frame->isWindowModified());
    QMetaObject::invokeMethod(frame.get(), "set_window_modified");
    QVERIFY(frame->isWindowModified());
    QVERIFY(frame->stock_action(VUI_ACTION_SAVE)->isEnabled());
    frame->stock_action(VUI_ACTION_SAVE)->trigger();
    QVERIFY(!frame->isWindowModified());
}

void TEST_FRAME_WND::closing_is_never_refused()
{
    PLUGIN_SESSION session;
    auto frame = open_frame(VUI_FW_STATE_MAIN_WINDOW);
    frame->show();
    QVERIFY(QTest::qWaitForWindowExposed(frame.get()));
    QVERIFY(frame->close());
    QVERIFY(!frame->isVisible());
    QVERIFY(QApplication::activeModalWidget() == nullptr);
}

void TEST_FRAME_WND::reject_closes_the_host_parent_too()
{
    PLUGIN_SESSION session;
    QWidget host;
    VUI_FRAME_INFO info{"Embedded"};
    auto* frame = new PGMDQ_FRAME_WND(&info, VUI_FW_STATE_SEPARATE_WINDOW, &host);
    host.show();
    frame->show();
    QVERIFY(QTest::qWaitForWindowExposed(frame));
    QVERIFY(host.isVisible());
    QVERIFY(QMetaObject::invokeMethod(frame, "reject"));
    QVERIFY(!frame->isVisible());
    QVERIFY(!host.isVisible());
}

void TEST_FRAME_WND::no_package_no_widgets()
{
    Tcl_Interp* bare = Tcl_CreateInterp();
    ttcl_set_interpreter(bare);
    const int widgets_before = QApplication::allWidgets().size();
    try {
        open_frame(VUI_FW_STATE_MAIN_WINDOW);
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

void TEST_FRAME_WND::test_frame_has_its_own_class_name()
{
    PLUGIN_SESSION session;
    VUI_FRAME_INFO info{"Test"};
    PGMDQ_TEST_FRAME_WND frame(&info, VUI_FW_STATE_MAIN_WINDOW);
    QCOMPARE(frame.metaObject()->className(), "PGMDQ_TEST_FRAME_WND");
    QVERIFY(frame.inherits("PGMDQ_FRAME_WND"));
    QCOMPARE(frame.findChild<QTabWidget*>()->count(), 3);
}

QTEST_MAIN(TEST_FRAME_WND)
#include "test_frame_wnd.moc"
