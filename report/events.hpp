// Reads event streams (JSON Lines, one event per line) into a Run. Several streams (the shards of
// a suite) merge into one Run; a line that cannot be used is kept as a problem naming its file
// and line, and the rest is still read.
#pragma once

#include "run_model.hpp"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace pc::report {

// What a file that holds no events seems to be, from its first lines: "JUnit XML", "TAP", "an HTML
// page", "a YAML scenario", ...
std::string what_the_file_seems(const std::vector<std::string> &head);

class EventReader {
public:
    explicit EventReader(Run &run);
    ~EventReader();

    // Reads the events file at `path` ("-": standard input); false when it cannot be opened.
    bool read_file(const std::string &path);
    // Starts a new stream named `source`; the lines that follow belong to it.
    void begin_stream(const std::string &source);
    // One line of the current stream, `number` counting from 1.
    void read_line(std::string_view text, size_t number);
    // Ends the current stream: findings whose step never came are kept with their file.
    void end_stream();

private:
    struct Parser;
    void problem(size_t number, const std::string &message);
    FileRecord &file(const std::string &path);
    void keep_unclaimed(const std::string &path); // findings whose step never came stay with the file

    Run &run_;
    std::unique_ptr<Parser> parser_;
    std::string source_;
    std::map<std::string, size_t> files_;                  // the current stream's files by path
    std::map<std::string, std::vector<Finding>> pending_; // findings waiting for their step's event
    friend struct EventDispatch;
};

} // namespace pc::report
