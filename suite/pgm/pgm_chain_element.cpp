#include "pgm_chain_element.h"

#include "pgm_assert.h"
#include "pgm_design.h"
#include "pgm_sof.h"

#include <cstdio>
#include <strings.h>

namespace {

// Why a design for `family`/`die` does not belong at this place of the chain; empty when it does.
std::string check_expectations(const std::string& family, const std::string& die, const char* expected_die,
                               unsigned expected_idcode)
{
    const PGM_DIE_INFO* row = PGM_DEVICE_DATABASE::find_die(die);
    if (row == nullptr)
        return "unknown die " + die;
    if (strcasecmp(row->family, family.c_str()) != 0)
        return "die " + die + " is not of family " + family;
    if (expected_die != nullptr && *expected_die != '\0' && strcasecmp(expected_die, die.c_str()) != 0)
        return "the design is for " + die + ", not " + expected_die;
    if (expected_idcode != 0 && expected_idcode != row->idcode) {
        char text[64];
        std::snprintf(text, sizeof text, "IDCODE 0x%08X does not match 0x%08X", row->idcode, expected_idcode);
        return text;
    }
    return std::string();
}

} // namespace

PGM_CHAIN_ELEMENT::PGM_CHAIN_ELEMENT(PGM_CHAIN_ELEMENT* parent) : m_parent(parent) {}

PGM_CHAIN_ELEMENT::~PGM_CHAIN_ELEMENT() = default;

bool PGM_CHAIN_ELEMENT::create_chain_element(unsigned content, unsigned chain_position, const char* expected_die,
                                             unsigned expected_idcode, unsigned option_mask, unsigned option_value)
{
    PGM_ASSERT(content == PGM_CONTENT_IDENTITY || content == PGM_CONTENT_CONFIGURATION, "pgm_chain_element");
    m_bit_vectors.clear();
    m_device.reset();
    m_eram.reset();
    m_error.clear();
    m_chain_position = chain_position;

    PGM_SOF_DESIGN design;
    std::string error;
    if (!pgm_sof_read(m_design_file, design, error))
        return fail(error);
    error = check_expectations(design.family, design.die, expected_die, expected_idcode);
    if (!error.empty())
        return fail(error);
    auto device = std::make_unique<PGM_DEVICE>(*PGM_DEVICE_DATABASE::find_die(design.die));
    error = pgm_check_design(*device, design.vectors);
    if (!error.empty())
        return fail(error);
    if ((pgm_get_option_bits(design.vectors) & option_mask) != option_value)
        return fail("the design's option bits do not match");

    m_device = std::move(device);
    if (content == PGM_CONTENT_CONFIGURATION) {
        m_bit_vectors = std::move(design.vectors);
        find_eram();
    }
    return true;
}

bool PGM_CHAIN_ELEMENT::fail(const std::string& error)
{
    m_error = m_design_file + ": " + error;
    return false;
}

void PGM_CHAIN_ELEMENT::find_eram()
{
    const PGM_PCF_TREE_LIST& tree = *m_device->get_pcf_info()->get_pcf_file_info();
    for (std::size_t i = 0; i < tree.size(); ++i)
        for (const PGM_PCF_TREE_ELEMENT& section : tree[i].get_children())
            if (section.get_type() == PGM_SECTION_PLAIN_DATA) {
                const std::size_t offset = section.get_start_byte() - tree[i].get_start_byte();
                m_eram.reset(new PGM_ERAM_INFO{section.get_start_byte(), section.get_byte_size(),
                                               m_bit_vectors[i].get_base_address() + offset});
            }
}
