// What a run tells CI: the summary line, a JUnit XML file, a TAP stream.
#pragma once

#include "file_run.hpp"

#include <cstdio>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace pc::runner {

struct Totals {
    size_t files = 0, steps = 0, failed_files = 0, not_run = 0;
    size_t files_not_run = 0; // files the run ended before they started
    size_t files_skipped = 0; // files that passed without testing anything
    size_t deselected = 0;    // files -k or --last-failed left out: never selected, never told
    bool none_selected = false; // every file was deselected: the run tests nothing
    uint64_t mismatches = 0, value_errors = 0, expected = 0, problems = 0, warnings = 0;
    bool invalid = false;
    std::vector<std::string> ended; // "FILE:LINE: last error line" of each file the library ended
    std::vector<std::string> timed_out; // "FILE:LINE after 2.1 s" of each file the time limit ended
    std::vector<std::string> slow;      // "FILE (3.2 s)" of each file that ran longer than --slow
    size_t files_flaky = 0;             // files that passed on a retry
};

// "1 mismatch", "2 mismatches"
std::string plural(uint64_t n, const char *word);

// Text for a TAP line, which is read a line at a time and reads a "#" in a test point's
// description as the start of a directive (TODO, SKIP): line breaks and control characters become
// visible escapes (\n, \x1b), and in a description a "#" or backslash is escaped with a backslash.
std::string tap_text(std::string_view text, bool description);

// "FILE:4: unknown table x" -> "unknown table x", for a line about the file at `path`
std::string without_location(const std::string &path, const std::string &line);

// Every file of the run was skipped, or every file deselected: it tested nothing (an empty run
// tested nothing too, but says so on its own).
bool nothing_tested(const Totals &t);
Totals add_up(const std::vector<FileResult> &results);
void add_to(Totals &totals, const FileResult &result);
std::string summary(const Totals &t, bool check_only);
// Why a file failed, in one line: its JUnit failure message, a failed attempt's message.
std::string failure_message(const FileResult &r);
// One test case per scenario file; a failed file carries its findings. With `steps`, a test suite
// per file with a test case per step (its records kept by a StepKeeper), a failed step carrying
// its findings.
bool write_junit(const std::string &path, const std::vector<FileResult> &results, double seconds, bool steps = false);
// One test point per scenario file, with its findings as diagnostics. With `steps`, each file's
// steps come first as a subtest: an indented block with its own plan and a test point per step.
void print_tap(const std::vector<FileResult> &results, FILE *out = stdout, bool steps = false);

// Keeps each file's step and finding records as the run tells them, for the reports that list
// steps; an ordinary run keeps none (a file run here tells them and drops them).
class StepKeeper : public RunObserver {
public:
    void file_start(const FileResult &file) override;
    void finding(const FileResult &file, const Finding &finding) override;
    void step(const FileResult &file, const StepRecord &step) override;
    void file_end(const FileResult &file) override;
    // Moves the records kept of `file` into it, when it is the next file told in full.
    void give_records(FileResult &file);

private:
    FileResult current_;            // its path and records only
    std::deque<FileResult> told_;   // told in full, not yet given
    size_t step_findings_ = 0;      // findings kept of the step that comes next
};

} // namespace pc::runner
