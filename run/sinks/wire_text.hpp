// Text of a run (file and scenario names, values, findings) as JSON and XML carry it.
//
// That text is whatever bytes the scenario files and the file system hold, while JSON and XML
// carry Unicode only, and XML not even every character of it. So a byte that the form cannot
// carry as it is travels as the private-use character U+EF00 + the byte: a byte that is no part of
// valid UTF-8 becomes one of U+EF80..U+EFFF, and in XML a control character other than tab, line
// feed and carriage return becomes one of U+EF00..U+EF1F. A character the text really holds in
// those two ranges (or U+FFFE, U+FFFF in XML) travels byte by byte the same way, so that reading
// back (`from_wire`) gives the very bytes written, and a valid UTF-8 name reads as itself.
#pragma once

#include <string>
#include <string_view>

namespace pc::runner {

enum class WireForm {
    json,          // a JSON string, quotes included
    json_in_html,  // the same, with '<', '>' and '&' as \u escapes: no text can end a <script> element
    xml_text,      // XML character data
    xml_attribute, // an XML attribute value (without its quotes): line breaks and tabs as references
};

void append_wire_text(std::string &out, std::string_view text, WireForm form);
std::string wire_text(std::string_view text, WireForm form);

// The bytes `text` stood for, from a string a JSON or XML reader gave back.
std::string from_wire(std::string_view text);

} // namespace pc::runner
