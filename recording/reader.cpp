#include "reader.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace pc::recording {
namespace {

constexpr size_t kBufferSize = 1 << 20;

std::string_view trim(std::string_view s) {
    size_t b = s.find_first_not_of(' ');
    if (b == std::string_view::npos) return {};
    size_t e = s.find_last_not_of(' ');
    return s.substr(b, e - b + 1);
}

// `"name": {` style lines: the quoted name, then exactly `tail`.
bool quoted_then(std::string_view line, std::string_view tail, std::string &name) {
    if (line.size() < 2 || line[0] != '"') return false;
    size_t close = line.find('"', 1);
    if (close == std::string_view::npos || line.substr(close + 1) != tail) return false;
    name.assign(line.substr(1, close - 1));
    return true;
}

// A small JSON syntax check: enough to tell a value the recorder wrote from a garbled one.
class JsonCheck {
public:
    explicit JsonCheck(std::string_view s) : s_(s) {}
    bool whole() {
        if (!value(0)) return false;
        blanks();
        return i_ == s_.size();
    }

private:
    void blanks() {
        while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\t')) ++i_;
    }
    bool literal(std::string_view word) {
        if (s_.substr(i_, word.size()) != word) return false;
        i_ += word.size();
        return true;
    }
    bool string() {
        ++i_;
        while (i_ < s_.size() && s_[i_] != '"') {
            if (static_cast<unsigned char>(s_[i_]) < 0x20) return false;
            i_ += s_[i_] == '\\' ? 2 : 1;
        }
        return i_++ < s_.size();
    }
    bool number() {
        size_t start = i_;
        if (i_ < s_.size() && s_[i_] == '-') ++i_;
        size_t digits = i_;
        while (i_ < s_.size() && (std::isdigit(static_cast<unsigned char>(s_[i_])) || std::strchr(".eE+-", s_[i_]))) ++i_;
        return i_ > digits && std::isdigit(static_cast<unsigned char>(s_[digits])) && i_ > start;
    }
    template <typename Item> bool list(char close, Item item, int depth) {
        ++i_;
        blanks();
        if (i_ < s_.size() && s_[i_] == close) return ++i_, true;
        for (;;) {
            if (!item(depth)) return false;
            blanks();
            if (i_ >= s_.size()) return false;
            if (s_[i_] == close) return ++i_, true;
            if (s_[i_++] != ',') return false;
        }
    }
    bool value(int depth) {
        if (depth > 64) return false;
        blanks();
        if (i_ >= s_.size()) return false;
        switch (s_[i_]) {
        case '"': return string();
        case '{':
            return list('}', [this](int d) {
                blanks();
                if (i_ >= s_.size() || s_[i_] != '"' || !string()) return false;
                blanks();
                return i_ < s_.size() && s_[i_++] == ':' && value(d + 1);
            }, depth);
        case '[': return list(']', [this](int d) { return value(d + 1); }, depth);
        case 't': return literal("true");
        case 'f': return literal("false");
        case 'n': return literal("null");
        default: return number();
        }
    }
    std::string_view s_;
    size_t i_ = 0;
};

} // namespace

bool is_json_value(std::string_view text) { return JsonCheck(text).whole(); }

const Field *Entry::find(std::string_view name) const {
    for (const Field &f : fields)
        if (f.name == name) return &f;
    return nullptr;
}

// A file that cannot be opened has no line: its message names the file itself.
std::string Problem::text() const { return line ? fmt::format("{}:{}: {}", file, line, message) : message; }

