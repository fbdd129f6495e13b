// The JSON support library's part that follows the catalogue: a form description per value
// type and its converters json_convert_<type>, json_dump_convert_<type>, recorder_dump_convert_<type>.
#include "emit.hpp"
#include "prefix_length.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace catgen {
namespace {

const char *form_name(Form f) {
    switch (f) {
    case Form::Uint: return "Uint";
    case Form::Int: return "Int";
    case Form::Hex: return "Hex";
    case Form::Bool: return "Bool";
    case Form::Status: return "Status";
    case Form::Refhdl: return "Refhdl";
    case Form::HandleName: return "HandleName";
    case Form::Ip4: return "Ip4";
    case Form::Ip6: return "Ip6";
    case Form::Mac: return "Mac";
    case Form::Bytes: return "Bytes";
    case Form::String: return "String";
    case Form::Enum: return "Enum";
    case Form::Record: return "Record";
    case Form::Array: return "Array";
    case Form::KeyRecord: return "KeyRecord";
    }
    return "Uint";
}

std::string var(const ValueType &vt) { return "vt_" + vt.name; }

bool is_address(const Attribute &a) { return a.type && (a.type->form == Form::Ip4 || a.type->form == Form::Ip6); }

// Each address attribute that has a prefix-length partner in its type, for the converters'
// message about an address written with "/LEN".
std::string prefix_length_rows(const Catalogue &cat) {
    std::string rows;
    for (const auto &t : cat.types) {
        for (const auto *list : {&t.key, &t.attrs, &t.members}) {
            std::vector<std::string_view> names;
            for (const auto &a : *list) names.push_back(a.name);
            for (const auto &a : *list) {
                if (!is_address(a)) continue;
                std::string partner = pc::support::prefix_length_partner(a.name, names);
                if (!partner.empty()) rows += fmt::format("    {{\"{}\", \"{}\", \"{}\"}},\n", t.name, a.name, partner);
            }
        }
    }
    return rows;
}

} // namespace

std::string enum_constant_prefix(const std::string &name) {
    std::string base = name;
    for (const char *suffix : {"_en", "_e"})
        if (base.size() > strlen(suffix) && base.compare(base.size() - strlen(suffix), strlen(suffix), suffix) == 0) {
            base.resize(base.size() - strlen(suffix));
            break;
        }
    std::transform(base.begin(), base.end(), base.begin(), ::toupper);
    return base + "_";
}

std::string support_value_forms(const Catalogue &cat) {
    std::string out = "// Generated from the catalogue by catgen. Do not edit.\n"
                      "#include \"value_forms.hpp\"\n#include \"planecheck/dpa_api.h\"\n\n"
                      "namespace pc::support::gen {\n\n";
    for (const auto &vt : cat.value_types) out += fmt::format("extern const ValueForm {};\n", var(vt));
    out += "\n";
    for (const auto &vt : cat.value_types) {
        std::string values = "nullptr", fields = "nullptr", element = "nullptr", prefix = "nullptr";
        if (!vt.enum_values.empty()) {
            out += fmt::format("static const EnumValue values_{}[] = {{", vt.name);
            for (const auto &[n, v] : vt.enum_values) out += fmt::format("{{\"{}\", {}}}, ", n, v);
            out += "};\n";
            values = "values_" + vt.name;
            prefix = fmt::format("\"{}\"", enum_constant_prefix(vt.name));
        }
        if (!vt.fields.empty()) {
            out += fmt::format("static const FieldForm fields_{}[] = {{", vt.name);
            uint32_t offset = 0;
            for (const auto &f : vt.fields) {
                out += fmt::format("{{\"{}\", {}, &{}}}, ", f.name, offset, var(*f.type));
                offset += f.type->width;
            }
            out += "};\n";
            fields = "fields_" + vt.name;
        }
        if (vt.element) element = "&" + var(*vt.element);
        out += fmt::format("const ValueForm {} = {{\"{}\", Form::{}, {}, {}, {}, {}, {}, {}, {}, {}}};\n", var(vt),
                           vt.name, form_name(vt.form), vt.width, values, vt.enum_values.size(), prefix, fields,
                           vt.fields.size(), element, vt.bound);
        if (vt.form == Form::Record || vt.form == Form::Array || vt.form == Form::KeyRecord)
            out += fmt::format("static_assert(sizeof({}) == {}, \"layout of {}\");\n", vt.c_type(), vt.width, vt.name);
    }
    out += "\n} // namespace pc::support::gen\n\nusing namespace pc::support;\n\n";
    for (const auto &vt : cat.value_types) {
        out += fmt::format("extern \"C\" int json_convert_{0}(PROCESS *c, void *o, JSON_Value *v, const char *n) "
                           "{{ return convert(c, gen::{1}, o, v, n); }}\n", vt.name, var(vt));
        if (vt.json_dump)
            out += fmt::format("extern \"C\" int json_dump_convert_{0}(PROCESS *c, const void *v, const char *n) "
                               "{{ return json_dump(c, gen::{1}, v, n); }}\n", vt.name, var(vt));
        if (vt.recorder_dump)
            out += fmt::format("extern \"C\" int recorder_dump_convert_{0}(PROCESS *c, const void *v, const char *n) "
                               "{{ return recorder_dump(c, gen::{1}, v, n); }}\n", vt.name, var(vt));
    }
    // look-up by name, for scenario steps and tests that name a value type
    out += "\nnamespace pc::support {\nconst ValueForm *const kValueForms[] = {\n";
    for (const auto &vt : cat.value_types) out += fmt::format("    &gen::{},\n", var(vt));
    out += fmt::format("}};\nconst unsigned kValueFormCount = {};\n", cat.value_types.size());
    out += "const AddressPrefixLength kPrefixLengths[] = {\n" + prefix_length_rows(cat) + "    {nullptr, nullptr, nullptr}};\n";
    out += "} // namespace pc::support\n";
    return out;
}

} // namespace catgen
