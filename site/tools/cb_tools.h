// The control-block side of the suite's bitstream tools: the SOF-to-image converter, the ICD
// control-block emulator and the release maker share this. It is deliberately written apart from
// the programmer library (its own die table, stream layout, CRCs and design-file reader), so that
// when the POF checker finds the emulator's data equal to the programmer's, two independent
// computations agree.
//
// The configuration stream of a die, as the control block loads it:
//   option block   64 bytes, little-endian: sync word 0x5A0FC3A5 (offset 0), IDCODE (4), stream
//                  bytes (8), option bits (12), user code (16)
//   periphery      frames whose error-detection CRC the control block computes
//   core 0 .. k-1  core frames whose 16-bit core word the control block fills in
//   eram           embedded-RAM contents, loaded unchanged (absent on some dies)
// A frame of L bits: address word (bits 0..31), data, CRC-32 field (L-64..L-33), core word
// (L-32..L-17), CRC-16 (L-16..L-1); bit b of the stream is bit b % 8 of byte b / 8.
//
// What the control block computes for each frame:
//   periphery  the CRC-32 field: the error-detection CRC (cb_edcrc) of the 32-bit data words from
//              bit 32 up to the field, starting from the model's seed
//   core       the core word: the XOR of the frame's 16-bit words before it (bits 0..L-33), XOR
//              the redundancy fuse of that core frame when the die has one
//   every frame the CRC-16 of bits 0..L-17, reflected polynomial 0xA001 from 0, low byte first
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

// ---- dies ----------------------------------------------------------------------------------

struct CB_DIE {
    const char* family;
    const char* die;
    unsigned frame_bits;
    unsigned periphery_frames;
    unsigned core_sections;
    unsigned core_frames;  // per core section
    unsigned eram_bytes;
    bool redundancy;           // core frames are repaired from the die's redundancy file
    std::uint32_t edcrc_seed;  // first value of the error-detection CRC register
    const char* note;          // how this die's control block departs from the others, or ""
};

const std::vector<CB_DIE>& cb_dies();
const CB_DIE* cb_find_die(const std::string& die);  // ignoring case; null when unknown

// Section types of the stream (the device's documented numbers).
enum CB_SEGMENT_TYPE : unsigned { CB_PERIPHERY = 2, CB_CORE = 3, CB_ERAM = 4, CB_OPTIONS = 5 };

struct CB_SEGMENT {
    unsigned type;
    std::string name;
    std::size_t start;  // byte in the stream
    std::size_t bytes;
    unsigned frame_bits;  // 0 for the option block and the eram
};

constexpr std::size_t CB_OPTION_BLOCK_BYTES = 64;
constexpr std::uint32_t CB_SYNC_WORD = 0x5A0FC3A5u;

std::vector<CB_SEGMENT> cb_segments(const CB_DIE& die);
std::size_t cb_stream_bytes(const CB_DIE& die);

// ---- arithmetic ----------------------------------------------------------------------------

std::uint16_t cb_frame_crc16(const unsigned char* data, std::size_t bytes);

// The error-detection CRC engine: polynomial 0xF4ACFB13, shifted left, no final inversion. It
// takes the `count` words (32-bit, little-endian) one bit column at a time, most significant
// column first, and within a column the words in order.
std::uint32_t cb_edcrc(const unsigned char* words, std::size_t count, std::uint32_t seed);

// ---- little-endian fields and whole files ----------------------------------------------------

std::uint32_t cb_get_le(const unsigned char* p, int bytes);
void cb_put_le(unsigned char* p, std::uint32_t value, int bytes);
bool cb_read_file(const std::string& path, std::vector<unsigned char>& bytes);
bool cb_write_file(const std::string& path, const void* data, std::size_t bytes);
bool cb_write_text(const std::string& path, const std::string& text);

// ---- design files (SOF, read only) -----------------------------------------------------------

struct CB_DESIGN {
    std::string family;
    std::string die;
    std::vector<unsigned char> stream;  // the bit vectors' bytes, in order
};

// Reads an uncompressed SOF design file; `error` says why when it cannot.
bool cb_read_sof(const std::string& path, CB_DESIGN& design, std::string& error);

// ---- image files (IMG) ---------------------------------------------------------------------
//
// The converter's output and the emulator's input: the stream without the frames' CRC-16s,
// which the control block computes itself. Format version 1, little-endian:
//
//   offset  size  field
//   0       8     magic: the bytes "CBIMAGE" and 0x1A
//   8       2     format version (1)
//   10      2     header size (48)
//   12      16    die name, ASCII, padded with NUL bytes
//   28      4     bytes of the configuration stream the image expands to
//   32      4     body size in bytes
//   36      4     CRC-32 of the body (the CRC of gzip and zlib)
//   40      8     reserved, 0
//   48      ...   body: the option block, then each frame's first L-16 bits, then the eram

struct CB_IMAGE {
    std::string die;
    std::size_t stream_bytes = 0;
    std::vector<unsigned char> body;
};

bool cb_write_image(const std::string& path, const CB_IMAGE& image);
bool cb_read_image(const std::string& path, CB_IMAGE& image, std::string& error);

// ---- redundancy files (RIF) ----------------------------------------------------------------
//
// Text. Lines starting with "#" are comments; "DIE <name>" names the die (required, first data
// line); each "FUSE <core frame> <word>" repairs one core frame (counted over all core sections
// from 0; the word in hexadecimal).

typedef std::map<std::size_t, std::uint16_t> CB_FUSES;

std::string cb_rif_text(const CB_DIE& die, const CB_FUSES& fuses);
bool cb_read_rif(const std::string& path, const CB_DIE& die, CB_FUSES& fuses, std::string& error);

// ---- emulator models -----------------------------------------------------------------------
//
// Each die's emulator build carries a model file: "key = value" lines (die, family, edcrc_seed in
// hexadecimal, redundancy yes/no); "#" starts a comment line.

struct CB_MODEL {
    std::string die;
    std::string family;
    std::uint32_t edcrc_seed = 0;
    bool redundancy = false;
};

std::string cb_model_text(const CB_DIE& die);
bool cb_read_model(const std::string& path, CB_MODEL& model, std::string& error);