bool for_each_line(const std::string &path, const std::function<void(std::string_view line)> &line) {
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    std::vector<char> buffer(kBufferSize);
    size_t kept = 0;
    for (;;) {
        if (kept == buffer.size()) buffer.resize(buffer.size() * 2); // a line longer than the buffer
        size_t n = std::fread(buffer.data() + kept, 1, buffer.size() - kept, f);
        size_t end = kept + n, begin = 0;
        while (const void *nl = std::memchr(buffer.data() + begin, '\n', end - begin)) {
            size_t at = size_t(static_cast<const char *>(nl) - buffer.data());
            line(std::string_view(buffer.data() + begin, at - begin));
            begin = at + 1;
        }
        kept = end - begin;
        std::memmove(buffer.data(), buffer.data() + begin, kept);
        if (n == 0) break;
    }
    if (kept) line(std::string_view(buffer.data(), kept));
    std::fclose(f);
    return true;
}

Reader::~Reader() {
    if (file_) std::fclose(file_);
}

bool Reader::open(const std::string &path, std::string &error) {
    path_ = path;
    file_ = std::fopen(path.c_str(), "rb");
    if (!file_) {
        error = fmt::format("{}: cannot read the recording: {}", path, std::strerror(errno));
        return false;
    }
    struct stat st {};
    if (fstat(fileno(file_), &st) == 0 && S_ISDIR(st.st_mode)) {
        error = fmt::format("{}: cannot read the recording: it is a directory", path);
        std::fclose(file_);
        file_ = nullptr;
        return false;
    }
    seekable_ = S_ISREG(st.st_mode);
    buffer_.resize(kBufferSize);
    return true;
}

bool Reader::seek_to(size_t offset) {
    if (!file_ || !seekable_ || fseeko(file_, off_t(offset), SEEK_SET) != 0) return false;
    begin_ = end_ = 0;
    eof_ = partial_line_ = pending_open_ = false;
    consumed_ = offset;
    return true;
}

// The next line without its newline; the view lives until the next call.
bool Reader::read_line(std::string_view &line) {
    for (;;) {
        if (const void *nl = std::memchr(buffer_.data() + begin_, '\n', end_ - begin_)) {
            size_t at = size_t(static_cast<const char *>(nl) - buffer_.data());
            line = std::string_view(buffer_.data() + begin_, at - begin_);
            line_start_ = consumed_;
            consumed_ += at + 1 - begin_;
            begin_ = at + 1;
            ++line_;
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            return true;
        }
        if (eof_) {
            if (begin_ == end_) return false;
            line = std::string_view(buffer_.data() + begin_, end_ - begin_); // a last line without newline
            line_start_ = consumed_;
            consumed_ += end_ - begin_;
            begin_ = end_;
            partial_line_ = true;
            ++line_;
            return true;
        }
        if (begin_ > 0) {
            std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
            end_ -= begin_;
            begin_ = 0;
        }
        if (end_ == buffer_.size()) buffer_.resize(buffer_.size() * 2); // a line longer than the buffer
        size_t n = std::fread(buffer_.data() + end_, 1, buffer_.size() - end_, file_);
        end_ += n;
        if (n == 0) {
            eof_ = true;
            if (std::ferror(file_)) report(line_ + 1, fmt::format("cannot read on: {}", std::strerror(errno)));
        }
    }
}

void Reader::report(uint32_t line, std::string message) {
    ++problems_;
    if (sink_) sink_(Problem{path_, line, std::move(message)});
}

void Reader::skip_to_next_record() {
    std::string_view line;
    while (read_line(line))
        if (line == "{") {
            pending_open_ = true;
            pending_open_at_ = line_start_;
            return;
        }
}

bool Reader::next(Record &record) {
    std::string_view line;
    for (;;) {
        if (!pending_open_) {
            if (!read_line(line)) return false;
            if (trim(line).empty()) continue;
            if (line != "{") {
                report(line_, fmt::format("expected '{{' to open a record, found '{}'", trim(line).substr(0, 60)));
                skip_to_next_record();
                continue;
            }
        }
        pending_open_ = false;
        ++records_;
        record.number = records_;
        record.line = line_;
        entries_used_ = 0;
        std::string why;
        uint32_t why_line = 0;
        bool ok = parse_record(record, why, why_line);
        record.entries.resize(entries_used_); // what was used keeps its storage for the next record
        if (ok) return true;
        if (partial_line_) {
            why = fmt::format("the file ends inside line {} (truncated)", line_);
            why_line = record.line;
        }
        report(why_line, fmt::format("record {} (from line {}) cannot be read: {}; it is skipped", record.number, record.line, why));
        if (!pending_open_) skip_to_next_record();
    }
}

