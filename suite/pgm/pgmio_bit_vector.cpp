#include "pgmio_bit_vector.h"

#include "pgm_assert.h"

#include <algorithm>
#include <cstring>
#include <sys/mman.h>

namespace {

constexpr std::size_t HUGE_PAGE_BYTES = std::size_t(2) << 20;

// Designs of tens of megabytes are read into these vectors; backing large ones with huge pages
// saves the thousands of page faults that otherwise cost more than reading the file.
unsigned char* allocate_zeroed(std::size_t bytes)
{
    void* memory = nullptr;
    if (bytes < HUGE_PAGE_BYTES) {
        memory = std::calloc(std::max<std::size_t>(bytes, 1), 1);
    } else {
        const std::size_t rounded = (bytes + HUGE_PAGE_BYTES - 1) / HUGE_PAGE_BYTES * HUGE_PAGE_BYTES;
        memory = std::aligned_alloc(HUGE_PAGE_BYTES, rounded);
        if (memory != nullptr) {
            madvise(memory, rounded, MADV_HUGEPAGE);
            std::memset(memory, 0, bytes);
        }
    }
    if (memory == nullptr)
        MSG_INTERNAL_ERROR::report("out of memory", "PGM", "pgmio_bit_vector", __LINE__);
    return static_cast<unsigned char*>(memory);
}

} // namespace

PGMIO_BIT_VECTOR::PGMIO_BIT_VECTOR(std::size_t bit_size)
    : m_bit_size(bit_size), m_bytes(allocate_zeroed(get_byte_size()))
{
}

PGMIO_BIT_VECTOR::PGMIO_BIT_VECTOR(const PGMIO_BIT_VECTOR& other) : PGMIO_BIT_VECTOR(other.m_bit_size)
{
    std::memcpy(m_bytes.get(), other.m_bytes.get(), get_byte_size());
}

PGMIO_BIT_VECTOR& PGMIO_BIT_VECTOR::operator=(const PGMIO_BIT_VECTOR& other)
{
    if (this != &other)
        *this = PGMIO_BIT_VECTOR(other);
    return *this;
}

bool PGMIO_BIT_VECTOR::operator==(const PGMIO_BIT_VECTOR& other) const
{
    return m_bit_size == other.m_bit_size && std::memcmp(m_bytes.get(), other.m_bytes.get(), get_byte_size()) == 0;
}

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
