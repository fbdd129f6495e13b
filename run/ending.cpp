#include "ending.hpp"

#include "coverage.hpp"
#include "recorder_sink.hpp"
#include "report.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <errno.h>
#include <sys/wait.h>
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
    ending::report_end(ending_how(false, status), status);
}


} // namespace

// Called from the abort handler that ending::install sets: the line composed by arm_abort.
void write_armed_abort_line() {
    if (abort_length) (void)!write(abort_fd, abort_line, abort_length);
}

} // namespace pc::runner

// The library's broken invariants end the process through the C library's assertion routine,
// which writes its report to standard error and aborts. Its text is the last error of the file
// being run: it is kept in the trail here, where the ending's account reads it in this process and
// in a worker's parent alike, then the C library's routine goes on as always.
extern "C" [[noreturn]] void __assert_fail(const char *assertion, const char *file, unsigned int line, const char *function) noexcept {
    using Routine = void (*)(const char *, const char *, unsigned int, const char *);
    if (pc::runner::watched.trail)
        std::snprintf(pc::runner::watched.trail->last_error, sizeof pc::runner::watched.trail->last_error,
                      "%s%s%s:%u: %s%sAssertion `%s' failed.", program_invocation_short_name, *program_invocation_short_name ? ": " : "",
                      file, line, function ? function : "", function ? ": " : "", assertion);
    static Routine routine = reinterpret_cast<Routine>(dlsym(RTLD_NEXT, "__assert_fail"));
    if (routine) routine(assertion, file, line, function);
    std::abort();
}

namespace pc::runner {

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

namespace {

int64_t ticks_now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

double ms_since(int64_t ticks) {
    if (!ticks) return 0;
    using Ticks = std::chrono::steady_clock::duration;
    return std::chrono::duration<double, std::milli>(Ticks(ticks_now() - ticks)).count();
}

template <size_t N> void copy_into(char (&field)[N], const std::string &text) { std::snprintf(field, N, "%s", text.c_str()); }

} // namespace

void trail_file(Trail &trail) {
    trail = Trail{};
    trail.file_started = ticks_now();
}

void trail_step(Trail &trail, size_t number, uint32_t line, int64_t records_start) {
    trail.step = number;
    trail.line = line;
    trail.step_started = ticks_now();
    trail.records_start = records_start;
    trail.kind[0] = trail.table[0] = trail.label[0] = '\0';
}

void trail_name(Trail &trail, const std::string &kind, const std::string &table, const std::string &label) {
    copy_into(trail.kind, kind);
    copy_into(trail.table, table);
    copy_into(trail.label, label);
}

void trail_label(Trail &trail, const std::string &label) { copy_into(trail.label, label); }

void trail_error(Trail &trail, const std::string &line) { copy_into(trail.last_error, line); }

void trail_done(Trail &trail, size_t steps_ran, uint64_t mismatches, uint64_t value_errors) {
    trail.steps_ran = steps_ran;
    trail.step = 0; // its line stays: a run that ends between two steps ends where the last one was
    trail.mismatches = trail.step_mismatches_from = mismatches;
    trail.value_errors = trail.step_value_errors_from = value_errors;
}

std::string ending_how(bool by_signal, int number) {
    return by_signal ? fmt::format("signal {} ({})", number, strsignal(number)) : fmt::format("exit status {}", number);
}

std::string ending_how(int wait_status) {
    return WIFEXITED(wait_status) ? ending_how(false, WEXITSTATUS(wait_status)) : ending_how(true, WTERMSIG(wait_status));
}

namespace {

StepRecord ended_step(const Trail &t, int64_t records_end) {
    StepRecord s;
    s.number = t.step;
    s.line = t.line;
    s.kind = t.kind[0] ? t.kind : "unknown";
    s.table = t.table;
    s.label = t.label;
    s.status = StepStatus::ended;
    s.mismatches = t.mismatches - t.step_mismatches_from;
    s.value_errors = t.value_errors - t.step_value_errors_from;
    s.duration_ms = ms_since(t.step_started);
    if (t.records_start >= 0 && records_end >= t.records_start) s.records_start = t.records_start, s.records_end = records_end;
    return s;
}

// Where the file was when it ended, as the ending's finding tells it.
struct EndedAt {
    size_t step = 0, steps_ran = 0;
    std::string label;
    uint32_t line = 0;
};

// The first finding names the ending; JUnit and TAP give it as the reason the file failed.
void add_ending_findings(FileResult &file, const EndedAt &t) {
    std::string where = t.step ? fmt::format(" in step {} ({}) at line {}, after {} ran", t.step, t.label.empty() ? "a step" : t.label,
                                             t.line, plural(t.steps_ran, "step"))
                      : file.timed_out && t.line ? fmt::format(" after {} ran, at line {}", plural(t.steps_ran, "step"), t.line)
                                                 : "";
    std::vector<std::string> earlier = std::move(file.findings);
    file.findings.clear();
    std::string headline = file.timed_out ? fmt::format("timed out after {:.1f} s ({})", file.duration_ms / 1000, file.ended_how)
                                          : "the run ended early with " + file.ended_how;
    file.add_finding(fmt::format("{}: {}{}", file.path, headline, where));
    // The last error may be a finding told already, or one with more said (a suggestion): the
    // fuller text takes its place, so that each message reads once.
    bool told = false;
    for (const std::string &line : earlier) {
        bool same = !told && !line.empty() && (file.last_error == line || file.last_error.starts_with(line + "; "));
        file.add_finding(same ? file.last_error : line);
        told |= same;
    }
    if (!file.last_error.empty() && !told) file.add_finding(file.last_error);
}

} // namespace

std::optional<StepRecord> account_ending(FileResult &file, const Trail &t, const std::string &how, int64_t records_end) {
    file.ended = true;
    file.ended_how = how;
    file.ended_step = t.step;
    file.ended_at = t.line ? fmt::format("{}:{}", file.path, t.line) : file.path;
    file.last_error = t.last_error;
    file.steps = t.steps_ran + (t.step ? 1 : 0);
    file.failures += 1;
    file.mismatches = t.mismatches;
    file.value_errors = t.value_errors;
    file.duration_ms = ms_since(t.file_started);
    add_ending_findings(file, {t.step, t.steps_ran, t.label, t.line});
    if (!t.step) return std::nullopt;
    StepRecord step = ended_step(t, records_end);
    count_step(file, step);
    return step;
}

void restore_ending_findings(FileResult &file) {
    if (!file.ended) return;
    EndedAt at;
    at.step = file.ended_step;
    at.steps_ran = file.steps - (at.step ? 1 : 0);
    if (size_t colon = file.ended_at.rfind(':'); colon != std::string::npos && colon >= file.path.size())
        at.line = uint32_t(std::strtoul(file.ended_at.c_str() + colon + 1, nullptr, 10));
    for (const StepRecord &s : file.step_records)
        if (s.number == at.step && s.status == StepStatus::ended) at.label = s.label;
    add_ending_findings(file, at);
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
    pc::coverage::write_before_hard_end(); // abort runs no exit hooks, where the report is written otherwise
    write_abort_line();
    report_end(ending_how(true, SIGABRT), 128 + SIGABRT);
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
    report_end(ending_how(true, signal), 128 + signal);
    pc::coverage::write_before_hard_end(); // the signal raised again runs no exit hooks either
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    std::_Exit(128 + signal); // only if the signal is blocked
}

} // namespace pc::runner::ending
