#include "json_loader.hpp"

#include "value_builder.hpp"

// errors are values here: a throwing conversion would not compile
#define SIMDJSON_EXCEPTIONS 0
#include <simdjson.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace pc::load {
namespace {

namespace od = simdjson::ondemand;

// Line and column of a byte, for positions asked for mostly in order: the newlines between two
// positions are counted once.
class LineCounter {
public:
    void reset(const char *base, uint32_t first_line) {
        base_ = scanned_ = line_start_ = base;
        first_line_ = line_ = first_line;
    }
    json::Position at(const char *p) {
        if (p < scanned_) reset(base_, first_line_);
        while (scanned_ < p) {
            const void *nl = std::memchr(scanned_, '\n', size_t(p - scanned_));
            if (!nl) {
                scanned_ = p;
                break;
            }
            ++line_;
            scanned_ = line_start_ = static_cast<const char *>(nl) + 1;
        }
        return {line_, uint32_t(p - line_start_ + 1)};
    }
    size_t offset() const { return size_t(scanned_ - base_); }

private:
    const char *base_ = nullptr, *scanned_ = nullptr, *line_start_ = nullptr;
    uint32_t first_line_ = 1, line_ = 1;
};

std::string describe(simdjson::error_code code) {
    switch (code) {
    case simdjson::UNCLOSED_STRING: return "a string is not closed";
    case simdjson::UTF8_ERROR: return "the text is not valid UTF-8";
    case simdjson::UNESCAPED_CHARS: return "a control character inside a string (write it escaped, such as \\n)";
    case simdjson::NUMBER_ERROR: return "malformed number";
    case simdjson::T_ATOM_ERROR: case simdjson::F_ATOM_ERROR: case simdjson::N_ATOM_ERROR:
        return "malformed JSON: expected a value (true, false, null, a number, a string, [ or {)";
    case simdjson::TAPE_ERROR: case simdjson::INCORRECT_TYPE:
        return "malformed JSON: a missing or extra comma, brace, bracket or colon";
    case simdjson::TRAILING_CONTENT: return "more than one JSON value (only whitespace may follow the first)";
    case simdjson::EMPTY: return "no JSON value";
    case simdjson::DEPTH_ERROR: return "nesting too deep";
    case simdjson::STRING_ERROR: return "malformed string (a bad escape or a control character)";
    default: return std::string("malformed JSON (") + simdjson::error_message(code) + ")";
    }
}

// A well-formed integer literal too long for 64 bits (the parser refuses it as a number).
bool is_big_integer(std::string_view token) {
    size_t end = token.find_first_of(" \t\r\n,]}");
    std::string_view digits = token.substr(0, end);
    if (!digits.empty() && digits[0] == '-') digits.remove_prefix(1);
    return digits.size() >= 19 && digits[0] != '0' && digits.find_first_not_of("0123456789") == std::string_view::npos;
}

// Turns one on-demand value into the value model, positions from the bytes the values start at.
struct Builder {
    ValueBuilder &values;
    LineCounter &lines;
    Arena &arena;
    const Limits &limits;
    json::Position error_at;
    std::string message;
    const char *last = nullptr; // where the latest value started, for errors without a place

    bool fail(json::Position at, std::string text) {
        error_at = at;
        message = std::move(text);
        return false;
    }
    bool fail(simdjson::error_code code) { return fail(last ? lines.at(last) : json::Position{1, 1}, describe(code)); }

    json::Position position(const char *p) {
        last = p;
        return lines.at(p);
    }

    bool build(od::value v, size_t depth, JSON_Value *&out) {
        std::string_view token = v.raw_json_token();
        json::Position at = position(token.data());
        if (depth > limits.max_depth) return fail(at, "nesting deeper than " + std::to_string(limits.max_depth) + " levels");
        od::json_type type;
        if (auto code = v.type().get(type)) return fail(code);
        switch (type) {
        case od::json_type::object: {
            od::object o;
            if (auto code = v.get_object().get(o)) return fail(code);
            return object(o, at, depth, out);
        }
        case od::json_type::array: {
            od::array a;
            if (auto code = v.get_array().get(a)) return fail(code);
            return array(a, at, depth, out);
        }
        case od::json_type::string: {
            std::string_view text;
            if (auto code = v.get_string().get(text)) return fail(code);
            out = json::make_string(arena, text, at);
            return true;
        }
        case od::json_type::boolean: {
            bool b = false;
            if (auto code = v.get_bool().get(b)) return fail(code);
            out = json::make_bool(arena, b, at);
            return true;
        }
        case od::json_type::null:
        {
            bool is_null = false;
            if (v.is_null().get(is_null) || !is_null) return fail(simdjson::N_ATOM_ERROR);
        }
            out = json::make_null(arena, at);
            return true;
        case od::json_type::number: return number(v, token, at, out);
        }
        return fail(simdjson::TAPE_ERROR);
    }

