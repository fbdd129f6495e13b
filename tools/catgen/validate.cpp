// Resolves names in a loaded catalogue and enforces the rules that keep it consistent.
#include "model.hpp"

#include <fmt/format.h>

#include <functional>

namespace catgen {
namespace {

bool ends_with(const std::string &s, const std::string &tail) {
    return s.size() > tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// Key records are value types too, for the types that others may name by key.
void add_key_records(Catalogue &cat) {
    for (const auto &t : cat.types) {
        if (!t.key_converter) continue;
        ValueType vt;
        vt.name = "dpa_" + t.name + "_key_t";
        vt.form = Form::KeyRecord;
        vt.key_of = t.index;
        vt.at = t.at;
        cat.value_type_index[vt.name] = int(cat.value_types.size());
        cat.value_types.push_back(std::move(vt));
    }
}

const ValueType *resolve(Catalogue &cat, Diagnostics &diag, const std::string &name, const Location &at,
                         const std::string &who) {
    auto it = cat.value_type_index.find(name);
    if (it == cat.value_type_index.end()) {
        std::string hint;
        if (name.rfind("dpa_", 0) == 0 && ends_with(name, "_key_t")) {
            std::string target = name.substr(4, name.size() - 10);
            hint = cat.type_index.count(target) ? fmt::format(" (type '{}' has no key_converter: true)", target)
                                                : fmt::format(" (there is no type '{}')", target);
        }
        diag.error(at, fmt::format("{}: unknown value type '{}'{}", who, name, hint));
        return nullptr;
    }
    cat.value_types[it->second].used = true;
    return &cat.value_types[it->second];
}

// Widths of records and arrays depend on their parts; computed depth first, cycles refused.
void compute_widths(Catalogue &cat, Diagnostics &diag) {
    std::vector<int> state(cat.value_types.size(), 0); // 0 new, 1 in progress, 2 done
    std::function<uint32_t(ValueType &)> width = [&](ValueType &vt) -> uint32_t {
        int &s = state[&vt - cat.value_types.data()];
        if (s == 2) return vt.width;
        if (s == 1) {
            diag.error(vt.at, fmt::format("value type '{}' contains itself", vt.name));
            return 1;
        }
        s = 1;
        if (vt.form == Form::Record || vt.form == Form::KeyRecord) {
            uint32_t w = 0;
            for (auto &f : vt.fields)
                if (f.type) w += width(const_cast<ValueType &>(*f.type));
            vt.width = w ? w : 1;
        } else if (vt.form == Form::Array && vt.element) {
            vt.width = 4 + vt.bound * width(const_cast<ValueType &>(*vt.element));
        }
        s = 2;
        return vt.width;
    };
    for (auto &vt : cat.value_types) width(vt);
}

void resolve_value_types(Catalogue &cat, Diagnostics &diag) {
    for (auto &vt : cat.value_types) {
        if (vt.form == Form::KeyRecord) {
            for (const auto &k : cat.types[vt.key_of].key) vt.fields.push_back({k.name, nullptr, k.type_name, k.at});
        }
        for (auto &f : vt.fields) {
            f.type = resolve(cat, diag, f.type_name, f.at, fmt::format("field '{}' of '{}'", f.name, vt.name));
            if (f.type && f.type->form == Form::KeyRecord && vt.form == Form::Record)
                diag.error(f.at, fmt::format("record '{}': field '{}' may not be a key record", vt.name, f.name));
        }
        if (vt.form == Form::Array) {
            vt.element = resolve(cat, diag, vt.element_name, vt.at, fmt::format("array '{}'", vt.name));
            if (vt.element && vt.element->form == Form::Array)
                diag.error(vt.at, fmt::format("array '{}': arrays of arrays are not supported", vt.name));
        }
    }
}

void check_attribute(Catalogue &cat, Diagnostics &diag, ObjectType &t, Attribute &a) {
    std::string who = fmt::format("type '{}', attribute '{}'", t.name, a.name);
    a.type = resolve(cat, diag, a.type_name, a.at, who);
    if (!a.type) return;
    // attribute values are printed by the recorder, and all but read-only ones are JSON-dumped
    if (!a.type->recorder_dump)
        diag.error(a.at, fmt::format("{}: value type '{}' has no recorder converter and serves control fields only",
                                     who, a.type_name));
    if (!a.type->json_dump && a.kind != Kind::ReadOnly)
        diag.error(a.at, fmt::format("{}: value type '{}' is never written to JSON output, so it can only be read-only",
                                     who, a.type_name));
    Form f = a.type->form;
    if (a.kind == Kind::Key) {
        if (f == Form::Record || f == Form::Array || f == Form::KeyRecord)
            diag.error(a.at, who + ": key fields must be of a basic value type");
        return;
    }
    if (a.kind == Kind::Element) {
        if (f == Form::Array) diag.error(a.at, who + ": element attributes cannot be arrays");
        return;
    }
    bool named_refhdl = ends_with(a.name, "_refhdl"), named_refkey = ends_with(a.name, "_refkey");
    if (f == Form::Refhdl || named_refhdl) {
        std::string target = a.name.substr(0, a.name.size() - 7);
        if (!named_refhdl || f != Form::Refhdl || !cat.type_index.count(target))
            diag.error(a.at, who + ": a reference by handle is named <type>_refhdl after an existing type and has type refhdl");
        if (a.kind == Kind::Scalar) a.kind = Kind::DirectRefhdl;
        return;
    }
    if (f == Form::KeyRecord || named_refkey) {
        std::string target = a.name.substr(0, a.name.size() - 7);
        if (!named_refkey || a.type_name != "dpa_" + target + "_key_t")
            diag.error(a.at, who + ": a reference by key is named <type>_refkey and has type dpa_<type>_key_t");
        if (a.kind == Kind::Scalar) a.kind = Kind::DirectRefkey;
        return;
    }
    if (a.kind == Kind::Scalar) {
        if (f == Form::Array) a.kind = Kind::Array;
        else if (!a.type->by_value()) a.kind = Kind::Struct;
    }
}

void check_type(Catalogue &cat, Diagnostics &diag, ObjectType &t) {
    std::set<std::string> names;
    for (auto *list : {&t.key, &t.attrs, &t.members})
        for (auto &a : *list) {
            if (!names.insert(a.name).second)
                diag.error(a.at, fmt::format("type '{}': attribute '{}' is listed twice", t.name, a.name));
            check_attribute(cat, diag, t, a);
        }
    for (auto &k : t.key)
        if (k.type && (k.name == "count" || k.name == "_reserved"))
            diag.error(k.at, fmt::format("type '{}': '{}' is reserved as a key field name", t.name, k.name));
    std::set<std::string> pairs;
    for (auto &p : t.roles) {
        auto it = cat.type_index.find(p.target);
        if (it == cat.type_index.end()) {
            diag.error(p.at, fmt::format("type '{}', role '{}': no type '{}'", t.name, p.role, p.target));
            continue;
        }
        p.target_index = it->second;
        const ObjectType &target = cat.types[p.target_index];
        if (!target.key_converter)
            diag.error(p.at, fmt::format("type '{}', role '{}': target '{}' has no key record converter "
                                         "(mark it key_converter: true)", t.name, p.role, p.target));
        else
            resolve(cat, diag, "dpa_" + p.target + "_key_t", p.at, "role " + p.role);
        p.gated = target.gate != Gate::None;
        if (!pairs.insert((p.element ? "members." : "") + p.hdl_key()).second)
            diag.error(p.at, fmt::format("type '{}': role pair '{}' is listed twice", t.name, p.hdl_key()));
        if (!p.element && names.count(p.hdl_key()))
            diag.error(p.at, fmt::format("type '{}': '{}' is both an attribute and a role pair", t.name, p.hdl_key()));
    }
    if (t.sized() && t.members.empty() && !t.has("count_line_only"))
        diag.error(t.at, fmt::format("type '{}' is sized but has no element attributes (members:)", t.name));
    if (!t.sized() && (t.has("count_line_only") || t.has("send_counts_members_only")))
        diag.error(t.at, fmt::format("type '{}': quirks about element counts need sized:", t.name));
    bool settable_bmap = t.name == "npu" || t.name == "giport";
    const Attribute *bmap = nullptr;
    for (auto &a : t.attrs)
        if (a.name == "npu_bmap") bmap = &a;
    if (!bmap || bmap->type_name != "uint64_t" || (bmap->kind == Kind::ReadOnly) == settable_bmap)
        diag.error(t.at, fmt::format("type '{}': npu_bmap must be a {} uint64_t attribute", t.name,
                                     settable_bmap ? "settable" : "read-only"));
    size_t n = t.attribute_count();
    if (n < 2 || n > 102)
        diag.error(t.at, fmt::format("type '{}' has {} attributes; a type has between 2 and 102", t.name, n));
}

} // namespace

void resolve_and_check(Catalogue &cat, Diagnostics &diag) {
    add_key_records(cat);
    for (auto &t : cat.types) check_type(cat, diag, t);
    resolve_value_types(cat, diag);
    compute_widths(cat, diag);
    // a value type nobody uses is almost always a typo on one side
    for (auto &vt : cat.value_types) {
        if (vt.width > 4096)
            diag.error(vt.at, fmt::format("value type '{}' is {} bytes wide; at most 4096 fit the engine's buffers", vt.name, vt.width));
        if (vt.used || !vt.recorder_dump) continue; // types without a recorder converter serve control fields
        if (vt.form == Form::KeyRecord)
            diag.error(vt.at, fmt::format("type '{}' is marked key_converter but nothing references it by key",
                                          cat.types[vt.key_of].name));
        else
            diag.error(vt.at, fmt::format("value type '{}' is defined but never used", vt.name));
    }
    int id = 0;
    for (auto &vt : cat.value_types) vt.id = id++;
}

pc::CatalogueTotals totals(const Catalogue &cat) {
    pc::CatalogueTotals s;
    s.types = cat.types.size();
    s.min_attributes = SIZE_MAX;
    for (const auto &t : cat.types) {
        size_t n = t.attribute_count();
        s.attributes += n;
        if (n < s.min_attributes) s.min_attributes = n;
        if (n > s.max_attributes) s.max_attributes = n, s.largest = t.name;
        bool gated_pair = false;
        for (const auto &a : t.attrs) {
            s.read_only += a.kind == Kind::ReadOnly;
            s.direct_refhdl += a.kind == Kind::DirectRefhdl;
        }
        for (const auto &p : t.roles) gated_pair |= p.gated;
        s.role_pairs += t.roles.size();
        s.role_types += !t.roles.empty();
        s.gated_pair_types += gated_pair;
        s.npu_mask_types += t.npu_mask;
        s.sized += t.sized();
        s.eod += t.eod;
        s.gated_types += t.gate != Gate::None;
        s.key_converters += t.key_converter;
    }
    s.value_types = cat.value_types.size();
    for (const auto &vt : cat.value_types) s.enum_values += vt.enum_values.size();
    return s;
}

} // namespace catgen
