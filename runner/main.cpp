// planecheck: runs scenario files against the data-plane object interface.
#include "catalogue_command.hpp"
#include "ci_env.hpp"
#include "diff.hpp"
#include "ending.hpp"
#include "events.hpp"
#include "file_source.hpp"
#include "coverage_command.hpp"
#include "parallel.hpp"
#include "recorder_sink.hpp"
#include "replay.hpp"
#include "report.hpp"
#include "report_command.hpp"
#include "run.hpp"
#include "scenario_files.hpp"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <optional>
#include <unistd.h>

namespace {

struct RunOptions {
    pc::runner::Options file;
    std::vector<std::string> files;
    std::string recorder, junit, coverage, events;
    std::string html;             // the HTML report, made from the events when the run is over
    std::string events_for_html;  // a temporary events file, when --events does not name one
    std::vector<std::string> command; // argv, for the events
    bool tap = false;
    unsigned jobs = 0; // 0: all files in this process, one after the other
    std::string shard; // "I/N": only every N-th file, starting with the I-th
    std::string files_from; // more paths, one per line, read as they arrive ("-": standard input)
    bool in_process = false; // the files run here, never in child processes
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

// A report file that cannot be written is a usage error found before any file runs: opened
// without truncating, and removed again when it did not exist.
bool can_write(const std::string &path, const char *what) {
    bool existed = access(path.c_str(), F_OK) == 0;
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) {
        fmt::print(stderr, "planecheck: cannot write {} to {}: {}\n", what, path, std::strerror(errno));
        return false;
    }
    close(fd);
    if (!existed) unlink(path.c_str());
    return true;
}

// The recorder is opened before any file runs; with -j the parts are appended to it at the end.
bool open_recorder(const RunOptions &o, int &parts_fd) {
    if (o.recorder.empty()) return true;
    bool ok = o.jobs ? (parts_fd = open(o.recorder.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) >= 0
                     : pc::recorder::open_file(o.recorder);
    if (!ok) fmt::print(stderr, "planecheck: cannot write the recorder to {}: {}\n", o.recorder, std::strerror(errno));
    return ok;
}

bool close_recorder(const RunOptions &o, int parts_fd, std::string problem) {
    if (o.recorder.empty()) return true;
    if (o.jobs) {
        if (close(parts_fd) != 0 && problem.empty()) problem = fmt::format("cannot write: {}", std::strerror(errno));
    } else if (!pc::recorder::close()) {
        problem = fmt::format("cannot write: {}", std::strerror(errno));
    }
    if (!problem.empty()) fmt::print(stderr, "planecheck: the recorder {} is incomplete: {}\n", o.recorder, problem);
    return problem.empty();
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

bool write_coverage(const std::string &path, const pc::coverage::Report &coverage) {
    pc::coverage::write_at_exit(nullptr, "");
    if (pc::coverage::write_file(coverage, path)) return true;
    fmt::print(stderr, "planecheck: cannot write the coverage report to {}: {}\n", path, std::strerror(errno));
    return false;
}

pc::runner::EventWriter event_writer;

std::string html_report, html_events; // where run --html writes, and the events it reads back
bool html_events_temporary = false, events_started = false;

// The HTML report of the events written, as a last sink of the run. The run's status stands
// unless the page cannot be made in full.
int write_html_report(int status) {
    if (html_report.empty() || !events_started) return status;
    int made = pc::report::report_command({{html_events}, html_report, {}});
    if (html_events_temporary) unlink(html_events.c_str());
    html_report.clear();
    return made != 0 ? 2 : status;
}

// At an end of the process while a file runs: its last events, then the run's.
void write_ending_events(const std::string &how, int status) {
    pc::runner::end_running_file(how);
    event_writer.run_end(status);
    if (!html_report.empty() && event_writer.close()) write_html_report(status);
}

// --html reads the run's events back: they go to --events FILE, or to a temporary file.
bool prepare_html(RunOptions &o) {
    if (o.html.empty()) return true;
    if (o.events == "-") {
        fmt::print(stderr, "planecheck: --html reads the run's events back; give --events a file, not -\n");
        return false;
    }
    if (!can_write(o.html, "the HTML report")) return false;
    if (o.events.empty()) {
        const char *tmp = std::getenv("TMPDIR");
        o.events_for_html = fmt::format("{}/planecheck-events-XXXXXX", tmp && *tmp ? tmp : "/tmp");
        int fd = mkstemp(o.events_for_html.data());
        if (fd < 0) {
            fmt::print(stderr, "planecheck: cannot create a temporary file for the HTML report's events: {}\n", std::strerror(errno));
            return false;
        }
        close(fd);
        o.events = o.events_for_html;
    }
    html_report = o.html;
    html_events = o.events;
    html_events_temporary = !o.events_for_html.empty();
    return true;
}

bool open_events(RunOptions &o) {
    if (o.events.empty()) return true;
    if (o.events == "-" && o.tap) {
        fmt::print(stderr, "planecheck: --tap and --events - both write standard output; give --events a file\n");
        return false;
    }
    if (!event_writer.open(o.events)) {
        fmt::print(stderr, "planecheck: cannot write the events to {}: {}\n", o.events, std::strerror(errno));
        return false;
    }
    if (o.events == "-") o.file.steps = stderr; // standard output carries the events alone
    o.file.observer = &event_writer;
    pc::runner::RunDescription run;
    run.command = o.command;
    run.files = o.files.size();
    run.check_only = o.file.check_only;
    run.strict = o.file.strict;
    run.verbose = o.file.verbose;
    run.quiet = o.file.quiet;
    run.jobs = std::max(o.jobs, 1u);
    run.recorder = o.recorder;
    run.coverage = o.coverage;
    run.shard = o.shard;
    event_writer.run_start(run);
    pc::runner::ending::set_end_report(write_ending_events);
    events_started = true;
    return true;
}

int finish_events(int status) {
    if (!event_writer.is_open()) return status;
    pc::runner::ending::set_end_report(nullptr);
    event_writer.run_end(status);
    return event_writer.close() ? status : 2;
}

using RunOne = std::function<pc::runner::FileResult(const std::string &, const pc::runner::Options &)>;

int run_files_to_sinks(RunOptions &o, const RunOne &run_one);

int run_files(RunOptions &o, const RunOne &run_one = pc::runner::run_file) {
    if (!prepare_html(o)) return 2;
    int status = write_html_report(finish_events(run_files_to_sinks(o, run_one)));
    if (!o.events_for_html.empty()) unlink(o.events_for_html.c_str()); // also when the run stopped before its events
    return status;
}

// The files of a run with --files-from: the ones named on the command line, then the list's.
bool open_file_list(const RunOptions &o, std::optional<pc::runner::FileSource> &source) {
    if (o.files_from.empty()) return true;
    int fd = o.files_from == "-" ? STDIN_FILENO : open(o.files_from.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        fmt::print(stderr, "planecheck: cannot read the file list {}: {}\n", o.files_from, std::strerror(errno));
        return false;
    }
    source.emplace(pc::runner::FileSource::of_stream(o.files, fd));
    return true;
}

int run_files_to_sinks(RunOptions &o, const RunOne &run_one) {
    auto start = std::chrono::steady_clock::now();
    if (!o.files_from.empty() && !o.shard.empty()) {
        fmt::print(stderr, "planecheck: --shard and --files-from do not go together: the list names the files to run\n");
        return 2;
    }
    // the program that writes the list chooses the files: no shard from the environment
    if (!o.file.check_only && o.files_from.empty() && !take_ci_environment(o)) return 2;
    if (std::string error; !o.in_process && !pc::runner::expand_directories(o.files, error)) {
        fmt::print(stderr, "planecheck: {}\n", error);
        return 2;
    }
    if (!take_shard(o)) return 2;
    pc::runner::ending::install();
    // a report must survive a file that the library ends: the files then run in worker processes
    // (a replay runs in this process: its steps come from the recording, not from a file a child could open)
    if ((o.tap || !o.junit.empty()) && !o.jobs && !o.in_process) o.jobs = 1;
    // a long-lived run outlives a file that the library ends
    if (!o.files_from.empty() && !o.jobs) o.jobs = 1;
    std::optional<pc::runner::FileSource> listed;
    if (!open_file_list(o, listed)) return 2;
    o.file.progress = !o.jobs && !o.file.verbose && !o.file.trace && isatty(STDERR_FILENO);
    if (o.tap) {
        o.file.quiet = true;
        o.file.steps = stderr; // standard output carries the TAP stream alone
    }
    int parts_fd = -1;
    if (!o.junit.empty() && !can_write(o.junit, "the JUnit report")) return 2;
    if (!open_recorder(o, parts_fd)) return 2;
    if (!open_events(o)) return 2;
    pc::coverage::Report coverage;
    if (!o.coverage.empty()) {
        o.file.coverage = &coverage;
        pc::coverage::write_at_exit(&coverage, o.coverage);
    }
    std::vector<pc::runner::FileResult> results;
    std::string recorder_problem;
    if (listed) {
        results = pc::runner::run_in_processes(*listed, o.file, o.jobs, parts_fd, recorder_problem);
    } else if (o.jobs) {
        results = pc::runner::run_in_processes(o.files, o.file, o.jobs, parts_fd, recorder_problem);
    } else {
        for (const auto &file : o.files) {
            results.push_back(run_one(file, o.file));
            if (results.back().invalid) fmt::print(stderr, "{}\n", results.back().error);
        }
    }
    bool recorded = close_recorder(o, parts_fd, recorder_problem);
    if (!o.coverage.empty() && !write_coverage(o.coverage, coverage)) return 2;
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
        fmt::print(o.events == "-" ? stderr : stdout, "{}\n", line);
    }
    if (!recorded) return 2;
    return totals.invalid ? 2 : totals.failed_files ? 1 : 0;
}

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
    int status = run_files(run, [&](const std::string &file, const pc::runner::Options &o) {
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

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"planecheck: drives a data-plane object interface from YAML scenarios and checks what comes back"};
    app.set_version_flag("--version", "planecheck 0.1.0");
    app.require_subcommand(1);

    RunOptions run_options;
    auto *run = app.add_subcommand("run", "run scenario files");
    // required unless --files-from names them
    run->add_option("files", run_options.files, "scenario files (YAML or JSON), or directories of them")->check(CLI::ExistingPath);
    run->add_option("--files-from", run_options.files_from,
                    "run the scenario files named in FILE, one path per line (- for standard input), each as soon as its "
                    "line arrives, in worker processes (as -j 1 unless -j is given); with --events, a file's events are "
                    "written before the next line is read");
    run->add_flag("-v,--verbose", run_options.file.verbose, "write information lines (calls, handles, successes)");
    run->add_flag("-q,--quiet", run_options.file.quiet, "print only the steps that did not pass");
    run->add_option("--recorder", run_options.recorder, "write the operation recorder to FILE");
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
    run->add_option("--events", run_options.events,
                    "write the run's events to FILE as JSON Lines, one per line as it happens (- for standard output; "
                    "the step lines and the summary then go to standard error)");
    run->add_option("--html", run_options.html,
                    "write the run's HTML report to FILE when the run is over: one self-contained page (see planecheck report)");
    run->add_option("--coverage", run_options.coverage,
                    "write to FILE, as JSON, which types, operations, attributes and statuses the run exercised");
    run->add_option("--shard", run_options.shard, "run shard I of N of the files (I/N, such as 2/4), for CI fan-out; without it, TEST_SHARD_INDEX and "
                    "TEST_TOTAL_SHARDS (or GTEST_SHARD_INDEX and GTEST_TOTAL_SHARDS) choose the shard, counting from 0");

    RunOptions check_options;
    check_options.file.check_only = true;
    auto *check = app.add_subcommand("check", "read and validate scenario files without running them");
    check->add_option("files", check_options.files, "scenario files, or directories of them")->required()->check(CLI::ExistingPath);
    check->add_option("--events", check_options.events, "write the check's events to FILE as JSON Lines (- for standard output)");

    bool list = false, stats = false, schema = false;
    std::string describe;
    auto *catalogue = app.add_subcommand("catalogue", "show the object catalogue");
    auto *list_flag = catalogue->add_flag("--list", list, "print the object type names in catalogue order");
    auto *stats_flag = catalogue->add_flag("--stats", stats, "print the catalogue's totals")->excludes(list_flag);
    bool describe_json = false;
    auto *describe_option = catalogue->add_option("--describe", describe,
                                                  "print what a record of object type TYPE may carry, or the values or fields of "
                                                  "value type TYPE")
        ->excludes(list_flag)->excludes(stats_flag);
    catalogue->add_flag("--json", describe_json, "with --describe: print it as one JSON document")->needs(describe_option);
    catalogue->add_flag("--schema", schema, "print the JSON Schema of scenario files, for editors")
        ->excludes(list_flag)->excludes(stats_flag)->excludes(describe_option);

    std::string diff_a, diff_b;
    std::vector<std::string> ignore;
    bool diff_json = false;
    auto *diff = app.add_subcommand("diff", "compare two recorder files record by record (exit 0 equal, 1 different, 2 unreadable)");
    diff->add_option("a", diff_a, "the first recording")->required();
    diff->add_option("b", diff_b, "the second recording")->required();
    diff->add_option("--ignore", ignore, "leave the field FIELD out of the comparison (repeatable)")->allow_extra_args(false);
    diff->add_flag("--json", diff_json, "print the differences as one JSON document");

    RunOptions replay_options;
    std::string recording, write_scenario, replay_mode;
    int replay_object_set = -1;
    auto *replay = app.add_subcommand("replay", "run the operations of a recording again, or write them as a scenario");
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

    std::vector<std::string> reports;
    std::string uncovered;
    bool coverage_json = false;
    auto *coverage = app.add_subcommand("coverage", "merge coverage reports (run --coverage) and print what they cover");
    // no existence check: the reports that can be read are merged, the others are named
    coverage->add_option("reports", reports, "coverage reports written by run --coverage")->required();
    coverage->add_option("--uncovered", uncovered, "list what the records of object type TYPE never set or compared");
    coverage->add_flag("--json", coverage_json, "print JSON for machines instead of the table");

    pc::report::ReportRequest report_request;
    auto *report = app.add_subcommand("report", "write the HTML report of event streams (run --events), shards merged");
    report->add_option("events", report_request.events, "event files written by run --events (- reads standard input)")->required();
    report->add_option("--html", report_request.html, "write the report to FILE: one self-contained page")->required();
    report->add_option("--coverage", report_request.coverage,
                       "coverage reports (run --coverage) for the heat map; without it, those the runs wrote when they are still there")
        ->allow_extra_args(false);

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
    if (*run && run_options.files.empty() && run_options.files_from.empty()) {
        fmt::print(stderr, "planecheck: run needs scenario files or --files-from (planecheck --help shows the usage)\n");
        return 2;
    }
    RunOptions &chosen = *check ? check_options : run_options;
    chosen.command.assign(argv, argv + argc);
    return run_files(chosen);
}
