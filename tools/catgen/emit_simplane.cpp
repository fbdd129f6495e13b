// simplane's generated part: the instance layout of every type and its C functions.
#include "emit.hpp"

#include <fmt/format.h>

namespace catgen {
namespace {

const char *key_order(const ValueType &vt) {
    switch (vt.form) {
    case Form::Int: case Form::Status: return "KeyOrder::Signed";
    case Form::Ip6: case Form::Mac: case Form::String: return "KeyOrder::Bytes";
    default: return "KeyOrder::Unsigned";
    }
}

struct Slots {
    std::vector<std::string> top, elements;
    uint32_t top_size = 0, element_size = 0;
    void add(bool element, uint32_t width, const char *order) {
        auto &list = element ? elements : top;
        uint32_t &size = element ? element_size : top_size;
        list.push_back(fmt::format("{{{}, {}, {}}}", size, width, order));
        size += width;
    }
};

Slots slots_of(const Catalogue &cat, const ObjectType &t) {
    Slots s;
    for (const auto &a : t.key) s.add(false, a.type->width, key_order(*a.type));
    for (const auto &a : t.attrs) s.add(false, a.type->width, "KeyOrder::Bytes");
    for (const auto &a : t.members) s.add(true, a.type->width, "KeyOrder::Bytes");
    for (const auto &p : t.roles) {
        s.add(p.element, 8, "KeyOrder::Bytes");
        s.add(p.element, cat.types[p.target_index].key_width(), "KeyOrder::Bytes");
    }
    return s;
}

// Every reference of the type with its slot: direct references (named after their target type)
// among the attributes, then each role pair's handle and key slots.
std::vector<std::string> references_of(const Catalogue &cat, const ObjectType &t) {
    std::vector<std::string> refs;
    size_t slot = t.key.size();
    for (const auto &a : t.attrs) {
        if (a.kind == Kind::DirectRefhdl || a.kind == Kind::DirectRefkey) {
            std::string target = a.name.substr(0, a.name.size() - 7); // "_refhdl" / "_refkey"
            auto it = cat.type_index.find(target);
            if (it != cat.type_index.end())
                refs.push_back(fmt::format("{{\"{}\", {}, {}, {}, false}}", a.name, slot, it->second,
                                           a.kind == Kind::DirectRefkey ? "true" : "false"));
        }
        ++slot;
    }
    size_t top = slot, element = t.members.size();
    for (const auto &p : t.roles) {
        size_t &at = p.element ? element : top;
        const char *in = p.element ? "true" : "false";
        refs.push_back(fmt::format("{{\"{}\", {}, {}, false, {}}}", p.hdl_key(), at, p.target_index, in));
        refs.push_back(fmt::format("{{\"{}\", {}, {}, true, {}}}", p.key_key(), at + 1, p.target_index, in));
        at += 2;
    }
    return refs;
}

} // namespace

std::string simplane_layouts(const Catalogue &cat) {
    std::string out = "// Generated from the catalogue by catgen. Do not edit.\n#include \"layout.hpp\"\n#include \"references.hpp\"\n\n"
                      "namespace simplane {\nnamespace {\n\n";
    std::string table, references;
    for (const auto &t : cat.types) {
        Slots s = slots_of(cat, t);
        out += fmt::format("const Slot top_{}[] = {{{}}};\n", t.name, fmt::join(s.top, ", "));
        if (!s.elements.empty()) out += fmt::format("const Slot elements_{}[] = {{{}}};\n", t.name, fmt::join(s.elements, ", "));
        std::vector<std::string> refs = references_of(cat, t);
        if (!refs.empty()) out += fmt::format("const Reference references_{}[] = {{{}}};\n", t.name, fmt::join(refs, ", "));
        std::string flags = "0";
        if (t.eod) flags += " | kEod";
        if (t.sized()) flags += " | kSized";
        if (t.npu_mask) flags += " | kNpuMask";
        table += fmt::format("    {{\"{}\", {}, {}, {}, {}, {}, {}, {}, top_{}, {}, {}}},\n", t.name, t.index, t.key.size(),
                             t.key_width(), s.top.size(), s.elements.size(), s.top_size, s.element_size, t.name,
                             s.elements.empty() ? "nullptr" : "elements_" + t.name, flags);
        references += fmt::format("    {{{}, {}}},\n", refs.empty() ? "nullptr" : "references_" + t.name, refs.size());
    }
    out += "\n} // namespace\n\nconst Layout kLayouts[] = {\n" + table + "};\n";
    out += "const TypeReferences kTypeReferences[] = {\n" + references + "};\n";
    out += fmt::format("const uint32_t kLayoutCount = {};\n\n}} // namespace simplane\n", cat.types.size());
    return out;
}

std::string simplane_shard(const Catalogue &cat, int shard) {
    std::string out = "// Generated from the catalogue by catgen. Do not edit.\n#include \"api_macros.hpp\"\n\n";
    for (const ObjectType *tp : shard_types(cat, shard)) {
        const ObjectType &t = *tp;
        const std::string &n = t.name;
        out += fmt::format("// {}\n{}\nSP_COMMON({}, {})\n", n,
                           fmt::format("SP_CTOR_{}({}, {})", t.sized() ? "SIZED" : "PLAIN", n, t.index), n, t.index);
        if (t.eod) out += fmt::format("SP_EOD({}, {})\n", n, t.index);
        if (t.npu_mask) out += fmt::format("SP_NPU_MASK({}, {})\n", n, t.index);
        out += fmt::format("SP_PRESENCE({}, {}, {})\n", n, t.index, t.key.size() + t.attrs.size());
        int top = 0, element = 0;
        auto attribute = [&](const Attribute &a) {
            bool at = a.kind == Kind::Element;
            const char *form = a.type->by_value() ? "VALUE" : "POINTER";
            const char *suffix = at ? "_AT" : a.kind == Kind::ReadOnly ? "_RO" : "";
            out += fmt::format("SP_{}{}({}, {}, {}, {}, {})\n", form, suffix, n, t.index, a.name, a.type->c_type(),
                               at ? element++ : top++);
        };
        for (const auto *list : {&t.key, &t.attrs, &t.members})
            for (const auto &a : *list) attribute(a);
        for (const auto &p : t.roles) {
            int &slot = p.element ? element : top;
            out += fmt::format("SP_ROLE{}({}, {}, {}_{}, {}, {}, {})\n", p.element ? "_AT" : "", n, t.index, p.role,
                               p.target, key_type(cat.types[p.target_index]), slot, slot + 1);
            slot += 2;
        }
    }
    return out;
}

} // namespace catgen
