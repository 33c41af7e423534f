// The Value Change Dump writer of the debug waveform viewer, shared with the suite's wvf2vcd.
// It needs nothing of the host (the converter links no host library), so it does not include the
// plug-in's message header like the other units.
#include "pgmdq_debug_waveform_viewer_vcd.h"

#include <vector>

namespace {

// Pieces handed to the sink: large enough that a long trace is a few hundred writes.
const std::size_t CHUNK_BYTES = 1 << 16;

// One VCD variable: a wire of `width` bits taken from sample bit `first_bit` upward.
struct VARIABLE {
    std::string identifier;
    std::string reference;
    unsigned first_bit;
    unsigned width;
    std::uint64_t mask;
};

// Short identifiers from the printable range '!' to '~', one or more characters.
std::string identifier(unsigned index)
{
    const unsigned range = '~' - '!' + 1;
    std::string id;
    do {
        id += char('!' + index % range);
        index /= range;
    } while (index > 0);
    return id;
}

std::vector<VARIABLE> variables_of(const PGMDQ_DEBUG_SIGNAL* table, bool split_buses)
{
    std::vector<VARIABLE> variables;
    unsigned first_bit = 0;
    for (const PGMDQ_DEBUG_SIGNAL* signal = table; signal->width > 0; first_bit += signal->width, ++signal) {
        const unsigned width = signal->width;
        if (width == 1 || !split_buses) {
            std::string reference = signal->name;
            if (width > 1)
                reference += " [" + std::to_string(width - 1) + ":0]";
            const std::uint64_t mask = width >= 64 ? ~std::uint64_t(0) : (std::uint64_t(1) << width) - 1;
            variables.push_back({identifier(unsigned(variables.size())), reference, first_bit, width, mask << first_bit});
            continue;
        }
        for (unsigned bit = 0; bit < width; ++bit)
            variables.push_back({identifier(unsigned(variables.size())), signal->name + " [" + std::to_string(bit) + "]",
                                 first_bit + bit, 1, std::uint64_t(1) << (first_bit + bit)});
    }
    return variables;
}

class WRITER {
public:
    explicit WRITER(const PGMDQ_VCD_SINK& sink) : m_sink(sink) { m_buffer.reserve(CHUNK_BYTES + 256); }

    WRITER& operator<<(const std::string& text)
    {
        m_buffer += text;
        return *this;
    }
    WRITER& operator<<(const char* text)
    {
        m_buffer += text;
        return *this;
    }
    WRITER& operator<<(char c)
    {
        m_buffer += c;
        return *this;
    }
    WRITER& operator<<(std::uint64_t number)
    {
        m_buffer += std::to_string(number);
        return *this;
    }

    // Hands the buffer on once it is full; false once the sink refused.
    bool maybe_flush()
    {
        if (m_buffer.size() >= CHUNK_BYTES)
            return flush();
        return m_ok;
    }
    bool flush()
    {
        if (m_ok && !m_buffer.empty())
            m_ok = m_sink(m_buffer.data(), m_buffer.size());
        m_buffer.clear();
        return m_ok;
    }

private:
    const PGMDQ_VCD_SINK& m_sink;
    std::string m_buffer;
    bool m_ok = true;
};

// A value as VCD writes it: a bit as 0 or 1 before its identifier, a vector in binary without
// leading zeros after "b" and before a blank.
void write_value(WRITER& out, const VARIABLE& variable, std::uint64_t sample)
{
    const std::uint64_t value = (sample & variable.mask) >> variable.first_bit;
    if (variable.width == 1) {
        out << char('0' + int(value)) << variable.identifier << '\n';
        return;
    }
    std::string binary;
    for (int bit = int(variable.width) - 1; bit >= 0; --bit)
        if (!binary.empty() || (value >> bit & 1) || bit == 0)
            binary += (value >> bit & 1) ? '1' : '0';
    out << 'b' << binary << ' ' << variable.identifier << '\n';
}

} // namespace

bool pgmdq_vcd_valid_timescale(const std::string& text)
{
    static const char* const UNITS[] = {"s", "ms", "us", "ns", "ps", "fs"};
    for (const char* number : {"1", "10", "100"})
        for (const char* unit : UNITS)
            if (text == std::string(number) + unit)
                return true;
    return false;
}

bool pgmdq_write_vcd(const std::uint64_t* samples, std::uint32_t depth, const PGMDQ_DEBUG_SIGNAL* table,
                     const PGMDQ_VCD_OPTIONS& options, const PGMDQ_VCD_SINK& sink)
{
    const std::vector<VARIABLE> variables = variables_of(table, options.split_buses);
    WRITER out(sink);
    out << "$comment " << options.comment << " $end\n"
        << "$timescale " << options.timescale << " $end\n"
        << "$scope module debug_ip $end\n";
    for (const VARIABLE& variable : variables)
        out << "$var wire " << std::to_string(variable.width) << ' ' << variable.identifier << ' ' << variable.reference
            << " $end\n";
    out << "$upscope $end\n$enddefinitions $end\n";

    for (std::uint32_t time = 0; time < depth; ++time) {
        const std::uint64_t sample = samples[time];
        if (time == 0) {
            out << "#0\n$dumpvars\n";
            for (const VARIABLE& variable : variables)
                write_value(out, variable, sample);
            out << "$end\n";
        } else {
            const std::uint64_t changed = sample ^ samples[time - 1];
            bool stamped = false;
            for (const VARIABLE& variable : variables) {
                if (!(changed & variable.mask))
                    continue;
                if (!stamped)
                    out << '#' << std::uint64_t(time) << '\n';
                stamped = true;
                write_value(out, variable, sample);
            }
        }
        if (!out.maybe_flush())
            return false;
    }
    // The last sample lasts one step as well.
    out << '#' << std::uint64_t(depth) << '\n';
    return out.flush();
}
