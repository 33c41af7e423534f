#include "bench_config_hw.h"

#include "bench_protocol.h"

#include <algorithm>
#include <cstdlib>

using namespace BENCH_PROTOCOL;

namespace {

const SCHEME_CODE* scheme_of_msel(uint32_t msel)
{
    for (const SCHEME_CODE& scheme : SCHEME_CODES)
        if (scheme.msel == msel)
            return &scheme;
    return nullptr;
}

struct FAIL_STEP_NAME {
    const char* name;
    BENCH_FAIL_STEP step;
};

const FAIL_STEP_NAME FAIL_STEPS[] = {
    {"power", BENCH_FAIL_STEP::POWER},
    {"flash_program", BENCH_FAIL_STEP::FLASH_PROGRAM},
    {"flash_verify", BENCH_FAIL_STEP::FLASH_VERIFY},
    {"configure", BENCH_FAIL_STEP::CONFIGURE},
};

// The measured frequency of each clock source: the bench's oscillators, its CLKUSR generator and
// the DCLK the controller's flash loader drives.
const uint32_t CLOCK_KHZ[] = {0, 12500, 25000, 50000, 100000, 100000, 50000};
constexpr uint32_t MAX_SUPPLY_MV = 3600;

bool contains(const std::vector<uint32_t>& values, uint32_t value)
{
    return std::find(values.begin(), values.end(), value) != values.end();
}

// A supply within 5 % of a level the silicon is specified for.
bool supply_accepted(const std::vector<uint32_t>& levels, uint32_t mv)
{
    return std::any_of(levels.begin(), levels.end(),
                       [mv](uint32_t level) { return uint32_t(std::abs(int64_t(mv) - int64_t(level))) * 20 <= level; });
}

} // namespace

bool bench_parse_fail_step(const std::string& name, BENCH_FAIL_STEP* step)
{
    for (const FAIL_STEP_NAME& entry : FAIL_STEPS)
        if (name == entry.name) {
            *step = entry.step;
            return true;
        }
    return false;
}

bool bench_scheme_msel(const std::string& key, uint32_t* msel)
{
    for (const SCHEME_CODE& scheme : SCHEME_CODES)
        if (key == scheme.key) {
            *msel = scheme.msel;
            return true;
        }
    return false;
}

// ---- DUT -----------------------------------------------------------------------------------

BENCH_DUT_CONFIG::BENCH_DUT_CONFIG(uint32_t idcode, BENCH_DUT_CAPABILITY capability, BENCH_FAIL_STEP fail_step)
    : m_idcode(idcode), m_capability(std::move(capability)), m_fail_step(fail_step)
{
}

void BENCH_DUT_CONFIG::clear()
{
    m_configured = false;
    m_error = CONFIG_OK;
}

void BENCH_DUT_CONFIG::configure(const BENCH_CONFIG_INPUTS& inputs)
{
    m_error = check(inputs);
    m_configured = m_error == CONFIG_OK;
}

uint32_t BENCH_DUT_CONFIG::check(const BENCH_CONFIG_INPUTS& inputs) const
{
    if (inputs.vccpgm_mv == 0)
        return CONFIG_NO_POWER;
    const SCHEME_CODE* scheme = scheme_of_msel(inputs.msel);
    if (!scheme || !contains(m_capability.msel, inputs.msel))
        return CONFIG_MSEL;
    if (!supply_accepted(scheme->active ? m_capability.active_mv : m_capability.passive_mv, inputs.vccpgm_mv))
        return CONFIG_VCCPGM;
    const bool serial_memory = inputs.memory_slot == MEMORY_ACTIVE_SERIAL;
    const bool parallel_memory = inputs.memory_slot >= MEMORY_CFI1 && inputs.memory_slot <= MEMORY_NAND1;
    if (!inputs.memory || (scheme->active ? !serial_memory : !parallel_memory))
        return CONFIG_MEMORY;
    const bool clock_fits = scheme->active ? inputs.clock >= CLOCK_INT_12_5 && inputs.clock <= CLOCK_CLKUSR
                                           : inputs.clock == CLOCK_DCLK;
    if (!clock_fits)
        return CONFIG_CLOCK;
    if (inputs.memory_at_controller)
        return CONFIG_FLASH_HOST;
    return check_image(inputs);
}

