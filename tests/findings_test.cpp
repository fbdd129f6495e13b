// Findings as records: what each kind of finding says about itself, the line composed from it,
// and the order of its count and its line.
#include "harness.hpp"

#include <functional>

namespace {

using pc::test::Harness;
using Kind = pc_finding::Kind;
using Text = pc_finding::Text;

// What a sink of findings saw of one finding.
struct Seen {
    pc_finding finding;
    std::string line;
    uint64_t counted_when_told; // mismatches plus value errors counted when the sink was told
};

struct Case {
    const char *name;
    std::function<void(Harness &)> provoke;
    Kind kind;
    Text text;
    const char *type, *op, *attribute;
    int32_t element;
    const char *expected, *received;
    const char *line;      // the line as it has always been written
    bool counted_first;    // counted before its line is written
};

const Case kCases[] = {
    {"attribute value",
     [](Harness &h) {
         h.send("test_if", "[ {op: create, key_a: 1, attr_a1: 5} ]");
         h.send("test_if", "[ {op: get, key_a: 1, attr_a1: 6} ]");
     },
     Kind::mismatch, Text::values_differ, "test_if", "get", "attr_a1", -1, "6", "5", "attr_a1: received 5 expected 6\n", false},
    {"element attribute value",
     [](Harness &h) {
         h.send("nhgroup", "[ {op: create, nhgroup_id: 1, members: [{forward_class: 1}, {forward_class: 2}]} ]");
         h.send("nhgroup", "[ {op: get, nhgroup_id: 1, members: [{forward_class: 1}, {forward_class: 3}]} ]");
     },
     Kind::mismatch, Text::values_differ, "nhgroup", "get", "forward_class", 1, "3", "2", "forward_class: received 2 expected 3\n",
     false},
    {"expected to be set",
     [](Harness &h) {
         h.send("test_if", "[ {op: create, key_a: 1} ]");
         h.send("test_if", "[ {op: get, key_a: 1, attr_a2: 1} ]");
     },
     Kind::mismatch, Text::expected_set, "test_if", "get", "attr_a2", -1, "set", "not set",
     "dpa_test_if_get, expected attr_a2 to be set\n", false},
    {"expected not set",
     [](Harness &h) {
         h.send("test_if", "[ {op: create, key_a: 1, l3a_intf_id: 4} ]");
         h.send("test_if", "[ {op: get, key_a: 1, l3a_intf_id: NOT_SET} ]");
     },
     Kind::mismatch, Text::values_differ, "test_if", "get", "l3a_intf_id_is_set", -1, "false", "true",
     "l3a_intf_id_is_set: received true expected false\n", false},
    {"npd_state probe", // simplane's state text: {"node0": "state=programmed hdl=0x1001 npus=4"}
     [](Harness &h) {
         h.send("test_if", "[ {op: create, key_a: 1} ]");
         h.send("test_if", "[ {op: get, key_a: 1, npd_state: {node0: {state: down}}} ]");
     },
     Kind::mismatch, Text::expected_in_state, "test_if", "get", "npd_state", -1, "state=down",
     "{\"node0\": \"state=programmed hdl=0x1001 npus=4\"}",
     "dpa_test_if_get, expected state=down in {\"node0\": \"state=programmed hdl=0x1001 npus=4\"}\n", false},
    {"status", [](Harness &h) { h.send("test_if", "[ {op: create, key_a: 1, rc: EINVAL} ]"); }, Kind::mismatch, Text::status,
     "test_if", "create", "rc", -1, "22", "0", "dpa_test_if_create: EOK, received 0 expected 22\n", true},
    {"npu_result",
     [](Harness &h) {
         simplane::arm_npu_results("test_if create", {0, 5}, 1);
         h.send("test_if", "[ {op: create, key_a: 1, npu_result: [0, 6]} ]");
     },
     Kind::mismatch, Text::npu_result, "test_if", "create", "npu_result", 1, "6", "5", "npu_result: received 5 expected 6\n", false},
    {"received type", // an object of test_if handed to the receive of test_nh
     [](Harness &h) { pc::test::Received(h, "test_if", "{op: create, key_a: 1}", DPA_OP_CREATE).receive("{test_nh: [ {op: create} ]}"); },
     Kind::mismatch, Text::received_type, "test_nh", "", "type", -1, "test_nh", "0", "Expected test_nh received 0\n", true},
    {"value error", [](Harness &h) { h.send("test_if", "[ {op: create, key_a: 1, attr_a1: xyz} ]"); }, Kind::value_error,
     Text::attribute_detail, "test_if", "create", "attr_a1", -1, "", "", "attr_a1: expected a number, got the string \"xyz\"\n", true},
    {"batch status",
     [](Harness &h) { h.send("{batch_crud: [ {batch_params: {batch_rc_expect: EINVAL}}, {test_if: [ {op: create, key_a: 3}]} ]}"); },
     Kind::mismatch, Text::batch_status, "", "batch_crud", "batch_rc_expect", -1, "22", "0",
     "ofa_batch_list_send: EOK, received 0 expected 22\n", true},
    {"batch without parameters", [](Harness &h) { h.send("{batch_crud: [ {test_if: [ {op: create, key_a: 3}]} ]}"); },
     Kind::mismatch, Text::batch_params, "", "batch_crud", "batch_params", -1, "batch_params", "test_if",
     "in YAML test file, first element in batch_crud needs to be: 'batch_params'\n", true},
    {"did not run",
     [](Harness &h) {
         h.send("{batch_crud: [ {batch_params: {batch_rc_expect: EEXIST, continue_on_error: true}}, "
                "{test_if: [ {op: create, key_a: 2, expect_did_not_run: true} ]} ]}");
     },
     Kind::mismatch, Text::did_not_run, "test_if", "create", "expect_did_not_run", -1, "1", "0",
     "test_if_validate_did_not_run:received 0 expected 1\n", true},
};

class Findings : public testing::TestWithParam<Case> {};

TEST_P(Findings, TheRecordSaysWhatTheLineSays) {
    const Case &c = GetParam();
    Harness h;
    std::vector<Seen> seen;
    h.context.session.on_finding = [&](const pc_finding &f, const std::string &line) {
        seen.push_back({f, line, h.mismatches() + h.value_errors()});
    };
    c.provoke(h);
    ASSERT_FALSE(seen.empty()) << "no finding";
    const Seen &s = seen.back();
    EXPECT_EQ(s.line, c.line);
    EXPECT_EQ(pc::support::finding_line(s.finding), c.line);
    EXPECT_EQ(s.finding.kind, c.kind);
    EXPECT_EQ(s.finding.text, c.text);
    EXPECT_EQ(s.finding.type, c.type);
    EXPECT_EQ(s.finding.op, c.op);
    EXPECT_EQ(s.finding.attribute, c.attribute);
    EXPECT_EQ(s.finding.element, c.element);
    EXPECT_EQ(s.finding.expected, c.expected);
    EXPECT_EQ(s.finding.received, c.received);
    EXPECT_EQ(s.counted_when_told, h.mismatches() + h.value_errors() - (c.counted_first ? 0 : 1))
        << (c.counted_first ? "counted only after its line" : "counted before its line");
    // nothing was left out: every finding the case provoked is counted (none of these is a log line)
    EXPECT_EQ(seen.size(), h.mismatches() + h.value_errors());
}

TEST_P(Findings, ARunnerOfLinesOnlyGetsTheSameLine) {
    const Case &c = GetParam();
    Harness h; // sets `log` alone
    c.provoke(h);
    ASSERT_FALSE(h.log.empty());
    EXPECT_EQ(h.log.back(), c.line);
    EXPECT_EQ(h.levels.back(), 1);
}

INSTANTIATE_TEST_SUITE_P(EachKind, Findings, testing::ValuesIn(kCases), [](const testing::TestParamInfo<Case> &info) {
    std::string name = info.param.name;
    for (char &ch : name)
        if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
    return name;
});

TEST(Finding, StatusMismatchesCarryBothStatusesAsNumbers) {
    Harness h;
    std::vector<pc_finding> seen;
    h.context.session.on_finding = [&](const pc_finding &f, const std::string &) { seen.push_back(f); };
    h.send("test_if", "[ {op: create, key_a: 1}, {op: create, key_a: 1, rc: 0x1000} ]"); // EEXIST against class 0
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_TRUE(seen[0].has_status);
    EXPECT_EQ(seen[0].expected_status, 0x1000);
    EXPECT_EQ(seen[0].received_status, 17);
}

TEST(Finding, AValueErrorIsAtItsValuesLineAndColumn) {
    Harness h;
    std::vector<pc_finding> seen;
    h.context.session.on_finding = [&](const pc_finding &f, const std::string &) { seen.push_back(f); };
    const std::string records = "[ {op: create, key_a: 1},\n  {op: create, key_a: 2, attr_a1: xyz} ]";
    h.send("test_if", records);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].line, 2u);
    EXPECT_EQ(seen[0].column, records.find("xyz") - records.find('\n'));
}

