#include "model.hpp"

#include "arena.hpp"
#include "yaml_loader.hpp"

#include <fmt/format.h>

#include <regex>

namespace catgen {

void Diagnostics::error(const Location &at, const std::string &message) {
    errors.push_back(at.line ? fmt::format("{}:{}:{}: {}", at.file, at.line, at.column, message)
                             : fmt::format("{}: {}", at.file, message));
}

const ValueType *Catalogue::value_type(const std::string &name) const {
    auto it = value_type_index.find(name);
    return it == value_type_index.end() ? nullptr : &value_types[it->second];
}

uint32_t ObjectType::key_width() const {
    uint32_t w = 0;
    for (const auto &k : key) w += k.type->width;
    return w ? w : 1; // an empty key record still has one reserved byte
}

bool ValueType::by_value() const {
    switch (form) {
    case Form::Uint: case Form::Int: case Form::Hex: case Form::Bool: case Form::Status:
    case Form::Refhdl: case Form::HandleName: case Form::Ip4: case Form::Enum:
        return true;
    default:
        return false;
    }
}

std::string ValueType::c_type() const {
    switch (form) {
    case Form::Uint: case Form::Hex: return fmt::format("uint{}_t", width * 8);
    case Form::Int: return fmt::format("int{}_t", width * 8);
    case Form::Bool: return "uint8_t";
    case Form::Status: return "int32_t";
    case Form::Refhdl: case Form::HandleName: return "uint64_t";
    case Form::Ip4: case Form::Enum: return "uint32_t";
    case Form::Ip6: return "pc_ip6_t";
    case Form::Mac: return "pc_mac_t";
    case Form::Bytes: return fmt::format("pc_bytes{}_t", width);
    case Form::String: return fmt::format("pc_string{}_t", width);
    case Form::Record: case Form::Array: case Form::KeyRecord: return name;
    }
    return name;
}

namespace {

using pc::yaml::LoadError;

const std::set<std::string> &reserved_words() {
    static const std::set<std::string> words = {
        "auto", "bool", "break", "case", "char", "class", "const", "continue", "default", "delete", "do",
        "double", "else", "enum", "extern", "float", "for", "goto", "if", "inline", "int", "long", "new",
        "operator", "private", "protected", "public", "register", "restrict", "return", "short", "signed",
        "sizeof", "static", "struct", "switch", "template", "this", "throw", "try", "typedef", "typename",
        "union", "unsigned", "using", "virtual", "void", "volatile", "while", "namespace", "true", "false"};
    return words;
}

const std::set<std::string> &c_standard_types() {
    static const std::set<std::string> names = {"int8_t", "int16_t", "int32_t", "int64_t", "uint8_t",
                                                "uint16_t", "uint32_t", "uint64_t", "size_t", "pid_t",
                                                "uintptr_t", "intptr_t", "ssize_t", "off_t", "time_t"};
    return names;
}

struct Loader {
    Catalogue &cat;
    Diagnostics &diag;
    std::string file;

    Location at(const JSON_Value *v) const { return {file, pc_json_line(v), pc_json_column(v)}; }

    bool is_name(const std::string &s) const {
        static const std::regex re("[a-z0-9_]+");
        return std::regex_match(s, re);
    }

    const char *string_of(const JSON_Value *v) { return json_value_get_string(v); }

    // -------------------------------------------------------------- value types
    void value_types(const JSON_Value *root) {
        const JSON_Object *top = json_value_get_object(root);
        const JSON_Value *map = top ? json_object_get_value(top, "value_types") : nullptr;
        const JSON_Object *obj = json_value_get_object(map);
        if (!obj) return diag.error(at(root), "expected a mapping 'value_types:'");
        for (size_t i = 0; i < json_object_get_count(obj); ++i) {
            ValueType vt;
            vt.name = json_object_get_name(obj, i);
            const JSON_Value *spec = json_object_get_value_at(obj, i);
            vt.at = at(spec);
            if (!is_name(vt.name)) diag.error(vt.at, fmt::format("value type '{}': not a valid name", vt.name));
            if (cat.value_type_index.count(vt.name)) {
                diag.error(vt.at, fmt::format("value type '{}' is defined twice", vt.name));
                continue;
            }
            value_type_spec(vt, spec);
            cat.value_type_index[vt.name] = int(cat.value_types.size());
            cat.value_types.push_back(std::move(vt));
        }
    }

