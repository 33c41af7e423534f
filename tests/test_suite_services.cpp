// The host services the plug-in stands on: messages by registration, settings, paths and files.
// Message templates, suppression and debug levels are checked as the plug-in posts them
// (test_messages), internal errors as the host shows them (test_host).
#include "fio.h"
#include "gen.h"
#include "msg.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace {

struct RECORDING_SINK : MSG_SINK {
    std::vector<std::pair<MSG_KIND, std::string>> rows;
    void receive(MSG_KIND kind, int, const std::string& text) override { rows.emplace_back(kind, text); }
};

std::string temp_dir()
{
    char pattern[] = "/tmp/suite_services.XXXXXX";
    return std::string(mkdtemp(pattern)) + "/";
}

} // namespace

TEST(Messages, PostedByRegistrationAndSuppressionOfNullMessages)
{
    RECORDING_SINK sink;
    msg_set_sink(&sink);
    const int ids[] = {900001, 900002};
    const int types[] = {MSG_REGISTRATION_ERROR, MSG_REGISTRATION_INFO};
    MSG_ID_REGISTRAR registrar(ids, types, 2);

    auto* error = new MSG_E("%1!s!/E_KEY");
    error->fill_args("broken");
    error->set_id(900001);
    msg_post(error);
    msg_post(new MSG_I_NULL());
    auto* mismatched = new MSG_I("%1!s!/I_KEY");
    mismatched->fill_args("wrong kind");
    mismatched->set_id(900001);
    msg_post(mismatched);
    msg_set_sink(nullptr);

    ASSERT_EQ(sink.rows.size(), 2u);
    EXPECT_EQ(sink.rows[0].first, MSG_KIND::ERROR);
    EXPECT_EQ(sink.rows[0].second, "broken");
    EXPECT_EQ(sink.rows[1].first, MSG_KIND::WARNING);
}

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

struct EXTENSION_CASE {
    const char* path;
    const char* ext;
    const char* expected;
};

class PathExtension : public ::testing::TestWithParam<EXTENSION_CASE> {};

TEST_P(PathExtension, Applies)
{
    FIO_PATH path(GetParam().path);
    path.extension(GetParam().ext);
    EXPECT_EQ(path.str(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, PathExtension,
                         ::testing::Values(EXTENSION_CASE{"/tmp/log", ".txt", "/tmp/log.txt"},
                                           EXTENSION_CASE{"/tmp/log.txt", ".txt", "/tmp/log.txt"},
                                           EXTENSION_CASE{"/tmp/trace.v1", ".wvf", "/tmp/trace.wvf"},
                                           EXTENSION_CASE{"/tmp/a.d/trace", ".wvf", "/tmp/a.d/trace.wvf"}));

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
