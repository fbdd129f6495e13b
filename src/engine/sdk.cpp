// The SDK side: checking and filling objects that arrive there, writing them out, and building
// objects from records to check their keys' round trip.
#include "attributes.hpp"
#include "engine.hpp"
#include "planecheck/dpa_api.h"
#include "planecheck/planecheck.h"
#include "planecheck/platform_api.h"

#include <cstdlib>
#include <vector>

namespace pc::engine {
namespace {

const dpa_inst_hdr_t &received(const PROCESS *context) { return *reinterpret_cast<const dpa_inst_hdr_t *>(context->received_obj); }

// A handle record around the received instance, so that the type's accessors can reach it.
Obj make_view(const PROCESS *context) {
    auto *view = static_cast<ofa_client_obj_base_s *>(std::calloc(1, sizeof(ofa_client_obj_base_s)));
    view->inst_count = 1;
    view->cur_inst = 0;
    view->inst_size = received(context).inst_size;
    view->data = context->received_obj;
    return view;
}

// Create and update: references are installed, values checked.
void check_pass(const TypeDesc &type, const JSON_Object *record, PROCESS *context, Obj view) {
    const char *op = string_member(record, "op");
    support::FindingScope record_scope(context, type.name, op);
    alignas(8) uint8_t got[kValueBufferMax], want[kValueBufferMax];
    auto check = [&](const AttrDesc &a, JSON_Value *value, uint32_t index) {
        const ValueTypeDesc &vt = kValueTypes[a.value_type];
        a.get(view, index, got);
        convert(context, a.value_type, want, a.width, value, a.name);
        json_cmp(context, got, want, a.width, a.name, vt.recorder_dump);
    };
    RecordMembers members(type, record, false);
    for (const Member &m : members) {
        if (m.what == Member::Role) {
            const RoleDesc &role = type.roles[m.index];
            if (active(role.gate, context)) set_reference(role, m.key_form, m.value, context, view, 0);
        } else if (type.attrs[m.index].kind != Kind::Element) {
            check(type.attrs[m.index], m.value, 0);
        }
    }
    const JSON_Array *list = json_value_get_array(json_object_get_value(record, "members"));
    for (size_t i = 0; list && i < json_array_get_count(list); ++i) {
        const JSON_Object *element = json_value_get_object(json_array_get_value(list, i));
        if (!element) continue;
        RecordMembers em(type, element, true);
        support::FindingScope element_scope(context, int32_t(i));
        for (const Member &m : em) {
            if (m.what == Member::Role) {
                const RoleDesc &role = type.roles[m.index];
                if (active(role.gate, context)) compare_role(role, m.key_form, m.value, context, view, uint32_t(i));
            } else if (type.attrs[m.index].compared) { // the walked-only element is never compared
                check(type.attrs[m.index], m.value, uint32_t(i));
            }
        }
    }
}

// Gets: references are checked, values filled with the answer the scenario prescribes.
void fill_pass(const TypeDesc &type, const JSON_Object *record, PROCESS *context, Obj view) {
    RecordMembers members(type, record, false);
    for (const Member &m : members) {
        if (m.what == Member::Role) {
            const RoleDesc &role = type.roles[m.index];
            if (active(role.gate, context)) compare_role(role, m.key_form, m.value, context, view, 0);
        }
    }
    alignas(8) uint8_t value[kValueBufferMax];
    for (const Member &m : members) {
        if (m.what != Member::Attribute) continue;
        const AttrDesc &a = type.attrs[m.index];
        if (a.kind == Kind::Key || a.kind == Kind::ReadOnly || a.kind == Kind::Element) continue;
        convert(context, a.value_type, value, a.width, m.value, a.name);
        a.set(view, 0, value);
    }
    set_elements(type, record, context, view);
}

// The receive table of op names by op code - 1; codes 3 and 7 hold a filler and are never read.
const char *receive_op(uint8_t code) {
    static const char *const names[] = {"create", "delete", "create", "update", "get", "get_first", "create", "get_next"};
    return code >= 1 && code <= 8 && ((0xBBu >> (code - 1)) & 1) ? names[code - 1] : nullptr;
}

void dump_role(const RoleDesc &role, PROCESS *context, Obj view, uint32_t index, uint8_t *buffer) {
    write_reference(role, context, view, index, buffer, json_dump_convert_refhdl, &ValueTypeDesc::json_dump);
}

void dump_attribute(const AttrDesc &a, PROCESS *context, Obj view, uint32_t index, uint8_t *buffer) {
    a.get(view, index, buffer);
    if (a.kind == Kind::DirectRefhdl) recorder_dump_convert_refhdl(context, buffer, a.name); // the one irregularity, kept
    else kValueTypes[a.value_type].json_dump(context, buffer, a.name);
}

// The received object's own presence flag, not the is-set accessor: a platform may answer the
// accessor otherwise. An element attribute has one flag, shared by all elements.
bool present(const TypeDesc &type, const AttrDesc &a, Obj view) {
    return type.ops->get_presence_flag(view, uint32_t(&a - type.attrs.data())) != 0;
}

} // namespace

int receive(const TypeDesc &type, JSON_Value *records, PROCESS *context) {
    if (!active(type.gate, context)) return -1;
    if (received(context).type != type.number) {
        pc_finding f = support::mismatch(pc_finding::Text::received_type, "type", type.name, std::to_string(received(context).type));
        f.type = type.name;
        support::report_finding(context, std::move(f));
        return -1;
    }
    Obj view = make_view(context);
    context->received_obj = view;
    context->received_type = type.number;
    int result = 0;
    const JSON_Array *list = json_value_get_array(records);
    for (size_t i = 0; list && i < json_array_get_count(list); ++i) {
        const JSON_Object *record = json_value_get_object(json_array_get_value(list, i));
        if (!record) continue;
        const char *op = string_member(record, vocabulary::kFieldOp);
        if (is(op, vocabulary::kOpCreate) || is(op, vocabulary::kOpUpdate)) check_pass(type, record, context, view);
        if (JSON_Value *rc = json_object_get_value(record, vocabulary::kFieldRc)) result = int(json_value_get_constant(rc));
        if (starts_with_get(op)) fill_pass(type, record, context, view);
    }
    // the slot keeps the freed view on purpose: the runner stores the next received object first
    std::free(view);
    return result;
}

int receive_dump(const TypeDesc &type, PROCESS *context) {
    Obj view = make_view(context);
    const dpa_inst_hdr_t &r = received(context);
    if (const char *op = receive_op(r.op)) recorder_dump(type, context, "receive_call", op, view, 0);
    alignas(8) uint8_t buffer[kValueBufferMax];
    for (const RoleDesc &role : type.top_roles()) dump_role(role, context, view, 0, buffer);
    for (const AttrDesc &a : type.top())
        if (a.kind != Kind::ReadOnly && present(type, a, view)) dump_attribute(a, context, view, 0, buffer);
    std::vector<uint8_t> element_present; // read once: the flags are the object's, not the element's
    if (r.elem_count)
        for (const AttrDesc &a : type.elements()) element_present.push_back(a.compared && present(type, a, view));
    for (uint32_t i = 0; i < r.elem_count && (type.elements().size() || type.element_roles().size()); ++i) {
        for (const RoleDesc &role : type.element_roles()) dump_role(role, context, view, i, buffer);
        for (size_t k = 0; k < type.elements().size(); ++k)
            if (element_present[k]) dump_attribute(type.elements()[k], context, view, i, buffer);
    }
    std::free(view);
    return context->dump_status;
}

int object_dump(const TypeDesc &type, JSON_Value *value, PROCESS *context) {
    context->received_obj = nullptr;
    if (!type.has(kDumpWithoutGate) && !active(type.gate, context)) return -1;
    if (type.has(kRouterGate) && platform_get_router_type() != 16) return -1;
    const JSON_Array *list = json_value_get_array(value);
    const JSON_Object *first = json_value_get_object(json_array_get_value(list, 0));
    if (JSON_Value *router = json_object_get_value(first, vocabulary::kFieldRouter))
        if (uint64_t(json_value_get_constant(router)) != uint64_t(context->router_type)) return -1;
    if (!list) return 0;
    int result = 0;
    alignas(8) uint8_t key[kValueBufferMax], got[kValueBufferMax], want[kValueBufferMax];
    for (size_t i = 0; i < json_array_get_count(list); ++i) {
        JSON_Object *record = json_value_get_object(json_array_get_value(list, i));
        if (!record) continue;
        support::FindingScope scope(context, type.name, string_member(record, "op"));
        RecordMembers members(type, record, false);
        std::memset(key, 0, type.key_width);
        for (const Member &m : members)
            if (m.what == Member::Attribute && m.index < type.key_count)
                kValueTypes[type.attrs[m.index].value_type].convert(context, key + key_offset(type, m.index), m.value,
                                                                     type.attrs[m.index].name);
        Obj obj = construct(type, record, false);
        type.ops->set_key(obj, key); // always, also with no key field given
        for (const Member &m : members)
            if (m.what == Member::Attribute && m.index < type.key_count) type.attrs[m.index].set(obj, 0, key + key_offset(type, m.index));
        if (JSON_Value *rc = json_object_get_value(record, vocabulary::kFieldRc)) result = int(json_value_get_constant(rc));
        const char *op = string_member(record, vocabulary::kFieldOp);
        if (is(op, vocabulary::kOpCreate) || is(op, vocabulary::kOpDelete) || is(op, vocabulary::kOpUpdate)) {
            set_members(type, members, context, obj, 0, false);
            set_elements(type, record, context, obj);
        }
        if (starts_with_get(op) && !type.has(kDumpWithoutKeyCheck))
            for (const Member &m : members) { // the key's round trip through the converters and accessors
                if (m.what != Member::Attribute || m.index >= type.key_count) continue;
                const AttrDesc &a = type.attrs[m.index];
                a.get(obj, 0, got);
                convert(context, a.value_type, want, a.width, m.value, a.name);
                json_cmp(context, got, want, a.width, a.name, kValueTypes[a.value_type].recorder_dump);
            }
        type.ops->dtor(obj);
    }
    return result;
}

} // namespace pc::engine