// Reads the next line of a record being parsed; a record's end is an error here. A top-level
// "{" means the record was cut off and the next one begins.
#define PC_NEXT_LINE(line)                                                                                              \
    do {                                                                                                                \
        std::string_view raw;                                                                                           \
        if (!read_line(raw)) {                                                                                          \
            why = fmt::format("the file ends at line {} before the record's closing '}},' (truncated)", line_);         \
            why_line = record_line;                                                                                     \
            return false;                                                                                               \
        }                                                                                                               \
        if (raw == "{") {                                                                                               \
            pending_open_ = true;                                                                                       \
            pending_open_at_ = line_start_;                                                                             \
            why = fmt::format("a new record opens at line {} before this one is closed (truncated)", line_);            \
            why_line = record_line;                                                                                     \
            return false;                                                                                               \
        }                                                                                                               \
        line = trim(raw);                                                                                               \
    } while (0)

bool Reader::parse_record(Record &record, std::string &why, uint32_t &why_line) {
    const uint32_t record_line = record.line;
    std::string_view line;
    PC_NEXT_LINE(line);
    if (!quoted_then(line, ": {", record.section)) {
        why = fmt::format("expected the section line \"NAME\": {{, found '{}'", line.substr(0, 60));
        why_line = line_;
        return false;
    }
    PC_NEXT_LINE(line);
    if (!quoted_then(line, ": [", record.type)) {
        why = fmt::format("expected the object type line \"TYPE\": [, found '{}'", line.substr(0, 60));
        why_line = line_;
        return false;
    }
    for (;;) {
        PC_NEXT_LINE(line);
        if (line == "]") break;
        if (line != "{") {
            why = fmt::format("expected an entry '{{' or the closing ']', found '{}'", line.substr(0, 60));
            why_line = line_;
            return false;
        }
        if (entries_used_ == record.entries.size()) record.entries.emplace_back();
        Entry &entry = record.entries[entries_used_++];
        entry.line = line_;
        entry.members_at = 0;
        if (!parse_entry(entry, why, why_line)) {
            if (why_line == 0) why_line = record_line;
            return false;
        }
    }
    PC_NEXT_LINE(line);
    if (line != "}") {
        why = fmt::format("expected '}}' after the entries, found '{}'", line.substr(0, 60));
        why_line = line_;
        return false;
    }
    PC_NEXT_LINE(line);
    if (line != "},") {
        why = fmt::format("expected the record's closing '}},', found '{}'", line.substr(0, 60));
        why_line = line_;
        return false;
    }
    return true;
}

bool Reader::parse_field(std::string_view line, Field &field, bool &last, std::string &why) {
    if (line.size() < 2 || line[0] != '"') {
        why = fmt::format("expected a \"name\": value line, found '{}'", line.substr(0, 60));
        return false;
    }
    size_t close = line.find('"', 1);
    if (close == std::string_view::npos || line.substr(close + 1, 2) != ": ") {
        why = fmt::format("expected a \"name\": value line, found '{}'", line.substr(0, 60));
        return false;
    }
    field.name.assign(line.substr(1, close - 1));
    std::string_view value = line.substr(close + 3);
    last = value.empty() || value.back() != ',';
    if (!last) value.remove_suffix(1);
    field.value.assign(trim(value));
    field.line = line_;
    // the state text is the data plane's own, written unquoted as it stands
    if (field.name != "npd_state" && !is_json_value(field.value)) {
        why = fmt::format("the value of \"{}\" is not a value: '{}'", field.name, field.value.substr(0, 60));
        return false;
    }
    return true;
}

