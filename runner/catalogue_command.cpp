// planecheck catalogue: what the built library knows, read from its descriptor tables.
#include "catalogue_command.hpp"

#include "descriptors.hpp"

#include <fmt/format.h>

#include <cstring>

namespace pc::runner {

void list_types() {
    for (size_t i = 0; i < engine::kTypeCount; ++i) fmt::print("{}\n", engine::kTypes[i]->name);
}

void print_stats() {
    using namespace pc::engine;
    size_t attributes = 0, read_only = 0, pairs = 0, role_types = 0, gated_pair_types = 0, direct = 0, mask = 0,
           sized = 0, eod = 0, gated = 0, key_converters = 0, least = SIZE_MAX, most = 0;
    const char *largest = "";
    for (size_t i = 0; i < kTypeCount; ++i) {
        const TypeDesc &t = *kTypes[i];
        attributes += t.attrs.size();
        for (const AttrDesc &a : t.attrs) {
            read_only += a.kind == Kind::ReadOnly;
            direct += a.kind == Kind::DirectRefhdl;
        }
        bool gated_pair = false;
        for (const RoleDesc &r : t.roles) gated_pair |= r.gate != Gate::None;
        pairs += t.roles.size();
        role_types += !t.roles.empty();
        gated_pair_types += gated_pair;
        mask += t.npu_mask;
        sized += t.sized();
        eod += t.eod;
        gated += t.gate != Gate::None;
        if (t.attrs.size() < least) least = t.attrs.size();
        if (t.attrs.size() > most) most = t.attrs.size(), largest = t.name;
    }
    for (size_t i = 0; i < kValueTypeCount; ++i) {
        const char *n = kValueTypes[i].name;
        size_t len = std::strlen(n);
        key_converters += std::strncmp(n, "dpa_", 4) == 0 && len > 10 && std::strcmp(n + len - 6, "_key_t") == 0;
    }
    fmt::print("types: {}\n", kTypeCount);
    fmt::print("attributes with an is-set accessor: {}\n", attributes);
    fmt::print("read-only attributes: {}\n", read_only);
    fmt::print("role-reference pairs: {}\n", pairs);
    fmt::print("types with role references: {}\n", role_types);
    fmt::print("types with object-set gated reference pairs: {}\n", gated_pair_types);
    fmt::print("direct reference handles: {}\n", direct);
    fmt::print("types with an NPU mask: {}\n", mask);
    fmt::print("sized types: {}\n", sized);
    fmt::print("eod types: {}\n", eod);
    fmt::print("object-set gated types: {}\n", gated);
    fmt::print("key converters: {}\n", key_converters);
    fmt::print("value types: {}\n", kValueTypeCount);
    fmt::print("attributes per type: {} to {} ({})\n", least, most, largest);
}

} // namespace pc::runner
