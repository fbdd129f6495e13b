#include "parallel.hpp"

#include "coverage.hpp"
#include "report.hpp"
#include "ending.hpp"
#include "recorder_sink.hpp"
#include "event_stream.hpp"
#include "events.hpp"
#include "worker_channel.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <deque>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <poll.h>
#include <optional>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace pc::runner {
namespace {

// A temporary file, already unlinked: only its descriptor names it, so nothing is left behind.
struct TempFile {
    int fd = -1;
    TempFile() = default;
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    ~TempFile() { reset(); }
    void reset() {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
};

std::string temp_dir() {
    const char *dir = std::getenv("TMPDIR");
    return dir && *dir ? dir : "/tmp";
}

bool make_temp(TempFile &file, const char *what, std::string &problem) {
    std::string path = fmt::format("{}/planecheck-{}-{}-XXXXXX", temp_dir(), getpid(), what);
    file.fd = mkstemp(path.data());
    if (file.fd < 0) {
        problem = fmt::format("cannot create a temporary file in {}: {}", temp_dir(), std::strerror(errno));
        return false;
    }
    ::unlink(path.c_str());
    return true;
}

// The whole content of a temporary file; false (errno set) when it cannot be read.
bool read_all(int fd, std::string &text) {
    text.clear();
    char buffer[1 << 16];
    for (off_t at = 0;;) {
        ssize_t n = ::pread(fd, buffer, sizeof buffer, at);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        if (n == 0) return true;
        text.append(buffer, size_t(n));
        at += n;
    }
}

// A worker's exit status when the parent no longer takes its results.
constexpr int kResultsUnsent = 125;

// The temporary files one file's run writes into. They are kept until the file's output is
// printed and its parts are joined, then emptied and handed to a later file.
struct Parts {
    TempFile output, records, recorder, coverage; // records: the file's steps and findings as they are made

