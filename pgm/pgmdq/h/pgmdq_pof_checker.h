// The "POF Checker" panel: for every SOF design of a release (or of one directory) it compares
// the programmer's configuration bit stream with the control-block emulator's, after bringing
// the programmer side's CRC fields up to date, and logs the verdicts. The heavy steps run as
// shell command lines on worker threads.
#pragma once

#include "fio.h"
#include "gen.h"
#include "pgmdq_miscellaneous_junit.h"
#include "pgmdq_msgs.h"
#include "thr.h"

#include <QElapsedTimer>
#include <QMutex>
#include <QThread>
#include <QWidget>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

class PGM_CHAIN_ELEMENT;
class PGM_PCF_TREE_ELEMENT;
class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QResizeEvent;
class QStringList;
class TFCQ_BUSY_DLG;

// A value that belongs to the site (file-server roots, host names, tool commands): read from the
// host's settings each time it is used, so a settings file loaded after start-up counts.
struct PGMDQ_SITE_STRING {
    const char* key;
    std::string str() const { return gen_get_setting(key); }
};
inline std::string operator+(const PGMDQ_SITE_STRING& site, const std::string& text) { return site.str() + text; }
inline std::string operator+(const std::string& text, const PGMDQ_SITE_STRING& site) { return text + site.str(); }

struct PGMDQ_POF_FAMILY {
    std::string key;           // directory under the release root, prefix of the converter's name
    std::string display_name;  // combo box and log lines
    std::string long_name;     // device-line name
    unsigned cb_data_width;    // control-block data width in bits: sets the PGM RBF's padding
    unsigned number_2;         // kept with the family, read by no operation of the panel
    unsigned number_3;         // kept with the family, read by no operation of the panel
    bool has_rif;              // the family's dies have a redundancy file that must exist
    bool ready;                // offered in the combo box and checked in regression runs
};

// The first family is not ready and the only one with redundancy files: it is never offered and
// a regression run reports it as skipped.
static const PGMDQ_POF_FAMILY PGMDQ_POF_FAMILY_LIST[] = {
    {"boreal5", "Boreal 5", "Boreal5GX", 32, 33, 164, true, false},
    {"calder5", "Calder 5", "Calder5GX", 32, 33, 164, false, true},
    {"dunlin5", "Dunlin 5", "Dunlin5GX", 32, 33, 164, false, true},
    {"kestrel", "Kestrel", "KestrelP", 32, 33, 164, false, true},
    {"", "", "", 0, 0, 0, false, false},
};

struct PGMDQ_POF_DIE {
    std::string family;              // family key, compared ignoring case
    std::string die;                 // directory under the family directory, base name of the RIF
    PGMDQ_SITE_STRING emulator_path; // the die's control-block emulator on the data-build host
    bool enabled;
};

static const PGMDQ_POF_DIE PGMDQ_POF_DIE_LIST[] = {
    {"boreal5", "B5D1", {"icd_emulator/B5D1"}, true},
    {"boreal5", "B5D2", {"icd_emulator/B5D2"}, true},
    {"boreal5", "B5D3", {"icd_emulator/B5D3"}, true},
    {"boreal5", "B5D4", {"icd_emulator/B5D4"}, true},
    {"boreal5", "B5D5", {"icd_emulator/B5D5"}, true},
    {"boreal5", "B5D6", {"icd_emulator/B5D6"}, true},
    {"calder5", "C5D1", {"icd_emulator/C5D1"}, true},
    {"calder5", "C5D2", {"icd_emulator/C5D2"}, true},
    {"calder5", "C5D3", {"icd_emulator/C5D3"}, true},
    {"calder5", "C5D4", {"icd_emulator/C5D4"}, true},
    {"dunlin5", "D5D1", {"icd_emulator/D5D1"}, true},
    {"dunlin5", "D5D2", {"icd_emulator/D5D2"}, true},
    {"dunlin5", "D5D3", {"icd_emulator/D5D3"}, true},
    {"dunlin5", "D5D4", {"icd_emulator/D5D4"}, true},
    {"dunlin5", "D5D5", {"icd_emulator/D5D5"}, true},
    {"kestrel", "KS50", {"icd_emulator/KS50"}, true},
    {"kestrel", "KS120", {"icd_emulator/KS120"}, true},
    {"kestrel", "KS470", {"icd_emulator/KS470"}, true},
    {"", "", {""}, false},
};

static const std::string POF_CHECK_PASS_INDICATOR = "POF checking passed - ";
static const std::string POF_CHECK_FAIL_INDICATOR = "POF checking failed - ";

