// The suite's message library: registered messages posted to the host's message window (or to
// stderr when the host has none), debug messages by level, and the internal-error report.
#pragma once

#include <cstdarg>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

// Registration types of message identifiers.
enum MSG_REGISTRATION_TYPE { MSG_REGISTRATION_ERROR = 0, MSG_REGISTRATION_INFO = 1 };

// What kind of row a posted message becomes in the message window.
enum class MSG_KIND { INFO, WARNING, ERROR, DEBUG };

typedef int MSG_D_LEVEL;

// One message: a text template with numbered arguments ("%1!s!") and, after the last slash, the
// message's key. The text shown is the template's part before the key with the arguments filled.
class MSG_BASE {
public:
    MSG_BASE(MSG_KIND kind, std::string text_template);
    virtual ~MSG_BASE() = default;

    void fill_args(const std::string& first);
    void fill_args(const std::vector<std::string>& args);
    void set_id(int id) { m_id = id; }
    int id() const { return m_id; }
    MSG_KIND kind() const { return m_kind; }
    std::string key() const;
    virtual std::string text() const;
    // A null message is accepted by msg_post and shows nothing.
    virtual bool is_null() const { return false; }

private:
    MSG_KIND m_kind;
    std::string m_template;
    std::vector<std::string> m_args;
    int m_id = 0;
};

class MSG_E : public MSG_BASE {
public:
    explicit MSG_E(std::string text_template) : MSG_BASE(MSG_KIND::ERROR, std::move(text_template)) {}
};

class MSG_W : public MSG_BASE {
public:
    explicit MSG_W(std::string text_template) : MSG_BASE(MSG_KIND::WARNING, std::move(text_template)) {}
};

class MSG_I : public MSG_BASE {
public:
    explicit MSG_I(std::string text_template) : MSG_BASE(MSG_KIND::INFO, std::move(text_template)) {}
};

class MSG_I_NULL : public MSG_I {
public:
    MSG_I_NULL() : MSG_I("") {}
    bool is_null() const override { return true; }
};

// A debug message: already formatted, tagged with its module and level.
class MSG_D : public MSG_BASE {
public:
    MSG_D(std::string module, MSG_D_LEVEL level, std::string text);
    const std::string& module() const { return m_module; }
    MSG_D_LEVEL level() const { return m_level; }
    std::string text() const override;

private:
    std::string m_module;
    MSG_D_LEVEL m_level;
    std::string m_text;
};

// The identifiers the host has been told to keep quiet, and the registration of identifiers.
class MSG_INDEX {
public:
    static MSG_INDEX* get_default_index();

    void register_id(int id, int registration_type);
    bool is_registered(int id) const;
    int registration_type(int id) const;  // -1 when not registered
    void suppress(int id);
    void unsuppress_all();
    bool is_suppressed(int id) const;

private:
    std::vector<std::pair<int, int>> m_registered;
    std::set<int> m_suppressed;
};

// Registers a module's identifiers with their types when constructed (a static of the module).
class MSG_ID_REGISTRAR {
public:
    MSG_ID_REGISTRAR(const int* ids, const int* types, int count);
};

// The suite's per-module memory accounting: counts the modules that are loaded.
class MEM_INITIALIZER {
public:
    explicit MEM_INITIALIZER(const char* module);
    ~MEM_INITIALIZER();
    static int module_count(const std::string& module);

private:
    std::string m_module;
};

// Where posted messages go. The host's message window installs itself; without one, stderr.
class MSG_SINK {
public:
    virtual ~MSG_SINK() = default;
    virtual void receive(MSG_KIND kind, int id, const std::string& text) = 0;
};

void msg_set_sink(MSG_SINK* sink);
MSG_SINK* msg_get_sink();

// Posts a message; the library takes ownership. Null messages show nothing.
void msg_post(MSG_BASE* message);

void msg_set_debug_level(MSG_D_LEVEL level);
MSG_D_LEVEL msg_get_debug_level();
void msg_local_vdebug(const char* module, MSG_D_LEVEL level, const char* format, va_list args);
std::string msg_vformat(const char* format, va_list args);

// A broken invariant. report() never returns: it throws this, and the host catches it at its
// event loop, its Tcl trampolines and in tests.
class MSG_INTERNAL_ERROR_EXCEPTION : public std::runtime_error {
public:
    MSG_INTERNAL_ERROR_EXCEPTION(std::string text, std::string module, std::string file, int line);
    const std::string& text() const { return m_text; }
    const std::string& module() const { return m_module; }
    const std::string& file() const { return m_file; }
    int line() const { return m_line; }

private:
    std::string m_text;
    std::string m_module;
    std::string m_file;
    int m_line;
};

class MSG_INTERNAL_ERROR {
public:
    [[noreturn]] static void report(const char* text, const char* module, const char* file, int line);
};
