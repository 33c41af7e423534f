// What the POF checker's Google Test programs share: a GUI application for the panel, direct
// access to a run's state, captured host messages, temporary directories and file helpers.
#pragma once

#include "build_tree.h"
#include "internal_error_text.h"
#include "shell_run.h"

#include "pof_checker_access.h"

#include "msg.h"
#include "pgmdq_miscellaneous_files.h"

#include <gtest/gtest.h>

#include <QApplication>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <unistd.h>

// The panel is a widget: a fixture base listed before the panel member makes the application
// first.
struct POF_APPLICATION_FIRST {
    POF_APPLICATION_FIRST()
    {
        static int argc = 1;
        static char name[] = "pof_test";
        static char* argv[] = {name, nullptr};
        if (!QApplication::instance()) {
            setenv("QT_QPA_PLATFORM", "offscreen", 0);
            new QApplication(argc, argv);
        }
    }
};

// Host messages posted while it lives, from any thread.
struct POF_TEST_SINK : MSG_SINK {
    std::mutex mutex;
    std::vector<std::pair<MSG_KIND, std::string>> rows;
    POF_TEST_SINK() { msg_set_sink(this); }
    ~POF_TEST_SINK() override { msg_set_sink(nullptr); }
    void receive(MSG_KIND kind, int, const std::string& text) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        rows.emplace_back(kind, text);
    }
    std::vector<std::string> texts(MSG_KIND kind)
    {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<std::string> out;
        for (const auto& row : rows)
            if (row.first == kind)
                out.push_back(row.second);
        return out;
    }
};

// The release maker's name of a die's design `number` (from 1), without its extension.
inline std::string pof_test_design(const std::string& die, unsigned number)
{
    return QString::fromStdString(die).toLower().toStdString() + "_design0" + std::to_string(number);
}

inline std::string pof_test_temp_dir(const char* tag)
{
    std::string pattern = std::string("/tmp/") + tag + ".XXXXXX";
    return std::string(mkdtemp(&pattern[0])) + "/";
}

