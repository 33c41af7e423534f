// The recorded session: a host programs the serial flash behind the IP. It resets the TAP, then
// repeats transactions: an IR scan selecting the hub's virtual instruction register (usr1 goes
// high), a 12-bit scan of the IP's instruction (ir_in takes it at Update-DR), an IR scan
// selecting the virtual data register, one to three data scans of 8 to 64 bits (some paused half
// way), and a few idle cycles. Every TCK cycle gives two samples, TCK low then TCK high; the
// registered signals (udr_reg, data1out_reg, total_bit_count) change on the rising edge, so they
// show their new value in the TCK-high sample.
#include "bench_trace.h"

#include "bench_protocol.h"
#include "bench_tap.h"

#include <random>

using namespace BENCH_TRACE;

namespace {

constexpr unsigned DEVICE_IR_LENGTH = 10;
constexpr uint32_t COUNT_MASK = (1u << TOTAL_BIT_COUNT_BITS) - 1;

class TRACE_SESSION {
public:
    TRACE_SESSION(uint32_t seed, size_t depth) : m_random(seed), m_depth(depth) { m_samples.reserve(depth); }

    std::vector<uint64_t> record()
    {
        reset_tap();
        while (m_samples.size() < m_depth)
            transaction();
        return std::move(m_samples);
    }

private:
    unsigned random_below(unsigned n) { return unsigned(m_random() % n); }
    bool random_bit() { return (m_random() & 1u) != 0; }
    uint64_t random_word() { return (uint64_t(m_random()) << 32) | m_random(); }

    bool usr1() const { return m_device_ir == BENCH_PROTOCOL::IR_HUB_VIR; }
    bool flash_instruction() const { return m_ir_in == IP_FLASH_WRITE || m_ir_in == IP_FLASH_READ; }
    bool in_dr_scan() const
    {
        switch (m_state) {
        case BENCH_TAP_STATE::CAPTURE_DR:
        case BENCH_TAP_STATE::SHIFT_DR:
        case BENCH_TAP_STATE::EXIT1_DR:
        case BENCH_TAP_STATE::PAUSE_DR:
        case BENCH_TAP_STATE::EXIT2_DR:
            return true;
        default:
            return false;
        }
    }
    bool flash_selected() const
    {
        return m_device_ir == BENCH_PROTOCOL::IR_HUB_VDR && flash_instruction() && in_dr_scan();
    }

    void emit(uint64_t sample)
    {
        if (m_samples.size() < m_depth)
            m_samples.push_back(sample);
    }

    static uint64_t bit(bool value, unsigned position) { return uint64_t(value) << position; }

    bool tdo() const
    {
        if (m_state == BENCH_TAP_STATE::SHIFT_IR)
            return (m_ir_shift & 1u) != 0;
        if (m_state != BENCH_TAP_STATE::SHIFT_DR)
            return false;
        if (usr1())
            return (m_vir_shift & 1u) != 0;
        if (flash_selected())
            return m_data1out_reg;
        return (m_dr_shift & 1u) != 0;
    }

    // One TCK cycle in the current state: the low and the high sample, with the rising edge
    // between them.
    void cycle(bool tms, bool tdi)
    {
        const bool shifting = m_state == BENCH_TAP_STATE::SHIFT_DR;
        const bool flash = flash_selected();
        const bool flash_shift = flash && shifting;
        const bool udr = m_state == BENCH_TAP_STATE::UPDATE_DR;
        const bool data1out = flash_shift && random_bit();
        const uint64_t levels = bit(tdi, TDI) | bit(usr1(), USR1) | (uint64_t(m_ir_in) << IR_IN)
            | bit(m_state == BENCH_TAP_STATE::SELECT_DR_SCAN, SDRS) | bit(shifting, SDR) | bit(udr, UDR)
            | bit(!flash, SCEIN) | bit(flash_shift && tdi, SDOIN) | bit(data1out, DATA1OUT) | bit(tdo(), TDO);

        emit(levels | registered());
        rising_edge(tms, tdi, udr, data1out);
        emit(levels | bit(true, TCK) | bit(flash_shift, DCLKIN) | registered());
        falling_edge_updates();
    }

    uint64_t registered() const
    {
        return bit(m_udr_reg, UDR_REG) | bit(m_data1out_reg, DATA1OUT_REG) | (uint64_t(m_bit_count) << TOTAL_BIT_COUNT);
    }