uint32_t BENCH_DUT_CONFIG::check_image(const BENCH_CONFIG_INPUTS& inputs) const
{
    const std::vector<uint32_t>& words = *inputs.memory;
    if (words[0] != IMAGE_MAGIC)
        return CONFIG_BLANK;
    if (words[1] != m_idcode)
        return CONFIG_IDCODE;
    if (words[2] != inputs.msel)
        return CONFIG_SCHEME;
    const uint32_t payload = words[3];
    if (payload > IMAGE_MAX_PAYLOAD)
        return CONFIG_CRC;
    const size_t crc_index = IMAGE_HEADER_WORDS + payload;
    if (image_crc(&words[1], crc_index - 1) != words[crc_index] || m_fail_step == BENCH_FAIL_STEP::CONFIGURE)
        return CONFIG_CRC;
    return CONFIG_OK;
}

// ---- Controller ----------------------------------------------------------------------------

BENCH_CONFIG_HW::BENCH_CONFIG_HW(BENCH_FAIL_STEP fail_step) : m_fail_step(fail_step)
{
    for (auto& memory : m_memories)
        memory.assign(MEMORY_WORDS, 0xFFFFFFFFu);
}

unsigned BENCH_CONFIG_HW::kind() const
{
    return NODE_KIND_CONFIG_HW;
}

void BENCH_CONFIG_HW::load_instruction(uint32_t instruction)
{
    m_instruction = instruction;
}

bool BENCH_CONFIG_HW::capture(BENCH_SHIFT_REGISTER* reg)
{
    const uint32_t group = m_instruction & 0xF00u;
    const uint32_t address = m_instruction & 0xFFu;
    if (group == CONFIG_READ || group == CONFIG_WRITE)
        reg->load(read_register(address, group == CONFIG_READ), CONFIG_REGISTER_BITS);
    else
        reg->load(0, 1);
    return true;
}

void BENCH_CONFIG_HW::update(const BENCH_SHIFT_REGISTER& reg)
{
    if ((m_instruction & 0xF00u) == CONFIG_WRITE)
        write_register(m_instruction & 0xFFu, uint32_t(reg.bits));
}

uint32_t BENCH_CONFIG_HW::measured_vccpgm() const
{
    const bool powered = (m_control & CONTROL_POWER) != 0;
    return powered && m_fail_step != BENCH_FAIL_STEP::POWER ? m_vccpgm_mv : 0;
}

uint32_t BENCH_CONFIG_HW::status() const
{
    const uint32_t error = m_controller_error ? m_controller_error : (m_dut ? m_dut->error() : CONFIG_OK);
    const bool running = (m_control & CONTROL_POWER) && (m_control & CONTROL_NCONFIG);
    uint32_t value = error << 8;
    if (m_dut && m_dut->configured())
        value |= STATUS_CONF_DONE;
    if (running && error == CONFIG_OK)
        value |= STATUS_NSTATUS;
    if (measured_vccpgm() > 0)
        value |= STATUS_POWER_GOOD;
    if (m_flash_error)
        value |= STATUS_FLASH_ERROR;
    return value;
}

uint32_t BENCH_CONFIG_HW::read_register(uint32_t address, bool advance)
{
    switch (address) {
    case REG_ID:
        return CONFIG_HW_ID;
    case REG_CONTROL:
        return m_control;
    case REG_MSEL:
        return m_msel;
    case REG_VCCPGM_MV:
        return m_vccpgm_mv;
    case REG_MEMORY:
        return m_memory;
    case REG_CLOCK:
        return m_clock;
    case REG_FLASH_ADDRESS:
        return m_flash_address;
    case REG_FLASH_DATA:
        return read_flash(advance);
    case REG_STATUS:
        return status();
    case REG_VCCPGM_MEASURED:
        return measured_vccpgm();
    case REG_CLOCK_KHZ:
        return m_clock < sizeof(CLOCK_KHZ) / sizeof(CLOCK_KHZ[0]) ? CLOCK_KHZ[m_clock] : 0;
    default:
        return 0;
    }
}

