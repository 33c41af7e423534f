#include "pgmdq_pof_checker_private.h"

#include "gen.h"
#include "thr.h"

#include <array>

using namespace pgmdq_pof;

// ---------------------------------------------------------------------------------------------
// DAT files

namespace {

const size_t DAT_MAX_LINE = 63;  // longer lines end the reading
const size_t DAT_BLOCK_BYTES = size_t(1) << 20;

enum DAT_LINE { DAT_LINE_SKIP, DAT_LINE_WORD, DAT_LINE_INVALID };

// Value of a hexadecimal digit of either case, -1 for anything else.
struct HEX_TABLE {
    std::array<int, 256> value;
    HEX_TABLE()
    {
        value.fill(-1);
        for (int c = 0; c < 10; ++c)
            value['0' + c] = c;
        for (int c = 0; c < 6; ++c)
            value['A' + c] = value['a' + c] = 10 + c;
    }
};
const HEX_TABLE HEX;

// The common line "ABCD\n": four digits of either case and the line break. Any other line takes
// the general path, which gives the same word for this one.
inline bool fast_dat_word(const unsigned char* p, unsigned& word)
{
    if (p[4] != '\n')
        return false;
    const int a = HEX.value[p[0]], b = HEX.value[p[1]], c = HEX.value[p[2]], d = HEX.value[p[3]];
    if ((a | b | c | d) < 0)
        return false;
    word = unsigned(a << 12 | b << 8 | c << 4 | d);
    return true;
}

} // namespace

std::string PGMDQ_POF_CHECKER::get_rid_intermediate_comment(std::string line)
{
    const size_t slash = line.find('/');
    return slash == std::string::npos ? line : line.substr(0, slash);
}

bool PGMDQ_POF_CHECKER::make_sure_and_convert_hex(std::string text, int* digits, unsigned char** out)
{
    int k = 0;
    for (auto c = text.rbegin(); c != text.rend(); ++c, ++k) {
        int value = -1;
        if (*c >= '0' && *c <= '9')
            value = *c - '0';
        else if (*c >= 'A' && *c <= 'F')
            value = *c - 'A' + 10;
        if (value < 0)
            return false;
        unsigned char& byte = (*out)[k / 2];
        if (k % 2 == 0)
            byte = (unsigned char)value;
        else
            byte |= (unsigned char)(value << 4);
    }
    *digits = k;
    return true;
}

namespace {

// One line of a DAT file, cleaned by the format's rules; `word` receives its value.
DAT_LINE read_dat_line(const char* begin, size_t length, unsigned& word)
{
    // The line is a C string: a NUL byte ends it.
    std::string line =
        gen_remove_leading_and_trailing_white_spaces(std::string(begin, strnlen(begin, length)));
    if (line.empty())
        return DAT_LINE_SKIP;
    const size_t slash = line.find('/');
    if (slash != std::string::npos && slash > 0)
        line = gen_remove_leading_and_trailing_white_spaces(PGMDQ_POF_CHECKER::get_rid_intermediate_comment(line));
    if (line[0] == '/')
        return DAT_LINE_SKIP;
    stl_toupper(line);
    // Only four digits make a word; checking the count first keeps the conversion in its
    // two-byte buffer.
    if (line.size() != 4)
        return DAT_LINE_INVALID;
    unsigned char bytes[2] = {0, 0};
    unsigned char* out = bytes;
    int digits = 0;
    if (!PGMDQ_POF_CHECKER::make_sure_and_convert_hex(line, &digits, &out) || digits != 4)
        return DAT_LINE_INVALID;
    word = unsigned(bytes[1]) << 8 | bytes[0];
    return DAT_LINE_WORD;
}

// Reads the words of a DAT file in order, giving each to `on_word`. Lines are limited to 63
// characters, the way a 64-byte line buffer reads them: a longer line ends the reading there.
// Returns false when the file cannot be opened or holds an invalid line; the words before it
// have been given.
template <typename ON_WORD>
bool scan_dat(const char* path, ON_WORD&& on_word)
{
    const PGMDQ_FILE file = open_for_reading(path);
    struct stat status;
    if (!file || ::fstat(::fileno(file.get()), &status) != 0)
        return false;
    // A small file is read in one block. Room for a block after an unfinished line carried over
    // from the block before.
    const size_t block_bytes = std::min<size_t>(DAT_BLOCK_BYTES, size_t(status.st_size) + 1);
    const std::unique_ptr<unsigned char[]> buffer(new unsigned char[DAT_MAX_LINE + 1 + block_bytes]);
    size_t carried = 0;
    for (;;) {
        thr_process_events();
        const size_t got = std::fread(buffer.get() + carried, 1, block_bytes, file.get());
        const bool at_end = got < block_bytes;
        const unsigned char* p = buffer.get();
        const unsigned char* const end = p + carried + got;
        unsigned word = 0;
        for (;;) {
            if (end - p >= 5 && fast_dat_word(p, word)) {
                on_word(word);
                p += 5;
                continue;
            }
            const size_t window = std::min<size_t>(size_t(end - p), DAT_MAX_LINE + 1);
            const auto* newline = static_cast<const unsigned char*>(std::memchr(p, '\n', window));
            if (!newline)
                break;
            const DAT_LINE kind = read_dat_line(reinterpret_cast<const char*>(p), size_t(newline - p), word);
            if (kind == DAT_LINE_INVALID)
                return false;
            if (kind == DAT_LINE_WORD)
                on_word(word);
            p = newline + 1;
        }
        const size_t rest = size_t(end - p);
        if (rest > DAT_MAX_LINE)
            return true;  // an over-long line ends the reading
        if (at_end) {
            // A last line without a line break still counts.
            if (rest == 0)
                return true;
            const DAT_LINE kind = read_dat_line(reinterpret_cast<const char*>(p), rest, word);
            if (kind == DAT_LINE_WORD)
                on_word(word);
            return kind != DAT_LINE_INVALID;
        }
        std::memmove(buffer.get(), p, rest);
        carried = rest;
    }
}

} // namespace

unsigned PGMDQ_POF_CHECKER::exam_dat(FIO_PATH path)
{
    unsigned count = 0;
    if (!scan_dat(path, [&count](unsigned) { ++count; }))
        return 0;
    return count;
}

unsigned PGMDQ_POF_CHECKER::get_dat(FIO_PATH path, unsigned char** data)
{
    PGMDQ_ASSERT(*data != NULL);
    unsigned char* out = *data;
    unsigned count = 0;
    scan_dat(path, [out, &count](unsigned word) {
        out[2 * count] = (unsigned char)(word & 0xFF);
        out[2 * count + 1] = (unsigned char)(word >> 8);
        ++count;
    });
    return count;
}

unsigned char* PGMDQ_POF_CHECKER::read_dat(FIO_PATH path, unsigned& count)
{
    count = exam_dat(path);
    if (count == 0) {
        update_msg(PGMDQ_MSG_TYPE_ERROR, "Fail to read " + path.str());
        return nullptr;
    }
    const unsigned dat_size = count;
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[2 * size_t(dat_size)]);
    if (!buffer)
        PGMDQ_INTERNAL_ERROR("out of memory");
    unsigned char* dat_data = buffer.get();
    PGMDQ_ASSERT(get_dat(path, &dat_data) == dat_size);
    return buffer.release();
}
