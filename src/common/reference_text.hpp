// How a reference is told to a person: what it takes and while which object_set its target
// exists. Shared by the generator (the editor schema's descriptions) and the command (describe,
// check), so that a hover, a describe line and a finding say the same thing the same way.
#pragma once

#include <string>
#include <string_view>

namespace pc {

// Gate is either catalogue model's own enum (generator: catgen::Gate, built tables: engine::Gate);
// both name the same three cases.
template <typename Gate> const char *gate_phrase(Gate gate) {
    if (gate == Gate::Zero) return "active while object_set is 0";
    if (gate == Gate::Nonzero) return "active while object_set is not 0";
    return "always active";
}

// "the handle of an object of type nhgroup (active while object_set is 0)"; the type name is not
// given an article of its own, since whether it takes "a" or "an" depends on how it is spoken.
template <typename Gate> std::string reference_target_phrase(std::string_view target, bool by_key, Gate gate) {
    return std::string(by_key ? "the key" : "the handle") + " of an object of type " + std::string(target) + " (" +
           gate_phrase(gate) + ")";
}

} // namespace pc
