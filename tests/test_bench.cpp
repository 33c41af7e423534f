// The simulated bench on its own, driven pin by pin: TAP walks, IDCODE and BYPASS, chains and
// cable faults, the bench file, the hub, the debug IP's trace and the configuration hardware.
#include "bench.h"
#include "bench_config_hw.h"
#include "bench_debug_ip.h"
#include "bench_protocol.h"
#include "bench_trace.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace BENCH_PROTOCOL;
using S = BENCH_TAP_STATE;

namespace {

// A minimal JTAG host of its own, so the bench is checked without the engine.
class DRIVER {
public:
    explicit DRIVER(BENCH_CABLE& cable) : m_cable(cable) {}

    bool clock(bool tms, bool tdi = false)
    {
        bool tdo = false;
        m_ok = m_cable.clock(tms, tdi, &tdo) && m_ok;
        return tdo;
    }
    void reset()
    {
        for (int i = 0; i < 5; ++i)
            clock(true);
        clock(false);
    }
    std::vector<bool> scan(bool ir, const std::vector<bool>& in)
    {
        clock(true);
        if (ir)
            clock(true);
        clock(false);
        clock(false);
        std::vector<bool> out;
        for (size_t i = 0; i < in.size(); ++i)
            out.push_back(clock(i + 1 == in.size(), in[i]));
        clock(true);
        clock(false);
        return out;
    }
    uint64_t scan_value(bool ir, uint64_t value, unsigned bits)
    {
        std::vector<bool> in;
        for (unsigned i = 0; i < bits; ++i)
            in.push_back((value >> i) & 1u);
        const std::vector<bool> out = scan(ir, in);
        uint64_t result = 0;
        for (unsigned i = 0; i < bits; ++i)
            result |= uint64_t(out[i]) << i;
        return result;
    }
    bool ok() const { return m_ok; }

private:
    BENCH_CABLE& m_cable;
    bool m_ok = true;
};

std::unique_ptr<BENCH> bench_from(const QJsonObject& root)
{
    std::string error;
    auto bench = BENCH::from_json(QJsonDocument(root).toJson().toStdString(), &error);
    EXPECT_TRUE(bench) << error;
    return bench;
}

QJsonObject device(const char* name, const char* idcode, int ir_length = 10)
{
    return QJsonObject{{"name", name}, {"idcode", idcode}, {"ir_length", ir_length}};
}

QJsonObject one_cable(const QJsonArray& chain, const QJsonObject& faults = QJsonObject())
{
    QJsonObject cable{{"name", "Test cable"}, {"chain", chain}};
    if (!faults.isEmpty())
        cable.insert("faults", faults);
    return QJsonObject{{"cables", QJsonArray{cable}}};
}

} // namespace

// ---- TAP controller ----------------------------------------------------------------------------

TEST(Tap, WalksThroughBothColumns)
{
    struct STEP {
        bool tms;
        S state;
    };
    const std::vector<STEP> walk = {
        {false, S::RUN_TEST_IDLE}, {false, S::RUN_TEST_IDLE}, {true, S::SELECT_DR_SCAN}, {false, S::CAPTURE_DR},
        {false, S::SHIFT_DR},      {false, S::SHIFT_DR},      {true, S::EXIT1_DR},       {false, S::PAUSE_DR},
        {false, S::PAUSE_DR},      {true, S::EXIT2_DR},       {false, S::SHIFT_DR},      {true, S::EXIT1_DR},
        {true, S::UPDATE_DR},      {true, S::SELECT_DR_SCAN}, {true, S::SELECT_IR_SCAN}, {false, S::CAPTURE_IR},
        {true, S::EXIT1_IR},       {false, S::PAUSE_IR},      {true, S::EXIT2_IR},       {true, S::UPDATE_IR},
        {true, S::SELECT_DR_SCAN}, {false, S::CAPTURE_DR},    {true, S::EXIT1_DR},       {true, S::UPDATE_DR},
        {false, S::RUN_TEST_IDLE}, {true, S::SELECT_DR_SCAN}, {true, S::SELECT_IR_SCAN}, {false, S::CAPTURE_IR},
        {false, S::SHIFT_IR},      {true, S::EXIT1_IR},       {false, S::PAUSE_IR},      {true, S::EXIT2_IR},
        {false, S::SHIFT_IR},      {true, S::EXIT1_IR},       {true, S::UPDATE_IR},      {false, S::RUN_TEST_IDLE},
        {true, S::SELECT_DR_SCAN}, {true, S::SELECT_IR_SCAN}, {true, S::TEST_LOGIC_RESET}, {true, S::TEST_LOGIC_RESET},
    };
    S state = S::TEST_LOGIC_RESET;
    for (size_t i = 0; i < walk.size(); ++i) {
        state = bench_tap_next(state, walk[i].tms);
        ASSERT_EQ(state, walk[i].state) << "step " << i << ": " << bench_tap_state_name(state);
    }
}

