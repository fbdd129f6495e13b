#include "session.hpp"

#include "ci_env.hpp"
#include "coverage.hpp"
#include "ending.hpp"
#include "events.hpp"
#include "file_source.hpp"
#include "last_failed.hpp"
#include "parallel.hpp"
#include "platform.hpp"
#include "recorder_sink.hpp"
#include "scenario_files.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace pc::runner {

void RunModel::add(FileResult result) {
    add_to(totals_, result);
    files_.push_back(std::move(result));
}

int RunModel::exit_status(bool allow_skipped) const {
    if (totals_.invalid) return 2;
    return totals_.failed_files || (nothing_tested(totals_) && !allow_skipped) ? 1 : 0;
}

std::string platform_name() {
    const Platform &platform = linked_platform();
    if (const char *named = platform.offered(&pc_platform_services::name)) return named;
    std::string name = platform.library;
    if (name.rfind("lib", 0) == 0) name.erase(0, 3);
    if (size_t so = name.find(".so"); so != std::string::npos) name.erase(so);
    return name;
}

namespace {

// Forwards every record to each of the run's listeners.
class Fanout : public RunObserver {
public:
    void add(RunObserver *o) {
        if (o) listeners_.push_back(o);
    }
    bool empty() const { return listeners_.empty(); }
    void file_start(const FileResult &f) override {
        for (auto *o : listeners_) o->file_start(f);
    }
    void finding(const FileResult &f, const Finding &x) override {
        for (auto *o : listeners_) o->finding(f, x);
    }
    void step(const FileResult &f, const StepRecord &s) override {
        for (auto *o : listeners_) o->step(f, s);
    }
    void file_end(const FileResult &f) override {
        for (auto *o : listeners_) o->file_end(f);
    }
    void run_start(const RunDescription &run) override {
        for (auto *o : listeners_) o->run_start(run);
    }
    void run_end(const Totals &totals, int status) override {
        for (auto *o : listeners_) o->run_end(totals, status);
    }

private:
    std::vector<RunObserver *> listeners_;
};

// The run's id as the request or the environment gives it (the shards of one CI job share it);
// otherwise 128 random bits, so that two runs' streams are never taken for one.
std::string run_id(const std::string &given) {
    if (!given.empty()) return given;
    if (const char *env = std::getenv("PLANECHECK_RUN_ID"); env && *env) return env;
    std::random_device random;
    return fmt::format("{:08x}{:08x}{:08x}{:08x}", random(), random(), random(), random());
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

// A recorder folder is made when it is not there; one that cannot be written to is a usage error.
bool writable_folder(const std::string &dir) {
    if ((mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST) || access(dir.c_str(), W_OK | X_OK) != 0) {
        fmt::print(stderr, "planecheck: cannot write recorders to {}: {}\n", dir, std::strerror(errno));
        return false;
    }
    return true;
}

// The shard from --shard or from a CI executor's environment, which may also say where the
// JUnit report goes; a run the executor shards touches its status file (Bazel's) to say so.
bool choose_shard(RunRequest &o, Shard &shard) {
    std::string error;
    if (!o.shard.empty() && !parse_shard_option(o.shard, shard, error)) {
        fmt::print(stderr, "planecheck: {}\n", error);
        return false;
    }
    if (!o.ci_environment) return true;
    CiEnvironment env = read_ci_environment(std::getenv, o.shards);
    if (o.junit.empty()) o.junit = env.junit;
    if (!choose_shard(shard, env, error)) {
        fmt::print(stderr, "planecheck: {}\n", error);
        return false;
    }
    if (shard.sharded() && !env.status_file.empty() && !touch(env.status_file)) {
        fmt::print(stderr, "planecheck: cannot touch TEST_SHARD_STATUS_FILE {}: {}\n", env.status_file, std::strerror(errno));
        return false;
    }
    return true;
}

// The files of a run with --files-from: the ones named on the command line, then the list's.
bool open_file_list(const RunRequest &o, std::optional<FileSource> &source) {
    if (o.files_from.empty()) return true;
    int fd = o.files_from == "-" ? STDIN_FILENO : open(o.files_from.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        fmt::print(stderr, "planecheck: cannot read the file list {}: {}\n", o.files_from, std::strerror(errno));
        return false;
    }
    source.emplace(FileSource::of_stream(o.files, fd));
    return true;
}

// One run: its request, its outputs, its model. One at a time per process: the end-of-process
// handlers finish the one that runs.
class Session {
public:
    explicit Session(RunRequest &request) : o_(request) {}
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
    ~Session() {
        if (running_ != this) return;
        running_ = nullptr;
        ending::set_end_report(nullptr); // the process may go on to other work, or other runs
    }

    int run(const RunOne &run_one) {
        if (!o_.list && !prepare_html()) return 2;
        int status = write_html_report(finish_events(run_to_outputs(run_one)));
        if (!events_for_html_.empty()) unlink(events_for_html_.c_str()); // also when the run stopped before its events
        return status;
    }

private:
    int run_to_outputs(const RunOne &run_one) {
        if (o_.tap_steps) o_.tap = true; // the subtests are part of a TAP stream
        if (!o_.files_from.empty() && !o_.shard.empty()) {
            fmt::print(stderr, "planecheck: --shard and --files-from do not go together: the list names the files to run\n");
            return 2;
        }
        // the program that writes the list chooses the files: no shard from the environment
        if (!o_.file.check_only && o_.files_from.empty() && !choose_shard(o_, shard_)) return 2;
        if (std::string error; !o_.in_process && !expand_directories(o_.files, error, &names_)) {
            fmt::print(stderr, "planecheck: {}\n", error);
            return 2;
        }
        if (!take_selection()) return 2;
        take_shard();
        if (o_.list) return list_plan();
        if (o_.handlers) ending::install();
        // a report must survive a file that the library ends: the files then run in worker processes
        // (a replay runs in this process: its steps come from the recording, not from a file a child could open)
        if ((o_.tap || !o_.junit.empty()) && !o_.jobs && !o_.jobs_chosen && !o_.in_process) o_.jobs = 1;
        // a long-lived run outlives a file that the library ends
        if ((!o_.files_from.empty() || !o_.recorder_dir.empty()) && !o_.jobs) o_.jobs = 1;
        // a worker can be stopped at a time limit, timed, and replaced by a fresh one for a retry
        const RunLimits &limits = o_.limits;
        if ((limits.timeout_s > 0 || limits.slow_s > 0 || limits.retries) && !o_.jobs && !o_.in_process) o_.jobs = 1;
        std::optional<FileSource> listed;
        if (!open_file_list(o_, listed)) return 2;
        o_.file.progress = !o_.jobs && !o_.file.verbose && !o_.file.trace && isatty(STDERR_FILENO);
        if (o_.tap && o_.tap_out == stdout) {
            o_.file.quiet = true;
            o_.file.steps = stderr; // standard output carries the TAP stream alone
        }
        if (!o_.junit.empty() && !can_write(o_.junit, "the JUnit report")) return 2;
        if (o_.junit_steps && o_.junit.empty()) {
            fmt::print(stderr, "planecheck: --junit-steps shapes the JUnit report: give --junit FILE\n");
            return 2;
        }
        if (!open_recorder()) return 2;
        if (!open_events()) return 2;
        listeners_.add(o_.observer);
        if (o_.junit_steps || o_.tap_steps) listeners_.add(&step_keeper_);
        if (!listeners_.empty()) o_.file.observer = &listeners_;
        tell_start();
        started_telling_ = true;
        if (!o_.coverage.empty()) {
            o_.file.coverage = &coverage_;
            coverage::write_at_exit(&coverage_, o_.coverage);
        }
        running_ = this;
        ending::set_end_report(end_of_process);
        std::string recorder_problem;
        if (listed || !o_.recorder_dir.empty() || o_.jobs) {
            if (!listed) listed.emplace(FileSource::of_list(o_.files));
            auto done = [this](FileResult r) { keep(std::move(r)); };
            run_in_processes(*listed, o_.file, o_.jobs, parts_fd_, recorder_problem, done, o_.recorder_dir, o_.limits);
        } else {
            for (next_ = 0; next_ < o_.files.size() && !max_fail_reached(); ++next_) {
                keep(run_one(o_.files[next_], o_.file));
                if (model_.files().back().invalid) fmt::print(stderr, "{}\n", model_.files().back().error);
            }
            if (max_fail_reached()) report_not_run(max_fail_reason(o_.limits.max_fail));
        }
        bool recorded = close_recorder(recorder_problem);
        return write_reports(recorded);
    }

    // Coverage, JUnit, TAP and the summary, from the model; the exit status.
    int write_reports(bool recorded) {
        if (!o_.coverage.empty() && !write_coverage()) return 2;
        keep_last_failed();
        if (!o_.junit.empty() && !write_junit(o_.junit, model_.files(), seconds(), o_.junit_steps)) {
            fmt::print(stderr, "planecheck: cannot write the JUnit report to {}\n", o_.junit);
            return 2;
        }
        tell_summary();
        if (!recorded) return 2;
        return model_.exit_status(o_.allow_skipped);
    }

    // TAP and the summary line, from the model.
    void tell_summary() {
        std::string line = summary(model_.totals(), o_.file.check_only);
        if (shard_.sharded()) line += fmt::format(" (shard {} by {})", shard_.text(), shard_.source);
        if (o_.tap) {
            print_tap(model_.files(), o_.tap_out, o_.tap_steps);
            fmt::print(o_.tap_out, "# {}\n", tap_text(line, false));
        }
        if (!o_.tap || o_.tap_out != stdout) fmt::print(o_.summary, "{}\n", line);
        std::fflush(nullptr);
    }

    // The recorder is opened before any file runs; with -j the parts are appended to it at the end.
    bool open_recorder() {
        if (!o_.recorder.empty() && !o_.recorder_dir.empty()) {
            fmt::print(stderr, "planecheck: --recorder and --recorder-dir do not go together: a run writes one or the other\n");
            return false;
        }
        if (!o_.recorder_dir.empty() && !writable_folder(o_.recorder_dir)) return false;
        if (o_.recorder.empty()) return true;
        bool ok = o_.jobs ? (parts_fd_ = open(o_.recorder.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) >= 0
                          : recorder::open_file(o_.recorder);
        if (!ok) fmt::print(stderr, "planecheck: cannot write the recorder to {}: {}\n", o_.recorder, std::strerror(errno));
        return ok;
    }

    bool close_recorder(std::string problem) {
        if (o_.recorder.empty()) return true;
        if (o_.jobs) {
            if (close(parts_fd_) != 0 && problem.empty()) problem = fmt::format("cannot write: {}", std::strerror(errno));
        } else if (!recorder::close()) {
            problem = fmt::format("cannot write: {}", std::strerror(errno));
        }
        if (!problem.empty()) fmt::print(stderr, "planecheck: the recorder {} is incomplete: {}\n", o_.recorder, problem);
        return problem.empty();
    }

    bool write_coverage() {
        coverage::write_at_exit(nullptr, "");
        if (coverage::write_file(coverage_, o_.coverage)) return true;
        fmt::print(stderr, "planecheck: cannot write the coverage report to {}: {}\n", o_.coverage, std::strerror(errno));
        return false;
    }

    // --html reads the run's events back: they go to --events FILE, or to a temporary file.
    bool prepare_html() {
        if (o_.html.empty()) return true;
        if (o_.events == "-") {
            fmt::print(stderr, "planecheck: --html reads the run's events back; give --events a file, not -\n");
            return false;
        }
        if (!can_write(o_.html, "the HTML report")) return false;
        if (o_.events.empty()) {
            const char *tmp = std::getenv("TMPDIR");
            events_for_html_ = fmt::format("{}/planecheck-events-XXXXXX", tmp && *tmp ? tmp : "/tmp");
            int fd = mkstemp(events_for_html_.data());
            if (fd < 0) {
                fmt::print(stderr, "planecheck: cannot create a temporary file for the HTML report's events: {}\n", std::strerror(errno));
                return false;
            }
            close(fd);
            o_.events = events_for_html_;
        }
        html_ = o_.html;
        return true;
    }

    bool open_events() {
        if (o_.events.empty()) return true;
        if (o_.events == "-" && o_.tap && o_.tap_out == stdout) {
            fmt::print(stderr, "planecheck: --tap and --events - both write standard output; give --events a file\n");
            return false;
        }
        if (!events_.open(o_.events)) {
            fmt::print(stderr, "planecheck: cannot write the events to {}: {}\n", o_.events, std::strerror(errno));
            return false;
        }
        if (o_.events == "-") o_.file.steps = stderr, o_.summary = stderr; // standard output carries the events alone
        listeners_.add(&events_);
        return true;
    }

    void tell_start() {
        RunDescription run;
        run.command = o_.command;
        run.files = o_.files.size();
        run.check_only = o_.file.check_only;
        run.strict = o_.file.strict;
        run.verbose = o_.file.verbose;
        run.quiet = o_.file.quiet;
        run.jobs = std::max(o_.jobs, 1u);
        run.recorder = o_.recorder;
        run.coverage = o_.coverage;
        run.shard = shard_.sharded() ? shard_.text() : "";
        run.shard_of_suite = shard_;
        run.suite = o_.files_from.empty() && !o_.file.check_only ? &plan_ : nullptr;
        run.run_id = run_id(o_.run_id);
        run.platform = platform_name();
        listeners_.run_start(run);
    }

    int finish_events(int status) {
        if (!started_telling_) return status;
        started_telling_ = false;
        listeners_.run_end(model_.totals(), status);
        return events_.close() ? status : 2;
    }

    // The HTML report of the events written, as a last output of the run. The run's status stands
    // unless the page cannot be made in full (2; the page's own verdict is the run's).
    int write_html_report(int status) {
        if (html_.empty()) return status;
        std::string page = std::exchange(html_, "");
        int made = o_.write_html ? o_.write_html(o_.events, page) : 2;
        return made == 2 ? 2 : status;
    }

    // The process ends in the middle of the run: the library ends it while a file runs in it, or a
    // stop signal does (under -j, once the workers have told their files). The file running here
    // is reported as ended, the files not started as not run, and every output of the run is written.
    static void end_of_process(const std::string &how, int status) {
        Session *s = running_;
        if (!s) return;
        running_ = nullptr;
        std::optional<FileResult> ended = end_running_file(how);
        if (ended || s->o_.jobs) {
            s->report_the_rest(std::move(ended), how);
            s->keep_last_failed();
            if (!s->o_.junit.empty()) write_junit(s->o_.junit, s->model_.files(), s->seconds(), s->o_.junit_steps);
            s->tell_summary();
        }
        if (s->finish_events(status) == status) s->write_html_report(status);
        if (!s->events_for_html_.empty()) unlink(s->events_for_html_.c_str());
    }

    // Once enough files failed, no file starts.
    bool max_fail_reached() const { return o_.limits.max_fail && model_.totals().failed_files >= o_.limits.max_fail; }

    // The file ended in this process, if any, and every file the run had not started as not run.
    void report_the_rest(std::optional<FileResult> ended, const std::string &how) {
        if (ended) keep(std::move(*ended));
        const FileResult *last = model_.files().empty() ? nullptr : &model_.files().back();
        report_not_run(last && last->ended ? fmt::format("not run: the run ended in {}", last->ended_at) : "not run: the run ended with " + how);
    }

    void report_not_run(const std::string &why) {
        for (size_t i = model_.files().size(); i < o_.files.size(); ++i) {
            FileResult skipped;
            skipped.path = o_.files[i];
            skipped.not_started = why;
            if (o_.file.observer) o_.file.observer->file_start(skipped), o_.file.observer->file_end(skipped);
            keep(std::move(skipped));
        }
    }

    // A file's result joins the model, with its step records when a report lists steps.
    void keep(FileResult result) {
        step_keeper_.give_records(result);
        model_.add(std::move(result));
    }

    // The suite's plan, and this shard's files of it.
    void take_shard() {
        plan_ = plan_suite(o_.files, names_, shard_);
        if (!shard_.sharded()) return;
        o_.files = plan_.files_of(shard_.index);
        // more shards than files: this one passes with nothing to do, and says so
        if (o_.files.empty())
            fmt::print(stderr, "planecheck: shard {} has no files: the run has {}\n", shard_.text(), plural(plan_.files.size(), "file"));
    }

    // --list: the files this run would run, in order, and nothing run.
    int list_plan() {
        if (!o_.list_json) {
            for (const std::string &file : o_.files) fmt::print("{}\n", file);
            return 0;
        }
        RunDescription run;
        run.shard_of_suite = shard_;
        run.suite = &plan_;
        std::string files;
        for (const std::string &file : o_.files) files += (files.empty() ? "" : ",") + json_string(file);
        fmt::print("{{\"files\":[{}],{}}}\n", files, shard_and_suite(run));
        return 0;
    }

    // -k and --last-failed, before the shard: the files they leave out are never told.
    bool take_selection() {
        if (o_.file.check_only) return true;
        if (!o_.files_from.empty() && (o_.select.last_failed || !o_.select.keyword.empty())) {
            fmt::print(stderr, "planecheck: -k and --last-failed do not go with --files-from: the list names the files to run\n");
            return false;
        }
        Selected selected;
        std::string error;
        std::vector<std::string> notes;
        bool read = select_files(o_.files, o_.select, selected, error, notes);
        for (const std::string &note : notes) fmt::print(stderr, "planecheck: {}\n", note);
        if (!read) {
            fmt::print(stderr, "planecheck: {}\n", error);
            return false;
        }
        model_.deselected(selected);
        return true;
    }

    // What failed is kept for a later --last-failed: the files this run ran change their entries,
    // those it never started keep theirs. A list that cannot be kept does not fail the run. A run
    // fed by --files-from keeps nothing: the program that writes the list (the pytest plugin)
    // chooses the files and keeps its own record of what failed.
    void keep_last_failed() {
        if (o_.file.check_only || o_.select.state_dir.empty() || !o_.files_from.empty()) return;
        LastFailed state(o_.select.state_dir);
        std::string problem;
        state.load(problem); // a list that cannot be read is started afresh
        // a file that passed in the end (skipped, or flaky: it passed on a retry) leaves the list
        for (const FileResult &r : model_.files())
            if (r.not_started.empty()) state.ran(r.path, !r.passed());
        if (!state.save(problem)) fmt::print(stderr, "planecheck: cannot keep the files that failed for --last-failed: {}\n", problem);
    }

    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count(); }

    RunRequest &o_;
    Shard shard_;
    std::map<std::string, std::string> names_; // a file found in a folder: its name within the suite
    SuitePlan plan_;
    RunModel model_;
    EventWriter events_;
    Fanout listeners_;
    StepKeeper step_keeper_;
    coverage::Report coverage_;
    int parts_fd_ = -1;
    size_t next_ = 0; // the file running now, in this process
    bool started_telling_ = false; // run_start was told, run_end not yet
    std::string html_, events_for_html_;
    std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
    static inline Session *running_ = nullptr;
};

} // namespace

int run_files(RunRequest &request, const RunOne &run_one) {
    Session session(request);
    return session.run(run_one);
}

} // namespace pc::runner
