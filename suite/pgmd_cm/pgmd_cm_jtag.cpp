#include "pgmd_cm_jtag.h"

#include "thr.h"

#include "bench_protocol.h"

namespace {

constexpr size_t MAX_DEVICES = 32;
constexpr size_t MAX_TOTAL_IR = MAX_DEVICES * BENCH_PROTOCOL::MAX_IR_LENGTH;
constexpr uint64_t BYPASS_PATTERN = 0xC5A3F00F5A3CULL;
constexpr unsigned BYPASS_PATTERN_BITS = 48;

} // namespace

void pgmd_cm_append_bits(PGMD_CM_BITS* bits, uint64_t value, unsigned count)
{
    for (unsigned i = 0; i < count; ++i)
        bits->push_back(((value >> i) & 1u) != 0);
}

uint64_t pgmd_cm_bits_value(const PGMD_CM_BITS& bits, size_t offset, unsigned count)
{
    uint64_t value = 0;
    for (unsigned i = 0; i < count && offset + i < bits.size(); ++i)
        value |= uint64_t(bits[offset + i]) << i;
    return value;
}

bool PGMD_CM_JTAG::clock(bool tms, bool tdi, bool* tdo)
{
    bool ignored = false;
    return m_adapter.clock(tms, tdi, tdo ? tdo : &ignored);
}

bool PGMD_CM_JTAG::reset()
{
    const bool ok = m_adapter.reset();
    return clock(false, false, nullptr) && ok;
}

bool PGMD_CM_JTAG::scan(bool instruction, const PGMD_CM_BITS& in, PGMD_CM_BITS* out)
{
    // A long hardware operation runs on the GUI thread: the window stays live between scans.
    thr_process_events();
    bool ok = clock(true, false, nullptr); // Select-DR-Scan
    if (instruction)
        ok = clock(true, false, nullptr) && ok; // Select-IR-Scan
    ok = clock(false, false, nullptr) && ok;    // Capture
    ok = clock(false, false, nullptr) && ok;    // Shift
    out->assign(in.size(), false);
    for (size_t i = 0; i < in.size(); ++i) {
        bool tdo = false;
        ok = clock(i + 1 == in.size(), in[i], &tdo) && ok; // the last bit leaves for Exit1
        (*out)[i] = tdo;
    }
    ok = clock(true, false, nullptr) && ok;  // Update
    return clock(false, false, nullptr) && ok; // Run-Test/Idle
}

bool PGMD_CM_JTAG::scan_ir(const PGMD_CM_BITS& in, PGMD_CM_BITS* out)
{
    return scan(true, in, out);
}

bool PGMD_CM_JTAG::scan_dr(const PGMD_CM_BITS& in, PGMD_CM_BITS* out)
{
    return scan(false, in, out);
}

// After reset a device with IDCODE shows a 32-bit word with bit 0 set, one without it a single
// 0 (BYPASS). Ones are shifted in, so 32 ones in a row mark the end of the chain.
PGMD_CM_SCAN_ERROR PGMD_CM_JTAG::read_idcodes(std::vector<PGMD_CM_CHAIN_DEVICE>* chain)
{
    const size_t length = (MAX_DEVICES + 1) * BENCH_PROTOCOL::IDCODE_BITS;
    PGMD_CM_BITS out;
    if (!reset() || !scan_dr(PGMD_CM_BITS(length, true), &out))
        return PGMD_CM_SCAN_ERROR_CHAIN;
    std::vector<PGMD_CM_CHAIN_DEVICE> from_tdo;
    size_t position = 0;
    bool ended = false;
    while (!ended && position + BENCH_PROTOCOL::IDCODE_BITS <= length && from_tdo.size() <= MAX_DEVICES) {
        PGMD_CM_CHAIN_DEVICE device;
        if (!out[position]) {
            ++position;
            from_tdo.push_back(device);
            continue;
        }
        device.idcode = uint32_t(pgmd_cm_bits_value(out, position, BENCH_PROTOCOL::IDCODE_BITS));
        ended = device.idcode == 0xFFFFFFFFu;
        if (!ended)
            from_tdo.push_back(device);
        position += BENCH_PROTOCOL::IDCODE_BITS;
    }
    if (!ended || from_tdo.empty())
        return PGMD_CM_SCAN_ERROR_CHAIN;
    chain->assign(from_tdo.rbegin(), from_tdo.rend());
    return PGMD_CM_SCAN_ERROR_NONE;
}

// Every IR captures ...01: zeros shifted in after the captured patterns show the total length
// when the first following one comes out, and the ones in the captured part start each device.
PGMD_CM_SCAN_ERROR PGMD_CM_JTAG::read_ir_lengths(std::vector<PGMD_CM_CHAIN_DEVICE>* chain)
{
    PGMD_CM_BITS in(MAX_TOTAL_IR, false);
    in.resize(2 * MAX_TOTAL_IR, true);
    PGMD_CM_BITS out;
    if (!scan_ir(in, &out))
        return PGMD_CM_SCAN_ERROR_CHAIN;
    size_t total = MAX_TOTAL_IR;
    while (total < out.size() && !out[total])
        ++total;
    total -= MAX_TOTAL_IR;
    if (total == MAX_TOTAL_IR || !out[0])
        return PGMD_CM_SCAN_ERROR_CHAIN;
    std::vector<size_t> starts;
    for (size_t i = 0; i < total; ++i)
        if (out[i])
            starts.push_back(i);
    if (starts.size() != chain->size())
        return PGMD_CM_SCAN_ERROR_CHAIN;
    starts.push_back(total);
    // starts run from the TDO end; the chain from the TDI end.
    for (size_t k = 0; k < chain->size(); ++k)
        (*chain)[chain->size() - 1 - k].ir_length = unsigned(starts[k + 1] - starts[k]);
    return PGMD_CM_SCAN_ERROR_NONE;
}

// With every device in BYPASS, a pattern must come out delayed by one bit per device.
PGMD_CM_SCAN_ERROR PGMD_CM_JTAG::check_bypass(size_t device_count)
{
    PGMD_CM_BITS in;
    pgmd_cm_append_bits(&in, BYPASS_PATTERN, BYPASS_PATTERN_BITS);
    in.resize(in.size() + device_count, false);
    PGMD_CM_BITS out;
    if (!scan_dr(in, &out))
        return PGMD_CM_SCAN_ERROR_CHAIN;
    for (size_t i = 0; i < device_count; ++i)
        if (out[i])
            return PGMD_CM_SCAN_ERROR_CHAIN;
    if (pgmd_cm_bits_value(out, device_count, BYPASS_PATTERN_BITS) != BYPASS_PATTERN)
        return PGMD_CM_SCAN_ERROR_CHAIN;
    return PGMD_CM_SCAN_ERROR_NONE;
}

PGMD_CM_SCAN_ERROR PGMD_CM_JTAG::discover(std::vector<PGMD_CM_CHAIN_DEVICE>* chain)
{
    PGMD_CM_SCAN_ERROR error = read_idcodes(chain);
    if (error == PGMD_CM_SCAN_ERROR_NONE)
        error = read_ir_lengths(chain);
    if (error == PGMD_CM_SCAN_ERROR_NONE)
        error = check_bypass(chain->size());
    if (error != PGMD_CM_SCAN_ERROR_NONE)
        chain->clear();
    return error;
}
