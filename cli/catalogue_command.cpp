// planecheck catalogue: what the built library knows, read from its descriptor tables.
#include "catalogue_command.hpp"

#include "catalogue_totals.hpp"
#include "engine.hpp"
#include "reference_text.hpp"
#include "references.hpp"
#include "suggest.hpp"
#include "suggestions.hpp"
#include "value_forms.hpp"
#include "value_types.hpp"

#include <fmt/format.h>

#include <cstdio>
#include <set>
#include <string_view>

namespace pc::runner {

extern const char *const kScenarioSchema[]; // written by catgen
extern const size_t kScenarioSchemaPieces;

void print_schema() {
    for (size_t i = 0; i < kScenarioSchemaPieces; ++i) std::fputs(kScenarioSchema[i], stdout);
}

void list_types() {
    for (size_t i = 0; i < engine::kTypeCount; ++i) fmt::print("{}\n", engine::kTypes[i]->name);
}

namespace {

const char *kind_text(engine::Kind kind) {
    switch (kind) {
    case engine::Kind::Key: return "key";
    case engine::Kind::Array: return "list";
    case engine::Kind::DirectRefhdl: return "reference by handle";
    case engine::Kind::DirectRefkey: return "reference by key";
    case engine::Kind::ReadOnly: return "read-only";
    case engine::Kind::Element: return "element";
    default: return "value";
    }
}

std::vector<const support::ValueForm *> value_forms_of(const engine::TypeDesc &t);

// The kind column of an attribute; a direct reference also names its target and the target's gate.
std::string attribute_kind_text(const engine::AttrDesc &a) {
    if (const engine::TypeDesc *target = direct_target(a)) return reference_kind_text(*target, a.kind == engine::Kind::DirectRefkey);
    return kind_text(a.kind);
}

} // namespace

bool describe_type(const std::string &name) {
    using namespace pc::engine;
    const TypeDesc *t = find_type(name.c_str());
    if (!t) return false;
    fmt::print("{} (type number {})\n", t->name, t->number);
    if (t->gate != Gate::None) fmt::print("  {}\n", gate_phrase(t->gate));
    if (t->sized()) fmt::print("  sized: its element count comes from \"members\" or \"{}\"\n", t->count_key);
    fmt::print("  operations: {}\n", pc::runner::ops_text(*t));
    std::vector<std::string_view> controls;
    for (const auto &field : pc::vocabulary::kControlFields) // npu_mask only where the type has its accessor
        if (t->npu_mask || std::string_view(field.name) != pc::vocabulary::kFieldNpuMask) controls.push_back(field.name);
    fmt::print("  control fields: {}\n", fmt::join(controls, " "));
    auto attributes = [&](std::span<const AttrDesc> list, const char *title) {
        if (list.empty()) return;
        fmt::print("  {}:\n", title);
        for (const AttrDesc &a : list)
            fmt::print("    {:<36} {:<34} {}\n", a.name, kValueTypes[a.value_type].name, attribute_kind_text(a));
    };
    auto roles = [&](std::span<const RoleDesc> list, const char *title) {
        if (list.empty()) return;
        fmt::print("  {}:\n", title);
        for (const RoleDesc &r : list)
            fmt::print("    {} / {}  reference by handle / by key to {} ({})\n", r.hdl_key, r.key_key, kTypes[r.target]->name, gate_phrase(r.gate));
    };
    attributes(t->keys(), "key");
    attributes(t->top().subspan(t->key_count), "attributes");
    roles(t->top_roles(), "reference pairs (handle name / key)");
    attributes(t->elements(), "in each element of \"members\"");
    roles(t->element_roles(), "reference pairs in each element of \"members\"");
    fmt::print("  value types:\n");
    for (const support::ValueForm *form : value_forms_of(*t)) fmt::print("{}", value_type_text(*form, "    "));
    return true;
}

namespace {

// The value types a record of the type is read with, each once, in order of first use.
std::vector<const support::ValueForm *> value_forms_of(const engine::TypeDesc &t) {
    std::vector<const support::ValueForm *> forms;
    std::set<const support::ValueForm *> seen;
    auto add = [&](uint16_t value_type) {
        const support::ValueForm *form = find_value_form(engine::kValueTypes[value_type].name);
        if (form && seen.insert(form).second) forms.push_back(form);
    };
    for (const engine::AttrDesc &a : t.attrs) add(a.value_type);
    for (const engine::RoleDesc &r : t.roles) add(r.key_value_type);
    return forms;
}

// A direct reference also gives the type it names and while which object_set that type exists.
std::string target_json(const engine::AttrDesc &a) {
    const engine::TypeDesc *target = direct_target(a);
    return target ? fmt::format(", \"target\": \"{}\", \"target_gate\": \"{}\"", target->name, gate_phrase(target->gate)) : "";
}

std::string attributes_json(std::span<const engine::AttrDesc> list) {
    std::string out;
    for (const engine::AttrDesc &a : list)
        out += fmt::format("{}{{\"name\": \"{}\", \"value_type\": \"{}\", \"kind\": \"{}\"{}}}", out.empty() ? "" : ", ", a.name,
                           engine::kValueTypes[a.value_type].name, kind_text(a.kind), target_json(a));
    return "[" + out + "]";
}

std::string roles_json(std::span<const engine::RoleDesc> list) {
    std::string out;
    for (const engine::RoleDesc &r : list)
        out += fmt::format("{}{{\"handle\": \"{}\", \"key\": \"{}\", \"target\": \"{}\", \"target_gate\": \"{}\", \"key_type\": \"{}\"}}",
                           out.empty() ? "" : ", ", r.hdl_key, r.key_key, engine::kTypes[r.target]->name, gate_phrase(r.gate),
                           engine::kValueTypes[r.key_value_type].name);
    return "[" + out + "]";
}

void print_type_json(const engine::TypeDesc &t) {
    std::string types;
    for (const support::ValueForm *form : value_forms_of(t)) types += (types.empty() ? "" : ", ") + value_type_json(*form);
    fmt::print("{{\"object_type\": \"{}\", \"number\": {}, \"gate\": \"{}\", \"count_key\": \"{}\", \"eod\": {}, "
               "\"key\": {}, \"attributes\": {}, \"reference_pairs\": {}, \"members\": {}, \"member_reference_pairs\": {}, "
               "\"value_types\": [{}]}}\n",
               t.name, t.number, t.gate == engine::Gate::None ? "" : gate_phrase(t.gate), t.count_key ? t.count_key : "",
               t.eod ? "true" : "false", attributes_json(t.keys()), attributes_json(t.top().subspan(t.key_count)),
               roles_json(t.top_roles()), attributes_json(t.elements()), roles_json(t.element_roles()), types);
}

} // namespace

int describe_command(const std::string &name, bool json) {
    if (const engine::TypeDesc *t = engine::find_type(name.c_str())) {
        if (json) print_type_json(*t);
        else describe_type(name);
        return 0;
    }
    if (const support::ValueForm *form = find_value_form(name)) {
        if (json) fmt::print("{{\"value_type\": {}}}\n", value_type_json(*form));
        else fmt::print("{} (value type)\n{}", name, value_type_text(*form, "  "));
        return 0;
    }
    std::vector<std::string_view> names = value_type_names();
    for (size_t i = 0; i < engine::kTypeCount; ++i) names.push_back(engine::kTypes[i]->name);
    fmt::print(stderr, "planecheck: there is no object type '{}', nor a value type (planecheck catalogue --list shows the object types){}\n",
               name, support::did_you_mean(name, names));
    return 2;
}

void print_stats() {
    using namespace pc::engine;
    CatalogueTotals s;
    s.types = kTypeCount;
    s.min_attributes = SIZE_MAX;
    for (size_t i = 0; i < kTypeCount; ++i) {
        const TypeDesc &t = *kTypes[i];
        s.attributes += t.attrs.size();
        for (const AttrDesc &a : t.attrs) {
            s.read_only += a.kind == Kind::ReadOnly;
            s.direct_refhdl += a.kind == Kind::DirectRefhdl;
        }
        bool gated_pair = false;
        for (const RoleDesc &r : t.roles) gated_pair |= r.gate != Gate::None;
        s.role_pairs += t.roles.size();
        s.role_types += !t.roles.empty();
        s.gated_pair_types += gated_pair;
        s.npu_mask_types += t.npu_mask;
        s.sized += t.sized();
        s.eod += t.eod;
        s.gated_types += t.gate != Gate::None;
        if (t.attrs.size() < s.min_attributes) s.min_attributes = t.attrs.size();
        if (t.attrs.size() > s.max_attributes) s.max_attributes = t.attrs.size(), s.largest = t.name;
    }
    for (size_t i = 0; i < kValueTypeCount; ++i) {
        std::string_view n = kValueTypes[i].name;
        s.key_converters += n.size() > 10 && n.substr(0, 4) == "dpa_" && n.substr(n.size() - 6) == "_key_t";
    }
    s.value_types = kValueTypeCount;
    for (size_t i = 0; i < support::kValueFormCount; ++i) s.enum_values += support::kValueForms[i]->value_count;
    print_totals(s);
}

} // namespace pc::runner
