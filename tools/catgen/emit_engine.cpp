// The engine's generated part: a descriptor per object type, the catalogue tables, and the
// exported per-type functions as one-line wrappers into the generic engine.
#include "emit.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace catgen {
namespace {

const char *kind_name(Kind k) {
    switch (k) {
    case Kind::Key: return "Kind::Key";
    case Kind::Scalar: return "Kind::Scalar";
    case Kind::Struct: return "Kind::Struct";
    case Kind::Array: return "Kind::Array";
    case Kind::DirectRefhdl: return "Kind::DirectRefhdl";
    case Kind::DirectRefkey: return "Kind::DirectRefkey";
    case Kind::ReadOnly: return "Kind::ReadOnly";
    case Kind::Element: return "Kind::Element";
    }
    return "Kind::Scalar";
}

const char *gate_name(Gate g) { return g == Gate::None ? "Gate::None" : g == Gate::Zero ? "Gate::Zero" : "Gate::Nonzero"; }

std::string attribute_row(const ObjectType &t, const Attribute &a) {
    const std::string C = c_type(a), base = fmt::format("dpa_{}_", t.name);
    bool at = a.kind == Kind::Element, value = a.type->by_value();
    std::string sfx = at ? "_at" : "";
    std::string set = a.kind == Kind::ReadOnly
                          ? "nullptr"
                          : fmt::format("&set_{}{}<{}, {}set_{}>", value ? "value" : "pointer", sfx, C, base, a.name);
    std::string get = fmt::format("&get_{}{}<{}, {}get_{}>", value ? "value" : "into", sfx, C, base, a.name);
    std::string is = fmt::format("&is_set{}<{}is_set_{}>", sfx, base, a.name);
    return fmt::format("    {{\"{}\", {}, {}, {}, {}, {}, {}, {}}},\n", a.name, kind_name(a.kind), a.compared ? "true" : "false",
                       a.type->id, a.type->width, set, get, is);
}

std::string role_row(const Catalogue &cat, const ObjectType &t, const RolePair &p) {
    const ObjectType &target = cat.types[p.target_index];
    const std::string K = key_type(target), sfx = p.element ? "_at" : "";
    const ValueType *key_vt = cat.value_type(K);
    return fmt::format(
        "    {{\"{}\", \"{}\", \"{}_refhdl\", \"{}_refkey\", {}, {}, {}, {},\n"
        "     &set_value{}<uint64_t, {}>, &get_value{}<uint64_t, {}>, &is_set{}<{}>,\n"
        "     &set_value{}<{}, {}>, &get_into{}<{}, {}>, &is_set{}<{}>}},\n",
        p.hdl_key(), p.key_key(), p.target, p.target, target.index, key_vt ? key_vt->id : -1, target.key_width(),
        gate_name(target.gate), sfx, role_accessor(t, p, "set", "refhdl"), sfx, role_accessor(t, p, "get", "refhdl"),
        sfx, role_accessor(t, p, "is_set", "refhdl"), sfx, K, role_accessor(t, p, "set", "refkey"), sfx, K,
        role_accessor(t, p, "get", "refkey"), sfx, role_accessor(t, p, "is_set", "refkey"));
}

std::string ops_row(const Catalogue &cat, const ObjectType &t) {
    const std::string n = t.name, K = key_type(t);
    auto ops = [&](const char *prefix) {
        std::vector<std::string> v;
        for (const Op *op : cat.vocabulary.coded_ops()) // indexed by code - 1
            v.push_back(op->eod && !t.eod ? "nullptr" : fmt::format("{}{}_{}", prefix, n, op->name));
        return fmt::format("{{{}}}", fmt::join(v, ", "));
    };
    return fmt::format(
        "const TypeOps ops_{0} = {{\n    {1}, dpa_{0}_dtor, &set_key<{2}, dpa_{0}_set_key>, &get_key<{2}, dpa_{0}_get_key>,\n"
        "    {3},\n    {4},\n    dpa_{0}_replay, dpa_{0}_replay_start, dpa_{0}_replay_end, dpa_{0}_set_hdl, dpa_{0}_get_hdl,\n"
        "    dpa_{0}_set_create_opt, dpa_{0}_set_getopt, dpa_{0}_set_retry_mode, dpa_{0}_get_npu_result, {5}, {6},\n"
        "    &chain_walk<{2}, ofa_{0}_chain_walk_with_key>, ofa_{0}_obj_printer_print_self, ofa_{0}_get_obj_from_base,\n"
        "    ofa_{0}_inst_from_batch, ofa_client_{0}_batch_enq, ofa_{0}_get_presence_flag}};\n",
        n, t.sized() ? "dpa_" + n + "_ctor" : "&ctor_plain<dpa_" + n + "_ctor>", K, ops("dpa_"), ops("dpa_srv_"),
        t.npu_mask ? "dpa_" + n + "_set_npu_mask" : "nullptr", t.npu_mask ? "dpa_" + n + "_get_npu_mask" : "nullptr");
}

std::string quirk_bits(const ObjectType &t) {
    static const std::vector<std::pair<const char *, const char *>> names = {
        {"no_recorder_update_get", "kNoRecorderUpdateGet"}, {"wait_after_update", "kWaitAfterUpdate"},
        {"router_gate", "kRouterGate"}, {"dump_without_gate", "kDumpWithoutGate"},
        {"dump_without_key_check", "kDumpWithoutKeyCheck"}, {"count_line_only", "kCountLineOnly"},
        {"send_counts_members_only", "kSendCountsMembersOnly"}};
    std::vector<std::string> bits;
    for (const auto &[q, c] : names)
        if (t.has(q)) bits.push_back(c);
    return bits.empty() ? "0" : fmt::format("{}", fmt::join(bits, " | "));
}

uint32_t value_buffer(const Catalogue &cat, const ObjectType &t) {
    uint32_t w = t.key_width();
    for (const auto *list : {&t.key, &t.attrs, &t.members})
        for (const auto &a : *list) w = std::max(w, a.type->width);
    for (const auto &p : t.roles) w = std::max(w, std::max(8u, cat.types[p.target_index].key_width()));
    return w;
}

std::string exports(const ObjectType &t) {
    const std::string n = t.name, d = "pc::engine::gen::type_" + n;
    std::string out;
    out += fmt::format("extern \"C\" int64_t json_{}_send(JSON_Value *v, PROCESS *c) {{ return pc::engine::send({}, v, c); }}\n", n, d);
    out += fmt::format("extern \"C\" int32_t json_{}_send_retry(JSON_Object *r, PROCESS *c) {{ return pc::engine::send_retry({}, r, c); }}\n", n, d);
    out += fmt::format("extern \"C\" int json_{}_set_attributes(JSON_Object *r, PROCESS *c, ofa_client_obj_base_t o) {{ return pc::engine::set_attributes({}, r, c, o); }}\n", n, d);
    out += fmt::format("extern \"C\" int json_{}_cmp_attributes(JSON_Object *r, PROCESS *c, ofa_client_obj_base_t o) {{ return pc::engine::cmp_attributes({}, r, c, o); }}\n", n, d);
    out += fmt::format("extern \"C\" int32_t recorder_{}_dump(PROCESS *c, const char *s, const char *op, ofa_client_obj_base_t o, int32_t st) {{ return pc::engine::recorder_dump({}, c, s, op, o, st); }}\n", n, d);
    out += fmt::format("extern \"C\" int32_t recorder_{}_dump_replay(PROCESS *c, const char *s, const char *op, int32_t st) {{ return pc::engine::recorder_dump_replay({}, c, s, op, st); }}\n", n, d);
    out += fmt::format("extern \"C\" int json_{}_receive(JSON_Value *v, PROCESS *c) {{ return pc::engine::receive({}, v, c); }}\n", n, d);
    out += fmt::format("extern \"C\" int json_{}_receive_dump(PROCESS *c) {{ return pc::engine::receive_dump({}, c); }}\n", n, d);
    out += fmt::format("extern \"C\" int json_{}_dump(JSON_Value *v, PROCESS *c) {{ return pc::engine::object_dump({}, v, c); }}\n", n, d);
    out += fmt::format("extern \"C\" int json_batch_crud_enq_{}(ofa_batch_list_t l, JSON_Value *v, PROCESS *c) {{ return pc::engine::batch_enqueue({}, l, v, c); }}\n", n, d);
    out += fmt::format("extern \"C\" int32_t json_validate_object_{}(ofa_client_obj_base_t o, JSON_Value *v, PROCESS *c) {{ return pc::engine::validate_object({}, o, v, c); }}\n", n, d);
    return out;
}

} // namespace

