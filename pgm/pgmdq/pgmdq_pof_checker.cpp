#include "pgmdq_msgs.h"

#include "pgmdq_pof_checker.h"

#include "fio.h"
#include "pgm.h"
#include "tfcq.h"
#include "thr.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFrame>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

typedef std::uint32_t DWORD;

namespace {

#if defined(__SANITIZE_THREAD__)
// ThreadSanitizer cannot see into the uninstrumented Qt library; the flag locks tell it what they
// order.
class FLAG_LOCK {
public:
    explicit FLAG_LOCK(QMutex* mutex) : m_mutex(mutex)
    {
        __tsan_mutex_pre_lock(m_mutex, 0);
        m_mutex->lock();
        __tsan_mutex_post_lock(m_mutex, 0, 0);
    }
    ~FLAG_LOCK()
    {
        __tsan_mutex_pre_unlock(m_mutex, 0);
        m_mutex->unlock();
        __tsan_mutex_post_unlock(m_mutex, 0);
    }

private:
    QMutex* m_mutex;
};
#else
typedef QMutexLocker FLAG_LOCK;
#endif

const std::string AUTO_GEN_DAT_NAME = "auto_gen_dat";
const std::string AUTO_GEN_IMG_NAME = "auto_gen_img";
const std::string AUTO_UNZIPPED_NAME = "auto_unzipped";
const std::string MAX_DAT_TIME_STRING = "600";
const std::string IMG_DONE_TEXT = "POF CHECKER - IMG CONVERSION DONE";
const std::string DAT_DONE_TEXT = "POF CHECKER - DAT CONVERSION DONE";
// The file share as the Windows image-build workstation sees it, once mounted as S:.
const std::string WORKSTATION_DATA_ROOT = "S:/data/";

// Shared regression test directory of each site (Linux path on its file server, ending in "/").
const PGMDQ_SITE_STRING NV_LINUX_TEST_DIR{"pof_checker/nv_linux_test_dir"};
const PGMDQ_SITE_STRING RK_LINUX_TEST_DIR{"pof_checker/rk_linux_test_dir"};
// Linux data root of each site's file server, under which personal test directories lie.
const PGMDQ_SITE_STRING LINUX_NV_TEST_DIR{"pof_checker/linux_nv_test_dir"};
const PGMDQ_SITE_STRING LINUX_RK_TEST_DIR{"pof_checker/linux_rk_test_dir"};
const PGMDQ_SITE_STRING PYTHON_NV_SRC{"pof_checker/python_nv_src"};
const PGMDQ_SITE_STRING PYTHON_RK_SRC{"pof_checker/python_rk_src"};
// The remote host that runs the control-block emulators, and the Windows workstation that runs
// the converters.
const PGMDQ_SITE_STRING DAT_BUILD_HOST{"pof_checker/data_build_host"};
const PGMDQ_SITE_STRING IMAGE_BUILD_HOST{"pof_checker/image_build_host"};
// The regression test directory relative to the share's data root, ending in "/".
const PGMDQ_SITE_STRING TEST_SHORT_DIR{"pof_checker/test_short_dir"};
// UNC root of the RK site's file share, as the workstation's mount takes it.
const PGMDQ_SITE_STRING RK_TEST_DIR_MOUNT{"pof_checker/rk_test_dir_mount"};
const PGMDQ_SITE_STRING WINE_LINUX32_PATH{"pof_checker/wine_linux32_path"};

const unsigned POLL_MILLISECONDS = 500;
const unsigned DAT_POLL_MILLISECONDS = 2000;
const time_t DAT_WAIT_SECONDS = 600;
const unsigned MAX_FOLDER_THREADS = 8;
const unsigned RETRY_FRACTION = 20;
const unsigned MAX_UNZIPS_PER_THREAD = 100;
const unsigned MAX_SOFS_PER_IMG_SCRIPT = 15;  // more are split over the image threads
const unsigned IMG_THREADS = 6;
const unsigned IMG_SECONDS_ONE_SCRIPT = 4500;
const unsigned IMG_SECONDS_PER_SIX_SOFS = 300;
const unsigned DAT_SECONDS_PER_ROUND = 600;
// Intermediate files the emulator leaves beside each DAT file.
const char* const EMULATOR_LEFTOVERS[] = {"cram", "redfuses", "s4_debug", "s4_info", "option_bits_out", "cff"};

std::string local8(const QString& text)
{
    return text.toLocal8Bit().toStdString();
}

// The path with its last `count` characters replaced: "x.sof" -> "x.dat".
std::string replace_tail(const std::string& path, size_t count, const std::string& tail)
{
    return path.substr(0, path.size() - std::min(count, path.size())) + tail;
}

bool exists(const std::string& path)
{
    return FIO_FILE_SYSTEM::exists(path.c_str());
}

QString qpath(const std::string& path)
{
    return QString::fromLocal8Bit(path.c_str());
}

std::string upper(std::string text)
{
    stl_toupper(text);
    return text;
}

bool equal_ignoring_case(const std::string& a, const std::string& b)
{
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

// Text that every shell, Perl string and Python string of the generated scripts takes as it is.
bool is_plain_word(const std::string& text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || std::strchr("/._-+,=:", c) != nullptr;
    });
}

