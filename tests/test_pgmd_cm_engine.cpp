// The chain manager's engine on the bench: the site's bench, scanning chains, locks, the hub's
// nodes and the debug IP's virtual instructions, where the viewer panel's captures and the Kiopru
// panel (binding cables by handle, two benches side by side) do not reach them.
#include "test_pgmd_cm_support.h"

#include "bench_protocol.h"
#include "bench_trace.h"
#include "gen.h"

#include <QTemporaryDir>

#include <fstream>
#include <memory>

using namespace BENCH_PROTOCOL;

namespace {

// A scan of the DUT chain: the devices found and the error.
struct SCAN {
    std::vector<PGMD_CM_DEVICE> devices;
    int error = -1;
};

SCAN scan(PGMD_CM_ENGINE& engine)
{
    SCAN result;
    unsigned count = 99;
    const std::unique_ptr<PGMD_CM_DEVICE[]> devices(engine.scan_chain(true, &count, &result.error));
    if (devices)
        result.devices.assign(devices.get(), devices.get() + count);
    else
        EXPECT_EQ(count, 0u);
    return result;
}

// Reads `count` samples the way the viewer does: 0xE02, then one 37-bit read each.
std::vector<uint64_t> read_samples(PGMD_CM_ENGINE& engine, unsigned device, size_t count)
{
    std::vector<uint64_t> samples;
    EXPECT_TRUE(engine.load_jtag_virtual_instruction(true, DEBUG_SAMPLE, device, false, true));
    for (size_t i = 0; i < count; ++i) {
        unsigned char bytes[5] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
        if (!engine.read_dr_data(true, SAMPLE_BITS, bytes, device))
            break;
        uint64_t value = 0;
        for (int byte = 0; byte < 5; ++byte)
            value |= uint64_t(bytes[byte]) << (8 * byte);
        samples.push_back(value);
    }
    return samples;
}

} // namespace

using Engine = PGMD_CM_TEST;

// The site's bench follows the settings; engines given it see the bench it holds now.
TEST_F(Engine, TheSettingsNameTheSitesBench)
{
    const std::shared_ptr<PGMD_CM_BENCH> site = pgmd_cm_site_bench();
    EXPECT_EQ(site, pgmd_cm_site_bench());
    PGMD_CM_ENGINE engine(site);
    QTemporaryDir directory;
    const std::string path = directory.filePath("bench.json").toStdString();
    std::ofstream(path) << R"({"cables": [{"name": "Site cable", "chain": [{"name": "Part", "idcode": "0x00001001"}]}]})";
    gen_set_setting("bench/file", path);
    std::string error;
    EXPECT_TRUE(pgmd_cm_reload_bench(&error)) << error;
    EXPECT_EQ(pgmd_cm_list_hardware(*site), std::vector<std::string>{"Site cable"});
    EXPECT_TRUE(engine.set_tji_hardware(true, 1));
    EXPECT_EQ(engine.get_hardware_name(true), "Site cable");
    EXPECT_EQ(pgmd_cm_list_hardware(*m_bench).size(), 3u) << "a bench of one's own is not the site's";

    gen_set_setting("bench/file", directory.filePath("missing.json").toStdString());
    EXPECT_FALSE(pgmd_cm_reload_bench(&error));
    EXPECT_NE(error.find("missing.json"), std::string::npos) << error;
    EXPECT_EQ(pgmd_cm_list_hardware(*site), std::vector<std::string>{"Site cable"}) << "a failed load keeps the bench";

    gen_set_setting("bench/file", "");
    EXPECT_TRUE(pgmd_cm_reload_bench(&error));
    EXPECT_EQ(pgmd_cm_list_hardware(*site).size(), 3u);
}

