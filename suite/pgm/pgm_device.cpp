#include "pgm_device.h"

#include <strings.h>

namespace {

// Frame lengths grow with the die; the smallest dies keep test streams at a few KiB and KS470
// carries a stream of just over 32 MiB.
const std::vector<PGM_DIE_INFO> DIES = {
    // family    die      idcode      L     periphery core sections x frames  eram
    {"boreal5", "B5D1", 0x02B150DDu, 256, 64, 2, 16, 1024},
    {"boreal5", "B5D2", 0x02B250DDu, 512, 64, 2, 32, 2048},
    {"boreal5", "B5D3", 0x02B350DDu, 512, 128, 3, 32, 4096},
    {"boreal5", "B5D4", 0x02B450DDu, 1024, 256, 3, 64, 16384},
    {"boreal5", "B5D5", 0x02B550DDu, 2048, 512, 4, 96, 65536},
    {"boreal5", "B5D6", 0x02B650DDu, 4096, 1024, 4, 192, 262144},
    {"calder5", "C5D1", 0x02C150DDu, 256, 48, 2, 16, 512},
    {"calder5", "C5D2", 0x02C250DDu, 512, 96, 2, 48, 0},
    {"calder5", "C5D3", 0x02C350DDu, 1024, 512, 3, 128, 32768},
    {"calder5", "C5D4", 0x02C450DDu, 4096, 2048, 4, 384, 262144},
    {"dunlin5", "D5D1", 0x02D150DDu, 384, 64, 2, 24, 1024},
    {"dunlin5", "D5D2", 0x02D250DDu, 512, 128, 2, 64, 4096},
    {"dunlin5", "D5D3", 0x02D350DDu, 1024, 384, 3, 128, 16384},
    {"dunlin5", "D5D4", 0x02D450DDu, 2048, 768, 4, 128, 65536},
    {"dunlin5", "D5D5", 0x02D550DDu, 4096, 4096, 4, 512, 524288},
    {"kestrel", "KS50", 0x0350A0DDu, 320, 96, 2, 32, 2048},
    {"kestrel", "KS120", 0x0312A0DDu, 2048, 2048, 3, 512, 131072},
    {"kestrel", "KS470", 0x0347A0DDu, 8192, 16384, 4, 3072, 4194304},
};

} // namespace

const std::vector<PGM_DIE_INFO>& PGM_DEVICE_DATABASE::get_dies()
{
    return DIES;
}

const PGM_DIE_INFO* PGM_DEVICE_DATABASE::find_die(const std::string& die)
{
    for (const PGM_DIE_INFO& row : DIES)
        if (strcasecmp(row.die, die.c_str()) == 0)
            return &row;
    return nullptr;
}

PGM_DEVICE::PGM_DEVICE(const PGM_DIE_INFO& die)
    : m_die(die), m_name(die.die), m_family(die.family), m_pcf(std::make_unique<PGM_PCF_CONTAINER>(die))
{
}
