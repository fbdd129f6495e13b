// Which of a run's files it runs: those whose path or scenario name a `-k` expression matches,
// and with `--last-failed` those that failed when they last ran here. Files left out are
// deselected: the run never selected them, so no report tells them, and the summary counts them.
#pragma once

#include <string>
#include <vector>

namespace pc::runner {

struct SelectRequest {
    std::string keyword;      // -k EXPRESSION; "" for every file
    bool last_failed = false; // only the files that failed when they last ran here
    bool cache_clear = false; // forget what earlier runs kept first
    std::string state_dir;    // where runs keep what failed (.planecheck); "" keeps nothing
};

struct Selected {
    size_t deselected = 0;
    bool none_left = false;   // every file was deselected: the run tests nothing
};

// The scenario's name: as its header gives it, read without reading the steps; "" when it has
// none, or when the file is not a regular file (a pipe is opened once, when it runs) or cannot be
// read (that is told when it runs).
std::string scenario_name_of(const std::string &path);

// Keeps the files among `files` (directories already expanded) that the request selects, in their
// order; without files, `--last-failed` takes the files that failed. False, with `error`, for an
// expression that cannot be read. Notes (`--last-failed` found nothing to narrow to) go to `notes`.
bool select_files(std::vector<std::string> &files, const SelectRequest &request, Selected &selected, std::string &error,
                  std::vector<std::string> &notes);

} // namespace pc::runner
