// The chain manager's generator and test manager: process lines, test ordering, the raw file and
// test runs on the bench, with the faults a bench can declare.
#include "test_pgmd_cm_support.h"

#include "gen.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

namespace {

const std::string PS_CFI = "CMD @BR5-TV1-ES @Passive Serial @1.8 V @P30 2Gb 16-bits CFI flash @DCLK";
const std::string PS_CFI_25 = "CMD @BR5-TV1-ES @Passive Serial @2.5 V @P30 2Gb 16-bits CFI flash @DCLK";
const std::string PS_CFI2 = "CMD @BR5-TV1-ES @Passive Serial @1.8 V @2 x P30 2Gb 16-bits CFI flash @DCLK";
const std::string FPP32_QSPI = "CMD @BR5-TV1-ES @Fast Passive Parallel x32 @3.0 V @Micron QSPI 256Mb @DCLK";
const std::string AS_INT100 = "CMD @BR5-TV1-ES @Active Serial @3.0 V @CFGQ @Internal 100.0 Mhz";
const std::string ASX4_CLKUSR = "CMD @BR5-TV1-ES @Active Serial x4 @3.0 V @CFGQ @External CLKUSR";
const std::string CD5_PS = "CMD @CD5-TV2-ES @Passive Serial @1.8 V @Micron 1Gb 16-bits NAND flash @DCLK";

std::vector<std::string> determine(std::vector<std::string> lines)
{
    return PGMD_CM_GENERATOR().determine_process(unsigned(lines.size()), lines.data());
}

std::vector<std::string> optimize(std::vector<std::string> lines)
{
    const std::unique_ptr<std::string[]> result(PGMD_CM_GENERATOR().optimize_test_case(unsigned(lines.size()), lines.data()));
    return std::vector<std::string>(result.get(), result.get() + lines.size());
}

// The lines of a run grouped per test: the verdict line, then its details.
struct TEST_RESULT {
    std::string verdict;
    std::vector<std::string> details;
    bool passed() const { return verdict.find(" - Pass") != std::string::npos; }
    bool mentions(const std::string& text) const
    {
        return std::any_of(details.begin(), details.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; });
    }
};

std::vector<TEST_RESULT> group(const std::vector<std::string>& lines)
{
    std::vector<TEST_RESULT> results;
    for (const std::string& line : lines)
        if (line.find(" - Pass") != std::string::npos || line.find(" - Fail") != std::string::npos)
            results.push_back({line, {}});
        else if (!results.empty())
            results.back().details.push_back(line);
        else
            ADD_FAILURE() << "a detail before any verdict: " << line;
    return results;
}

// Every test starts with its own manager on the built-in bench, both cables bound.
class MANAGER_TEST : public PGMD_CM_TEST {
protected:
    void SetUp() override { use_bench(default_bench_json()); }
    void use_bench(const QJsonValue& root)
    {
        m_bench = bench_of(root);
        ASSERT_TRUE(m_bench);
        m_manager = std::make_unique<PGMD_CM_MANAGER>(m_bench);
        ASSERT_TRUE(engine()->set_tji_hardware(false, handle(BENCH_CABLE_NAME)));
        ASSERT_TRUE(engine()->set_tji_hardware(true, handle(DUT_CABLE_NAME)));
    }
    PGMD_CM_ENGINE* engine() { return m_manager->get_engine(); }
    std::vector<TEST_RESULT> run(std::vector<std::string> lines, bool skip_flash = false)
    {
        const std::vector<std::string> out = m_manager->execute_test(unsigned(lines.size()), lines.data(), skip_flash);
        EXPECT_FALSE(engine()->is_locked(false));
        EXPECT_FALSE(engine()->is_locked(true));
        return group(out);
    }
    std::unique_ptr<PGMD_CM_MANAGER> m_manager;
};

} // namespace

// ---- Generator ---------------------------------------------------------------------------------

using Generator = PGMD_CM_TEST;

// Passive schemes alone come through the Kiopru panel's runs.
TEST_F(Generator, DerivesTheProcessesFromTheSchemes)
{
    struct CASE {
        std::vector<std::string> lines;
        std::vector<std::string> processes;
    };
    const CASE cases[] = {
        {{AS_INT100}, {"PROCESS +Generate SOF", "PROCESS +Generate JIC"}},
        {{AS_INT100, PS_CFI},
         {"PROCESS +Generate SOF", "PROCESS +Generate PFL IP", "PROCESS +Generate PFL POF", "PROCESS +Generate JIC"}},
        {{"PROCESS -Generate JIC", "Test 1: BR5-TV1-ES - Pass"}, {}},
    };
    for (const CASE& c : cases)
        EXPECT_EQ(determine(c.lines), c.processes);
}

