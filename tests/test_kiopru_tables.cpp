// The test-case builder's option tables: bit layout of the option lists, the DUT capability rows
// and the tables built from other tables at load.
#include "pgmdq_miscellaneous.h"

#include <QtTest>

#include <iterator>

namespace {

struct OPTION_LIST {
    const char* name;
    const PGMD_CM_TYPE_INFO* rows;
    unsigned count;
};

const OPTION_LIST BIT_LISTS[] = {
    {"scheme", PGMD_CM_SCHEME_LIST, unsigned(std::size(PGMD_CM_SCHEME_LIST))},
    {"vccpgm", PGMD_CM_VCCPGM_LIST, unsigned(std::size(PGMD_CM_VCCPGM_LIST))},
    {"flash", PGMD_CM_FLASH_LIST, unsigned(std::size(PGMD_CM_FLASH_LIST))},
    {"freq", PGMD_CM_FREQ_LIST, unsigned(std::size(PGMD_CM_FREQ_LIST))},
};

QStringList display_names(const OPTION_LIST& list)
{
    QStringList names;
    for (unsigned i = 0; i < list.count; ++i)
        names << QString::fromStdString(list.rows[i].display_name);
    return names;
}

} // namespace

class TEST_KIOPRU_TABLES : public QObject {
    Q_OBJECT
private slots:
    void option_lists_are_single_bits_in_row_order_data();
    void option_lists_are_single_bits_in_row_order();
    void option_list_texts_data();
    void option_list_texts();
    void all_is_every_option();
    void database_rows_data();
    void database_rows();
    void dut_list_is_a_plain_index();
    void first_dut_has_no_active_2_5_v();
    void flash_geometry_is_consistent();
};

void TEST_KIOPRU_TABLES::option_lists_are_single_bits_in_row_order_data()
{
    QTest::addColumn<int>("list");
    for (int i = 0; i < int(std::size(BIT_LISTS)); ++i)
        QTest::newRow(BIT_LISTS[i].name) << i;
}

void TEST_KIOPRU_TABLES::option_lists_are_single_bits_in_row_order()
{
    QFETCH(int, list);
    const OPTION_LIST& options = BIT_LISTS[list];
    unsigned seen = 0;
    for (unsigned row = 0; row < options.count; ++row) {
        QCOMPARE(options.rows[row].enumerator, 1u << row);
        QVERIFY(!(seen & options.rows[row].enumerator));
        seen |= options.rows[row].enumerator;
    }
    QCOMPARE(display_names(options).removeDuplicates(), 0);
}

void TEST_KIOPRU_TABLES::option_list_texts_data()
{
    QTest::addColumn<int>("list");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("keys");
    QTest::newRow("scheme") << 0
                            << QStringList{"Passive Serial", "Fast Passive Parallel x8", "Fast Passive Parallel x16",
                                           "Fast Passive Parallel x32", "Active Serial", "Active Serial x4"}
                            << QStringList{"ps", "fppx8", "fppx16", "fppx32", "asx1", "asx4"};
    QTest::newRow("vccpgm") << 1 << QStringList{"1.8 V", "2.5 V", "3.0 V", "3.3 V"}
                            << QStringList{"1_8v", "2_5v", "3_0v", "3_3v"};
    QTest::newRow("flash") << 2
                           << QStringList{"P30 2Gb 16-bits CFI flash", "2 x P30 2Gb 16-bits CFI flash", "Micron QSPI 256Mb",
                                          "2 x Micron QSPI 256Mb", "4 x Micron QSPI 256Mb",
                                          "Micron 1Gb 16-bits NAND flash", "CFGQ"}
                           << QStringList{"cfi1", "cfi2", "qspi1", "qspi2", "qspi3", "nand1", "cfgq1"};
    QTest::newRow("freq") << 3
                          << QStringList{"Internal 12.5 Mhz", "Internal 25.0 Mhz", "Internal 50.0 Mhz",
                                         "Internal 100.0 Mhz", "External CLKUSR", "DCLK"}
                          << QStringList{"int12_5", "int25", "int50", "int100", "ext", "dclk"};
}

void TEST_KIOPRU_TABLES::option_list_texts()
{
    QFETCH(int, list);
    QFETCH(QStringList, names);
    QFETCH(QStringList, keys);
    const OPTION_LIST& options = BIT_LISTS[list];
    QCOMPARE(display_names(options), names);
    QStringList actual_keys;
    for (unsigned i = 0; i < options.count; ++i)
        actual_keys << QString::fromStdString(options.rows[i].key);
    QCOMPARE(actual_keys, keys);
}

// "All" covers every bit any list can use, and is no row's name.
void TEST_KIOPRU_TABLES::all_is_every_option()
{
    QCOMPARE(PGMD_CM_SELECT_ALL, 0xFFFFFFFFu);
    QCOMPARE(QString::fromStdString(PGMD_CM_SELECT_ALL_STRING), QString("All"));
    for (const OPTION_LIST& options : BIT_LISTS)
        QVERIFY(!display_names(options).contains("All"));
}

