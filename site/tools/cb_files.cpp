// The files the control-block tools read and write.
#include "cb_tools.h"

#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

const unsigned char SOF_MAGIC[8] = {'S', 'O', 'F', 'D', 'S', 'G', 'N', 0x1A};
const unsigned char IMAGE_MAGIC[8] = {'C', 'B', 'I', 'M', 'A', 'G', 'E', 0x1A};
constexpr std::size_t SOF_HEADER_BYTES = 64;
constexpr std::size_t IMAGE_HEADER_BYTES = 48;
constexpr std::size_t NAME_BYTES = 16;

std::string get_name(const unsigned char* p)
{
    return std::string(reinterpret_cast<const char*>(p), strnlen(reinterpret_cast<const char*>(p), NAME_BYTES));
}

std::uint32_t zlib_crc(const unsigned char* data, std::size_t bytes)
{
    return static_cast<std::uint32_t>(crc32_z(crc32(0L, Z_NULL, 0), data, bytes));
}

// Splits "key = value"; false for lines without "=".
bool split_setting(const std::string& line, std::string& key, std::string& value)
{
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos)
        return false;
    std::istringstream(line.substr(0, equals)) >> key;
    std::istringstream(line.substr(equals + 1)) >> value;
    return true;
}

bool is_comment_or_blank(const std::string& line)
{
    const std::size_t first = line.find_first_not_of(" \t\r");
    return first == std::string::npos || line[first] == '#';
}

// Appends the vectors the SOF's table lists to `stream`; the empty string when they fill the rest
// of the file exactly.
std::string collect_vectors(const std::vector<unsigned char>& file, std::vector<unsigned char>& stream)
{
    const std::uint32_t count = cb_get_le(file.data() + 44, 4);
    std::size_t offset = SOF_HEADER_BYTES + 16ull * count;
    if (count == 0 || offset > file.size())
        return "its vector table is damaged";
    for (std::uint32_t i = 0; i < count; ++i) {
        const unsigned char* entry = file.data() + SOF_HEADER_BYTES + 16 * i;
        const std::uint64_t bits = cb_get_le(entry, 4) | (std::uint64_t(cb_get_le(entry + 4, 4)) << 32);
        if (bits % 8 != 0 || cb_get_le(entry + 8, 4) != offset || cb_get_le(entry + 12, 4) != 0 ||
            bits / 8 > file.size() - offset)
            return "its vector table is damaged";
        stream.insert(stream.end(), file.begin() + offset, file.begin() + offset + bits / 8);
        offset += bits / 8;
    }
    if (offset != file.size())
        return "its size does not match its vector table";
    if (zlib_crc(stream.data(), stream.size()) != cb_get_le(file.data() + 48, 4))
        return "its checksum does not match";
    return std::string();
}

} // namespace

std::uint32_t cb_get_le(const unsigned char* p, int bytes)
{
    std::uint32_t value = 0;
    for (int i = bytes - 1; i >= 0; --i)
        value = (value << 8) | p[i];
    return value;
}

void cb_put_le(unsigned char* p, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i, value >>= 8)
        p[i] = static_cast<unsigned char>(value & 0xFF);
}

bool cb_read_file(const std::string& path, std::vector<unsigned char>& bytes)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    if (size < 0)
        return false;
    in.seekg(0);
    bytes.resize(static_cast<std::size_t>(size));
    return static_cast<bool>(in.read(reinterpret_cast<char*>(bytes.data()), size));
}

bool cb_write_file(const std::string& path, const void* data, std::size_t bytes)
{
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        return false;
    const bool written = std::fwrite(data, 1, bytes, file) == bytes;
    return std::fclose(file) == 0 && written;
}

bool cb_write_text(const std::string& path, const std::string& text)
{
    return cb_write_file(path, text.data(), text.size());
}

bool cb_read_sof(const std::string& path, CB_DESIGN& design, std::string& error)
{
    std::vector<unsigned char> file;
    if (!cb_read_file(path, file)) {
        error = "cannot read " + path;
        return false;
    }
    if (file.size() >= 3 && file[0] == 0x1F && file[1] == 0x8B && file[2] == 0x08)
        error = path + " is gzip-compressed; unpack it first";
    else if (file.size() < SOF_HEADER_BYTES || std::memcmp(file.data(), SOF_MAGIC, 8) != 0)
        error = path + " is not a SOF design file";
    else if (cb_get_le(file.data() + 8, 2) != 1 || cb_get_le(file.data() + 10, 2) != SOF_HEADER_BYTES)
        error = path + " has an unsupported SOF format";
    else if (std::string problem = collect_vectors(file, design.stream); !problem.empty())
        error = path + ": " + problem;
    if (!error.empty())
        return false;
    design.family = get_name(file.data() + 12);
    design.die = get_name(file.data() + 28);
    return true;
}

