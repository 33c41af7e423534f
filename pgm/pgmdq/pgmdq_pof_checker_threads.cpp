#include "pgmdq_pof_checker_private.h"

#include "thr.h"

#include <QCheckBox>
#include <QLineEdit>

#include <fstream>

using namespace pgmdq_pof;

// ---------------------------------------------------------------------------------------------
// Worker threads

PGMWQ_POF_CHECKER_THREAD::PGMWQ_POF_CHECKER_THREAD()
    : m_thread_index(0),
      m_started(false),
      m_done(false),
      m_thread_type(0),
      m_cmd_vector(nullptr),
      m_expected_seconds(0),
      m_exit_status(0)
{
    // Both flags must start unlocked: take each mutex once without waiting and give it back.
    for (QMutex* mutex : {&m_started_mutex, &m_done_mutex})
        if (mutex->tryLock(0))
            mutex->unlock();
}

PGMWQ_POF_CHECKER_THREAD::~PGMWQ_POF_CHECKER_THREAD() = default;

bool PGMWQ_POF_CHECKER_THREAD::is_started()
{
    FLAG_LOCK lock(&m_started_mutex);
    return m_started;
}

void PGMWQ_POF_CHECKER_THREAD::set_started(bool started)
{
    FLAG_LOCK lock(&m_started_mutex);
    m_started = started;
}

bool PGMWQ_POF_CHECKER_THREAD::is_done()
{
    FLAG_LOCK lock(&m_done_mutex);
    return m_done;
}

void PGMWQ_POF_CHECKER_THREAD::set_done(bool done)
{
    FLAG_LOCK lock(&m_done_mutex);
    m_done = done;
}

void PGMWQ_POF_CHECKER_THREAD::run()
{
    switch (m_thread_type) {
    case PGMWQ_THREAD_TYPE_SINGLE_CMD:
        run_single_cmd();
        break;
    case PGMWQ_THREAD_TYPE_CMD_VECTOR:
        run_cmd_vector();
        break;
    default:
        PGMDQ_INTERNAL_ERROR("Unsupported Thread Type");
    }
    set_done(true);
}

// A remote script that returns in under a twentieth of its expected time has most likely failed
// to log in or to start; it gets two more chances.
// A cancelled run comes back at once and must not count as an early failure.
void PGMWQ_POF_CHECKER_THREAD::run_single_cmd()
{
    const auto timed_run = [this]() {
        const time_t begin = time(nullptr);
        run_command(m_cmd);
        return time(nullptr) - begin;
    };
    const time_t too_fast = time_t(m_expected_seconds / RETRY_FRACTION);
    const time_t first_run = timed_run();
    // A refused password is not tried again: the account could be locked.
    if (m_expected_seconds == 0 || first_run >= too_fast || thr_runs_cancelled() || m_exit_status == LOGIN_EXIT_REFUSED)
        return;
    const time_t second_run = timed_run();
    MSG_PGMDQ::DEBUG_MSG("Thread %d trying once", int(m_thread_index));
    if (second_run >= too_fast || thr_runs_cancelled())
        return;
    MSG_PGMDQ::DEBUG_MSG("Thread %d trying twice", int(m_thread_index));
    run_command(m_cmd);
}

void PGMWQ_POF_CHECKER_THREAD::run_cmd_vector()
{
    PGMDQ_ASSERT(DWORD(m_cmd_vector->size()) > 0);
    for (const std::string& cmd : *m_cmd_vector)
        run_command(cmd);
}

void PGMWQ_POF_CHECKER_THREAD::run_command(const std::string& command)
{
    m_exit_status = thr_run(command.c_str(), m_run_options);
    if (m_exit_status == THR_RUN_TIMED_OUT)
        m_timed_out.push_back(command);
}

namespace {

// One pass of the polling rule: acknowledges the threads that are through (both flags cleared)
// and tells whether any thread still counts as busy.
bool batch_is_busy(PGMWQ_POF_CHECKER_THREAD* threads, unsigned count)
{
    bool busy = false;
    for (unsigned i = 0; i < count; ++i) {
        PGMWQ_POF_CHECKER_THREAD& thread = threads[i];
        if (thread.isFinished() && thread.is_started() && thread.is_done()) {
            thread.set_started(false);
            thread.set_done(false);
        } else if (thread.isRunning()) {
            busy = true;
        } else if (thread.is_started() && !thread.is_done()) {
            busy = true;  // started but not yet begun
        }
    }
    return busy;
}

void wait_for_batch(PGMWQ_POF_CHECKER_THREAD* threads, unsigned count)
{
    while (batch_is_busy(threads, count))
        thr_msleep(POLL_MILLISECONDS);
}

} // namespace


// ---------------------------------------------------------------------------------------------
// Paths, shell and worker threads

