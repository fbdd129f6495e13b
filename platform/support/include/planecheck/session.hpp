// The runner-owned part of the scenario context: where log lines go, the statistics, the handle
// names and the JSON dump document. The runner (or a test) owns one per scenario.
#pragma once

#include "planecheck/process.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct pc_session {
    // level 0 information, 1 errors; `line` is the scenario line the text is about (0: the step's)
    std::function<void(int level, const std::string &text, uint32_t line)> log;
    // where value errors go when set, with the value's column too (FILE:LINE:COL); `log` otherwise
    std::function<void(const std::string &text, uint32_t line, uint32_t column)> log_value_error;
    std::array<uint64_t, PC_STAT_KINDS> stats{};
    std::unordered_map<std::string, uint64_t> handles;
    std::string dump_document; // what json_dump_convert_<type> writes
    uint32_t record_line = 0;  // line of the operation record being worked on, 0 when none
    // told of each operation record before the library works on it (a runner's own checks)
    std::function<void(const JSON_Value *record)> on_record;
    // Told about every operation record whose operation ran: its type number, the record, and for
    // operations whose status is judged (`judged`), the status returned and the one expected.
    // Empty unless the runner measures coverage, so a run without it pays one test per record.
    std::function<void(uint16_t type, const JSON_Object *record, bool judged, int32_t returned, int32_t expected)> ran;

    uint64_t mismatches() const { return stats[PC_STAT_MISMATCH]; }
    uint64_t value_errors() const { return stats[PC_STAT_VALUE_ERROR]; }
};

namespace pc::support {

// A context with its session, ready to use: what tests and the runner start from.
struct Context {
    PROCESS process{};
    pc_session session;
    Context() { process.session = &session; process.mode = 1; process.router_type = 16; }
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;
    PROCESS *get() { return &process; }
};

// Status names ("ENOENT") and the don't-care value, as scenarios may write them.
bool status_from_name(const std::string &name, int32_t &status);
// Every status name, in order of value (DONT_CARE last).
std::vector<std::string_view> status_name_list();
// A number truncated toward zero to 64 bits (from 2^63 up as unsigned); 0 for NaN, the
// infinities and numbers beyond 64 bits, whose conversion would be undefined.
int64_t truncated(double d);
const char *status_name(int32_t status_class);

// Reports a scenario value that cannot be converted: one level-1 line naming the attribute,
// located at the value's own line and column, counted as a value error.
void report_value_error(PROCESS *context, const JSON_Value *value, const std::string &text);

} // namespace pc::support