    // In the order the worker takes them: output, records, then the recorder and coverage parts that are written.
    std::vector<int> descriptors() const {
        std::vector<int> fds{output.fd, records.fd};
        for (int fd : {recorder.fd, coverage.fd})
            if (fd >= 0) fds.push_back(fd);
        return fds;
    }
    void close_all() {
        output.reset();
        records.reset();
        recorder.reset();
        coverage.reset();
    }
    bool empty_again() {
        for (int fd : {output.fd, records.fd, recorder.fd, coverage.fd})
            if (fd >= 0 && (ftruncate(fd, 0) != 0 || lseek(fd, 0, SEEK_SET) != 0)) return false;
        return true;
    }
};

// What the parent knows of one file.
struct FileSlot {
    std::unique_ptr<Parts> parts;
    bool done = false;   // its result is settled: no attempt of it is still to run
    std::string not_run; // why the file could not be run, when it could not
    std::string results; // as the worker sent them: the findings of its own write problems and the file_end
    bool ended = false;  // the worker ended while it ran the file
    int status = 0;      // how it ended
    Trail trail;         // where the run stood then
    bool timed_out = false; // the run's time limit ended it
    double limit_s = 0;     // the limit it ran into
    std::optional<FileResult> result;   // once settled (or, while a retry waits, the failed attempt's)
    std::vector<std::string> told;      // lines for standard error, printed after its output
    std::string earlier_output;         // the output and lines of its failed attempts
    size_t attempts = 1;
    std::vector<FileResult::FailedAttempt> failed_attempts;
    bool fresh_worker = false;          // a retry runs on a worker that ran nothing before it
};

using Clock = std::chrono::steady_clock;
double seconds_between(Clock::time_point from, Clock::time_point to) { return std::chrono::duration<double>(to - from).count(); }

constexpr size_t kIdle = size_t(-1);

struct Worker {
    pid_t pid = -1;
    int socket = -1;
    Trail *trail = nullptr; // shared with the worker: where its file's run stood when it ended
    size_t file = kIdle;    // the file it runs now
    channel::FrameReader frames;
    Clock::time_point started;     // when it was handed the file
    bool stopped = false, killed = false; // the time limit sent SIGTERM, then SIGKILL
    Clock::time_point stopped_at;
    double limit_s = 0;
};

Trail *shared_trail() {
    void *p = mmap(nullptr, sizeof(Trail), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : new (p) Trail;
}

// The descriptors of an assignment, named.
struct Assigned {
    int output = -1, records = -1, recorder = -1, coverage = -1;
    Assigned(const std::vector<int> &fds, bool recording, bool covering) {
        size_t at = 0;
        output = at < fds.size() ? fds[at++] : -1;
        records = at < fds.size() ? fds[at++] : -1;
        if (recording) recorder = at < fds.size() ? fds[at++] : -1;
        if (covering) coverage = at < fds.size() ? fds[at++] : -1;
    }
};

// Runs one file with its output, recorder part and coverage part going to the assigned files, and
// its events, as they are made, to the records file; returns the events that close the file: the
// problems of writing its parts out, told as findings about the whole file, and its file_end.
std::string run_assigned(const std::string &file, const Options &options, const Assigned &a, Trail &trail) {
    dup2(a.output, STDOUT_FILENO);
    dup2(a.output, STDERR_FILENO);
    std::clearerr(stdout);
    if (a.recorder >= 0) pc::recorder::to_descriptor(dup(a.recorder));
    coverage::Report covered; // the file's own part: the parent adds the parts up
    if (a.coverage >= 0) coverage::write_at_exit(&covered, fmt::format("/proc/self/fd/{}", a.coverage));
    trail_file(trail); // until the file's run begins, where a file before it stood is not where this one stands
    Options traced = options;
    traced.trail = &trail;
    traced.coverage = a.coverage >= 0 ? &covered : nullptr;
    EventLineWriter events(a.records);
    traced.observer = &events;
    FileResult r = run_file(file, traced);
    if (r.invalid) fmt::print(stderr, "{}\n", r.error);
    std::string closing;
    auto problem = [&](const std::string &text) {
        Finding f;
        f.text = text;
        ++r.failures;
        closing += finding_event(r, f, rfc3339_now()) + "\n";
    };
    if (a.recorder >= 0 && !pc::recorder::close()) problem(fmt::format("cannot write its recorder part: {}", std::strerror(errno)));
    if (a.coverage >= 0) {
        coverage::write_at_exit(nullptr, "");
        if (!write_all(a.coverage, covered.to_json())) problem(fmt::format("cannot write its coverage part: {}", std::strerror(errno)));
    }
    if (!events.ok())
        problem(fmt::format("its steps could not be written in full to a temporary file in {}: {}", temp_dir(), std::strerror(events.error())));
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        problem(fmt::format("its output could not be written in full to a temporary file in {}: {}", temp_dir(), std::strerror(errno)));
    std::fflush(nullptr);
    return closing + events.file_end_line(r) + "\n";
}

// A worker runs the files it is given one after the other, each on a fresh data plane, until the
// parent closes its stream. Between files its output goes nowhere.
[[noreturn]] void serve(int socket, Trail &trail, const Options &options, bool recording) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // step lines and log lines share the file: keep their order
    ending::install();                        // the worker's own: its recorder part survives the library's exit
    ending::set_end_report(nullptr);          // the parent reports an ended file from its trail
    int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    uint64_t file = 0;
    std::string path;
    std::vector<int> fds;
    while (channel::receive_assignment(socket, file, path, fds)) {
        Assigned assigned(fds, recording, options.coverage != nullptr);
        std::string results = assigned.output >= 0 ? run_assigned(path, options, assigned, trail) : std::string();
        dup2(nowhere, STDOUT_FILENO);
        dup2(nowhere, STDERR_FILENO);
        for (int fd : fds) ::close(fd);
        if (!channel::send_frame(socket, results)) _exit(kResultsUnsent);
    }
    _exit(0);
}

// A file that did not run, or whose run cannot be told, fails with the reason (told after its output).
FileResult failed(const std::string &file, const std::string &reason, FileSlot &s) {
    FileResult r;
    r.path = file;
    r.failures = 1;
    r.add_finding(fmt::format("{}: {}", file, reason));
    s.told.push_back(r.findings.back());
    return r;
}

// Prints a file's output.
void print_output(const std::string &file, int output_fd) {
    std::string text;
    if (!read_all(output_fd, text)) {
        fmt::print(stderr, "{}: its output cannot be read back: {}\n", file, std::strerror(errno));
        return;
    }
    std::fputs((text.empty() || text.back() == '\n' ? text : text + "\n").c_str(), stderr);
}

// "2", "0.5": a limit as it was given.
std::string seconds_text(double seconds) { return fmt::format("{:g}", seconds); }

// A file whose worker ended while it ran it: what the worker passed on, and the ending's account
// from the trail, its ended step's records ending where the recorder part does. A worker that the
// time limit stopped ended with the stop signal, yet the file is told as timed out.
FileResult ended_file(FileResult r, FileSlot &s) {
    struct stat part {};
    int64_t records_end = s.parts->recorder.fd >= 0 && fstat(s.parts->recorder.fd, &part) == 0 ? int64_t(part.st_size) : -1;
    r.timed_out = s.timed_out;
    std::string how = s.timed_out ? fmt::format("timeout of {} s", seconds_text(s.limit_s)) : ending_how(s.status);
    if (std::optional<StepRecord> step = account_ending(r, s.trail, how, records_end)) r.step_records.push_back(*step);
    s.told.push_back(r.findings.front());
    return r;
}

// The file's result from what its worker left; what it has to say on standard error is kept in
// the slot, to follow its output in the order of the files.
FileResult decode(const std::string &file, FileSlot &s) {
    if (!s.not_run.empty()) return failed(file, "not run: " + s.not_run, s);
    if (s.ended && WIFEXITED(s.status) && WEXITSTATUS(s.status) == kResultsUnsent)
        return failed(file, "its results could not be sent back", s);
    static EventDecoder decoder;
    FileEvents events;
    events.result.path = file;
    std::string records;
    // steps cut short (a full disk, an ended worker) still give the events of those that were written whole
    if (read_all(s.parts->records.fd, records)) {
        records.erase(records.rfind('\n') == std::string::npos ? 0 : records.rfind('\n') + 1);
        read_file_events(records, decoder, events);
    }
    if (s.ended) return ended_file(std::move(events.result), s);
    events.problem.clear();
    size_t told = events.result.finding_records.size();
    read_file_events(s.results, decoder, events);
    if (!events.complete)
        return failed(file, "its results cannot be read: " + (events.problem.empty() ? "they are incomplete" : events.problem), s);
    for (size_t i = told; i < events.result.finding_records.size(); ++i) // the worker's own problems, found after the run
        s.told.push_back(finding_line(file, events.result.finding_records[i]));
    return std::move(events.result);
}

std::string findings_text(const FileResult &r) {
    std::string body;
    for (const auto &f : r.findings) body += f + "\n";
    return body;
}

// Workers started once and given file after file; a worker the library ends is replaced.
class Pool {
public:
    Pool(FileSource &source, const Options &options, unsigned jobs, int recorder_fd, std::string &recorder_problem,
         const std::string &recorder_dir, const FileDone &done, const RunLimits &limits)
        : source_(source), options_(options), jobs_(std::max(jobs, 1u)), recorder_fd_(recorder_fd), recorder_problem_(recorder_problem),
          recorder_dir_(recorder_dir), done_(done), limits_(limits) {}
    Pool(const Pool &) = delete;
    Pool &operator=(const Pool &) = delete;

