#include "pgmdq_pof_checker_private.h"

#include "thr.h"

#include <QCheckBox>
#include <QLineEdit>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace pgmdq_pof;

// ---------------------------------------------------------------------------------------------
// The die directory's clean-ups

// The emulator's intermediate files and old DAT files. When DAT generation is skipped the DAT
// files present are the run's inputs, read SOF by SOF, so they stay (as the final clean-up keeps
// them); removing them after the first SOF would leave every later SOF without its ICD data.
bool PGMDQ_POF_CHECKER::pre_delete_others()
{
    report_links(m_die_dir, QStringList());
    QStringList patterns = {"*.cram", "*.redfuses", "*.dat", "*.s4_debug", "*.s4_info", "*.option_bits_out", "*.cff"};
    if (m_skip_dat)
        patterns.removeAll("*.dat");
    for (const QString& name : dir_entries(m_die_dir, patterns, QDir::Files))
        rm_rf_file(m_die_dir + pgmdq_local8(name));
    return true;
}

// Keeps the SOFs and the die's redundancy file; everything else, folders included, goes.
bool PGMDQ_POF_CHECKER::delete_others()
{
    report_links(m_die_dir, QStringList());
    const std::string rif = PGMDQ_POF_DIE_LIST[m_die_index].die + ".rif";
    unsigned match = 0;
    bool cleared = true;
    const QDir::Filters every_entry = QDir::Files | QDir::Dirs | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    for (const QString& entry : dir_entries(m_die_dir, QStringList(), every_entry)) {
        const std::string name = pgmdq_local8(entry);
        bool kept = equal_ignoring_case(name, rif);
        for (unsigned i = 0; i < m_sof_size && !kept; ++i)
            if (equal_ignoring_case(name, m_sof_files[i].name)) {
                kept = true;
                ++match;
            }
        if (!kept)
            cleared = rm_rf_file(m_die_dir + name) && cleared;
    }
    PGMDQ_ASSERT(match == m_sof_size);
    return cleared;
}


// Keeps the inputs and results; what a skipped step would have made is kept as its input.
bool PGMDQ_POF_CHECKER::delete_others_except()
{
    report_links(m_die_dir, QStringList());
    QStringList kept_patterns = {"*.sof", "*.rbf", "*.rif"};
    if (m_skip_img)
        kept_patterns << "*.img";
    if (m_skip_dat)
        kept_patterns << "*.dat";
    const QStringList kept = dir_entries(m_die_dir, kept_patterns, QDir::Files);
    for (const QString& name : dir_entries(m_die_dir, QStringList(), QDir::Files))
        if (!kept.contains(name, Qt::CaseInsensitive))
            rm_rf_file(m_die_dir + pgmdq_local8(name));
    return true;
}

// ---------------------------------------------------------------------------------------------
// Images on the image-build workstation and DAT files on the data-build host

// The work directory as the workstation sees it: the generated scripts lie there.
std::string PGMDQ_POF_CHECKER::workstation_dir()
{
    if (m_regression)
        return WORKSTATION_DATA_ROOT + TEST_SHORT_DIR;
    return WORKSTATION_DATA_ROOT + standardize_dir_seperator(pgmdq_local8(m_dir_edit->text()), true);
}

// Where the workstation finds the SOFs and writes their images: the die directory. In a
// regression that is the die's folder below the test directory, so its family and die are added
// to the work directory; without them the converter would look for the SOFs in the test
// directory itself and the images would never reach the die directory that the RBF step reads.
std::string PGMDQ_POF_CHECKER::image_dir()
{
    if (!m_regression)
        return workstation_dir();
    return workstation_dir() + PGMDQ_POF_FAMILY_LIST[m_family_index].key + "/" + PGMDQ_POF_DIE_LIST[m_die_index].die +
           "/";
}

// Images are counted where they are made, the die directory (the work directory itself in a
// personal test).
unsigned PGMDQ_POF_CHECKER::count_images()
{
    const unsigned found = unsigned(dir_entries(m_die_dir, QStringList("*.img"), QDir::Files).size());
    char text[64];
    std::snprintf(text, sizeof text, "Found %d image file(s)", int(found));
    update_msg(found > 0 ? PGMDQ_MSG_TYPE_INFO : PGMDQ_MSG_TYPE_POF_ERROR, text);
    return found;
}

