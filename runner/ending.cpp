#include "ending.hpp"

#include "recorder_sink.hpp"

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace pc::runner::ending {
namespace {

volatile std::sig_atomic_t g_stop_signal = 0;
void (*g_write_pending)() = nullptr;

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

void on_stop_signal(int signal) {
    if (!g_stop_signal) g_stop_signal = signal; // the first one is the one the process ends with
}

// An abort is raised by the thread that asserted, outside stdio and the recorder, so writing
// out here is safe; abort() then ends the process as it would have.
void on_abort(int) { flush_all(); }

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

} // namespace

void install() {
    std::atexit(flush_all);
    catch_signal(SIGABRT, on_abort);
    catch_signal(SIGPIPE, on_broken_pipe);
    for (int signal : kStopSignals) catch_signal(signal, on_stop_signal);
    pc::recorder::on_record_end(stop_if_requested);
}

void set_pending_output(void (*write_pending)()) { g_write_pending = write_pending; }

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
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    std::_Exit(128 + signal); // only if the signal is blocked
}

} // namespace pc::runner::ending
