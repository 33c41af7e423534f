// What the POF checker's Google Test programs share: a GUI application for the panel, direct
// access to a run's state, captured host messages, temporary directories and file helpers.
#pragma once

#include "pgmdq_pof_checker.h"

#include "msg.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QLineEdit>
#include <QListWidget>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

#include <unistd.h>

// The panel is a widget: the programs need an application object before the first one.
inline void pof_test_ensure_application()
{
    static int argc = 1;
    static char name[] = "pof_test";
    static char* argv[] = {name, nullptr};
    if (!QApplication::instance()) {
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
        new QApplication(argc, argv);
    }
}

// A fixture base listed before the panel member, so the application exists first.
struct POF_APPLICATION_FIRST {
    POF_APPLICATION_FIRST() { pof_test_ensure_application(); }
};

struct PGMDQ_POF_CHECKER_TEST_ACCESS {
    PGMDQ_POF_CHECKER& checker;

    // The die directory under check and its SOF records, as the SOF listing would leave them.
    void set_die(unsigned family_row, unsigned die_row, const std::string& die_dir)
    {
        checker.m_family_index = family_row;
        checker.m_die_index = die_row;
        checker.m_current_path = die_dir;
        checker.m_die_dir = die_dir;
    }
    void set_sof_files(const std::vector<std::string>& names)
    {
        checker.prepare_sof_memory(unsigned(names.size()));
        for (size_t i = 0; i < names.size(); ++i) {
            checker.m_sof_files[i].fullpath = checker.m_die_dir + names[i];
            checker.m_sof_files[i].name = names[i];
        }
    }
    void set_skips(bool img, bool dat, bool icd_rbf)
    {
        checker.m_skip_img = img;
        checker.m_skip_dat = dat;
        checker.m_skip_icd_rbf = icd_rbf;
    }
    void set_current_path(const std::string& path) { checker.m_current_path = path; }
    void set_family_die(unsigned family_row, unsigned die_row)
    {
        checker.m_family_index = family_row;
        checker.m_die_index = die_row;
    }
    QCheckBox* debug_check() { return checker.m_debug_check; }
    QLineEdit* dir_edit() { return checker.m_dir_edit; }
    QLineEdit* username_edit() { return checker.m_username_edit; }
    QLineEdit* password_edit() { return checker.m_password_edit; }
    QCheckBox* site_check() { return checker.m_site_check; }
    QCheckBox* personal_test_check() { return checker.m_personal_test_check; }
    size_t crc_entries() const { return checker.m_crc_index.size(); }
    void clear_crc_lists() { checker.clear_crc_lists(); }
    PGMWQ_POF_CHECKER_THREAD* thread_batch() { return checker.m_thread.get(); }
    unsigned thread_count() const { return checker.m_thread_count; }
    const std::string& checked_path() const { return checker.m_checked_path; }
    const std::string& rif_path() const { return checker.m_rif_path; }
    const std::string& rk_rif_path() const { return checker.m_rk_rif_path; }
    const std::string& sof2img_path() const { return checker.m_sof2img_path; }
    const std::string& current_path() const { return checker.m_current_path; }
    const std::string& die_dir() const { return checker.m_die_dir; }
    const std::string& rk_die_dir() const { return checker.m_rk_die_dir; }

    void clear_log() { checker.m_msg_list->clear(); }
    int log_count() const { return checker.m_msg_list->count(); }
    std::string last_log() const { return checker.m_msg_list->item(log_count() - 1)->text().toStdString(); }
    std::vector<std::string> log() const
    {
        std::vector<std::string> lines;
        for (int row = 0; row < checker.m_msg_list->count(); ++row)
            lines.push_back(checker.m_msg_list->item(row)->text().toStdString());
        return lines;
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

// What a shell command prints.
inline std::string pof_test_read_command(const std::string& command)
{
    std::string output;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[256];
        while (size_t got = std::fread(buffer, 1, sizeof buffer, pipe))
            output.append(buffer, got);
        pclose(pipe);
    }
    return output;
}

inline bool pof_test_exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

// Runs `body` and gives the text of the internal error it raised ("" when none).
template <typename BODY>
std::string pof_test_internal_error(BODY&& body)
{
    try {
        body();
    } catch (const MSG_INTERNAL_ERROR_EXCEPTION& error) {
        EXPECT_EQ(error.module(), "PGMDQ");
        EXPECT_EQ(error.file(), "pgmdq_pof_checker");
        return error.text();
    }
    return std::string();
}
