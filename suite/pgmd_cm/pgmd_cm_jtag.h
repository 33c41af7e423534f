// The engine's JTAG layer over one adapter: TAP navigation from Run-Test/Idle, whole-chain
// instruction and data scans, and the discovery of a chain's devices and IR lengths.
#pragma once

#include "pgmd_cm.h"
#include "pgmd_cm_jtag_adapter.h"

#include <cstdint>
#include <vector>

// Bits in shift order: the first bit enters TDI first and ends nearest TDO.
typedef std::vector<bool> PGMD_CM_BITS;

struct PGMD_CM_CHAIN_DEVICE {
    uint32_t idcode = 0; // 0 for a device without IDCODE register
    unsigned ir_length = 0;
};

class PGMD_CM_JTAG {
public:
    explicit PGMD_CM_JTAG(PGMD_CM_JTAG_ADAPTER& adapter) : m_adapter(adapter) {}

    // Test-Logic-Reset, then Run-Test/Idle: every device holds IDCODE (or BYPASS).
    bool reset();
    // From Run-Test/Idle through the IR (or DR) column and back; out receives the bits that left
    // TDO, in shift order. False on a transfer error.
    bool scan_ir(const PGMD_CM_BITS& in, PGMD_CM_BITS* out);
    bool scan_dr(const PGMD_CM_BITS& in, PGMD_CM_BITS* out);

    // Learns the chain from the TDI end: IDCODEs, IR lengths, and a bypass check that the chain
    // passes data through. Leaves every device in BYPASS.
    PGMD_CM_SCAN_ERROR discover(std::vector<PGMD_CM_CHAIN_DEVICE>* chain);

private:
    bool clock(bool tms, bool tdi, bool* tdo);
    bool scan(bool instruction, const PGMD_CM_BITS& in, PGMD_CM_BITS* out);
    PGMD_CM_SCAN_ERROR read_idcodes(std::vector<PGMD_CM_CHAIN_DEVICE>* chain);
    PGMD_CM_SCAN_ERROR read_ir_lengths(std::vector<PGMD_CM_CHAIN_DEVICE>* chain);
    PGMD_CM_SCAN_ERROR check_bypass(size_t device_count);

    PGMD_CM_JTAG_ADAPTER& m_adapter;
};

// Appends `bits` bits of value, least significant first; reads them back the same way.
void pgmd_cm_append_bits(PGMD_CM_BITS* bits, uint64_t value, unsigned count);
uint64_t pgmd_cm_bits_value(const PGMD_CM_BITS& bits, size_t offset, unsigned count);