std::string engine_shard(const Catalogue &cat, int shard) {
    std::string out = "// Generated from the catalogue by catgen. Do not edit.\n"
                      "#include \"engine.hpp\"\n#include \"thunks.hpp\"\n#include \"planecheck/dpa_api.h\"\n"
                      "#include \"planecheck/exports.h\"\n\nnamespace pc::engine::gen {\nusing namespace pc::engine::thunk;\n\n";
    std::string wrappers;
    for (const ObjectType *tp : shard_types(cat, shard)) {
        const ObjectType &t = *tp;
        out += fmt::format("// {} ({})\nnamespace {{\nconst AttrDesc attrs_{}[] = {{\n", t.name, t.index, t.name);
        for (const auto *list : {&t.key, &t.attrs, &t.members})
            for (const auto &a : *list) out += attribute_row(t, a);
        out += "};\n";
        size_t top_roles = 0;
        if (!t.roles.empty()) {
            out += fmt::format("const RoleDesc roles_{}[] = {{\n", t.name);
            for (const auto &p : t.roles) {
                out += role_row(cat, t, p);
                top_roles += !p.element;
            }
            out += "};\n";
        }
        out += ops_row(cat, t) + "} // namespace\n";
        out += fmt::format(
            "extern const TypeDesc PC_HIDDEN type_{0} = {{\"{0}\", {1}, {2}, {3}, {4}, {5}, {6}, {7}, attrs_{0}, {8}, {9}, {10}, {11}, {12}, &ops_{0}}};\n\n",
            t.name, t.index, gate_name(t.gate), t.eod, t.npu_mask, t.sized() ? "\"" + t.count_key + "\"" : "nullptr",
            quirk_bits(t), t.key_width(), t.key.size(), t.key.size() + t.attrs.size(),
            t.roles.empty() ? "std::span<const RoleDesc>{}" : "roles_" + t.name, top_roles, value_buffer(cat, t));
        wrappers += exports(t);
    }
    out += "} // namespace pc::engine::gen\n\n" + wrappers;
    return out;
}