// A path as one shell word: plain paths stay as they are, others are single-quoted.
std::string shell_word(const std::string& path)
{
    if (is_plain_word(path))
        return path;
    std::string quoted = "'";
    for (char c : path)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// Text inside a single-quoted Python string of a generated script.
std::string python_text(const std::string& text)
{
    std::string escaped;
    for (char c : text) {
        if (c == '\\' || c == '\'')
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

// More than 3 bytes, beginning with the gzip magic and the deflate method.
bool is_gzip(const std::string& path)
{
    unsigned char head[4] = {};
    FILE* file = FIO_FILE_SYSTEM::fopen(path.c_str(), "rb");
    if (!file)
        return false;
    const size_t got = std::fread(head, 1, sizeof head, file);
    std::fclose(file);
    return got > 3 && head[0] == 0x1F && head[1] == 0x8B && head[2] == 0x08;
}

QStringList dir_entries(const std::string& dir, const QStringList& patterns, QDir::Filters filters)
{
    return QDir(qpath(dir)).entryList(patterns, filters, QDir::Name);
}

struct FILE_CLOSER {
    void operator()(FILE* file) const { std::fclose(file); }
};
typedef std::unique_ptr<FILE, FILE_CLOSER> FILE_HANDLE;

bool write_file(const std::string& path, const unsigned char* data, size_t size)
{
    FILE_HANDLE file(FIO_FILE_SYSTEM::fopen(path.c_str(), "wb"));
    return file && std::fwrite(data, 1, size, file.get()) == size;
}

bool read_file(const std::string& path, std::vector<unsigned char>& data)
{
    FILE_HANDLE file(FIO_FILE_SYSTEM::fopen(path.c_str(), "rb"));
    FIO_STATUS status;
    if (!file || !FIO_FILE_SYSTEM::status(path.c_str(), &status))
        return false;
    data.resize(status.size);
    return std::fread(data.data(), 1, data.size(), file.get()) == data.size();
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Worker threads

PGMWQ_POF_CHECKER_THREAD::PGMWQ_POF_CHECKER_THREAD()
    : m_thread_index(0),
      m_started(false),
      m_done(false),
      m_thread_type(0),
      m_cmd_vector(nullptr),
      m_expected_seconds(0)
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
void PGMWQ_POF_CHECKER_THREAD::run_single_cmd()
{
    const auto timed_run = [this]() {
        const time_t begin = time(nullptr);
        thr_run(m_cmd.c_str());
        return time(nullptr) - begin;
    };
    const time_t too_fast = time_t(m_expected_seconds / RETRY_FRACTION);
    const time_t first_run = timed_run();
    if (m_expected_seconds == 0 || first_run >= too_fast)
        return;
    const time_t second_run = timed_run();
    MSG_PGMDQ::DEBUG_MSG("Thread %d trying once", int(m_thread_index));
    if (second_run >= too_fast)
        return;
    MSG_PGMDQ::DEBUG_MSG("Thread %d trying twice", int(m_thread_index));
    thr_run(m_cmd.c_str());
}

void PGMWQ_POF_CHECKER_THREAD::run_cmd_vector()
{
    PGMDQ_ASSERT(DWORD(m_cmd_vector->size()) > 0);
    for (const std::string& cmd : *m_cmd_vector)
        thr_run(cmd.c_str());
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
// Panel

PGMDQ_POF_CHECKER::PGMDQ_POF_CHECKER(QWidget* parent)
    : QWidget(parent),
      m_personal_test_check(nullptr),
      m_debug_check(nullptr),
      m_username_edit(nullptr),
      m_password_edit(nullptr),
      m_family_combo(nullptr),
      m_die_combo(nullptr),
      m_site_check(nullptr),
      m_dir_label(nullptr),
      m_dir_edit(nullptr),
      m_clear_button(nullptr),
      m_save_button(nullptr),
      m_check_button(nullptr),
      m_msg_list(nullptr),
      m_send_button(nullptr),
      m_personal_test_group(nullptr),
      m_skip_img_check(nullptr),
      m_skip_dat_check(nullptr),
      m_skip_icd_rbf_check(nullptr),
      m_family_index(0),
      m_die_index(0),
      m_sof_size(0),
      m_regression(false),
      m_skip_img(false),
      m_skip_dat(false),
      m_skip_icd_rbf(false),
      m_thread_count(0),
      m_crc_lookup_indexed(0)
{
    create_widgets();
    create_layout();
    on_init();
    connect_widgets();
}

PGMDQ_POF_CHECKER::~PGMDQ_POF_CHECKER()
{
    delete_thread_batch();
    remove_scripts();
    prepare_sof_memory(0);
    clear_crc_lists();
}

void PGMDQ_POF_CHECKER::create_widgets()
{
    m_personal_test_check = new QCheckBox(tr("I would like to perform my personel test"), this);
    m_debug_check =
        new QCheckBox(tr("Please generate debug file of the difference between ICD and PGM RBF per frame basic"), this);
    m_username_edit = new QLineEdit(this);
    m_username_edit->setFixedWidth(300);
    m_password_edit = new QLineEdit(this);
    m_password_edit->setFixedWidth(300);
    m_password_edit->setEchoMode(QLineEdit::Password);
    m_family_combo = new QComboBox(this);
    m_family_combo->setFixedWidth(300);
    m_die_combo = new QComboBox(this);
    m_die_combo->setFixedWidth(300);
    m_site_check = new QCheckBox(tr("Checked if you are in NV and unchecked if you are in RK"), this);
    m_dir_label = new QLabel(this);
    m_dir_edit = new QLineEdit(this);
    m_check_button = new QPushButton(tr("Check"), this);
    m_msg_list = new QListWidget(this);
    m_clear_button = new QPushButton(tr("Clear msg"), this);
    m_save_button = new QPushButton(tr("Save msg"), this);
    m_send_button = new QPushButton(tr("Send"), this);
    for (QPushButton* button : {m_clear_button, m_save_button, m_send_button})
        button->setEnabled(false);
    m_skip_img_check = new QCheckBox(tr("Skip IMG generation"), this);
    m_skip_dat_check = new QCheckBox(tr("Skip DAT generation"), this);
    m_skip_icd_rbf_check = new QCheckBox(tr("Skip ICD RBF generation"), this);
    m_personal_test_group = new QGroupBox(tr("Personal Test"), this);
}

void PGMDQ_POF_CHECKER::create_layout()
{
    auto* separator = new QFrame(this);
    separator->setFrameStyle(QFrame::HLine | QFrame::Sunken);
    separator->setLineWidth(1);
    separator->setMidLineWidth(0);
    auto* description = new QLabel(
        tr("POF Checker will check against bitstream generated by Programmer and ICD Contorl Block Emulator."), this);
    description->setWordWrap(true);

    auto* account_group = new QGroupBox(tr("Account Information"), this);
    auto* account_row = new QHBoxLayout(account_group);
    account_row->addWidget(new QLabel(tr("Username: "), this));
    account_row->addWidget(m_username_edit);
    account_row->addStretch();
    account_row->addWidget(new QLabel(tr("Password: "), this));
    account_row->addWidget(m_password_edit);

    auto* personal_column = new QVBoxLayout(m_personal_test_group);
    auto* choice_row = new QHBoxLayout;
    choice_row->addWidget(new QLabel(tr("Family: "), this));
    choice_row->addWidget(m_family_combo);
    choice_row->addStretch();
    choice_row->addWidget(new QLabel(tr("Die: "), this));
    choice_row->addWidget(m_die_combo);
    personal_column->addLayout(choice_row);
    personal_column->addWidget(m_site_check);
    auto* dir_row = new QHBoxLayout;
    dir_row->setSpacing(0);
    dir_row->addWidget(m_dir_label);
    dir_row->addWidget(m_dir_edit);
    personal_column->addLayout(dir_row);
    for (QCheckBox* skip : {m_skip_img_check, m_skip_dat_check, m_skip_icd_rbf_check})
        personal_column->addWidget(skip);

    auto* check_row = new QHBoxLayout;
    check_row->addStretch();
    check_row->addWidget(m_check_button);

    auto* message_group = new QGroupBox(tr("Message (Email)"), this);
    auto* message_column = new QVBoxLayout(message_group);
    message_column->addWidget(m_msg_list);
    auto* message_row = new QHBoxLayout;
    message_row->addWidget(m_save_button);
    message_row->addWidget(m_clear_button);
    message_row->addStretch();
    message_row->addWidget(m_send_button);
    message_column->addLayout(message_row);

    auto* panel = new QVBoxLayout(this);
    panel->addWidget(description);
    panel->addWidget(separator);
    panel->addWidget(m_debug_check);
    panel->addWidget(m_personal_test_check);
    panel->addWidget(account_group);
    panel->addWidget(m_personal_test_group);
    panel->addLayout(check_row);
    panel->addWidget(message_group);
}

void PGMDQ_POF_CHECKER::connect_widgets()
{
    connect(m_personal_test_check, &QCheckBox::clicked, this, &PGMDQ_POF_CHECKER::on_send_enabled);
    for (QLineEdit* edit : {m_username_edit, m_password_edit, m_dir_edit})
        connect(edit, &QLineEdit::textChanged, this, &PGMDQ_POF_CHECKER::on_send_enabled);
    connect(m_site_check, &QCheckBox::clicked, this, &PGMDQ_POF_CHECKER::on_site);
    connect(m_family_combo, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &PGMDQ_POF_CHECKER::on_change_family);
    connect(m_check_button, &QPushButton::clicked, this, &PGMDQ_POF_CHECKER::on_pof_check);
    connect(m_clear_button, &QPushButton::clicked, this, &PGMDQ_POF_CHECKER::on_clear_msg);
    connect(m_save_button, &QPushButton::clicked, this, &PGMDQ_POF_CHECKER::on_save_msg);
    connect(m_send_button, &QPushButton::clicked, this, &PGMDQ_POF_CHECKER::on_send_email);
    connect(m_skip_dat_check, &QCheckBox::clicked, this, &PGMDQ_POF_CHECKER::on_has_dat);
    connect(m_skip_icd_rbf_check, &QCheckBox::clicked, this, &PGMDQ_POF_CHECKER::on_has_icd_rbf);
}

void PGMDQ_POF_CHECKER::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
}

void PGMDQ_POF_CHECKER::on_init()
{
    for (unsigned row = 0; !PGMDQ_POF_FAMILY_LIST[row].display_name.empty(); ++row)
        if (PGMDQ_POF_FAMILY_LIST[row].ready)
            m_family_combo->addItem(QString::fromStdString(PGMDQ_POF_FAMILY_LIST[row].display_name), int(row));
    on_change_family();
    m_personal_test_group->setEnabled(false);
    m_check_button->setEnabled(false);
    on_site();
}

unsigned PGMDQ_POF_CHECKER::get_index(bool family)
{
    const QVariant data = (family ? m_family_combo : m_die_combo)->currentData();
    bool is_int = false;
    const int index = data.toInt(&is_int);
    return is_int ? unsigned(index) : 0;
}

void PGMDQ_POF_CHECKER::on_change_family()
{
    const std::string& family_key = PGMDQ_POF_FAMILY_LIST[get_index(true)].key;
    m_die_combo->clear();
    for (unsigned row = 0; !PGMDQ_POF_DIE_LIST[row].die.empty(); ++row) {
        const PGMDQ_POF_DIE& die = PGMDQ_POF_DIE_LIST[row];
        if (die.family == family_key && die.enabled)
            m_die_combo->addItem(QString::fromStdString(die.die), int(row));
    }
}

void PGMDQ_POF_CHECKER::on_has_dat()
{
    if (m_skip_dat_check->isChecked())
        m_skip_img_check->setChecked(true);
    m_skip_img_check->setEnabled(!m_skip_dat_check->isChecked());
}

void PGMDQ_POF_CHECKER::on_has_icd_rbf()
{
    const bool skip_icd_rbf = m_skip_icd_rbf_check->isChecked();
    for (QCheckBox* earlier : {m_skip_img_check, m_skip_dat_check}) {
        if (skip_icd_rbf)
            earlier->setChecked(true);
        earlier->setEnabled(!skip_icd_rbf);
    }
    on_has_dat();
}

void PGMDQ_POF_CHECKER::update_msg(PGMDQ_MSG_TYPE type, std::string text)
{
    auto* item = new QListWidgetItem(PGMDQ_MSG_TYPE_ICON[type], PGMDQ_MSG_TYPE_STRING[type] + QString::fromUtf8(text.c_str()));
    m_msg_list->insertItem(m_msg_list->count(), item);
    m_msg_list->scrollToBottom();
    if (type == PGMDQ_MSG_TYPE_POF_ERROR)
        m_send_button->setEnabled(true);
    m_clear_button->setEnabled(true);
    m_save_button->setEnabled(true);
}

void PGMDQ_POF_CHECKER::on_clear_msg()
{
    m_msg_list->clear();
    for (QPushButton* button : {m_clear_button, m_save_button, m_send_button})
        button->setEnabled(false);
}

void PGMDQ_POF_CHECKER::on_save_msg()
{
    TFCQ_FILE_DLG dialog(this, TFCQ_FILE_DLG::SAVE_FILE, tr("Save Message"), tr("Text Files (*.txt)"));
    if (dialog.exec() != QDialog::Accepted)
        return;
    const QStringList selected_files = dialog.selected_files();
    PGMDQ_ASSERT(!selected_files.isEmpty());
    FIO_PATH path(local8(selected_files.first()));
    path.extension(".txt");
    // A file that cannot be opened simply receives nothing.
    FILE_HANDLE output(FIO_FILE_SYSTEM::fopen(path, "w"));
    if (!output)
        return;
    for (int row = 0; row < m_msg_list->count(); ++row)
        std::fprintf(output.get(), "%s\n", local8(m_msg_list->item(row)->text()).c_str());
}

// A check needs the log-in to the build machines and, for a personal test, a directory.
void PGMDQ_POF_CHECKER::on_send_enabled()
{
    m_regression = !m_personal_test_check->isChecked();
    bool enabled = false;
    if (!m_username_edit->text().isEmpty()) {
        enabled = !m_password_edit->text().isEmpty();
        if (enabled && !m_regression)
            enabled = !m_dir_edit->text().isEmpty();
    }
    m_personal_test_group->setEnabled(!m_regression);
    m_check_button->setEnabled(enabled);
}

void PGMDQ_POF_CHECKER::on_site()
{
    const std::string root = m_site_check->isChecked() ? LINUX_NV_TEST_DIR.str() : LINUX_RK_TEST_DIR.str();
    m_dir_label->setText(tr("Test location: ") + QString::fromLocal8Bit(root.c_str()));
}

// ---------------------------------------------------------------------------------------------
// Paths, shell and worker threads

bool PGMDQ_POF_CHECKER::rm_rf_file(const std::string& path)
{
    // Entries of a die directory are removed whatever their names: a name is never a command.
    return thr_run(("rm -rf " + shell_word(path)).c_str()) == 0;
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
    const std::string text = local8(m_dir_edit->text());
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
        thread.start(QThread::InheritPriority);
    }
    wait_for_batch(threads.get(), count);
}

namespace {

// Marked lines (the per-file commands) are dealt out round-robin; the rest (preamble, common
// statements) goes to every part. The read that meets the end of the file still yields a line,
// so a script ending in a line break gives one last empty line; a line longer than 511
// characters ends the split after its first 511.
void split_script(const std::string& script, const std::string& marker, std::vector<FILE_HANDLE>& parts)
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
            for (FILE_HANDLE& part : parts)
                std::fprintf(part.get(), "%s\n", line);
        }
    } while (input.good());
}

} // namespace

