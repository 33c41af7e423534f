// The host application survives an internal error raised while it handles a real click, shows
// it, and the window stays usable.
#include "host_application.h"
#include "pgmdq_frame_wnd.h"
#include "plugin_session.h"

#include <QMessageBox>
#include <QPushButton>
#include <QTabBar>
#include <QTabWidget>
#include <QtTest>

class TEST_HOST : public QObject {
    Q_OBJECT
private slots:
    void survives_an_internal_error_from_a_click();
};

void TEST_HOST::survives_an_internal_error_from_a_click()
{
    auto* app = static_cast<HOST_APPLICATION*>(QCoreApplication::instance());
    PLUGIN_SESSION session;
    VUI_FRAME_INFO info{"Host"};
    std::unique_ptr<VUI_FRAME_WND> frame(pgm_pgmdq_create_frame_wnd(VUI_FW_STATE_MAIN_WINDOW, &info));
    auto* messages = new VUI_MESSAGE_WND(frame.get());
    frame->addDockWidget(Qt::BottomDockWidgetArea, messages);
    auto* tabs = frame->findChild<QTabWidget*>();
    auto* faulty = new QPushButton("Faulty", tabs->widget(0));
    QObject::connect(faulty, &QPushButton::clicked,
                     [] { MSG_INTERNAL_ERROR::report("count > 0", "PGMDQ", "pgmdq_cookie_monster", 17); });
    frame->show();
    QVERIFY(QTest::qWaitForWindowExposed(frame.get()));

    QTest::mouseClick(faulty, Qt::LeftButton);

    QCOMPARE(app->internal_error_count(), 1);
    QMessageBox* dialog = app->internal_error_dialog();
    QVERIFY(dialog);
    QCOMPARE(dialog->windowTitle(), QStringLiteral("Internal Error"));
    QCOMPARE(dialog->text(), QStringLiteral("count > 0"));
    QVERIFY(dialog->informativeText().contains("pgmdq_cookie_monster"));
    QVERIFY(dialog->informativeText().contains("17"));
    QTRY_COMPARE(messages->row_count(), 1);
    QCOMPARE(messages->row_type(0), QStringLiteral("Error"));
    QVERIFY(messages->row_text(0).startsWith("Internal Error: count > 0"));

    dialog->button(QMessageBox::Ok)->click();
    QTRY_VERIFY(app->internal_error_dialog() == nullptr);
    QVERIFY(frame->isVisible());
    QTabBar* bar = tabs->tabBar();
    QTest::mouseClick(bar, Qt::LeftButton, Qt::NoModifier, bar->tabRect(2).center());
    QCOMPARE(tabs->currentIndex(), 2);
    QTest::mouseClick(bar, Qt::LeftButton, Qt::NoModifier, bar->tabRect(0).center());
    QCOMPARE(tabs->currentIndex(), 0);
    QTest::mouseClick(faulty, Qt::LeftButton);
    QCOMPARE(app->internal_error_count(), 2);
}

int main(int argc, char** argv)
{
    HOST_APPLICATION app(argc, argv);
    TEST_HOST test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_host.moc"