enum PGMWQ_THREAD_TYPE : std::uint32_t {
    PGMWQ_THREAD_TYPE_SINGLE_CMD = 1,
    PGMWQ_THREAD_TYPE_CMD_VECTOR = 2,
};

// A worker that runs shell command lines for the panel. The panel sets the fields, raises
// m_started and starts it; run() raises m_done when its commands have returned. Each flag has its
// own mutex and is only ever touched through the accessors below (lock, access, unlock), so no
// thread holds two mutexes.
class PGMWQ_POF_CHECKER_THREAD : public QThread {
    Q_OBJECT
public:
    PGMWQ_POF_CHECKER_THREAD();
    ~PGMWQ_POF_CHECKER_THREAD() override;

    // The thread body; public so that a batch's body can also be run on the caller's thread.
    void run() override;

    bool is_started();
    void set_started(bool started);
    bool is_done();
    void set_done(bool done);

    std::string m_cmd;
    std::uint32_t m_thread_index;
    bool m_started;
    bool m_done;
    std::uint32_t m_thread_type;
    std::vector<std::string>* m_cmd_vector;  // the caller's, outlives the thread
    QMutex m_started_mutex;
    QMutex m_done_mutex;
    std::string m_script_file;
    std::uint32_t m_expected_seconds;  // 0: no retries
    THR_RUN_OPTIONS m_run_options;     // upper time and environment of each of its commands
    std::string m_login_host;          // the host its log-in script logs in to, if it runs one
    // Read once it is done: the commands it ended at their upper time, its last command's status.
    std::vector<std::string> m_timed_out;
    int m_exit_status;

private:
    void run_single_cmd();
    void run_cmd_vector();
    void run_command(const std::string& command);
};

// One SOF file of the die directory.
struct PGMDQ_POF_SOF_FILE {
    std::string fullpath;
    std::string name;
    bool done = false;  // its image and DAT steps are through
};

// What a check found for one design: its die, and its verdict or why it has none.
struct PGMDQ_POF_DESIGN {
    enum OUTCOME { PASSED, FAILED, NO_VERDICT };

    std::string die;  // "Calder 5 C5D4", or the directory of a personal test
    std::string sof;  // full path
    OUTCOME outcome = NO_VERDICT;
    std::string note;  // where a failed design's bit streams first differ, or why there is no verdict
};

// A check asked for without the panel's clicks: the fields a user would fill in.
struct PGMDQ_POF_CHECK_REQUEST {
    std::string user;
    std::string password;
    std::string family;     // with `die`: a personal test of that die (of the release, or of `directory`)
    std::string die;
    std::string directory;  // below the site's data root, as the panel's directory field takes it
    bool recursive = false;
    bool skip_img = false;
    bool skip_dat = false;
    bool skip_icd_rbf = false;
    bool debug_file = false;
    bool nv_site = false;
    bool mail = false;
};

// How long the check of one die took.
struct PGMDQ_POF_DIE_TIME {
    std::string die;
    double seconds;
};

// What one check keeps beside the panel's own fields (the die under check and its SOF records):
// made afresh when a check starts, so nothing of an earlier check leaks into it, and kept after
// it for its summary and its unattended caller.
struct PGMDQ_POF_RUN {
    // The work directory as the check started: a personal test's sub-directories hang below it.
    std::string work_root;
    std::string rk_work_root;
    TFCQ_BUSY_DLG* busy = nullptr;  // its progress line and its Cancel button; null once it ends
    unsigned dies_done = 0;
    unsigned dies_total = 0;
    // Every script the check wrote (the log-in scripts carry the password): removed when it ends,
    // however it ends.
    std::set<std::string> scripts;
    // Paths (links and names left untouched) and hosts (failed log-ins) already told about.
    std::set<std::string> reported;
    std::vector<PGMDQ_POF_DESIGN> designs;
    std::vector<PGMDQ_POF_DIE_TIME> die_times;
    std::string login_failure;  // the last failed log-in, as the log tells it
    // The die under check.
    std::string die_label;  // as the summary names it
    QElapsedTimer die_clock;
    bool login_failed = false;  // one of its log-ins failed: the die stops there
};