void PGMDQ_POF_CHECKER::run_thread_pl(std::string script, std::string ext, std::string runner, std::string marker,
                                      unsigned count, unsigned expected_seconds, bool start, bool wait)
{
    PGMDQ_ASSERT(count > 1);
    std::vector<std::string> part_names(count);
    std::vector<FILE_HANDLE> output_array(count);
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
            thread.m_cmd = runner + " " + part_names[i];
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
        removals.push_back("rm -rf " + folder);
        creations.push_back("mkdir " + folder);
    }
    if (m_sof_size == 1) {
        thr_run(removals[0].c_str());
        thr_run(creations[0].c_str());
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
        moves.push_back("mv " + replace_tail(m_sof_files[i].fullpath, 3, "img") + " " + m_current_path +
                        AUTO_GEN_DAT_NAME + std::to_string(i % MAX_FOLDER_THREADS) + "/.");
    run_thread_cmd(moves, threads);
    return result;
}

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
        sub_dirs = QDir(qpath(m_die_dir)).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    if (sub_dirs.isEmpty()) {
        check_personal_dir();
        return;
    }
    const std::string current_path = m_current_path;
    const std::string rk_die_dir = m_rk_die_dir;
    for (const QString& sub_dir : sub_dirs) {
        // The Windows separator is appended on every platform, as the sites' users give their
        // directories in that form.
        m_current_path = current_path + local8(sub_dir) + "\\";
        m_die_dir = m_current_path;
        m_rk_die_dir = rk_die_dir + local8(sub_dir) + "/";
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
        m_sof_files[i].name = local8(names[int(i)]);
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
        FILE_HANDLE output(create_script(script));
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

// ---------------------------------------------------------------------------------------------
// DAT files

namespace {

const size_t DAT_MAX_LINE = 63;  // longer lines end the reading
const size_t DAT_BLOCK_BYTES = size_t(1) << 20;

enum DAT_LINE { DAT_LINE_SKIP, DAT_LINE_WORD, DAT_LINE_INVALID };

// Value of a hexadecimal digit of either case, -1 for anything else.
struct HEX_TABLE {
    std::array<int, 256> value;
    HEX_TABLE()
    {
        value.fill(-1);
        for (int c = 0; c < 10; ++c)
            value['0' + c] = c;
        for (int c = 0; c < 6; ++c)
            value['A' + c] = value['a' + c] = 10 + c;
    }
};
const HEX_TABLE HEX;

// The common line "ABCD\n": four digits of either case and the line break. Any other line takes
// the general path, which gives the same word for this one.
inline bool fast_dat_word(const unsigned char* p, unsigned& word)
{
    if (p[4] != '\n')
        return false;
    const int a = HEX.value[p[0]], b = HEX.value[p[1]], c = HEX.value[p[2]], d = HEX.value[p[3]];
    if ((a | b | c | d) < 0)
        return false;
    word = unsigned(a << 12 | b << 8 | c << 4 | d);
    return true;
}

} // namespace

std::string PGMDQ_POF_CHECKER::get_rid_intermediate_comment(std::string line)
{
    const size_t slash = line.find('/');
    return slash == std::string::npos ? line : line.substr(0, slash);
}

bool PGMDQ_POF_CHECKER::make_sure_and_convert_hex(std::string text, int* digits, unsigned char** out)
{
    int k = 0;
    for (auto c = text.rbegin(); c != text.rend(); ++c, ++k) {
        int value = -1;
        if (*c >= '0' && *c <= '9')
            value = *c - '0';
        else if (*c >= 'A' && *c <= 'F')
            value = *c - 'A' + 10;
        if (value < 0)
            return false;
        unsigned char& byte = (*out)[k / 2];
        if (k % 2 == 0)
            byte = (unsigned char)value;
        else
            byte |= (unsigned char)(value << 4);
    }
    *digits = k;
    return true;
}

namespace {

// One line of a DAT file, cleaned by the format's rules; `word` receives its value.
DAT_LINE read_dat_line(const char* begin, size_t length, unsigned& word)
{
    // The line is a C string: a NUL byte ends it.
    std::string line =
        gen_remove_leading_and_trailing_white_spaces(std::string(begin, strnlen(begin, length)));
    if (line.empty())
        return DAT_LINE_SKIP;
    const size_t slash = line.find('/');
    if (slash != std::string::npos && slash > 0)
        line = gen_remove_leading_and_trailing_white_spaces(PGMDQ_POF_CHECKER::get_rid_intermediate_comment(line));
    if (line[0] == '/')
        return DAT_LINE_SKIP;
    stl_toupper(line);
    // Only four digits make a word; checking the count first keeps the conversion in its
    // two-byte buffer.
    if (line.size() != 4)
        return DAT_LINE_INVALID;
    unsigned char bytes[2] = {0, 0};
    unsigned char* out = bytes;
    int digits = 0;
    if (!PGMDQ_POF_CHECKER::make_sure_and_convert_hex(line, &digits, &out) || digits != 4)
        return DAT_LINE_INVALID;
    word = unsigned(bytes[1]) << 8 | bytes[0];
    return DAT_LINE_WORD;
}

// Reads the words of a DAT file in order, giving each to `on_word`. Lines are limited to 63
// characters, the way a 64-byte line buffer reads them: a longer line ends the reading there.
// Returns false when the file cannot be opened or holds an invalid line; the words before it
// have been given.
template <typename ON_WORD>
bool scan_dat(const char* path, ON_WORD&& on_word)
{
    FILE_HANDLE file(FIO_FILE_SYSTEM::fopen(path, "r"));
    FIO_STATUS status;
    if (!file || !FIO_FILE_SYSTEM::status(path, &status))
        return false;
    // A small file is read in one block. Room for a block after an unfinished line carried over
    // from the block before.
    const size_t block_bytes = std::min<size_t>(DAT_BLOCK_BYTES, size_t(status.size) + 1);
    const std::unique_ptr<unsigned char[]> buffer(new unsigned char[DAT_MAX_LINE + 1 + block_bytes]);
    size_t carried = 0;
    for (;;) {
        const size_t got = std::fread(buffer.get() + carried, 1, block_bytes, file.get());
        const bool at_end = got < block_bytes;
        const unsigned char* p = buffer.get();
        const unsigned char* const end = p + carried + got;
        unsigned word = 0;
        for (;;) {
            if (end - p >= 5 && fast_dat_word(p, word)) {
                on_word(word);
                p += 5;
                continue;
            }
            const size_t window = std::min<size_t>(size_t(end - p), DAT_MAX_LINE + 1);
            const auto* newline = static_cast<const unsigned char*>(std::memchr(p, '\n', window));
            if (!newline)
                break;
            const DAT_LINE kind = read_dat_line(reinterpret_cast<const char*>(p), size_t(newline - p), word);
            if (kind == DAT_LINE_INVALID)
                return false;
            if (kind == DAT_LINE_WORD)
                on_word(word);
            p = newline + 1;
        }
        const size_t rest = size_t(end - p);
        if (rest > DAT_MAX_LINE)
            return true;  // an over-long line ends the reading
        if (at_end) {
            // A last line without a line break still counts.
            if (rest == 0)
                return true;
            const DAT_LINE kind = read_dat_line(reinterpret_cast<const char*>(p), rest, word);
            if (kind == DAT_LINE_WORD)
                on_word(word);
            return kind != DAT_LINE_INVALID;
        }
        std::memmove(buffer.get(), p, rest);
        carried = rest;
    }
}

} // namespace

unsigned PGMDQ_POF_CHECKER::exam_dat(FIO_PATH path)
{
    unsigned count = 0;
    if (!scan_dat(path, [&count](unsigned) { ++count; }))
        return 0;
    return count;
}

unsigned PGMDQ_POF_CHECKER::get_dat(FIO_PATH path, unsigned char** data)
{
    PGMDQ_ASSERT(*data != NULL);
    unsigned char* out = *data;
    unsigned count = 0;
    scan_dat(path, [out, &count](unsigned word) {
        out[2 * count] = (unsigned char)(word & 0xFF);
        out[2 * count + 1] = (unsigned char)(word >> 8);
        ++count;
    });
    return count;
}

unsigned char* PGMDQ_POF_CHECKER::read_dat(FIO_PATH path, unsigned& count)
{
    count = exam_dat(path);
    if (count == 0) {
        update_msg(PGMDQ_MSG_TYPE_ERROR, "Fail to read " + path.str());
        return nullptr;
    }
    const unsigned dat_size = count;
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[2 * size_t(dat_size)]);
    if (!buffer)
        PGMDQ_INTERNAL_ERROR("out of memory");
    unsigned char* dat_data = buffer.get();
    PGMDQ_ASSERT(get_dat(path, &dat_data) == dat_size);
    return buffer.release();
}

