// Runner services: the logger, the statistics and status texts.
#include "planecheck/session.hpp"
#include "planecheck/support.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <algorithm>
#include <map>

namespace pc::support {
namespace {

const std::map<std::string, int32_t> &status_names() {
    static const std::map<std::string, int32_t> names = {
        {"EOK", 0},        {"EPERM", 1},     {"ENOENT", 2},     {"ESRCH", 3},      {"EINTR", 4},
        {"EIO", 5},        {"ENXIO", 6},     {"E2BIG", 7},      {"ENOEXEC", 8},    {"EBADF", 9},
        {"ECHILD", 10},    {"EAGAIN", 11},   {"ENOMEM", 12},    {"EACCES", 13},    {"EFAULT", 14},
        {"EBUSY", 16},     {"EEXIST", 17},   {"EXDEV", 18},     {"ENODEV", 19},    {"ENOTDIR", 20},
        {"EINVAL", 22},    {"ENFILE", 23},   {"EMFILE", 24},    {"EFBIG", 27},     {"ENOSPC", 28},
        {"ERANGE", 34},    {"EDEADLK", 35},  {"ENOSYS", 38},    {"ENODATA", 61},   {"ETIME", 62},
        {"EOVERFLOW", 75}, {"EMSGSIZE", 90}, {"ENOTSUP", 95},   {"ENOBUFS", 105},  {"ETIMEDOUT", 110},
        {"EALREADY", 114}, {"EINPROGRESS", 115}, {"ECANCELED", 125},
        {"DONT_CARE", 53450}}; // the expected status that accepts any received one
    return names;
}

} // namespace

bool status_from_name(const std::string &name, int32_t &status) {
    auto it = status_names().find(name);
    if (it == status_names().end()) return false;
    status = it->second;
    return true;
}

std::vector<std::string_view> status_name_list() {
    std::vector<std::pair<int32_t, std::string_view>> by_value;
    for (const auto &[n, v] : status_names()) by_value.emplace_back(v, n);
    std::sort(by_value.begin(), by_value.end());
    std::vector<std::string_view> names;
    for (const auto &entry : by_value) names.push_back(entry.second);
    return names;
}

const char *status_name(int32_t status_class) {
    for (const auto &[n, v] : status_names())
        if (v == status_class && n != "DONT_CARE") return n.c_str();
    return nullptr;
}

// A status as people read it: its class's name with the number beside it, "EEXIST (17)"; the
// number alone when the class has no name.
std::string status_for_people(int32_t status) {
    if (status == 53450) return "DONT_CARE (53450)"; // the don't-care status is compared on all 32 bits
    const char *name = status_name(status & 0x1ff);
    return name ? std::string(name) + " (" + std::to_string(status) + ")" : std::to_string(status);
}

} // namespace pc::support

extern "C" {

void pc_report_value_error(PROCESS *context, const JSON_Value *value, const char *text) {
    pc_finding f = pc::support::message(pc_finding::Kind::value_error, pc_finding::Text::detail, text);
    f.line = pc_json_line(value);
    f.column = pc_json_column(value);
    pc::support::report_finding(context, std::move(f));
}

void _proxy_log(PROCESS *context, int level, const char *format, ...) {
    char buffer[1024];
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    std::string text(buffer, n < 0 ? 0 : std::min<size_t>(size_t(n), sizeof buffer - 1));
    pc_session *s = context ? context->session : nullptr;
    if (s && s->log) s->log(level, text, s->record_line);
    else std::fputs(text.c_str(), stderr);
}

pc_session *pc_session_new(void) { return new pc_session; }
void pc_session_free(pc_session *session) { delete session; }

void pc_session_set_log(pc_session *session, pc_log_fn log, void *user) {
    if (!log) session->log = nullptr;
    else session->log = [log, user](int level, const std::string &text, uint32_t line) { log(user, level, text.c_str(), line); };
}

uint64_t pc_session_count(const pc_session *session, int kind) {
    return session && kind >= 0 && kind < PC_STAT_KINDS ? session->stats[kind] : 0;
}

uint32_t pc_session_line(const pc_session *session) { return session ? session->record_line : 0; }

void pc_trace_record(PROCESS *context, const JSON_Value *record) {
    if (!context || !context->session) return;
    context->session->record_line = record ? pc_json_line(record) : 0;
    if (record && context->session->on_record) context->session->on_record(record);
}

void scen_stats(PROCESS *context, int kind) {
    if (context && context->session && kind >= 0 && kind < PC_STAT_KINDS) context->session->stats[kind]++;
}

// The status class's name ("ENOENT"); statuses outside the table read "status 0x..".
const char *kerr_strerror(int32_t status) {
    if (const char *name = pc::support::status_name(status & 0x1ff)) return name;
    static thread_local char text[32];
    std::snprintf(text, sizeof text, "status 0x%x", unsigned(status));
    return text;
}

}
