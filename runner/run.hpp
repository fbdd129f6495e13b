// Running scenario files against the library and simplane.
#pragma once

#include "scenario.hpp"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace pc::runner {

struct Options {
    bool verbose = false;
    bool quiet = false;      // print failing steps only
    bool check_only = false; // read and validate, run nothing
    FILE *steps = stdout;    // where the per-step lines go
    bool progress = false;   // keep a progress line on the terminal (standard error)
    bool trace = false;      // write every platform call, at the line of its record
};

struct FileResult {
    std::string path;
    size_t steps = 0;
    size_t failed_steps = 0;
    uint64_t mismatches = 0;
    uint64_t value_errors = 0;
    uint64_t expected = 0;   // mismatches and value errors that expect: steps accounted for
    bool invalid = false;    // the file could not be read or is not a valid scenario
    std::string error;       // FILE:LINE:COL: message, when invalid
    std::vector<std::string> findings; // what went wrong, line by line, for reports (at most kMaxFindings)
    static constexpr size_t kMaxFindings = 200;
    void add_finding(const std::string &line) {
        if (findings.size() < kMaxFindings) findings.push_back(line);
        else if (findings.size() == kMaxFindings) findings.push_back("... (more findings are left out)");
    }
    bool passed() const { return !invalid && failed_steps == 0 && mismatches + value_errors == expected; }
};

FileResult run_file(const std::string &path, const Options &options);

} // namespace pc::runner
