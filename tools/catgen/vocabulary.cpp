// Reads vocabulary.yaml: the operations, special step keys, control fields and step kinds, each
// list checked so that the code generated from it can rely on it.
#include "model.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <regex>

namespace catgen {

std::vector<const Op *> Vocabulary::coded_ops() const {
    std::vector<const Op *> out;
    for (const Op &op : ops)
        if (op.code) out.push_back(&op);
    std::sort(out.begin(), out.end(), [](const Op *a, const Op *b) { return a->code < b->code; });
    return out;
}

namespace {

bool is_name(const std::string &s) {
    static const std::regex re("[a-z][a-z0-9_]*");
    return std::regex_match(s, re);
}

struct VocabularyLoader {
    Catalogue &cat;
    Diagnostics &diag;
    std::string file;
    Vocabulary &vocab = cat.vocabulary;

    Location at(const JSON_Value *v) const { return {file, pc_json_line(v), pc_json_column(v)}; }

    // A section is a non-empty list; its entries are returned with their positions.
    const JSON_Array *section(const JSON_Object *top, const JSON_Value *root, const char *name) {
        const JSON_Value *v = top ? json_object_get_value(top, name) : nullptr;
        const JSON_Array *list = json_value_get_array(v);
        if (!list || json_array_get_count(list) == 0) {
            diag.error(at(v ? v : root), fmt::format("expected a non-empty list '{}:'", name));
            return nullptr;
        }
        return list;
    }

    // The members an entry has, each one known to the section; returns false for a non-mapping.
    bool entry_members(const JSON_Value *v, const char *section, std::initializer_list<const char *> known) {
        const JSON_Object *o = json_value_get_object(v);
        if (!o) {
            diag.error(at(v), fmt::format("{}: each entry is a mapping such as {{ name: ... }}", section));
            return false;
        }
        for (size_t i = 0; i < json_object_get_count(o); ++i) {
            std::string member = json_object_get_name(o, i);
            if (std::find_if(known.begin(), known.end(), [&](const char *k) { return member == k; }) == known.end())
                diag.error(at(json_object_get_value_at(o, i)), fmt::format("{}: unknown field '{}'", section, member));
        }
        return true;
    }

    // A required name member; refused when missing, malformed or seen before in the section.
    std::string name_member(const JSON_Value *entry, const char *member, const char *section, std::set<std::string> &seen) {
        const JSON_Value *v = json_object_get_value(json_value_get_object(entry), member);
        const char *s = json_value_get_string(v);
        if (!s || !is_name(s)) {
            diag.error(at(v ? v : entry), fmt::format("{}: {} is a lower case name", section, member));
            return "";
        }
        if (!seen.insert(s).second) diag.error(at(v), fmt::format("{}: '{}' is listed twice", section, s));
        return s;
    }

    void ops(const JSON_Array *list) {
        std::set<std::string> seen;
        std::map<int64_t, const JSON_Value *> codes;
        for (size_t i = 0; i < json_array_get_count(list); ++i) {
            const JSON_Value *v = json_array_get_value(list, i);
            if (!entry_members(v, "ops", {"name", "code", "flags"})) continue;
            Op op;
            op.at = at(v);
            op.name = name_member(v, "name", "ops", seen);
            code(op, json_object_get_value(json_value_get_object(v), "code"), codes);
            flags(op, json_object_get_value(json_value_get_object(v), "flags"));
            vocab.ops.push_back(std::move(op));
        }
        // codes index the per-type operation tables, so they run from 1 without a gap
        int64_t expected = 1;
        for (const auto &[c, where] : codes) {
            if (c != expected) {
                diag.error(at(where), fmt::format("ops: codes run from 1 without a gap; there is no code {}", expected));
                break;
            }
            ++expected;
        }
    }

    void code(Op &op, const JSON_Value *v, std::map<int64_t, const JSON_Value *> &codes) {
        if (!v) return;
        int64_t c = 0;
        if (!pc_json_get_int64(v, &c) || c < 1 || c > 255)
            return diag.error(at(v), fmt::format("op '{}': code is a number from 1 to 255", op.name));
        op.code = int(c);
        if (!codes.emplace(c, v).second) diag.error(at(v), fmt::format("op '{}': code {} is given twice", op.name, c));
    }

    void flags(Op &op, const JSON_Value *v) {
        if (!v) return;
        const JSON_Array *list = json_value_get_array(v);
        if (!list) return diag.error(at(v), fmt::format("op '{}': flags is a list of eod, replay, get", op.name));
        std::set<std::string> seen;
        for (size_t i = 0; i < json_array_get_count(list); ++i) {
            const JSON_Value *item = json_array_get_value(list, i);
            std::string flag = json_value_get_string(item) ? json_value_get_string(item) : "";
            bool *slot = flag == "eod" ? &op.eod : flag == "replay" ? &op.replay : flag == "get" ? &op.get : nullptr;
            if (!slot) diag.error(at(item), fmt::format("op '{}': unknown flag '{}' (eod, replay, get)", op.name, flag));
            else if (!seen.insert(flag).second) diag.error(at(item), fmt::format("op '{}': flag '{}' is given twice", op.name, flag));
            else *slot = true;
        }
        // the interface has no server form of a replay, so no code; the send compares attributes
        // after any op beginning with "get"
        if (op.replay && op.code) diag.error(op.at, fmt::format("op '{}': a replay op has no code", op.name));
        if ((op.eod || op.get) && !op.code) diag.error(op.at, fmt::format("op '{}': an eod or get op needs a code", op.name));
        if (op.get && op.name.rfind("get", 0) != 0) diag.error(op.at, fmt::format("op '{}': a get op's name begins with \"get\"", op.name));
    }

