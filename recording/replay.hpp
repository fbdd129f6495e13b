// Turns a recording back into the scenario that performs its operations again: each
// "send_object" record becomes an operation record carrying its own expected status, created
// handles that later records refer to get names, "receive_call" records become the SDK side's
// answer to the operation they belong to, and injected errors and per-NPU results are armed
// again. A record that cannot be turned back is reported with its line and left out.
#pragma once

#include "arena.hpp"
#include "planecheck/json.h"
#include "reader.hpp"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pc::recording {

struct ReplayOptions {
    std::optional<int> mode;       // 1 client, 0 server; default client
    std::optional<int> object_set; // default: what the recorded types and references show
    size_t records_per_step = 64;  // consecutive plain records of one type share a step
};

struct ReplaySummary {
    uint64_t records = 0;    // records of the recording, readable or not
    uint64_t operations = 0; // operation records made
    uint64_t problems = 0;   // records left out (and files that could not be read)
};

// The settings of the scenario, as far as the recording shows them.
struct ReplayConfig {
    int mode = 1;
    int object_set = 0;
    uint32_t npus = 4;
    std::string node = "node0";
};

struct ReplayRecord {
    std::vector<Field> fields;
    std::vector<std::vector<Field>> members; // element attributes, one list per element
    uint32_t line = 0;                             // the recorded record's first line
};

// A scenario step: "send" (records of `type`, and the SDK side's answer where there is one),
// or "inject" / "npu_result" (one record: the step's own keys).
struct ReplayStep {
    std::string kind;
    std::string type;
    std::vector<ReplayRecord> records;
    std::optional<ReplayRecord> sdk;
};

class Replayer {
public:
    Replayer(const std::string &recording, const ReplayOptions &options, ProblemSink problem);
    ~Replayer();
    Replayer(const Replayer &) = delete;
    Replayer &operator=(const Replayer &) = delete;

    // Opens the recording and reads the settings it shows; false when it cannot be read.
    bool open();
    const ReplayConfig &config() const;
    // The next step; false after the last.
    bool next(ReplayStep &step);
    ReplaySummary summary() const;
    size_t bytes_read() const;

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

// Writes the scenario to `out` as YAML.
ReplaySummary write_scenario(const std::string &recording, FILE *out, const ReplayOptions &options,
                             const ProblemSink &problem);

// The step as the runner reads it, built into `arena`; its values carry the recording's lines.
JSON_Value *step_value(Arena &arena, const ReplayStep &step);

} // namespace pc::recording
