// What a value type accepts, told from the generated value forms: its form, width, enum values
// and record fields. `catalogue --describe` prints it for people and, with --json, for editors.
#pragma once

#include "value_forms.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace pc::runner {

const support::ValueForm *find_value_form(std::string_view name);
std::vector<std::string_view> value_type_names();

// "unsigned number", "enum", "record", ...: what a scenario writes for the form.
const char *form_text(support::Form form);

// One line: "NAME: FORM, N bytes" and, for an enum, its values, for a list its element and bound.
std::string value_type_line(const support::ValueForm &form);
// The line, then for a record each field with its value type and width, indented by `indent`.
std::string value_type_text(const support::ValueForm &form, const std::string &indent);
// The same as one JSON object.
std::string value_type_json(const support::ValueForm &form);

} // namespace pc::runner
