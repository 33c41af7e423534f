// DAT reading the plain way, one getline into a 64-byte buffer per line: the tests' oracle for
// the checker's block-wise reader and the benchmark's baseline.
#pragma once

#include "gen.h"

#include <fstream>
#include <string>
#include <vector>

// Appends each word's two bytes (low byte first); false when a line is not a word, comment or
// blank. A line too long for the buffer fails the stream and ends the reading.
inline bool pof_reference_read_dat(const std::string& path, std::vector<unsigned char>& bytes)
{
    std::ifstream input(path);
    if (!input)
        return false;
    char buffer[64];
    while (input.getline(buffer, sizeof buffer)) {
        std::string line = gen_remove_leading_and_trailing_white_spaces(buffer);
        if (line.empty())
            continue;
        const size_t slash = line.find('/');
        if (slash != std::string::npos && slash > 0)
            line = gen_remove_leading_and_trailing_white_spaces(line.substr(0, slash));
        if (line[0] == '/')
            continue;
        stl_toupper(line);
        if (line.size() != 4 || line.find_first_not_of("0123456789ABCDEF") != std::string::npos)
            return false;
        const unsigned word = unsigned(std::stoul(line, nullptr, 16));
        bytes.push_back((unsigned char)(word & 0xFF));
        bytes.push_back((unsigned char)(word >> 8));
    }
    return true;
}
