// wvf2vcd: converts a trace of the debug IP (".wvf") into a Value Change Dump that third-party
// waveform viewers read. One wire per single-bit signal, one vector per bus (or, with -s, each
// bus as single-bit wires for readers without vector support), one time step per sample; the
// same writer as the viewer's "Export VCD...". It reads the file on its own terms and refuses
// anything that is not a complete trace with a message and exit status 1 (usage errors 2),
// writing nothing.
//
//   wvf2vcd [-s] [-t TIMESCALE] INPUT.wvf [OUTPUT.vcd]   (standard output when OUTPUT is omitted)
//
// A ".wvf" file: width (32 bits, 37), depth (32 bits, at least 1), depth samples of 5 bytes
// (sample bit b is bit b % 8 of byte b / 8), then the 32-bit sum of all preceding bytes; all
// little-endian.
#include "pgmdq_debug_waveform_viewer_vcd.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const unsigned SAMPLE_BITS = PGMDQ_SFL_DEBUG_SIZE;
const unsigned SAMPLE_BYTES = 5;
const std::uint64_t HEADER_BYTES = 8;
const std::uint64_t SIGNATURE_BYTES = 4;

class NOT_A_TRACE : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::uint32_t dword(const std::vector<unsigned char>& bytes, std::uint64_t offset)
{
    return std::uint32_t(bytes[offset]) | std::uint32_t(bytes[offset + 1]) << 8 |
           std::uint32_t(bytes[offset + 2]) << 16 | std::uint32_t(bytes[offset + 3]) << 24;
}

struct TRACE {
    std::uint32_t depth = 0;
    std::vector<std::uint64_t> samples;
};

TRACE read_trace(const std::string& path)
{
    std::ifstream input(path, std::ios::binary);
    if (!input)
        throw NOT_A_TRACE("cannot be read");
    const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
    if (bytes.size() < HEADER_BYTES + SAMPLE_BYTES + SIGNATURE_BYTES)
        throw NOT_A_TRACE("too short (" + std::to_string(bytes.size()) + " bytes) to hold one sample");
    const std::uint32_t width = dword(bytes, 0);
    if (width != SAMPLE_BITS)
        throw NOT_A_TRACE("sample width is " + std::to_string(width) + " bits, expected 37");
    TRACE trace;
    trace.depth = dword(bytes, 4);
    const std::uint64_t expected_size = HEADER_BYTES + std::uint64_t(trace.depth) * SAMPLE_BYTES + SIGNATURE_BYTES;
    if (trace.depth == 0 || bytes.size() != expected_size)
        throw NOT_A_TRACE("size " + std::to_string(bytes.size()) + " does not match the " +
                          std::to_string(trace.depth) + " samples it declares");
    std::uint32_t sum = 0;
    for (std::uint64_t i = 0; i + SIGNATURE_BYTES < bytes.size(); ++i)
        sum += bytes[i];
    if (sum != dword(bytes, bytes.size() - SIGNATURE_BYTES))
        throw NOT_A_TRACE("signature does not match its contents");

    trace.samples.resize(trace.depth);
    for (std::uint32_t i = 0; i < trace.depth; ++i)
        for (unsigned byte = 0; byte < SAMPLE_BYTES; ++byte)
            trace.samples[i] |= std::uint64_t(bytes[HEADER_BYTES + std::uint64_t(i) * SAMPLE_BYTES + byte]) << (8 * byte);
    return trace;
}

bool write_vcd(const TRACE& trace, const PGMDQ_VCD_OPTIONS& options, std::ostream& out)
{
    return pgmdq_write_vcd(trace.samples.data(), trace.depth, PGMDQ_SFL_DEBUG_SIGNALS, options,
                           [&out](const char* data, std::size_t size) {
                               return bool(out.write(data, std::streamsize(size)));
                           });
}

int usage()
{
    std::cerr << "usage: wvf2vcd [-s] [-t TIMESCALE] INPUT.wvf [OUTPUT.vcd]\n"
                 "  -s         write each bus as single-bit wires \"name [k]\" instead of one vector\n"
                 "  TIMESCALE: 1, 10 or 100 followed by s, ms, us, ns, ps or fs (default 1ns)\n";
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    PGMDQ_VCD_OPTIONS options;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-t") == 0 && i + 1 < argc)
            options.timescale = argv[++i];
        else if (std::strcmp(argv[i], "-s") == 0 || std::strcmp(argv[i], "--split-buses") == 0)
            options.split_buses = true;
        else if (argv[i][0] == '-')
            return usage();
        else
            files.push_back(argv[i]);
    }
    if (files.empty() || files.size() > 2 || !pgmdq_vcd_valid_timescale(options.timescale))
        return usage();

    TRACE trace;
    try {
        trace = read_trace(files[0]);
    } catch (const NOT_A_TRACE& error) {
        std::cerr << "wvf2vcd: " << files[0] << ": not a valid waveform trace: " << error.what() << '\n';
        return 1;
    }
    options.comment = "converted from " + files[0] + " by wvf2vcd";
    if (files.size() == 1)
        return write_vcd(trace, options, std::cout) && std::cout.flush() ? 0 : 1;
    std::ofstream output(files[1], std::ios::trunc);
    const bool written = write_vcd(trace, options, output);
    output.close();
    if (!written || !output) {
        std::remove(files[1].c_str());
        std::cerr << "wvf2vcd: " << files[1] << ": cannot be written\n";
        return 1;
    }
    return 0;
}
