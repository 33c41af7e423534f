// The bench controller's configuration test hardware as the engine reaches it: a register file
// behind a node of the hub of a device on the test-bench chain (registers in bench_protocol.h).
#pragma once

#include "pgmd_cm.h"

#include <cstdint>
#include <vector>

class PGMD_CM_CONTROLLER {
public:
    // Finds the first device of the started test-bench chain that carries the hardware.
    static bool locate(PGMD_CM_ENGINE& engine, unsigned* device_index);

    PGMD_CM_CONTROLLER(PGMD_CM_ENGINE& engine, unsigned device_index) : m_engine(engine), m_device(device_index) {}

    bool read(uint32_t reg, uint32_t* value);
    bool write(uint32_t reg, uint32_t value);
    // Consecutive accesses of one register (the flash data register moves its address on).
    bool write_words(uint32_t reg, const std::vector<uint32_t>& words);
    bool read_words(uint32_t reg, size_t count, std::vector<uint32_t>* words);

private:
    bool select(uint32_t instruction);
    bool shift(uint32_t write, uint32_t* read);

    PGMD_CM_ENGINE& m_engine;
    unsigned m_device;
};
