// planecheck catalogue: what the built library knows, read from its descriptor tables.
#include "catalogue_command.hpp"

#include "catalogue_totals.hpp"
#include "descriptors.hpp"

#include <fmt/format.h>

#include <string_view>

namespace pc::runner {

void list_types() {
    for (size_t i = 0; i < engine::kTypeCount; ++i) fmt::print("{}\n", engine::kTypes[i]->name);
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
    print_totals(s);
}

} // namespace pc::runner
