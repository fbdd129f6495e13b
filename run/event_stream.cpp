#include "event_stream.hpp"

#include "wire_text.hpp"

#include "events.hpp"

#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <unistd.h>

namespace pc::runner {

using simdjson::dom::element;
using simdjson::dom::object;

struct EventDecoder::Parser {
    simdjson::dom::parser parser;
};

namespace {

std::string text_of(const object &event, const char *key) {
    std::string_view value;
    return event[key].get(value) == simdjson::SUCCESS ? from_wire(value) : std::string();
}

// A count written as a number of any form; anything else is 0.
uint64_t count_of(const object &event, const char *key) {
    element value;
    if (event[key].get(value) != simdjson::SUCCESS) return 0;
    if (uint64_t n; value.get(n) == simdjson::SUCCESS) return n;
    if (double d; value.get(d) == simdjson::SUCCESS && d > 0) return uint64_t(d);
    return 0;
}

// A signed whole number, or `otherwise` when the key is absent.
int64_t signed_of(const object &event, const char *key, int64_t otherwise) {
    int64_t n;
    return event[key].get(n) == simdjson::SUCCESS ? n : otherwise;
}

double number_of(const object &event, const char *key) {
    double d;
    return event[key].get(d) == simdjson::SUCCESS ? d : 0;
}

// The enumerator of the first `count` whose name is `text`; `otherwise` for any other text.
template <class Enum> Enum named(const std::string &text, const char *(*name_of)(Enum), int count, Enum otherwise) {
    for (int i = 0; i < count; ++i)
        if (text == name_of(Enum(i))) return Enum(i);
    return otherwise;
}


Finding finding_of(const object &e) {
    Finding f;
    f.line = uint32_t(count_of(e, "line"));
    f.column = uint32_t(count_of(e, "column"));
    f.step = count_of(e, "step");
    f.warning = text_of(e, "level") == "warning";
    f.kind = named(text_of(e, "kind"), kind_name, kFindingKinds, FindingKind::log);
    f.text = text_of(e, "text");
    f.attribute = text_of(e, "attribute");
    f.expected = text_of(e, "expected");
    f.received = text_of(e, "received");
    f.type = text_of(e, "type");
    f.op = text_of(e, "op");
    f.element = int32_t(signed_of(e, "element", -1));
    f.has_status = e["expected_status"].error() == simdjson::SUCCESS;
    f.expected_status = int32_t(signed_of(e, "expected_status", 0));
    f.received_status = int32_t(signed_of(e, "received_status", 0));
    return f;
}

StepRecord step_of(const object &e) {
    StepRecord s;
    s.number = count_of(e, "step");
    s.line = uint32_t(count_of(e, "line"));
    s.kind = text_of(e, "kind");
    s.table = text_of(e, "table");
    s.label = text_of(e, "label");
    s.status = named(text_of(e, "status"), status_name, kStepStatuses, StepStatus::failed); // a status this planecheck does not know did not pass
    s.mismatches = count_of(e, "mismatches");
    s.value_errors = count_of(e, "value_errors");
    s.duration_ms = number_of(e, "duration");
    object records;
    if (e["records"].get(records) == simdjson::SUCCESS) s.records_start = int64_t(count_of(records, "start")), s.records_end = int64_t(count_of(records, "end"));
    return s;
}

void read_counts(const object &e, FileResult &f) {
    f.steps = count_of(e, "steps");
    f.failed_steps = count_of(e, "failed_steps");
    f.not_run = count_of(e, "not_run");
    f.mismatches = count_of(e, "mismatches");
    f.value_errors = count_of(e, "value_errors");
    f.expected = count_of(e, "expected");
    f.problems = count_of(e, "problems");
    f.warnings = count_of(e, "warnings");
    f.duration_ms = number_of(e, "duration");
}

void file_end_of(const object &e, Event &event) {
    FileResult &f = event.end;
    read_counts(e, f);
    event.status = text_of(e, "status");
    // the writer's verdict stands: what failed the file beyond its counts is not written
    f.failures = event.status == "failed";
    f.invalid = event.status == "invalid";
    f.error = text_of(e, "error");
    if (event.status == "not_run") f.not_started = text_of(e, "reason");
    if (event.status == "skipped") f.skipped = text_of(e, "reason");
    f.timed_out = event.status == "timed_out";
    f.attempts = std::max<uint64_t>(count_of(e, "attempts"), 1);
    simdjson::dom::array failed_attempts;
    if (e["failed_attempts"].get(failed_attempts) == simdjson::SUCCESS)
        for (element message : failed_attempts)
            if (std::string_view text; message.get(text) == simdjson::SUCCESS) f.failed_attempts.push_back({from_wire(text), ""});
    bool slow = false;
    f.slow = e["slow"].get(slow) == simdjson::SUCCESS && slow;
    object ended;
    if (e["ended"].get(ended) != simdjson::SUCCESS) return;
    f.ended = true;
    f.ended_how = text_of(ended, "how");
    f.ended_at = text_of(ended, "at");
    f.ended_step = count_of(ended, "step");
    f.last_error = text_of(ended, "last_error");
}

void shard_and_suite_of(const object &e, RunStarted &r) {
    if (object shard; e["shard"].get(shard) == simdjson::SUCCESS) {
        Shard &s = r.shard_of_suite;
        s.index = unsigned(count_of(shard, "index")), s.total = unsigned(count_of(shard, "total"));
        s.mode = text_of(shard, "mode") == "hash" ? ShardMode::hash : ShardMode::position;
        s.source = text_of(shard, "from");
    }
    object suite;
    if (e["suite"].get(suite) != simdjson::SUCCESS) return;
    r.suite_known = true;
    r.suite_size = count_of(suite, "size");
    r.suite.digest = text_of(suite, "digest");
    simdjson::dom::array plan;
    if (suite["plan"].get(plan) != simdjson::SUCCESS) return;
    for (element entry : plan) {
        object planned;
        if (entry.get(planned) != simdjson::SUCCESS) continue;
        r.suite.files.push_back(text_of(planned, "file"));
        r.suite.names.push_back(text_of(planned, "name"));
        r.suite.shard_of.push_back(unsigned(count_of(planned, "shard")));
    }
}

void run_start_of(const object &e, RunStarted &r) {
    r.run_id = text_of(e, "run_id");
    r.version = text_of(e, "version");
    r.platform = text_of(e, "platform");
    r.host = text_of(e, "host");
    simdjson::dom::array command;
    if (e["command"].get(command) == simdjson::SUCCESS)
        for (element arg : command)
            if (std::string_view text; arg.get(text) == simdjson::SUCCESS) r.command.push_back(from_wire(text));
    object options;
    if (e["options"].get(options) == simdjson::SUCCESS) r.coverage = text_of(options, "coverage"), r.shard = text_of(options, "shard");
    shard_and_suite_of(e, r);
}

void run_end_of(const object &e, RunEnded &r) {
    Totals &t = r.totals;
    t.files = count_of(e, "files");
    t.failed_files = count_of(e, "failed_files");
    t.files_skipped = count_of(e, "skipped_files");
    t.files_flaky = count_of(e, "flaky_files");
    t.steps = count_of(e, "steps");
    t.not_run = count_of(e, "not_run");
    t.mismatches = count_of(e, "mismatches");
    t.value_errors = count_of(e, "value_errors");
    t.expected = count_of(e, "expected");
    t.problems = count_of(e, "problems");
    t.warnings = count_of(e, "warnings");
    r.exit_status = count_of(e, "exit_status");
    r.duration_ms = number_of(e, "duration");
    r.verdict = text_of(e, "verdict");
    t.invalid = r.verdict == "invalid";
}

} // namespace

EventDecoder::EventDecoder() : parser_(std::make_unique<Parser>()) {}
EventDecoder::~EventDecoder() = default;

bool EventDecoder::decode(std::string_view line, Event &event, std::string &problem) {
    event = Event{};
    object e;
    if (auto error = parser_->parser.parse(line.data(), line.size()).get(e)) {
        problem = fmt::format("not an event: {}", simdjson::error_message(error));
        return false;
    }
    uint64_t schema = 0;
    if (e["schema"].get(schema) != simdjson::SUCCESS) {
        problem = "not an event: it has no \"schema\" number";
        return false;
    }
    if (schema != 1) {
        problem = fmt::format("event schema {} is not one this planecheck reads (schema 1)", schema);
        return false;
    }
    static const std::map<std::string, EventKind, std::less<>> kinds = {
        {"run_start", EventKind::run_start}, {"file_start", EventKind::file_start}, {"finding", EventKind::finding},
        {"step", EventKind::step},           {"file_end", EventKind::file_end},     {"run_end", EventKind::run_end}};
    std::string kind = text_of(e, "event");
    auto known = kinds.find(kind);
    event.kind = known == kinds.end() ? EventKind::other : known->second; // a kind added later is passed over, as members are
    event.time = text_of(e, "time");
    event.file = text_of(e, "file");
    bool about_a_file = event.kind != EventKind::run_start && event.kind != EventKind::run_end && event.kind != EventKind::other;
    if (about_a_file && event.file.empty()) {
        problem = fmt::format("a {} event without its \"file\"", kind);
        return false;
    }
    switch (event.kind) {
    case EventKind::run_start: run_start_of(e, event.run_start); break;
    case EventKind::file_start: event.name = text_of(e, "name"); break;
    case EventKind::finding: event.finding = finding_of(e); break;
    case EventKind::step: event.step = step_of(e); break;
    case EventKind::file_end: file_end_of(e, event); break;
    case EventKind::run_end: run_end_of(e, event.run_end); break;
    case EventKind::other: break;
    }
    return true;
}

std::string finding_line(const std::string &path, const Finding &f) {
    std::string where = !f.line ? path : !f.column ? fmt::format("{}:{}", path, f.line) : fmt::format("{}:{}:{}", path, f.line, f.column);
    return fmt::format("{}: {}{}", where, f.warning ? "warning: " : "", f.text);
}

namespace {

// The totals of a file_end, into a result that already holds the file's steps and findings.
void take_totals(const Event &e, FileResult &r) {
    std::vector<StepRecord> steps = std::move(r.step_records);
    std::vector<Finding> findings = std::move(r.finding_records);
    std::vector<std::string> lines = std::move(r.findings);
    std::string name = r.name;
    size_t acting = r.acting_steps;
    std::vector<std::string> idle = std::move(r.idle_steps);
    r = e.end;
    r.acting_steps = acting;
    r.idle_steps = std::move(idle);
    r.path = e.file;
    r.name = name;
    r.step_records = std::move(steps);
    r.finding_records = std::move(findings);
    r.findings = std::move(lines);
}

} // namespace

namespace {

// Calls `take` with each non-empty line of `text`.
template <typename Take> void for_each_line(std::string_view text, Take take) {
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(start, end - start);
        start = end + 1;
        if (!line.empty() && !take(line)) return;
    }
}

// A file's event joins its result; true for its file_end.
bool add_to_file(const Event &e, FileResult &r) {
    if (e.kind == EventKind::file_start) r.name = e.name;
    else if (e.kind == EventKind::finding) r.finding_records.push_back(e.finding), r.add_finding(finding_line(r.path, e.finding));
    else if (e.kind == EventKind::step) r.step_records.push_back(e.step), count_step(r, e.step);
    else if (e.kind == EventKind::file_end) take_totals(e, r);
    return e.kind == EventKind::file_end;
}

} // namespace

