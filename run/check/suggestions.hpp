// The names a scenario may write where a name was not known, for "did you mean NAME?", and the
// list of a type's operations that messages show.
#pragma once

#include "descriptors.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace pc::runner {

// After an unknown table: the closest object type or special key.
std::string table_suggestion(std::string_view name);
// The ops a record of the type may name, in the order messages list them: eod only for a type
// with an end-of-data operation.
std::vector<std::string_view> ops_of(const engine::TypeDesc &type);
// "create, update, ..., replay_end": what every message naming a type's operations shows.
std::string ops_text(const engine::TypeDesc &type);
// After an unknown operation: the closest operation of the type.
std::string op_suggestion(const engine::TypeDesc &type, std::string_view op);

} // namespace pc::runner
