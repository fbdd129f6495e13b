// The pre-flight check, called directly: which steps it flags, where, and which it leaves alone.
#include "check.hpp"
#include "suggestions.hpp"

#include "arena.hpp"
#include "engine.hpp"
#include "yaml_loader.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using pc::runner::CheckFinding;
using pc::runner::StepCheck;

class CheckSteps {
public:
    explicit CheckSteps(int32_t object_set = 0, uint32_t router_type = 16) : check(object_set, router_type) {}

    // Checks one step written as YAML ({ send: ..., sdk: ... } or { dump: ... }); returns its findings.
    std::vector<CheckFinding> step(const std::string &yaml) {
        pc::yaml::LoadError error;
        JSON_Value *v = pc::yaml::load_string(yaml, "t.yaml", arena, error);
        EXPECT_NE(v, nullptr) << error.text();
        const JSON_Object *o = json_value_get_object(v);
        if (JSON_Value *dump = json_object_get_value(o, "dump")) check.dump(dump);
        else check.send(json_object_get_value(o, "send"), json_object_get_value(o, "sdk"));
        return check.take();
    }

    StepCheck check;
    pc::Arena arena;
};

std::string texts(const std::vector<CheckFinding> &findings) {
    std::string out;
    for (const auto &f : findings) out += std::to_string(f.line) + ":" + std::to_string(f.column) + ": " + f.message + "\n";
    return out;
}

TEST(StepCheck, HandleNamesCountAsStoredOnlyOnceAnEarlierRecordThatRunsStoresThem) {
    CheckSteps c;
    // create and the gets store; update, delete and refhdl values read; numbers are handles already
    EXPECT_TRUE(c.step("send: { test_if: [ { op: create, key_a: 1, hdl: a }, { op: update, key_a: 1, hdl: a } ] }").empty());
    EXPECT_TRUE(c.step("send: { test_if: [ { op: get_first, hdl: b }, { op: delete, key_a: 1, hdl: b } ] }").empty());
    EXPECT_TRUE(c.step("send: { test_if: [ { op: delete, key_a: 1, hdl: \"0x1001\" }, { op: update, key_a: 1, hdl: 7 } ] }").empty());
    EXPECT_TRUE(c.step("send: { testethport: [ { op: create, port_id: 1, hdl: e } ] }").empty());
    EXPECT_TRUE(c.step("send: { test_if: [ { op: create, key_a: 2, testethport_refhdl: e } ] }").empty());

    // read in the same record that stores it: the read comes first
    auto same = c.step("send: { test_if: [ { op: create, key_a: 3, hdl: c, testethport_refhdl: c } ] }");
    ASSERT_EQ(same.size(), 1u) << texts(same);
    EXPECT_NE(same[0].message.find("'c' is read before"), std::string::npos);

    // an update names a handle that only a later record stores
    auto later = c.step("send: { test_if: [ { op: update, key_a: 1, hdl: d }, { op: create, key_a: 4, hdl: d } ] }");
    ASSERT_EQ(later.size(), 1u) << texts(later);
    EXPECT_EQ(later[0].column, 49u);

    // an inactive type's create runs nothing, so it stores nothing
    EXPECT_EQ(c.step("send: { ipvrf: [ { op: create, vrf_id: 1, hdl: v } ] }").size(), 1u);
    auto unstored = c.step("send: { test_if: [ { op: delete, key_a: 1, hdl: v } ] }");
    EXPECT_EQ(unstored.size(), 1u) << texts(unstored);
}

