// The chain manager's own knowledge of the test options: the DUTs it can test (display name,
// JTAG ID code and the mask of compared bits), and for every scheme, supply, memory and clock
// display name the setting it makes on the bench. Command lines and process lines are read here.
// The panels that write the commands keep tables of their own; tests hold the two side by side.
#pragma once

#include "bench_protocol.h"

#include <cstdint>
#include <string>
#include <vector>

struct PGMD_CM_DUT_ENTRY {
    const char* name;
    const char* key;
    uint32_t idcode;
    uint32_t mask;
};

// A scheme's key, MSEL code and class are the DUT family's; the catalogue gives it its name.
struct PGMD_CM_SCHEME_ENTRY : BENCH_PROTOCOL::SCHEME_CODE {
    const char* name;
};

// A supply (code in millivolts), memory (code: slot) or clock (code: source) option.
struct PGMD_CM_OPTION_ENTRY {
    const char* name;
    const char* key;
    uint32_t code;
};

// The catalogue's lists, each in the order the chain manager groups tests by.
struct PGMD_CM_CATALOGUE {
    std::vector<PGMD_CM_DUT_ENTRY> duts;
    std::vector<PGMD_CM_SCHEME_ENTRY> schemes;
    std::vector<PGMD_CM_OPTION_ENTRY> vccpgms;
    std::vector<PGMD_CM_OPTION_ENTRY> memories;
    std::vector<PGMD_CM_OPTION_ENTRY> clocks;
};
const PGMD_CM_CATALOGUE& pgmd_cm_catalogue();

// One test of a batch: "CMD @<DUT> @<scheme> @<VCCPGM> @<memory> @<clock>".
struct PGMD_CM_TEST_CASE {
    const PGMD_CM_DUT_ENTRY* dut = nullptr;
    const PGMD_CM_SCHEME_ENTRY* scheme = nullptr;
    const PGMD_CM_OPTION_ENTRY* vccpgm = nullptr;
    const PGMD_CM_OPTION_ENTRY* memory = nullptr;
    const PGMD_CM_OPTION_ENTRY* clock = nullptr;
    // Position of each option in its catalogue list: the grouping key of the generator.
    unsigned order[5] = {};
};

// A process line: "PROCESS", one separator, the flag ('+' runs, '-' skipped), the process name.
struct PGMD_CM_PROCESS {
    std::string name;
    bool run = true;
};

extern const char* const PGMD_CM_COMMAND_KEYWORD;  // "CMD"
extern const char* const PGMD_CM_PROCESS_KEYWORD;  // "PROCESS"
constexpr size_t PGMD_CM_PROCESS_FLAG_POSITION = 8;

bool pgmd_cm_is_command(const std::string& line);
bool pgmd_cm_is_process(const std::string& line);
// Reads a command line; false with the reason in *error when it names something unknown.
bool pgmd_cm_parse_command(const std::string& line, PGMD_CM_TEST_CASE* test, std::string* error);
bool pgmd_cm_parse_process(const std::string& line, PGMD_CM_PROCESS* process);
std::string pgmd_cm_process_line(const std::string& name, bool run);

// The processes, in the order they run, and which of them a scheme class needs.
const std::vector<std::string>& pgmd_cm_all_processes();
std::vector<std::string> pgmd_cm_required_processes(bool active);

const PGMD_CM_DUT_ENTRY* pgmd_cm_find_dut_by_idcode(uint32_t idcode);
