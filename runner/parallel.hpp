// Running files each in a process of its own, several at once. A file whose run the library ends
// (an unknown table) or that aborts is reported as failed, and the other files still run.
#pragma once

#include "run.hpp"

#include <string>
#include <vector>

namespace pc::runner {

// Results in the order of `files`; each file's output is printed, in that order, as it completes.
// With a recorder path, each file records into its own part, joined in file order at the end.
std::vector<FileResult> run_in_processes(const std::vector<std::string> &files, const Options &options,
                                         unsigned jobs, const std::string &recorder);

} // namespace pc::runner
