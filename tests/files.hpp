// Files the tests write and read back.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

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

// A new file of its own under the test's scratch directory (tests may run in parallel), holding
// `text`; its name ends in `suffix`, which picks the reader of a scenario or recording.
inline std::string temp_file(const std::string &suffix, const std::string &text = "") {
    std::string path = testing::TempDir() + "scratch_XXXXXX" + suffix;
    close(mkstemps(path.data(), int(suffix.size())));
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

} // namespace pc::test
