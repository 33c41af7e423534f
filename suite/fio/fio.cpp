#include "fio.h"

#include <filesystem>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

// Position of the extension's dot in the file-name part, or npos.
size_t extension_dot(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    const size_t name_start = slash == std::string::npos ? 0 : slash + 1;
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || dot <= name_start)
        return std::string::npos;
    return dot;
}

} // namespace

FIO_PATH& FIO_PATH::extension(const std::string& ext, const std::string& old_ext)
{
    const std::string current = get_extension();
    if (current == ext)
        return *this;
    if (!current.empty() && (old_ext.empty() || current == old_ext))
        m_path.erase(extension_dot(m_path));
    m_path += ext;
    return *this;
}

std::string FIO_PATH::get_extension() const
{
    const size_t dot = extension_dot(m_path);
    return dot == std::string::npos ? std::string() : m_path.substr(dot);
}

std::string FIO_PATH::fullpath() const
{
    if (m_path.empty())
        return m_path;
    std::error_code error;
    const fs::path absolute = fs::absolute(fs::path(m_path), error);
    if (error)
        return m_path;
    std::string out = absolute.lexically_normal().string();
    // A directory keeps its trailing separator, as the callers join names onto it.
    if (m_path.back() == '/' && !out.empty() && out.back() != '/')
        out += '/';
    return out;
}

bool FIO_FILE_SYSTEM::exists(const char* path)
{
    struct stat info;
    return path && *path && ::stat(path, &info) == 0;
}

FILE* FIO_FILE_SYSTEM::fopen(const char* path, const char* mode)
{
    if (!path || !mode)
        return nullptr;
    return std::fopen(path, mode);
}

bool FIO_FILE_SYSTEM::status(const char* path, FIO_STATUS* status)
{
    struct stat info;
    if (!path || !status || ::stat(path, &info) != 0)
        return false;
    status->size = std::uint64_t(info.st_size);
    status->is_directory = S_ISDIR(info.st_mode);
    return true;
}
