// The converters of every value type, generic over the value's form.
#include "planecheck/session.hpp"
#include "suggest.hpp"
#include "prefix_length.hpp"
#include "recorder_sink.hpp"
#include "value_forms.hpp"

#include <arpa/inet.h>

#include <cctype>
#include <charconv>
#include <cinttypes>
#include <cmath>
#include <cstring>
#include <string>
#include <unordered_map>
#include <utility>

namespace pc::support {
namespace {

std::string describe(const JSON_Value *v) {
    switch (json_value_get_type(v)) {
    case JSONString: {
        std::string s = json_value_get_string(v);
        if (s.size() > 40) s = s.substr(0, 37) + "...";
        return "the string \"" + s + "\"";
    }
    case JSONNumber: {
        char text[64];
        std::snprintf(text, sizeof text, "%.17g", json_value_get_number(v));
        return std::string("the number ") + text;
    }
    case JSONBoolean: return json_value_get_boolean(v) ? "true" : "false";
    case JSONNull: return "null";
    case JSONObject: return "an object";
    case JSONArray: return "a list";
    default: return "nothing";
    }
}

// Parses decimal, 0x hexadecimal and negative integer text. `hex` tells that it was written in hex.
bool parse_integer_text(const std::string &s, int64_t &value, bool &negative, uint64_t &magnitude, bool &hex) {
    size_t i = 0;
    negative = false;
    hex = false;
    if (i < s.size() && (s[i] == '-' || s[i] == '+')) negative = s[i++] == '-';
    int base = 10;
    if (s.size() - i > 2 && s[i] == '0' && (s[i + 1] == 'x' || s[i + 1] == 'X')) base = 16, i += 2, hex = true;
    if (i >= s.size()) return false;
    magnitude = 0;
    for (; i < s.size(); ++i) {
        int d = std::isdigit(static_cast<unsigned char>(s[i])) ? s[i] - '0'
                : base == 16 && std::isxdigit(static_cast<unsigned char>(s[i])) ? std::tolower(s[i]) - 'a' + 10
                                                                                : -1;
        if (d < 0 || d >= base) return false;
        if (magnitude > (UINT64_MAX - uint64_t(d)) / uint64_t(base)) return false;
        magnitude = magnitude * uint64_t(base) + uint64_t(d);
    }
    value = negative ? int64_t(0 - magnitude) : int64_t(magnitude);
    return true;
}

// The numbers an integer of `width` bytes holds, as a message gives them: "0 to 65535".
std::string range_text(uint32_t width, bool is_signed) {
    unsigned bits = width * 8;
    if (bits >= 64) return is_signed ? "-9223372036854775808 to 9223372036854775807" : "0 to 18446744073709551615";
    uint64_t top = (uint64_t(1) << bits) - 1;
    if (!is_signed) return "0 to " + std::to_string(top);
    return "-" + std::to_string((top >> 1) + 1) + " to " + std::to_string(top >> 1);
}

bool is_hex_digits(const std::string &s) { return !s.empty() && s.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos; }

int hex_value(char c) { return std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : std::tolower(c) - 'a' + 10; }

bool equal_ignoring_case(const char *a, const std::string &b) {
    size_t i = 0;
    for (; a[i] && i < b.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
    return !a[i] && i == b.size();
}

// The boolean words of YAML 1.1 as libyaml users write them. The loader resolves plain scalars
// by the YAML 1.2 core schema, so `yes` arrives as text, quoted or not, and is read here.
int boolean_word(const char *s) {
    static const char *const yes[] = {"true", "True", "TRUE", "yes", "Yes", "YES", "on", "On", "ON", "1"};
    static const char *const no[] = {"false", "False", "FALSE", "no", "No", "NO", "off", "Off", "OFF", "0"};
    for (const char *w : yes)
        if (!std::strcmp(s, w)) return 1;
    for (const char *w : no)
        if (!std::strcmp(s, w)) return 0;
    return -1;
}

// A MAC address in the three usual spellings: six pairs joined by ':' or by '-' (one separator
// throughout), three dotted groups of four ("0011.2233.4455"), or twelve bare hex digits.
bool parse_mac(const std::string &s, uint8_t out[6]) {
    std::string digits;
    if (s.size() == 17) {
        char sep = s[2];
        if (sep != ':' && sep != '-') return false;
        for (size_t i = 0; i < s.size(); ++i) {
            if (i % 3 != 2) digits += s[i];
            else if (s[i] != sep) return false;
        }
    } else if (s.size() == 14) {
        for (size_t i = 0; i < s.size(); ++i) {
            if (i % 5 != 4) digits += s[i];
            else if (s[i] != '.') return false;
        }
    } else if (s.size() == 12) {
        digits = s;
    }
    if (digits.size() != 12 || !is_hex_digits(digits)) return false;
    for (int i = 0; i < 6; ++i) out[i] = uint8_t(hex_value(digits[2 * i]) << 4 | hex_value(digits[2 * i + 1]));
    return true;
}

struct Converter {
    PROCESS *context;
    bool ok = true;
    const ValueForm *enclosing = nullptr; // the record whose field is being converted

    // Where the length of "10.0.0.0/24" goes: the partner field of the record being converted, or
    // the partner attribute of the type that the finding scope names.
    std::string prefix_length_of(const std::string &name) const {
        if (enclosing) {
            std::vector<std::string_view> fields;
            for (uint32_t k = 0; k < enclosing->field_count; ++k) fields.push_back(enclosing->fields[k].name);
            size_t dot = name.rfind('.');
            std::string partner = prefix_length_partner(name.substr(dot + 1), fields);
            return partner.empty() ? "" : name.substr(0, dot + 1) + partner;
        }
        const char *type = context && context->session ? context->session->finding_scope.type : nullptr;
        for (const AddressPrefixLength *row = kPrefixLengths; type && row->type; ++row)
            if (!std::strcmp(row->type, type) && name == row->address) return row->length;
        return "";
    }

    // An address written with its prefix length: say where the length goes.
    std::string address_hint(const JSON_Value *v, const std::string &name) const {
        const char *s = json_value_get_string(v);
        const char *slash = s ? std::strchr(s, '/') : nullptr;
        if (!slash) return "";
        std::string address(s, slash), length(slash + 1), partner = prefix_length_of(name);
        if (partner.empty()) return "; an address takes no /" + length + " here: write \"" + address + "\"";
        size_t dot = name.rfind('.');
        std::string field = dot == std::string::npos ? name : name.substr(dot + 1);
        size_t partner_dot = partner.rfind('.');
        std::string partner_field = partner_dot == std::string::npos ? partner : partner.substr(partner_dot + 1);
        return "; the prefix length goes in " + partner + ": write " + field + ": \"" + address + "\" and " + partner_field + ": " + length;
    }

    void error(const JSON_Value *v, const std::string &name, const std::string &what) {
        ok = false;
        report_value_error(context, v, name, what);
    }

    // An integer of `width` bytes. Hex text is taken as a bit pattern of that width.
    bool integer(const JSON_Value *v, const std::string &name, uint32_t width, bool is_signed, uint64_t &bits) {
        bool negative = false, hex = false;
        uint64_t magnitude = 0;
        int64_t value = 0;
        switch (json_value_get_type(v)) {
        case JSONNumber: {
            uint64_t u;
            int64_t s;
            if (pc_json_get_uint64(v, &u)) magnitude = u;
            else if (pc_json_get_int64(v, &s)) negative = true, magnitude = uint64_t(0) - uint64_t(s);
            else {
                double d = json_value_get_number(v);
                if (d != std::floor(d) || std::fabs(d) > 1.8e19) {
                    error(v, name, "expected a whole number, got " + describe(v));
                    return false;
                }
                negative = d < 0;
                magnitude = uint64_t(std::fabs(d));
            }
            break;
        }
        case JSONBoolean: magnitude = uint64_t(json_value_get_boolean(v)); break;
        case JSONString: {
            std::string s = json_value_get_string(v);
            int32_t status;
            if (status_from_name(s, status)) {
                negative = status < 0;
                magnitude = negative ? uint64_t(0) - uint64_t(int64_t(status)) : uint64_t(status);
            } else if (!parse_integer_text(s, value, negative, magnitude, hex)) {
                error(v, name, "expected a number, got " + describe(v));
                return false;
            }
            break;
        }
        default: error(v, name, "expected a number, got " + describe(v)); return false;
        }
        unsigned bitsz = width * 8;
        uint64_t mask = bitsz >= 64 ? UINT64_MAX : (uint64_t(1) << bitsz) - 1;
        bool fits;
        if (hex && !negative) fits = magnitude <= mask;
        else if (is_signed)
            fits = negative ? magnitude <= (uint64_t(1) << (bitsz - 1)) : magnitude <= (mask >> 1);
        else fits = !negative && magnitude <= mask;
        if (!fits) {
            error(v, name, "value " + std::string(negative ? "-" : "") + std::to_string(magnitude) + " does not fit in " +
                               std::to_string(width) + (is_signed ? " signed" : " unsigned") + " byte(s) (" +
                               range_text(width, is_signed) + ")");
            return false;
        }
        bits = negative ? uint64_t(0) - magnitude : magnitude;
        return true;
    }

    void store_bits(void *out, uint64_t bits, uint32_t width) { std::memcpy(out, &bits, width); } // little-endian host

    void convert(const ValueForm &f, void *out, const JSON_Value *v, const std::string &name) {
        uint64_t bits = 0;
        switch (f.form) {
        case Form::Uint: case Form::Hex:
            if (integer(v, name, f.width, false, bits)) store_bits(out, bits, f.width);
            return;
        case Form::Status:
            if (!status_text_readable(v, name)) return;
            if (integer(v, name, f.width, false, bits)) store_bits(out, bits, f.width);
            return;
        case Form::Int:
            if (integer(v, name, f.width, true, bits)) store_bits(out, bits, f.width);
            return;
        case Form::Bool: return boolean(v, out, name);
        case Form::Refhdl: return handle(v, out, name);
        case Form::HandleName: return handle_name(v, out, name);
        case Form::Ip4: return ip4(v, out, name);
        case Form::Ip6: return ip6(v, out, name);
        case Form::Mac: return mac(v, out, name);
        case Form::Bytes: return bytes(f, v, out, name);
        case Form::String: return text(f, v, out, name);
        case Form::Enum: return enumeration(f, v, out, name);
        case Form::Record: case Form::KeyRecord: return record(f, v, out, name);
        case Form::Array: return array(f, v, out, name);
        }
    }

    // A status written as text is a number or a status name. The send path converts "rc" twice,
    // before and after the operation, deliberately; the same misspelling is reported once. "The
    // same" is the same value with no value error counted since: a later file (or a fresh
    // session) may hold a value at the same address and position, and is told again.
    bool status_text_readable(const JSON_Value *v, const std::string &name) {
        const char *s = json_value_get_string(v);
        int32_t status;
        bool negative, hex;
        uint64_t magnitude;
        int64_t value;
        if (!s || status_from_name(s, status) || parse_integer_text(s, value, negative, magnitude, hex)) return true;
        struct Refused {
            const PROCESS *context;
            const JSON_Value *value;
            uint32_t line, column;
            uint64_t value_errors; // counted after it was told
            bool operator==(const Refused &) const = default;
        };
        auto value_errors = [&] { return context && context->session ? context->session->value_errors() : ~uint64_t(0); };
        static thread_local Refused last{};
        Refused now{context, v, pc_json_line(v), pc_json_column(v), value_errors()};
        ok = false;
        if (now == last) return false;
        std::vector<std::string_view> names = status_name_list();
        std::string list;
        for (std::string_view n : names) list += (list.empty() ? "" : ", ") + std::string(n);
        report_value_error(context, v, name, "'" + std::string(s) + "' is neither a number nor a status name (" + list +
                                           "); it reads as 0 (EOK)" + did_you_mean(s, names));
        last = now;
        last.value_errors = value_errors();
        return false;
    }

    void boolean(const JSON_Value *v, void *out, const std::string &name) {
        int b = -1;
        if (json_value_get_type(v) == JSONBoolean) b = json_value_get_boolean(v);
        else if (json_value_get_type(v) == JSONNumber && (json_value_get_number(v) == 0 || json_value_get_number(v) == 1))
            b = int(json_value_get_number(v));
        else if (const char *s = json_value_get_string(v)) b = boolean_word(s);
        if (b < 0) return error(v, name, "expected true or false, got " + describe(v));
        *static_cast<uint8_t *>(out) = uint8_t(b);
    }

    void handle(const JSON_Value *v, void *out, const std::string &name) {
        if (const char *s = json_value_get_string(v)) {
            pc_session *session = context ? context->session : nullptr;
            if (session) {
                auto it = session->handles.find(s);
                if (it != session->handles.end()) {
                    std::memcpy(out, &it->second, 8);
                    return;
                }
            }
            int64_t value;
            bool negative, hex;
            uint64_t magnitude;
            if (parse_integer_text(s, value, negative, magnitude, hex) && !negative) {
                std::memcpy(out, &magnitude, 8);
                return;
            }
            std::vector<std::string_view> stored;
            if (session)
                for (const auto &entry : session->handles) stored.push_back(entry.first);
            return error(v, name, std::string("unknown handle name '") + s + "' (no earlier record stored a handle under it with \"hdl\")" +
                                      did_you_mean(s, stored));
        }
        uint64_t bits;
        if (integer(v, name, 8, false, bits)) std::memcpy(out, &bits, 8);
    }

    // The "hdl" control field: a number, or a name; a name not stored yet is a record naming a
    // new handle, and reads as 0.
    void handle_name(const JSON_Value *v, void *out, const std::string &name) {
        if (const char *s = json_value_get_string(v)) {
            pc_session *session = context ? context->session : nullptr;
            auto it = session ? session->handles.find(s) : std::unordered_map<std::string, uint64_t>::iterator{};
            if (session && it != session->handles.end()) {
                std::memcpy(out, &it->second, 8);
                return;
            }
            int64_t value;
            bool negative, hex;
            uint64_t magnitude;
            if (parse_integer_text(s, value, negative, magnitude, hex) && !negative) std::memcpy(out, &magnitude, 8);
            return;
        }
        uint64_t bits;
        if (integer(v, name, 8, false, bits)) std::memcpy(out, &bits, 8);
    }

    void ip4(const JSON_Value *v, void *out, const std::string &name) {
        if (const char *s = json_value_get_string(v)) {
            in_addr a{};
            if (inet_pton(AF_INET, s, &a) != 1)
                return error(v, name, "expected an IPv4 address like \"10.0.0.1\", got " + describe(v) + address_hint(v, name));
            uint32_t host = ntohl(a.s_addr);
            std::memcpy(out, &host, 4);
            return;
        }
        uint64_t bits;
        if (integer(v, name, 4, false, bits)) store_bits(out, bits, 4);
    }

    void ip6(const JSON_Value *v, void *out, const std::string &name) {
        const char *s = json_value_get_string(v);
        if (!s || inet_pton(AF_INET6, s, out) != 1)
            error(v, name, "expected an IPv6 address like \"2001:db8::1\", got " + describe(v) + address_hint(v, name));
    }

    void mac(const JSON_Value *v, void *out, const std::string &name) {
        const char *s = json_value_get_string(v);
        uint8_t b[6];
        if (!s || !parse_mac(s, b)) {
            // twelve unquoted digits reach here as a number: say how to write them
            const char *hint = json_value_get_type(v) == JSONNumber ? " (quote a MAC address written without separators)" : "";
            return error(v, name, "expected a MAC address like \"00:11:22:33:44:55\", \"0011.2233.4455\" or \"001122334455\", got " +
                                      describe(v) + hint);
        }
        std::memcpy(out, b, 6);
    }

    // Bytes are a little-endian number: written as a number, as "0x" and up to 2*width hex digits,
    // or as exactly 2*width bare hex digits (the whole value, most significant byte first). A
    // shorter bare digit string stays a decimal number, so "42" is forty-two.
    void bytes(const ValueForm &f, const JSON_Value *v, void *out, const std::string &name) {
        auto *p = static_cast<uint8_t *>(out);
        const char *s = json_value_get_string(v);
        bool prefixed = s && s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
        if (prefixed || (s && std::strlen(s) == 2 * f.width && is_hex_digits(s))) {
            std::string digits(prefixed ? s + 2 : s);
            if (digits.size() > 2 * f.width || !is_hex_digits(digits))
                return error(v, name, "expected a number, \"0x\" and up to " + std::to_string(2 * f.width) + " hex digits, or exactly " +
                                          std::to_string(2 * f.width) + " bare hex digits, got " + describe(v));
            for (size_t i = 0; i < digits.size(); ++i) {
                size_t from_right = digits.size() - 1 - i;
                p[from_right / 2] |= uint8_t(hex_value(digits[i]) << (4 * (from_right % 2)));
            }
            return;
        }
        // 24 unquoted digits reach here as a number too large for any integer: say how to write them
        if (json_value_get_type(v) == JSONNumber && std::fabs(json_value_get_number(v)) >= 1.8446744073709552e19)
            return error(v, name, describe(v) + " is too large for a number; write the value as hex text in quotes (\"0x...\" or " +
                                      std::to_string(2 * f.width) + " bare hex digits)");
        uint64_t bits;
        if (integer(v, name, 8, false, bits)) std::memcpy(p, &bits, std::min<uint32_t>(8, f.width));
    }

    void text(const ValueForm &f, const JSON_Value *v, void *out, const std::string &name) {
        const char *s = json_value_get_string(v);
        if (!s) return error(v, name, "expected a string, got " + describe(v));
        size_t n = std::strlen(s);
        if (n >= f.width) {
            error(v, name, "the string is " + std::to_string(n) + " bytes long; at most " + std::to_string(f.width - 1) +
                               " fit, the rest is cut off");
            n = f.width - 1;
        }
        std::memcpy(out, s, n);
    }

    void enumeration(const ValueForm &f, const JSON_Value *v, void *out, const std::string &name) {
        if (const char *s = json_value_get_string(v)) {
            // value names are lower case in the catalogue, so ignoring case is never ambiguous
            std::string prefix = f.constant_prefix ? f.constant_prefix : "";
            for (uint32_t i = 0; i < f.value_count; ++i) {
                if (equal_ignoring_case(s, f.values[i].name) || equal_ignoring_case(s, prefix + f.values[i].name)) {
                    int32_t value = int32_t(f.values[i].value);
                    std::memcpy(out, &value, 4);
                    return;
                }
            }
            int64_t value;
            bool negative, hex;
            uint64_t magnitude;
            if (!parse_integer_text(s, value, negative, magnitude, hex)) {
                std::string names;
                for (uint32_t i = 0; i < f.value_count; ++i) names += std::string(i ? ", " : "") + f.values[i].name;
                std::vector<std::string_view> candidates;
                for (uint32_t i = 0; i < f.value_count; ++i) candidates.push_back(f.values[i].name);
                return error(v, name, "unknown value '" + std::string(s) + "' of " + f.name + " (one of: " + names + ")" +
                                          did_you_mean(s, candidates));
            }
        }
        uint64_t bits;
        if (integer(v, name, 4, true, bits)) store_bits(out, bits, 4);
    }

    void record(const ValueForm &f, const JSON_Value *v, void *out, const std::string &name) {
        const JSON_Object *o = json_value_get_object(v);
        if (!o) return error(v, name, std::string("expected an object with the fields of ") + f.name + ", got " + describe(v));
        for (size_t i = 0; i < json_object_get_count(o); ++i) {
            const char *member = json_object_get_name(o, i);
            const FieldForm *field = nullptr;
            for (uint32_t k = 0; k < f.field_count && !field; ++k)
                if (!std::strcmp(f.fields[k].name, member)) field = &f.fields[k];
            const JSON_Value *mv = json_object_get_value_at(o, i);
            if (!field) {
                std::string names;
                for (uint32_t k = 0; k < f.field_count; ++k) names += std::string(k ? ", " : "") + f.fields[k].name;
                error(mv, name, std::string("unknown field '") + member + "' of " + f.name + " (fields: " + names + ")");
                continue;
            }
            const ValueForm *outer = std::exchange(enclosing, &f);
            convert(*field->type, static_cast<uint8_t *>(out) + field->offset, mv, name + "." + member);
            enclosing = outer;
        }
    }

    void array(const ValueForm &f, const JSON_Value *v, void *out, const std::string &name) {
        const JSON_Array *a = json_value_get_array(v);
        if (!a) return error(v, name, "expected a list, got " + describe(v));
        size_t n = json_array_get_count(a);
        if (n > f.bound) {
            error(v, name, "the list has " + std::to_string(n) + " elements; " + f.name + " holds at most " +
                               std::to_string(f.bound) + ", the rest is left out");
            n = f.bound;
        }
        uint32_t count = uint32_t(n);
        std::memcpy(out, &count, 4);
        const ValueForm *outer = std::exchange(enclosing, nullptr);
        for (size_t i = 0; i < n; ++i)
            convert(*f.element, static_cast<uint8_t *>(out) + 4 + i * f.element->width, json_array_get_value(a, i),
                    name + "[" + std::to_string(i) + "]");
        enclosing = outer;
    }
};

uint64_t load_bits(const void *p, uint32_t width) {
    uint64_t bits = 0;
    std::memcpy(&bits, p, std::min<uint32_t>(width, 8));
    return bits;
}

int64_t load_signed(const void *p, uint32_t width) {
    uint64_t bits = load_bits(p, width);
    int shift = 64 - 8 * int(width);
    return int64_t(bits << shift) >> shift;
}

void quote(std::string &out, const char *s, size_t max) {
    out += '"';
    for (size_t i = 0; i < max && s[i]; ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c == '"' || c == '\\') out += '\\', out += char(c);
        else if (c < 0x20) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", c);
            out += esc;
        } else out += char(c);
    }
    out += '"';
}

} // namespace

