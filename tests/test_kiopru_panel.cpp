// The Kiopru tab without a run: its tables beside the chain manager's, the panel driven through
// its selectors and buttons (cascade, expansion into command lines, the list's prefix rule,
// grouping of test cases, the cables that enable "Run Test"), and the process dialog clicked.
#include "kiopru_test_support.h"

#include "pgmd_cm.h"
#include "pgmd_cm_catalogue.h"
#include "pgmdq_miscellaneous.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <iterator>
#include <memory>
#include <type_traits>

namespace {

const QStringList SELECTORS{"m_scheme_combo", "m_vccpgm_combo", "m_flash_combo", "m_freq_combo"};
const QStringList PARALLEL_FLASHES{"P30 2Gb 16-bits CFI flash", "2 x P30 2Gb 16-bits CFI flash", "Micron QSPI 256Mb",
                                   "2 x Micron QSPI 256Mb", "4 x Micron QSPI 256Mb", "Micron 1Gb 16-bits NAND flash"};
const QStringList ACTIVE_CLOCKS{"Internal 12.5 Mhz", "Internal 25.0 Mhz", "Internal 50.0 Mhz", "Internal 100.0 Mhz",
                                "External CLKUSR"};

using LINES = std::vector<std::string>;
using UINTS = QVector<unsigned>;
using CASES = QVector<QStringList>;

QStringList items_of(const QComboBox* combo)
{
    QStringList items;
    for (int i = 0; i < combo->count(); ++i)
        items << combo->itemText(i);
    return items;
}

// "name/key" of each row, from the panel's tables and from the chain manager's catalogue alike.
template <class ROWS> QStringList names_and_keys(const ROWS& rows)
{
    QStringList texts;
    for (const auto& row : rows)
        if constexpr (std::is_same_v<std::decay_t<decltype(row)>, PGMD_CM_TYPE_INFO>)
            texts << QString::fromStdString(row.display_name + "/" + row.key);
        else
            texts << QString("%1/%2").arg(row.name, row.key);
    return texts;
}

// The scheme keys, or the chain manager's supply millivolts, of the rows `mask` selects.
template <size_t N> QVariantList selected(const PGMD_CM_TYPE_INFO (&list)[N], unsigned mask, bool supplies)
{
    QVariantList values;
    for (size_t row = 0; row < N; ++row)
        if (list[row].enumerator & mask)
            values << (supplies ? QVariant(pgmd_cm_catalogue().vccpgms[row].code) : QString::fromStdString(list[row].key));
    return values;
}

const PGMD_CM_DATABASE_INFO* database_row_named(const QString& name)
{
    for (const PGMD_CM_DATABASE_INFO& row : PGMD_CM_DATABASE_LIST)
        if (QString::fromStdString(row.name) == name)
            return &row;
    return nullptr;
}

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

