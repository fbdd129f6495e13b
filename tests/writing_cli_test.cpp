// Writing a scenario without guessing: every unknown name gets the one that was meant, the
// catalogue explains its value types, messages say what they mean, and simplane refuses
// references as a real data plane does when the scenario asks it to.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Result = pc::test::Outcome;

Result planecheck(const std::string &args) { return pc::test::run_command(std::string(PC_PLANECHECK) + " " + args + " 2>&1"); }

bool has(const Result &r, const std::string &part) { return r.output.find(part) != std::string::npos; }

size_t count(const std::string &text, const std::string &part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

std::string scenario_file(const std::string &name, const std::string &text) {
    std::string path = testing::TempDir() + name;
    std::ofstream(path) << text;
    return path;
}

TEST(Suggestions, AnUnknownTableKeyOrMemberAttributeEndsWithTheNameMeant) {
    std::string table = scenario_file("table.yaml", "steps:\n  - send: { test_iff: [ { op: create, key_a: 1 } ] }\n");
    Result run = planecheck("run " + table);
    EXPECT_EQ(run.status, 1) << run.output;
    EXPECT_TRUE(has(run, "table.yaml:2: unknown table test_iff\n")) << run.output; // the library's own line, as it is
    EXPECT_TRUE(has(run, "table.yaml:2: unknown table test_iff; did you mean test_if?\n")) << run.output;
    Result check = planecheck("check " + table);
    EXPECT_TRUE(has(check, "unknown table test_iff: run ends the process here (exit status 1); did you mean test_if?\n")) << check.output;

    std::string keys = scenario_file("keys.yaml", R"(steps:
  - send: { test_if: [ { op: create, key_a: 1, atr_a1: 5 } ] }
  - send: { nhgroup: [ { op: create, nhgroup_id: 7, members: [ { is_protectd: true } ] } ] }
  - expect: { value_errors: 2 }
)");
    Result r = planecheck("run " + keys);
    EXPECT_EQ(r.status, 0) << r.output;
    // test_if has too many names for one line: the message says where they are listed
    EXPECT_TRUE(has(r, "keys.yaml:2:56: test_if has no 'atr_a1'; the key is ignored, so nothing checks it; planecheck catalogue "
                       "--describe test_if lists its ")) << r.output;
    EXPECT_TRUE(has(r, " names; did you mean attr_a1?\n")) << r.output;
    // a member attribute lists the members the type has
    EXPECT_TRUE(has(r, "keys.yaml:3:79: nhgroup has no 'is_protectd' in its members; the key is ignored, so nothing checks it; "
                       "nhgroup's members have: ")) << r.output;
    EXPECT_TRUE(has(r, "is_protected")) << r.output;
    EXPECT_TRUE(has(r, "; did you mean is_protected?\n")) << r.output;
}

TEST(Suggestions, AnUnknownEnumValueOpStatusConfigKeyOrDescribedNameToo) {
    std::string values = scenario_file("values.yaml", R"(config: { object_set: 1 }
steps:
  - send: { l3intf: [ { op: create, ifhandle: 1, intf_type: physcal } ] }
  - send: { test_if: [ { op: creat, key_a: 1 } ] }
  - expect: { value_errors: 2 }
  - inject: { op: "test_iff creat", status: ENOMEM }
)");
    Result r = planecheck("run " + values);
    EXPECT_TRUE(has(r, "intf_type: unknown value 'physcal' of dpa_l3intf_intf_type_en (one of: none, physical, subif, bundle, "
                       "bvi, tunnel, loopback, pwhe); did you mean physical?\n")) << r.output;
    EXPECT_TRUE(has(r, "values.yaml:4:30: op: 'creat' is no operation of test_if (")) << r.output;
    EXPECT_TRUE(has(r, "the record runs nothing; did you mean create?\n")) << r.output;
    EXPECT_TRUE(has(r, "step 3 expect: ok (0 mismatches and 2 value errors since the last expect)")) << r.output;
    EXPECT_TRUE(has(r, "'test_iff creat' is not <object type> <operation>, such as \"test_if create\"; did you mean test_if create?"))
        << r.output;

    std::string status = scenario_file("status.yaml", "steps:\n  - inject: { op: \"test_if create\", status: ENOMEMS }\n");
    EXPECT_TRUE(has(planecheck("run " + status), "unknown status 'ENOMEMS' (a number or a name such as ENOMEM); did you mean ENOMEM?"));

    std::string config = scenario_file("config.yaml", "config: { verbos: true }\nsteps:\n  - expect: { mismatches: 0 }\n");
    Result c = planecheck("run " + config);
    EXPECT_EQ(c.status, 2) << c.output;
    EXPECT_TRUE(has(c, "config.yaml:1:19: unknown config key 'verbos' (")) << c.output;
    EXPECT_TRUE(has(c, "; did you mean verbose?")) << c.output;

    Result describe = planecheck("catalogue --describe nhg");
    EXPECT_EQ(describe.status, 2) << describe.output;
    EXPECT_TRUE(has(describe, "planecheck: there is no object type 'nhg', nor a value type")) << describe.output;
    EXPECT_TRUE(has(describe, "; did you mean nhgroup?\n")) << describe.output;
}

TEST(Catalogue, DescribeShowsEnumValuesAndRecordFieldsAndTakesAValueType) {
    Result l3intf = planecheck("catalogue --describe l3intf");
    EXPECT_EQ(l3intf.status, 0) << l3intf.output;
    EXPECT_TRUE(has(l3intf, "  value types:\n")) << l3intf.output;
    EXPECT_TRUE(has(l3intf, "dpa_l3intf_intf_type_en: enum (a value name or its number), 4 bytes; values: none 0, physical 1, subif 2,"))
        << l3intf.output;
    EXPECT_TRUE(has(l3intf, "ofa_intf_t: record, ")) << l3intf.output;

    Result record = planecheck("catalogue --describe ofa_intf_t");
    EXPECT_EQ(record.status, 0) << record.output;
    EXPECT_TRUE(has(record, "ofa_intf_t (value type)\n")) << record.output;
    for (const char *field : {"ifhandle", "ifindex", "vrf_id", "mtu"}) EXPECT_TRUE(has(record, std::string("\n      ") + field)) << field;
    EXPECT_TRUE(has(record, "ushort")) << record.output;
    EXPECT_TRUE(has(record, "2 bytes")) << record.output; // mtu's width

    Result json = planecheck("catalogue --describe ofa_intf_t --json");
    EXPECT_EQ(json.status, 0) << json.output;
    EXPECT_TRUE(has(json, "{\"value_type\": {\"name\": \"ofa_intf_t\", \"form\": \"record\"")) << json.output;
    EXPECT_TRUE(has(json, "{\"name\": \"mtu\", \"type\": \"ushort\", \"width\": 2}")) << json.output;
    Result type_json = planecheck("catalogue --describe l3intf --json");
    EXPECT_TRUE(has(type_json, "{\"name\": \"intf_type\", \"value_type\": \"dpa_l3intf_intf_type_en\", \"kind\": \"value\"}"))
        << type_json.output;
    EXPECT_TRUE(has(type_json, "\"values\": [{\"name\": \"none\", \"value\": 0}, {\"name\": \"physical\", \"value\": 1}"))
        << type_json.output;
    EXPECT_EQ(planecheck("catalogue --json").status, 2); // --json describes something
}

TEST(Statuses, AMisspelledStatusNameIsOneValueErrorThatListsTheNames) {
    std::string file = scenario_file("rc.yaml", R"(steps:
  - send: { test_if: [ { op: create, key_a: 1 } ] }
  - send: { test_if: [ { op: create, key_a: 1, rc: EEXISTS } ] }
)");
    Result r = planecheck("run " + file);
    EXPECT_EQ(count(r.output, "'EEXISTS' is neither a number nor a status name"), 1u) << r.output;
    EXPECT_TRUE(has(r, "rc.yaml:3:52: rc: 'EEXISTS' is neither a number nor a status name (EOK, EPERM, ENOENT,")) << r.output;
    EXPECT_TRUE(has(r, "DONT_CARE); it reads as 0 (EOK); did you mean EEXIST?\n")) << r.output;
    // the record then expects 0, and the create of an existing key answers EEXIST
    EXPECT_TRUE(has(r, "step 2 send test_if: 1 mismatch, 1 value error")) << r.output;
}

TEST(RunAndCheck, AgreeOnOpsInactiveStepsAndInjectionsNothingTakes) {
    std::string inactive = scenario_file("inactive_key.yaml", R"(steps:
  - send: { ipnh: [ { op: create, intf: 1, no_such_key: 1 } ] }
)");
    Result run = planecheck("run " + inactive);
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_FALSE(has(run, "no_such_key")) << run.output;
    Result check = planecheck("check " + inactive);
    EXPECT_TRUE(has(check, "ipnh is inactive while object_set is 0")) << check.output;
    EXPECT_FALSE(has(check, "no_such_key")) << check.output;

    std::string late = scenario_file("late.yaml", R"(steps:
  - inject: { op: "test_if create", status: ENOMEM, times: 2 }
  - send: { test_if: [ { op: create, key_a: 1 } ] }
  - inject: { op: "test_if create", status: ENOMEM }
  - npu_result: { op: "test_if get", results: [0, 5] }
  - send: { test_if: [ { op: delete, key_a: 1 } ] }
)");
    Result c = planecheck("check " + late);
    EXPECT_EQ(c.status, 1) << c.output;
    EXPECT_FALSE(has(c, "late.yaml:2:")) << c.output; // the create of step 2 takes the first injection
    EXPECT_TRUE(has(c, "late.yaml:4:19: inject: no operation after this step is 'test_if create', so the injection is never used\n"))
        << c.output;
    EXPECT_TRUE(has(c, "late.yaml:5:23: npu_result: no operation after this step is 'test_if get', so the result is never used\n"))
        << c.output;
}

// The lines of a command's output that are located FILE:LINE:COL.
std::vector<std::string> located_lines(const std::string &output) {
    static const std::regex located("^[^ :]+:[0-9]+:[0-9]+: ");
    std::vector<std::string> lines;
    std::istringstream in(output);
    for (std::string line; std::getline(in, line);)
        if (std::regex_search(line, located)) lines.push_back(line);
    std::sort(lines.begin(), lines.end());
    return lines;
}

TEST(RunAndCheck, GiveEachValueErrorTheSameLineColumnAndText) {
    std::string values = scenario_file("positions.yaml", R"(config: { object_set: 1 }
steps:
  - send:
      test_if:
        - op: create
          key_a: 1
          attr_a1: five
          rdesc_id_test1: { pool: 1, slot: 2 }
  - send: { l3intf: [ { op: create, ifhandle: 1, intf_type: physcal, intf_typ: 1 } ] }
  - send: { test_if: [ { op: creat, key_a: 2 }, { op: eod }, { op: get, key_a: 1, rc: EEXISTS } ] }
)");
    Result run = planecheck("run " + values);
    Result check = planecheck("check " + values);
    std::vector<std::string> from_run = located_lines(run.output), from_check = located_lines(check.output);
    EXPECT_EQ(from_run.size(), 7u) << run.output;
    EXPECT_EQ(from_run, from_check) << run.output << "\n" << check.output;
    // the column is the offending value's: a field's value inside a record, an op's name
    EXPECT_TRUE(has(run, "positions.yaml:8:44: rdesc_id_test1: unknown field 'slot'")) << run.output;
    EXPECT_TRUE(has(run, "positions.yaml:10:30: op: 'creat' is no operation of test_if")) << run.output;
    EXPECT_TRUE(has(run, "positions.yaml:10:55: test_if has no end-of-data operation: op: eod runs nothing\n")) << run.output;
}

// The op line of `catalogue --describe TYPE`.
std::string described_ops(const std::string &type) {
    Result r = planecheck("catalogue --describe " + type);
    size_t at = r.output.find("  operations: ");
    return at == std::string::npos ? "" : r.output.substr(at + 14, r.output.find('\n', at) - at - 14);
}

TEST(RunAndCheck, ListTheOpsATypeHasAndSuggestOnlyThose) {
    const std::string without_eod = "create, update, delete, get, get_first, get_next, get_gt_eq, walk_by_key, replay, replay_start, replay_end";
    const std::string with_eod = "create, update, delete, get, get_first, get_next, get_gt_eq, eod, walk_by_key, replay, replay_start, replay_end";
    std::string ops = scenario_file("ops.yaml", R"(steps:
  - send: { test_if: [ { op: eodd, key_a: 1 } ] }
  - send: { ipacl: [ { op: eodd } ] }
  - send: { test_if: [ { op: get_frist, key_a: 1 } ] }
)");
    Result run = planecheck("run " + ops);
    Result check = planecheck("check " + ops);
    EXPECT_EQ(located_lines(run.output), located_lines(check.output)) << run.output << "\n" << check.output;
    for (const Result *r : {&run, &check}) {
        // test_if has no end-of-data operation: neither the list nor the suggestion offers eod
        EXPECT_TRUE(has(*r, "ops.yaml:2:30: op: 'eodd' is no operation of test_if (" + without_eod + "): the record runs nothing\n"))
            << r->output;
        EXPECT_TRUE(has(*r, "ops.yaml:3:28: op: 'eodd' is no operation of ipacl (" + with_eod + "): the record runs nothing; did you mean eod?\n"))
            << r->output;
        EXPECT_TRUE(has(*r, "op: 'get_frist' is no operation of test_if (" + without_eod + "): the record runs nothing; did you mean get_first?\n"))
            << r->output;
    }
    EXPECT_EQ(described_ops("test_if"), without_eod);
    EXPECT_EQ(described_ops("ipacl"), with_eod);
}

TEST(Messages, QuietExpectHandlesAndArgumentErrorsSayWhatTheyMean) {
    Result quiet = planecheck("run -q " + std::string(PC_SOURCE_DIR) + "/examples/sdk_side.yaml");
    EXPECT_EQ(quiet.status, 0) << quiet.output;
    EXPECT_FALSE(has(quiet, "received:")) << quiet.output; // passing steps print nothing under -q
    EXPECT_TRUE(has(planecheck("run " + std::string(PC_SOURCE_DIR) + "/examples/sdk_side.yaml"), "received:"));

    std::string expect = scenario_file("expect.yaml", R"(steps:
  - send: { test_if: [ { op: delete, key_a: 9 } ] }
  - expect: { mismatches: 2 }
)");
    EXPECT_TRUE(has(planecheck("run " + expect),
                    "step 2 expect: FAILED (1 mismatch and 0 value errors since the last expect); expected 2 mismatches and 0 value errors\n"));

    std::string handles = scenario_file("handles.yaml", R"(steps:
  - send: { test_if: [ { op: create, key_a: 1, hdl: if1 }, { op: create, key_a: 2, hdl: if2 } ] }
  - send: { test_nh: [ { op: create, nh_id: 1, test_if_refhdl: if1 } ] }
  - send: { test_nh: [ { op: get, nh_id: 1, test_if_refhdl: if2 } ] }
)");
    EXPECT_TRUE(has(planecheck("run " + handles), "test_if_refhdl: received \"0x1001\" (if1) expected \"0x1002\" (if2)\n"));

    Result missing = planecheck("run /nonexistent/nosuch.yaml");
    EXPECT_EQ(missing.status, 2) << missing.output;
    EXPECT_TRUE(has(missing, "planecheck: cannot read /nonexistent/nosuch.yaml: no such file")) << missing.output;
    Result bad_option = planecheck("run --no-such-option x.yaml");
    EXPECT_EQ(bad_option.status, 2) << bad_option.output;
    EXPECT_EQ(bad_option.output.rfind("planecheck: ", 0), 0u) << bad_option.output;
}

TEST(Messages, CoverageMergesTheReportsItCanRead) {
    std::string report = testing::TempDir() + "readable_coverage.json";
    ASSERT_EQ(planecheck("run -q --coverage " + report + " " + std::string(PC_SOURCE_DIR) + "/examples/hello.yaml").status, 0);
    Result r = planecheck("coverage " + report + " /nonexistent/missing.json");
    EXPECT_EQ(r.status, 2) << r.output; // a report was missing
    EXPECT_TRUE(has(r, "missing.json")) << r.output;
    EXPECT_TRUE(has(r, "planecheck coverage: 1 report, 1 scenario file")) << r.output;
    EXPECT_TRUE(has(r, "\n  test_if ")) << r.output;
}

// l3intf and ipnh are active while object_set is nonzero.
const char *kReferences = R"(config: { object_set: 1, references: enforce }
steps:
  - send: { l3intf: [ { op: create, ifhandle: 1, hdl: if1 } ] }
  - send: { ipnh: [ { op: create, intf: 1, nh_addr: "10.0.0.1", l3intf_refhdl: if1 } ] }
  - send: { l3intf: [ { op: delete, ifhandle: 1, rc: EBUSY } ] }
  - send: { ipnh: [ { op: create, intf: 2, nh_addr: "10.0.0.2", l3intf_refhdl: "0x7777", rc: ENOENT } ] }
  - inject: { op: "l3intf delete", status: EINVAL }
  - send: { l3intf: [ { op: delete, ifhandle: 1, rc: EINVAL } ] }
  - send: { ipnh: [ { op: delete, intf: 1, nh_addr: "10.0.0.1" } ] }
  - send: { l3intf: [ { op: delete, ifhandle: 1, rc: 0 } ] }
)";