    void value_type_spec(ValueType &vt, const JSON_Value *spec) {
        const JSON_Object *o = json_value_get_object(spec);
        if (!o) return diag.error(vt.at, fmt::format("value type '{}': expected a mapping", vt.name));
        no_dump(vt, json_object_get_value(o, "no_dump"));
        if (const JSON_Value *e = json_object_get_value(o, "enum")) return enum_spec(vt, e);
        if (const JSON_Value *r = json_object_get_value(o, "record")) return record_spec(vt, r);
        if (const JSON_Value *a = json_object_get_value(o, "array")) return array_spec(vt, a);
        const char *form = string_of(json_object_get_value(o, "form"));
        const JSON_Value *width = json_object_get_value(o, "width");
        static const std::map<std::string, Form> forms = {
            {"uint", Form::Uint}, {"int", Form::Int}, {"hex", Form::Hex}, {"bool", Form::Bool},
            {"status", Form::Status}, {"refhdl", Form::Refhdl}, {"handle_name", Form::HandleName}, {"ip4", Form::Ip4}, {"ip6", Form::Ip6},
            {"mac", Form::Mac}, {"bytes", Form::Bytes}, {"string", Form::String}};
        if (!form || !forms.count(form))
            return diag.error(vt.at, fmt::format("value type '{}': needs enum, record, array or a form ({})",
                                                 vt.name, "uint, int, hex, bool, status, refhdl, handle_name, ip4, ip6, mac, bytes, string"));
        vt.form = forms.at(form);
        int64_t w = 0;
        if (!pc_json_get_int64(width, &w) || w <= 0 || w > 4096)
            return diag.error(vt.at, fmt::format("value type '{}': needs a width in bytes", vt.name));
        vt.width = uint32_t(w);
        bool integer = vt.form == Form::Uint || vt.form == Form::Int || vt.form == Form::Hex;
        if (integer && w != 1 && w != 2 && w != 4 && w != 8)
            diag.error(vt.at, fmt::format("value type '{}': integer width must be 1, 2, 4 or 8", vt.name));
        static const std::map<Form, uint32_t> fixed = {{Form::Bool, 1}, {Form::Status, 4}, {Form::Refhdl, 8}, {Form::HandleName, 8},
                                                        {Form::Ip4, 4}, {Form::Ip6, 16}, {Form::Mac, 6}};
        if (fixed.count(vt.form) && fixed.at(vt.form) != vt.width)
            diag.error(vt.at, fmt::format("value type '{}': a {} is {} bytes wide", vt.name, form, fixed.at(vt.form)));
    }

    void no_dump(ValueType &vt, const JSON_Value *v) {
        if (!v) return;
        const JSON_Array *list = json_value_get_array(v);
        if (!list) return diag.error(at(v), fmt::format("value type '{}': no_dump is a list of json, recorder", vt.name));
        for (size_t i = 0; i < json_array_get_count(list); ++i) {
            const char *s = string_of(json_array_get_value(list, i));
            std::string which = s ? s : "";
            if (which == "json") vt.json_dump = false;
            else if (which == "recorder") vt.recorder_dump = false;
            else diag.error(at(json_array_get_value(list, i)), fmt::format("value type '{}': no_dump takes json or recorder", vt.name));
        }
    }

