// Running files in worker processes, several at once: each worker is started once and runs file
// after file, each on a fresh data plane. A file whose run the library ends (an unknown table) or
// that aborts is reported as failed, its worker is replaced, and the other files still run.
#pragma once

#include "file_run.hpp"
#include "file_source.hpp"

#include <functional>
#include <string>
#include <vector>

namespace pc::runner {

// Files taken from `files` as they come: a worker gets each path as soon as one is free, so the
// files given so far run while later paths are still being written. Each file's output is
// printed, and its result handed to `done`, in the order of the files as each completes. A file
// that cannot be handed to a worker, or whose results cannot be read back, fails with the reason.
// With a recorder descriptor, each file records into its own part, appended to it in file order;
// `recorder_problem` tells why that failed, when it did.
// With `recorder_dir`, each file's recorder goes to a file of its own there instead, named by
// recorder_file_name and written before the file's last event is told.
using FileDone = std::function<void(FileResult)>;

// What a run against a device needs: a platform call may hang and a device may flake.
struct RunLimits {
    double timeout_s = 0;  // a file that runs longer is ended (SIGTERM, then SIGKILL) as timed_out; 0: no limit
    double slow_s = 0;     // a file that runs longer is marked slow; 0: none is
    unsigned retries = 0;  // a failed, ended or timed-out file runs again, on a fresh worker, up to this often
    bool no_flaky = false; // a file that passed only on a retry fails
    size_t max_fail = 0;   // once this many files failed, no file starts; 0: no limit
};
// How long a worker that a time limit stopped has to write its records out before it is killed.
constexpr double kTimeoutGraceSeconds = 2;
// Why a file was not run once --max-fail was reached.
std::string max_fail_reason(size_t max_fail);

void run_in_processes(FileSource &files, const Options &options, unsigned jobs, int recorder_fd, std::string &recorder_problem,
                      const FileDone &done, const std::string &recorder_dir = {}, const RunLimits &limits = {});

// A file's recorder in a recorder folder: its path with each character other than a letter, a
// digit, '.', '-' or '_' made '_', and ".rec" added (tests/a b.yaml: tests_a_b.yaml.rec).
std::string recorder_file_name(const std::string &path);

} // namespace pc::runner
