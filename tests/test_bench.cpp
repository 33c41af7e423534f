// The simulated bench's parts on their own: the TAP state diagram, the bench file, the debug IP's
// trace model and the configuration hardware. The devices' IDCODE, IR capture and BYPASS, cable
// locks, the hub, the debug IP and the declared faults are checked through the engine (whose
// chain discovery relies on each of them), the manager and the viewer panel.
#include "bench.h"
#include "bench_config_hw.h"
#include "bench_protocol.h"
#include "bench_trace.h"

#include <gtest/gtest.h>

#include <iterator>

using namespace BENCH_PROTOCOL;
using S = BENCH_TAP_STATE;

// ---- TAP controller ----------------------------------------------------------------------------

// Every state's two successors, as the JTAG standard draws the controller.
TEST(Tap, FollowsTheStandardStateDiagram)
{
    struct EDGE {
        S from, on_low, on_high;
    };
    const EDGE diagram[] = {
        {S::TEST_LOGIC_RESET, S::RUN_TEST_IDLE, S::TEST_LOGIC_RESET}, {S::RUN_TEST_IDLE, S::RUN_TEST_IDLE, S::SELECT_DR_SCAN},
        {S::SELECT_DR_SCAN, S::CAPTURE_DR, S::SELECT_IR_SCAN},        {S::CAPTURE_DR, S::SHIFT_DR, S::EXIT1_DR},
        {S::SHIFT_DR, S::SHIFT_DR, S::EXIT1_DR},                      {S::EXIT1_DR, S::PAUSE_DR, S::UPDATE_DR},
        {S::PAUSE_DR, S::PAUSE_DR, S::EXIT2_DR},                      {S::EXIT2_DR, S::SHIFT_DR, S::UPDATE_DR},
        {S::UPDATE_DR, S::RUN_TEST_IDLE, S::SELECT_DR_SCAN},          {S::SELECT_IR_SCAN, S::CAPTURE_IR, S::TEST_LOGIC_RESET},
        {S::CAPTURE_IR, S::SHIFT_IR, S::EXIT1_IR},                    {S::SHIFT_IR, S::SHIFT_IR, S::EXIT1_IR},
        {S::EXIT1_IR, S::PAUSE_IR, S::UPDATE_IR},                     {S::PAUSE_IR, S::PAUSE_IR, S::EXIT2_IR},
        {S::EXIT2_IR, S::SHIFT_IR, S::UPDATE_IR},                     {S::UPDATE_IR, S::RUN_TEST_IDLE, S::SELECT_DR_SCAN},
    };
    ASSERT_EQ(std::size(diagram), size_t(BENCH_TAP_STATE_COUNT));
    for (const EDGE& edge : diagram) {
        EXPECT_EQ(bench_tap_next(edge.from, false), edge.on_low) << bench_tap_state_name(edge.from);
        EXPECT_EQ(bench_tap_next(edge.from, true), edge.on_high) << bench_tap_state_name(edge.from);
    }
}

// ---- Bench files -------------------------------------------------------------------------------

TEST(BenchFile, InvalidDescriptionsAreRejectedWithTheReason)
{
    struct CASE {
        const char* json;
        const char* reason;
    };
    const CASE cases[] = {
        {"not json", "not JSON"},
        {"{\"cables\": [{\"chain\": []}]}", "\"name\" is missing"},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": [{\"name\": \"d\", \"idcode\": \"0x10\"}]}]}", "bit 0"},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": [{\"name\": \"d\", \"idcode\": 1, \"colour\": 3}]}]}", "unknown field \"colour\""},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": [{\"name\": \"d\", \"idcode\": 1, \"debug_ip\": {\"depth\": 1000}}]}]}", "multiple of 1024"},
    };
    for (const CASE& c : cases) {
        std::string error;
        EXPECT_FALSE(BENCH::from_json(c.json, &error)) << c.json;
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.json << " gave: " << error;
    }
}

// ---- Trace model -------------------------------------------------------------------------------

class TraceSignals : public ::testing::TestWithParam<uint32_t> {};

