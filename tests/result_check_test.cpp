// Checking statuses and per-NPU results, naming handles, and re-issuing injected errors.
#include "harness.hpp"

namespace {

using pc::test::Harness;

TEST(ResultCheck, TheDontCareStatusAcceptsAnything) {
    Harness h;
    h.context.process.verbose = 1;
    h.send("test_if", "[ {op: delete, key_a: 1, rc: 53450}, {op: get, key_a: 1, rc: DONT_CARE} ]");
    EXPECT_EQ(h.mismatches(), 0u);
    EXPECT_TRUE(h.logged("dpa_test_if_delete is SUCCESS\n"));
    EXPECT_TRUE(h.logged("dpa_test_if_get is SUCCESS\n"));
}

TEST(ResultCheck, StatusesAreComparedOnTheirClassOnly) {
    Harness h;
    simplane::arm_injection("test_if delete", 0x2002, 3);
    // the class is nine bits wide: 0x102 is not the class of 0x2002
    h.send("test_if", "[ {op: delete, key_a: 1, rc: 0x1002}, {op: delete, key_a: 1, rc: 0x1003}, {op: delete, key_a: 1, rc: 0x1102} ]");
    EXPECT_EQ(h.mismatches(), 2u);
    EXPECT_TRUE(h.logged("dpa_test_if_delete: ENOENT, received 8194 expected 4099\n"));
}

TEST(ResultCheck, AnInjectedErrorIsReissuedUntilItStops) {
    Harness h;
    h.context.process.verbose = 1;
    simplane::arm_injection("test_if create", 12, 2);
    h.send("test_if", "[ {op: create, key_a: 1, hdl: if1} ]");
    EXPECT_EQ(h.count_logged("Calling dpa_test_if_create \n"), 3u);
    std::vector<std::string> brackets;
    for (const auto &l : h.simplane_log)
        if (l.find("error injection") != std::string::npos) brackets.push_back(l);
    EXPECT_EQ(brackets, (std::vector<std::string>{"simplane: error injection start: test_if create",
                                                  "simplane: error injection start: test_if create",
                                                  "simplane: error injection end: test_if create"}));
    EXPECT_EQ(h.context.session.handles.at("if1"), 0x1001u); // named by the failed create, then by the retry
}

TEST(ResultCheck, ARecordExpectingTheInjectedClassIsNotReissued) {
    Harness h;
    simplane::arm_injection("test_if update", 0x40c, 1);
    h.send("test_if", "[ {op: update, key_a: 1, rc: ENOMEM} ]");
    EXPECT_EQ(h.mismatches(), 0u);
    EXPECT_EQ(h.records_with_op("update"), 1u);
    simplane::arm_injection("test_if update", 12, 1);
    h.send("test_if", "[ {op: update, key_a: 1} ]"); // reissued once, then ENOENT from the store
    EXPECT_EQ(h.records_with_op("update"), 3u);
    EXPECT_TRUE(h.logged("dpa_test_if_update: ENOENT, received 2 expected 0\n"));
}

TEST(ResultCheck, AGetNamesItsHandleEvenWhenItFails) {
    Harness h;
    h.send("test_if", "[ {op: create, key_a: 1, hdl: first}, {op: get, key_a: 5, hdl: missing, rc: ENOENT}, {op: get, key_a: 1, hdl: again} ]");
    EXPECT_EQ(h.context.session.handles.at("first"), 0x1001u);
    EXPECT_EQ(h.context.session.handles.at("missing"), 0u);
    EXPECT_EQ(h.context.session.handles.at("again"), 0x1001u);
}

TEST(ResultCheck, EachDifferingNpuResultIsOneLineAndOneCountBeforeTheStatus) {
    Harness h;
    simplane::arm_npu_results("test_if create", {0, 5, 7}, 1);
    h.send("test_if", "[ {op: create, key_a: 1, npu_result: [0, 6, 8], rc: EINVAL} ]");
    EXPECT_EQ(h.mismatches(), 3u);
    ASSERT_EQ(h.log.size(), 3u);
    EXPECT_EQ(h.log[0], "npu_result: received 5 expected 6\n");
    EXPECT_EQ(h.log[1], "npu_result: received 7 expected 8\n");
    EXPECT_EQ(h.log[2], "dpa_test_if_create: EOK, received 0 expected 22\n");
}

TEST(ResultCheck, TheStatisticsTypeRecordsOnlyCreatesAndDeletes) {
    Harness h;
    h.context.process.object_set = 1;
    h.send("l1portstats", "[ {op: create}, {op: update}, {op: get}, {op: get_first}, {op: delete} ]");
    EXPECT_EQ(h.mismatches(), 0u);
    EXPECT_EQ(h.records_with_op("create"), 1u);
    EXPECT_EQ(h.records_with_op("delete"), 1u);
    EXPECT_EQ(h.records_with_op("update") + h.records_with_op("get") + h.records_with_op("get_first"), 0u);
}

TEST(ResultCheck, EndOfDataIsAnOperationOnlyWhereTheTypeHasIt) {
    Harness h;
    h.context.process.verbose = 1;
    h.send("scaleacl", "[ {op: eod} ]");
    EXPECT_EQ(h.records_with_op("eod"), 1u);
    EXPECT_TRUE(h.logged("Calling dpa_scaleacl_eod \n"));
    EXPECT_TRUE(h.logged("dpa_scaleacl_eod is SUCCESS\n"));
    h.send("test_if", "[ {op: eod, rc: EINVAL} ]");
    EXPECT_EQ(h.records_with_op("eod"), 1u);
    EXPECT_EQ(h.mismatches(), 0u);
}

TEST(ResultCheck, ASuccessfulCreatePrintsTheObjectWithItsTransactionId) {
    Harness h;
    h.send("test_if", "[ {op: create, key_a: 1, trans_id: 42}, {op: create, key_a: 1} ]");
    ASSERT_EQ(h.simplane_log.size(), 1u);
    EXPECT_EQ(h.simplane_log[0], "simplane: test_if handle 4097 trans_id 42");
}

TEST(ResultCheck, TheRetryPerformsCreateOrUpdateOnlyAndReturnsItsStatus) {
    Harness h;
    EXPECT_EQ(json_test_if_send_retry(h.record("{op: create, key_a: 1, hdl: r}"), h.ctx()), 0);
    EXPECT_EQ(json_test_if_send_retry(h.record("{op: create, key_a: 1}"), h.ctx()), 17);
    EXPECT_EQ(json_test_if_send_retry(h.record("{op: delete, key_a: 1}"), h.ctx()), 0);
    EXPECT_EQ(simplane::stored_count(0), 1u);
    EXPECT_EQ(h.context.session.handles.at("r"), 0x1001u);
    EXPECT_EQ(h.mismatches(), 0u); // the retry judges nothing itself
}

} // namespace
