// The configuration test hardware of the bench controller (node kind 5) and the configuration
// logic of the DUT it drives. The controller sets the DUT's MSEL pins, its VCCPGM supply, which
// memory slot and which clock feed its configuration port, programs the memories, and releases
// nCONFIG; the DUT then boots from the wired memory and reports CONF_DONE or an error code
// (registers and codes in bench_protocol.h).
#pragma once

#include "bench_node.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// Steps a declared fault can make fail.
enum class BENCH_FAIL_STEP {
    NONE,
    POWER,         // controller: the supply never reaches its set point
    FLASH_PROGRAM, // controller: flash writes are lost and the flash error bit is set
    FLASH_VERIFY,  // controller: flash reads return bit 0 inverted
    CONFIGURE,     // DUT: configuration ends in a CRC error
};

// Parses the fault name used in bench files ("power", "flash_program", ...); false if unknown.
bool bench_parse_fail_step(const std::string& name, BENCH_FAIL_STEP* step);

// What the DUT's configuration port sees when nCONFIG is released.
struct BENCH_CONFIG_INPUTS {
    uint32_t vccpgm_mv = 0;
    uint32_t msel = 0;
    uint32_t memory_slot = 0;
    uint32_t clock = 0;
    bool memory_at_controller = false;
    const std::vector<uint32_t>* memory = nullptr; // content of the wired slot
};

// The schemes (by MSEL code) and supply levels the DUT's silicon accepts.
struct BENCH_DUT_CAPABILITY {
    std::vector<uint32_t> msel;
    std::vector<uint32_t> passive_mv;
    std::vector<uint32_t> active_mv;
};

// Scheme keys of bench files ("ps", "fppx8", "fppx16", "fppx32", "asx1", "asx4") to MSEL codes.
bool bench_scheme_msel(const std::string& key, uint32_t* msel);

class BENCH_DUT_CONFIG {
public:
    BENCH_DUT_CONFIG(uint32_t idcode, BENCH_DUT_CAPABILITY capability, BENCH_FAIL_STEP fail_step);

    void configure(const BENCH_CONFIG_INPUTS& inputs);
    void clear(); // power removed or nCONFIG pulled low
    bool configured() const { return m_configured; }
    uint32_t error() const { return m_error; }

private:
    uint32_t check(const BENCH_CONFIG_INPUTS& inputs) const;
    uint32_t check_image(const BENCH_CONFIG_INPUTS& inputs) const;

    uint32_t m_idcode;
    BENCH_DUT_CAPABILITY m_capability;
    BENCH_FAIL_STEP m_fail_step;
    bool m_configured = false;
    uint32_t m_error = 0;
};

class BENCH_CONFIG_HW : public BENCH_NODE {
public:
    explicit BENCH_CONFIG_HW(BENCH_FAIL_STEP fail_step);

    // The DUT wired to the controller's configuration port (null: none).
    void connect(BENCH_DUT_CONFIG* dut) { m_dut = dut; }

    unsigned kind() const override;
    void load_instruction(uint32_t instruction) override;
    bool capture(BENCH_SHIFT_REGISTER* reg) override;
    void update(const BENCH_SHIFT_REGISTER& reg) override;

    uint32_t read_register(uint32_t address, bool advance);
    void write_register(uint32_t address, uint32_t value);

private:
    uint32_t measured_vccpgm() const;
    uint32_t status() const;
    void write_control(uint32_t value);
    void release_nconfig();
    uint32_t read_flash(bool advance);
    void program_flash(uint32_t value);
    void erase_flash();
    std::vector<uint32_t>* selected_memory();

    BENCH_FAIL_STEP m_fail_step;
    BENCH_DUT_CONFIG* m_dut = nullptr;
    uint32_t m_instruction = 0;
    uint32_t m_control = 0;
    uint32_t m_msel = 0;
    uint32_t m_vccpgm_mv = 0;
    uint32_t m_memory = 0;
    uint32_t m_clock = 0;
    uint32_t m_flash_address = 0;
    bool m_flash_error = false;
    uint32_t m_controller_error = 0;
    std::array<std::vector<uint32_t>, 7> m_memories;
};
