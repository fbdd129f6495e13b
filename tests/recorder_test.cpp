// The recorder record format, byte for byte.
#include "files.hpp"
#include "harness.hpp"

#include <cerrno>
#include <fstream>

namespace {

using pc::test::Harness;
using pc::test::mask_timestamps;

// Compares with tests/golden/NAME.rec; PC_UPDATE_GOLDEN=1 writes the file instead (review the diff).
void expect_golden(const std::string &name, const std::string &actual) {
    std::string path = std::string(PC_GOLDEN_DIR) + "/" + name + ".rec";
    std::string masked = mask_timestamps(actual);
    if (std::getenv("PC_UPDATE_GOLDEN")) {
        std::ofstream(path) << masked;
        return;
    }
    std::string expected = pc::test::read_file(path);
    ASSERT_FALSE(expected.empty()) << "missing " << path;
    EXPECT_EQ(masked, expected) << name;
}

void run(Harness &h, const std::string &steps) {
    const JSON_Array *list = json_value_get_array(h.json(steps));
    for (size_t i = 0; i < json_array_get_count(list); ++i) json_send_object_client(json_array_get_value(list, i), h.ctx());
}

TEST(RecorderGolden, TestInterface) {
    Harness h;
    json_set_hdl(h.ctx(), "eth7", 0x7007);
    simplane::arm_npu_results("test_if delete", {0, 3}, 1);
    run(h, R"([
      {test_if: [ {op: create, key_a: 1, attr_a1: 5, rdesc_ref_cnt: 2, perf_test_enabled: true, ipc_time: 99,
                   rdesc_id_test1: {pool: 1, index: 2}, testethport_refhdl: eth7, testethport_refkey: {port_id: 7},
                   eth_obj_testethport_refhdl: eth7, ax_obj_testax_refkey: {ax_id: 3}, members: [{npu_op_count: 11}],
                   npu_mask: 0x3, create_option: 1} ]},
      {test_if: [ {op: update, key_a: 1, attr_a2: 6, retry_mode: true} ]},
      {test_if: [ {op: get, key_a: 1}, {op: get_next, key_a: 0} ]},
      {test_if: [ {op: walk_by_key, key_a: 1, depth: 1} ]},
      {test_if: [ {op: replay_start} ]},
      {test_if: [ {op: delete, key_a: 1}, {op: delete, key_a: 1, rc: ENOENT} ]}
    ])");
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log();
    expect_golden("test_if", h.recorder);
}

TEST(RecorderGolden, NextHopGroupWithMembersAndRoleReferences) {
    Harness h;
    run(h, R"([
      {lspnh: [ {op: create, lsp_id: 4, hdl: lsp4} ]},
      {nhgroup: [ {op: create, nhgroup_id: 7, fec_id: 0x2001, is_drop: false, pbts_tcminfo: {fc: 2},
                   next_obj_lspnh_refhdl: lsp4, failover_protectnh_refkey: {protect_id: 9},
                   members: [ {is_protected: true, forward_class: 1, next_obj_lspnh_refhdl: lsp4},
                              {forward_class: 2, backup_next_obj_exceptionnh_refkey: {ifhandle: 5, proto: 1}},
                              {},
                              {forward_class: 4} ]} ]},
      {nhgroup: [ {op: get, nhgroup_id: 7, num_paths: 2} ]}
    ])");
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log();
    expect_golden("nhgroup", h.recorder);
}

TEST(RecorderGolden, PortStatisticsRecordNoUpdatesOrGets) {
    Harness h;
    h.context.process.object_set = 1;
    run(h, R"([ {l1portstats: [ {op: create, l1_ifh: 0x10, fec_corrected: 5}, {op: update, fec_corrected: 6},
                                {op: get}, {op: delete} ]} ])");
    expect_golden("l1portstats", h.recorder);
}

TEST(RecorderGolden, ProtectionNextHopPlaceholderHandle) {
    Harness h;
    run(h, R"([ {nhprotect: [ {op: create, protect_id: 1}, {op: create, protect_id: 1, rc: EEXIST} ]} ])");
    expect_golden("nhprotect", h.recorder);
}

TEST(RecorderGolden, EndOfDataType) {
    Harness h;
    simplane::arm_injection("ipacl eod", 0x20c, 1);
    run(h, R"([ {ipacl: [ {op: create, acl_id: 3}, {op: eod, rc: ENOMEM}, {op: eod, rc: 0} ]} ])");
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log();
    expect_golden("ipacl", h.recorder);
}

struct Built {
    ofa_client_obj_base_t obj = dpa_test_if_ctor();
    dpa_inst_hdr_t &inst = *ofa_test_if_inst_from_batch(obj, 0);
    ~Built() { dpa_test_if_dtor(obj); }
};

std::string body(const std::string &record) { // the lines between the entry's braces, without the time stamp
    std::string masked = mask_timestamps(record);
    size_t from = masked.find("      {\n") + 8, to = masked.find("      \"recorder_timestamp\"");
    return masked.substr(from, to - from);
}