    void enum_spec(ValueType &vt, const JSON_Value *e) {
        vt.form = Form::Enum;
        vt.width = 4;
        std::set<std::string> seen;
        auto add = [&](const std::string &n, int64_t value, const JSON_Value *where) {
            if (!is_name(n)) diag.error(at(where), fmt::format("enum '{}': value name '{}' must be lower case", vt.name, n));
            if (!seen.insert(n).second) diag.error(at(where), fmt::format("enum '{}': duplicate value '{}'", vt.name, n));
            vt.enum_values.emplace_back(n, value);
        };
        if (const JSON_Array *list = json_value_get_array(e)) {
            for (size_t i = 0; i < json_array_get_count(list); ++i) {
                const JSON_Value *item = json_array_get_value(list, i);
                const char *n = string_of(item);
                if (!n) { diag.error(at(item), fmt::format("enum '{}': value names are strings", vt.name)); continue; }
                add(n, int64_t(i), item);
            }
        } else if (const JSON_Object *map = json_value_get_object(e)) {
            for (size_t i = 0; i < json_object_get_count(map); ++i) {
                int64_t v = 0;
                const JSON_Value *item = json_object_get_value_at(map, i);
                if (!pc_json_get_int64(item, &v)) diag.error(at(item), fmt::format("enum '{}': values are integers", vt.name));
                add(json_object_get_name(map, i), v, item);
            }
        } else {
            diag.error(at(e), fmt::format("enum '{}': expected a list of names or a mapping name: value", vt.name));
        }
        if (vt.enum_values.empty()) diag.error(at(e), fmt::format("enum '{}' has no values", vt.name));
    }

    void record_spec(ValueType &vt, const JSON_Value *r) {
        vt.form = Form::Record;
        if (c_standard_types().count(vt.name))
            diag.error(vt.at, fmt::format("record '{}' would hide the C type of the same name; give it a form", vt.name));
        const JSON_Object *fields = json_value_get_object(r);
        if (!fields || json_object_get_count(fields) == 0)
            return diag.error(at(r), fmt::format("record '{}': expected a mapping of fields", vt.name));
        for (size_t i = 0; i < json_object_get_count(fields); ++i) {
            Field f;
            f.name = json_object_get_name(fields, i);
            const JSON_Value *t = json_object_get_value_at(fields, i);
            f.at = at(t);
            const char *tn = string_of(t);
            if (!tn) { diag.error(f.at, fmt::format("record '{}': field '{}' needs a value type name", vt.name, f.name)); continue; }
            f.type_name = tn;
            if (reserved_words().count(f.name))
                diag.error(f.at, fmt::format("record '{}': field name '{}' is a C keyword", vt.name, f.name));
            vt.fields.push_back(f);
        }
    }

    void array_spec(ValueType &vt, const JSON_Value *a) {
        vt.form = Form::Array;
        const JSON_Object *o = json_value_get_object(a);
        const char *of = o ? string_of(json_object_get_value(o, "of")) : nullptr;
        int64_t bound = 0;
        if (!of || !pc_json_get_int64(json_object_get_value(o, "bound"), &bound) || bound < 1 || bound > 4096)
            return diag.error(at(a), fmt::format("array '{}': needs of: <value type> and bound: 1..4096", vt.name));
        vt.element_name = of;
        vt.bound = uint32_t(bound);
    }

    // -------------------------------------------------------------- objects
    void objects(const JSON_Value *root) {
        const JSON_Object *top = json_value_get_object(root);
        const JSON_Array *list = json_value_get_array(top ? json_object_get_value(top, "types") : nullptr);
        if (!list) return diag.error(at(root), "expected a list 'types:'");
        for (size_t i = 0; i < json_array_get_count(list); ++i) object(json_array_get_value(list, i));
    }

