// The Kiopru panel driven through its selectors and buttons: the DUT -> scheme -> option cascade,
// the expansion of selections into command lines, the list's prefix rule, the grouping of test
// cases, and the cable choice that enables "Run Test".
#include "kiopru_test_support.h"

#include "pgmd_cm.h"
#include "pgmwq.h"

#include <QSignalSpy>

#include <memory>

namespace {

const QString BR5 = "BR5-TV1-ES";
const QString CD5 = "CD5-TV2-ES";
const QString DN5 = "DN5-TV3-ES";
const QStringList PARALLEL_FLASHES{"P30 2Gb 16-bits CFI flash", "2 x P30 2Gb 16-bits CFI flash", "Micron QSPI 256Mb",
                                   "2 x Micron QSPI 256Mb",     "4 x Micron QSPI 256Mb",
                                   "Micron 1Gb 16-bits NAND flash"};
const QStringList ACTIVE_CLOCKS{"Internal 12.5 Mhz", "Internal 25.0 Mhz", "Internal 50.0 Mhz", "Internal 100.0 Mhz",
                                "External CLKUSR"};
const QString BENCH_CABLE = "Bench-USB [1-1]";
const QString DUT_CABLE = "DUT-USB [1-2]";

QStringList with_all(QStringList items)
{
    return items << "All";
}

struct DEBUG_SINK : MSG_SINK {
    QStringList debug_lines;
    void receive(MSG_KIND kind, int, const std::string& text) override
    {
        if (kind == MSG_KIND::DEBUG)
            debug_lines << QString::fromStdString(text);
    }
};

using CASES = QVector<QStringList>;
using ORDER = QVector<unsigned>;

} // namespace

class TEST_KIOPRU_PANEL : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { kiopru_quiet_offscreen_warnings(); }
    void init();
    void cleanup();

    void none_offers_nothing();
    void back_to_none_clears_the_selectors();
    void first_dut_fills_the_cascade();
    void cascade_follows_the_scheme_data();
    void cascade_follows_the_scheme();
    void all_in_a_selector_means_everything_offered();
    void enumerator_index_data();
    void enumerator_index();
    void validity_of_test_cases_data();
    void validity_of_test_cases();
    void all_everywhere_expands_every_valid_case();
    void create_twice_adds_nothing();
    void single_selection_creates_one_line();
    void prefix_rule_of_the_list_data();
    void prefix_rule_of_the_list();
    void reorganize_groups_cases_data();
    void reorganize_groups_cases();
    void reorganize_without_cases_touches_nothing();
    void run_needs_both_cables_and_a_line();
    void failed_cable_choice_clears_its_flag();
    void dut_chain_is_read_through_the_dut_cable();

private:
    void choose_dut(const QString& dut);
    void choose_cable(bool dut, const char* cable);

    std::unique_ptr<PGMDQ_COOKIE_MONSTER> m_panel;
};

void TEST_KIOPRU_PANEL::init()
{
    m_panel = std::make_unique<PGMDQ_COOKIE_MONSTER>();
    m_panel->show();
}

void TEST_KIOPRU_PANEL::cleanup()
{
    m_panel.reset();
}

void TEST_KIOPRU_PANEL::choose_dut(const QString& dut)
{
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_dut_combo"), dut));
}

void TEST_KIOPRU_PANEL::choose_cable(bool dut, const char* cable)
{
    pgmwq_set_preset_answer(cable);
    kiopru_click(kiopru_jtag_button(*m_panel, dut));
}

void TEST_KIOPRU_PANEL::none_offers_nothing()
{
    QCOMPARE(kiopru_items(kiopru_combo(*m_panel, "m_dut_combo")), (QStringList{"None", BR5, CD5, DN5}));
    for (const char* name : {"m_scheme_combo", "m_vccpgm_combo", "m_flash_combo", "m_freq_combo"})
        QCOMPARE(kiopru_combo(*m_panel, name)->count(), 0);
    for (const char* text : {"Claim board", "Create Test", "Save msg", "Delete Test", "Run Test",
                             "Re-initialize dut JTAG chain", "Establish desired dut JTAG chain"})
        QVERIFY2(!kiopru_button(*m_panel, text)->isEnabled(), text);
    QCOMPARE(kiopru_internal_error([&] { m_panel->get_selected_scheme(); }), QString("scheme > 0"));
    QCOMPARE(kiopru_internal_error([&] { m_panel->get_selected_vccpgm(); }), QString("vccpgm > 0"));
    QCOMPARE(kiopru_internal_error([&] { m_panel->get_selected_flash(); }), QString("flash > 0"));
    QCOMPARE(kiopru_internal_error([&] { m_panel->get_selected_freq(); }), QString("freq > 0"));
    QCOMPARE(kiopru_internal_error([&] { m_panel->populate_vccpgm(); }), QString("m_scheme > 0"));
}

