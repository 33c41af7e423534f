// Benches for the chain manager's tests: the built-in bench, changed where a test needs it, each
// test's own.
#pragma once

#include "pgmd_cm.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <variant>

typedef std::variant<const char*, int> BENCH_PATH_STEP;

const char* const BENCH_CABLE_NAME = "Bench-USB [1-1]";
const char* const DUT_CABLE_NAME = "DUT-USB [1-2]";
const char* const LAB_CABLE_NAME = "Lab-USB [1-3]";

inline QJsonObject default_bench_json()
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(pgmd_cm_default_bench())).object();
}

// The document with `value` at the path of keys and indexes, e.g. {"cables", 1, "faults"}.
inline QJsonValue with_value(const QJsonValue& node, const std::vector<BENCH_PATH_STEP>& path, const QJsonValue& value,
                             size_t step = 0)
{
    if (step == path.size())
        return value;
    if (const int* index = std::get_if<int>(&path[step])) {
        QJsonArray array = node.toArray();
        array[*index] = with_value(array[*index], path, value, step + 1);
        return array;
    }
    QJsonObject object = node.toObject();
    const QString key = std::get<const char*>(path[step]);
    object[key] = with_value(object[key], path, value, step + 1);
    return object;
}

// A bench of the test's own, from its document.
inline std::shared_ptr<PGMD_CM_BENCH> bench_of(const QJsonValue& root)
{
    std::string error;
    auto bench = pgmd_cm_bench_from_json(QJsonDocument(root.toObject()).toJson().toStdString(), &error);
    EXPECT_TRUE(bench) << error;
    return bench;
}

// Every test starts on a fresh built-in bench of its own.
class PGMD_CM_TEST : public ::testing::Test {
protected:
    // The hardware handle of a cable, as the hardware dialog gives it.
    unsigned handle(const std::string& cable)
    {
        const std::vector<std::string> names = pgmd_cm_list_hardware(*m_bench);
        const auto found = std::find(names.begin(), names.end(), cable);
        return found == names.end() ? 0 : unsigned(found - names.begin() + 1);
    }

    std::shared_ptr<PGMD_CM_BENCH> m_bench = bench_of(default_bench_json());
};
