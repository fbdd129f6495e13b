// What a run report shows, read back from one or more event streams (`run --events`): the
// run's header, its files with their steps, and what went wrong where.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pc::report {

struct Finding {
    uint32_t line = 0, column = 0; // column: a value error's value; 0 for lines about a record
    uint32_t step = 0; // 0: about the whole file
    std::string level, kind, text;
    bool has_values = false; // a mismatch that names its attribute, expected and received values
    std::string attribute, expected, received;
};

struct Counts {
    uint64_t steps = 0, failed_steps = 0, not_run = 0, mismatches = 0, value_errors = 0, expected = 0;
    void add(const Counts &other);
};

// The scenario's own lines around a place in it, read when the report is made.
struct Excerpt {
    uint32_t first = 0; // line number of lines[0]; 0 when nothing could be read
    std::vector<std::string> lines;
};

struct StepRecord {
    uint32_t number = 0, line = 0;
    std::string kind, table, label, status;
    uint64_t mismatches = 0, value_errors = 0;
    double duration = 0;
    std::vector<Finding> findings;
    Excerpt excerpt;
    bool failing() const { return status == "failed" || status == "ended" || status == "invalid" || !findings.empty(); }
};

struct FileRecord {
    std::string path, name;
    size_t stream = 0;             // the stream that reported it, in Run::streams
    std::string status = "ended"; // until its file_end arrives
    bool finished = false;         // its file_end was read
    Counts counts;
    double duration = 0;
    std::string error;                          // an invalid file's FILE:LINE:COL: message
    std::string ended_how, ended_at, last_error; // a file the library ended
    std::string reason;                         // why it was skipped, or not run
    size_t attempts = 1;                        // with retries: how often it ran
    std::vector<std::string> failed_attempts;   // why each attempt before the last failed
    bool slow = false;                          // it ran longer than --slow
    std::vector<StepRecord> steps;
    std::vector<Finding> findings; // about the whole file, or of a step whose event never came
    Excerpt excerpt;               // around the error of an invalid file or the end of an ended one
    bool failing() const { return status != "passed" && status != "skipped" && status != "flaky"; }
};

// A file of a sharded suite, as every shard's run_start lists the whole suite.
struct PlannedFile {
    std::string file, name; // as the shard ran it; its name within the suite
    unsigned shard = 0;
};

// One event stream: the run (or shard) that wrote it.
struct Stream {
    std::string source; // the events file
    std::string version, platform, host, started, coverage;
    std::vector<std::string> command;
    bool finished = false; // its run_end was read
    std::string verdict;
    Counts totals;
    uint64_t files = 0, failed_files = 0, exit_status = 0;
    double duration = 0;
    unsigned shard = 0, shards = 0; // shard I of N; 0 of 0: the whole suite
    std::string shard_mode, shard_from;
    bool suite_known = false;       // the run planned its files (not fed by --files-from)
    uint64_t suite_size = 0;
    std::string suite_digest;
    std::vector<PlannedFile> plan;  // a shard's: the whole suite
};

struct Run {
    std::vector<Stream> streams;
    std::vector<FileRecord> files;
    std::vector<std::string> problems; // "FILE:LINE: message" for each line that could not be used
    std::vector<std::string> missing;  // what a merge of shards lacks, or has twice: it fails the verdict

    // Over all streams: the worst verdict ("invalid" over "failed" over "skipped", when every
    // file was, over "passed"); a stream cut short counts as failed.
    std::string verdict() const;
    // Every stream ended and exited 0: its run was allowed to skip every file.
    bool allowed_to_skip() const;
    uint64_t skipped_files() const;
    Counts totals() const;
    uint64_t failed_files() const;
    double duration() const; // the longest stream's: shards run side by side
};

Counts counted_from_steps(const FileRecord &file);

} // namespace pc::report
