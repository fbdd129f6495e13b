// Writing a scenario without guessing: every unknown name gets the one that was meant, the
// catalogue explains its value types, messages say what they mean, and simplane refuses
// references as a real data plane does when the scenario asks it to.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Result = pc::test::Outcome;
using pc::test::planecheck;
using pc::test::text::count;
using pc::test::text::has;

std::string scenario_file(const std::string &name, const std::string &text) {
    return pc::test::write_file(testing::TempDir() + name, text);
}

using pc::test::expect_says;

const char *kKeys = R"(steps:
  - send: { test_if: [ { op: create, key_a: 1, atr_a1: 5 } ] }
  - send: { nhgroup: [ { op: create, nhgroup_id: 7, members: [ { is_protectd: true } ] } ] }
  - expect: { value_errors: 2 }
)";

const char *kValues = R"(config: { object_set: 1 }
steps:
  - send: { l3intf: [ { op: create, ifhandle: 1, intf_type: physcal } ] }
  - send: { test_if: [ { op: creat, key_a: 1 } ] }
  - expect: { value_errors: 2 }
  - inject: { op: "test_iff creat", status: ENOMEM }
)";

TEST(Suggestions, EveryUnknownNameEndsWithTheNameMeant) {
    const std::string table = "steps:\n  - send: { test_iff: [ { op: create, key_a: 1 } ] }\n";
    expect_says({
        // the library's own line, as it is, then the ending that quotes it with the suggestion
        {"run " + scenario_file("table.yaml", table), 1,
         {"table.yaml:2: unknown table test_iff\n", "(0 steps ran before it): unknown table test_iff; did you mean test_if?\n"}},
        {"check " + scenario_file("table.yaml", table), 1, {"unknown table test_iff: run ends the process here (exit status 1); did you mean test_if?\n"}},
        // test_if has too many names for one line: the message says where they are listed; a member
        // attribute lists the members the type has
        {"run " + scenario_file("keys.yaml", kKeys), 0,
         {"keys.yaml:2:56: test_if has no 'atr_a1'; the key is ignored, so nothing checks it; planecheck catalogue --describe test_if lists its ",
          " names; did you mean attr_a1?\n",
          "keys.yaml:3:79: nhgroup has no 'is_protectd' in its members; the key is ignored, so nothing checks it; nhgroup's members have: ",
          "is_protected", "; did you mean is_protected?\n"}},
        {"run " + scenario_file("values.yaml", kValues), 2,
         {"intf_type: unknown value 'physcal' of dpa_l3intf_intf_type_en (one of: none, physical, subif, bundle, bvi, tunnel, loopback, "
          "pwhe); did you mean physical?\n",
          "values.yaml:4:30: op: 'creat' is no operation of test_if (", "the record runs nothing; did you mean create?\n",
          "step 3 expect: ok (0 mismatches and 2 value errors since the last expect)",
          "'test_iff creat' is not <object type> <operation>, such as \"test_if create\"; did you mean test_if create?"}},
        {"run " + scenario_file("status.yaml", "steps:\n  - inject: { op: \"test_if create\", status: ENOMEMS }\n"), 2,
         {"unknown status 'ENOMEMS' (a number or a name such as ENOMEM); did you mean ENOMEM?"}},
        {"run " + scenario_file("config.yaml", "config: { verbos: true }\nsteps:\n  - expect: { mismatches: 0 }\n"), 2,
         {"config.yaml:1:19: unknown config key 'verbos' (", "; did you mean verbose?"}},
        {"catalogue --describe nhg", 2, {"planecheck: there is no object type 'nhg', nor a value type", "; did you mean nhgroup?\n"}},
    });
}