void TEST_KIOPRU_PANEL::back_to_none_clears_the_selectors()
{
    choose_dut(CD5);
    QVERIFY(kiopru_button(*m_panel, "Create Test")->isEnabled());
    QVERIFY(kiopru_button(*m_panel, "Claim board")->isEnabled());
    choose_dut("None");
    for (const char* name : {"m_scheme_combo", "m_vccpgm_combo", "m_flash_combo", "m_freq_combo"})
        QCOMPARE(kiopru_combo(*m_panel, name)->count(), 0);
    QVERIFY(!kiopru_button(*m_panel, "Create Test")->isEnabled());
    QVERIFY(!kiopru_button(*m_panel, "Claim board")->isEnabled());
    QCOMPARE(kiopru_internal_error([&] { m_panel->get_selected_scheme(); }), QString("scheme > 0"));
    QCOMPARE(kiopru_internal_error([&] { m_panel->get_selected_freq(); }), QString("freq > 0"));
}

void TEST_KIOPRU_PANEL::first_dut_fills_the_cascade()
{
    choose_dut(BR5);
    QCOMPARE(kiopru_items(kiopru_combo(*m_panel, "m_scheme_combo")),
             (QStringList{"Passive Serial", "Fast Passive Parallel x8", "Fast Passive Parallel x16",
                          "Fast Passive Parallel x32", "Active Serial", "Active Serial x4", "All"}));
    QCOMPARE(kiopru_combo(*m_panel, "m_scheme_combo")->currentText(), QString("Passive Serial"));
    QCOMPARE(m_panel->get_selected_scheme(), 1u);
    QCOMPARE(kiopru_items(kiopru_combo(*m_panel, "m_vccpgm_combo")), (QStringList{"1.8 V", "2.5 V", "3.0 V", "All"}));
    QCOMPARE(m_panel->get_selected_vccpgm(), 1u);
    QCOMPARE(kiopru_items(kiopru_combo(*m_panel, "m_flash_combo")), with_all(PARALLEL_FLASHES));
    QCOMPARE(m_panel->get_selected_flash(), 1u);
    QCOMPARE(kiopru_items(kiopru_combo(*m_panel, "m_freq_combo")), (QStringList{"DCLK", "All"}));
    QCOMPARE(m_panel->get_selected_freq(), 32u);
}

void TEST_KIOPRU_PANEL::cascade_follows_the_scheme_data()
{
    QTest::addColumn<QString>("dut");
    QTest::addColumn<QString>("scheme");
    QTest::addColumn<QStringList>("vccpgm");
    QTest::addColumn<QStringList>("flash");
    QTest::addColumn<QStringList>("freq");
    QTest::newRow("BR5 active serial") << BR5 << "Active Serial" << QStringList{"3.0 V"} << QStringList{"CFGQ"}
                                       << ACTIVE_CLOCKS;
    QTest::newRow("BR5 parallel x32") << BR5 << "Fast Passive Parallel x32" << QStringList{"1.8 V", "2.5 V", "3.0 V"}
                                      << PARALLEL_FLASHES << QStringList{"DCLK"};
    QTest::newRow("BR5 all schemes") << BR5 << "All" << QStringList{"1.8 V", "2.5 V", "3.0 V"}
                                     << (QStringList(PARALLEL_FLASHES) << "CFGQ") << (QStringList(ACTIVE_CLOCKS) << "DCLK");
    QTest::newRow("CD5 active x4") << CD5 << "Active Serial x4" << QStringList{"1.8 V", "3.0 V", "3.3 V"}
                                   << QStringList{"CFGQ"} << ACTIVE_CLOCKS;
    QTest::newRow("DN5 parallel x16") << DN5 << "Fast Passive Parallel x16" << QStringList{"1.8 V", "2.5 V", "3.0 V", "3.3 V"}
                                        << PARALLEL_FLASHES << QStringList{"DCLK"};
}

