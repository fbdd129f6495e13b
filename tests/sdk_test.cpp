// The SDK side: checking and filling received objects, writing them out, and the object dump.
#include "harness.hpp"

namespace {

using pc::test::Harness;
using pc::test::Received;

TEST(Receive, AnObjectOfAnotherTypeIsLeftAlone) {
    Harness h;
    Received r(h, "test_if", "{op: create, key_a: 1}", DPA_OP_CREATE);
    EXPECT_EQ(r.receive("{test_nh: [ {op: create, rc: 5} ]}"), -1);
    EXPECT_EQ(h.ctx()->received_obj, reinterpret_cast<ofa_client_obj_base_t>(&r.instance()));
}

TEST(Receive, CreatesAreCheckedAndTheirReferencesInstalled) {
    Harness h;
    Received r(h, "test_if", "{op: create, key_a: 1, attr_a1: 5, members: [{npu_op_count: 3}]}", DPA_OP_CREATE);
    int rc = r.receive(R"({test_if: [ {op: create, key_a: 1, attr_a1: 6, eth_obj_testethport_refhdl: 77,
                                       members: [{npu_op_count: 4}], rc: 7},
                                      {op: delete, rc: 9}, {op: Create, attr_a1: 8}, {op: update} ]})");
    EXPECT_EQ(rc, 9); // the last "rc" of any record
    EXPECT_EQ(h.mismatches(), 1u) << h.all_log(); // attr_a1; the walked-only element is never compared
    EXPECT_TRUE(h.logged("attr_a1: received 5 expected 6\n"));
    EXPECT_EQ(ofa_test_if_get_eth_obj_testethport_refhdl(r.obj), 77u);
    EXPECT_EQ(h.ctx()->received_type, 0);
}

TEST(Receive, GetsAreFilledWithTheAnswerAndTheirReferencesChecked) {
    Harness h;
    Received r(h, "nhgroup", "{op: get, nhgroup_id: 4}", DPA_OP_GET);
    r.receive(R"({nhgroup: [ {op: get_first, nhgroup_id: 9, fec_id: 0x77, next_obj_lspnh_refhdl: 5, npu_bmap: 3,
                               members: [x, {forward_class: 6}]} ]})");
    EXPECT_EQ(dpa_nhgroup_get_fec_id(r.obj), 0x77u);
    EXPECT_EQ(dpa_nhgroup_get_key(r.obj).nhgroup_id.bytes[0], 4); // keys are not filled
    EXPECT_FALSE(dpa_nhgroup_is_set_npu_bmap(r.obj));           // nor read-only attributes
    EXPECT_FALSE(dpa_nhgroup_is_set_forward_class(r.obj, 0));
    EXPECT_EQ(dpa_nhgroup_get_forward_class(r.obj, 1), 6);
    EXPECT_TRUE(h.logged("lspnh_refhdl: received \"0x0\" expected \"0x5\"\n"));
    EXPECT_EQ(h.mismatches(), 1u);
}

TEST(Receive, InactiveTypesAreRefusedSilently) {
    Harness h;
    h.context.process.object_set = 1;
    Received r(h, "nhgroup", "{op: get, nhgroup_id: 4}", DPA_OP_GET);
    EXPECT_EQ(r.receive("{nhgroup: [ {op: get, rc: 3} ]}"), -1);
    EXPECT_TRUE(h.log.empty());
}

TEST(ReceivedDump, WritesWhatIsSetUnderTheReceiveOperationsName) {
    Harness h;
    Received r(h, "test_if", "{op: create, key_a: 2, attr_a1: 5, testethport_refhdl: 9, eth_obj_testethport_refkey: {port_id: 4}}",
               DPA_OP_GET_FIRST);
    h.context.process.dump_status = 12;
    EXPECT_EQ(json_test_if_receive_dump(h.ctx()), 12);
    EXPECT_NE(h.recorder.find(" \"receive_call\": {"), std::string::npos);
    EXPECT_NE(h.recorder.find("\"op\": \"get_first\""), std::string::npos);
    EXPECT_EQ(h.context.session.dump_document,
              "  \"eth_obj_testethport_refkey\": {\"port_id\": 4},\n  \"key_a\": 2,\n  \"attr_a1\": 5,\n");
    // the object's own reference handle goes through the recorder's converter, as the interface has it
    EXPECT_NE(h.recorder.find("},\n      \"testethport_refhdl\": \"0x9\",\n"), std::string::npos) << h.recorder;
    h.recorder.clear();
    r.instance().op = 7; // codes 3 and 7 are no receive operation: no record, the dump still runs
    h.context.session.dump_document.clear();
    json_dump_object_received_sdk(h.ctx());
    EXPECT_TRUE(h.recorder.find("receive_call") == std::string::npos);
    EXPECT_FALSE(h.context.session.dump_document.empty());
}