    void object(const JSON_Value *v) {
        const JSON_Object *o = json_value_get_object(v);
        if (!o) return diag.error(at(v), "each type is a mapping starting with 'name:'");
        ObjectType t;
        t.at = at(v);
        const char *name = string_of(json_object_get_value(o, "name"));
        if (!name || !is_name(name)) return diag.error(t.at, "a type needs a 'name:' of lower case letters, digits and '_'");
        t.name = name;
        t.index = int(cat.types.size());
        if (cat.type_index.count(t.name))
            return diag.error(t.at, fmt::format("type '{}' is listed twice", t.name));
        static const std::set<std::string> known = {"name", "doc", "sized", "gate", "npu_mask", "eod", "key_converter",
                                                    "key", "attrs", "roles", "members", "member_roles", "quirks"};
        for (size_t i = 0; i < json_object_get_count(o); ++i)
            if (!known.count(json_object_get_name(o, i)))
                diag.error(at(json_object_get_value_at(o, i)),
                           fmt::format("type '{}': unknown field '{}'", t.name, json_object_get_name(o, i)));
        if (const char *doc = string_of(json_object_get_value(o, "doc"))) t.doc = doc;
        if (const JSON_Value *s = json_object_get_value(o, "sized")) {
            const char *k = string_of(s);
            if (!k) diag.error(at(s), fmt::format("type '{}': sized: names the count key", t.name));
            else t.count_key = k;
        }
        if (const JSON_Value *g = json_object_get_value(o, "gate")) {
            std::string gs = string_of(g) ? string_of(g) : "";
            if (gs == "zero") t.gate = Gate::Zero;
            else if (gs == "nonzero") t.gate = Gate::Nonzero;
            else diag.error(at(g), fmt::format("type '{}': gate is 'zero' or 'nonzero'", t.name));
        }
        t.npu_mask = flag(o, "npu_mask", t.name);
        t.eod = flag(o, "eod", t.name);
        t.key_converter = flag(o, "key_converter", t.name);
        attributes(o, "key", t, t.key, Kind::Key);
        attributes(o, "attrs", t, t.attrs, Kind::Scalar);
        attributes(o, "members", t, t.members, Kind::Element);
        roles(o, "roles", t, false);
        roles(o, "member_roles", t, true);
        if (const JSON_Value *q = json_object_get_value(o, "quirks")) quirks(q, t);
        cat.type_index[t.name] = t.index;
        cat.types.push_back(std::move(t));
    }

    bool flag(const JSON_Object *o, const char *key, const std::string &type) {
        const JSON_Value *v = json_object_get_value(o, key);
        if (!v) return false;
        if (json_value_get_type(v) != JSONBoolean) {
            diag.error(at(v), fmt::format("type '{}': {} is true or false", type, key));
            return false;
        }
        return json_value_get_boolean(v) == 1;
    }

    void attributes(const JSON_Object *o, const char *section, ObjectType &t, std::vector<Attribute> &out, Kind kind) {
        const JSON_Value *v = json_object_get_value(o, section);
        if (!v) return;
        const JSON_Object *map = json_value_get_object(v);
        if (!map) return diag.error(at(v), fmt::format("type '{}': {} is a mapping name: type", t.name, section));
        for (size_t i = 0; i < json_object_get_count(map); ++i) {
            Attribute a;
            a.name = json_object_get_name(map, i);
            a.kind = kind;
            const JSON_Value *spec = json_object_get_value_at(map, i);
            a.at = at(spec);
            if (!is_name(a.name)) diag.error(a.at, fmt::format("type '{}': '{}' is not a valid name", t.name, a.name));
            if (const char *tn = string_of(spec)) {
                a.type_name = tn;
            } else if (const JSON_Object *so = json_value_get_object(spec)) {
                const char *tn2 = string_of(json_object_get_value(so, "type"));
                if (!tn2) { diag.error(a.at, fmt::format("type '{}': attribute '{}' needs type:", t.name, a.name)); continue; }
                a.type_name = tn2;
                for (size_t j = 0; j < json_object_get_count(so); ++j) {
                    std::string k = json_object_get_name(so, j);
                    const JSON_Value *kv = json_object_get_value_at(so, j);
                    if (k == "type") continue;
                    if (k == "read_only" && kind == Kind::Scalar && json_value_get_type(kv) == JSONBoolean) {
                        if (json_value_get_boolean(kv)) a.kind = Kind::ReadOnly;
                    } else if (k == "compared" && kind == Kind::Element && json_value_get_type(kv) == JSONBoolean) {
                        a.compared = json_value_get_boolean(kv) == 1;
                    } else {
                        diag.error(at(kv), fmt::format("type '{}': attribute '{}': '{}' is not allowed here", t.name, a.name, k));
                    }
                }
            } else {
                diag.error(a.at, fmt::format("type '{}': attribute '{}' needs a value type", t.name, a.name));
                continue;
            }
            out.push_back(std::move(a));
        }
    }

