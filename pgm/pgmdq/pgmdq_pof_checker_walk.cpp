#include "pgmdq_pof_checker_private.h"

#include "tfcq.h"
#include "thr.h"

#include <QCheckBox>
#include <QLineEdit>

using namespace pgmdq_pof;

// ---------------------------------------------------------------------------------------------
// Inputs of a die

bool PGMDQ_POF_CHECKER::check_sof2img()
{
    const PGMDQ_POF_FAMILY& family = PGMDQ_POF_FAMILY_LIST[m_family_index];
    m_sof2img_exe = family.key + "_sof2img.exe";
    m_sof2img_path = get_test_dir() + "sof2img" + "/" + m_sof2img_exe;
    m_checked_path = m_sof2img_path;
    if (exists(m_sof2img_path))
        return true;
    update_path_missing("SOF2IMG executable of " + family.display_name);
    return false;
}

bool PGMDQ_POF_CHECKER::check_rif()
{
    const std::string& family_key = PGMDQ_POF_FAMILY_LIST[m_family_index].key;
    const std::string& die = PGMDQ_POF_DIE_LIST[m_die_index].die;
    // Family directory, die directory, die name as the file name.
    m_rif_path = get_test_dir() + family_key + "/" + die + "/" + die + ".rif";
    m_rk_rif_path = RK_LINUX_TEST_DIR + family_key + "/" + die + "/" + die + ".rif";
    m_checked_path = m_rif_path;
    if (exists(m_rif_path))
        return true;
    update_path_missing("Redundancy file of " + die);
    return false;
}

void PGMDQ_POF_CHECKER::update_path_missing(std::string what)
{
    update_msg(PGMDQ_MSG_TYPE_ERROR, what + " is missing (" + m_checked_path + ")");
}

void PGMDQ_POF_CHECKER::prepare_sof_memory(unsigned n)
{
    m_sof_files.reset();
    m_sof_size = n;
    if (n == 0)
        return;
    m_sof_files.reset(new (std::nothrow) PGMDQ_POF_SOF_FILE[n]);
    PGMDQ_ASSERT(m_sof_files != NULL);
}

// ---------------------------------------------------------------------------------------------
// The check of a release (regression) or of one directory (personal test)

void PGMDQ_POF_CHECKER::on_pof_check()
{
    // A second "Check" while one runs (a script's, or a click that slipped through) starts nothing.
    if (m_run.busy)
        return;
    m_run = PGMDQ_POF_RUN();
    if (!account_is_valid())
        return;
    const bool have_test_dir = get_current_dir();
    clear_crc_lists();
    m_skip_img = !m_regression && m_skip_img_check->isChecked();
    m_skip_dat = !m_regression && m_skip_dat_check->isChecked();
    m_skip_icd_rbf = !m_regression && m_skip_icd_rbf_check->isChecked();
    m_run.work_root = m_current_path;
    m_run.rk_work_root = m_rk_die_dir;

    // However the run ends, no worker batch, no generated script (the log-in scripts carry the
    // password) and no temporary file outlives it.
    struct RUN_END {
        PGMDQ_POF_CHECKER& checker;
        ~RUN_END()
        {
            checker.m_run.busy = nullptr;
            checker.delete_thread_batch();
            thr_allow_runs();
            checker.remove_scripts();
            checker.clear_crc_lists();
        }
    } run_end{*this};

    if (!have_test_dir) {
        update_msg(PGMDQ_MSG_TYPE_ERROR, "Fail to get test directory " + m_current_path);
        return;
    }
    thr_allow_runs();
    TFCQ_BUSY_DLG busy(tr("Please wait while Programmer is processing..."), tr("Programmer"), this);
    busy.set_cancellable();
    connect(&busy, &TFCQ_BUSY_DLG::cancel_requested, this, [] { thr_cancel_runs(); });
    m_run.busy = &busy;
    m_run.dies_done = 0;
    m_run.dies_total = m_regression ? count_regression_dies() : 1;
    if (m_regression)
        check_regression();
    else
        check_personal();
    if (thr_runs_cancelled())
        wind_down_cancelled_check();
    log_summary();
}