// A platform whose is-set accessors say otherwise than the object's presence bytes.
struct IsSetAnswers {
    explicit IsSetAnswers(uint8_t answer) { simplane::force_is_set_answer(answer); }
    ~IsSetAnswers() { simplane::force_is_set_answer(std::nullopt); }
};

TEST(ReceivedDump, ScalarsFollowTheObjectsPresenceBytesNotTheIsSetAccessors) {
    Harness h;
    Received r(h, "test_if", "{op: create, key_a: 2, attr_a1: 5, eth_obj_testethport_refhdl: 3}", DPA_OP_CREATE);
    {
        IsSetAnswers never(0);
        json_test_if_receive_dump(h.ctx());
    }
    EXPECT_EQ(h.context.session.dump_document, "  \"key_a\": 2,\n  \"attr_a1\": 5,\n"); // pairs do follow the accessors
    h.context.session.dump_document.clear();
    {
        IsSetAnswers always(1);
        json_test_if_receive_dump(h.ctx());
    }
    const std::string &doc = h.context.session.dump_document;
    EXPECT_NE(doc.find("\"ax_obj_testax_refhdl\""), std::string::npos) << doc;
    EXPECT_EQ(doc.substr(doc.find("\"key_a\"")), "\"key_a\": 2,\n  \"attr_a1\": 5,\n"); // and nothing unset after them
}

TEST(ReceivedDump, AnElementFlagIsSharedByEveryElement) {
    Harness h;
    Received r(h, "nhgroup", "{op: create, nhgroup_id: 4, members: [{forward_class: 6}, {is_protected: true}]}", DPA_OP_CREATE);
    IsSetAnswers never(0);
    json_nhgroup_receive_dump(h.ctx());
    EXPECT_EQ(h.context.session.dump_document, "  \"nhgroup_id\": 4,\n"
                                               "  \"is_protected\": false,\n  \"forward_class\": 6,\n"
                                               "  \"is_protected\": true,\n  \"forward_class\": 0,\n");
}

TEST(ReceivedDump, TheSwitchGoesByTypeNumber) {
    Harness h;
    dpa_inst_hdr_t fake{};
    fake.type = 315;
    h.ctx()->received_obj = reinterpret_cast<ofa_client_obj_base_t>(&fake);
    EXPECT_EQ(json_dump_object_received_sdk(h.ctx()), 0);
    EXPECT_TRUE(h.recorder.empty());
    fake.type = 314;
    fake.op = DPA_OP_CREATE;
    json_dump_object_received_sdk(h.ctx());
    EXPECT_NE(h.recorder.find("\"mpa\": ["), std::string::npos);
}

TEST(ObjectDump, BuildsObjectsAndChecksTheKeysRoundTrip) {
    Harness h;
    EXPECT_EQ(json_dump_object_sdk(h.json("{test_if: []}"), h.ctx()), 0);
    EXPECT_EQ(json_dump_object_sdk(h.json("{test_if: {op: get}}"), h.ctx()), 0);
    EXPECT_EQ(json_dump_object_sdk(h.json("{test_if: [ {op: get, key_a: 1, rc: 5}, {op: get}, {rc: 8}, {op: create, attr_a1: x} ]}"),
                                   h.ctx()), 8);
    EXPECT_EQ(h.mismatches(), 0u);
    EXPECT_EQ(h.value_errors(), 1u); // the create's attributes are converted
    h.ctx()->router_type = 16;
    EXPECT_EQ(json_dump_object_sdk(h.json("{test_if: [ {router: 17, op: get, key_a: 1}, {rc: 3} ]}"), h.ctx()), -1);
    EXPECT_EQ(json_dump_object_sdk(h.json("{test_if: [ {router: 16, rc: 3} ]}"), h.ctx()), 3);
    EXPECT_EQ(simplane::stored_count(0), 0u); // no operation is performed
}

TEST(ObjectDump, GatesFollowTheTypesNamedIrregularities) {
    Harness h;
    h.context.process.object_set = 1;
    EXPECT_EQ(json_dump_object_sdk(h.json("{nhgroup: [ {rc: 2} ]}"), h.ctx()), -1);
    EXPECT_EQ(json_dump_object_sdk(h.json("{macnh: [ {rc: 2} ]}"), h.ctx()), 2); // its dump has no gate
    simplane::configure({4, 17, "node0"});
    EXPECT_EQ(json_dump_object_sdk(h.json("{meterprofile: [ {rc: 2} ]}"), h.ctx()), -1);
    simplane::configure({});
    EXPECT_EQ(json_dump_object_sdk(h.json("{meterprofile: [ {rc: 2} ]}"), h.ctx()), 2);
}

TEST(SdkDispatchDeathTest, AnUnknownTableEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Harness h;
            h.log_to_stderr();
            json_dump_object_sdk(h.json("{nosuch: [], test_iff: []}"), h.ctx());
        },
        testing::ExitedWithCode(1), "unknown table nosuch\n");
}

} // namespace
