// The Kiopru panel's run: the batch reduced to its commands, the processes confirmed in the
// process dialog (or answered for an unattended run), the raw file and the execution under the
// busy dialog, and the counts of its verdicts.
#include "pgmdq_msgs.h"

#include "pgmdq_cookie_monster.h"

#include "pgmdq_miscellaneous.h"
#include "pgmdq_miscellaneous_files.h"

#include "pgmd_cm.h"
#include "tfcq.h"

#include <QLabel>

#include <algorithm>
#include <memory>

// Only the commands stay; the generator may reorder them, and repeats collapse on the way back.
void PGMDQ_COOKIE_MONSTER::optimize_test_case()
{
    for (int row = m_batch.count() - 1; row >= 0; --row)
        if (m_batch.line(row).kind != PGMDQ_COOKIE_MONSTER_MODEL::COMMAND)
            delete_item(row);
    m_result_counts_label->clear();
    std::vector<std::string> lines = m_batch.shown_texts();
    const unsigned count = unsigned(lines.size());
    clear_lines();
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
    std::vector<std::string> lines = m_batch.shown_texts();
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

int PGMDQ_COOKIE_MONSTER::generate_raw_file()
{
    std::vector<std::string> lines = m_batch.shown_texts();
    const unsigned count = unsigned(lines.size());
    PGMDQ_ASSERT(count > 0);
    return m_manager->generate_raw_file(count, lines.data());
}

// Lines after a verdict are its details and take its colour.
bool PGMDQ_COOKIE_MONSTER::execute_test()
{
    std::vector<std::string> lines = m_batch.shown_texts();
    const unsigned count = unsigned(lines.size());
    PGMDQ_ASSERT(count > 0);
    const std::vector<std::string> results = m_manager->execute_test(count, lines.data(), m_skip_flash);
    unsigned color = PGMDQ_CMD_COLOR;
    for (const std::string& result : results) {
        const QString line = pgmdq_from_local8(result);
        const bool passed = result.find(PGMD_PASS_INDICATOR) != std::string::npos;
        if (passed || result.find(PGMD_FAIL_INDICATOR) != std::string::npos) {
            color = passed ? PGMDQ_PASS_RESULT_COLOR : PGMDQ_FAIL_RESULT_COLOR;
            add_cmd(line, color);
        } else {
            PGMDQ_ASSERT(color == PGMDQ_PASS_RESULT_COLOR || color == PGMDQ_FAIL_RESULT_COLOR);
            append_line({PGMDQ_COOKIE_MONSTER_MODEL::DETAIL, line, color});
        }
    }
    show_result_counts();
    return true;
}

void PGMDQ_COOKIE_MONSTER::show_result_counts()
{
    const std::vector<PGMDQ_COOKIE_MONSTER_MODEL::RESULT> results = m_batch.results();
    const auto passed = std::count_if(results.begin(), results.end(),
                                      [](const PGMDQ_COOKIE_MONSTER_MODEL::RESULT& result) { return result.passed; });
    m_result_counts_label->setText(tr("%1 passed, %2 failed").arg(passed).arg(qint64(results.size()) - passed));
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
