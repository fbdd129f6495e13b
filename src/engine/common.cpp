#include "common.hpp"

namespace pc::engine {

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
