// Findings as records: each line is composed here from its record, counted, and handed to the
// session's sink of findings, or of lines where a runner only reads lines.
#include "planecheck/session.hpp"
#include "planecheck/support.h"

#include <cstdio>

namespace pc::support {
namespace {

using Text = pc_finding::Text;

// The lines that were always written through the printf-style logger are cut where its buffer
// ends (1023 bytes), as they always have been; a cut line has no "\n".
std::string as_logger_writes(std::string line) {
    constexpr size_t kLoggerBytes = 1023;
    if (line.size() > kLoggerBytes) line.resize(kLoggerBytes);
    return line;
}

std::string status_text(const char *who, const pc_finding &f) {
    return std::string(who) + ": " + kerr_strerror(f.received_status) + ", received " + std::to_string(f.received_status) +
           " expected " + std::to_string(f.expected_status) + "\n";
}

std::string logged_text(const pc_finding &f) {
    switch (f.text) {
    case Text::values_differ: return f.attribute + ": received " + f.received + " expected " + f.expected + "\n";
    case Text::expected_set: return "dpa_" + f.type + "_get, expected " + f.attribute + " to be set\n";
    case Text::expected_in_state: return "dpa_" + f.type + "_get, expected " + f.expected + " in " + f.received + "\n";
    case Text::status: return status_text(("dpa_" + f.type + "_" + f.op).c_str(), f);
    case Text::batch_status: return status_text("ofa_batch_list_send", f);
    case Text::npu_result: return "npu_result: received " + f.received + " expected " + f.expected + "\n";
    case Text::did_not_run: return f.type + "_validate_did_not_run:received " + f.received + " expected " + f.expected + "\n";
    case Text::received_type: return "Expected " + f.type + " received " + f.received + "\n";
    case Text::batch_params: return "in YAML test file, first element in batch_crud needs to be: 'batch_params'\n";
    case Text::unknown_table: return "unknown table " + f.attribute + "\n";
    default: return "";
    }
}

void count(pc_session *session, pc_finding::Kind kind) {
    if (!session || kind == pc_finding::Kind::log) return;
    session->stats[kind == pc_finding::Kind::mismatch ? PC_STAT_MISMATCH : PC_STAT_VALUE_ERROR]++;
}

void fill_from_scope(pc_finding &f, const pc_session &session) {
    const pc_finding_scope &scope = session.finding_scope;
    if (f.type.empty() && scope.type) f.type = scope.type;
    if (f.op.empty() && scope.op) f.op = scope.op;
    if (f.element < 0) f.element = scope.element;
    if (f.kind != pc_finding::Kind::value_error && !f.line) f.line = session.record_line;
}

void deliver(pc_session *session, const pc_finding &f, const std::string &line) {
    if (session && session->on_finding) session->on_finding(f, line);
    else if (session && f.kind == pc_finding::Kind::value_error && session->log_value_error) session->log_value_error(line, f.line, f.column);
    else if (session && session->log) session->log(1, line, f.line);
    else std::fputs(line.c_str(), stderr);
}

} // namespace

std::string finding_line(const pc_finding &f) {
    switch (f.text) {
    case Text::attribute_detail: return f.attribute + ": " + f.detail + "\n";
    case Text::type_detail: return f.type + ": " + f.detail + "\n";
    case Text::detail: return f.detail + "\n";
    default: return as_logger_writes(logged_text(f));
    }
}

} // namespace pc::support

extern "C" void pc_report_finding(PROCESS *context, const pc_finding *finding, int count_after_line) {
    using namespace pc::support;
    pc_session *session = context ? context->session : nullptr;
    pc_finding f = *finding;
    if (session) fill_from_scope(f, *session);
    std::string line = finding_line(f);
    if (!count_after_line) count(session, f.kind);
    deliver(session, f, line);
    if (count_after_line) count(session, f.kind);
}

namespace pc::support {

void report_value_error(PROCESS *context, const JSON_Value *value, const std::string &attribute, const std::string &detail) {
    pc_finding f = message(pc_finding::Kind::value_error, Text::attribute_detail, detail);
    f.attribute = attribute;
    f.line = pc_json_line(value);
    f.column = pc_json_column(value);
    report_finding(context, std::move(f));
}

} // namespace pc::support
