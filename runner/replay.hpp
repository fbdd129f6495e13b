// planecheck replay RECORDING: the command around turning a recording back into a scenario.
#pragma once

#include "recording/replay.hpp"

#include <string>

namespace pc::runner {

// Writes the scenario replayed from `recording` to `path`; problems go to standard error.
// Returns false when the scenario could not be written at all.
bool write_replayed_scenario(const std::string &recording, const std::string &path,
                             const recording::ReplayOptions &options, recording::ReplaySummary &summary);

// A file name for a scenario that is run and then removed.
std::string temporary_scenario_path();

} // namespace pc::runner
