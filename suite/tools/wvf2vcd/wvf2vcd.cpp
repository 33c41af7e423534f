// wvf2vcd: converts a trace of the debug IP (".wvf") into a Value Change Dump that third-party
// waveform viewers read. One wire per single-bit signal, one vector per bus, one time step per
// sample. It reads the file on its own terms and refuses anything that is not a complete trace
// with a message and exit status 1 (usage errors 2), writing nothing.
//
//   wvf2vcd [-t TIMESCALE] INPUT.wvf [OUTPUT.vcd]      (standard output when OUTPUT is omitted)
//
// A ".wvf" file: width (32 bits, 37), depth (32 bits, at least 1), depth samples of 5 bytes
// (sample bit b is bit b % 8 of byte b / 8), then the 32-bit sum of all preceding bytes; all
// little-endian.
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct SIGNAL {
    const char* name;
    unsigned width;
};

// The debug IP's signals in sample bit order, from bit 0 upward.
const SIGNAL SIGNALS[] = {
    {"tck", 1},     {"tdi", 1},    {"usr1", 1},     {"ir_in", 12},       {"sdrs", 1},
    {"sdr", 1},     {"udr", 1},    {"udr_reg", 1},  {"scein", 1},        {"dclkin", 1},
    {"sdoin", 1},   {"data1out", 1}, {"data1out_reg", 1}, {"total_bit_count", 12}, {"tdo", 1},
};
const unsigned SAMPLE_BITS = 37;
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

// Short identifiers from the printable range, one per signal.
std::string identifier(unsigned index)
{
    return std::string(1, char('!' + index));
}

std::string value_text(std::uint64_t sample, unsigned first_bit, unsigned width, const std::string& id)
{
    const std::uint64_t value = (sample >> first_bit) & ((std::uint64_t(1) << width) - 1);
    if (width == 1)
        return std::to_string(value) + id;
    std::string binary;
    for (int bit = int(width) - 1; bit >= 0; --bit)
        if (!binary.empty() || (value >> bit & 1) || bit == 0)
            binary += (value >> bit & 1) ? '1' : '0';
    return "b" + binary + " " + id;
}

void write_vcd(const TRACE& trace, const std::string& source, const std::string& timescale, std::ostream& out)
{
    out << "$comment converted from " << source << " by wvf2vcd $end\n"
        << "$timescale " << timescale << " $end\n"
        << "$scope module debug_ip $end\n";
    unsigned index = 0;
    for (const SIGNAL& signal : SIGNALS) {
        out << "$var wire " << signal.width << ' ' << identifier(index++) << ' ' << signal.name;
        if (signal.width > 1)
            out << " [" << signal.width - 1 << ":0]";
        out << " $end\n";
    }
    out << "$upscope $end\n$enddefinitions $end\n";

    for (std::uint32_t time = 0; time < trace.depth; ++time) {
        const std::uint64_t sample = trace.samples[time];
        const std::uint64_t changed = time == 0 ? ~std::uint64_t(0) : sample ^ trace.samples[time - 1];
        std::ostringstream changes;
        unsigned first_bit = 0;
        index = 0;
        for (const SIGNAL& signal : SIGNALS) {
            const std::uint64_t mask = ((std::uint64_t(1) << signal.width) - 1) << first_bit;
            if (changed & mask)
                changes << value_text(sample, first_bit, signal.width, identifier(index)) << '\n';
            first_bit += signal.width;
            ++index;
        }
        if (time == 0)
            out << "#0\n$dumpvars\n" << changes.str() << "$end\n";
        else if (!changes.str().empty())
            out << '#' << time << '\n' << changes.str();
    }
    // The last sample lasts one step as well.
    out << '#' << trace.depth << '\n';
}

// A VCD timescale: 1, 10 or 100 of s, ms, us, ns, ps or fs.
bool valid_timescale(const std::string& text)
{
    static const char* const UNITS[] = {"s", "ms", "us", "ns", "ps", "fs"};
    for (const char* number : {"1", "10", "100"})
        for (const char* unit : UNITS)
            if (text == std::string(number) + unit)
                return true;
    return false;
}

int usage()
{
    std::cerr << "usage: wvf2vcd [-t TIMESCALE] INPUT.wvf [OUTPUT.vcd]\n"
                 "  TIMESCALE: 1, 10 or 100 followed by s, ms, us, ns, ps or fs (default 1ns)\n";
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    std::string timescale = "1ns";
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-t") == 0 && i + 1 < argc)
            timescale = argv[++i];
        else if (argv[i][0] == '-')
            return usage();
        else
            files.push_back(argv[i]);
    }
    if (files.empty() || files.size() > 2 || !valid_timescale(timescale))
        return usage();

    TRACE trace;
    try {
        trace = read_trace(files[0]);
    } catch (const NOT_A_TRACE& error) {
        std::cerr << "wvf2vcd: " << files[0] << ": not a valid waveform trace: " << error.what() << '\n';
        return 1;
    }
    if (files.size() == 1) {
        write_vcd(trace, files[0], timescale, std::cout);
        return std::cout.good() ? 0 : 1;
    }
    std::ofstream output(files[1], std::ios::trunc);
    write_vcd(trace, files[0], timescale, output);
    output.close();
    if (!output) {
        std::cerr << "wvf2vcd: " << files[1] << ": cannot be written\n";
        return 1;
    }
    return 0;
}
