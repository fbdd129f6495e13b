// planecheck: runs scenario files against the data-plane object interface.
#include "catalogue_command.hpp"
#include "diff.hpp"
#include "coverage_command.hpp"
#include "replay.hpp"
#include "session.hpp"
#include "report_command.hpp"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <set>


namespace {

using RunOptions = pc::runner::RunRequest;

// Writes the scenario a recording replays to, or runs its operations again.
int replay_recording(const std::string &recording, const std::string &scenario, const pc::recording::ReplayOptions &options,
                     RunOptions &run) {
    pc::recording::ReplaySummary summary;
    if (!scenario.empty()) {
        bool written = pc::runner::write_replayed_scenario(recording, scenario, options, summary);
        if (written) fmt::print("planecheck replay: {} operations of {} records written to {}\n", summary.operations, summary.records, scenario);
        return !written ? 2 : summary.problems ? 1 : 0;
    }
    run.files = {recording};
    run.in_process = true;
    int status = pc::runner::run_files(run, [&](const std::string &file, const pc::runner::Options &o) {
        return pc::runner::run_replayed(file, options, o, summary);
    });
    return status == 0 && summary.problems ? 1 : status;
}

// The argument parser's message, in the words of the rest of the command's messages.
std::string usage_error_text(const CLI::ParseError &e) {
    std::string text = e.what();
    for (const std::string missing : {"File does not exist: ", "Path does not exist: "})
        if (size_t at = text.find(missing); at != std::string::npos)
            return fmt::format("cannot read {}: no such file", text.substr(at + missing.size()));
    return text;
}

// The words of the command line that could be subcommands: every argument that is not an option.
// A subcommand's options are needed when its name is among them; all of them when none is (--help).
std::set<std::string> named_subcommands(int argc, char **argv) {
    static const std::set<std::string> subcommands = {"run", "check", "catalogue", "diff", "replay", "coverage", "report"};
    std::set<std::string> named;
    for (int i = 1; i < argc; ++i)
        if (subcommands.count(argv[i])) named.insert(argv[i]);
    return named;
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"planecheck: drives a data-plane object interface from YAML scenarios and checks what comes back"};
    app.set_version_flag("--version", "planecheck 0.1.0");
    app.require_subcommand(1);

    const auto wanted = named_subcommands(argc, argv);
    // Only the options of the subcommands the command line names are built: the argument parser's
    // set-up of all of them would cost a run more than reading a short scenario.
    auto options_of = [&](CLI::App *subcommand, const auto &add_options) {
        if (wanted.empty() || wanted.count(subcommand->get_name())) add_options();
    };

