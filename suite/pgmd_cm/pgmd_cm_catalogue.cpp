#include "pgmd_cm_catalogue.h"

#include "bench_protocol.h"

using namespace BENCH_PROTOCOL;

const char* const PGMD_CM_COMMAND_KEYWORD = "CMD";
const char* const PGMD_CM_PROCESS_KEYWORD = "PROCESS";

namespace {

const PGMD_CM_CATALOGUE CATALOGUE = {
    {
        {"BR5-TV1-ES", "br5tv1", 0x0B4150F3, 0xFFFFFFFF},
        {"CD5-TV2-ES", "cd5tv2", 0x0B4250F3, 0xFFFAFFFF},
        {"DN5-TV3-ES", "dn5tv3", 0x0B4350F3, 0xFFFAFFFF},
    },
    {
        {SCHEME_CODES[0], "Passive Serial"},
        {SCHEME_CODES[1], "Fast Passive Parallel x8"},
        {SCHEME_CODES[2], "Fast Passive Parallel x16"},
        {SCHEME_CODES[3], "Fast Passive Parallel x32"},
        {SCHEME_CODES[4], "Active Serial"},
        {SCHEME_CODES[5], "Active Serial x4"},
    },
    {
        {"1.8 V", "1_8v", 1800},
        {"2.5 V", "2_5v", 2500},
        {"3.0 V", "3_0v", 3000},
        {"3.3 V", "3_3v", 3300},
    },
    {
        {"P30 2Gb 16-bits CFI flash", "cfi1", MEMORY_CFI1},
        {"2 x P30 2Gb 16-bits CFI flash", "cfi2", MEMORY_CFI2},
        {"Micron QSPI 256Mb", "qspi1", MEMORY_QSPI1},
        {"2 x Micron QSPI 256Mb", "qspi2", MEMORY_QSPI2},
        {"4 x Micron QSPI 256Mb", "qspi3", MEMORY_QSPI4},
        {"Micron 1Gb 16-bits NAND flash", "nand1", MEMORY_NAND1},
        {"CFGQ", "cfgq1", MEMORY_ACTIVE_SERIAL},
    },
    {
        {"Internal 12.5 Mhz", "int12_5", CLOCK_INT_12_5},
        {"Internal 25.0 Mhz", "int25", CLOCK_INT_25},
        {"Internal 50.0 Mhz", "int50", CLOCK_INT_50},
        {"Internal 100.0 Mhz", "int100", CLOCK_INT_100},
        {"External CLKUSR", "ext", CLOCK_CLKUSR},
        {"DCLK", "dclk", CLOCK_DCLK},
    },
};

const char* const GEN_SOF = "Generate SOF";
const char* const GEN_PFL_IP = "Generate PFL IP";
const char* const GEN_PFL_POF = "Generate PFL POF";
const char* const GEN_JIC = "Generate JIC";

// The entry of `table` whose display name is `name`, and its position.
template <class ENTRY>
const ENTRY* find_by_name(const std::vector<ENTRY>& table, const std::string& name, unsigned* position)
{
    for (size_t i = 0; i < table.size(); ++i)
        if (name == table[i].name) {
            *position = unsigned(i);
            return &table[i];
        }
    return nullptr;
}

bool starts_with(const std::string& text, const char* prefix)
{
    return text.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

// The fields after "CMD", each introduced by " @".
std::vector<std::string> command_fields(const std::string& line)
{
    std::vector<std::string> fields;
    const std::string separator = " @";
    size_t start = line.find(separator);
    while (start != std::string::npos) {
        const size_t next = line.find(separator, start + separator.size());
        fields.push_back(line.substr(start + separator.size(), next == std::string::npos ? std::string::npos : next - start - separator.size()));
        start = next;
    }
    return fields;
}

} // namespace

const PGMD_CM_CATALOGUE& pgmd_cm_catalogue()
{
    return CATALOGUE;
}

bool pgmd_cm_is_command(const std::string& line)
{
    return starts_with(line, PGMD_CM_COMMAND_KEYWORD);
}

bool pgmd_cm_is_process(const std::string& line)
{
    return starts_with(line, PGMD_CM_PROCESS_KEYWORD);
}

bool pgmd_cm_parse_command(const std::string& line, PGMD_CM_TEST_CASE* test, std::string* error)
{
    const std::vector<std::string> fields = command_fields(line);
    if (!pgmd_cm_is_command(line) || fields.size() != 5) {
        *error = "not a test command of five options";
        return false;
    }
    struct FIELD_CHECK {
        bool found;
        const char* what;
    };
    test->dut = find_by_name(CATALOGUE.duts, fields[0], &test->order[0]);
    test->scheme = find_by_name(CATALOGUE.schemes, fields[1], &test->order[1]);
    test->vccpgm = find_by_name(CATALOGUE.vccpgms, fields[2], &test->order[2]);
    test->memory = find_by_name(CATALOGUE.memories, fields[3], &test->order[3]);
    test->clock = find_by_name(CATALOGUE.clocks, fields[4], &test->order[4]);
    const FIELD_CHECK checks[] = {{test->dut != nullptr, "DUT"},          {test->scheme != nullptr, "configuration scheme"},
                                  {test->vccpgm != nullptr, "VCCPGM"},    {test->memory != nullptr, "memory storage"},
                                  {test->clock != nullptr, "configuration clock"}};
    for (size_t i = 0; i < 5; ++i)
        if (!checks[i].found) {
            *error = std::string("unknown ") + checks[i].what + " \"" + fields[i] + "\"";
            return false;
        }
    return true;
}

bool pgmd_cm_parse_process(const std::string& line, PGMD_CM_PROCESS* process)
{
    if (!pgmd_cm_is_process(line) || line.size() <= PGMD_CM_PROCESS_FLAG_POSITION + 1)
        return false;
    const char flag = line[PGMD_CM_PROCESS_FLAG_POSITION];
    if (flag != '+' && flag != '-')
        return false;
    process->run = flag == '+';
    process->name = line.substr(PGMD_CM_PROCESS_FLAG_POSITION + 1);
    return true;
}

std::string pgmd_cm_process_line(const std::string& name, bool run)
{
    return std::string(PGMD_CM_PROCESS_KEYWORD) + ' ' + (run ? '+' : '-') + name;
}

const std::vector<std::string>& pgmd_cm_all_processes()
{
    static const std::vector<std::string> processes = {GEN_SOF, GEN_PFL_IP, GEN_PFL_POF, GEN_JIC};
    return processes;
}

std::vector<std::string> pgmd_cm_required_processes(bool active)
{
    if (active)
        return {GEN_SOF, GEN_JIC};
    return {GEN_SOF, GEN_PFL_IP, GEN_PFL_POF};
}

// An exact IDCODE first: the masks of the DUTs overlap (one DUT's mask accepts another's code).
const PGMD_CM_DUT_ENTRY* pgmd_cm_find_dut_by_idcode(uint32_t idcode)
{
    for (const PGMD_CM_DUT_ENTRY& dut : CATALOGUE.duts)
        if (idcode == dut.idcode)
            return &dut;
    for (const PGMD_CM_DUT_ENTRY& dut : CATALOGUE.duts)
        if ((idcode & dut.mask) == (dut.idcode & dut.mask))
            return &dut;
    return nullptr;
}
