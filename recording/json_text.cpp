#include "json_text.hpp"

#include <string>
#include <vector>

namespace pc::recording {
namespace {

class Parser {
public:
    Parser(Arena &arena, std::string_view s, uint32_t line) : arena_(arena), s_(s), at_{line, 1} {}

    JSON_Value *whole() {
        JSON_Value *v = value(0);
        blanks();
        return v && i_ == s_.size() ? v : nullptr;
    }

private:
    void blanks() {
        while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\t')) ++i_;
    }
    bool take(char c) {
        blanks();
        if (i_ < s_.size() && s_[i_] == c) return ++i_, true;
        return false;
    }

    bool string(std::string &out) {
        out.clear();
        for (++i_; i_ < s_.size(); ++i_) {
            char c = s_[i_];
            if (c == '"') return ++i_, true;
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (c != '\\') {
                out += c;
                continue;
            }
            if (++i_ >= s_.size()) return false;
            switch (s_[i_]) {
            case '"': case '\\': case '/': out += s_[i_]; break;
            case 'n': out += '\n'; break;
            case 't': out += '\t'; break;
            case 'r': out += '\r'; break;
            case 'b': out += '\b'; break;
            case 'f': out += '\f'; break;
            case 'u': {
                if (i_ + 4 >= s_.size()) return false;
                unsigned code = unsigned(std::stoul(std::string(s_.substr(i_ + 1, 4)), nullptr, 16));
                i_ += 4;
                if (code < 0x80) out += char(code);
                else if (code < 0x800) out += char(0xc0 | (code >> 6)), out += char(0x80 | (code & 0x3f));
                else out += char(0xe0 | (code >> 12)), out += char(0x80 | ((code >> 6) & 0x3f)), out += char(0x80 | (code & 0x3f));
                break;
            }
            default: return false;
            }
        }
        return false;
    }

    JSON_Value *scalar() {
        size_t start = i_;
        while (i_ < s_.size() && std::string_view(",]} \t").find(s_[i_]) == std::string_view::npos) ++i_;
        std::string_view word = s_.substr(start, i_ - start);
        if (word.empty()) return nullptr;
        JSON_Value *v = json::resolve_plain_scalar(arena_, word, at_);
        // bare words are no JSON: only numbers, true, false and null stand unquoted
        return json_value_get_type(v) == JSONString || (json_value_get_type(v) == JSONNull && word != "null") ? nullptr : v;
    }

    JSON_Value *value(int depth) {
        blanks();
        if (i_ >= s_.size() || depth > 64) return nullptr;
        std::string text;
        if (s_[i_] == '"') return string(text) ? json::make_string(arena_, text, at_) : nullptr;
        if (s_[i_] == '[') {
            ++i_;
            std::vector<JSON_Value *> items;
            if (!take(']')) {
                do {
                    JSON_Value *v = value(depth + 1);
                    if (!v) return nullptr;
                    items.push_back(v);
                } while (take(','));
                if (!take(']')) return nullptr;
            }
            return json::make_array(arena_, items.data(), items.size(), at_);
        }
        if (s_[i_] == '{') {
            ++i_;
            std::vector<const char *> names;
            std::vector<JSON_Value *> values;
            if (!take('}')) {
                do {
                    blanks();
                    if (i_ >= s_.size() || s_[i_] != '"' || !string(text) || !take(':')) return nullptr;
                    JSON_Value *v = value(depth + 1);
                    if (!v) return nullptr;
                    names.push_back(arena_.copy_string(text));
                    values.push_back(v);
                } while (take(','));
                if (!take('}')) return nullptr;
            }
            return json::make_object(arena_, names.data(), values.data(), names.size(), at_);
        }
        return scalar();
    }

    Arena &arena_;
    std::string_view s_;
    size_t i_ = 0;
    json::Position at_;
};

} // namespace

JSON_Value *parse_json(Arena &arena, std::string_view text, uint32_t line) { return Parser(arena, text, line).whole(); }

} // namespace pc::recording