TEST_F(Generator, OptimizeGroupsTestsAndKeepsEveryLine)
{
    const std::vector<std::string> lines = {AS_INT100, PS_CFI_25, "PROCESS +Generate SOF", PS_CFI2, CD5_PS, PS_CFI, FPP32_QSPI, PS_CFI};
    // DUT, then memory, scheme and clock; the supply changes fastest; other lines go last.
    const std::vector<std::string> expected = {PS_CFI, PS_CFI, PS_CFI_25, PS_CFI2, FPP32_QSPI, AS_INT100, CD5_PS, "PROCESS +Generate SOF"};
    EXPECT_EQ(optimize(lines), expected);
    EXPECT_TRUE(optimize({}).empty());
}

// ---- Raw file ----------------------------------------------------------------------------------

using RawFile = MANAGER_TEST;

// The batch is written whole, in the folder the settings name, made when missing.
TEST_F(RawFile, WritesTheDocumentedRecords)
{
    QTemporaryDir directory;
    gen_set_setting("kiopru/work_dir", directory.filePath("work/batches").toStdString());
    std::vector<std::string> lines = {PS_CFI, AS_INT100, "PROCESS +Generate SOF", "PROCESS -Generate PFL IP", "PROCESS +Generate JIC"};
    ASSERT_EQ(m_manager->generate_raw_file(unsigned(lines.size()), lines.data()), 0);
    QFile file(directory.filePath("work/batches/kiopru_batch.raw"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    EXPECT_TRUE(text.startsWith("# Kiopru raw test file"));
    const QStringList records = text.split('\n', Qt::SkipEmptyParts).filter(QRegularExpression("^[^#]"));
    ASSERT_EQ(records.size(), 8);
    EXPECT_EQ(records.mid(0, 4), (QStringList{"KIOPRU_RAW\t1", "BATCH\t2\t3", "PROCESS\tRUN\tGenerate SOF", "PROCESS\tSKIP\tGenerate PFL IP"}));
    EXPECT_EQ(records[5],
              QString("TEST\t1\tDUT=BR5-TV1-ES\tIDCODE=0x0B4150F3\tMASK=0xFFFFFFFF\tSCHEME=ps\tMSEL=0x11\tVCCPGM_MV=1800"
                      "\tMEMORY=cfi1\tSLOT=1\tCLOCK=dclk\tCLOCK_SOURCE=6\tIMAGE=POF\tCOMMAND=")
                  + QString::fromStdString(PS_CFI));
    EXPECT_EQ(records[7], "END");
}

// ---- Test runs ---------------------------------------------------------------------------------

using Execute = MANAGER_TEST;

TEST_F(Execute, PassesEveryValidTestOnTheDefaultBench)
{
    const std::vector<std::string> commands = {PS_CFI, PS_CFI_25, FPP32_QSPI, AS_INT100, ASX4_CLKUSR};
    std::vector<std::string> lines = commands;
    lines.insert(lines.end(), {"PROCESS +Generate SOF", "PROCESS +Generate JIC"});
    const std::vector<TEST_RESULT> results = run(lines);
    ASSERT_EQ(results.size(), commands.size());
    for (size_t i = 0; i < results.size(); ++i) {
        EXPECT_TRUE(results[i].passed()) << results[i].verdict << "\n" << results[i].details.back();
        EXPECT_TRUE(results[i].mentions("programmed and verified"));
    }
    EXPECT_EQ(results[0].verdict, "Test 1: BR5-TV1-ES, Passive Serial, 1.8 V, P30 2Gb 16-bits CFI flash, DCLK - Pass");
    EXPECT_TRUE(results[0].mentions("VCCPGM 1.8 V applied, measured 1800 mV"));
    EXPECT_TRUE(results[0].mentions("MSEL 0x11 set for Passive Serial"));
    EXPECT_TRUE(results[3].mentions("Configuration clock Internal 100.0 Mhz selected, measured 100000 kHz"));
}

// Each of the configuration hardware's checks is the bench's to test; here its refusals reach the
// verdict's details.
TEST_F(Execute, TheSiliconRejectsWhatItDoesNotSupport)
{
    const std::vector<TEST_RESULT> results = run({"CMD @BR5-TV1-ES @Active Serial @2.5 V @CFGQ @Internal 25.0 Mhz",
                                                  "CMD @BR5-TV1-ES @Passive Serial @1.8 V @CFGQ @DCLK"});
    ASSERT_EQ(results.size(), 2u);
    EXPECT_FALSE(results[0].passed());
    EXPECT_TRUE(results[0].mentions("VCCPGM is not allowed for the scheme"));
    EXPECT_TRUE(results[1].mentions("the memory storage does not fit the scheme"));
}

TEST_F(Execute, AWrongDeviceOnTheDutChainFails)
{
    const QJsonValue bench = with_value(default_bench_json(), {"cables", 1, "chain", 0, "name"}, "CD5-TV2-ES");
    use_bench(with_value(bench, {"cables", 1, "chain", 0, "idcode"}, "0x0B4750F3")); // within CD5-TV2-ES's ID mask
    const std::vector<TEST_RESULT> results = run({PS_CFI, CD5_PS});
    ASSERT_EQ(results.size(), 2u);
    EXPECT_FALSE(results[0].passed());
    EXPECT_EQ(results[0].details, std::vector<std::string>{"DUT chain holds no BR5-TV1-ES (JTAG ID 0x0B4150F3, "
                                                            "mask 0xFFFFFFFF); found @1 0x0B4750F3 CD5-TV2-ES"})
        << "nothing is touched on a wrong device";
    EXPECT_TRUE(results[1].passed()) << results[1].details.back();
    EXPECT_TRUE(results[1].mentions("@1 IDCODE 0x0B4750F3 matches CD5-TV2-ES (JTAG ID 0x0B4250F3, mask 0xFFFAFFFF)"));
}

// The DUT configures from what the memory holds (the Kiopru runs show an earlier image kept and a
// blank memory): a memory whose image process was skipped holds none.
TEST_F(Execute, ASkippedImageProcessLeavesNothingToConfigure)
{
    const std::vector<TEST_RESULT> results = run({AS_INT100, "PROCESS +Generate SOF", "PROCESS -Generate JIC"});
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0].passed());
    EXPECT_TRUE(results[0].mentions("process \"Generate JIC\" was skipped"));
    EXPECT_TRUE(results[0].mentions("the memory holds no configuration image"));
}

