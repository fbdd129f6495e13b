// Internal layout of the JSON value model and the builder the loaders use.
#pragma once

#include "arena.hpp"
#include "planecheck/json.h"

#include <cstdint>
#include <string_view>

struct json_object_t {
    const char **names;
    JSON_Value **values;
    size_t count;
    JSON_Value *wrapping_value;
};

struct json_array_t {
    JSON_Value **items;
    size_t count;
};

struct json_value_t {
    int8_t type;
    // how a number was written: an integer literal keeps its exact 64-bit value
    enum : uint8_t { kNotInteger, kSigned, kUnsigned } integer_kind;
    uint32_t line;
    uint32_t column;
    union {
        int boolean;
        struct {
            double number;
            union {
                int64_t i64;
                uint64_t u64;
            };
        } num;
        struct {
            const char *text;
            size_t length;
        } str;
        JSON_Object object;
        JSON_Array array;
    };
};

namespace pc::json {

struct Position {
    uint32_t line = 0;
    uint32_t column = 0;
};

JSON_Value *make_null(Arena &arena, Position at);
JSON_Value *make_bool(Arena &arena, bool value, Position at);
JSON_Value *make_number(Arena &arena, double value, Position at);
JSON_Value *make_integer(Arena &arena, int64_t value, Position at);
JSON_Value *make_unsigned(Arena &arena, uint64_t value, Position at);
JSON_Value *make_string(Arena &arena, std::string_view text, Position at);

// A text holding a NUL character cannot reach the library whole (its texts end at the first NUL):
// such a text, as a value or as a key, is refused with this message rather than cut short.
inline bool holds_nul(std::string_view text) { return text.find('\0') != std::string_view::npos; }
inline constexpr const char *kNulInText =
    "a NUL character (\\0) inside a text: the library's texts end at it, so the text is refused rather than cut short";
JSON_Value *make_array(Arena &arena, JSON_Value *const *items, size_t count, Position at);
JSON_Value *make_object(Arena &arena, const char *const *names, JSON_Value *const *values, size_t count,
                        Position at);

// Parses a plain (unquoted) YAML scalar the way the YAML core schema resolves it. Null for an
// integer that does not fit 64 bits (below -2^63 or above 2^64 - 1, decimal, hex or octal).
JSON_Value *resolve_plain_scalar(Arena &arena, std::string_view text, Position at);

} // namespace pc::json
