#include "parallel.hpp"

#include "ending.hpp"

#include "recorder_sink.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <new>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace pc::runner {
namespace {

struct Child {
    pid_t pid = -1;
    std::string output, result, recorder; // temporary files
    bool done = false;
    int status = 0;
    Trail *trail = nullptr; // shared with the child: where its run stood when it ended
};

Trail *shared_trail() {
    void *p = mmap(nullptr, sizeof(Trail), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : new (p) Trail;
}

std::string temp_file(const char *what) {
    std::string path = fmt::format("{}/planecheck-{}-{}-XXXXXX", std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp", getpid(), what);
    int fd = mkstemp(path.data());
    if (fd >= 0) close(fd);
    return path;
}

// One line per field, then the findings: a format only this file writes and reads.
void save(const FileResult &r, const std::string &path) {
    std::ofstream out(path);
    out << r.steps << ' ' << r.failed_steps << ' ' << r.mismatches << ' ' << r.value_errors << ' ' << r.expected << ' '
        << r.invalid << ' ' << r.not_run << ' ' << r.problems << ' ' << r.warnings << '\n' << r.error << '\n' << r.findings.size() << '\n';
    for (const auto &f : r.findings) out << f << '\n';
}

FileResult load(const std::string &file, const std::string &path) {
    FileResult r;
    r.path = file;
    std::ifstream in(path);
    size_t findings = 0;
    if (!(in >> r.steps >> r.failed_steps >> r.mismatches >> r.value_errors >> r.expected >> r.invalid >> r.not_run >> r.problems >> r.warnings)) return r;
    in.ignore();
    std::getline(in, r.error);
    in >> findings;
    in.ignore();
    for (std::string line; findings-- && std::getline(in, line);) r.findings.push_back(line);
    return r;
}

[[noreturn]] void run_child(const std::string &file, const Options &options, const Child &c) {
    int fd = open(c.output.c_str(), O_WRONLY | O_TRUNC);
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    close(fd);
    if (!c.recorder.empty()) pc::recorder::open_file(c.recorder);
    Options traced = options;
    traced.trail = c.trail;
    FileResult r = run_file(file, traced);
    pc::recorder::close();
    save(r, c.result);
    std::fflush(nullptr);
    _exit(0);
}

// Prints a child's output; returns its last two lines.
std::vector<std::string> print_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    std::string text = s.str();
    std::fputs(text.c_str(), stderr);
    std::vector<std::string> last;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) continue;
        last.push_back(line);
        if (last.size() > 2) last.erase(last.begin());
    }
    return last;
}

FileResult finish(const std::string &file, Child &c, const std::vector<std::string> &last_lines) {
    FileResult r;
    if (WIFEXITED(c.status) && WEXITSTATUS(c.status) == 0) {
        r = load(file, c.result);
    } else {
        std::string how = WIFEXITED(c.status) ? fmt::format("exit status {}", WEXITSTATUS(c.status))
                                              : fmt::format("signal {} ({})", WTERMSIG(c.status), strsignal(WTERMSIG(c.status)));
        r = ended_early(file, c.trail ? *c.trail : Trail{}, how, last_lines);
        fmt::print(stderr, "{}\n", r.findings.front());
    }
    if (c.trail) munmap(c.trail, sizeof(Trail));
    std::remove(c.output.c_str());
    std::remove(c.result.c_str());
    return r;
}

void join_recorder(const std::string &recorder, std::vector<Child> &children) {
    std::ofstream out(recorder, std::ios::binary | std::ios::trunc);
    for (auto &c : children) {
        std::ifstream part(c.recorder, std::ios::binary);
        out << part.rdbuf();
        std::remove(c.recorder.c_str());
    }
}

} // namespace

std::vector<FileResult> run_in_processes(const std::vector<std::string> &files, const Options &options, unsigned jobs,
                                         const std::string &recorder) {
    std::fflush(nullptr);
    std::vector<Child> children(files.size());
    std::vector<FileResult> results(files.size());
    size_t next = 0, printed = 0, running = 0;
    while (printed < files.size()) {
        while (running < std::max(jobs, 1u) && next < files.size()) {
            Child &c = children[next];
            c.output = temp_file("output");
            c.result = temp_file("result");
            if (!recorder.empty()) c.recorder = temp_file("recorder");
            c.trail = shared_trail();
            c.pid = fork();
            if (c.pid == 0) run_child(files[next], options, c);
            if (c.pid < 0) {
                c.done = true;
                c.status = 127 << 8;
            } else {
                ++running;
            }
            ++next;
        }
        int status = 0;
        pid_t pid = wait(&status);
        for (auto &c : children)
            if (pid > 0 && c.pid == pid) c.done = true, c.status = status, --running;
        for (; printed < next && children[printed].done; ++printed) { // keep the files' order
            std::vector<std::string> last_lines = print_file(children[printed].output);
            results[printed] = finish(files[printed], children[printed], last_lines);
        }
    }
    if (!recorder.empty()) join_recorder(recorder, children);
    return results;
}

} // namespace pc::runner