    // Integers keep their exact value as the YAML reader keeps them: a non-negative one is
    // unsigned, a negative one signed; one beyond 64 bits is refused, as the YAML reader refuses it.
    bool number(od::value v, std::string_view token, json::Position at, JSON_Value *&out) {
        od::number n;
        auto code = v.get_number().get(n);
        if (code == simdjson::NUMBER_ERROR && is_big_integer(token)) {
            std::string_view digits = token.substr(0, token.find_first_of(" \t\r\n,]}"));
            return fail(at, "the integer " + std::string(digits) + " does not fit in 64 bits (-9223372036854775808 to 18446744073709551615)");
        }
        if (code) return fail(at, describe(code));
        switch (n.get_number_type()) {
        case od::number_type::signed_integer: {
            int64_t i = n.get_int64();
            out = i >= 0 ? json::make_unsigned(arena, uint64_t(i), at) : json::make_integer(arena, i, at);
            return true;
        }
        case od::number_type::unsigned_integer: out = json::make_unsigned(arena, n.get_uint64(), at); return true;
        case od::number_type::floating_point_number: out = json::make_number(arena, n.get_double(), at); return true;
        }
        return fail(at, describe(simdjson::NUMBER_ERROR));
    }

    bool object(od::object o, json::Position at, size_t depth, JSON_Value *&out) {
        auto frame = values.open();
        for (auto member : o) {
            od::field field;
            if (auto code = std::move(member).get(field)) return fail(code);
            json::Position key_at = position(field.key().raw() - 1); // before the key is unescaped, which consumes it
            std::string_view key;
            if (auto code = field.unescaped_key().get(key)) return fail(code);
            if (values.has_key(frame, depth, key)) return fail(key_at, "duplicate key '" + std::string(key) + "'");
            const char *name = arena.copy_string(key);
            JSON_Value *value = nullptr;
            if (!build(field.value(), depth + 1, value)) return false;
            values.add(name, value);
        }
        out = values.close_object(arena, frame, at);
        return true;
    }

    bool array(od::array a, json::Position at, size_t depth, JSON_Value *&out) {
        auto frame = values.open();
        for (auto item : a) {
            od::value v;
            if (auto code = std::move(item).get(v)) return fail(code);
            JSON_Value *value = nullptr;
            if (!build(v, depth + 1, value)) return false;
            values.add(nullptr, value);
        }
        out = values.close_array(arena, frame, at);
        return true;
    }
};

// Only whitespace after the document's value: the parser has no place left in it.
bool at_end(od::document &doc) {
    const char *p = nullptr;
    return doc.current_location().get(p) == simdjson::OUT_OF_BOUNDS;
}

// What both forms share: the parser, the scratch stacks, and turning a value into the model.
class JsonBase : public DocumentReader {
protected:
    explicit JsonBase(std::string path) : path_(std::move(path)) {}

    bool fail(LoadError &error, json::Position at, std::string message) {
        values_.clear();
        error = {path_, at.line, at.column, std::move(message)};
        return false;
    }

    JSON_Value *convert(od::value v, Arena &arena, LoadError &error) {
        Builder b{values_, lines_, arena, limits_, {}, {}};
        JSON_Value *out = nullptr;
        if (b.build(v, 0, out)) return out;
        fail(error, b.error_at, b.message);
        return nullptr;
    }

    std::string path_;
    od::parser parser_;
    od::document doc_;
    ValueBuilder values_;
    LineCounter lines_;
    Limits limits_;
};

class JsonReader final : public JsonBase {
public:
    explicit JsonReader(std::string path) : JsonBase(std::move(path)) {}

    bool load(LoadError &error) {
        if (auto code = simdjson::padded_string::load(path_).get(text_))
            return fail(error, {}, code == simdjson::IO_ERROR ? "cannot open: " + std::string(std::strerror(errno ? errno : EIO))
                                                            : describe(code));
        lines_.reset(text_.data(), 1);
        return true;
    }

    bool begin_document(bool &empty, LoadError &error) override {
        empty = false;
        if (std::string_view(text_).find_first_not_of(" \t\r\n") == std::string_view::npos) {
            empty = true;
            return true;
        }
        if (auto code = parser_.iterate(text_).get(doc_)) return fail(error, {1, 1}, describe(code));
        return true;
    }

    bool begin_mapping(LoadError &error) override {
        if (auto code = doc_.get_object().get(top_)) return fail(error, where(), expected("a mapping", code));
        if (top_.begin().get(field_) || top_.end().get(fields_end_)) return fail(error, where(), "expected a mapping");
        return true;
    }