class PGMDQ_POF_CHECKER : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_POF_CHECKER(QWidget* parent = nullptr);
    ~PGMDQ_POF_CHECKER() override;

    void on_init();
    unsigned get_index(bool family);

    // The last check's designs and dies, for its summary and for unattended runs.
    const std::vector<PGMDQ_POF_DESIGN>& designs() const { return m_run.designs; }
    const std::vector<PGMDQ_POF_DIE_TIME>& die_times() const { return m_run.die_times; }
    // The log lines that name a design (its SOF or any file made from it).
    std::vector<std::string> design_lines(const PGMDQ_POF_DESIGN& design) const;
    std::vector<std::string> log_lines() const;
    std::vector<PGMDQ_JUNIT_SUITE> junit_suites() const;
    // Fills in the panel and presses "Check"; false with the reason when the check could not run.
    bool run_unattended(const PGMDQ_POF_CHECK_REQUEST& request, std::string* error);
    void update_msg(PGMDQ_MSG_TYPE type, std::string text);

    // Paths, shell and worker threads.
    bool rm_rf_file(const std::string& path);
    static std::string standardize_dir_seperator(std::string dir, bool to_unix);
    std::string get_test_dir();
    bool get_current_dir();
    void run_thread_cmd(std::vector<std::string> cmds, unsigned count);
    void run_thread_pl(std::string script, std::string ext, std::string runner, std::string marker, unsigned count,
                       unsigned expected_seconds, bool start, bool wait,
                       const THR_RUN_OPTIONS& options = command_options(), const std::string& login_host = "");
    bool create_thread_folder();
    bool move_img(bool move);

    // The walk over families and dies, and the inputs of a die.
    bool check_family_pof(std::string family);
    bool check_die_pof(std::string family, std::string die, bool& cont);
    bool check_die_dir(std::string family, std::string die);
    bool check_sof();
    bool check_sof2img();
    bool check_rif();
    void update_path_missing(std::string what);
    void prepare_sof_memory(unsigned n);

    // DAT files.
    static std::string get_rid_intermediate_comment(std::string line);
    static bool make_sure_and_convert_hex(std::string text, int* digits, unsigned char** out);
    unsigned exam_dat(FIO_PATH path);
    unsigned get_dat(FIO_PATH path, unsigned char** data);
    unsigned char* read_dat(FIO_PATH path, unsigned& count);

    // CRCs, raw binaries and the comparison.
    void calculate_crc(unsigned bits, unsigned index);
    unsigned check_crc_list(unsigned index, unsigned bits);
    unsigned recalculate_crc(unsigned crc, unsigned diff, unsigned index, unsigned bits);
    static unsigned calculate_crc32(const unsigned char* data, unsigned start, unsigned num_bits, unsigned crc,
                                    unsigned cb_data_width, bool serial);
    // The parallel form's definition, one bit at a time in the control block's column order; the
    // fast form must give exactly its results.
    static unsigned calculate_crc32_by_columns(const unsigned char* data, unsigned start, unsigned num_bits,
                                               unsigned crc, unsigned cb_data_width);
    PGM_CHAIN_ELEMENT* create_pgm_rbf(std::string sof_path);
    void create_icd_rbf(std::string dat_path);
    void modify_crc_pgm_rbf(PGM_CHAIN_ELEMENT* element, std::string sof_path);
    bool create_rbf();
    bool create_rbf_in_thread();
    bool get_dat(unsigned i, unsigned n);

    // Images on the image-build workstation, DAT files on the data-build host, and the die
    // directory's clean-ups.
    bool create_img();
    bool create_img_perl();
    bool create_img_with_wine();
    bool create_icd_dat();
    bool create_icd_dat_perl(bool moved);
    bool create_icd_dat(std::string sof_path, std::string dat_path);
    std::string create_icd_dat_python(std::string sof_path);
    bool pre_delete_others();
    bool delete_others();
    bool delete_others_except();

protected:
    void resizeEvent(QResizeEvent* event) override;

private slots:
    void on_send_enabled();
    void on_site();
    void on_change_family();
    void on_pof_check();
    void on_clear_msg();
    void on_save_msg();
    void on_send_email();
    void on_has_dat();
    void on_has_icd_rbf();

