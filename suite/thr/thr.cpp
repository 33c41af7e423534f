#include "thr.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QWindow>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <dlfcn.h>
#include <mutex>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

extern char** environ;

namespace {
bool on_gui_thread()
{
    const QCoreApplication* app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

// Input goes to the modal dialog when there is one; without one it would reach the window that a
// long operation is working for, so it waits.
QEventLoop::ProcessEventsFlags event_flags()
{
    return QGuiApplication::modalWindow() ? QEventLoop::AllEvents : QEventLoop::ExcludeUserInputEvents;
}

const qint64 EVENT_TURN_MILLISECONDS = 50;

QElapsedTimer& last_event_turn()
{
    static QElapsedTimer timer;
    return timer;
}

void turn_event_loop()
{
    QCoreApplication::processEvents(event_flags());
    last_event_turn().start();
}

const qint64 TERMINATE_GRACE_MILLISECONDS = 1000;
const unsigned RUN_POLL_MILLISECONDS = 10;

// Every waiting thr_run watches it and ends its own process group once it is raised.
std::atomic<bool> g_runs_cancelled{false};

// The caller's environment with the options' variables set (replacing ones of the same name).
std::vector<std::string> run_environment(const THR_RUN_OPTIONS& options)
{
    std::vector<std::string> entries;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('='));
        const bool replaced = std::any_of(options.environment.begin(), options.environment.end(),
                                          [&name](const auto& variable) { return variable.first == name; });
        if (!replaced)
            entries.push_back(text);
    }
    for (const auto& variable : options.environment)
        entries.push_back(variable.first + "=" + variable.second);
    return entries;
}

pid_t spawn_in_own_group(const char* command_line, const THR_RUN_OPTIONS& options)
{
    std::vector<std::string> entries = run_environment(options);
    std::vector<char*> envp;
    for (std::string& entry : entries)
        envp.push_back(&entry[0]);
    envp.push_back(nullptr);
    const char* argv[] = {"sh", "-c", command_line, nullptr};
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, "/bin/sh", nullptr, &attributes, const_cast<char**>(argv), envp.data());
    posix_spawnattr_destroy(&attributes);
    return spawned == 0 ? pid : -1;
}

int exit_status(int status)
{
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return THR_RUN_FAILED;
}

// Waits for the shell, ending its group when the time is up or the runs are cancelled: SIGTERM
// first so that the commands can clean up, SIGKILL for whatever is left a second later.
int wait_for_group(pid_t pid, unsigned timeout_seconds)
{
    QElapsedTimer clock;
    clock.start();
    QElapsedTimer ending;
    int ended_because = 0;
    for (;;) {
        int status = 0;
        const pid_t reaped = waitpid(pid, &status, WNOHANG);
        if (reaped == pid || (reaped < 0 && errno != EINTR)) {
            if (ended_because)
                kill(-pid, SIGKILL);  // members that outlived the shell
            return ended_because ? ended_because : reaped == pid ? exit_status(status) : THR_RUN_FAILED;
        }
        if (!ended_because && (g_runs_cancelled || (timeout_seconds && clock.elapsed() >= qint64(timeout_seconds) * 1000))) {
            ended_because = g_runs_cancelled ? THR_RUN_CANCELLED : THR_RUN_TIMED_OUT;
            kill(-pid, SIGTERM);
            ending.start();
        } else if (ended_because && ending.elapsed() >= TERMINATE_GRACE_MILLISECONDS) {
            kill(-pid, SIGKILL);
        }
        if (on_gui_thread())
            turn_event_loop();
        std::this_thread::sleep_for(std::chrono::milliseconds(RUN_POLL_MILLISECONDS));
    }
}

} // namespace

int thr_run(const char* command_line)
{
    return thr_run(command_line, THR_RUN_OPTIONS());
}

int thr_run(const char* command_line, const THR_RUN_OPTIONS& options)
{
    if (!command_line)
        return THR_RUN_FAILED;
    if (g_runs_cancelled)
        return THR_RUN_CANCELLED;
    const pid_t pid = spawn_in_own_group(command_line, options);
    if (pid < 0)
        return THR_RUN_FAILED;
    return wait_for_group(pid, options.timeout_seconds);
}

void thr_cancel_runs()
{
    g_runs_cancelled = true;
}

void thr_allow_runs()
{
    g_runs_cancelled = false;
}

bool thr_runs_cancelled()
{
    return g_runs_cancelled;
}


void thr_process_events()
{
    if (!on_gui_thread())
        return;
    if (!last_event_turn().isValid() || last_event_turn().elapsed() >= EVENT_TURN_MILLISECONDS)
        turn_event_loop();
}

void thr_msleep(unsigned milliseconds)
{
    const bool gui = on_gui_thread();
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        if (gui)
            turn_event_loop();
        const qint64 left = qint64(milliseconds) - timer.elapsed();
        if (left <= 0 || g_runs_cancelled)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(std::min<qint64>(left, 20)));
    }
}

namespace {

std::mutex g_error_mutex;
std::string g_last_error;

void set_error(const std::string& text)
{
    std::lock_guard<std::mutex> lock(g_error_mutex);
    g_last_error = text;
}

std::string shared_object_name(const std::string& name)
{
    std::string base = name;
    const std::string dll = ".dll";
    if (base.size() > dll.size() && base.compare(base.size() - dll.size(), dll.size(), dll) == 0)
        base.erase(base.size() - dll.size());
    if (base.find('/') != std::string::npos || base.rfind(".so") != std::string::npos)
        return base;
    return "lib" + base + ".so";
}

std::string own_directory()
{
    Dl_info info;
    if (!dladdr(reinterpret_cast<void*>(&thr_drl_load), &info) || !info.dli_fname)
        return std::string();
    const std::string path = info.dli_fname;
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

} // namespace

void* thr_drl_load(const char* library_name)
{
    if (!library_name) {
        set_error("no library name");
        return nullptr;
    }
    const std::string file = shared_object_name(library_name);
    void* handle = nullptr;
    if (file.find('/') == std::string::npos) {
        const std::string beside = own_directory() + file;
        handle = dlopen(beside.c_str(), RTLD_NOW | RTLD_GLOBAL);
    }
    if (!handle)
        handle = dlopen(file.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (!handle) {
        const char* error = dlerror();
        set_error(error ? error : "cannot load " + file);
    }
    return handle;
}

void* thr_drl_find_function(void* library, const char* function_name)
{
    if (!library || !function_name)
        return nullptr;
    void* symbol = dlsym(library, function_name);
    if (!symbol) {
        const char* error = dlerror();
        set_error(error ? error : std::string("no function ") + function_name);
    }
    return symbol;
}

std::string thr_drl_last_error()
{
    std::lock_guard<std::mutex> lock(g_error_mutex);
    return g_last_error;
}
