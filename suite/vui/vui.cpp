#include "vui.h"

#include "tfcq.h"
#include "ttcl.h"

#include <QApplication>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QTreeWidget>

namespace {

struct STOCK_ACTION {
    VUI_MENU_ENUM menu;
    VUI_ACTION_ENUM action;
    const char* text;
    bool separator_before;
};

const char* const MENU_TITLES[VUI_MENU_COUNT] = {"&File",       "&Edit",   "&View",  "&Project",
                                                 "P&rocessing", "&Window", "&Tools", "&Help"};

// The stock menus' contents, in order.
const STOCK_ACTION STOCK_ACTIONS[] = {
    {VUI_MENU_FILE, VUI_ACTION_NEW, "&New...", false},
    {VUI_MENU_FILE, VUI_ACTION_OPEN, "&Open...", false},
    {VUI_MENU_FILE, VUI_ACTION_CLOSE, "&Close", false},
    {VUI_MENU_FILE, VUI_ACTION_SAVE, "&Save", true},
    {VUI_MENU_FILE, VUI_ACTION_SAVE_AS, "Save &As...", false},
    {VUI_MENU_FILE, VUI_ACTION_PAGE_SETUP, "Page Set&up...", true},
    {VUI_MENU_FILE, VUI_ACTION_PRINT_PREVIEW, "Print Pre&view", false},
    {VUI_MENU_FILE, VUI_ACTION_PRINT, "&Print...", false},
    {VUI_MENU_FILE, VUI_ACTION_EXIT, "E&xit", true},
    {VUI_MENU_EDIT, VUI_ACTION_UNDO, "&Undo", false},
    {VUI_MENU_EDIT, VUI_ACTION_REDO, "&Redo", false},
    {VUI_MENU_EDIT, VUI_ACTION_CUT, "Cu&t", true},
    {VUI_MENU_EDIT, VUI_ACTION_COPY, "&Copy", false},
    {VUI_MENU_EDIT, VUI_ACTION_PASTE, "&Paste", false},
    {VUI_MENU_EDIT, VUI_ACTION_SELECT_ALL, "Select &All", true},
    {VUI_MENU_EDIT, VUI_ACTION_FIND, "&Find...", false},
    {VUI_MENU_VIEW, VUI_ACTION_MESSAGES, "&Messages", false},
    {VUI_MENU_VIEW, VUI_ACTION_STATUS_BAR, "&Status Bar", false},
    {VUI_MENU_VIEW, VUI_ACTION_FULL_SCREEN, "&Full Screen", false},
    {VUI_MENU_VIEW, VUI_ACTION_TOOLBAR_VISIBILITY, "&Toolbar Visibility", false},
    {VUI_MENU_VIEW, VUI_ACTION_REGTEST_CONSOLE, "&Regression Test Console", true},
    {VUI_MENU_PROJECT, VUI_ACTION_PROJECT_NAVIGATOR, "Project &Navigator", false},
    {VUI_MENU_PROJECT, VUI_ACTION_PROJECT_SETTINGS, "&Settings...", false},
    {VUI_MENU_PROCESSING, VUI_ACTION_START_COMPILATION, "&Start Compilation", false},
    {VUI_MENU_PROCESSING, VUI_ACTION_STOP_PROCESSING, "S&top Processing", false},
    {VUI_MENU_WINDOW, VUI_ACTION_CASCADE, "&Cascade", false},
    {VUI_MENU_WINDOW, VUI_ACTION_TILE, "&Tile", false},
    {VUI_MENU_TOOLS, VUI_ACTION_PROGRAMMER, "&Programmer", false},
    {VUI_MENU_TOOLS, VUI_ACTION_CHAIN_DEBUGGER, "&Chain Debugger", false},
    {VUI_MENU_TOOLS, VUI_ACTION_TCL_SCRIPTS, "Tcl &Scripts...", true},
    {VUI_MENU_TOOLS, VUI_ACTION_CUSTOMIZE, "C&ustomize...", true},
    {VUI_MENU_TOOLS, VUI_ACTION_OPTIONS, "&Options...", false},
    {VUI_MENU_TOOLS, VUI_ACTION_LICENSE_SETUP, "&License Setup...", true},
    {VUI_MENU_HELP, VUI_ACTION_HELP_CONTENTS, "&Contents", false},
    {VUI_MENU_HELP, VUI_ACTION_ABOUT, "&About", true},
};

const VUI_ACTION_ENUM KEPT_TOOLS_ACTIONS[] = {VUI_ACTION_PROGRAMMER, VUI_ACTION_TCL_SCRIPTS, VUI_ACTION_OPTIONS};

struct STOCK_TOOLBAR {
    const char* title;
    VUI_ACTION_ENUM actions[3];
};

const STOCK_TOOLBAR STOCK_TOOLBARS[] = {
    {"File", {VUI_ACTION_NEW, VUI_ACTION_OPEN, VUI_ACTION_SAVE}},
    {"Edit", {VUI_ACTION_CUT, VUI_ACTION_COPY, VUI_ACTION_PASTE}},
    {"Processing", {VUI_ACTION_START_COMPILATION, VUI_ACTION_STOP_PROCESSING, VUI_ACTION_PROGRAMMER}},
};

} // namespace