private:
    // Every command a check runs has an upper time; one that reaches it is ended and named in
    // the log.
    static THR_RUN_OPTIONS command_options();
    int run_command(const std::string& command, const THR_RUN_OPTIONS& options);
    int run_command(const std::string& command);
    void report_timeout(const std::string& command, unsigned seconds);
    void report_timeouts(PGMWQ_POF_CHECKER_THREAD* threads, unsigned count);

    // Tests set up a run's state (directories, SOF records, skip flags) directly.
    friend struct PGMDQ_POF_CHECKER_TEST_ACCESS;

    void on_process_email();
    void check_regression();
    void check_personal();
    void check_personal_dir();
    void wind_down_cancelled_check();
    unsigned count_regression_dies();
    void begin_die(const std::string& label);
    void end_die();
    void register_designs();
    PGMDQ_POF_DESIGN* find_design(const std::string& sof);
    void log_summary();
    std::string missing_verdict_reason(const PGMDQ_POF_DESIGN& design) const;
    bool choose_die(const std::string& family, const std::string& die, std::string* error);
    void check_personal_steps();
    bool name_is_free(const std::string& path);
    void report_links(const std::string& dir, const QStringList& patterns);
    void report_link(const std::string& path);
    void report_once(const std::string& key, const std::string& text, PGMDQ_MSG_TYPE type = PGMDQ_MSG_TYPE_WARNING);
    void remove_work_folders();
    bool write_result(const std::string& path, const unsigned char* data, size_t size);
    void unzip_sofs(const std::string& script, unsigned compressed);
    std::string image_dir();
    std::string workstation_dir();
    unsigned count_images();
    FILE* create_script(const std::string& path);
    void remove_scripts();
    void create_widgets();
    void create_layout();
    void connect_widgets();
    void delete_thread_batch();
    void clear_crc_lists();  // empties the contribution cache with its lookup
    void compare_sof(const std::string& sof_path);
    void write_python_login(FILE* output, const std::string& host, const std::string& timeout);
    std::string python_command();
    THR_RUN_OPTIONS login_options(unsigned script_timeout);
    bool account_is_valid();
    static std::string python_sendline(const std::string& command);
    void write_login_script(const std::string& script, const std::string& host, unsigned timeout,
                            const std::vector<std::string>& body);
    bool logged_in(int exit_status, const std::string& host);
    void remove_stale_scripts();
    bool compare_sections(PGM_CHAIN_ELEMENT* element, std::vector<unsigned char>& output,
                          const std::vector<unsigned char>& icd, const std::string& sof_path, unsigned cb_data_width,
                          std::string* first_difference);
    bool compare_section(const PGM_PCF_TREE_ELEMENT& section, unsigned char* output, const unsigned char* icd,
                         size_t output_index, unsigned cb_data_width, const std::string& debug_base,
                         unsigned core_number, std::string* first_difference);
    void patch_frame(unsigned type, unsigned char* output, const unsigned char* icd, size_t base, unsigned frame_bits,
                     unsigned cb_data_width);

    QCheckBox* m_personal_test_check;
    QCheckBox* m_debug_check;
    QLineEdit* m_username_edit;
    QLineEdit* m_password_edit;
    QComboBox* m_family_combo;
    QComboBox* m_die_combo;
    QCheckBox* m_site_check;
    QLabel* m_dir_label;
    QLineEdit* m_dir_edit;
    QPushButton* m_clear_button;
    QPushButton* m_save_button;
    QPushButton* m_check_button;
    QListWidget* m_msg_list;
    QPushButton* m_send_button;
    QGroupBox* m_personal_test_group;
    QCheckBox* m_skip_img_check;
    QCheckBox* m_skip_dat_check;
    QCheckBox* m_skip_icd_rbf_check;
    std::unique_ptr<PGMWQ_POF_CHECKER_THREAD[]> m_thread;  // the running batch of run_thread_pl
    std::string m_current_path;
    std::string m_family_dir;
    std::string m_die_dir;
    std::string m_rk_die_dir;
    std::string m_sof2img_path;
    std::string m_sof2img_exe;
    std::string m_rif_path;
    std::string m_rk_rif_path;
    std::string m_checked_path;
    std::unique_ptr<PGMDQ_POF_SOF_FILE[]> m_sof_files;
    unsigned m_family_index;
    unsigned m_die_index;
    unsigned m_sof_size;
    bool m_regression;
    bool m_skip_img;
    bool m_skip_dat;
    bool m_skip_icd_rbf;
    std::vector<unsigned> m_crc_index;
    std::vector<unsigned> m_crc_total_bits;
    std::vector<unsigned> m_crc_value;

    unsigned m_thread_count;  // size of m_thread
    // Constant-time lookup beside the three cache lists, which stay the record: (position,
    // length) -> first matching entry. Entries appended to the lists are indexed on the next
    // lookup; emptied lists empty it.
    std::unordered_map<std::uint64_t, unsigned> m_crc_lookup;
    std::size_t m_crc_lookup_indexed;
    PGMDQ_POF_RUN m_run;
};
