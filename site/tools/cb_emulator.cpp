// ICD control-block emulator: expands a die's image into the configuration data its control block
// loads, and writes that data as a DAT file of 16-bit words for the POF checker.
//
//   pgm_cb_emulator --model <file> [--name <text>] -o <base> -m3 -img <img> [-rif <rif>]
//
// Each die's emulator build is a script named after the die in that die's tool directory; it
// passes the model file beside it and its own path as --name. Mode 3 (full emulation) is the one
// this build has. Writes <base>.dat and the intermediate files <base>.cram (the loaded
// configuration RAM, binary), .redfuses (redundancy fuses applied), .s4_debug (one line per
// frame), .s4_info (summary), .option_bits_out (the option block's fields) and .cff (the frame
// program). The last line printed is always "End of running " and the name, which is what the
// remote scripts wait for. Exit status 0 on success, 1 for a usage error, 2 on failure.
//
// DAT format: text lines of at most 63 characters. Lines starting with "//" are comments; each
// other line is one 16-bit word as four upper-case hexadecimal digits, optionally followed by a
// blank and a "//" comment. Word i is bytes 2i (low) and 2i+1 (high) of the configuration data, so
// "ABCD" stands for the bytes 0xCD, 0xAB. A comment line names each segment before its first word.
#include "cb_tools.h"

#include <algorithm>
#include <cstdio>
#include <strings.h>

namespace {

struct ARGUMENTS {
    std::string model;
    std::string name;
    std::string base;
    std::string img;
    std::string rif;
    std::string mode;
};

bool parse_arguments(int argc, char** argv, ARGUMENTS& arguments)
{
    const std::pair<const char*, std::string ARGUMENTS::*> options[] = {
        {"--model", &ARGUMENTS::model}, {"--name", &ARGUMENTS::name}, {"-o", &ARGUMENTS::base},
        {"-img", &ARGUMENTS::img},      {"-rif", &ARGUMENTS::rif}};
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        bool known = false;
        for (const auto& option : options)
            if (argument == option.first && i + 1 < argc) {
                arguments.*option.second = argv[++i];
                known = true;
            }
        if (!known && argument.compare(0, 2, "-m") == 0 && argument.size() > 2) {
            arguments.mode = argument.substr(2);
            known = true;
        }
        if (!known)
            return false;
    }
    return !arguments.model.empty() && !arguments.base.empty() && !arguments.img.empty() && !arguments.mode.empty();
}

struct FRAME_RECORD {
    std::size_t frame;
    const CB_SEGMENT* segment;
    std::uint32_t edcrc;
    std::uint16_t core_word;
    std::uint16_t crc16;
};

class EMULATION {
public:
    EMULATION(const CB_DIE& die, const CB_MODEL& model, const CB_FUSES& fuses)
        : m_die(die), m_model(model), m_fuses(fuses), m_segments(cb_segments(die))
    {
    }

    std::string run(const CB_IMAGE& image);
    std::string write_outputs(const std::string& base) const;

private:
    void seal_frame(unsigned char* frame, const CB_SEGMENT& segment);
    bool write_dat(const std::string& path) const;
    std::string debug_text() const;
    std::string info_text() const;
    std::string option_text() const;
    std::string frame_program_text() const;
    std::string fuse_text() const;

    const CB_DIE& m_die;
    const CB_MODEL& m_model;
    const CB_FUSES& m_fuses;
    std::vector<CB_SEGMENT> m_segments;
    std::vector<unsigned char> m_cram;
    std::vector<FRAME_RECORD> m_frames;
    std::size_t m_core_frames = 0;
    std::size_t m_repaired = 0;
};

std::string hex(std::uint32_t value, int digits)
{
    char text[12];
    std::snprintf(text, sizeof text, "%0*X", digits, value);
    return text;
}

