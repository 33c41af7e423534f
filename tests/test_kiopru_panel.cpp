// The Kiopru tab without a run: the option tables, the panel driven through its selectors and
// buttons (cascade, expansion into command lines, the list's prefix rule, grouping of test cases,
// the cable choice that enables "Run Test"), and the process dialog clicked as a user would.
#include "kiopru_test_support.h"

#include "pgmd_cm.h"
#include "pgmd_cm_catalogue.h"
#include "pgmdq_miscellaneous.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <iterator>
#include <memory>

namespace {

const QStringList SELECTORS{"m_scheme_combo", "m_vccpgm_combo", "m_flash_combo", "m_freq_combo"};
const QStringList PARALLEL_FLASHES{"P30 2Gb 16-bits CFI flash", "2 x P30 2Gb 16-bits CFI flash", "Micron QSPI 256Mb",
                                   "2 x Micron QSPI 256Mb", "4 x Micron QSPI 256Mb", "Micron 1Gb 16-bits NAND flash"};
const QStringList ACTIVE_CLOCKS{"Internal 12.5 Mhz", "Internal 25.0 Mhz", "Internal 50.0 Mhz", "Internal 100.0 Mhz",
                                "External CLKUSR"};
const PGMD_CM_TYPE_INFO* const OPTION_LISTS[] = {PGMD_CM_SCHEME_LIST, PGMD_CM_VCCPGM_LIST, PGMD_CM_FLASH_LIST,
                                                 PGMD_CM_FREQ_LIST};

QStringList items_of(const QComboBox* combo)
{
    QStringList items;
    for (int i = 0; i < combo->count(); ++i)
        items << combo->itemText(i);
    return items;
}

QString command(const QString& dut, const QString& scheme, const QString& vccpgm, const QString& memory,
                const QString& clock)
{
    return QString("CMD @%1 @%2 @%3 @%4 @%5").arg(dut, scheme, vccpgm, memory, clock);
}

// The chain manager's names and keys of one option list, in its order.
template <class ENTRY> QStringList names_and_keys(const std::vector<ENTRY>& entries)
{
    QStringList texts;
    for (const ENTRY& entry : entries)
        texts << QString("%1/%2").arg(entry.name, entry.key);
    return texts;
}

QStringList chain_manager_option_list(int list)
{
    const PGMD_CM_CATALOGUE& catalogue = pgmd_cm_catalogue();
    const QStringList lists[] = {names_and_keys(catalogue.schemes), names_and_keys(catalogue.vccpgms),
                                 names_and_keys(catalogue.memories), names_and_keys(catalogue.clocks)};
    return lists[list];
}

// The keys of the schemes in `mask`, in list order.
QStringList scheme_keys_in(unsigned mask)
{
    QStringList keys;
    for (const PGMD_CM_TYPE_INFO& scheme : PGMD_CM_SCHEME_LIST)
        if (scheme.enumerator & mask)
            keys << QString::fromStdString(scheme.key);
    return keys;
}

const PGMD_CM_DATABASE_INFO* database_row_named(const QString& name)
{
    for (const PGMD_CM_DATABASE_INFO& row : PGMD_CM_DATABASE_LIST)
        if (QString::fromStdString(row.name) == name)
            return &row;
    return nullptr;
}

// The chain manager's millivolts of the VCCPGM rows in `mask`, in list order.
QVariantList supplies_in(unsigned mask)
{
    QVariantList millivolts;
    for (int row = 0; row < int(std::size(PGMD_CM_VCCPGM_LIST)); ++row)
        if (PGMD_CM_VCCPGM_LIST[row].enumerator & mask)
            millivolts << pgmd_cm_catalogue().vccpgms[size_t(row)].code;
    return millivolts;
}

using LINES = std::vector<std::string>;
using UINTS = QVector<unsigned>;
using CASES = QVector<QStringList>;

// A process box by its process name, whatever its flag.
QCheckBox* process_box(const PGMDQ_PROCESS_DLG& dialog, const QString& process)
{
    for (QCheckBox* box : dialog.findChildren<QCheckBox*>())
        if (box->text().startsWith("PROCESS") && box->text().mid(9) == process)
            return box;
    return nullptr;
}

} // namespace

