// planecheck replay RECORDING: the command around turning a recording back into a scenario.
#pragma once

#include "recording/replay.hpp"
#include "file_run.hpp"

#include <string>

namespace pc::runner {

// Writes the scenario replayed from `recording` to `path`; problems go to standard error.
// Returns false when the scenario could not be written at all.
bool write_replayed_scenario(const std::string &recording, const std::string &path,
                             const recording::ReplayOptions &options, recording::ReplaySummary &summary);

// Runs the operations of `recording` again, step by step as they are read: no scenario file is
// written, and every message names the recording's file and line.
FileResult run_replayed(const std::string &recording, const recording::ReplayOptions &replay, const Options &options,
                        recording::ReplaySummary &summary);

} // namespace pc::runner