bool PGMDQ_POF_CHECKER::create_img_perl()
{
    const std::string script = m_current_path + AUTO_GEN_IMG_NAME + ".pl";
    rm_rf_file(script);
    {
        PGMDQ_FILE output(create_script(script));
        PGMDQ_ASSERT(output != NULL);
        const std::string converter = pgmdq_shell_quote(WORKSTATION_DATA_ROOT + TEST_SHORT_DIR + "sof2img/" + m_sof2img_exe);
        const std::string dir = image_dir();
        const std::string& die = PGMDQ_POF_DIE_LIST[m_die_index].die;
        for (unsigned i = 0; i < m_sof_size; ++i) {
            const std::string& name = m_sof_files[i].name;
            const std::string command = converter + " " + pgmdq_shell_quote(dir + name) + " " +
                                        pgmdq_shell_quote(dir + replace_tail(name, 3, "img")) + " -s2i " + die;
            std::fputs((perl_system(command) + "\n").c_str(), output.get());
        }
        std::fputs(("print \"" + IMG_DONE_TEXT + "\\n\"\n").c_str(), output.get());
    }
    if (m_sof_size > MAX_SOFS_PER_IMG_SCRIPT)
        run_thread_pl(script, ".pl", "perl", "s2i", IMG_THREADS, 0, false, true);
    return true;
}

bool PGMDQ_POF_CHECKER::create_img()
{
    if (!create_img_perl())
        return false;
    const bool split = m_sof_size > MAX_SOFS_PER_IMG_SCRIPT;
    const unsigned timeout = split ? (m_sof_size / IMG_THREADS) * IMG_SECONDS_PER_SIX_SOFS : IMG_SECONDS_ONE_SCRIPT;
    const std::string script = m_current_path + AUTO_GEN_IMG_NAME + ".py";
    rm_rf_file(script);
    std::vector<std::string> body = {"print(\"Doing mounting\")\n", python_sendline("mount " + RK_TEST_DIR_MOUNT + " S:")};
    for (unsigned k = 0; k < (split ? IMG_THREADS : 1); ++k) {
        const std::string part = split ? std::to_string(k) : std::string();
        body.push_back(python_sendline("perl " + pgmdq_shell_quote(workstation_dir() + AUTO_GEN_IMG_NAME + part + ".pl")));
    }
    // The terminal ends the marker's line with "\r\n".
    body.push_back("i=p.expect('" + IMG_DONE_TEXT + "\\r?\\n')\n");
    write_login_script(script, IMAGE_BUILD_HOST.str(), timeout, body);
    if (split) {
        run_thread_pl(script, ".py", python_command(), "perl", IMG_THREADS, timeout, true, true, login_options(timeout),
                      IMAGE_BUILD_HOST.str());
    } else {
        logged_in(run_command(python_command() + " " + pgmdq_shell_quote(script), login_options(timeout)),
                  IMAGE_BUILD_HOST.str());
        rm_rf_file(script);
    }
    return !thr_runs_cancelled() && count_images() > 0;
}

// Runs the converters here under wine instead of on the workstation.
bool PGMDQ_POF_CHECKER::create_img_with_wine()
{
    const std::string script = m_current_path + AUTO_GEN_IMG_NAME + ".pl";
    rm_rf_file(script);
    {
        PGMDQ_FILE output(create_script(script));
        PGMDQ_ASSERT(output != NULL);
        const std::string& die = PGMDQ_POF_DIE_LIST[m_die_index].die;
        for (unsigned i = 0; i < m_sof_size; ++i) {
            const std::string& sof = m_sof_files[i].fullpath;
            const std::string command = WINE_LINUX32_PATH + " " + pgmdq_shell_quote(m_sof2img_path) + " " +
                                        pgmdq_shell_quote(sof) + " " + pgmdq_shell_quote(replace_tail(sof, 3, "img")) +
                                        " -s2i " + die;
            std::fputs((perl_system(command) + "\n").c_str(), output.get());
        }
        std::fputs(("print \"" + IMG_DONE_TEXT + "\\n\"\n").c_str(), output.get());
    }
    if (m_sof_size > MAX_SOFS_PER_IMG_SCRIPT)
        run_thread_pl(script, ".pl", "perl", "s2i", IMG_THREADS, 0, true, true);
    else
        run_command("perl " + pgmdq_shell_quote(script));
    rm_rf_file(script);
    if (thr_runs_cancelled() || count_images() == 0)
        return false;
    // The images lie beside the SOFs; the shell's own folder is the host's, not the die's.
    const std::string in_die_dir = "cd " + pgmdq_shell_quote(m_die_dir) + " && ";
    if (run_command(in_die_dir + "gzip *.img") != 0) {
        update_msg(PGMDQ_MSG_TYPE_POF_ERROR, "Fail to compress images");
        return false;
    }
    if (run_command(in_die_dir + "gunzip *.img.gz") != 0) {
        update_msg(PGMDQ_MSG_TYPE_POF_ERROR, "Fail to uncompress images");
        return false;
    }
    return true;
}

