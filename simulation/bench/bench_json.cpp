// Reading a bench from its JSON description (the format is documented in bench.h).
#include "bench.h"

#include "bench_config_hw.h"
#include "bench_debug_ip.h"
#include "bench_protocol.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <cmath>

namespace {

constexpr unsigned DEFAULT_IR_LENGTH = 10;

struct PENDING_TARGET {
    BENCH_CONFIG_HW* controller;
    QString cable;
    int device;
    QString where;
};

class LOADER {
public:
    std::unique_ptr<BENCH> load(const std::string& text);
    std::string error;

private:
    bool fail(const QString& where, const QString& what);
    bool check_keys(const QJsonObject& object, const QStringList& allowed, const QString& where);
    bool read_u32(const QJsonObject& object, const QString& key, uint32_t fallback, uint32_t* value, const QString& where);
    bool read_u32_list(const QJsonObject& object, const QString& key, std::vector<uint32_t>* values, const QString& where);
    std::unique_ptr<BENCH_CABLE> read_cable(const QJsonObject& object, const QString& where);
    bool read_cable_faults(const QJsonObject& object, BENCH_CABLE_FAULTS* faults, const QString& where);
    std::unique_ptr<BENCH_DEVICE> read_device(const QJsonObject& object, const QString& where);
    bool read_device_faults(const QJsonObject& object, BENCH_FAIL_STEP* step, int64_t* fail_read_after, const QString& where);
    bool add_debug_ip(BENCH_DEVICE* device, const QJsonObject& object, int64_t fail_read_after, const QString& where);
    bool add_configuration(BENCH_DEVICE* device, const QJsonObject& object, BENCH_FAIL_STEP step, const QString& where);
    bool add_controller(BENCH_DEVICE* device, const QJsonObject& object, BENCH_FAIL_STEP step, const QString& where);
    bool connect_targets(BENCH* bench);

