#include "value_types.hpp"

#include <fmt/format.h>

#include <unordered_map>

namespace pc::runner {

using support::Form;
using support::ValueForm;

const ValueForm *find_value_form(std::string_view name) {
    static const auto index = [] {
        std::unordered_map<std::string_view, const ValueForm *> m;
        for (unsigned i = 0; i < support::kValueFormCount; ++i) m.emplace(support::kValueForms[i]->name, support::kValueForms[i]);
        return m;
    }();
    auto it = index.find(name);
    return it == index.end() ? nullptr : it->second;
}

std::vector<std::string_view> value_type_names() {
    std::vector<std::string_view> names;
    for (unsigned i = 0; i < support::kValueFormCount; ++i) names.push_back(support::kValueForms[i]->name);
    return names;
}

const char *form_text(Form form) {
    switch (form) {
    case Form::Uint: return "unsigned number";
    case Form::Int: return "signed number";
    case Form::Hex: return "number (hex in dumps)";
    case Form::Bool: return "true or false";
    case Form::Status: return "status (a number or a name such as ENOENT)";
    case Form::Refhdl: return "handle (a name stored with hdl:, or a number)";
    case Form::HandleName: return "handle name";
    case Form::Ip4: return "IPv4 address";
    case Form::Ip6: return "IPv6 address";
    case Form::Mac: return "MAC address";
    case Form::Bytes: return "bytes (a number or hex text)";
    case Form::String: return "text";
    case Form::Enum: return "enum (a value name or its number)";
    case Form::Record: return "record";
    case Form::Array: return "list";
    case Form::KeyRecord: return "key record";
    }
    return "value";
}

namespace {

std::string bytes(uint32_t width) { return fmt::format("{} byte{}", width, width == 1 ? "" : "s"); }

std::string quoted(std::string_view s) { return fmt::format("\"{}\"", s); } // catalogue names need no escapes

} // namespace

std::string value_type_line(const ValueForm &f) {
    std::string line = fmt::format("{}: {}, {}", f.name, form_text(f.form), bytes(f.width));
    if (f.form == Form::String) line += fmt::format(" (at most {} characters)", f.width ? f.width - 1 : 0);
    if (f.form == Form::Enum) {
        line += "; values:";
        for (uint32_t i = 0; i < f.value_count; ++i) line += fmt::format(" {} {}{}", f.values[i].name, f.values[i].value, i + 1 < f.value_count ? "," : "");
    }
    if (f.form == Form::Array && f.element) line += fmt::format("; up to {} elements of {}", f.bound, f.element->name);
    return line;
}

std::string value_type_text(const ValueForm &f, const std::string &indent) {
    std::string text = indent + value_type_line(f) + "\n";
    if (f.form != Form::Record && f.form != Form::KeyRecord) return text;
    for (uint32_t i = 0; i < f.field_count; ++i) {
        const ValueForm &field = *f.fields[i].type;
        text += fmt::format("{}    {:<28} {:<30} {}, {}\n", indent, f.fields[i].name, field.name, form_text(field.form), bytes(field.width));
    }
    return text;
}

std::string value_type_json(const ValueForm &f) {
    std::string out = fmt::format("{{\"name\": {}, \"form\": {}, \"width\": {}", quoted(f.name), quoted(form_text(f.form)), f.width);
    if (f.form == Form::Enum) {
        out += ", \"values\": [";
        for (uint32_t i = 0; i < f.value_count; ++i)
            out += fmt::format("{}{{\"name\": {}, \"value\": {}}}", i ? ", " : "", quoted(f.values[i].name), f.values[i].value);
        out += "]";
    }
    if (f.form == Form::Record || f.form == Form::KeyRecord) {
        out += ", \"fields\": [";
        for (uint32_t i = 0; i < f.field_count; ++i)
            out += fmt::format("{}{{\"name\": {}, \"type\": {}, \"width\": {}}}", i ? ", " : "", quoted(f.fields[i].name),
                               quoted(f.fields[i].type->name), f.fields[i].type->width);
        out += "]";
    }
    if (f.form == Form::Array && f.element) out += fmt::format(", \"element\": {}, \"bound\": {}", quoted(f.element->name), f.bound);
    return out + "}";
}

} // namespace pc::runner
