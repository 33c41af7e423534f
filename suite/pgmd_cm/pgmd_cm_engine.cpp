#include "pgmd_cm.h"

#include "pgmd_cm_catalogue.h"
#include "pgmd_cm_jtag.h"

#include "bench_protocol.h"
#include "msg.h"

#include <cstdio>
#include <cstring>
#include <map>

using namespace BENCH_PROTOCOL;

namespace {

// What the engine knows of one of its two cables.
struct SIDE {
    unsigned hardware = 0;
    std::string name;
    bool locked = false;
    std::vector<PGMD_CM_CHAIN_DEVICE> chain;    // from the TDI end, learnt by the last scan
    std::vector<uint32_t> instructions;         // what each device's IR holds now
    std::map<unsigned, unsigned> node_address;  // device index -> hub node of later instructions
};

uint32_t bypass(unsigned ir_length)
{
    return ir_length >= 32 ? 0xFFFFFFFFu : (1u << ir_length) - 1;
}

// Names as an engineer's tools give them: the DUT catalogue first, then the device descriptions
// installed with the bench.
std::string device_name(const PGMD_CM_BENCH& bench, uint32_t idcode)
{
    if (idcode == 0)
        return "Device without IDCODE";
    if (const PGMD_CM_DUT_ENTRY* dut = pgmd_cm_find_dut_by_idcode(idcode))
        return dut->name;
    const std::string part = bench.part_name(idcode);
    if (!part.empty())
        return part;
    char text[64];
    std::snprintf(text, sizeof text, "Unknown device (0x%08X)", idcode);
    return text;
}

} // namespace

typedef std::shared_ptr<PGMD_CM_JTAG_ADAPTER> ADAPTER;

struct PGMD_CM_ENGINE::PRIVATE {
    explicit PRIVATE(std::shared_ptr<PGMD_CM_BENCH> engine_bench) : bench(std::move(engine_bench)) {}

    std::shared_ptr<PGMD_CM_BENCH> bench;
    SIDE sides[2]; // test bench, DUT
    unsigned dut_count = 0;

    SIDE& side(bool dut) { return sides[dut ? 1 : 0]; }
    const SIDE& side(bool dut) const { return sides[dut ? 1 : 0]; }

    // The side's adapter for one operation; null when none is bound.
    ADAPTER bound_adapter(const SIDE& side) const
    {
        return side.hardware >= 1 ? bench->adapter(side.hardware - 1) : nullptr;
    }

    // The side's adapter while this engine holds its lock; null otherwise.
    ADAPTER held_adapter(const SIDE& side) const
    {
        ADAPTER cable = side.locked ? bound_adapter(side) : nullptr;
        return cable && cable->lock_owner() == this ? cable : nullptr;
    }

    static PGMD_CM_SCAN_ERROR learn_chain(PGMD_CM_JTAG_ADAPTER& cable, SIDE& side)
    {
        PGMD_CM_JTAG jtag(cable);
        const PGMD_CM_SCAN_ERROR error = jtag.discover(&side.chain);
        side.instructions.clear();
        for (const PGMD_CM_CHAIN_DEVICE& device : side.chain)
            side.instructions.push_back(bypass(device.ir_length));
        side.node_address.clear();
        return error;
    }

    // Loads the instruction into the device and BYPASS into all others, unless they hold them.
    static bool set_instruction(PGMD_CM_JTAG_ADAPTER& cable, SIDE& side, unsigned device_index, uint32_t instruction)
    {
        std::vector<uint32_t> wanted;
        for (size_t i = 0; i < side.chain.size(); ++i)
            wanted.push_back(i == device_index ? instruction : bypass(side.chain[i].ir_length));
        if (wanted == side.instructions)
            return true;
        PGMD_CM_BITS in;
        for (size_t i = side.chain.size(); i-- > 0;)
            pgmd_cm_append_bits(&in, wanted[i], side.chain[i].ir_length);
        PGMD_CM_BITS out;
        PGMD_CM_JTAG jtag(cable);
        if (!jtag.scan_ir(in, &out))
            return false;
        side.instructions = wanted;
        return true;
    }

    // A data scan of one device with every other device contributing its bypass bit.
    static bool device_dr_scan(PGMD_CM_JTAG_ADAPTER& cable, const SIDE& side, unsigned device_index, const PGMD_CM_BITS& data, PGMD_CM_BITS* read)
    {
        PGMD_CM_BITS in;
        for (size_t i = side.chain.size(); i-- > 0;) {
            if (i == device_index)
                in.insert(in.end(), data.begin(), data.end());
            else
                in.push_back(false);
        }
        PGMD_CM_BITS out;
        PGMD_CM_JTAG jtag(cable);
        if (!jtag.scan_dr(in, &out))
            return false;
        const size_t offset = side.chain.size() - 1 - device_index; // bypass bits nearer TDO
        read->assign(out.begin() + long(offset), out.begin() + long(offset + data.size()));
        return true;
    }

