// The "Kiopru" tab: picks a DUT, the two JTAG cables and the configuration options, expands
// them into test command lines and runs the batch through the chain manager.
#pragma once

#include <QList>
#include <QString>
#include <QWidget>

#include <cstdint>
#include <string>
#include <vector>

class PGMD_CM_MANAGER;
class PGMDQ_CM_AUTO_CHAIN;
class QComboBox;
class QGraphicsView;
class QLineEdit;
class QListWidget;
class QPushButton;

// Colour codes of the command list's lines.
enum PGMDQ_CMD_LIST_COLOR : unsigned {
    PGMDQ_CMD_COLOR = 0,
    PGMDQ_PROCESS_COLOR = 1,
    PGMDQ_PASS_RESULT_COLOR = 2,
    PGMDQ_FAIL_RESULT_COLOR = 3,
};

class PGMDQ_COOKIE_MONSTER : public QWidget {
    Q_OBJECT
public:
    explicit PGMDQ_COOKIE_MONSTER(QWidget* parent = nullptr);
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

private:
    struct OPTION;
    const OPTION& option(unsigned which) const;
    void populate_option(const OPTION& option);
    unsigned get_selected_option(const OPTION& option);
    void take_selected_option(const OPTION& option);
    std::vector<std::string> list_lines() const;
    void delete_item(int row);
    void add_command_line(unsigned scheme_row, unsigned vccpgm_row, unsigned flash_row, unsigned freq_row);
    void create_layout();

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
};