TEST(Catalogue, DescribeShowsEnumValuesAndRecordFieldsAndTakesAValueType) {
    expect_says({
        {"catalogue --describe l3intf", 0,
         {"  value types:\n", "dpa_l3intf_intf_type_en: enum (a value name or its number), 4 bytes; values: none 0, physical 1, subif 2,",
          "ofa_intf_t: record, "}},
        {"catalogue --describe ofa_intf_t", 0,
         {"ofa_intf_t (value type)\n", "\n      ifhandle", "\n      ifindex", "\n      vrf_id", "\n      mtu", "ushort", "2 bytes"}},
        {"catalogue --describe ofa_intf_t --json", 0,
         {"{\"value_type\": {\"name\": \"ofa_intf_t\", \"form\": \"record\"", "{\"name\": \"mtu\", \"type\": \"ushort\", \"width\": 2}"}},
        {"catalogue --describe l3intf --json", 0,
         {"{\"name\": \"intf_type\", \"value_type\": \"dpa_l3intf_intf_type_en\", \"kind\": \"value\"}",
          "\"values\": [{\"name\": \"none\", \"value\": 0}, {\"name\": \"physical\", \"value\": 1}"}},
        {"catalogue --json", 2, {}}, // --json describes something
    });
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
    const std::string inactive = "steps:\n  - send: { ipnh: [ { op: create, intf: 1, no_such_key: 1 } ] }\n";
    expect_says({
        // a file in which nothing ran tested nothing: it does not pass for tested
        {"run " + scenario_file("inactive_key.yaml", inactive), 1, {"planecheck: SKIPPED: 1 file"}, {"no_such_key", "PASSED"}},
        {"run --allow-skipped " + scenario_file("inactive_key.yaml", inactive), 0, {"SKIPPED: 1 file"}, {"no_such_key"}},
        {"check " + scenario_file("inactive_key.yaml", inactive), 1, {"ipnh is inactive while object_set is 0"}, {"no_such_key"}},
        // the create of step 2 takes the first injection
        {"check " + scenario_file("late.yaml", R"(steps:
  - inject: { op: "test_if create", status: ENOMEM, times: 2 }
  - send: { test_if: [ { op: create, key_a: 1 } ] }
  - inject: { op: "test_if create", status: ENOMEM }
  - npu_result: { op: "test_if get", results: [0, 5] }
  - send: { test_if: [ { op: delete, key_a: 1 } ] }
)"), 1,
         {"late.yaml:4:19: inject: no operation after this step is 'test_if create', so the injection is never used\n",
          "late.yaml:5:23: npu_result: no operation after this step is 'test_if get', so the result is never used\n"},
         {"late.yaml:2:"}},
    });
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
    const std::string sdk_side = std::string(PC_SOURCE_DIR) + "/examples/sdk_side.yaml";
    expect_says({
        {"run -q " + sdk_side, 0, {}, {"received:"}}, // passing steps print nothing under -q
        {"run " + sdk_side, 0, {"received:"}},
        {"run " + scenario_file("expect.yaml", "steps:\n  - send: { test_if: [ { op: delete, key_a: 9 } ] }\n  - expect: { mismatches: 2 }\n"), 1,
         {"step 2 expect: FAILED (1 mismatch and 0 value errors since the last expect); expected 2 mismatches and 0 value errors\n"}},
        {"run " + scenario_file("handles.yaml", R"(steps:
  - send: { test_if: [ { op: create, key_a: 1, hdl: if1 }, { op: create, key_a: 2, hdl: if2 } ] }
  - send: { test_nh: [ { op: create, nh_id: 1, test_if_refhdl: if1 } ] }
  - send: { test_nh: [ { op: get, nh_id: 1, test_if_refhdl: if2 } ] }
)"), 1, {"test_if_refhdl: received \"0x1001\" (if1) expected \"0x1002\" (if2)\n"}},
        {"run /nonexistent/nosuch.yaml", 2, {"planecheck: cannot read /nonexistent/nosuch.yaml: no such file"}},
    });
    Result bad_option = planecheck("run --no-such-option x.yaml");
    EXPECT_EQ(bad_option.status, 2) << bad_option.output;
    EXPECT_EQ(bad_option.output.rfind("planecheck: ", 0), 0u) << bad_option.output;
}