bool Reader::parse_entry(Entry &entry, std::string &why, uint32_t &why_line) {
    const uint32_t record_line = 0; // the caller puts the record's line where none is set
    std::string_view line;
    bool closed_by_last = false;
    size_t used = 0, members_used = 0;
    // the fields and members of the previous record keep their storage: records of one type
    // have the same shape, so reading them allocates nothing once warm
    struct Trim {
        Entry &e;
        size_t &used, &members;
        ~Trim() {
            e.fields.resize(used);
            e.members.resize(members);
        }
    } trim_on_return{entry, used, members_used};
    auto next_field = [&]() -> Field & {
        if (used == entry.fields.size()) entry.fields.emplace_back();
        return entry.fields[used++];
    };
    for (;;) {
        PC_NEXT_LINE(line);
        if (line == "}") return true;
        if (closed_by_last) {
            why = fmt::format("a field follows the entry's last field (one without a comma): '{}'", line.substr(0, 60));
            why_line = line_;
            return false;
        }
        std::string name;
        if (quoted_then(line, ": {", name) && name == "recorder_timestamp") {
            std::string_view sec, nsec, end;
            PC_NEXT_LINE(sec);
            std::string sec_text(sec);
            PC_NEXT_LINE(nsec);
            std::string nsec_text(nsec);
            PC_NEXT_LINE(end);
            if (sec_text.rfind("\"tv_sec\": ", 0) != 0 || nsec_text.rfind("\"tv_nsec\": ", 0) != 0 || end != "},") {
                why = "the time stamp is not \"tv_sec\": S, \"tv_nsec\": N";
                why_line = line_;
                return false;
            }
            Field &f = next_field();
            f.name = "recorder_timestamp";
            f.value.assign("{").append(sec_text).append(" ").append(nsec_text).append("}");
            f.line = line_ - 3;
            continue;
        }
        if (quoted_then(line, ": [", name) && name == "members") {
            entry.members_at = used;
            if (!parse_members(entry, members_used, why, why_line)) return false;
            continue;
        }
        if (!parse_field(line, next_field(), closed_by_last, why)) {
            why_line = line_;
            return false;
        }
    }
}

bool Reader::parse_members(Entry &entry, size_t &used, std::string &why, uint32_t &why_line) {
    const uint32_t record_line = 0;
    std::string_view line;
    for (;;) {
        PC_NEXT_LINE(line);
        if (line == "\"#\"") break;
        if (line != "{") {
            why = fmt::format("expected a member '{{' or the closing \"#\", found '{}'", line.substr(0, 60));
            why_line = line_;
            return false;
        }
        if (used == entry.members.size()) entry.members.emplace_back();
        Element &element = entry.members[used++];
        element.line = line_;
        size_t fields = 0;
        for (;;) {
            PC_NEXT_LINE(line);
            if (line == "\"#\": 0") break; // the dummy member that closes an element
            if (fields == element.fields.size()) element.fields.emplace_back();
            bool last = false;
            if (!parse_field(line, element.fields[fields++], last, why) || last) {
                if (why.empty()) why = "a member's field without a comma before its closing \"#\": 0";
                why_line = line_;
                element.fields.resize(fields);
                return false;
            }
        }
        element.fields.resize(fields);
        PC_NEXT_LINE(line);
        if (line != "},") {
            why = fmt::format("expected '}},' after a member, found '{}'", line.substr(0, 60));
            why_line = line_;
            return false;
        }
    }
    PC_NEXT_LINE(line);
    if (line != "],") {
        why = fmt::format("expected '],' after the members list, found '{}'", line.substr(0, 60));
        why_line = line_;
        return false;
    }
    return true;
}

#undef PC_NEXT_LINE

} // namespace pc::recording