// A session's trace is the same at any length, and its signals follow from one TAP walk: the
// checks below hold for any session.
TEST_P(TraceSignals, AreConsistentWithTheWalk)
{
    using namespace BENCH_TRACE;
    const std::vector<uint64_t> t = bench_generate_trace(GetParam(), 16384);
    const std::vector<uint64_t> start = bench_generate_trace(GetParam(), 1024);
    EXPECT_TRUE(std::equal(start.begin(), start.end(), t.begin())) << "a shorter trace is the same session's start";
    EXPECT_NE(bench_generate_trace(GetParam() + 1, 1024), start);
    auto f = [&](size_t i, unsigned position, unsigned width = 1) { return field(t[i], position, width); };
    const uint64_t registered = (1ull << UDR_REG) | (1ull << DATA1OUT_REG) | (0xFFFull << TOTAL_BIT_COUNT);
    const uint64_t edge = (1ull << TCK) | (1ull << DCLKIN) | registered;
    bool select_since_update = true, shift_since_select = false;
    size_t flash_shifts = 0;
    for (size_t i = 0; i < t.size(); ++i) {
        ASSERT_EQ(t[i] >> SAMPLE_BITS, 0u) << i;
        ASSERT_EQ(f(i, TCK), i % 2) << i;
        ASSERT_TRUE(i % 2 == 0 || (t[i] & ~edge) == (t[i - 1] & ~edge)) << "levels change only on the falling edge, sample " << i;
        if (i > 0) {
            ASSERT_EQ(f(i, UDR_REG), f(i - 1, UDR)) << i;
            ASSERT_EQ(f(i, DATA1OUT_REG), f(i - 1, DATA1OUT)) << i;
            const uint32_t count = f(i, TOTAL_BIT_COUNT, 12), before = f(i - 1, TOTAL_BIT_COUNT, 12);
            // Counts each shifted bit on the rising edge; cleared only on a rising edge out of a shift.
            const bool rising = i % 2 == 1;
            const uint32_t counted = rising && f(i, SDR) ? (before + 1) & 0xFFF : before;
            ASSERT_TRUE(count == counted || (rising && !f(i, SDR) && count == 0)) << i;
            ASSERT_TRUE(f(i, IR_IN, 12) == f(i - 1, IR_IN, 12) || (f(i, UDR) && f(i, USR1)))
                << "ir_in changes only at a virtual IR update, sample " << i;
        }
        ASSERT_TRUE(!f(i, DCLKIN) || (f(i, TCK) && f(i, SDR) && !f(i, SCEIN))) << i;
        if (!f(i, SCEIN)) {
            ASSERT_FALSE(f(i, SDRS) || f(i, UDR) || f(i, USR1)) << i;
            if (f(i, SDR)) {
                ASSERT_EQ(f(i, SDOIN), f(i, TDI)) << i;
                ASSERT_TRUE(i % 2 == 1 || f(i, TDO) == f(i, DATA1OUT_REG)) << "the flash answers on TDO, sample " << i;
                ++flash_shifts;
            }
        } else {
            ASSERT_EQ(f(i, SDOIN) | f(i, DATA1OUT), 0u) << i;
        }
        if (f(i, SDRS)) {
            select_since_update = true;
            shift_since_select = false;
        }
        if (f(i, SDR)) {
            ASSERT_TRUE(select_since_update) << "a shift without Select-DR-Scan, sample " << i;
            shift_since_select = true;
        }
        if (f(i, UDR)) {
            ASSERT_TRUE(shift_since_select) << "an update without a shift, sample " << i;
            select_since_update = false;
        }
    }
    EXPECT_GT(flash_shifts, 100u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, TraceSignals, ::testing::Values(1u, 0xDEADBEEFu));

// ---- Configuration test hardware ---------------------------------------------------------------

namespace {

constexpr uint32_t DUT_IDCODE = 0x0B4150F3;

std::vector<uint32_t> image_for(uint32_t idcode, uint32_t msel)
{
    std::vector<uint32_t> image = {IMAGE_MAGIC, idcode, msel, 16};
    for (uint32_t i = 0; i < 16; ++i)
        image.push_back(0x01010101u * i ^ idcode);
    image.push_back(image_crc(&image[1], image.size() - 1));
    return image;
}

struct CONFIG_BENCH {
    CONFIG_BENCH()
        : hw(BENCH_FAIL_STEP::NONE), dut(DUT_IDCODE, {{MSEL_PS, MSEL_FPP_X8, MSEL_AS_X1}, {1800, 2500}, {3000}}, BENCH_FAIL_STEP::NONE)
    {
        hw.connect(&dut);
    }
    void program(uint32_t slot, const std::vector<uint32_t>& image, bool erase = true)
    {
        hw.write_register(REG_MEMORY, slot);
        hw.write_register(REG_CONTROL, CONTROL_FLASH_HOST);
        if (erase)
            hw.write_register(REG_FLASH_ERASE, FLASH_ERASE_KEY);
        hw.write_register(REG_FLASH_ADDRESS, 0);
        for (uint32_t word : image)
            hw.write_register(REG_FLASH_DATA, word);
        hw.write_register(REG_CONTROL, 0);
    }
    uint32_t configure(uint32_t msel, uint32_t mv, uint32_t slot, uint32_t clock, uint32_t extra_control = 0)
    {
        hw.write_register(REG_MSEL, msel);
        hw.write_register(REG_VCCPGM_MV, mv);
        hw.write_register(REG_MEMORY, slot);
        hw.write_register(REG_CLOCK, clock);
        hw.write_register(REG_CONTROL, CONTROL_POWER | extra_control);
        hw.write_register(REG_CONTROL, CONTROL_POWER | CONTROL_NCONFIG | extra_control);
        return hw.read_register(REG_STATUS, true);
    }
    BENCH_CONFIG_HW hw;
    BENCH_DUT_CONFIG dut;
};

} // namespace

// The manager's tests run the common cases through the bench; these are the ones it cannot reach.
TEST(ConfigHardware, DutChecksEveryOptionAndTheImage)
{
    struct CASE {
        const char* what;
        uint32_t image_idcode, image_msel, msel, mv, slot, clock;
        uint32_t error;
    };
    const CASE cases[] = {
        {"supply within 5 %", DUT_IDCODE, MSEL_PS, MSEL_PS, 1850, MEMORY_CFI1, CLOCK_DCLK, CONFIG_OK},
        {"scheme the DUT lacks", DUT_IDCODE, MSEL_FPP_X32, MSEL_FPP_X32, 1800, MEMORY_CFI1, CLOCK_DCLK, CONFIG_MSEL},
        {"3.0 V for passive", DUT_IDCODE, MSEL_PS, MSEL_PS, 3000, MEMORY_CFI1, CLOCK_DCLK, CONFIG_VCCPGM},
        {"DCLK for active", DUT_IDCODE, MSEL_AS_X1, MSEL_AS_X1, 3000, MEMORY_ACTIVE_SERIAL, CLOCK_DCLK, CONFIG_CLOCK},
        {"image of another device", 0x0B4250F3, MSEL_PS, MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK, CONFIG_IDCODE},
    };
    for (const CASE& c : cases) {
        CONFIG_BENCH bench;
        bench.program(c.slot, image_for(c.image_idcode, c.image_msel));
        const uint32_t status = bench.configure(c.msel, c.mv, c.slot, c.clock);
        EXPECT_EQ(status_error(status), c.error) << c.what;
        EXPECT_EQ((status & STATUS_CONF_DONE) != 0, c.error == CONFIG_OK) << c.what;
        EXPECT_EQ((status & STATUS_NSTATUS) != 0, c.error == CONFIG_OK) << c.what;
    }
}

TEST(ConfigHardware, MemoryBehavesLikeFlash)
{
    // Programming only clears bits: a second image over the first without erase is corrupt.
    CONFIG_BENCH unerased;
    unerased.program(MEMORY_CFI1, image_for(DUT_IDCODE, MSEL_PS));
    std::vector<uint32_t> other = image_for(DUT_IDCODE, MSEL_PS);
    other[5] = ~other[5];
    other.back() = image_crc(&other[1], other.size() - 2);
    unerased.program(MEMORY_CFI1, other, false);
    EXPECT_EQ(status_error(unerased.configure(MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK)), CONFIG_CRC);

    // The memory must be wired back to the DUT.
    CONFIG_BENCH wired;
    wired.program(MEMORY_QSPI1, image_for(DUT_IDCODE, MSEL_PS));
    EXPECT_EQ(status_error(wired.configure(MSEL_PS, 1800, MEMORY_QSPI1, CLOCK_DCLK, CONTROL_FLASH_HOST)), CONFIG_FLASH_HOST);
    wired.hw.write_register(REG_CONTROL, 0);
    EXPECT_EQ(status_error(wired.configure(MSEL_PS, 1800, MEMORY_QSPI1, CLOCK_DCLK)), CONFIG_OK);
}