// The DUT catalogue names a device by its IDCODE under the catalogue's mask, the bench names the
// others; the IR lengths found must be right, or the debug IP behind the last device is not
// reached. read_dut_id fills the caller's arrays, the slots past the chain cleared.
TEST_F(Engine, ScansAChainWithIrLengthsOfItsOwn)
{
    const QJsonArray chain = {QJsonObject{{"name", "First"}, {"idcode", "0x0B4750F3"}, {"ir_length", 6}},
                              QJsonObject{{"name", "Odd part"}, {"idcode", "0x12345679"}, {"ir_length", 13}},
                              QJsonObject{{"name", "Last"}, {"idcode", "0x00ABC0DD"}, {"ir_length", 8}, {"debug_ip", QJsonObject{{"seed", 4}}}}};
    m_bench = bench_of(QJsonObject{{"cables", QJsonArray{QJsonObject{{"name", "Three"}, {"chain", chain}}}}});
    PGMD_CM_ENGINE engine(m_bench);
    ASSERT_TRUE(engine.set_tji_hardware(true, 1));
    const SCAN result = scan(engine);
    EXPECT_EQ(result.error, PGMD_CM_SCAN_ERROR_NONE);
    ASSERT_EQ(result.devices.size(), 3u);
    EXPECT_EQ(result.devices[0].name, "CD5-TV2-ES");
    EXPECT_EQ(result.devices[1].name, "Odd part");
    EXPECT_EQ(result.devices[2].idcode, 0x00ABC0DDu);
    bool present[4] = {true, true, true, true};
    unsigned ids[4] = {1, 2, 3, 4};
    bool* present_out = present;
    unsigned* ids_out = ids;
    EXPECT_EQ(engine.read_dut_id(&present_out, &ids_out), 0);
    EXPECT_EQ(std::vector<bool>(present, present + 4), (std::vector<bool>{true, true, true, false}));
    EXPECT_EQ(std::vector<unsigned>(ids, ids + 4), (std::vector<unsigned>{0x0B4750F3, 0x12345679, 0x00ABC0DD, 0}));

    ASSERT_TRUE(engine.startup_hardware(true, false));
    ASSERT_TRUE(engine.determine_dut_sld_node(2, NODE_KIND_DEBUG_IP));
    EXPECT_EQ(read_samples(engine, 2, 64), std::vector<uint64_t>(bench_generate_trace(4, 64)));
}

// Start-up locks the cable for one engine, when the chain holds the devices expected (0: any
// number). Destroying the holder releases the lock; the viewer panel unlocks after each use.
TEST_F(Engine, StartupLocksTheCableForOneEngine)
{
    PGMD_CM_ENGINE viewer(m_bench);
    ASSERT_TRUE(viewer.set_tji_hardware(true, handle(LAB_CABLE_NAME)));
    viewer.set_dut_count(2);
    EXPECT_FALSE(viewer.startup_hardware(true, false));
    EXPECT_FALSE(viewer.is_locked(true));
    viewer.set_dut_count(3);
    {
        PGMD_CM_ENGINE other(m_bench);
        ASSERT_TRUE(other.set_tji_hardware(true, handle(LAB_CABLE_NAME)));
        ASSERT_TRUE(other.startup_hardware(true, false));
        EXPECT_TRUE(other.is_locked(true));
        EXPECT_FALSE(viewer.startup_hardware(true, false));
        EXPECT_EQ(scan(viewer).error, PGMD_CM_SCAN_ERROR_NO_HARDWARE);
        EXPECT_EQ(scan(other).error, PGMD_CM_SCAN_ERROR_NONE) << "the holder may scan";
    }
    EXPECT_TRUE(viewer.startup_hardware(true, false));
    EXPECT_TRUE(viewer.is_locked(true));
    viewer.unlock_hardware(true);
    EXPECT_FALSE(viewer.is_locked(true));
    viewer.set_dut_count(0);
    EXPECT_TRUE(viewer.startup_hardware(true, false));
}

// What the viewer's captures and the manager's runs do not reach: a node of another kind, reading
// again, and the chain after instruction loads.
TEST_F(Engine, FindsNodesBehindTheHub)
{
    PGMD_CM_ENGINE engine(m_bench);
    ASSERT_TRUE(engine.set_tji_hardware(true, handle(LAB_CABLE_NAME)));
    ASSERT_TRUE(engine.startup_hardware(true, false));
    EXPECT_FALSE(engine.determine_dut_sld_node(0, NODE_KIND_CONFIG_HW));
    EXPECT_TRUE(engine.determine_dut_sld_node(0, NODE_KIND_DEBUG_IP));
    EXPECT_EQ(read_samples(engine, 0, 100), std::vector<uint64_t>(bench_generate_trace(2, 100)));
    EXPECT_EQ(read_samples(engine, 0, 100), std::vector<uint64_t>(bench_generate_trace(2, 100))) << "reading again starts from sample 0";
    EXPECT_EQ(scan(engine).devices.size(), 3u) << "a reset after instruction loads selects IDCODE again";
    engine.unlock_hardware(true);
    unsigned char bytes[5] = {};
    EXPECT_FALSE(engine.read_dr_data(true, SAMPLE_BITS, bytes, 0)) << "no shifts without the lock";
}
