#include "bench_debug_ip.h"

#include "bench_protocol.h"
#include "bench_trace.h"

#include <algorithm>

using namespace BENCH_PROTOCOL;

BENCH_DEBUG_IP::BENCH_DEBUG_IP(const BENCH_DEBUG_IP_SETUP& setup)
    : m_setup(setup), m_fill(std::min(setup.fill, setup.depth))
{
}

unsigned BENCH_DEBUG_IP::kind() const
{
    return NODE_KIND_DEBUG_IP;
}

uint32_t BENCH_DEBUG_IP::descriptor() const
{
    return debug_descriptor(m_setup.feature, m_setup.depth);
}

void BENCH_DEBUG_IP::load_instruction(uint32_t instruction)
{
    m_instruction = instruction;
    if (instruction == DEBUG_RESET)
        reset_trace();
    else if (instruction == DEBUG_SAMPLE)
        m_read_index = 0;
}

void BENCH_DEBUG_IP::reset_trace()
{
    ++m_epoch;
    m_fill = 0;
    m_trace.clear();
}

void BENCH_DEBUG_IP::tick()
{
    if (m_fill < m_setup.depth)
        ++m_fill;
}

uint64_t BENCH_DEBUG_IP::sample(uint32_t index)
{
    if (index >= m_fill)
        return 0;
    if (m_trace.empty())
        m_trace = bench_generate_trace(bench_trace_epoch_seed(m_setup.seed, m_epoch), m_setup.depth);
    return m_trace[index];
}

bool BENCH_DEBUG_IP::capture_sample(BENCH_SHIFT_REGISTER* reg)
{
    if (m_setup.fail_read_after >= 0 && m_read_index >= m_setup.fail_read_after)
        return false;
    const uint64_t value = m_setup.depth ? sample(m_read_index) : 0;
    reg->load(value, SAMPLE_BITS);
    if (m_setup.depth)
        m_read_index = (m_read_index + 1) % m_setup.depth;
    return true;
}

bool BENCH_DEBUG_IP::capture(BENCH_SHIFT_REGISTER* reg)
{
    switch (m_instruction) {
    case DEBUG_DESCRIPTOR:
        reg->load(descriptor(), 32);
        return true;
    case DEBUG_USEDW:
        reg->load(m_fill, 32);
        return true;
    case DEBUG_SAMPLE:
        return capture_sample(reg);
    default:
        reg->load(0, 1); // instructions the IP does not know select its bypass bit
        return true;
    }
}
