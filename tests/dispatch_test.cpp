// The client entry point: which handler a step reaches.
#include "harness.hpp"

namespace {

using pc::test::Harness;

TEST(Dispatch, ValuesThatAreNotObjectsAreIgnored) {
    Harness h;
    EXPECT_EQ(json_send_object_client(h.json("[ {test_if: [ {op: create, key_a: 1} ]} ]"), h.ctx()), 0);
    EXPECT_EQ(json_send_object_client(h.json("test_if"), h.ctx()), 0);
    EXPECT_EQ(simplane::stored_count(0), 0u);
    EXPECT_TRUE(h.log.empty());
    EXPECT_TRUE(h.recorder.empty());
}

TEST(Dispatch, TheEarliestCatalogueTypeWinsWhateverTheOrderOfKeys) {
    Harness h;
    h.send("{test_nh: [ {op: create, nh_id: 1} ], test_if: [ {op: create, key_a: 1} ]}");
    EXPECT_EQ(simplane::stored_count(h.type("test_if").number), 1u);
    EXPECT_EQ(simplane::stored_count(h.type("test_nh").number), 0u);
    h.send("{policergroup: [ {op: create} ], policer: [ {op: create} ]}");
    EXPECT_EQ(simplane::stored_count(h.type("policer").number), 1u);
    EXPECT_EQ(simplane::stored_count(h.type("policergroup").number), 0u);
    h.send("{no_such_table: 1, test_nh: [ {op: create, nh_id: 2} ]}"); // unknown keys are passed over
    EXPECT_EQ(simplane::stored_count(h.type("test_nh").number), 1u);
}

TEST(Dispatch, SpecialStepKindsComeBeforeObjectTypes) {
    Harness h;
    h.send("{test_if: [ {op: create, key_a: 1} ], route: {prefix: 10.0.0.0/8}}");
    EXPECT_EQ(simplane::stored_count(0), 0u);
    EXPECT_EQ(h.log.size(), 1u);
    EXPECT_TRUE(h.logged("route: this step kind is not supported by simplane"));
    h.send("{get_then_update_test: {}, ports: {}}");
    EXPECT_TRUE(h.logged("ports:")); // "ports" is tested before "get_then_update_test"
    EXPECT_EQ(h.mismatches(), 0u);
}

TEST(Dispatch, StubTypesReturnZeroForAnyInput) {
    Harness h;
    EXPECT_EQ(json_ofa_trap_send(nullptr, h.ctx()), 0);
    EXPECT_EQ(json_mplsnhid_receive(h.json("[1]"), nullptr), 0);
    EXPECT_EQ(json_ofa_port_range_dump(nullptr, nullptr), 0);
    EXPECT_EQ(json_ofa_mpls_path_encap_receive_dump(nullptr), 0);
}

TEST(DispatchDeathTest, AnEmptyStepEndsTheProcessAsAnUnknownTable) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Harness h;
            h.log_to_stderr();
            h.send("{}");
        },
        testing::ExitedWithCode(1), "unknown table \\(null\\)");
}

} // namespace