// A symbolic link is never removed: it is left as it is and told.
bool PGMDQ_POF_CHECKER::rm_rf_file(const std::string& path)
{
    if (is_link(path)) {
        report_link(path);
        return false;
    }
    return run_command("rm -rf " + pgmdq_shell_quote(path)) == 0;
}

// Commands other than the log-in scripts get the site's upper time.
THR_RUN_OPTIONS PGMDQ_POF_CHECKER::command_options()
{
    THR_RUN_OPTIONS options;
    bool valid = false;
    const unsigned seconds = QString::fromStdString(COMMAND_TIMEOUT_SECONDS.str()).toUInt(&valid);
    options.timeout_seconds = valid && seconds > 0 ? seconds : DEFAULT_COMMAND_TIMEOUT_SECONDS;
    return options;
}

int PGMDQ_POF_CHECKER::run_command(const std::string& command, const THR_RUN_OPTIONS& options)
{
    const int status = thr_run(command.c_str(), options);
    if (status == THR_RUN_TIMED_OUT)
        report_timeout(command, options.timeout_seconds);
    return status;
}

int PGMDQ_POF_CHECKER::run_command(const std::string& command)
{
    return run_command(command, command_options());
}

void PGMDQ_POF_CHECKER::report_timeout(const std::string& command, unsigned seconds)
{
    update_msg(PGMDQ_MSG_TYPE_ERROR, "Ended after " + std::to_string(seconds) + " seconds: " + command);
}

// What the workers of a finished batch had to end at their upper time.
void PGMDQ_POF_CHECKER::report_timeouts(PGMWQ_POF_CHECKER_THREAD* threads, unsigned count)
{
    for (unsigned i = 0; i < count; ++i)
        for (const std::string& command : threads[i].m_timed_out)
            report_timeout(command, threads[i].m_run_options.timeout_seconds);
}

std::string PGMDQ_POF_CHECKER::standardize_dir_seperator(std::string dir, bool to_unix)
{
    const char from = to_unix ? '\\' : '/';
    const char to = to_unix ? '/' : '\\';
    std::replace(dir.begin(), dir.end(), from, to);
    if (dir.empty() || dir.back() != to)
        dir += to;
    return dir;
}

std::string PGMDQ_POF_CHECKER::get_test_dir()
{
    return m_site_check->isChecked() ? NV_LINUX_TEST_DIR.str() : RK_LINUX_TEST_DIR.str();
}

bool PGMDQ_POF_CHECKER::get_current_dir()
{
    m_current_path.clear();
    if (!m_personal_test_check->isChecked()) {
        m_current_path = get_test_dir();
        return exists(m_current_path);
    }
    PGMDQ_ASSERT(!m_dir_edit->text().isEmpty());
    const std::string text = pgmdq_local8(m_dir_edit->text());
    const std::string linux_root = m_site_check->isChecked() ? LINUX_NV_TEST_DIR.str() : LINUX_RK_TEST_DIR.str();
    m_current_path = linux_root + text;
    if (m_current_path.back() != '/')
        m_current_path += '/';
    m_family_index = get_index(true);
    m_die_index = get_index(false);
    if (!check_sof2img())
        return false;
    if (PGMDQ_POF_FAMILY_LIST[m_family_index].has_rif && !check_rif())
        return false;
    if (!exists(m_current_path))
        return false;
    // A personal directory is itself the die directory.
    m_die_dir = m_current_path;
    m_rk_die_dir = LINUX_RK_TEST_DIR + text;
    if (m_rk_die_dir.back() != '/')
        m_rk_die_dir += '/';
    return true;
}

void PGMDQ_POF_CHECKER::run_thread_cmd(std::vector<std::string> cmds, unsigned count)
{
    PGMDQ_ASSERT(count > 1);
    // Declared before the threads, so the threads go first.
    std::vector<std::vector<std::string>> cmd_vectors(count);
    for (size_t k = 0; k < cmds.size(); ++k)
        cmd_vectors[k % count].push_back(cmds[k]);
    std::unique_ptr<PGMWQ_POF_CHECKER_THREAD[]> threads(new PGMWQ_POF_CHECKER_THREAD[count]);
    for (unsigned i = 0; i < count; ++i) {
        PGMWQ_POF_CHECKER_THREAD& thread = threads[i];
        thread.m_thread_index = i;
        thread.m_thread_type = PGMWQ_THREAD_TYPE_CMD_VECTOR;
        thread.set_started(true);
        thread.m_cmd_vector = &cmd_vectors[i];
        thread.m_run_options = command_options();
        thread.start(QThread::InheritPriority);
    }
    wait_for_batch(threads.get(), count);
    report_timeouts(threads.get(), count);
}