Q_DECLARE_METATYPE(LINES)

class TEST_KIOPRU_PANEL : public QObject {
    Q_OBJECT
    std::unique_ptr<PGMDQ_COOKIE_MONSTER> m_panel;

    void choose(const char* selector, const QString& text) { QVERIFY2(kiopru_choose(*m_panel, selector, text), qPrintable(text)); }
    bool enabled(const char* button) const { return kiopru_button(*m_panel, button)->isEnabled(); }

private slots:
    void initTestCase() { kiopru_quiet_offscreen_warnings(); }
    void init()
    {
        m_panel = std::make_unique<PGMDQ_COOKIE_MONSTER>();
        m_panel->show();
    }
    void cleanup() { m_panel.reset(); }

    // ---- the tables

    // The display names are checked where the selectors show them; the keys name the options in
    // the bench's configuration. The chain manager, which reads the commands the panel writes,
    // keeps a catalogue of its own: it must name and key the same rows in the same order.
    void option_lists_data()
    {
        QTest::addColumn<int>("list");
        QTest::addColumn<QStringList>("keys");
        QTest::newRow("scheme") << 0 << QStringList{"ps", "fppx8", "fppx16", "fppx32", "asx1", "asx4"};
        QTest::newRow("vccpgm") << 1 << QStringList{"1_8v", "2_5v", "3_0v", "3_3v"};
        QTest::newRow("flash") << 2 << QStringList{"cfi1", "cfi2", "qspi1", "qspi2", "qspi3", "nand1", "cfgq1"};
        QTest::newRow("freq") << 3 << QStringList{"int12_5", "int25", "int50", "int100", "ext", "dclk"};
    }
    // Rows are distinct single bits in row order; "All" is every bit.
    void option_lists()
    {
        QFETCH(int, list);
        QFETCH(QStringList, keys);
        QStringList names_keys;
        for (int row = 0; row < keys.size(); ++row) {
            QCOMPARE(OPTION_LISTS[list][row].enumerator, 1u << row);
            QCOMPARE(QString::fromStdString(OPTION_LISTS[list][row].key), keys[row]);
            const PGMD_CM_TYPE_INFO& option = OPTION_LISTS[list][row];
            names_keys << QString::fromStdString(option.display_name + "/" + option.key);
        }
        QCOMPARE(chain_manager_option_list(list), names_keys);
        QCOMPARE(PGMD_CM_SELECT_ALL, 0xFFFFFFFFu);
        QCOMPARE(QString::fromStdString(PGMD_CM_SELECT_ALL_STRING), QString("All"));
    }

