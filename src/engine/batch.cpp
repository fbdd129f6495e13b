// "batch_crud" steps: records of many types queued into one batch list, sent with one call, and
// every queued entry checked against the element it came from.
#include "common.hpp"
#include "engine.hpp"
#include "planecheck/dpa_api.h"
#include "planecheck/planecheck.h"
#include "planecheck/platform_api.h"

#include <string>

// The C library's assertion-failure routine: declared here because release builds (NDEBUG) hide it.
extern "C" void __assert_fail(const char *assertion, const char *file, unsigned int line, const char *function) noexcept
    __attribute__((__noreturn__));

namespace pc::engine {
namespace {

// A broken invariant of the batch layer ends the process through the C library's assertion
// report, naming the unit and function the interface defines for it: deliberate, not a mismatch.
[[noreturn]] void broken(const char *expression, const std::string &unit, unsigned line, const std::string &function) {
    __assert_fail(expression, unit.c_str(), line, function.c_str());
}

std::string unit_of(const TypeDesc &type) { return std::string("dpa_json_") + type.name + "_client"; }

const char *const kCommonUnit = "ofa_json_client_common";
const char *const kSendSignature = "int json_batch_crud_send(JSON_Value *, PROCESS *)";

void enqueue_element(ofa_batch_list_t list, const JSON_Object *element, PROCESS *context) {
    JSON_Value *value = nullptr;
    if (const TypeDesc *type = first_type(element, value)) batch_enqueue(*type, list, value, context);
}

void validate_element(Obj entry, const JSON_Object *element, PROCESS *context) { // the twin of enqueue_element
    JSON_Value *value = nullptr;
    if (const TypeDesc *type = first_type(element, value)) validate_object(*type, entry, value, context);
}

void read_parameters(const JSON_Value *first, PROCESS *context, int32_t &expected, uint8_t &continue_on_error) {
    JSON_Value *batch_params = json_object_get_value(json_value_get_object(first), "batch_params");
    const JSON_Object *params = json_value_get_object(batch_params);
    if (!batch_params) {
        const char *first_key = json_object_get_name(json_value_get_object(first), 0);
        pc_finding f = support::mismatch(pc_finding::Text::batch_params, "batch_params", "batch_params", first_key ? first_key : "nothing");
        f.op = "batch_crud";
        support::report_finding(context, std::move(f));
        return;
    }
    if (JSON_Value *rc = json_object_get_value(params, "batch_rc_expect")) json_convert_rc(context, &expected, rc, vocabulary::kFieldRc);
    if (JSON_Value *flag = json_object_get_value(params, "continue_on_error"))
        json_convert_bool(context, &continue_on_error, flag, "continue_on_error");
}

void check_send(PROCESS *context, int32_t received, int32_t expected) {
    if (expected != kDontCare && status_class(received ^ expected)) {
        pc_finding f = support::status_mismatch(pc_finding::Text::batch_status, "batch_rc_expect", expected, received);
        f.op = "batch_crud";
        support::report_finding(context, std::move(f));
    } else if (context->verbose) {
        _proxy_log(context, 0, "ofa_batch_list_send is SUCCESS\n");
    }
}

} // namespace

int batch_enqueue(const TypeDesc &type, ofa_batch_list_t list, JSON_Value *value, PROCESS *context) {
    if (!value) return 0;
    // only the first record: a batch element queues exactly one operation
    JSON_Object *record = json_value_get_object(json_array_get_value(json_value_get_array(value), 0));
    Obj obj = construct(type, record, false);
    set_attributes(type, record, context, obj);
    uint8_t op = uint8_t(json_get_op_from_rec(record));
    if (type.ops->batch_enq(list, obj, op) != 0)
        broken("rc == EOK", unit_of(type), __LINE__,
               std::string("int json_batch_crud_enq_") + type.name + "(ofa_batch_list_t, JSON_Value *, PROCESS *)");
    return 0; // the list owns the object from here on
}

int32_t validate_object(const TypeDesc &type, Obj entry, JSON_Value *value, PROCESS *context) {
    if (!value) return 0;
    Obj obj = type.ops->obj_from_base(entry, value, context);
    uint8_t ran = ofa_client_base_get_table_op(entry);
    int32_t received = ofa_client_base_get_rc(entry), expected = 0;
    JSON_Object *record = json_value_get_object(json_array_get_value(json_value_get_array(value), 0));
    JSON_Value *op = json_object_get_value(record, vocabulary::kFieldOp);
    if (ran != uint8_t(json_get_op_from_rec(record)))
        broken("obj_table_op == json_table_op", unit_of(type), __LINE__,
               std::string("int32_t json_validate_object_") + type.name + "(ofa_client_obj_base_t, JSON_Value *, PROCESS *)");
    if (JSON_Value *rc = json_object_get_value(record, vocabulary::kFieldRc)) json_convert_rc(context, &expected, rc, vocabulary::kFieldRc);
    uint8_t did_not_run = ofa_client_base_get_did_not_run(entry), expect_did_not_run = 0;
    if (JSON_Value *flag = json_object_get_value(record, vocabulary::kFieldExpectDidNotRun)) {
        json_convert_bool(context, &expect_did_not_run, flag, vocabulary::kFieldExpectDidNotRun);
        if (did_not_run != expect_did_not_run) {
            pc_finding f = support::mismatch(pc_finding::Text::did_not_run, "expect_did_not_run", std::to_string(expect_did_not_run),
                                             std::to_string(did_not_run));
            f.type = type.name, f.op = json_value_get_string(op) ? json_value_get_string(op) : "";
            support::report_finding(context, std::move(f));
        }
    }
    if (!did_not_run) note_ran(type, context, record, true, received, expected);
    check_result(type, context, obj, received, expected, record, op);
    if (received != 0) return 0; // all 32 bits: a nonzero status of class 0 skips the comparison too
    if (starts_with_get(json_value_get_string(op))) cmp_attributes(type, record, context, obj);
    return 0;
}

} // namespace pc::engine

