#include "ending.hpp"

#include "recorder_sink.hpp"
#include "report.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace pc::runner {
namespace {

struct Watched {
    const std::string *path = nullptr;
    FILE *steps = nullptr;
    Trail *trail = nullptr;
    bool progress = false; // a progress line may stand on the terminal
};
Watched watched;

char abort_line[1024];
size_t abort_length = 0;
int abort_fd = -1;

std::string ran_before(const Trail &t) { return plural(t.steps_ran, "step") + " ran before it"; }

void exited(int status, void *) {
    if (!watched.trail || !watched.trail->step) return;
    const Trail &t = *watched.trail;
    if (watched.progress) std::fputs("\r\033[K", stderr);
    std::string error = t.last_error[0] ? ": " + without_location(*watched.path, t.last_error) : "";
    fmt::print(watched.steps, "{}:{}: step {} {}: the library ended the run with exit status {} ({}){}\n", *watched.path, t.line,
               t.step, t.label, status, ran_before(t), error);
    std::fflush(watched.steps);
    ending::report_end(fmt::format("exit status {}", status), status);
}


} // namespace

// Called from the abort handler that ending::install sets: the line composed by arm_abort.
void write_armed_abort_line() {
    if (abort_length && write(abort_fd, abort_line, abort_length) > 0 && watched.trail) watched.trail->step_line_written = true;
}

EndWatch::EndWatch(const std::string &path, FILE *steps, Trail &trail, bool progress) {
    static bool registered = (on_exit(&exited, nullptr), true);
    (void)registered;
    watched = {&path, steps, &trail, progress};
}

EndWatch::~EndWatch() {
    watched = {};
    abort_length = 0;
}

void EndWatch::arm_abort() {
    const Trail &t = *watched.trail;
    std::fflush(watched.steps); // the lines of earlier steps come first
    std::string line = fmt::format("{}:{}: step {} {}: the library ended the run by an assertion ({})\n", *watched.path, t.line, t.step,
                                   t.label, ran_before(t));
    abort_length = std::min(line.size(), sizeof abort_line);
    std::memcpy(abort_line, line.data(), abort_length);
    abort_fd = fileno(watched.steps);
}

void EndWatch::disarm_abort() { abort_length = 0; }

void trail_step(Trail &trail, size_t number, uint32_t line) {
    trail.step = number;
    trail.line = line;
    trail.label[0] = '\0';
}

void trail_label(Trail &trail, const std::string &label) { std::snprintf(trail.label, sizeof trail.label, "%s", label.c_str()); }

void trail_error(Trail &trail, const std::string &line) { std::snprintf(trail.last_error, sizeof trail.last_error, "%s", line.c_str()); }

void trail_done(Trail &trail, size_t steps_ran, uint64_t mismatches, uint64_t value_errors) {
    trail.steps_ran = steps_ran;
    trail.step = 0;
    trail.mismatches = trail.step_mismatches_from = mismatches;
    trail.value_errors = trail.step_value_errors_from = value_errors;
}

FileResult ended_early(const std::string &path, const Trail &trail, const std::string &how, const std::vector<std::string> &last_lines) {
    FileResult r;
    r.path = path;
    r.ended = true;
    r.ended_how = how;
    r.ended_step = trail.step;
    r.failed_steps = 1;
    r.steps = trail.steps_ran;
    r.mismatches = trail.mismatches;
    r.value_errors = trail.value_errors;
    // an assertion report goes straight to standard error: it is the run's last line, or the one
    // before the step line that the abort handler wrote after it
    size_t back = trail.step_line_written ? 2 : 1;
    std::string last_output = last_lines.size() >= back ? last_lines[last_lines.size() - back] : "";
    bool exit_status = how.rfind("exit", 0) == 0;
    r.last_error = exit_status && trail.last_error[0] ? trail.last_error : last_output;
    r.ended_at = trail.step ? fmt::format("{}:{}", path, trail.line) : path;
    std::string where = trail.step ? fmt::format(" in step {} ({}) at line {}, after {} ran", trail.step,
                                                 trail.label[0] ? trail.label : "a step", trail.line, plural(trail.steps_ran, "step"))
                                   : "";
    r.add_finding(fmt::format("{}: the run ended early with {}{}", path, how, where));
    if (!r.last_error.empty()) r.add_finding(r.last_error);
    return r;
}


} // namespace pc::runner

namespace pc::runner::ending {
namespace {

void write_abort_line();

volatile std::sig_atomic_t g_stop_signal = 0;
void (*g_write_pending)() = nullptr;
void (*g_end_report)(const std::string &, int) = nullptr;

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

void on_stop_signal(int signal) {
    if (!g_stop_signal) g_stop_signal = signal; // the first one is the one the process ends with
}

// An abort is raised by the thread that asserted, outside stdio and the recorder, so writing
// out here is safe; abort() then ends the process as it would have.
void on_abort(int) {
    flush_all();
    write_abort_line();
    report_end(fmt::format("signal {} ({})", SIGABRT, strsignal(SIGABRT)), 128 + SIGABRT);
}

// A reader of standard output that went away: the write that raised this holds stdio's lock, so
// only the recorder is written out before the process ends with the signal, as pipelines expect.
void on_broken_pipe(int) {
    pc::recorder::flush();
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
}

void catch_signal(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND; // no SA_RESTART: a parent waiting for its children wakes up
    sigaction(signal, &action, nullptr);
}

void write_abort_line() { write_armed_abort_line(); }

} // namespace

void install() {
    std::atexit(flush_all);
    catch_signal(SIGABRT, on_abort);
    catch_signal(SIGPIPE, on_broken_pipe);
    for (int signal : kStopSignals) catch_signal(signal, on_stop_signal);
    pc::recorder::on_record_end(stop_if_requested);
}

void set_pending_output(void (*write_pending)()) { g_write_pending = write_pending; }

void set_end_report(void (*report)(const std::string &how, int status)) { g_end_report = report; }

void report_end(const std::string &how, int status) {
    auto report = g_end_report;
    g_end_report = nullptr; // once: an exit after an abort or a signal has nothing more to say
    if (report) report(how, status);
}

// The recorder first: writing to a standard output whose reader has gone may end the process.
void flush_all() {
    pc::recorder::flush();
    if (g_write_pending) g_write_pending();
    std::fflush(stdout);
    std::fflush(stderr);
}

int stop_signal() { return g_stop_signal; }

void stop_if_requested() {
    int signal = g_stop_signal;
    if (!signal) return;
    flush_all();
    report_end(fmt::format("signal {} ({})", signal, strsignal(signal)), 128 + signal);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    std::_Exit(128 + signal); // only if the signal is blocked
}

} // namespace pc::runner::ending
