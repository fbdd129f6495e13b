// Recorded values are JSON text; this builds them as values of the value model, so that replay
// can check them with the converters and hand them to the runner without a YAML round trip.
#pragma once

#include "arena.hpp"
#include "json_value.hpp"

#include <string_view>

namespace pc::recording {

// The value of `text`, every node at `line`; null when the text is not one JSON value.
JSON_Value *parse_json(Arena &arena, std::string_view text, uint32_t line);

} // namespace pc::recording
