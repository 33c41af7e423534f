// The "Kiopru" tab: picks a DUT, the two JTAG cables and the configuration options, expands
// them into test command lines and runs the batch through the chain manager.
#pragma once

#include "pgmdq_cookie_monster_model.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QWidget>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class PGMD_CM_BENCH;
class PGMD_CM_MANAGER;
class PGMDQ_CM_AUTO_CHAIN;
class PGMDQ_PROCESS_DLG;
class QComboBox;
class QGraphicsView;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
struct PGMDQ_JUNIT_SUITE;

class PGMDQ_COOKIE_MONSTER : public QWidget {
    Q_OBJECT
public:
    // On the site's bench, as the frame creates it.
    explicit PGMDQ_COOKIE_MONSTER(QWidget* parent = nullptr);
    // On a bench of the caller's own: the panel reaches that bench's cables and devices only.
    explicit PGMDQ_COOKIE_MONSTER(std::shared_ptr<PGMD_CM_BENCH> bench, QWidget* parent = nullptr);
    ~PGMDQ_COOKIE_MONSTER() override;

    void on_jtag(bool dut);
    void populate_config_scheme(unsigned mask);
    void populate_vccpgm();
    void populate_flash();
    void populate_freq();
    unsigned get_selected_scheme();
    unsigned get_selected_vccpgm();
    unsigned get_selected_flash();
    unsigned get_selected_freq();
    int convert_enum_to_index(unsigned enumerator);

    void add_cmd(const QString& text, unsigned color);
    bool is_valid_test_case(unsigned scheme, unsigned vccpgm, unsigned flash, unsigned freq);
    void enforce_valid_enum(unsigned value, unsigned count);
    void optimize_test_case();
    // Groups test cases (five strings each: DUT, scheme, VCCPGM, memory storage, clock) so that
    // consecutive runs change as little as possible. *order receives the visiting order; the
    // result, owned by the caller (delete[]), holds each case's note at the case's own index.
    QString* reorganize_test_case(QList<QString>* cases, unsigned count, unsigned** order);

    bool determine_process(bool silent);
    int generate_raw_file();
    bool execute_test();
    int determine_hardware();

    // Binds a cable by its hardware handle (0: none) as the "..." buttons do after their dialog;
    // false, with "No hardware" shown, when the engine refuses it.
    bool set_hardware(bool dut, unsigned hardware);
    // Appends the test commands of a saved batch, each validated as "Create Test" validates its
    // own; every other line is posted with its reason and returned, except the processes and
    // results of an earlier run, which are counted in one message. False, with the reason posted,
    // when the file cannot be read.
    struct BATCH_LINE_PROBLEM {
        int line_number;
        QString text;
        QString reason;
    };
    bool load_batch(const std::string& path, std::vector<BATCH_LINE_PROBLEM>* problems);
    // "Run Test" with the process dialog answered as asked instead of by the user; the suite's
    // results of the run, one test case per command line, its time measured.
    PGMDQ_JUNIT_SUITE run_unattended(bool skip_flash, bool skip_engine, const std::string& suite_name);

    // The test batch the command list shows.
    const PGMDQ_COOKIE_MONSTER_MODEL& batch() const { return m_batch; }

protected:
    void resizeEvent(QResizeEvent* event) override;

private slots:
    void on_cookie_jtag();
    void on_dut_jtag();
    void on_dut_change(int index);
    void on_scheme_change(int index);
    void on_vccpgm_change(int index);
    void on_flash_change(int index);
    void on_freq_change(int index);
    void on_create_test();
    void on_save_msg();
    void on_delete_test();
    void on_run_test();
    void on_list_change();
    void on_load_batch();

private:
    // Bits of m_hardware_flags.
    static const std::uint8_t DUT_HARDWARE_FLAG = 1;
    static const std::uint8_t COOKIE_HARDWARE_FLAG = 2;
    static const std::uint8_t BOTH_HARDWARE_FLAGS = DUT_HARDWARE_FLAG | COOKIE_HARDWARE_FLAG;

    struct OPTION;
    const OPTION& option(unsigned which) const;
    void populate_option(const OPTION& option);
    unsigned get_selected_option(const OPTION& option);
    void take_selected_option(const OPTION& option);
    static bool is_command_line(const QString& text);
    static bool is_run_output(const QString& text);
    void append_line(const PGMDQ_COOKIE_MONSTER_MODEL::LINE& line);
    void delete_item(int row);
    void clear_lines();
    // A test case: the DUT's database row and the row of each option (scheme, VCCPGM, memory
    // storage, clock) in its list.
    struct CASE_ROWS {
        unsigned dut;
        unsigned options[4];
    };
    bool is_valid_for_dut(unsigned dut_index, unsigned scheme, unsigned vccpgm, unsigned flash, unsigned freq);
    QString invalid_option_text(const CASE_ROWS& rows, unsigned which);
    QString test_case_problem(const CASE_ROWS& rows);
    void expand_test_cases(const unsigned* selected, unsigned which, CASE_ROWS* rows);
    QString command_line_problem(const QString& line, CASE_ROWS* rows);
    void add_command_line(const CASE_ROWS& rows);
    void post_batch_problems(const std::string& path, const std::vector<BATCH_LINE_PROBLEM>& problems,
                             unsigned run_output_lines);
    int exec_process_dialog(PGMDQ_PROCESS_DLG& dialog);
    void show_result_counts();
    void create_layout();
    void connect_controls();

    QComboBox* m_dut_combo;
    QPushButton* m_claim_button;
    QLineEdit* m_cookie_jtag_edit;
    QLineEdit* m_dut_jtag_edit;
    QPushButton* m_cookie_jtag_button;
    QPushButton* m_dut_jtag_button;
    QPushButton* m_reinit_chain_button;
    QPushButton* m_desired_chain_button;
    PGMDQ_CM_AUTO_CHAIN* m_auto_chain;
    QGraphicsView* m_chain_view;
    QComboBox* m_scheme_combo;
    QComboBox* m_vccpgm_combo;
    QComboBox* m_flash_combo;
    QComboBox* m_freq_combo;
    QPushButton* m_create_button;
    QListWidget* m_cmd_widget;
    QPushButton* m_save_msg_button;
    QPushButton* m_delete_button;
    QPushButton* m_run_button;
    QPushButton* m_load_batch_button;
    QLabel* m_result_counts_label;
    PGMD_CM_MANAGER* m_manager;
    bool m_populating;
    unsigned m_dut_index;
    unsigned m_scheme;
    unsigned m_vccpgm;
    unsigned m_flash;
    unsigned m_freq;
    std::uint8_t m_hardware_flags;
    bool m_skip_flash;
    bool m_skip_engine;
    // Set while an unattended run answers the process dialog: the two skip choices.
    struct PROCESS_ANSWER {
        bool skip_flash;
        bool skip_engine;
    };
    const PROCESS_ANSWER* m_process_answer;
    PGMDQ_COOKIE_MONSTER_MODEL m_batch;
};