    void run() {
        while (printed_ < next_ || ((next_ < files_.size() || !source_.ended()) && !stopping())) {
            hand_out();
            if (ending::stop_signal() && !forwarded_) stop_busy_workers();
            enforce_time_limits();
            wait_for_workers();
            for (; printed_ < next_ && slots_[printed_].done; ++printed_) complete(printed_); // keep the files' order
        }
        if (!ending::stop_signal()) not_run_after_max_fail();
        close_workers();
        ending::stop_if_requested();
    }

private:
    bool recording() const { return recorder_fd_ >= 0 || !recorder_dir_.empty(); }
    bool max_fail_reached() const { return limits_.max_fail && failed_files_ >= limits_.max_fail; }
    // No file starts, nor runs again: a stop signal came, or enough files failed.
    bool stopping() const { return ending::stop_signal() || max_fail_reached(); }

    void hand_out() {
        if (stopping()) settle_waiting_retries();
        while (!stopping()) {
            bool retrying = !retries_.empty();
            if (!retrying && next_ == files_.size() && !take_next_path()) return;
            size_t file = retrying ? retries_.front() : next_;
            FileSlot &slot = slots_[file];
            auto taken = [&] { retrying ? retries_.pop_front() : void(++next_); };
            if (!slot.parts && !(slot.parts = take_parts(slot.not_run))) {
                taken();
                settle(file);
                continue;
            }
            std::string problem;
            Worker *w = slot.fresh_worker ? fresh_worker(problem) : idle_worker(problem);
            if (!w && !problem.empty()) { // not a single worker runs, and none can be started
                slot.not_run = problem;
                taken();
                settle(file);
                continue;
            }
            if (!w) return;
            if (w->trail) w->trail->timeout_ms = -1; // the file before it set its own
            if (!channel::send_assignment(w->socket, file, files_[file], slot.parts->descriptors())) {
                kill(w->pid, SIGKILL); // it ended, or cannot be reached, while idle: nothing of a file is lost
                worker_ended(*w);
                continue;
            }
            w->file = file;
            w->started = Clock::now();
            taken();
        }
    }

