// What the files of the POF checker share: the site's settings and constants, path and file
// helpers, and the worker flags' lock.
#pragma once

#include "pgmdq_internal_error.h"
#include "pgmdq_miscellaneous_files.h"
#include "pgmdq_pof_checker.h"

#include "fio.h"

#include <QDir>
#include <QMutexLocker>
#include <QStringList>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <strings.h>
#include <string>
#include <vector>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

typedef std::uint32_t DWORD;

namespace pgmdq_pof {

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

// Upper time of a command other than a log-in script, in seconds.
const PGMDQ_SITE_STRING COMMAND_TIMEOUT_SECONDS{"pof_checker/command_timeout_seconds"};
const unsigned DEFAULT_COMMAND_TIMEOUT_SECONDS = 600;
// A log-in script may take its own time-out for the work plus this for logging in and out.
const unsigned LOGIN_ALLOWANCE_SECONDS = 120;

// Exit statuses of a log-in script whose log-in failed.
const int LOGIN_EXIT_REFUSED = 3;      // wrong user name or password
const int LOGIN_EXIT_UNREACHABLE = 4;  // no connection, unknown host, host key refused
const int LOGIN_EXIT_TIMED_OUT = 5;    // no answer within the script's time-out

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


// The path with its last `count` characters replaced: "x.sof" -> "x.dat".
inline std::string replace_tail(const std::string& path, size_t count, const std::string& tail)
{
    return path.substr(0, path.size() - std::min(count, path.size())) + tail;
}

inline bool exists(const std::string& path)
{
    return FIO_FILE_SYSTEM::exists(path.c_str());
}


inline std::string upper(std::string text)
{
    stl_toupper(text);
    return text;
}

inline bool equal_ignoring_case(const std::string& a, const std::string& b)
{
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

// Text inside a single-quoted Python string of a generated script.
inline std::string python_text(const std::string& text)
{
    std::string escaped;
    for (char c : text) {
        if (c == '\n' || c == '\r') {
            escaped += c == '\n' ? "\\n" : "\\r";
            continue;
        }
        if (c == '\\' || c == '\'')
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

// A Perl statement that hands `command` to the shell: inside the double-quoted string Perl
// would otherwise read "$", "@", the backslash and the quote itself.
inline std::string perl_system(const std::string& command)
{
    std::string escaped;
    for (char c : command) {
        if (std::strchr("\\\"$@", c))
            escaped += '\\';
        escaped += c;
    }
    return "system (\"" + escaped + "\");";
}

// The type of what has this name (a link itself, not what it points to); 0 when nothing has.
inline mode_t entry_type(const std::string& path)
{
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & S_IFMT : 0;
}

// Whether anything, a dangling link included, has this name.
inline bool lexists(const std::string& path)
{
    return entry_type(path) != 0;
}

inline bool is_link(const std::string& path)
{
    return entry_type(path) == S_IFLNK;
}

inline bool is_regular_file(const std::string& path)
{
    return entry_type(path) == S_IFREG;
}

// Opens a file for reading, never through a symbolic link.
inline PGMDQ_FILE open_for_reading(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    PGMDQ_FILE file(::fdopen(fd, "rb"));
    if (!file)
        ::close(fd);
    return file;
}

// More than 3 bytes, beginning with the gzip magic and the deflate method.
inline bool is_gzip(const std::string& path)
{
    unsigned char head[4] = {};
    const PGMDQ_FILE file = open_for_reading(path);
    const size_t got = file ? std::fread(head, 1, sizeof head, file.get()) : 0;
    return got > 3 && head[0] == 0x1F && head[1] == 0x8B && head[2] == 0x08;
}

// The entries a check works on: symbolic links are left out (and told, see report_links).
inline QStringList dir_entries(const std::string& dir, const QStringList& patterns, QDir::Filters filters)
{
    return QDir(pgmdq_from_local8(dir)).entryList(patterns, filters | QDir::NoSymLinks, QDir::Name);
}

inline bool read_file(const std::string& path, std::vector<unsigned char>& data)
{
    const PGMDQ_FILE file = open_for_reading(path);
    struct stat status;
    if (!file || ::fstat(::fileno(file.get()), &status) != 0)
        return false;
    data.resize(size_t(status.st_size));
    return std::fread(data.data(), 1, data.size(), file.get()) == data.size();
}

} // namespace pgmdq_pof
