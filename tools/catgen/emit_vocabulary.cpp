// planecheck/vocabulary.hpp: the operations, special step keys, control fields and step kinds as
// tables and named constants, so that code names them only through the catalogue.
#include "emit.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <vector>

namespace catgen {
namespace {

std::string camel(const std::string &name) {
    std::string out;
    bool upper = true;
    for (char c : name) {
        if (c == '_') {
            upper = true;
            continue;
        }
        out += upper ? char(std::toupper(static_cast<unsigned char>(c))) : c;
        upper = false;
    }
    return out;
}

std::string q(const std::string &s) { return "\"" + s + "\""; }

void constant(std::string &out, const char *prefix, const std::string &name) {
    out += fmt::format("inline constexpr char k{}{}[] = {};\n", prefix, camel(name), q(name));
}

void ops(std::string &out, const Vocabulary &v) {
    out += "// Every op a record may name, in the order messages list them. code is the dpa_op_code the\n"
           "// interface runs it with, 0 for the chain walk and the replays.\n"
           "enum OpFlag : uint8_t { kFlagNeedsEod = 1, kFlagReplay = 2, kFlagGet = 4 };\n"
           "struct Op {\n    const char *name;\n    uint8_t code;\n    uint8_t flags;\n"
           "    bool has(OpFlag f) const { return (flags & f) != 0; }\n};\n"
           "inline constexpr Op kOps[] = {\n";
    for (const Op &op : v.ops) {
        std::vector<std::string> flags;
        if (op.eod) flags.push_back("kFlagNeedsEod");
        if (op.replay) flags.push_back("kFlagReplay");
        if (op.get) flags.push_back("kFlagGet");
        out += fmt::format("    {{{}, {}, {}}},\n", q(op.name), op.code, flags.empty() ? "0" : fmt::format("{}", fmt::join(flags, " | ")));
    }
    std::vector<const Op *> coded = v.coded_ops();
    out += fmt::format("}};\ninline constexpr size_t kOpCount = {};\n", v.ops.size());
    out += fmt::format("// The op texts by dpa_op_code; code 0 has the empty text.\ninline constexpr uint8_t kMaxOpCode = {};\n", coded.size());
    out += "inline constexpr const char *kOpByCode[kMaxOpCode + 1] = {\"\"";
    for (const Op *op : coded) out += ", " + q(op->name);
    out += "};\n";
    for (const Op &op : v.ops) constant(out, "Op", op.name);
}

void special_keys(std::string &out, const Vocabulary &v) {
    out += "\n// The keys the client send dispatch tests before every object type, in this order.\n"
           "struct SpecialKey {\n    const char *key;\n    const char *handler;\n};\n"
           "inline constexpr SpecialKey kSpecialKeys[] = {\n";
    for (const SpecialKey &k : v.special_keys) out += fmt::format("    {{{}, {}}},\n", q(k.key), q(k.handler));
    out += "};\n";
    for (const SpecialKey &k : v.special_keys) constant(out, "Key", k.key);
}

void control_fields(std::string &out, const Vocabulary &v) {
    out += "\n// Record keys that steer the operation rather than set an attribute; value_type is the one it is\n"
           "// converted as, null when it is not converted.\n"
           "struct ControlField {\n    const char *name;\n    const char *value_type;\n};\n"
           "inline constexpr ControlField kControlFields[] = {\n";
    for (const ControlField &f : v.control_fields)
        out += fmt::format("    {{{}, {}}},\n", q(f.name), f.value_type.empty() ? "nullptr" : q(f.value_type));
    out += "};\n";
    for (const ControlField &f : v.control_fields) constant(out, "Field", f.name);
}

void names(std::string &out, const char *comment, const char *table, const char *prefix, const std::vector<std::string> &list) {
    out += fmt::format("\n// {}\ninline constexpr const char *{}[] = {{", comment, table);
    for (size_t i = 0; i < list.size(); ++i) out += (i ? ", " : "") + q(list[i]);
    out += "};\n";
    for (const std::string &n : list) constant(out, prefix, n);
}

// kInjectFields = {"op", "status", "times"}, and one constant per key: kStepFieldTimes = "times".
void step_fields(std::string &out, const Vocabulary &v) {
    out += "\n// The keys of a step kind's own mapping, by kind.\n";
    std::vector<std::string> keys;
    for (const auto &[kind, fields] : v.step_fields) {
        out += fmt::format("inline constexpr const char *k{}Fields[] = {{", camel(kind));
        for (size_t i = 0; i < fields.size(); ++i) out += (i ? ", " : "") + q(fields[i]);
        out += "};\n";
        for (const std::string &f : fields)
            if (std::find(keys.begin(), keys.end(), f) == keys.end()) keys.push_back(f);
    }
    for (const std::string &k : keys) constant(out, "StepField", k);
}

} // namespace

std::string vocabulary_header(const Vocabulary &v) {
    std::string out = "// Generated from catalogue/vocabulary.yaml by catgen. Do not edit.\n#pragma once\n\n"
                      "#include <cstddef>\n#include <cstdint>\n#include <cstring>\n\nnamespace pc::vocabulary {\n\n";
    ops(out, v);
    special_keys(out, v);
    control_fields(out, v);
    names(out, "The kinds of step, each a key of its own step.", "kStepKinds", "Step", v.step_kinds);
    names(out, "Keys a step may have beside its kind.", "kStepMembers", "Member", v.step_members);
    step_fields(out, v);
    names(out, "The keys of an entry of an expect:'s findings: list.", "kFindingFields", "FindingField", v.finding_fields);
    out += "\n// The op of this text, or null.\ninline const Op *find_op(const char *name) {\n"
           "    for (const Op &op : kOps)\n        if (name && std::strcmp(op.name, name) == 0) return &op;\n"
           "    return nullptr;\n}\n\n} // namespace pc::vocabulary\n\n"
           "// The special keys with their handlers, for code that calls them: X(\"key\", handler).\n"
           "#define PC_SPECIAL_KEY_HANDLERS(X)";
    for (const SpecialKey &k : v.special_keys) out += fmt::format(" \\\n    X({}, {})", q(k.key), k.handler);
    return out + "\n";
}

} // namespace catgen
