#include "report.hpp"

#include "wire_text.hpp"

#include <fmt/format.h>

#include <fstream>
#include <string_view>

namespace pc::runner {
namespace {

std::string xml(const std::string &s) { return wire_text(s, WireForm::xml_text); }
std::string xml_attribute(const std::string &s) { return wire_text(s, WireForm::xml_attribute); }

std::string steps(size_t n, size_t not_run) {
    return plural(n, "step") + (not_run ? fmt::format(" ({} not run)", not_run) : "");
}

std::string counts(const FileResult &r) {
    std::string out = fmt::format("{}, {}, {}", steps(r.steps, r.not_run), plural(r.mismatches, "mismatch"), plural(r.value_errors, "value error"));
    if (r.ended) out += fmt::format(", {} at {}", r.timed_out ? "timed out" : "ended early", r.ended_at);
    return out;
}

// The steps that ran nothing, a line each, after the file's counts: a file that tested something
// may still have left a step untested.
std::string idle_steps(const FileResult &r) {
    std::string out;
    for (const std::string &step : r.idle_steps) out += "\n" + step + ": not run";
    return out;
}

// A file that passed on a retry says so beside its counts.
std::string attempts_note(const FileResult &r) {
    return r.attempts > 1 ? fmt::format(", passed on attempt {}", r.attempts) : "";
}

} // namespace

std::string failure_message(const FileResult &r) {
    if (r.invalid) return r.error;
    if (!r.not_started.empty()) return r.not_started;
    if (r.ended) return r.findings.empty() ? counts(r) : r.findings.front() + (r.last_error.empty() ? "" : ": " + r.last_error);
    return counts(r);
}

std::string tap_text(std::string_view s, bool description) {
    std::string out;
    out.reserve(s.size());
    for (char c : s) {
        if (description && (c == '#' || c == '\\')) out += '\\', out += c;
        else if (c == '\n') out += "\\n";
        else if (c == '\r') out += "\\r";
        else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) out += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        else out += c;
    }
    return out;
}

std::string without_location(const std::string &path, const std::string &line) {
    if (line.rfind(path + ":", 0) != 0) return line;
    size_t text = line.find(": ", path.size());
    return text == std::string::npos ? line : line.substr(text + 2);
}

std::string plural(uint64_t n, const char *word) {
    std::string w = word;
    bool sibilant = w.size() > 2 && (w.compare(w.size() - 2, 2, "ch") == 0 || w.back() == 's');
    return fmt::format("{} {}{}", n, w, n == 1 ? "" : sibilant ? "es" : "s");
}

void add_to(Totals &t, const FileResult &r) {
    ++t.files;
    t.steps += r.steps;
    t.mismatches += r.mismatches;
    t.value_errors += r.value_errors;
    t.expected += r.expected;
    t.invalid |= r.invalid;
    t.files_not_run += !r.not_started.empty();
    t.files_skipped += r.was_skipped();
    t.failed_files += !r.passed() && r.not_started.empty();
    t.not_run += r.not_run;
    t.problems += r.problems;
    t.warnings += r.warnings;
    if (r.timed_out) t.timed_out.push_back(fmt::format("{} after {:.1f} s", r.ended_at, r.duration_ms / 1000));
    else if (r.ended) t.ended.push_back(r.last_error.empty() ? r.ended_at : r.ended_at + ": " + without_location(r.path, r.last_error));
    t.files_flaky += r.flaky();
    if (r.slow) t.slow.push_back(fmt::format("{} {:.1f} s", r.path, r.duration_ms / 1000));
}

namespace {
std::string joined(const std::vector<std::string> &items) {
    std::string out;
    for (size_t i = 0; i < items.size(); ++i) out += (i ? "; " : "") + items[i];
    return out;
}
} // namespace

bool nothing_tested(const Totals &t) { return t.files && t.files_skipped == t.files; }

Totals add_up(const std::vector<FileResult> &results) {
    Totals t;
    for (const auto &r : results) add_to(t, r);
    return t;
}

