// The one friend of the POF checker: tests and benchmarks set up a run's state (directories, SOF
// records, skip flags, the CRC cache) and read what it left, through here.
#pragma once

#include "pgmdq_pof_checker.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>

#include <string>
#include <vector>

struct PGMDQ_POF_CHECKER_TEST_ACCESS {
    PGMDQ_POF_CHECKER& checker;

    // The die directory under check and its SOF records, as the SOF listing would leave them.
    void set_die(unsigned family_row, unsigned die_row, const std::string& die_dir)
    {
        set_family_die(family_row, die_row);
        checker.m_current_path = checker.m_die_dir = die_dir;
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
    void add_crc_entry(unsigned index, unsigned bits, unsigned value)
    {
        checker.m_crc_index.push_back(index);
        checker.m_crc_total_bits.push_back(bits);
        checker.m_crc_value.push_back(value);
    }
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
    QPushButton* check_button() { return checker.m_check_button; }
    QPushButton* send_button() { return checker.m_send_button; }
    QCheckBox* skip_img_check() { return checker.m_skip_img_check; }
    QCheckBox* skip_dat_check() { return checker.m_skip_dat_check; }
    QCheckBox* skip_icd_rbf_check() { return checker.m_skip_icd_rbf_check; }
    QComboBox* family_combo() { return checker.m_family_combo; }
    QComboBox* die_combo() { return checker.m_die_combo; }
    unsigned sof_size() const { return checker.m_sof_size; }
    void set_regression(bool regression) { checker.m_regression = regression; }
    void update_msg(PGMDQ_MSG_TYPE type, const std::string& text) { checker.update_msg(type, text); }
    size_t crc_entries() const { return checker.m_crc_index.size(); }
    PGMWQ_POF_CHECKER_THREAD* thread_batch() { return checker.m_thread.get(); }
    unsigned thread_count() const { return checker.m_thread_count; }
    const std::string& checked_path() const { return checker.m_checked_path; }
    const std::string& current_path() const { return checker.m_current_path; }
    const std::string& die_dir() const { return checker.m_die_dir; }
    const std::string& rk_die_dir() const { return checker.m_rk_die_dir; }

    void clear_log() { checker.m_msg_list->clear(); }
    std::string last_log() const { return log().back(); }
    // The check's lines up to its summary, and the summary.
    std::vector<std::string> log() const { return log_part(false); }
    std::vector<std::string> summary() const { return log_part(true); }
    std::vector<std::string> log_part(bool summary) const
    {
        std::vector<std::string> lines;
        bool in_summary = false;
        for (const std::string& line : checker.log_lines()) {
            in_summary = in_summary || line.rfind("Info: Summary: ", 0) == 0;
            if (in_summary == summary)
                lines.push_back(line);
        }
        return lines;
    }
};

