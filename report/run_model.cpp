#include "run_model.hpp"

#include <algorithm>

namespace pc::report {

void Counts::add(const Counts &o) {
    steps += o.steps;
    failed_steps += o.failed_steps;
    not_run += o.not_run;
    mismatches += o.mismatches;
    value_errors += o.value_errors;
    expected += o.expected;
}

std::string Run::verdict() const {
    bool invalid = false, failed = streams.empty() || !problems.empty() || !missing.empty();
    for (const Stream &s : streams) {
        invalid |= s.verdict == "invalid";
        failed |= !s.finished || s.verdict == "failed";
    }
    for (const FileRecord &f : files) {
        invalid |= f.status == "invalid";
        failed |= f.failing();
    }
    if (invalid) return "invalid";
    if (failed) return "failed";
    return !files.empty() && skipped_files() == files.size() ? "skipped" : "passed";
}

bool Run::allowed_to_skip() const {
    return std::all_of(streams.begin(), streams.end(), [](const Stream &s) { return s.finished && s.exit_status == 0; });
}

uint64_t Run::skipped_files() const {
    return uint64_t(std::count_if(files.begin(), files.end(), [](const FileRecord &f) { return f.status == "skipped"; }));
}

// Added up from the files, so that shards merge and a stream cut short still counts what it
// reported: a file whose end never came counts its steps' events.
Counts Run::totals() const {
    Counts all;
    for (const FileRecord &f : files) all.add(f.finished ? f.counts : counted_from_steps(f));
    return all;
}

Counts counted_from_steps(const FileRecord &file) {
    Counts c;
    for (const StepRecord &s : file.steps) {
        ++c.steps;
        c.failed_steps += s.status == "failed" || s.status == "ended";
        c.not_run += s.status == "not_run";
        c.mismatches += s.mismatches;
        c.value_errors += s.value_errors;
    }
    return c;
}

uint64_t Run::failed_files() const {
    return uint64_t(std::count_if(files.begin(), files.end(), [](const FileRecord &f) { return f.failing(); }));
}

double Run::duration() const {
    double longest = 0;
    for (const Stream &s : streams) longest = std::max(longest, s.duration);
    return longest;
}

} // namespace pc::report
