#include "pgm_sof.h"

#include "pgm_assert.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/stat.h>

namespace {

constexpr char MAGIC[8] = {'S', 'O', 'F', 'D', 'S', 'G', 'N', 0x1A};
constexpr std::size_t HEADER_BYTES = 64;
constexpr std::size_t NAME_BYTES = 16;
constexpr std::size_t TABLE_ENTRY_BYTES = 16;
constexpr unsigned MAX_VECTORS = 64;
constexpr std::size_t READ_CHUNK_BYTES = std::size_t(1) << 20;

struct FILE_CLOSER {
    void operator()(FILE* file) const { std::fclose(file); }
};
typedef std::unique_ptr<FILE, FILE_CLOSER> FILE_HANDLE;

std::uint64_t get_le(const unsigned char* p, int bytes)
{
    std::uint64_t value = 0;
    for (int i = bytes - 1; i >= 0; --i)
        value = (value << 8) | p[i];
    return value;
}

void put_le(unsigned char* p, std::uint64_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i, value >>= 8)
        p[i] = static_cast<unsigned char>(value & 0xFF);
}

std::string get_name(const unsigned char* p)
{
    return std::string(reinterpret_cast<const char*>(p), strnlen(reinterpret_cast<const char*>(p), NAME_BYTES));
}

bool all_zero(const unsigned char* p, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        if (p[i] != 0)
            return false;
    return true;
}

// Checks the fixed header; empty when it is a version-1 design file header.
std::string check_header(const unsigned char* header, std::size_t file_size)
{
    if (file_size >= 3 && header[0] == 0x1F && header[1] == 0x8B && header[2] == 0x08)
        return "the file is gzip-compressed";
    if (file_size < HEADER_BYTES || std::memcmp(header, MAGIC, sizeof MAGIC) != 0)
        return "not a design file";
    const unsigned version = static_cast<unsigned>(get_le(header + 8, 2));
    if (version != PGM_SOF_VERSION)
        return "unsupported design file version " + std::to_string(version);
    if (get_le(header + 10, 2) != HEADER_BYTES || !all_zero(header + 52, 12))
        return "damaged design file header";
    const std::uint64_t count = get_le(header + 44, 4);
    if (count == 0 || count > MAX_VECTORS)
        return "bad number of bit vectors";
    return std::string();
}

// Makes the vectors the table describes; empty when they follow one another without gaps and end
// exactly where the file does. Sizes are checked against the file before anything is allocated.
std::string read_table(const unsigned char* table, std::size_t count, std::size_t file_size,
                       std::vector<PGMIO_BIT_VECTOR>& vectors)
{
    std::vector<std::uint64_t> bit_sizes;
    std::uint64_t end = HEADER_BYTES + count * TABLE_ENTRY_BYTES;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t bits = get_le(table + i * TABLE_ENTRY_BYTES, 8);
        if (get_le(table + i * TABLE_ENTRY_BYTES + 8, 8) != end)
            return "damaged bit vector table";
        if (bits / 8 > file_size)
            return "the file is truncated";
        bit_sizes.push_back(bits);
        end += (bits + 7) / 8;
    }
    if (end != file_size)
        return end < file_size ? "unexpected bytes after the last bit vector" : "the file is truncated";
    for (std::uint64_t bits : bit_sizes)
        vectors.emplace_back(static_cast<std::size_t>(bits));
    return std::string();
}

std::string read_vectors(FILE* file, const unsigned char* header, std::vector<PGMIO_BIT_VECTOR>& vectors)
{
    uLong crc = crc32(0L, Z_NULL, 0);
    for (PGMIO_BIT_VECTOR& vector : vectors) {
        unsigned char* bytes = vector.get_base_address();
        const std::size_t size = vector.get_byte_size();
        // The checksum follows the reading chunk by chunk, while each chunk is still in cache.
        for (std::size_t offset = 0; offset < size; offset += READ_CHUNK_BYTES) {
            const std::size_t chunk = std::min(READ_CHUNK_BYTES, size - offset);
            if (std::fread(bytes + offset, 1, chunk, file) != chunk)
                return "the file is truncated";
            crc = crc32_z(crc, bytes + offset, chunk);
        }
        const unsigned unused = static_cast<unsigned>(size * 8 - vector.get_bit_size());
        if (unused > 0 && (bytes[size - 1] >> (8 - unused)) != 0)
            return "bits set beyond the end of a bit vector";
    }
    if (crc != get_le(header + 48, 4))
        return "checksum mismatch";
    return std::string();
}

} // namespace