void TEST_KIOPRU_PANEL::cascade_follows_the_scheme()
{
    QFETCH(QString, dut);
    QFETCH(QString, scheme);
    QFETCH(QStringList, vccpgm);
    QFETCH(QStringList, flash);
    QFETCH(QStringList, freq);
    choose_dut(dut);
    // Leave a non-first choice behind so that the refill visibly resets it.
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_vccpgm_combo"), "All"));
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_scheme_combo"), scheme));
    QCOMPARE(kiopru_items(kiopru_combo(*m_panel, "m_vccpgm_combo")), with_all(vccpgm));
    QCOMPARE(kiopru_items(kiopru_combo(*m_panel, "m_flash_combo")), with_all(flash));
    QCOMPARE(kiopru_items(kiopru_combo(*m_panel, "m_freq_combo")), with_all(freq));
    for (const char* name : {"m_vccpgm_combo", "m_flash_combo", "m_freq_combo"})
        QCOMPARE(kiopru_combo(*m_panel, name)->currentIndex(), 0);
    QCOMPARE(kiopru_combo(*m_panel, "m_vccpgm_combo")->currentText(), vccpgm.first());
}

void TEST_KIOPRU_PANEL::all_in_a_selector_means_everything_offered()
{
    choose_dut(CD5);
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_scheme_combo"), "All"));
    QCOMPARE(m_panel->get_selected_scheme(), 7u | 48u);
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_vccpgm_combo"), "All"));
    QCOMPARE(m_panel->get_selected_vccpgm(), 15u);
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_freq_combo"), "All"));
    QCOMPARE(m_panel->get_selected_freq(), 63u);
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_flash_combo"), "Micron QSPI 256Mb"));
    QCOMPARE(m_panel->get_selected_flash(), 4u);
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_scheme_combo"), "Active Serial"));
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_vccpgm_combo"), "All"));
    QCOMPARE(m_panel->get_selected_vccpgm(), 13u);
}

void TEST_KIOPRU_PANEL::enumerator_index_data()
{
    QTest::addColumn<unsigned>("enumerator");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("error");
    QTest::newRow("bit 0") << 1u << 0 << "";
    QTest::newRow("bit 5") << 32u << 5 << "";
    QTest::newRow("bit 31") << 0x80000000u << 31 << "";
    QTest::newRow("all") << 0xFFFFFFFFu << int(0xFFFFFFFFu) << "";
    QTest::newRow("zero") << 0u << 0 << "enumerator > 0 || enumerator == PGMD_CM_SELECT_ALL";
    QTest::newRow("two bits") << 6u << 0 << "value == 1";
}

void TEST_KIOPRU_PANEL::enumerator_index()
{
    QFETCH(unsigned, enumerator);
    QFETCH(int, index);
    QFETCH(QString, error);
    int result = 0;
    QCOMPARE(kiopru_internal_error([&] { result = m_panel->convert_enum_to_index(enumerator); }), error);
    if (error.isEmpty())
        QCOMPARE(result, index);
}

void TEST_KIOPRU_PANEL::validity_of_test_cases_data()
{
    QTest::addColumn<QString>("dut");
    QTest::addColumn<QVector<unsigned>>("options"); // scheme, vccpgm, flash, freq
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QString>("error");
    QTest::newRow("passive serial at 2.5 V") << BR5 << QVector<unsigned>{1, 2, 1, 32} << true << "";
    QTest::newRow("active serial at 2.5 V") << BR5 << QVector<unsigned>{16, 2, 0, 0} << false << "";
    QTest::newRow("active serial at 3.0 V") << BR5 << QVector<unsigned>{16, 4, 64, 1} << true << "";
    QTest::newRow("passive with the active flash") << BR5 << QVector<unsigned>{1, 0, 64, 0} << false << "";
    QTest::newRow("passive with an internal clock") << BR5 << QVector<unsigned>{2, 0, 0, 1} << false << "";
    QTest::newRow("x32 on a DUT without it") << CD5 << QVector<unsigned>{8, 0, 0, 0} << false << "";
    QTest::newRow("3.3 V passive on CD5") << CD5 << QVector<unsigned>{1, 8, 0, 0} << true << "";
    // The checks stop at the first failure: the malformed flash is never looked at.
    QTest::newRow("stops at the first failure") << BR5 << QVector<unsigned>{16, 2, 3, 0} << false << "";
    QTest::newRow("no scheme") << BR5 << QVector<unsigned>{0, 0, 0, 0} << false << "enumerator > 0";
    QTest::newRow("scheme beyond the list") << BR5 << QVector<unsigned>{64, 0, 0, 0} << false << "found";
    QTest::newRow("two schemes") << BR5 << QVector<unsigned>{3, 0, 0, 0} << false << "value == 1";
    QTest::newRow("flash beyond the list") << BR5 << QVector<unsigned>{1, 0, 128, 0} << false << "found";
    QTest::newRow("two clocks") << BR5 << QVector<unsigned>{16, 0, 0, 3} << false << "value == 1";
}

