// The SOF design file: the configuration bit vectors of one design for one die.
//
// Format version 1; every number is little-endian.
//
//   offset    size    field
//   0         8       magic: the bytes "SOFDSGN" and 0x1A
//   8         2       format version (1)
//   10        2       header size in bytes (64): offset of the vector table
//   12        16      family key, ASCII, padded with NUL bytes
//   28        16      die name, ASCII, padded with NUL bytes
//   44        4       number n of configuration bit vectors (1 .. 64)
//   48        4       CRC-32 of all vector bytes in table order (the CRC of gzip and zlib)
//   52        12      reserved, 0
//   64        16 * n  vector table, one entry per vector:
//                       +0  8  bit size
//                       +8  8  file offset of the vector's bytes
//   64 + 16n  ...     the vectors' bytes, ceil(bit size / 8) each, in table order without gaps;
//                     the file ends with the last vector
//
// Within a vector, bit b is bit b % 8 of byte b / 8; unused bits of a last byte are 0.
// Design files are often stored gzip-compressed; unpacking them is the caller's business, and a
// compressed file is reported as such rather than read.
#pragma once

#include "pgmio_bit_vector.h"

#include <string>
#include <vector>

struct PGM_SOF_DESIGN {
    std::string family;
    std::string die;
    std::vector<PGMIO_BIT_VECTOR> vectors;
};

constexpr unsigned PGM_SOF_VERSION = 1;

// Reads a design file. False when it cannot be read or is not a version-1 design file; `error`
// then says why.
bool pgm_sof_read(const std::string& path, PGM_SOF_DESIGN& design, std::string& error);

// Writes a design file; false when the file cannot be written.
bool pgm_sof_write(const std::string& path, const PGM_SOF_DESIGN& design);