extern "C" int json_batch_crud_send(JSON_Value *value, PROCESS *context) {
    using namespace pc::engine;
    const JSON_Array *elements = json_value_get_array(value);
    if (!elements) return 0;
    ofa_batch_list_t list = ofa_batch_list_ctor();
    size_t count = json_array_get_count(elements);
    int32_t expected = 0;
    uint8_t continue_on_error = 0;
    read_parameters(json_array_get_value(elements, 0), context, expected, continue_on_error);
    // element 0 holds the parameters; an empty batch wraps this to 4294967295 and stops below, as intended
    uint32_t objects = uint32_t(count) - 1;
    for (size_t i = 1; i < count; ++i) enqueue_element(list, json_value_get_object(json_array_get_value(elements, i)), context);
    if (ofa_batch_list_num_entries(list) != objects)
        broken("ofa_batch_list_num_entries(buf) == num_objs", kCommonUnit, __LINE__, kSendSignature);
    ofa_batch_list_set_continue_on_error(list, continue_on_error);
    check_send(context, ofa_batch_list_send(list), expected);
    if (ofa_batch_list_num_entries(list) != objects)
        broken("ofa_batch_list_num_entries(buf) == num_objs", kCommonUnit, __LINE__, kSendSignature);
    Obj entry = ofa_batch_list_iterate(list);
    for (size_t i = 1; i < count; ++i) { // entries and elements pair up by position alone
        validate_element(entry, json_value_get_object(json_array_get_value(elements, i)), context);
        entry = ofa_batch_list_iterate(list);
    }
    if (entry) broken("client_base == NULL", kCommonUnit, __LINE__, kSendSignature);
    ofa_batch_list_dtor_all(list);
    return 0;
}
