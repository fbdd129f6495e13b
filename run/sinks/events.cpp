#include "events.hpp"

#include "wire_text.hpp"

#include "planecheck/session.hpp"

#include <fmt/format.h>

#include <algorithm>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <unistd.h>

#ifndef PC_CATALOGUE_DIGEST
#define PC_CATALOGUE_DIGEST "0000000000000000"
#endif
#ifndef PC_VERSION
#define PC_VERSION "0.0.0"
#endif

namespace pc::runner {
namespace {

std::string head(const char *event, const std::string &at) {
    return fmt::format(R"({{"schema":1,"event":"{}","time":"{}")", event, at);
}

std::string nullable(const std::string &text) { return text.empty() ? "null" : json_string(text); }

std::string boolean(bool b) { return b ? "true" : "false"; }

// Milliseconds with a microsecond's precision; never negative.
std::string ms(double value) { return fmt::format("{:.3f}", value < 0 ? 0.0 : value); }

std::string host_name() {
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) != 0) return "";
    return name;
}


} // namespace

const char *file_status(const FileResult &f) {
    if (f.timed_out) return "timed_out";
    if (f.ended) return "ended";
    if (f.invalid) return "invalid";
    if (!f.not_started.empty()) return "not_run";
    if (!f.passed()) return "failed";
    if (f.flaky()) return "flaky";
    return f.skipped.empty() ? "passed" : "skipped";
}

std::string rfc3339_now() {
    timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc {};
    gmtime_r(&now.tv_sec, &utc);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour,
                       utc.tm_min, utc.tm_sec, now.tv_nsec / 1000000);
}

std::string json_string(const std::string &text) { return wire_text(text, WireForm::json); }

// Which shard the run is and the suite it is a shard of, so that a merge of the shards can tell
// that each came once and every file of the suite ran once. The plan is written only for shards.
std::string shard_and_suite(const RunDescription &run) {
    const Shard &s = run.shard_of_suite;
    std::string shard = !s.sharded() ? "null"
                                     : fmt::format(R"({{"index":{},"total":{},"mode":"{}","from":{}}})", s.index, s.total, mode_name(s.mode),
                                                   json_string(s.source));
    if (!run.suite) return fmt::format(R"("shard":{},"suite":null)", shard);
    std::string plan;
    for (size_t k = 0; s.sharded() && k < run.suite->files.size(); ++k)
        plan += fmt::format(R"({}{{"file":{},"name":{},"shard":{}}})", k ? "," : "", json_string(run.suite->files[k]),
                            json_string(run.suite->names[k]), run.suite->shard_of[k]);
    return fmt::format(R"("shard":{},"suite":{{"size":{},"digest":"{}"{}}})", shard, run.suite->files.size(), run.suite->digest,
                       s.sharded() ? R"(,"plan":[)" + plan + "]" : "");
}

std::string run_start_event(const RunDescription &run, const std::string &at) {
    std::string command;
    for (const auto &arg : run.command) command += (command.empty() ? "" : ",") + json_string(arg);
    return head("run_start", at) +
           fmt::format(R"(,"run_id":{},"version":"{}","catalogue":"{}","platform":{},"command":[{}],"host":{},"files":{},)"
                       R"("options":{{"check_only":{},"strict":{},"verbose":{},"quiet":{},"jobs":{},"recorder":{},"coverage":{},"shard":{}}},{}}})",
                       json_string(run.run_id), PC_VERSION, PC_CATALOGUE_DIGEST, json_string(run.platform), command, json_string(host_name()), run.files,
                       boolean(run.check_only), boolean(run.strict), boolean(run.verbose), boolean(run.quiet), run.jobs,
                       nullable(run.recorder), nullable(run.coverage), nullable(run.shard), shard_and_suite(run));
}

std::string file_start_event(const FileResult &file, size_t index, const std::string &at) {
    return head("file_start", at) + fmt::format(R"(,"file":{},"index":{},"name":{}}})", json_string(file.path), index, nullable(file.name));
}

std::string finding_event(const FileResult &file, const Finding &f, const std::string &at) {
    std::string out = head("finding", at) +
                      fmt::format(R"(,"file":{},"line":{},"step":{},"level":"{}","kind":"{}","text":{})", json_string(file.path),
                                  f.line, f.step, f.warning ? "warning" : "error", kind_name(f.kind), json_string(f.text));
    if (f.column) out += fmt::format(R"(,"column":{})", f.column);
    if (f.kind == FindingKind::mismatch && !f.attribute.empty())
        out += fmt::format(R"(,"attribute":{},"expected":{},"received":{})", json_string(f.attribute), json_string(f.expected),
                           json_string(f.received));
    else if (f.kind == FindingKind::value_error && !f.attribute.empty())
        out += R"(,"attribute":)" + json_string(f.attribute);
    if (!f.type.empty()) out += R"(,"type":)" + json_string(f.type);
    if (!f.op.empty()) out += R"(,"op":)" + json_string(f.op);
    if (f.element >= 0) out += fmt::format(R"(,"element":{})", f.element);
    if (f.has_status)
        out += fmt::format(R"(,"expected_status":{},"received_status":{},"expected_status_text":"{}","received_status_text":"{}")",
                           f.expected_status, f.received_status, support::status_for_people(f.expected_status),
                           support::status_for_people(f.received_status));
    return out + "}";
}

