// One device of a programming chain and the design meant for it.
//
// Use: construct (a stand-alone device has a null parent), set_design_file(SOF path), then
// create_chain_element(PGM_CONTENT_CONFIGURATION, 0, nullptr, 0, 0, 0) reads the design, finds
// its die in the device database and checks that the design fits; afterwards the element gives
// the configuration bit vectors (the stream is their bytes in order), the device with its section
// tree, and the embedded-RAM contents.
#pragma once

#include "pgm_device.h"
#include "pgmio_bit_vector.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

// What create_chain_element keeps of a design.
enum PGM_CHAIN_CONTENT : unsigned {
    PGM_CONTENT_IDENTITY = 0,       // which die it is for; no bit vectors ("no device data")
    PGM_CONTENT_CONFIGURATION = 1,  // its configuration bit vectors as well
};

// Where a design's embedded-RAM contents lie in the configuration stream.
struct PGM_ERAM_INFO {
    std::size_t m_start_byte;
    std::size_t m_byte_size;
    const unsigned char* m_data;  // inside the element's bit vectors
};

class PGM_CHAIN_ELEMENT {
public:
    explicit PGM_CHAIN_ELEMENT(PGM_CHAIN_ELEMENT* parent);
    ~PGM_CHAIN_ELEMENT();
    PGM_CHAIN_ELEMENT(const PGM_CHAIN_ELEMENT&) = delete;
    PGM_CHAIN_ELEMENT& operator=(const PGM_CHAIN_ELEMENT&) = delete;

    PGM_CHAIN_ELEMENT* get_parent() const { return m_parent; }
    void set_design_file(const std::string& path) { m_design_file = path; }
    const std::string& get_design_file() const { return m_design_file; }

    // Reads the design file (uncompressed only) for the device at `chain_position` of its chain.
    // `content` is a PGM_CHAIN_CONTENT. A non-empty `expected_die` must name the design's die
    // (ignoring case), a non-zero `expected_idcode` the die's IDCODE, and the design's option bits
    // must satisfy (option bits & option_mask) == option_value. False when the file cannot be read,
    // is not a design for a known die, fails a check or an expectation; get_error() says why.
    bool create_chain_element(unsigned content, unsigned chain_position, const char* expected_die,
                              unsigned expected_idcode, unsigned option_mask, unsigned option_value);

    const std::string& get_error() const { return m_error; }
    unsigned get_chain_position() const { return m_chain_position; }
    // The configuration bit vectors in stream order; empty when the element holds no device data.
    const std::vector<PGMIO_BIT_VECTOR>& get_bit_vector_list() const { return m_bit_vectors; }
    // The device of the design; never null after a successful create_chain_element, null before.
    PGM_DEVICE* get_device() const { return m_device.get(); }
    // The design's embedded-RAM contents; null when the device has none or no bit vectors are held.
    const PGM_ERAM_INFO* get_eram_info() const { return m_eram.get(); }

private:
    bool fail(const std::string& error);
    void find_eram();

    PGM_CHAIN_ELEMENT* m_parent;
    std::string m_design_file;
    std::string m_error;
    unsigned m_chain_position = 0;
    std::vector<PGMIO_BIT_VECTOR> m_bit_vectors;
    std::unique_ptr<PGM_DEVICE> m_device;
    std::unique_ptr<PGM_ERAM_INFO> m_eram;
};