    void rising_edge(bool tms, bool tdi, bool udr, bool data1out)
    {
        m_udr_reg = udr;
        m_data1out_reg = data1out;
        switch (m_state) {
        case BENCH_TAP_STATE::CAPTURE_DR:
            m_bit_count = 0;
            m_vir_shift = m_ir_in;
            m_dr_shift = IP_STATUS_WORD;
            break;
        case BENCH_TAP_STATE::SHIFT_DR:
            m_bit_count = (m_bit_count + 1) & COUNT_MASK;
            m_dr_shift = (m_dr_shift >> 1) | (uint64_t(tdi) << 63);
            m_vir_shift = (m_vir_shift >> 1) | (uint32_t(tdi) << (IR_IN_BITS - 1));
            break;
        case BENCH_TAP_STATE::CAPTURE_IR:
            m_ir_shift = 1;
            break;
        case BENCH_TAP_STATE::SHIFT_IR:
            m_ir_shift = (m_ir_shift >> 1) | (uint32_t(tdi) << (DEVICE_IR_LENGTH - 1));
            break;
        default:
            break;
        }
        m_state = bench_tap_next(m_state, tms);
    }

    // Update and reset act on the falling edge that follows the rising edge entering the state.
    void falling_edge_updates()
    {
        if (m_state == BENCH_TAP_STATE::UPDATE_IR)
            m_device_ir = m_ir_shift;
        else if (m_state == BENCH_TAP_STATE::UPDATE_DR && usr1())
            m_ir_in = m_vir_shift;
        else if (m_state == BENCH_TAP_STATE::TEST_LOGIC_RESET) {
            m_device_ir = BENCH_PROTOCOL::IR_IDCODE;
            m_ir_in = 0;
        }
    }

    void reset_tap()
    {
        for (int i = 0; i < 5; ++i)
            cycle(true, false);
        cycle(false, false);
    }

    void idle(unsigned cycles)
    {
        for (unsigned i = 0; i < cycles; ++i)
            cycle(false, false);
    }

    void ir_scan(uint32_t instruction)
    {
        cycle(true, false);  // to Select-DR-Scan
        cycle(true, false);  // to Select-IR-Scan
        cycle(false, false); // to Capture-IR
        cycle(false, false); // to Shift-IR
        for (unsigned i = 0; i < DEVICE_IR_LENGTH; ++i)
            cycle(i + 1 == DEVICE_IR_LENGTH, ((instruction >> i) & 1u) != 0);
        cycle(true, false);  // to Update-IR
        cycle(false, false); // to Run-Test/Idle
    }

    void dr_scan(uint64_t data, unsigned bits, unsigned pause_after)
    {
        cycle(true, false);  // to Select-DR-Scan
        cycle(false, false); // to Capture-DR
        cycle(false, false); // to Shift-DR
        for (unsigned i = 0; i < bits; ++i) {
            const bool last = i + 1 == bits;
            const bool pause = i + 1 == pause_after && !last;
            cycle(last || pause, ((data >> i) & 1u) != 0);
            if (pause) {
                cycle(false, false); // Exit1-DR to Pause-DR
                idle_in_pause(1 + random_below(4));
                cycle(false, false); // Exit2-DR back to Shift-DR
            }
        }
        cycle(true, false);  // to Update-DR
        cycle(false, false); // to Run-Test/Idle
    }

    void idle_in_pause(unsigned cycles)
    {
        for (unsigned i = 0; i < cycles; ++i)
            cycle(i + 1 == cycles, false); // the last one leaves Pause-DR for Exit2-DR
    }

    void transaction()
    {
        static const uint32_t INSTRUCTIONS[] = {IP_FLASH_WRITE, IP_FLASH_READ, IP_STATUS};
        const uint32_t instruction = INSTRUCTIONS[random_below(3)];
        ir_scan(BENCH_PROTOCOL::IR_HUB_VIR);
        dr_scan(instruction, IR_IN_BITS, 0);
        ir_scan(BENCH_PROTOCOL::IR_HUB_VDR);
        const unsigned scans = 1 + random_below(3);
        for (unsigned i = 0; i < scans; ++i) {
            const unsigned bits = 8 + random_below(57);
            const unsigned pause_after = random_below(4) == 0 ? 1 + random_below(bits) : 0;
            dr_scan(random_word(), bits, pause_after);
        }
        idle(random_below(8));
    }

    std::mt19937 m_random;
    size_t m_depth;
    std::vector<uint64_t> m_samples;

    BENCH_TAP_STATE m_state = BENCH_TAP_STATE::TEST_LOGIC_RESET;
    uint32_t m_device_ir = BENCH_PROTOCOL::IR_IDCODE;
    uint32_t m_ir_shift = 0;
    uint32_t m_ir_in = 0;
    uint32_t m_vir_shift = 0;
    uint64_t m_dr_shift = 0;
    uint32_t m_bit_count = 0;
    bool m_udr_reg = false;
    bool m_data1out_reg = false;
};

} // namespace

std::vector<uint64_t> bench_generate_trace(uint32_t seed, size_t depth)
{
    return TRACE_SESSION(seed, depth).record();
}

uint32_t bench_trace_epoch_seed(uint32_t seed, uint32_t epoch)
{
    return seed + epoch * 0x9E3779B9u;
}
