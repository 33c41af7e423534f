#include "pgmd_cm.h"
#include "pgmd_cm_bench.h"

#include "gen.h"
#include "msg.h"

#include <QFile>

#include <mutex>

namespace {

std::mutex g_bench_mutex;
std::shared_ptr<BENCH> g_bench;

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

void install(std::unique_ptr<BENCH> bench)
{
    std::lock_guard<std::mutex> lock(g_bench_mutex);
    g_bench = std::move(bench);
}

// A bench file that cannot be used leaves the engines on the built-in bench, with a warning.
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

} // namespace

std::shared_ptr<BENCH> pgmd_cm_bench()
{
    {
        std::lock_guard<std::mutex> lock(g_bench_mutex);
        if (g_bench)
            return g_bench;
    }
    std::shared_ptr<BENCH> bench = usable_bench();
    std::lock_guard<std::mutex> lock(g_bench_mutex);
    if (!g_bench)
        g_bench = bench;
    return g_bench;
}

bool pgmd_cm_load_bench(const std::string& json_text, std::string* error)
{
    std::string reason;
    std::unique_ptr<BENCH> bench = BENCH::from_json(json_text, &reason);
    if (error)
        *error = reason;
    if (!bench)
        return false;
    install(std::move(bench));
    return true;
}

bool pgmd_cm_reload_bench(std::string* error)
{
    std::string reason;
    std::unique_ptr<BENCH> bench = bench_from_settings(&reason);
    if (error)
        *error = reason;
    if (!bench)
        return false;
    install(std::move(bench));
    return true;
}

std::string pgmd_cm_default_bench()
{
    return BENCH::default_json();
}

std::vector<std::string> pgmd_cm_list_hardware()
{
    std::vector<std::string> names;
    const std::shared_ptr<BENCH> bench = pgmd_cm_bench();
    for (size_t i = 0; i < bench->cable_count(); ++i)
        names.push_back(bench->cable(i).name());
    return names;
}