TEST(StepCheck, GatesFollowTheObjectSetAndTheDumpWithoutGate) {
    CheckSteps zero(0), one(1);
    EXPECT_TRUE(zero.step("send: { nhgroup: [ { op: create, nhgroup_id: 1 } ] }").empty());
    EXPECT_EQ(one.step("send: { nhgroup: [ { op: create, nhgroup_id: 1 } ] }").size(), 1u);
    EXPECT_TRUE(one.step("send: { ipnh: [ { op: create, intf: 1 } ] }").empty());
    auto inactive = zero.step("send: { ipnh: [ { op: create, intf: 1, atr: 1 } ] }");
    ASSERT_EQ(inactive.size(), 1u) << texts(inactive); // the records of a step that runs nothing are not looked at
    EXPECT_NE(inactive[0].message.find("ipnh is inactive while object_set is 0"), std::string::npos);
    // macnh's dump ignores the gate, its send does not
    EXPECT_TRUE(one.step("dump: { macnh: [ { op: get } ] }").empty());
    EXPECT_EQ(one.step("send: { macnh: [ { op: get } ] }").size(), 1u);
    // a pair is gated by its target: pbrsbf's ipvrf pair while the flag is 0, its vrfid pair while it is not
    EXPECT_EQ(zero.step("send: { pbrsbf: [ { op: create, vrf_obj_ipvrf_refkey: { vrf_id: 1 } } ] }").size(), 1u);
    EXPECT_TRUE(zero.step("send: { pbrsbf: [ { op: create, vrf_obj_vrfid_refkey: { vrf_id: 1 } } ] }").empty());
    EXPECT_EQ(one.step("send: { pbrsbf: [ { op: create, vrf_obj_vrfid_refkey: { vrf_id: 1 } } ] }").size(), 1u);
}

// The finding of a reference given a handle name, or "" when there is none.
std::string reference_finding(CheckSteps &c, const std::string &yaml) {
    std::vector<CheckFinding> found = c.step(yaml);
    EXPECT_LE(found.size(), 1u) << texts(found);
    return found.empty() ? "" : texts(found);
}

TEST(StepCheck, AHandleNameIsFollowedToTheTypeOfTheRecordThatStoredIt) {
    CheckSteps one(1);
    ASSERT_TRUE(one.step("send:\n  ipnhgroup: [ { op: create, nhgroup_id: 1, hdl: grp } ]").empty());
    // the route over the group by the direct reference meant for the other object set's group
    EXPECT_NE(reference_finding(one, "send: { iproute: [ { op: create, vrf_id: 1, nhgroup_refhdl: grp } ] }")
                  .find("1:61: iproute nhgroup_refhdl takes the handle of an object of type nhgroup"),
              std::string::npos);
    EXPECT_EQ(reference_finding(one, "send: { iproute: [ { op: create, vrf_id: 1, next_obj_ipnhgroup_refhdl: grp } ] }"), "");
    // a pair's handle side is followed too, and numbers have no type to follow
    EXPECT_NE(reference_finding(one, "send: { iproute: [ { op: create, vrf_id: 1, next_obj_ipnh_refhdl: grp } ] }"), "");
    EXPECT_EQ(reference_finding(one, "send: { iproute: [ { op: create, vrf_id: 1, nhgroup_refhdl: \"0x1001\" } ] }"), "");

    CheckSteps zero;
    ASSERT_TRUE(zero.step("send: { testethport: [ { op: create, port_id: 1, hdl: port }, { op: create, port_id: 2, hdl: nh } ] }").empty());
    // every reference of the object that takes the given type, in catalogue order
    EXPECT_NE(reference_finding(zero, "send: { test_if: [ { op: create, key_a: 1, ax_obj_testax_refhdl: port } ] }")
                  .find("did you mean testethport_refhdl, eth_obj_testethport_refhdl or backup_eth_obj_testethport_refhdl?"),
              std::string::npos);
    // the latest record to store a name decides its type
    ASSERT_TRUE(zero.step("send: { test_nh: [ { op: create, nh_id: 1, hdl: nh } ] }").empty());
    EXPECT_NE(reference_finding(zero, "send: { test_if: [ { op: create, key_a: 2, testethport_refhdl: nh } ] }")
                  .find("nh is the handle of an object of type test_nh (stored with hdl: at line 1), and test_if has no reference that takes one"),
              std::string::npos);
    EXPECT_NE(reference_finding(zero, "send: { test_nh: [ { op: create, nh_id: 2, test_if_refhdl: port } ] }")
                  .find("port is the handle of an object of type testethport (stored with hdl: at line 1), and test_nh has no reference that takes one"),
              std::string::npos);

    // an element's references are the ones suggested for an element: nhgroup takes an nhgroup at top
    // level only
    ASSERT_TRUE(zero.step("send: { nhgroup: [ { op: create, nhgroup_id: 1, hdl: g } ] }").empty());
    EXPECT_NE(reference_finding(zero, "send: { nhgroup: [ { op: create, nhgroup_id: 2, members: [ { next_obj_lspnh_refhdl: g } ] } ] }")
                  .find("nhgroup's members have no reference that takes one"),
              std::string::npos);
}