TEST(Tap, FiveTmsHighReachResetFromEveryState)
{
    for (unsigned s = 0; s < BENCH_TAP_STATE_COUNT; ++s) {
        S state = static_cast<S>(s);
        for (int i = 0; i < 5; ++i)
            state = bench_tap_next(state, true);
        EXPECT_EQ(state, S::TEST_LOGIC_RESET) << bench_tap_state_name(static_cast<S>(s));
    }
}

// ---- Devices and chains ------------------------------------------------------------------------

TEST(Device, ResetSelectsIdcodeAndIrCapturesOneZero)
{
    auto bench = bench_from(one_cable({device("A", "0x0B4150F3", 10)}));
    DRIVER driver(bench->cable(0));
    driver.reset();
    EXPECT_EQ(bench->cable(0).device(0).instruction(), IR_IDCODE);
    EXPECT_EQ(driver.scan_value(false, 0xFFFFFFFF, 32), 0x0B4150F3u);
    // The IR captures ...01, whatever it held; shifting 0x3FF in leaves BYPASS.
    EXPECT_EQ(driver.scan_value(true, 0x3FF, 10), 1u);
    EXPECT_EQ(bench->cable(0).device(0).instruction(), 0x3FFu);
    EXPECT_EQ(driver.scan_value(true, IR_IDCODE, 10), 1u);
    EXPECT_EQ(driver.scan_value(false, 0, 32), 0x0B4150F3u);
    EXPECT_TRUE(driver.ok());
}

TEST(Device, BypassAndUnknownInstructionsAreOneBit)
{
    for (uint32_t instruction : {0xFFu, 0x2Au}) {
        auto bench = bench_from(one_cable({device("A", "0x0B4150F3", 8)}));
        DRIVER driver(bench->cable(0));
        driver.reset();
        driver.scan_value(true, instruction, 8);
        // A pattern comes out one bit late, behind the captured 0.
        EXPECT_EQ(driver.scan_value(false, 0x1B5, 10), 0x1B5u << 1 & 0x3FF) << instruction;
    }
}

TEST(Device, ResetFromAnyInstructionGoesBackToIdcode)
{
    auto bench = bench_from(one_cable({device("A", "0x0B4150F3", 10)}));
    DRIVER driver(bench->cable(0));
    driver.reset();
    driver.scan_value(true, 0x3FF, 10);
    driver.reset();
    EXPECT_EQ(driver.scan_value(false, 0, 32), 0x0B4150F3u);
}

TEST(Chain, IdcodesLeaveFromTheTdoEndAndIrLengthsAdd)
{
    auto bench = bench_from(one_cable({device("A", "0x00000A01", 10), device("B", "0x00000B01", 6), device("C", "0x00000C01", 8)}));
    DRIVER driver(bench->cable(0));
    driver.reset();
    const std::vector<bool> out = driver.scan(false, std::vector<bool>(4 * 32, true));
    auto word = [&](size_t n) {
        uint32_t value = 0;
        for (unsigned i = 0; i < 32; ++i)
            value |= uint32_t(out[n * 32 + i]) << i;
        return value;
    };
    EXPECT_EQ(word(0), 0x00000C01u);
    EXPECT_EQ(word(1), 0x00000B01u);
    EXPECT_EQ(word(2), 0x00000A01u);
    EXPECT_EQ(word(3), 0xFFFFFFFFu);
    // IR captures: C (8 bits) first, then B (6), then A (10).
    const std::vector<bool> ir = driver.scan(true, std::vector<bool>(24, true));
    std::vector<size_t> starts;
    for (size_t i = 0; i < ir.size(); ++i)
        if (ir[i])
            starts.push_back(i);
    EXPECT_EQ(starts, (std::vector<size_t>{0, 8, 14}));
}

