#include "parallel.hpp"

#include "coverage.hpp"
#include "ending.hpp"
#include "recorder_sink.hpp"
#include "result_io.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sstream>
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

struct Child {
    pid_t pid = -1;
    TempFile output, result, records, recorder, coverage; // records: its steps and findings as they are made
    bool done = false;
    int status = 0;
    std::string not_run; // why the file could not be run, when it could not
    Trail *trail = nullptr; // shared with the child: where its run stood when it ended
};

Trail *shared_trail() {
    void *p = mmap(nullptr, sizeof(Trail), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : new (p) Trail;
}

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

// The child's exit status when it could not write its results (the library ends a run with 1).
constexpr int kResultsUnwritten = 125;

[[noreturn]] void run_child(const std::string &file, const Options &options, Child &c) {
    dup2(c.output.fd, STDOUT_FILENO);
    dup2(c.output.fd, STDERR_FILENO);
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // step lines and log lines share the file: keep their order
    if (c.recorder.fd >= 0) pc::recorder::to_descriptor(dup(c.recorder.fd));
    if (options.coverage) coverage::write_at_exit(options.coverage, fmt::format("/proc/self/fd/{}", c.coverage.fd));
    Options traced = options;
    traced.trail = c.trail;
    SavingObserver saving(c.records.fd); // the parent tells the file's events from what this saves
    traced.observer = &saving;
    ending::set_end_report(nullptr);     // the parent reports this file's end from its trail
    FileResult r = run_file(file, traced);
    if (r.invalid) fmt::print(stderr, "{}\n", r.error);
    size_t before = r.findings.size();
    if (c.recorder.fd >= 0 && !pc::recorder::close())
        r.add_finding(fmt::format("{}: cannot write its recorder part: {}", file, std::strerror(errno))), ++r.failed_steps;
    if (options.coverage && !write_all(c.coverage.fd, options.coverage->to_json()))
        r.add_finding(fmt::format("{}: cannot write its coverage part: {}", file, std::strerror(errno))), ++r.failed_steps;
    if (!saving.ok())
        r.add_finding(fmt::format("{}: its steps could not be written in full to a temporary file in {}: {}", file, temp_dir(),
                                  std::strerror(saving.error()))), ++r.failed_steps;
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        r.add_finding(fmt::format("{}: its output could not be written in full to a temporary file in {}: {}", file,
                                  temp_dir(), std::strerror(errno))), ++r.failed_steps;
    std::fflush(nullptr);
    _exit(write_all(c.result.fd, saved_totals(r, r.findings.size() - before)) ? 0 : kResultsUnwritten);
}

// A file that did not run, or whose run cannot be told, fails with the reason.
FileResult failed(const std::string &file, const std::string &reason) {
    FileResult r;
    r.path = file;
    r.failed_steps = 1;
    r.add_finding(fmt::format("{}: {}", file, reason));
    fmt::print(stderr, "{}\n", r.findings.back());
    return r;
}

// Prints a child's output; returns its last two lines.
std::vector<std::string> print_output(const std::string &file, const Child &c) {
    std::string text;
    if (!read_all(c.output.fd, text)) {
        fmt::print(stderr, "{}: its output cannot be read back: {}\n", file, std::strerror(errno));
        return {};
    }
    std::fputs((text.empty() || text.back() == '\n' ? text : text + "\n").c_str(), stderr);
    std::vector<std::string> last;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) continue;
        last.push_back(line);
        if (last.size() > 2) last.erase(last.begin());
    }
    return last;
}

void release_trail(Child &c) {
    if (c.trail) munmap(c.trail, sizeof(Trail));
    c.trail = nullptr;
}

// What the child passed on before it ended: its steps, findings and name.
void keep_records(FileResult &ended, FileResult &saved) {
    ended.name = saved.name;
    ended.step_records = std::move(saved.step_records);
    ended.finding_records = std::move(saved.finding_records);
}

// The step that was running when the child ended, from its trail.
void add_ended_step(FileResult &ended, const Trail &trail) {
    if (!trail.step) return;
    StepRecord s;
    s.number = trail.step;
    s.line = trail.line;
    s.label = trail.label;
    std::istringstream words(s.label);
    words >> s.kind >> s.table;
    if (s.kind.empty()) s.kind = "unknown";
    s.status = StepStatus::ended;
    s.mismatches = trail.mismatches - trail.step_mismatches_from;
    s.value_errors = trail.value_errors - trail.step_value_errors_from;
    ended.step_records.push_back(s);
}

