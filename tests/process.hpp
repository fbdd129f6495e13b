// Running a command line as a user would and collecting what it printed.
#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace pc::test {

struct Outcome {
    int status;         // exit status, -1 when the command did not exit normally
    std::string output;
};

inline Outcome run_command(const std::string &command) {
    FILE *p = popen(command.c_str(), "r");
    std::string out;
    std::array<char, 4096> buffer;
    size_t n;
    while (p && (n = fread(buffer.data(), 1, buffer.size(), p)) > 0) out.append(buffer.data(), n);
    int status = p ? pclose(p) : -1;
    return {status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

} // namespace pc::test