// Appends the value as JSON text: what both the recorder and the JSON dump write, and what
// convert() reads back. It appends to a caller's buffer so that a reused one allocates nothing.
void append_value(std::string &out, const ValueForm &f, const void *p) {
    char text[64];
    auto put = [&](int n) { out.append(text, size_t(std::max(n, 0))); };
    switch (f.form) {
    // integers, the commonest values, are formatted without a format string to parse
    case Form::Uint: return put(int(std::to_chars(text, text + sizeof text, load_bits(p, f.width)).ptr - text));
    case Form::Int: case Form::Status: return put(int(std::to_chars(text, text + sizeof text, load_signed(p, f.width)).ptr - text));
    case Form::Hex: return put(std::snprintf(text, sizeof text, "\"0x%" PRIx64 "\"", load_bits(p, f.width)));
    case Form::Bool: out += *static_cast<const uint8_t *>(p) ? "true" : "false"; return;
    case Form::Refhdl: case Form::HandleName: return put(std::snprintf(text, sizeof text, "\"0x%" PRIx64 "\"", load_bits(p, 8)));
    case Form::Ip4: {
        uint32_t host = uint32_t(load_bits(p, 4));
        return put(std::snprintf(text, sizeof text, "\"%u.%u.%u.%u\"", host >> 24, (host >> 16) & 255, (host >> 8) & 255, host & 255));
    }
    case Form::Ip6: {
        char a[INET6_ADDRSTRLEN];
        inet_ntop(AF_INET6, p, a, sizeof a);
        return put(std::snprintf(text, sizeof text, "\"%s\"", a));
    }
    case Form::Mac: {
        auto *b = static_cast<const uint8_t *>(p);
        return put(std::snprintf(text, sizeof text, "\"%02x:%02x:%02x:%02x:%02x:%02x\"", b[0], b[1], b[2], b[3], b[4], b[5]));
    }
    case Form::Bytes: {
        auto *b = static_cast<const uint8_t *>(p);
        bool small = true;
        for (uint32_t i = 6; i < f.width; ++i) small &= b[i] == 0;
        if (small) return put(std::snprintf(text, sizeof text, "%" PRIu64, load_bits(p, std::min<uint32_t>(f.width, 6))));
        out += "\"0x";
        for (uint32_t i = f.width; i-- > 0;) put(std::snprintf(text, sizeof text, "%02x", b[i]));
        out += '"';
        return;
    }
    case Form::String: return quote(out, static_cast<const char *>(p), f.width);
    case Form::Enum: {
        int32_t v = int32_t(load_signed(p, 4));
        for (uint32_t i = 0; i < f.value_count; ++i)
            if (f.values[i].value == v) {
                out += '"';
                out += f.values[i].name;
                out += '"';
                return;
            }
        return put(std::snprintf(text, sizeof text, "%d", v));
    }
    case Form::Record: case Form::KeyRecord:
        out += '{';
        for (uint32_t i = 0; i < f.field_count; ++i) {
            out += i ? ", \"" : "\"";
            out += f.fields[i].name;
            out += "\": ";
            append_value(out, *f.fields[i].type, static_cast<const uint8_t *>(p) + f.fields[i].offset);
        }
        out += '}';
        return;
    case Form::Array: {
        uint32_t n = std::min<uint32_t>(uint32_t(load_bits(p, 4)), f.bound);
        out += '[';
        for (uint32_t i = 0; i < n; ++i) {
            if (i) out += ", ";
            append_value(out, *f.element, static_cast<const uint8_t *>(p) + 4 + i * f.element->width);
        }
        out += ']';
        return;
    }
    }
    out += "null";
}

std::string format_value(const ValueForm &f, const void *p) {
    std::string out;
    append_value(out, f, p);
    return out;
}

int convert(PROCESS *context, const ValueForm &form, void *out, JSON_Value *value, const char *name) {
    Converter c{context};
    c.convert(form, out, value, name ? name : "value");
    return c.ok ? 0 : -1;
}

int json_dump(PROCESS *context, const ValueForm &form, const void *value, const char *name) {
    if (!context || !context->session) return -1;
    std::string &doc = context->session->dump_document;
    doc += "  \"";
    doc += name ? name : "";
    doc += "\": ";
    append_value(doc, form, value);
    doc += ",\n";
    return 0;
}

int recorder_dump(PROCESS *, const ValueForm &form, const void *value, const char *name) {
    if (!pc::recorder::active()) return 0; // nothing would see the text
    static thread_local std::string text;  // reused: a steady stream of records allocates nothing
    text.clear();
    append_value(text, form, value);
    pc::recorder::write_field(name, text);
    return 0;
}

} // namespace pc::support
