#include "pgmwq.h"

#include "pgmd_cm.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QVBoxLayout>

#include <cstdlib>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

namespace {

const char* const ANSWER_VARIABLE = "PGMWQ_HARDWARE_ANSWER";
const char* const CANCEL_ANSWER = "cancel";

std::mutex g_preset_mutex;
std::deque<std::optional<std::string>> g_presets; // empty optional: cancel

// The answer given without asking: the queued one first, then the environment's.
bool preset_answer(std::optional<std::string>* answer)
{
    {
        std::lock_guard<std::mutex> lock(g_preset_mutex);
        if (!g_presets.empty()) {
            *answer = g_presets.front();
            g_presets.pop_front();
            return true;
        }
    }
    const char* variable = std::getenv(ANSWER_VARIABLE);
    if (!variable || !*variable)
        return false;
    *answer = std::string(variable) == CANCEL_ANSWER ? std::nullopt : std::optional<std::string>(variable);
    return true;
}

unsigned handle_of(const std::vector<std::string>& cables, const std::optional<std::string>& name)
{
    if (!name)
        return 0;
    for (size_t i = 0; i < cables.size(); ++i)
        if (cables[i] == *name)
            return unsigned(i + 1);
    return 0;
}

// The modal dialog; 0 when cancelled or when nothing is chosen.
unsigned ask_user(const std::vector<std::string>& cables)
{
    QDialog dialog(QApplication::activeWindow());
    dialog.setObjectName("pgmwq_hardware_dialog");
    dialog.setWindowTitle(QDialog::tr("Hardware Setup"));
    auto* layout = new QVBoxLayout(&dialog);
    layout->addWidget(new QLabel(QDialog::tr("Available hardware items:"), &dialog));
    auto* list = new QListWidget(&dialog);
    for (const std::string& cable : cables)
        list->addItem(QString::fromLocal8Bit(cable.c_str()));
    if (list->count() > 0)
        list->setCurrentRow(0);
    layout->addWidget(list);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    layout->addWidget(buttons);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    QObject::connect(list, &QListWidget::itemDoubleClicked, &dialog, &QDialog::accept);
    if (dialog.exec() != QDialog::Accepted || list->currentRow() < 0)
        return 0;
    return unsigned(list->currentRow() + 1);
}

} // namespace

extern "C" void pgmwq_set_preset_answer(const char* cable_name_or_null_for_cancel)
{
    std::lock_guard<std::mutex> lock(g_preset_mutex);
    g_presets.push_back(cable_name_or_null_for_cancel ? std::optional<std::string>(cable_name_or_null_for_cancel) : std::nullopt);
}

extern "C" void pgmwq_export_hardware_dlg(unsigned* hardware)
{
    if (!hardware)
        return;
    *hardware = 0;
    const std::vector<std::string> cables = pgmd_cm_list_hardware(*pgmd_cm_site_bench());
    std::optional<std::string> answer;
    if (preset_answer(&answer))
        *hardware = handle_of(cables, answer);
    else if (qobject_cast<QApplication*>(QCoreApplication::instance()))
        *hardware = ask_user(cables);
}
