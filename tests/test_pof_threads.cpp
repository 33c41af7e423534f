// The POF checker's worker threads with real shell commands: round-robin dealing, polling until
// a batch is through, the retry rule, split scripts, per-thread folders, waiting for DAT files,
// and the paths of a check.
#include "pof_test_support.h"

#include "gen.h"
#include "thr.h"

#include <QComboBox>

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>

namespace {

class PofThreads : public POF_CHECKER_FIXTURE {
protected:
    PofThreads() : POF_CHECKER_FIXTURE("pof_threads") {}

    static std::set<std::string> words(const std::string& text)
    {
        std::istringstream stream(text);
        return std::set<std::string>(std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>());
    }
};

} // namespace

// Command k goes to thread k mod count, and a thread runs its commands one after another: when
// a command starts, the one dealt to the same thread before it has finished. Each command notes
// which commands had finished when it started.
TEST_F(PofThreads, CommandsAreDealtRoundRobinAndTheBatchEndsWhenAllAreThrough)
{
    const unsigned count = 3;
    std::system(("mkdir " + dir + "marks").c_str());
    std::vector<std::string> cmds;
    for (unsigned k = 0; k < 10; ++k)
        cmds.push_back(std::string(k < count ? "sleep 0.3; " : "") + "ls " + dir + "marks > " + dir + "seen_" +
                       std::to_string(k) + "; touch " + dir + "marks/" + std::to_string(k));
    checker.run_thread_cmd(cmds, count);
    EXPECT_EQ(pof_test_files(dir + "marks").size(), 10u) << "every command has run when the batch returns";
    for (unsigned k = count; k < 10; ++k)
        EXPECT_TRUE(words(pof_test_read(dir + "seen_" + std::to_string(k))).count(std::to_string(k - count))) << k;
}

// Two commands that each wait for the other's start can only finish when they run side by side.
TEST_F(PofThreads, ThreadsOfABatchRunInParallel)
{
    const auto meet = [this](const char* mine, const char* other) {
        return "touch " + dir + mine + "; i=0; while [ ! -e " + dir + other + " ] && [ $i -lt 100 ]; do sleep 0.05; i=$((i+1)); done; [ -e " +
               dir + other + " ] && touch " + dir + mine + "_met";
    };
    checker.run_thread_cmd({meet("a", "b"), meet("b", "a")}, 2);
    EXPECT_TRUE(pof_test_exists(dir + "a_met"));
    EXPECT_TRUE(pof_test_exists(dir + "b_met"));
}

TEST_F(PofThreads, MisuseIsAnInternalError)
{
    for (unsigned count : {0u, 1u}) {
        EXPECT_EQ(pof_test_internal_error([&] { checker.run_thread_cmd({"true", "true"}, count); }), "count > 1");
        EXPECT_EQ(pof_test_internal_error(
                      [&] { checker.run_thread_pl(dir + "x.pl", ".pl", "perl", "s2i", count, 0, false, false); }),
                  "count > 1");
    }
    access.set_current_path(dir);
    EXPECT_EQ(pof_test_internal_error([&] { checker.create_thread_folder(); }), "count > 1") << "no SOF file";
    EXPECT_EQ(pof_test_internal_error(
                  [&] { checker.run_thread_pl(dir + "missing/job.pl", ".pl", "perl", "s2i", 2, 0, false, false); }),
              "output_array[i] != NULL")
        << "unwritable part";

    // The worker body checks its type and its command list.
    PGMWQ_POF_CHECKER_THREAD thread;
    EXPECT_EQ(pof_test_internal_error([&] { thread.run(); }), "Unsupported Thread Type");
    std::vector<std::string> empty;
    thread.m_thread_type = PGMWQ_THREAD_TYPE_CMD_VECTOR;
    thread.m_cmd_vector = &empty;
    EXPECT_EQ(pof_test_internal_error([&] { thread.run(); }), "DWORD(m_cmd_vector->size()) > 0");
    EXPECT_FALSE(thread.is_done());
}

namespace {

struct RETRY_CASE {
    const char* name;
    unsigned expected_seconds;
    const char* command_prefix;
    unsigned runs;
    std::vector<std::string> debug;
};

class PofRetry : public PofThreads, public ::testing::WithParamInterface<RETRY_CASE> {};

} // namespace

