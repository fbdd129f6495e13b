// The names a scenario may write where a name was not known, for "did you mean NAME?".
#pragma once

#include <string>
#include <string_view>

namespace pc::runner {

// After an unknown table: the closest object type or special key.
std::string table_suggestion(std::string_view name);
// After an unknown operation: the closest operation of a record.
std::string op_suggestion(std::string_view op);

} // namespace pc::runner