// ---------------------------------------------------------------------------------------------
// CRCs

namespace {

const unsigned CRC16_POLY_REFLECTED = 0xA001;
const std::uint32_t CRC32_POLY = 0xF4ACFB13;
const std::uint32_t CRC32_POLY_REFLECTED = 0xC8DF352F;

inline std::uint64_t crc_key(unsigned index, unsigned bits)
{
    return std::uint64_t(index) << 32 | bits;
}

// Arithmetic on remainders modulo the CRC-32 polynomial (coefficient of x^31 in the top bit).
inline std::uint32_t times_x(std::uint32_t a)
{
    return (a << 1) ^ (CRC32_POLY & (0u - (a >> 31)));
}

// Walks b's bits from its highest set one, so a small b (an initial value of 1) costs little.
std::uint32_t multiply_mod(std::uint32_t a, std::uint32_t b)
{
    std::uint32_t product = 0;
    for (int bit = b ? 31 - __builtin_clz(b) : -1; bit >= 0; --bit) {
        product = times_x(product);
        if ((b >> bit) & 1)
            product ^= a;
    }
    return product;
}

// x^n modulo the polynomial.
std::uint32_t x_power_mod(std::uint64_t n)
{
    std::uint32_t result = 1;
    std::uint32_t square = 2;  // x
    for (; n; n >>= 1) {
        if (n & 1)
            result = multiply_mod(result, square);
        square = multiply_mod(square, square);
    }
    return result;
}

// Up to 32 bits of the buffer from bit `position`, least significant first. `safe` reads only
// the bytes the bits lie in; otherwise eight bytes are loaded at once.
inline std::uint32_t read_bits(const unsigned char* data, std::uint64_t position, unsigned count, bool safe)
{
    const unsigned char* first = data + position / 8;
    const unsigned shift = unsigned(position % 8);
    std::uint64_t value = 0;
    std::memcpy(&value, first, safe ? (shift + count + 7) / 8 : 8);
    return std::uint32_t((value >> shift) & ((std::uint64_t(1) << count) - 1));
}

// The fast parallel form. By linearity the column-major CRC is a sum of single-bit terms: bit j
// of word r of `rows` words adds x^(32 + j*rows + rows-1-r) to crc * x^num_bits. So each word
// adds G(word) * x^(rows-1-r) with G(word) = sum of its bits' x^(32 + j*rows), which tables of
// 11-bit chunks give (three lookups for a 32-bit word, 24 KiB that stay in the first-level
// cache), and a Horner step (multiply by x) per word collects the words in order.
const unsigned CHUNK_BITS = 11;
const unsigned CHUNK_MASK = (1u << CHUNK_BITS) - 1;

struct COLUMN_CRC_TABLES {
    std::uint64_t rows = 0;
    unsigned width = 0;
    std::uint32_t x_to_num_bits = 0;
    std::vector<std::array<std::uint32_t, 1u << CHUNK_BITS>> chunk_tables;

    void build(std::uint64_t new_rows, unsigned new_width)
    {
        rows = new_rows;
        width = new_width;
        x_to_num_bits = x_power_mod(rows * width);
        std::vector<std::uint32_t> bit_terms(width);
        const std::uint32_t x_to_rows = x_power_mod(rows);
        bit_terms[0] = CRC32_POLY;  // x^32
        for (unsigned j = 1; j < width; ++j)
            bit_terms[j] = multiply_mod(bit_terms[j - 1], x_to_rows);
        chunk_tables.assign((width + CHUNK_BITS - 1) / CHUNK_BITS, {});
        for (unsigned c = 0; c < chunk_tables.size(); ++c)
            for (unsigned v = 1; v <= CHUNK_MASK; ++v) {
                const unsigned j = CHUNK_BITS * c + unsigned(__builtin_ctz(v));
                chunk_tables[c][v] = chunk_tables[c][v & (v - 1)] ^ (j < width ? bit_terms[j] : 0);
            }
    }

