// Helpers of the programmer library that other suite components share.
#pragma once

#include <cstddef>
#include <cstdint>

class PGM_COMMON {
public:
    // CRC-16 of the `bits` bits of `data` that start at bit `start` (bit b is bit b % 8 of byte
    // b / 8), fed least significant bit first into a reflected register: `poly` is the reflected
    // polynomial (0xA001 for x^16 + x^15 + x^2 + 1), `init` the register's first value, and there
    // is no final inversion. With `init` 0 the CRC is linear in the data: flipping bits changes it
    // by the XOR of the flipped bits' single contributions, which the bitstream checker relies on.
    static std::uint16_t calculate_crc16(const unsigned char* data, std::size_t start, std::size_t bits,
                                         std::uint16_t init, std::uint16_t poly);
};
