// Where recorder_log's text goes: nowhere (the default), a file, or a string (tests). While a
// value printer runs for a message (json_cmp), converter output is captured instead.
#pragma once

#include <cstdio>
#include <string>

namespace pc::recorder {

void discard();
// Opens FILE for writing; false (errno set) when it cannot be opened.
bool open_file(const std::string &path);
void to_string(std::string *buffer);
void flush();
void close();
bool enabled();
// True when converter output goes somewhere (the recorder, or a capture).
bool active();

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