// The commands are ended; what the die under check was given half-made goes with the batch.
void PGMDQ_POF_CHECKER::wind_down_cancelled_check()
{
    delete_thread_batch();
    thr_allow_runs();
    if (!m_die_dir.empty() && exists(m_die_dir) && m_sof_size > 0) {
        pre_delete_others();
        delete_others_except();
        remove_work_folders();
    }
    update_msg(PGMDQ_MSG_TYPE_WARNING, "POF check cancelled");
}

unsigned PGMDQ_POF_CHECKER::count_regression_dies()
{
    unsigned dies = 0;
    for (unsigned family = 0; !PGMDQ_POF_FAMILY_LIST[family].key.empty(); ++family)
        for (unsigned row = 0; PGMDQ_POF_FAMILY_LIST[family].ready && !PGMDQ_POF_DIE_LIST[row].family.empty(); ++row)
            if (PGMDQ_POF_DIE_LIST[row].enabled &&
                equal_ignoring_case(PGMDQ_POF_DIE_LIST[row].family, PGMDQ_POF_FAMILY_LIST[family].key))
                ++dies;
    return dies;
}

// The busy dialog says which die is under check and how many of the run's dies are through.
void PGMDQ_POF_CHECKER::begin_die(const std::string& label)
{
    m_run.die_label = label;
    m_run.die_clock.start();
    if (m_run.busy)
        m_run.busy->set_progress(tr("Checking %1 - %2 of %3 dies done")
                                 .arg(pgmdq_from_local8(label))
                                 .arg(m_run.dies_done)
                                 .arg(m_run.dies_total));
}

void PGMDQ_POF_CHECKER::end_die()
{
    m_run.die_times.push_back({m_run.die_label, m_run.die_clock.elapsed() / 1000.0});
    ++m_run.dies_done;
}

// Every ready family under the test directory; the first family that fails ends the run.
void PGMDQ_POF_CHECKER::check_regression()
{
    bool succeeded = true;
    for (unsigned row = 0; succeeded && !thr_runs_cancelled() && !PGMDQ_POF_FAMILY_LIST[row].key.empty(); ++row) {
        const PGMDQ_POF_FAMILY& family = PGMDQ_POF_FAMILY_LIST[row];
        if (!family.ready) {
            update_msg(PGMDQ_MSG_TYPE_WARNING, "Skip " + family.display_name + " - not ready yet");
            continue;
        }
        update_msg(PGMDQ_MSG_TYPE_INFO, "Checking " + family.display_name + " ...");
        m_family_index = row;
        succeeded = check_family_pof(family.key);
    }
}

// The user's directory, or with the recursive switch each of its sub-directories.
void PGMDQ_POF_CHECKER::check_personal()
{
    QStringList sub_dirs;
    if (cfg_is_on("PGMDQ_RECURSIVE_PERSONEL_TEST"))
        sub_dirs = QDir(pgmdq_from_local8(m_die_dir)).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    if (sub_dirs.isEmpty()) {
        check_personal_dir();
        return;
    }
    m_run.dies_total = unsigned(sub_dirs.size());
    for (const QString& sub_dir : sub_dirs) {
        if (thr_runs_cancelled())
            return;
        // The Windows separator is appended on every platform, as the sites' users give their
        // directories in that form.
        m_current_path = m_run.work_root + pgmdq_local8(sub_dir) + "\\";
        m_die_dir = m_current_path;
        m_rk_die_dir = m_run.rk_work_root + pgmdq_local8(sub_dir) + "/";
        check_personal_dir();
    }
}

// One personal directory; a failing step only ends this directory.
void PGMDQ_POF_CHECKER::check_personal_dir()
{
    begin_die(m_die_dir);
    check_personal_steps();
    delete_thread_batch();
    remove_work_folders();
    end_die();
}

void PGMDQ_POF_CHECKER::check_personal_steps()
{
    if (!check_sof())
        return;
    if (!m_skip_img) {
        if (!m_skip_dat && !m_skip_icd_rbf && !delete_others())
            return;
        if (!create_img())
            return;
    }
    PGMDQ_ASSERT(m_thread == NULL);
    if (m_skip_dat || m_sof_size == 1) {
        create_rbf();
    } else if (create_icd_dat()) {
        if (m_skip_icd_rbf)
            create_rbf();
        else
            create_rbf_in_thread();
    }
}

