// Shared by the Kiopru panel tests: the panel's controls found and worked the way a user sees
// them, its dialogs answered, its command list read, its messages and internal errors caught.
#pragma once

#include "pgmdq_cookie_monster.h"

#include "msg.h"
#include "pgmwq.h"
#include "tfcq.h"
#include "widget_test_support.h"

#include <QCheckBox>
#include <QColor>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QtTest>

#include <utility>

const QString BR5 = "BR5-TV1-ES";
const QString CD5 = "CD5-TV2-ES";
const QString DN5 = "DN5-TV3-ES";
const char* const BENCH_CABLE = "Bench-USB [1-1]";
const char* const DUT_CABLE = "DUT-USB [1-2]";

// The offscreen platform warns on every top-level show that it cannot pass size hints on.
inline void kiopru_quiet_offscreen_warnings()
{
    static QtMessageHandler previous = nullptr;
    previous = qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& text) {
        if (!text.contains("does not support propagateSizeHints"))
            previous(type, context, text);
    });
}

template <class WIDGET> WIDGET* kiopru_find(const QWidget& parent, const QString& text)
{
    for (WIDGET* widget : parent.findChildren<WIDGET*>())
        if (widget->text() == text)
            return widget;
    return nullptr;
}

inline QPushButton* kiopru_button(const QWidget& parent, const QString& text)
{
    return kiopru_find<QPushButton>(parent, text);
}

inline QComboBox* kiopru_combo(const PGMDQ_COOKIE_MONSTER& panel, const char* name)
{
    return panel.findChild<QComboBox*>(name);
}

inline QString kiopru_edit_text(const PGMDQ_COOKIE_MONSTER& panel, bool dut)
{
    return panel.findChild<QLineEdit*>(dut ? "m_dut_jtag_edit" : "m_cookie_jtag_edit")->text();
}

inline QListWidget* kiopru_list(const PGMDQ_COOKIE_MONSTER& panel)
{
    return panel.findChild<QListWidget*>("m_cmd_widget");
}

// Picks an entry as the user does; the panel listens to the selector's index change.
inline bool kiopru_choose(const PGMDQ_COOKIE_MONSTER& panel, const char* combo_name, const QString& text)
{
    QComboBox* combo = kiopru_combo(panel, combo_name);
    const int index = combo->findText(text);
    combo->setCurrentIndex(index);
    return index >= 0;
}

inline void kiopru_click(QAbstractButton* button)
{
    QVERIFY(button);
    QVERIFY(button->isEnabled());
    QTest::mouseClick(button, Qt::LeftButton, Qt::NoModifier, QPoint(button->width() / 2, button->height() / 2));
}

// Picks the cable (null cancels) in the hardware dialog opened by the DUT or test-bench "...".
inline void kiopru_choose_cable(const PGMDQ_COOKIE_MONSTER& panel, bool dut, const char* cable)
{
    pgmwq_set_preset_answer(cable);
    kiopru_click(panel.findChild<QPushButton*>(dut ? "m_dut_jtag_button" : "m_cookie_jtag_button"));
}

// "Create Test" for the DUT with the given selectors' entries, the others left as they are.
inline void kiopru_create_test(const PGMDQ_COOKIE_MONSTER& panel, const QString& dut,
                               const QList<QPair<const char*, QString>>& choices = {})
{
    QVERIFY(kiopru_choose(panel, "m_dut_combo", dut));
    for (const auto& choice : choices)
        QVERIFY2(kiopru_choose(panel, choice.first, choice.second), qPrintable(choice.second));
    kiopru_click(kiopru_button(panel, "Create Test"));
}

// "Run Test", with the process dialog confirmed by "Ok" after ticking the named boxes.
inline void kiopru_run(const PGMDQ_COOKIE_MONSTER& panel, const QStringList& boxes_to_tick = {})
{
    TFCQ_DIALOG::preset_answer([boxes_to_tick](TFCQ_DIALOG* dialog) {
        for (const QString& text : boxes_to_tick)
            kiopru_click(kiopru_find<QCheckBox>(*dialog, text));
        kiopru_click(kiopru_button(*dialog, "Ok"));
        return dialog->result();
    });
    kiopru_click(kiopru_button(panel, "Run Test"));
}

inline QStringList kiopru_lines(const PGMDQ_COOKIE_MONSTER& panel)
{
    QStringList lines;
    for (int i = 0; i < kiopru_list(panel)->count(); ++i)
        lines << kiopru_list(panel)->item(i)->text();
    return lines;
}

inline QColor kiopru_line_color(const PGMDQ_COOKIE_MONSTER& panel, int row)
{
    return kiopru_list(panel)->item(row)->foreground().color();
}

template <typename ACTION> QString kiopru_internal_error(ACTION&& action, const char* source = "pgmdq_cookie_monster")
{
    return internal_error_in(source, std::forward<ACTION>(action));
}

// The messages the panel posts to the host while it lives, debug messages up to `debug_level`.
struct KIOPRU_MESSAGES : MSG_SINK {
    explicit KIOPRU_MESSAGES(MSG_D_LEVEL debug_level = 0) : previous(msg_get_sink())
    {
        msg_set_sink(this);
        msg_set_debug_level(debug_level);
    }
    ~KIOPRU_MESSAGES() override
    {
        msg_set_sink(previous);
        msg_set_debug_level(0);
    }
    void receive(MSG_KIND kind, int, const std::string& text) override
    {
        QStringList& kept = kind == MSG_KIND::ERROR ? errors : kind == MSG_KIND::DEBUG ? debug : infos;
        kept << QString::fromLocal8Bit(text.c_str());
    }
    MSG_SINK* previous;
    QStringList errors;
    QStringList infos;
    QStringList debug;
};
