#pragma once

#include <string>

namespace pc::runner {
void list_types();   // the type names in catalogue order, one per line
void print_stats();  // the catalogue's totals as "name: value" lines
void print_schema(); // the JSON Schema of scenario files, generated from the catalogue
// What a scenario record of the type may carry; false when there is no such type.
bool describe_type(const std::string &name);
// catalogue --describe NAME [--json]: an object type, or a value type with its values or fields;
// the exit status (2 for a name that is neither, with the closest name suggested).
int describe_command(const std::string &name, bool json);
} // namespace pc::runner
