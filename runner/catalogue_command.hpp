#pragma once

#include <string>

namespace pc::runner {
void list_types();   // the type names in catalogue order, one per line
void print_stats();  // the catalogue's totals as "name: value" lines
void print_schema(); // the JSON Schema of scenario files, generated from the catalogue
// What a scenario record of the type may carry; false when there is no such type.
bool describe_type(const std::string &name);
} // namespace pc::runner
