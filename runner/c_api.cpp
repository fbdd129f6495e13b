// The runner's C interface: the run loop of the command, with the event stream as its sink and a
// callback beside it.
#include "planecheck/runner.h"

#include "coverage.hpp"
#include "ending.hpp"
#include "events.hpp"
#include "recorder_sink.hpp"
#include "report.hpp"
#include "run.hpp"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>

namespace {

using namespace pc::runner;

// Hands each event to the user's callback, as a structure and as its JSON line.
class CallbackObserver : public RunObserver {
public:
    CallbackObserver(pc_runner_event_fn fn, void *user) : fn_(fn), user_(user) {}

    void emit(const char *event, const std::string &json, pc_runner_event e = {}) {
        if (!fn_) return;
        e.event = event;
        e.json = json.c_str();
        fn_(user_, &e);
    }
    void file_start(const FileResult &f) override {
        pc_runner_event e{};
        failed_steps_ = 0;
        e.file = f.path.c_str();
        emit("file_start", file_start_event(f, index_++, rfc3339_now()), e);
    }
    void finding(const FileResult &f, const Finding &finding) override {
        pc_runner_event e{};
        e.file = f.path.c_str(), e.line = finding.line, e.step = finding.step, e.kind = kind_name(finding.kind);
        e.text = finding.text.c_str();
        emit("finding", finding_event(f, finding, rfc3339_now()), e);
    }
    void step(const FileResult &f, const StepRecord &s) override {
        failed_steps_ += s.status == StepStatus::failed;
        pc_runner_event e{};
        e.file = f.path.c_str(), e.line = s.line, e.step = s.number, e.kind = s.kind.c_str(), e.label = s.label.c_str();
        e.status = status_name(s.status), e.mismatches = s.mismatches, e.value_errors = s.value_errors;
        emit("step", step_event(f, s, rfc3339_now()), e);
    }
    void file_end(const FileResult &f) override {
        pc_runner_event e{};
        e.file = f.path.c_str(), e.mismatches = f.mismatches, e.value_errors = f.value_errors;
        e.status = f.ended ? "ended" : f.invalid ? "invalid" : f.passed() ? "passed" : "failed";
        emit("file_end", file_end_event(f, failed_steps_, rfc3339_now()), e);
    }

private:
    pc_runner_event_fn fn_;
    void *user_;
    size_t index_ = 0;
    size_t failed_steps_ = 0; // of the file being told
};

// Tells every event to the events file and to the callback.
class Both : public RunObserver {
public:
    Both(RunObserver &a, RunObserver &b) : a_(a), b_(b) {}
    void file_start(const FileResult &f) override { a_.file_start(f), b_.file_start(f); }
    void finding(const FileResult &f, const Finding &x) override { a_.finding(f, x), b_.finding(f, x); }
    void step(const FileResult &f, const StepRecord &s) override { a_.step(f, s), b_.step(f, s); }
    void file_end(const FileResult &f) override { a_.file_end(f), b_.file_end(f); }

private:
    RunObserver &a_, &b_;
};

void fill(pc_runner_file_result *out, const FileResult &r) {
    if (!out) return;
    *out = {};
    out->passed = r.passed();
    out->invalid = r.invalid;
    out->steps = r.steps, out->failed_steps = r.failed_steps, out->not_run = r.not_run;
    out->mismatches = r.mismatches, out->value_errors = r.value_errors, out->expected = r.expected;
    out->problems = r.problems, out->warnings = r.warnings, out->duration_ms = r.duration_ms;
    std::snprintf(out->error, sizeof out->error, "%s", r.error.c_str());
}

} // namespace

struct pc_runner {
    Options options;
    std::string coverage_path;
    pc::coverage::Report coverage;
    EventWriter events;
    CallbackObserver callback;
    Both both{events, callback};
    Totals totals;
    bool recording = false;
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    pc_runner(pc_runner_event_fn fn, void *user) : callback(fn, user) {}
};

extern "C" {

void pc_runner_options_init(pc_runner_options *options) {
    if (!options) return;
    *options = {};
    options->recorder_fd = -1;
}

pc_runner *pc_runner_new(const pc_runner_options *given, pc_runner_event_fn on_event, void *user) {
    pc_runner_options o;
    pc_runner_options_init(&o);
    if (given) o = *given;
    auto runner = std::make_unique<pc_runner>(on_event, user);
    Options &options = runner->options;
    options.verbose = o.verbose, options.quiet = o.quiet, options.strict = o.strict, options.trace = o.trace;
    if (o.recorder_path && !pc::recorder::open_file(o.recorder_path)) return nullptr;
    if (!o.recorder_path && o.recorder_fd >= 0) pc::recorder::to_descriptor(o.recorder_fd);
    runner->recording = o.recorder_path || o.recorder_fd >= 0;
    if (o.events_path && !runner->events.open(o.events_path)) return nullptr;
    if (o.events_path && std::string(o.events_path) == "-") options.steps = stderr;
    if (o.coverage_path) runner->coverage_path = o.coverage_path, options.coverage = &runner->coverage;
    options.observer = &runner->both;
    pc::runner::ending::install();
    RunDescription run;
    run.strict = o.strict, run.verbose = o.verbose, run.quiet = o.quiet;
    run.recorder = o.recorder_path ? o.recorder_path : "";
    run.coverage = runner->coverage_path;
    std::string line = run_start_event(run, rfc3339_now());
    runner->events.run_start(run);
    runner->callback.emit("run_start", line);
    return runner.release();
}

namespace {

pc_runner *g_running = nullptr; // the runner whose file runs now, for an end of the process

// When the library ends the process in the middle of a file, its last events say so.
void end_of_process(const std::string &how, int status) {
    end_running_file(how);
    if (!g_running) return;
    g_running->callback.emit("run_end", run_end_event(g_running->totals, 0, status, rfc3339_now()));
    g_running->events.run_end(status);
}

} // namespace

static int run_one(pc_runner *runner, const char *path, pc_runner_file_result *result, bool check_only) {
    if (!runner || !path) return -1;
    Options options = runner->options;
    options.check_only = check_only;
    g_running = runner;
    pc::runner::ending::set_end_report(end_of_process);
    FileResult r = run_file(path, options);
    pc::runner::ending::set_end_report(nullptr);
    g_running = nullptr;
    add_to(runner->totals, r);
    fill(result, r);
    return r.invalid ? -1 : r.passed() ? 1 : 0;
}

int pc_runner_run_file(pc_runner *runner, const char *path, pc_runner_file_result *result) {
    return run_one(runner, path, result, false);
}

int pc_runner_check_file(pc_runner *runner, const char *path, pc_runner_file_result *result) {
    return run_one(runner, path, result, true);
}

int pc_runner_finish(pc_runner *runner) {
    if (!runner) return 2;
    const Totals &t = runner->totals;
    int status = t.invalid ? 2 : t.failed_files ? 1 : 0;
    if (runner->recording && !pc::recorder::close()) status = 2;
    runner->recording = false;
    if (!runner->coverage_path.empty() && !pc::coverage::write_file(runner->coverage, runner->coverage_path)) status = 2;
    double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - runner->started).count();
    runner->callback.emit("run_end", run_end_event(t, ms, status, rfc3339_now()));
    runner->events.run_end(status);
    if (!runner->events.close()) status = 2;
    return status;
}

void pc_runner_free(pc_runner *runner) { delete runner; }

} // extern "C"
