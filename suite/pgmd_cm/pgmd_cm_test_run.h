// One test of a batch on the bench: check the DUT chain, set the DUT's configuration options
// through the bench controller, program and verify the memory, power up, release nCONFIG and
// read the outcome. The result is a verdict line (" - Pass" or " - Fail") and its details.
#pragma once

#include "pgmd_cm.h"
#include "pgmd_cm_catalogue.h"
#include "pgmd_cm_controller.h"

#include <set>
#include <string>
#include <vector>

// The verdict line's title of test `number` ("Test 3: BR5-TV1-ES, Passive Serial, ...").
std::string pgmd_cm_test_title(unsigned number, const std::string& line);
// The result of a test that could not run at all.
std::vector<std::string> pgmd_cm_failed_test(unsigned number, const std::string& line, const std::string& reason);

class PGMD_CM_TEST_RUN {
public:
    PGMD_CM_TEST_RUN(PGMD_CM_ENGINE& engine, unsigned controller_device, const std::set<std::string>& skipped_processes, bool skip_flash);

    std::vector<std::string> run(unsigned number, const std::string& line);

private:
    bool check_dut_chain();
    bool set_options();
    bool set_and_check(uint32_t reg, uint32_t value, const char* what);
    bool update_memory();
    bool program_memory(const std::vector<uint32_t>& image);
    bool power_up();
    bool configure();
    bool access_failed(const char* step);
    void detail(const std::string& text);
    bool fail(const std::string& text);
    std::string skipped_process() const;

    PGMD_CM_ENGINE& m_engine;
    PGMD_CM_CONTROLLER m_controller;
    std::set<std::string> m_skipped_processes;
    bool m_skip_flash;
    PGMD_CM_TEST_CASE m_test;
    uint32_t m_dut_idcode = 0; // the DUT as found on its chain
    std::vector<std::string> m_details;
};
