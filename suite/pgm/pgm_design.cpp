#include "pgm_design.h"

#include "pgm_assert.h"
#include "pgm_common.h"

#include <cstring>

namespace {

constexpr std::uint16_t FRAME_CRC_POLY = 0xA001;
constexpr std::size_t ERAM_PAGE_BYTES = 256;

std::uint32_t get_le32(const unsigned char* p)
{
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

void put_le(unsigned char* p, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i, value >>= 8)
        p[i] = static_cast<unsigned char>(value & 0xFF);
}

// Deterministic design contents (splitmix64).
class DESIGN_RANDOM {
public:
    explicit DESIGN_RANDOM(std::uint32_t seed) : m_state(0x9E3779B97F4A7C15ull * (seed + 1ull)) {}

    std::uint64_t next()
    {
        std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }

    // A quarter of the frames and pages hold logic; the rest stay empty, as in real designs,
    // which is also what makes design files compress.
    bool used() { return next() % 4 == 0; }

    void fill(unsigned char* p, std::size_t count)
    {
        for (; count >= 8; count -= 8, p += 8) {
            const std::uint64_t value = next();
            std::memcpy(p, &value, 8);
        }
        if (count > 0) {
            const std::uint64_t value = next();
            std::memcpy(p, &value, count);
        }
    }

private:
    std::uint64_t m_state;
};

// Where `section` begins inside the bit vector of its block (block i of the tree is vector i).
std::size_t offset_in_block(const PGM_PCF_TREE_ELEMENT& block, const PGM_PCF_TREE_ELEMENT& section)
{
    return section.get_start_byte() - block.get_start_byte();
}

std::uint16_t frame_crc16(const unsigned char* frame, unsigned frame_bits)
{
    return PGM_COMMON::calculate_crc16(frame, 0, frame_bits - PGM_FRAME_CRC16_FROM_END, 0, FRAME_CRC_POLY);
}

// The field the control block fills in: its byte offset in a frame and its size.
struct CB_FIELD {
    std::size_t offset;
    std::size_t bytes;
};

CB_FIELD control_block_field(unsigned type, unsigned frame_bits)
{
    if (type == PGM_SECTION_EDCRC_FRAMES)
        return {(frame_bits - PGM_FRAME_EDCRC_FROM_END) / 8, 4};
    return {(frame_bits - PGM_FRAME_CORE_WORD_FROM_END) / 8, 2};
}

void compile_options(unsigned char* options, const PGM_DEVICE& device, DESIGN_RANDOM& random)
{
    put_le(options, PGM_OPTION_SYNC_WORD, 4);
    put_le(options + 4, device.get_idcode(), 4);
    put_le(options + 8, static_cast<std::uint32_t>(device.get_stream_byte_size()), 4);
    put_le(options + PGM_OPTION_BITS_OFFSET, static_cast<std::uint32_t>(random.next() & 0xFFFF), 4);
    put_le(options + 16, static_cast<std::uint32_t>(random.next()), 4);
}

void compile_frames(unsigned char* bytes, const PGM_PCF_TREE_ELEMENT& section, std::uint32_t& frame_address,
                    DESIGN_RANDOM& random)
{
    const unsigned frame_bits = section.get_frame_bits();
    const std::size_t frame_bytes = frame_bits / 8;
    const CB_FIELD field = control_block_field(section.get_type(), frame_bits);
    for (std::size_t f = 0; f < section.get_frame_count(); ++f) {
        unsigned char* frame = bytes + f * frame_bytes;
        put_le(frame, frame_address++, 4);
        if (random.used())
            random.fill(frame + 4, frame_bytes - 6);
        std::memset(frame + field.offset, 0, field.bytes);
        put_le(frame + frame_bytes - 2, frame_crc16(frame, frame_bits), 2);
    }
}

void compile_plain(unsigned char* bytes, std::size_t count, DESIGN_RANDOM& random)
{
    for (std::size_t page = 0; page < count; page += ERAM_PAGE_BYTES)
        if (random.used())
            random.fill(bytes + page, std::min(ERAM_PAGE_BYTES, count - page));
}

std::string check_options(const unsigned char* options, const PGM_DEVICE& device)
{
    if (get_le32(options) != PGM_OPTION_SYNC_WORD)
        return "the option block has no sync word";
    if (get_le32(options + 4) != device.get_idcode())
        return "the option block is for another device";
    if (get_le32(options + 8) != device.get_stream_byte_size())
        return "the option block gives a wrong stream size";
    return std::string();
}

std::string check_frames(const unsigned char* bytes, const PGM_PCF_TREE_ELEMENT& section)
{
    const unsigned frame_bits = section.get_frame_bits();
    const std::size_t frame_bytes = frame_bits / 8;
    const CB_FIELD field = control_block_field(section.get_type(), frame_bits);
    for (std::size_t f = 0; f < section.get_frame_count(); ++f) {
        const unsigned char* frame = bytes + f * frame_bytes;
        const std::string where = "frame " + std::to_string(f) + " of section " + section.get_name();
        const unsigned stored = frame[frame_bytes - 2] | (frame[frame_bytes - 1] << 8);
        if (stored != frame_crc16(frame, frame_bits))
            return where + ": CRC-16 mismatch";
        for (std::size_t i = 0; i < field.bytes; ++i)
            if (frame[field.offset + i] != 0)
                return where + ": the control block's field is not empty";
    }
    return std::string();
}

std::string check_shape(const PGM_PCF_TREE_LIST& tree, const std::vector<PGMIO_BIT_VECTOR>& vectors)
{
    if (vectors.size() != tree.size())
        return "the design has " + std::to_string(vectors.size()) + " bit vectors, the device " +
               std::to_string(tree.size());
    for (std::size_t i = 0; i < tree.size(); ++i)
        if (vectors[i].get_bit_size() != tree[i].get_byte_size() * 8)
            return "bit vector " + std::to_string(i) + " does not fit block " + tree[i].get_name();
    return std::string();
}

} // namespace