// One Perl script per work folder: SOF i is made in folder i mod 8, and its DAT file moved into
// the work directory.
bool PGMDQ_POF_CHECKER::create_icd_dat_perl(bool moved)
{
    const unsigned threads = std::min(m_sof_size, MAX_FOLDER_THREADS);
    std::vector<std::vector<std::string>> lines(threads);
    const std::string emulator = PGMDQ_POF_DIE_LIST[m_die_index].emulator_path.str();
    const std::string rif = PGMDQ_POF_FAMILY_LIST[m_family_index].has_rif ? " -rif " + pgmdq_shell_quote(m_rk_rif_path) : "";
    for (unsigned i = 0; i < m_sof_size; ++i) {
        const unsigned slot = i % MAX_FOLDER_THREADS;
        const std::string folder = m_current_path + AUTO_GEN_DAT_NAME + std::to_string(slot);
        const std::string folder_base = folder + "/" + replace_tail(m_sof_files[i].name, 4, "");
        const std::string own_base = replace_tail(m_sof_files[i].fullpath, 4, "");
        std::vector<std::string>& list = lines[slot];
        list.push_back(perl_system(emulator + " -o " + pgmdq_shell_quote(folder_base) + " -m3 -img " +
                                   pgmdq_shell_quote((moved ? folder_base : own_base) + ".img") + rif));
        for (const char* leftover : EMULATOR_LEFTOVERS)
            list.push_back(perl_system("rm -rf " + pgmdq_shell_quote(folder) + "/*." + leftover));
        list.push_back(perl_system("mv " + pgmdq_shell_quote(folder_base + ".dat") + " " + pgmdq_shell_quote(m_current_path + ".")));
    }
    for (unsigned t = 0; t < threads; ++t) {
        const std::string script = m_current_path + AUTO_GEN_DAT_NAME + std::to_string(t) + ".pl";
        rm_rf_file(script);
        PGMDQ_FILE output(create_script(script));
        PGMDQ_ASSERT(output != NULL);
        for (const std::string& line : lines[t])
            std::fputs((line + "\n").c_str(), output.get());
        std::fputs(("print \"" + DAT_DONE_TEXT + "\"\n").c_str(), output.get());
    }
    return true;
}

// The DAT files of every SOF, several at once: each worker logs in by itself and runs one folder
// script; the RBF step waits for each DAT file.
bool PGMDQ_POF_CHECKER::create_icd_dat()
{
    if (!move_img(false) || !create_icd_dat_perl(false))
        return false;
    const unsigned threads = std::min(m_sof_size, MAX_FOLDER_THREADS);
    const unsigned timeout = (m_sof_size / threads + 1) * DAT_SECONDS_PER_ROUND;
    const std::string script = m_current_path + AUTO_GEN_DAT_NAME + ".py";
    rm_rf_file(script);
    std::vector<std::string> body;
    for (unsigned t = 0; t < threads; ++t)
        body.push_back(python_sendline("perl " + pgmdq_shell_quote(m_current_path + AUTO_GEN_DAT_NAME + std::to_string(t) + ".pl")));
    body.push_back("i=p.expect('" + DAT_DONE_TEXT + "')\n");
    write_login_script(script, DAT_BUILD_HOST.str(), timeout, body);
    if (m_sof_size > 1) {
        run_thread_pl(script, ".py", python_command(), "perl", threads, 0, true, false, login_options(timeout),
                      DAT_BUILD_HOST.str());
    } else {
        logged_in(run_command(python_command() + " " + pgmdq_shell_quote(script), login_options(timeout)),
                  DAT_BUILD_HOST.str());
        rm_rf_file(script);
    }
    return true;
}

// Creates a generated script readable and writable by its owner only from the first byte on,
// and notes it for removal when the run ends. The caller has removed any older file of that name.
FILE* PGMDQ_POF_CHECKER::create_script(const std::string& path)
{
    m_run.scripts.insert(path);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd < 0)
        return nullptr;
    FILE* file = fdopen(fd, "w");
    if (!file)
        ::close(fd);
    return file;
}

void PGMDQ_POF_CHECKER::remove_scripts()
{
    for (const std::string& script : m_run.scripts)
        if (exists(script))
            rm_rf_file(script);
    m_run.scripts.clear();
}
