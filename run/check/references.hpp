// The references of an object type, each with the type it names: a direct reference names its
// target in its own key (<type>_refhdl, <type>_refkey), a pair through its descriptor. describe
// shows them, the check follows handle names through them.
#pragma once

#include "descriptors.hpp"

#include <string>
#include <vector>

namespace pc::runner {

struct Reference {
    const char *key;                 // the record key
    const engine::TypeDesc *target;  // the type it names
    bool by_key;                     // names the target by key, not by handle
    bool element;                    // a key of each element of "members"
    bool pair;                       // one side of a role pair: handled only while its target is active
};

// The type a direct reference attribute names, or null for any other attribute.
const engine::TypeDesc *direct_target(const engine::AttrDesc &attribute);

// Direct references in attribute order, then the pairs' two sides; top level before elements.
std::vector<Reference> references_of(const engine::TypeDesc &type);

// "reference by handle to nhgroup (active while object_set is 0)": a describe line's kind.
std::string reference_kind_text(const engine::TypeDesc &target, bool by_key);

} // namespace pc::runner