TEST(Finding, LinesOfTheLoggerAreCutWhereItsBufferEndsAndMessagesAreNot) {
    std::string long_value(2000, 'v');
    pc_finding differ = pc::support::mismatch(Text::values_differ, "attr", long_value, long_value);
    std::string line = pc::support::finding_line(differ);
    EXPECT_EQ(line.size(), 1023u);
    EXPECT_NE(line.back(), '\n');
    pc_finding detail = pc::support::message(Kind::value_error, Text::attribute_detail, long_value);
    detail.attribute = "attr";
    EXPECT_EQ(pc::support::finding_line(detail), "attr: " + long_value + "\n");
}

TEST(Finding, AScopeNamesTheFindingsMadeWithinItAndIsUndoneAfter) {
    Harness h;
    std::vector<pc_finding> seen;
    h.context.session.on_finding = [&](const pc_finding &f, const std::string &) { seen.push_back(f); };
    uint8_t a = 1, b = 2;
    {
        pc::support::FindingScope outer(h.ctx(), "test_if", "get");
        {
            pc::support::FindingScope inner(h.ctx(), 3);
            json_cmp(h.ctx(), &a, &b, 1, "x", recorder_dump_convert_bool);
        }
        json_cmp(h.ctx(), &a, &b, 1, "y", recorder_dump_convert_bool);
    }
    json_cmp(h.ctx(), &a, &b, 1, "z", recorder_dump_convert_bool);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].element, 3);
    EXPECT_EQ(seen[0].op, "get");
    EXPECT_EQ(seen[1].element, -1);
    EXPECT_EQ(seen[1].op, "get");
    EXPECT_EQ(seen[2].type, "");
    EXPECT_EQ(seen[2].op, "");
}

} // namespace