    RunOptions run_options;
    pc::runner::RunLimits &limits = run_options.limits;
    auto *run = app.add_subcommand("run", "run scenario files");
    options_of(run, [&] {
        // required unless --files-from names them
        run->add_option("files", run_options.files, "scenario files (YAML or JSON), or directories of them")->check(CLI::ExistingPath);
        run->add_option("--files-from", run_options.files_from,
                        "run the scenario files named in FILE, one path per line (- for standard input), each as soon as its "
                        "line arrives, in worker processes (as -j 1 unless -j is given); with --events, a file's events are "
                        "written before the next line is read");
        run->add_flag("-v,--verbose", run_options.file.verbose, "write information lines (calls, handles, successes)");
        run->add_flag("-q,--quiet", run_options.file.quiet, "print only the steps that did not pass");
        run->add_option("--recorder", run_options.recorder, "write the operation recorder to FILE");
        run->add_option("--recorder-dir", run_options.recorder_dir,
                        "write each scenario file's operation recorder to a file of its own in DIR (its path with / and other "
                        "signs made _, and .rec), written before the file's last event; the files run in worker processes");
        run->add_option("-j,--jobs", run_options.jobs,
                        "run N files at once, in N worker processes (a file the library stops is reported, "
                        "its worker replaced, and the others run)")->check(CLI::Range(1u, 256u));
        run->add_option("--threads", run_options.file.threads,
                        "1: read each file on the thread that runs it; 2: read every file's steps ahead on a second "
                        "thread (default: big files are read ahead where two cores are available)")->check(CLI::Range(1u, 2u));
        run->add_option("--junit", run_options.junit, "write a JUnit XML report to FILE: one test case per scenario file");
        run->add_flag("--trace", run_options.file.trace,
                      "write every call the engine makes into the platform (function and arguments, and what it returned) "
                      "to standard error, at the line of its record");
        run->add_flag("--tap", run_options.tap, "print a TAP stream on standard output: one test point per scenario file");
        run->add_flag("--strict", run_options.file.strict,
                      "refuse (exit 2) a file that planecheck check fails, and fail a step that ran nothing (an inactive type)");
        run->add_flag("--allow-skipped", run_options.allow_skipped,
                      "exit 0 when every file was skipped (no step in it ran anything); without it such a run exits 1");
        run->add_option("--events", run_options.events,
                        "write the run's events to FILE as JSON Lines, one per line as it happens (- for standard output; "
                        "the step lines and the summary then go to standard error)");
        run->add_option("--html", run_options.html,
                        "write the run's HTML report to FILE when the run is over: one self-contained page (see planecheck report)");
        run->add_option("--coverage", run_options.coverage,
                        "write to FILE, as JSON, which types, operations, attributes and statuses the run exercised");
        run->add_option("--run-id", run_options.run_id,
                        "name the run ID in its events (default: PLANECHECK_RUN_ID, else a random id); give a CI job's shards one id "
                        "and planecheck report refuses a shard's stream given twice");
        run->add_option("-k", run_options.select.keyword,
                        "run only the files whose path or scenario name matches EXPR: words joined by and, or, not and "
                        "parentheses, each a part of the path or name, letters compared without case ('bgp and not v6'); "
                        "the others are deselected, before any shard is taken")->type_name("EXPR");
        run->add_flag("--lf,--last-failed", run_options.select.last_failed,
                      "run only the files that failed when they last ran in this folder (kept in .planecheck/lastfailed.json); "
                      "all of them when none did; without files, the files that failed");
        run->add_flag("--cache-clear", run_options.select.cache_clear,
                      "forget which files failed in earlier runs in this folder before this run");
        run->add_flag("--junit-steps", run_options.junit_steps,
                      "with --junit: a test suite per scenario file and a test case per step, a failed step carrying its findings");
        run->add_flag("--tap-steps", run_options.tap_steps,
                      "--tap with each file's steps as a subtest before its test point (an indented block with its own plan)");
        run->add_option("--shard", run_options.shard,
                        "run shard I of N of the files, for CI fan-out: I/N (such as 2/4) by position in the sorted suite, hash:I/N by a "
                        "hash of each file's name within the suite (adding a file moves no other), or hash alone with the numbers "
                        "from the CI executor; without it, the executor's variables choose: Bazel's TEST_SHARD_INDEX/TEST_TOTAL_SHARDS, "
                        "GTEST_SHARD_INDEX/GTEST_TOTAL_SHARDS, GitLab's CI_NODE_INDEX/CI_NODE_TOTAL, CircleCI's "
                        "CIRCLE_NODE_INDEX/CIRCLE_NODE_TOTAL, Buildkite's BUILDKITE_PARALLEL_JOB/BUILDKITE_PARALLEL_JOB_COUNT, "
                        "a Kubernetes indexed job's JOB_COMPLETION_INDEX")->type_name("SHARD");
        run->add_option("--shards", run_options.shards,
                        "the number of shards where the executor gives only an index (a Kubernetes indexed job's completions; "
                        "default: PLANECHECK_SHARDS)")->check(CLI::Range(1u, 1000000u))->type_name("N");
        auto *list_plan = run->add_flag("--list", run_options.list, "print the files this run (this shard) would run, in order, and run none");
        run->add_flag("--json", run_options.list_json, "with --list: the files, the shard and the suite's plan as one JSON object")
            ->needs(list_plan);
        // limits for a run against a device, where a platform call may hang and a device may flake
        run->add_option("--timeout", limits.timeout_s,
                        "end a file that runs longer than SECONDS (SIGTERM, then SIGKILL after 2 s) and report it timed_out; a "
                        "scenario's config: timeout wins; the files run in worker processes")->check(CLI::Range(0.001, 1e6));
        run->add_option("--slow", limits.slow_s, "mark files that run longer than SECONDS as slow in the summary, the events and the page")
            ->check(CLI::Range(0.001, 1e6));
        run->add_option("--retries", limits.retries,
                        "run a failed, ended or timed-out file again, up to N times, each on a fresh worker; one that passes on a "
                        "retry is flaky")->check(CLI::Range(0u, 100u));
        run->add_flag("--no-flaky", limits.no_flaky, "fail a file that passed only on a retry");
        auto *max_fail = run->add_option("--max-fail", limits.max_fail, "once N files failed, start no other file: the rest are not run")
                             ->check(CLI::Range(size_t(1), size_t(1) << 40));
        run->add_flag_callback("-x", [&limits] { limits.max_fail = 1; }, "stop at the first failed file (--max-fail 1)")->excludes(max_fail);
    });

