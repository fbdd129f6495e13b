// Comparison, not-set checks, named constants, operation codes and handle names.
#include "planecheck/session.hpp"
#include "planecheck/support.h"
#include "recorder_sink.hpp"

#include <cmath>
#include <cstring>

namespace {

std::string printed(PROCESS *context, pc_value_printer printer, const void *value, const char *name) {
    pc::recorder::Capture capture;
    printer(context, value, name);
    return capture.text();
}

} // namespace

extern "C" {

int json_cmp(PROCESS *context, const void *received, const void *expected, uint32_t width, const char *name,
             pc_value_printer printer) {
    if (std::memcmp(received, expected, width) == 0) return 0;
    std::string r = printed(context, printer, received, name), e = printed(context, printer, expected, name);
    _proxy_log(context, 1, "%s: received %s expected %s\n", name, r.c_str(), e.c_str());
    scen_stats(context, PC_STAT_MISMATCH);
    return 1;
}

uint8_t json_expect_not_set(const JSON_Value *value) {
    const char *s = json_value_get_string(value);
    return s && std::strcmp(s, "NOT_SET") == 0;
}

int json_check_not_set(PROCESS *context, uint8_t is_set, const char *name, pc_value_printer printer) {
    if (!is_set) return 0;
    uint8_t expected = 0;
    std::string r = printed(context, printer, &is_set, name), e = printed(context, printer, &expected, name);
    _proxy_log(context, 1, "%s: received %s expected %s\n", name, r.c_str(), e.c_str());
    scen_stats(context, PC_STAT_MISMATCH);
    return 1;
}

uint32_t json_get_op_from_rec(const JSON_Object *record) {
    static const char *const ops[] = {"create", "delete", "eod", "update", "get", "get_first", "get_gt_eq", "get_next"};
    const char *op = json_value_get_string(json_object_get_value(record, "op"));
    if (!op) return 0;
    for (uint32_t i = 0; i < 8; ++i)
        if (!std::strcmp(op, ops[i])) return i + 1;
    return 0;
}

int64_t json_value_get_constant(const JSON_Value *value) {
    switch (json_value_get_type(value)) {
    case JSONNumber: {
        int64_t i;
        uint64_t u;
        if (pc_json_get_int64(value, &i)) return i;
        if (pc_json_get_uint64(value, &u)) return int64_t(u);
        // no integer stands for infinities, NaN or numbers beyond 64 bits: the converters report
        // them, and 0 stands in rather than an undefined conversion
        double d = json_value_get_number(value);
        if (!(d >= -0x1p63 && d < 0x1p63)) return 0;
        return int64_t(std::trunc(d));
    }
    case JSONBoolean: return json_value_get_boolean(value);
    case JSONString: {
        const char *s = json_value_get_string(value);
        int32_t status;
        if (pc::support::status_from_name(s, status)) return status;
        char *end = nullptr;
        long long v = std::strtoll(s, &end, 0);
        if (end && *end == '\0' && end != s) return v;
        unsigned long long u = std::strtoull(s, &end, 0);
        return end && *end == '\0' && end != s ? int64_t(u) : 0;
    }
    default: return 0;
    }
}

void json_set_hdl(PROCESS *context, const char *name, uint64_t handle) {
    if (context && context->session && name) context->session->handles[name] = handle;
}

}
