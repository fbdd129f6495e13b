// planecheck: runs scenario files against the data-plane object interface.
#include "catalogue_command.hpp"
#include "ci_env.hpp"
#include "parallel.hpp"
#include "recorder_sink.hpp"
#include "report.hpp"
#include "run.hpp"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

struct RunOptions {
    pc::runner::Options file;
    std::vector<std::string> files;
    std::string recorder, junit;
    bool tap = false;
    unsigned jobs = 0; // 0: all files in this process, one after the other
    std::string shard; // "I/N": only every N-th file, starting with the I-th
};

// Keeps the files of shard I of N (1-based): the I-th, the (I+N)-th, ...
bool take_shard(RunOptions &o) {
    if (o.shard.empty()) return true;
    unsigned i = 0, n = 0;
    char end;
    if (std::sscanf(o.shard.c_str(), "%u/%u%c", &i, &n, &end) != 2 || n == 0 || i == 0 || i > n) {
        fmt::print(stderr, "planecheck: --shard takes I/N with 1 <= I <= N, such as 2/4\n");
        return false;
    }
    std::vector<std::string> kept;
    for (size_t k = i - 1; k < o.files.size(); k += n) kept.push_back(o.files[k]);
    o.files = std::move(kept);
    return true;
}

// Without --shard and --junit, a CI executor's environment may say which shard to run and where
// the JUnit report goes.
bool take_ci_environment(RunOptions &o) {
    pc::runner::CiEnvironment env = pc::runner::read_ci_environment(std::getenv);
    if (o.junit.empty()) o.junit = env.junit;
    if (!o.shard.empty()) return true;
    if (!env.error.empty()) {
        fmt::print(stderr, "planecheck: {}\n", env.error);
        return false;
    }
    if (env.shard.empty()) return true;
    o.shard = env.shard;
    if (!env.status_file.empty() && !pc::runner::touch(env.status_file)) {
        fmt::print(stderr, "planecheck: cannot touch TEST_SHARD_STATUS_FILE {}: {}\n", env.status_file, std::strerror(errno));
        return false;
    }
    return true;
}

int run_files(RunOptions &o) {
    auto start = std::chrono::steady_clock::now();
    if (!o.file.check_only && !take_ci_environment(o)) return 2;
    if (!take_shard(o)) return 2;
    o.file.progress = !o.jobs && !o.file.verbose && !o.file.trace && isatty(STDERR_FILENO);
    if (o.tap) {
        o.file.quiet = true;
        o.file.steps = stderr; // standard output carries the TAP stream alone
    }
    if (!o.jobs && !o.recorder.empty() && !pc::recorder::open_file(o.recorder)) {
        fmt::print(stderr, "planecheck: cannot write the recorder to {}: {}\n", o.recorder, std::strerror(errno));
        return 2;
    }
    std::vector<pc::runner::FileResult> results;
    if (o.jobs) {
        results = pc::runner::run_in_processes(o.files, o.file, o.jobs, o.recorder);
    } else {
        for (const auto &file : o.files) {
            results.push_back(pc::runner::run_file(file, o.file));
            if (results.back().invalid) fmt::print(stderr, "{}\n", results.back().error);
        }
        pc::recorder::close();
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    pc::runner::Totals totals = pc::runner::add_up(results);
    if (!o.junit.empty() && !pc::runner::write_junit(o.junit, results, seconds)) {
        fmt::print(stderr, "planecheck: cannot write the JUnit report to {}\n", o.junit);
        return 2;
    }
    std::string line = pc::runner::summary(totals, o.file.check_only);
    if (o.tap) {
        pc::runner::print_tap(results);
        fmt::print("# {}\n", line);
    } else {
        fmt::print("{}\n", line);
    }
    return totals.invalid ? 2 : totals.failed_files ? 1 : 0;
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"planecheck: drives a data-plane object interface from YAML scenarios and checks what comes back"};
    app.set_version_flag("--version", "planecheck 0.1.0");
    app.require_subcommand(1);

    RunOptions run_options;
    auto *run = app.add_subcommand("run", "run scenario files");
    run->add_option("files", run_options.files, "scenario files (YAML or JSON)")->required()->check(CLI::ExistingFile);
    run->add_flag("-v,--verbose", run_options.file.verbose, "write information lines (calls, handles, successes)");
    run->add_flag("-q,--quiet", run_options.file.quiet, "print only the steps that did not pass");
    run->add_option("--recorder", run_options.recorder, "write the operation recorder to FILE");
    run->add_option("-j,--jobs", run_options.jobs,
                    "run N files at once, each in its own process (a file the library stops is reported, "
                    "and the others run)")->check(CLI::Range(1u, 256u));
    run->add_option("--junit", run_options.junit, "write a JUnit XML report to FILE: one test case per scenario file");
    run->add_flag("--trace", run_options.file.trace,
                  "write every call the engine makes into the platform (function and arguments, and what it returned) "
                  "to standard error, at the line of its record");
    run->add_flag("--tap", run_options.tap, "print a TAP stream on standard output: one test point per scenario file");
    run->add_option("--shard", run_options.shard, "run shard I of N of the files (I/N, such as 2/4), for CI fan-out; without it, TEST_SHARD_INDEX and "
                    "TEST_TOTAL_SHARDS (or GTEST_SHARD_INDEX and GTEST_TOTAL_SHARDS) choose the shard, counting from 0");

    RunOptions check_options;
    check_options.file.check_only = true;
    auto *check = app.add_subcommand("check", "read and validate scenario files without running them");
    check->add_option("files", check_options.files, "scenario files")->required()->check(CLI::ExistingFile);

    bool list = false, stats = false;
    std::string describe;
    auto *catalogue = app.add_subcommand("catalogue", "show the object catalogue");
    auto *list_flag = catalogue->add_flag("--list", list, "print the object type names in catalogue order");
    auto *stats_flag = catalogue->add_flag("--stats", stats, "print the catalogue's totals")->excludes(list_flag);
    catalogue->add_option("--describe", describe, "print what a record of object type TYPE may carry")
        ->excludes(list_flag)->excludes(stats_flag);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        int code = app.exit(e);
        return code == 0 ? 0 : 2;
    }

    if (*catalogue) {
        if (!describe.empty()) {
            if (pc::runner::describe_type(describe)) return 0;
            fmt::print(stderr, "planecheck: there is no object type '{}' (planecheck catalogue --list shows them)\n", describe);
            return 2;
        }
        if (stats) pc::runner::print_stats();
        else pc::runner::list_types();
        return 0;
    }
    return run_files(*check ? check_options : run_options);
}
