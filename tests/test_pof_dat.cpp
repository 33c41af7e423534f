// DAT files: the format's edge cases, the 63-character line limit, block boundaries, and a
// mutation run checked against a plain line-by-line reading. (The ICD raw binary made of a DAT is
// judged by the comparison tests, where a good die passes.)
#include "pof_test_support.h"

#include "pof_dat_reference.h"

#include "fio.h"

#include <memory>
#include <optional>
#include <random>

namespace {

class PofDat : public POF_CHECKER_FIXTURE {
protected:
    PofDat() : POF_CHECKER_FIXTURE("pof_dat") {}

    // read_dat's bytes (nullopt when it gave no buffer) and word count of a file of this content.
    std::optional<std::vector<unsigned char>> read(const std::string& content, unsigned& count)
    {
        pof_test_write(dir + "x.dat", content);
        const std::unique_ptr<unsigned char[]> data(checker.read_dat(dir + "x.dat", count));
        if (!data)
            return std::nullopt;
        return std::vector<unsigned char>(data.get(), data.get() + 2 * size_t(count));
    }

    // read_dat against the line-by-line reading: the same bytes and no log line, or no buffer, no
    // words and the error line. Gives whether the file was valid.
    bool reads_like_reference(const std::string& path)
    {
        std::vector<unsigned char> expected;
        const bool valid = pof_reference_read_dat(path, expected) && !expected.empty();
        access.clear_log();  // a long log makes every new line slow to lay out
        unsigned count = 7;
        const std::unique_ptr<unsigned char[]> data(checker.read_dat(path, count));
        if (valid) {
            EXPECT_NE(data, nullptr);
            if (data) {
                EXPECT_EQ(std::vector<unsigned char>(data.get(), data.get() + 2 * size_t(count)), expected);
            }
            EXPECT_EQ(access.log(), std::vector<std::string>());
        } else {
            EXPECT_EQ(data, nullptr);
            EXPECT_EQ(count, 0u);
            EXPECT_EQ(access.log(), std::vector<std::string>{"Error: Fail to read " + path});
        }
        return valid;
    }
};

struct DAT_CASE {
    const char* name;
    std::string content;
    std::vector<unsigned char> bytes;  // empty: the file is not read
};

class PofDatCases : public PofDat, public ::testing::WithParamInterface<DAT_CASE> {};

} // namespace

TEST_P(PofDatCases, ReadsAsTheFormatSays)
{
    const DAT_CASE& c = GetParam();
    unsigned count = 99;
    EXPECT_EQ(read(c.content, count), c.bytes.empty() ? std::nullopt : std::make_optional(c.bytes));
    EXPECT_EQ(count, c.bytes.size() / 2);
    EXPECT_EQ(access.log(), c.bytes.empty() ? std::vector<std::string>{"Error: Fail to read " + dir + "x.dat"}
                                            : std::vector<std::string>());
}

namespace {
const std::string LINE_63 = "1234" + std::string(59, ' ');
const std::string LINE_64 = "1234" + std::string(60, ' ');
} // namespace

INSTANTIATE_TEST_SUITE_P(
    Format, PofDatCases,
    ::testing::Values(
        DAT_CASE{"LowerCaseBetweenBlanksWithComment", "  abcd  // comment\n", {0xCD, 0xAB}},
        DAT_CASE{"WordsInFileOrder", "0102\nA0B0\nffff\n", {0x02, 0x01, 0xB0, 0xA0, 0xFF, 0xFF}},
        DAT_CASE{"SlashFirstIsAComment", "/1234\n5678\n", {0x78, 0x56}},
        DAT_CASE{"CommentAfterBlanksIsAComment", "   // header\n\t5678\n", {0x78, 0x56}},
        DAT_CASE{"SlashBetweenDigitsLeavesTwoDigits", "1234\n12/34\n", {}},
        DAT_CASE{"OnlyCommentsAndBlanks", "// a\n\n   \n/x\n", {}},
        DAT_CASE{"EmptyFile", "", {}},
        DAT_CASE{"FiveDigitsSpoilTheFile", "1234\n12345\n5678\n", {}},
        DAT_CASE{"LastLineWithoutBreak", "1234\n5678", {0x34, 0x12, 0x78, 0x56}},
        DAT_CASE{"WindowsLineBreaks", "1234\r\n5678\r\n", {0x34, 0x12, 0x78, 0x56}},
        DAT_CASE{"SixtyThreeCharactersFit", LINE_63 + "\n5678\n", {0x34, 0x12, 0x78, 0x56}},
        DAT_CASE{"LongerLineEndsTheReading", "1234\n" + LINE_64 + "\n5678\n", {0x34, 0x12}},
        DAT_CASE{"LongLineFirstReadsNothing", LINE_64 + "\n5678\n", {}},
        DAT_CASE{"NulEndsTheLine", std::string("1234\0zz\n5678\n", 13), {0x34, 0x12, 0x78, 0x56}}),
    [](const ::testing::TestParamInfo<DAT_CASE>& info) { return std::string(info.param.name); });

TEST_F(PofDat, MissingFileFailsToRead)
{
    EXPECT_FALSE(reads_like_reference(dir + "none.dat"));
}

TEST_F(PofDat, GetDatNeedsABuffer)
{
    unsigned char* data = nullptr;
    EXPECT_EQ(pof_test_internal_error([&] { checker.get_dat(FIO_PATH(dir + "x.dat"), &data); }), "*data != NULL");
}

// Several megabytes of every kind of line, so that lines cross the reader's block boundaries.
TEST_F(PofDat, LargeMixedFileReadsLikeTheLineByLineReading)
{
    std::mt19937 random(7);
    const char* forms[] = {"%04X\n", "%04x\n", "  %04X  \n", "%04X // c\n", "%04X\r\n", "// %04X\n", "\n",
                           "\t%04x\t//x\n"};
    std::string content;
    while (content.size() < 3u * 1024 * 1024) {
        char line[64];
        std::snprintf(line, sizeof line, forms[random() % 8], unsigned(random() & 0xFFFF));
        content += line;
    }
    pof_test_write(dir + "big.dat", content);
    EXPECT_TRUE(reads_like_reference(dir + "big.dat"));
}

// Every single-character deletion, replacement and insertion in a valid DAT: the file is read
// whole exactly when the line-by-line reading accepts it, and otherwise gives the error line and
// no buffer.
TEST_F(PofDat, MutationsReadFullyOrFailToRead)
{
    const std::string valid = "// emulator output\n0A1B\n  c2d3 // core\n\nFFFF\n/ 1234\n0000\r\n9876";
    const std::string characters = std::string("0aF/ \n\t\rgx\0", 11);
    std::vector<std::string> mutants;
    for (size_t i = 0; i <= valid.size(); ++i)
        for (char c : characters) {
            if (i < valid.size()) {
                mutants.push_back(valid.substr(0, i) + valid.substr(i + 1));
                mutants.push_back(valid.substr(0, i) + c + valid.substr(i + 1));
            }
            mutants.push_back(valid.substr(0, i) + c + valid.substr(i));
        }
    int failed_reads = 0;
    for (const std::string& mutant : mutants) {
        // A fresh file each time: truncating one in place makes the file system flush it.
        std::remove((dir + "m.dat").c_str());
        pof_test_write(dir + "m.dat", mutant);
        SCOPED_TRACE(mutant);
        failed_reads += reads_like_reference(dir + "m.dat") ? 0 : 1;
    }
    EXPECT_GT(failed_reads, 100) << "the mutations must reach the invalid cases";
    EXPECT_LT(failed_reads, int(mutants.size()) - 100) << "and the valid ones";
}
