// The generator refuses an inconsistent catalogue and says where the problem is.
#include "process.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <cstdlib>

namespace {

using pc::test::Outcome;

const char *kValueTypes = "value_types:\n  uint: { form: uint, width: 4 }\n  uint64_t: { form: uint, width: 8 }\n"
                          "  refhdl: { form: refhdl, width: 8 }\n";

Outcome generate(const std::string &objects, const std::string &value_types = kValueTypes, const std::string &vocabulary = "",
                 const std::string &more = "--stats") {
    std::string pattern = testing::TempDir() + "catgen_XXXXXX"; // tests may run in parallel
    std::string dir = mkdtemp(pattern.data());
    std::ofstream(dir + "/objects.yaml") << objects;
    std::ofstream(dir + "/value_types.yaml") << value_types;
    std::string with_vocabulary;
    if (!vocabulary.empty()) {
        std::ofstream(dir + "/vocabulary.yaml") << vocabulary;
        with_vocabulary = " --vocabulary " + dir + "/vocabulary.yaml";
    }
    return pc::test::run_command(std::string(PC_CATGEN) + " --objects " + dir + "/objects.yaml --value-types " + dir +
                                 "/value_types.yaml" + with_vocabulary + " " + more + " 2>&1");
}

const char *kBmap = "    npu_bmap: { type: uint64_t, read_only: true }\n";

std::string type(const std::string &name, const std::string &extra = "") {
    return "- name: " + name + "\n  key:\n    id: uint\n  attrs:\n" + kBmap + extra;
}

TEST(Catgen, AConsistentCatalogueGivesItsTotals) {
    Outcome o = generate("types:\n" + type("port") + "  key_converter: true\n" +
                         type("route", "    port_refhdl: refhdl\n  roles:\n    out_obj: [port]\n"));
    EXPECT_EQ(o.status, 0) << o.output;
    EXPECT_NE(o.output.find("types: 2\n"), std::string::npos);
    EXPECT_NE(o.output.find("role-reference pairs: 1\n"), std::string::npos);
    EXPECT_NE(o.output.find("direct reference handles: 1\n"), std::string::npos);
    EXPECT_NE(o.output.find("value types: 4\n"), std::string::npos); // with the key record of port
}

TEST(Catgen, InconsistenciesAreRefusedWithTheirLine) {
    struct Case {
        std::string objects, message, value_types = kValueTypes;
    } cases[] = {
        {"types:\n" + type("port", "    speed: bogus_t\n"), "objects.yaml:7:12: type 'port', attribute 'speed': unknown value type 'bogus_t'"},
        {"types:\n" + type("port") + type("route", "  roles:\n    out_obj: [port]\n"),
         "objects.yaml:13:15: type 'route', role 'out_obj': target 'port' has no key record converter"},
        {"types:\n" + type("port") + type("port"), "objects.yaml:7:3: type 'port' is listed twice"},
        {"types:\n" + type("port", "    lag_refhdl: refhdl\n"), "attribute 'lag_refhdl': a reference by handle is named <type>_refhdl after an existing type"},
        {"types:\n- name: port\n  attrs:\n    npu_bmap: uint64_t\n", "type 'port': npu_bmap must be a read-only uint64_t attribute"},
        {"types:\n" + type("port", "  sized: num_paths\n"), "type 'port' is sized but has no element attributes"},
        {"types:\n- name: [port\n", "objects.yaml:"},
        {"types:\n" + type("port"), "value_types.yaml:5:10: value type 'spare' is defined but never used",
         std::string(kValueTypes) + "  spare: { form: uint, width: 2 }\n"},
        {"types:\n" + type("port", "    where: place_t\n"), "field 'seat' of 'place_t': unknown value type 'nothing_t'",
         std::string(kValueTypes) + "  place_t:\n    record: { row: uint, seat: nothing_t }\n"},
    };
    for (const Case &c : cases) {
        Outcome o = generate(c.objects, c.value_types);
        EXPECT_EQ(o.status, 1) << c.objects;
        EXPECT_NE(o.output.find(c.message), std::string::npos) << o.output;
    }
}

// A small vocabulary; each case below replaces one of its lines.
const char *kVocabulary = "ops:\n"
                          "  - { name: create, code: 1 }\n"
                          "  - { name: get, code: 2, flags: [get] }\n"
                          "  - { name: eod, code: 3, flags: [eod] }\n"
                          "  - { name: replay, flags: [replay] }\n"
                          "special_keys:\n"
                          "  - { key: batch_crud, handler: json_batch_crud_send }\n"
                          "control_fields:\n"
                          "  - { name: op }\n"
                          "  - { name: trans_id, value_type: uint }\n"
                          "step_kinds: [send, expect]\n"
                          "step_members: [sdk]\n";

std::string vocabulary_with(const std::string &line, const std::string &replacement) {
    std::string v = kVocabulary;
    size_t at = v.find(line);
    return at == std::string::npos ? "line not found: " + line : v.replace(at, line.size(), replacement);
}

TEST(Catgen, AVocabularyThatCodeCannotRelyOnIsRefusedWithItsLine) {
    const std::string objects = "types:\n" + type("port", "    port_refhdl: refhdl\n");
    EXPECT_EQ(generate(objects, kValueTypes, kVocabulary).status, 0) << generate(objects, kValueTypes, kVocabulary).output;
    struct Case {
        std::string line, replacement, message;
    } cases[] = {
        {"  - { name: eod, code: 3, flags: [eod] }\n", "  - { name: create, code: 3 }\n", "vocabulary.yaml:4:13: ops: 'create' is listed twice"},
        {"flags: [get]", "flags: [gets]", "vocabulary.yaml:3:35: op 'get': unknown flag 'gets' (eod, replay, get)"},
        {"flags: [get]", "flags: [get, get]", "vocabulary.yaml:3:40: op 'get': flag 'get' is given twice"},
        {"name: eod, code: 3", "name: eod, code: 4", "vocabulary.yaml:4:24: ops: codes run from 1 without a gap; there is no code 3"},
        {"name: get, code: 2", "name: get, code: 1", "op 'get': code 1 is given twice"},
        {"{ name: replay, flags", "{ name: replay, code: 4, flags", "op 'replay': a replay op has no code"},
        {"name: get, code: 2, flags: [get]", "name: fetch, code: 2, flags: [get]", "op 'fetch': a get op's name begins with \"get\""},
        {"{ name: create, code: 1 }", "{ name: create, code: 1, form: plain }", "vocabulary.yaml:2:36: ops: unknown field 'form'"},
        {"key: batch_crud,", "key: port,", "vocabulary.yaml:7:5: special key 'port' is also an object type"},
        {"handler: json_batch_crud_send", "handler: json-batch", "special key 'batch_crud': handler is the name of a C function"},
        {"value_type: uint", "value_type: uint128", "control field 'trans_id': unknown value type 'uint128'"},
        {"[send, expect]", "[send, expect, send]", "vocabulary.yaml:11:28: step_kinds: 'send' is listed twice"},
        {"step_members: [sdk]", "step_members: [expect]", "vocabulary.yaml:12:16: step member 'expect' is also a step kind"},
        {"step_members: [sdk]\n", "", "expected a non-empty list 'step_members:'"},
        {"step_kinds:", "step_kind:", "unknown section 'step_kind'"},
        {"step_members: [sdk]\n", "step_members: [sdk]\nfinding_fields: [text, text]\n", "vocabulary.yaml:13:24: finding_fields: 'text' is listed twice"},
        {"step_members: [sdk]\n", "step_members: [sdk]\nfinding_fields: []\n", "vocabulary.yaml:13:17: finding_fields: takes a non-empty list of keys"},
    };
    for (const Case &c : cases) {
        std::string vocabulary = vocabulary_with(c.line, c.replacement);
        Outcome o = generate(objects, kValueTypes, vocabulary);
        EXPECT_EQ(o.status, 1) << vocabulary << o.output;
        EXPECT_NE(o.output.find(c.message), std::string::npos) << vocabulary << o.output;
    }
    // the generated sources name ops and keys: they are never written without a vocabulary
    EXPECT_EQ(generate(objects, kValueTypes, "", "--out " + testing::TempDir() + "catgen_no_vocabulary").status, 2);
}

} // namespace

