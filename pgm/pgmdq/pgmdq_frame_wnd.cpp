#include "pgmdq_msgs.h"

#include "pgmdq_frame_wnd.h"

#include "gen.h"
#include "pgmdq_cookie_monster.h"
#include "pgmdq_debug_waveform_viewer.h"
#include "pgmdq_pof_checker.h"
#include "ttcl.h"

#include <QCloseEvent>
#include <QMenu>
#include <QTabWidget>
#include <QVBoxLayout>

PGMDQ_FRAME_WND* pgm_pgmdq_create_frame_wnd(VUI_FW_STATE_ENUM state, VUI_FRAME_INFO* info)
{
    // The package must be initialised before any panel exists.
    if (::ttcl_package_require(::ttcl_get_interpreter(), "pgmdq", nullptr, 1, 1) != TCL_OK)
        PGMDQ_INTERNAL_ERROR("::ttcl_package_require(::ttcl_get_interpreter(), \"pgmdq\") == TCL_OK");
    return new PGMDQ_FRAME_WND(info, state, nullptr, Qt::WindowFlags());
}

PGMDQ_FRAME_WND::PGMDQ_FRAME_WND(VUI_FRAME_INFO* info, VUI_FW_STATE_ENUM state, QWidget* parent,
                                 Qt::WindowFlags flags)
    : VUI_FRAME_WND(info, state, parent, flags),
      m_tab_widget(nullptr),
      m_cookie_monster(nullptr),
      m_pof_checker(nullptr),
      m_debug_waveform_viewer(nullptr)
{
    create_menus();
    create_toolbars();
    create_tabs();
    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);
    layout->addWidget(m_tab_widget);
    setCentralWidget(central);
}

PGMDQ_FRAME_WND::~PGMDQ_FRAME_WND()
{
    for (QObject* object : {static_cast<QObject*>(m_tab_widget), static_cast<QObject*>(m_cookie_monster),
                            static_cast<QObject*>(m_pof_checker), static_cast<QObject*>(m_debug_waveform_viewer)})
        if (object)
            object->disconnect();
    delete m_cookie_monster;
    m_cookie_monster = nullptr;
    delete m_pof_checker;
    m_pof_checker = nullptr;
    delete m_debug_waveform_viewer;
    m_debug_waveform_viewer = nullptr;
}

void PGMDQ_FRAME_WND::create_tabs()
{
    m_tab_widget = new (std::nothrow) QTabWidget;
    if (!m_tab_widget)
        PGMDQ_INTERNAL_ERROR("out of memory");
    else {
        m_cookie_monster = new (std::nothrow) PGMDQ_COOKIE_MONSTER(m_tab_widget);
        if (!m_cookie_monster)
            PGMDQ_INTERNAL_ERROR("out of memory");
        m_tab_widget->addTab(m_cookie_monster, tr("Kiopru"));
    }
    m_pof_checker = new (std::nothrow) PGMDQ_POF_CHECKER(m_tab_widget);
    if (!m_pof_checker)
        PGMDQ_INTERNAL_ERROR("out of memory");
    m_tab_widget->addTab(m_pof_checker, tr("POF Checker"));
    m_debug_waveform_viewer = new (std::nothrow) PGMDQ_DEBUG_WAVEFORM_VIEWER(m_tab_widget);
    if (!m_debug_waveform_viewer)
        PGMDQ_INTERNAL_ERROR("out of memory");
    m_tab_widget->addTab(m_debug_waveform_viewer, tr("Debug Waveform Viewer"));
}

void PGMDQ_FRAME_WND::create_toolbars()
{
    if (!is_main_window())
        return;
    toolbar_menu()->menuAction()->setVisible(false);
    remove_all_toolbars();
}

void PGMDQ_FRAME_WND::create_menus()
{
    adjust_file_menu();
    adjust_edit_menu();
    adjust_view_menu();
    if (is_main_window()) {
        hide_menu(stock_menu(VUI_MENU_PROJECT));
        hide_menu(stock_menu(VUI_MENU_PROCESSING));
    }
    QMenu* window_menu = stock_menu(VUI_MENU_WINDOW);
    VUI_QMENU::show_all_actions(window_menu, window_menu->actions(), false);
    window_menu->menuAction()->setVisible(false);
    strip_tools_menu();
    if (!is_main_window())
        toolbar_menu()->actions().first()->setEnabled(true);
    status_display_set_visible(false);
}

