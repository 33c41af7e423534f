// The plug-in's one window: a host frame whose central widget is a tab widget holding the three
// panels, with the host's stock menus and toolbars adjusted to what the panels need.
#pragma once

#include "pgmdq_tcl_args_auto.h"

#include "vui.h"

class QTabWidget;
class PGMDQ_COOKIE_MONSTER;
class PGMDQ_POF_CHECKER;
class PGMDQ_DEBUG_WAVEFORM_VIEWER;

class PGMDQ_FRAME_WND : public VUI_FRAME_WND {
    Q_OBJECT
public:
    PGMDQ_FRAME_WND(VUI_FRAME_INFO* info, VUI_FW_STATE_ENUM state, QWidget* parent = nullptr,
                    Qt::WindowFlags flags = Qt::WindowFlags());
    ~PGMDQ_FRAME_WND() override;

public slots:
    void set_window_modified();
    void update() override;
    void reject();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void create_menus();
    void adjust_file_menu();
    void adjust_edit_menu();
    void adjust_view_menu();
    void hide_menu(QMenu* menu);
    void strip_tools_menu();
    void create_toolbars();
    void create_tabs();

    QTabWidget* m_tab_widget;
    PGMDQ_COOKIE_MONSTER* m_cookie_monster;
    PGMDQ_POF_CHECKER* m_pof_checker;
    PGMDQ_DEBUG_WAVEFORM_VIEWER* m_debug_waveform_viewer;
};

extern "C" PGMDQ_EXPORT PGMDQ_FRAME_WND* pgm_pgmdq_create_frame_wnd(VUI_FW_STATE_ENUM state, VUI_FRAME_INFO* info);
