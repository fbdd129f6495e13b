#include "json_text.hpp"

#include <fmt/format.h>

namespace pc::report {

void append_json_string(std::string &out, std::string_view text) {
    out += '"';
    for (char ch : text) {
        auto c = static_cast<unsigned char>(ch);
        switch (ch) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\t': out += "\\t"; break;
        case '<': case '>': case '&': fmt::format_to(std::back_inserter(out), "\\u{:04x}", c); break;
        default:
            if (c < 0x20) fmt::format_to(std::back_inserter(out), "\\u{:04x}", c);
            else out += ch;
        }
    }
    out += '"';
}

std::string json_string(std::string_view text) {
    std::string out;
    append_json_string(out, text);
    return out;
}

} // namespace pc::report
