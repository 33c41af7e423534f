#include "pgmd_cm_controller.h"

#include "bench_protocol.h"

#include <memory>

using namespace BENCH_PROTOCOL;

bool PGMD_CM_CONTROLLER::locate(PGMD_CM_ENGINE& engine, unsigned* device_index)
{
    unsigned count = 0;
    int error = PGMD_CM_SCAN_ERROR_NONE;
    const std::unique_ptr<PGMD_CM_DEVICE[]> devices(engine.scan_chain(false, &count, &error));
    for (unsigned i = 0; devices && i < count; ++i)
        if (engine.determine_sld_node(false, i, NODE_KIND_CONFIG_HW)) {
            *device_index = i;
            return true;
        }
    return false;
}

bool PGMD_CM_CONTROLLER::select(uint32_t instruction)
{
    return m_engine.load_jtag_virtual_instruction(false, instruction, m_device, false, true);
}

bool PGMD_CM_CONTROLLER::shift(uint32_t write, uint32_t* read)
{
    unsigned value = 0;
    if (!m_engine.write_read_dr_data(false, write, CONFIG_REGISTER_BITS, 0, &value, m_device))
        return false;
    *read = value;
    return true;
}

bool PGMD_CM_CONTROLLER::read(uint32_t reg, uint32_t* value)
{
    return select(CONFIG_READ | reg) && shift(0, value);
}

bool PGMD_CM_CONTROLLER::write(uint32_t reg, uint32_t value)
{
    uint32_t previous = 0;
    return select(CONFIG_WRITE | reg) && shift(value, &previous);
}

bool PGMD_CM_CONTROLLER::write_words(uint32_t reg, const std::vector<uint32_t>& words)
{
    if (!select(CONFIG_WRITE | reg))
        return false;
    uint32_t previous = 0;
    for (uint32_t word : words)
        if (!shift(word, &previous))
            return false;
    return true;
}

bool PGMD_CM_CONTROLLER::read_words(uint32_t reg, size_t count, std::vector<uint32_t>* words)
{
    words->assign(count, 0);
    if (!select(CONFIG_READ | reg))
        return false;
    for (uint32_t& word : *words)
        if (!shift(0, &word))
            return false;
    return true;
}
