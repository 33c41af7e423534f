// Where the build tree is: CTest names it; run by hand, the test's own bin/ folder lies in it.
#pragma once

#include <cstdlib>
#include <string>
#include <unistd.h>

inline std::string build_dir()
{
    if (const char* dir = std::getenv("PGMDQ_BUILD_DIR"))
        return dir;
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    const std::string path(self, length > 0 ? static_cast<std::size_t>(length) : 0);
    return path.substr(0, path.rfind('/', path.rfind('/') - 1));
}