TEST(StepCheck, AHandleOfAnInactiveTypeIsFoundWhereAReferenceReadsIt) {
    CheckSteps one(1);
    // the create runs nothing, so nothing is stored under g
    EXPECT_EQ(one.step("send: { nhgroup: [ { op: create, nhgroup_id: 1, hdl: g } ] }").size(), 1u);
    EXPECT_NE(reference_finding(one, "send: { iproute: [ { op: create, vrf_id: 1, nhgroup_refhdl: g } ] }").find("that record ran nothing"),
              std::string::npos);
    // a batch queues it all the same: the handle is stored, of a type the flag leaves inactive
    ASSERT_TRUE(one.step("send: { batch_crud: [ { batch_params: {} }, { nhgroup: [ { op: create, nhgroup_id: 2, hdl: q } ] } ] }").empty());
    EXPECT_NE(reference_finding(one, "send: { iproute: [ { op: create, vrf_id: 1, nhgroup_refhdl: q } ] }")
                  .find("q is the handle of an object of type nhgroup (stored with hdl: at line 1), and nhgroup is inactive while object_set is 1"),
              std::string::npos);
    // a name stored by a record that ran is followed as such, whatever an inactive record says later
    ASSERT_TRUE(one.step("send: { ipnhgroup: [ { op: create, nhgroup_id: 3, hdl: r } ] }").empty());
    EXPECT_EQ(one.step("send: { nhgroup: [ { op: create, nhgroup_id: 3, hdl: r } ] }").size(), 1u);
    EXPECT_EQ(reference_finding(one, "send: { iproute: [ { op: create, vrf_id: 1, next_obj_ipnhgroup_refhdl: r } ] }"), "");
}

TEST(StepCheck, ADumpForAnotherRouterTypeDoesNothing) {
    CheckSteps r16, r8(0, 8);
    EXPECT_TRUE(r16.step("dump: { test_if: [ { op: get, key_a: 1, router: 16 } ] }").empty());
    EXPECT_TRUE(r8.step("dump: { test_if: [ { op: get, key_a: 1, router: 8 } ] }").empty());
    auto other = r16.step("dump: { test_if: [ { op: get, key_a: 1, router: 8 } ] }");
    ASSERT_EQ(other.size(), 1u) << texts(other);
    EXPECT_NE(other[0].message.find("only for router type 8, and this file's router_type is 16"), std::string::npos);
    // some types dump only for router type 16, whatever the record says
    EXPECT_EQ(r8.step("dump: { meterprofile: [ { op: get } ] }").size(), 1u);
    EXPECT_TRUE(r16.step("dump: { meterprofile: [ { op: get } ] }").empty());
    // a later record's router plays no part
    EXPECT_TRUE(r16.step("dump: { test_if: [ { op: get, key_a: 1 }, { op: get, key_a: 2, router: 8 } ] }").empty());
}