    bool begin_sequence(LoadError &error) override {
        od::array a;
        if (!has_field_ || field_value_.value().get_array().get(a))
            return fail(error, where(), "expected a sequence (a list of [ ... ] items)");
        has_field_ = false;
        if (a.begin().get(items_) || a.end().get(items_end_)) return fail(error, where(), "expected a sequence");
        in_sequence_ = true;
        return true;
    }

    bool next_key(std::string &key, json::Position &at, bool &end, LoadError &error) override {
        end = false;
        if (in_top_) ++field_;
        in_top_ = true;
        has_field_ = false;
        if (field_ == fields_end_) {
            end = true;
            if (!at_end(doc_)) return fail(error, where(), describe(simdjson::TRAILING_CONTENT));
            return true;
        }
        if (auto code = (*field_).get(field_value_)) return fail(error, where(), describe(code));
        at = lines_.at(field_value_.key().raw() - 1);
        std::string_view text;
        if (auto code = field_value_.unescaped_key().get(text)) return fail(error, where(), describe(code));
        key.assign(text);
        has_field_ = true;
        return true;
    }

    bool at_sequence_end(bool &end, LoadError &error) override {
        end = items_ == items_end_;
        if (end) in_sequence_ = false;
        return true;
    }

    JSON_Value *read_value(Arena &arena, LoadError &error) override {
        if (in_sequence_) {
            od::value v;
            if (auto code = (*items_).get(v)) return fail(error, where(), describe(code)), nullptr;
            JSON_Value *out = convert(v, arena, error);
            ++items_;
            return out;
        }
        if (has_field_) {
            has_field_ = false;
            return convert(field_value_.value(), arena, error);
        }
        od::value root;
        if (auto code = doc_.get_value().get(root)) return fail(error, where(), describe(code)), nullptr;
        return convert(root, arena, error);
    }

    // A document read whole is one value: anything but whitespace after it is an error.
    bool end_document(LoadError &error) override {
        return at_end(doc_) || fail(error, where(), describe(simdjson::TRAILING_CONTENT));
    }

    size_t bytes_read() const override { return lines_.offset(); }

private:
    json::Position where() {
        const char *p = nullptr;
        if (doc_.current_location().get(p)) return lines_.at(text_.data() + text_.size());
        return lines_.at(p);
    }
    std::string expected(const char *what, simdjson::error_code code) {
        return code == simdjson::INCORRECT_TYPE ? std::string("expected ") + what : describe(code);
    }

    simdjson::padded_string text_;
    od::object top_;
    od::object_iterator field_, fields_end_;
    od::field field_value_;
    od::array_iterator items_, items_end_;
    bool in_top_ = false, has_field_ = false, in_sequence_ = false;
};

// The file is read through a window that holds whole lines; a line longer than the window grows it.
class JsonLinesReader final : public JsonBase {
public:
    explicit JsonLinesReader(std::string path) : JsonBase(std::move(path)) {}
    ~JsonLinesReader() override {
        if (file_) std::fclose(file_);
    }

    bool open(LoadError &error) {
        file_ = std::fopen(path_.c_str(), "rb");
        if (!file_) return fail(error, {}, std::string("cannot open: ") + std::strerror(errno));
        window_.resize(kWindow + simdjson::SIMDJSON_PADDING);
        return true;
    }

    bool begin_document(bool &empty, LoadError &error) override {
        bool eof = false;
        if (!next_line(eof, error)) return false;
        empty = eof;
        if (eof) return true;
        JSON_Value *first = parse_line(header_arena_, error);
        if (!first) return false;
        const JSON_Object *o = json_value_get_object(first);
        bool has_config = o && json_object_get_value(o, "config");
        bool only_name = o && json_object_get_count(o) == 1 && json_object_get_value(o, "name");
        if (!has_config && !only_name) {
            first_step_ = first;
            return true;
        }
        for (size_t i = 0; i < json_object_get_count(o); ++i) {
            std::string key = json_object_get_name(o, i);
            const JSON_Value *v = json_object_get_value_at(o, i);
            if (key != "name" && key != "config")
                return fail(error, {pc_json_line(v), pc_json_column(v)},
                            "the first line holds only name and config; '" + key + "' belongs to a step, one step per line");
        }
        header_ = o;
        return true;
    }

    bool begin_mapping(LoadError &) override { return true; }
    bool begin_sequence(LoadError &) override { return true; }

    // The header's keys, then "steps", then the end.
    bool next_key(std::string &key, json::Position &at, bool &end, LoadError &) override {
        end = false;
        if (header_ && header_key_ < json_object_get_count(header_)) {
            key = json_object_get_name(header_, header_key_);
            pending_ = json_object_get_value_at(header_, header_key_++);
            at = {pc_json_line(pending_), pc_json_column(pending_)};
            return true;
        }
        if (steps_announced_) {
            end = true;
            return true;
        }
        steps_announced_ = true;
        key = "steps";
        at = {line_number_, 1};
        return true;
    }

