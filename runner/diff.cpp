#include "diff.hpp"

#include "recording/diff.hpp"

#include <fmt/format.h>

namespace pc::runner {

int diff_command(const std::string &a, const std::string &b, const std::vector<std::string> &ignore, bool json) {
    recording::DiffOptions options;
    options.ignore = ignore;
    bool first = true;
    if (json) fmt::print("{{\"differences\": [");
    auto difference = [&](const recording::Difference &d) {
        if (json) fmt::print("{}\n  {}", first ? "" : ",", recording::difference_json(d));
        else fmt::print("{}\n", recording::difference_text(d, a, b));
        first = false;
    };
    auto problem = [](const recording::Problem &p) { fmt::print(stderr, "{}\n", p.text()); };
    recording::DiffSummary s = recording::diff_recordings(a, b, options, difference, problem);
    if (json) {
        fmt::print("{}], \"records_a\": {}, \"records_b\": {}, \"changed\": {}, \"only_in_a\": {}, \"only_in_b\": {}, "
                   "\"unreadable\": {}, \"equal\": {}}}\n",
                   first ? "" : "\n", s.records_a, s.records_b, s.changed, s.only_a, s.only_b, s.problems,
                   s.exit_code() == 0 ? "true" : "false");
    } else if (s.exit_code() == 0) {
        fmt::print("planecheck diff: equal ({} records)\n", s.records_a);
    } else {
        fmt::print("planecheck diff: {} changed, {} only in {}, {} only in {}{} ({} and {} records)\n", s.changed, s.only_a,
                   a, s.only_b, b, s.problems ? fmt::format(", {} unreadable", s.problems) : "", s.records_a, s.records_b);
    }
    return s.exit_code();
}

} // namespace pc::runner
