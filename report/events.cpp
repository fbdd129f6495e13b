#include "events.hpp"

#include "event_stream.hpp"
#include "planecheck/session.hpp"

#include <fmt/format.h>

#include <cctype>
#include <fstream>
#include <iostream>

namespace pc::report {

namespace {

void take_shard(Stream &s, const runner::RunStarted &r) {
    const runner::Shard &shard = r.shard_of_suite;
    s.shard = shard.index, s.shards = shard.total;
    s.shard_mode = runner::mode_name(shard.mode), s.shard_from = shard.source;
    s.suite_known = r.suite_known, s.suite_size = r.suite_size, s.suite_digest = r.suite.digest;
    for (size_t k = 0; k < r.suite.files.size(); ++k) s.plan.push_back({r.suite.files[k], r.suite.names[k], r.suite.shard_of[k]});
}

} // namespace

struct EventReader::Parser {
    runner::EventDecoder decoder;
};

namespace {

Counts counts_of(const runner::FileResult &f) {
    Counts c;
    c.steps = f.steps;
    c.failed_steps = f.failed_steps;
    c.not_run = f.not_run;
    c.mismatches = f.mismatches;
    c.value_errors = f.value_errors;
    c.expected = f.expected;
    return c;
}

Finding finding_of(const runner::Finding &g) {
    Finding f;
    f.line = g.line;
    f.column = g.column;
    f.step = uint32_t(g.step);
    f.level = g.warning ? "warning" : "error";
    f.kind = runner::kind_name(g.kind);
    f.text = g.text;
    f.has_values = !g.expected.empty() || !g.received.empty();
    if (f.has_values) {
        f.attribute = g.attribute;
        f.expected = g.expected;
        f.received = g.received;
    }
    if (g.has_status) { // the page names statuses where the log line gives numbers
        f.expected = support::status_for_people(g.expected_status);
        f.received = support::status_for_people(g.received_status);
    }
    return f;
}

StepRecord step_of(const runner::StepRecord &g) {
    StepRecord s;
    s.number = uint32_t(g.number);
    s.line = g.line;
    s.kind = g.kind;
    s.table = g.table;
    s.label = g.label;
    s.status = runner::status_name(g.status);
    s.mismatches = g.mismatches;
    s.value_errors = g.value_errors;
    s.duration = g.duration_ms;
    return s;
}

} // namespace

// What each kind of event does to the run being read.
struct EventDispatch {
    static void run_start(EventReader &r, const runner::Event &e) {
        Stream &s = r.run_.streams.back();
        s.version = e.run_start.version;
        s.platform = e.run_start.platform;
        s.host = e.run_start.host;
        s.started = e.time;
        s.command = e.run_start.command;
        s.coverage = e.run_start.coverage;
        take_shard(s, e.run_start);
    }

    static void file_start(EventReader &r, const runner::Event &e) {
        if (auto known = r.files_.find(e.file); known != r.files_.end() && r.run_.files[known->second].finished)
            r.files_.erase(known); // the same file named twice runs twice
        r.file(e.file).name = e.name;
    }

    static void finding(EventReader &r, const runner::Event &e) {
        Finding f = finding_of(e.finding);
        if (f.step == 0) r.file(e.file).findings.push_back(std::move(f));
        else r.pending_[e.file].push_back(std::move(f));
    }

    static void step(EventReader &r, const runner::Event &e) {
        FileRecord &file = r.file(e.file);
        file.steps.push_back(step_of(e.step));
        StepRecord &s = file.steps.back();
        auto waiting = r.pending_.find(e.file);
        if (waiting == r.pending_.end()) return;
        std::vector<Finding> rest;
        for (Finding &f : waiting->second) (f.step == s.number ? s.findings : rest).push_back(std::move(f));
        waiting->second = std::move(rest);
    }

    static void file_end(EventReader &r, const runner::Event &e) {
        FileRecord &f = r.file(e.file);
        f.finished = true;
        f.status = e.status;
        f.counts = counts_of(e.end);
        f.duration = e.end.duration_ms;
        f.error = e.end.error;
        f.ended_how = e.end.ended_how;
        f.ended_at = e.end.ended_at;
        f.last_error = e.end.last_error;
        f.reason = !e.end.skipped.empty() ? e.end.skipped : e.end.not_started;
        f.attempts = e.end.attempts;
        for (const auto &attempt : e.end.failed_attempts) f.failed_attempts.push_back(attempt.message);
        f.slow = e.end.slow;
        r.keep_unclaimed(e.file);
    }