bool cb_write_image(const std::string& path, const CB_IMAGE& image)
{
    std::vector<unsigned char> file(IMAGE_HEADER_BYTES, 0);
    std::memcpy(file.data(), IMAGE_MAGIC, 8);
    cb_put_le(file.data() + 8, 1, 2);
    cb_put_le(file.data() + 10, IMAGE_HEADER_BYTES, 2);
    std::memcpy(file.data() + 12, image.die.data(), std::min(image.die.size(), NAME_BYTES));
    cb_put_le(file.data() + 28, static_cast<std::uint32_t>(image.stream_bytes), 4);
    cb_put_le(file.data() + 32, static_cast<std::uint32_t>(image.body.size()), 4);
    cb_put_le(file.data() + 36, zlib_crc(image.body.data(), image.body.size()), 4);
    file.insert(file.end(), image.body.begin(), image.body.end());
    return cb_write_file(path, file.data(), file.size());
}

bool cb_read_image(const std::string& path, CB_IMAGE& image, std::string& error)
{
    std::vector<unsigned char> file;
    if (!cb_read_file(path, file))
        error = "cannot read image " + path;
    else if (file.size() < IMAGE_HEADER_BYTES || std::memcmp(file.data(), IMAGE_MAGIC, 8) != 0)
        error = path + " is not an image file";
    else if (cb_get_le(file.data() + 8, 2) != 1 || cb_get_le(file.data() + 10, 2) != IMAGE_HEADER_BYTES)
        error = path + " has an unsupported image format";
    else if (cb_get_le(file.data() + 32, 4) != file.size() - IMAGE_HEADER_BYTES ||
             zlib_crc(file.data() + IMAGE_HEADER_BYTES, file.size() - IMAGE_HEADER_BYTES) !=
                 cb_get_le(file.data() + 36, 4))
        error = path + " is damaged";
    if (!error.empty())
        return false;
    image.die = get_name(file.data() + 12);
    image.stream_bytes = cb_get_le(file.data() + 28, 4);
    image.body.assign(file.begin() + IMAGE_HEADER_BYTES, file.end());
    return true;
}

std::string cb_rif_text(const CB_DIE& die, const CB_FUSES& fuses)
{
    std::ostringstream text;
    text << "# Redundancy information of die " << die.die << ": fuses of repaired core frames.\n";
    text << "DIE " << die.die << "\n";
    char line[48];
    for (const auto& fuse : fuses) {
        std::snprintf(line, sizeof line, "FUSE %zu %04X\n", fuse.first, fuse.second);
        text << line;
    }
    return text.str();
}

bool cb_read_rif(const std::string& path, const CB_DIE& die, CB_FUSES& fuses, std::string& error)
{
    std::ifstream in(path);
    if (!in) {
        error = "cannot read redundancy file " + path;
        return false;
    }
    const std::size_t core_frames = std::size_t(die.core_sections) * die.core_frames;
    std::string line, die_name;
    for (unsigned number = 1; std::getline(in, line); ++number) {
        if (is_comment_or_blank(line))
            continue;
        std::istringstream fields(line);
        std::string keyword;
        fields >> keyword;
        std::size_t frame = 0;
        unsigned word = 0;
        const bool named = keyword == "DIE" && die_name.empty() && (fields >> die_name);
        const bool fuse = keyword == "FUSE" && !die_name.empty() && (fields >> frame >> std::hex >> word) &&
                          frame < core_frames && word <= 0xFFFF;
        if (!named && !fuse) {
            error = path + ":" + std::to_string(number) + ": bad line \"" + line + "\"";
            return false;
        }
        if (fuse)
            fuses[frame] = static_cast<std::uint16_t>(word);
    }
    if (cb_find_die(die_name) != &die) {
        error = path + " is not the redundancy file of " + die.die;
        return false;
    }
    return true;
}

std::string cb_model_text(const CB_DIE& die)
{
    std::ostringstream text;
    text << "# Control-block model of die " << die.die << " for the ICD emulator.\n";
    if (*die.note != '\0')
        text << "# Note: " << die.note << ".\n";
    char seed[16];
    std::snprintf(seed, sizeof seed, "%08X", die.edcrc_seed);
    text << "die = " << die.die << "\n"
         << "family = " << die.family << "\n"
         << "edcrc_seed = " << seed << "\n"
         << "redundancy = " << (die.redundancy ? "yes" : "no") << "\n";
    return text.str();
}

bool cb_read_model(const std::string& path, CB_MODEL& model, std::string& error)
{
    std::ifstream in(path);
    if (!in) {
        error = "cannot read model " + path;
        return false;
    }
    std::map<std::string, std::string> settings;
    std::string line, key, value;
    while (std::getline(in, line))
        if (!is_comment_or_blank(line) && split_setting(line, key, value))
            settings[key] = value;
    const char* const keys[] = {"die", "family", "edcrc_seed", "redundancy"};
    for (const char* required : keys)
        if (settings[required].empty()) {
            error = path + " does not give " + required;
            return false;
        }
    char* end = nullptr;
    const unsigned long seed = std::strtoul(settings["edcrc_seed"].c_str(), &end, 16);
    if (*end != '\0' || seed > 0xFFFFFFFFul || (settings["redundancy"] != "yes" && settings["redundancy"] != "no")) {
        error = path + " has a bad edcrc_seed or redundancy";
        return false;
    }
    model.die = settings["die"];
    model.family = settings["family"];
    model.edcrc_seed = static_cast<std::uint32_t>(seed);
    model.redundancy = settings["redundancy"] == "yes";
    return true;
}