    void database_rows_data()
    {
        QTest::addColumn<int>("row");
        QTest::addColumn<QString>("key");
        QTest::addColumn<UINTS>("masks"); // passive schemes .. active clocks
        QTest::addColumn<UINTS>("id"); // code, mask
        QTest::addColumn<QString>("size");
        QTest::addColumn<unsigned>("flag");
        QTest::newRow("None") << 0 << "" << UINTS(8, 0) << UINTS{0, 0} << "" << 0u;
        QTest::newRow(qPrintable(BR5)) << 1 << "br5tv1" << UINTS{15, 7, 63, 32, 48, 4, 64, 31}
                                       << UINTS{0x0B4150F3u, 0xFFFFFFFFu} << "02100000" << 0u;
        QTest::newRow(qPrintable(CD5)) << 2 << "cd5tv2" << UINTS{7, 15, 63, 32, 48, 13, 64, 31}
                                       << UINTS{0x0B4250F3u, 0xFFFAFFFFu} << "01100000" << 1u;
        QTest::newRow(qPrintable(DN5)) << 3 << "dn5tv3" << UINTS{7, 15, 63, 32, 48, 13, 64, 31}
                                       << UINTS{0x0B4350F3u, 0xFFFAFFFFu} << "00700000" << 1u;
    }
    void database_rows()
    {
        QFETCH(int, row);
        QFETCH(QString, key);
        QFETCH(UINTS, masks);
        QFETCH(UINTS, id);
        QFETCH(QString, size);
        QFETCH(unsigned, flag);
        QCOMPARE(int(std::size(PGMD_CM_DATABASE_LIST)), 4);
        const PGMD_CM_DATABASE_INFO& dut = PGMD_CM_DATABASE_LIST[row];
        QCOMPARE(QString::fromStdString(dut.name), row ? QString(QTest::currentDataTag()) : QString("None"));
        QCOMPARE((UINTS{dut.passive_schemes, dut.passive_vccpgm, dut.passive_flashes, dut.passive_freqs,
                        dut.active_schemes, dut.active_vccpgm, dut.active_flashes, dut.active_freqs}),
                 masks);
        QCOMPARE((UINTS{dut.jtag_id_code, dut.jtag_id_mask}), id);
        QCOMPARE(QString::fromStdString(dut.size), size);
        QCOMPARE(dut.flag, flag);
        if (row == 0)
            return;
        // Names are copied from the DUT list at load, which therefore must be built first.
        QCOMPARE(dut.name, PGMD_CM_DUT_LIST[row - 1].display_name);
        QCOMPARE(QString::fromStdString(PGMD_CM_DUT_LIST[row - 1].key), key);
        QCOMPARE(PGMD_CM_DUT_LIST[row - 1].enumerator, unsigned(row - 1));
        // The chain manager knows the DUT by the same name, key and ID, and the schemes by class.
        const PGMD_CM_DUT_ENTRY& known = pgmd_cm_catalogue().duts.at(size_t(row - 1));
        QCOMPARE(QString("%1/%2").arg(known.name, known.key), QString::fromStdString(dut.name) + "/" + key);
        QCOMPARE((UINTS{known.idcode, known.mask}), id);
        for (size_t scheme = 0; scheme < std::size(PGMD_CM_SCHEME_LIST); ++scheme) {
            const unsigned bit = 1u << scheme;
            if ((dut.passive_schemes | dut.active_schemes) & bit)
                QCOMPARE(pgmd_cm_catalogue().schemes[scheme].active, (dut.active_schemes & bit) != 0);
        }
    }

    // The words of the lines the panel hands the chain manager are the chain manager's too.
    void line_keywords_agree_with_the_chain_manager()
    {
        QCOMPARE(PGMD_CM_CMD_STRING, std::string(PGMD_CM_COMMAND_KEYWORD));
        QCOMPARE(PGMD_CM_PROCESS_STRING, std::string(PGMD_CM_PROCESS_KEYWORD));
        QCOMPARE(pgmd_cm_all_processes(), (LINES{PGMD_CM_GEN_SOF_STRING, PGMD_CM_GEN_PFL_STRING,
                                                 PGMD_CM_GEN_PFL_POF_STRING, PGMD_CM_GEN_JIC_STRING}));
    }

    // The built-in bench holds DUTs of the database: each with its ID code, and the silicon of a
    // DUT the bench can configure accepts exactly the schemes and supplies its row allows.
    void default_bench_holds_the_database_duts()
    {
        const QJsonObject bench = QJsonDocument::fromJson(QByteArray::fromStdString(pgmd_cm_default_bench())).object();
        int duts = 0, configurable = 0;
        for (const QJsonValue& cable : bench["cables"].toArray())
            for (const QJsonValue& device : cable["chain"].toArray()) {
                const PGMD_CM_DATABASE_INFO* row = database_row_named(device["name"].toString());
                if (!row)
                    continue;
                ++duts;
                QCOMPARE(device["idcode"].toString().toUInt(nullptr, 16), row->jtag_id_code);
                const QJsonObject silicon = device["configuration"].toObject();
                if (silicon.isEmpty())
                    continue;
                ++configurable;
                QCOMPARE(silicon["schemes"].toVariant().toStringList(),
                         scheme_keys_in(row->passive_schemes | row->active_schemes));
                QCOMPARE(silicon["passive_vccpgm_mv"].toArray().toVariantList(), supplies_in(row->passive_vccpgm));
                QCOMPARE(silicon["active_vccpgm_mv"].toArray().toVariantList(), supplies_in(row->active_vccpgm));
            }
        QCOMPARE(duts, 3);
        QCOMPARE(configurable, 1);
    }

