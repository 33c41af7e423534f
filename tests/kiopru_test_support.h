// Shared by the Kiopru panel tests: finding the panel's controls the way a user sees them,
// reading the command list, and catching the panel's internal errors.
#pragma once

#include "pgmdq_cookie_monster.h"

#include "msg.h"

#include <QColor>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QString>
#include <QStringList>
#include <QtTest>

#include <utility>

// The offscreen platform warns on every top-level show that it cannot pass size hints on.
inline void kiopru_quiet_offscreen_warnings()
{
    static QtMessageHandler previous = nullptr;
    previous = qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& text) {
        if (!text.contains("does not support propagateSizeHints"))
            previous(type, context, text);
    });
}

inline QComboBox* kiopru_combo(const PGMDQ_COOKIE_MONSTER& panel, const char* name)
{
    return panel.findChild<QComboBox*>(name);
}

inline QLineEdit* kiopru_edit(const PGMDQ_COOKIE_MONSTER& panel, const char* name)
{
    return panel.findChild<QLineEdit*>(name);
}

inline QListWidget* kiopru_list(const PGMDQ_COOKIE_MONSTER& panel)
{
    return panel.findChild<QListWidget*>("m_cmd_widget");
}

inline QPushButton* kiopru_button(const PGMDQ_COOKIE_MONSTER& panel, const QString& text)
{
    for (QPushButton* button : panel.findChildren<QPushButton*>())
        if (button->text() == text)
            return button;
    return nullptr;
}

inline QPushButton* kiopru_jtag_button(const PGMDQ_COOKIE_MONSTER& panel, bool dut)
{
    return panel.findChild<QPushButton*>(dut ? "m_dut_jtag_button" : "m_cookie_jtag_button");
}

inline QStringList kiopru_items(const QComboBox* combo)
{
    QStringList items;
    for (int i = 0; i < combo->count(); ++i)
        items << combo->itemText(i);
    return items;
}

// Picks an entry as the user does; the panel listens to the selector's index change.
inline bool kiopru_choose(QComboBox* combo, const QString& text)
{
    const int index = combo->findText(text);
    if (index < 0)
        return false;
    combo->setCurrentIndex(index);
    return true;
}

inline void kiopru_click(QAbstractButton* button)
{
    QVERIFY(button);
    QVERIFY(button->isEnabled());
    QTest::mouseClick(button, Qt::LeftButton, Qt::NoModifier, QPoint(button->width() / 2, button->height() / 2));
}

inline QStringList kiopru_lines(const PGMDQ_COOKIE_MONSTER& panel)
{
    QStringList lines;
    const QListWidget* list = kiopru_list(panel);
    for (int i = 0; i < list->count(); ++i)
        lines << list->item(i)->text();
    return lines;
}

inline QColor kiopru_line_color(const PGMDQ_COOKIE_MONSTER& panel, int row)
{
    return kiopru_list(panel)->item(row)->foreground().color();
}

// The text of the panel's internal error raised by `action`, empty when there is none.
template <typename ACTION>
QString kiopru_internal_error(ACTION&& action)
{
    try {
        std::forward<ACTION>(action)();
    } catch (const MSG_INTERNAL_ERROR_EXCEPTION& error) {
        if (error.module() != "PGMDQ" || error.file() != "pgmdq_cookie_monster")
            return QString("raised by %1 in %2").arg(error.module().c_str(), error.file().c_str());
        return QString::fromStdString(error.text());
    }
    return QString();
}

inline QString kiopru_command(const QString& dut, const QString& scheme, const QString& vccpgm, const QString& memory,
                              const QString& clock)
{
    return QString("CMD @%1 @%2 @%3 @%4 @%5").arg(dut, scheme, vccpgm, memory, clock);
}