inline void pof_test_write(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

inline std::string pof_test_read(const std::string& path)
{
    std::ifstream input(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
}

// What a shell command prints on its standard output.
inline std::string pof_test_read_command(const std::string& command)
{
    return run("(" + command + ") 2>/dev/null").output;
}

// The entries below `dir` that `find` selects with `tests` (every file by default), by their paths
// relative to it.
inline std::set<std::string> pof_test_files(const std::string& dir, const std::string& tests = "-type f")
{
    std::set<std::string> names;
    const std::string listing = pof_test_read_command("cd " + pgmdq_shell_quote(dir) + " && find . -mindepth 1 " + tests);
    for (size_t begin = 0, end; (end = listing.find('\n', begin)) != std::string::npos; begin = end + 1)
        names.insert(listing.substr(begin + 2, end - begin - 2));
    return names;
}

inline bool pof_test_exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

template <typename BODY> std::string pof_test_internal_error(BODY&& body)
{
    return internal_error_text("pgmdq_pof_checker", std::forward<BODY>(body));
}

// The POF checker's site for one test program: the loopback site's settings with the test
// directory moved to a folder of the share's own (so programs never share a release), a password
// of the program's own (so a test can look for it on disk), and a release made there by the
// release maker on demand. Logs of the site's Python command and of every perl run let a test
// count log-ins and script runs.
class POF_TEST_SITE {
public:
    explicit POF_TEST_SITE(const std::string& tag)
    {
        m_build = build_dir();
        m_temp = pof_test_temp_dir(tag.c_str());
        m_password = "pw-" + tag + "-" + std::to_string(getpid());
        m_name = tag + "_" + std::to_string(getpid());
        m_root = m_build + "/site/share/data/" + m_name + "/";
        pof_test_read_command("rm -rf " + m_root + "; mkdir -p " + m_root);
        // The site's ssh reads the account from the settings file the host names.
        const std::string ini = m_temp + "site.ini";
        pof_test_read_command("sed 's/^account_password=.*/account_password=" + m_password + "/' " + m_build +
                              "/site/site.ini > " + ini);
        setenv("PGMDQ_SITE_SETTINGS", ini.c_str(), 1);
        gen_load_settings(ini);
        for (const char* key : {"pof_checker/rk_linux_test_dir", "pof_checker/nv_linux_test_dir"})
            gen_set_setting(key, m_root);
        gen_set_setting("pof_checker/test_short_dir", m_name + "/");
        // The Python command and perl, each through a wrapper that notes its arguments.
        pof_test_write(m_temp + "python.sh", "echo \"$@\" >> " + m_temp + "python.log\nPATH=" + m_build +
                                                 "/site/bin:$PATH exec python3 \"$@\"\n");
        gen_set_setting("pof_checker/python_rk_src", "sh " + m_temp + "python.sh");
        gen_set_setting("pof_checker/python_nv_src", "sh " + m_temp + "python.sh");
        pof_test_read_command("mkdir " + m_temp + "bin");
        pof_test_write(m_temp + "bin/perl",
                       "#!/bin/sh\necho \"$@\" >> " + m_temp + "perl.log\nexec /usr/bin/perl \"$@\"\n");
        pof_test_read_command("chmod +x " + m_temp + "bin/perl");
        m_old_path = std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin";
        setenv("PATH", (m_temp + "bin:" + m_old_path).c_str(), 1);
    }
    ~POF_TEST_SITE()
    {
        setenv("PATH", m_old_path.c_str(), 1);
        pof_test_read_command("rm -rf " + m_root + " " + m_temp);
    }

    // Dies as "C5D1,D5D2"; every `gzip_every`-th SOF stored compressed (0: none).
    bool make_release(const std::string& dies, unsigned sofs, unsigned gzip_every)
    {
        const std::string made = pof_test_read_command(
            m_build + "/bin/pgm_release_maker --out " + m_root + " --emulator-root " + m_root + "icd_emulator --sofs " +
            std::to_string(sofs) + " --gzip-every " + std::to_string(gzip_every) + " --dies " + dies + " 2>&1");
        for (size_t begin = 0; begin < dies.size();) {
            const size_t end = std::min(dies.find(',', begin), dies.size());
            const std::string die = dies.substr(begin, end - begin);
            gen_set_setting("icd_emulator/" + die, m_root + "icd_emulator/" + die + "/" + die);
            begin = end + 1;
        }
        return pof_test_exists(m_root + "sof2img");
    }

    void log_in(PGMDQ_POF_CHECKER_TEST_ACCESS& access) const
    {
        access.username_edit()->setText(QString::fromStdString(gen_get_setting("loopback/account_user")));
        access.password_edit()->setText(QString::fromStdString(m_password));
    }

    // A program of this name found first on the PATH of every command the checker runs.
    void add_program(const std::string& name, const std::string& script) const
    {
        pof_test_write(m_temp + "bin/" + name, script);
        pof_test_read_command("chmod +x " + m_temp + "bin/" + name);
    }

    // Lines of the Python command's and perl's logs (what each run was given).
    std::vector<std::string> python_runs() const { return lines(m_temp + "python.log"); }
    std::vector<std::string> perl_runs() const { return lines(m_temp + "perl.log"); }
    void clear_runs() const { pof_test_read_command("rm -f " + m_temp + "python.log " + m_temp + "perl.log"); }

    // Files below `dir` whose content holds the password.
    std::string files_with_password(const std::string& dir) const
    {
        return pof_test_read_command("grep -rl -- '" + m_password + "' " + dir + " 2>/dev/null");
    }

    const std::string& root() const { return m_root; }       // the test directory (Linux)
    const std::string& name() const { return m_name; }       // its name below the data root
    const std::string& build() const { return m_build; }
    std::string data_root() const { return m_build + "/site/share/data/"; }

private:
    static std::vector<std::string> lines(const std::string& path)
    {
        std::vector<std::string> out;
        std::ifstream input(path);
        for (std::string line; std::getline(input, line);)
            out.push_back(line);
        return out;
    }

    std::string m_build;
    std::string m_temp;
    std::string m_password;
    std::string m_name;
    std::string m_root;
    std::string m_old_path;
};

// A checker with its test access and a scratch folder that goes with the test.
class POF_CHECKER_FIXTURE : public ::testing::Test, POF_APPLICATION_FIRST {
protected:
    explicit POF_CHECKER_FIXTURE(const char* tag) : dir(pof_test_temp_dir(tag)) {}
    ~POF_CHECKER_FIXTURE() override { std::system(("rm -rf " + dir).c_str()); }

    PGMDQ_POF_CHECKER checker;
    PGMDQ_POF_CHECKER_TEST_ACCESS access{checker};
    std::string dir;
};