    std::uint32_t word_term(std::uint64_t word) const
    {
        std::uint32_t term = 0;
        for (const auto& table : chunk_tables) {
            term ^= table[word & CHUNK_MASK];
            word >>= CHUNK_BITS;
        }
        return term;
    }
};

// x^4 times a remainder: the four bits shifted out of the top come back through this table.
struct TIMES_X4_TABLE {
    std::array<std::uint32_t, 16> reduce;
    TIMES_X4_TABLE()
    {
        for (unsigned top = 0; top < 16; ++top) {
            std::uint32_t value = 0;
            for (int bit = 3; bit >= 0; --bit)
                value = times_x(value) ^ (((top >> bit) & 1) ? CRC32_POLY : 0);
            reduce[top] = value;
        }
    }
};
const TIMES_X4_TABLE TIMES_X4;

inline std::uint32_t times_x4(std::uint32_t a)
{
    return (a << 4) ^ TIMES_X4.reduce[a >> 28];
}

// Byte-aligned 32-bit words, the control block's own case: one load per word, and rows dealt to
// four interleaved Horner chains (each multiplies by x^4 per word), so a multiply by x does not
// wait for the one before; one more Horner step over the four chains joins them.
std::uint32_t aligned_words_sum(const unsigned char* words, std::uint64_t rows, const COLUMN_CRC_TABLES& tables)
{
    const auto& t = tables.chunk_tables;
    const auto term = [&t](const unsigned char* bytes) {
        std::uint32_t w;
        std::memcpy(&w, bytes, 4);
        return t[0][w & CHUNK_MASK] ^ t[1][(w >> CHUNK_BITS) & CHUNK_MASK] ^ t[2][w >> (2 * CHUNK_BITS)];
    };
    std::uint32_t chain0 = 0, chain1 = 0, chain2 = 0, chain3 = 0;
    const std::uint64_t blocks = rows / 4;
    for (std::uint64_t b = 0; b < blocks; ++b, words += 16) {
        chain0 = times_x4(chain0) ^ term(words);
        chain1 = times_x4(chain1) ^ term(words + 4);
        chain2 = times_x4(chain2) ^ term(words + 8);
        chain3 = times_x4(chain3) ^ term(words + 12);
    }
    std::uint32_t sum = times_x(times_x(times_x(chain0) ^ chain1) ^ chain2) ^ chain3;
    for (std::uint64_t r = 4 * blocks; r < rows; ++r, words += 4)
        sum = times_x(sum) ^ term(words);
    return sum;
}

std::uint32_t fast_column_crc32(const unsigned char* data, std::uint64_t start, std::uint64_t num_bits,
                                std::uint32_t crc, unsigned width)
{
    // Frames of one section share their shape: keep the tables of the last shape per thread.
    thread_local COLUMN_CRC_TABLES tables;
    const std::uint64_t rows = num_bits / width;
    if (tables.rows != rows || tables.width != width)
        tables.build(rows, width);
    std::uint32_t sum = 0;
    if (width == 32 && start % 8 == 0) {
        sum = aligned_words_sum(data + start / 8, rows, tables);
    } else {
        const std::uint64_t end_byte = (start + num_bits + 7) / 8;
        const unsigned low_bits = std::min(width, 32u);
        std::uint64_t position = start;
        for (std::uint64_t r = 0; r < rows; ++r, position += width) {
            const bool safe = position / 8 + 16 > end_byte;
            std::uint64_t word = read_bits(data, position, low_bits, safe);
            if (width > 32)
                word |= std::uint64_t(read_bits(data, position + 32, width - 32, safe)) << 32;
            sum = times_x(sum) ^ tables.word_term(word);
        }
    }
    return multiply_mod(tables.x_to_num_bits, crc) ^ sum;
}

inline unsigned buffer_bit(const unsigned char* data, std::uint64_t bit)
{
    return (data[bit / 8] >> (bit % 8)) & 1u;
}

const unsigned FAST_CRC32_MAX_WIDTH = 64;

} // namespace

void PGMDQ_POF_CHECKER::clear_crc_lists()
{
    m_crc_index.clear();
    m_crc_total_bits.clear();
    m_crc_value.clear();
    m_crc_lookup.clear();
    m_crc_lookup_indexed = 0;
}

void PGMDQ_POF_CHECKER::calculate_crc(unsigned bits, unsigned index)
{
    PGMDQ_ASSERT(index < bits);
    PGMDQ_ASSERT((bits % 8) == 0);
    // Sized for the sixteen positions too, though positions past the message add nothing.
    std::vector<unsigned char> buffer(std::max<size_t>(bits / 8, (size_t(index) + 16 + 7) / 8), 0);
    for (unsigned p = index; p < index + 16; ++p) {
        buffer[p / 8] |= (unsigned char)(1u << (p % 8));
        const unsigned c = PGM_COMMON::calculate_crc16(buffer.data(), 0, bits, 0, CRC16_POLY_REFLECTED);
        buffer[p / 8] &= (unsigned char)~(1u << (p % 8));
        m_crc_index.push_back(p);
        m_crc_total_bits.push_back(bits);
        m_crc_value.push_back(c & 0xFFFF);
    }
}

unsigned PGMDQ_POF_CHECKER::check_crc_list(unsigned index, unsigned bits)
{
    PGMDQ_ASSERT(m_crc_index.size() == m_crc_value.size());
    PGMDQ_ASSERT(m_crc_total_bits.size() == m_crc_value.size());
    if (m_crc_index.size() < m_crc_lookup_indexed) {
        m_crc_lookup.clear();
        m_crc_lookup_indexed = 0;
    }
    for (; m_crc_lookup_indexed < m_crc_index.size(); ++m_crc_lookup_indexed)
        m_crc_lookup.emplace(crc_key(m_crc_index[m_crc_lookup_indexed], m_crc_total_bits[m_crc_lookup_indexed]),
                             unsigned(m_crc_lookup_indexed));
    const auto found = m_crc_lookup.find(crc_key(index, bits));
    return found == m_crc_lookup.end() ? DWORD(-1) : m_crc_value[found->second];
}

unsigned PGMDQ_POF_CHECKER::recalculate_crc(unsigned crc, unsigned diff, unsigned index, unsigned bits)
{
    if (check_crc_list(index, bits) == DWORD(-1)) {
        // Entries come sixteen at a time: a block never starts inside another.
        for (unsigned i = 1; i < 16; ++i)
            PGMDQ_ASSERT(check_crc_list(index + i, bits) == DWORD(-1));
        calculate_crc(bits, index);
    }
    for (unsigned j = 0; j < 16; ++j) {
        if (!((diff >> j) & 1))
            continue;
        const unsigned temp = check_crc_list(index + j, bits);
        PGMDQ_ASSERT(temp != DWORD(-1));
        crc ^= temp;
    }
    return crc;
}

unsigned PGMDQ_POF_CHECKER::calculate_crc32(const unsigned char* data, unsigned start, unsigned num_bits,
                                            unsigned crc, unsigned cb_data_width, bool serial)
{
    if (serial) {
        for (std::uint64_t bit = start; bit < std::uint64_t(start) + num_bits; ++bit)
            crc = ((crc ^ buffer_bit(data, bit)) & 1) ? (crc >> 1) ^ CRC32_POLY_REFLECTED : crc >> 1;
        return crc;
    }
    PGMDQ_ASSERT((num_bits % cb_data_width) == 0);
    if (cb_data_width > FAST_CRC32_MAX_WIDTH)
        return calculate_crc32_by_columns(data, start, num_bits, crc, cb_data_width);
    return fast_column_crc32(data, start, num_bits, crc, cb_data_width);
}

unsigned PGMDQ_POF_CHECKER::calculate_crc32_by_columns(const unsigned char* data, unsigned start, unsigned num_bits,
                                                       unsigned crc, unsigned cb_data_width)
{
    PGMDQ_ASSERT((num_bits % cb_data_width) == 0);
    const unsigned rows = num_bits / cb_data_width;
    for (unsigned c = 0; c < cb_data_width; ++c) {
        const std::uint64_t q = std::uint64_t(start) + cb_data_width - 1 - c;
        for (unsigned r = 0; r < rows; ++r) {
            const std::uint32_t bit = buffer_bit(data, q + std::uint64_t(r) * cb_data_width);
            crc = (((bit << 31) ^ crc) & 0x80000000u) ? (crc << 1) ^ CRC32_POLY : crc << 1;
        }
    }
    return crc;
}

// ---------------------------------------------------------------------------------------------
// Raw binaries and the comparison

PGM_CHAIN_ELEMENT* PGMDQ_POF_CHECKER::create_pgm_rbf(std::string sof_path)
{
    std::unique_ptr<PGM_CHAIN_ELEMENT> element(new (std::nothrow) PGM_CHAIN_ELEMENT(nullptr));
    if (!element)
        PGMDQ_INTERNAL_ERROR("out of memory");
    element->set_design_file(sof_path);
    if (!element->create_chain_element(PGM_CONTENT_CONFIGURATION, 0, nullptr, 0, 0, 0) ||
        element->get_bit_vector_list().empty())
        return nullptr;
    size_t total_byte_size = 0;
    for (const PGMIO_BIT_VECTOR& vector : element->get_bit_vector_list()) {
        const size_t bit_size = vector.get_bit_size();
        PGMDQ_ASSERT((bit_size%8)==0);
        total_byte_size += bit_size / 8;
    }
    // The vectors' bytes in order, written as they come.
    FILE_HANDLE output(FIO_FILE_SYSTEM::fopen(replace_tail(sof_path, 3, "rbf").c_str(), "wb"));
    size_t output_index = 0;
    for (const PGMIO_BIT_VECTOR& vector : element->get_bit_vector_list()) {
        const size_t bytes = vector.get_bit_size() / 8;
        if (output)
            std::fwrite(vector.get_base_address(), 1, bytes, output.get());
        output_index += bytes;
    }
    PGMDQ_ASSERT(total_byte_size == output_index);
    return element.release();
}

void PGMDQ_POF_CHECKER::create_icd_rbf(std::string dat_path)
{
    unsigned count = 0;
    const std::unique_ptr<unsigned char[]> data(read_dat(dat_path, count));
    if (data)
        write_file(replace_tail(dat_path, 3, "icd.rbf"), data.get(), 2 * size_t(count));
}