    // ---- the cascade

    // A DUT offers its schemes; "None" offers nothing and leaves nothing to do.
    void dut_choice_offers_its_schemes()
    {
        QCOMPARE(items_of(kiopru_combo(*m_panel, "m_dut_combo")), (QStringList{"None", BR5, CD5, DN5}));
        choose("m_dut_combo", BR5);
        QCOMPARE(items_of(kiopru_combo(*m_panel, "m_scheme_combo")),
                 (QStringList{"Passive Serial", "Fast Passive Parallel x8", "Fast Passive Parallel x16",
                              "Fast Passive Parallel x32", "Active Serial", "Active Serial x4", "All"}));
        QCOMPARE(items_of(kiopru_combo(*m_panel, "m_vccpgm_combo")), (QStringList{"1.8 V", "2.5 V", "3.0 V", "All"}));
        QCOMPARE(items_of(kiopru_combo(*m_panel, "m_flash_combo")), QStringList(PARALLEL_FLASHES) << "All");
        QCOMPARE(items_of(kiopru_combo(*m_panel, "m_freq_combo")), (QStringList{"DCLK", "All"}));
        QVERIFY(enabled("Create Test") && enabled("Claim board"));
        choose("m_dut_combo", "None");
        for (const QString& name : SELECTORS)
            QCOMPARE(kiopru_combo(*m_panel, qPrintable(name))->count(), 0);
        for (const char* text : {"Claim board", "Create Test", "Save msg", "Delete Test", "Run Test",
                                 "Re-initialize dut JTAG chain", "Establish desired dut JTAG chain"})
            QVERIFY2(!enabled(text), text);
    }

    void cascade_follows_the_scheme_data()
    {
        QTest::addColumn<QString>("dut");
        QTest::addColumn<QString>("scheme");
        QTest::addColumn<QStringList>("vccpgm");
        QTest::addColumn<QStringList>("flash");
        QTest::addColumn<QStringList>("freq");
        QTest::newRow("BR5 active serial") << BR5 << "Active Serial" << QStringList{"3.0 V"} << QStringList{"CFGQ"}
                                           << ACTIVE_CLOCKS;
        QTest::newRow("BR5 all schemes") << BR5 << "All" << QStringList{"1.8 V", "2.5 V", "3.0 V"}
                                         << (QStringList(PARALLEL_FLASHES) << "CFGQ") << (QStringList(ACTIVE_CLOCKS) << "DCLK");
        QTest::newRow("CD5 active x4") << CD5 << "Active Serial x4" << QStringList{"1.8 V", "3.0 V", "3.3 V"}
                                       << QStringList{"CFGQ"} << ACTIVE_CLOCKS;
        QTest::newRow("DN5 parallel x16") << DN5 << "Fast Passive Parallel x16"
                                          << QStringList{"1.8 V", "2.5 V", "3.0 V", "3.3 V"} << PARALLEL_FLASHES
                                          << QStringList{"DCLK"};
    }
    void cascade_follows_the_scheme()
    {
        QFETCH(QString, dut);
        QFETCH(QString, scheme);
        QFETCH(QStringList, vccpgm);
        QFETCH(QStringList, flash);
        QFETCH(QStringList, freq);
        choose("m_dut_combo", dut);
        // Leave a non-first choice behind so that the refill visibly resets it.
        choose("m_vccpgm_combo", "All");
        choose("m_scheme_combo", scheme);
        const QVector<QStringList> expected{vccpgm, flash, freq};
        for (int i = 0; i < 3; ++i) {
            const QComboBox* combo = kiopru_combo(*m_panel, qPrintable(SELECTORS[i + 1]));
            QCOMPARE(items_of(combo), QStringList(expected[i]) << "All");
            QCOMPARE(combo->currentIndex(), 0);
        }
    }

