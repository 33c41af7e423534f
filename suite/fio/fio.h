// The suite's file library: path values and the file-system calls, over the real file system.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

class FIO_PATH {
public:
    FIO_PATH() = default;
    FIO_PATH(const std::string& path) : m_path(path) {}
    FIO_PATH(const char* path) : m_path(path ? path : "") {}

    // Gives the name the extension `ext` (with its dot). A name that already ends in `ext` is
    // kept; otherwise an existing extension (`old_ext`, or any one when `old_ext` is empty) is
    // replaced, and a name without one gets `ext` appended.
    FIO_PATH& extension(const std::string& ext, const std::string& old_ext = std::string());
    // The current extension with its dot, or "" when the file name has none.
    std::string get_extension() const;

    // The absolute, normalised form of the path.
    std::string fullpath() const;
    const std::string& str() const { return m_path; }
    operator const char*() const { return m_path.c_str(); }

private:
    std::string m_path;
};

struct FIO_STATUS {
    std::uint64_t size = 0;
    bool is_directory = false;
};

class FIO_FILE_SYSTEM {
public:
    static bool exists(const char* path);
    static FILE* fopen(const char* path, const char* mode);
    static bool status(const char* path, FIO_STATUS* status);
};
