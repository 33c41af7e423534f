#include "pgmd_cm.h"

#include "pgmd_cm_catalogue.h"

#include <algorithm>
#include <array>
#include <set>

namespace {

// Grouping key: DUT, memory, scheme, clock, then the supply, whose change costs least (no new
// image, no reprogrammed memory).
std::array<unsigned, 5> grouping_key(const PGMD_CM_TEST_CASE& test)
{
    return {test.order[0], test.order[3], test.order[1], test.order[4], test.order[2]};
}

} // namespace

std::string* PGMD_CM_GENERATOR::optimize_test_case(unsigned count, std::string* lines)
{
    struct ENTRY {
        bool command;
        std::array<unsigned, 5> key;
        const std::string* line;
    };
    std::vector<ENTRY> entries;
    for (unsigned i = 0; i < count; ++i) {
        PGMD_CM_TEST_CASE test;
        std::string error;
        const bool command = pgmd_cm_parse_command(lines[i], &test, &error);
        entries.push_back({command, command ? grouping_key(test) : std::array<unsigned, 5>{}, &lines[i]});
    }
    // Commands first, in key order; anything else keeps its place after them.
    std::stable_sort(entries.begin(), entries.end(), [](const ENTRY& a, const ENTRY& b) {
        if (a.command != b.command)
            return a.command;
        return a.command && a.key < b.key;
    });
    auto* result = new std::string[count];
    for (unsigned i = 0; i < count; ++i)
        result[i] = *entries[i].line;
    return result;
}

std::vector<std::string> PGMD_CM_GENERATOR::determine_process(unsigned count, std::string* lines)
{
    std::set<std::string> needed;
    for (unsigned i = 0; i < count; ++i) {
        PGMD_CM_TEST_CASE test;
        std::string error;
        if (!pgmd_cm_parse_command(lines[i], &test, &error))
            continue;
        for (const std::string& process : pgmd_cm_required_processes(test.scheme->active))
            needed.insert(process);
    }
    std::vector<std::string> processes;
    for (const std::string& process : pgmd_cm_all_processes())
        if (needed.count(process))
            processes.push_back(pgmd_cm_process_line(process, true));
    return processes;
}