std::string EMULATION::run(const CB_IMAGE& image)
{
    m_cram.assign(cb_stream_bytes(m_die), 0);
    if (image.stream_bytes != m_cram.size())
        return "the image expands to " + std::to_string(image.stream_bytes) + " bytes; " + m_die.die + " takes " +
               std::to_string(m_cram.size());
    const unsigned char* in = image.body.data();
    const unsigned char* const in_end = in + image.body.size();
    for (const CB_SEGMENT& segment : m_segments) {
        const std::size_t frame_bytes = segment.frame_bits == 0 ? segment.bytes : segment.frame_bits / 8;
        const std::size_t loaded = segment.frame_bits == 0 ? frame_bytes : frame_bytes - 2;
        for (std::size_t offset = 0; offset < segment.bytes; offset += frame_bytes, in += loaded) {
            if (static_cast<std::size_t>(in_end - in) < loaded)
                return "the image is shorter than " + std::string(m_die.die) + " needs";
            unsigned char* out = m_cram.data() + segment.start + offset;
            std::copy(in, in + loaded, out);
            if (segment.frame_bits != 0)
                seal_frame(out, segment);
        }
    }
    if (in != in_end)
        return "the image is longer than " + std::string(m_die.die) + " needs";
    if (cb_get_le(m_cram.data(), 4) != CB_SYNC_WORD)
        return "the image's option block has no sync word";
    return std::string();
}

void EMULATION::seal_frame(unsigned char* frame, const CB_SEGMENT& segment)
{
    const std::size_t bytes = segment.frame_bits / 8;
    FRAME_RECORD record{m_frames.size(), &segment, 0, 0, 0};
    if (segment.type == CB_PERIPHERY) {
        record.edcrc = cb_edcrc(frame + 4, (bytes - 12) / 4, m_model.edcrc_seed);
        cb_put_le(frame + bytes - 8, record.edcrc, 4);
    } else {
        unsigned word = 0;
        for (std::size_t i = 0; i + 4 < bytes; i += 2)
            word ^= cb_get_le(frame + i, 2);
        const auto fuse = m_fuses.find(m_core_frames++);
        if (fuse != m_fuses.end()) {
            word ^= fuse->second;
            ++m_repaired;
        }
        cb_put_le(frame + bytes - 4, word, 2);
    }
    record.core_word = static_cast<std::uint16_t>(cb_get_le(frame + bytes - 4, 2));
    record.crc16 = cb_frame_crc16(frame, bytes - 2);
    cb_put_le(frame + bytes - 2, record.crc16, 2);
    m_frames.push_back(record);
}

bool EMULATION::write_dat(const std::string& path) const
{
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr)
        return false;
    static const char DIGITS[] = "0123456789ABCDEF";
    std::string text = "// ICD control block data\n// die " + std::string(m_die.die) + ", " +
                       std::to_string(m_cram.size() / 2) + " words\n";
    std::size_t next_segment = 0;
    for (std::size_t i = 0; i < m_cram.size(); i += 2) {
        if (next_segment < m_segments.size() && m_segments[next_segment].start == i) {
            const CB_SEGMENT& segment = m_segments[next_segment++];
            text += "// " + segment.name + ", bytes " + std::to_string(segment.start) + ".." +
                    std::to_string(segment.start + segment.bytes - 1) + "\n";
        }
        if (text.size() >= (1u << 20)) {
            std::fwrite(text.data(), 1, text.size(), file);
            text.clear();
        }
        const unsigned word = m_cram[i] | (m_cram[i + 1] << 8);
        const char line[5] = {DIGITS[word >> 12], DIGITS[(word >> 8) & 15], DIGITS[(word >> 4) & 15],
                              DIGITS[word & 15], '\n'};
        text.append(line, 5);
    }
    text.insert(text.size() - 1, " // end of data");
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && written;
}

std::string EMULATION::debug_text() const
{
    std::string text = "# frame  segment    edcrc     core  crc16\n";
    char line[80];
    for (const FRAME_RECORD& record : m_frames) {
        std::snprintf(line, sizeof line, "%7zu  %-9s  %s  %04X  %04X\n", record.frame, record.segment->name.c_str(),
                      record.segment->type == CB_PERIPHERY ? hex(record.edcrc, 8).c_str() : "--------",
                      record.core_word, record.crc16);
        text += line;
    }
    return text;
}

std::string EMULATION::info_text() const
{
    return "die = " + std::string(m_die.die) + "\nfamily = " + m_die.family +
           "\nedcrc_seed = " + hex(m_model.edcrc_seed, 8) + "\nstream_bytes = " + std::to_string(m_cram.size()) +
           "\nwords = " + std::to_string(m_cram.size() / 2) +
           "\nperiphery_frames = " + std::to_string(m_frames.size() - m_core_frames) +
           "\ncore_frames = " + std::to_string(m_core_frames) + "\nrepaired_core_frames = " +
           std::to_string(m_repaired) + "\n";
}

std::string EMULATION::option_text() const
{
    return "idcode = " + hex(cb_get_le(m_cram.data() + 4, 4), 8) +
           "\noption_bits = " + hex(cb_get_le(m_cram.data() + 12, 4), 8) +
           "\nuser_code = " + hex(cb_get_le(m_cram.data() + 16, 4), 8) + "\n";
}