    // A path is taken only when a worker can run it at once: a program that writes the next path
    // after reading a file's results then gets them before the run reads that path.
    bool take_next_path() {
        std::string path;
        if (!has_room() || source_.next(path, false) != FileSource::Next::path) return false;
        files_.push_back(std::move(path));
        slots_.emplace_back();
        return true;
    }

    bool has_room() const {
        return workers_.size() < jobs_ || std::any_of(workers_.begin(), workers_.end(), [](const Worker &w) { return w.file == kIdle; });
    }

    bool waiting_for_a_path() const { return next_ == files_.size() && source_.descriptor() >= 0 && has_room(); }

    std::unique_ptr<Parts> take_parts(std::string &problem) {
        if (!spare_.empty()) {
            std::unique_ptr<Parts> parts = std::move(spare_.back());
            spare_.pop_back();
            return parts;
        }
        auto parts = std::make_unique<Parts>();
        if (!make_temp(parts->output, "output", problem) || !make_temp(parts->records, "records", problem) || (recording() && !make_temp(parts->recorder, "recorder", problem)) ||
            (options_.coverage && !make_temp(parts->coverage, "coverage", problem)))
            return nullptr;
        return parts;
    }

    // An idle worker, or a new one while fewer than `jobs` run; null when none can be had now.
    // `problem` says why, when not a single worker runs and none can be started.
    Worker *idle_worker(std::string &problem) {
        for (auto &w : workers_)
            if (w.file == kIdle) return &w;
        if (workers_.size() >= jobs_) return nullptr;
        if (start_worker(problem)) return &workers_.back();
        if (!workers_.empty()) problem.clear();
        return nullptr;
    }

    // A worker that ran no file before: an idle one makes room for it.
    Worker *fresh_worker(std::string &problem) {
        if (workers_.size() >= jobs_) {
            auto idle = std::find_if(workers_.begin(), workers_.end(), [](const Worker &w) { return w.file == kIdle; });
            if (idle == workers_.end()) return nullptr;
            retire(*idle);
        }
        if (start_worker(problem)) return &workers_.back();
        if (!workers_.empty()) problem.clear();
        return nullptr;
    }

    // An idle worker ends when its stream does.
    void retire(Worker &w) {
        ::close(w.socket);
        int status = 0;
        while (waitpid(w.pid, &status, 0) < 0 && errno == EINTR) {}
        if (w.trail) munmap(w.trail, sizeof(Trail));
        workers_.erase(workers_.begin() + (&w - workers_.data()));
    }

    // The file's own config: timeout wins over the run's.
    double limit_of(const Worker &w) const {
        int64_t own = w.trail ? w.trail->timeout_ms : -1;
        return own >= 0 ? double(own) / 1000 : limits_.timeout_s;
    }