    RunOptions check_options;
    check_options.file.check_only = true;
    auto *check = app.add_subcommand("check", "read and validate scenario files without running them");
    options_of(check, [&] {
        check->add_option("files", check_options.files, "scenario files, or directories of them")->required()->check(CLI::ExistingPath);
        check->add_option("--events", check_options.events, "write the check's events to FILE as JSON Lines (- for standard output)");
    });

    bool list = false, stats = false, schema = false;
    std::string describe;
    auto *catalogue = app.add_subcommand("catalogue", "show the object catalogue");
    CLI::Option *describe_option = nullptr;
    std::string described_type;
    bool describe_json = false;
    options_of(catalogue, [&] {
        auto *list_flag = catalogue->add_flag("--list", list, "print the object type names in catalogue order");
        auto *stats_flag = catalogue->add_flag("--stats", stats, "print the catalogue's totals")->excludes(list_flag);
        // TYPE may stand apart from --describe, so that --describe --json TYPE reads as --describe TYPE --json
        describe_option = catalogue->add_option("--describe", describe,
                                                      "print what a record of object type TYPE may carry, or the values or fields of "
                                                      "value type TYPE")
            ->type_name("TYPE")->expected(0, 1)->excludes(list_flag)->excludes(stats_flag);
        catalogue->add_option("type", described_type, "the TYPE of --describe, given apart from it (--describe --json TYPE)")->type_name("TYPE");
        catalogue->add_flag("--json", describe_json, "with --describe: print it as one JSON document")->needs(describe_option);
        catalogue->callback([&] {
            if (!describe_option->count()) {
                if (!described_type.empty()) throw CLI::ValidationError(described_type, "a type name goes with --describe");
                return;
            }
            if (!describe.empty() && !described_type.empty())
                throw CLI::ValidationError("--describe", "takes one TYPE, and " + describe + " and " + described_type + " are two");
            if (describe.empty()) describe = described_type;
            if (describe.empty()) throw CLI::ValidationError("--describe", "needs a TYPE");
    });
    catalogue->add_flag("--schema", schema, "print the JSON Schema of scenario files, for editors")
        ->excludes(list_flag)->excludes(stats_flag)->excludes(describe_option);
    });

    std::string diff_a, diff_b;
    std::vector<std::string> ignore;
    bool diff_json = false;
    auto *diff = app.add_subcommand("diff", "compare two recorder files record by record (exit 0 equal, 1 different, 2 unreadable)");
    options_of(diff, [&] {
        diff->add_option("a", diff_a, "the first recording")->required();
        diff->add_option("b", diff_b, "the second recording")->required();
        diff->add_option("--ignore", ignore, "leave the field FIELD out of the comparison (repeatable)")->allow_extra_args(false);
        diff->add_flag("--json", diff_json, "print the differences as one JSON document");
    });

