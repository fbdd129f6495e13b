// A run of scenario files, start to end: which files (lists, directories, shards, a CI
// executor's environment), where they run (in this process or in workers), what is told of them
// (step lines and summary, JUnit, TAP, events, HTML, coverage, recorder) and the exit status.
// The command and the C interface both only fill a RunRequest and call run_files.
#pragma once

#include "report.hpp"
#include "file_run.hpp"
#include "selection.hpp"
#include "parallel.hpp"

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace pc::runner {

struct RunRequest {
    Options file;                     // how each file runs (verbose, quiet, strict, check_only, ...)
    std::vector<std::string> files;   // scenario files or directories of them
    std::string recorder, junit, coverage, events; // "" for none; events "-" is standard output
    std::string html;                 // the HTML report, made from the events when the run is over
    std::vector<std::string> command; // argv, for the events
    bool tap = false;
    bool allow_skipped = false;       // a run whose every file was skipped passes
    FILE *tap_out = stdout;
    unsigned jobs = 0;                // 0: all files in this process, one after the other
    bool jobs_chosen = false;         // 0 was asked for: JUnit and TAP do not move the files to a worker
    std::string shard;                // --shard: "I/N", "hash:I/N", or "hash" with the numbers from a CI executor
    unsigned shards = 0;              // --shards N: the total for an executor that gives only an index
    bool list = false, list_json = false; // --list: print the files the run would run, and run none
    SelectRequest select;             // -k and --last-failed choose among the files, before the shard
    bool junit_steps = false;         // JUnit: a test case per step, a test suite per file
    bool tap_steps = false;           // TAP: each file's steps as a subtest before its test point
    std::string run_id;               // names the run in its events; "": PLANECHECK_RUN_ID, or made up
    std::string files_from;           // more paths, one per line, read as they arrive ("-": standard input)
    std::string recorder_dir;         // a recorder file per scenario file in this folder (in workers)
    bool ci_environment = true;       // a CI executor's variables may choose the shard and the JUnit file
    bool in_process = false;          // the files run here, never in worker processes
    bool handlers = true;             // exit, abort and stop-signal handlers in this process
    RunLimits limits;                 // --timeout, --slow, --retries, --no-flaky, --max-fail
    RunObserver *observer = nullptr;  // told every record, beside the run's own outputs
    FILE *summary = stdout;           // where the summary line goes (TAP and --events - move it)
    // Makes the HTML page of an events file; the report provides it (2: not made in full, else the
    // status of the verdict it shows).
    std::function<int(const std::string &events, const std::string &page)> write_html;
};

// How one file runs in this process; the run's files run through it.
using RunOne = std::function<FileResult(const std::string &, const Options &)>;

// Every file's result and the totals, added up once: the summary, JUnit, TAP, the events' last
// line and the exit status all read them from here.
class RunModel {
public:
    void add(FileResult result);
    // The files the selection left out, told in the summary; none left is a run that tests nothing.
    void deselected(const Selected &selected) {
        totals_.deselected = selected.deselected;
        totals_.none_selected = selected.none_left;
    }
    const std::vector<FileResult> &files() const { return files_; }
    const Totals &totals() const { return totals_; }
    // 0 passed, 1 failed or (unless allowed) every file skipped, 2 invalid (a file could not be
    // read or is not a scenario)
    int exit_status(bool allow_skipped) const;

private:
    std::vector<FileResult> files_;
    Totals totals_;
};

// Runs the request's files and writes every output it asks for; returns the exit status.
int run_files(RunRequest &request, const RunOne &run_one = run_file);

// The name of the platform library the run drives: "simplane", "scripted".
std::string platform_name();

} // namespace pc::runner
