#include "common.hpp"

namespace pc::engine {

void report_unknown_table(PROCESS *context, const JSON_Object *record) {
    const char *name = json_object_get_name(record, 0);
    // a record with no member names "(null)", as printf writes a null text
    pc_finding f = support::message(pc_finding::Kind::log, pc_finding::Text::unknown_table);
    f.attribute = name ? name : "(null)";
    support::report_finding(context, std::move(f));
}

const char *op_text(uint8_t code) {
    static const char *const names[] = {"", "create", "delete", "eod", "update", "get", "get_first", "get_gt_eq", "get_next"};
    return code < 9 ? names[code] : "";
}

uint8_t op_code(const TypeDesc &type, const char *op) {
    if (!op) return 0;
    for (uint8_t code = DPA_OP_CREATE; code <= DPA_OP_GET_NEXT; ++code)
        if (std::strcmp(op, op_text(code)) == 0) return code == DPA_OP_EOD && !type.eod ? 0 : code;
    return 0;
}

Obj construct(const TypeDesc &type, const JSON_Object *record, bool members_only) {
    if (!type.sized()) return type.ops->ctor(1);
    uint32_t n = 1;
    if (const JSON_Array *members = json_value_get_array(json_object_get_value(record, "members")))
        n = uint32_t(json_array_get_count(members));
    if (!members_only)
        if (const JSON_Value *count = json_object_get_value(record, type.count_key))
            n = uint32_t(json_value_get_constant(count));
    return type.ops->ctor(n);
}

int32_t perform(const TypeDesc &type, PROCESS *context, Obj obj, uint8_t code) {
    OpFn fn = context->mode == 1 ? type.ops->client[code - 1] : type.ops->server[code - 1];
    return fn(obj);
}

} // namespace pc::engine
