// The Kiopru panel's saved batches: "Load batch" reads one back into the list, validated line by
// line as "Create Test" validates; and unattended runs of a batch (the kiopru_run command) that
// go through the panel's own steps.
#include "pgmdq_msgs.h"

#include "pgmdq_cookie_monster.h"

#include "pgmdq_miscellaneous.h"
#include "pgmdq_miscellaneous_files.h"
#include "pgmdq_miscellaneous_junit.h"
#include "pgmdq_tcl_commands.h"

#include "pgmd_cm.h"
#include "tfcq.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace {

const char* const ENGINE_SKIPPED_REASON = "Skip engine operation";
const char* const NO_VERDICT_REASON = "the test manager gave no verdict for this test";

// Points `slot` at `value` for its lifetime, however the scope ends.
template <class VALUE> class POINTER_SCOPE {
public:
    POINTER_SCOPE(const VALUE*& slot, const VALUE* value) : m_slot(slot) { m_slot = value; }
    ~POINTER_SCOPE() { m_slot = nullptr; }
    POINTER_SCOPE(const POINTER_SCOPE&) = delete;
    POINTER_SCOPE& operator=(const POINTER_SCOPE&) = delete;

private:
    const VALUE*& m_slot;
};

PGMDQ_JUNIT_CASE test_case(const QString& command, const PGMDQ_COOKIE_MONSTER_MODEL::RESULT* result,
                           bool engine_skipped)
{
    PGMDQ_JUNIT_CASE test;
    test.name = pgmdq_local8(command);
    if (engine_skipped || !result) {
        test.outcome = engine_skipped ? PGMDQ_JUNIT_CASE::SKIPPED : PGMDQ_JUNIT_CASE::FAILED;
        test.message = engine_skipped ? ENGINE_SKIPPED_REASON : NO_VERDICT_REASON;
        return test;
    }
    test.outcome = result->passed ? PGMDQ_JUNIT_CASE::PASSED : PGMDQ_JUNIT_CASE::FAILED;
    test.message = pgmdq_local8(result->verdict);
    test.lines.push_back(test.message);
    for (const QString& detail : result->details)
        test.lines.push_back(pgmdq_local8(detail));
    return test;
}

std::string problem_text(const std::string& path, const PGMDQ_COOKIE_MONSTER::BATCH_LINE_PROBLEM& problem)
{
    return "Line " + std::to_string(problem.line_number) + " of " + path +
           " not loaded: " + pgmdq_local8(problem.reason);
}

} // namespace

// Processes and results of an earlier run are kept in a saved batch too; a new run makes its own.
bool PGMDQ_COOKIE_MONSTER::is_run_output(const QString& text)
{
    return text.startsWith(pgmdq_from_local8(PGMD_CM_PROCESS_STRING)) ||
           text.startsWith(PGMDQ_COOKIE_MONSTER_MODEL::DETAIL_PREFIX) ||
           text.contains(pgmdq_from_local8(PGMD_PASS_INDICATOR)) || text.contains(pgmdq_from_local8(PGMD_FAIL_INDICATOR));
}

void PGMDQ_COOKIE_MONSTER::on_load_batch()
{
    TFCQ_FILE_DLG dialog(nullptr, TFCQ_FILE_DLG::OPEN_EXISTING_FILE, tr("Load Batch"), tr("Text Files (*.txt)"));
    if (dialog.exec() != QDialog::Accepted || dialog.selected_files().isEmpty())
        return;
    std::vector<BATCH_LINE_PROBLEM> problems;
    load_batch(pgmdq_local8(dialog.selected_files().first()), &problems);
}

bool PGMDQ_COOKIE_MONSTER::load_batch(const std::string& path, std::vector<BATCH_LINE_PROBLEM>* problems)
{
    QFile file(pgmdq_from_local8(path));
    if (!file.open(QIODevice::ReadOnly)) {
        msg_post(MSG_PGMDQ::E::FILE_IO_ERROR(path + " (" + pgmdq_local8(file.errorString()) + ")"));
        return false;
    }
    unsigned run_output_lines = 0;
    for (int number = 1; !file.atEnd(); ++number) {
        const QString line = pgmdq_from_local8(file.readLine().toStdString()).trimmed();
        if (line.isEmpty())
            continue;
        if (!is_command_line(line) && is_run_output(line)) {
            ++run_output_lines;
            continue;
        }
        CASE_ROWS rows{};
        const QString problem = command_line_problem(line, &rows);
        if (problem.isEmpty())
            add_command_line(rows);
        else
            problems->push_back({number, line, problem});
    }
    post_batch_problems(path, *problems, run_output_lines);
    return true;
}

