// Comparison, not-set checks, named constants, operation codes and handle names.
#include "planecheck/session.hpp"
#include "planecheck/support.h"
#include "recorder_sink.hpp"
#include "planecheck/vocabulary.hpp"

#include <algorithm>
#include <cerrno>
#include <vector>
#include <cmath>
#include <cstring>

extern "C" int recorder_dump_convert_refhdl(PROCESS *context, const void *value, const char *name); // generated

namespace {

std::string printed(PROCESS *context, pc_value_printer printer, const void *value, const char *name) {
    pc::recorder::Capture capture;
    printer(context, value, name);
    return capture.text();
}

// A handle value as the scenario knows it: the printed value and the names stored for it with
// "hdl", so that a mismatch reads "0x1005" (nh2) rather than two bare numbers.
std::string printed_handle(PROCESS *context, pc_value_printer printer, const void *value, const char *name) {
    std::string text = printed(context, printer, value, name);
    if (printer != recorder_dump_convert_refhdl || !context || !context->session) return text;
    uint64_t handle;
    std::memcpy(&handle, value, sizeof handle);
    std::vector<std::string> names;
    for (const auto &[stored, v] : context->session->handles)
        if (v == handle && handle != 0) names.push_back(stored);
    if (names.empty()) return text;
    std::sort(names.begin(), names.end());
    std::string list;
    for (const auto &n : names) list += (list.empty() ? "" : ", ") + n;
    return text + " (" + list + ")";
}

// A comparison's finding, counted after its line.
void report_differ(PROCESS *context, const char *name, std::string received, std::string expected) {
    pc::support::report_finding(context, pc::support::mismatch(pc_finding::Text::values_differ, name, std::move(expected), std::move(received)),
                                pc::support::Count::after_line);
}

} // namespace

namespace pc::support {

int64_t truncated(double d) {
    if (!(d >= -9223372036854775808.0 && d < 18446744073709551616.0)) return 0; // NaN, infinities, beyond 64 bits
    return d >= 9223372036854775808.0 ? int64_t(uint64_t(d)) : int64_t(d);
}

} // namespace pc::support

extern "C" {

int json_cmp(PROCESS *context, const void *received, const void *expected, uint32_t width, const char *name,
             pc_value_printer printer) {
    if (std::memcmp(received, expected, width) == 0) return 0;
    report_differ(context, name, printed_handle(context, printer, received, name), printed_handle(context, printer, expected, name));
    return 1;
}

uint8_t json_expect_not_set(const JSON_Value *value) {
    const char *s = json_value_get_string(value);
    return s && std::strcmp(s, "NOT_SET") == 0;
}

int json_check_not_set(PROCESS *context, uint8_t is_set, const char *name, pc_value_printer printer) {
    if (!is_set) return 0;
    uint8_t expected = 0;
    report_differ(context, name, printed(context, printer, &is_set, name), printed(context, printer, &expected, name));
    return 1;
}

uint32_t json_get_op_from_rec(const JSON_Object *record) {
    const char *op = json_value_get_string(json_object_get_value(record, pc::vocabulary::kFieldOp));
    const pc::vocabulary::Op *found = pc::vocabulary::find_op(op);
    return found ? found->code : 0;
}

int64_t json_value_get_constant(const JSON_Value *value) {
    switch (json_value_get_type(value)) {
    case JSONNumber: {
        int64_t i;
        uint64_t u;
        if (pc_json_get_int64(value, &i)) return i;
        if (pc_json_get_uint64(value, &u)) return int64_t(u);
        return pc::support::truncated(json_value_get_number(value));
    }
    case JSONBoolean: return json_value_get_boolean(value);
    case JSONString: {
        const char *s = json_value_get_string(value);
        int32_t status;
        if (pc::support::status_from_name(s, status)) return status;
        char *end = nullptr;
        errno = 0;
        long long v = std::strtoll(s, &end, 0);
        if (end && *end == '\0' && end != s && errno != ERANGE) return v;
        errno = 0;
        unsigned long long u = std::strtoull(s, &end, 0);
        // text that does not fit 64 bits reads as 0, like any other text that is no number
        return end && *end == '\0' && end != s && errno != ERANGE ? int64_t(u) : 0;
    }
    default: return 0;
    }
}

void json_set_hdl(PROCESS *context, const char *name, uint64_t handle) {
    if (context && context->session && name) context->session->handles[name] = handle;
}

}
