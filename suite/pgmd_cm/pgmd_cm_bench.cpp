// Benches of simulated hardware, and the site's bench the panels drive.
#include "pgmd_cm.h"
#include "pgmd_cm_jtag_adapter.h"

#include "bench.h"
#include "gen.h"
#include "msg.h"

#include <QFile>

#include <mutex>

namespace {

// A simulated bench as the engines see it. The hardware it holds can be replaced while engines
// use it; an adapter handed out keeps the hardware it belongs to alive until it is let go.
class SIMULATED_BENCH : public PGMD_CM_BENCH {
public:
    explicit SIMULATED_BENCH(std::shared_ptr<BENCH> hardware) : m_hardware(std::move(hardware)) {}

    void replace(std::shared_ptr<BENCH> hardware)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_hardware = std::move(hardware);
    }
    size_t adapter_count() const override { return hardware()->cable_count(); }
    std::shared_ptr<PGMD_CM_JTAG_ADAPTER> adapter(size_t index) override
    {
        const std::shared_ptr<BENCH> current = hardware();
        if (index >= current->cable_count())
            return nullptr;
        return std::shared_ptr<PGMD_CM_JTAG_ADAPTER>(current, &current->cable(index));
    }
    std::string part_name(uint32_t idcode) const override { return hardware()->part_name(idcode); }

private:
    std::shared_ptr<BENCH> hardware() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_hardware;
    }

    mutable std::mutex m_mutex;
    std::shared_ptr<BENCH> m_hardware;
};

std::unique_ptr<BENCH> bench_from_settings(std::string* error)
{
    const std::string path = gen_get_setting("bench/file", "");
    if (path.empty())
        return BENCH::from_json(BENCH::default_json(), error);
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly)) {
        *error = "cannot read the bench file " + path;
        return nullptr;
    }
    std::unique_ptr<BENCH> bench = BENCH::from_json(file.readAll().toStdString(), error);
    if (!bench)
        *error = path + ": " + *error;
    return bench;
}

// A bench file that cannot be used leaves the site on the built-in bench, with a warning.
std::unique_ptr<BENCH> usable_bench()
{
    std::string error;
    std::unique_ptr<BENCH> bench = bench_from_settings(&error);
    if (bench)
        return bench;
    auto* warning = new MSG_W("%1!s!; the built-in bench is used/WPGMD_CM_BENCH_FILE");
    warning->fill_args(error);
    msg_post(warning);
    return BENCH::from_json(BENCH::default_json(), &error);
}

// Made on first use, by whoever first creates an engine for the site.
const std::shared_ptr<SIMULATED_BENCH>& site()
{
    static const std::shared_ptr<SIMULATED_BENCH> bench = std::make_shared<SIMULATED_BENCH>(usable_bench());
    return bench;
}

// Replaces the site's hardware with what `make` builds, unless it fails.
template <class MAKE> bool replace_site_hardware(MAKE make, std::string* error)
{
    std::string reason;
    std::unique_ptr<BENCH> bench = make(&reason);
    if (error)
        *error = reason;
    if (!bench)
        return false;
    site()->replace(std::move(bench));
    return true;
}

} // namespace

std::shared_ptr<PGMD_CM_BENCH> pgmd_cm_bench_from_json(const std::string& json_text, std::string* error)
{
    std::shared_ptr<BENCH> hardware = BENCH::from_json(json_text, error);
    if (!hardware)
        return nullptr;
    return std::make_shared<SIMULATED_BENCH>(std::move(hardware));
}

std::string pgmd_cm_default_bench()
{
    return BENCH::default_json();
}

std::shared_ptr<PGMD_CM_BENCH> pgmd_cm_site_bench()
{
    return site();
}

bool pgmd_cm_load_bench(const std::string& json_text, std::string* error)
{
    return replace_site_hardware([&json_text](std::string* reason) { return BENCH::from_json(json_text, reason); }, error);
}

bool pgmd_cm_reload_bench(std::string* error)
{
    return replace_site_hardware(bench_from_settings, error);
}

std::vector<std::string> pgmd_cm_list_hardware(PGMD_CM_BENCH& bench)
{
    std::vector<std::string> names;
    for (size_t i = 0; i < bench.adapter_count(); ++i)
        if (const std::shared_ptr<PGMD_CM_JTAG_ADAPTER> adapter = bench.adapter(i))
            names.push_back(adapter->name());
    return names;
}