namespace {

// A frame's little-endian field of `bytes` bytes at stream bit `bit` (a byte boundary).
unsigned get_field(const unsigned char* stream, size_t bit, unsigned bytes)
{
    unsigned value = 0;
    for (unsigned i = 0; i < bytes; ++i)
        value |= unsigned(stream[bit / 8 + i]) << (8 * i);
    return value;
}

void put_field(unsigned char* stream, size_t bit, unsigned bytes, unsigned value)
{
    for (unsigned i = 0; i < bytes; ++i)
        stream[bit / 8 + i] = (unsigned char)(value >> (8 * i));
}

std::string without_extension(const std::string& path)
{
    const size_t dot = path.find_last_of('.');
    const size_t slash = path.find_last_of('/');
    return dot == std::string::npos || (slash != std::string::npos && dot < slash) ? path : path.substr(0, dot);
}

} // namespace

// Brings a frame's CRC fields up to date the way the control block fills them in: a periphery
// frame gets its error-detection CRC-32, a core frame the ICD side's core word; the frame's
// CRC-16 follows by linearity.
void PGMDQ_POF_CHECKER::patch_frame(unsigned type, unsigned char* output, const unsigned char* icd, size_t base,
                                    unsigned frame_bits, unsigned cb_data_width)
{
    const unsigned message_bits = frame_bits - PGM_FRAME_CRC16_FROM_END;
    const size_t crc16_bit = base + message_bits;
    unsigned crc16 = get_field(output, crc16_bit, 2);
    if (type == PGM_SECTION_EDCRC_FRAMES) {
        const size_t edcrc_bit = base + frame_bits - PGM_FRAME_EDCRC_FROM_END;
        const unsigned char* edcrc = output + edcrc_bit / 8;
        const unsigned edcrc1 = edcrc[0], edcrc2 = edcrc[1], edcrc3 = edcrc[2], edcrc4 = edcrc[3];
        PGMDQ_ASSERT(edcrc1 == 0 && edcrc2 == 0 && edcrc3 == 0 && edcrc4 == 0);
        const unsigned crc32 = calculate_crc32(output, unsigned(base + cb_data_width),
                                               frame_bits - PGM_FRAME_EDCRC_FROM_END - cb_data_width, 1,
                                               cb_data_width, false);
        put_field(output, edcrc_bit, 4, crc32);
        crc16 = recalculate_crc(crc16, crc32 & 0xFFFF, frame_bits - 64, message_bits);
        crc16 = recalculate_crc(crc16, crc32 >> 16, frame_bits - 48, message_bits);
    } else {
        const size_t core_bit = base + frame_bits - PGM_FRAME_CORE_WORD_FROM_END;
        const unsigned icd_word = get_field(icd, core_bit, 2);
        const unsigned change = get_field(output, core_bit, 2) ^ icd_word;
        put_field(output, core_bit, 2, icd_word);
        crc16 = recalculate_crc(crc16, change, frame_bits - 32, message_bits);
    }
    put_field(output, crc16_bit, 2, crc16);
}

// One compared section: its frames patched, the core debug pair written when `debug_base` is
// set, and whether both sides agree byte for byte.
bool PGMDQ_POF_CHECKER::compare_section(const PGM_PCF_TREE_ELEMENT& section, unsigned char* output,
                                        const unsigned char* icd, size_t output_index, unsigned cb_data_width,
                                        const std::string& debug_base, unsigned core_number)
{
    const size_t icd_cmp_start_index = section.get_start_byte(), pgm_cmp_start_index = section.get_start_byte();
    const size_t icd_cmp_end_index = section.get_end_byte(), pgm_cmp_end_index = section.get_end_byte();
    PGMDQ_ASSERT(icd_cmp_start_index > 0 && pgm_cmp_start_index > 0);
    PGMDQ_ASSERT(icd_cmp_end_index > 0 && pgm_cmp_end_index > 0);
    PGMDQ_ASSERT(icd_cmp_end_index - icd_cmp_start_index == pgm_cmp_end_index - pgm_cmp_start_index &&
                 pgm_cmp_end_index > pgm_cmp_start_index && pgm_cmp_end_index <= output_index);
    const size_t byte_size = pgm_cmp_end_index - pgm_cmp_start_index;
    const bool core = section.get_type() == PGM_SECTION_CORE_FRAMES;
    std::unique_ptr<unsigned char[]> icd_core_data, pgm_core_data;
    if (core && !debug_base.empty()) {
        icd_core_data.reset(new unsigned char[byte_size]);
        pgm_core_data.reset(new unsigned char[byte_size]);
    }
    size_t core_index = 0;
    PGMDQ_ASSERT((icd_core_data == NULL && pgm_core_data == NULL) ||
                 (icd_core_data != NULL && pgm_core_data != NULL && core_index == 0));
    const unsigned frame_bits = section.get_frame_bits();
    const size_t frame_bytes = frame_bits / 8;
    for (size_t f = 0; f < section.get_frame_count(); ++f) {
        const size_t base = section.get_frame_start_bit(f);
        patch_frame(section.get_type(), output, icd, base, frame_bits, cb_data_width);
        if (!core)
            continue;
        if (icd_core_data) {
            std::memcpy(icd_core_data.get() + core_index, icd + base / 8, frame_bytes);
            std::memcpy(pgm_core_data.get() + core_index, output + base / 8, frame_bytes);
        }
        core_index += frame_bytes;
    }
    if (core)
        PGMDQ_ASSERT(core_index == byte_size);
    if (icd_core_data) {
        const std::string number = std::to_string(core_number);
        write_file(debug_base + "_icdcore_" + number + ".rbf", icd_core_data.get(), byte_size);
        write_file(debug_base + "_pgmcore_" + number + ".rbf", pgm_core_data.get(), byte_size);
    }
    return std::memcmp(output + pgm_cmp_start_index, icd + icd_cmp_start_index, byte_size) == 0;
}

// Copies the element's bit vectors into the output one after another and compares each
// vector's sections of types 2, 3 and 4 once it is in place.
bool PGMDQ_POF_CHECKER::compare_sections(PGM_CHAIN_ELEMENT* element, std::vector<unsigned char>& output,
                                         const std::vector<unsigned char>& icd, const std::string& sof_path,
                                         unsigned cb_data_width)
{
    const PGM_PCF_TREE_LIST& tree_list = *element->get_device()->get_pcf_info()->get_pcf_file_info();
    const auto& vectors = element->get_bit_vector_list();
    PGMDQ_ASSERT(tree_list.size() == vectors.size());
    const std::string debug_base = m_debug_check->isChecked() ? without_extension(sof_path) : std::string();
    bool equal = true;
    unsigned core_number = 0;
    size_t output_index = 0;
    for (size_t v = 0; v < vectors.size(); ++v) {
        const size_t bit_size = vectors[v].get_bit_size();
        PGMDQ_ASSERT((bit_size) % 8 == 0);
        std::memcpy(output.data() + output_index, vectors[v].get_base_address(), bit_size / 8);
        output_index += bit_size / 8;
        for (const PGM_PCF_TREE_ELEMENT& section : tree_list[v].get_children()) {
            const unsigned type = section.get_type();
            if (type != PGM_SECTION_EDCRC_FRAMES && type != PGM_SECTION_CORE_FRAMES && type != PGM_SECTION_PLAIN_DATA)
                continue;
            if (!compare_section(section, output.data(), icd.data(), output_index, cb_data_width, debug_base,
                                 core_number))
                equal = false;
            if (type == PGM_SECTION_CORE_FRAMES)
                ++core_number;
        }
    }
    return equal;
}

