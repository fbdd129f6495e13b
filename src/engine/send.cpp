// Running the operation records of one object type.
#include "common.hpp"
#include "engine.hpp"
#include "record_index.hpp"
#include "planecheck/dpa_api.h"
#include "planecheck/support.h"

#include <string>
#include <unistd.h>

namespace pc::engine {
namespace {

// A first record asking for a replay runs only the replay; its status is recorded, not returned.
bool run_replay(const TypeDesc &type, PROCESS *context, const JSON_Value *first) {
    const JSON_Object *record = json_value_get_object(first);
    const char *op = string_member(record, vocabulary::kFieldOp);
    if (is(op, vocabulary::kOpReplay)) {
        recorder_dump_replay(type, context, "send_object", vocabulary::kOpReplay, type.ops->replay());
    } else if (is(op, vocabulary::kOpReplayStart)) {
        type.ops->replay_start();
        recorder_dump_replay(type, context, "send_object", vocabulary::kOpReplayStart, 0);
    } else if (is(op, vocabulary::kOpReplayEnd)) {
        type.ops->replay_end();
        recorder_dump_replay(type, context, "send_object", vocabulary::kOpReplayEnd, 0);
    } else {
        return false;
    }
    note_ran(type, context, record, false, 0, 0);
    return true;
}

void read_expected(PROCESS *context, JSON_Value *rc, int32_t &expected) {
    expected = 0;
    json_convert_rc(context, &expected, rc, vocabulary::kFieldRc);
}

void walk_by_key(const TypeDesc &type, PROCESS *context, Obj obj, const RecordMembers &record, int32_t last,
                 dpa_walk_opts_t &walk) {
    if (JSON_Value *trans = record.control(Control::TransId)) {
        walk.trans_id = 0;
        json_convert_uint(context, &walk.trans_id, trans, vocabulary::kFieldTransId);
    }
    if (JSON_Value *depth = record.control(Control::Depth)) {
        walk.depth = 0;
        json_convert_uint(context, &walk.depth, depth, vocabulary::kFieldDepth);
    }
    // the recorder spells this op without its second underscore, as the record format has it
    recorder_dump(type, context, "send_object", "walk_bykey", obj, last);
    alignas(8) uint8_t key[kValueBufferMax];
    type.ops->get_key(obj, key);
    type.ops->chain_walk(key, walk);
}

} // namespace

int64_t send(const TypeDesc &type, JSON_Value *value, PROCESS *context) {
    if (!active(type.gate, context)) return 0;
    const JSON_Array *records = json_value_get_array(value);
    if (!records) return 0;
    size_t count = json_array_get_count(records);
    if (json_value_get_object(json_array_get_value(records, 0)) && run_replay(type, context, json_array_get_value(records, 0)))
        return 0;
    if (int32_t(count) <= 0) return 0;
    // carried from record to record on purpose: a record without "rc" is checked against the
    // nearest earlier one that had it, and a walk keeps the depth of an earlier walk
    int32_t last = 0, expected = 0;
    dpa_walk_opts_t walk{};
    for (size_t i = 0; i < count; ++i) {
        JSON_Object *record = json_value_get_object(json_array_get_value(records, i));
        if (!record) continue;
        pc_trace_record(context, json_object_get_wrapping_value(record));
        RecordMembers members(type, record, false);
        JSON_Value *op_value = members.control(Control::Op);
        const char *op = json_value_get_string(op_value);
        if (!op) {
            const JSON_Value *at = json_object_get_wrapping_value(record);
            pc_finding f = support::message(pc_finding::Kind::value_error, pc_finding::Text::type_detail,
                                            "a record needs an \"op\" text; this one is skipped");
            f.type = type.name, f.attribute = "op", f.line = pc_json_line(at), f.column = pc_json_column(at);
            support::report_finding(context, std::move(f));
            continue;
        }
        support::FindingScope scope(context, type.name, op); // what a value error met from here on is about
        Obj obj = construct(type, record, type.has(kSendCountsMembersOnly));
        set_attributes(type, members, context, obj);
        JSON_Value *rc = members.control(Control::Rc);
        if (rc) read_expected(context, rc, expected);
        uint8_t code = op_code(type, op);
        if (code) {
            if (context->verbose) _proxy_log(context, 0, "Calling dpa_%s_%s \n", type.name, op);
            last = perform(type, context, obj, code);
            if (code == DPA_OP_UPDATE && type.has(kWaitAfterUpdate) && context->wait == 1) {
                _proxy_log(context, 1, "WAITING\n");
                usleep(100000);
            }
        } else if (is(op, vocabulary::kOpWalkByKey)) {
            walk_by_key(type, context, obj, members, last, walk);
        }
        if (rc) read_expected(context, rc, expected); // converted again after the operation, deliberately
        if (code || is(op, vocabulary::kOpWalkByKey)) note_ran(type, context, record, code != 0, last, expected);
        check_result(type, context, obj, last, expected, record, op_value);
        if (last == 0 && starts_with_get(op)) cmp_attributes(type, record, members, context, obj);
        type.ops->dtor(obj);
    }
    pc_trace_record(context, nullptr);
    return last;
}

} // namespace pc::engine