// The walk stops at a die whose images fail and at a directory that cannot be cleared; a die
// that cannot be checked (directory, converter or SOFs missing) does not stop it. The family's
// result is that of its last die, so a family whose last die fails ends the regression.
bool PGMDQ_POF_CHECKER::check_family_pof(std::string family)
{
    PGMDQ_ASSERT(!family.empty());
    bool found = false;
    bool walking = true;
    bool last_die = true;
    bool cont = true;
    for (unsigned row = 0; !PGMDQ_POF_DIE_LIST[row].family.empty() && walking && cont && !thr_runs_cancelled(); ++row) {
        const PGMDQ_POF_DIE& die = PGMDQ_POF_DIE_LIST[row];
        if (!equal_ignoring_case(die.family, family))
            continue;
        found = true;
        if (!die.enabled) {
            update_msg(PGMDQ_MSG_TYPE_WARNING, "Skip " + upper(die.die) + " - not ready yet");
            continue;
        }
        m_die_index = row;
        begin_die(PGMDQ_POF_FAMILY_LIST[m_family_index].display_name + " " + die.die);
        if (PGMDQ_POF_FAMILY_LIST[m_family_index].has_rif && !check_rif()) {
            last_die = walking = false;
        } else if (check_die_pof(family, die.die, cont)) {
            last_die = walking = create_img();
            if (last_die)
                create_rbf();
        } else {
            last_die = false;
        }
        end_die();
    }
    PGMDQ_ASSERT(found);
    return last_die;
}

bool PGMDQ_POF_CHECKER::check_die_pof(std::string family, std::string die, bool& cont)
{
    if (!check_die_dir(family, die)) {
        update_msg(PGMDQ_MSG_TYPE_ERROR, "File directory of " + upper(die) + " is missing (" + m_checked_path + ")");
        return false;
    }
    if (!check_sof2img() || !check_sof())
        return false;
    if (!delete_others()) {
        cont = false;
        update_msg(PGMDQ_MSG_TYPE_ERROR, "Fail to clear directory " + m_die_dir);
        return false;
    }
    return true;
}

bool PGMDQ_POF_CHECKER::check_die_dir(std::string family, std::string die)
{
    PGMDQ_ASSERT(m_current_path.size() > 0);
    // A path without any "/" is in the Windows form.
    const std::string separator = m_current_path.find('/') == std::string::npos ? "\\" : "/";
    std::string root = m_current_path;
    if (root.back() != '/' && root.back() != '\\')
        root += separator;
    m_rk_die_dir = RK_LINUX_TEST_DIR + family + "/" + die + "/";
    m_family_dir = root + family + separator;
    m_die_dir = m_family_dir + die + separator;
    m_checked_path = m_die_dir;
    return exists(m_die_dir);
}

bool PGMDQ_POF_CHECKER::check_sof()
{
    report_links(m_die_dir, QStringList("*.sof"));
    const QStringList names = dir_entries(m_die_dir, QStringList("*.sof"), QDir::Files);
    prepare_sof_memory(unsigned(names.size()));
    for (unsigned i = 0; i < m_sof_size; ++i) {
        m_sof_files[i].name = pgmdq_local8(names[int(i)]);
        m_sof_files[i].fullpath = m_die_dir + m_sof_files[i].name;
        m_sof_files[i].done = false;
        if (!exists(m_sof_files[i].fullpath))
            PGMDQ_INTERNAL_ERROR("FIO_FILE_SYSTEM::exists(m_sof_files[i].fullpath)");
    }
    if (m_sof_size == 0) {
        update_msg(PGMDQ_MSG_TYPE_ERROR, "Can't detect any sof in directory " + m_die_dir);
        return false;
    }
    m_run.login_failed = false;
    register_designs();
    remove_stale_scripts();

    // The unpacked copies are named from the work directory, as the sites' scripts always did.
    const std::string script = m_current_path + AUTO_UNZIPPED_NAME + ".pl";
    rm_rf_file(script);
    std::vector<std::string> unpacked;
    {
        PGMDQ_FILE output(create_script(script));
        PGMDQ_ASSERT(output != NULL);
        for (unsigned i = 0; i < m_sof_size; ++i) {
            const std::string packed = m_current_path + m_sof_files[i].name;
            if (!is_gzip(m_sof_files[i].fullpath) || !name_is_free(packed + ".tmp"))
                continue;
            unpacked.push_back(packed + ".tmp");
            // The shell's noclobber makes the copy a new file: never one opened through an
            // existing name or link.
            const std::string command = "set -C; gunzip -dcSf " + pgmdq_shell_quote(packed) + " > " +
                                        pgmdq_shell_quote(unpacked.back());
            std::fputs((perl_system(command) + "\n").c_str(), output.get());
        }
    }
    unzip_sofs(script, unsigned(unpacked.size()));
    for (unsigned i = 0; i < m_sof_size; ++i)
        if (is_gzip(m_sof_files[i].fullpath))
            find_design(m_sof_files[i].fullpath)->note =
                m_regression ? "stored compressed, which a regression leaves as it is: no image is made of it"
                             : "stored compressed and could not be unpacked";
    // What was not moved into place (in a regression the copies are not found) goes with the step.
    for (const std::string& copy : unpacked)
        if (is_regular_file(copy))
            rm_rf_file(copy);
    return !thr_runs_cancelled();
}