// Three findings since the start: a planted attr_a1 mismatch (line 3), the EBUSY of a delete that
// is still referred to (line 6) and a misspelled key's value error (line 7, column 56).
std::string findings_file(const std::string &name, const std::string &expect, bool planted = true, bool misspelled = true) {
    std::string text = std::string("config: { object_set: 1, references: enforce }\nsteps:\n") +
                       "  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5 }, { op: get, key_a: 1, attr_a1: " +
                       (planted ? "3" : "5") + " } ] }\n" +
                       "  - send: { l3intf: [ { op: create, ifhandle: 1, hdl: if1 } ] }\n"
                       "  - send: { ipnh: [ { op: create, intf: 1, nh_addr: \"10.0.0.1\", l3intf_refhdl: if1 } ] }\n"
                       "  - send: { l3intf: [ { op: delete, ifhandle: 1 } ] }\n" +
                       (misspelled ? "  - send: { test_if: [ { op: create, key_a: 2, atr_a1: 5 } ] }\n" : "") + "  - expect: " + expect + "\n";
    return scenario_file(name, text);
}

TEST(Expect, FindingsNameEachFindingThatCameSinceTheLastExpect) {
    // the planted mismatch went away and an EBUSY came instead: the count alone still holds
    std::string gone = findings_file("gone.yaml", "{ mismatches: 1, findings: [ { attribute: attr_a1 } ] }", false, false);
    std::string counted = findings_file("counted.yaml", "{ mismatches: 1 }", false, false);
    std::string ebusy = ":6: dpa_l3intf_delete: EBUSY, received 16 expected 0";
    std::string three = "{ mismatches: 2, value_errors: 1, findings: [ { attribute: attr_a1 }, { status: EBUSY }, { text: \"has no 'atr_a1'\" } ] }";
    std::string since = scenario_file("since.yaml", R"(config: { object_set: 1, references: enforce }
steps:
  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5 }, { op: get, key_a: 1, attr_a1: 3 } ] }
  - expect: { findings: [ { attribute: attr_a1 } ] }
  - send: { l3intf: [ { op: create, ifhandle: 1, hdl: if1 } ] }
  - send: { ipnh: [ { op: create, intf: 1, nh_addr: "10.0.0.1", l3intf_refhdl: if1 } ] }
  - expect: { findings: [] }
  - send: { l3intf: [ { op: delete, ifhandle: 1 } ] }
  - expect: { findings: [ { status: EBUSY } ] }
)");
    std::string planted_only = scenario_file("twice.yaml", "steps:\n  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5 }, "
                                                           "{ op: get, key_a: 1, attr_a1: 3 } ] }\n"
                                                           "  - expect: { findings: [ { attribute: attr_a1 }, { text: attr_a1 } ] }\n");
    expect_says({
        {"run " + counted, 0, {"step 5 expect: ok (1 mismatch and 0 value errors since the last expect)", "PASSED", "(1 expected)"}},
        {"run " + gone, 1,
         {"gone.yaml:7: step 5 expect: FAILED (1 mismatch and 0 value errors since the last expect); the findings named are not "
          "those that came\n  expected: { attribute: attr_a1 }\n  came: " + gone + ebusy + "\n",
          "  left over: { attribute: attr_a1 } matched no finding\n",
          "  left over: " + gone + ebusy + " was named by no entry\n", "planecheck: FAILED: 1 file"},
         {"(1 expected)"}},
        // each kind of entry names its finding; counts and findings: judge together
        {"run " + findings_file("kinds.yaml", three), 0,
         {"step 6 expect: ok (2 mismatches and 1 value error since the last expect)", "PASSED: 1 file, 6 steps, 2 mismatches, 1 value error (3 expected)"}},
        // the first entry could take either mismatch: it must leave attr_a1's to the second; an
        // entry's keys all hold for its finding; text: is searched in the line as the log writes it
        {"run " + findings_file("order.yaml", "{ findings: [ { text: received }, { attribute: attr_a1 }, { text: \"^.*:7:56: test_if has no\" } ] }"), 0,
         {"step 6 expect: ok", "(3 expected)"}},
        {"run " + findings_file("keys.yaml", "{ findings: [ { attribute: rc, status: 16 }, { attribute: attr_a1, text: \"received 5 expected 3$\" }, "
                                             "{ text: atr_a1 } ] }"), 0, {"step 6 expect: ok"}},
        {"run " + findings_file("wrong_key.yaml", "{ findings: [ { attribute: attr_a1, status: EBUSY }, { status: EBUSY }, { text: atr_a1 } ] }"), 1,
         {"  left over: { attribute: attr_a1, status: EBUSY } matched no finding\n", "3: attr_a1: received 5 expected 3 was named by no entry\n"}},
        // a finding no entry names, with the counts right
        {"run " + findings_file("unnamed.yaml", "{ mismatches: 2, value_errors: 1, findings: [ { attribute: attr_a1 }, { status: EBUSY } ] }"), 1,
         {"step 6 expect: FAILED (2 mismatches and 1 value error since the last expect); the findings named are not those that came\n",
          "  came: " + testing::TempDir() + "unnamed.yaml:3: attr_a1: received 5 expected 3\n",
          "  left over: " + testing::TempDir() + "unnamed.yaml:7:56: test_if has no 'atr_a1'"},
         {"matched no finding"}},
        // an entry that names nothing that came
        {"run " + findings_file("nothing.yaml", three.substr(0, three.size() - 4) + ", { status: ENOENT } ] }"), 1,
         {"  expected: { status: ENOENT }\n", "  left over: { status: ENOENT } matched no finding\n"}, {"named by no entry"}},
        // two entries, one finding: each entry names a finding of its own
        {"run " + planted_only, 1,
         {"  expected: { attribute: attr_a1 }\n  expected: { text: \"attr_a1\" }\n  came: ", "  left over: { text: \"attr_a1\" } matched no finding\n"},
         {"named by no entry", "left over: { attribute"}},
        // the counts still judge beside findings:
        {"run " + findings_file("counts.yaml", "{ mismatches: 1, findings: [ { attribute: attr_a1 }, { status: EBUSY } ] }", true, false), 1,
         {"step 5 expect: FAILED (2 mismatches and 0 value errors since the last expect); expected 1 mismatch\n"}, {"left over"}},
        // each expect names only what came after the one before
        {"run " + since, 0, {"step 2 expect: ok", "step 5 expect: ok (0 mismatches", "step 7 expect: ok (1 mismatch", "(2 expected)"}},
    });
}