void TEST_KIOPRU_TABLES::database_rows_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QVector<unsigned>>("masks"); // passive schemes .. active clocks
    QTest::addColumn<unsigned>("id_code");
    QTest::addColumn<unsigned>("id_mask");
    QTest::addColumn<QString>("size");
    QTest::addColumn<unsigned>("flag");
    QTest::newRow("None") << 0 << "None" << QVector<unsigned>{0, 0, 0, 0, 0, 0, 0, 0} << 0u << 0u << "" << 0u;
    QTest::newRow("BR5-TV1-ES") << 1 << "BR5-TV1-ES" << QVector<unsigned>{15, 7, 63, 32, 48, 4, 64, 31} << 0x0B4150F3u
                                << 0xFFFFFFFFu << "02100000" << 0u;
    QTest::newRow("CD5-TV2-ES") << 2 << "CD5-TV2-ES" << QVector<unsigned>{7, 15, 63, 32, 48, 13, 64, 31} << 0x0B4250F3u
                                << 0xFFFAFFFFu << "01100000" << 1u;
    QTest::newRow("DN5-TV3-ES") << 3 << "DN5-TV3-ES" << QVector<unsigned>{7, 15, 63, 32, 48, 13, 64, 31} << 0x0B4350F3u
                                << 0xFFFAFFFFu << "00700000" << 1u;
}

void TEST_KIOPRU_TABLES::database_rows()
{
    QFETCH(int, row);
    QFETCH(QString, name);
    QFETCH(QVector<unsigned>, masks);
    QFETCH(unsigned, id_code);
    QFETCH(unsigned, id_mask);
    QFETCH(QString, size);
    QFETCH(unsigned, flag);
    QCOMPARE(int(std::size(PGMD_CM_DATABASE_LIST)), 4);
    const PGMD_CM_DATABASE_INFO& dut = PGMD_CM_DATABASE_LIST[row];
    QCOMPARE(QString::fromStdString(dut.name), name);
    const QVector<unsigned> actual{dut.passive_schemes, dut.passive_vccpgm, dut.passive_flashes, dut.passive_freqs,
                                   dut.active_schemes,  dut.active_vccpgm,  dut.active_flashes,  dut.active_freqs};
    QCOMPARE(actual, masks);
    QCOMPARE(dut.jtag_id_code, id_code);
    QCOMPARE(dut.jtag_id_mask, id_mask);
    QCOMPARE(dut.reserved1, quint64(0));
    QCOMPARE(dut.reserved2, quint64(0));
    QCOMPARE(QString::fromStdString(dut.size), size);
    QCOMPARE(dut.flag, flag);
    // Names are copied from the DUT list at load, which therefore must be built first.
    if (row > 0)
        QCOMPARE(dut.name, PGMD_CM_DUT_LIST[row - 1].display_name);
}

void TEST_KIOPRU_TABLES::dut_list_is_a_plain_index()
{
    const QStringList keys{"br5tv1", "cd5tv2", "dn5tv3"};
    for (unsigned i = 0; i < std::size(PGMD_CM_DUT_LIST); ++i) {
        QCOMPARE(PGMD_CM_DUT_LIST[i].enumerator, i);
        QCOMPARE(QString::fromStdString(PGMD_CM_DUT_LIST[i].key), keys[int(i)]);
    }
}

void TEST_KIOPRU_TABLES::first_dut_has_no_active_2_5_v()
{
    const PGMD_CM_DATABASE_INFO& dut = PGMD_CM_DATABASE_LIST[1];
    const unsigned passive_serial = PGMD_CM_SCHEME_LIST[0].enumerator;
    const unsigned active_serial = PGMD_CM_SCHEME_LIST[4].enumerator;
    const unsigned v2_5 = PGMD_CM_VCCPGM_LIST[1].enumerator;
    QVERIFY(dut.passive_schemes & passive_serial);
    QVERIFY(dut.active_schemes & active_serial);
    QVERIFY(dut.passive_vccpgm & v2_5);
    QVERIFY(!(dut.active_vccpgm & v2_5));
}

void TEST_KIOPRU_TABLES::flash_geometry_is_consistent()
{
    QCOMPARE(PGMD_CM_FLASH_LIST[6].display_name, ACTIVE_MEMORY);
    QCOMPARE(QString::fromStdString(ACTIVE_MEMORY), QString("CFGQ"));
    const unsigned quad_counts[] = {0, 0, 1, 2, 4, 0};
    for (unsigned i = 0; i < std::size(PGMD_CM_FLASH_DATABASE_LIST); ++i) {
        const PGMD_FLASH_INFO& flash = PGMD_CM_FLASH_DATABASE_LIST[i];
        QCOMPARE(quint64(flash.density_mb), ((quint64(1) << flash.address_bits) * flash.width) >> 20);
        QCOMPARE(flash.quad_count, quad_counts[i]);
        QCOMPARE(flash.is_quad_spi, flash.type == "QUAD_SPI_FLASH" ? 1u : 0u);
        QCOMPARE(flash.doubled, i == 1 ? 1u : 0u);
    }
    QCOMPARE(PGMD_CM_FLASH_CARD_LIST[0].enumerator, PGMD_CM_DATABASE_LIST[1].passive_flashes);
}

QTEST_MAIN(TEST_KIOPRU_TABLES)
#include "test_kiopru_tables.moc"
