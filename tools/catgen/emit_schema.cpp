// The scenario file's JSON Schema (draft-07), for editors that complete and check YAML through a
// schema. Every object type becomes a record definition and every value type a definition that
// the attributes refer to, so the schema grows with the catalogue, not with its attribute count
// times the forms a value may take.
#include "emit.hpp"
#include "reference_text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

namespace catgen {
namespace {

std::string q(const std::string &s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

using Members = std::vector<std::pair<std::string, std::string>>;

// A JSON object of already-written values; members with an empty value are left out.
std::string obj(const Members &members) {
    std::string out = "{";
    for (const auto &[k, v] : members) {
        if (v.empty()) continue;
        if (out.size() > 1) out += ",";
        out += q(k) + ":" + v;
    }
    return out + "}";
}

std::string arr(const std::vector<std::string> &items) {
    std::string out = "[";
    for (const auto &i : items) out += (out.size() > 1 ? "," : "") + i;
    return out + "]";
}

std::string def_ref(const std::string &definition) { return obj({{"$ref", q("#/definitions/" + definition)}}); }
std::string any_of(const std::vector<std::string> &alternatives) { return arr(alternatives); }
std::string text_matching(const std::string &pattern) { return obj({{"type", q("string")}, {"pattern", q(pattern)}}); }

const char *const kNumberText = "^[-+]?(0[xX][0-9a-fA-F]+|[0-9]+)$";
const char *const kStatusName = "^(E[A-Z0-9]+|DONT_CARE)$";

std::string whole_number(int64_t low, uint64_t high) {
    return obj({{"type", q("integer")}, {"minimum", std::to_string(low)}, {"maximum", std::to_string(high)}});
}

// What the integer converters take: a number in range, number text (hex text is a bit pattern of
// the width), true/false, or a status name.
std::string integer_forms(uint32_t width, bool is_signed) {
    unsigned bits = width * 8;
    uint64_t high = bits >= 64 ? UINT64_MAX : (uint64_t(1) << bits) - 1;
    int64_t low = 0;
    if (is_signed) {
        high >>= 1;
        low = bits >= 64 ? INT64_MIN : -(int64_t(1) << (bits - 1));
    }
    return any_of({whole_number(low, high), text_matching(kNumberText), obj({{"type", q("boolean")}}),
                   text_matching(kStatusName)});
}

// Any capitalisation of a name, as a pattern (schemas have no case-insensitive flag).
std::string any_case(const std::string &name) {
    std::string out;
    for (char c : name) {
        if (std::isalpha(static_cast<unsigned char>(c)))
            out += fmt::format("[{}{}]", char(std::tolower(c)), char(std::toupper(c)));
        else out += c;
    }
    return out;
}

std::string enum_forms(const ValueType &vt) {
    std::vector<std::string> names, numbers, spelled;
    for (const auto &[name, value] : vt.enum_values) {
        names.push_back(q(name));
        numbers.push_back(std::to_string(value));
        spelled.push_back(any_case(name));
        spelled.push_back(any_case(enum_constant_prefix(vt.name) + name));
    }
    std::string pattern = "^(";
    for (size_t i = 0; i < spelled.size(); ++i) pattern += (i ? "|" : "") + spelled[i];
    return any_of({obj({{"enum", arr(names)}}), obj({{"enum", arr(numbers)}}), text_matching(pattern + ")$")});
}

std::string value_forms(const ValueType &vt) {
    const std::string hex_digits = "[0-9a-fA-F]";
    switch (vt.form) {
    case Form::Uint: case Form::Hex: return obj({{"anyOf", integer_forms(vt.width, false)}});
    case Form::Int: case Form::Status: return obj({{"anyOf", integer_forms(vt.width, true)}});
    case Form::Bool:
        return obj({{"anyOf", any_of({obj({{"type", q("boolean")}}), obj({{"enum", "[0,1]"}}),
                                      text_matching("^(0|1|true|True|TRUE|false|False|FALSE|yes|Yes|YES|no|No|NO|on|On|ON|off|Off|OFF)$")})}});
    case Form::Refhdl: case Form::HandleName:
        return obj({{"anyOf", any_of({obj({{"type", q("string")}, {"minLength", "1"}}), whole_number(0, UINT64_MAX)})}});
    case Form::Ip4:
        return obj({{"anyOf", any_of({text_matching("^[0-9]{1,3}(\\.[0-9]{1,3}){3}$"), whole_number(0, UINT32_MAX)})}});
    case Form::Ip6: return text_matching("^[0-9a-fA-F:.]*:[0-9a-fA-F:.]*$");
    case Form::Mac: {
        std::string pair = hex_digits + "{2}", quad = hex_digits + "{4}";
        return text_matching(fmt::format("^({0}(:{0}){{5}}|{0}(-{0}){{5}}|{1}\\.{1}\\.{1}|{2}{{12}})$", pair, quad, hex_digits));
    }
    case Form::Bytes:
        return obj({{"anyOf", any_of({whole_number(0, UINT64_MAX),
                                      text_matching(fmt::format("^(0[xX]{0}{{1,{1}}}|{0}{{{1}}}|[0-9]+)$", hex_digits, 2 * vt.width))})}});
    case Form::String: return obj({{"type", q("string")}, {"maxLength", std::to_string(vt.width - 1)}});
    case Form::Enum: return obj({{"anyOf", enum_forms(vt)}});
    case Form::Record: case Form::KeyRecord: {
        Members fields;
        for (const auto &f : vt.fields) fields.push_back({f.name, def_ref("value." + f.type->name)});
        return obj({{"type", q("object")}, {"properties", obj(fields)}, {"additionalProperties", "false"}});
    }
    case Form::Array:
        return obj({{"type", q("array")}, {"items", def_ref("value." + vt.element->name)}, {"maxItems", std::to_string(vt.bound)}});
    }
    return "{}";
}

std::string form_text(const ValueType &vt) {
    switch (vt.form) {
    case Form::Uint: return fmt::format("unsigned {}-bit number", vt.width * 8);
    case Form::Int: return fmt::format("signed {}-bit number", vt.width * 8);
    case Form::Hex: return fmt::format("{}-bit value, written back as hex", vt.width * 8);
    case Form::Bool: return "true or false (also yes/no, on/off, 1/0)";
    case Form::Status: return "status: a number or a name such as ENOENT";
    case Form::Refhdl: return "handle: a name stored earlier with hdl, or a number";
    case Form::HandleName: return "handle name to store the returned handle under, or a number";
    case Form::Ip4: return "IPv4 address such as \"10.0.0.1\"";
    case Form::Ip6: return "IPv6 address such as \"2001:db8::1\"";
    case Form::Mac: return "MAC address such as \"00:11:22:aa:bb:cc\"";
    case Form::Bytes: return fmt::format("{}-byte id: a number or hex text", vt.width);
    case Form::String: return fmt::format("text of at most {} bytes", vt.width - 1);
    case Form::Enum: {
        std::string names;
        for (const auto &[n, v] : vt.enum_values) names += (names.empty() ? "" : ", ") + n;
        return "one of " + names;
    }
    case Form::Record: case Form::KeyRecord: {
        std::string names;
        for (const auto &f : vt.fields) names += (names.empty() ? "" : ", ") + f.name;
        return "record of " + names;
    }
    case Form::Array: return fmt::format("list of at most {} {}", vt.bound, vt.element->name);
    }
    return "";
}

// Each value type twice: its own forms, and as an attribute's value, where NOT_SET says that a
// get expects the attribute absent. The value types carry no description: an editor's hover then
// shows the attribute's own (value type, kind, gate) beside the NOT_SET hint.
void value_definitions(const Catalogue &cat, Members &defs) {
    defs.push_back({"not_set", obj({{"const", q("NOT_SET")}, {"description", q("or NOT_SET: a get expects the attribute absent")}})});
    for (const auto &vt : cat.value_types) {
        defs.push_back({"value." + vt.name, value_forms(vt)});
        defs.push_back({"attr." + vt.name, obj({{"anyOf", any_of({def_ref("value." + vt.name), def_ref("not_set")})}})});
    }
}

const char *kind_text(Kind kind) {
    switch (kind) {
    case Kind::Key: return "key field";
    case Kind::Array: return "list";
    case Kind::DirectRefhdl: return "reference by handle";
    case Kind::DirectRefkey: return "reference by key";
    case Kind::ReadOnly: return "read-only, compared by gets";
    case Kind::Element: return "element attribute";
    default: return "value";
    }
}

std::string gate_text(Gate gate) {
    if (gate == Gate::Zero) return "; active only while object_set is 0";
    if (gate == Gate::Nonzero) return "; active only while object_set is not 0";
    return "";
}

// "takes the handle of an object of type nhgroup (active while object_set is 0); " for a direct
// reference, whose key names the type it refers to; "" for any other attribute.
std::string target_text(const Catalogue &cat, const Attribute &a) {
    if (a.kind != Kind::DirectRefhdl && a.kind != Kind::DirectRefkey) return "";
    auto found = cat.type_index.find(a.name.substr(0, a.name.rfind('_')));
    if (found == cat.type_index.end()) return "";
    const ObjectType &target = cat.types[found->second];
    return "takes " + pc::reference_target_phrase(target.name, a.kind == Kind::DirectRefkey, target.gate) + "; ";
}

// A reference tells the gate of the type it takes, not that of its own record, which the record's
// description gives: two gates side by side would read as a contradiction.
std::string attribute(const Catalogue &cat, const Attribute &a, Gate gate) {
    std::string target = target_text(cat, a);
    return obj({{"$ref", q("#/definitions/attr." + a.type->name)},
                {"description", q(fmt::format("{} ({}{}): {}{}", a.type->name, kind_text(a.kind), target.empty() ? gate_text(gate) : "",
                                              target, form_text(*a.type)))}});
}

void role_pairs(const Catalogue &cat, const ObjectType &t, bool element, Members &props) {
    for (const auto &p : t.roles) {
        if (p.element != element) continue;
        const ObjectType &target = cat.types[p.target_index];
        std::string by_handle = pc::reference_target_phrase(p.target, false, target.gate);
        std::string by_key = pc::reference_target_phrase(p.target, true, target.gate);
        props.push_back({p.hdl_key(), obj({{"$ref", q("#/definitions/attr.refhdl")},
                                          {"description", q(fmt::format("refhdl (role {} by handle): takes {}", p.role, by_handle))}})});
        props.push_back({p.key_key(), obj({{"$ref", q("#/definitions/attr." + key_type(target))},
                                          {"description", q(fmt::format("{} (role {} by key): takes {}", key_type(target), p.role, by_key))}})});
    }
}

// The ops with a code first, by code, then the others as the vocabulary lists them.
std::vector<const Op *> schema_ops(const Vocabulary &v) {
    std::vector<const Op *> ops = v.coded_ops();
    for (const Op &op : v.ops)
        if (!op.code) ops.push_back(&op);
    return ops;
}

std::string operations(const Vocabulary &v, const ObjectType &t) {
    std::vector<std::string> ops;
    for (const Op *op : schema_ops(v))
        if (!op->eod || t.eod) ops.push_back(q(op->name));
    return obj({{"enum", arr(ops)}, {"description", q("the operation to run")}});
}

// Keys that steer the operation rather than set an attribute, defined once and referred to by
// every type's record.
void control_definitions(Members &defs) {
    auto control = [&](const char *name, std::string schema) { defs.push_back({std::string("control.") + name, schema}); };
    control("rc", obj({{"$ref", q("#/definitions/value.rc")}, {"description", q("expected status; carries over to later records")}}));
    control("hdl", obj({{"$ref", q("#/definitions/value.ulong")}, {"description", q("name to keep the returned handle under (or to look up)")}}));
    control("uint", def_ref("value.uint"));
    control("int", def_ref("value.int"));
    control("npu_result", obj({{"type", q("array")}, {"items", whole_number(INT32_MIN, UINT32_MAX)}, {"maxItems", "64"},
                               {"description", q("expected per-NPU results")}}));
    control("npu_mask", obj({{"$ref", q("#/definitions/value.32hex")}, {"description", q("the NPUs the operation goes to")}}));
    control("router", obj({{"type", q("integer")}, {"description", q("router type the dump runs for")}}));
    control("expect_did_not_run", obj({{"$ref", q("#/definitions/value.bool")}, {"description", q("in a batch: this entry must not run")}}));
    control("count", obj({{"anyOf", any_of({whole_number(INT32_MIN, UINT32_MAX), text_matching(kStatusName)})},
                          {"description", q("element count of the object (else the length of members)")}}));
}

// Each control field refers to the definition of its own name, else to that of its value type.
void control_fields(const Vocabulary &v, const ObjectType &t, Members &props) {
    Members defs;
    control_definitions(defs);
    auto defined = [&](const std::string &name) {
        for (const auto &d : defs)
            if (d.first == "control." + name) return true;
        return false;
    };
    for (const ControlField &f : v.control_fields) {
        if (f.name == "op") props.push_back({f.name, operations(v, t)});
        else if (f.name == "npu_mask" && !t.npu_mask) continue; // only where the type has the accessor
        else if (defined(f.name)) props.push_back({f.name, def_ref("control." + f.name)});
        else if (defined(f.value_type)) props.push_back({f.name, def_ref("control." + f.value_type)});
        else props.push_back({f.name, obj({{"description", q("a control field")}})});
    }
}

// An attribute that has a control field's name is read as both; the property is written once.
Members first_of_each(const Members &props) {
    Members out;
    std::set<std::string> seen;
    for (const auto &p : props)
        if (seen.insert(p.first).second) out.push_back(p);
    return out;
}

std::string record_definition(const Catalogue &cat, const ObjectType &t) {
    Members props, element;
    control_fields(cat.vocabulary, t, props);
    for (const auto &a : t.key) props.push_back({a.name, attribute(cat, a, t.gate)});
    for (const auto &a : t.attrs) props.push_back({a.name, attribute(cat, a, t.gate)});
    role_pairs(cat, t, false, props);
    if (t.sized()) props.push_back({t.count_key, def_ref("control.count")}); // some types also have it as an attribute
    for (const auto &a : t.members) element.push_back({a.name, attribute(cat, a, t.gate)});
    role_pairs(cat, t, true, element);
    if (!element.empty() || t.sized()) {
        std::string member = obj({{"type", q("object")}, {"properties", obj(element)}, {"additionalProperties", "false"}});
        props.push_back({"members", obj({{"type", q("array")}, {"items", member}, {"description", q("one record per element")}})});
    }
    std::string desc = t.doc + gate_text(t.gate);
    return obj({{"type", q("object")}, {"description", q(desc)}, {"properties", obj(first_of_each(props))}, {"additionalProperties", "false"}});
}

// A mapping from one table name to its records; the library reads only the first table it knows.
std::string tables(const Catalogue &cat, bool special) {
    Members props;
    if (special)
        for (const SpecialKey &k : cat.vocabulary.special_keys)
            props.push_back({k.key, k.key != "batch_crud" ? obj({{"description", q("handled by the support library")}}) : def_ref("batch_crud")});
    for (const auto &t : cat.types) props.push_back({t.name, def_ref("records." + t.name)});
    return obj({{"type", q("object")}, {"properties", obj(props)}, {"additionalProperties", "false"},
                {"minProperties", "1"}, {"maxProperties", "1"}});
}

// "test_if create": a type and an op that the interface can inject into or answer per NPU.
std::string op_text_pattern(const Vocabulary &v) {
    std::vector<std::string> ops;
    for (const Op *op : schema_ops(v))
        if (op->code || op->replay) ops.push_back(op->name);
    return fmt::format("^[a-z0-9_]+ ({})$", fmt::join(ops, "|"));
}

// expect:'s findings: a list of entries, each naming a finding by some of the vocabulary's keys.
std::string findings_schema(const Vocabulary &v, const std::string &status) {
    const std::map<std::string, std::string> key_schemas = {
        {"attribute", obj({{"type", q("string")}, {"description", q("the attribute (or control field) the finding is about")}})},
        {"status", status},
        {"text", obj({{"type", q("string")}, {"format", q("regex")}, {"description", q("a regular expression searched in the finding's line")}})}};
    Members keys;
    for (const std::string &k : v.finding_fields) keys.emplace_back(k, key_schemas.count(k) ? key_schemas.at(k) : "{}");
    std::string entry = obj({{"type", q("object")}, {"properties", obj(keys)}, {"minProperties", "1"}, {"additionalProperties", "false"}});
    // at most as many as the run keeps since an expect
    return obj({{"type", q("array")}, {"items", entry}, {"maxItems", "200"},
                {"description", q("every finding since the last expect, each named by one entry")}});
}

void scenario_definitions(const Catalogue &cat, Members &defs) {
    control_definitions(defs);
    defs.push_back({"send", tables(cat, true)});
    defs.push_back({"tables", tables(cat, false)});
    std::string params = obj({{"type", q("object")},
                              {"properties", obj({{"batch_rc_expect", def_ref("value.rc")}, {"continue_on_error", def_ref("value.bool")}})},
                              {"additionalProperties", "false"}});
    defs.push_back({"batch_crud", obj({{"type", q("array")}, {"minItems", "2"},
                                       {"items", obj({{"anyOf", any_of({obj({{"type", q("object")}, {"properties", obj({{"batch_params", params}})},
                                                                            {"required", "[\"batch_params\"]"}, {"additionalProperties", "false"}}),
                                                                       def_ref("tables")})}})}})});
    std::string op_text = obj({{"type", q("string")}, {"pattern", q(op_text_pattern(cat.vocabulary))},
                               {"description", q("the object type and the operation, such as \"test_if create\"")}});
    std::string times = obj({{"type", q("integer")}, {"minimum", "1"}, {"maximum", "1000000"}});
    std::string status = obj({{"anyOf", any_of({whole_number(INT32_MIN, UINT32_MAX), text_matching(kStatusName)})}});
    std::string results = obj({{"type", q("array")}, {"items", whole_number(INT32_MIN, UINT32_MAX)}, {"maxItems", "64"}});
    std::string count = obj({{"type", q("integer")}, {"minimum", "0"}});
    std::string findings = findings_schema(cat.vocabulary, status);
    // The keys come from the vocabulary; a key with no schema here takes any value.
    const std::map<std::string, std::string> field_schemas = {{"op", op_text}, {"status", status}, {"times", times},
                                                              {"results", results}, {"mismatches", count}, {"value_errors", count},
                                                              {"findings", findings}};
    const std::map<std::string, std::string> required = {{"inject", "[\"op\",\"status\"]"}, {"npu_result", "[\"op\",\"results\"]"}};
    for (const auto &[kind, fields] : cat.vocabulary.step_fields) {
        Members properties;
        for (const std::string &f : fields) properties.emplace_back(f, field_schemas.count(f) ? field_schemas.at(f) : "{}");
        Members schema = {{"type", q("object")}, {"properties", obj(properties)}};
        if (required.count(kind)) schema.emplace_back("required", required.at(kind));
        schema.emplace_back("additionalProperties", "false");
        defs.push_back({kind, obj(schema)});
    }
    const std::map<std::string, std::string> step_keys = {
        {"name", obj({{"type", q("string")}})},
        {"send", obj({{"$ref", q("#/definitions/send")}, {"description", q("client operations on one table")}})},
        {"sdk", obj({{"$ref", q("#/definitions/tables")}, {"description", q("the SDK side's answer to the send")}})},
        {"dump", obj({{"$ref", q("#/definitions/tables")}, {"description", q("build objects without running an operation")}})},
        {"inject", def_ref("inject")}, {"npu_result", def_ref("npu_result")}, {"expect", def_ref("expect")}};
    auto step_key = [&](const std::string &k) -> std::pair<std::string, std::string> {
        auto it = step_keys.find(k);
        return {k, it != step_keys.end() ? it->second : obj({{"description", q("a step kind")}})};
    };
    const Vocabulary &v = cat.vocabulary;
    Members kinds;
    std::vector<std::string> one_kind;
    for (const std::string &k : v.step_kinds) kinds.push_back(step_key(k)), one_kind.push_back(obj({{"required", arr({q(k)})}}));
    for (const std::string &m : v.step_members) kinds.push_back(step_key(m));
    defs.push_back({"step", obj({{"type", q("object")}, {"properties", obj(kinds)}, {"additionalProperties", "false"},
                                 {"oneOf", arr(one_kind)}, {"dependencies", obj({{"sdk", "[\"send\"]"}})}})});
    defs.push_back({"config", obj({{"type", q("object")}, {"additionalProperties", "false"},
                                   {"properties", obj({{"mode", obj({{"enum", "[\"client\",\"server\"]"}})},
                                                       {"object_set", obj({{"type", "[\"integer\",\"boolean\"]"}})},
                                                       {"router_type", whole_number(0, UINT32_MAX)},
                                                       {"npus", whole_number(1, 64)},
                                                       {"node", obj({{"type", q("string")}, {"maxLength", "63"}})},
                                                       {"verbose", obj({{"type", q("boolean")}})},
                                                       {"wait", obj({{"type", "[\"integer\",\"boolean\"]"}})},
                                                       {"recorder_off", obj({{"type", q("boolean")}})},
                                                       {"references", obj({{"enum", "[\"ignore\",\"enforce\"]"}})},
                                                       {"timeout", obj({{"type", q("number")}, {"minimum", "0"}, {"maximum", "1000000"}})}})}})});
}

} // namespace

std::string scenario_schema(const Catalogue &cat) {
    Members defs;
    scenario_definitions(cat, defs);
    for (const auto &t : cat.types) {
        defs.push_back({"records." + t.name, obj({{"type", q("array")}, {"description", q(t.doc + gate_text(t.gate))}, {"items", def_ref("type." + t.name)}})});
        defs.push_back({"type." + t.name, record_definition(cat, t)});
    }
    value_definitions(cat, defs);
    std::string definitions = "{\n";
    for (size_t i = 0; i < defs.size(); ++i) definitions += (i ? ",\n" : "") + q(defs[i].first) + ":" + defs[i].second;
    definitions += "\n}";
    return obj({{"$schema", q("http://json-schema.org/draft-07/schema#")},
                {"type", q("object")},
                {"properties", obj({{"name", obj({{"type", q("string")}})},
                                    {"config", def_ref("config")},
                                    {"steps", obj({{"type", q("array")}, {"minItems", "1"}, {"items", def_ref("step")}})}})},
                {"required", "[\"steps\"]"},
                {"additionalProperties", "false"},
                {"definitions", definitions}}) +
           "\n";
}

} // namespace catgen

namespace catgen {

// The schema as pieces of raw string, each within the length a compiler must accept for one literal.
std::string schema_source(const std::string &schema) {
    constexpr size_t kPiece = 60000;
    std::string out = "// Generated from the catalogue by catgen. Do not edit.\n#include <cstddef>\n\n"
                      "namespace pc::runner {\nextern const char *const kScenarioSchema[];\nextern const size_t kScenarioSchemaPieces;\n"
                      "const char *const kScenarioSchema[] = {\n";
    size_t pieces = 0;
    for (size_t at = 0; at < schema.size(); at += kPiece, ++pieces)
        out += "R\"pcschema(" + schema.substr(at, kPiece) + ")pcschema\",\n";
    return out + fmt::format("}};\nconst size_t kScenarioSchemaPieces = {};\n}} // namespace pc::runner\n", pieces);
}

} // namespace catgen