std::string engine_catalogue(const Catalogue &cat) {
    std::string out = "// Generated from the catalogue by catgen. Do not edit.\n"
                      "#include \"descriptors.hpp\"\n#include \"planecheck/dpa_api.h\"\n#include \"planecheck/exports.h\"\n\n"
                      "namespace pc::engine {\nnamespace gen {\n";
    for (const auto &t : cat.types) out += fmt::format("extern const TypeDesc PC_HIDDEN type_{};\n", t.name);
    out += "} // namespace gen\n\nconst TypeDesc *const kTypes[] = {\n";
    for (const auto &t : cat.types) out += fmt::format("    &gen::type_{},\n", t.name);
    out += fmt::format("}};\nconst size_t kTypeCount = {};\n\nconst ValueTypeDesc kValueTypes[] = {{\n", cat.types.size());
    for (const auto &vt : cat.value_types)
        out += fmt::format("    {{\"{0}\", {1}, json_convert_{0}, {2}, {3}}},\n", vt.name, vt.width,
                           vt.json_dump ? "json_dump_convert_" + vt.name : "nullptr",
                           vt.recorder_dump ? "recorder_dump_convert_" + vt.name : "nullptr");
    out += fmt::format("}};\nconst size_t kValueTypeCount = {};\n\n}} // namespace pc::engine\n\n", cat.value_types.size());
    out += "// the stub object types: every function ignores its arguments and returns 0\n";
    for (const char *s : kStubTypes) {
        out += fmt::format("extern \"C\" int64_t json_{}_send(JSON_Value *, PROCESS *) {{ return 0; }}\n", s);
        out += fmt::format("extern \"C\" int json_{}_receive(JSON_Value *, PROCESS *) {{ return 0; }}\n", s);
        out += fmt::format("extern \"C\" int json_{}_dump(JSON_Value *, PROCESS *) {{ return 0; }}\n", s);
        out += fmt::format("extern \"C\" int json_{}_receive_dump(PROCESS *) {{ return 0; }}\n", s);
    }
    return out;
}

} // namespace catgen
