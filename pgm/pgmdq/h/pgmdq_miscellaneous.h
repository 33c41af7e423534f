// The test-case builder's option tables and its process selection dialog.
//
// Every option is a single bit of an unsigned 32-bit value, so that a set of options is a mask
// and a row's index is its bit's position. The tables are constants of this header: every unit
// that includes it holds its own copy, built at load in the order written here (later tables copy
// names from earlier ones) and destroyed in reverse order at unload.
#pragma once

#include "tfcq.h"

#include <QCheckBox>

#include <cstdint>
#include <string>
#include <vector>

class QPushButton;

// One row of an option list.
struct PGMD_CM_TYPE_INFO {
    std::string display_name; // shown in a selector and compared against its current text
    std::string key;          // short token for command text and file names
    unsigned enumerator;      // the option's bit
};

// One DUT's capabilities: the passive group applies to the DUT's passive schemes, the active
// group to its active schemes.
struct PGMD_CM_DATABASE_INFO {
    std::string name;
    unsigned passive_schemes;
    unsigned passive_vccpgm;
    unsigned passive_flashes;
    unsigned passive_freqs;
    unsigned active_schemes;
    unsigned active_vccpgm;
    unsigned active_flashes;
    unsigned active_freqs;
    unsigned jtag_id_code;
    unsigned jtag_id_mask; // 1 = bit of the IDCODE that is compared
    std::uint64_t reserved1;
    std::uint64_t reserved2;
    std::string size; // eight hexadecimal digits
    unsigned flag;
};

struct PGMD_FLASH_INFO {
    std::string type;
    std::string size_class;
    unsigned density_mb; // 2^address_bits * width / 2^20
    unsigned width;
    unsigned address_bits;
    unsigned doubled;      // 1 for the two-device CFI row
    unsigned quad_count;   // number of quad-SPI devices
    unsigned is_quad_spi;
};

struct PGMD_FLASH_CARD_INFO {
    std::string key;
    std::string voltage;
};

// The selector entry "All", held as every option at once.
const unsigned PGMD_CM_SELECT_ALL = 0xFFFFFFFF;

static const std::string PGMD_CM_CMD_STRING = "CMD";
static const std::string PGMD_CM_PROCESS_STRING = "PROCESS";
static const std::string PGMD_CM_GEN_SOF_STRING = "Generate SOF";
static const std::string PGMD_CM_GEN_PFL_STRING = "Generate PFL IP";
static const std::string PGMD_CM_GEN_PFL_POF_STRING = "Generate PFL POF";
static const std::string PGMD_CM_GEN_JIC_STRING = "Generate JIC";
static const std::string PGMD_CM_NO_HARDWARE_STRING = "No card attached";
static const std::string PGMD_CM_ACTICE_FLASH_SUPPORT_QUAD_STRING = "Quad";
static const std::string PGMD_CM_ACTICE_FLASH_NOT_SUPPORT_QUAD_STRING = "No Quad";
static const std::string DSET_OPEN_STR = "Open";
static const std::string DSET_ZB_UFM_LOAD_FILE_STR = "Load memory file";
static const std::string DSET_ZB_UFM_LOAD_FILE_KEYWORD_STR = "@+-# ";
static const std::string PGMD_PASS_INDICATOR = " - Pass";
static const std::string PGMD_FAIL_INDICATOR = " - Fail";

// Name of the active serial configuration flash; the flash list copies it.
static const std::string ACTIVE_MEMORY = "CFGQ";

static const PGMD_CM_TYPE_INFO PGMD_CM_FLASH_CARD_LIST[8] = {
    {"Flash Card 1", "4", 63}, {"", "5", 0}, {"", "6", 0},  {"", "7", 0},
    {"", "8", 0},              {"", "9", 0}, {"", "10", 0}, {"", "11", 0},
};

// The enumerator of a DUT is its plain index; the families are BOREAL5, CALDER5 and DUNLIN5.
static const PGMD_CM_TYPE_INFO PGMD_CM_DUT_LIST[3] = {
    {"BR5-TV1-ES", "br5tv1", 0},
    {"CD5-TV2-ES", "cd5tv2", 1},
    {"DN5-TV3-ES", "dn5tv3", 2},
};

// The first four schemes are passive, the last two active.
static const PGMD_CM_TYPE_INFO PGMD_CM_SCHEME_LIST[6] = {
    {"Passive Serial", "ps", 1},
    {"Fast Passive Parallel x8", "fppx8", 2},
    {"Fast Passive Parallel x16", "fppx16", 4},
    {"Fast Passive Parallel x32", "fppx32", 8},
    {"Active Serial", "asx1", 16},
    {"Active Serial x4", "asx4", 32},
};

static const PGMD_CM_TYPE_INFO PGMD_CM_VCCPGM_LIST[4] = {
    {"1.8 V", "1_8v", 1},
    {"2.5 V", "2_5v", 2},
    {"3.0 V", "3_0v", 4},
    {"3.3 V", "3_3v", 8},
};

// Six flashes for the passive side, then the active serial configuration flash.
static const PGMD_CM_TYPE_INFO PGMD_CM_FLASH_LIST[7] = {
    {"P30 2Gb 16-bits CFI flash", "cfi1", 1},
    {"2 x P30 2Gb 16-bits CFI flash", "cfi2", 2},
    {"Micron QSPI 256Mb", "qspi1", 4},
    {"2 x Micron QSPI 256Mb", "qspi2", 8},
    {"4 x Micron QSPI 256Mb", "qspi3", 16},
    {"Micron 1Gb 16-bits NAND flash", "nand1", 32},
    {ACTIVE_MEMORY, "cfgq1", 64},
};

