// When the library ends the process (an unknown table ends it with exit status 1, a batch that no
// longer pairs up ends it by an assertion), the file's report must still say where: the running
// step's line is written from an exit hook or an abort handler, and a parent process reads the
// trail that the run kept (see Trail in run.hpp).
//
// Every end of the process keeps what the run produced: on exit (the library's unknown-table
// exit), on abort (the batch and validation assertions) and on a stop signal, the recorder, the
// step's pending output and standard output and error are written out first.
#pragma once

#include "file_run.hpp"

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace pc::runner::ending {

// Installs the exit, abort and signal (SIGINT, SIGTERM, SIGHUP; SIGPIPE) handlers. A stop signal is acted
// on at the next safe point (after a recorder record, between steps); a second one ends at once.
void install();
// The run in progress registers what it still holds for the output (null: nothing).
void set_pending_output(void (*write_pending)());
// What a run reports at an end of the process while a file runs (`how`: "exit status 1",
// "signal 6 (Aborted)"; `status`: the process's exit status as a shell gives it); null: nothing.
void set_end_report(void (*report)(const std::string &how, int status));
// Calls the end report once, from the exit, abort and stop-signal paths.
void report_end(const std::string &how, int status);
// Writes the recorder, the pending output, standard output and error.
void flush_all();
// The stop signal that arrived, or 0.
int stop_signal();
// At a safe point: when a stop signal arrived, writes everything out and ends with that signal.
void stop_if_requested();

} // namespace pc::runner::ending

namespace pc::runner {

// Watches one file's run for as long as it lives; one at a time per process.
class EndWatch {
public:
    EndWatch(const std::string &path, FILE *steps, Trail &trail, bool progress);
    ~EndWatch();
    EndWatch(const EndWatch &) = delete;
    EndWatch &operator=(const EndWatch &) = delete;

    // Around a call that may end by an assertion: a signal handler cannot compose text, so the
    // step's line is composed beforehand.
    void arm_abort();
    void disarm_abort();
};

// Writes the step line that arm_abort composed (from the abort handler).
void write_armed_abort_line();

void trail_file(Trail &trail);
void trail_step(Trail &trail, size_t number, uint32_t line, int64_t records_start);
void trail_name(Trail &trail, const std::string &kind, const std::string &table, const std::string &label);
void trail_label(Trail &trail, const std::string &label);
void trail_error(Trail &trail, const std::string &line);
void trail_done(Trail &trail, size_t steps_ran, uint64_t mismatches, uint64_t value_errors);

// How the process ended, as every report of an ending says it: "exit status 1", "signal 6 (Aborted)".
std::string ending_how(bool by_signal, int number);
std::string ending_how(int wait_status);

// The one account of a file whose run ended with the process, the same in the process that ran
// it and in the parent of a worker: how, where (FILE:LINE of the running step, or of the last one
// begun), the last error line, the counts and the duration so far, and its findings. The step
// that was running is an ended step and counts among the file's steps; it is returned, its
// records ending at `records_end` (-1: none written).
std::optional<StepRecord> account_ending(FileResult &file, const Trail &trail, const std::string &how, int64_t records_end);

// An ended file rebuilt from its events (which carry the ending, not its finding): the finding that
// names the ending goes first again, as account_ending put it.
void restore_ending_findings(FileResult &file);

} // namespace pc::runner
