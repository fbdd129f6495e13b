// The run's event stream: JSON Lines, one event per line, written and flushed as it happens. Its
// form is the contract in schema/events.schema.json.
#pragma once

#include "report.hpp"
#include "file_run.hpp"

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace pc::runner {

// Each event as one line of JSON (no newline); `at` is its time, RFC 3339 UTC with milliseconds.
std::string rfc3339_now();
// A file's status as its file_end names it: passed, failed, invalid, ended, not_run.
const char *file_status(const FileResult &file);
// The run's as its run_end names it: invalid, failed, skipped (every file was) or passed.
const char *run_verdict(const Totals &totals);
std::string json_string(const std::string &text);
// run_start's "shard" and "suite" members: `"shard":{...},"suite":{...}`.
std::string shard_and_suite(const RunDescription &run);
std::string run_start_event(const RunDescription &run, const std::string &at);
std::string file_start_event(const FileResult &file, size_t index, const std::string &at);
std::string finding_event(const FileResult &file, const Finding &finding, const std::string &at);
std::string step_event(const FileResult &file, const StepRecord &step, const std::string &at);
// Its failed steps are those of its step events that did not pass: a step whose mismatches a
// later expect: accounts for is still failed, though the file passes.
std::string file_end_event(const FileResult &file, const std::string &at);

std::string run_end_event(const Totals &totals, double duration_ms, int exit_status, const std::string &at);

// Writes the events of a run to a stream (a file, or standard output for "-"), each line
// flushed as it is written; keeps the totals for the last event. `records_base` is added to the
// byte ranges of the steps' records (where a file's recorder part begins in the recorder file).
class EventWriter : public RunObserver {
public:
    // False (errno set) when the file cannot be written.
    bool open(const std::string &path);
    bool is_open() const { return out_ != nullptr; }
    // Closes the stream; false when a write failed.
    bool close();
    void run_start(const RunDescription &run) override;
    // Once: an end of the process after the last event adds nothing.
    void run_end(const Totals &totals, int exit_status) override;
    void set_records_base(uint64_t base) { records_base_ = base; }

    void file_start(const FileResult &file) override;
    void finding(const FileResult &file, const Finding &finding) override;
    void step(const FileResult &file, const StepRecord &step) override;
    void file_end(const FileResult &file) override;

private:
    void write(const std::string &line);

    FILE *out_ = nullptr;
    bool own_ = false;
    size_t next_index_ = 0;
    uint64_t records_base_ = 0;
    bool ended_ = false;
    std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

} // namespace pc::runner
