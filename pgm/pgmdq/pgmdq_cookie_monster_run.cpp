// The Kiopru panel's run: the list reduced to its commands, the processes confirmed in the
// process dialog (or answered for an unattended run), the raw file and the execution under the
// busy dialog, and the counts of its verdicts.
#include "pgmdq_msgs.h"

#include "pgmdq_cookie_monster.h"

#include "pgmdq_miscellaneous.h"
#include "pgmdq_miscellaneous_files.h"

#include "pgmd_cm.h"
#include "tfcq.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>

#include <algorithm>
#include <memory>

std::vector<std::string> PGMDQ_COOKIE_MONSTER::list_lines() const
{
    std::vector<std::string> lines;
    for (int i = 0; i < m_cmd_widget->count(); ++i)
        lines.push_back(pgmdq_local8(m_cmd_widget->item(i)->text()));
    return lines;
}

QStringList PGMDQ_COOKIE_MONSTER::command_lines() const
{
    QStringList commands;
    for (int i = 0; i < m_cmd_widget->count(); ++i)
        if (is_command_line(m_cmd_widget->item(i)->text()))
            commands << m_cmd_widget->item(i)->text();
    return commands;
}

void PGMDQ_COOKIE_MONSTER::delete_item(int row)
{
    m_cmd_widget->removeItemWidget(m_cmd_widget->item(row));
    delete m_cmd_widget->takeItem(row);
}

// Only the commands stay; the generator may reorder them, and repeats collapse on the way back.
void PGMDQ_COOKIE_MONSTER::optimize_test_case()
{
    for (int row = m_cmd_widget->count() - 1; row >= 0; --row)
        if (!is_command_line(m_cmd_widget->item(row)->text()))
            delete_item(row);
    m_results.clear();
    m_result_counts_label->clear();
    std::vector<std::string> lines = list_lines();
    const unsigned count = unsigned(lines.size());
    m_cmd_widget->clear();
    const std::unique_ptr<std::string[]> optimized(m_manager->get_generator()->optimize_test_case(count, lines.data()));
    for (unsigned i = 0; i < count; ++i)
        add_cmd(pgmdq_from_local8(optimized[i]), PGMDQ_CMD_COLOR);
}

void PGMDQ_COOKIE_MONSTER::on_run_test()
{
    optimize_test_case();
    if (!determine_process(false))
        return;
    TFCQ_BUSY_DLG busy(tr("Please wait while Monster is processing..."), tr("Programmer Kiopru and Checker"), this);
    generate_raw_file();
    if (!m_skip_engine)
        execute_test();
}

// A batch without commands needs no process: there is nothing to confirm, and the raw-file step
// reports the empty batch.
bool PGMDQ_COOKIE_MONSTER::determine_process(bool silent)
{
    std::vector<std::string> lines = list_lines();
    std::vector<std::string> processes =
        m_manager->get_generator()->determine_process(unsigned(lines.size()), lines.data());
    m_skip_flash = false;
    m_skip_engine = false;
    if (silent)
        return false;
    if (processes.empty())
        return true;

    PGMDQ_PROCESS_DLG dialog(processes, nullptr);
    if (exec_process_dialog(dialog) != QDialog::Accepted)
        return false;
    processes = dialog.get_processes();
    m_skip_flash = dialog.m_skip_flash_check->isChecked();
    m_skip_engine = dialog.m_skip_engine_check->isChecked();
    for (const std::string& process : processes)
        add_cmd(pgmdq_from_local8(process), PGMDQ_PROCESS_COLOR);
    return true;
}

// An unattended run answers as a user would: the two skip boxes as asked, then "Ok".
int PGMDQ_COOKIE_MONSTER::exec_process_dialog(PGMDQ_PROCESS_DLG& dialog)
{
    if (!m_process_answer)
        return dialog.exec();
    dialog.m_skip_flash_check->setChecked(m_process_answer->skip_flash);
    dialog.m_skip_engine_check->setChecked(m_process_answer->skip_engine);
    dialog.accept();
    return dialog.result();
}

void PGMDQ_COOKIE_MONSTER::show_result_counts()
{
    const auto passed =
        std::count_if(m_results.begin(), m_results.end(), [](const TEST_RESULT& r) { return r.passed; });
    m_result_counts_label->setText(tr("%1 passed, %2 failed").arg(passed).arg(qint64(m_results.size()) - passed));
}

void PGMDQ_COOKIE_MONSTER::on_list_change()
{
    m_delete_button->setEnabled(!m_cmd_widget->selectedItems().isEmpty());
}

int PGMDQ_COOKIE_MONSTER::determine_hardware()
{
    const unsigned DUT_ID_SLOTS = 4;
    std::unique_ptr<bool[]> present(new bool[DUT_ID_SLOTS]());
    std::unique_ptr<unsigned[]> ids(new unsigned[DUT_ID_SLOTS]());
    bool* present_array = present.get();
    unsigned* id_array = ids.get();
    return m_manager->get_engine()->read_dut_id(&present_array, &id_array);
}
