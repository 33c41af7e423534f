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
    const bool have_test_dir = get_current_dir();
    clear_crc_lists();
    m_skip_img = !m_regression && m_skip_img_check->isChecked();
    m_skip_dat = !m_regression && m_skip_dat_check->isChecked();
    m_skip_icd_rbf = !m_regression && m_skip_icd_rbf_check->isChecked();

    // However the run ends, no worker batch and no generated script (the log-in scripts carry
    // the password) outlives it.
    struct RUN_END {
        PGMDQ_POF_CHECKER& checker;
        ~RUN_END()
        {
            checker.delete_thread_batch();
            checker.remove_scripts();
            checker.clear_crc_lists();
        }
    } run_end{*this};

    if (!have_test_dir) {
        update_msg(PGMDQ_MSG_TYPE_ERROR, "Fail to get test directory " + m_current_path);
        return;
    }
    TFCQ_BUSY_DLG busy(tr("Please wait while Programmer is processing..."), tr("Programmer"), this);
    if (m_regression)
        check_regression();
    else
        check_personal();
}

// Every ready family under the test directory; the first family that fails ends the run.
void PGMDQ_POF_CHECKER::check_regression()
{
    bool succeeded = true;
    for (unsigned row = 0; succeeded && !PGMDQ_POF_FAMILY_LIST[row].key.empty(); ++row) {
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
    const std::string current_path = m_current_path;
    const std::string rk_die_dir = m_rk_die_dir;
    for (const QString& sub_dir : sub_dirs) {
        // The Windows separator is appended on every platform, as the sites' users give their
        // directories in that form.
        m_current_path = current_path + pgmdq_local8(sub_dir) + "\\";
        m_die_dir = m_current_path;
        m_rk_die_dir = rk_die_dir + pgmdq_local8(sub_dir) + "/";
        check_personal_dir();
    }
}

// One personal directory; a failing step only ends this directory.
void PGMDQ_POF_CHECKER::check_personal_dir()
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
    delete_thread_batch();
}

bool PGMDQ_POF_CHECKER::check_family_pof(std::string family)
{
    PGMDQ_ASSERT(!family.empty());
    bool found = false;
    bool succeeded = true;
    bool cont = true;
    for (unsigned row = 0; !PGMDQ_POF_DIE_LIST[row].family.empty() && succeeded && cont; ++row) {
        const PGMDQ_POF_DIE& die = PGMDQ_POF_DIE_LIST[row];
        if (!equal_ignoring_case(die.family, family))
            continue;
        found = true;
        if (!die.enabled) {
            update_msg(PGMDQ_MSG_TYPE_WARNING, "Skip " + upper(die.die) + " - not ready yet");
            continue;
        }
        m_die_index = row;
        if (PGMDQ_POF_FAMILY_LIST[m_family_index].has_rif && !check_rif()) {
            succeeded = false;
        } else if (check_die_pof(family, die.die, cont)) {
            succeeded = create_img();
            if (succeeded)
                create_rbf();
        } else {
            // A die that cannot be checked (directory, converter or SOFs missing) does not stop
            // the family; a directory that cannot be cleared does.
            succeeded = cont;
        }
    }
    PGMDQ_ASSERT(found);
    return succeeded;
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
    if (!sof_paths_are_safe())
        return false;

    // The unpacked copies are named from the work directory, as the sites' scripts always did.
    const std::string script = m_current_path + AUTO_UNZIPPED_NAME + ".pl";
    rm_rf_file(script);
    unsigned compressed = 0;
    {
        PGMDQ_FILE output(create_script(script));
        PGMDQ_ASSERT(output != NULL);
        for (unsigned i = 0; i < m_sof_size; ++i) {
            if (!is_gzip(m_sof_files[i].fullpath))
                continue;
            ++compressed;
            const std::string packed = m_current_path + m_sof_files[i].name;
            std::fputs(("system (\"gunzip -dcSf " + packed + " > " + packed + ".tmp\");\n").c_str(), output.get());
        }
    }
    unzip_sofs(script, compressed);
    return true;
}

// The generated scripts and command lines take these paths as they are, so a SOF whose path a
// shell, Perl or Python would read as more than a name is refused, and with it the directory.
bool PGMDQ_POF_CHECKER::sof_paths_are_safe()
{
    for (unsigned i = 0; i < m_sof_size; ++i) {
        if (is_plain_word(m_sof_files[i].fullpath) && is_plain_word(m_current_path))
            continue;
        update_msg(PGMDQ_MSG_TYPE_ERROR, "Can't check " + m_sof_files[i].fullpath +
                                             " - only letters, digits and / . _ - + , = : may form its path");
        return false;
    }
    return true;
}

// Runs the unzip script (split over one thread per 100 files above 100) and puts every unpacked
// copy in the place of its compressed SOF.
void PGMDQ_POF_CHECKER::unzip_sofs(const std::string& script, unsigned compressed)
{
    const unsigned threads = (compressed + MAX_UNZIPS_PER_THREAD - 1) / MAX_UNZIPS_PER_THREAD;
    if (compressed > MAX_UNZIPS_PER_THREAD)
        run_thread_pl(script, ".pl", "perl", "gunzip", threads, 0, true, true);
    else if (compressed > 0)
        thr_run(("perl " + script).c_str());
    rm_rf_file(script);

    std::vector<std::string> delete_vector;
    std::vector<std::string> move_vector;
    for (unsigned i = 0; i < m_sof_size; ++i) {
        const std::string& sof = m_sof_files[i].fullpath;
        if (!is_gzip(sof) || !exists(sof + ".tmp"))
            continue;
        delete_vector.push_back("rm -rf " + sof);
        move_vector.push_back("mv " + sof + ".tmp" + " " + sof);
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
        thr_run(delete_vector[k].c_str());
        thr_run(move_vector[k].c_str());
    }
}
