#include "common.hpp"

namespace pc::engine {

void report_unknown_table(PROCESS *context, const JSON_Object *record) {
    const char *name = json_object_get_name(record, 0);
    // a record with no member names "(null)", as printf writes a null text
    pc_finding f = support::message(pc_finding::Kind::log, pc_finding::Text::unknown_table);
    f.attribute = name ? name : "(null)";
    support::report_finding(context, std::move(f));
}

const char *op_text(uint8_t code) { return code <= vocabulary::kMaxOpCode ? vocabulary::kOpByCode[code] : ""; }

uint8_t op_code(const TypeDesc &type, const char *op) {
    const vocabulary::Op *found = vocabulary::find_op(op);
    if (!found || (found->has(vocabulary::kFlagNeedsEod) && !type.eod)) return 0;
    return found->code;
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
