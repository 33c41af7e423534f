#include "gen.h"

#include <QCoreApplication>
#include <QSettings>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

namespace {

struct SETTINGS_STATE {
    std::mutex mutex;
    std::string path;
    std::unique_ptr<QSettings> settings;
    std::map<std::string, std::string> overrides;
};

SETTINGS_STATE& state()
{
    static SETTINGS_STATE s;
    return s;
}

bool is_on_text(std::string value)
{
    value = gen_remove_leading_and_trailing_white_spaces(value);
    std::transform(value.begin(), value.end(), value.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return value == "on" || value == "true" || value == "yes" || value == "1";
}

} // namespace

void gen_load_settings(const std::string& ini_path)
{
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.path = ini_path;
    s.settings = std::make_unique<QSettings>(QString::fromStdString(ini_path), QSettings::IniFormat);
}

const std::string& gen_settings_path()
{
    return state().path;
}

std::string gen_get_setting(const std::string& key, const std::string& default_value)
{
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    const auto it = s.overrides.find(key);
    if (it != s.overrides.end())
        return it->second;
    if (!s.settings)
        return default_value;
    const QVariant value = s.settings->value(QString::fromStdString(key));
    if (!value.isValid())
        return default_value;
    // QSettings splits unquoted values with commas into lists; the site's values are plain text.
    if (value.type() == QVariant::StringList)
        return value.toStringList().join(",").toStdString();
    return value.toString().toStdString();
}

void gen_set_setting(const std::string& key, const std::string& value)
{
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.overrides[key] = value;
}

bool cfg_is_on(const char* name)
{
    return name && is_on_text(gen_get_setting(std::string("switches/") + name, "off"));
}

bool tst_is_regtest_mode()
{
    const char* env = std::getenv("QREGTEST_MODE");
    if (env && is_on_text(env))
        return true;
    return is_on_text(gen_get_setting("suite/regtest_mode", "off"));
}

bool gen_get_is_qt()
{
    const QCoreApplication* app = QCoreApplication::instance();
    return app && app->inherits("QApplication");
}

int gen_strcmp(const char* a, const char* b)
{
    return std::strcmp(a ? a : "", b ? b : "");
}

std::string gen_remove_leading_and_trailing_white_spaces(const std::string& text)
{
    const auto is_space = [](unsigned char c) { return std::isspace(c) != 0; };
    auto begin = std::find_if_not(text.begin(), text.end(), is_space);
    auto end = std::find_if_not(text.rbegin(), std::string::const_reverse_iterator(begin), is_space).base();
    return std::string(begin, end);
}

void stl_toupper(std::string& text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::toupper(c)); });
}
