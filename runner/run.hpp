// Running scenario files against the library and simplane.
#pragma once

#include "scenario.hpp"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace pc::coverage { class Report; }

namespace pc::runner {

// Where a file's run stands, kept where it outlives the process: when the library ends the
// process (an unknown table, a batch assertion), the parent of a child run reads it.
struct Trail {
    uint64_t steps_ran = 0;           // steps that completed
    uint64_t step = 0;                // the step running now (0: none)
    uint32_t line = 0;                // its scenario line
    uint64_t mismatches = 0, value_errors = 0;
    char label[128] = {};             // "send test_iff"
    char last_error[1024] = {};       // the last error line logged
    bool step_line_written = false;   // the run wrote the ending step's line itself
};

struct Options {
    bool verbose = false;
    bool quiet = false;      // print failing steps only
    bool check_only = false; // read and validate, run nothing
    bool strict = false;     // refuse a file the check fails; a step that ran nothing fails
    FILE *steps = stdout;    // where the per-step lines go
    bool progress = false;   // keep a progress line on the terminal (standard error)
    Trail *trail = nullptr;  // kept up to date while a file runs, when set
    coverage::Report *coverage = nullptr; // what the files' records exercised is added here
    bool trace = false;      // write every platform call, at the line of its record
    // 1: the file is read on the running thread; 0: a second thread reads a big file's steps
    // ahead where two cores are available; 2 or more: it reads every file ahead
    unsigned threads = 0;
};

struct FileResult {
    std::string path;
    size_t steps = 0;
    size_t failed_steps = 0;
    uint64_t mismatches = 0;
    uint64_t value_errors = 0;
    uint64_t expected = 0;   // mismatches and value errors that expect: steps accounted for
    size_t not_run = 0;      // steps that did nothing (an inactive type)
    uint64_t problems = 0;   // check findings that fail the check
    uint64_t warnings = 0;   // check findings that do not
    bool invalid = false;    // the file could not be read or is not a valid scenario
    std::string error;       // FILE:LINE:COL: message, when invalid
    bool ended = false;      // the library ended the process while the file ran
    std::string ended_at;    // FILE:LINE of the step that was running then
    std::string last_error;  // the last error line before the end
    std::vector<std::string> findings; // what went wrong, line by line, for reports (at most kMaxFindings)
    static constexpr size_t kMaxFindings = 200;
    void add_finding(const std::string &line) {
        if (findings.size() < kMaxFindings) findings.push_back(line);
        else if (findings.size() == kMaxFindings) findings.push_back("... (more findings are left out)");
    }
    bool passed() const { return !invalid && !ended && failed_steps == 0 && problems == 0 && mismatches + value_errors == expected; }
};

FileResult run_file(const std::string &path, const Options &options);
// Runs the steps `source` gives; `path` names them in messages.
FileResult run_steps(const std::string &path, StepSource &source, const Options &options);

} // namespace pc::runner
