#include "pgmd_cm_test_run.h"

#include "bench_protocol.h"

#include <cstdarg>
#include <cstdio>
#include <memory>

using namespace BENCH_PROTOCOL;

namespace {

constexpr uint32_t IMAGE_PAYLOAD_WORDS = 64;

const char* const CONFIG_ERROR_TEXT[] = {
    "no error",
    "no supply at the DUT",
    "MSEL selects no scheme the DUT supports",
    "VCCPGM is not allowed for the scheme",
    "the memory storage does not fit the scheme",
    "the configuration clock does not fit the scheme",
    "the memory is still wired to the test bench",
    "the memory holds no configuration image",
    "the image in the memory is for another device",
    "the image in the memory is for another scheme",
    "CRC error in the configuration data",
    "the test bench drives no DUT",
};

std::string format(const char* pattern, ...)
{
    char text[512];
    va_list args;
    va_start(args, pattern);
    std::vsnprintf(text, sizeof text, pattern, args);
    va_end(args);
    return text;
}

// Text taken from a command line must not read as a verdict of its own.
std::string without_verdicts(std::string text)
{
    for (size_t at = text.find(" - "); at != std::string::npos; at = text.find(" - ", at))
        text.replace(at, 3, " / ");
    return text;
}

// The configuration image the batch's generation processes stand for: a header naming the
// device found on the chain (a variant within the DUT's ID mask gets its own code) and the
// scheme, a payload derived from both, and the CRC the DUT checks.
std::vector<uint32_t> build_image(uint32_t idcode, const PGMD_CM_TEST_CASE& test)
{
    std::vector<uint32_t> image = {IMAGE_MAGIC, idcode, test.scheme->msel, IMAGE_PAYLOAD_WORDS};
    uint32_t state = idcode ^ (test.scheme->msel << 24);
    for (uint32_t i = 0; i < IMAGE_PAYLOAD_WORDS; ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        image.push_back(state);
    }
    image.push_back(image_crc(&image[1], image.size() - 1));
    return image;
}

} // namespace

std::string pgmd_cm_test_title(unsigned number, const std::string& line)
{
    PGMD_CM_TEST_CASE test;
    std::string error;
    if (!pgmd_cm_parse_command(line, &test, &error))
        return format("Test %u", number);
    return format("Test %u: %s, %s, %s, %s, %s", number, test.dut->name, test.scheme->name, test.vccpgm->name,
                  test.memory->name, test.clock->name);
}

std::vector<std::string> pgmd_cm_failed_test(unsigned number, const std::string& line, const std::string& reason)
{
    return {pgmd_cm_test_title(number, line) + " - Fail", without_verdicts(reason)};
}

PGMD_CM_TEST_RUN::PGMD_CM_TEST_RUN(PGMD_CM_ENGINE& engine, unsigned controller_device, const std::set<std::string>& skipped_processes, bool skip_flash)
    : m_engine(engine), m_controller(engine, controller_device), m_skipped_processes(skipped_processes), m_skip_flash(skip_flash)
{
}

void PGMD_CM_TEST_RUN::detail(const std::string& text)
{
    m_details.push_back(without_verdicts(text));
}

bool PGMD_CM_TEST_RUN::fail(const std::string& text)
{
    detail(text);
    return false;
}

bool PGMD_CM_TEST_RUN::access_failed(const char* step)
{
    return fail(format("JTAG access to the test bench failed while %s", step));
}

std::vector<std::string> PGMD_CM_TEST_RUN::run(unsigned number, const std::string& line)
{
    m_details.clear();
    std::string error;
    bool passed = pgmd_cm_parse_command(line, &m_test, &error);
    if (!passed)
        fail("Command not understood: " + error);
    passed = passed && check_dut_chain() && set_options() && update_memory() && power_up() && configure();
    std::vector<std::string> result = {pgmd_cm_test_title(number, line) + (passed ? " - Pass" : " - Fail")};
    result.insert(result.end(), m_details.begin(), m_details.end());
    return result;
}

bool PGMD_CM_TEST_RUN::check_dut_chain()
{
    unsigned count = 0;
    int error = PGMD_CM_SCAN_ERROR_NONE;
    const std::unique_ptr<PGMD_CM_DEVICE[]> devices(m_engine.scan_chain(true, &count, &error));
    if (!devices)
        return fail("The DUT chain cannot be scanned");
    const uint32_t mask = m_test.dut->mask;
    std::string found;
    for (unsigned i = 0; i < count; ++i) {
        if ((devices[i].idcode & mask) == (m_test.dut->idcode & mask)) {
            m_dut_idcode = devices[i].idcode;
            detail(format("DUT chain: @%u IDCODE 0x%08X matches %s (JTAG ID 0x%08X, mask 0x%08X)", i + 1, devices[i].idcode,
                          m_test.dut->name, m_test.dut->idcode, mask));
            return true;
        }
        found += format("%s@%u 0x%08X %s", found.empty() ? "" : ", ", i + 1, devices[i].idcode, devices[i].name.c_str());
    }
    return fail(format("DUT chain holds no %s (JTAG ID 0x%08X, mask 0x%08X); found %s", m_test.dut->name, m_test.dut->idcode,
                       mask, found.c_str()));
}

