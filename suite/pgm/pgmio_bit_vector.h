// A configuration bit vector: a run of bits held in bytes, bit b being bit b % 8 of byte b / 8.
#pragma once

#include <cstddef>
#include <vector>

class PGMIO_BIT_VECTOR {
public:
    // A vector of `bit_size` bits, all 0.
    explicit PGMIO_BIT_VECTOR(std::size_t bit_size = 0);

    std::size_t get_bit_size() const { return m_bit_size; }
    std::size_t get_byte_size() const { return m_bytes.size(); }
    // The vector's bytes; bits past the bit size in the last byte are 0.
    unsigned char* get_base_address() { return m_bytes.data(); }
    const unsigned char* get_base_address() const { return m_bytes.data(); }

    bool get_bit(std::size_t index) const;
    void set_bit(std::size_t index, bool value);

    bool operator==(const PGMIO_BIT_VECTOR& other) const
    {
        return m_bit_size == other.m_bit_size && m_bytes == other.m_bytes;
    }

private:
    std::size_t m_bit_size;
    std::vector<unsigned char> m_bytes;
};