void read_file_events(std::string_view text, EventDecoder &decoder, FileEvents &into) {
    FileResult &r = into.result;
    Event e;
    for_each_line(text, [&](std::string_view line) {
        if (!decoder.decode(line, e, into.problem)) return false;
        if (e.kind != EventKind::other && e.file != r.path) into.problem = fmt::format("an event of {} among those of {}", e.file, r.path);
        else if (add_to_file(e, r)) into.complete = true;
        return into.problem.empty();
    });
}

void read_run_events(std::string_view text, EventDecoder &decoder, RunEvents &into) {
    Event e;
    std::map<std::string, size_t> at; // a file's place in into.files
    for_each_line(text, [&](std::string_view line) {
        if (!decoder.decode(line, e, into.problem)) return false;
        if (e.kind == EventKind::run_start) into.started = e.run_start;
        if (e.kind == EventKind::run_end) into.ended = true;
        if (e.file.empty()) return true;
        auto [place, added] = at.try_emplace(e.file, into.files.size());
        if (added) into.files.emplace_back(), into.files.back().result.path = e.file;
        FileEvents &file = into.files[place->second];
        file.complete |= add_to_file(e, file.result);
        return true;
    });
}

bool write_all(int fd, const std::string &text) {
    for (size_t done = 0; done < text.size();) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += size_t(n);
    }
    return true;
}

void EventLineWriter::put(const std::string &line) {
    if (ok_ && !write_all(fd_, line + "\n")) ok_ = false, error_ = errno ? errno : EIO;
}

// The index is the parent's to give: it tells the file to its own observer.
void EventLineWriter::file_start(const FileResult &file) {
    put(file_start_event(file, 0, rfc3339_now()));
}

void EventLineWriter::finding(const FileResult &file, const Finding &finding) { put(finding_event(file, finding, rfc3339_now())); }

void EventLineWriter::step(const FileResult &file, const StepRecord &step) {
    put(step_event(file, step, rfc3339_now()));
}

std::string EventLineWriter::file_end_line(const FileResult &file) const { return file_end_event(file, rfc3339_now()); }

} // namespace pc::runner