bool PGMD_CM_TEST_RUN::set_and_check(uint32_t reg, uint32_t value, const char* what)
{
    uint32_t read_back = 0;
    if (!m_controller.write(reg, value) || !m_controller.read(reg, &read_back))
        return access_failed(what);
    if (read_back != value)
        return fail(format("Setting %s failed: read back 0x%X instead of 0x%X", what, read_back, value));
    return true;
}

// With the DUT unpowered and held in reset: MSEL pins, memory slot, clock source.
bool PGMD_CM_TEST_RUN::set_options()
{
    if (!m_controller.write(REG_CONTROL, 0))
        return access_failed("powering the DUT down");
    if (!set_and_check(REG_MSEL, m_test.scheme->msel, "MSEL"))
        return false;
    detail(format("MSEL 0x%02X set for %s", m_test.scheme->msel, m_test.scheme->name));
    if (!set_and_check(REG_MEMORY, m_test.memory->code, "the memory storage"))
        return false;
    detail(format("Memory storage %s wired to the configuration port", m_test.memory->name));
    uint32_t khz = 0;
    if (!set_and_check(REG_CLOCK, m_test.clock->code, "the configuration clock"))
        return false;
    if (!m_controller.read(REG_CLOCK_KHZ, &khz))
        return access_failed("measuring the configuration clock");
    detail(format("Configuration clock %s selected, measured %u kHz", m_test.clock->name, khz));
    return true;
}

std::string PGMD_CM_TEST_RUN::skipped_process() const
{
    for (const std::string& process : pgmd_cm_required_processes(m_test.scheme->active))
        if (m_skipped_processes.count(process))
            return process;
    return std::string();
}

bool PGMD_CM_TEST_RUN::update_memory()
{
    if (m_skip_flash) {
        detail("Flash programming / verification skipped: the memory keeps its content");
        return true;
    }
    const std::string skipped = skipped_process();
    if (!skipped.empty()) {
        detail("No new image: process \"" + skipped + "\" was skipped, the memory keeps its content");
        return true;
    }
    return program_memory(build_image(m_dut_idcode, m_test));
}

bool PGMD_CM_TEST_RUN::program_memory(const std::vector<uint32_t>& image)
{
    uint32_t status = 0;
    if (!m_controller.write(REG_CONTROL, CONTROL_FLASH_HOST) || !m_controller.write(REG_FLASH_ERASE, FLASH_ERASE_KEY)
        || !m_controller.write(REG_FLASH_ADDRESS, 0) || !m_controller.write_words(REG_FLASH_DATA, image)
        || !m_controller.read(REG_STATUS, &status))
        return access_failed("programming the memory");
    if (status & STATUS_FLASH_ERROR)
        return fail(format("Flash programming failed: the test bench reports a flash error (STATUS 0x%08X)", status));
    std::vector<uint32_t> read_back;
    if (!m_controller.write(REG_FLASH_ADDRESS, 0) || !m_controller.read_words(REG_FLASH_DATA, image.size(), &read_back))
        return access_failed("verifying the memory");
    for (size_t i = 0; i < image.size(); ++i)
        if (read_back[i] != image[i])
            return fail(format("Flash verification failed at word %zu: read 0x%08X, expected 0x%08X", i, read_back[i], image[i]));
    if (!m_controller.write(REG_CONTROL, 0))
        return access_failed("wiring the memory to the DUT");
    detail(format("Memory erased, programmed and verified: %zu words, image for %s (%s)", image.size(), m_test.dut->name,
                  m_test.scheme->name));
    return true;
}

bool PGMD_CM_TEST_RUN::power_up()
{
    const uint32_t wanted = m_test.vccpgm->code;
    uint32_t measured = 0;
    if (!m_controller.write(REG_VCCPGM_MV, wanted) || !m_controller.write(REG_CONTROL, CONTROL_POWER)
        || !m_controller.read(REG_VCCPGM_MEASURED, &measured))
        return access_failed("powering the DUT up");
    const uint32_t deviation = measured > wanted ? measured - wanted : wanted - measured;
    if (deviation * 20 > wanted)
        return fail(format("VCCPGM %s not reached: measured %u mV", m_test.vccpgm->name, measured));
    detail(format("VCCPGM %s applied, measured %u mV", m_test.vccpgm->name, measured));
    return true;
}

bool PGMD_CM_TEST_RUN::configure()
{
    uint32_t status = 0;
    if (!m_controller.write(REG_CONTROL, CONTROL_POWER | CONTROL_NCONFIG) || !m_controller.read(REG_STATUS, &status))
        return access_failed("configuring the DUT");
    if (status & STATUS_CONF_DONE) {
        detail("Configuration done: CONF_DONE and nSTATUS high");
        return true;
    }
    const uint32_t error = status_error(status);
    const size_t known = sizeof(CONFIG_ERROR_TEXT) / sizeof(CONFIG_ERROR_TEXT[0]);
    return fail(format("Configuration failed: %s (STATUS 0x%08X)", error < known ? CONFIG_ERROR_TEXT[error] : "unknown error", status));
}
