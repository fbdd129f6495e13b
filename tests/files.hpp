// Files the tests write and read back.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

namespace pc::test {

// The whole content of a file ("" when it cannot be read).
inline std::string read_file(const std::string &path) {
    std::stringstream s;
    s << std::ifstream(path).rdbuf();
    return s.str();
}

// Writes `text` to `path` and gives the path back.
inline std::string write_file(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

} // namespace pc::test