TEST_F(Execute, DeclaredFaultsGiveFailLines)
{
    struct CASE {
        const char* what;
        std::vector<BENCH_PATH_STEP> path;
        QJsonObject faults;
        const char* detail;
    };
    const CASE cases[] = {
        {"supply", {"cables", 0, "chain", 0, "faults"}, {{"fail_step", "power"}}, "not reached: measured 0 mV"},
        {"flash read", {"cables", 0, "chain", 0, "faults"}, {{"fail_step", "flash_verify"}}, "Flash verification failed at word 0"},
        {"DUT", {"cables", 1, "chain", 0, "faults"}, {{"fail_step", "configure"}}, "CRC error in the configuration data"},
        {"DUT cable", {"cables", 1, "faults"}, {{"tdo_stuck", 1}}, "DUT JTAG hardware DUT-USB [1-2] cannot be started"},
    };
    for (const CASE& c : cases) {
        use_bench(with_value(default_bench_json(), c.path, c.faults));
        const std::vector<TEST_RESULT> results = run({PS_CFI, AS_INT100});
        ASSERT_EQ(results.size(), 2u) << c.what;
        for (const TEST_RESULT& result : results) {
            EXPECT_FALSE(result.passed()) << c.what;
            EXPECT_TRUE(result.mentions(c.detail)) << c.what << ": " << result.details.back();
        }
    }
}

// A command the catalogue cannot read fails with the reason, and a verdict inside it is not echoed.
TEST_F(Execute, ACommandNotUnderstoodFailsWithTheReason)
{
    const std::vector<TEST_RESULT> results = run({"CMD @BR5-TV1-ES @Passive Serial - Pass @1.8 V @P30 2Gb 16-bits CFI flash @DCLK"});
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].verdict, "Test 1 - Fail");
    EXPECT_EQ(results[0].details,
              std::vector<std::string>{"Command not understood: unknown configuration scheme \"Passive Serial / Pass\""});
}
