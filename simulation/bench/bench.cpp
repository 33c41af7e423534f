#include "bench.h"

#include <QFile>

BENCH_CABLE::BENCH_CABLE(std::string name, BENCH_CABLE_FAULTS faults) : m_name(std::move(name)), m_faults(faults)
{
}

void BENCH_CABLE::add_device(std::unique_ptr<BENCH_DEVICE> device)
{
    m_devices.push_back(std::move(device));
}

bool BENCH_CABLE::lock(const void* owner)
{
    if (m_faults.refuse_open || m_faults.refuse_lock)
        return false;
    if (m_lock_owner && m_lock_owner != owner)
        return false;
    m_lock_owner = owner;
    return true;
}

void BENCH_CABLE::unlock(const void* owner)
{
    if (m_lock_owner == owner)
        m_lock_owner = nullptr;
}

bool BENCH_CABLE::clock(bool tms, bool tdi, bool* tdo)
{
    // Each device's TDO is the next one's TDI; a device's output is read before its edge.
    bool ok = true;
    bool signal = tdi;
    for (auto& device : m_devices) {
        const bool out = device->tdo();
        ok = device->clock(tms, signal) && ok;
        signal = out;
    }
    *tdo = m_faults.tdo_stuck < 0 ? signal : m_faults.tdo_stuck != 0;
    return ok;
}

bool BENCH_CABLE::reset()
{
    bool ok = true;
    bool tdo = false;
    for (int i = 0; i < 5; ++i)
        ok = clock(true, false, &tdo) && ok;
    return ok;
}

void BENCH::add_cable(std::unique_ptr<BENCH_CABLE> cable)
{
    m_cables.push_back(std::move(cable));
}

BENCH_CABLE* BENCH::find_cable(const std::string& name)
{
    for (auto& cable : m_cables)
        if (cable->name() == name)
            return cable.get();
    return nullptr;
}

std::string BENCH::part_name(uint32_t idcode) const
{
    for (const auto& cable : m_cables)
        for (size_t i = 0; i < cable->device_count(); ++i)
            if (cable->device(i).idcode() == idcode)
                return cable->device(i).name();
    return std::string();
}

std::string BENCH::default_json()
{
    QFile file(":/bench/bench_default.json");
    file.open(QIODevice::ReadOnly);
    return file.readAll().toStdString();
}