std::string summary(const Totals &t, bool check_only) {
    const char *verdict = t.invalid          ? "INVALID"
                          : t.failed_files   ? "FAILED"
                          : check_only       ? "VALID"
                          : nothing_tested(t) ? "SKIPPED"
                                             : "PASSED";
    std::string detail = check_only ? plural(t.steps, "step")
                                    : fmt::format("{}, {}, {}{}", steps(t.steps, t.not_run), plural(t.mismatches, "mismatch"),
                                                  plural(t.value_errors, "value error"),
                                                  t.expected ? fmt::format(" ({} expected)", t.expected) : "");
    if (t.problems) detail += ", " + plural(t.problems, "problem");
    if (t.warnings) detail += ", " + plural(t.warnings, "warning");
    if (!t.ended.empty()) {
        detail += fmt::format(", {} ended early (", plural(t.ended.size(), "file"));
        for (size_t i = 0; i < t.ended.size(); ++i) detail += (i ? "; " : "") + t.ended[i];
        detail += ")";
    }
    if (!t.timed_out.empty()) detail += fmt::format(", {} timed out ({})", plural(t.timed_out.size(), "file"), joined(t.timed_out));
    if (t.files_flaky) detail += fmt::format(", {} flaky (passed on a retry)", plural(t.files_flaky, "file"));
    if (!t.slow.empty()) detail += fmt::format(", {} slow ({})", plural(t.slow.size(), "file"), joined(t.slow));
    if (t.files_not_run) detail += fmt::format(", {} not run", plural(t.files_not_run, "file"));
    if (t.files_skipped) detail += fmt::format(", {} skipped (nothing ran)", plural(t.files_skipped, "file"));
    return fmt::format("planecheck: {}: {}, {}", verdict, plural(t.files, "file"), detail);
}

bool write_junit(const std::string &path, const std::vector<FileResult> &results, double seconds) {
    Totals t = add_up(results);
    std::ofstream out(path);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    out << fmt::format("<testsuites name=\"planecheck\" tests=\"{}\" failures=\"{}\" time=\"{:.3f}\">\n", t.files, t.failed_files, seconds);
    out << fmt::format("  <testsuite name=\"planecheck\" tests=\"{}\" failures=\"{}\" errors=\"0\" skipped=\"{}\" time=\"{:.3f}\">\n",
                       t.files, t.failed_files, t.files_not_run + t.files_skipped, seconds);
    for (const auto &r : results) {
        out << fmt::format("    <testcase classname=\"planecheck\" name=\"{}\" time=\"{:.3f}\">\n", xml_attribute(r.path), r.duration_ms / 1000);
        if (!r.not_started.empty()) {
            out << fmt::format("      <skipped message=\"{}\"/>\n    </testcase>\n", xml_attribute(r.not_started));
            continue;
        }
        if (r.was_skipped()) out << fmt::format("      <skipped message=\"{}\"/>\n", xml_attribute(r.skipped));
        // the common extension (Maven Surefire, pytest-rerunfailures): a failure that a retry made good
        for (const auto &attempt : r.failed_attempts)
            out << fmt::format("      <{0} message=\"{1}\">{2}</{0}>\n", r.passed() ? "flakyFailure" : "rerunFailure",
                               xml_attribute(attempt.message), xml(attempt.findings));
        if (!r.passed()) {
            std::string body;
            for (const auto &f : r.findings) body += f + "\n";
            out << fmt::format("      <failure message=\"{}\">{}</failure>\n", xml_attribute(failure_message(r)), xml(body));
        }
        out << fmt::format("      <system-out>{}{}{}</system-out>\n", xml(counts(r)), xml(attempts_note(r)), xml(idle_steps(r)));
        out << "    </testcase>\n";
    }
    out << "  </testsuite>\n</testsuites>\n";
    return bool(out);
}

void print_tap(const std::vector<FileResult> &results, FILE *out) {
    fmt::print(out, "TAP version 13\n1..{}\n", results.size());
    for (size_t i = 0; i < results.size(); ++i) {
        const FileResult &r = results[i];
        if (!r.not_started.empty()) {
            fmt::print(out, "ok {} - {} # SKIP {}\n", i + 1, tap_text(r.path, true), tap_text(r.not_started, false));
            continue;
        }
        if (r.was_skipped()) {
            fmt::print(out, "ok {} - {} # SKIP {}\n", i + 1, tap_text(r.path, true), tap_text(r.skipped, false));
            continue;
        }
        fmt::print(out, "{} {} - {} ({}{})\n", r.passed() ? "ok" : "not ok", i + 1, tap_text(r.path, true), counts(r), attempts_note(r));
        for (size_t a = 0; a < r.failed_attempts.size(); ++a)
            fmt::print(out, "# attempt {} failed: {}\n", a + 1, tap_text(r.failed_attempts[a].message, false));
        if (!r.passed())
            for (const auto &f : r.findings) fmt::print(out, "# {}\n", tap_text(f, false));
    }
}

} // namespace pc::runner
