// The suite's frame windows: a main window with the stock menus, toolbars, toolbar menu, status
// display, main-window flag, modified flag and Save action that every tool frame starts from;
// and the message window that shows what the suite posts.
#pragma once

#include "msg.h"

#include <QDockWidget>
#include <QList>
#include <QMainWindow>

#include <array>

class QLabel;
class QMenu;
class QToolBar;
class QTreeWidget;

enum VUI_FW_STATE_ENUM {
    VUI_FW_STATE_MAIN_WINDOW,      // the frame is the application's main window
    VUI_FW_STATE_SEPARATE_WINDOW,  // the frame is a window of its own beside the host's
};

struct VUI_FRAME_INFO {
    QString title;
};

// The stock menus, in menu-bar order.
enum VUI_MENU_ENUM {
    VUI_MENU_FILE,
    VUI_MENU_EDIT,
    VUI_MENU_VIEW,
    VUI_MENU_PROJECT,
    VUI_MENU_PROCESSING,
    VUI_MENU_WINDOW,
    VUI_MENU_TOOLS,
    VUI_MENU_HELP,
    VUI_MENU_COUNT
};

// The stock actions, menu by menu.
enum VUI_ACTION_ENUM {
    VUI_ACTION_NEW,
    VUI_ACTION_OPEN,
    VUI_ACTION_CLOSE,
    VUI_ACTION_SAVE,
    VUI_ACTION_SAVE_AS,
    VUI_ACTION_PAGE_SETUP,
    VUI_ACTION_PRINT_PREVIEW,
    VUI_ACTION_PRINT,
    VUI_ACTION_EXIT,
    VUI_ACTION_UNDO,
    VUI_ACTION_REDO,
    VUI_ACTION_CUT,
    VUI_ACTION_COPY,
    VUI_ACTION_PASTE,
    VUI_ACTION_SELECT_ALL,
    VUI_ACTION_FIND,
    VUI_ACTION_MESSAGES,
    VUI_ACTION_STATUS_BAR,
    VUI_ACTION_FULL_SCREEN,
    VUI_ACTION_TOOLBAR_VISIBILITY,
    VUI_ACTION_REGTEST_CONSOLE,
    VUI_ACTION_PROJECT_NAVIGATOR,
    VUI_ACTION_PROJECT_SETTINGS,
    VUI_ACTION_START_COMPILATION,
    VUI_ACTION_STOP_PROCESSING,
    VUI_ACTION_CASCADE,
    VUI_ACTION_TILE,
    VUI_ACTION_PROGRAMMER,
    VUI_ACTION_CHAIN_DEBUGGER,
    VUI_ACTION_TCL_SCRIPTS,
    VUI_ACTION_CUSTOMIZE,
    VUI_ACTION_OPTIONS,
    VUI_ACTION_LICENSE_SETUP,
    VUI_ACTION_HELP_CONTENTS,
    VUI_ACTION_ABOUT,
    VUI_ACTION_COUNT
};

// Without a display (neither DISPLAY nor WAYLAND_DISPLAY) and with no platform chosen, windows are
// drawn offscreen, so that scripted runs work on machines without a screen. Called before the
// application object is made.
void vui_use_offscreen_without_display();

namespace VUI_QMENU {
// Shows or hides every given action of the menu.
void show_all_actions(QMenu* menu, const QList<QAction*>& actions, bool show);
}

class VUI_FRAME_WND : public QMainWindow {
    Q_OBJECT
public:
    VUI_FRAME_WND(VUI_FRAME_INFO* info, VUI_FW_STATE_ENUM state, QWidget* parent = nullptr,
                  Qt::WindowFlags flags = Qt::WindowFlags());
    ~VUI_FRAME_WND() override;

    bool is_main_window() const { return m_state == VUI_FW_STATE_MAIN_WINDOW; }
    QMenu* stock_menu(VUI_MENU_ENUM menu) const { return m_menus[menu]; }
    QAction* stock_action(VUI_ACTION_ENUM action) const { return m_actions[action]; }
    QMenu* tools_menu() const { return m_menus[VUI_MENU_TOOLS]; }
    // The Tools actions a tool frame keeps, and the one after which the first separator stays.
    bool is_kept_tools_action(QAction* action) const;
    QAction* tools_separator_anchor() const { return m_actions[VUI_ACTION_TCL_SCRIPTS]; }
    // The menu that lists the toolbars (its entry sits in the View menu).
    QMenu* toolbar_menu() const { return m_toolbar_menu; }
    QList<QToolBar*> toolbars() const;
    void remove_all_toolbars();
    void status_display_set_visible(bool visible);
    bool status_display_is_visible() const;

    virtual void get_filters(QStringList*) {}
    virtual void activate_invisible_window() {}
    virtual void change_event(QEvent*) {}
    virtual void update_actions() {}

public slots:
    virtual void update() {}

signals:
    // The user asked for the message window (the stock "Messages" action).
    void messages_requested();

protected slots:
    // The stock Save action: the frame's data is saved by its owner; the frame is clean again.
    virtual void save();
    // Tools > Tcl Scripts...: runs a chosen script in the host's interpreter; the outcome goes to
    // the message window.
    void run_tcl_script();
    // Help > About: the application and the Tcl packages it runs, with where each was loaded from.
    void show_about();

private:
    void create_stock_menus();
    void create_stock_toolbars();
    QAction* add_stock_action(VUI_MENU_ENUM menu, VUI_ACTION_ENUM action, const QString& text);

    VUI_FW_STATE_ENUM m_state;
    std::array<QMenu*, VUI_MENU_COUNT> m_menus{};
    std::array<QAction*, VUI_ACTION_COUNT> m_actions{};
    QMenu* m_toolbar_menu = nullptr;
    QLabel* m_status_display = nullptr;
};

// The host's message window: one row a posted message (Info, Warning, Error, Debug).
class VUI_MESSAGE_WND : public QDockWidget, public MSG_SINK {
    Q_OBJECT
public:
    explicit VUI_MESSAGE_WND(QWidget* parent = nullptr);
    ~VUI_MESSAGE_WND() override;

    // Safe from any thread: rows are added on the window's own thread.
    void receive(MSG_KIND kind, int id, const std::string& text) override;

    int row_count() const;
    QString row_text(int row) const;
    QString row_type(int row) const;

private slots:
    void add_row(int kind, int id, const QString& text);

private:
    QTreeWidget* m_rows;
};
