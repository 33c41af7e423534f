// Drives the waveform viewer panel as a user does: its buttons by their texts, the hardware
// dialog and the file dialogs through their preset answers; and builds benches for it.
#pragma once

#include "pgmdq_debug_waveform_viewer.h"

#include "msg.h"
#include "pgmd_cm.h"
#include "pgmwq.h"
#include "tfcq.h"

#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QPushButton>
#include <QtTest>

#include <string>
#include <vector>

namespace wave_test {

// Messages posted to the host, with the busy dialog's texts as they were when each arrived.
class MESSAGES : public MSG_SINK {
public:
    explicit MESSAGES(QWidget* panel) : m_panel(panel) { msg_set_sink(this); }
    ~MESSAGES() override { msg_set_sink(nullptr); }

    void receive(MSG_KIND, int, const std::string& text) override
    {
        texts << QString::fromStdString(text);
        busy_texts.clear();
        for (TFCQ_BUSY_DLG* busy : m_panel->findChildren<TFCQ_BUSY_DLG*>())
            if (busy->isVisible())
                busy_texts << busy->windowTitle() << busy->text();
    }

    QStringList texts;
    QStringList busy_texts;

private:
    QWidget* m_panel;
};

inline QPushButton* button(QWidget* panel, const QString& text)
{
    for (QPushButton* candidate : panel->findChildren<QPushButton*>())
        if (candidate->text() == text)
            return candidate;
    return nullptr;
}

inline void click(QWidget* panel, const QString& text)
{
    QPushButton* target = button(panel, text);
    QVERIFY2(target, qPrintable(text));
    QTest::mouseClick(target, Qt::LeftButton);
}

// Clicks the button whose file dialog is answered with `path` (a null path cancels it).
inline void click_with_file(QWidget* panel, const QString& text, const QString& path)
{
    TFCQ_FILE_DLG::preset_answer(path);
    click(panel, text);
}

// Enabled state of Scan, Save, Read USEDW, Reset and Start, as "10110".
inline QString button_states(QWidget* panel)
{
    QString states;
    for (const char* text : {"Scan ...", "Save", "Read USEDW", "Reset", "Start"})
        states += button(panel, text)->isEnabled() ? '1' : '0';
    return states;
}

inline QJsonObject device(const QString& name, const QString& idcode, const QJsonObject& debug_ip = {},
                          const QJsonObject& faults = {})
{
    QJsonObject device{{"name", name}, {"idcode", idcode}};
    if (!debug_ip.isEmpty())
        device["debug_ip"] = debug_ip;
    if (!faults.isEmpty())
        device["faults"] = faults;
    return device;
}

inline QJsonObject cable(const QString& name, const QJsonArray& chain, const QJsonObject& faults = {})
{
    QJsonObject cable{{"name", name}, {"chain", chain}};
    if (!faults.isEmpty())
        cable["faults"] = faults;
    return cable;
}

inline bool load_bench(const QJsonArray& cables)
{
    std::string error;
    const bool loaded = pgmd_cm_load_bench(
        QJsonDocument(QJsonObject{{"cables", cables}}).toJson().toStdString(), &error);
    if (!loaded)
        qWarning("bench not loaded: %s", error.c_str());
    return loaded;
}

// Picks the cable in the hardware dialog (null cancels) and scans its chain.
inline void choose_and_scan(QWidget* panel, const char* cable_name)
{
    pgmwq_set_preset_answer(cable_name);
    click(panel, "Setup ...");
    if (button(panel, "Scan ...")->isEnabled())
        click(panel, "Scan ...");
}

} // namespace wave_test