    // ---- composition and validity

    void validity_of_test_cases_data()
    {
        QTest::addColumn<QString>("dut");
        QTest::addColumn<UINTS>("options"); // scheme, vccpgm, flash, freq
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("error");
        QTest::newRow("passive serial at 2.5 V") << BR5 << UINTS{1, 2, 1, 32} << true << "";
        QTest::newRow("active serial at 2.5 V") << BR5 << UINTS{16, 2, 0, 0} << false << "";
        QTest::newRow("active serial at 3.0 V") << BR5 << UINTS{16, 4, 64, 1} << true << "";
        QTest::newRow("passive with the active flash") << BR5 << UINTS{1, 0, 64, 0} << false << "";
        QTest::newRow("passive with an internal clock") << BR5 << UINTS{2, 0, 0, 1} << false << "";
        QTest::newRow("x32 on a DUT without it") << CD5 << UINTS{8, 0, 0, 0} << false << "";
        // The checks stop at the first failure: the malformed flash is never looked at.
        QTest::newRow("stops at the first failure") << BR5 << UINTS{16, 2, 3, 0} << false << "";
        QTest::newRow("no scheme") << BR5 << UINTS{0, 0, 0, 0} << false << "enumerator > 0";
        QTest::newRow("flash beyond the list") << BR5 << UINTS{1, 0, 128, 0} << false << "found";
        QTest::newRow("two clocks") << BR5 << UINTS{16, 0, 0, 3} << false << "value == 1";
    }
    void validity_of_test_cases()
    {
        QFETCH(QString, dut);
        QFETCH(UINTS, options);
        QFETCH(bool, valid);
        QFETCH(QString, error);
        choose("m_dut_combo", dut);
        bool result = false;
        QCOMPARE(kiopru_internal_error(
                     [&] { result = m_panel->is_valid_test_case(options[0], options[1], options[2], options[3]); }),
                 error);
        QCOMPARE(result, valid);
    }

    void all_everywhere_expands_every_valid_case()
    {
        KIOPRU_MESSAGES messages(2);
        choose("m_dut_combo", BR5);
        for (const QString& name : SELECTORS)
            choose(qPrintable(name), "All");
        kiopru_click(kiopru_button(*m_panel, "Create Test"));

        QStringList passive_serial;
        for (const QString vccpgm : {"1.8 V", "2.5 V", "3.0 V"})
            for (const QString& flash : PARALLEL_FLASHES)
                passive_serial << command(BR5, "Passive Serial", vccpgm, flash, "DCLK");
        const QStringList lines = kiopru_lines(*m_panel);
        QCOMPARE(lines.mid(0, 18), passive_serial);
        // Four passive schemes of 18 each, two active schemes of one voltage, one flash, five clocks.
        QCOMPARE(lines.size(), 4 * 18 + 2 * 5);
        QCOMPARE(lines.last(), command(BR5, "Active Serial x4", "3.0 V", "CFGQ", "External CLKUSR"));
        for (int row = 0; row < lines.size(); ++row)
            QCOMPARE(kiopru_line_color(*m_panel, row), QColor(Qt::darkYellow));
        // Without cables nothing can run, and nothing is offered for saving yet.
        QVERIFY(!enabled("Run Test") && !enabled("Save msg"));
        for (const char* invalid :
             {"scheme - Active Serial and VCCPGM - 2.5 V is invalid",
              "scheme - Passive Serial, VCCPGM - 1.8 V and memory storage - CFGQ is invalid",
              "scheme - Active Serial, VCCPGM - 3.0 V, memory storage - CFGQ and configuration frequency - DCLK is invalid"})
            QVERIFY2(messages.debug.contains(QString("PGMDQ: For dut BR5-TV1-ES, combination of configure ") + invalid), invalid);

        kiopru_click(kiopru_button(*m_panel, "Create Test"));
        QCOMPARE(kiopru_lines(*m_panel), lines);
    }

