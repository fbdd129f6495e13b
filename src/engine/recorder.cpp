// One recorder record per operation, written line by line through recorder_log. The text is a
// contract with the tools that read recorder files: every literal here is exact.
#include "attributes.hpp"
#include "engine.hpp"
#include "planecheck/dpa_api.h"
#include "planecheck/platform_api.h"

#include <cstdio>
#include <ctime>

namespace pc::engine {
namespace {

void attribute_text(const AttrDesc &a, PROCESS *context, Obj obj, uint32_t index, uint8_t *buffer) {
    if (!a.is_set(obj, index)) return;
    a.get(obj, index, buffer);
    kValueTypes[a.value_type].recorder_dump(context, buffer, a.name);
}

// References are printed with a null context; the object's own attributes get the context.
void role_text(const RoleDesc &role, Obj obj, uint32_t index, uint8_t *buffer) {
    write_reference(role, nullptr, obj, index, buffer, recorder_dump_convert_refhdl, &ValueTypeDesc::recorder_dump);
}

bool element_set(const TypeDesc &type, Obj obj, uint32_t j) {
    for (const AttrDesc &a : type.elements())
        if (a.is_set(obj, j)) return true;
    for (const RoleDesc &r : type.element_roles())
        if (r.is_set_hdl(obj, j) || r.is_set_key(obj, j)) return true;
    return false;
}

void members_list(const TypeDesc &type, Obj obj, uint32_t count, uint8_t *buffer) {
    bool open = false;
    for (uint32_t j = 0; j < count; ++j) {
        if (!element_set(type, obj, j)) break; // the list ends at the first empty element
        if (j == 0) {
            recorder_log("      \"members\": [\n");
            open = true;
        }
        recorder_log("      {\n");
        for (const AttrDesc &a : type.elements()) attribute_text(a, nullptr, obj, j, buffer);
        for (const RoleDesc &r : type.element_roles()) role_text(r, obj, j, buffer);
        // the "#" members close the element and the list behind their last comma: part of the format
        recorder_log("      \"#\": 0\n");
        recorder_log("      },\n");
    }
    if (open) {
        recorder_log("      \"#\"\n");
        recorder_log("      ],\n");
    }
}

void npu_results(const TypeDesc &type, Obj obj) {
    char text[1024];
    size_t length = 0;
    for (uint32_t n = 0; n < syspro_config_get_max_num_npus() && length < sizeof text; ++n) {
        uint32_t r = type.ops->get_npu_result(obj, n);
        if (r) length += size_t(std::snprintf(text + length, sizeof text - length, "%s%u", length ? "," : "", r));
    }
    if (length) recorder_log("      \"npu_result\": [ %s ],\n", text);
}

void time_stamp() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    recorder_log("      \"recorder_timestamp\": {\n");
    recorder_log("        \"tv_sec\": %lu,\n", static_cast<unsigned long>(now.tv_sec));
    recorder_log("        \"tv_nsec\": %lu\n", static_cast<unsigned long>(now.tv_nsec));
    recorder_log("      },\n");
}

void entry(const TypeDesc &type, PROCESS *context, const char *op, Obj obj, int32_t status, uint32_t i) {
    alignas(8) uint8_t buffer[kValueBufferMax];
    const dpa_inst_hdr_t *inst = type.ops->inst_from_batch(obj, i);
    recorder_log("      {\n");
    if (!type.npu_mask) recorder_log("      \"npu_id\": %u,\n", inst->npu_id);
    // attribute values come from the object passed in, so every instance repeats them on purpose
    for (const AttrDesc &a : type.top()) attribute_text(a, context, obj, 0, buffer);
    for (const RoleDesc &r : type.top_roles()) role_text(r, obj, 0, buffer);
    if (type.sized()) {
        recorder_log("      \"%s\": %u,\n", type.count_key, inst->elem_count);
        if (!type.has(kCountLineOnly)) members_list(type, obj, inst->elem_count, buffer);
    } else {
        for (const AttrDesc &a : type.elements()) attribute_text(a, context, obj, 0, buffer);
    }
    bool retry = inst->flags & DPA_FLAG_RETRY_MODE;
    if (retry) recorder_log("      \"retry_mode\": true,\n");
    if (is(op, "create") && inst->option) recorder_log("      \"create_option\": %u,\n", inst->option);
    if (is(op, "update") && inst->option) recorder_log("      \"update_option\": %u,\n", inst->option);
    if (is(op, "update") && retry) recorder_log("      \"retry_mode\": %u,\n", 1u); // written twice on update: intended
    if (starts_with_get(op) && inst->get_state) {
        recorder_log("      \"get_option\": %u,\n", 2u);
        recorder_log("      \"npd_state\": %s,\n", inst->get_state);
    }
    if (type.npu_mask)
        if (uint64_t mask = type.ops->get_npu_mask(obj)) recorder_log("      \"npu_mask\": %u,\n", unsigned(mask)); // low 32 bits, as the format has it
    if (uint64_t handle = type.ops->get_hdl(obj))
        recorder_log("      \"hdl\": \"handle 0x%lx\",\n", static_cast<unsigned long>(handle));
    else if (is(op, "create") && is(type.name, "nhprotect"))
        recorder_log("      \"hdl\": \"handle FIXME\",\n"); // nhprotect's placeholder text, kept as it is
    if (status_class(status)) recorder_log("      \"err\": %u,\n", unsigned(status_class(status)));
    npu_results(type, obj);
    time_stamp();
    recorder_log("      \"op\": \"%s\"\n", op);
    recorder_log("      }\n");
}

} // namespace

int32_t recorder_dump(const TypeDesc &type, PROCESS *context, const char *section, const char *op, Obj obj,
                      int32_t status) {
    if (!obj) return -1;
    if (context && context->recorder_off) return 0;
    if (!recorder_is_enabled()) return 0; // nobody reads the record: composing it would be wasted
    uint32_t saved = obj->cur_inst;
    recorder_log("{\n");
    recorder_log(" \"%s\": {\n", section);
    recorder_log("    \"%s\": [\n", type.name);
    for (uint32_t i = 0; i < obj->inst_count; ++i) entry(type, context, op, obj, status, i);
    recorder_log("    ]\n");
    recorder_log("  }\n");
    recorder_log("},\n");
    obj->cur_inst = saved;
    return 0;
}

int32_t recorder_dump_replay(const TypeDesc &type, PROCESS *context, const char *section, const char *op,
                             int32_t status) {
    if (context->recorder_off) return 0; // the context is read without a null test, unlike recorder_dump
    if (!recorder_is_enabled()) return 0;
    recorder_log("{\n");
    recorder_log(" \"%s\": {\n", section);
    recorder_log("    \"%s\": [\n", type.name);
    recorder_log("      {\n");
    if (status_class(status)) recorder_log("      \"err\": %u,\n", unsigned(status_class(status)));
    time_stamp();
    recorder_log("      \"op\": \"%s\"\n", op);
    recorder_log("      }\n");
    recorder_log("    ]\n");
    recorder_log("  }\n");
    recorder_log("},\n");
    return 0;
}

} // namespace pc::engine