void TEST_KIOPRU_PANEL::validity_of_test_cases()
{
    QFETCH(QString, dut);
    QFETCH(QVector<unsigned>, options);
    QFETCH(bool, valid);
    QFETCH(QString, error);
    choose_dut(dut);
    bool result = false;
    QCOMPARE(kiopru_internal_error(
                 [&] { result = m_panel->is_valid_test_case(options[0], options[1], options[2], options[3]); }),
             error);
    QCOMPARE(result, valid);
}

void TEST_KIOPRU_PANEL::all_everywhere_expands_every_valid_case()
{
    DEBUG_SINK sink;
    msg_set_sink(&sink);
    msg_set_debug_level(2);
    choose_dut(BR5);
    for (const char* name : {"m_scheme_combo", "m_vccpgm_combo", "m_flash_combo", "m_freq_combo"})
        QVERIFY(kiopru_choose(kiopru_combo(*m_panel, name), "All"));
    kiopru_click(kiopru_button(*m_panel, "Create Test"));
    msg_set_sink(nullptr);
    msg_set_debug_level(0);

    QStringList passive_serial;
    for (const QString vccpgm : {"1.8 V", "2.5 V", "3.0 V"})
        for (const QString& flash : PARALLEL_FLASHES)
            passive_serial << kiopru_command(BR5, "Passive Serial", vccpgm, flash, "DCLK");
    const QStringList lines = kiopru_lines(*m_panel);
    QCOMPARE(lines.mid(0, 18), passive_serial);
    // Four passive schemes of 18 each, two active schemes of one voltage, one flash, five clocks.
    QCOMPARE(lines.size(), 4 * 18 + 2 * 5);
    QCOMPARE(lines.last(), kiopru_command(BR5, "Active Serial x4", "3.0 V", "CFGQ", "External CLKUSR"));
    for (int row = 0; row < lines.size(); ++row)
        QCOMPARE(kiopru_line_color(*m_panel, row), QColor(Qt::darkYellow));
    // Without cables nothing can run, and nothing is offered for saving yet.
    QVERIFY(!kiopru_button(*m_panel, "Run Test")->isEnabled());
    QVERIFY(!kiopru_button(*m_panel, "Save msg")->isEnabled());

    QVERIFY(sink.debug_lines.contains(
        "PGMDQ: For dut BR5-TV1-ES, combination of configure scheme - Active Serial and VCCPGM - 2.5 V is invalid"));
    QVERIFY(sink.debug_lines.contains("PGMDQ: For dut BR5-TV1-ES, combination of configure scheme - Passive Serial, VCCPGM - "
                                      "1.8 V and memory storage - CFGQ is invalid"));
    QVERIFY(sink.debug_lines.contains(
        "PGMDQ: For dut BR5-TV1-ES, combination of configure scheme - Active Serial, VCCPGM - 3.0 V, memory storage - CFGQ "
        "and configuration frequency - DCLK is invalid"));
}

void TEST_KIOPRU_PANEL::create_twice_adds_nothing()
{
    choose_dut(DN5);
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_vccpgm_combo"), "All"));
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_flash_combo"), "All"));
    kiopru_click(kiopru_button(*m_panel, "Create Test"));
    const QStringList first = kiopru_lines(*m_panel);
    QCOMPARE(first.size(), 4 * 6);
    kiopru_click(kiopru_button(*m_panel, "Create Test"));
    QCOMPARE(kiopru_lines(*m_panel), first);
    // The selections stay as they were.
    QCOMPARE(kiopru_combo(*m_panel, "m_vccpgm_combo")->currentText(), QString("All"));
}

void TEST_KIOPRU_PANEL::single_selection_creates_one_line()
{
    choose_dut(CD5);
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_scheme_combo"), "Active Serial x4"));
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_vccpgm_combo"), "3.3 V"));
    QVERIFY(kiopru_choose(kiopru_combo(*m_panel, "m_freq_combo"), "Internal 50.0 Mhz"));
    kiopru_click(kiopru_button(*m_panel, "Create Test"));
    QCOMPARE(kiopru_lines(*m_panel),
             QStringList{kiopru_command(CD5, "Active Serial x4", "3.3 V", "CFGQ", "Internal 50.0 Mhz")});
}

