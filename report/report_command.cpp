#include "report_command.hpp"

#include "coverage_view.hpp"
#include "event_stream.hpp"
#include "events.hpp"
#include "ending.hpp"
#include "excerpt.hpp"
#include "page.hpp"
#include "report.hpp"
#include "shard_merge.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
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

// Where each file of the suite comes in it, by its name within the suite; an events file's paths
// are named by its own plan, so shards run from different folders still line up.
struct SuiteOrder {
    std::map<std::string, size_t> position; // name -> place in the suite

    // The places of one stream's files, by their paths; a file outside the plan comes last.
    std::map<std::string, size_t> of(const runner::SuitePlan &plan) {
        if (position.empty())
            for (size_t k = 0; k < plan.names.size(); ++k) position.emplace(plan.names[k], k);
        std::map<std::string, size_t> places;
        for (size_t k = 0; k < plan.files.size(); ++k)
            if (auto found = position.find(plan.names[k]); found != position.end()) places[plan.files[k]] = found->second;
        return places;
    }
};

// The files of every events file as their events tell them; a file whose file_end never came
// was ended with its stream.
std::vector<runner::FileResult> merged_results(const std::vector<std::string> &events) {
    std::vector<std::pair<size_t, runner::FileResult>> placed;
    SuiteOrder order;
    runner::EventDecoder decoder;
    for (const std::string &file : events) {
        std::ifstream in(file, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        runner::RunEvents stream;
        runner::read_run_events(text.str(), decoder, stream);
        std::map<std::string, size_t> places = order.of(stream.started.suite);
        for (runner::FileEvents &f : stream.files) {
            if (!f.complete) f.result.ended = true, f.result.ended_how = "its events stop before its end: " + file + " is cut short";
            else runner::restore_ending_findings(f.result);
            auto place = places.find(f.result.path);
            placed.emplace_back(place == places.end() ? SIZE_MAX : place->second, std::move(f.result));
        }
    }
    std::stable_sort(placed.begin(), placed.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    std::vector<runner::FileResult> results;
    for (auto &p : placed) results.push_back(std::move(p.second));
    return results;
}

// The merge of shards names what it lacks, and fails for it.
void check_merge(Run &run) {
    run.missing = check_shards(run);
    for (const std::string &m : run.missing) fmt::print(stderr, "planecheck: the merge is incomplete: {}\n", m);
}

} // namespace

int report_command(const ReportRequest &request) {
    if (request.html.empty() && request.junit.empty()) {
        fmt::print(stderr, "planecheck: report writes --html FILE, --junit FILE or both: give one\n");
        return 2;
    }
    if (!request.junit.empty() && std::count(request.events.begin(), request.events.end(), "-")) {
        fmt::print(stderr, "planecheck: report --junit reads each events file twice: give files, not -\n");
        return 2;
    }
    std::vector<std::string> read;
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
        if (reader.read_file(file)) {
            read.push_back(file);
            continue;
        }
        fmt::print(stderr, "planecheck: cannot read the events file {}: {}\n", file, std::strerror(errno));
        complete = false;
    }
    for (const auto &p : run.problems) fmt::print(stderr, "{}\n", p);
    name_incomplete_streams(run);
    check_merge(run);
    complete &= run.problems.empty();
    read_excerpts(run);
    std::string coverage = read_coverage(coverage_files(request, run), complete);
    if (!request.html.empty() && !write_page(request.html, build_page(run, coverage, now_utc()))) {
        fmt::print(stderr, "planecheck: cannot write the report to {}: {}\n", request.html, std::strerror(errno));
        return 2;
    }
    if (!request.junit.empty() && !runner::write_junit(request.junit, merged_results(read), run.duration() / 1000)) {
        fmt::print(stderr, "planecheck: cannot write the JUnit report to {}: {}\n", request.junit, std::strerror(errno));
        return 2;
    }
    return complete ? status_of(run) : 2;
}

} // namespace pc::report