void BENCH_CONFIG_HW::write_register(uint32_t address, uint32_t value)
{
    switch (address) {
    case REG_CONTROL:
        write_control(value);
        break;
    case REG_MSEL:
        m_msel = value & 0x1Fu;
        break;
    case REG_VCCPGM_MV:
        m_vccpgm_mv = std::min(value, MAX_SUPPLY_MV);
        break;
    case REG_MEMORY:
        m_memory = value;
        break;
    case REG_CLOCK:
        m_clock = value;
        break;
    case REG_FLASH_ADDRESS:
        m_flash_address = value;
        break;
    case REG_FLASH_DATA:
        program_flash(value);
        break;
    case REG_FLASH_ERASE:
        if (value == FLASH_ERASE_KEY)
            erase_flash();
        break;
    default:
        break; // read-only registers ignore writes
    }
}

void BENCH_CONFIG_HW::write_control(uint32_t value)
{
    const uint32_t before = m_control;
    m_control = value & (CONTROL_POWER | CONTROL_NCONFIG | CONTROL_FLASH_HOST);
    const bool running = (m_control & CONTROL_POWER) && (m_control & CONTROL_NCONFIG);
    const bool was_running = (before & CONTROL_POWER) && (before & CONTROL_NCONFIG);
    if (running && !was_running)
        release_nconfig();
    else if (!running) {
        m_controller_error = CONFIG_OK;
        if (m_dut)
            m_dut->clear();
    }
}

void BENCH_CONFIG_HW::release_nconfig()
{
    if (!m_dut) {
        m_controller_error = CONFIG_NO_DUT;
        return;
    }
    BENCH_CONFIG_INPUTS inputs;
    inputs.vccpgm_mv = measured_vccpgm();
    inputs.msel = m_msel;
    inputs.memory_slot = m_memory;
    inputs.clock = m_clock;
    inputs.memory_at_controller = (m_control & CONTROL_FLASH_HOST) != 0;
    inputs.memory = selected_memory();
    m_dut->configure(inputs);
}

std::vector<uint32_t>* BENCH_CONFIG_HW::selected_memory()
{
    if (m_memory < 1 || m_memory > m_memories.size())
        return nullptr;
    return &m_memories[m_memory - 1];
}

uint32_t BENCH_CONFIG_HW::read_flash(bool advance)
{
    std::vector<uint32_t>* memory = selected_memory();
    const bool reachable = memory && (m_control & CONTROL_FLASH_HOST) && m_flash_address < memory->size();
    if (!reachable) {
        m_flash_error = m_flash_error || advance;
        return 0xFFFFFFFFu;
    }
    uint32_t value = (*memory)[m_flash_address];
    if (m_fail_step == BENCH_FAIL_STEP::FLASH_VERIFY)
        value ^= 1u;
    if (advance)
        ++m_flash_address;
    return value;
}

void BENCH_CONFIG_HW::program_flash(uint32_t value)
{
    std::vector<uint32_t>* memory = selected_memory();
    const bool reachable = memory && (m_control & CONTROL_FLASH_HOST) && m_flash_address < memory->size();
    if (!reachable || m_fail_step == BENCH_FAIL_STEP::FLASH_PROGRAM)
        m_flash_error = true;
    else
        (*memory)[m_flash_address] &= value; // programming only clears bits; erase sets them
    ++m_flash_address;
}

void BENCH_CONFIG_HW::erase_flash()
{
    std::vector<uint32_t>* memory = selected_memory();
    if (!memory || !(m_control & CONTROL_FLASH_HOST)) {
        m_flash_error = true;
        return;
    }
    std::fill(memory->begin(), memory->end(), 0xFFFFFFFFu);
    m_flash_error = false;
}
