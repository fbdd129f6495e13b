#include "report_command.hpp"

#include "coverage_view.hpp"
#include "event_stream.hpp"
#include "events.hpp"
#include "excerpt.hpp"
#include "page.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace pc::report {
namespace {

std::string now_utc() {
    std::time_t t = std::time(nullptr);
    std::tm tm {};
    gmtime_r(&t, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return text;
}

// The reports named on the command line, or those the runs wrote (--coverage of run), when they
// are still there.
std::vector<std::string> coverage_files(const ReportRequest &request, const Run &run) {
    if (!request.coverage.empty()) return request.coverage;
    std::vector<std::string> written;
    for (const Stream &s : run.streams)
        if (!s.coverage.empty() && access(s.coverage.c_str(), R_OK) == 0) written.push_back(s.coverage);
    return written;
}

// The merged coverage as the page's JSON; empty when there is none.
std::string read_coverage(const std::vector<std::string> &files, bool &complete) {
    if (files.empty()) return "";
    coverage::Report merged;
    std::vector<std::string> problems;
    size_t read = 0;
    for (const auto &file : files) {
        if (merged.merge_file(file, problems)) ++read;
        else complete = false;
    }
    for (const auto &p : problems) fmt::print(stderr, "{}\n", p);
    return read ? coverage_json(merged) : "";
}

// The file named earlier that `file` is (the same file by another name too), or "".
std::string given_before(const std::string &file, std::vector<std::pair<std::string, struct stat>> &seen) {
    struct stat s {};
    if (file == "-" || stat(file.c_str(), &s) != 0) return "";
    for (const auto &[name, earlier] : seen)
        if (earlier.st_dev == s.st_dev && earlier.st_ino == s.st_ino) return name;
    seen.emplace_back(file, s);
    return "";
}

// The run id and shard of an events file, from its first line ("" when it has none).
std::string run_and_shard(const std::string &file) {
    std::ifstream in(file);
    std::string line, problem;
    if (!std::getline(in, line)) return "";
    runner::EventDecoder decoder;
    runner::Event e;
    if (!decoder.decode(line, e, problem) || e.kind != runner::EventKind::run_start || e.run_start.run_id.empty()) return "";
    return e.run_start.run_id + (e.run_start.shard.empty() ? "" : ", shard " + e.run_start.shard);
}

// The events file named earlier that holds the same run and shard as `file`, or "".
std::string same_run_before(const std::string &file, std::vector<std::pair<std::string, std::string>> &runs) {
    std::string key = run_and_shard(file);
    if (key.empty()) return "";
    for (const auto &[name, earlier] : runs)
        if (earlier == key) return name;
    runs.emplace_back(file, key);
    return "";
}

// A stream without its run's start or end draws a run that is not all there: say which.
void name_incomplete_streams(const Run &run) {
    for (const Stream &s : run.streams) {
        if (s.version.empty() && s.started.empty()) fmt::print(stderr, "planecheck: the events file {} holds no run (no run_start event)\n", s.source);
        else if (!s.finished) fmt::print(stderr, "planecheck: the events file {} is cut short (no run_end event)\n", s.source);
    }
}

// A run that skipped every file fails, as the run itself did, unless it was allowed to.
int status_of(const Run &run) {
    std::string verdict = run.verdict();
    if (verdict == "skipped") return run.allowed_to_skip() ? 0 : 1;
    return verdict == "passed" ? 0 : verdict == "failed" ? 1 : 2;
}

} // namespace

int report_command(const ReportRequest &request) {
    Run run;
    EventReader reader(run);
    bool complete = true;
    std::vector<std::pair<std::string, struct stat>> seen;
    std::vector<std::pair<std::string, std::string>> runs; // events file, "run id, shard I/N"
    for (const auto &file : request.events) {
        if (std::string earlier = given_before(file, seen); !earlier.empty()) {
            fmt::print(stderr, "planecheck: the events file {} is {} given again; each stream is read once\n", file, earlier);
            complete = false;
            continue;
        }
        if (std::string earlier = same_run_before(file, runs); !earlier.empty()) {
            fmt::print(stderr, "planecheck: the events files {} and {} hold the same run ({}); each stream is read once\n", earlier,
                       file, run_and_shard(file));
            complete = false;
            continue;
        }
        if (reader.read_file(file)) continue;
        fmt::print(stderr, "planecheck: cannot read the events file {}: {}\n", file, std::strerror(errno));
        complete = false;
    }
    for (const auto &p : run.problems) fmt::print(stderr, "{}\n", p);
    name_incomplete_streams(run);
    complete &= run.problems.empty();
    read_excerpts(run);
    std::string coverage = read_coverage(coverage_files(request, run), complete);
    if (!write_page(request.html, build_page(run, coverage, now_utc()))) {
        fmt::print(stderr, "planecheck: cannot write the report to {}: {}\n", request.html, std::strerror(errno));
        return 2;
    }
    return complete ? status_of(run) : 2;
}

} // namespace pc::report
