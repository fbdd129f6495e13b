#include "json_value.hpp"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

namespace pc::json {
namespace {

JSON_Value *make(Arena &arena, int8_t type, Position at) {
    auto *v = static_cast<JSON_Value *>(arena.allocate(sizeof(JSON_Value), alignof(JSON_Value)));
    std::memset(v, 0, sizeof *v);
    v->type = type;
    v->line = at.line;
    v->column = at.column;
    return v;
}

bool is_one_of(std::string_view text, std::initializer_list<std::string_view> words) {
    for (auto w : words)
        if (text == w) return true;
    return false;
}

// Integer literals of the core schema: decimal with optional sign, 0x hex, 0o octal.
bool parse_integer(std::string_view text, JSON_Value *&out, Arena &arena, Position at) {
    if (text.empty()) return false;
    bool negative = text[0] == '-';
    std::string_view digits = (text[0] == '-' || text[0] == '+') ? text.substr(1) : text;
    int base = 10;
    if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'o')) {
        base = digits[1] == 'x' ? 16 : 8;
        digits = digits.substr(2);
    }
    if (digits.empty()) return false;
    for (char c : digits) {
        bool ok = base == 16 ? std::isxdigit(static_cast<unsigned char>(c)) : (c >= '0' && c < '0' + base);
        if (!ok) return false;
    }
    std::string buffer(digits);
    errno = 0;
    char *end = nullptr;
    uint64_t magnitude = std::strtoull(buffer.c_str(), &end, base);
    out = nullptr; // an integer that does not fit 64 bits: refused by the caller, never rounded
    if (errno == ERANGE) return true;
    if (!negative) out = make_unsigned(arena, magnitude, at);
    else if (magnitude <= uint64_t(std::numeric_limits<int64_t>::max()) + 1) out = make_integer(arena, int64_t(0 - magnitude), at);
    return true;
}

bool parse_float(std::string_view text, JSON_Value *&out, Arena &arena, Position at) {
    if (is_one_of(text, {".inf", ".Inf", ".INF", "+.inf", "+.Inf", "+.INF"})) {
        out = make_number(arena, std::numeric_limits<double>::infinity(), at);
        return true;
    }
    if (is_one_of(text, {"-.inf", "-.Inf", "-.INF"})) {
        out = make_number(arena, -std::numeric_limits<double>::infinity(), at);
        return true;
    }
    if (is_one_of(text, {".nan", ".NaN", ".NAN"})) {
        out = make_number(arena, std::numeric_limits<double>::quiet_NaN(), at);
        return true;
    }
    // [-+]? ( \. [0-9]+ | [0-9]+ ( \. [0-9]* )? ) ( [eE] [-+]? [0-9]+ )?
    size_t i = 0, n = text.size();
    if (i < n && (text[i] == '-' || text[i] == '+')) ++i;
    size_t int_digits = 0, frac_digits = 0;
    while (i < n && std::isdigit(static_cast<unsigned char>(text[i]))) ++i, ++int_digits;
    if (i < n && text[i] == '.') {
        ++i;
        while (i < n && std::isdigit(static_cast<unsigned char>(text[i]))) ++i, ++frac_digits;
    }
    if (int_digits + frac_digits == 0) return false;
    if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < n && (text[i] == '-' || text[i] == '+')) ++i;
        size_t exp_digits = 0;
        while (i < n && std::isdigit(static_cast<unsigned char>(text[i]))) ++i, ++exp_digits;
        if (exp_digits == 0) return false;
    }
    if (i != n) return false;
    out = make_number(arena, std::strtod(std::string(text).c_str(), nullptr), at);
    return true;
}

} // namespace

JSON_Value *make_null(Arena &arena, Position at) { return make(arena, JSONNull, at); }

JSON_Value *make_bool(Arena &arena, bool value, Position at) {
    JSON_Value *v = make(arena, JSONBoolean, at);
    v->boolean = value ? 1 : 0;
    return v;
}

JSON_Value *make_number(Arena &arena, double value, Position at) {
    JSON_Value *v = make(arena, JSONNumber, at);
    v->num.number = value;
    return v;
}

JSON_Value *make_integer(Arena &arena, int64_t value, Position at) {
    JSON_Value *v = make(arena, JSONNumber, at);
    v->num.number = double(value);
    v->num.i64 = value;
    if (value < 0) v->integer_kind = json_value_t::kSigned;
    else v->integer_kind = json_value_t::kUnsigned;
    return v;
}

JSON_Value *make_unsigned(Arena &arena, uint64_t value, Position at) {
    JSON_Value *v = make(arena, JSONNumber, at);
    v->num.number = double(value);
    v->num.u64 = value;
    v->integer_kind = json_value_t::kUnsigned;
    return v;
}

JSON_Value *make_string(Arena &arena, std::string_view text, Position at) {
    JSON_Value *v = make(arena, JSONString, at);
    v->str.text = arena.copy_string(text);
    v->str.length = text.size();
    return v;
}

