#include "thr.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QWindow>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <dlfcn.h>
#include <mutex>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

extern char** environ;

int thr_run(const char* command_line)
{
    if (!command_line)
        return -1;
    const char* argv[] = {"sh", "-c", command_line, nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) != 0)
        return -1;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR)
            return -1;
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return -1;
}

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

} // namespace

void thr_process_events()
{
    if (!on_gui_thread())
        return;
    if (!last_event_turn().isValid() || last_event_turn().elapsed() >= EVENT_TURN_MILLISECONDS)
        turn_event_loop();
}

void thr_msleep(unsigned milliseconds)
{
    if (!on_gui_thread()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        return;
    }
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        turn_event_loop();
        const qint64 left = qint64(milliseconds) - timer.elapsed();
        if (left <= 0)
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