void TEST_KIOPRU_PANEL::prefix_rule_of_the_list_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<unsigned>("color");
    QTest::addColumn<bool>("added");
    QTest::addColumn<QColor>("shown");
    QTest::newRow("command already covered") << "CMD @A" << 0u << false << QColor();
    QTest::newRow("longer command") << "CMD @A @B @C" << 0u << true << QColor(Qt::darkYellow);
    QTest::newRow("process covered by a line") << "PROCESS +Gen" << 1u << false << QColor();
    QTest::newRow("new process") << "PROCESS +Generate JIC" << 1u << true << QColor(Qt::blue);
    QTest::newRow("pass result repeats") << "CMD @A" << 2u << true << QColor(Qt::darkGreen);
    QTest::newRow("fail result repeats") << "PROCESS +Generate SOF" << 3u << true << QColor(Qt::red);
    QTest::newRow("prefix is case-sensitive") << "cmd @A" << 0u << true << QColor(Qt::darkYellow);
}

void TEST_KIOPRU_PANEL::prefix_rule_of_the_list()
{
    QFETCH(QString, text);
    QFETCH(unsigned, color);
    QFETCH(bool, added);
    QFETCH(QColor, shown);
    m_panel->add_cmd("CMD @A @B", PGMDQ_CMD_COLOR);
    m_panel->add_cmd("PROCESS +Generate SOF", PGMDQ_PROCESS_COLOR);
    m_panel->add_cmd(text, color);
    const QStringList lines = kiopru_lines(*m_panel);
    QCOMPARE(lines.size(), added ? 3 : 2);
    if (added) {
        QCOMPARE(lines.last(), text);
        QCOMPARE(kiopru_line_color(*m_panel, 2), shown);
    }
    QCOMPARE(kiopru_internal_error([&] { m_panel->add_cmd("RESULT", 4); }), QString("Invalid color"));
    QCOMPARE(kiopru_lines(*m_panel).size(), added ? 3 : 2);
}

void TEST_KIOPRU_PANEL::reorganize_groups_cases_data()
{
    QTest::addColumn<CASES>("cases");
    QTest::addColumn<ORDER>("order");
    QTest::addColumn<QStringList>("notes");
    const QString ps = "Passive Serial", as = "Active Serial", v18 = "1.8 V", v25 = "2.5 V", v30 = "3.0 V",
                  cfi = "P30 2Gb 16-bits CFI flash", qspi = "Micron QSPI 256Mb", dclk = "DCLK", c12 = "Internal 12.5 Mhz";
    QTest::newRow("only the supply differs")
        << CASES{{BR5, ps, v18, cfi, dclk}, {BR5, ps, v25, cfi, dclk}, {BR5, ps, v30, cfi, dclk}} << ORDER{0, 1, 2}
        << QStringList{"Start new", "Only change vccpgm", "Only change vccpgm"};
    QTest::newRow("memory change, then a new DUT")
        << CASES{{BR5, ps, v18, cfi, dclk}, {BR5, ps, v18, qspi, dclk}, {CD5, ps, v18, cfi, dclk}, {CD5, ps, v25, cfi, dclk}}
        << ORDER{0, 1, 2, 3} << QStringList{"Start new", "Need reprogram memory", "Start new", "Only change vccpgm"};
    QTest::newRow("matched flag is never reset")
        << CASES{{BR5, ps, v18, cfi, dclk}, {BR5, ps, v25, cfi, dclk}, {CD5, ps, v18, cfi, dclk}, {CD5, ps, v18, qspi, dclk}}
        << ORDER{0, 1, 2, 3} << QStringList{"Start new", "Only change vccpgm", "Start new", "Start new"};
    QTest::newRow("clock change") << CASES{{BR5, as, v30, "CFGQ", c12}, {BR5, as, v30, "CFGQ", dclk}} << ORDER{0, 1}
                                  << QStringList{"Start new", "Change config data (Active)"};
    QTest::newRow("scheme change") << CASES{{BR5, ps, v18, cfi, dclk}, {BR5, as, v18, cfi, dclk}} << ORDER{0, 1}
                                   << QStringList{"Start new", "Change PFL IP (Passive) or Change config data (Active)"};
    QTest::newRow("partner pulled forward")
        << CASES{{BR5, ps, v18, cfi, dclk}, {CD5, ps, v18, cfi, dclk}, {BR5, ps, v25, cfi, dclk}} << ORDER{0, 2, 1}
        << QStringList{"Start new", "Start new", "Only change vccpgm"};
    QTest::newRow("coarse passes skipped after a fine match")
        << CASES{{BR5, ps, v18, cfi, dclk}, {BR5, ps, v18, qspi, dclk}, {BR5, ps, v25, cfi, dclk}} << ORDER{0, 2, 1}
        << QStringList{"Start new", "Start new", "Only change vccpgm"};
}

