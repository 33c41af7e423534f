// The suite's chain manager: JTAG access to the cables of the test bench (PGMD_CM_ENGINE), the
// test-case generator (PGMD_CM_GENERATOR) and the test manager that writes a batch's raw file and
// runs its tests on the bench (PGMD_CM_MANAGER).
//
// An engine drives the JTAG adapters of the bench its creator gives it (PGMD_CM_BENCH): the
// site's bench for the panels, a bench of their own for tests. Cables are named by a hardware
// handle: the 1-based position of the cable in its bench's list (pgmd_cm_list_hardware), 0 for
// none. Devices on a chain are numbered from the TDI end: device index 0 is "@1". Every engine
// operation becomes instruction and data shifts through the adapter; the devices' debug IP and
// test hardware are reached through their virtual-instruction hub.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class PGMD_CM_JTAG_ADAPTER;

// The JTAG hardware engines reach: adapters in handle order and the descriptions of the parts
// on their chains. Engines on one bench share its adapters, their locks and the devices' state.
class PGMD_CM_BENCH {
public:
    virtual ~PGMD_CM_BENCH() = default;
    virtual size_t adapter_count() const = 0;
    // Null past the end. Holding it keeps the adapter usable for an operation even when the
    // bench's hardware is replaced meanwhile.
    virtual std::shared_ptr<PGMD_CM_JTAG_ADAPTER> adapter(size_t index) = 0;
    // The part name the bench's device descriptions give this IDCODE; "" when unknown.
    virtual std::string part_name(uint32_t idcode) const = 0;
};

enum PGMD_CM_SCAN_ERROR { PGMD_CM_SCAN_ERROR_NONE = 0, PGMD_CM_SCAN_ERROR_NO_HARDWARE, PGMD_CM_SCAN_ERROR_CHAIN };

struct PGMD_CM_DEVICE {
    std::string name;
    unsigned idcode;
};

class PGMD_CM_ENGINE {
public:
    explicit PGMD_CM_ENGINE(std::shared_ptr<PGMD_CM_BENCH> bench);
    ~PGMD_CM_ENGINE();
    PGMD_CM_ENGINE(const PGMD_CM_ENGINE&) = delete;
    PGMD_CM_ENGINE& operator=(const PGMD_CM_ENGINE&) = delete;

    // Binds the DUT cable (dut true) or the test-bench cable. False, and unbound, for handle 0,
    // an unknown handle or a cable that refuses to open. Rebinding releases a held lock.
    bool set_tji_hardware(bool dut, unsigned hardware);
    std::string get_hardware_name(bool dut) const; // "" when none is bound
    // Reads the IDCODEs of the first four devices of the DUT chain into the caller's arrays of 4
    // ((*present)[i], (*ids)[i]). Returns 0, or the PGMD_CM_SCAN_ERROR that stopped it.
    int read_dut_id(bool** present, unsigned** ids);
    // The chain's devices from the TDI end (names from the DUT catalogue, else from the bench's
    // device descriptions); a new[] array the caller delete[]s, null with *error set on failure.
    PGMD_CM_DEVICE* scan_chain(bool dut, unsigned* count, int* error);
    // The number of devices the caller expects on the DUT chain (0: any); startup checks it.
    void set_dut_count(unsigned count);
    unsigned get_dut_count() const;
    // Locks the cable, resets the chain and learns it. False on a refused cable, a scan error or a
    // DUT chain that does not hold the expected number of devices; the cable is then unlocked.
    bool startup_hardware(bool dut, bool reserved);
    void unlock_hardware(bool dut);
    bool is_locked(bool dut) const;
    // Finds the node of this kind (4 = debug IP, 5 = configuration test hardware) behind the hub
    // of the device; later virtual instructions for the device go to it. Needs a started cable.
    bool determine_dut_sld_node(unsigned device_index, unsigned node_kind);
    bool determine_sld_node(bool dut, unsigned device_index, unsigned node_kind);
    // Loads a 12-bit virtual instruction into the device's node and selects the node's data
    // register; with check_status the instruction is read back and must match.
    bool load_jtag_virtual_instruction(bool dut, unsigned instruction, unsigned device_index, bool reserved, bool check_status);
    // One data-register shift of `bits` bits writing zeros; the bits read go to buffer LSB first
    // (bit b in byte b / 8). False on a transfer error.
    bool read_dr_data(bool dut, unsigned bits, unsigned char* buffer, unsigned device_index);
    // One data-register shift of up to 32 bits writing write_value and reading *read_value.
    bool write_read_dr_data(bool dut, unsigned write_value, unsigned bits, unsigned reserved, unsigned* read_value, unsigned device_index);

private:
    struct PRIVATE;
    std::unique_ptr<PRIVATE> m_private;
};

class PGMD_CM_GENERATOR {
public:
    // The command lines ordered so that consecutive tests change as little as possible: grouped
    // by DUT, then memory, scheme and clock, the supply changing fastest. Lines that are not
    // commands of the catalogue follow in their order. A new[] array of count strings the caller delete[]s.
    std::string* optimize_test_case(unsigned count, std::string* lines);
    // The process lines the batch's commands need ("PROCESS +Generate SOF", ...): every test
    // needs the SOF; passive schemes need the flash loader IP and its flash image (PFL IP, PFL
    // POF), active schemes the serial configuration image (JIC).
    std::vector<std::string> determine_process(unsigned count, std::string* lines);
};

class PGMD_CM_MANAGER {
public:
    explicit PGMD_CM_MANAGER(std::shared_ptr<PGMD_CM_BENCH> bench) : m_engine(std::move(bench)) {}

    PGMD_CM_GENERATOR m_generator;
    PGMD_CM_ENGINE m_engine;

    PGMD_CM_GENERATOR* get_generator() { return &m_generator; }
    PGMD_CM_ENGINE* get_engine() { return &m_engine; }
    // Writes the batch's raw file (format in pgmd_cm_manager.cpp) into the work directory
    // (setting "kiopru/work_dir"). 0 on success, 1 when the file cannot be written, 2 when a
    // command line cannot be read.
    int generate_raw_file(unsigned count, std::string* lines);
    // Runs every command line on the bench through the two bound cables: per test a verdict line
    // with " - Pass" or " - Fail", followed by its detail lines.
    std::vector<std::string> execute_test(unsigned count, std::string* lines, bool skip_flash);
    std::string raw_file_path() const { return m_raw_file_path; }

private:
    std::string m_raw_file_path;
};

// For the hardware dialog: the bench's cables in handle order (handle = index + 1).
std::vector<std::string> pgmd_cm_list_hardware(PGMD_CM_BENCH& bench);

// A bench of simulated hardware from its JSON document (format in suite/bench/bench.h); null with
// the reason in *error when the text is not a valid bench.
std::shared_ptr<PGMD_CM_BENCH> pgmd_cm_bench_from_json(const std::string& json_text, std::string* error);
// The built-in bench's text, for describing a changed bench.
std::string pgmd_cm_default_bench();

// The site's bench, which the panels give the engines they create: the bench file the setting
// "bench/file" names, or the built-in bench, read on first use. Every caller gets the same bench.
std::shared_ptr<PGMD_CM_BENCH> pgmd_cm_site_bench();
// Other hardware at the site, as if it were plugged in: the site's bench (and so every engine
// given it) now holds this bench, in its power-up state. False, and the bench unchanged, with the
// reason in *error when the text is not a valid bench.
bool pgmd_cm_load_bench(const std::string& json_text, std::string* error);
// Back to the bench the settings name (or the built-in one), in its power-up state.
bool pgmd_cm_reload_bench(std::string* error);