    // A file past its limit is stopped as a stop signal stops a run (its records written out); a
    // worker that does not end within the grace period (a platform call that never returns) is killed.
    void enforce_time_limits() {
        Clock::time_point now = Clock::now();
        for (auto &w : workers_) {
            if (w.file == kIdle || w.killed) continue;
            if (!w.stopped) {
                double limit = limit_of(w);
                if (limit <= 0 || seconds_between(w.started, now) < limit) continue;
                w.stopped = true;
                w.stopped_at = now;
                w.limit_s = limit;
                kill(w.pid, SIGTERM);
            } else if (seconds_between(w.stopped_at, now) >= kTimeoutGraceSeconds) {
                w.killed = true;
                kill(w.pid, SIGKILL);
            }
        }
    }

    bool start_worker(std::string &problem) {
        int ends[2];
        if (!channel::make_pair(ends)) {
            problem = fmt::format("cannot start a process: {}", std::strerror(errno));
            return false;
        }
        Trail *trail = shared_trail();
        std::fflush(nullptr);
        pid_t pid = fork();
        if (pid == 0) {
            ::close(ends[0]);
            close_inherited();
            Trail own;
            serve(ends[1], trail ? *trail : own, options_, recording());
        }
        ::close(ends[1]);
        if (pid < 0) {
            problem = fmt::format("cannot start a process: {}", std::strerror(errno));
            ::close(ends[0]);
            if (trail) munmap(trail, sizeof(Trail));
            return false;
        }
        workers_.emplace_back();
        Worker &w = workers_.back();
        w.pid = pid;
        w.socket = ends[0];
        w.trail = trail;
        return true;
    }

    // In a new worker: the other workers' streams and the other files' parts are not its own.
    void close_inherited() {
        for (auto &w : workers_) ::close(w.socket);
        for (auto &slot : slots_)
            if (slot.parts) slot.parts->close_all();
        for (auto &parts : spare_) parts->close_all();
    }

    void stop_busy_workers() { // the running files stop at their next safe point
        for (auto &w : workers_)
            if (w.file != kIdle) kill(w.pid, SIGTERM);
        forwarded_ = true;
    }

    void wait_for_workers() {
        std::vector<pollfd> watched;
        for (auto &w : workers_) watched.push_back({w.socket, POLLIN, 0});
        if (waiting_for_a_path()) watched.push_back({source_.descriptor(), POLLIN, 0}); // read by the next hand_out
        if (watched.empty()) return;
        // a timeout, so that a stop signal that came just before the poll is seen soon
        if (poll(watched.data(), watched.size(), 200) <= 0) return;
        std::vector<size_t> gone;
        for (size_t i = 0; i < workers_.size(); ++i) {
            if (!watched[i].revents) continue;
            Worker &w = workers_[i];
            bool open = w.frames.read_from(w.socket);
            for (std::string payload; w.file != kIdle && w.frames.take(payload);) file_done(w, std::move(payload));
            if (!open) gone.push_back(i);
        }
        for (size_t k = gone.size(); k-- > 0;) worker_ended(workers_[gone[k]]);
        // one that finished its file as the time limit stopped it: the stop would end its next file
        for (size_t k = workers_.size(); k-- > 0;)
            if (workers_[k].stopped && workers_[k].file == kIdle) retire(workers_[k]);
    }

    void file_done(Worker &w, std::string payload) {
        size_t file = w.file;
        slots_[file].results = std::move(payload);
        w.file = kIdle;
        settle(file);
    }

    // The worker's stream ended: it has ended or is ending. A file it ran is reported as it stood.
    void worker_ended(Worker &w) {
        int status = 0;
        while (waitpid(w.pid, &status, 0) < 0 && errno == EINTR) {}
        size_t file = w.file;
        if (file != kIdle) {
            FileSlot &slot = slots_[file];
            slot.ended = true;
            slot.status = status;
            slot.timed_out = w.stopped;
            slot.limit_s = w.limit_s;
            if (w.trail) slot.trail = *w.trail;
        }
        ::close(w.socket);
        if (w.trail) munmap(w.trail, sizeof(Trail));
        workers_.erase(workers_.begin() + (&w - workers_.data()));
        if (file != kIdle) settle(file);
    }