PGM_SOF_DESIGN pgm_compile_design(const PGM_DEVICE& device, std::uint32_t seed)
{
    const PGM_PCF_TREE_LIST& tree = *device.get_pcf_info()->get_pcf_file_info();
    PGM_SOF_DESIGN design;
    design.family = device.get_family();
    design.die = device.get_name();
    DESIGN_RANDOM random(seed);
    std::uint32_t frame_address = 0;
    for (const PGM_PCF_TREE_ELEMENT& block : tree) {
        design.vectors.emplace_back(block.get_byte_size() * 8);
        for (const PGM_PCF_TREE_ELEMENT& section : block.get_children()) {
            unsigned char* bytes = design.vectors.back().get_base_address() + offset_in_block(block, section);
            switch (section.get_type()) {
            case PGM_SECTION_OPTIONS:
                compile_options(bytes, device, random);
                break;
            case PGM_SECTION_EDCRC_FRAMES:
            case PGM_SECTION_CORE_FRAMES:
                compile_frames(bytes, section, frame_address, random);
                break;
            default:
                compile_plain(bytes, section.get_byte_size(), random);
            }
        }
    }
    return design;
}

std::string pgm_check_design(const PGM_DEVICE& device, const std::vector<PGMIO_BIT_VECTOR>& vectors)
{
    const PGM_PCF_TREE_LIST& tree = *device.get_pcf_info()->get_pcf_file_info();
    std::string problem = check_shape(tree, vectors);
    for (std::size_t i = 0; i < tree.size() && problem.empty(); ++i)
        for (const PGM_PCF_TREE_ELEMENT& section : tree[i].get_children()) {
            const unsigned char* bytes = vectors[i].get_base_address() + offset_in_block(tree[i], section);
            if (section.get_type() == PGM_SECTION_OPTIONS)
                problem = check_options(bytes, device);
            else if (section.get_frame_bits() > 0)
                problem = check_frames(bytes, section);
            if (!problem.empty())
                break;
        }
    return problem;
}

std::uint32_t pgm_get_option_bits(const std::vector<PGMIO_BIT_VECTOR>& vectors)
{
    PGM_ASSERT(!vectors.empty() && vectors[0].get_byte_size() >= PGM_OPTION_BITS_OFFSET + 4, "pgm_design");
    return get_le32(vectors[0].get_base_address() + PGM_OPTION_BITS_OFFSET);
}
