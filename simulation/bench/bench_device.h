// A JTAG device of the bench: a TAP controller with an instruction register, the IDCODE and
// BYPASS registers and, when it carries nodes (debug IP, configuration test hardware), the
// virtual-instruction hub that reaches them (instruction codes in bench_protocol.h).
#pragma once

#include "bench_node.h"
#include "bench_tap.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class BENCH_DUT_CONFIG;

class BENCH_HUB {
public:
    void add_node(std::unique_ptr<BENCH_NODE> node);
    bool empty() const { return m_nodes.empty(); }

    void reset();
    uint32_t vir() const { return m_vir; }
    void update_vir(uint32_t value);
    bool capture_vdr(BENCH_SHIFT_REGISTER* reg);
    void update_vdr(const BENCH_SHIFT_REGISTER& reg);
    void tick();

private:
    BENCH_NODE* addressed_node() const;
    uint32_t next_info_word();

    std::vector<std::unique_ptr<BENCH_NODE>> m_nodes;
    uint32_t m_vir = 0;
    size_t m_info_index = 0;
};

class BENCH_DEVICE {
public:
    BENCH_DEVICE(std::string name, uint32_t idcode, unsigned ir_length);
    ~BENCH_DEVICE();

    const std::string& name() const { return m_name; }
    uint32_t idcode() const { return m_idcode; }
    unsigned ir_length() const { return m_ir_length; }
    BENCH_HUB& hub() { return m_hub; }
    // The DUT's configuration logic, when the device is configured by the bench controller.
    void set_configuration(std::unique_ptr<BENCH_DUT_CONFIG> configuration);
    BENCH_DUT_CONFIG* configuration() { return m_configuration.get(); }

    uint32_t instruction() const { return m_instruction; }

    // The level driven on TDO during the current TCK cycle (pulled high outside the shift states).
    bool tdo() const;
    // The rising edge of TCK. False when a register failed its capture (a transfer error).
    bool clock(bool tms, bool tdi);

private:
    void reset();
    bool capture_dr();
    void update_dr();

    std::string m_name;
    uint32_t m_idcode;
    unsigned m_ir_length;
    BENCH_HUB m_hub;
    std::unique_ptr<BENCH_DUT_CONFIG> m_configuration;
    BENCH_TAP_STATE m_state = BENCH_TAP_STATE::TEST_LOGIC_RESET;
    uint32_t m_instruction = 0;
    BENCH_SHIFT_REGISTER m_ir;
    BENCH_SHIFT_REGISTER m_dr;
};