static const PGMD_CM_TYPE_INFO PGMD_CM_FREQ_LIST[6] = {
    {"Internal 12.5 Mhz", "int12_5", 1},
    {"Internal 25.0 Mhz", "int25", 2},
    {"Internal 50.0 Mhz", "int50", 4},
    {"Internal 100.0 Mhz", "int100", 8},
    {"External CLKUSR", "ext", 16},
    {"DCLK", "dclk", 32},
};

static const std::string PGMD_CM_SELECT_ALL_STRING = "All";

// Row 0 is "no DUT"; row i + 1 belongs to PGMD_CM_DUT_LIST[i].
static const PGMD_CM_DATABASE_INFO PGMD_CM_DATABASE_LIST[4] = {
    {"None", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {PGMD_CM_DUT_LIST[0].display_name, 15, 7, 63, 32, 48, 4, 64, 31, 0x0B4150F3, 0xFFFFFFFF, 0, 0, "02100000", 0},
    {PGMD_CM_DUT_LIST[1].display_name, 7, 15, 63, 32, 48, 13, 64, 31, 0x0B4250F3, 0xFFFAFFFF, 0, 0, "01100000", 1},
    {PGMD_CM_DUT_LIST[2].display_name, 7, 15, 63, 32, 48, 13, 64, 31, 0x0B4350F3, 0xFFFAFFFF, 0, 0, "00700000", 1},
};

static const PGMD_FLASH_CARD_INFO PGMD_CM_FLASH_CARD_DATABASE_LIST[8] = {
    {"f1", "1.8"}, {"", ""}, {"", ""}, {"", ""}, {"", ""}, {"", ""}, {"", ""}, {"", ""},
};

// In the order of the first six rows of PGMD_CM_FLASH_LIST.
static const PGMD_FLASH_INFO PGMD_CM_FLASH_DATABASE_LIST[6] = {
    {"CFI_FLASH", "CFI_512MB", 2048, 16, 27, 0, 0, 0},
    {"CFI_FLASH", "CFI_512MB", 4096, 32, 27, 1, 0, 0},
    {"QUAD_SPI_FLASH", "QSPI_512MB", 128, 8, 24, 0, 1, 1},
    {"QUAD_SPI_FLASH", "QSPI_512MB", 256, 8, 25, 0, 2, 1},
    {"QUAD_SPI_FLASH", "QSPI_512MB", 512, 8, 26, 0, 4, 1},
    {"NAND_FLASH", "NAND_512MB", 1024, 16, 26, 0, 0, 0},
};

// Device, quad capability and size in bytes; the two empty rows are spare slots.
static const PGMD_CM_TYPE_INFO PGMD_CM_ACTIVE_FLASH_LIST[6] = {
    {"CFGS128", PGMD_CM_ACTICE_FLASH_NOT_SUPPORT_QUAD_STRING, 16777216},
    {"CFGQ128", PGMD_CM_ACTICE_FLASH_SUPPORT_QUAD_STRING, 16777216},
    {"CFGQ256", PGMD_CM_ACTICE_FLASH_SUPPORT_QUAD_STRING, 33554432},
    {"CFGQ512", PGMD_CM_ACTICE_FLASH_SUPPORT_QUAD_STRING, 67108864},
    {"", "", 0},
    {"", "", 0},
};

// MSEL settings and clock ratios per DUT, in PGMD_CM_DUT_LIST order; 128 = no MSEL setting.
static const unsigned char PGMD_CM_MSEL_LIST[3][12] = {
    {17, 24, 25, 26, 4, 5, 6, 12, 13, 14, 19, 0},
    {17, 24, 25, 26, 4, 5, 6, 128, 128, 128, 19, 0},
    {17, 24, 25, 26, 4, 5, 6, 128, 128, 128, 19, 0},
};

static const unsigned char PGMD_CM_RATIO_LIST[3][12] = {
    {1, 1, 1, 2, 1, 2, 4, 1, 4, 8, 1, 1},
    {1, 1, 1, 2, 1, 2, 4, 1, 4, 8, 1, 1},
    {1, 1, 1, 2, 1, 2, 4, 1, 4, 8, 1, 1},
};

// Shows the processes a batch needs as check boxes (checked = skip the process) plus two global
// skip options, and hands the edited process lines back.
//
// A process line is "PROCESS", one separator, a flag at position 8 ("+" runs, "-" is skipped),
// then the process name; the dialog keeps every flag equal to its box.
class PGMDQ_PROCESS_DLG : public TFCQ_DIALOG {
    Q_OBJECT
public:
    PGMDQ_PROCESS_DLG(const std::vector<std::string>& processes, QWidget* parent = nullptr);

    std::vector<std::string> get_processes() const;

    // The caller reads the two global choices after an accepted run.
    QCheckBox* m_skip_flash_check;
    QCheckBox* m_skip_engine_check;

private slots:
    void on_all_clicked();
    void on_clicked();
    void on_ok();

private:
    QCheckBox* all_check() const { return m_process_checks[0]; }
    void set_all_state(bool any_checked, bool any_unchecked);

    QPushButton* m_ok_button;
    // Element 0 is the tri-state "All" box, then one box per process in the order given.
    std::vector<QCheckBox*> m_process_checks;
    unsigned m_process_count;
};
