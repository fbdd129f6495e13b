#include "references.hpp"

#include "engine.hpp"
#include "reference_text.hpp"

#include <string_view>

namespace pc::runner {

const engine::TypeDesc *direct_target(const engine::AttrDesc &attribute) {
    if (attribute.kind != engine::Kind::DirectRefhdl && attribute.kind != engine::Kind::DirectRefkey) return nullptr;
    std::string_view name = attribute.name;
    std::string target(name.substr(0, name.rfind('_'))); // both suffixes, _refhdl and _refkey, are one word
    return engine::find_type(target.c_str());
}

std::vector<Reference> references_of(const engine::TypeDesc &type) {
    std::vector<Reference> found;
    for (const engine::AttrDesc &a : type.attrs)
        if (const engine::TypeDesc *target = direct_target(a))
            found.push_back({a.name, target, a.kind == engine::Kind::DirectRefkey, false, false});
    for (size_t i = 0; i < type.roles.size(); ++i) {
        const engine::RoleDesc &r = type.roles[i];
        bool element = i >= type.top_role_count;
        found.push_back({r.hdl_key, engine::kTypes[r.target], false, element, true});
        found.push_back({r.key_key, engine::kTypes[r.target], true, element, true});
    }
    return found;
}

std::string reference_kind_text(const engine::TypeDesc &target, bool by_key) {
    return std::string(by_key ? "reference by key to " : "reference by handle to ") + target.name + " (" + gate_phrase(target.gate) + ")";
}

} // namespace pc::runner