    void close_workers() {
        for (auto &w : workers_) ::close(w.socket); // a worker ends when its stream does
        for (auto &w : workers_) {
            int status = 0;
            while (waitpid(w.pid, &status, 0) < 0 && errno == EINTR) {}
            if (w.trail) munmap(w.trail, sizeof(Trail));
        }
        workers_.clear();
    }

    // An attempt of a file is over: it runs again, or its result is the file's.
    void settle(size_t i) {
        FileSlot &slot = slots_[i];
        FileResult r = decode(files_[i], slot);
        if (run_again(i, r)) return;
        finalize(slot, std::move(r));
    }

    void finalize(FileSlot &slot, FileResult r) {
        r.attempts = slot.attempts;
        r.failed_attempts = std::move(slot.failed_attempts);
        r.slow = limits_.slow_s > 0 && r.duration_ms >= limits_.slow_s * 1000;
        if (limits_.no_flaky && r.flaky()) {
            ++r.failures;
            r.add_finding(fmt::format("{}: passed only on attempt {} (--no-flaky)", r.path, r.attempts));
            slot.told.push_back(r.findings.back());
        }
        failed_files_ += !r.passed() && r.not_started.empty();
        slot.result = std::move(r);
        slot.done = true;
    }

    // A file that failed, ended or timed out runs again on a fresh worker while it has retries
    // left; an invalid file would only fail again. Its failed attempt's output is kept.
    bool run_again(size_t i, const FileResult &r) {
        FileSlot &slot = slots_[i];
        bool retried = !r.passed() && !r.invalid && slot.not_run.empty() && slot.attempts <= limits_.retries && !stopping();
        std::string output;
        if (!retried || !read_all(slot.parts->output.fd, output) || !slot.parts->empty_again()) return false;
        std::string message = failure_message(r);
        slot.failed_attempts.push_back({message, findings_text(r)});
        slot.earlier_output += output.empty() || output.back() == '\n' ? output : output + "\n";
        for (const std::string &line : slot.told) slot.earlier_output += line + "\n";
        slot.earlier_output += fmt::format("{}: attempt {} of {} failed: {}; it runs again on a fresh worker\n", r.path,
                                           slot.attempts, limits_.retries + 1, message);
        slot.told.clear();
        slot.results.clear();
        slot.ended = slot.timed_out = false;
        slot.status = 0;
        slot.trail = Trail{};
        slot.result = r;
        slot.fresh_worker = true;
        ++slot.attempts;
        retries_.push_back(i);
        return true;
    }

    // A stop or --max-fail leaves a file waiting to run again with the attempt that failed.
    void settle_waiting_retries() {
        for (size_t i : retries_) {
            FileSlot &slot = slots_[i];
            FileResult r = std::move(*slot.result);
            --slot.attempts;
            slot.failed_attempts.pop_back();
            finalize(slot, std::move(r));
        }
        retries_.clear();
    }

    // The files after --max-fail was reached, the list's later lines among them, are told as not run.
    void not_run_after_max_fail() {
        if (!max_fail_reached()) return;
        auto not_run = [this](const std::string &path) {
            FileResult r;
            r.path = path;
            r.not_started = max_fail_reason(limits_.max_fail);
            if (options_.observer) replay_records(r, *options_.observer);
            done_(std::move(r));
        };
        for (size_t i = next_; i < files_.size(); ++i) not_run(files_[i]);
        for (std::string path; source_.next(path, true) == FileSource::Next::path;) not_run(path);
    }

    // The file's result goes to the run as soon as its records are told: a stop after it counts it.
    void complete(size_t i) {
        FileSlot &slot = slots_[i];
        std::fputs(slot.earlier_output.c_str(), stderr);
        if (slot.parts && slot.not_run.empty()) print_output(files_[i], slot.parts->output.fd);
        for (const std::string &line : slot.told) fmt::print(stderr, "{}\n", line);
        FileResult r = std::move(*slot.result);
        if (!slot.parts) {
            tell(r, nullptr);
            return done_(std::move(r));
        }
        write_own_recorder(r, *slot.parts);
        tell(r, slot.parts.get());
        join_recorder_part(*slot.parts);
        merge_coverage_part(*slot.parts);
        if (slot.parts->empty_again()) spare_.push_back(std::move(slot.parts));
        slot = FileSlot{};
        slot.done = true;
        done_(std::move(r));
    }

