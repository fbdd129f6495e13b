// Where recorder_log's text goes: nowhere (the default), a file, or a string (tests). While a
// value printer runs for a message (json_cmp), converter output is captured instead.
//
// A file receives whole records only: a record is held back until its closing line arrives, and
// records go out in large writes. The sink's buffers live as long as the process, so a flush at
// any end of it (exit, an assertion, a signal) finds them intact.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace pc::recorder {

void discard();
// Opens FILE for writing; false (errno set) when it cannot be opened.
bool open_file(const std::string &path);
// Records into an open descriptor, which the sink then owns.
void to_descriptor(int fd);
void to_string(std::string *buffer);
// Writes every complete record held so far; false (errno set) when the file refused it.
bool flush();
// Flushes and closes; false (errno set) when a write or the close failed since the file was opened.
bool close();
bool enabled();
// How many bytes of records the sink has taken since it was opened: where the next record starts.
uint64_t position();
// True when converter output goes somewhere (the recorder, or a capture).
bool active();
// Called after each complete record, where ending the process loses nothing.
void on_record_end(void (*hook)());

// Value text of the recorder converters: into the recorder as a "name": value line, or into
// the active capture.
void write_field(const char *name, const std::string &value_text);

class Capture {
public:
    Capture();
    ~Capture();
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;
    const std::string &text() const { return text_; }

private:
    std::string text_;
    std::string *previous_;
};

} // namespace pc::recorder
