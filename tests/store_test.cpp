// simplane's store: key order for the walks, limits, and what a get returns.
#include "harness.hpp"

namespace {

using pc::test::Harness;

TEST(Store, WalksFollowTheKeyFieldsInOrderAndNumerically) {
    Harness h;
    h.context.process.object_set = 1;
    // created out of order; intf is compared first, then the address as a number, then proto
    h.send("ipnh", R"([ {op: create, intf: 0x20, nh_addr: 10.0.0.1, proto: 1, hdl: c},
                        {op: create, intf: 0x10, nh_addr: 10.0.0.9, proto: 2, hdl: b},
                        {op: create, intf: 0x10, nh_addr: 9.255.255.255, proto: 7, hdl: a},
                        {op: create, intf: 0x100, nh_addr: 1.1.1.1, proto: 0, hdl: d} ])");
    h.send("ipnh", R"([ {op: get_first, hdl: n1},
                        {op: get_next, intf: 0x10, nh_addr: 9.255.255.255, proto: 7, hdl: n2},
                        {op: get_next, intf: 0x10, nh_addr: 10.0.0.9, proto: 2, hdl: n3},
                        {op: get_gt_eq, intf: 0x20, hdl: n4},
                        {op: get_next, intf: 0x100, nh_addr: 1.1.1.1, rc: ENOENT} ])");
    auto &names = h.context.session.handles;
    EXPECT_EQ(names["n1"], names["a"]);
    EXPECT_EQ(names["n2"], names["b"]);
    EXPECT_EQ(names["n3"], names["c"]);
    EXPECT_EQ(names["n4"], names["c"]); // intf 0x20 with a zero address sorts just before c
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log();
}

TEST(Store, TwelveByteIdsAndSignedKeysSortAsNumbers) {
    Harness h;
    h.send("nhgroup", R"([ {op: create, nhgroup_id: "0x010000000000000000000000", hdl: big},
                           {op: create, nhgroup_id: 256, hdl: mid}, {op: create, nhgroup_id: 2, hdl: small} ])");
    h.send("nhgroup", "[ {op: get_first, hdl: f}, {op: get_next, nhgroup_id: 2, hdl: s}, {op: get_next, nhgroup_id: 256, hdl: t} ]");
    auto &names = h.context.session.handles;
    EXPECT_EQ(names["f"], names["small"]);
    EXPECT_EQ(names["s"], names["mid"]);
    EXPECT_EQ(names["t"], names["big"]); // its highest byte is set: the largest, though its first byte is 0
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log();
}

TEST(Store, AnUpdateMergesOnlyWhatItSetsAndAGetReturnsTheWhole) {
    Harness h;
    h.send("test_if", "[ {op: create, key_a: 1, attr_a1: 1, attr_a2: 2}, {op: update, key_a: 1, attr_a2: 20, attr_a3: 30} ]");
    h.send("test_if", "[ {op: get, key_a: 1, attr_a1: 1, attr_a2: 20, attr_a3: 30, attr_a4: NOT_SET} ]");
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log();
}

TEST(Store, AHugeElementCountIsCutToTheBoundWithAMessage) {
    Harness h;
    h.send("nhgroup", "[ {op: create, nhgroup_id: 1, num_paths: -1} ]");
    ASSERT_FALSE(h.simplane_log.empty());
    EXPECT_EQ(h.simplane_log[0].rfind("simplane: nhgroup: element count 4294967295 is above 65536", 0), 0u);
    EXPECT_NE(h.recorder.find("\"num_paths\": 65536,"), std::string::npos);
    h.simplane_log.clear();
    h.send("nhgroup", "[ {op: create, nhgroup_id: 2, num_paths: 1, members: [ {forward_class: 1}, {forward_class: 2}, {forward_class: 3} ]} ]");
    ASSERT_FALSE(h.simplane_log.empty()); // the later members have no element to go to: said once
    EXPECT_NE(h.simplane_log[0].find("member 1 is beyond the object's 1 element(s); it and any later ones are ignored"), std::string::npos);
    EXPECT_EQ(h.simplane_log.size(), 2u); // that line and the create's print-out
}

} // namespace