bool pgm_sof_read(const std::string& path, PGM_SOF_DESIGN& design, std::string& error)
{
    design = PGM_SOF_DESIGN();
    FILE_HANDLE file(std::fopen(path.c_str(), "rb"));
    struct stat status;
    if (!file || fstat(fileno(file.get()), &status) != 0 || !S_ISREG(status.st_mode)) {
        error = "cannot open the file";
        return false;
    }
    const std::size_t file_size = static_cast<std::size_t>(status.st_size);
    std::array<unsigned char, HEADER_BYTES> header{};
    const std::size_t header_read = std::fread(header.data(), 1, HEADER_BYTES, file.get());
    error = check_header(header.data(), header_read);
    if (error.empty()) {
        const std::size_t count = static_cast<std::size_t>(get_le(header.data() + 44, 4));
        std::vector<unsigned char> table(count * TABLE_ENTRY_BYTES);
        if (std::fread(table.data(), 1, table.size(), file.get()) != table.size())
            error = "the file is truncated";
        else
            error = read_table(table.data(), count, file_size, design.vectors);
    }
    if (error.empty())
        error = read_vectors(file.get(), header.data(), design.vectors);
    if (!error.empty()) {
        design = PGM_SOF_DESIGN();
        return false;
    }
    design.family = get_name(header.data() + 12);
    design.die = get_name(header.data() + 28);
    return true;
}

bool pgm_sof_write(const std::string& path, const PGM_SOF_DESIGN& design)
{
    PGM_ASSERT(!design.vectors.empty() && design.vectors.size() <= MAX_VECTORS, "pgm_sof");
    PGM_ASSERT(design.family.size() <= NAME_BYTES && design.die.size() <= NAME_BYTES, "pgm_sof");
    const std::size_t count = design.vectors.size();
    std::vector<unsigned char> head(HEADER_BYTES + count * TABLE_ENTRY_BYTES, 0);
    std::memcpy(head.data(), MAGIC, sizeof MAGIC);
    put_le(head.data() + 8, PGM_SOF_VERSION, 2);
    put_le(head.data() + 10, HEADER_BYTES, 2);
    std::memcpy(head.data() + 12, design.family.data(), design.family.size());
    std::memcpy(head.data() + 28, design.die.data(), design.die.size());
    put_le(head.data() + 44, count, 4);
    uLong crc = crc32(0L, Z_NULL, 0);
    std::uint64_t offset = head.size();
    for (std::size_t i = 0; i < count; ++i) {
        const PGMIO_BIT_VECTOR& vector = design.vectors[i];
        put_le(head.data() + HEADER_BYTES + i * TABLE_ENTRY_BYTES, vector.get_bit_size(), 8);
        put_le(head.data() + HEADER_BYTES + i * TABLE_ENTRY_BYTES + 8, offset, 8);
        offset += vector.get_byte_size();
        crc = crc32_z(crc, vector.get_base_address(), vector.get_byte_size());
    }
    put_le(head.data() + 48, crc, 4);

    FILE_HANDLE file(std::fopen(path.c_str(), "wb"));
    if (!file || std::fwrite(head.data(), 1, head.size(), file.get()) != head.size())
        return false;
    for (const PGMIO_BIT_VECTOR& vector : design.vectors)
        if (std::fwrite(vector.get_base_address(), 1, vector.get_byte_size(), file.get()) != vector.get_byte_size())
            return false;
    return std::fclose(file.release()) == 0;
}
