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

Outcome generate(const std::string &objects, const std::string &value_types = kValueTypes) {
    std::string pattern = testing::TempDir() + "catgen_XXXXXX"; // tests may run in parallel
    std::string dir = mkdtemp(pattern.data());
    std::ofstream(dir + "/objects.yaml") << objects;
    std::ofstream(dir + "/value_types.yaml") << value_types;
    return pc::test::run_command(std::string(PC_CATGEN) + " --objects " + dir + "/objects.yaml --value-types " + dir +
                                 "/value_types.yaml --stats 2>&1");
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
        std::string objects, message;
    } cases[] = {
        {"types:\n" + type("port", "    speed: bogus_t\n"), "objects.yaml:7:12: type 'port', attribute 'speed': unknown value type 'bogus_t'"},
        {"types:\n" + type("port") + type("route", "  roles:\n    out_obj: [port]\n"),
         "objects.yaml:13:15: type 'route', role 'out_obj': target 'port' has no key record converter"},
        {"types:\n" + type("port") + type("port"), "objects.yaml:7:3: type 'port' is listed twice"},
        {"types:\n" + type("port", "    lag_refhdl: refhdl\n"), "attribute 'lag_refhdl': a reference by handle is named <type>_refhdl after an existing type"},
        {"types:\n- name: port\n  attrs:\n    npu_bmap: uint64_t\n", "type 'port': npu_bmap must be a read-only uint64_t attribute"},
        {"types:\n" + type("port", "  sized: num_paths\n"), "type 'port' is sized but has no element attributes"},
    };
    for (const Case &c : cases) {
        Outcome o = generate(c.objects);
        EXPECT_EQ(o.status, 1) << c.objects;
        EXPECT_NE(o.output.find(c.message), std::string::npos) << o.output;
    }
}

TEST(Catgen, UnusedAndUndefinedValueTypesAreRefused) {
    Outcome unused = generate("types:\n" + type("port"), std::string(kValueTypes) + "  spare: { form: uint, width: 2 }\n");
    EXPECT_EQ(unused.status, 1);
    EXPECT_NE(unused.output.find("value_types.yaml:5:10: value type 'spare' is defined but never used"), std::string::npos)
        << unused.output;
    Outcome record = generate("types:\n" + type("port", "    where: place_t\n"),
                              std::string(kValueTypes) + "  place_t:\n    record: { row: uint, seat: nothing_t }\n");
    EXPECT_EQ(record.status, 1);
    EXPECT_NE(record.output.find("field 'seat' of 'place_t': unknown value type 'nothing_t'"), std::string::npos) << record.output;
    Outcome syntax = generate("types:\n- name: [port\n");
    EXPECT_EQ(syntax.status, 1);
    EXPECT_NE(syntax.output.find("objects.yaml:"), std::string::npos) << syntax.output;
}

} // namespace