    void prefix_rule_of_the_list_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<unsigned>("color");
        QTest::addColumn<QColor>("shown"); // invalid: not added
        QTest::newRow("command already covered") << "CMD @A" << 0u << QColor();
        QTest::newRow("longer command") << "CMD @A @B @C" << 0u << QColor(Qt::darkYellow);
        QTest::newRow("process covered by a line") << "PROCESS +Gen" << 1u << QColor();
        QTest::newRow("new process") << "PROCESS +Generate JIC" << 1u << QColor(Qt::blue);
        QTest::newRow("pass result repeats") << "CMD @A" << 2u << QColor(Qt::darkGreen);
        QTest::newRow("fail result repeats") << "PROCESS +Generate SOF" << 3u << QColor(Qt::red);
        QTest::newRow("prefix is case-sensitive") << "cmd @A" << 0u << QColor(Qt::darkYellow);
    }
    void prefix_rule_of_the_list()
    {
        QFETCH(QString, text);
        QFETCH(unsigned, color);
        QFETCH(QColor, shown);
        m_panel->add_cmd("CMD @A @B", PGMDQ_CMD_COLOR);
        m_panel->add_cmd("PROCESS +Generate SOF", PGMDQ_PROCESS_COLOR);
        m_panel->add_cmd(text, color);
        QCOMPARE(kiopru_internal_error([&] { m_panel->add_cmd("RESULT", 4); }), QString("Invalid color"));
        const QStringList lines = kiopru_lines(*m_panel);
        QCOMPARE(lines.size(), shown.isValid() ? 3 : 2);
        if (shown.isValid()) {
            QCOMPARE(lines.last(), text);
            QCOMPARE(kiopru_line_color(*m_panel, 2), shown);
        }
    }

    void reorganize_groups_cases_data()
    {
        QTest::addColumn<CASES>("cases");
        QTest::addColumn<UINTS>("order");
        QTest::addColumn<QStringList>("notes");
        const QString ps = "Passive Serial", as = "Active Serial", v18 = "1.8 V", v25 = "2.5 V", v30 = "3.0 V",
                      cfi = "P30 2Gb 16-bits CFI flash", qspi = "Micron QSPI 256Mb", dclk = "DCLK";
        const QStringList base{BR5, ps, v18, cfi, dclk}, at_25{BR5, ps, v25, cfi, dclk}, cd5{CD5, ps, v18, cfi, dclk};
        QTest::newRow("only the supply differs") << CASES{base, at_25, {BR5, ps, v30, cfi, dclk}} << UINTS{0, 1, 2}
                                                 << QStringList{"Start new", "Only change vccpgm", "Only change vccpgm"};
        QTest::newRow("memory change, then a new DUT")
            << CASES{base, {BR5, ps, v18, qspi, dclk}, cd5, {CD5, ps, v25, cfi, dclk}} << UINTS{0, 1, 2, 3}
            << QStringList{"Start new", "Need reprogram memory", "Start new", "Only change vccpgm"};
        QTest::newRow("matched flag is never reset")
            << CASES{base, at_25, cd5, {CD5, ps, v18, qspi, dclk}} << UINTS{0, 1, 2, 3}
            << QStringList{"Start new", "Only change vccpgm", "Start new", "Start new"};
        QTest::newRow("clock change") << CASES{{BR5, as, v30, "CFGQ", "Internal 12.5 Mhz"}, {BR5, as, v30, "CFGQ", dclk}}
                                      << UINTS{0, 1} << QStringList{"Start new", "Change config data (Active)"};
        QTest::newRow("scheme change") << CASES{base, {BR5, as, v18, cfi, dclk}} << UINTS{0, 1}
                                       << QStringList{"Start new", "Change PFL IP (Passive) or Change config data (Active)"};
        QTest::newRow("partner pulled forward") << CASES{base, cd5, at_25} << UINTS{0, 2, 1}
                                                << QStringList{"Start new", "Start new", "Only change vccpgm"};
        QTest::newRow("coarse passes skipped after a fine match")
            << CASES{base, {BR5, ps, v18, qspi, dclk}, at_25} << UINTS{0, 2, 1}
            << QStringList{"Start new", "Start new", "Only change vccpgm"};
    }
    void reorganize_groups_cases()
    {
        QFETCH(CASES, cases);
        QFETCH(UINTS, order);
        QFETCH(QStringList, notes);
        const unsigned count = unsigned(cases.size());
        QVector<QList<QString>> lists(cases.begin(), cases.end());
        UINTS visiting(cases.size());
        unsigned* visiting_order = visiting.data();
        const std::unique_ptr<QString[]> result(m_panel->reorganize_test_case(lists.data(), count, &visiting_order));
        QCOMPARE(visiting, order);
        QCOMPARE(QStringList(result.get(), result.get() + count), notes);
        QVERIFY(std::unique_ptr<QString[]>(m_panel->reorganize_test_case(nullptr, 0, nullptr)));
    }

    // ---- the cables

    void run_needs_both_cables_and_a_line()
    {
        kiopru_choose_cable(*m_panel, false, BENCH_CABLE);
        kiopru_choose_cable(*m_panel, true, DUT_CABLE);
        QCOMPARE(kiopru_edit_text(*m_panel, false), QString(BENCH_CABLE));
        QCOMPARE(kiopru_edit_text(*m_panel, true), QString(DUT_CABLE));
        QVERIFY(!enabled("Run Test"));
        choose("m_dut_combo", BR5);
        kiopru_click(kiopru_button(*m_panel, "Create Test"));
        QVERIFY(enabled("Run Test") && enabled("Save msg"));

        kiopru_choose_cable(*m_panel, true, nullptr); // cancelled
        QCOMPARE(kiopru_edit_text(*m_panel, true), QString("No hardware"));
        QVERIFY(!enabled("Run Test"));
        kiopru_choose_cable(*m_panel, true, DUT_CABLE);
        QVERIFY(enabled("Run Test"));
        kiopru_choose_cable(*m_panel, false, "No such cable");
        QCOMPARE(kiopru_edit_text(*m_panel, false), QString("No hardware"));
        QCOMPARE(kiopru_edit_text(*m_panel, true), QString(DUT_CABLE));
        QVERIFY(!enabled("Run Test"));
    }

    void dut_chain_is_read_through_the_dut_cable()
    {
        QCOMPARE(m_panel->determine_hardware(), int(PGMD_CM_SCAN_ERROR_NO_HARDWARE));
        kiopru_choose_cable(*m_panel, false, DUT_CABLE);
        QCOMPARE(m_panel->determine_hardware(), int(PGMD_CM_SCAN_ERROR_NO_HARDWARE));
        kiopru_choose_cable(*m_panel, true, DUT_CABLE);
        QCOMPARE(m_panel->determine_hardware(), int(PGMD_CM_SCAN_ERROR_NONE));
    }

    // ---- the process dialog: "All" is checked when every process is skipped

    void process_dialog_all_box_follows_the_processes_data()
    {
        QTest::addColumn<LINES>("lines");
        QTest::addColumn<int>("all_state");
        QTest::newRow("one skipped") << LINES{"PROCESS -Generate SOF"} << int(Qt::Checked);
        QTest::newRow("mixed") << LINES{"PROCESS +Generate SOF", "PROCESS -Generate PFL IP"} << int(Qt::PartiallyChecked);
        QTest::newRow("none skipped") << LINES{"PROCESS +Generate SOF", "PROCESS +Generate JIC"} << int(Qt::Unchecked);
    }
    void process_dialog_all_box_follows_the_processes()
    {
        QFETCH(LINES, lines);
        QFETCH(int, all_state);
        PGMDQ_PROCESS_DLG dialog(lines);
        QCOMPARE(dialog.windowTitle(), QString("Processes"));
        QCheckBox* all = kiopru_find<QCheckBox>(dialog, "All");
        QVERIFY(all && all->isTristate());
        QCOMPARE(int(all->checkState()), all_state);
        for (const std::string& line : lines)
            QCOMPARE(kiopru_find<QCheckBox>(dialog, QString::fromStdString(line))->isChecked(), line[8] == '-');
        QCOMPARE(dialog.get_processes(), lines);
        QVERIFY(kiopru_find<QCheckBox>(dialog, "Skip flash programming / verification"));
        QVERIFY(kiopru_find<QCheckBox>(dialog, "Skip engine operation"));
    }

    // Each click rewrites the flag at position 8 and moves "All" along; from unchecked or partial
    // a click on "All" skips everything rather than stopping half-way.
    void process_dialog_clicks_rewrite_the_flags()
    {
        PGMDQ_PROCESS_DLG dialog({"PROCESS +Generate SOF", "PROCESS -Generate PFL IP", "PROCESS +Generate JIC"});
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QCheckBox* all = kiopru_find<QCheckBox>(dialog, "All");
        const struct {
            const char* box;
            const char* flags;
            Qt::CheckState all;
        } steps[] = {{"All", "---", Qt::Checked},          {"All", "+++", Qt::Unchecked},
                     {"All", "---", Qt::Checked},          {"All", "+++", Qt::Unchecked},
                     {"Generate JIC", "++-", Qt::PartiallyChecked}, {"Generate SOF", "-+-", Qt::PartiallyChecked},
                     {"Generate PFL IP", "---", Qt::Checked},       {"Generate SOF", "+--", Qt::PartiallyChecked},
                     {"Generate PFL IP", "++-", Qt::PartiallyChecked}, {"Generate JIC", "+++", Qt::Unchecked}};
        for (const auto& step : steps) {
            QAbstractButton* box = QString(step.box) == "All" ? all : process_box(dialog, step.box);
            QVERIFY(box);
            QTest::mouseClick(box, Qt::LeftButton, Qt::NoModifier, QPoint(5, box->height() / 2));
            QString flags;
            for (const std::string& process : dialog.get_processes())
                flags += process[8];
            QCOMPARE(flags, QString(step.flags));
            QCOMPARE(all->checkState(), step.all);
        }
        QCOMPARE(dialog.get_processes(), (LINES{"PROCESS +Generate SOF", "PROCESS +Generate PFL IP", "PROCESS +Generate JIC"}));
    }

    void process_dialog_refuses_malformed_input_data()
    {
        QTest::addColumn<LINES>("lines");
        QTest::addColumn<QString>("error");
        QTest::newRow("no processes") << LINES{} << "processes.size() > 0";
        QTest::newRow("bad flag") << LINES{"PROCESS +Generate SOF", "PROCESS *Generate JIC"}
                                  << "Invalid PROCESS string expectation";
        QTest::newRow("flag missing") << LINES{"PROCESS "} << "Invalid PROCESS string expectation";
        QTest::newRow("flag at the wrong place") << LINES{"PROCESS+Generate SOF"} << "Invalid PROCESS string expectation";
    }
    void process_dialog_refuses_malformed_input()
    {
        QFETCH(LINES, lines);
        QFETCH(QString, error);
        QCOMPARE(kiopru_internal_error([&] { PGMDQ_PROCESS_DLG dialog(lines); }, "pgmdq_miscellaneous"), error);
    }
};

QTEST_MAIN(TEST_KIOPRU_PANEL)
#include "test_kiopru_panel.moc"
