// Runs a shell command for a test and keeps its exit status and everything it printed.
#pragma once

#include <cstdio>
#include <string>
#include <sys/wait.h>

struct RUN_RESULT {
    int status;
    std::string output;  // stdout and stderr
};

// The command reads nothing: its standard input is closed off.
inline RUN_RESULT run(const std::string& command)
{
    RUN_RESULT result{-1, ""};
    FILE* pipe = popen(("(" + command + ") 2>&1 </dev/null").c_str(), "r");
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        result.output.append(buffer, n);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}
