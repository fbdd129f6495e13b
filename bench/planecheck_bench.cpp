// Throughput of the send path, the recorder and a whole streamed scenario run.
#include "coverage.hpp"
#include "file_run.hpp"
#include "scale_scenario.hpp"

#include "arena.hpp"
#include "engine.hpp"
#include "planecheck/session.hpp"
#include "recorder_sink.hpp"
#include "store.hpp"
#include "yaml_loader.hpp"

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

JSON_Value *load(pc::Arena &arena, const std::string &yaml) {
    pc::yaml::LoadError error;
    JSON_Value *v = pc::yaml::load_string(yaml, "bench", arena, error);
    if (!v) std::fprintf(stderr, "%s\n", error.text().c_str());
    return v;
}

std::string records(const char *op, int n, bool attributes) {
    std::string s = "[";
    for (int i = 0; i < n; ++i) {
        s += std::string(i ? ", " : "") + "{op: " + op + ", key_a: " + std::to_string(i);
        if (attributes) s += ", attr_a1: 5, attr_a2: 6, perf_test_enabled: true, rdesc_id_test1: {pool: 1, index: 2}";
        s += "}";
    }
    return s + "]";
}

// Create, get (with comparison) and delete of 1000 test_if objects per iteration; with
// `coverage`, each record that ran is counted into a coverage report, as run --coverage does.
void send_create_get_delete(benchmark::State &state, bool coverage) {
    pc::support::Context ctx;
    ctx.process.mode = 0;
    simplane::reset();
    pc::coverage::Report report;
    if (coverage) pc::coverage::count_into(ctx.session, ctx.process, report);
    pc::Arena arena;
    JSON_Value *create = load(arena, records("create", 1000, true)), *get = load(arena, records("get", 1000, true)),
               *del = load(arena, records("delete", 1000, false));
    const auto &type = *pc::engine::find_type("test_if");
    for (auto _ : state) {
        pc::engine::send(type, create, ctx.get());
        pc::engine::send(type, get, ctx.get());
        pc::engine::send(type, del, ctx.get());
    }
    if (ctx.session.mismatches() || ctx.session.value_errors()) state.SkipWithError("the records did not run clean");
    state.SetItemsProcessed(state.iterations() * 3000);
}
void BM_SendCreateGetDelete(benchmark::State &state) { send_create_get_delete(state, false); }
BENCHMARK(BM_SendCreateGetDelete)->Unit(benchmark::kMillisecond);
void BM_SendCreateGetDeleteWithCoverage(benchmark::State &state) { send_create_get_delete(state, true); }
BENCHMARK(BM_SendCreateGetDeleteWithCoverage)->Unit(benchmark::kMillisecond);

// The largest type (102 attributes): a create, a compared get and a delete of one entry.
void BM_ScaleAclAllAttributes(benchmark::State &state) {
    pc::support::Context ctx;
    ctx.process.mode = 0;
    simplane::reset();
    pc::Arena arena;
    const auto &type = *pc::engine::find_type("scaleacl");
    JSON_Value *step = load(arena, "[{op: create, acl_id: 1, seq_num: 1, acl_name: bench, src_prefix: 10.0.0.1, dscp: 4, "
                                   "protocol: 6, dst_port_lo: 80, dst_port_hi: 90}, "
                                   "{op: get, acl_id: 1, seq_num: 1, acl_name: bench, src_prefix: 10.0.0.1, dscp: 4, "
                                   "protocol: 6, dst_port_lo: 80, dst_port_hi: 90}, {op: delete, acl_id: 1, seq_num: 1}]");
    for (auto _ : state) pc::engine::send(type, step, ctx.get());
    if (ctx.session.mismatches() || ctx.session.value_errors()) state.SkipWithError("the records did not run clean");
    state.SetItemsProcessed(state.iterations() * 3);
}
BENCHMARK(BM_ScaleAclAllAttributes);

// The recorder: the same 1000 creates and deletes with every record written to a file.
void BM_RecorderRecords(benchmark::State &state) {
    pc::support::Context ctx;
    ctx.process.mode = 0;
    simplane::reset();
    pc::recorder::open_file("/dev/null");
    pc::Arena arena;
    JSON_Value *create = load(arena, records("create", 1000, true)), *del = load(arena, records("delete", 1000, false));
    const auto &type = *pc::engine::find_type("test_if");
    for (auto _ : state) {
        pc::engine::send(type, create, ctx.get());
        pc::engine::send(type, del, ctx.get());
    }
    pc::recorder::close();
    state.SetItemsProcessed(state.iterations() * 2000);
}
BENCHMARK(BM_RecorderRecords)->Unit(benchmark::kMillisecond);

// A whole scenario file read step by step: records per second and the peak memory it needed.
void BM_StreamedScenarioRun(benchmark::State &state) {
    const size_t steps = size_t(state.range(0)), per_step = 1000;
    std::string path = "/tmp/planecheck_bench_" + std::to_string(getpid()) + ".yaml";
    if (!pc::bench::write_scale_scenario(path, steps, per_step)) return state.SkipWithError("cannot write the scenario");
    pc::runner::Options options;
    options.quiet = true;
    for (auto _ : state) {
        pc::runner::FileResult r = pc::runner::run_file(path, options);
        if (!r.passed()) state.SkipWithError("the scale scenario did not pass");
    }
    std::remove(path.c_str());
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_rss_MiB"] = double(usage.ru_maxrss) / 1024.0;
    state.SetItemsProcessed(state.iterations() * int64_t(steps * per_step * 3));
}
BENCHMARK(BM_StreamedScenarioRun)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace

// `planecheck_bench --write-scenario FILE ROUNDS [PER_STEP]` writes a scale scenario instead of
// benchmarking: ROUNDS rounds of create, get and delete steps of PER_STEP (1000) records each.
int main(int argc, char **argv) {
    if (argc >= 4 && std::string(argv[1]) == "--write-scenario") {
        size_t rounds = std::strtoull(argv[3], nullptr, 10), per_step = argc > 4 ? std::strtoull(argv[4], nullptr, 10) : 1000;
        if (!rounds || !per_step || !pc::bench::write_scale_scenario(argv[2], rounds, per_step)) {
            std::fprintf(stderr, "planecheck_bench: cannot write %s (ROUNDS and PER_STEP are positive numbers)\n", argv[2]);
            return 2;
        }
        std::printf("%s: %zu records in %zu steps\n", argv[2], rounds * per_step * 3, rounds * 3 + 1);
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