    std::vector<PENDING_TARGET> m_targets;
};

// Lets a loader that returns an object report its failure in one statement.
std::nullptr_t nothing(bool)
{
    return nullptr;
}

bool LOADER::fail(const QString& where, const QString& what)
{
    if (error.empty())
        error = (where.isEmpty() ? what : where + ": " + what).toStdString();
    return false;
}

bool LOADER::check_keys(const QJsonObject& object, const QStringList& allowed, const QString& where)
{
    for (const QString& key : object.keys())
        if (!allowed.contains(key))
            return fail(where, QString("unknown field \"%1\"").arg(key));
    return true;
}

bool LOADER::read_u32(const QJsonObject& object, const QString& key, uint32_t fallback, uint32_t* value, const QString& where)
{
    const QJsonValue json = object.value(key);
    if (json.isUndefined()) {
        *value = fallback;
        return true;
    }
    bool ok = false;
    if (json.isString()) {
        *value = json.toString().toUInt(&ok, 0);
    } else if (json.isDouble()) {
        const double number = json.toDouble();
        ok = number >= 0 && number <= 4294967295.0 && std::floor(number) == number;
        *value = ok ? uint32_t(number) : 0;
    }
    return ok || fail(where, QString("\"%1\" is not an unsigned 32-bit number").arg(key));
}

bool LOADER::read_u32_list(const QJsonObject& object, const QString& key, std::vector<uint32_t>* values, const QString& where)
{
    const QJsonArray array = object.value(key).toArray();
    for (int i = 0; i < array.size(); ++i) {
        QJsonObject holder;
        holder.insert(key, array.at(i));
        uint32_t value = 0;
        if (!read_u32(holder, key, 0, &value, where))
            return false;
        values->push_back(value);
    }
    return true;
}

bool LOADER::read_cable_faults(const QJsonObject& object, BENCH_CABLE_FAULTS* faults, const QString& where)
{
    if (!check_keys(object, {"refuse_open", "refuse_lock", "tdo_stuck"}, where))
        return false;
    faults->refuse_open = object.value("refuse_open").toBool(false);
    faults->refuse_lock = object.value("refuse_lock").toBool(false);
    if (object.contains("tdo_stuck")) {
        const int level = object.value("tdo_stuck").toInt(-1);
        if (level != 0 && level != 1)
            return fail(where, "\"tdo_stuck\" must be 0 or 1");
        faults->tdo_stuck = level;
    }
    return true;
}

bool LOADER::read_device_faults(const QJsonObject& object, BENCH_FAIL_STEP* step, int64_t* fail_read_after, const QString& where)
{
    if (!check_keys(object, {"fail_step", "fail_sample_read_after"}, where))
        return false;
    if (object.contains("fail_step") && !bench_parse_fail_step(object.value("fail_step").toString().toStdString(), step))
        return fail(where, "unknown \"fail_step\"");
    if (object.contains("fail_sample_read_after")) {
        uint32_t count = 0;
        if (!read_u32(object, "fail_sample_read_after", 0, &count, where))
            return false;
        *fail_read_after = count;
    }
    return true;
}

bool LOADER::add_debug_ip(BENCH_DEVICE* device, const QJsonObject& object, int64_t fail_read_after, const QString& where)
{
    if (!check_keys(object, {"seed", "depth", "feature", "fill"}, where))
        return false;
    BENCH_DEBUG_IP_SETUP setup;
    uint32_t feature = 0;
    if (!read_u32(object, "seed", 1, &setup.seed, where) || !read_u32(object, "depth", 1024, &setup.depth, where)
        || !read_u32(object, "feature", 1, &feature, where) || !read_u32(object, "fill", setup.depth, &setup.fill, where))
        return false;
    if (setup.depth % BENCH_PROTOCOL::DESCRIPTOR_DEPTH_UNIT != 0)
        return fail(where, "\"depth\" must be a multiple of 1024");
    if (feature > 15)
        return fail(where, "\"feature\" must fit in four bits");
    setup.feature = feature;
    setup.fail_read_after = fail_read_after;
    device->hub().add_node(std::make_unique<BENCH_DEBUG_IP>(setup));
    return true;
}

bool LOADER::add_configuration(BENCH_DEVICE* device, const QJsonObject& object, BENCH_FAIL_STEP step, const QString& where)
{
    if (!check_keys(object, {"schemes", "passive_vccpgm_mv", "active_vccpgm_mv"}, where))
        return false;
    BENCH_DUT_CAPABILITY capability;
    for (const QJsonValue& scheme : object.value("schemes").toArray()) {
        uint32_t msel = 0;
        if (!bench_scheme_msel(scheme.toString().toStdString(), &msel))
            return fail(where, QString("unknown scheme \"%1\"").arg(scheme.toString()));
        capability.msel.push_back(msel);
    }
    if (!read_u32_list(object, "passive_vccpgm_mv", &capability.passive_mv, where)
        || !read_u32_list(object, "active_vccpgm_mv", &capability.active_mv, where))
        return false;
    device->set_configuration(std::make_unique<BENCH_DUT_CONFIG>(device->idcode(), std::move(capability), step));
    return true;
}

bool LOADER::add_controller(BENCH_DEVICE* device, const QJsonObject& object, BENCH_FAIL_STEP step, const QString& where)
{
    if (!check_keys(object, {"target"}, where))
        return false;
    auto controller = std::make_unique<BENCH_CONFIG_HW>(step);
    if (object.contains("target")) {
        const QJsonObject target = object.value("target").toObject();
        m_targets.push_back({controller.get(), target.value("cable").toString(), target.value("device").toInt(0), where});
    }
    device->hub().add_node(std::move(controller));
    return true;
}

std::unique_ptr<BENCH_DEVICE> LOADER::read_device(const QJsonObject& object, const QString& where)
{
    if (!check_keys(object, {"name", "idcode", "ir_length", "debug_ip", "configuration", "configuration_hardware", "faults"}, where))
        return nullptr;
    const QString name = object.value("name").toString();
    uint32_t idcode = 0;
    uint32_t ir_length = 0;
    if (name.isEmpty())
        return nothing(fail(where, "\"name\" is missing"));
    if (!object.contains("idcode"))
        return nothing(fail(where, "\"idcode\" is missing"));
    if (!read_u32(object, "idcode", 0, &idcode, where) || !read_u32(object, "ir_length", DEFAULT_IR_LENGTH, &ir_length, where))
        return nullptr;
    if ((idcode & 1u) == 0)
        return nothing(fail(where, "an IDCODE has bit 0 set"));
    if (ir_length < BENCH_PROTOCOL::MIN_IR_LENGTH || ir_length > BENCH_PROTOCOL::MAX_IR_LENGTH)
        return nothing(fail(where, "\"ir_length\" out of range"));

    BENCH_FAIL_STEP step = BENCH_FAIL_STEP::NONE;
    int64_t fail_read_after = -1;
    if (!read_device_faults(object.value("faults").toObject(), &step, &fail_read_after, where + " faults"))
        return nullptr;
    auto device = std::make_unique<BENCH_DEVICE>(name.toStdString(), idcode, ir_length);
    const bool ok = (!object.contains("debug_ip") || add_debug_ip(device.get(), object.value("debug_ip").toObject(), fail_read_after, where + " debug_ip"))
        && (!object.contains("configuration") || add_configuration(device.get(), object.value("configuration").toObject(), step, where + " configuration"))
        && (!object.contains("configuration_hardware")
            || add_controller(device.get(), object.value("configuration_hardware").toObject(), step, where + " configuration_hardware"));
    return ok ? std::move(device) : nullptr;
}

std::unique_ptr<BENCH_CABLE> LOADER::read_cable(const QJsonObject& object, const QString& where)
{
    if (!check_keys(object, {"name", "faults", "chain"}, where))
        return nullptr;
    const QString name = object.value("name").toString();
    if (name.isEmpty())
        return nothing(fail(where, "\"name\" is missing"));
    BENCH_CABLE_FAULTS faults;
    if (!read_cable_faults(object.value("faults").toObject(), &faults, where + " faults"))
        return nullptr;
    auto cable = std::make_unique<BENCH_CABLE>(name.toStdString(), faults);
    const QJsonArray chain = object.value("chain").toArray();
    for (int i = 0; i < chain.size(); ++i) {
        auto device = read_device(chain.at(i).toObject(), QString("cable \"%1\" device %2").arg(name).arg(i + 1));
        if (!device)
            return nullptr;
        cable->add_device(std::move(device));
    }
    return cable;
}

bool LOADER::connect_targets(BENCH* bench)
{
    for (const PENDING_TARGET& target : m_targets) {
        BENCH_CABLE* cable = bench->find_cable(target.cable.toStdString());
        if (!cable || target.device < 1 || size_t(target.device) > cable->device_count())
            return fail(target.where, "the target names no device of the bench");
        BENCH_DUT_CONFIG* dut = cable->device(size_t(target.device - 1)).configuration();
        if (!dut)
            return fail(target.where, "the target device has no \"configuration\"");
        target.controller->connect(dut);
    }
    return true;
}

std::unique_ptr<BENCH> LOADER::load(const std::string& text)
{
    QJsonParseError parse_error;
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(text), &parse_error);
    if (document.isNull())
        return nothing(fail("", "not JSON: " + parse_error.errorString()));
    const QJsonArray cables = document.object().value("cables").toArray();
    if (cables.isEmpty())
        return nothing(fail("", "the bench has no \"cables\""));
    auto bench = std::make_unique<BENCH>();
    for (int i = 0; i < cables.size(); ++i) {
        auto cable = read_cable(cables.at(i).toObject(), QString("cable %1").arg(i + 1));
        if (!cable)
            return nullptr;
        if (bench->find_cable(cable->name()))
            return nothing(fail(QString("cable %1").arg(i + 1), "the name is used twice"));
        bench->add_cable(std::move(cable));
    }
    return connect_targets(bench.get()) ? std::move(bench) : nullptr;
}

} // namespace

std::unique_ptr<BENCH> BENCH::from_json(const std::string& text, std::string* error)
{
    LOADER loader;
    std::unique_ptr<BENCH> bench = loader.load(text);
    if (error)
        *error = loader.error;
    return bench;
}