void PGMDQ_POF_CHECKER::modify_crc_pgm_rbf(PGM_CHAIN_ELEMENT* element, std::string sof_path)
{
    PGMDQ_ASSERT(element != NULL);
    const std::string icd_path = replace_tail(sof_path, 3, "icd.rbf");
    const std::string pgm_path = replace_tail(sof_path, 3, "rbf");
    const std::string output_path = replace_tail(sof_path, 3, "pgm.icd.rbf");

    const PGM_DEVICE* device = element->get_device();
    PGMDQ_ASSERT(device != NULL);
    PGMDQ_ASSERT(device->get_pcf_info() != NULL);
    const PGM_PCF_TREE_LIST* tree_list = device->get_pcf_info()->get_pcf_file_info();
    PGMDQ_ASSERT(tree_list != NULL);
    const PGM_F2P_CONSTANTS* f2p_constants = tree_list->empty() ? nullptr : tree_list->front().get_f2p_constants();
    PGMDQ_ASSERT(f2p_constants != NULL);
    if (f2p_constants->m_cb_data_width == 0)
        PGMDQ_INTERNAL_ERROR("m_cb_data_width != 0");

    // The PGM side's bytes come from the element, which wrote them to its RBF; that file must be
    // there all the same.
    std::vector<unsigned char> icd;
    const bool icd_read = exists(icd_path) && read_file(icd_path, icd);
    const bool pgm_there = exists(pgm_path) && FILE_HANDLE(FIO_FILE_SYSTEM::fopen(pgm_path.c_str(), "rb")) != nullptr;
    if (!icd_read || !pgm_there) {
        update_msg(PGMDQ_MSG_TYPE_POF_ERROR,
                   "Fail to get source file(s) - comparison terminated : " + (icd_read ? pgm_path : icd_path));
        return;
    }

    // The control block reads the stream with six data words of padding behind it.
    const size_t extra = PGMDQ_POF_FAMILY_LIST[m_family_index].cb_data_width * 6 / 8;
    const size_t size = icd.size() + extra;
    size_t bitstream_size = 0;
    for (const PGMIO_BIT_VECTOR& vector : element->get_bit_vector_list())
        bitstream_size += vector.get_bit_size() / 8;
    PGMDQ_ASSERT(bitstream_size == (size - extra));
    std::vector<unsigned char> output(size, 0);
    const bool passed = compare_sections(element, output, icd, sof_path, f2p_constants->m_cb_data_width);

    FILE_HANDLE file(FIO_FILE_SYSTEM::fopen(output_path.c_str(), "wb"));
    const size_t output_index = file ? std::fwrite(output.data(), 1, size, file.get()) : 0;
    PGMDQ_ASSERT(output_index == size);
    if (passed)
        update_msg(PGMDQ_MSG_TYPE_INFO, POF_CHECK_PASS_INDICATOR + sof_path);
    else
        update_msg(PGMDQ_MSG_TYPE_POF_ERROR, POF_CHECK_FAIL_INDICATOR + sof_path);
}

void PGMDQ_POF_CHECKER::compare_sof(const std::string& sof_path)
{
    const std::unique_ptr<PGM_CHAIN_ELEMENT> element(create_pgm_rbf(sof_path));
    if (!element) {
        update_msg(PGMDQ_MSG_TYPE_POF_ERROR, "Programmer fail to generate RBF for " + sof_path);
        return;
    }
    modify_crc_pgm_rbf(element.get(), sof_path);
}

bool PGMDQ_POF_CHECKER::create_rbf()
{
    PGMDQ_ASSERT(m_sof_size > 0);
    unsigned dat_num = 0;
    for (unsigned i = 0; i < m_sof_size; ++i) {
        const std::string& sof_path = m_sof_files[i].fullpath;
        const std::string dat_path = replace_tail(sof_path, 3, "dat");
        if (!m_skip_dat) {
            if (!exists(replace_tail(sof_path, 3, "img")))
                continue;
            if (!create_icd_dat(sof_path, dat_path)) {
                update_msg(PGMDQ_MSG_TYPE_ERROR, "Fail to generate dat " + dat_path);
                continue;
            }
        }
        ++dat_num;
        if (!m_skip_icd_rbf)
            create_icd_rbf(dat_path);
        pre_delete_others();
        compare_sof(sof_path);
    }
    if (dat_num == 0) {
        update_msg(PGMDQ_MSG_TYPE_ERROR, "Fail to create any dat file for " + PGMDQ_POF_DIE_LIST[m_die_index].die);
        return false;
    }
    delete_others_except();
    return true;
}

bool PGMDQ_POF_CHECKER::create_rbf_in_thread()
{
    const unsigned threads = m_thread_count;
    unsigned dat_num = 0, missing_img = 0, missing_dat = 0;
    for (unsigned i = 0; i < m_sof_size; ++i) {
        const std::string& sof_path = m_sof_files[i].fullpath;
        if (get_dat(i, threads)) {
            ++dat_num;
            create_icd_rbf(replace_tail(sof_path, 3, "dat"));
            for (const char* stale : {"rbf", "pgm.icd.rbf"})
                rm_rf_file(replace_tail(sof_path, 3, stale));
            compare_sof(sof_path);
        } else if (!exists(replace_tail(sof_path, 3, "img"))) {
            ++missing_img;
            update_msg(PGMDQ_MSG_TYPE_POF_ERROR, "Fail to generate IMG " + replace_tail(sof_path, 3, "img"));
        } else {
            ++missing_dat;
            update_msg(PGMDQ_MSG_TYPE_POF_ERROR, "Fail to generate DAT " + replace_tail(sof_path, 3, "dat"));
        }
    }
    pre_delete_others();
    PGMDQ_ASSERT(m_sof_size == (dat_num + missing_img + missing_dat));
    delete_thread_batch();
    if (dat_num == 0) {
        update_msg(PGMDQ_MSG_TYPE_ERROR, "Fail to create any dat file for " + PGMDQ_POF_DIE_LIST[m_die_index].die);
        return false;
    }
    delete_others_except();
    return true;
}

// Waits for the DAT file of SOF i, which worker thread i mod n produces.
bool PGMDQ_POF_CHECKER::get_dat(unsigned i, unsigned n)
{
    const std::string dat_path = replace_tail(m_sof_files[i].fullpath, 3, "dat");
    const time_t begin = time(nullptr);
    while (!exists(dat_path)) {
        if (time(nullptr) - begin >= DAT_WAIT_SECONDS)
            break;
        PGMDQ_ASSERT(n > 0 && m_thread != NULL);  // a missing file is only awaited from a batch
        PGMWQ_POF_CHECKER_THREAD& thread = m_thread[i % n];
        if (thread.isFinished() && thread.is_done())
            break;
        thr_msleep(DAT_POLL_MILLISECONDS);
    }
    return exists(dat_path);
}

// ---------------------------------------------------------------------------------------------
// The one-SOF DAT run and the die directory's clean-ups

std::string PGMDQ_POF_CHECKER::python_command()
{
    return m_site_check->isChecked() ? PYTHON_NV_SRC.str() : PYTHON_RK_SRC.str();
}

// Logs in to `host` over ssh with the panel's account, answering the host-key question and the
// password prompt.
void PGMDQ_POF_CHECKER::write_python_login(FILE* output, const std::string& host, const std::string& timeout)
{
    const std::string lines[] = {
        "import pexpect\n",
        "PROMPT = \"\\$|\\%|\\>\"\n",
        "YES_NO = \"yes\"\n",
        "p=pexpect.spawn('ssh " + python_text(local8(m_username_edit->text())) + "@" + host + "', timeout = " + timeout + ")\n",
        "i=p.expect([YES_NO, 'assword', PROMPT])\n",
        "if i==0:\n",
        "   print \"Answering yes...\"\n",
        "   p.sendline('yes')\n",
        "   i=p.expect([YES_NO, 'assword', PROMPT])\n",
        "if i==1:\n",
        "   print \"Answering with password\"\n",
        "   i=p.sendline('" + python_text(local8(m_password_edit->text())) + "')\n",
        "   p.expect('$')\n",
        "else:\n",
        "   print \"Do not need password\"\n",
    };
    for (const std::string& line : lines)
        std::fputs(line.c_str(), output);
}

std::string PGMDQ_POF_CHECKER::create_icd_dat_python(std::string sof_path)
{
    const std::string base = replace_tail(sof_path, 4, "");
    const std::string script = base + ".py";
    rm_rf_file(script);
    FILE_HANDLE output(create_script(script));
    PGMDQ_ASSERT(output != NULL);
    write_python_login(output.get(), DAT_BUILD_HOST.str(), MAX_DAT_TIME_STRING);
    const std::string emulator = PGMDQ_POF_DIE_LIST[m_die_index].emulator_path.str();
    const std::string rif = PGMDQ_POF_FAMILY_LIST[m_family_index].has_rif ? " -rif " + m_rk_rif_path : "";
    const std::string lines[] = {
        "p.sendline('" + emulator + " -o " + base + " -m3 -img " + base + ".img" + rif + "')\n",
        "i=p.expect('End of running " + emulator + "')\n",
        "p.sendline('exit')\n",
        "p.close()\n",
    };
    for (const std::string& line : lines)
        std::fputs(line.c_str(), output.get());
    return script;
}

bool PGMDQ_POF_CHECKER::create_icd_dat(std::string sof_path, std::string dat_path)
{
    const std::string script = create_icd_dat_python(sof_path);
    thr_run((python_command() + " " + script).c_str());
    rm_rf_file(script);
    return exists(dat_path);
}

// The emulator's intermediate files and old DAT files. When DAT generation is skipped the DAT
// files present are the run's inputs, read SOF by SOF, so they stay (as the final clean-up keeps
// them); removing them after the first SOF would leave every later SOF without its ICD data.
bool PGMDQ_POF_CHECKER::pre_delete_others()
{
    QStringList patterns = {"*.cram", "*.redfuses", "*.dat", "*.s4_debug", "*.s4_info", "*.option_bits_out", "*.cff"};
    if (m_skip_dat)
        patterns.removeAll("*.dat");
    for (const QString& name : dir_entries(m_die_dir, patterns, QDir::Files))
        rm_rf_file(m_die_dir + local8(name));
    return true;
}

