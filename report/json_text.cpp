#include "json_text.hpp"

#include "wire_text.hpp"

namespace pc::report {

void append_json_string(std::string &out, std::string_view text) { runner::append_wire_text(out, text, runner::WireForm::json_in_html); }

std::string json_string(std::string_view text) { return runner::wire_text(text, runner::WireForm::json_in_html); }

} // namespace pc::report
