#include "msg.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <mutex>

namespace {

std::mutex& post_mutex()
{
    static std::mutex mutex;
    return mutex;
}

MSG_SINK* g_sink = nullptr;
MSG_D_LEVEL g_debug_level = 0;

const char* kind_name(MSG_KIND kind)
{
    switch (kind) {
    case MSG_KIND::INFO: return "Info";
    case MSG_KIND::WARNING: return "Warning";
    case MSG_KIND::ERROR: return "Error";
    case MSG_KIND::DEBUG: return "Debug";
    }
    return "?";
}

// A registered identifier must be posted as the kind it was registered with.
bool kind_matches_registration(MSG_KIND kind, int registration_type)
{
    if (registration_type == MSG_REGISTRATION_ERROR)
        return kind == MSG_KIND::ERROR;
    if (registration_type == MSG_REGISTRATION_INFO)
        return kind == MSG_KIND::INFO || kind == MSG_KIND::WARNING;
    return false;
}

void deliver(MSG_KIND kind, int id, const std::string& text)
{
    std::lock_guard<std::mutex> lock(post_mutex());
    if (g_sink)
        g_sink->receive(kind, id, text);
    else if (id)
        std::fprintf(stderr, "%s (%d): %s\n", kind_name(kind), id, text.c_str());
    else
        std::fprintf(stderr, "%s: %s\n", kind_name(kind), text.c_str());
}

} // namespace

MSG_BASE::MSG_BASE(MSG_KIND kind, std::string text_template) : m_kind(kind), m_template(std::move(text_template)) {}

void MSG_BASE::fill_args(const std::string& first)
{
    m_args.assign(1, first);
}

void MSG_BASE::fill_args(const std::vector<std::string>& args)
{
    m_args = args;
}

std::string MSG_BASE::key() const
{
    const auto slash = m_template.rfind('/');
    return slash == std::string::npos ? std::string() : m_template.substr(slash + 1);
}

// Replaces "%N!s!" by argument N; other text stands as written.
std::string MSG_BASE::text() const
{
    const auto slash = m_template.rfind('/');
    const std::string body = slash == std::string::npos ? m_template : m_template.substr(0, slash);
    std::string out;
    for (size_t i = 0; i < body.size(); ++i) {
        const size_t end = body.find("!s!", i);
        if (body[i] == '%' && i + 1 < body.size() && body[i + 1] >= '1' && body[i + 1] <= '9' && end == i + 2) {
            const size_t n = size_t(body[i + 1] - '1');
            if (n < m_args.size())
                out += m_args[n];
            i = end + 2;
            continue;
        }
        out += body[i];
    }
    return out;
}

MSG_D::MSG_D(std::string module, MSG_D_LEVEL level, std::string text)
    : MSG_BASE(MSG_KIND::DEBUG, ""), m_module(std::move(module)), m_level(level), m_text(std::move(text))
{
}

std::string MSG_D::text() const
{
    return m_module + ": " + m_text;
}

MSG_INDEX* MSG_INDEX::get_default_index()
{
    static MSG_INDEX index;
    return &index;
}

void MSG_INDEX::register_id(int id, int registration_type)
{
    std::lock_guard<std::mutex> lock(post_mutex());
    auto it = std::find_if(m_registered.begin(), m_registered.end(), [id](const auto& p) { return p.first == id; });
    if (it == m_registered.end())
        m_registered.emplace_back(id, registration_type);
    else
        it->second = registration_type;
}

bool MSG_INDEX::is_registered(int id) const
{
    return registration_type(id) >= 0;
}

int MSG_INDEX::registration_type(int id) const
{
    for (const auto& entry : m_registered)
        if (entry.first == id)
            return entry.second;
    return -1;
}

void MSG_INDEX::suppress(int id)
{
    m_suppressed.insert(id);
}

void MSG_INDEX::unsuppress_all()
{
    m_suppressed.clear();
}

bool MSG_INDEX::is_suppressed(int id) const
{
    return m_suppressed.count(id) != 0;
}

MSG_ID_REGISTRAR::MSG_ID_REGISTRAR(const int* ids, const int* types, int count)
{
    for (int i = 0; i < count; ++i)
        MSG_INDEX::get_default_index()->register_id(ids[i], types[i]);
}

namespace {
std::map<std::string, int>& module_counts()
{
    static std::map<std::string, int> counts;
    return counts;
}
} // namespace

MEM_INITIALIZER::MEM_INITIALIZER(const char* module) : m_module(module)
{
    ++module_counts()[m_module];
}

MEM_INITIALIZER::~MEM_INITIALIZER()
{
    --module_counts()[m_module];
}

int MEM_INITIALIZER::module_count(const std::string& module)
{
    auto it = module_counts().find(module);
    return it == module_counts().end() ? 0 : it->second;
}

void msg_set_sink(MSG_SINK* sink)
{
    std::lock_guard<std::mutex> lock(post_mutex());
    g_sink = sink;
}

MSG_SINK* msg_get_sink()
{
    return g_sink;
}

void msg_post(MSG_BASE* message)
{
    std::unique_ptr<MSG_BASE> owned(message);
    if (!owned || owned->is_null())
        return;
    if (owned->kind() == MSG_KIND::DEBUG) {
        if (static_cast<MSG_D*>(owned.get())->level() > g_debug_level)
            return;
    } else if (owned->id()) {
        const int type = MSG_INDEX::get_default_index()->registration_type(owned->id());
        if (type < 0 || !kind_matches_registration(owned->kind(), type)) {
            deliver(MSG_KIND::WARNING, 0,
                    "message " + std::to_string(owned->id()) + " posted without a matching registration: " + owned->text());
            return;
        }
    }
    deliver(owned->kind(), owned->id(), owned->text());
}

void msg_set_debug_level(MSG_D_LEVEL level)
{
    g_debug_level = level;
}

MSG_D_LEVEL msg_get_debug_level()
{
    return g_debug_level;
}

std::string msg_vformat(const char* format, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    const int size = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (size <= 0)
        return std::string();
    std::string out(size_t(size) + 1, '\0');
    std::vsnprintf(&out[0], out.size(), format, args);
    out.resize(size_t(size));
    return out;
}

void msg_local_vdebug(const char* module, MSG_D_LEVEL level, const char* format, va_list args)
{
    if (level > g_debug_level)
        return;
    msg_post(new MSG_D(module, level, msg_vformat(format, args)));
}

MSG_INTERNAL_ERROR_EXCEPTION::MSG_INTERNAL_ERROR_EXCEPTION(std::string text, std::string module, std::string file, int line)
    : std::runtime_error(text), m_text(std::move(text)), m_module(std::move(module)), m_file(std::move(file)), m_line(line)
{
}

void MSG_INTERNAL_ERROR::report(const char* text, const char* module, const char* file, int line)
{
    throw MSG_INTERNAL_ERROR_EXCEPTION(text ? text : "", module ? module : "", file ? file : "", line);
}
