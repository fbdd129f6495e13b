// The runner's C interface: a thin layer over the run library. A runner keeps the options and
// outputs; each pc_runner_run is one run of the files added since the last.
#include "planecheck/runner.h"

#include "events.hpp"
#include "report_command.hpp"
#include "session.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <utility>

namespace {

using namespace pc::runner;

// Hands each record to the user's callback, as a structure and as its event's JSON line.
class CallbackObserver : public RunObserver {
public:
    CallbackObserver(pc_runner_event_fn fn, void *user) : fn_(fn), user_(user) {}

    void run_start(const RunDescription &run) override {
        index_ = 0;
        emit("run_start", run_start_event(run, rfc3339_now()), {});
    }
    void file_start(const FileResult &f) override {
        pc_runner_event e{};
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
        pc_runner_event e{};
        e.file = f.path.c_str(), e.line = s.line, e.step = s.number, e.kind = s.kind.c_str(), e.label = s.label.c_str();
        e.status = status_name(s.status), e.mismatches = s.mismatches, e.value_errors = s.value_errors;
        emit("step", step_event(f, s, rfc3339_now()), e);
    }
    void file_end(const FileResult &f) override {
        pc_runner_event e{};
        e.file = f.path.c_str(), e.mismatches = f.mismatches, e.value_errors = f.value_errors, e.steps = f.steps;
        e.status = file_status(f);
        e.text = f.invalid ? f.error.c_str() : !f.not_started.empty() ? f.not_started.c_str() : f.was_skipped() ? f.skipped.c_str() : nullptr;
        emit("file_end", file_end_event(f, rfc3339_now()), e);
    }
    void run_end(const Totals &t, int status) override {
        pc_runner_event e{};
        e.mismatches = t.mismatches, e.value_errors = t.value_errors, e.steps = t.steps;
        e.status = run_verdict(t);
        emit("run_end", run_end_event(t, 0, status, rfc3339_now()), e);
    }

private:
    void emit(const char *event, const std::string &json, pc_runner_event e) {
        if (!fn_) return;
        e.event = event;
        e.json = json.c_str();
        fn_(user_, &e);
    }

    pc_runner_event_fn fn_;
    void *user_;
    size_t index_ = 0;
};

// An output written to a file the caller names, opened for the length of one run.
struct OpenedFile {
    FILE *file = nullptr;
    ~OpenedFile() {
        if (file) std::fclose(file);
    }
};

} // namespace

struct pc_runner {
    pc_runner_options options;
    CallbackObserver callback;
    std::map<std::string, std::string> outputs;
    std::vector<std::string> files;
    pc_runner(const pc_runner_options &o, pc_runner_event_fn fn, void *user) : options(o), callback(fn, user) {}
};

extern "C" {

void pc_runner_options_init(pc_runner_options *options) {
    if (!options) return;
    *options = {};
    options->jobs = 1;
}

pc_runner *pc_runner_new(const pc_runner_options *given, pc_runner_event_fn on_event, void *user) {
    pc_runner_options o;
    pc_runner_options_init(&o);
    if (given) o = *given;
    return new (std::nothrow) pc_runner(o, on_event, user);
}

int pc_runner_output(pc_runner *runner, const char *name, const char *path) {
    static const char *const names[] = {"recorder", "junit", "tap", "events", "html", "coverage"};
    if (!runner || !name || !path) return errno = EINVAL, -1;
    for (const char *known : names)
        if (!std::strcmp(name, known)) return runner->outputs[name] = path, 0;
    return errno = EINVAL, -1;
}

int pc_runner_add(pc_runner *runner, const char *path) {
    if (!runner || !path) return errno = EINVAL, -1;
    runner->files.emplace_back(path);
    return 0;
}

int pc_runner_run(pc_runner *runner) {
    if (!runner) return 2;
    const pc_runner_options &o = runner->options;
    RunRequest request;
    request.files = std::exchange(runner->files, {});
    request.command = {"pc_runner_run"};
    request.file.verbose = o.verbose, request.file.quiet = o.quiet, request.file.strict = o.strict;
    request.file.trace = o.trace, request.file.check_only = o.check_only;
    request.jobs = o.jobs;
    request.jobs_chosen = true;
    request.shard = o.shard ? o.shard : "";
    request.ci_environment = o.ci_environment;
    request.handlers = o.handlers;
    request.allow_skipped = o.allow_skipped;
    request.limits.timeout_s = o.timeout, request.limits.retries = o.retries, request.limits.max_fail = o.max_fail;
    request.observer = &runner->callback;
    auto output = [&](const char *name) {
        auto it = runner->outputs.find(name);
        return it == runner->outputs.end() ? std::string() : it->second;
    };
    request.recorder = output("recorder"), request.junit = output("junit"), request.events = output("events");
    request.html = output("html"), request.coverage = output("coverage");
    request.write_html = [](const std::string &events, const std::string &page) {
        return pc::report::report_command({{events}, page, {}});
    };
    OpenedFile tap;
    if (std::string to = output("tap"); !to.empty()) {
        request.tap = true;
        if (to != "-" && !(tap.file = std::fopen(to.c_str(), "we"))) {
            std::fprintf(stderr, "planecheck: cannot write the TAP stream to %s: %s\n", to.c_str(), std::strerror(errno));
            return 2;
        }
        if (tap.file) request.tap_out = tap.file;
    }
    return run_files(request);
}

void pc_runner_free(pc_runner *runner) { delete runner; }

} // extern "C"
