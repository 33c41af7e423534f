#include "bench_device.h"

#include "bench_config_hw.h"
#include "bench_protocol.h"

using namespace BENCH_PROTOCOL;

void BENCH_HUB::add_node(std::unique_ptr<BENCH_NODE> node)
{
    m_nodes.push_back(std::move(node));
}

void BENCH_HUB::reset()
{
    m_vir = 0;
    m_info_index = 0;
}

BENCH_NODE* BENCH_HUB::addressed_node() const
{
    const unsigned address = m_vir >> VIR_INSTRUCTION_BITS;
    if (address == 0 || address > m_nodes.size())
        return nullptr;
    return m_nodes[address - 1].get();
}

void BENCH_HUB::update_vir(uint32_t value)
{
    m_vir = value & ((1u << VIR_LENGTH) - 1);
    m_info_index = 0;
    if (BENCH_NODE* node = addressed_node())
        node->load_instruction(m_vir & ((1u << VIR_INSTRUCTION_BITS) - 1));
}

uint32_t BENCH_HUB::next_info_word()
{
    const size_t index = m_info_index;
    m_info_index = (m_info_index + 1) % (m_nodes.size() + 1);
    if (index == 0)
        return hub_header(unsigned(m_nodes.size()));
    const BENCH_NODE& node = *m_nodes[index - 1];
    return node_record(node.kind(), unsigned(index - 1), node.version());
}

bool BENCH_HUB::capture_vdr(BENCH_SHIFT_REGISTER* reg)
{
    if (BENCH_NODE* node = addressed_node())
        return node->capture(reg);
    const bool hub_selected = (m_vir >> VIR_INSTRUCTION_BITS) == 0;
    if (hub_selected && (m_vir & 0xFFFu) == HUB_INFO_INSTRUCTION)
        reg->load(next_info_word(), 32);
    else
        reg->load(0, 1);
    return true;
}

void BENCH_HUB::update_vdr(const BENCH_SHIFT_REGISTER& reg)
{
    if (BENCH_NODE* node = addressed_node())
        node->update(reg);
}

void BENCH_HUB::tick()
{
    for (auto& node : m_nodes)
        node->tick();
}

BENCH_DEVICE::BENCH_DEVICE(std::string name, uint32_t idcode, unsigned ir_length)
    : m_name(std::move(name)), m_idcode(idcode), m_ir_length(ir_length)
{
    reset();
}

BENCH_DEVICE::~BENCH_DEVICE() = default;

void BENCH_DEVICE::set_configuration(std::unique_ptr<BENCH_DUT_CONFIG> configuration)
{
    m_configuration = std::move(configuration);
}

void BENCH_DEVICE::reset()
{
    m_instruction = IR_IDCODE;
    m_hub.reset();
}

bool BENCH_DEVICE::tdo() const
{
    if (m_state == BENCH_TAP_STATE::SHIFT_DR)
        return m_dr.lsb();
    if (m_state == BENCH_TAP_STATE::SHIFT_IR)
        return m_ir.lsb();
    return true;
}

bool BENCH_DEVICE::capture_dr()
{
    const bool with_hub = !m_hub.empty();
    if (m_instruction == IR_IDCODE)
        m_dr.load(m_idcode, IDCODE_BITS);
    else if (with_hub && m_instruction == IR_HUB_VIR)
        m_dr.load(m_hub.vir(), VIR_LENGTH);
    else if (with_hub && m_instruction == IR_HUB_VDR)
        return m_hub.capture_vdr(&m_dr);
    else
        m_dr.load(0, 1); // BYPASS and every instruction the device does not implement
    return true;
}

void BENCH_DEVICE::update_dr()
{
    if (m_hub.empty())
        return;
    if (m_instruction == IR_HUB_VIR)
        m_hub.update_vir(uint32_t(m_dr.bits));
    else if (m_instruction == IR_HUB_VDR)
        m_hub.update_vdr(m_dr);
}

bool BENCH_DEVICE::clock(bool tms, bool tdi)
{
    bool ok = true;
    switch (m_state) {
    case BENCH_TAP_STATE::CAPTURE_DR:
        ok = capture_dr();
        break;
    case BENCH_TAP_STATE::SHIFT_DR:
        m_dr.shift(tdi);
        break;
    case BENCH_TAP_STATE::CAPTURE_IR:
        m_ir.load(1, m_ir_length); // the mandatory ...01 capture pattern
        break;
    case BENCH_TAP_STATE::SHIFT_IR:
        m_ir.shift(tdi);
        break;
    default:
        break;
    }
    m_state = bench_tap_next(m_state, tms);
    if (m_state == BENCH_TAP_STATE::UPDATE_DR)
        update_dr();
    else if (m_state == BENCH_TAP_STATE::UPDATE_IR)
        m_instruction = uint32_t(m_ir.bits);
    else if (m_state == BENCH_TAP_STATE::TEST_LOGIC_RESET)
        reset();
    m_hub.tick();
    return ok;
}
