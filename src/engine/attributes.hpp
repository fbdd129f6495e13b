// Pieces of attribute setting and comparison that the object send, the SDK side and the object
// dump share.
#pragma once

#include "common.hpp"
#include "record_index.hpp"

namespace pc::engine {

// Converts into zeroed storage of `width` bytes.
void convert(PROCESS *context, uint16_t value_type, void *out, uint32_t width, JSON_Value *value, const char *name);
// Where a key field sits in the packed key record.
uint32_t key_offset(const TypeDesc &type, uint16_t field);
// Key fields fill one key record; if any was given it is set whole, then field by field.
void set_keys(const TypeDesc &type, const RecordMembers &members, PROCESS *context, Obj obj);
// One side of a reference pair, converted under its short name and set at `index`.
void set_reference(const RoleDesc &role, bool key_form, JSON_Value *value, PROCESS *context, Obj obj, uint32_t index);
// Reference pairs first, then the other settable attributes, each in catalogue order. A pair that
// names a flag-gated type is passed over while that type is inactive.
void set_members(const TypeDesc &type, const RecordMembers &members, PROCESS *context, Obj obj, uint32_t index,
                 bool element);
// The element attributes of "members", each element at its own index.
void set_elements(const TypeDesc &type, const JSON_Object *record, PROCESS *context, Obj obj);
void set_elements_of(const TypeDesc &type, const JSON_Array *members, PROCESS *context, Obj obj);
// Writes the set sides of a reference pair under their full keys through one converter family:
// `handle` for the handle, the key record's `family` member (recorder_dump or json_dump) for the key.
void write_reference(const RoleDesc &role, PROCESS *context, Obj obj, uint32_t index, uint8_t *buffer, DumpFn handle,
                     DumpFn ValueTypeDesc::*family);
// One side of a reference pair compared with the record's value (no presence test).
void compare_role(const RoleDesc &role, bool key_form, JSON_Value *value, PROCESS *context, Obj obj, uint32_t index);

} // namespace pc::engine
