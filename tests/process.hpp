// Running a command line as a user would and collecting what it printed.
#pragma once

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace pc::test {

struct Outcome {
    int status;         // exit status, -1 when the command did not exit normally
    std::string output;
};

inline Outcome run_command(const std::string &command) {
    FILE *p = popen(command.c_str(), "r");
    std::string out;
    std::array<char, 4096> buffer;
    size_t n;
    while (p && (n = fread(buffer.data(), 1, buffer.size(), p)) > 0) out.append(buffer.data(), n);
    int status = p ? pclose(p) : -1;
    return {status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

// A command with its standard input and output on pipes, talked to a line at a time: what a
// program that drives a long-lived run does. Standard error goes to /dev/null.
class PipedCommand {
public:
    explicit PipedCommand(std::vector<std::string> argv) {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            int nowhere = open("/dev/null", O_WRONLY);
            dup2(nowhere, STDERR_FILENO);
            std::vector<char *> args;
            for (auto &a : argv) args.push_back(a.data());
            args.push_back(nullptr);
            execv(args[0], args.data());
            _exit(127);
        }
        ::close(in[0]);
        ::close(out[1]);
        input_ = in[1];
        output_ = out[0];
    }
    PipedCommand(const PipedCommand &) = delete;
    PipedCommand &operator=(const PipedCommand &) = delete;
    ~PipedCommand() {
        close_input();
        if (output_ >= 0) ::close(output_);
        if (pid_ > 0 && !waited_) kill(pid_, SIGKILL), wait();
    }

    bool write_line(const std::string &line) {
        std::string text = line + "\n";
        return input_ >= 0 && ::write(input_, text.data(), text.size()) == ssize_t(text.size());
    }

    void close_input() {
        if (input_ >= 0) ::close(input_);
        input_ = -1;
    }

    // Reads standard output until a line holding `text` has arrived; false when the output ends
    // or `seconds` pass first. Everything read so far is in output().
    bool read_until(const std::string &text, int seconds = 30) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        for (;;) {
            if (size_t at = output_text_.find(text, searched_); at != std::string::npos) {
                size_t end = output_text_.find('\n', at);
                if (end != std::string::npos) {
                    searched_ = end + 1;
                    return true;
                }
            }
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd ready{output_, POLLIN, 0};
            if (left.count() <= 0 || poll(&ready, 1, int(left.count())) <= 0) return false;
            char chunk[4096];
            ssize_t n = ::read(output_, chunk, sizeof chunk);
            if (n <= 0) return false;
            output_text_.append(chunk, size_t(n));
        }
    }

    const std::string &output() const { return output_text_; }

    // Closes standard input, reads the rest of the output, and returns the exit status (-1 when
    // the command did not exit normally).
    int finish() {
        close_input();
        while (read_until("\n", 30)) {}
        return wait();
    }

private:
    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        waited_ = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    pid_t pid_ = -1;
    int input_ = -1, output_ = -1;
    bool waited_ = false;
    std::string output_text_;
    size_t searched_ = 0;
};

#ifdef PC_PLANECHECK
// The planecheck command built here, with ARGS (shell words), standard error folded into the output.
inline Outcome planecheck(const std::string &args) { return run_command(std::string(PC_PLANECHECK) + " " + args + " 2>&1"); }
#endif

// Searches of a text; a namespace of their own keeps them out of argument-dependent lookup, where
// they would meet the tests' own helpers of the same names.
namespace text {

inline bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }
inline bool has(const Outcome &r, const std::string &part) { return has(r.output, part); }

// How many times `part` stands in `text`, none overlapping.
inline size_t count(const std::string &text, const std::string &part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++n;
    return n;
}

} // namespace text

#ifdef PC_PLANECHECK
// A planecheck command line: its exit status, what it must say and what it must not.
struct Says {
    std::string args;
    int status;
    std::vector<std::string> said, not_said = {};
};

inline void expect_says(const std::vector<Says> &rows) {
    for (const Says &row : rows) {
        SCOPED_TRACE(row.args);
        Outcome r = planecheck(row.args);
        EXPECT_EQ(r.status, row.status) << r.output;
        for (const std::string &part : row.said) EXPECT_TRUE(text::has(r, part)) << part << "\n" << r.output;
        for (const std::string &part : row.not_said) EXPECT_FALSE(text::has(r, part)) << part << "\n" << r.output;
    }
}
#endif

} // namespace pc::test