TEST(Cable, StuckTdoReadsOneLevel)
{
    for (int level : {0, 1}) {
        auto bench = bench_from(one_cable({device("A", "0x0B4150F3")}, QJsonObject{{"tdo_stuck", level}}));
        DRIVER driver(bench->cable(0));
        driver.reset();
        EXPECT_EQ(driver.scan_value(false, 0, 32), level ? 0xFFFFFFFFu : 0u);
    }
}

TEST(Cable, LocksBelongToOneOwnerAndCanBeRefused)
{
    auto bench = bench_from(one_cable({device("A", "0x0B4150F3")}));
    BENCH_CABLE& cable = bench->cable(0);
    int first = 0, second = 0;
    EXPECT_TRUE(cable.lock(&first));
    EXPECT_TRUE(cable.lock(&first));
    EXPECT_FALSE(cable.lock(&second));
    cable.unlock(&second);
    EXPECT_EQ(cable.lock_owner(), &first);
    cable.unlock(&first);
    EXPECT_TRUE(cable.lock(&second));

    auto refusing = bench_from(one_cable({device("A", "0x0B4150F3")}, QJsonObject{{"refuse_lock", true}}));
    EXPECT_TRUE(refusing->cable(0).can_open());
    EXPECT_FALSE(refusing->cable(0).lock(&first));
    auto closed = bench_from(one_cable({device("A", "0x0B4150F3")}, QJsonObject{{"refuse_open", true}}));
    EXPECT_FALSE(closed->cable(0).can_open());
}

// ---- Bench files -------------------------------------------------------------------------------

TEST(BenchFile, DefaultBenchHasTheThreeCables)
{
    std::string error;
    auto bench = BENCH::from_json(BENCH::default_json(), &error);
    ASSERT_TRUE(bench) << error;
    ASSERT_EQ(bench->cable_count(), 3u);
    EXPECT_EQ(bench->cable(0).name(), "Bench-USB [1-1]");
    EXPECT_EQ(bench->cable(1).name(), "DUT-USB [1-2]");
    EXPECT_EQ(bench->cable(2).name(), "Lab-USB [1-3]");
    EXPECT_EQ(bench->cable(1).device(0).idcode(), 0x0B4150F3u);
    EXPECT_NE(bench->cable(1).device(0).configuration(), nullptr);
    EXPECT_EQ(bench->cable(2).device_count(), 3u);
    EXPECT_EQ(bench->part_name(0x0C1E00DD), "Kiopru bench controller");
    EXPECT_EQ(bench->part_name(0x12345679), "");
}

TEST(BenchFile, InvalidDescriptionsAreRejectedWithTheReason)
{
    struct CASE {
        const char* json;
        const char* reason;
    };
    const CASE cases[] = {
        {"not json", "not JSON"},
        {"{\"cables\": []}", "no \"cables\""},
        {"{\"cables\": [{\"chain\": []}]}", "\"name\" is missing"},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": [{\"name\": \"d\"}]}]}", "\"idcode\" is missing"},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": [{\"name\": \"d\", \"idcode\": \"0x10\"}]}]}", "bit 0"},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": [{\"name\": \"d\", \"idcode\": 1, \"ir_length\": 3}]}]}", "ir_length"},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": [{\"name\": \"d\", \"idcode\": 1, \"colour\": 3}]}]}", "unknown field \"colour\""},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": [{\"name\": \"d\", \"idcode\": 1, \"debug_ip\": {\"depth\": 1000}}]}]}", "multiple of 1024"},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": [{\"name\": \"d\", \"idcode\": 1, \"faults\": {\"fail_step\": \"x\"}}]}]}", "fail_step"},
        {"{\"cables\": [{\"name\": \"a\", \"faults\": {\"tdo_stuck\": 2}, \"chain\": []}]}", "tdo_stuck"},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": []}, {\"name\": \"a\", \"chain\": []}]}", "used twice"},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": [{\"name\": \"d\", \"idcode\": 1, \"configuration_hardware\": "
         "{\"target\": {\"cable\": \"b\", \"device\": 1}}}]}]}",
         "names no device"},
        {"{\"cables\": [{\"name\": \"a\", \"chain\": [{\"name\": \"d\", \"idcode\": 1, \"configuration\": {\"schemes\": [\"jtag\"]}}]}]}",
         "unknown scheme"},
    };
    for (const CASE& c : cases) {
        std::string error;
        EXPECT_FALSE(BENCH::from_json(c.json, &error)) << c.json;
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.json << " gave: " << error;
    }
}

