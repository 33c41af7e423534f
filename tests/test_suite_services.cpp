// The host services the plug-in stands on: settings, paths and files. Messages are checked as the
// plug-in posts them (test_messages), internal errors as the host shows them (test_host).
#include "fio.h"
#include "gen.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace {

std::string temp_dir()
{
    char pattern[] = "/tmp/suite_services.XXXXXX";
    return std::string(mkdtemp(pattern)) + "/";
}

} // namespace

TEST(Settings, ValuesSwitchesAndOverrides)
{
    const std::string dir = temp_dir();
    std::ofstream(dir + "site.ini") << "[switches]\nPGMDQ_RECURSIVE_PERSONEL_TEST=on\nOTHER=off\n"
                                    << "[pof]\nmail_to=a@b.c, d@e.f\n";
    gen_load_settings(dir + "site.ini");
    EXPECT_TRUE(cfg_is_on("PGMDQ_RECURSIVE_PERSONEL_TEST"));
    EXPECT_FALSE(cfg_is_on("OTHER"));
    EXPECT_FALSE(cfg_is_on("MISSING"));
    EXPECT_EQ(gen_get_setting("pof/mail_to"), "a@b.c,d@e.f");
    EXPECT_EQ(gen_get_setting("pof/none", "fallback"), "fallback");
    gen_set_setting("pof/none", "set");
    EXPECT_EQ(gen_get_setting("pof/none", "fallback"), "set");
}

// An extension is added, or replaces the last one of the file name (never a folder's).
TEST(Paths, ExtensionAddsOrReplaces)
{
    const std::pair<const char*, const char*> cases[] = {{"/tmp/log", "/tmp/log.txt"},
                                                         {"/tmp/log.txt", "/tmp/log.txt"},
                                                         {"/tmp/trace.v1", "/tmp/trace.txt"},
                                                         {"/tmp/a.d/trace", "/tmp/a.d/trace.txt"}};
    for (const auto& [given, expected] : cases)
        EXPECT_EQ(FIO_PATH(given).extension(".txt").str(), expected);
}

TEST(Files, ExistsStatusAndFullPath)
{
    const std::string dir = temp_dir();
    std::ofstream(dir + "five") << "12345";
    FIO_STATUS status;
    EXPECT_TRUE(FIO_FILE_SYSTEM::exists((dir + "five").c_str()));
    EXPECT_FALSE(FIO_FILE_SYSTEM::exists((dir + "six").c_str()));
    ASSERT_TRUE(FIO_FILE_SYSTEM::status((dir + "five").c_str(), &status));
    EXPECT_EQ(status.size, 5u);
    EXPECT_EQ(FIO_PATH(dir + "x/../five").fullpath(), dir + "five");
    EXPECT_EQ(FIO_PATH(dir + "sub/").fullpath(), dir + "sub/");
}