TEST(StepCheck, AnInjectionForAnOperationThatNeverComesIsFound) {
    CheckSteps c;
    pc::yaml::LoadError error;
    auto arm = [&](const char *op) {
        c.check.arm("inject", pc::yaml::load_string(op, "t.yaml", c.arena, error));
        return c.check.take().size();
    };
    EXPECT_EQ(arm("\"test_if create\""), 0u);
    EXPECT_EQ(arm("\"ipacl eod\""), 0u);
    EXPECT_EQ(arm("\"ipnh create\""), 1u);
    EXPECT_EQ(arm("\"test_if eod\""), 1u);
}

// What a message lists as a type's ops is what its send runs, in either mode, for every type.
TEST(StepCheck, TheOpsListedForATypeAreTheOnesItsSendRuns) {
    size_t with_eod = 0;
    for (size_t i = 0; i < pc::engine::kTypeCount; ++i) {
        const pc::engine::TypeDesc &type = *pc::engine::kTypes[i];
        std::vector<std::string_view> ops = pc::runner::ops_of(type);
        with_eod += std::find(ops.begin(), ops.end(), "eod") != ops.end();
        for (std::string_view op : ops)
            for (int32_t mode : {1, 0})
                EXPECT_EQ(pc::runner::op_problem(type, std::string(op).c_str(), 0, mode), "") << type.name << " " << op;
    }
    EXPECT_EQ(with_eod, 14u); // the end-of-data types
}

TEST(StepCheck, OpsAreThoseABranchOfTheTypeHandles) {
    CheckSteps c;
    for (const char *op : {"create", "update", "delete", "get", "get_first", "get_next", "get_gt_eq", "walk_by_key"})
        EXPECT_TRUE(c.step(std::string("send: { test_if: [ { op: ") + op + ", key_a: 1 } ] }").empty()) << op;
    EXPECT_TRUE(c.step("send: { ipacl: [ { op: eod } ] }").empty());
    EXPECT_TRUE(c.step("send: { test_if: [ { op: replay_start } ] }").empty());
    for (const char *op : {"getx", "Create", "eod", "\"\""})
        EXPECT_EQ(c.step(std::string("send: { test_if: [ { op: ") + op + ", key_a: 1 } ] }").size(), 1u) << op;
    EXPECT_EQ(c.step("send: { test_if: [ { op: 5 } ] }").size(), 1u);
    // replay_end after the first record does nothing; and after a first replay nothing else runs, said once
    EXPECT_EQ(c.step("send: { test_if: [ { op: get, key_a: 1 }, { op: replay_end } ] }").size(), 1u);
    auto replay = c.step("send: { test_if: [ { op: replay }, { op: creat }, { op: create } ] }");
    ASSERT_EQ(replay.size(), 1u) << texts(replay);
    EXPECT_NE(replay[0].message.find("never run"), std::string::npos);
}

TEST(StepCheck, BatchesAreCheckedAsTheBatchLayerQueuesThem) {
    CheckSteps c;
    EXPECT_TRUE(c.step("send: { batch_crud: [ { batch_params: {} } ] }").empty()); // nothing queued is fine
    EXPECT_TRUE(c.step("send: { batch_crud: [ { batch_params: { batch_rc_expect: DONT_CARE } }, { ipacl: [ { op: eod } ] } ] }").empty());
    // only the first record of an element is queued: the second is said once, and not checked
    auto extra = c.step("send: { batch_crud: [ { batch_params: {} }, { test_if: [ { op: create, key_a: 1 }, { op: creat } ] } ] }");
    ASSERT_EQ(extra.size(), 1u) << texts(extra);
    EXPECT_NE(extra[0].message.find("first record only"), std::string::npos);
    // a record without op is refused by the batch list, which ends the process
    auto no_op = c.step("send: { batch_crud: [ { batch_params: {} }, { test_if: [ { key_a: 1 } ] } ] }");
    ASSERT_EQ(no_op.size(), 1u) << texts(no_op);
    EXPECT_NE(no_op[0].message.find("the batch refuses a record without op"), std::string::npos);
    auto params = c.step("send: { batch_crud: [ { batch_params: { batch_rc: 0, continue_on_error: maybe } } ] }");
    EXPECT_EQ(params.size(), 2u) << texts(params);
    // the special keys come before any type, whatever the order of the keys
    auto both = c.step("send: { test_if: [ { op: creat } ], batch_crud: [ { batch_params: {} } ] }");
    ASSERT_EQ(both.size(), 1u) << texts(both);
    EXPECT_NE(both[0].message.find("'test_if' is passed over: the step goes to batch_crud"), std::string::npos);
}

