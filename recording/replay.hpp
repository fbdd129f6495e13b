// Turns a recording back into the scenario that performs its operations again: each
// "send_object" record becomes an operation record carrying its own expected status, created
// handles get names that later references use, "receive_call" records become the SDK side's
// answer to the operation they belong to, and injected errors and per-NPU results are armed
// again. A record that cannot be turned back is reported with its line and left out.
#pragma once

#include "reader.hpp"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

namespace pc::recording {

struct ReplayOptions {
    std::optional<int> mode;       // 1 client, 0 server; default client
    std::optional<int> object_set; // default: what the recorded types and references show
    size_t records_per_step = 64;  // consecutive plain records of one type share a step
};

struct ReplaySummary {
    uint64_t records = 0;    // records of the recording, readable or not
    uint64_t operations = 0; // operation records written
    uint64_t problems = 0;   // records left out (and files that could not be read)
};

// Writes the scenario to `out`; `name` is what its comments and name call the recording.
ReplaySummary write_scenario(const std::string &recording, FILE *out, const ReplayOptions &options,
                             const ProblemSink &problem);

} // namespace pc::recording
