// The simulated test bench: JTAG cables, each with a chain of devices answering through their
// TAP controllers. A bench is described by a JSON document (format below); one is built in.
//
//   { "cables": [ {
//       "name": "DUT-USB [1-2]",
//       "faults": { "refuse_open": false, "refuse_lock": false, "tdo_stuck": 0 | 1 },
//       "chain": [ {                            // from TDI to TDO: device @1 first
//           "name": "BR5-TV1-ES",
//           "idcode": "0x0B4150F3",             // a string in hexadecimal or a number
//           "ir_length": 10,                    // default 10
//           "debug_ip": { "seed": 1, "depth": 1024, "feature": 1, "fill": 1024 },
//           "configuration": { "schemes": ["ps", "asx1"],
//                              "passive_vccpgm_mv": [1800], "active_vccpgm_mv": [3000] },
//           "configuration_hardware": { "target": { "cable": "DUT-USB [1-2]", "device": 1 } },
//           "faults": { "fail_step": "power" | "flash_program" | "flash_verify" | "configure",
//                       "fail_sample_read_after": 512 }
//       } ] } ] }
//
// "debug_ip" puts the debug IP behind the device's hub (depth a multiple of 1024, fill defaults
// to the depth); "configuration" makes the device a DUT the bench controller can configure;
// "configuration_hardware" makes it the bench controller, wired to the target device (1-based
// position on that cable's chain). Faults: a cable may refuse to be opened or locked or have its
// TDO stuck (every scan reads that level); "fail_step" makes one configuration step fail on the
// controller ("power", "flash_program", "flash_verify") or on the DUT ("configure");
// "fail_sample_read_after" N makes the debug IP's read of sample N onwards a transfer error.
#pragma once

#include "bench_device.h"

#include "pgmd_cm_jtag_adapter.h"

#include <memory>
#include <string>
#include <vector>

struct BENCH_CABLE_FAULTS {
    bool refuse_open = false;
    bool refuse_lock = false;
    int tdo_stuck = -1; // -1: TDO works; 0 or 1: the level every scan reads
};

// A cable of the bench: one implementation of the chain manager's JTAG adapter.
class BENCH_CABLE : public PGMD_CM_JTAG_ADAPTER {
public:
    BENCH_CABLE(std::string name, BENCH_CABLE_FAULTS faults);

    const std::string& name() const override { return m_name; }
    void add_device(std::unique_ptr<BENCH_DEVICE> device);
    size_t device_count() const { return m_devices.size(); }
    BENCH_DEVICE& device(size_t index) { return *m_devices[index]; } // 0 = nearest TDI

    bool open() override { return !m_faults.refuse_open; }
    bool lock(const void* owner) override;
    void unlock(const void* owner) override;
    const void* lock_owner() const override { return m_lock_owner; }
    bool clock(bool tms, bool tdi, bool* tdo) override;
    // The cable has no TRST: five TCK cycles with TMS high.
    bool reset() override;

private:
    std::string m_name;
    BENCH_CABLE_FAULTS m_faults;
    std::vector<std::unique_ptr<BENCH_DEVICE>> m_devices;
    const void* m_lock_owner = nullptr;
};

class BENCH {
public:
    // Builds a bench from its JSON text; null with the reason in `error` when the text is invalid.
    static std::unique_ptr<BENCH> from_json(const std::string& text, std::string* error);
    static std::string default_json();

    void add_cable(std::unique_ptr<BENCH_CABLE> cable);
    size_t cable_count() const { return m_cables.size(); }
    BENCH_CABLE& cable(size_t index) { return *m_cables[index]; }
    BENCH_CABLE* find_cable(const std::string& name);

    // The part name the bench's device descriptions give this IDCODE; "" when unknown.
    std::string part_name(uint32_t idcode) const;

private:
    std::vector<std::unique_ptr<BENCH_CABLE>> m_cables;
};