TEST(StepCheck, ShapesTheLibraryPassesOverWithoutAWordAreFound) {
    CheckSteps c;
    EXPECT_TRUE(c.step("send: { nhgroup: [ { op: create, nhgroup_id: 1, members: [ {}, { forward_class: 2 } ] } ] }").empty());
    for (const char *shape : {"send: { test_if: [] }", "send: { test_if: [ { op: create, key_a: 1, members: 5 } ] }",
                              "send: { nhgroup: [ { op: create, nhgroup_id: 1, members: [ 1 ] } ] }",
                              "send: { batch_crud: [ { batch_params: 5 } ] }",
                              "send: { batch_crud: [ { batch_params: {} }, { test_if: [] } ] }",
                              "send: { test_if: [ { op: delete, key_a: 1, hdl: { a: 1 } } ] }",
                              "send: { test_if: [ { op: create, key_a: 1, testethport_refhdl: [ x ] } ] }"}) {
        auto found = c.step(shape);
        EXPECT_EQ(found.size(), 1u) << shape << "\n" << texts(found);
    }
}

TEST(StepCheck, EnumNumbersOutsideTheirValuesAreWarningsOnly) {
    CheckSteps c;
    EXPECT_TRUE(c.step("send: { bfdoff: [ { op: create, local_disc: 1, local_state: up } ] }").empty());
    EXPECT_TRUE(c.step("send: { bfdoff: [ { op: create, local_disc: 1, local_state: 3 } ] }").empty());
    auto out = c.step("send: { bfdoff: [ { op: create, local_disc: 1, local_state: \"0x10\" } ] }");
    ASSERT_EQ(out.size(), 1u) << texts(out);
    EXPECT_TRUE(out[0].warning);
    EXPECT_NE(out[0].message.find("16 is not a value of dpa_bfdoff_local_state_en"), std::string::npos);
    // a name the enum does not have is refused by the converter: an error, not a warning
    auto name = c.step("send: { bfdoff: [ { op: create, local_disc: 1, local_state: sideways } ] }");
    ASSERT_EQ(name.size(), 1u);
    EXPECT_FALSE(name[0].warning);
    // NOT_SET asks for an absent attribute; it is no value to convert
    EXPECT_TRUE(c.step("send: { bfdoff: [ { op: get, local_disc: 1, local_state: NOT_SET } ] }").empty());
}

TEST(StepCheck, TheSdkSideAndDumpsAreCheckedForTablesShapesAndValues) {
    CheckSteps c;
    EXPECT_TRUE(c.step("send: { test_if: [ { op: get, key_a: 1 } ] }\nsdk: { test_if: [ { op: get, attr_a1: 5, rc: 0 } ] }").empty());
    auto sdk = c.step("send: { test_if: [ { op: get, key_a: 1 } ] }\nsdk: { test_if: { op: get } }");
    ASSERT_EQ(sdk.size(), 1u) << texts(sdk);
    EXPECT_EQ(sdk[0].line, 2u);
    auto dump = c.step("dump: { test_if: [ { op: get, key_a: one } ], test_nh: [] }");
    EXPECT_EQ(dump.size(), 2u) << texts(dump); // a refused key value and the table passed over
    auto empty = c.step("dump: {}");
    ASSERT_EQ(empty.size(), 1u);
    EXPECT_NE(empty[0].message.find("unknown table (the mapping is empty)"), std::string::npos);
}

} // namespace