    bool at_sequence_end(bool &end, LoadError &error) override {
        end = false;
        if (first_step_) return true;
        bool eof = false;
        if (!next_line(eof, error)) return false;
        end = eof;
        return true;
    }

    JSON_Value *read_value(Arena &arena, LoadError &error) override {
        if (JSON_Value *v = pending_) {
            pending_ = nullptr;
            return v;
        }
        if (JSON_Value *v = first_step_) {
            first_step_ = nullptr;
            return v;
        }
        return parse_line(arena, error);
    }

    size_t bytes_read() const override { return consumed_; }

private:
    static constexpr size_t kWindow = 1u << 20;

    // Finds the next line that is not blank; `eof` after the last one.
    bool next_line(bool &eof, LoadError &error) {
        for (;;) {
            char *begin = window_.data() + begin_, *end = window_.data() + end_;
            if (char *nl = static_cast<char *>(std::memchr(begin, '\n', size_t(end - begin)))) {
                take(begin, nl, nl + 1 - begin);
                if (!blank()) return true;
                continue;
            }
            if (eof_) {
                if (begin == end) {
                    eof = true;
                    return true;
                }
                take(begin, end, end - begin); // the last line has no newline
                if (!blank()) return true;
                continue;
            }
            if (!refill(error)) return false;
        }
    }

    void take(char *begin, char *end, ptrdiff_t length) {
        ++line_number_;
        line_ = begin;
        line_length_ = size_t(end - begin);
        if (line_length_ && line_[line_length_ - 1] == '\r') --line_length_;
        begin_ += size_t(length);
        consumed_ += size_t(length);
    }

    bool blank() const {
        for (size_t i = 0; i < line_length_; ++i)
            if (line_[i] != ' ' && line_[i] != '\t') return false;
        return true;
    }

    bool refill(LoadError &error) {
        size_t kept = end_ - begin_;
        std::memmove(window_.data(), window_.data() + begin_, kept);
        begin_ = 0;
        end_ = kept;
        size_t capacity = window_.size() - simdjson::SIMDJSON_PADDING;
        if (end_ == capacity) { // one line fills the window
            window_.resize(2 * capacity + simdjson::SIMDJSON_PADDING);
            capacity *= 2;
        }
        size_t n = std::fread(window_.data() + end_, 1, capacity - end_, file_);
        end_ += n;
        if (n == 0) {
            if (std::ferror(file_)) return fail(error, {line_number_ + 1, 1}, std::string("cannot read: ") + std::strerror(errno));
            eof_ = true;
        }
        return true;
    }

    // Parses the current line: one JSON object.
    JSON_Value *parse_line(Arena &arena, LoadError &error) {
        lines_.reset(line_, line_number_);
        size_t room = size_t(window_.data() + window_.size() - line_);
        if (auto code = parser_.iterate(line_, line_length_, room).get(doc_))
            return fail(error, {line_number_, 1}, describe(code)), nullptr;
        od::json_type type;
        if (doc_.type().get(type) || type != od::json_type::object)
            return fail(error, {line_number_, 1}, "each line is one JSON object: the first may hold name and config, "
                                                  "every other line is one step"), nullptr;
        od::value root;
        if (auto code = doc_.get_value().get(root)) return fail(error, {line_number_, 1}, describe(code)), nullptr;
        JSON_Value *out = convert(root, arena, error);
        if (out && !at_end(doc_)) {
            const char *p = nullptr;
            json::Position at = doc_.current_location().get(p) ? json::Position{line_number_, 1} : lines_.at(p);
            return fail(error, at, describe(simdjson::TRAILING_CONTENT)), nullptr;
        }
        return out;
    }

    FILE *file_ = nullptr;
    std::vector<char> window_;
    size_t begin_ = 0, end_ = 0, consumed_ = 0;
    bool eof_ = false;
    const char *line_ = nullptr;
    size_t line_length_ = 0;
    uint32_t line_number_ = 0;
    Arena header_arena_{4096};
    const JSON_Object *header_ = nullptr;
    size_t header_key_ = 0;
    JSON_Value *pending_ = nullptr, *first_step_ = nullptr;
    bool steps_announced_ = false;
};

} // namespace

std::unique_ptr<DocumentReader> open_json(const std::string &path, LoadError &error) {
    auto reader = std::make_unique<JsonReader>(path);
    if (!reader->load(error)) return nullptr;
    return reader;
}

std::unique_ptr<DocumentReader> open_json_lines(const std::string &path, LoadError &error) {
    auto reader = std::make_unique<JsonLinesReader>(path);
    if (!reader->open(error)) return nullptr;
    return reader;
}

} // namespace pc::load