    static bool device_dr_value(PGMD_CM_JTAG_ADAPTER& cable, const SIDE& side, unsigned device_index, uint64_t write, unsigned bits, uint64_t* read)
    {
        PGMD_CM_BITS data;
        pgmd_cm_append_bits(&data, write, bits);
        PGMD_CM_BITS out;
        if (!device_dr_scan(cable, side, device_index, data, &out))
            return false;
        *read = pgmd_cm_bits_value(out, 0, bits);
        return true;
    }

    // Streams the hub's info words: the header, then the records of its nodes.
    static unsigned find_node(PGMD_CM_JTAG_ADAPTER& cable, SIDE& side, unsigned device_index, unsigned node_kind)
    {
        uint64_t word = 0;
        if (!set_instruction(cable, side, device_index, IR_HUB_VIR)
            || !device_dr_value(cable, side, device_index, vir_value(0, HUB_INFO_INSTRUCTION), VIR_LENGTH, &word)
            || !set_instruction(cable, side, device_index, IR_HUB_VDR) || !device_dr_value(cable, side, device_index, 0, 32, &word)
            || !is_hub_header(uint32_t(word)))
            return 0;
        const unsigned count = hub_header_node_count(uint32_t(word));
        for (unsigned address = 1; address <= count && address <= MAX_NODES; ++address) {
            if (!device_dr_value(cable, side, device_index, 0, 32, &word))
                return 0;
            if (is_node_record(uint32_t(word)) && node_record_kind(uint32_t(word)) == node_kind)
                return address;
        }
        return 0;
    }

    void release(bool dut)
    {
        SIDE& s = side(dut);
        if (s.locked) {
            if (const ADAPTER cable = bound_adapter(s))
                cable->unlock(this);
        }
        s.locked = false;
        s.node_address.clear();
    }
};

PGMD_CM_ENGINE::PGMD_CM_ENGINE(std::shared_ptr<PGMD_CM_BENCH> bench)
{
    if (!bench)
        MSG_INTERNAL_ERROR::report("bench != NULL", "PGMD_CM", "pgmd_cm_engine", __LINE__);
    m_private = std::make_unique<PRIVATE>(std::move(bench));
}

PGMD_CM_ENGINE::~PGMD_CM_ENGINE()
{
    m_private->release(false);
    m_private->release(true);
}

bool PGMD_CM_ENGINE::set_tji_hardware(bool dut, unsigned hardware)
{
    m_private->release(dut);
    SIDE& side = m_private->side(dut);
    side = SIDE();
    side.hardware = hardware;
    const ADAPTER cable = m_private->bound_adapter(side);
    if (!cable || !cable->open()) {
        side.hardware = 0;
        return false;
    }
    side.name = cable->name();
    return true;
}

std::string PGMD_CM_ENGINE::get_hardware_name(bool dut) const
{
    return m_private->side(dut).name;
}

int PGMD_CM_ENGINE::read_dut_id(bool** present, unsigned** ids)
{
    if (!present || !*present || !ids || !*ids)
        MSG_INTERNAL_ERROR::report("present != NULL && ids != NULL", "PGMD_CM", "pgmd_cm_engine", __LINE__);
    unsigned count = 0;
    int error = PGMD_CM_SCAN_ERROR_NONE;
    const std::unique_ptr<PGMD_CM_DEVICE[]> devices(scan_chain(true, &count, &error));
    if (!devices)
        return error;
    for (unsigned i = 0; i < 4; ++i) {
        (*present)[i] = i < count;
        (*ids)[i] = i < count ? devices[i].idcode : 0;
    }
    return PGMD_CM_SCAN_ERROR_NONE;
}

PGMD_CM_DEVICE* PGMD_CM_ENGINE::scan_chain(bool dut, unsigned* count, int* error)
{
    *count = 0;
    SIDE& side = m_private->side(dut);
    const ADAPTER cable = m_private->bound_adapter(side);
    const bool own_lock = side.locked;
    if (!cable || (!own_lock && !cable->lock(m_private.get()))) {
        *error = PGMD_CM_SCAN_ERROR_NO_HARDWARE;
        return nullptr;
    }
    *error = PRIVATE::learn_chain(*cable, side);
    if (!own_lock)
        cable->unlock(m_private.get());
    if (*error != PGMD_CM_SCAN_ERROR_NONE)
        return nullptr;
    auto* devices = new PGMD_CM_DEVICE[side.chain.size()];
    for (size_t i = 0; i < side.chain.size(); ++i)
        devices[i] = {device_name(*m_private->bench, side.chain[i].idcode), side.chain[i].idcode};
    *count = unsigned(side.chain.size());
    return devices;
}

