// The package's Tcl face: the hash behind the argument translators, the translators themselves,
// the command manager and the package entry points.
#include "msg.h"
#include "pgmdq_tcl_args_auto.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

// Keys must outlive the table: it stores the pointers.
std::vector<std::string> numbered_keys(int count)
{
    std::vector<std::string> keys;
    for (int i = 0; i < count; ++i)
        keys.push_back("key_" + std::to_string(i));
    return keys;
}

std::string internal_error_of(const std::function<void()>& body)
{
    try {
        body();
    } catch (const MSG_INTERNAL_ERROR_EXCEPTION& error) {
        EXPECT_EQ(error.module(), "PGMDQ");
        EXPECT_EQ(error.file(), "pgmdq_tcl_args_auto");
        return error.text();
    }
    return "(no internal error)";
}

class INTERPRETER_FIXTURE : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_interp = Tcl_CreateInterp();
        ttcl_set_interpreter(m_interp);
    }
    void TearDown() override
    {
        ttcl_set_interpreter(nullptr);
        Tcl_DeleteInterp(m_interp);
    }
    std::string eval(const char* script)
    {
        Tcl_Eval(m_interp, script);
        return Tcl_GetStringResult(m_interp);
    }
    Tcl_Interp* m_interp = nullptr;
};

} // namespace

TEST(VtlHash, StringHashFollowsTheShiftXorRule)
{
    EXPECT_EQ(VTL_CSTR_OPS::hash(""), 0u);
    EXPECT_EQ(VTL_CSTR_OPS::hash("a"), 97u);
    // h = 97; h ^= (97 << 5) + (97 >> 2) + 98 = 3104 + 24 + 98 = 3226; 97 ^ 3226 = 3323
    EXPECT_EQ(VTL_CSTR_OPS::hash("ab"), 3323u);
    // Bytes above 0x7F count as negative characters.
    EXPECT_EQ(VTL_CSTR_OPS::hash("\xff"), 0xFFFFFFFFu);
}

TEST(VtlHash, KeepsSixtyOneBucketsUpToFiftyOneElementsAndGrowsOnTheFiftySecond)
{
    const auto keys = numbered_keys(200);
    PGMDQ_AUTO_HASH hash;
    for (int i = 0; i < 51; ++i)
        hash[keys[i].c_str()] = i + 1;
    EXPECT_EQ(hash.bucket_count(), 61u);
    EXPECT_EQ(hash.size(), 51u);
    hash[keys[51].c_str()] = 52;
    EXPECT_EQ(hash.bucket_count(), vtl_hash_50_percent_increase_size(65));
    EXPECT_GT(hash.bucket_count(), 61u);
    for (int i = 52; i < 200; ++i)
        hash[keys[i].c_str()] = i + 1;
    for (int i = 0; i < 200; ++i) {
        const int* value = hash.find(keys[i].c_str());
        ASSERT_NE(value, nullptr) << keys[i];
        EXPECT_EQ(*value, i + 1);
    }
    EXPECT_EQ(hash.find("key_200"), nullptr);
    EXPECT_EQ(hash.size(), 200u);
}

TEST(VtlHash, CountsCollisionsAndARehashResetsTheCounter)
{
    const auto keys = numbered_keys(52);
    PGMDQ_AUTO_HASH hash;
    std::vector<bool> occupied(61, false);
    unsigned expected_collisions = 0;
    for (int i = 0; i < 51; ++i) {
        const unsigned bucket = VTL_CSTR_OPS::hash(keys[i].c_str()) % 61;
        expected_collisions += occupied[bucket];
        occupied[bucket] = true;
        hash[keys[i].c_str()];
    }
    EXPECT_EQ(hash.collision_count(), expected_collisions);
    EXPECT_GT(expected_collisions, 0u);
    hash[keys[51].c_str()];
    EXPECT_EQ(hash.collision_count(), 0u);
}

TEST(VtlHash, InsertOrGetStartsAtZeroAndReturnsTheSameValue)
{
    PGMDQ_AUTO_HASH hash;
    EXPECT_EQ(hash["x"], 0);
    hash["x"] = 7;
    EXPECT_EQ(hash["x"], 7);
    EXPECT_EQ(hash.size(), 1u);
    const auto position = hash.hash_search("x");
    ASSERT_NE(position.node, nullptr);
    EXPECT_EQ(position.bucket, VTL_CSTR_OPS::hash("x") % 61);
    EXPECT_EQ(position.bucket_count, 61u);
}

TEST(Translators, FillTheirTablesWithoutGrowing)
{
    EXPECT_EQ(PGMDQ_AUTO_TRANSLATOR::get_instance()->hash().size(), 3u);
    EXPECT_EQ(PGMDQ_AUTO_TRANSLATOR::get_instance()->hash().bucket_count(), 61u);
    EXPECT_EQ(PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR::get_instance()->hash().size(), 10u);
    EXPECT_EQ(PGMDQ_AUTO_FRAME_DUMMY_TRANSLATOR::get_instance()->hash().bucket_count(), 61u);
}

struct WORD_CASE {
    const char* word;
    int frame_dummy_enum;
};

class FrameDummyWords : public ::testing::TestWithParam<WORD_CASE> {};

TEST_P(FrameDummyWords, TranslateExactlyOrByAbbreviation)
{
    EXPECT_EQ(pgmdq_auto_get_frame_dummy_argument_enum_by_string(GetParam().word), GetParam().frame_dummy_enum);
}