// ---- Hub ---------------------------------------------------------------------------------------

TEST(Hub, StreamsHeaderAndNodeRecords)
{
    QJsonObject both = device("A", "0x0B4150F3");
    both.insert("debug_ip", QJsonObject{{"seed", 3}});
    both.insert("configuration_hardware", QJsonObject());
    auto bench = bench_from(one_cable({both}));
    DRIVER driver(bench->cable(0));
    driver.reset();
    driver.scan_value(true, IR_HUB_VIR, 10);
    driver.scan_value(false, vir_value(0, HUB_INFO_INSTRUCTION), VIR_LENGTH);
    driver.scan_value(true, IR_HUB_VDR, 10);
    const uint32_t header = uint32_t(driver.scan_value(false, 0, 32));
    const uint32_t first = uint32_t(driver.scan_value(false, 0, 32));
    const uint32_t second = uint32_t(driver.scan_value(false, 0, 32));
    EXPECT_TRUE(is_hub_header(header));
    EXPECT_EQ(hub_header_node_count(header), 2u);
    EXPECT_TRUE(is_node_record(first));
    EXPECT_EQ(node_record_kind(first), NODE_KIND_DEBUG_IP);
    EXPECT_EQ(node_record_kind(second), NODE_KIND_CONFIG_HW);
    EXPECT_EQ(uint32_t(driver.scan_value(false, 0, 32)), header);

    // The virtual instruction register captures what it holds.
    driver.scan_value(true, IR_HUB_VIR, 10);
    driver.scan_value(false, vir_value(1, DEBUG_DESCRIPTOR), VIR_LENGTH);
    EXPECT_EQ(driver.scan_value(false, vir_value(1, DEBUG_DESCRIPTOR), VIR_LENGTH), vir_value(1, DEBUG_DESCRIPTOR));
    driver.scan_value(true, IR_HUB_VDR, 10);
    EXPECT_EQ(driver.scan_value(false, 0, 32), 0x11u);
    EXPECT_TRUE(driver.ok());
}

TEST(Hub, DeviceWithoutNodesAnswersHubInstructionsAsBypass)
{
    auto bench = bench_from(one_cable({device("A", "0x0B4150F3")}));
    DRIVER driver(bench->cable(0));
    driver.reset();
    driver.scan_value(true, IR_HUB_VDR, 10);
    EXPECT_EQ(driver.scan_value(false, 0x5, 4), 0xAu);
}

// ---- Debug IP ----------------------------------------------------------------------------------

TEST(DebugIp, DescriptorEncodesFeatureAndDepth)
{
    struct CASE {
        unsigned feature;
        uint32_t depth;
        uint32_t descriptor;
    };
    for (const CASE& c : {CASE{1, 1024, 0x11}, CASE{0, 1024, 0x10}, CASE{15, 0, 0x0F}, CASE{1, 131072, 0x801}}) {
        BENCH_DEBUG_IP_SETUP setup;
        setup.feature = c.feature;
        setup.depth = c.depth;
        EXPECT_EQ(BENCH_DEBUG_IP(setup).descriptor(), c.descriptor);
    }
}