// Close, Save and Exit stay; printing and Save As go; a main window cannot make or open files.
void PGMDQ_FRAME_WND::adjust_file_menu()
{
    QMenu* file_menu = stock_menu(VUI_MENU_FILE);
    for (VUI_ACTION_ENUM action : {VUI_ACTION_CLOSE, VUI_ACTION_SAVE, VUI_ACTION_EXIT})
        stock_action(action)->setVisible(true);
    stock_action(VUI_ACTION_CLOSE)->setEnabled(true);
    stock_action(VUI_ACTION_EXIT)->setEnabled(true);
    if (!is_main_window())
        file_menu->insertSeparator(stock_action(VUI_ACTION_CLOSE));
    for (VUI_ACTION_ENUM action : {VUI_ACTION_SAVE_AS, VUI_ACTION_PAGE_SETUP, VUI_ACTION_PRINT}) {
        stock_action(action)->setVisible(false);
        stock_action(action)->setEnabled(false);
    }
    file_menu->insertSeparator(stock_action(VUI_ACTION_PRINT));
    if (is_main_window()) {
        stock_action(VUI_ACTION_NEW)->setEnabled(false);
        stock_action(VUI_ACTION_OPEN)->setEnabled(false);
    }
}

void PGMDQ_FRAME_WND::adjust_edit_menu()
{
    QMenu* edit_menu = stock_menu(VUI_MENU_EDIT);
    edit_menu->menuAction()->setVisible(true);
    if (is_main_window())
        VUI_QMENU::show_all_actions(edit_menu, edit_menu->actions(), false);
    stock_action(VUI_ACTION_COPY)->setVisible(true);
    stock_action(VUI_ACTION_SELECT_ALL)->setVisible(true);
}

void PGMDQ_FRAME_WND::adjust_view_menu()
{
    QMenu* view_menu = stock_menu(VUI_MENU_VIEW);
    if (!is_main_window()) {
        view_menu->menuAction()->setVisible(true);
        return;
    }
    for (VUI_ACTION_ENUM action : {VUI_ACTION_STATUS_BAR, VUI_ACTION_FULL_SCREEN, VUI_ACTION_TOOLBAR_VISIBILITY})
        stock_action(action)->setVisible(false);
    stock_action(VUI_ACTION_REGTEST_CONSOLE)->setVisible(tst_is_regtest_mode());
    stock_action(VUI_ACTION_MESSAGES)->activate(QAction::Trigger);
    view_menu->addSeparator();
}

void PGMDQ_FRAME_WND::hide_menu(QMenu* menu)
{
    menu->setVisible(false);
    menu->menuAction()->setVisible(false);
    VUI_QMENU::show_all_actions(menu, menu->actions(), false);
}

// Only the host's kept tools remain; the first separator after the anchor action stays.
void PGMDQ_FRAME_WND::strip_tools_menu()
{
    QMenu* tools_menu = this->tools_menu();
    PGMDQ_ASSERT(tools_menu != NULL);
    bool anchor_seen = false;
    bool separator_kept = false;
    for (QAction* action : tools_menu->actions()) {
        if (action->isSeparator() && anchor_seen && !separator_kept) {
            separator_kept = true;
            continue;
        }
        if (action == tools_separator_anchor())
            anchor_seen = true;
        if (action->isSeparator() || !is_kept_tools_action(action))
            tools_menu->removeAction(action);
    }
}

void PGMDQ_FRAME_WND::set_window_modified()
{
    setWindowModified(true);
    stock_action(VUI_ACTION_SAVE)->setEnabled(true);
}

// The host's interface asks for it; the frame has nothing to refresh.
void PGMDQ_FRAME_WND::update() {}

void PGMDQ_FRAME_WND::reject()
{
    close();
    if (parentWidget())
        parentWidget()->close();
}

// Closing is never refused and never asks: every panel keeps its own files.
void PGMDQ_FRAME_WND::closeEvent(QCloseEvent* event)
{
    event->accept();
}