    RunOptions replay_options;
    std::string recording, write_scenario, replay_mode;
    int replay_object_set = -1;
    auto *replay = app.add_subcommand("replay", "run the operations of a recording again, or write them as a scenario");
    options_of(replay, [&] {
        replay->add_option("recording", recording, "the recorder file")->required()->check(CLI::ExistingFile);
        replay->add_option("--write-scenario", write_scenario, "write the equivalent scenario to FILE instead of running it");
        replay->add_option("--mode", replay_mode, "client or server (default client)")->check(CLI::IsMember({"client", "server"}));
        replay->add_option("--object-set", replay_object_set, "the object set to run with (default: what the recording shows)")
            ->check(CLI::Range(0, 1));
        replay->add_flag("-v,--verbose", replay_options.file.verbose, "write information lines (calls, handles, successes)");
        replay->add_flag("-q,--quiet", replay_options.file.quiet, "print only the steps that did not pass");
        replay->add_option("--recorder", replay_options.recorder, "write the operation recorder of the replay to FILE");
        replay->add_option("--junit", replay_options.junit, "write a JUnit XML report to FILE");
        replay->add_flag("--tap", replay_options.tap, "print a TAP stream on standard output");
    });

    std::vector<std::string> reports;
    std::string uncovered;
    bool coverage_json = false;
    auto *coverage = app.add_subcommand("coverage", "merge coverage reports (run --coverage) and print what they cover");
    options_of(coverage, [&] {
        // no existence check: the reports that can be read are merged, the others are named
        coverage->add_option("reports", reports, "coverage reports written by run --coverage")->required();
        coverage->add_option("--uncovered", uncovered, "list what the records of object type TYPE never set or compared");
        coverage->add_flag("--json", coverage_json, "print JSON for machines instead of the table");
    });

    pc::report::ReportRequest report_request;
    auto *report = app.add_subcommand("report", "write the HTML report of event streams (run --events), shards merged");
    options_of(report, [&] {
        report->add_option("events", report_request.events, "event files written by run --events (- reads standard input)")->required();
        report->add_option("--html", report_request.html, "write the report to FILE: one self-contained page");
        report->add_option("--junit", report_request.junit,
                           "write the merged JUnit report to FILE: every stream's files, in the suite's order when they are shards");
        report->add_option("--coverage", report_request.coverage,
                           "coverage reports (run --coverage) for the heat map; without it, those the runs wrote when they are still there")
            ->allow_extra_args(false);
    });

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        if (e.get_exit_code() == 0) return app.exit(e); // --help, --version
        fmt::print(stderr, "planecheck: {} (planecheck --help shows the usage)\n", usage_error_text(e));
        return 2;
    }

    if (*report) return pc::report::report_command(report_request);
    if (*coverage) return pc::coverage::run_command(reports, uncovered, coverage_json);
    if (*catalogue) {
        if (!describe.empty()) {
            return pc::runner::describe_command(describe, describe_json);
        }
        if (stats) pc::runner::print_stats();
        else if (schema) pc::runner::print_schema();
        else pc::runner::list_types();
        return 0;
    }
    if (*diff) return pc::runner::diff_command(diff_a, diff_b, ignore, diff_json);
    if (*replay) {
        pc::recording::ReplayOptions options;
        if (!replay_mode.empty()) options.mode = replay_mode == "client" ? 1 : 0;
        if (replay_object_set >= 0) options.object_set = replay_object_set;
        return replay_recording(recording, write_scenario, options, replay_options);
    }
    if (*run && run_options.files.empty() && run_options.files_from.empty() && !run_options.select.last_failed) {
        fmt::print(stderr, "planecheck: run needs scenario files or --files-from (planecheck --help shows the usage)\n");
        return 2;
    }
    run_options.select.state_dir = ".planecheck"; // what failed, kept in the folder the run is started in
    RunOptions &chosen = *check ? check_options : run_options;
    chosen.command.assign(argv, argv + argc);
    chosen.write_html = [](const std::string &events, const std::string &page) {
        return pc::report::report_command({{events}, page, {}});
    };
    return pc::runner::run_files(chosen);
}
