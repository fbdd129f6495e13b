// Filling an object from a record: which keys and control fields each op applies.
#include "harness.hpp"

namespace {

using pc::test::Harness;

struct Filled {
    Harness &h;
    ofa_client_obj_base_t obj;
    Filled(Harness &harness, const std::string &record) : h(harness), obj(dpa_test_if_ctor()) {
        json_test_if_set_attributes(h.record(record), h.ctx(), obj);
    }
    ~Filled() { dpa_test_if_dtor(obj); }
    dpa_inst_hdr_t &header() { return *ofa_test_if_inst_from_batch(obj, 0); }
};

TEST(Attributes, AGetSetsTheKeyButNoAttribute) {
    Harness h;
    Filled f(h, "{op: get, key_a: 3, attr_a1: 5, get_option: 4}");
    EXPECT_TRUE(dpa_test_if_is_set_key_a(f.obj));
    EXPECT_EQ(dpa_test_if_get_key(f.obj).key_a, 3u);
    EXPECT_FALSE(dpa_test_if_is_set_attr_a1(f.obj));
    EXPECT_EQ(f.header().option, 4);
}

TEST(Attributes, TheHandleIsNeverAppliedOnCreateAndOnlyWhenNonzeroOtherwise) {
    Harness h;
    Filled create(h, "{op: create, key_a: 1, hdl: 77, create_option: 3}");
    EXPECT_EQ(dpa_test_if_get_hdl(create.obj), 0u);
    EXPECT_EQ(create.header().option, 3);
    Filled zero(h, "{op: delete, key_a: 1, hdl: 0, create_option: 3, attr_a1: 5}");
    EXPECT_EQ(dpa_test_if_get_hdl(zero.obj), 0u);
    EXPECT_TRUE(dpa_test_if_is_set_attr_a1(zero.obj)); // a delete carries its attributes, as create and update do
    EXPECT_EQ(zero.header().option, 0); // create_option belongs to create only
    json_set_hdl(h.ctx(), "if1", 0x1234);
    Filled named(h, "{op: get, key_a: 1, hdl: if1}");
    EXPECT_EQ(dpa_test_if_get_hdl(named.obj), 0x1234u);
    Filled fresh(h, "{op: get, key_a: 1, hdl: not_yet_named}"); // a get may name a new handle
    EXPECT_EQ(dpa_test_if_get_hdl(fresh.obj), 0u);
    EXPECT_EQ(h.value_errors(), 0u) << h.all_log();
}

TEST(Attributes, RetryModeIsReadAsANumberThenOnUpdateAsABoolean) {
    Harness h;
    Filled update(h, "{op: update, key_a: 1, retry_mode: true}");
    EXPECT_TRUE(update.header().flags & DPA_FLAG_RETRY_MODE);
    EXPECT_EQ(h.value_errors(), 0u);
    Filled create(h, "{op: create, key_a: 1, retry_mode: 2}");
    EXPECT_TRUE(create.header().flags & DPA_FLAG_RETRY_MODE);
    EXPECT_EQ(h.value_errors(), 0u);
    Filled update2(h, "{op: update, key_a: 1, retry_mode: 2}"); // no boolean reading of 2
    EXPECT_EQ(h.value_errors(), 1u);
    EXPECT_TRUE(h.logged("retry_mode: expected true or false"));
}

TEST(Attributes, EndOfDataSkipsTheKeyAndTheMaskButNotRetryMode) {
    Harness h;
    Filled eod(h, "{op: eod, key_a: 1, npu_mask: 0xf, retry_mode: 1}");
    EXPECT_FALSE(dpa_test_if_is_set_key_a(eod.obj));
    EXPECT_EQ(dpa_test_if_get_npu_mask(eod.obj), 0u);
    EXPECT_TRUE(eod.header().flags & DPA_FLAG_RETRY_MODE);
    Filled create(h, "{op: create, key_a: 1, npu_mask: \"0xf0\"}");
    EXPECT_EQ(dpa_test_if_get_npu_mask(create.obj), 0xf0u);
}

TEST(Attributes, ElementsKeepTheirIndexEvenWhenSomeAreNotObjects) {
    Harness h;
    Filled f(h, "{op: create, key_a: 1, members: [1, {npu_op_count: 7}]}");
    EXPECT_FALSE(dpa_test_if_is_set_npu_op_count(f.obj, 0));
    EXPECT_TRUE(dpa_test_if_is_set_npu_op_count(f.obj, 1));
    EXPECT_EQ(dpa_test_if_get_npu_op_count(f.obj, 1), 7u);
}

TEST(Attributes, ConvertersAreToldTheNamesTheInterfaceUses) {
    Harness h;
    Filled role(h, "{op: create, key_a: 1, eth_obj_testethport_refkey: {port_id: x}}");
    Filled option(h, "{op: get_next, key_a: 1, get_option: lots}");
    ASSERT_EQ(h.log.size(), 2u);
    EXPECT_EQ(h.log[0].rfind("testethport_refkey.", 0), 0u) << h.log[0];
    EXPECT_EQ(h.log[1].rfind("update_option: ", 0), 0u) << h.log[1];
}

TEST(Attributes, KeysRoleReferencesAndValuesReachTheObject) {
    Harness h;
    json_set_hdl(h.ctx(), "eth1", 0x4242);
    Filled f(h, "{op: create, key_a: 9, attr_a1: 5, rdesc_id_test1: {pool: 2, index: 3}, eth_obj_testethport_refhdl: eth1}");
    EXPECT_EQ(dpa_test_if_get_attr_a1(f.obj), 5u);
    rdesc_id_t r{};
    dpa_test_if_get_rdesc_id_test1(&r, f.obj);
    EXPECT_EQ(r.pool, 2);
    EXPECT_EQ(r.index, 3);
    EXPECT_EQ(ofa_test_if_get_eth_obj_testethport_refhdl(f.obj), 0x4242u);
    EXPECT_FALSE(ofa_test_if_is_set_ax_obj_testax_refhdl(f.obj));
    EXPECT_FALSE(dpa_test_if_is_set_npu_bmap(f.obj)); // read-only: never set from a record
    EXPECT_EQ(h.ctx()->received_obj, nullptr);
}

TEST(Attributes, APairNamingAnInactiveGatedTypeIsIgnoredEvenWhenPresent) {
    Harness h;
    for (int flag : {1, 0}) {
        h.context.process.object_set = flag;
        ofa_client_obj_base_t obj = dpa_ethportstats_ctor();
        json_ethportstats_set_attributes(h.record("{op: create, next_obj_ethport_refhdl: 12, next_obj_ethport_refkey: {bogus: 1}}"),
                                         h.ctx(), obj);
        EXPECT_EQ(ofa_ethportstats_is_set_next_obj_ethport_refhdl(obj), flag == 0);
        dpa_ethportstats_dtor(obj);
    }
    EXPECT_EQ(h.value_errors(), 1u); // only the active pass read the bad key
}

TEST(Attributes, AnUngatedTypeHandlesEachPairByItsOwnTargetsGate) {
    Harness h;
    for (int flag : {0, 1}) {
        h.context.process.object_set = flag;
        ofa_client_obj_base_t obj = dpa_pbrsbf_ctor();
        json_pbrsbf_set_attributes(h.record("{op: create, policy_id: 1, out_intf_obj_l3if_refhdl: 7, vrf_obj_ipvrf_refhdl: 8}"),
                                   h.ctx(), obj);
        EXPECT_EQ(ofa_pbrsbf_is_set_out_intf_obj_l3if_refhdl(obj), flag == 0) << flag; // l3if: active while zero
        EXPECT_EQ(ofa_pbrsbf_is_set_vrf_obj_ipvrf_refhdl(obj), flag != 0) << flag;     // ipvrf: active while nonzero
        dpa_pbrsbf_dtor(obj);
    }
    EXPECT_EQ(h.value_errors(), 0u) << h.all_log();
}

} // namespace