namespace {

// Hands the step to the type's function; a step with no known type ends the process, deliberately.
template <class Call> int by_type(JSON_Value *step, PROCESS *context, Call call) {
    const JSON_Object *object = json_value_get_object(step);
    if (!object) return 0;
    JSON_Value *value = nullptr;
    if (const pc::engine::TypeDesc *type = pc::engine::first_type(object, value)) return call(*type, value);
    pc::engine::report_unknown_table(context, object);
    std::exit(1);
}

} // namespace

extern "C" int json_receive_object_sdk(JSON_Value *step, PROCESS *context) {
    return by_type(step, context, [&](const pc::engine::TypeDesc &t, JSON_Value *v) { return pc::engine::receive(t, v, context); });
}

extern "C" int json_dump_object_sdk(JSON_Value *step, PROCESS *context) {
    return by_type(step, context, [&](const pc::engine::TypeDesc &t, JSON_Value *v) { return pc::engine::object_dump(t, v, context); });
}

extern "C" int json_dump_object_received_sdk(PROCESS *context) {
    uint16_t number = reinterpret_cast<const dpa_inst_hdr_t *>(context->received_obj)->type;
    if (number < pc::engine::kTypeCount) pc::engine::receive_dump(*pc::engine::kTypes[number], context);
    return 0;
}
