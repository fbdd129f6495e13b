// planecheck: runs scenario files against the data-plane object interface.
#include "catalogue_command.hpp"
#include "recorder_sink.hpp"
#include "run.hpp"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <cstring>

namespace {

std::string plural(uint64_t n, const char *word) {
    std::string w = word;
    bool sibilant = w.size() > 2 && (w.compare(w.size() - 2, 2, "ch") == 0 || w.back() == 's');
    return fmt::format("{} {}{}", n, w, n == 1 ? "" : sibilant ? "es" : "s");
}

int run_files(const std::vector<std::string> &files, const pc::runner::Options &options) {
    size_t steps = 0, failed_files = 0;
    uint64_t mismatches = 0, value_errors = 0, expected = 0;
    bool invalid = false;
    for (const auto &file : files) {
        pc::runner::FileResult r = pc::runner::run_file(file, options);
        steps += r.steps;
        mismatches += r.mismatches;
        value_errors += r.value_errors;
        expected += r.expected;
        if (r.invalid) {
            invalid = true;
            fmt::print(stderr, "{}\n", r.error);
        }
        if (!r.passed()) ++failed_files;
    }
    pc::recorder::flush();
    const char *verdict = invalid ? "INVALID" : failed_files ? "FAILED" : options.check_only ? "VALID" : "PASSED";
    std::string detail = options.check_only
                             ? plural(steps, "step")
                             : fmt::format("{}, {}, {}{}", plural(steps, "step"), plural(mismatches, "mismatch"),
                                           plural(value_errors, "value error"),
                                           expected ? fmt::format(" ({} expected)", expected) : "");
    fmt::print("planecheck: {}: {}, {}\n", verdict, plural(files.size(), "file"), detail);
    return invalid ? 2 : failed_files ? 1 : 0;
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"planecheck: drives a data-plane object interface from YAML scenarios and checks what comes back"};
    app.set_version_flag("--version", "planecheck 0.1.0");
    app.require_subcommand(1);

    pc::runner::Options options;
    std::vector<std::string> files;
    std::string recorder;
    auto *run = app.add_subcommand("run", "run scenario files");
    run->add_option("files", files, "scenario files (YAML or JSON)")->required()->check(CLI::ExistingFile);
    run->add_flag("-v,--verbose", options.verbose, "write information lines (calls, handles, successes)");
    run->add_flag("-q,--quiet", options.quiet, "print only the steps that did not pass");
    run->add_option("--recorder", recorder, "write the operation recorder to FILE");

    std::vector<std::string> check_files;
    auto *check = app.add_subcommand("check", "read and validate scenario files without running them");
    check->add_option("files", check_files, "scenario files")->required()->check(CLI::ExistingFile);

    bool list = false, stats = false;
    auto *catalogue = app.add_subcommand("catalogue", "show the object catalogue");
    auto *list_flag = catalogue->add_flag("--list", list, "print the object type names in catalogue order");
    catalogue->add_flag("--stats", stats, "print the catalogue's totals")->excludes(list_flag);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        int code = app.exit(e);
        return code == 0 ? 0 : 2;
    }

    if (*catalogue) {
        if (stats) pc::runner::print_stats();
        else pc::runner::list_types();
        return 0;
    }
    if (*check) {
        options.check_only = true;
        return run_files(check_files, options);
    }
    if (!recorder.empty() && !pc::recorder::open_file(recorder)) {
        fmt::print(stderr, "planecheck: cannot write the recorder to {}: {}\n", recorder, std::strerror(errno));
        return 2;
    }
    int status = run_files(files, options);
    pc::recorder::close();
    return status;
}
