// Reads recorder files record by record, streaming: one record in memory at a time. A record it
// cannot read is reported with its line and skipped; reading goes on with the next record.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace pc::recording {

// One "name": value line; `value` is its JSON text as written (without the trailing comma).
struct Field {
    std::string name;
    std::string value;
    uint32_t line = 0;
};

// One element of a "members" list.
struct Element {
    std::vector<Field> fields;
    uint32_t line = 0;
};

// One entry of a record (one batch instance): its lines in file order, the members list apart.
struct Entry {
    std::vector<Field> fields;
    std::vector<Element> members;
    size_t members_at = 0; // index into `fields` before which the members list stood
    uint32_t line = 0;
    const Field *find(std::string_view name) const;
};

struct Record {
    uint64_t number = 0; // 1-based, counting every record of the file, readable or not
    uint32_t line = 0;   // the record's opening "{"
    std::string section; // "send_object" or "receive_call"
    std::string type;
    std::vector<Entry> entries;
};

struct Problem {
    std::string file;
    uint32_t line = 0;
    std::string message;
    std::string text() const; // "FILE:LINE: message"
};

using ProblemSink = std::function<void(const Problem &)>;

// True when `text` is one complete JSON value (what the recorder writes as a field's value).
bool is_json_value(std::string_view text);

// Calls `line` with each line of a file (without its newline), as fast as the disk gives them:
// for a look over a whole recording where reading its records would cost too much. False when
// the file cannot be read.
bool for_each_line(const std::string &path, const std::function<void(std::string_view line)> &line);

class Reader {
public:
    Reader() = default;
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    // False (with `error` set) when the file cannot be opened or is no file (a directory).
    bool open(const std::string &path, std::string &error);
    // Whether the file can be read again from an earlier place (a regular file, not a pipe).
    bool seekable() const { return seekable_; }
    // Where the next record starts: reading resumes there after seek_to().
    size_t next_record_offset() const { return pending_open_ ? pending_open_at_ : consumed_; }
    // Goes on reading from `offset` (a next_record_offset()); false when the file cannot seek.
    bool seek_to(size_t offset);
    // Reads the next readable record into `record`; false at the end of the file. Records that
    // cannot be read are handed to the problem sink and skipped.
    bool next(Record &record);
    void on_problem(ProblemSink sink) { sink_ = std::move(sink); }

    const std::string &path() const { return path_; }
    uint64_t records_seen() const { return records_; }
    uint64_t problems() const { return problems_; }
    size_t bytes_read() const { return consumed_; }
    uint32_t line() const { return line_; }

private:
    bool read_line(std::string_view &line);
    bool parse_record(Record &record, std::string &why, uint32_t &why_line);
    bool parse_entry(Entry &entry, std::string &why, uint32_t &why_line);
    bool parse_members(Entry &entry, size_t &used, std::string &why, uint32_t &why_line);
    bool parse_field(std::string_view line, Field &field, bool &last, std::string &why);
    void report(uint32_t line, std::string message);
    void skip_to_next_record();

    FILE *file_ = nullptr;
    std::string path_;
    std::vector<char> buffer_;
    size_t begin_ = 0, end_ = 0;
    bool eof_ = false;
    size_t consumed_ = 0;
    uint32_t line_ = 0;
    uint64_t records_ = 0, problems_ = 0;
    size_t entries_used_ = 0;
    bool partial_line_ = false; // the file ended inside a line
    bool pending_open_ = false; // a record's "{" was met while skipping and is not consumed yet
    size_t pending_open_at_ = 0; // where that "{" line starts
    size_t line_start_ = 0;      // where the last line read starts
    bool seekable_ = false;
    std::string spill_;         // a line that ran across the buffer's end
    ProblemSink sink_;
};

} // namespace pc::recording
