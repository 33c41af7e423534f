#include "pgm_pcf.h"

#include "pgm_assert.h"
#include "pgm_device.h"

namespace {

constexpr unsigned CB_DATA_WIDTH = 32;
constexpr std::size_t OPTION_BLOCK_BYTES = 64;

// Appends a block holding `sections` (type, name, bytes, frame bits) from `position` on.
struct SECTION_PLAN {
    unsigned type;
    std::string name;
    std::size_t bytes;
    unsigned frame_bits;
};

std::size_t append_block(PGM_PCF_TREE_LIST& tree, const std::string& name, const std::vector<SECTION_PLAN>& sections,
                         std::size_t position, const PGM_F2P_CONSTANTS* constants)
{
    std::size_t end = position;
    for (const SECTION_PLAN& section : sections)
        end += section.bytes;
    PGM_PCF_TREE_ELEMENT block(PGM_SECTION_BLOCK, name, position, end, 0, constants);
    for (const SECTION_PLAN& section : sections) {
        block.add_child(PGM_PCF_TREE_ELEMENT(section.type, section.name, position, position + section.bytes,
                                             section.frame_bits, constants));
        position += section.bytes;
    }
    tree.push_back(std::move(block));
    return end;
}

} // namespace

PGM_PCF_TREE_ELEMENT::PGM_PCF_TREE_ELEMENT(unsigned type, std::string name, std::size_t start_byte,
                                           std::size_t end_byte, unsigned frame_bits,
                                           const PGM_F2P_CONSTANTS* constants)
    : m_type(type), m_name(std::move(name)), m_start_byte(start_byte), m_end_byte(end_byte),
      m_frame_bits(frame_bits), m_constants(constants)
{
    PGM_ASSERT(start_byte <= end_byte, "pgm_pcf");
    PGM_ASSERT(frame_bits == 0 || (end_byte - start_byte) * 8 % frame_bits == 0, "pgm_pcf");
}

std::size_t PGM_PCF_TREE_ELEMENT::get_frame_count() const
{
    return m_frame_bits == 0 ? 0 : get_byte_size() * 8 / m_frame_bits;
}

std::size_t PGM_PCF_TREE_ELEMENT::get_frame_start_bit(std::size_t frame) const
{
    PGM_ASSERT(frame < get_frame_count(), "pgm_pcf");
    return m_start_byte * 8 + frame * m_frame_bits;
}

void PGM_PCF_TREE_ELEMENT::add_child(PGM_PCF_TREE_ELEMENT child)
{
    m_children.push_back(std::move(child));
}

PGM_PCF_CONTAINER::PGM_PCF_CONTAINER(const PGM_DIE_INFO& die) : m_constants{CB_DATA_WIDTH}
{
    PGM_ASSERT(die.frame_bits % CB_DATA_WIDTH == 0 && die.frame_bits > PGM_FRAME_EDCRC_FROM_END + CB_DATA_WIDTH,
               "pgm_pcf");
    const std::size_t frame_bytes = die.frame_bits / 8;
    std::size_t position = append_block(m_tree, "options", {{PGM_SECTION_OPTIONS, "options", OPTION_BLOCK_BYTES, 0}},
                                        0, &m_constants);
    position = append_block(m_tree, "periphery",
                            {{PGM_SECTION_EDCRC_FRAMES, "periphery", die.edcrc_frames * frame_bytes, die.frame_bits}},
                            position, &m_constants);
    std::vector<SECTION_PLAN> core;
    for (unsigned i = 0; i < die.core_sections; ++i)
        core.push_back({PGM_SECTION_CORE_FRAMES, "core " + std::to_string(i), die.core_frames * frame_bytes,
                        die.frame_bits});
    position = append_block(m_tree, "core", core, position, &m_constants);
    if (die.eram_bytes > 0)
        append_block(m_tree, "eram", {{PGM_SECTION_PLAIN_DATA, "eram", die.eram_bytes, 0}}, position, &m_constants);
}

std::size_t PGM_PCF_CONTAINER::get_stream_byte_size() const
{
    return m_tree.back().get_end_byte();
}
