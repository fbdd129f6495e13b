#include "diff.hpp"
#include "report.hpp"

#include "recording/diff.hpp"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

namespace pc::runner {

namespace {

// Which file could not be read, and what the other held.
std::string unopened_summary(const recording::DiffSummary &s, const std::string &a, const std::string &b) {
    if (s.unopened.size() == 2) return fmt::format("planecheck diff: cannot compare: neither {} nor {} could be read", a, b);
    bool a_read = s.unopened[0] == b && a != b;
    return fmt::format("planecheck diff: cannot compare: {} could not be read ({} read from {}{})", s.unopened[0],
                       plural(a_read ? s.records_a : s.records_b, "record"), a_read ? a : b,
                       s.problems > 1 ? fmt::format(", {} of them unreadable", s.problems - 1) : "");
}

} // namespace

int diff_command(const std::string &a, const std::string &b, const std::vector<std::string> &ignore, bool json) {
    recording::DiffOptions options;
    options.ignore = ignore;
    // on a terminal, a line that says how far into A the comparison has got
    bool progress_shown = false;
    auto last = std::chrono::steady_clock::now();
    struct stat st {};
    if (isatty(STDERR_FILENO) && stat(a.c_str(), &st) == 0 && st.st_size > 0) {
        options.progress = [&, size = double(st.st_size)](size_t bytes) {
            auto now = std::chrono::steady_clock::now();
            if (now - last < std::chrono::milliseconds(250)) return;
            last = now;
            fmt::print(stderr, "\r\033[K{}: {:.0f}%", a, 100.0 * double(bytes) / size);
            progress_shown = true;
        };
    }
    auto clear_progress = [&] {
        if (progress_shown) std::fputs("\r\033[K", stderr);
        progress_shown = false;
    };
    bool first = true;
    if (json) fmt::print("{{\"differences\": [");
    auto difference = [&](const recording::Difference &d) {
        clear_progress();
        if (json) fmt::print("{}\n  {}", first ? "" : ",", recording::difference_json(d));
        else fmt::print("{}\n", recording::difference_text(d, a, b));
        first = false;
    };
    auto problem = [&](const recording::Problem &p) {
        clear_progress();
        fmt::print(stderr, "{}\n", p.text());
    };
    recording::DiffSummary s = recording::diff_recordings(a, b, options, difference, problem);
    clear_progress();
    if (json) {
        fmt::print("{}], \"records_a\": {}, \"records_b\": {}, \"changed\": {}, \"only_in_a\": {}, \"only_in_b\": {}, "
                   "\"unreadable\": {}, \"equal\": {}}}\n",
                   first ? "" : "\n", s.records_a, s.records_b, s.changed, s.only_a, s.only_b, s.problems,
                   s.exit_code() == 0 ? "true" : "false");
    } else if (!s.unopened.empty()) {
        fmt::print("{}\n", unopened_summary(s, a, b));
    } else if (s.exit_code() == 0) {
        fmt::print("planecheck diff: equal ({} records)\n", s.records_a);
    } else {
        fmt::print("planecheck diff: {} changed, {} only in {}, {} only in {}{} ({} and {} records)\n", s.changed, s.only_a,
                   a, s.only_b, b, s.problems ? fmt::format(", {} unreadable", s.problems) : "", s.records_a, s.records_b);
    }
    return s.exit_code();
}

} // namespace pc::runner
