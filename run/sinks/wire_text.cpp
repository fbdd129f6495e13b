#include "wire_text.hpp"

#include <fmt/format.h>

#include <cstdint>
#include <iterator>

namespace pc::runner {
namespace {

constexpr uint32_t kEscapeBase = 0xEF00;

// The length of the valid UTF-8 sequence at `at` and its code point; 0 when the byte there starts
// none (a stray continuation byte, an overlong form, a surrogate, past U+10FFFF, cut short).
size_t utf8_sequence(std::string_view s, size_t at, uint32_t &cp) {
    auto b = [&](size_t k) { return static_cast<unsigned char>(s[at + k]); };
    unsigned char lead = b(0);
    size_t n = lead < 0x80 ? 1 : lead >= 0xC2 && lead <= 0xDF ? 2 : lead >= 0xE0 && lead <= 0xEF ? 3 : lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
    if (n == 0 || at + n > s.size()) return 0;
    cp = n == 1 ? lead : lead & (0xFF >> (n + 1));
    for (size_t k = 1; k < n; ++k) {
        if ((b(k) & 0xC0) != 0x80) return 0;
        cp = cp << 6 | (b(k) & 0x3F);
    }
    static constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kLeast[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return n;
}

bool escape_range(uint32_t cp) { return (cp >= kEscapeBase && cp <= kEscapeBase + 0x1F) || (cp >= kEscapeBase + 0x80 && cp <= kEscapeBase + 0xFF); }

void append_escaped_byte(std::string &out, unsigned char byte) {
    uint32_t cp = kEscapeBase + byte;
    out += char(0xE0 | (cp >> 12));
    out += char(0x80 | ((cp >> 6) & 0x3F));
    out += char(0x80 | (cp & 0x3F));
}

bool json(WireForm form) { return form == WireForm::json || form == WireForm::json_in_html; }

// One ASCII character in the form; false when the form cannot carry it as text at all.
bool append_ascii(std::string &out, char c, WireForm form) {
    auto u = static_cast<unsigned char>(c);
    if (json(form)) {
        switch (c) {
        case '"': out += "\\\""; return true;
        case '\\': out += "\\\\"; return true;
        case '\n': out += "\\n"; return true;
        case '\t': out += "\\t"; return true;
        case '\r': out += "\\r"; return true;
        case '<': case '>': case '&':
            if (form == WireForm::json_in_html) fmt::format_to(std::back_inserter(out), "\\u{:04x}", u);
            else out += c;
            return true;
        default:
            if (u < 0x20) fmt::format_to(std::back_inserter(out), "\\u{:04x}", u);
            else out += c;
            return true;
        }
    }
    bool attribute = form == WireForm::xml_attribute;
    switch (c) {
    case '&': out += "&amp;"; return true;
    case '<': out += "&lt;"; return true;
    case '>': out += "&gt;"; return true;
    case '"': out += attribute ? "&quot;" : "\""; return true;
    case '\r': out += "&#13;"; return true;  // a reader turns a raw one into a line feed
    case '\n': out += attribute ? "&#10;" : "\n"; return true; // and a raw one in an attribute into a space
    case '\t': out += attribute ? "&#9;" : "\t"; return true;
    default:
        if (u < 0x20) return false;
        out += c;
        return true;
    }
}

} // namespace

void append_wire_text(std::string &out, std::string_view text, WireForm form) {
    if (json(form)) out += '"';
    for (size_t at = 0; at < text.size();) {
        uint32_t cp = 0;
        size_t n = utf8_sequence(text, at, cp);
        if (n == 1) {
            if (!append_ascii(out, text[at], form)) append_escaped_byte(out, static_cast<unsigned char>(text[at]));
            ++at;
            continue;
        }
        bool carried = n && !escape_range(cp) && (json(form) || (cp != 0xFFFE && cp != 0xFFFF));
        if (carried) out.append(text.substr(at, n));
        else for (size_t k = 0; k < (n ? n : 1); ++k) append_escaped_byte(out, static_cast<unsigned char>(text[at + k]));
        at += n ? n : 1;
    }
    if (json(form)) out += '"';
}

std::string wire_text(std::string_view text, WireForm form) {
    std::string out;
    out.reserve(text.size() + 2);
    append_wire_text(out, text, form);
    return out;
}

std::string from_wire(std::string_view text) {
    if (text.find('\xEE') == std::string_view::npos) return std::string(text);
    std::string out;
    out.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        uint32_t cp = 0;
        size_t n = utf8_sequence(text, at, cp);
        if (n == 3 && escape_range(cp)) out += char(cp - kEscapeBase);
        else out.append(text.substr(at, n ? n : 1));
        at += n ? n : 1;
    }
    return out;
}

} // namespace pc::runner