namespace {

// Marked lines (the per-file commands) are dealt out round-robin; the rest (preamble, common
// statements) goes to every part. The read that meets the end of the file still yields a line,
// so a script ending in a line break gives one last empty line; a line longer than 511
// characters ends the split after its first 511.
void split_script(const std::string& script, const std::string& marker, std::vector<PGMDQ_FILE>& parts)
{
    std::ifstream input(script);
    size_t next_part = 0;
    do {
        char line[512] = "";
        input.getline(line, sizeof line);
        if (std::strstr(line, marker.c_str())) {
            std::fprintf(parts[next_part].get(), "%s\n", line);
            next_part = (next_part + 1) % parts.size();
        } else {
            for (PGMDQ_FILE& part : parts)
                std::fprintf(part.get(), "%s\n", line);
        }
    } while (input.good());
}

} // namespace

void PGMDQ_POF_CHECKER::run_thread_pl(std::string script, std::string ext, std::string runner, std::string marker,
                                      unsigned count, unsigned expected_seconds, bool start, bool wait,
                                      const THR_RUN_OPTIONS& options, const std::string& login_host)
{
    PGMDQ_ASSERT(count > 1);
    std::vector<std::string> part_names(count);
    std::vector<PGMDQ_FILE> output_array(count);
    for (unsigned i = 0; i < count; ++i) {
        part_names[i] = replace_tail(script, ext.size(), std::to_string(i) + ext);
        rm_rf_file(part_names[i]);
        output_array[i].reset(create_script(part_names[i]));
        PGMDQ_ASSERT(output_array[i] != NULL);
    }
    split_script(script, marker, output_array);
    output_array.clear();

    if (start) {
        PGMDQ_ASSERT(m_thread == NULL);
        m_thread.reset(new PGMWQ_POF_CHECKER_THREAD[count]);
        m_thread_count = count;
        for (unsigned i = 0; i < count; ++i) {
            PGMWQ_POF_CHECKER_THREAD& thread = m_thread[i];
            thread.m_cmd = runner + " " + pgmdq_shell_quote(part_names[i]);
            thread.m_run_options = options;
            thread.m_login_host = login_host;
            thread.m_thread_index = i;
            thread.m_thread_type = PGMWQ_THREAD_TYPE_SINGLE_CMD;
            thread.set_started(true);
            thread.m_script_file = part_names[i];
            thread.m_expected_seconds = expected_seconds;
            thread.start(QThread::InheritPriority);
        }
        if (wait) {
            wait_for_batch(m_thread.get(), count);
            delete_thread_batch();
        }
    }
    rm_rf_file(script);
}

// Deletes the batch of run_thread_pl with the split scripts its threads ran. A QThread must not
// be destroyed while it runs, so a thread that is still at work is waited for.
void PGMDQ_POF_CHECKER::delete_thread_batch()
{
    for (unsigned i = 0; m_thread && i < m_thread_count; ++i) {
        m_thread[i].wait();
        report_timeouts(&m_thread[i], 1);
        if (!m_thread[i].m_login_host.empty())
            logged_in(m_thread[i].m_exit_status, m_thread[i].m_login_host);
#if defined(__SANITIZE_THREAD__)
        // wait() joins on futexes ThreadSanitizer cannot see; the done flag's lock, taken last by
        // the thread's body, shows it the order.
        m_thread[i].is_done();
#endif
        if (!m_thread[i].m_script_file.empty())
            rm_rf_file(m_thread[i].m_script_file);
    }
    m_thread.reset();
    m_thread_count = 0;
}

bool PGMDQ_POF_CHECKER::create_thread_folder()
{
    const unsigned threads = std::min(m_sof_size, MAX_FOLDER_THREADS);
    std::vector<std::string> removals;
    std::vector<std::string> creations;
    for (unsigned i = 0; i < threads; ++i) {
        const std::string folder = m_current_path + AUTO_GEN_DAT_NAME + std::to_string(i);
        removals.push_back("rm -rf " + pgmdq_shell_quote(folder));
        creations.push_back("mkdir " + pgmdq_shell_quote(folder));
    }
    if (m_sof_size == 1) {
        run_command(removals[0]);
        run_command(creations[0]);
    } else {
        run_thread_cmd(removals, threads);
        run_thread_cmd(creations, threads);
    }
    return true;
}

bool PGMDQ_POF_CHECKER::move_img(bool move)
{
    const bool result = create_thread_folder();
    if (!move)
        return result;
    const unsigned threads = std::min(m_sof_size, MAX_FOLDER_THREADS);
    std::vector<std::string> moves;
    for (unsigned i = 0; i < m_sof_size; ++i)
        moves.push_back("mv " + pgmdq_shell_quote(replace_tail(m_sof_files[i].fullpath, 3, "img")) + " " +
                        pgmdq_shell_quote(m_current_path + AUTO_GEN_DAT_NAME + std::to_string(i % MAX_FOLDER_THREADS) + "/."));
    run_thread_cmd(moves, threads);
    return result;
}