JSON_Value *make_array(Arena &arena, JSON_Value *const *items, size_t count, Position at) {
    JSON_Value *v = make(arena, JSONArray, at);
    v->array.count = count;
    v->array.items = arena.make_array<JSON_Value *>(count);
    if (count) std::memcpy(v->array.items, items, count * sizeof(JSON_Value *));
    return v;
}

JSON_Value *make_object(Arena &arena, const char *const *names, JSON_Value *const *values, size_t count,
                        Position at) {
    JSON_Value *v = make(arena, JSONObject, at);
    v->object.count = count;
    v->object.names = arena.make_array<const char *>(count);
    v->object.values = arena.make_array<JSON_Value *>(count);
    if (count) {
        std::memcpy(v->object.names, names, count * sizeof(const char *));
        std::memcpy(v->object.values, values, count * sizeof(JSON_Value *));
    }
    v->object.wrapping_value = v;
    return v;
}

JSON_Value *resolve_plain_scalar(Arena &arena, std::string_view text, Position at) {
    // Most plain scalars are names or short decimal numbers: those skip the word lists.
    unsigned char first = text.empty() ? 0 : static_cast<unsigned char>(text[0]);
    if (std::isalpha(first) && !std::strchr("tTfFnN", first)) return make_string(arena, text, at);
    if (text.size() <= 19 && std::isdigit(first)) {
        uint64_t n = 0;
        size_t i = 0;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) n = n * 10 + uint64_t(text[i++] - '0');
        if (i == text.size()) return make_unsigned(arena, n, at);
    }
    if (is_one_of(text, {"", "~", "null", "Null", "NULL"})) return make_null(arena, at);
    if (is_one_of(text, {"true", "True", "TRUE"})) return make_bool(arena, true, at);
    if (is_one_of(text, {"false", "False", "FALSE"})) return make_bool(arena, false, at);
    JSON_Value *v = nullptr;
    if (parse_integer(text, v, arena, at)) return v; // null for an integer wider than 64 bits
    if (parse_float(text, v, arena, at)) return v;
    return make_string(arena, text, at);
}

} // namespace pc::json

extern "C" {

JSON_Value_Type json_value_get_type(const JSON_Value *value) { return value ? JSON_Value_Type(value->type) : JSON_Value_Type(JSONError); }

JSON_Object *json_value_get_object(const JSON_Value *value) {
    return value && value->type == JSONObject ? const_cast<JSON_Object *>(&value->object) : nullptr;
}

JSON_Array *json_value_get_array(const JSON_Value *value) {
    return value && value->type == JSONArray ? const_cast<JSON_Array *>(&value->array) : nullptr;
}

const char *json_value_get_string(const JSON_Value *value) {
    return value && value->type == JSONString ? value->str.text : nullptr;
}

double json_value_get_number(const JSON_Value *value) {
    return value && value->type == JSONNumber ? value->num.number : 0.0;
}

int json_value_get_boolean(const JSON_Value *value) {
    return value && value->type == JSONBoolean ? value->boolean : -1;
}

JSON_Value *json_object_get_value(const JSON_Object *object, const char *name) {
    if (!object || !name) return nullptr;
    for (size_t i = 0; i < object->count; ++i)
        if (std::strcmp(object->names[i], name) == 0) return object->values[i];
    return nullptr;
}

size_t json_object_get_count(const JSON_Object *object) { return object ? object->count : 0; }

const char *json_object_get_name(const JSON_Object *object, size_t index) {
    return object && index < object->count ? object->names[index] : nullptr;
}

JSON_Value *json_object_get_value_at(const JSON_Object *object, size_t index) {
    return object && index < object->count ? object->values[index] : nullptr;
}

JSON_Value *json_object_get_wrapping_value(const JSON_Object *object) {
    return object ? object->wrapping_value : nullptr;
}

size_t json_array_get_count(const JSON_Array *array) { return array ? array->count : 0; }

JSON_Value *json_array_get_value(const JSON_Array *array, size_t index) {
    return array && index < array->count ? array->items[index] : nullptr;
}

uint32_t pc_json_line(const JSON_Value *value) { return value ? value->line : 0; }
uint32_t pc_json_column(const JSON_Value *value) { return value ? value->column : 0; }

int pc_json_get_int64(const JSON_Value *value, int64_t *out) {
    if (!value || value->type != JSONNumber || value->integer_kind == json_value_t::kNotInteger) return 0;
    if (value->integer_kind == json_value_t::kUnsigned && value->num.u64 > uint64_t(INT64_MAX)) return 0;
    *out = value->num.i64;
    return 1;
}

int pc_json_get_uint64(const JSON_Value *value, uint64_t *out) {
    if (!value || value->type != JSONNumber || value->integer_kind != json_value_t::kUnsigned) return 0;
    *out = value->num.u64;
    return 1;
}

} // extern "C"
