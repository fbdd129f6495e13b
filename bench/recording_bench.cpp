// The recording tools against their targets, measured side by side in each iteration:
// - diff of two recordings of a million records at no less than half the speed of reading both;
// - replay of a recording of a million operations within 1.5 times the run of the scenario.
// Run with --benchmark_repetitions=N for medians of the ratios.
#include "replay.hpp"
#include "file_run.hpp"
#include "scale_scenario.hpp"

#include "recorder_sink.hpp"
#include "recording/diff.hpp"
#include "recording/reader.hpp"
#include "recording/replay.hpp"

#include <benchmark/benchmark.h>

#include <ctime>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

// Process CPU time: the machine is shared, and wall time would measure the neighbours too.
struct Clock {
    using time_point = double;
    static double now() {
        timespec t{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
        return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
    }
};

double seconds_since(double start) { return Clock::now() - start; }

// A scale scenario of `rounds` rounds (3000 records each) and two recordings of it.
struct Files {
    std::string scenario, a, b;
    bool ok = false;
    explicit Files(size_t rounds) {
        std::string base = "/tmp/planecheck_recording_bench_" + std::to_string(getpid()) + "_" + std::to_string(rounds);
        scenario = base + ".yaml", a = base + ".a.rec", b = base + ".b.rec";
        ok = pc::bench::write_scale_scenario(scenario, rounds, 1000) && record(a) && record(b);
    }
    ~Files() {
        for (const std::string &f : {scenario, a, b}) std::remove(f.c_str());
    }
    bool record(const std::string &path) const {
        if (!pc::recorder::open_file(path)) return false;
        pc::runner::Options options;
        options.quiet = true;
        bool passed = pc::runner::run_file(scenario, options).passed();
        pc::recorder::close();
        return passed;
    }
};

uint64_t read_all(const std::string &path) {
    pc::recording::Reader reader;
    std::string error;
    if (!reader.open(path, error)) return 0;
    pc::recording::Record r;
    uint64_t n = 0;
    while (reader.next(r)) ++n;
    return n;
}

// The peak resident memory since the last reset (Linux keeps it per process in /proc).
void reset_peak_rss() {
    if (FILE *f = std::fopen("/proc/self/clear_refs", "w")) {
        std::fputs("5", f);
        std::fclose(f);
    }
}

double peak_rss_mib() {
    double kib = 0;
    if (FILE *f = std::fopen("/proc/self/status", "r")) {
        char line[256];
        while (std::fgets(line, sizeof line, f))
            if (std::sscanf(line, "VmHWM: %lf kB", &kib) == 1) break;
        std::fclose(f);
    }
    return kib / 1024.0;
}

void BM_DiffAgainstReadingBoth(benchmark::State &state) {
    Files files(size_t(state.range(0)));
    if (!files.ok) return state.SkipWithError("cannot write and record the scale scenario");
    double read = 0, diff = 0;
    for (auto _ : state) {
        auto start = Clock::now();
        uint64_t records = read_all(files.a) + read_all(files.b);
        read += seconds_since(start);
        reset_peak_rss();
        start = Clock::now();
        pc::recording::DiffSummary s = pc::recording::diff_recordings(files.a, files.b, {}, nullptr, nullptr);
        diff += seconds_since(start);
        if (s.exit_code() != 0 || records != s.records_a + s.records_b) state.SkipWithError("the recordings differ");
        state.counters["records"] = double(s.records_a);
        state.counters["peak_rss_of_the_diff_MiB"] = peak_rss_mib();
    }
    state.counters["diff_speed_over_read_speed"] = read / diff; // the target: at least 0.5
}
BENCHMARK(BM_DiffAgainstReadingBoth)->Arg(34)->Arg(334)->Unit(benchmark::kSecond)->Iterations(1);

void BM_ReplayAgainstTheOriginalRun(benchmark::State &state) {
    Files files(size_t(state.range(0)));
    if (!files.ok) return state.SkipWithError("cannot write and record the scale scenario");
    pc::runner::Options options;
    options.quiet = true;
    double original = 0, replay = 0;
    for (auto _ : state) {
        auto start = Clock::now();
        bool passed = pc::runner::run_file(files.scenario, options).passed();
        original += seconds_since(start);
        start = Clock::now();
        pc::recording::ReplaySummary s;
        passed = passed && pc::runner::run_replayed(files.a, {}, options, s).passed();
        replay += seconds_since(start);
        if (!passed || s.problems) state.SkipWithError("the scenario or its replay did not pass");
        state.counters["operations"] = double(s.operations);
    }
    state.counters["replay_time_over_run_time"] = replay / original; // the target: at most 1.5
}
BENCHMARK(BM_ReplayAgainstTheOriginalRun)->Arg(34)->Arg(334)->Unit(benchmark::kSecond)->Iterations(1);

} // namespace

BENCHMARK_MAIN();
