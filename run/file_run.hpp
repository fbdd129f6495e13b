// Running scenario files against the library and simplane.
#pragma once

#include "scenario.hpp"
#include "shard_plan.hpp"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace pc::coverage { class Report; }

namespace pc::runner {

// Where a file's run stands, kept where it outlives the process: when the library ends the
// process (an unknown table, a batch assertion) or a signal does, the ending is told from it, by
// this process or by the parent of a worker.
struct Trail {
    uint64_t steps_ran = 0;           // steps that completed
    uint64_t step = 0;                // the step running now (0: none)
    uint32_t line = 0;                // the scenario line of the step running now, or of the last one begun
    uint64_t mismatches = 0, value_errors = 0;       // so far, the running step's logged ones too
    uint64_t step_mismatches_from = 0, step_value_errors_from = 0; // when the running step began
    int64_t file_started = 0, step_started = 0;      // steady-clock ticks, the same in every process
    int64_t records_start = -1;       // where the running step's records begin in the recorder part
    char kind[16] = {};               // the running step's kind, table and label
    char table[96] = {};
    char label[128] = {};             // "send test_iff"
    char last_error[1024] = {};       // the last error line logged, or the assertion that failed
    bool step_line_written = false;   // the run wrote the ending step's line itself
    int64_t timeout_ms = -1;          // the file's config: timeout, once its header is read (-1: none given)
};

enum class StepStatus { passed, failed, not_run, invalid, ended };
constexpr int kStepStatuses = 5;
const char *status_name(StepStatus status);

// One step as it ran: what every report of a run says about a step comes from here.
struct StepRecord {
    size_t number = 0;          // 1-based, in its file
    uint32_t line = 0;
    std::string kind;           // send, dump, inject, npu_result, expect, unknown
    std::string table;          // the object type (or special key) it goes to; "" for none
    std::string label;          // "send test_if", "inject test_if create", "expect"
    StepStatus status = StepStatus::passed;
    uint64_t mismatches = 0, value_errors = 0;
    double duration_ms = 0;
    int64_t records_start = -1, records_end = -1; // its bytes in the recorder file, when one is written
};

enum class FindingKind { mismatch, value_error, check, log };
constexpr int kFindingKinds = 4;
const char *kind_name(FindingKind kind);

// A line that fails a step, or a check finding; `text` without its FILE:LINE[:COL]: prefix.
struct Finding {
    uint32_t line = 0, column = 0;
    size_t step = 0;            // 0: about the whole file
    bool warning = false;
    FindingKind kind = FindingKind::log;
    std::string text;
    std::string type, op;       // the object type and operation it is about, when known
    std::string attribute, expected, received; // for a mismatch, as its record gives them
    int32_t element = -1;       // the element (or NPU) index of the attribute; -1 for none
    bool has_status = false;    // a status mismatch: the two statuses as numbers
    int32_t expected_status = 0, received_status = 0;
};

struct FileResult;
struct Totals;

// What a run is, as its first event tells it.
struct RunDescription {
    std::vector<std::string> command; // argv as given
    size_t files = 0;
    bool check_only = false, strict = false, verbose = false, quiet = false;
    unsigned jobs = 1;
    std::string recorder, coverage, shard; // "" for none
    std::string platform;                  // the platform library the run drives
    std::string run_id;                    // one run's streams (its shards') share it; no two runs do
    Shard shard_of_suite;                  // which shard, by what partition, told by whom
    const SuitePlan *suite = nullptr;      // the whole suite's files and their shards; none for --files-from
};

// Receives a run's records as they are made: the event stream, a C program's callback.
class RunObserver {
public:
    virtual ~RunObserver() = default;
    virtual void run_start(const RunDescription &) {}
    virtual void file_start(const FileResult &) {}
    virtual void finding(const FileResult &, const Finding &) {}
    virtual void step(const FileResult &, const StepRecord &) {}
    virtual void file_end(const FileResult &) {}
    // `totals` of every file the run reported; `exit_status` as the run ends with it.
    virtual void run_end(const Totals &, int /*exit_status*/) {}
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
    RunObserver *observer = nullptr; // told of every step and finding as it is made
    // 1: the file is read on the running thread; 0: a second thread reads a big file's steps
    // ahead where two cores are available; 2 or more: it reads every file ahead
    unsigned threads = 0;
};

struct FileResult {
    std::string path;
    size_t steps = 0;
    size_t failed_steps = 0; // steps whose status is failed or ended, as their step records say
    // What fails the file whatever its expect: steps account for: a failed expect:, a step that ran
    // nothing under --strict, the ended step, output that could not be written, a file not run.
    size_t failures = 0;
    uint64_t mismatches = 0;
    uint64_t value_errors = 0;
    uint64_t expected = 0;   // mismatches and value errors that expect: steps accounted for
    size_t not_run = 0;      // steps that did nothing (an inactive type)
    size_t acting_steps = 0; // send and dump steps that did something
    std::string skipped;     // why nothing in the file was tested, when no step did anything
    std::vector<std::string> idle_steps; // "step 3 (line 12) send l3intf" for each step that ran nothing
    uint64_t problems = 0;   // check findings that fail the check
    uint64_t warnings = 0;   // check findings that do not
    bool invalid = false;    // the file could not be read or is not a valid scenario
    std::string error;       // FILE:LINE:COL: message, when invalid
    bool ended = false;      // the library ended the process while the file ran
    std::string ended_at;    // FILE:LINE of the step that was running then
    std::string last_error;  // the last error line before the end
    std::string ended_how;   // "exit status 1", "signal 6 (Aborted)"
    size_t ended_step = 0;   // the step that was running then
    std::string name;        // the scenario's name:, once its header was read
    std::string not_started; // why the file never ran (the run ended before it), when it did not
    double duration_ms = 0;
    bool timed_out = false;  // ended by the run's time limit (ended is set too)
    bool slow = false;       // ran longer than --slow
    size_t attempts = 1;     // runs of the file, retries included
    // Each failed attempt before the last: its one-line message and its findings, line by line.
    struct FailedAttempt {
        std::string message, findings;
    };
    std::vector<FailedAttempt> failed_attempts;
    // A file run in another process brings its steps and findings back here, in the order made.
    std::vector<StepRecord> step_records;
    std::vector<Finding> finding_records;
    std::vector<std::string> findings; // what went wrong, line by line, for reports (at most kMaxFindings)
    static constexpr size_t kMaxFindings = 200;
    void add_finding(const std::string &line) {
        if (findings.size() < kMaxFindings) findings.push_back(line);
        else if (findings.size() == kMaxFindings) findings.push_back("... (more findings are left out)");
    }
    bool passed() const { return !invalid && !ended && not_started.empty() && failures == 0 && problems == 0 && mismatches + value_errors == expected; }
    // Passed, yet tested nothing: it is told apart from a file that passed.
    bool was_skipped() const { return passed() && !skipped.empty(); }
    // Passed on a retry after failing.
    bool flaky() const { return passed() && attempts > 1; }
};

// A step that did not pass counts among its file's failed steps: an ended one too. A send or dump
// step that did not stand aside counts as acting: a file without one tested nothing.
void count_step(FileResult &file, const StepRecord &step);

FileResult run_file(const std::string &path, const Options &options);
// At an end of the process while a file runs (`how`: "exit status 1"): the running step and the
// file are told to the observer as ended; the file's result, when a file was running.
std::optional<FileResult> end_running_file(const std::string &how);
// Tells `observer` a file's records in the order they were made (findings of a step before it).
void replay_records(const FileResult &result, RunObserver &observer);
// Runs the steps `source` gives; `path` names them in messages.
FileResult run_steps(const std::string &path, StepSource &source, const Options &options);

} // namespace pc::runner