void PGMD_CM_ENGINE::set_dut_count(unsigned count)
{
    m_private->dut_count = count;
}

unsigned PGMD_CM_ENGINE::get_dut_count() const
{
    return m_private->dut_count;
}

bool PGMD_CM_ENGINE::startup_hardware(bool dut, bool)
{
    SIDE& side = m_private->side(dut);
    const ADAPTER cable = m_private->bound_adapter(side);
    if (!cable || !cable->lock(m_private.get()))
        return false;
    side.locked = true;
    const bool learnt = PRIVATE::learn_chain(*cable, side) == PGMD_CM_SCAN_ERROR_NONE;
    const bool expected = !dut || m_private->dut_count == 0 || side.chain.size() == m_private->dut_count;
    if (learnt && expected)
        return true;
    m_private->release(dut);
    return false;
}

void PGMD_CM_ENGINE::unlock_hardware(bool dut)
{
    m_private->release(dut);
}

bool PGMD_CM_ENGINE::is_locked(bool dut) const
{
    return m_private->held_adapter(m_private->side(dut)) != nullptr;
}

bool PGMD_CM_ENGINE::determine_dut_sld_node(unsigned device_index, unsigned node_kind)
{
    return determine_sld_node(true, device_index, node_kind);
}

bool PGMD_CM_ENGINE::determine_sld_node(bool dut, unsigned device_index, unsigned node_kind)
{
    SIDE& side = m_private->side(dut);
    const ADAPTER cable = m_private->held_adapter(side);
    if (!cable || device_index >= side.chain.size())
        return false;
    const unsigned address = PRIVATE::find_node(*cable, side, device_index, node_kind);
    if (address == 0)
        return false;
    side.node_address[device_index] = address;
    return true;
}

bool PGMD_CM_ENGINE::load_jtag_virtual_instruction(bool dut, unsigned instruction, unsigned device_index, bool, bool check_status)
{
    SIDE& side = m_private->side(dut);
    const ADAPTER cable = m_private->held_adapter(side);
    const auto node = side.node_address.find(device_index);
    if (!cable || device_index >= side.chain.size() || node == side.node_address.end())
        return false;
    const uint32_t value = vir_value(node->second, instruction);
    uint64_t previous = 0;
    if (!PRIVATE::set_instruction(*cable, side, device_index, IR_HUB_VIR)
        || !PRIVATE::device_dr_value(*cable, side, device_index, value, VIR_LENGTH, &previous))
        return false;
    // The hub captures its instruction register, so a second load shows what the first left.
    uint64_t loaded = 0;
    if (check_status
        && (!PRIVATE::device_dr_value(*cable, side, device_index, value, VIR_LENGTH, &loaded) || loaded != value))
        return false;
    return PRIVATE::set_instruction(*cable, side, device_index, IR_HUB_VDR);
}

bool PGMD_CM_ENGINE::read_dr_data(bool dut, unsigned bits, unsigned char* buffer, unsigned device_index)
{
    SIDE& side = m_private->side(dut);
    const ADAPTER cable = m_private->held_adapter(side);
    if (!buffer || bits == 0 || !cable || device_index >= side.chain.size())
        return false;
    PGMD_CM_BITS read;
    if (!PRIVATE::device_dr_scan(*cable, side, device_index, PGMD_CM_BITS(bits, false), &read))
        return false;
    std::memset(buffer, 0, (bits + 7) / 8);
    for (unsigned b = 0; b < bits; ++b)
        if (read[b])
            buffer[b / 8] |= static_cast<unsigned char>(1u << (b % 8));
    return true;
}

bool PGMD_CM_ENGINE::write_read_dr_data(bool dut, unsigned write_value, unsigned bits, unsigned, unsigned* read_value, unsigned device_index)
{
    SIDE& side = m_private->side(dut);
    const ADAPTER cable = m_private->held_adapter(side);
    if (!read_value || bits == 0 || bits > 32 || !cable || device_index >= side.chain.size())
        return false;
    uint64_t read = 0;
    if (!PRIVATE::device_dr_value(*cable, side, device_index, write_value, bits, &read))
        return false;
    *read_value = unsigned(read);
    return true;
}