TEST_P(PofRetry, SuspiciouslyFastCommandsRunAtMostThreeTimes)
{
    const RETRY_CASE& c = GetParam();
    POF_TEST_SINK sink;
    msg_set_debug_level(2);
    PGMWQ_POF_CHECKER_THREAD thread;
    thread.m_thread_index = 3;
    thread.m_thread_type = PGMWQ_THREAD_TYPE_SINGLE_CMD;
    thread.m_expected_seconds = c.expected_seconds;
    thread.m_cmd = std::string(c.command_prefix) + "echo run >> " + dir + "runs";
    thread.set_started(true);
    thread.start(QThread::InheritPriority);
    ASSERT_TRUE(thread.wait(20000));
    EXPECT_TRUE(thread.is_done());  // ordered after the worker's messages, before the level changes
    msg_set_debug_level(0);
    std::string expected_runs;
    for (unsigned i = 0; i < c.runs; ++i)
        expected_runs += "run\n";
    EXPECT_EQ(pof_test_read(dir + "runs"), expected_runs);
    EXPECT_EQ(sink.texts(MSG_KIND::DEBUG), c.debug);
}

// Elapsed times are whole seconds: a quick command takes 0 or 1, so a threshold of 2 (40 s
// expected) always finds it too fast, and one of 1 (20 s) never finds a 1-second sleep too fast.
INSTANTIATE_TEST_SUITE_P(
    Rule, PofRetry,
    ::testing::Values(RETRY_CASE{"NoExpectedTimeNeverRetries", 0, "", 1, {}},
                      RETRY_CASE{"ThresholdZeroNeverRetries", 19, "", 1, {}},
                      RETRY_CASE{"TooFastRunsThreeTimes", 40, "", 3, {"PGMDQ: Thread 3 trying once", "PGMDQ: Thread 3 trying twice"}},
                      RETRY_CASE{"LongEnoughRunsOnce", 20, "sleep 1; ", 1, {}}),
    [](const ::testing::TestParamInfo<RETRY_CASE>& info) { return std::string(info.param.name); });

namespace {

struct SPLIT_CASE {
    const char* name;
    std::string script;
    std::string marker;
    std::vector<std::string> parts;
};

class PofSplit : public PofThreads, public ::testing::WithParamInterface<SPLIT_CASE> {};

} // namespace

TEST_P(PofSplit, ScriptIsSplitIntoParts)
{
    const SPLIT_CASE& c = GetParam();
    pof_test_write(dir + "job.pl", c.script);
    pof_test_write(dir + "job1.pl", "stale part\n");
    checker.run_thread_pl(dir + "job.pl", ".pl", "perl", c.marker, unsigned(c.parts.size()), 0, false, true);
    EXPECT_FALSE(pof_test_exists(dir + "job.pl")) << "the input script is deleted";
    for (size_t i = 0; i < c.parts.size(); ++i)
        EXPECT_EQ(pof_test_read(dir + "job" + std::to_string(i) + ".pl"), c.parts[i]) << "part " << i;
    EXPECT_EQ(access.thread_batch(), nullptr) << "not started";
}

INSTANTIATE_TEST_SUITE_P(
    Lines, PofSplit,
    ::testing::Values(
        SPLIT_CASE{"MarkedLinesAreDealtTheRestCopied",
                   "use strict;\ns2i a\ns2i b\ns2i c\nprint done",
                   "s2i",
                   {"use strict;\ns2i a\ns2i c\nprint done\n", "use strict;\ns2i b\nprint done\n"}},
        SPLIT_CASE{"FinalLineBreakGivesAnEmptyLineToEveryPart",
                   "head\ns2i a\ns2i b\n",
                   "s2i",
                   {"head\ns2i a\n\n", "head\ns2i b\n\n"}},
        SPLIT_CASE{"NoMarkedLineCopiesEverything", "a\nb", "gunzip", {"a\nb\n", "a\nb\n", "a\nb\n"}},
        SPLIT_CASE{"EmptyMarkerDealsEveryLineTheLastEmptyOneToo", "a\nb\nc\n", "", {"a\nc\n", "b\n\n"}},
        SPLIT_CASE{"OverlongLineEndsTheSplit",
                   "s2i " + std::string(600, 'x') + "\ns2i b\n",
                   "s2i",
                   {"s2i " + std::string(507, 'x') + "\n", ""}}),
    [](const ::testing::TestParamInfo<SPLIT_CASE>& info) { return std::string(info.param.name); });

// Started without waiting, the batch stays with the panel; the DAT wait watches the thread that
// makes each file.
TEST_F(PofThreads, DatWaitFollowsTheOwningThread)
{
    access.set_die(1, 6, dir);
    access.set_sof_files({"a.sof", "b.sof", "c.sof"});
    pof_test_write(dir + "make.sh", "sleep 1; echo 1234 > " + dir + "a.dat # job\ntrue # job\n");
    checker.run_thread_pl(dir + "make.sh", ".sh", "sh", "job", 2, 0, true, false);
    ASSERT_NE(access.thread_batch(), nullptr);
    EXPECT_EQ(access.thread_count(), 2u);
    EXPECT_EQ(access.thread_batch()[1].m_cmd, "sh '" + dir + "make1.sh'");
    EXPECT_EQ(access.thread_batch()[1].m_script_file, dir + "make1.sh");
    EXPECT_EQ(pof_test_internal_error([&] {
                  pof_test_write(dir + "again.sh", "x\n");
                  checker.run_thread_pl(dir + "again.sh", ".sh", "sh", "job", 2, 0, true, false);
              }),
              "m_thread == NULL");
    EXPECT_TRUE(checker.get_dat(0, 2)) << "thread 0 writes a.dat after a second";
    EXPECT_FALSE(checker.get_dat(1, 2)) << "thread 1 is done without b.dat";
    EXPECT_FALSE(checker.get_dat(2, 2)) << "thread 0 is done without c.dat";
}