void vui_use_offscreen_without_display()
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
}

void VUI_QMENU::show_all_actions(QMenu* menu, const QList<QAction*>& actions, bool show)
{
    if (!menu)
        return;
    for (QAction* action : actions)
        action->setVisible(show);
}

VUI_FRAME_WND::VUI_FRAME_WND(VUI_FRAME_INFO* info, VUI_FW_STATE_ENUM state, QWidget* parent, Qt::WindowFlags flags)
    : QMainWindow(parent, flags), m_state(state)
{
    setWindowTitle(info && !info->title.isEmpty() ? info->title + "[*]" : QStringLiteral("[*]"));
    create_stock_menus();
    create_stock_toolbars();
    m_status_display = new QLabel(tr("Ready"));
    statusBar()->addWidget(m_status_display, 1);
}

VUI_FRAME_WND::~VUI_FRAME_WND() = default;

void VUI_FRAME_WND::create_stock_menus()
{
    for (int menu = 0; menu < VUI_MENU_COUNT; ++menu)
        m_menus[menu] = menuBar()->addMenu(tr(MENU_TITLES[menu]));
    for (const STOCK_ACTION& stock : STOCK_ACTIONS) {
        if (stock.separator_before)
            m_menus[stock.menu]->addSeparator();
        add_stock_action(stock.menu, stock.action, tr(stock.text));
    }
    m_toolbar_menu = new QMenu(tr("Tool&bars"), this);
    m_toolbar_menu->addAction(tr("&Customize Toolbars..."))->setEnabled(false);
    m_menus[VUI_MENU_VIEW]->insertMenu(m_actions[VUI_ACTION_REGTEST_CONSOLE], m_toolbar_menu);

    m_actions[VUI_ACTION_SAVE]->setEnabled(false);
    m_actions[VUI_ACTION_FULL_SCREEN]->setCheckable(true);
    m_actions[VUI_ACTION_STATUS_BAR]->setCheckable(true);
    m_actions[VUI_ACTION_STATUS_BAR]->setChecked(true);
    connect(m_actions[VUI_ACTION_SAVE], &QAction::triggered, this, &VUI_FRAME_WND::save);
    connect(m_actions[VUI_ACTION_CLOSE], &QAction::triggered, this, &QWidget::close);
    connect(m_actions[VUI_ACTION_EXIT], &QAction::triggered, this, &QWidget::close);
    connect(m_actions[VUI_ACTION_MESSAGES], &QAction::triggered, this, &VUI_FRAME_WND::messages_requested);
    connect(m_actions[VUI_ACTION_TCL_SCRIPTS], &QAction::triggered, this, &VUI_FRAME_WND::run_tcl_script);
    connect(m_actions[VUI_ACTION_ABOUT], &QAction::triggered, this, &VUI_FRAME_WND::show_about);
    // The host has no help system of its own; the README documents it.
    m_actions[VUI_ACTION_HELP_CONTENTS]->setVisible(false);
    connect(m_actions[VUI_ACTION_STATUS_BAR], &QAction::toggled, this, [this](bool on) { statusBar()->setVisible(on); });
    connect(m_actions[VUI_ACTION_FULL_SCREEN], &QAction::toggled, this,
            [this](bool on) { on ? showFullScreen() : showNormal(); });
}

QAction* VUI_FRAME_WND::add_stock_action(VUI_MENU_ENUM menu, VUI_ACTION_ENUM action, const QString& text)
{
    m_actions[action] = m_menus[menu]->addAction(text);
    return m_actions[action];
}

void VUI_FRAME_WND::create_stock_toolbars()
{
    for (const STOCK_TOOLBAR& stock : STOCK_TOOLBARS) {
        QToolBar* toolbar = addToolBar(tr(stock.title));
        toolbar->setObjectName(stock.title);
        for (VUI_ACTION_ENUM action : stock.actions)
            toolbar->addAction(m_actions[action]);
        m_toolbar_menu->addAction(toolbar->toggleViewAction());
    }
}

bool VUI_FRAME_WND::is_kept_tools_action(QAction* action) const
{
    for (VUI_ACTION_ENUM kept : KEPT_TOOLS_ACTIONS)
        if (m_actions[kept] == action)
            return true;
    return false;
}

