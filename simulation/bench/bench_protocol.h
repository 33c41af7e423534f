// The JTAG protocol of the bench's parts: the device family's instruction codes, the
// virtual-instruction hub, the debug IP's virtual instructions, the bench controller's registers
// and the configuration image the DUT boots from. It binds the simulated silicon and the software
// that drives it, the way a part's data sheet does, so both sides include this one header.
#pragma once

#include <cstddef>
#include <cstdint>

namespace BENCH_PROTOCOL {

// ---- Device instructions --------------------------------------------------------------------
// BYPASS is all ones at every IR length. After Test-Logic-Reset the IR holds IDCODE.
constexpr uint32_t IR_IDCODE = 0x005;
constexpr uint32_t IR_HUB_VIR = 0x01C; // shifts the hub's virtual instruction register
constexpr uint32_t IR_HUB_VDR = 0x01D; // shifts the data register of the addressed node
constexpr unsigned MIN_IR_LENGTH = 5;  // the codes above must fit
constexpr unsigned MAX_IR_LENGTH = 32;
constexpr unsigned IDCODE_BITS = 32;

// ---- Virtual-instruction hub ----------------------------------------------------------------
// The virtual instruction register holds a node address above a 12-bit node instruction. Node 0
// is the hub itself: its instruction 0 streams one 32-bit info word per data-register capture,
// first the header, then one record per node, then the header again.
constexpr unsigned VIR_INSTRUCTION_BITS = 12;
constexpr unsigned VIR_ADDRESS_BITS = 4;
constexpr unsigned VIR_LENGTH = VIR_INSTRUCTION_BITS + VIR_ADDRESS_BITS;
constexpr unsigned MAX_NODES = (1u << VIR_ADDRESS_BITS) - 1;
constexpr uint32_t HUB_INFO_INSTRUCTION = 0x000;
constexpr unsigned HUB_VERSION = 1;

constexpr uint32_t vir_value(unsigned node_address, uint32_t instruction)
{
    return (uint32_t(node_address) << VIR_INSTRUCTION_BITS) | (instruction & 0xFFFu);
}

// Header: bits 0..7 node count, 8..15 hub version, 16..31 the marker.
constexpr uint32_t HUB_HEADER_MARKER = 0x4855;
constexpr uint32_t hub_header(unsigned node_count)
{
    return (HUB_HEADER_MARKER << 16) | (HUB_VERSION << 8) | (node_count & 0xFFu);
}
constexpr bool is_hub_header(uint32_t word) { return (word >> 16) == HUB_HEADER_MARKER; }
constexpr unsigned hub_header_node_count(uint32_t word) { return word & 0xFFu; }

// Node record: bits 0..7 kind, 8..15 instance, 16..23 version, 24..31 the marker.
constexpr uint32_t NODE_RECORD_MARKER = 0x4E;
constexpr uint32_t node_record(unsigned kind, unsigned instance, unsigned version)
{
    return (NODE_RECORD_MARKER << 24) | ((version & 0xFFu) << 16) | ((instance & 0xFFu) << 8) | (kind & 0xFFu);
}
constexpr bool is_node_record(uint32_t word) { return (word >> 24) == NODE_RECORD_MARKER; }
constexpr unsigned node_record_kind(uint32_t word) { return word & 0xFFu; }

constexpr unsigned NODE_KIND_DEBUG_IP = 4;
constexpr unsigned NODE_KIND_CONFIG_HW = 5;

// ---- Debug IP (node kind 4) -----------------------------------------------------------------
constexpr uint32_t DEBUG_RESET = 0xE00;      // on load: clears the trace and restarts recording
constexpr uint32_t DEBUG_DESCRIPTOR = 0xE01; // 32-bit register: the trace-memory descriptor
constexpr uint32_t DEBUG_SAMPLE = 0xE02;     // 37-bit register: one sample per capture, from 0
constexpr uint32_t DEBUG_USEDW = 0xE03;      // 32-bit register: the fill level
constexpr unsigned SAMPLE_BITS = 37;
constexpr unsigned DESCRIPTOR_DEPTH_UNIT = 1024;

// Descriptor: bits 0..3 the feature field (non-zero: waveform debug supported), bits 4..31 the
// memory depth in units of 1024 samples.
constexpr uint32_t debug_descriptor(unsigned feature, uint32_t depth)
{
    return ((depth / DESCRIPTOR_DEPTH_UNIT) << 4) | (feature & 0xFu);
}

// ---- Configuration test hardware of the bench controller (node kind 5) -----------------------
// Virtual instruction CONFIG_READ + register selects a read-only view of the register (its
// capture gives the value, its update is ignored); CONFIG_WRITE + register captures the value
// too and writes what was shifted in at Update-DR. Both registers are 32 bits.
constexpr uint32_t CONFIG_READ = 0x100;
constexpr uint32_t CONFIG_WRITE = 0x200;
constexpr unsigned CONFIG_REGISTER_BITS = 32;

enum CONFIG_REGISTER : uint32_t {
    REG_ID = 0x00,              // read-only: CONFIG_HW_ID
    REG_CONTROL = 0x01,         // CONTROL_* bits
    REG_MSEL = 0x02,            // the DUT's MSEL pins
    REG_VCCPGM_MV = 0x03,       // supply set point in millivolts
    REG_MEMORY = 0x04,          // MEMORY_* slot wired to the DUT's configuration port
    REG_CLOCK = 0x05,           // CLOCK_* source of the configuration clock
    REG_FLASH_ADDRESS = 0x06,   // word address of the next flash access
    REG_FLASH_DATA = 0x07,      // flash word at the address; each access moves the address on
    REG_FLASH_ERASE = 0x08,     // writing FLASH_ERASE_KEY erases the selected memory
    REG_STATUS = 0x09,          // read-only: STATUS_* bits and the configuration error code
    REG_VCCPGM_MEASURED = 0x0A, // read-only: supply as measured, millivolts
    REG_CLOCK_KHZ = 0x0B,       // read-only: configuration clock as measured, kHz
};
constexpr uint32_t CONFIG_HW_ID = 0x4B500001;
constexpr uint32_t FLASH_ERASE_KEY = 0x0E5A5E00;

constexpr uint32_t CONTROL_POWER = 1u << 0;      // DUT supply on
constexpr uint32_t CONTROL_NCONFIG = 1u << 1;    // released (1) or holding the DUT in reset (0)
constexpr uint32_t CONTROL_FLASH_HOST = 1u << 2; // memory wired to the controller for programming

constexpr uint32_t STATUS_CONF_DONE = 1u << 0;
constexpr uint32_t STATUS_NSTATUS = 1u << 1;
constexpr uint32_t STATUS_POWER_GOOD = 1u << 2;
constexpr uint32_t STATUS_FLASH_ERROR = 1u << 3; // sticky until the next erase
constexpr uint32_t status_error(uint32_t status) { return (status >> 8) & 0xFFu; }

// Why the DUT did not configure (STATUS bits 8..15).
enum CONFIG_ERROR : uint32_t {
    CONFIG_OK = 0,
    CONFIG_NO_POWER = 1,     // supply off or not reached
    CONFIG_MSEL = 2,         // MSEL selects no scheme the DUT supports
    CONFIG_VCCPGM = 3,       // supply not allowed for the scheme
    CONFIG_MEMORY = 4,       // the memory does not fit the scheme
    CONFIG_CLOCK = 5,        // the clock does not fit the scheme
    CONFIG_FLASH_HOST = 6,   // the memory is still wired to the controller
    CONFIG_BLANK = 7,        // no image in the memory
    CONFIG_IDCODE = 8,       // the image is for another device
    CONFIG_SCHEME = 9,       // the image is for another scheme
    CONFIG_CRC = 10,         // the image or the configuration data is corrupt
    CONFIG_NO_DUT = 11,      // the controller drives no device
};

// MSEL pin codes of the DUT family, by scheme.
constexpr uint32_t MSEL_PS = 0x11;
constexpr uint32_t MSEL_FPP_X8 = 0x18;
constexpr uint32_t MSEL_FPP_X16 = 0x19;
constexpr uint32_t MSEL_FPP_X32 = 0x1A;
constexpr uint32_t MSEL_AS_X1 = 0x12;
constexpr uint32_t MSEL_AS_X4 = 0x13;

// The schemes as bench files, raw files and commands key them: the MSEL code, and whether the DUT
// masters its own configuration from a serial device (active) or is fed by the bench (passive).
struct SCHEME_CODE {
    const char* key;
    uint32_t msel;
    bool active;
};
constexpr SCHEME_CODE SCHEME_CODES[] = {
    {"ps", MSEL_PS, false},          {"fppx8", MSEL_FPP_X8, false}, {"fppx16", MSEL_FPP_X16, false},
    {"fppx32", MSEL_FPP_X32, false}, {"asx1", MSEL_AS_X1, true},    {"asx4", MSEL_AS_X4, true},
};

// Memory slots of the bench; slots 1 to 6 feed the controller's parallel flash loader (passive
// schemes), slot 7 is the active serial configuration device.
enum MEMORY_SLOT : uint32_t {
    MEMORY_NONE = 0,
    MEMORY_CFI1 = 1,
    MEMORY_CFI2 = 2,
    MEMORY_QSPI1 = 3,
    MEMORY_QSPI2 = 4,
    MEMORY_QSPI4 = 5,
    MEMORY_NAND1 = 6,
    MEMORY_ACTIVE_SERIAL = 7,
};
constexpr unsigned MEMORY_SLOT_COUNT = 7;
constexpr uint32_t MEMORY_WORDS = 4096; // words each slot holds on the bench

// Configuration clock sources.
enum CLOCK_SOURCE : uint32_t {
    CLOCK_NONE = 0,
    CLOCK_INT_12_5 = 1,
    CLOCK_INT_25 = 2,
    CLOCK_INT_50 = 3,
    CLOCK_INT_100 = 4,
    CLOCK_CLKUSR = 5,
    CLOCK_DCLK = 6,
};

// ---- Configuration image ----------------------------------------------------------------------
// word 0 IMAGE_MAGIC, word 1 the target IDCODE, word 2 the MSEL code it was built for, word 3 the
// payload length P, words 4 .. 3+P the payload, word 4+P the CRC-32 of words 1 .. 3+P.
constexpr uint32_t IMAGE_MAGIC = 0x31474643; // "CFG1"
constexpr unsigned IMAGE_HEADER_WORDS = 4;
constexpr uint32_t IMAGE_MAX_PAYLOAD = MEMORY_WORDS - IMAGE_HEADER_WORDS - 1;

// CRC-32 (reflected polynomial 0xEDB88320) over 32-bit words taken as little-endian bytes.
inline uint32_t image_crc(const uint32_t* words, size_t count)
{
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < count; ++i)
        for (unsigned byte = 0; byte < 4; ++byte) {
            crc ^= (words[i] >> (8 * byte)) & 0xFFu;
            for (unsigned bit = 0; bit < 8; ++bit)
                crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
        }
    return ~crc;
}

} // namespace BENCH_PROTOCOL
