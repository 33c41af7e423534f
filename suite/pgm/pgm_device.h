// The programmer's device database (one row per die) and the device a design is programmed into.
#pragma once

#include "pgm_pcf.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

// One die. Its configuration stream is, in order: the 64-byte option block; `edcrc_frames` frames
// with an error-detection CRC ("periphery"); `core_sections` sections of `core_frames` core frames
// each ("core"); `eram_bytes` bytes of embedded-RAM contents ("eram", absent when 0). Frames are
// `frame_bits` long.
struct PGM_DIE_INFO {
    const char* family;  // family key
    const char* die;
    unsigned idcode;
    unsigned frame_bits;
    unsigned edcrc_frames;
    unsigned core_sections;
    unsigned core_frames;
    unsigned eram_bytes;
};

class PGM_DEVICE_DATABASE {
public:
    // Every die the programmer knows, family by family.
    static const std::vector<PGM_DIE_INFO>& get_dies();
    // The row of a die (name compared ignoring case); null when the programmer does not know it.
    static const PGM_DIE_INFO* find_die(const std::string& die);
};

class PGM_DEVICE {
public:
    explicit PGM_DEVICE(const PGM_DIE_INFO& die);
    PGM_DEVICE(const PGM_DEVICE&) = delete;
    PGM_DEVICE& operator=(const PGM_DEVICE&) = delete;

    const std::string& get_name() const { return m_name; }
    const std::string& get_family() const { return m_family; }
    unsigned get_idcode() const { return m_die.idcode; }
    const PGM_DIE_INFO& get_die_info() const { return m_die; }
    // The device's PCF information; never null.
    const PGM_PCF_CONTAINER* get_pcf_info() const { return m_pcf.get(); }
    std::size_t get_stream_byte_size() const { return m_pcf->get_stream_byte_size(); }

private:
    const PGM_DIE_INFO& m_die;
    std::string m_name;
    std::string m_family;
    std::unique_ptr<PGM_PCF_CONTAINER> m_pcf;
};
