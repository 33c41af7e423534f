// The control block's description of each die, kept apart from the programmer's database on
// purpose: a regression compares the two.
#include "cb_tools.h"

#include <strings.h>

namespace {

constexpr std::uint32_t SEED = 1;

// D5D2's control block is the first revision of that die: its error-detection CRC register starts
// from 0 instead of 1. Every periphery frame of its data therefore carries a different CRC-32
// (and CRC-16) than the programmer's stream, and the POF checker reports each of its designs as
// failed.
const char* const D5D2_NOTE = "first control-block revision: the error-detection CRC starts from 0, not 1";

const std::vector<CB_DIE> DIES = {
    // family    die      L     periphery core sections x frames  eram   redundancy seed
    {"boreal5", "B5D1", 256, 64, 2, 16, 1024, true, SEED, ""},
    {"boreal5", "B5D2", 512, 64, 2, 32, 2048, true, SEED, ""},
    {"boreal5", "B5D3", 512, 128, 3, 32, 4096, true, SEED, ""},
    {"boreal5", "B5D4", 1024, 256, 3, 64, 16384, true, SEED, ""},
    {"boreal5", "B5D5", 2048, 512, 4, 96, 65536, true, SEED, ""},
    {"boreal5", "B5D6", 4096, 1024, 4, 192, 262144, true, SEED, ""},
    {"calder5", "C5D1", 256, 48, 2, 16, 512, false, SEED, ""},
    {"calder5", "C5D2", 512, 96, 2, 48, 0, false, SEED, ""},
    {"calder5", "C5D3", 1024, 512, 3, 128, 32768, false, SEED, ""},
    {"calder5", "C5D4", 4096, 2048, 4, 384, 262144, false, SEED, ""},
    {"dunlin5", "D5D1", 384, 64, 2, 24, 1024, false, SEED, ""},
    {"dunlin5", "D5D2", 512, 128, 2, 64, 4096, false, 0, D5D2_NOTE},
    {"dunlin5", "D5D3", 1024, 384, 3, 128, 16384, false, SEED, ""},
    {"dunlin5", "D5D4", 2048, 768, 4, 128, 65536, false, SEED, ""},
    {"dunlin5", "D5D5", 4096, 4096, 4, 512, 524288, false, SEED, ""},
    {"kestrel", "KS50", 320, 96, 2, 32, 2048, false, SEED, ""},
    {"kestrel", "KS120", 2048, 2048, 3, 512, 131072, false, SEED, ""},
    {"kestrel", "KS470", 8192, 16384, 4, 3072, 4194304, false, SEED, ""},
};

} // namespace

const std::vector<CB_DIE>& cb_dies()
{
    return DIES;
}

const CB_DIE* cb_find_die(const std::string& die)
{
    for (const CB_DIE& row : DIES)
        if (strcasecmp(row.die, die.c_str()) == 0)
            return &row;
    return nullptr;
}

std::vector<CB_SEGMENT> cb_segments(const CB_DIE& die)
{
    const std::size_t frame_bytes = die.frame_bits / 8;
    std::vector<CB_SEGMENT> segments;
    std::size_t position = 0;
    auto add = [&](unsigned type, const std::string& name, std::size_t bytes, unsigned frame_bits) {
        segments.push_back({type, name, position, bytes, frame_bits});
        position += bytes;
    };
    add(CB_OPTIONS, "option block", CB_OPTION_BLOCK_BYTES, 0);
    add(CB_PERIPHERY, "periphery", die.periphery_frames * frame_bytes, die.frame_bits);
    for (unsigned i = 0; i < die.core_sections; ++i)
        add(CB_CORE, "core " + std::to_string(i), die.core_frames * frame_bytes, die.frame_bits);
    if (die.eram_bytes > 0)
        add(CB_ERAM, "eram", die.eram_bytes, 0);
    return segments;
}

std::size_t cb_stream_bytes(const CB_DIE& die)
{
    const CB_SEGMENT last = cb_segments(die).back();
    return last.start + last.bytes;
}
