// Filling a freshly built object from one operation record.
#include "common.hpp"
#include "engine.hpp"
#include "planecheck/dpa_api.h"
#include "attributes.hpp"

namespace pc::engine {

void convert(PROCESS *context, uint16_t value_type, void *out, uint32_t width, JSON_Value *value, const char *name) {
    std::memset(out, 0, width);
    kValueTypes[value_type].convert(context, out, value, name);
}

uint32_t key_offset(const TypeDesc &type, uint16_t field) {
    uint32_t offset = 0;
    for (uint16_t k = 0; k < field; ++k) offset += type.attrs[k].width;
    return offset;
}

void set_keys(const TypeDesc &type, const RecordMembers &members, PROCESS *context, Obj obj) {
    alignas(8) uint8_t key[kValueBufferMax] = {};
    bool any = false;
    for (const Member &m : members) {
        if (m.what != Member::Attribute || m.index >= type.key_count) continue;
        const AttrDesc &a = type.attrs[m.index];
        kValueTypes[a.value_type].convert(context, key + key_offset(type, m.index), m.value, a.name);
        any = true;
    }
    if (!any) return;
    type.ops->set_key(obj, key);
    for (const Member &m : members)
        if (m.what == Member::Attribute && m.index < type.key_count)
            type.attrs[m.index].set(obj, 0, key + key_offset(type, m.index));
}

void set_reference(const RoleDesc &role, bool key_form, JSON_Value *value, PROCESS *context, Obj obj, uint32_t index) {
    alignas(8) uint8_t buffer[kValueBufferMax];
    if (key_form) {
        convert(context, role.key_value_type, buffer, role.key_width, value, role.key_name);
        role.set_key(obj, index, buffer);
    } else {
        uint64_t handle = 0;
        json_convert_refhdl(context, &handle, value, role.hdl_name);
        role.set_hdl(obj, index, &handle);
    }
}

void set_members(const TypeDesc &type, const RecordMembers &members, PROCESS *context, Obj obj, uint32_t index,
                 bool element) {
    alignas(8) uint8_t buffer[kValueBufferMax];
    for (const Member &m : members) {
        if (m.what == Member::Role) {
            const RoleDesc &role = type.roles[m.index];
            if (active(role.gate, context)) set_reference(role, m.key_form, m.value, context, obj, index);
            continue;
        }
        const AttrDesc &a = type.attrs[m.index];
        if (a.kind == Kind::Key || a.kind == Kind::ReadOnly || (a.kind == Kind::Element) != element) continue;
        convert(context, a.value_type, buffer, a.width, m.value, a.name);
        a.set(obj, index, buffer);
    }
}

void set_elements(const TypeDesc &type, const JSON_Object *record, PROCESS *context, Obj obj) {
    set_elements_of(type, json_value_get_array(json_object_get_value(record, "members")), context, obj);
}

void set_elements_of(const TypeDesc &type, const JSON_Array *list, PROCESS *context, Obj obj) {
    for (size_t i = 0; list && i < json_array_get_count(list); ++i) {
        const JSON_Object *element = json_value_get_object(json_array_get_value(list, i));
        if (!element) continue; // a non-object element keeps its index slot
        RecordMembers members(type, element, true);
        set_members(type, members, context, obj, uint32_t(i), true);
    }
}

int set_attributes(const TypeDesc &type, JSON_Object *record, PROCESS *context, Obj obj) {
    return set_attributes(type, RecordMembers(type, record, false), context, obj);
}

int set_attributes(const TypeDesc &type, const RecordMembers &members, PROCESS *context, Obj obj) {
    context->received_obj = nullptr;
    const char *op = json_value_get_string(members.control(Control::Op));
    if (!op) return 0;
    const TypeOps &ops = *type.ops;
    if (!is(op, vocabulary::kOpEod)) {
        set_keys(type, members, context, obj);
        if (JSON_Value *mask = members.control(Control::NpuMask); mask && ops.set_npu_mask) {
            uint32_t value = 0;
            json_convert_32hex(context, &value, mask, vocabulary::kFieldNpuMask);
            ops.set_npu_mask(obj, value);
        }
    }
    JSON_Value *retry = members.control(Control::RetryMode);
    if (retry) {
        int32_t value = 0;
        json_convert_int(context, &value, retry, vocabulary::kFieldRetryMode);
        ops.set_retry_mode(obj, uint8_t(value));
    }
    if (!is(op, vocabulary::kOpCreate)) {
        if (JSON_Value *hdl = members.control(Control::Hdl)) {
            uint64_t value = 0;
            json_convert_ulong(context, &value, hdl, vocabulary::kFieldHdl);
            if (value) ops.set_hdl(obj, value);
        }
    } else if (JSON_Value *option = members.control(Control::CreateOption)) {
        int32_t value = 0;
        json_convert_int(context, &value, option, vocabulary::kFieldCreateOption);
        ops.set_create_opt(obj, uint8_t(value));
    }
    if (starts_with_get(op))
        if (JSON_Value *option = members.control(Control::GetOption)) {
            int32_t value = 0;
            json_convert_int(context, &value, option, "update_option"); // the get option is named so on purpose
            ops.set_getopt(obj, uint8_t(value));
        }
    if (std::strncmp(op, "update", 6) == 0 && retry) {
        uint8_t value = 0;
        json_convert_bool(context, &value, retry, vocabulary::kFieldRetryMode); // the boolean reading stands on update
        ops.set_retry_mode(obj, value);
    }
    if (!is(op, vocabulary::kOpCreate) && !is(op, vocabulary::kOpDelete) && !is(op, vocabulary::kOpUpdate)) return 0;
    set_members(type, members, context, obj, 0, false);
    set_elements_of(type, json_value_get_array(members.control(Control::Members)), context, obj);
    return 0;
}

} // namespace pc::engine