INSTANTIATE_TEST_SUITE_P(Words, FrameDummyWords,
                         ::testing::Values(WORD_CASE{"he", 2}, WORD_CASE{"hel", 2}, WORD_CASE{"long_he", 3},
                                           WORD_CASE{"l", 3}, WORD_CASE{"long_", 3}, WORD_CASE{"h", 1},
                                           WORD_CASE{"help", 2}, WORD_CASE{"long_help", 3}, WORD_CASE{"x", 0},
                                           WORD_CASE{"helpx", 0}, WORD_CASE{"", 4}, WORD_CASE{nullptr, 4}));

TEST(Translators, ExactWordsOnlyInTheFirstTable)
{
    EXPECT_TRUE(pgmdq_auto_exists_argument_enum_by_string("long_help"));
    EXPECT_TRUE(pgmdq_auto_exists_argument_enum_by_string(""));
    EXPECT_FALSE(pgmdq_auto_exists_argument_enum_by_string("long_hel"));
    EXPECT_EQ(pgmdq_auto_get_argument_enum_by_string("long_hel"), 0);
    EXPECT_EQ(pgmdq_auto_get_argument_enum_by_string(nullptr), 4);
    EXPECT_STREQ(pgmdq_auto_get_string_by_argument_enum(PGMDQ_AUTO_ARGUMENT_H), "h");
    EXPECT_STREQ(pgmdq_auto_get_string_by_argument_enum(PGMDQ_AUTO_ARGUMENT_LONG_HELP), "long_help");
}

TEST(Translators, IllegalEnumeratorsAreInternalErrors)
{
    for (int argument : {0, -1, 4, 99})
        EXPECT_EQ(internal_error_of([&] { pgmdq_auto_get_string_by_argument_enum(PGMDQ_AUTO_ARGUMENT_ENUM(argument)); }),
                  "The calling function has passed an illegal PGMDQ_AUTO_ARGUMENT_ENUM")
            << argument;
}

TEST(Manager, RegisteringTwiceReturnsTheSameCommand)
{
    TTCL_CMD* first = PGMDQ_AUTO_MANAGER::get_instance()->register_command(0, &pgmdq_auto_frame_dummy_cmd_def);
    TTCL_CMD_DEFINITION other = pgmdq_auto_frame_dummy_cmd_def;
    other.command_name = "ignored";
    TTCL_CMD* second = PGMDQ_AUTO_MANAGER::get_instance()->register_command(0, &other);
    EXPECT_EQ(first, second);
    EXPECT_STREQ(second->name(), "pgmdq_frame_dummy");
}

TEST(Manager, FrameDummyNeedsItsArguments)
{
    bool help_shown = false;
    EXPECT_EQ(internal_error_of([&] { pgmdq_init_frame_dummy(nullptr, &help_shown, 0, nullptr); }), "args != 0");
}

TEST(Package, MissingInterpreterIsTheExactInternalError)
{
    ttcl_set_interpreter(nullptr);
    EXPECT_EQ(internal_error_of([] { pgmdq_pgmdq_register_tcl(); }),
              "A Tcl interpreter must exist before registering ::vexmoor::pgmdq!");
    EXPECT_EQ(internal_error_of([] { pgmdq_pgmdq_unregister_tcl(); }),
              "A Tcl interpreter must exist before unregistering ::vexmoor::timing_assignment!");
}

TEST_F(INTERPRETER_FIXTURE, InitProvidesThePackageAndItsCommand)
{
    EXPECT_EQ(Pgmdq_Init(m_interp), TCL_OK);
    EXPECT_EQ(eval("package present ::vexmoor::pgmdq"), "1.0");
    EXPECT_EQ(eval("info commands ::vexmoor::pgmdq::pgmdq_frame_dummy"), "::vexmoor::pgmdq::pgmdq_frame_dummy");
    EXPECT_EQ(eval("info commands ::vexmoor::pgmdq::kiopru_run"), "::vexmoor::pgmdq::kiopru_run");
    EXPECT_EQ(Tcl_Eval(m_interp, "pgmdq_frame_dummy"), TCL_OK);
    EXPECT_EQ(Tcl_Eval(m_interp, "pgmdq_frame_dummy -bogus"), TCL_ERROR);
    EXPECT_EQ(Pgmdq_Unload(m_interp, 0), TCL_OK);
    EXPECT_EQ(eval("info commands pgmdq_frame_dummy"), "");
    EXPECT_EQ(eval("info commands kiopru_run"), "");
    EXPECT_EQ(Tcl_Eval(m_interp, "package present ::vexmoor::pgmdq"), TCL_ERROR);
}

TEST_F(INTERPRETER_FIXTURE, LinkedLibraryIsOfferedAsAStaticPackage)
{
    EXPECT_NE(eval("info loaded").find("{} Pgmdq"), std::string::npos);
    EXPECT_EQ(Tcl_Eval(m_interp, "load {} Pgmdq"), TCL_OK);
    EXPECT_EQ(eval("package present ::vexmoor::pgmdq"), "1.0");
}

TEST_F(INTERPRETER_FIXTURE, InitAnswersOkEvenWhenTheProvideFails)
{
    eval("package provide ::vexmoor::pgmdq 2.0");
    EXPECT_EQ(pgmdq_pgmdq_register_tcl(), TCL_ERROR);
    EXPECT_EQ(Pgmdq_Init(m_interp), TCL_OK);
    EXPECT_EQ(eval("package present ::vexmoor::pgmdq"), "2.0");
}

TEST_F(INTERPRETER_FIXTURE, InternalErrorsOfTheEntryPointsBecomeTclErrors)
{
    ttcl_set_interpreter(nullptr);
    EXPECT_EQ(Pgmdq_Unload(m_interp, 0), TCL_ERROR);
    EXPECT_EQ(std::string(Tcl_GetStringResult(m_interp)),
              "A Tcl interpreter must exist before unregistering ::vexmoor::timing_assignment!");
}