TEST(References, EnforcedTheyRefuseABusyDeleteAndADanglingHandle) {
    Result r = planecheck("run " + scenario_file("enforce.yaml", kReferences));
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(has(r, "PASSED: 1 file, 8 steps, 0 mismatches, 0 value errors")) << r.output;
    EXPECT_TRUE(has(r, "enforce.yaml:5: simplane: l3intf delete: l3intf 0x1001 is still referred to by ipnh 0x1002 (l3intf_refhdl); "
                       "refused with EBUSY\n")) << r.output;
    EXPECT_TRUE(has(r, "enforce.yaml:6: simplane: ipnh create: l3intf_refhdl (0x7777) names no live l3intf; refused with ENOENT\n"))
        << r.output;
}

TEST(References, ByKeyAndInEachElementOfMembersToo) {
    std::string file = scenario_file("key_refs.yaml", R"(config: { references: enforce }
steps:
  - send: { test_nh: [ { op: create, nh_id: 1, testencapmgr_refkey: { encap_id: 5 }, rc: ENOENT } ] }
  - send: { testencapmgr: [ { op: create, encap_id: 5 } ] }
  - send: { test_nh: [ { op: create, nh_id: 1, testencapmgr_refkey: { encap_id: 5 } } ] }
  - send: { testencapmgr: [ { op: delete, encap_id: 5, rc: EBUSY } ] }
  - send: { lspnh: [ { op: create, lsp_id: 3, hdl: lsp } ] }
  - send: { nhgroup: [ { op: create, nhgroup_id: 7, members: [ { is_protected: true }, { next_obj_lspnh_refhdl: lsp } ] } ] }
  - send: { lspnh: [ { op: delete, lsp_id: 3, rc: EBUSY } ] }
  - send: { nhgroup: [ { op: create, nhgroup_id: 8, members: [ { next_obj_lspnh_refkey: { lsp_id: 4 } } ], rc: ENOENT } ] }
  - send: { nhgroup: [ { op: delete, nhgroup_id: 7 } ] }
  - send: { lspnh: [ { op: delete, lsp_id: 3 } ] }
)");
    Result r = planecheck("run " + file);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(has(r, "key_refs.yaml:3: simplane: test_nh create: testencapmgr_refkey (its key) names no live testencapmgr")) << r.output;
    EXPECT_TRUE(has(r, "key_refs.yaml:6: simplane: testencapmgr delete: testencapmgr 0x1001 is still referred to by test_nh 0x1002 "
                       "(testencapmgr_refkey)")) << r.output;
    // the second element's reference holds the lspnh; the first element has none
    EXPECT_TRUE(has(r, "key_refs.yaml:9: simplane: lspnh delete: lspnh 0x1003 is still referred to by nhgroup 0x1004 "
                       "(next_obj_lspnh_refhdl)")) << r.output;
    EXPECT_TRUE(has(r, "key_refs.yaml:10: simplane: nhgroup create: next_obj_lspnh_refkey (its key) names no live lspnh")) << r.output;
}

TEST(References, IgnoredByDefaultAsBefore) {
    std::string text = kReferences;
    text.replace(text.find(", references: enforce"), std::string(", references: enforce").size(), "");
    Result r = planecheck("run " + scenario_file("ignore.yaml", text));
    EXPECT_EQ(r.status, 1) << r.output;
    EXPECT_TRUE(has(r, "ignore.yaml:5: step 3 send l3intf: 1 mismatch")) << r.output; // the delete succeeds
    EXPECT_TRUE(has(r, "ignore.yaml:6: step 4 send ipnh: 1 mismatch")) << r.output;   // the create succeeds
    EXPECT_FALSE(has(r, "refused with")) << r.output;
}

TEST(References, TheExampleShowsBothStatusesAndPasses) {
    Result r = planecheck("run " + std::string(PC_SOURCE_DIR) + "/examples/references.yaml");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(has(r, "refused with EBUSY")) << r.output;
    EXPECT_TRUE(has(r, "refused with ENOENT")) << r.output;
}

} // namespace
