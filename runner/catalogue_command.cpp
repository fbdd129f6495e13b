// planecheck catalogue: what the built library knows, read from its descriptor tables.
#include "catalogue_command.hpp"

#include "catalogue_totals.hpp"
#include "engine.hpp"
#include "value_forms.hpp"

#include <fmt/format.h>

#include <cstdio>
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

const char *gate_text(engine::Gate gate) {
    return gate == engine::Gate::Zero ? "active while object_set is 0" : "active while object_set is not 0";
}

} // namespace

bool describe_type(const std::string &name) {
    using namespace pc::engine;
    const TypeDesc *t = find_type(name.c_str());
    if (!t) return false;
    fmt::print("{} (type number {})\n", t->name, t->number);
    if (t->gate != Gate::None) fmt::print("  {}\n", gate_text(t->gate));
    if (t->sized()) fmt::print("  sized: its element count comes from \"members\" or \"{}\"\n", t->count_key);
    fmt::print("  operations: create update delete get get_first get_next get_gt_eq walk_by_key replay{}\n",
               t->eod ? " eod" : "");
    fmt::print("  control fields: op rc hdl trans_id depth npu_result create_option get_option retry_mode{}\n",
               t->npu_mask ? " npu_mask" : "");
    auto attributes = [&](std::span<const AttrDesc> list, const char *title) {
        if (list.empty()) return;
        fmt::print("  {}:\n", title);
        for (const AttrDesc &a : list)
            fmt::print("    {:<36} {:<34} {}\n", a.name, kValueTypes[a.value_type].name, kind_text(a.kind));
    };
    auto roles = [&](std::span<const RoleDesc> list, const char *title) {
        if (list.empty()) return;
        fmt::print("  {}:\n", title);
        for (const RoleDesc &r : list)
            fmt::print("    {} / {}{}\n", r.hdl_key, r.key_key, r.gate == Gate::None ? "" : std::string("  (") + gate_text(r.gate) + ")");
    };
    attributes(t->keys(), "key");
    attributes(t->top().subspan(t->key_count), "attributes");
    roles(t->top_roles(), "reference pairs (handle name / key)");
    attributes(t->elements(), "in each element of \"members\"");
    roles(t->element_roles(), "reference pairs in each element of \"members\"");
    return true;
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