QList<QToolBar*> VUI_FRAME_WND::toolbars() const
{
    return findChildren<QToolBar*>(QString(), Qt::FindDirectChildrenOnly);
}

void VUI_FRAME_WND::remove_all_toolbars()
{
    for (QToolBar* toolbar : toolbars()) {
        m_toolbar_menu->removeAction(toolbar->toggleViewAction());
        removeToolBar(toolbar);
        delete toolbar;
    }
}

void VUI_FRAME_WND::status_display_set_visible(bool visible)
{
    m_status_display->setVisible(visible);
}

bool VUI_FRAME_WND::status_display_is_visible() const
{
    return !m_status_display->isHidden();
}

void VUI_FRAME_WND::save()
{
    setWindowModified(false);
    m_actions[VUI_ACTION_SAVE]->setEnabled(false);
}

void VUI_FRAME_WND::run_tcl_script()
{
    TFCQ_FILE_DLG dialog(this, TFCQ_FILE_DLG::OPEN_EXISTING_FILE, tr("Tcl Scripts"), tr("Tcl Scripts (*.tcl)"));
    if (dialog.exec() != QDialog::Accepted || dialog.selected_files().isEmpty())
        return;
    const std::string file = dialog.selected_files().first().toLocal8Bit().toStdString();
    std::string result;
    const bool done = ttcl_source_file(ttcl_get_interpreter(), file, {}, &result);
    MSG_BASE* message = done ? static_cast<MSG_BASE*>(new MSG_I("Tcl script %1!s!/IVUI_TCL_SCRIPT"))
                             : new MSG_E("Tcl script %1!s!/EVUI_TCL_SCRIPT");
    message->fill_args(done ? file + " done: " + result : result);
    msg_post(message);
}

void VUI_FRAME_WND::show_about()
{
    QString text = QApplication::applicationName();
    for (const TTCL_PACKAGE_ORIGIN& package : ttcl_package_origins())
        text += "\n\n" + tr("Tcl package %1 %2, loaded from %3")
                            .arg(QString::fromStdString(package.name), QString::fromStdString(package.version),
                                 package.file.empty() ? QApplication::applicationFilePath()
                                                      : QString::fromLocal8Bit(package.file.c_str()));
    auto* about = new QMessageBox(QMessageBox::Information, tr("About"), text, QMessageBox::Ok, this);
    about->setObjectName("vui_about");
    about->setAttribute(Qt::WA_DeleteOnClose);
    about->open();
}

namespace {

const char* const KIND_NAMES[] = {"Info", "Warning", "Error", "Debug"};

QStyle::StandardPixmap kind_pixmap(MSG_KIND kind)
{
    switch (kind) {
    case MSG_KIND::WARNING: return QStyle::SP_MessageBoxWarning;
    case MSG_KIND::ERROR: return QStyle::SP_MessageBoxCritical;
    default: return QStyle::SP_MessageBoxInformation;
    }
}

} // namespace

VUI_MESSAGE_WND::VUI_MESSAGE_WND(QWidget* parent) : QDockWidget(tr("Messages"), parent), m_rows(new QTreeWidget)
{
    setObjectName("messages");
    m_rows->setColumnCount(3);
    m_rows->setHeaderLabels({tr("Type"), tr("ID"), tr("Message")});
    m_rows->setRootIsDecorated(false);
    m_rows->header()->setStretchLastSection(true);
    setWidget(m_rows);
    msg_set_sink(this);
}

VUI_MESSAGE_WND::~VUI_MESSAGE_WND()
{
    if (msg_get_sink() == this)
        msg_set_sink(nullptr);
}

void VUI_MESSAGE_WND::receive(MSG_KIND kind, int id, const std::string& text)
{
    QMetaObject::invokeMethod(this, "add_row", Qt::AutoConnection, Q_ARG(int, int(kind)), Q_ARG(int, id),
                              Q_ARG(QString, QString::fromLocal8Bit(text.c_str())));
}

void VUI_MESSAGE_WND::add_row(int kind, int id, const QString& text)
{
    auto* row = new QTreeWidgetItem(m_rows, {tr(KIND_NAMES[kind]), id ? QString::number(id) : QString(), text});
    row->setIcon(0, QApplication::style()->standardIcon(kind_pixmap(MSG_KIND(kind))));
    m_rows->scrollToItem(row);
}

int VUI_MESSAGE_WND::row_count() const
{
    return m_rows->topLevelItemCount();
}

QString VUI_MESSAGE_WND::row_text(int row) const
{
    return m_rows->topLevelItem(row)->text(2);
}

QString VUI_MESSAGE_WND::row_type(int row) const
{
    return m_rows->topLevelItem(row)->text(0);
}