FileResult finish(const std::string &file, Child &c) {
    if (!c.not_run.empty()) return release_trail(c), failed(file, "not run: " + c.not_run);
    std::vector<std::string> last_lines = print_output(file, c);
    if (WIFEXITED(c.status) && WEXITSTATUS(c.status) == kResultsUnwritten)
        return release_trail(c), failed(file, fmt::format("its results could not be written to a temporary file in {}", temp_dir()));
    FileResult r;
    r.path = file;
    std::string records, totals;
    bool complete = false;
    size_t late = 0;
    // steps cut short (a full disk) still give the events of those that were written
    if (read_all(c.records.fd, records)) load_saved(records, r, complete, late);
    bool readable = read_all(c.result.fd, totals) && load_saved(totals, r, complete, late);
    if (!WIFEXITED(c.status) || WEXITSTATUS(c.status) != 0) {
        std::string how = WIFEXITED(c.status) ? fmt::format("exit status {}", WEXITSTATUS(c.status))
                                              : fmt::format("signal {} ({})", WTERMSIG(c.status), strsignal(WTERMSIG(c.status)));
        FileResult ended = ended_early(file, c.trail ? *c.trail : Trail{}, how, last_lines);
        fmt::print(stderr, "{}\n", ended.findings.front());
        if (readable) keep_records(ended, r);
        add_ended_step(ended, c.trail ? *c.trail : Trail{});
        release_trail(c);
        return ended;
    }
    release_trail(c);
    if (!readable || !complete) return failed(file, "its results cannot be read: they are incomplete");
    for (size_t i = r.findings.size() - late; i < r.findings.size(); ++i) fmt::print(stderr, "{}\n", r.findings[i]);
    c.output.reset();
    c.result.reset();
    c.records.reset();
    return r;
}

bool start(Child &c, const std::string &file, const Options &options, bool recording) {
    if (!make_temp(c.output, "output", c.not_run) || !make_temp(c.result, "result", c.not_run) ||
        !make_temp(c.records, "records", c.not_run) ||
        (recording && !make_temp(c.recorder, "recorder", c.not_run)) ||
        (options.coverage && !make_temp(c.coverage, "coverage", c.not_run)))
        return false;
    c.trail = shared_trail();
    std::fflush(nullptr);
    c.pid = fork();
    if (c.pid == 0) run_child(file, options, c);
    if (c.pid < 0) c.not_run = fmt::format("cannot start a process: {}", std::strerror(errno));
    return c.pid > 0;
}

// Appends each file's recorder part, in the order of the files; parts may be empty.
bool join_recorder(int recorder_fd, std::vector<Child> &children, std::string &problem) {
    for (auto &c : children) {
        if (c.recorder.fd < 0) continue;
        std::string part;
        if (!read_all(c.recorder.fd, part)) {
            problem = fmt::format("a file's part cannot be read back: {}", std::strerror(errno));
            return false;
        }
        if (!write_all(recorder_fd, part)) {
            problem = fmt::format("cannot write: {}", std::strerror(errno));
            return false;
        }
        c.recorder.reset();
    }
    return true;
}

// A child the library ended wrote its part at exit; one that aborted left it empty.
void merge_coverage(coverage::Report &report, std::vector<Child> &children) {
    std::vector<std::string> problems;
    for (auto &c : children) {
        struct stat part {};
        if (c.coverage.fd >= 0 && fstat(c.coverage.fd, &part) == 0 && part.st_size > 0)
            report.merge_file(fmt::format("/proc/self/fd/{}", c.coverage.fd), problems);
        c.coverage.reset();
    }
    for (const auto &p : problems) fmt::print(stderr, "planecheck: coverage part: {}\n", p);
}

// Tells the observer a file's records as the child made them, placed in the joined recorder file;
// they are not kept after that.
void tell(FileResult &r, const Child &c, RunObserver *observer, uint64_t &records_base) {
    for (auto &s : r.step_records)
        if (s.records_start >= 0) s.records_start += int64_t(records_base), s.records_end += int64_t(records_base);
    struct stat part {};
    if (c.recorder.fd >= 0 && fstat(c.recorder.fd, &part) == 0) records_base += uint64_t(part.st_size);
    if (observer) replay_records(r, *observer);
    r.step_records = {};
    r.finding_records = {};
}

} // namespace

std::vector<FileResult> run_in_processes(const std::vector<std::string> &files, const Options &options, unsigned jobs,
                                         int recorder_fd, std::string &recorder_problem) {
    std::vector<Child> children(files.size());
    std::vector<FileResult> results(files.size());
    size_t next = 0, printed = 0, running = 0;
    uint64_t records_base = 0; // where the next file's recorder part begins in the recorder file
    bool forwarded = false;
    while (printed < next || (next < files.size() && !ending::stop_signal())) {
        while (running < std::max(jobs, 1u) && next < files.size() && !ending::stop_signal()) {
            Child &c = children[next];
            if (start(c, files[next], options, recorder_fd >= 0)) ++running;
            else c.done = true;
            ++next;
        }
        if (ending::stop_signal() && !forwarded) { // the running files stop at their next safe point
            for (auto &c : children)
                if (c.pid > 0 && !c.done) kill(c.pid, SIGTERM);
            forwarded = true;
        }
        int status = 0;
        pid_t pid = running ? wait(&status) : -1;
        for (auto &c : children)
            if (pid > 0 && c.pid == pid) c.done = true, c.status = status, --running;
        for (; printed < next && children[printed].done; ++printed) { // keep the files' order
            results[printed] = finish(files[printed], children[printed]);
            tell(results[printed], children[printed], options.observer, records_base);
        }
    }
    if (recorder_fd >= 0) join_recorder(recorder_fd, children, recorder_problem);
    if (options.coverage) merge_coverage(*options.coverage, children);
    ending::stop_if_requested();
    return results;
}

} // namespace pc::runner
