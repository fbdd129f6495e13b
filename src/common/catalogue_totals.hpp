// The catalogue's totals and the one way they are printed, shared by the generator (which counts
// them in the catalogue files) and the command line (which counts them in the built tables).
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace pc {

struct CatalogueTotals {
    size_t types = 0, attributes = 0, read_only = 0, role_pairs = 0, role_types = 0, gated_pair_types = 0,
           direct_refhdl = 0, npu_mask_types = 0, sized = 0, eod = 0, gated_types = 0, key_converters = 0,
           value_types = 0, enum_values = 0, min_attributes = 0, max_attributes = 0;
    std::string largest;
};

inline void print_totals(const CatalogueTotals &t, FILE *out = stdout) {
    std::fprintf(out,
                 "types: %zu\nattributes with an is-set accessor: %zu\nread-only attributes: %zu\n"
                 "role-reference pairs: %zu\ntypes with role references: %zu\n"
                 "types with object-set gated reference pairs: %zu\ndirect reference handles: %zu\n"
                 "types with an NPU mask: %zu\nsized types: %zu\neod types: %zu\nobject-set gated types: %zu\n"
                 "key converters: %zu\nvalue types: %zu\nattributes per type: %zu to %zu (%s)\n"
                 "enum values: %zu\n",
                 t.types, t.attributes, t.read_only, t.role_pairs, t.role_types, t.gated_pair_types, t.direct_refhdl,
                 t.npu_mask_types, t.sized, t.eod, t.gated_types, t.key_converters, t.value_types, t.min_attributes,
                 t.max_attributes, t.largest.c_str(), t.enum_values);
}

} // namespace pc
