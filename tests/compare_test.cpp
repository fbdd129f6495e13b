// Comparing what a get returned with what the record expects.
#include "harness.hpp"

namespace {

using pc::test::Harness;


TEST(Compare, AWrongValueIsReportedWithBothValues) {
    Harness h;
    h.send("test_if", "[ {op: create, key_a: 1, attr_a1: 5, rdesc_for_print: {pool: 1, index: 2}, l3a_intf_id: 3} ]");
    h.send("test_if", "[ {op: get, key_a: 1, attr_a1: 6, rdesc_for_print: {pool: 1, index: 9}, l3a_intf_id: 3} ]");
    EXPECT_EQ(h.mismatches(), 2u);
    EXPECT_TRUE(h.logged("attr_a1: received 5 expected 6\n"));
    EXPECT_TRUE(h.logged("rdesc_for_print: received {\"pool\": 1, \"index\": 2} expected {\"pool\": 1, \"index\": 9}\n"));
    EXPECT_EQ(h.ctx()->received_type, 0);
    // the gets that find their object by walking compare it as a plain get does
    h.send("test_if", "[ {op: get_first, attr_a1: 6}, {op: get_next, key_a: 0, attr_a1: 6}, {op: get_gt_eq, key_a: 1, attr_a1: 6} ]");
    EXPECT_EQ(h.count_logged("attr_a1: received 5 expected 6\n"), 4u) << h.all_log();
}

TEST(Compare, PresenceIsCheckedBothWays) {
    Harness h;
    h.send("test_if", "[ {op: create, key_a: 1, l3a_intf_id: 4} ]");
    h.send("test_if", "[ {op: get, key_a: 1, l3a_intf_id: NOT_SET, attr_a2: 1, attr_a3: NOT_SET} ]");
    EXPECT_EQ(h.mismatches(), 2u);
    EXPECT_TRUE(h.logged("l3a_intf_id_is_set: received true expected false\n"));
    EXPECT_TRUE(h.logged("dpa_test_if_get, expected attr_a2 to be set\n"));
}

TEST(Compare, RoleReferencesAreComparedWithoutAPresenceTest) {
    Harness h;
    h.send("test_if", "[ {op: create, key_a: 1} ]");
    h.send("test_if", "[ {op: get, key_a: 1, ax_obj_testax_refhdl: 0, eth_obj_testethport_refhdl: 5} ]");
    EXPECT_EQ(h.mismatches(), 1u);
    EXPECT_TRUE(h.logged("testethport_refhdl: received \"0x0\" expected \"0x5\"\n"));
}

TEST(Compare, TheStateTextIsProbedForTheNodesExpectations) {
    Harness h; // simplane's text: {"node0": "state=programmed hdl=0x1001 npus=4"}
    h.send("test_if", "[ {op: create, key_a: 1} ]");
    h.send("test_if", R"([ {op: get, key_a: 1, npd_state: {node0: {state: programmed, hdl: 4097, npus: 4, s: 4}, node1: {state: down}}} ])");
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log(); // 4097 is found as 0x1001, s=4 inside npus=4
    h.send("test_if", R"([ {op: get, key_a: 1, npd_state: {node0: {state: down, ready: true, npus: [4]}}} ])");
    EXPECT_EQ(h.mismatches(), 3u);
    EXPECT_TRUE(h.logged("dpa_test_if_get, expected state=down in {\"node0\": \"state=programmed hdl=0x1001 npus=4\"}\n"));
    EXPECT_TRUE(h.logged("dpa_test_if_get, expected ready=FALSE in ")); // booleans always probe as FALSE
    EXPECT_TRUE(h.logged("dpa_test_if_get, expected UNSUPPORTED in "));
}

TEST(Compare, StateProbesOfNumbersWithoutASixtyFourBitIntegerAreDefined) {
    Harness h;
    h.send("test_if", "[ {op: create, key_a: 1} ]");
    // 2^64 - 2048 still converts as unsigned; inf, -1e30 and NaN have no integer at all
    h.send("test_if", "[ {op: get, key_a: 1, npd_state: {node0: {a: 18446744073709549568, b: 1e400, c: -1e30, d: .nan}}} ]");
    EXPECT_EQ(h.mismatches(), 4u);
    // the message names the last probe tried, the hexadecimal one
    EXPECT_TRUE(h.logged("expected a=0xfffffffffffff800 in ")) << h.all_log();
    for (const char *name : {"b", "c", "d"})
        EXPECT_TRUE(h.logged(std::string("expected ") + name + "=0x8000000000000000 in ")) << name << "\n" << h.all_log();
}

TEST(Compare, ElementsAreComparedByIndexExceptTheWalkedOnlyOne) {
    Harness h;
    h.send("nhgroup", "[ {op: create, nhgroup_id: 1, members: [{is_protected: true, forward_class: 1}, {forward_class: 2}]} ]");
    h.send("nhgroup", "[ {op: get, nhgroup_id: 1, members: [x, {forward_class: 3, is_protected: true}]} ]");
    EXPECT_EQ(h.mismatches(), 2u);
    EXPECT_TRUE(h.logged("forward_class: received 2 expected 3\n"));
    EXPECT_TRUE(h.logged("dpa_nhgroup_get, expected is_protected to be set\n"));
    h.send("test_if", "[ {op: create, key_a: 1, members: [{npu_op_count: 1}]}, {op: get, key_a: 1, members: [{npu_op_count: 2}]} ]");
    EXPECT_EQ(h.mismatches(), 2u);
}

} // namespace
