// Events read back: one decoder of the event lines that events.hpp writes, for the parent of a
// worker (which gets a file's records as events) and for the report (which reads event files).
#pragma once

#include "report.hpp"
#include "file_run.hpp"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace pc::runner {

enum class EventKind { run_start, file_start, finding, step, file_end, run_end, other };

struct RunStarted {
    std::string run_id, shard, version, platform, host, coverage;
    std::vector<std::string> command;
    Shard shard_of_suite;  // not sharded when the stream says nothing of it
    bool suite_known = false;
    uint64_t suite_size = 0;
    SuitePlan suite;       // the digest, and for a shard the whole suite's files and their shards
};

struct RunEnded {
    Totals totals;
    uint64_t exit_status = 0;
    double duration_ms = 0;
    std::string verdict;
};

// One event as its line gives it; only the part that its kind carries is filled.
struct Event {
    EventKind kind = EventKind::other;
    std::string time, file;
    std::string name;   // file_start: the scenario's name
    Finding finding;
    StepRecord step;
    FileResult end;     // file_end: counts, error, ending and duration (the path is in `file`)
    std::string status; // file_end: the file's status as written
    RunStarted run_start;
    RunEnded run_end;
};

class EventDecoder {
public:
    EventDecoder();
    ~EventDecoder();
    EventDecoder(const EventDecoder &) = delete;
    EventDecoder &operator=(const EventDecoder &) = delete;
    // False, with the reason, when the line is not an event of schema 1 or lacks its file.
    bool decode(std::string_view line, Event &event, std::string &problem);

private:
    struct Parser;
    std::unique_ptr<Parser> parser_;
};

// "FILE:LINE:COL: text", "FILE:LINE: text" or "FILE: text": a finding as the reports list it.
std::string finding_line(const std::string &path, const Finding &finding);

// A file's records, rebuilt from its events: the name, steps and findings in the order made, and
// once its file_end came, the totals. `complete` tells that the file_end came; a line that
// cannot be read ends the reading, with the reason in `problem`, and what came before is kept.
struct FileEvents {
    FileResult result;
    bool complete = false;
    std::string problem;
};
void read_file_events(std::string_view text, EventDecoder &decoder, FileEvents &into);

// A whole stream's files, each as read_file_events rebuilds it, in the order they started.
struct RunEvents {
    RunStarted started;
    bool ended = false;
    std::vector<FileEvents> files;
    std::string problem;
};
void read_run_events(std::string_view text, EventDecoder &decoder, RunEvents &into);

// Writes a file's events to a descriptor as they are made, unbuffered, so that a process that is
// ended has passed on what it did. Its file_end is written by whoever knows the file is done
// (file_end_line).
class EventLineWriter : public RunObserver {
public:
    explicit EventLineWriter(int fd) : fd_(fd) {}
    void file_start(const FileResult &file) override;
    void finding(const FileResult &file, const Finding &finding) override;
    void step(const FileResult &file, const StepRecord &step) override;
    std::string file_end_line(const FileResult &file) const;
    bool ok() const { return ok_; }
    int error() const { return error_; } // the errno of the write that failed

private:
    void put(const std::string &line);
    int fd_;
    bool ok_ = true;
    int error_ = 0;
};

bool write_all(int fd, const std::string &text);

} // namespace pc::runner