void TEST_KIOPRU_PANEL::reorganize_groups_cases()
{
    QFETCH(CASES, cases);
    QFETCH(ORDER, order);
    QFETCH(QStringList, notes);
    const unsigned count = unsigned(cases.size());
    QVector<QList<QString>> lists;
    for (const QStringList& test_case : cases)
        lists << test_case;
    std::unique_ptr<unsigned[]> visiting(new unsigned[count]);
    unsigned* visiting_order = visiting.get();
    const std::unique_ptr<QString[]> result(m_panel->reorganize_test_case(lists.data(), count, &visiting_order));
    QCOMPARE(ORDER(visiting.get(), visiting.get() + count), order);
    QCOMPARE(QStringList(result.get(), result.get() + count), notes);
}

void TEST_KIOPRU_PANEL::reorganize_without_cases_touches_nothing()
{
    const std::unique_ptr<QString[]> notes(m_panel->reorganize_test_case(nullptr, 0, nullptr));
    QVERIFY(notes != nullptr);
}

void TEST_KIOPRU_PANEL::run_needs_both_cables_and_a_line()
{
    QPushButton* run = kiopru_button(*m_panel, "Run Test");
    choose_cable(false, BENCH_CABLE.toLocal8Bit().constData());
    QCOMPARE(kiopru_edit(*m_panel, "m_cookie_jtag_edit")->text(), BENCH_CABLE);
    choose_cable(true, DUT_CABLE.toLocal8Bit().constData());
    QCOMPARE(kiopru_edit(*m_panel, "m_dut_jtag_edit")->text(), DUT_CABLE);
    QVERIFY(!run->isEnabled());

    choose_dut(BR5);
    kiopru_click(kiopru_button(*m_panel, "Create Test"));
    QVERIFY(run->isEnabled());
    QVERIFY(kiopru_button(*m_panel, "Save msg")->isEnabled());
}

void TEST_KIOPRU_PANEL::failed_cable_choice_clears_its_flag()
{
    QPushButton* run = kiopru_button(*m_panel, "Run Test");
    choose_dut(BR5);
    kiopru_click(kiopru_button(*m_panel, "Create Test"));
    choose_cable(true, DUT_CABLE.toLocal8Bit().constData());
    QVERIFY(!run->isEnabled());
    choose_cable(false, BENCH_CABLE.toLocal8Bit().constData());
    QVERIFY(run->isEnabled());

    choose_cable(true, nullptr); // cancelled
    QCOMPARE(kiopru_edit(*m_panel, "m_dut_jtag_edit")->text(), QString("No hardware"));
    QVERIFY(!run->isEnabled());
    choose_cable(true, DUT_CABLE.toLocal8Bit().constData());
    QVERIFY(run->isEnabled());
    choose_cable(false, "No such cable");
    QCOMPARE(kiopru_edit(*m_panel, "m_cookie_jtag_edit")->text(), QString("No hardware"));
    QCOMPARE(kiopru_edit(*m_panel, "m_dut_jtag_edit")->text(), DUT_CABLE);
    QVERIFY(!run->isEnabled());
}

void TEST_KIOPRU_PANEL::dut_chain_is_read_through_the_dut_cable()
{
    QCOMPARE(m_panel->determine_hardware(), int(PGMD_CM_SCAN_ERROR_NO_HARDWARE));
    choose_cable(false, DUT_CABLE.toLocal8Bit().constData());
    QCOMPARE(m_panel->determine_hardware(), int(PGMD_CM_SCAN_ERROR_NO_HARDWARE));
    choose_cable(true, DUT_CABLE.toLocal8Bit().constData());
    QCOMPARE(m_panel->determine_hardware(), int(PGMD_CM_SCAN_ERROR_NONE));
}

QTEST_MAIN(TEST_KIOPRU_PANEL)
#include "test_kiopru_panel.moc"
