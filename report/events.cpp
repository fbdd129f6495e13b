#include "events.hpp"

#include <fmt/format.h>
#include <simdjson.h>

#include <fstream>
#include <iostream>

namespace pc::report {

using simdjson::dom::element;
using simdjson::dom::object;

struct EventReader::Parser {
    simdjson::dom::parser parser;
};

namespace {

std::string text_of(const object &event, const char *key) {
    std::string_view value;
    return event[key].get(value) == simdjson::SUCCESS ? std::string(value) : std::string();
}

uint64_t count_of(const object &event, const char *key) {
    element value;
    if (event[key].get(value) != simdjson::SUCCESS) return 0;
    if (uint64_t n; value.get(n) == simdjson::SUCCESS) return n;
    if (double d; value.get(d) == simdjson::SUCCESS && d > 0) return uint64_t(d);
    return 0;
}

double number_of(const object &event, const char *key) {
    double d;
    return event[key].get(d) == simdjson::SUCCESS ? d : 0;
}

Counts counts_of(const object &event) {
    Counts c;
    c.steps = count_of(event, "steps");
    c.failed_steps = count_of(event, "failed_steps");
    c.not_run = count_of(event, "not_run");
    c.mismatches = count_of(event, "mismatches");
    c.value_errors = count_of(event, "value_errors");
    c.expected = count_of(event, "expected");
    return c;
}

Finding finding_of(const object &event) {
    Finding f;
    f.line = uint32_t(count_of(event, "line"));
    f.column = uint32_t(count_of(event, "column"));
    f.step = uint32_t(count_of(event, "step"));
    f.level = text_of(event, "level");
    f.kind = text_of(event, "kind");
    f.text = text_of(event, "text");
    element expected, received;
    f.has_values = event["expected"].get(expected) == simdjson::SUCCESS && event["received"].get(received) == simdjson::SUCCESS;
    if (f.has_values) {
        f.attribute = text_of(event, "attribute");
        f.expected = text_of(event, "expected");
        f.received = text_of(event, "received");
    }
    return f;
}

StepRecord step_of(const object &event) {
    StepRecord s;
    s.number = uint32_t(count_of(event, "step"));
    s.line = uint32_t(count_of(event, "line"));
    s.kind = text_of(event, "kind");
    s.table = text_of(event, "table");
    s.label = text_of(event, "label");
    s.status = text_of(event, "status");
    s.mismatches = count_of(event, "mismatches");
    s.value_errors = count_of(event, "value_errors");
    s.duration = number_of(event, "duration");
    return s;
}

} // namespace

// What each kind of event does to the run being read.
struct EventDispatch {
    static void run_start(EventReader &r, const object &e) {
        Stream &s = r.run_.streams.back();
        s.version = text_of(e, "version");
        s.platform = text_of(e, "platform");
        s.host = text_of(e, "host");
        s.started = text_of(e, "time");
        s.command.clear();
        simdjson::dom::array command;
        if (e["command"].get(command) == simdjson::SUCCESS)
            for (element arg : command) {
                std::string_view text;
                if (arg.get(text) == simdjson::SUCCESS) s.command.emplace_back(text);
            }
        object options;
        if (e["options"].get(options) == simdjson::SUCCESS) s.coverage = text_of(options, "coverage");
    }

    static void file_start(EventReader &r, const object &e) {
        std::string path = text_of(e, "file");
        if (auto known = r.files_.find(path); known != r.files_.end() && r.run_.files[known->second].finished)
            r.files_.erase(known); // the same file named twice runs twice
        FileRecord &f = r.file(path);
        f.name = text_of(e, "name");
    }

    static void finding(EventReader &r, const object &e) {
        Finding f = finding_of(e);
        std::string path = text_of(e, "file");
        if (f.step == 0) r.file(path).findings.push_back(std::move(f));
        else r.pending_[path].push_back(std::move(f));
    }

    static void step(EventReader &r, const object &e) {
        std::string path = text_of(e, "file");
        FileRecord &file = r.file(path);
        file.steps.push_back(step_of(e));
        StepRecord &s = file.steps.back();
        auto waiting = r.pending_.find(path);
        if (waiting == r.pending_.end()) return;
        std::vector<Finding> rest;
        for (Finding &f : waiting->second) (f.step == s.number ? s.findings : rest).push_back(std::move(f));
        waiting->second = std::move(rest);
    }

    static void file_end(EventReader &r, const object &e) {
        std::string path = text_of(e, "file");
        FileRecord &f = r.file(path);
        f.finished = true;
        f.status = text_of(e, "status");
        f.counts = counts_of(e);
        f.duration = number_of(e, "duration");
        f.error = text_of(e, "error");
        object ended;
        if (e["ended"].get(ended) == simdjson::SUCCESS) {
            f.ended_how = text_of(ended, "how");
            f.ended_at = text_of(ended, "at");
            f.last_error = text_of(ended, "last_error");
        }
        r.keep_unclaimed(path);
    }

    static void run_end(EventReader &r, const object &e) {
        Stream &s = r.run_.streams.back();
        s.finished = true;
        s.totals = counts_of(e);
        s.files = count_of(e, "files");
        s.failed_files = count_of(e, "failed_files");
        s.exit_status = count_of(e, "exit_status");
        s.duration = number_of(e, "duration");
        s.verdict = text_of(e, "verdict");
    }
};

EventReader::EventReader(Run &run) : run_(run), parser_(std::make_unique<Parser>()) {}
EventReader::~EventReader() = default;

bool EventReader::read_file(const std::string &path) {
    std::ifstream file;
    if (path != "-") {
        file.open(path);
        if (!file) return false;
    }
    std::istream &in = path == "-" ? std::cin : file;
    begin_stream(path == "-" ? "standard input" : path);
    std::string line;
    for (size_t number = 1; std::getline(in, line); ++number) read_line(line, number);
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
    object event;
    if (auto error = parser_->parser.parse(text.data(), text.size()).get(event))
        return problem(number, fmt::format("not an event: {}", simdjson::error_message(error)));
    uint64_t schema = 0;
    if (event["schema"].get(schema) != simdjson::SUCCESS) return problem(number, "not an event: it has no \"schema\" number");
    if (schema != 1) return problem(number, fmt::format("event schema {} is not one this planecheck reads (schema 1)", schema));
    std::string kind = text_of(event, "event");
    static const std::map<std::string, void (*)(EventReader &, const object &)> handlers = {
        {"run_start", EventDispatch::run_start}, {"file_start", EventDispatch::file_start},
        {"finding", EventDispatch::finding},     {"step", EventDispatch::step},
        {"file_end", EventDispatch::file_end},   {"run_end", EventDispatch::run_end}};
    auto handler = handlers.find(kind);
    if (handler == handlers.end()) return; // a kind added later: ignored, as members are
    bool about_a_file = kind != "run_start" && kind != "run_end";
    if (about_a_file && text_of(event, "file").empty()) return problem(number, fmt::format("a {} event without its \"file\"", kind));
    handler->second(*this, event);
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
    }
    return run_.files[at->second];
}

} // namespace pc::report
