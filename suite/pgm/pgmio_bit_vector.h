// A configuration bit vector: a run of bits held in bytes, bit b being bit b % 8 of byte b / 8.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

class PGMIO_BIT_VECTOR {
public:
    // A vector of `bit_size` bits, all 0.
    explicit PGMIO_BIT_VECTOR(std::size_t bit_size = 0);
    PGMIO_BIT_VECTOR(const PGMIO_BIT_VECTOR& other);
    PGMIO_BIT_VECTOR& operator=(const PGMIO_BIT_VECTOR& other);
    PGMIO_BIT_VECTOR(PGMIO_BIT_VECTOR&& other) noexcept = default;
    PGMIO_BIT_VECTOR& operator=(PGMIO_BIT_VECTOR&& other) noexcept = default;

    std::size_t get_bit_size() const { return m_bit_size; }
    std::size_t get_byte_size() const { return (m_bit_size + 7) / 8; }
    // The vector's bytes; bits past the bit size in the last byte are 0.
    unsigned char* get_base_address() { return m_bytes.get(); }
    const unsigned char* get_base_address() const { return m_bytes.get(); }

    bool get_bit(std::size_t index) const;
    void set_bit(std::size_t index, bool value);

    bool operator==(const PGMIO_BIT_VECTOR& other) const;

private:
    struct BYTES_FREE {
        void operator()(unsigned char* bytes) const { std::free(bytes); }
    };

    std::size_t m_bit_size;
    std::unique_ptr<unsigned char[], BYTES_FREE> m_bytes;
};
