// The platform C API header: native value types, key records and every per-type function of the
// data-plane interface; and the header of the engine's exported per-type functions.
#include "emit.hpp"

#include <fmt/format.h>

#include <functional>

namespace catgen {

const char *const kStubTypes[7] = {"ofa_trap", "ofa_pbr_tt_ipv6", "ofa_trap_policer", "mplsnhid",
                                   "ofa_pbr_tt_ipv4", "ofa_mpls_path_encap", "ofa_port_range"};

std::vector<const ObjectType *> shard_types(const Catalogue &cat, int shard) {
    std::vector<const ObjectType *> out;
    size_t n = cat.types.size();
    for (size_t i = n * shard / kShards; i < n * (shard + 1) / kShards; ++i) out.push_back(&cat.types[i]);
    return out;
}

std::string key_type(const ObjectType &t) { return "dpa_" + t.name + "_key_t"; }

// Element pairs take an index and carry "_at": a type may hold the same pair at top level too.
std::string role_accessor(const ObjectType &t, const RolePair &p, const char *verb, const char *form) {
    return fmt::format("ofa_{}_{}_{}_{}_{}{}", t.name, verb, p.role, p.target, form, p.element ? "_at" : "");
}

namespace {

void emit_struct(std::string &out, const std::string &name, const std::vector<Field> &fields) {
    out += "typedef struct __attribute__((packed)) {\n";
    if (fields.empty()) out += "    uint8_t _reserved;\n";
    for (const auto &f : fields) out += fmt::format("    {} {};\n", f.type->c_type(), f.name);
    out += fmt::format("}} {};\n", name);
}

void emit_value_types(std::string &out, const Catalogue &cat) {
    std::set<uint32_t> bytes, strings;
    for (const auto &vt : cat.value_types) {
        if (vt.form == Form::Bytes) bytes.insert(vt.width);
        if (vt.form == Form::String) strings.insert(vt.width);
    }
    for (uint32_t w : bytes) out += fmt::format("typedef struct {{ uint8_t bytes[{0}]; }} pc_bytes{0}_t;\n", w);
    for (uint32_t w : strings) out += fmt::format("typedef struct {{ char text[{0}]; }} pc_string{0}_t;\n", w);
    out += "\n/* key records of every object type */\n";
    for (const auto &t : cat.types) {
        std::vector<Field> fields;
        for (const auto &k : t.key) fields.push_back({k.name, k.type, k.type_name, k.at});
        emit_struct(out, key_type(t), fields);
    }
    out += "\n/* records and arrays, parts before wholes */\n";
    std::set<const ValueType *> done;
    std::function<void(const ValueType &)> emit = [&](const ValueType &vt) {
        if (done.count(&vt) || (vt.form != Form::Record && vt.form != Form::Array)) return;
        done.insert(&vt);
        for (const auto &f : vt.fields) emit(*f.type);
        if (vt.form == Form::Record) {
            emit_struct(out, vt.name, vt.fields);
        } else {
            emit(*vt.element);
            out += fmt::format("typedef struct __attribute__((packed)) {{\n    uint32_t count;\n    {} elems[{}];\n}} {};\n",
                               vt.element->c_type(), vt.bound, vt.name);
        }
    };
    for (const auto &vt : cat.value_types) emit(vt);
    out += "\n";
}

void emit_attribute(std::string &out, const ObjectType &t, const Attribute &a) {
    const std::string T = c_type(a), O = "ofa_client_obj_base_t obj";
    bool element = a.kind == Kind::Element;
    std::string idx = element ? ", uint32_t index" : "";
    std::string base = fmt::format("dpa_{}_", t.name);
    if (a.kind != Kind::ReadOnly) {
        if (a.type->by_value()) out += fmt::format("void {}set_{}({}{}, {} value);\n", base, a.name, O, idx, T);
        else out += fmt::format("void {}set_{}({}{}, const {} *value);\n", base, a.name, O, idx, T);
    }
    if (a.type->by_value()) out += fmt::format("{} {}get_{}({}{});\n", T, base, a.name, O, idx);
    else out += fmt::format("void {}get_{}({} *out, {}{});\n", base, a.name, T, O, idx);
    out += fmt::format("uint8_t {}is_set_{}({}{});\n", base, a.name, O, idx);
}

void emit_role(std::string &out, const Catalogue &cat, const ObjectType &t, const RolePair &p) {
    std::string idx = p.element ? ", uint32_t index" : "";
    std::string K = key_type(cat.types[p.target_index]);
    out += fmt::format("void {}(ofa_client_obj_base_t obj{}, uint64_t handle);\n", role_accessor(t, p, "set", "refhdl"), idx);
    out += fmt::format("uint64_t {}(ofa_client_obj_base_t obj{});\n", role_accessor(t, p, "get", "refhdl"), idx);
    out += fmt::format("uint8_t {}(ofa_client_obj_base_t obj{});\n", role_accessor(t, p, "is_set", "refhdl"), idx);
    out += fmt::format("void {}(ofa_client_obj_base_t obj{}, {} key);\n", role_accessor(t, p, "set", "refkey"), idx, K);
    out += fmt::format("void {}({} *out, ofa_client_obj_base_t obj{});\n", role_accessor(t, p, "get", "refkey"), K, idx);
    out += fmt::format("uint8_t {}(ofa_client_obj_base_t obj{});\n", role_accessor(t, p, "is_set", "refkey"), idx);
}

void emit_type(std::string &out, const Catalogue &cat, const ObjectType &t) {
    const std::string n = t.name, K = key_type(t), O = "ofa_client_obj_base_t obj";
    out += fmt::format("/* {} ({}){} */\n", n, t.index, t.doc.empty() ? "" : ": " + t.doc);
    out += fmt::format("ofa_client_obj_base_t dpa_{}_ctor({});\n", n, t.sized() ? "uint32_t elements" : "void");
    out += fmt::format("void dpa_{0}_dtor({1});\nvoid dpa_{0}_set_key({1}, {2} key);\n{2} dpa_{0}_get_key({1});\n", n, O, K);
    for (const char *prefix : {"dpa_", "dpa_srv_"})
        for (const Op *op : cat.vocabulary.coded_ops())
            if (!op->eod || t.eod) out += fmt::format("int32_t {}{}_{}({});\n", prefix, n, op->name, O);
    for (const Op &op : cat.vocabulary.ops)
        if (op.replay) out += fmt::format("int32_t dpa_{}_{}(void);\n", n, op.name); // no server form
    out += fmt::format("void dpa_{0}_set_hdl({1}, uint64_t handle);\nuint64_t dpa_{0}_get_hdl({1});\n", n, O);
    out += fmt::format("void dpa_{0}_set_create_opt({1}, uint8_t option);\nvoid dpa_{0}_set_getopt({1}, uint8_t option);\n", n, O);
    out += fmt::format("void dpa_{0}_set_retry_mode({1}, uint8_t retry);\nuint32_t dpa_{0}_get_npu_result({1}, uint32_t npu);\n", n, O);
    if (t.npu_mask) out += fmt::format("void dpa_{0}_set_npu_mask({1}, uint64_t mask);\nuint64_t dpa_{0}_get_npu_mask({1});\n", n, O);
    out += fmt::format("int32_t ofa_{}_chain_walk_with_key({} key, dpa_walk_opts_t options);\n", n, K);
    out += fmt::format("void ofa_{}_obj_printer_print_self({}, dpa_print_opts_t options, int flags);\n", n, O);
    out += fmt::format("ofa_client_obj_base_t ofa_{}_get_obj_from_base(ofa_client_obj_base_t base, JSON_Value *value, PROCESS *context);\n", n);
    out += fmt::format("dpa_inst_hdr_t *ofa_{}_inst_from_batch({}, uint32_t instance);\n", n, O);
    out += fmt::format("int32_t ofa_client_{}_batch_enq(ofa_batch_list_t list, {}, uint8_t op);\n", n, O);
    // the object's own presence byte of attribute number `attribute` (key fields, attributes,
    // element attributes, in catalogue order); an element attribute has one, shared by the elements
    out += fmt::format("uint8_t ofa_{}_get_presence_flag({}, uint32_t attribute);\n", n, O);
    for (const auto *list : {&t.key, &t.attrs, &t.members})
        for (const auto &a : *list) emit_attribute(out, t, a);
    for (const auto &p : t.roles) emit_role(out, cat, t, p);
    out += "\n";
}

} // namespace

std::string api_header(const Catalogue &cat) {
    std::string out = "/* Generated from the catalogue by catgen. Do not edit. */\n"
                      "/* The data-plane object interface: value types and per-type functions. */\n"
                      "#ifndef PLANECHECK_DPA_API_H\n#define PLANECHECK_DPA_API_H\n\n"
                      "#include \"planecheck/platform_types.h\"\n\n#ifdef __cplusplus\nextern \"C\" {\n#endif\n\n";
    emit_value_types(out, cat);
    for (const auto &t : cat.types) emit_type(out, cat, t);
    out += "/* converters of the JSON support library and the recorder */\n";
    for (const auto &vt : cat.value_types) {
        out += fmt::format("int json_convert_{}(PROCESS *context, void *out, JSON_Value *value, const char *name);\n", vt.name);
        if (vt.json_dump)
            out += fmt::format("int json_dump_convert_{}(PROCESS *context, const void *value, const char *name);\n", vt.name);
        if (vt.recorder_dump)
            out += fmt::format("int recorder_dump_convert_{}(PROCESS *context, const void *value, const char *name);\n", vt.name);
    }
    out += "\n#ifdef __cplusplus\n}\n#endif\n\n#endif\n";
    return out;
}

std::string exports_header(const Catalogue &cat) {
    std::string out = "/* Generated from the catalogue by catgen. Do not edit. */\n"
                      "/* The engine's exported per-type functions. */\n"
                      "#ifndef PLANECHECK_EXPORTS_H\n#define PLANECHECK_EXPORTS_H\n\n"
                      "#include \"planecheck/platform_types.h\"\n\n#ifdef __cplusplus\nextern \"C\" {\n#endif\n\n";
    for (const auto &t : cat.types) {
        const std::string &n = t.name;
        out += fmt::format("int64_t json_{}_send(JSON_Value *value, PROCESS *context);\n", n);
        out += fmt::format("int32_t json_{}_send_retry(JSON_Object *record, PROCESS *context);\n", n);
        out += fmt::format("int json_{}_set_attributes(JSON_Object *record, PROCESS *context, ofa_client_obj_base_t obj);\n", n);
        out += fmt::format("int json_{}_cmp_attributes(JSON_Object *record, PROCESS *context, ofa_client_obj_base_t obj);\n", n);
        out += fmt::format("int32_t recorder_{}_dump(PROCESS *context, const char *section, const char *op, ofa_client_obj_base_t obj, int32_t status);\n", n);
        out += fmt::format("int32_t recorder_{}_dump_replay(PROCESS *context, const char *section, const char *op, int32_t status);\n", n);
        out += fmt::format("int json_batch_crud_enq_{}(ofa_batch_list_t list, JSON_Value *value, PROCESS *context);\n", n);
        out += fmt::format("int json_{}_receive(JSON_Value *value, PROCESS *context);\n", n);
        out += fmt::format("int json_{}_receive_dump(PROCESS *context);\n", n);
        out += fmt::format("int json_{}_dump(JSON_Value *value, PROCESS *context);\n", n);
        out += fmt::format("int32_t json_validate_object_{}(ofa_client_obj_base_t entry, JSON_Value *value, PROCESS *context);\n", n);
    }
    out += "\n/* object types that exist only so that their names resolve */\n";
    for (const char *s : kStubTypes)
        out += fmt::format("int64_t json_{0}_send(JSON_Value *value, PROCESS *context);\n"
                           "int json_{0}_receive(JSON_Value *value, PROCESS *context);\n"
                           "int json_{0}_dump(JSON_Value *value, PROCESS *context);\n"
                           "int json_{0}_receive_dump(PROCESS *context);\n", s);
    out += "\n#ifdef __cplusplus\n}\n#endif\n\n#endif\n";
    return out;
}

} // namespace catgen
