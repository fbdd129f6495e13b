// Running the records of one object type: carried-over statuses, replay, sizes and gates.
#include "harness.hpp"

namespace {

using pc::test::Harness;

TEST(Send, NonArraysEmptyArraysAndNonObjectRecordsDoNothing) {
    Harness h;
    EXPECT_EQ(h.send("test_if", "{op: create, key_a: 1}"), 0);
    EXPECT_EQ(h.send("test_if", "[]"), 0);
    EXPECT_EQ(h.send("test_if", "[1, two, [3]]"), 0);
    EXPECT_EQ(simplane::stored_count(0), 0u);
    EXPECT_TRUE(h.recorder.empty());
}

TEST(Send, AnExpectedStatusCarriesOverToLaterRecordsWithoutOne) {
    Harness h;
    h.send("test_if", "[ {op: create, key_a: 1, rc: EEXIST}, {op: delete, key_a: 1} ]");
    EXPECT_EQ(h.mismatches(), 2u);
    EXPECT_TRUE(h.logged("dpa_test_if_delete: EOK, received 0 expected 17\n"));
}

TEST(Send, AWalkKeepsTheDepthOfAnEarlierWalk) {
    Harness h;
    h.send("test_if", "[ {op: walk_by_key, key_a: 1, depth: 3, trans_id: 9}, {op: walk_by_key, key_a: 2} ]");
    ASSERT_EQ(h.simplane_log.size(), 2u);
    EXPECT_EQ(h.simplane_log[0], "simplane: chain walk of test_if depth 3 trans_id 9");
    EXPECT_EQ(h.simplane_log[1], h.simplane_log[0]);
    EXPECT_EQ(h.records_with_op("walk_bykey"), 2u);
}

TEST(Send, AReplayInTheFirstRecordRunsAloneAndItsStatusIsNotReturned) {
    Harness h;
    simplane::arm_injection("test_if replay", 0x20c, 1);
    EXPECT_EQ(h.send("test_if", "[ {op: replay}, {op: create, key_a: 1} ]"), 0);
    EXPECT_EQ(simplane::stored_count(0), 0u);
    EXPECT_EQ(h.records_with_op("replay"), 1u);
    EXPECT_NE(h.recorder.find("\"err\": 12,"), std::string::npos);
    h.recorder.clear();
    // a replay after the first record is an unknown op: built, checked, nothing performed
    EXPECT_EQ(h.send("test_if", "[ {op: create, key_a: 1}, {op: replay_start, npu_result: [5]} ]"), 0);
    EXPECT_EQ(h.records_with_op("replay_start"), 0u);
    EXPECT_TRUE(h.logged("npu_result: received 0 expected 5\n"));
}

TEST(Send, TheResultIsTheLastPerformedOperationsStatus) {
    Harness h;
    EXPECT_EQ(h.send("test_if", "[ {op: create, key_a: 1}, {op: create, key_a: 1, rc: EEXIST}, {op: frobnicate} ]"), 17);
    EXPECT_EQ(h.mismatches(), 0u);
}

TEST(Send, OnlyASuccessfulGetIsCompared) {
    Harness h;
    h.send("test_if", "[ {op: create, key_a: 1, attr_a1: 5} ]");
    h.send("test_if", "[ {op: get, key_a: 2, attr_a1: 6, rc: ENOENT} ]");
    EXPECT_EQ(h.mismatches(), 0u);
    // a get that finds the object is compared even when the record expected it to fail
    h.send("test_if", "[ {op: get, key_a: 1, attr_a1: 6, rc: ENOENT} ]");
    EXPECT_EQ(h.mismatches(), 2u);
}

TEST(Send, TheObjectSetFlagChoosesWhichOfTheTwinTypesRun) {
    Harness h;
    h.context.process.object_set = 0;
    EXPECT_EQ(h.send("l3intf", "[ {op: create, rc: EINVAL} ]"), 0);
    h.send("l3if", "[ {op: create} ]");
    EXPECT_EQ(simplane::stored_count(h.type("l3intf").number), 0u);
    EXPECT_EQ(simplane::stored_count(h.type("l3if").number), 1u);
    EXPECT_EQ(h.mismatches(), 0u);
}

TEST(Send, SizedTypesTakeTheirSizeFromMembersAndTheCountKeyWins) {
    Harness h;
    h.send("nhgroup", "[ {op: create, nhgroup_id: 1, members: [{forward_class: 1}, {forward_class: 2}, {forward_class: 3}]} ]");
    h.send("nhgroup", "[ {op: create, nhgroup_id: 2, members: [{forward_class: 1}], num_paths: 8} ]");
    h.send("nhgroup", "[ {op: create, nhgroup_id: 3} ]");
    h.send("nhgroup", "[ {op: create, nhgroup_id: 4, members: {forward_class: 1}} ]");
    // the send of this type sizes from "members" alone
    h.send("qosmatchstats", "[ {op: create, members: [{}, {}], num_counters: 5} ]");
    auto count = [&](const std::string &line) {
        size_t n = 0;
        for (size_t at = h.recorder.find(line); at != std::string::npos; at = h.recorder.find(line, at + 1)) ++n;
        return n;
    };
    EXPECT_EQ(count("\"num_paths\": 3,"), 1u);
    EXPECT_EQ(count("\"num_paths\": 8,"), 1u);
    EXPECT_EQ(count("\"num_paths\": 1,"), 2u); // no members, and members that are not a list
    EXPECT_EQ(count("\"num_counters\": 2,"), 1u);
}

TEST(Send, TheAclStatisticsTypeWaitsAfterAnUpdateWhenAsked) {
    Harness h;
    h.context.process.wait = 1;
    h.send("ingaclstats", "[ {op: create}, {op: update} ]");
    EXPECT_EQ(h.count_logged("WAITING\n"), 1u);
    h.context.process.wait = 0;
    h.send("ingaclstats", "[ {op: update} ]");
    EXPECT_EQ(h.count_logged("WAITING\n"), 1u);
}

TEST(Send, ARecordWithoutAnOpIsReportedAndSkipped) {
    Harness h;
    h.send("test_if", "[ {key_a: 1}, {op: create, key_a: 2} ]");
    EXPECT_EQ(h.value_errors(), 1u);
    EXPECT_TRUE(h.logged("test_if: a record needs an \"op\" text"));
    EXPECT_EQ(simplane::stored_count(0), 1u);
}

} // namespace
