// The programming-configuration (PCF) information of a device: the section tree of its
// configuration stream and the constants of its control block (F2P constants).
//
// The stream is the concatenation of the design's configuration bit vectors. The tree's top level
// holds one block per bit vector, in stream order; each block's children are the sections that
// make it up, also in stream order. Byte ranges are positions in the whole stream, end exclusive.
//
// Section types:
//   1  block: one bit vector's share of the stream; holds the sections below
//   2  frames with an error-detection CRC-32 that the control block fills in
//   3  core frames whose 16-bit core word the control block fills in
//   4  plain data the control block loads unchanged (embedded-RAM contents)
//   5  option block at the start of the stream, consumed by the control block
// Types 2, 3 and 4 are what a bitstream check compares; the option block comes first, so none of
// them starts at byte 0.
//
// Frames (types 2 and 3) follow one another from their section's start. A frame of L bits
// (L a multiple of the control-block data width) is laid out as, counting bits from its start:
//   0 .. W-1          frame address word (W = control-block data width)
//   W .. L-65         frame data
//   L-64 .. L-33      CRC-32 field (least significant bit first)
//   L-32 .. L-17      core word
//   L-16 .. L-1       CRC-16 of bits 0 .. L-17 (PGM_COMMON::calculate_crc16, init 0, poly 0xA001),
//                     least significant bit first, so its low byte comes first
// In frames of type 2 the error-detection CRC covers bits W .. L-65 and is 0 in a design file
// (the control block computes it); the core-word field is ordinary design data. In frames of
// type 3 the core word is 0 in a design file (the control block fills it in) and the CRC-32 field
// is ordinary design data.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct PGM_DIE_INFO;

enum PGM_SECTION_TYPE : unsigned {
    PGM_SECTION_BLOCK = 1,
    PGM_SECTION_EDCRC_FRAMES = 2,
    PGM_SECTION_CORE_FRAMES = 3,
    PGM_SECTION_PLAIN_DATA = 4,
    PGM_SECTION_OPTIONS = 5,
};

// Where a frame's trailing fields begin, in bits counted back from the frame's end.
constexpr unsigned PGM_FRAME_EDCRC_FROM_END = 64;
constexpr unsigned PGM_FRAME_CORE_WORD_FROM_END = 32;
constexpr unsigned PGM_FRAME_CRC16_FROM_END = 16;

// Constants of the device's control block.
struct PGM_F2P_CONSTANTS {
    unsigned m_cb_data_width;  // bits per control-block data word
};

class PGM_PCF_TREE_ELEMENT {
public:
    PGM_PCF_TREE_ELEMENT(unsigned type, std::string name, std::size_t start_byte, std::size_t end_byte,
                         unsigned frame_bits, const PGM_F2P_CONSTANTS* constants);

    unsigned get_type() const { return m_type; }
    const std::string& get_name() const { return m_name; }
    std::size_t get_start_byte() const { return m_start_byte; }
    std::size_t get_end_byte() const { return m_end_byte; }
    std::size_t get_byte_size() const { return m_end_byte - m_start_byte; }
    // Frame length L in bits for sections of types 2 and 3; 0 for the others.
    unsigned get_frame_bits() const { return m_frame_bits; }
    std::size_t get_frame_count() const;
    // The stream bit at which frame `frame` of the section begins.
    std::size_t get_frame_start_bit(std::size_t frame) const;
    // The control block's constants; every element of a device's tree shares the same ones.
    const PGM_F2P_CONSTANTS* get_f2p_constants() const { return m_constants; }
    const std::vector<PGM_PCF_TREE_ELEMENT>& get_children() const { return m_children; }

    void add_child(PGM_PCF_TREE_ELEMENT child);

private:
    unsigned m_type;
    std::string m_name;
    std::size_t m_start_byte;
    std::size_t m_end_byte;
    unsigned m_frame_bits;
    const PGM_F2P_CONSTANTS* m_constants;
    std::vector<PGM_PCF_TREE_ELEMENT> m_children;
};

typedef std::vector<PGM_PCF_TREE_ELEMENT> PGM_PCF_TREE_LIST;

// Built once per device from its database row; the tree points at the container's constants, so
// the container stays where it was made.
class PGM_PCF_CONTAINER {
public:
    explicit PGM_PCF_CONTAINER(const PGM_DIE_INFO& die);
    PGM_PCF_CONTAINER(const PGM_PCF_CONTAINER&) = delete;
    PGM_PCF_CONTAINER& operator=(const PGM_PCF_CONTAINER&) = delete;

    // The section tree; never null.
    const PGM_PCF_TREE_LIST* get_pcf_file_info() const { return &m_tree; }
    const PGM_F2P_CONSTANTS& get_f2p_constants() const { return m_constants; }
    // Bytes of the whole configuration stream.
    std::size_t get_stream_byte_size() const;

private:
    PGM_F2P_CONSTANTS m_constants;
    PGM_PCF_TREE_LIST m_tree;
};
