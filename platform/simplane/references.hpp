// simplane's references between objects: which slots of each type name another object, by handle
// or by key (generated from the catalogue beside the layouts), and whether the store refuses what
// a real data plane refuses: a reference to no live object, and the delete of an object that is
// still referred to.
#pragma once

#include <cstdint>

namespace simplane {

struct Reference {
    const char *name; // the record key: l3intf_refhdl, next_obj_lspnh_refkey
    uint16_t slot;    // a top-level slot, or an element slot when `element`
    uint16_t target;  // type number of the object referred to
    bool by_key;
    bool element;
};

struct TypeReferences {
    const Reference *list;
    uint16_t count;
};

extern const TypeReferences kTypeReferences[]; // per type number

constexpr int32_t kEbusy = 16;
// The level of simplane's log lines about refused references: error lines that the returned
// status already tells the scenario about, so a runner does not count them as value errors.
constexpr int kRefusalLevel = 2;

// Off by default and after reset(): references are stored as given.
void enforce_references(bool on);

} // namespace simplane
