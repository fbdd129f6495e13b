// "batch_crud" steps: parameters, queueing, the send's status, and each entry's validation.
#include "harness.hpp"

namespace {

using pc::test::Harness;

TEST(Batch, AValueThatIsNotAListDoesNothing) {
    Harness h;
    h.send("{batch_crud: {batch_params: {}}}");
    EXPECT_TRUE(h.log.empty());
    EXPECT_EQ(h.mismatches(), 0u);
}

TEST(Batch, EntriesRunInOrderAndAreEachCheckedAgainstTheirElement) {
    Harness h;
    h.context.process.verbose = 1;
    h.send(R"({batch_crud: [ {batch_params: {batch_rc_expect: 0}},
                             {test_if: [ {op: create, key_a: 1, attr_a1: 5, hdl: b1}, {op: delete, key_a: 1} ]},
                             {test_nh: [ {op: create, nh_id: 3} ]},
                             {test_if: [ {op: get, key_a: 1, attr_a1: 6} ]} ]})");
    EXPECT_EQ(simplane::stored_count(h.type("test_if").number), 1u); // one record per element: no delete
    EXPECT_EQ(simplane::stored_count(h.type("test_nh").number), 1u);
    EXPECT_TRUE(h.logged("ofa_batch_list_send is SUCCESS\n"));
    EXPECT_EQ(h.mismatches(), 1u) << h.all_log(); // the get entry was compared
    EXPECT_EQ(h.context.session.handles.at("b1"), 0x1001u);
    size_t create = h.recorder.find("\"test_if\""), nh = h.recorder.find("\"test_nh\""), get = h.recorder.rfind("\"test_if\"");
    EXPECT_LT(create, nh);
    EXPECT_LT(nh, get);
}

TEST(Batch, TheSendStatusIsComparedOnItsClassUnlessAnyIsAccepted) {
    Harness h;
    simplane::arm_injection("test_if create", 0x2011, 1);
    h.send("{batch_crud: [ {batch_params: {batch_rc_expect: 0x1011}}, {test_if: [ {op: create, key_a: 1, rc: EEXIST}]} ]}");
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log();
    simplane::arm_injection("test_if create", 22, 1);
    h.send("{batch_crud: [ {batch_params: {batch_rc_expect: DONT_CARE}}, {test_if: [ {op: create, key_a: 2, rc: EINVAL}]} ]}");
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log();
    h.send("{batch_crud: [ {batch_params: {batch_rc_expect: EINVAL}}, {test_if: [ {op: create, key_a: 3}]} ]}");
    EXPECT_EQ(h.mismatches(), 1u);
}

TEST(Batch, WithoutParametersTheFirstElementIsCountedAndNotQueued) {
    Harness h;
    h.send("{batch_crud: [ {test_if: [ {op: create, key_a: 1}]}, {test_if: [ {op: create, key_a: 2}]} ]}");
    EXPECT_EQ(h.mismatches(), 1u);
    EXPECT_EQ(simplane::stored_count(0), 1u);
    h.send("{batch_crud: [ {batch_params: {}} ]}"); // nothing queued: the empty list is still sent
    EXPECT_EQ(h.mismatches(), 1u);
}

TEST(Batch, AFailureStopsTheRestUnlessContinueOnError) {
    Harness h;
    h.send("{test_if: [ {op: create, key_a: 1} ]}");
    const char *entries = R"([ {test_if: [ {op: create, key_a: 1, rc: EEXIST} ]},
                               {test_if: [ {op: create, key_a: 2, expect_did_not_run: true} ]} ])";
    h.send(std::string("{batch_crud: [ {batch_params: {batch_rc_expect: EEXIST}}, ") + std::string(entries).substr(1) + "}");
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log();
    EXPECT_EQ(simplane::stored_count(0), 1u);
    h.send(std::string("{batch_crud: [ {batch_params: {batch_rc_expect: EEXIST, continue_on_error: true}}, ") +
           std::string(entries).substr(1) + "}");
    EXPECT_EQ(h.mismatches(), 1u);
    EXPECT_EQ(simplane::stored_count(0), 2u);
}

TEST(Batch, SizedEntriesTakeTheirCountKeyAsInTheDump) {
    Harness h;
    h.send(R"({batch_crud: [ {batch_params: {}},
                             {nhgroup: [ {op: create, nhgroup_id: 1, members: [{}, {}, {}, {}]} ]},
                             {nhgroup: [ {op: create, nhgroup_id: 2, members: [{}], num_paths: 8} ]},
                             {nhgroup: [ {op: create, nhgroup_id: 3, members: {forward_class: 1}} ]},
                             {qosmatchstats: [ {op: create, members: [{}], num_counters: 5} ]} ]})");
    for (const char *line : {"\"num_paths\": 4,", "\"num_paths\": 8,", "\"num_paths\": 1,", "\"num_counters\": 5,"})
        EXPECT_NE(h.recorder.find(line), std::string::npos) << line;
}

TEST(Batch, OnlyASuccessfulGetIsComparedAfterTheBatch) {
    Harness h;
    h.send("{test_if: [ {op: create, key_a: 1, attr_a1: 5} ]}");
    h.send(R"({batch_crud: [ {batch_params: {batch_rc_expect: DONT_CARE}},
                             {test_if: [ {op: get_next, key_a: 0, attr_a1: 7} ]},
                             {test_if: [ {op: get, key_a: 9, attr_a1: 7, rc: ENOENT} ]},
                             {test_if: [ {op: update, key_a: 1, attr_a1: 8} ]} ]})");
    EXPECT_EQ(h.mismatches(), 1u) << h.all_log(); // the get_next's attr_a1 only
}

TEST(BatchDeathTest, BrokenInvariantsEndTheProcessWithTheirAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Harness h;
            h.send("{batch_crud: [ {batch_params: {}}, {no_such_type: []} ]}");
        },
        "Assertion `ofa_batch_list_num_entries\\(buf\\) == num_objs' failed");
    EXPECT_DEATH(
        {
            Harness h;
            h.send("{batch_crud: [ {batch_params: {}}, {test_if: [ {op: frobnicate} ]} ]}");
        },
        "dpa_json_test_if_client:[0-9]+: int json_batch_crud_enq_test_if\\(ofa_batch_list_t, JSON_Value \\*, PROCESS \\*\\): "
        "Assertion `rc == EOK' failed");
    EXPECT_DEATH(
        {
            Harness h;
            ofa_batch_list_t list = ofa_batch_list_ctor();
            json_batch_crud_enq_test_if(list, h.json("[ {op: create, key_a: 1} ]"), h.ctx());
            ofa_batch_list_send(list);
            json_validate_object_test_if(ofa_batch_list_iterate(list), h.json("[ {op: delete, key_a: 1} ]"), h.ctx());
        },
        "dpa_json_test_if_client:[0-9]+: .*json_validate_object_test_if.*Assertion `obj_table_op == json_table_op' failed");
}

} // namespace