TEST_F(PofThreads, ThreadFoldersAndImageMoves)
{
    access.set_die(1, 6, dir);
    std::vector<std::string> names;
    for (int i = 0; i < 9; ++i) {
        names.push_back("s" + std::to_string(i) + ".sof");
        pof_test_write(dir + "s" + std::to_string(i) + ".img", "img");
    }
    access.set_sof_files(names);
    std::system(("mkdir " + dir + "auto_gen_dat3 && touch " + dir + "auto_gen_dat3/old").c_str());
    EXPECT_TRUE(checker.move_img(true));
    for (int i = 0; i < 8; ++i) {
        std::set<std::string> expected = {"s" + std::to_string(i) + ".img"};
        if (i == 0)
            expected.insert("s8.img");
        EXPECT_EQ(pof_test_files(dir + "auto_gen_dat" + std::to_string(i)), expected) << "folder " << i;
    }
    EXPECT_FALSE(pof_test_exists(dir + "auto_gen_dat8"));

    access.set_sof_files({"one.sof"});
    EXPECT_TRUE(checker.move_img(false));
    EXPECT_TRUE(pof_test_files(dir + "auto_gen_dat0").empty()) << "one SOF: folder 0 made afresh directly";
}

TEST(PofSeparators, OneKindAndOneTrailingSeparator)
{
    struct CASE {
        const char* dir;
        bool to_unix;
        const char* expected;
    };
    for (const CASE& c : {CASE{"data\\user\\dies", true, "data/user/dies/"}, CASE{"/data/user/", false, "\\data\\user\\"},
                          CASE{"data/user/", true, "data/user/"}, CASE{"mixed\\a/b", true, "mixed/a/b/"},
                          CASE{"c:\\x\\", false, "c:\\x\\"}, CASE{"", true, "/"}, CASE{"", false, "\\"}})
        EXPECT_EQ(PGMDQ_POF_CHECKER::standardize_dir_seperator(c.dir, c.to_unix), c.expected) << c.dir << c.to_unix;
}

// The paths of a check: regression runs take the site's test root; a personal directory lies
// under the site's data root and is itself the die directory, once the converter is there.
TEST_F(PofThreads, CurrentDirectoryOfBothModes)
{
    gen_set_setting("pof_checker/rk_linux_test_dir", dir + "rk_test/");
    gen_set_setting("pof_checker/nv_linux_test_dir", dir + "nv_test/");
    gen_set_setting("pof_checker/linux_rk_test_dir", dir + "rk_data/");
    gen_set_setting("pof_checker/linux_nv_test_dir", dir + "nv_data/");
    std::system(("mkdir -p " + dir + "rk_test/sof2img " + dir + "rk_data/me/dies").c_str());
    EXPECT_TRUE(checker.get_current_dir());
    EXPECT_EQ(access.current_path(), dir + "rk_test/");
    access.site_check()->setChecked(true);
    EXPECT_FALSE(checker.get_current_dir()) << "NV test root missing";
    std::system(("mkdir -p " + dir + "nv_test").c_str());
    EXPECT_TRUE(checker.get_current_dir());
    EXPECT_EQ(access.current_path(), dir + "nv_test/");
    access.site_check()->setChecked(false);

    access.personal_test_check()->setChecked(true);
    EXPECT_EQ(pof_test_internal_error([&] { checker.get_current_dir(); }), "!m_dir_edit->text().isEmpty()");
    access.dir_edit()->setText("me/dies");
    EXPECT_FALSE(checker.get_current_dir()) << "converter missing";
    EXPECT_EQ(access.log().back(),
              "Error: SOF2IMG executable of Calder 5 is missing (" + dir + "rk_test/sof2img/calder5_sof2img.exe)");
    pof_test_write(dir + "rk_test/sof2img/calder5_sof2img.exe", "exe");
    EXPECT_TRUE(checker.get_current_dir());
    EXPECT_EQ(access.current_path(), dir + "rk_data/me/dies/");
    EXPECT_EQ(access.die_dir(), dir + "rk_data/me/dies/");
    EXPECT_EQ(access.rk_die_dir(), dir + "rk_data/me/dies/");
    access.dir_edit()->setText("me/none/");
    EXPECT_FALSE(checker.get_current_dir()) << "directory missing";
}