std::string EMULATION::frame_program_text() const
{
    std::string text = "# Frame program of " + std::string(m_die.die) + ": what the control block loads, in order.\n";
    for (const CB_SEGMENT& segment : m_segments) {
        text += "LOAD type " + std::to_string(segment.type) + " start " + std::to_string(segment.start) + " bytes " +
                std::to_string(segment.bytes);
        if (segment.frame_bits != 0)
            text += " frames " + std::to_string(segment.bytes * 8 / segment.frame_bits) + " frame_bits " +
                    std::to_string(segment.frame_bits) + (segment.type == CB_PERIPHERY ? " fill edcrc" : " fill core");
        text += "  # " + segment.name + "\n";
    }
    return text;
}

std::string EMULATION::fuse_text() const
{
    if (!m_model.redundancy)
        return "# " + std::string(m_die.die) + " has no redundancy\n";
    std::string text = "# core frame  fuse\n";
    for (const auto& fuse : m_fuses)
        text += std::to_string(fuse.first) + " " + hex(fuse.second, 4) + "\n";
    return text;
}

// The DAT file appears complete or not at all: the POF checker polls for it while we write.
std::string EMULATION::write_outputs(const std::string& base) const
{
    const std::pair<const char*, std::string> texts[] = {
        {".redfuses", fuse_text()},     {".s4_debug", debug_text()},         {".s4_info", info_text()},
        {".option_bits_out", option_text()}, {".cff", frame_program_text()}};
    if (!cb_write_file(base + ".cram", m_cram.data(), m_cram.size()))
        return "cannot write " + base + ".cram";
    for (const auto& text : texts)
        if (!cb_write_text(base + text.first, text.second))
            return "cannot write " + base + text.first;
    const std::string part = base + ".dat.part";
    if (!write_dat(part) || std::rename(part.c_str(), (base + ".dat").c_str()) != 0) {
        std::remove(part.c_str());
        return "cannot write " + base + ".dat";
    }
    return std::string();
}

std::string load_fuses(const ARGUMENTS& arguments, const CB_MODEL& model, const CB_DIE& die, CB_FUSES& fuses)
{
    if (model.redundancy && arguments.rif.empty())
        return std::string(die.die) + " needs its redundancy file (-rif)";
    if (!model.redundancy && !arguments.rif.empty())
        return std::string(die.die) + " has no redundancy; -rif does not apply";
    std::string error;
    if (model.redundancy && !cb_read_rif(arguments.rif, die, fuses, error))
        return error;
    return std::string();
}

std::string emulate(const ARGUMENTS& arguments)
{
    if (arguments.mode != "3")
        return "mode " + arguments.mode + " is not supported; use -m3";
    CB_MODEL model;
    CB_IMAGE image;
    std::string error;
    if (!cb_read_model(arguments.model, model, error) || !cb_read_image(arguments.img, image, error))
        return error;
    const CB_DIE* die = cb_find_die(model.die);
    if (die == nullptr || strcasecmp(die->family, model.family.c_str()) != 0)
        return "the model describes an unknown die " + model.die + " of " + model.family;
    if (strcasecmp(image.die.c_str(), die->die) != 0)
        return arguments.img + " is an image for " + image.die + "; this emulator is built for " + die->die;
    CB_FUSES fuses;
    error = load_fuses(arguments, model, *die, fuses);
    if (!error.empty())
        return error;
    EMULATION emulation(*die, model, fuses);
    error = emulation.run(image);
    if (error.empty())
        error = emulation.write_outputs(arguments.base);
    if (error.empty())
        std::printf("ICD data of %s written to %s.dat\n", die->die, arguments.base.c_str());
    return error;
}

} // namespace

int main(int argc, char** argv)
{
    ARGUMENTS arguments;
    const bool parsed = parse_arguments(argc, argv, arguments);
    const std::string name = arguments.name.empty() ? argv[0] : arguments.name;
    int status = 0;
    if (!parsed) {
        std::fprintf(stderr, "usage: %s -o <base> -m3 -img <img> [-rif <rif>]\n", name.c_str());
        status = 1;
    } else if (const std::string error = emulate(arguments); !error.empty()) {
        std::fprintf(stderr, "ICD emulator: error: %s\n", error.c_str());
        status = 2;
    }
    std::fflush(stderr);
    std::printf("End of running %s\n", name.c_str());
    return status;
}
