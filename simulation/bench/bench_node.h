// A node behind a device's virtual-instruction hub, and the shift register every data register
// of the bench is built from.
#pragma once

#include <cstdint>

// A data register between Capture-DR and Update-DR: bits enter at the top, leave at bit 0.
struct BENCH_SHIFT_REGISTER {
    uint64_t bits = 0;
    unsigned width = 1;

    void load(uint64_t value, unsigned register_width)
    {
        width = register_width == 0 ? 1 : register_width;
        bits = width >= 64 ? value : value & ((uint64_t(1) << width) - 1);
    }
    bool lsb() const { return (bits & 1u) != 0; }
    void shift(bool tdi) { bits = (bits >> 1) | (uint64_t(tdi) << (width - 1)); }
};

class BENCH_NODE {
public:
    virtual ~BENCH_NODE() = default;
    virtual unsigned kind() const = 0;
    virtual unsigned version() const { return 1; }
    // The hub's virtual instruction register was updated with an instruction for this node.
    virtual void load_instruction(uint32_t instruction) = 0;
    // Capture-DR of the register the current instruction selects. False when the node fails the
    // transfer (a declared fault); the register then holds nothing useful.
    virtual bool capture(BENCH_SHIFT_REGISTER* reg) = 0;
    // Update-DR with what was shifted in.
    virtual void update(const BENCH_SHIFT_REGISTER& reg) = 0;
    // One TCK cycle on the cable: the nodes' time base.
    virtual void tick() {}
};