// Runs the unzip script (split over one thread per 100 files above 100) and puts every unpacked
// copy in the place of its compressed SOF.
void PGMDQ_POF_CHECKER::unzip_sofs(const std::string& script, unsigned compressed)
{
    const unsigned threads = (compressed + MAX_UNZIPS_PER_THREAD - 1) / MAX_UNZIPS_PER_THREAD;
    if (compressed > MAX_UNZIPS_PER_THREAD)
        run_thread_pl(script, ".pl", "perl", "gunzip", threads, 0, true, true);
    else if (compressed > 0)
        run_command("perl " + pgmdq_shell_quote(script));
    rm_rf_file(script);

    std::vector<std::string> delete_vector;
    std::vector<std::string> move_vector;
    for (unsigned i = 0; i < m_sof_size; ++i) {
        const std::string& sof = m_sof_files[i].fullpath;
        if (!is_gzip(sof) || !is_regular_file(sof + ".tmp"))
            continue;
        delete_vector.push_back("rm -rf " + pgmdq_shell_quote(sof));
        move_vector.push_back("mv " + pgmdq_shell_quote(sof + ".tmp") + " " + pgmdq_shell_quote(sof));
    }
    PGMDQ_ASSERT(delete_vector.size() == move_vector.size());
    // A batch needs two threads with a command each.
    const unsigned batch = unsigned(std::min<size_t>(threads, delete_vector.size()));
    if (compressed > MAX_UNZIPS_PER_THREAD && batch > 1) {
        run_thread_cmd(delete_vector, batch);
        run_thread_cmd(move_vector, batch);
        return;
    }
    for (size_t k = 0; k < delete_vector.size(); ++k) {
        run_command(delete_vector[k]);
        run_command(move_vector[k]);
    }
}

// A name the run is about to create: anything already there (a planted link above all) is left
// as it is and said once.
bool PGMDQ_POF_CHECKER::name_is_free(const std::string& path)
{
    if (!lexists(path))
        return true;
    if (is_link(path))
        report_link(path);
    else
        report_once(path, "Left existing " + path + " untouched");
    return false;
}

// Symbolic links among a directory's entries are never followed, changed or removed.
void PGMDQ_POF_CHECKER::report_links(const std::string& dir, const QStringList& patterns)
{
    const QDir::Filters every_entry = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    for (const QFileInfo& entry : QDir(pgmdq_from_local8(dir)).entryInfoList(patterns, every_entry, QDir::Name))
        if (entry.isSymLink())
            report_link(dir + pgmdq_local8(entry.fileName()));
}

void PGMDQ_POF_CHECKER::report_link(const std::string& path)
{
    report_once(path, "Left symbolic link " + path + " untouched");
}

// A finding (a path left alone, a host that refused the log-in) is told once a run.
void PGMDQ_POF_CHECKER::report_once(const std::string& key, const std::string& text, PGMDQ_MSG_TYPE type)
{
    if (m_run.reported.insert(key).second)
        update_msg(type, text);
}

// The per-thread work folders of the DAT step go when the directory is through.
void PGMDQ_POF_CHECKER::remove_work_folders()
{
    for (unsigned i = 0; i < MAX_FOLDER_THREADS; ++i) {
        const std::string folder = m_current_path + AUTO_GEN_DAT_NAME + std::to_string(i);
        if (lexists(folder) && !is_link(folder))
            rm_rf_file(folder);
    }
}