// Keeps the SOFs and the die's redundancy file; everything else, folders included, goes.
bool PGMDQ_POF_CHECKER::delete_others()
{
    const std::string rif = PGMDQ_POF_DIE_LIST[m_die_index].die + ".rif";
    unsigned match = 0;
    bool cleared = true;
    const QDir::Filters every_entry = QDir::Files | QDir::Dirs | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    for (const QString& entry : dir_entries(m_die_dir, QStringList(), every_entry)) {
        const std::string name = local8(entry);
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

// ---------------------------------------------------------------------------------------------
// Notification mail

void PGMDQ_POF_CHECKER::on_send_email()
{
    TFCQ_WAIT_CURSOR wait_cursor;
    on_process_email();
    m_send_button->setEnabled(false);
}

// Mails the whole log once to the bench team; whether it went out is the mail service's to report.
void PGMDQ_POF_CHECKER::on_process_email()
{
    std::string body;
    for (int row = 0; row < m_msg_list->count(); ++row)
        body += local8(m_msg_list->item(row)->text()) + "\n";
    const std::vector<PGM_COMMON_INI_EMAIL_ADDR_ENUM> roles = {PGM_COMMON_INI_EMAIL_ADDR_ENUM(0)};
    PGM_COMMON::send_auto_email_file(roles, "POF Checker notification", body, false, std::string(),
                                     std::vector<std::string>(), std::vector<std::string>());
    m_send_button->setEnabled(false);
}

// Keeps the inputs and results; what a skipped step would have made is kept as its input.
bool PGMDQ_POF_CHECKER::delete_others_except()
{
    QStringList kept_patterns = {"*.sof", "*.rbf", "*.rif"};
    if (m_skip_img)
        kept_patterns << "*.img";
    if (m_skip_dat)
        kept_patterns << "*.dat";
    const QStringList kept = dir_entries(m_die_dir, kept_patterns, QDir::Files);
    for (const QString& name : dir_entries(m_die_dir, QStringList(), QDir::Files))
        if (!kept.contains(name, Qt::CaseInsensitive))
            rm_rf_file(m_die_dir + local8(name));
    return true;
}

// ---------------------------------------------------------------------------------------------
// Images on the image-build workstation and DAT files on the data-build host

// The work directory as the workstation sees it: the generated scripts lie there.
std::string PGMDQ_POF_CHECKER::workstation_dir()
{
    if (m_regression)
        return WORKSTATION_DATA_ROOT + TEST_SHORT_DIR;
    return WORKSTATION_DATA_ROOT + standardize_dir_seperator(local8(m_dir_edit->text()), true);
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
        FILE_HANDLE output(create_script(script));
        PGMDQ_ASSERT(output != NULL);
        const std::string converter = WORKSTATION_DATA_ROOT + TEST_SHORT_DIR + "sof2img/" + m_sof2img_exe;
        const std::string dir = image_dir();
        const std::string& die = PGMDQ_POF_DIE_LIST[m_die_index].die;
        for (unsigned i = 0; i < m_sof_size; ++i) {
            const std::string& name = m_sof_files[i].name;
            std::fputs(("system (\"" + converter + " " + dir + name + " " + dir + replace_tail(name, 3, "img") +
                        " -s2i " + die + "\");\n")
                           .c_str(),
                       output.get());
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
    {
        FILE_HANDLE output(create_script(script));
        PGMDQ_ASSERT(output != NULL);
        write_python_login(output.get(), IMAGE_BUILD_HOST.str(), std::to_string(timeout));
        std::fputs("print \"Doing mounting\"\n", output.get());
        std::fputs(("p.sendline('mount " + RK_TEST_DIR_MOUNT + " S:')\n").c_str(), output.get());
        for (unsigned k = 0; k < (split ? IMG_THREADS : 1); ++k) {
            const std::string part = split ? std::to_string(k) : std::string();
            std::fputs(("p.sendline('perl " + workstation_dir() + AUTO_GEN_IMG_NAME + part + ".pl')\n").c_str(),
                       output.get());
        }
        std::fputs(("i=p.expect('" + IMG_DONE_TEXT + "\\n')\n").c_str(), output.get());
        std::fputs("p.sendline('exit')\n", output.get());
        std::fputs("p.close()\n", output.get());
    }
    if (split) {
        run_thread_pl(script, ".py", python_command(), "perl", IMG_THREADS, timeout, true, true);
    } else {
        thr_run((python_command() + " " + script).c_str());
        rm_rf_file(script);
    }
    return count_images() > 0;
}

// Runs the converters here under wine instead of on the workstation.
bool PGMDQ_POF_CHECKER::create_img_with_wine()
{
    const std::string script = m_current_path + AUTO_GEN_IMG_NAME + ".pl";
    rm_rf_file(script);
    {
        FILE_HANDLE output(create_script(script));
        PGMDQ_ASSERT(output != NULL);
        const std::string& die = PGMDQ_POF_DIE_LIST[m_die_index].die;
        for (unsigned i = 0; i < m_sof_size; ++i) {
            const std::string& sof = m_sof_files[i].fullpath;
            std::fputs(("system (\"" + WINE_LINUX32_PATH + " " + m_sof2img_path + " " + sof + " " +
                        replace_tail(sof, 3, "img") + " -s2i " + die + "\");\n")
                           .c_str(),
                       output.get());
        }
        std::fputs(("print \"" + IMG_DONE_TEXT + "\\n\"\n").c_str(), output.get());
    }
    if (m_sof_size > MAX_SOFS_PER_IMG_SCRIPT)
        run_thread_pl(script, ".pl", "perl", "s2i", IMG_THREADS, 0, true, true);
    else
        thr_run(("perl " + script).c_str());
    rm_rf_file(script);
    if (count_images() == 0)
        return false;
    // The images lie beside the SOFs; the shell's own folder is the host's, not the die's.
    const std::string in_die_dir = "cd " + shell_word(m_die_dir) + " && ";
    if (thr_run((in_die_dir + "gzip *.img").c_str()) != 0) {
        update_msg(PGMDQ_MSG_TYPE_POF_ERROR, "Fail to compress images");
        return false;
    }
    if (thr_run((in_die_dir + "gunzip *.img.gz").c_str()) != 0) {
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
    const std::string rif = PGMDQ_POF_FAMILY_LIST[m_family_index].has_rif ? " -rif " + m_rk_rif_path : "";
    for (unsigned i = 0; i < m_sof_size; ++i) {
        const unsigned slot = i % MAX_FOLDER_THREADS;
        const std::string folder = m_current_path + AUTO_GEN_DAT_NAME + std::to_string(slot);
        const std::string folder_base = folder + "/" + replace_tail(m_sof_files[i].name, 4, "");
        const std::string own_base = replace_tail(m_sof_files[i].fullpath, 4, "");
        std::vector<std::string>& list = lines[slot];
        list.push_back("system (\"" + emulator + " -o " + folder_base + " -m3 -img " +
                       (moved ? folder_base : own_base) + ".img" + rif + "\");");
        for (const char* leftover : EMULATOR_LEFTOVERS)
            list.push_back("system (\"rm -rf " + folder + "/*." + leftover + "\");");
        list.push_back("system (\"mv " + folder_base + ".dat " + m_current_path + ".\");");
    }
    for (unsigned t = 0; t < threads; ++t) {
        const std::string script = m_current_path + AUTO_GEN_DAT_NAME + std::to_string(t) + ".pl";
        rm_rf_file(script);
        FILE_HANDLE output(create_script(script));
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
    {
        FILE_HANDLE output(create_script(script));
        PGMDQ_ASSERT(output != NULL);
        write_python_login(output.get(), DAT_BUILD_HOST.str(), std::to_string(timeout));
        for (unsigned t = 0; t < threads; ++t)
            std::fputs(("p.sendline('perl " + m_current_path + AUTO_GEN_DAT_NAME + std::to_string(t) + ".pl')\n").c_str(),
                       output.get());
        std::fputs(("i=p.expect('" + DAT_DONE_TEXT + "')\n").c_str(), output.get());
        std::fputs("p.sendline('exit')\n", output.get());
        std::fputs("p.close()\n", output.get());
    }
    if (m_sof_size > 1) {
        run_thread_pl(script, ".py", python_command(), "perl", threads, 0, true, false);
    } else {
        thr_run((python_command() + " " + script).c_str());
        rm_rf_file(script);
    }
    return true;
}

// Creates a generated script readable and writable by its owner only from the first byte on
// (the log-in scripts carry the password), and notes it for removal when the run ends. The
// caller has removed any older file of that name.
FILE* PGMDQ_POF_CHECKER::create_script(const std::string& path)
{
    m_scripts.insert(path);
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
    for (const std::string& script : m_scripts)
        if (exists(script))
            rm_rf_file(script);
    m_scripts.clear();
}