TEST(DebugIp, FillGrowsWithTimeAndResetStartsTheNextSession)
{
    BENCH_DEBUG_IP_SETUP setup;
    setup.seed = 9;
    setup.fill = 100;
    BENCH_DEBUG_IP ip(setup);
    const std::vector<uint64_t> first = bench_generate_trace(9, 1024);
    EXPECT_EQ(ip.fill(), 100u);
    EXPECT_EQ(ip.sample(99), first[99]);
    EXPECT_EQ(ip.sample(100), 0u);
    for (int i = 0; i < 2000; ++i)
        ip.tick();
    EXPECT_EQ(ip.fill(), 1024u);
    EXPECT_EQ(ip.sample(1023), first[1023]);

    ip.load_instruction(DEBUG_RESET);
    EXPECT_EQ(ip.fill(), 0u);
    EXPECT_EQ(ip.epoch(), 1u);
    EXPECT_EQ(ip.sample(0), 0u);
    for (int i = 0; i < 10; ++i)
        ip.tick();
    const std::vector<uint64_t> next = bench_generate_trace(bench_trace_epoch_seed(9, 1), 1024);
    EXPECT_EQ(ip.sample(9), next[9]);
    EXPECT_EQ(ip.sample(10), 0u);
}

TEST(DebugIp, SampleReadsFailFromTheDeclaredIndex)
{
    BENCH_DEBUG_IP_SETUP setup;
    setup.fail_read_after = 3;
    BENCH_DEBUG_IP ip(setup);
    ip.load_instruction(DEBUG_SAMPLE);
    BENCH_SHIFT_REGISTER reg;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(ip.capture(&reg));
        EXPECT_EQ(reg.width, SAMPLE_BITS);
    }
    EXPECT_FALSE(ip.capture(&reg));
    ip.load_instruction(DEBUG_SAMPLE); // reading again starts from sample 0
    EXPECT_TRUE(ip.capture(&reg));
}

// ---- Trace model -------------------------------------------------------------------------------

TEST(Trace, DeterministicPerSeedAndAnyLength)
{
    const std::vector<uint64_t> a = bench_generate_trace(5, 4096);
    EXPECT_EQ(a, bench_generate_trace(5, 4096));
    EXPECT_NE(a, bench_generate_trace(6, 4096));
    const std::vector<uint64_t> prefix = bench_generate_trace(5, 1024);
    EXPECT_TRUE(std::equal(prefix.begin(), prefix.end(), a.begin()));
    EXPECT_EQ(bench_generate_trace(5, 131072).size(), 131072u);
    for (uint64_t sample : a)
        ASSERT_EQ(sample >> SAMPLE_BITS, 0u);
}

class TraceSignals : public ::testing::TestWithParam<uint32_t> {};