    // The chain manager reads the lines the panel writes with a catalogue of its own: it must name
    // and key the same options and DUTs in the same order, know the DUTs by the same ID, class the
    // schemes alike and read the same line words. Its built-in bench holds DUTs of the database,
    // and the silicon it can configure takes exactly the schemes and supplies the row allows.
    void tables_agree_with_the_chain_manager()
    {
        const PGMD_CM_CATALOGUE& catalogue = pgmd_cm_catalogue();
        QCOMPARE(names_and_keys(PGMD_CM_SCHEME_LIST), names_and_keys(catalogue.schemes));
        QCOMPARE(names_and_keys(PGMD_CM_VCCPGM_LIST), names_and_keys(catalogue.vccpgms));
        QCOMPARE(names_and_keys(PGMD_CM_FLASH_LIST), names_and_keys(catalogue.memories));
        QCOMPARE(names_and_keys(PGMD_CM_FREQ_LIST), names_and_keys(catalogue.clocks));
        QCOMPARE(names_and_keys(PGMD_CM_DUT_LIST), names_and_keys(catalogue.duts));
        for (size_t dut = 0; dut < catalogue.duts.size(); ++dut) {
            const PGMD_CM_DATABASE_INFO& row = PGMD_CM_DATABASE_LIST[dut + 1];
            QCOMPARE((UINTS{catalogue.duts[dut].idcode, catalogue.duts[dut].mask}), (UINTS{row.jtag_id_code, row.jtag_id_mask}));
            for (size_t scheme = 0; scheme < std::size(PGMD_CM_SCHEME_LIST); ++scheme)
                if ((row.passive_schemes | row.active_schemes) & (1u << scheme))
                    QCOMPARE(catalogue.schemes[scheme].active, (row.active_schemes & (1u << scheme)) != 0);
        }
        QCOMPARE(PGMD_CM_CMD_STRING, std::string(PGMD_CM_COMMAND_KEYWORD));
        QCOMPARE(PGMD_CM_PROCESS_STRING, std::string(PGMD_CM_PROCESS_KEYWORD));
        QCOMPARE(pgmd_cm_all_processes(), (LINES{PGMD_CM_GEN_SOF_STRING, PGMD_CM_GEN_PFL_STRING,
                                                 PGMD_CM_GEN_PFL_POF_STRING, PGMD_CM_GEN_JIC_STRING}));

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
                QCOMPARE(silicon["schemes"].toArray().toVariantList(),
                         selected(PGMD_CM_SCHEME_LIST, row->passive_schemes | row->active_schemes, false));
                QCOMPARE(silicon["passive_vccpgm_mv"].toArray().toVariantList(), selected(PGMD_CM_VCCPGM_LIST, row->passive_vccpgm, true));
                QCOMPARE(silicon["active_vccpgm_mv"].toArray().toVariantList(), selected(PGMD_CM_VCCPGM_LIST, row->active_vccpgm, true));
            }
        QCOMPARE(duts, 3);
        QCOMPARE(configurable, 1);
    }

    // A DUT offers its schemes; "None" offers nothing and leaves nothing to do.
    void dut_choice_offers_its_schemes()
    {
        QCOMPARE(items_of(kiopru_combo(*m_panel, "m_dut_combo")), (QStringList{"None", BR5, CD5, DN5}));
        choose("m_dut_combo", BR5);
        QCOMPARE(items_of(kiopru_combo(*m_panel, "m_scheme_combo")),
                 (QStringList{"Passive Serial", "Fast Passive Parallel x8", "Fast Passive Parallel x16",
                              "Fast Passive Parallel x32", "Active Serial", "Active Serial x4", "All"}));
        QVERIFY(enabled("Create Test") && enabled("Claim board"));
        choose("m_dut_combo", "None");
        for (const QString& name : SELECTORS)
            QCOMPARE(kiopru_combo(*m_panel, qPrintable(name))->count(), 0);
        for (const char* text : {"Claim board", "Create Test", "Save msg", "Delete Test", "Run Test",
                                 "Re-initialize dut JTAG chain", "Establish desired dut JTAG chain"})
            QVERIFY2(!enabled(text), text);
    }

    // The options follow the DUT's first scheme, then the scheme chosen, each from its first entry.
    void cascade_follows_the_scheme_data()
    {
        QTest::addColumn<QString>("dut");
        QTest::addColumn<QString>("scheme"); // empty: the DUT's first
        QTest::addColumn<CASES>("options"); // VCCPGM, memory storage, clock
        QTest::newRow("BR5 first scheme") << BR5 << "" << CASES{{"1.8 V", "2.5 V", "3.0 V"}, PARALLEL_FLASHES, {"DCLK"}};
        QTest::newRow("BR5 active serial") << BR5 << "Active Serial" << CASES{{"3.0 V"}, {"CFGQ"}, ACTIVE_CLOCKS};
        QTest::newRow("BR5 all schemes") << BR5 << "All"
                                         << CASES{{"1.8 V", "2.5 V", "3.0 V"}, QStringList(PARALLEL_FLASHES) << "CFGQ",
                                                  QStringList(ACTIVE_CLOCKS) << "DCLK"};
        QTest::newRow("CD5 active x4") << CD5 << "Active Serial x4" << CASES{{"1.8 V", "3.0 V", "3.3 V"}, {"CFGQ"}, ACTIVE_CLOCKS};
        QTest::newRow("DN5 parallel x16") << DN5 << "Fast Passive Parallel x16"
                                          << CASES{{"1.8 V", "2.5 V", "3.0 V", "3.3 V"}, PARALLEL_FLASHES, {"DCLK"}};
    }
    void cascade_follows_the_scheme()
    {
        QFETCH(QString, dut);
        QFETCH(QString, scheme);
        QFETCH(CASES, options);
        choose("m_dut_combo", dut);
        if (!scheme.isEmpty()) {
            // Leave a non-first choice behind so that the refill visibly resets it.
            choose("m_vccpgm_combo", "All");
            choose("m_scheme_combo", scheme);
        }
        for (int i = 0; i < 3; ++i) {
            const QComboBox* combo = kiopru_combo(*m_panel, qPrintable(SELECTORS[i + 1]));
            QCOMPARE(items_of(combo), QStringList(options[i]) << "All");
            QCOMPARE(combo->currentIndex(), 0);
        }
    }

    // Options are single bits; a malformed one is an internal error, unless an earlier check fails.
    void validity_of_test_cases_data()
    {
        QTest::addColumn<QString>("dut");
        QTest::addColumn<UINTS>("options"); // scheme, vccpgm, flash, freq
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("error");
        QTest::newRow("active serial at 3.0 V") << BR5 << UINTS{16, 4, 64, 1} << true << "";
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
                passive_serial << QString("CMD @%1 @Passive Serial @%2 @%3 @DCLK").arg(BR5, vccpgm, flash);
        const QStringList lines = kiopru_lines(*m_panel);
        QCOMPARE(lines.mid(0, 18), passive_serial);
        // Four passive schemes of 18 each, two active schemes of one voltage, one flash, five clocks.
        QCOMPARE(lines.size(), 4 * 18 + 2 * 5);
        QCOMPARE(lines.last(), QString("CMD @BR5-TV1-ES @Active Serial x4 @3.0 V @CFGQ @External CLKUSR"));
        // Without cables nothing can run, and nothing is offered for saving yet.
        QVERIFY(!enabled("Run Test") && !enabled("Save msg"));
        QVERIFY(messages.debug.contains("PGMDQ: For dut BR5-TV1-ES, combination of configure scheme - Active Serial, "
                                        "VCCPGM - 3.0 V, memory storage - CFGQ and configuration frequency - DCLK is invalid"));

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

    // "Run Test" needs both cables and a command; the DUT chain is read through the DUT cable.
    void run_needs_both_cables_and_a_line()
    {
        kiopru_choose_cable(*m_panel, false, DUT_CABLE);
        QCOMPARE(m_panel->determine_hardware(), int(PGMD_CM_SCAN_ERROR_NO_HARDWARE));
        kiopru_choose_cable(*m_panel, false, BENCH_CABLE);
        kiopru_choose_cable(*m_panel, true, DUT_CABLE);
        QCOMPARE(m_panel->determine_hardware(), int(PGMD_CM_SCAN_ERROR_NONE));
        QCOMPARE(kiopru_edit_text(*m_panel, false), QString(BENCH_CABLE));
        QCOMPARE(kiopru_edit_text(*m_panel, true), QString(DUT_CABLE));
        QVERIFY(!enabled("Run Test"));
        kiopru_create_test(*m_panel, BR5);
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

    // The process dialog: a box per process, checked when it is skipped, and a tristate "All".
    // Each click rewrites the flag at position 8 and moves "All" along; from unchecked or partial
    // a click on "All" skips everything rather than stopping half-way.
    void process_dialog_clicks_rewrite_the_flags()
    {
        const LINES lines{"PROCESS +Generate SOF", "PROCESS -Generate PFL IP", "PROCESS +Generate JIC"};
        PGMDQ_PROCESS_DLG dialog(lines);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QCOMPARE(dialog.windowTitle(), QString("Processes"));
        for (const std::string& line : lines)
            QCOMPARE(kiopru_find<QCheckBox>(dialog, QString::fromStdString(line))->isChecked(), line[8] == '-');
        QCOMPARE(dialog.get_processes(), lines);
        QCheckBox* all = kiopru_find<QCheckBox>(dialog, "All");
        QVERIFY(all && all->isTristate());
        QCOMPARE(all->checkState(), Qt::PartiallyChecked);
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
