// Writes scale scenarios: many steps of many records, the shape users run at scale.
#pragma once

#include <cstdio>
#include <string>

namespace pc::bench {

// `rounds` rounds of three steps with `per_step` test_if records each: creates with attributes,
// gets that compare them, deletes. The store is empty after each round, so what grows with the
// file's length is only what planecheck itself keeps. Returns false when the file cannot be written.
inline bool write_scale_scenario(const std::string &path, size_t rounds, size_t per_step) {
    FILE *f = std::fopen(path.c_str(), "w");
    if (!f) return false;
    std::fprintf(f, "name: scale\nconfig: { mode: server }\nsteps:\n");
    for (size_t s = 0; s < rounds; ++s)
        for (const char *op : {"create", "get", "delete"}) {
            std::fprintf(f, "  - send:\n      test_if:\n");
            for (size_t r = 0; r < per_step; ++r) {
                size_t key = s * per_step + r;
                if (std::string(op) == "delete")
                    std::fprintf(f, "        - { op: delete, key_a: %zu }\n", key);
                else
                    std::fprintf(f, "        - { op: %s, key_a: %zu, attr_a1: %zu, attr_a2: 7, perf_test_enabled: true, "
                                    "rdesc_id_test1: { pool: 1, index: %zu } }\n", op, key, key * 3, key % 65536);
            }
        }
    std::fprintf(f, "  - expect: { mismatches: 0, value_errors: 0 }\n");
    return std::fclose(f) == 0;
}

} // namespace pc::bench
