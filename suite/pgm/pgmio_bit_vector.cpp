#include "pgmio_bit_vector.h"

#include "pgm_assert.h"

PGMIO_BIT_VECTOR::PGMIO_BIT_VECTOR(std::size_t bit_size) : m_bit_size(bit_size), m_bytes((bit_size + 7) / 8, 0) {}

bool PGMIO_BIT_VECTOR::get_bit(std::size_t index) const
{
    PGM_ASSERT(index < m_bit_size, "pgmio_bit_vector");
    return (m_bytes[index / 8] >> (index % 8)) & 1;
}

void PGMIO_BIT_VECTOR::set_bit(std::size_t index, bool value)
{
    PGM_ASSERT(index < m_bit_size, "pgmio_bit_vector");
    const unsigned char mask = static_cast<unsigned char>(1u << (index % 8));
    if (value)
        m_bytes[index / 8] |= mask;
    else
        m_bytes[index / 8] &= static_cast<unsigned char>(~mask);
}
