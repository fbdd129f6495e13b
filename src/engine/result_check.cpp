// After each operation: per-NPU results, the status, the returned handle, the recorder record,
// and the re-issue of a create or update that met an injected error.
#include "common.hpp"
#include "engine.hpp"
#include "planecheck/dpa_api.h"
#include "planecheck/platform_api.h"

#include <cstdio>
#include <string>

namespace pc::engine {
namespace {

void report_npu_result(const TypeDesc &type, PROCESS *context, const char *op, uint32_t npu, uint32_t received,
                       uint32_t expected) {
    pc_finding f = support::mismatch(pc_finding::Text::npu_result, vocabulary::kFieldNpuResult, std::to_string(expected), std::to_string(received));
    f.type = type.name, f.op = op ? op : "", f.element = int32_t(npu);
    support::report_finding(context, std::move(f), support::Count::after_line);
}

void check_npu_results(const TypeDesc &type, PROCESS *context, Obj obj, const JSON_Object *record, const char *op) {
    const JSON_Array *expected = json_value_get_array(json_object_get_value(record, vocabulary::kFieldNpuResult));
    for (size_t i = 0; expected && i < json_array_get_count(expected); ++i) {
        uint32_t r = type.ops->get_npu_result(obj, uint32_t(i));
        uint32_t e = uint32_t(json_value_get_constant(json_array_get_value(expected, i)));
        if (r != e)
            report_npu_result(type, context, op, uint32_t(i), r, e);
    }
}

void name_handle(const TypeDesc &type, PROCESS *context, Obj obj, const JSON_Object *record) {
    uint64_t handle = type.ops->get_hdl(obj);
    if (context->verbose) _proxy_log(context, 0, "Returned obj_handle %p\n", reinterpret_cast<void *>(handle));
    if (json_object_get_value(record, vocabulary::kFieldHdl)) json_set_hdl(context, string_member(record, vocabulary::kFieldHdl), handle);
}

// Re-issues the record while the operation keeps meeting an injected error; no bound, as the
// interface defines it: only the data plane ends the loop.
int32_t retry_injected(const TypeDesc &type, PROCESS *context, JSON_Object *record, const char *op, int32_t received,
                       int32_t expected) {
    if (status_class(expected) == kInjectedClass || status_class(received) != kInjectedClass) return received;
    char text[256];
    std::snprintf(text, sizeof text, "%s %s", type.name, op);
    do {
        dpa_error_inject_start(text);
        received = send_retry(type, record, context);
    } while (status_class(received) == kInjectedClass);
    dpa_error_inject_end(text);
    return received;
}

bool judge(const TypeDesc &type, PROCESS *context, const char *op, int32_t received, int32_t expected) {
    if (status_matches(received, expected)) {
        if (context->verbose) _proxy_log(context, 0, "dpa_%s_%s is SUCCESS\n", type.name, op);
        return true;
    }
    pc_finding f = support::status_mismatch(pc_finding::Text::status, "rc", expected, received);
    f.type = type.name, f.op = op;
    support::report_finding(context, std::move(f));
    return false;
}

void record(const TypeDesc &type, PROCESS *context, const char *op, Obj obj, int32_t status) {
    recorder_dump(type, context, "send_object", op, obj, status);
}

} // namespace

void check_result(const TypeDesc &type, PROCESS *context, Obj obj, int32_t received, int32_t expected,
                  JSON_Object *rec, JSON_Value *op_value) {
    const char *op = json_value_get_string(op_value);
    check_npu_results(type, context, obj, rec, op);
    uint8_t code = op_code(type, op);
    bool quiet = type.has(kNoRecorderUpdateGet); // this type records creates and deletes only
    switch (code) {
    case DPA_OP_CREATE:
        record(type, context, op, obj, received);
        name_handle(type, context, obj, rec); // named even when the create failed
        received = retry_injected(type, context, rec, op, received, expected);
        if (judge(type, context, op, received, expected)) {
            uint32_t trans_id = 0;
            if (JSON_Value *t = json_object_get_value(rec, vocabulary::kFieldTransId)) json_convert_uint(context, &trans_id, t, vocabulary::kFieldTransId);
            type.ops->print_self(obj, dpa_print_opts_t{1, trans_id}, 0);
        }
        return;
    case DPA_OP_UPDATE:
        if (!quiet) record(type, context, op, obj, received);
        received = retry_injected(type, context, rec, op, received, expected);
        judge(type, context, op, received, expected);
        return;
    case DPA_OP_GET: case DPA_OP_GET_NEXT: case DPA_OP_GET_FIRST: case DPA_OP_GET_GT_EQ:
        if (!quiet) record(type, context, op, obj, received);
        name_handle(type, context, obj, rec);
        judge(type, context, op, received, expected);
        return;
    case DPA_OP_DELETE: case DPA_OP_EOD:
        record(type, context, op, obj, received);
        judge(type, context, op, received, expected);
        return;
    default: return; // walks, unknown ops and "eod" of types without it check only NPU results
    }
}

int32_t send_retry(const TypeDesc &type, JSON_Object *record, PROCESS *context) {
    Obj obj = construct(type, record, type.has(kSendCountsMembersOnly));
    set_attributes(type, record, context, obj);
    const char *op = string_member(record, vocabulary::kFieldOp);
    int32_t status = 0;
    if (is(op, vocabulary::kOpCreate)) {
        if (context->verbose) _proxy_log(context, 0, "Calling dpa_%s_create \n", type.name);
        status = perform(type, context, obj, DPA_OP_CREATE);
        recorder_dump(type, context, "send_object", "create", obj, status);
        if (status == 0) name_handle(type, context, obj, record);
    }
    if (is(op, vocabulary::kOpUpdate)) {
        if (context->verbose) _proxy_log(context, 0, "Calling dpa_%s_update \n", type.name);
        status = perform(type, context, obj, DPA_OP_UPDATE);
        if (!type.has(kNoRecorderUpdateGet)) recorder_dump(type, context, "send_object", "update", obj, status);
    }
    type.ops->dtor(obj);
    return status;
}

} // namespace pc::engine