// What a flush at an early end of the process writes: the records composed so far, never the one
// still being composed; a normal close writes everything, and a write error is told.
TEST(RecorderFile, AFlushWritesWholeRecordsOnly) {
    std::string path = testing::TempDir() + "whole_records.rec";
    ASSERT_TRUE(pc::recorder::open_file(path));
    recorder_log("{\n");
    recorder_log(" \"send_object\": %d\n", 1);
    recorder_log("},\n");
    recorder_log("{\n");
    recorder_log(" \"send_object\": %d\n", 2);
    ASSERT_TRUE(pc::recorder::flush());
    EXPECT_EQ(pc::test::read_file(path), "{\n \"send_object\": 1\n},\n");
    recorder_log("},\n");
    ASSERT_TRUE(pc::recorder::close());
    EXPECT_EQ(pc::test::read_file(path), "{\n \"send_object\": 1\n},\n{\n \"send_object\": 2\n},\n");
    std::remove(path.c_str());

    ASSERT_TRUE(pc::recorder::open_file("/dev/full"));
    recorder_log("{\n");
    recorder_log("},\n");
    EXPECT_FALSE(pc::recorder::close());
    EXPECT_EQ(errno, ENOSPC);
}

TEST(Recorder, NullObjectsAndTheOffSwitchWriteNothing) {
    Harness h;
    Built b;
    EXPECT_EQ(recorder_test_if_dump(h.ctx(), "send_object", "create", nullptr, 0), -1);
    h.context.process.recorder_off = 1;
    EXPECT_EQ(recorder_test_if_dump(h.ctx(), "send_object", "create", b.obj, 0), 0);
    EXPECT_EQ(recorder_test_if_dump_replay(h.ctx(), "send_object", "replay", 0), 0);
    EXPECT_TRUE(h.recorder.empty());
    EXPECT_EQ(recorder_test_if_dump(nullptr, "receive_call", "get", b.obj, 0), 0); // a null context records
    EXPECT_FALSE(h.recorder.empty());
}

TEST(Recorder, EveryInstanceRepeatsTheObjectsValuesWithItsOwnControls) {
    Harness h;
    // two instances side by side, as a batch object holds them
    ofa_client_obj_base_t one = dpa_testethport_ctor();
    size_t size = one->inst_size;
    auto *two = static_cast<ofa_client_obj_base_s *>(std::calloc(1, sizeof(ofa_client_obj_base_s) + 2 * size));
    *two = *one;
    two->data = two + 1;
    two->inst_count = 2;
    std::memcpy(two->data, one->data, size);
    std::memcpy(static_cast<char *>(two->data) + size, one->data, size);
    two->cur_inst = 1;
    dpa_testethport_set_port_id(two, 5); // written into instance 1, the current one
    ofa_testethport_inst_from_batch(two, 0)->npu_id = 3;
    ofa_testethport_inst_from_batch(two, 1)->npu_id = 4;
    recorder_testethport_dump(h.ctx(), "send_object", "create", two, 0);
    std::string text = mask_timestamps(h.recorder);
    EXPECT_NE(text.find("      \"npu_id\": 3,\n      \"port_id\": 5,"), std::string::npos) << text;
    EXPECT_NE(text.find("      \"npu_id\": 4,\n      \"port_id\": 5,"), std::string::npos) << text;
    EXPECT_NE(text.find("      }\n      {\n"), std::string::npos); // entries follow each other without a comma
    EXPECT_EQ(two->cur_inst, 1u); // put back as it was
    std::free(two);
    dpa_testethport_dtor(one);
}

TEST(Recorder, NoInstancesLeaveOnlyTheFrame) {
    Harness h;
    Built b;
    b.obj->inst_count = 0;
    recorder_test_if_dump(h.ctx(), "send_object", "create", b.obj, 0);
    b.obj->inst_count = 1;
    EXPECT_EQ(h.recorder, "{\n \"send_object\": {\n    \"test_if\": [\n    ]\n  }\n},\n");
}

TEST(Recorder, ControlLinesFollowTheOperation) {
    Harness h;
    Built b;
    b.inst.flags |= DPA_FLAG_RETRY_MODE;
    b.inst.option = 3;
    recorder_test_if_dump(h.ctx(), "send_object", "update", b.obj, 0x200);
    EXPECT_EQ(body(h.recorder), "      \"retry_mode\": true,\n      \"update_option\": 3,\n      \"retry_mode\": 1,\n");
    h.recorder.clear();
    b.inst.flags = 0;
    b.inst.get_state = "{\"n\": \"up\"}";
    b.inst.npu_result[1] = 5;
    b.inst.npu_result[3] = 7;
    dpa_test_if_set_hdl(b.obj, 0x1a2b);
    recorder_test_if_dump(h.ctx(), "send_object", "get_anything", b.obj, 0x20c);
    EXPECT_EQ(body(h.recorder), "      \"get_option\": 2,\n      \"npd_state\": {\"n\": \"up\"},\n"
                                "      \"hdl\": \"handle 0x1a2b\",\n      \"err\": 12,\n      \"npu_result\": [ 5,7 ],\n");
}

TEST(Recorder, ReplayRecordsCarryOnlyStatusTimeAndOp) {
    Harness h;
    recorder_test_if_dump_replay(h.ctx(), "send_object", "replay", 0x20c);
    EXPECT_EQ(mask_timestamps(h.recorder),
              "{\n \"send_object\": {\n    \"test_if\": [\n      {\n      \"err\": 12,\n      \"recorder_timestamp\": {\n"
              "        \"tv_sec\": S,\n        \"tv_nsec\": N\n      },\n      \"op\": \"replay\"\n      }\n    ]\n  }\n},\n");
}

} // namespace