std::string step_event(const FileResult &file, const StepRecord &s, const std::string &at) {
    std::string out = head("step", at) +
                      fmt::format(R"(,"file":{},"step":{},"line":{},"kind":"{}","table":{},"label":{},"status":"{}",)"
                                  R"("mismatches":{},"value_errors":{},"duration":{})",
                                  json_string(file.path), s.number, s.line, s.kind, nullable(s.table), json_string(s.label),
                                  status_name(s.status), s.mismatches, s.value_errors, ms(s.duration_ms));
    if (s.records_start >= 0 && s.records_end >= s.records_start)
        out += fmt::format(R"(,"records":{{"start":{},"end":{}}})", s.records_start, s.records_end);
    return out + "}";
}

std::string file_end_event(const FileResult &f, const std::string &at) {
    std::string out = head("file_end", at) +
                      fmt::format(R"(,"file":{},"status":"{}","steps":{},"failed_steps":{},"not_run":{},"mismatches":{},)"
                                  R"("value_errors":{},"expected":{},"problems":{},"warnings":{},"duration":{})",
                                  json_string(f.path), file_status(f), f.steps, f.failed_steps, f.not_run, f.mismatches,
                                  f.value_errors, f.expected, f.problems, f.warnings, ms(f.duration_ms));
    if (f.invalid && !f.error.empty()) out += R"(,"error":)" + json_string(f.error);
    if (!f.not_started.empty()) out += R"(,"reason":)" + json_string(f.not_started);
    else if (f.was_skipped()) out += R"(,"reason":)" + json_string(f.skipped);
    if (f.ended) {
        out += fmt::format(R"(,"ended":{{"how":{},"at":{},"step":{})", json_string(f.ended_how), json_string(f.ended_at), f.ended_step);
        if (!f.last_error.empty()) out += R"(,"last_error":)" + json_string(f.last_error);
        out += "}";
    }
    if (f.attempts > 1) {
        out += fmt::format(R"(,"attempts":{},"failed_attempts":[)", f.attempts);
        for (size_t i = 0; i < f.failed_attempts.size(); ++i) out += (i ? "," : "") + json_string(f.failed_attempts[i].message);
        out += "]";
    }
    if (f.slow) out += R"(,"slow":true)";
    return out + "}";
}

const char *run_verdict(const Totals &t) {
    return t.invalid ? "invalid" : t.failed_files ? "failed" : nothing_tested(t) ? "skipped" : "passed";
}

std::string run_end_event(const Totals &e, double duration_ms, int exit_status, const std::string &at) {
    const char *verdict = run_verdict(e);
    std::string flaky = e.files_flaky ? fmt::format(R"("flaky_files":{},)", e.files_flaky) : "";
    return head("run_end", at) +
           fmt::format(R"(,"files":{},"failed_files":{},"skipped_files":{},{}"steps":{},"not_run":{},"mismatches":{},"value_errors":{},"expected":{},)"
                       R"("problems":{},"warnings":{},"duration":{},"exit_status":{},"verdict":"{}"}})",
                       e.files, e.failed_files, e.files_skipped, flaky, e.steps, e.not_run, e.mismatches, e.value_errors, e.expected, e.problems,
                       e.warnings, ms(duration_ms), exit_status, verdict);
}

bool EventWriter::open(const std::string &path) {
    if (path == "-") {
        out_ = stdout;
        return true;
    }
    out_ = std::fopen(path.c_str(), "we");
    own_ = out_ != nullptr;
    return out_ != nullptr;
}

bool EventWriter::close() {
    if (!out_) return true;
    bool ok = std::fflush(out_) == 0 && !std::ferror(out_);
    if (own_ && std::fclose(out_) != 0) ok = false;
    out_ = nullptr;
    return ok;
}

void EventWriter::write(const std::string &line) {
    if (!out_) return;
    std::fwrite(line.data(), 1, line.size(), out_);
    std::fputc('\n', out_);
    std::fflush(out_);
}

void EventWriter::run_start(const RunDescription &run) {
    started_ = std::chrono::steady_clock::now();
    write(run_start_event(run, rfc3339_now()));
}

void EventWriter::run_end(const Totals &totals, int exit_status) {
    if (ended_) return;
    ended_ = true;
    double duration = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started_).count();
    write(run_end_event(totals, duration, exit_status, rfc3339_now()));
}

void EventWriter::file_start(const FileResult &file) {
    write(file_start_event(file, next_index_++, rfc3339_now()));
}

void EventWriter::finding(const FileResult &file, const Finding &finding) { write(finding_event(file, finding, rfc3339_now())); }

void EventWriter::step(const FileResult &file, const StepRecord &step) {
    StepRecord placed = step;
    if (placed.records_start >= 0) placed.records_start += int64_t(records_base_), placed.records_end += int64_t(records_base_);
    write(step_event(file, placed, rfc3339_now()));
}

void EventWriter::file_end(const FileResult &file) {
    write(file_end_event(file, rfc3339_now()));
}

} // namespace pc::runner