void PGMDQ_COOKIE_MONSTER::post_batch_problems(const std::string& path, const std::vector<BATCH_LINE_PROBLEM>& problems,
                                               unsigned run_output_lines)
{
    for (const BATCH_LINE_PROBLEM& problem : problems)
        msg_post(MSG_PGMDQ::E::PGMDQ_COMMON_ERROR_MSG(problem_text(path, problem)));
    if (run_output_lines)
        msg_post(MSG_PGMDQ::I::PGMDQ_COMMON_MSG(path + ": " + std::to_string(run_output_lines) +
                                                " line(s) of an earlier run (processes, results) not loaded"));
}

PGMDQ_JUNIT_SUITE PGMDQ_COOKIE_MONSTER::run_unattended(bool skip_flash, bool skip_engine, const std::string& suite_name)
{
    const PROCESS_ANSWER answer{skip_flash, skip_engine};
    QElapsedTimer timer;
    timer.start();
    {
        const POINTER_SCOPE<PROCESS_ANSWER> scope(m_process_answer, &answer);
        on_run_test();
    }
    PGMDQ_JUNIT_SUITE suite;
    suite.name = suite_name;
    suite.seconds = timer.elapsed() / 1000.0;
    const QStringList commands = m_batch.commands();
    const std::vector<PGMDQ_COOKIE_MONSTER_MODEL::RESULT> results = m_batch.results();
    for (int i = 0; i < commands.size(); ++i)
        suite.cases.push_back(
            test_case(commands[i], size_t(i) < results.size() ? &results[size_t(i)] : nullptr, m_skip_engine));
    return suite;
}

namespace {

// The cable the panel's bench knows by this name, bound as the "..." button binds the one chosen.
bool bind_cable(PGMDQ_COOKIE_MONSTER& panel, PGMD_CM_BENCH& bench, bool dut, const std::string& name,
                std::string* error)
{
    unsigned handle = 0;
    if (!pgmdq_tcl_hardware_handle(bench, name, &handle, error))
        return false;
    if (!panel.set_hardware(dut, handle)) {
        *error = "the JTAG hardware \"" + name + "\" cannot be used";
        return false;
    }
    return true;
}

void post_progress(const std::string& text)
{
    msg_post(MSG_PGMDQ::I::PGMDQ_COMMON_MSG("kiopru_run: " + text));
}

} // namespace

bool pgmdq_kiopru_run(const TTCL_ARGS& args, PGMDQ_TCL_RESULT* result, std::string* error)
{
    const std::string& batch = args.value(PGMDQ_TCL_OPTION_BATCH);
    const std::shared_ptr<PGMD_CM_BENCH> site = pgmd_cm_site_bench();
    PGMDQ_COOKIE_MONSTER panel(site);
    std::vector<PGMDQ_COOKIE_MONSTER::BATCH_LINE_PROBLEM> problems;
    if (!bind_cable(panel, *site, false, args.value(PGMDQ_TCL_OPTION_BENCH_CABLE), error) ||
        !bind_cable(panel, *site, true, args.value(PGMDQ_TCL_OPTION_DUT_CABLE), error))
        return false;
    if (!panel.load_batch(batch, &problems) || panel.batch().commands().isEmpty()) {
        *error = "the batch file \"" + batch + "\" holds no test command to run";
        return false;
    }
    post_progress(batch + ": " + std::to_string(panel.batch().commands().size()) + " test command(s) to run");
    PGMDQ_JUNIT_SUITE suite =
        panel.run_unattended(args.is_set(PGMDQ_TCL_OPTION_SKIP_FLASH), args.is_set(PGMDQ_TCL_OPTION_SKIP_ENGINE),
                             "kiopru." + pgmdq_local8(QFileInfo(pgmdq_from_local8(batch)).completeBaseName()));
    for (const PGMDQ_COOKIE_MONSTER::BATCH_LINE_PROBLEM& problem : problems) {
        PGMDQ_JUNIT_CASE skipped{
            pgmdq_local8(problem.text), PGMDQ_JUNIT_CASE::SKIPPED, problem_text(batch, problem), {}, -1};
        result->log.push_back(skipped.message);
        suite.cases.push_back(skipped);
    }
    for (const PGMDQ_JUNIT_CASE& test : suite.cases)
        if (test.outcome != PGMDQ_JUNIT_CASE::SKIPPED)
            post_progress(test.lines.empty() ? test.name + ": " + test.message : test.lines.front());
    const std::vector<std::string> lines = panel.batch().shown_texts();
    result->log.insert(result->log.end(), lines.begin(), lines.end());
    result->suites.push_back(suite);
    return true;
}
