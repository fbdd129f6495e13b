// The runner-owned part of the scenario context: where log lines go, the statistics, the handle
// names and the JSON dump document. The runner (or a test) owns one per scenario.
#pragma once

#include "planecheck/process.h"
#include "planecheck/support.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// One finding of the library as data: what it is about and what differed. Its log line is
// composed from it (pc::support::finding_line), never the other way round.
struct pc_finding {
    enum class Kind { mismatch, value_error, log };
    // The fixed text the line takes; R and E are `received` and `expected`.
    enum class Text {
        values_differ,     // ATTRIBUTE: received R expected E
        expected_set,      // dpa_TYPE_get, expected ATTRIBUTE to be set
        expected_in_state, // dpa_TYPE_get, expected E in R (E the probe, R the whole state text)
        status,            // dpa_TYPE_OP: NAME, received R expected E (NAME: the received status's)
        batch_status,      // ofa_batch_list_send: NAME, received R expected E
        npu_result,        // npu_result: received R expected E
        did_not_run,       // TYPE_validate_did_not_run:received R expected E
        received_type,     // Expected TYPE received R
        batch_params,      // in YAML test file, first element in batch_crud needs to be: 'batch_params'
        unknown_table,     // unknown table ATTRIBUTE
        attribute_detail,  // ATTRIBUTE: DETAIL
        type_detail,       // TYPE: DETAIL
        detail,            // DETAIL
    };
    Kind kind = Kind::log;
    Text text = Text::detail;
    std::string type;      // the object type it is about, "" when none
    std::string op;        // the record's operation, "" when none
    std::string attribute; // the attribute, control field or key it is about
    int32_t element = -1;  // the element (or NPU) index of the attribute; -1 for none
    std::string expected, received;
    std::string detail;    // the rest of a message that is no comparison
    bool has_status = false; // a status mismatch: the two statuses as numbers
    int32_t expected_status = 0, received_status = 0;
    uint32_t line = 0;     // scenario line; 0: the record being worked on
    uint32_t column = 0;   // the value's column, when the finding is at a value (value errors)
};

// What the comparisons made meanwhile are about (json_cmp is told only the attribute's name).
struct pc_finding_scope {
    const char *type = nullptr;
    const char *op = nullptr;
    int32_t element = -1;
};

struct pc_session {
    // level 0 information, 1 errors; `line` is the scenario line the text is about (0: the step's)
    std::function<void(int level, const std::string &text, uint32_t line)> log;
    // where value errors go when set, with the value's column too (FILE:LINE:COL); `log` otherwise
    std::function<void(const std::string &text, uint32_t line, uint32_t column)> log_value_error;
    // where findings go when set, as records with the line composed from each; the two hooks
    // above take their lines otherwise, so that a sink of lines sees the same text either way
    std::function<void(const pc_finding &finding, const std::string &text)> on_finding;
    pc_finding_scope finding_scope;
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
// "EEXIST (17)": how every status shown to a person reads.
std::string status_for_people(int32_t status);

// Reports a scenario value that cannot be converted: one level-1 line "ATTRIBUTE: DETAIL",
// located at the value's own line and column, counted as a value error.
void report_value_error(PROCESS *context, const JSON_Value *value, const std::string &attribute, const std::string &detail);

// The log line of a finding, "\n" ended.
std::string finding_line(const pc_finding &finding);

// A mismatch of `attribute`, both values as the line gives them.
inline pc_finding mismatch(pc_finding::Text text, std::string attribute, std::string expected, std::string received) {
    pc_finding f;
    f.kind = pc_finding::Kind::mismatch;
    f.text = text;
    f.attribute = std::move(attribute);
    f.expected = std::move(expected);
    f.received = std::move(received);
    return f;
}

// A mismatch of two statuses (the line names the received one).
inline pc_finding status_mismatch(pc_finding::Text text, std::string attribute, int32_t expected, int32_t received) {
    pc_finding f = mismatch(text, std::move(attribute), std::to_string(expected), std::to_string(received));
    f.has_status = true;
    f.expected_status = expected;
    f.received_status = received;
    return f;
}

// A finding that is a message, no comparison.
inline pc_finding message(pc_finding::Kind kind, pc_finding::Text text, std::string detail = "") {
    pc_finding f;
    f.kind = kind;
    f.text = text;
    f.detail = std::move(detail);
    return f;
}

// Whether a finding is counted before its line is written or after: each call site keeps the
// order it has always had, which a sink that reads the counts can tell.
enum class Count { before_line, after_line };

// Counts a finding (a mismatch or a value error; a log finding is not counted) and hands it with
// its line to the session. The scope's type, operation and element fill what the finding leaves
// empty; a finding not at a value is placed at the record being worked on. (Through the C entry
// point, which the engine's shared library reaches in the platform's.)
inline void report_finding(PROCESS *context, const pc_finding &finding, Count order = Count::before_line) {
    pc_report_finding(context, &finding, order == Count::after_line);
}

// Names the type, operation and element of the findings made while it lives.
class FindingScope {
public:
    FindingScope(PROCESS *context, const char *type, const char *op, int32_t element = -1)
        : session_(context ? context->session : nullptr) {
        if (!session_) return;
        saved_ = session_->finding_scope;
        session_->finding_scope = {type, op, element};
    }
    // An element (-1: none) of the type and operation named already.
    FindingScope(PROCESS *context, int32_t element) : session_(context ? context->session : nullptr) {
        if (!session_) return;
        saved_ = session_->finding_scope;
        session_->finding_scope.element = element;
    }
    ~FindingScope() {
        if (session_) session_->finding_scope = saved_;
    }
    FindingScope(const FindingScope &) = delete;
    FindingScope &operator=(const FindingScope &) = delete;

private:
    pc_session *session_;
    pc_finding_scope saved_;
};

} // namespace pc::support