    // Tells the observer a file's records as its worker made them, placed in the joined recorder
    // file; they are not kept after that.
    void tell(FileResult &r, const Parts *parts) {
        for (auto &s : r.step_records)
            if (s.records_start >= 0) s.records_start += int64_t(records_base_), s.records_end += int64_t(records_base_);
        struct stat part {};
        if (recorder_fd_ >= 0 && parts && parts->recorder.fd >= 0 && fstat(parts->recorder.fd, &part) == 0)
            records_base_ += uint64_t(part.st_size);
        if (options_.observer) replay_records(r, *options_.observer);
        r.step_records = {};
        r.finding_records = {};
    }

    // Before the file's events are told: a reader of its file_end finds its recorder complete.
    void write_own_recorder(FileResult &r, Parts &parts) {
        if (recorder_dir_.empty() || parts.recorder.fd < 0) return;
        std::string part, path = recorder_dir_ + "/" + recorder_file_name(r.path);
        int fd = -1;
        bool written = read_all(parts.recorder.fd, part) &&
                       (fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) >= 0 && write_all(fd, part);
        if ((fd >= 0 && ::close(fd) != 0) || !written) { // told with the file's events, as a worker's own problems are
            Finding problem;
            problem.text = fmt::format("cannot write its recorder to {}: {}", path, std::strerror(errno));
            r.finding_records.push_back(problem);
            r.add_finding(finding_line(r.path, problem));
            ++r.failures;
            fmt::print(stderr, "{}\n", r.findings.back());
        }
    }

    // Parts are appended in the order of the files; after a part that could not be, none is.
    void join_recorder_part(Parts &parts) {
        if (recorder_fd_ < 0 || !recorder_problem_.empty()) return;
        std::string part;
        if (!read_all(parts.recorder.fd, part))
            recorder_problem_ = fmt::format("a file's part cannot be read back: {}", std::strerror(errno));
        else if (!write_all(recorder_fd_, part))
            recorder_problem_ = fmt::format("cannot write: {}", std::strerror(errno));
    }

    // A worker the library ended wrote its part at exit; one that aborted left it empty.
    void merge_coverage_part(Parts &parts) {
        struct stat part {};
        if (!options_.coverage || parts.coverage.fd < 0 || fstat(parts.coverage.fd, &part) != 0 || part.st_size == 0) return;
        std::vector<std::string> problems;
        options_.coverage->merge_file(fmt::format("/proc/self/fd/{}", parts.coverage.fd), problems);
        for (const auto &p : problems) fmt::print(stderr, "planecheck: coverage part: {}\n", p);
    }

    FileSource &source_;
    std::vector<std::string> files_; // the paths taken from the source so far
    const Options &options_;
    const size_t jobs_;
    const int recorder_fd_;
    std::string &recorder_problem_;
    const std::string recorder_dir_;
    std::vector<FileSlot> slots_;
    const FileDone &done_;
    std::vector<Worker> workers_;
    std::vector<std::unique_ptr<Parts>> spare_;
    const RunLimits limits_;
    std::deque<size_t> retries_; // files to run again, before any new file
    size_t failed_files_ = 0;    // settled files that failed, for --max-fail
    size_t next_ = 0, printed_ = 0;
    uint64_t records_base_ = 0; // where the next file's recorder part begins in the recorder file
    bool forwarded_ = false;
};
} // namespace

void run_in_processes(FileSource &files, const Options &options, unsigned jobs, int recorder_fd, std::string &recorder_problem,
                      const FileDone &done, const std::string &recorder_dir, const RunLimits &limits) {
    Pool(files, options, jobs, recorder_fd, recorder_problem, recorder_dir, done, limits).run();
}

std::string max_fail_reason(size_t max_fail) {
    return fmt::format("not run: --max-fail {} reached", max_fail);
}

std::string recorder_file_name(const std::string &path) {
    std::string name = path;
    for (char &c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != '_') c = '_';
    return name + ".rec";
}

} // namespace pc::runner