    void special_keys(const JSON_Array *list) {
        std::set<std::string> seen, handlers;
        static const std::regex c_name("[A-Za-z_][A-Za-z0-9_]*");
        for (size_t i = 0; i < json_array_get_count(list); ++i) {
            const JSON_Value *v = json_array_get_value(list, i);
            if (!entry_members(v, "special_keys", {"key", "handler"})) continue;
            SpecialKey k;
            k.at = at(v);
            k.key = name_member(v, "key", "special_keys", seen);
            const JSON_Value *h = json_object_get_value(json_value_get_object(v), "handler");
            const char *handler = json_value_get_string(h);
            if (!handler || !std::regex_match(handler, c_name))
                diag.error(at(h ? h : v), fmt::format("special key '{}': handler is the name of a C function", k.key));
            else k.handler = handler;
            // a special key is tested before every type, so a type of the same name could never be sent
            if (cat.type_index.count(k.key)) diag.error(k.at, fmt::format("special key '{}' is also an object type", k.key));
            vocab.special_keys.push_back(std::move(k));
        }
    }

    void control_fields(const JSON_Array *list) {
        std::set<std::string> seen;
        for (size_t i = 0; i < json_array_get_count(list); ++i) {
            const JSON_Value *v = json_array_get_value(list, i);
            if (!entry_members(v, "control_fields", {"name", "value_type"})) continue;
            ControlField f;
            f.at = at(v);
            f.name = name_member(v, "name", "control_fields", seen);
            if (const JSON_Value *t = json_object_get_value(json_value_get_object(v), "value_type")) {
                const char *tn = json_value_get_string(t);
                if (!tn || !cat.value_type(tn))
                    diag.error(at(t), fmt::format("control field '{}': unknown value type '{}'", f.name, tn ? tn : "?"));
                else f.value_type = tn;
            }
            vocab.control_fields.push_back(std::move(f));
        }
    }

    void names(const JSON_Array *list, const char *section, std::vector<std::string> &out) {
        std::set<std::string> seen;
        for (size_t i = 0; i < json_array_get_count(list); ++i) {
            const JSON_Value *v = json_array_get_value(list, i);
            const char *s = json_value_get_string(v);
            if (!s || !is_name(s)) diag.error(at(v), fmt::format("{}: each entry is a lower case name", section));
            else if (!seen.insert(s).second) diag.error(at(v), fmt::format("{}: '{}' is listed twice", section, s));
            else out.push_back(s);
        }
    }

    void step_fields(const JSON_Value *v) {
        const JSON_Object *kinds = json_value_get_object(v);
        if (!kinds) return diag.error(at(v), "step_fields: expected a mapping of step kinds to lists of keys");
        for (size_t i = 0; i < json_object_get_count(kinds); ++i) {
            std::string kind = json_object_get_name(kinds, i);
            const JSON_Value *keys = json_object_get_value_at(kinds, i);
            if (!std::count(vocab.step_kinds.begin(), vocab.step_kinds.end(), kind))
                diag.error(at(keys), fmt::format("step_fields: '{}' is no step kind", kind));
            const JSON_Array *list = json_value_get_array(keys);
            if (!list || !json_array_get_count(list)) {
                diag.error(at(keys), fmt::format("step_fields: '{}' takes a non-empty list of keys", kind));
                continue;
            }
            vocab.step_fields.emplace_back(kind, std::vector<std::string>{});
            names(list, "step_fields", vocab.step_fields.back().second);
        }
    }

    void load(const JSON_Value *root) {
        const JSON_Object *top = json_value_get_object(root);
        if (!top) return diag.error(at(root), "expected a mapping of ops, special_keys, control_fields, step_kinds, step_members");
        static const std::set<std::string> known = {"ops", "special_keys", "control_fields", "step_kinds", "step_members", "step_fields", "finding_fields"};
        for (size_t i = 0; i < json_object_get_count(top); ++i)
            if (!known.count(json_object_get_name(top, i)))
                diag.error(at(json_object_get_value_at(top, i)), fmt::format("unknown section '{}'", json_object_get_name(top, i)));
        if (const JSON_Array *l = section(top, root, "ops")) ops(l);
        if (const JSON_Array *l = section(top, root, "special_keys")) special_keys(l);
        if (const JSON_Array *l = section(top, root, "control_fields")) control_fields(l);
        if (const JSON_Array *l = section(top, root, "step_kinds")) names(l, "step_kinds", vocab.step_kinds);
        if (const JSON_Array *l = section(top, root, "step_members")) {
            names(l, "step_members", vocab.step_members);
            for (size_t i = 0; i < json_array_get_count(l); ++i) {
                const char *m = json_value_get_string(json_array_get_value(l, i));
                if (m && std::count(vocab.step_kinds.begin(), vocab.step_kinds.end(), m))
                    diag.error(at(json_array_get_value(l, i)), fmt::format("step member '{}' is also a step kind", m));
            }
        }
        if (const JSON_Value *f = json_object_get_value(top, "step_fields")) step_fields(f);
        if (const JSON_Value *f = json_object_get_value(top, "finding_fields")) {
            const JSON_Array *list = json_value_get_array(f);
            if (!list || !json_array_get_count(list)) diag.error(at(f), "finding_fields: takes a non-empty list of keys");
            else names(list, "finding_fields", vocab.finding_fields);
        }
        vocab.loaded = true;
    }
};

} // namespace

void load_vocabulary(const JSON_Value *root, const std::string &path, Catalogue &cat, Diagnostics &diag) {
    VocabularyLoader{cat, diag, path}.load(root);
}

} // namespace catgen
