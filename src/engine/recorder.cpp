// One recorder record per operation. The text is a contract with the tools that read recorder
// files: every literal here is exact. A record's own lines are composed in one buffer, numbers
// formatted straight into it, and handed to the recorder in one piece before each value that the
// support library's converters write, and at the record's end.
#include "attributes.hpp"
#include "engine.hpp"
#include "planecheck/dpa_api.h"
#include "planecheck/platform_api.h"

#include <charconv>
#include <ctime>
#include <string>
#include <string_view>

namespace pc::engine {
namespace {

class RecordText {
public:
    RecordText &operator<<(std::string_view s) {
        text_.append(s);
        return *this;
    }
    RecordText &operator<<(uint64_t n) { return number(n, 10); }
    RecordText &hex(uint64_t n) { return number(n, 16); }
    // Hands the text so far to the recorder: a converter's line comes next.
    void write() {
        if (!text_.empty()) recorder_write(text_.data(), text_.size());
        text_.clear();
    }

private:
    RecordText &number(uint64_t n, int base) {
        char digits[24];
        auto end = std::to_chars(digits, digits + sizeof digits, n, base).ptr;
        text_.append(digits, size_t(end - digits));
        return *this;
    }
    std::string text_;
};

// Reused for every record: a steady stream of records allocates nothing. One recorder serves the
// process (its sink is one), so the buffer is too.
RecordText &record_text() {
    static RecordText text;
    return text;
}

void attribute_text(RecordText &out, const AttrDesc &a, PROCESS *context, Obj obj, uint32_t index, uint8_t *buffer) {
    if (!a.is_set(obj, index)) return;
    a.get(obj, index, buffer);
    out.write();
    kValueTypes[a.value_type].recorder_dump(context, buffer, a.name);
}

// References are printed with a null context; the object's own attributes get the context.
void role_text(RecordText &out, const RoleDesc &role, Obj obj, uint32_t index, uint8_t *buffer) {
    out.write();
    write_reference(role, nullptr, obj, index, buffer, recorder_dump_convert_refhdl, &ValueTypeDesc::recorder_dump);
}

bool element_set(const TypeDesc &type, Obj obj, uint32_t j) {
    for (const AttrDesc &a : type.elements())
        if (a.is_set(obj, j)) return true;
    for (const RoleDesc &r : type.element_roles())
        if (r.is_set_hdl(obj, j) || r.is_set_key(obj, j)) return true;
    return false;
}

void members_list(RecordText &out, const TypeDesc &type, Obj obj, uint32_t count, uint8_t *buffer) {
    bool open = false;
    for (uint32_t j = 0; j < count; ++j) {
        if (!element_set(type, obj, j)) break; // the list ends at the first empty element
        if (j == 0) {
            out << "      \"members\": [\n";
            open = true;
        }
        out << "      {\n";
        for (const AttrDesc &a : type.elements()) attribute_text(out, a, nullptr, obj, j, buffer);
        for (const RoleDesc &r : type.element_roles()) role_text(out, r, obj, j, buffer);
        // the "#" members close the element and the list behind their last comma: part of the format
        out << "      \"#\": 0\n"
            << "      },\n";
    }
    if (open) out << "      \"#\"\n"
                  << "      ],\n";
}

void npu_results(RecordText &out, const TypeDesc &type, Obj obj) {
    bool first = true;
    for (uint32_t n = 0; n < syspro_config_get_max_num_npus(); ++n) {
        uint32_t r = type.ops->get_npu_result(obj, n);
        if (!r) continue;
        out << (first ? "      \"npu_result\": [ " : ",") << r;
        first = false;
    }
    if (!first) out << " ],\n";
}

void time_stamp(RecordText &out) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    out << "      \"recorder_timestamp\": {\n"
        << "        \"tv_sec\": " << uint64_t(static_cast<unsigned long>(now.tv_sec)) << ",\n"
        << "        \"tv_nsec\": " << uint64_t(static_cast<unsigned long>(now.tv_nsec)) << "\n"
        << "      },\n";
}

void entry(RecordText &out, const TypeDesc &type, PROCESS *context, const char *op, Obj obj, int32_t status, uint32_t i) {
    alignas(8) uint8_t buffer[kValueBufferMax];
    const dpa_inst_hdr_t *inst = type.ops->inst_from_batch(obj, i);
    out << "      {\n";
    if (!type.npu_mask) out << "      \"npu_id\": " << uint64_t(inst->npu_id) << ",\n";
    // attribute values come from the object passed in, so every instance repeats them on purpose
    for (const AttrDesc &a : type.top()) attribute_text(out, a, context, obj, 0, buffer);
    for (const RoleDesc &r : type.top_roles()) role_text(out, r, obj, 0, buffer);
    if (type.sized()) {
        out << "      \"" << type.count_key << "\": " << uint64_t(inst->elem_count) << ",\n";
        if (!type.has(kCountLineOnly)) members_list(out, type, obj, inst->elem_count, buffer);
    } else {
        for (const AttrDesc &a : type.elements()) attribute_text(out, a, context, obj, 0, buffer);
    }
    bool retry = inst->flags & DPA_FLAG_RETRY_MODE;
    if (retry) out << "      \"retry_mode\": true,\n";
    if (is(op, vocabulary::kOpCreate) && inst->option) out << "      \"create_option\": " << uint64_t(inst->option) << ",\n";
    if (is(op, vocabulary::kOpUpdate) && inst->option) out << "      \"update_option\": " << uint64_t(inst->option) << ",\n";
    if (is(op, vocabulary::kOpUpdate) && retry) out << "      \"retry_mode\": 1,\n"; // written twice on update: intended
    if (starts_with_get(op) && inst->get_state)
        out << "      \"get_option\": 2,\n"
            << "      \"npd_state\": " << inst->get_state << ",\n";
    if (type.npu_mask)
        if (uint64_t mask = type.ops->get_npu_mask(obj))
            out << "      \"npu_mask\": " << uint64_t(unsigned(mask)) << ",\n"; // low 32 bits, as the format has it
    if (uint64_t handle = type.ops->get_hdl(obj)) {
        out << "      \"hdl\": \"handle 0x";
        out.hex(static_cast<unsigned long>(handle)) << "\",\n";
    } else if (is(op, vocabulary::kOpCreate) && is(type.name, "nhprotect")) {
        out << "      \"hdl\": \"handle FIXME\",\n"; // nhprotect's placeholder text, kept as it is
    }
    if (status_class(status)) out << "      \"err\": " << uint64_t(unsigned(status_class(status))) << ",\n";
    npu_results(out, type, obj);
    time_stamp(out);
    out << "      \"op\": \"" << op << "\"\n"
        << "      }\n";
}

void head(RecordText &out, const TypeDesc &type, const char *section) {
    out << "{\n"
        << " \"" << section << "\": {\n"
        << "    \"" << type.name << "\": [\n";
}

void tail(RecordText &out) {
    out << "    ]\n"
        << "  }\n"
        << "},\n";
    out.write();
}

} // namespace

int32_t recorder_dump(const TypeDesc &type, PROCESS *context, const char *section, const char *op, Obj obj,
                      int32_t status) {
    if (!obj) return -1;
    if (context && context->recorder_off) return 0;
    if (!recorder_is_enabled()) return 0; // nobody reads the record: composing it would be wasted
    uint32_t saved = obj->cur_inst;
    RecordText &out = record_text();
    head(out, type, section);
    for (uint32_t i = 0; i < obj->inst_count; ++i) entry(out, type, context, op, obj, status, i);
    tail(out);
    obj->cur_inst = saved;
    return 0;
}

int32_t recorder_dump_replay(const TypeDesc &type, PROCESS *context, const char *section, const char *op,
                             int32_t status) {
    if (context->recorder_off) return 0; // the context is read without a null test, unlike recorder_dump
    if (!recorder_is_enabled()) return 0;
    RecordText &out = record_text();
    head(out, type, section);
    out << "      {\n";
    if (status_class(status)) out << "      \"err\": " << uint64_t(unsigned(status_class(status))) << ",\n";
    time_stamp(out);
    out << "      \"op\": \"" << op << "\"\n"
        << "      }\n";
    tail(out);
    return 0;
}

} // namespace pc::engine