    void roles(const JSON_Object *o, const char *section, ObjectType &t, bool element) {
        const JSON_Value *v = json_object_get_value(o, section);
        if (!v) return;
        const JSON_Object *map = json_value_get_object(v);
        if (!map) return diag.error(at(v), fmt::format("type '{}': {} is a mapping role: [targets]", t.name, section));
        for (size_t i = 0; i < json_object_get_count(map); ++i) {
            std::string role = json_object_get_name(map, i);
            const JSON_Value *targets = json_object_get_value_at(map, i);
            const JSON_Array *list = json_value_get_array(targets);
            if (!list || json_array_get_count(list) == 0) {
                diag.error(at(targets), fmt::format("type '{}': role '{}' needs a list of target types", t.name, role));
                continue;
            }
            if (!is_name(role)) diag.error(at(targets), fmt::format("type '{}': '{}' is not a valid role name", t.name, role));
            for (size_t j = 0; j < json_array_get_count(list); ++j) {
                const JSON_Value *tv = json_array_get_value(list, j);
                RolePair p;
                p.role = role;
                p.element = element;
                p.at = at(tv);
                const char *tn = string_of(tv);
                if (!tn) { diag.error(p.at, fmt::format("type '{}': role targets are type names", t.name)); continue; }
                p.target = tn;
                t.roles.push_back(p);
            }
        }
    }

    void quirks(const JSON_Value *q, ObjectType &t) {
        static const std::set<std::string> known = {"no_recorder_update_get", "wait_after_update", "router_gate",
                                                    "dump_without_gate", "dump_without_key_check", "count_line_only",
                                                    "send_counts_members_only"};
        const JSON_Array *list = json_value_get_array(q);
        if (!list) return diag.error(at(q), fmt::format("type '{}': quirks is a list", t.name));
        for (size_t i = 0; i < json_array_get_count(list); ++i) {
            const JSON_Value *item = json_array_get_value(list, i);
            const char *s = string_of(item);
            if (!s || !known.count(s))
                diag.error(at(item), fmt::format("type '{}': unknown quirk '{}'", t.name, s ? s : "?"));
            else
                t.quirks.insert(s);
        }
    }
};

} // namespace

void resolve_and_check(Catalogue &cat, Diagnostics &diag);

bool load_catalogue(const std::string &objects_path, const std::string &value_types_path,
                    const std::string &vocabulary_path, Catalogue &cat, Diagnostics &diag) {
    pc::Arena arena;
    for (const auto &[path, is_objects] : {std::pair{value_types_path, false}, std::pair{objects_path, true}}) {
        LoadError error;
        const JSON_Value *root = pc::yaml::load_file(path, arena, error);
        if (!root) {
            diag.errors.push_back(error.text());
            return false;
        }
        Loader loader{cat, diag, path};
        if (is_objects) loader.objects(root);
        else loader.value_types(root);
    }
    if (!diag.ok()) return false;
    resolve_and_check(cat, diag);
    if (!diag.ok() || vocabulary_path.empty()) return diag.ok();
    LoadError error;
    const JSON_Value *root = pc::yaml::load_file(vocabulary_path, arena, error);
    if (!root) {
        diag.errors.push_back(error.text());
        return false;
    }
    load_vocabulary(root, vocabulary_path, cat, diag);
    return diag.ok();
}

} // namespace catgen
