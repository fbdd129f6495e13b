// JSON text for the data a report page carries inside a <script> element.
#pragma once

#include <string>
#include <string_view>

namespace pc::report {

// `text` as a JSON string. '<', '>' and '&' are written as \u escapes, so that no text taken
// from a scenario or an event ("</script>", "<!--") can end the element that holds the data; bytes
// that are not UTF-8 travel as wire_text.hpp says.
void append_json_string(std::string &out, std::string_view text);
std::string json_string(std::string_view text);

} // namespace pc::report
