// Designs as the programmer sees them: the configuration bit vectors of a die, one per block of
// the device's section tree (pgm_pcf.h), and the checks a design must pass before it is
// programmed. The suite's compiler side makes designs here too, which is how sample releases and
// tests get their design files.
//
// Option block (the first 64 bytes of the stream), little-endian:
//   offset  size  field
//   0       4     sync word 0x5A0FC3A5
//   4       4     IDCODE of the die
//   8       4     bytes of the whole configuration stream
//   12      4     option bits
//   16      4     user code
//   20      44    reserved, 0
#pragma once

#include "pgm_device.h"
#include "pgm_sof.h"

#include <cstdint>
#include <string>
#include <vector>

constexpr std::uint32_t PGM_OPTION_SYNC_WORD = 0x5A0FC3A5u;
constexpr std::size_t PGM_OPTION_BITS_OFFSET = 12;

// A design for `device` whose contents `seed` chooses (the same seed gives the same design).
// Frames carry their address and CRC-16; the fields the control block fills in are left 0.
PGM_SOF_DESIGN pgm_compile_design(const PGM_DEVICE& device, std::uint32_t seed);

// Why `vectors` cannot be programmed into `device` (wrong shape, option block, a frame whose
// CRC-16 does not match or whose control-block field is not 0); empty when they can.
std::string pgm_check_design(const PGM_DEVICE& device, const std::vector<PGMIO_BIT_VECTOR>& vectors);

// The option bits of a design that passed pgm_check_design.
std::uint32_t pgm_get_option_bits(const std::vector<PGMIO_BIT_VECTOR>& vectors);