// The signals follow from one TAP walk: the checks below hold for any session.
TEST_P(TraceSignals, AreConsistentWithTheWalk)
{
    using namespace BENCH_TRACE;
    const std::vector<uint64_t> t = bench_generate_trace(GetParam(), 16384);
    auto f = [&](size_t i, unsigned position, unsigned width = 1) { return field(t[i], position, width); };
    const uint64_t registered = (1ull << UDR_REG) | (1ull << DATA1OUT_REG) | (0xFFFull << TOTAL_BIT_COUNT);
    const uint64_t edge = (1ull << TCK) | (1ull << DCLKIN) | registered;
    bool select_since_update = true, shift_since_select = false, shift_interrupted = false;
    size_t flash_shifts = 0, instruction_loads = 0, pauses = 0;
    for (size_t i = 0; i < t.size(); ++i) {
        ASSERT_EQ(f(i, TCK), i % 2) << i;
        if (i % 2 == 1) {
            ASSERT_EQ(t[i] & ~edge, t[i - 1] & ~edge) << "levels change only on the falling edge, sample " << i;
        }
        if (i > 0) {
            ASSERT_EQ(f(i, UDR_REG), f(i - 1, UDR)) << i;
            ASSERT_EQ(f(i, DATA1OUT_REG), f(i - 1, DATA1OUT)) << i;
            const uint32_t count = f(i, TOTAL_BIT_COUNT, 12), before = f(i - 1, TOTAL_BIT_COUNT, 12);
            if (i % 2 == 1 && f(i, SDR))
                ASSERT_EQ(count, (before + 1) & 0xFFF) << i;
            else if (i % 2 == 0)
                ASSERT_EQ(count, before) << i;
            else
                ASSERT_TRUE(count == before || count == 0) << i;
            if (f(i, IR_IN, 12) != f(i - 1, IR_IN, 12)) {
                ASSERT_TRUE(f(i, UDR) && f(i, USR1)) << "ir_in changes only at a virtual IR update, sample " << i;
                ++instruction_loads;
            }
            if (f(i - 1, SDR) && !f(i, SDR))
                shift_interrupted = true;
            if (!f(i - 1, SDR) && f(i, SDR) && shift_interrupted)
                ++pauses; // shifting resumed after Pause-DR, without an update between
        }
        if (f(i, DCLKIN)) {
            ASSERT_TRUE(f(i, TCK) && f(i, SDR) && !f(i, SCEIN)) << i;
        }
        if (!f(i, SCEIN)) {
            ASSERT_FALSE(f(i, SDRS) || f(i, UDR) || f(i, USR1)) << i;
            if (f(i, SDR)) {
                ASSERT_EQ(f(i, SDOIN), f(i, TDI)) << i;
                if (i % 2 == 0) {
                    ASSERT_EQ(f(i, TDO), f(i, DATA1OUT_REG)) << "the flash answers on TDO, sample " << i;
                }
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
            shift_interrupted = false;
        }
    }
    EXPECT_GT(flash_shifts, 100u);
    EXPECT_GT(instruction_loads, 10u);
    EXPECT_GT(pauses, 0u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, TraceSignals, ::testing::Values(1u, 2u, 77u, 0xDEADBEEFu));

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
    explicit CONFIG_BENCH(BENCH_FAIL_STEP controller_fault = BENCH_FAIL_STEP::NONE, BENCH_FAIL_STEP dut_fault = BENCH_FAIL_STEP::NONE)
        : hw(controller_fault), dut(DUT_IDCODE, {{MSEL_PS, MSEL_FPP_X8, MSEL_AS_X1}, {1800, 2500}, {3000}}, dut_fault)
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

TEST(ConfigHardware, DutChecksEveryOptionAndTheImage)
{
    struct CASE {
        const char* what;
        uint32_t image_idcode, image_msel, msel, mv, slot, clock;
        uint32_t error;
    };
    const CASE cases[] = {
        {"passive serial", DUT_IDCODE, MSEL_PS, MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK, CONFIG_OK},
        {"fpp x8 from NAND", DUT_IDCODE, MSEL_FPP_X8, MSEL_FPP_X8, 2500, MEMORY_NAND1, CLOCK_DCLK, CONFIG_OK},
        {"active serial", DUT_IDCODE, MSEL_AS_X1, MSEL_AS_X1, 3000, MEMORY_ACTIVE_SERIAL, CLOCK_INT_25, CONFIG_OK},
        {"supply within 5 %", DUT_IDCODE, MSEL_PS, MSEL_PS, 1850, MEMORY_CFI1, CLOCK_DCLK, CONFIG_OK},
        {"scheme the DUT lacks", DUT_IDCODE, MSEL_FPP_X32, MSEL_FPP_X32, 1800, MEMORY_CFI1, CLOCK_DCLK, CONFIG_MSEL},
        {"MSEL of no scheme", DUT_IDCODE, 0x07, 0x07, 1800, MEMORY_CFI1, CLOCK_DCLK, CONFIG_MSEL},
        {"2.5 V for active", DUT_IDCODE, MSEL_AS_X1, MSEL_AS_X1, 2500, MEMORY_ACTIVE_SERIAL, CLOCK_INT_25, CONFIG_VCCPGM},
        {"3.0 V for passive", DUT_IDCODE, MSEL_PS, MSEL_PS, 3000, MEMORY_CFI1, CLOCK_DCLK, CONFIG_VCCPGM},
        {"serial memory for passive", DUT_IDCODE, MSEL_PS, MSEL_PS, 1800, MEMORY_ACTIVE_SERIAL, CLOCK_DCLK, CONFIG_MEMORY},
        {"internal clock for passive", DUT_IDCODE, MSEL_PS, MSEL_PS, 1800, MEMORY_CFI1, CLOCK_INT_50, CONFIG_CLOCK},
        {"DCLK for active", DUT_IDCODE, MSEL_AS_X1, MSEL_AS_X1, 3000, MEMORY_ACTIVE_SERIAL, CLOCK_DCLK, CONFIG_CLOCK},
        {"image of another device", 0x0B4250F3, MSEL_PS, MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK, CONFIG_IDCODE},
        {"image of another scheme", DUT_IDCODE, MSEL_FPP_X8, MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK, CONFIG_SCHEME},
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
    CONFIG_BENCH blank;
    EXPECT_EQ(status_error(blank.configure(MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK)), CONFIG_BLANK);

    // Programming only clears bits: a second image over the first without erase is corrupt.
    CONFIG_BENCH unerased;
    unerased.program(MEMORY_CFI1, image_for(DUT_IDCODE, MSEL_PS));
    std::vector<uint32_t> other = image_for(DUT_IDCODE, MSEL_PS);
    other[5] = ~other[5];
    other.back() = image_crc(&other[1], other.size() - 2);
    unerased.program(MEMORY_CFI1, other, false);
    EXPECT_EQ(status_error(unerased.configure(MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK)), CONFIG_CRC);

    // Images stay in their own slot, and the memory must be wired back to the DUT.
    CONFIG_BENCH wired;
    wired.program(MEMORY_QSPI1, image_for(DUT_IDCODE, MSEL_PS));
    EXPECT_EQ(status_error(wired.configure(MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK)), CONFIG_BLANK);
    EXPECT_EQ(status_error(wired.configure(MSEL_PS, 1800, MEMORY_QSPI1, CLOCK_DCLK, CONTROL_FLASH_HOST)), CONFIG_FLASH_HOST);
    wired.hw.write_register(REG_CONTROL, 0);
    EXPECT_EQ(status_error(wired.configure(MSEL_PS, 1800, MEMORY_QSPI1, CLOCK_DCLK)), CONFIG_OK);

    // Removing the supply ends the configuration.
    wired.hw.write_register(REG_CONTROL, 0);
    EXPECT_EQ(wired.hw.read_register(REG_STATUS, true) & STATUS_CONF_DONE, 0u);
}

TEST(ConfigHardware, DeclaredFaultsBreakTheirStep)
{
    const std::vector<uint32_t> image = image_for(DUT_IDCODE, MSEL_PS);

    CONFIG_BENCH power(BENCH_FAIL_STEP::POWER);
    power.program(MEMORY_CFI1, image);
    EXPECT_EQ(status_error(power.configure(MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK)), CONFIG_NO_POWER);
    EXPECT_EQ(power.hw.read_register(REG_VCCPGM_MEASURED, true), 0u);

    CONFIG_BENCH program(BENCH_FAIL_STEP::FLASH_PROGRAM);
    program.program(MEMORY_CFI1, image);
    EXPECT_NE(program.hw.read_register(REG_STATUS, true) & STATUS_FLASH_ERROR, 0u);
    EXPECT_EQ(status_error(program.configure(MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK)), CONFIG_BLANK);

    CONFIG_BENCH verify(BENCH_FAIL_STEP::FLASH_VERIFY);
    verify.program(MEMORY_CFI1, image);
    verify.hw.write_register(REG_CONTROL, CONTROL_FLASH_HOST);
    verify.hw.write_register(REG_FLASH_ADDRESS, 0);
    EXPECT_EQ(verify.hw.read_register(REG_FLASH_DATA, true), image[0] ^ 1u);
    verify.hw.write_register(REG_CONTROL, 0);
    EXPECT_EQ(status_error(verify.configure(MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK)), CONFIG_OK);

    CONFIG_BENCH configure(BENCH_FAIL_STEP::NONE, BENCH_FAIL_STEP::CONFIGURE);
    configure.program(MEMORY_CFI1, image);
    EXPECT_EQ(status_error(configure.configure(MSEL_PS, 1800, MEMORY_CFI1, CLOCK_DCLK)), CONFIG_CRC);

    BENCH_CONFIG_HW alone(BENCH_FAIL_STEP::NONE);
    alone.write_register(REG_CONTROL, CONTROL_POWER | CONTROL_NCONFIG);
    EXPECT_EQ(status_error(alone.read_register(REG_STATUS, true)), CONFIG_NO_DUT);
}