// A findings: list names at most 200 findings, so the run keeps at most that many since an expect.
TEST(Expect, FindingsBeyondTheLimitAreCountedAndLeftOut) {
    std::string gets;
    for (int i = 0; i < 201; ++i) gets += ", { op: get, key_a: 1, attr_a1: 3 }";
    std::string many = scenario_file("many.yaml", "steps:\n  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5 }" + gets +
                                                      " ] }\n  - expect: { mismatches: 201, findings: [ { attribute: attr_a1 } ] }\n");
    Result r = planecheck("run " + many);
    EXPECT_EQ(r.status, 1) << r.output;
    EXPECT_EQ(count(r.output, "  came: "), 201u) << r.output;
    EXPECT_EQ(count(r.output, " was named by no entry\n"), 199u) << r.output;
    EXPECT_TRUE(has(r, "  came: 1 more finding, left out\n  left over: ")) << r.output;
    EXPECT_TRUE(has(r, "  left over: 1 more finding, left out\n")) << r.output;
}

// A findings: list that cannot be judged is refused at its place, by check before anything runs
// and by run at the step.
TEST(Expect, CheckRefusesAFindingsListItCannotJudge) {
    std::string entries;
    for (int i = 0; i < 201; ++i) entries += std::string(i ? ", " : "") + "{ attribute: attr_a1 }";
    struct Case {
        const char *name;
        std::string findings, error;
    } cases[] = {
        {"not_list.yaml", "{ attribute: attr_a1 }", ":2:25: findings: is a list of findings such as [ { attribute: attr_a1 }, { status: EBUSY } ]"},
        {"not_mapping.yaml", "[ attr_a1 ]", ":2:27: findings: each entry is a mapping with attribute:, status: or text:"},
        {"empty.yaml", "[ {} ]", ":2:27: findings: an entry names at least one of attribute, status, text"},
        {"unknown_key.yaml", "[ { atribute: attr_a1 } ]", ":2:39: findings: an entry has no 'atribute' (expected attribute, status, text); did you mean attribute?"},
        {"attribute.yaml", "[ { attribute: 5 } ]", ":2:40: attribute: is the name of an attribute"},
        {"regex.yaml", "[ { text: \"([\" } ]", ":2:35: text: '([' is no regular expression: "},
        {"status.yaml", "[ { status: EBUSSY } ]", ":2:37: unknown status 'EBUSSY' (a number or a name such as ENOMEM); did you mean EBUSY?"},
        {"status_type.yaml", "[ { status: [1] } ]", ":2:37: status: is a number or a name such as ENOMEM"},
        {"too_many.yaml", "[ " + entries + " ]", ":2:25: findings: names at most 200 findings"},
    };
    for (const Case &c : cases) {
        std::string path = scenario_file(c.name, "steps:\n  - expect: { findings: " + c.findings + " }\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\n");
        for (const char *command : {"check ", "run "}) {
            Result r = planecheck(command + path);
            EXPECT_EQ(r.status, 2) << command << c.name << "\n" << r.output;
            EXPECT_TRUE(has(r, path + c.error)) << c.error << "\n" << r.output;
            EXPECT_FALSE(has(r, "step 2")) << r.output; // nothing after the refusal runs
        }
    }
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

TEST(References, EnforcedTheyRefuseABusyDeleteAndADanglingHandleByHandleKeyAndMember) {
    std::string ignored = kReferences;
    ignored.replace(ignored.find(", references: enforce"), std::string(", references: enforce").size(), "");
    expect_says({
        {"run " + scenario_file("enforce.yaml", kReferences), 0,
         {"PASSED: 1 file, 8 steps, 0 mismatches, 0 value errors",
          "enforce.yaml:5: simplane: l3intf delete: l3intf 0x1001 is still referred to by ipnh 0x1002 (l3intf_refhdl); refused with EBUSY\n",
          "enforce.yaml:6: simplane: ipnh create: l3intf_refhdl (0x7777) names no live l3intf; refused with ENOENT\n"}},
        // the second element's reference holds the lspnh; the first element has none
        {"run " + scenario_file("key_refs.yaml", R"(config: { references: enforce }
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
)"), 0,
         {"key_refs.yaml:3: simplane: test_nh create: testencapmgr_refkey (its key) names no live testencapmgr",
          "key_refs.yaml:6: simplane: testencapmgr delete: testencapmgr 0x1001 is still referred to by test_nh 0x1002 (testencapmgr_refkey)",
          "key_refs.yaml:9: simplane: lspnh delete: lspnh 0x1003 is still referred to by nhgroup 0x1004 (next_obj_lspnh_refhdl)",
          "key_refs.yaml:10: simplane: nhgroup create: next_obj_lspnh_refkey (its key) names no live lspnh"}},
        // ignored by default, as before: the delete and the create succeed
        {"run " + scenario_file("ignore.yaml", ignored), 1, {"ignore.yaml:5: step 3 send l3intf: 1 mismatch", "ignore.yaml:6: step 4 send ipnh: 1 mismatch"},
         {"refused with"}},
        {"run " + std::string(PC_SOURCE_DIR) + "/examples/references.yaml", 0, {"refused with EBUSY", "refused with ENOENT"}},
    });
}

} // namespace