    static void run_end(EventReader &r, const runner::Event &e) {
        Stream &s = r.run_.streams.back();
        const runner::Totals &t = e.run_end.totals;
        s.finished = true;
        s.totals = {t.steps, 0, t.not_run, t.mismatches, t.value_errors, t.expected};
        s.files = t.files;
        s.failed_files = t.failed_files;
        s.exit_status = e.run_end.exit_status;
        s.duration = e.run_end.duration_ms;
        s.verdict = e.run_end.verdict;
    }
};

EventReader::EventReader(Run &run) : run_(run), parser_(std::make_unique<Parser>()) {}
EventReader::~EventReader() = default;

namespace {

bool blank(std::string_view line) { return line.find_first_not_of(" \t\r") == std::string_view::npos; }

bool starts_with_word(std::string_view line, std::string_view word) {
    size_t at = line.find_first_not_of(" \t");
    return at != std::string_view::npos && line.substr(at, word.size()) == word;
}

std::string lower(std::string_view text) {
    std::string out(text);
    for (char &c : out) c = char(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool tap_line(std::string_view line) {
    auto numbered = [&](std::string_view lead) {
        return line.substr(0, lead.size()) == lead && line.size() > lead.size() && std::isdigit(static_cast<unsigned char>(line[lead.size()]));
    };
    return line.starts_with("TAP version") || numbered("1..") || numbered("ok ") || numbered("not ok ");
}

} // namespace

std::string what_the_file_seems(const std::vector<std::string> &head) {
    std::string all;
    for (const std::string &line : head) all += lower(line) + "\n";
    if (all.find("<testsuite") != std::string::npos) return "JUnit XML";
    if (all.find("<!doctype html") != std::string::npos || all.find("<html") != std::string::npos) return "an HTML page";
    if (starts_with_word(all, "<?xml")) return "XML";
    for (const std::string &line : head) {
        if (tap_line(line)) return "TAP";
        if (starts_with_word(line, "steps:") || line.starts_with("config:") || line.starts_with("name:"))
            return "a YAML scenario";
    }
    return "text with no JSON event in its first line";
}

bool EventReader::read_file(const std::string &path) {
    std::ifstream file;
    if (path != "-") {
        file.open(path);
        if (!file) return false;
    }
    std::istream &in = path == "-" ? std::cin : file;
    std::string source = path == "-" ? "standard input" : path, line;
    size_t number = 0;
    bool started = false;
    while (!started && std::getline(in, line)) started = (++number, !blank(line));
    // a file given by mistake (the JUnit file beside the events) is one problem, not one per line
    if (started && !starts_with_word(line, "{")) {
        std::vector<std::string> head{line};
        for (int more = 0; more < 40 && std::getline(in, line); ++more) head.push_back(line);
        run_.problems.push_back(fmt::format("planecheck: {} holds no events: it seems to be {} (planecheck run --events FILE writes events)",
                                            source, what_the_file_seems(head)));
        return true;
    }
    begin_stream(source);
    if (started) read_line(line, number);
    while (std::getline(in, line)) read_line(line, ++number);
    end_stream();
    return true;
}

void EventReader::begin_stream(const std::string &source) {
    source_ = source;
    files_.clear();
    pending_.clear();
    run_.streams.push_back({});
    run_.streams.back().source = source;
}

void EventReader::read_line(std::string_view text, size_t number) {
    if (text.find_first_not_of(" \t\r") == std::string_view::npos) return;
    runner::Event event;
    std::string why;
    if (!parser_->decoder.decode(text, event, why)) return problem(number, why);
    using Kind = runner::EventKind;
    switch (event.kind) {
    case Kind::run_start: return EventDispatch::run_start(*this, event);
    case Kind::file_start: return EventDispatch::file_start(*this, event);
    case Kind::finding: return EventDispatch::finding(*this, event);
    case Kind::step: return EventDispatch::step(*this, event);
    case Kind::file_end: return EventDispatch::file_end(*this, event);
    case Kind::run_end: return EventDispatch::run_end(*this, event);
    case Kind::other: return; // a kind added later: ignored, as members are
    }
}

void EventReader::keep_unclaimed(const std::string &path) {
    auto waiting = pending_.find(path);
    if (waiting == pending_.end()) return;
    std::vector<Finding> &kept = file(path).findings;
    for (Finding &f : waiting->second) kept.push_back(std::move(f));
    pending_.erase(waiting);
}

void EventReader::end_stream() {
    while (!pending_.empty()) keep_unclaimed(pending_.begin()->first);
}

void EventReader::problem(size_t number, const std::string &message) {
    run_.problems.push_back(fmt::format("{}:{}: {}", source_, number, message));
}

FileRecord &EventReader::file(const std::string &path) {
    auto [at, added] = files_.try_emplace(path, run_.files.size());
    if (added) {
        run_.files.push_back({});
        run_.files.back().path = path;
        run_.files.back().stream = run_.streams.size() - 1;
    }
    return run_.files[at->second];
}

} // namespace pc::report
