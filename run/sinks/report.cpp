#include "report.hpp"

#include "event_stream.hpp"
#include "wire_text.hpp"

#include "planecheck/vocabulary.hpp"

#include <fmt/format.h>

#include <fstream>
#include <sstream>
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

bool nothing_tested(const Totals &t) { return (t.files && t.files_skipped == t.files) || t.none_selected; }

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
    if (!t.ended.empty()) detail += fmt::format(", {} ended early ({})", plural(t.ended.size(), "file"), fmt::join(t.ended, "; "));
    if (!t.timed_out.empty()) detail += fmt::format(", {} timed out ({})", plural(t.timed_out.size(), "file"), fmt::join(t.timed_out, "; "));
    if (t.files_flaky) detail += fmt::format(", {} flaky (passed on a retry)", plural(t.files_flaky, "file"));
    if (!t.slow.empty()) detail += fmt::format(", {} slow ({})", plural(t.slow.size(), "file"), fmt::join(t.slow, "; "));
    if (t.files_not_run) detail += fmt::format(", {} not run", plural(t.files_not_run, "file"));
    if (t.files_skipped) detail += fmt::format(", {} skipped (nothing ran)", plural(t.files_skipped, "file"));
    if (t.deselected) detail += fmt::format(", {} deselected", plural(t.deselected, "file"));
    return fmt::format("planecheck: {}: {}, {}", verdict, plural(t.files, "file"), detail);
}

namespace {

// What a step's test case says.
enum class CaseVerdict { passed, failed, skipped, accounted_for };

// The test name of a step: "step 2 send test_if (line 5)".
std::string step_name(const StepRecord &s) { return fmt::format("step {} {} (line {})", s.number, s.label, s.line); }

// The mismatches and value errors of a failed step that the next expect: accounted for fail
// neither its file nor its test case.
bool accounted_for(const FileResult &r, size_t index) {
    const StepRecord &s = r.step_records[index];
    if (s.status != StepStatus::failed || s.mismatches + s.value_errors == 0) return false;
    for (size_t i = index + 1; i < r.step_records.size(); ++i)
        if (r.step_records[i].kind == pc::vocabulary::kStepExpect) return r.step_records[i].status == StepStatus::passed;
    return false;
}

CaseVerdict step_verdict(const FileResult &r, size_t index) {
    switch (r.step_records[index].status) {
    case StepStatus::passed: return CaseVerdict::passed;
    case StepStatus::not_run: return CaseVerdict::skipped;
    case StepStatus::failed: return accounted_for(r, index) ? CaseVerdict::accounted_for : CaseVerdict::failed;
    default: return CaseVerdict::failed; // invalid, ended
    }
}

// The finding lines of step `number` (0: about the whole file), as the reports list them.
std::vector<std::string> step_findings(const FileResult &r, size_t number) {
    std::vector<std::string> lines;
    for (const Finding &f : r.finding_records)
        if (f.step == number) lines.push_back(finding_line(r.path, f));
    return lines;
}

// Why a step failed, in one line: the file's own reason for the step that ended or made the
// file invalid, else the step's first error.
std::string step_failure(const FileResult &r, const StepRecord &s) {
    if (s.status == StepStatus::ended || s.status == StepStatus::invalid) return failure_message(r);
    for (const Finding &f : r.finding_records)
        if (f.step == s.number && !f.warning) return finding_line(r.path, f);
    return fmt::format("{}, {}", plural(s.mismatches, "mismatch"), plural(s.value_errors, "value error"));
}

// The file needs a test case of its own when no step tells why it failed, or it has no steps.
bool needs_file_case(const FileResult &r) {
    if (r.step_records.empty()) return true;
    if (r.passed()) return false;
    for (size_t i = 0; i < r.step_records.size(); ++i)
        if (step_verdict(r, i) == CaseVerdict::failed) return false;
    return true;
}

size_t count_cases(const FileResult &r, CaseVerdict verdict) {
    size_t n = 0;
    for (size_t i = 0; i < r.step_records.size(); ++i) n += step_verdict(r, i) == verdict;
    return n;
}

std::string lines_of(const std::vector<std::string> &lines) {
    std::string body;
    for (const std::string &line : lines) body += line + "\n";
    return body;
}

// A file's own test case: skipped when it never ran or tested nothing, failed with its findings.
void junit_file_case(std::ostream &out, const FileResult &r, const std::string &classname, const std::string &name) {
    out << fmt::format("    <testcase classname=\"{}\" name=\"{}\" time=\"{:.3f}\">\n", xml_attribute(classname), xml_attribute(name),
                       r.duration_ms / 1000);
    if (!r.not_started.empty()) {
        out << fmt::format("      <skipped message=\"{}\"/>\n    </testcase>\n", xml_attribute(r.not_started));
        return;
    }
    if (r.was_skipped()) out << fmt::format("      <skipped message=\"{}\"/>\n", xml_attribute(r.skipped));
    // the common extension (Maven Surefire, pytest-rerunfailures): a failure that a retry made good
    for (const auto &attempt : r.failed_attempts)
        out << fmt::format("      <{0} message=\"{1}\">{2}</{0}>\n", r.passed() ? "flakyFailure" : "rerunFailure",
                           xml_attribute(attempt.message), xml(attempt.findings));
    if (!r.passed())
        out << fmt::format("      <failure message=\"{}\">{}</failure>\n", xml_attribute(failure_message(r)), xml(lines_of(r.findings)));
    out << fmt::format("      <system-out>{}{}{}</system-out>\n", xml(counts(r)), xml(attempts_note(r)), xml(idle_steps(r)));
    out << "    </testcase>\n";
}

void junit_step_case(std::ostream &out, const FileResult &r, size_t index) {
    const StepRecord &s = r.step_records[index];
    std::string inside, body = lines_of(step_findings(r, s.number));
    switch (step_verdict(r, index)) {
    case CaseVerdict::passed: break;
    case CaseVerdict::skipped: inside = "      <skipped message=\"nothing ran\"/>\n"; break;
    case CaseVerdict::failed:
        inside = fmt::format("      <failure message=\"{}\">{}</failure>\n", xml_attribute(step_failure(r, s)), xml(body));
        body.clear();
        break;
    case CaseVerdict::accounted_for: body += "accounted for by the next expect: step\n"; break;
    }
    if (!body.empty()) inside += fmt::format("      <system-out>{}</system-out>\n", xml(body));
    out << fmt::format("    <testcase classname=\"{}\" name=\"{}\" time=\"{:.3f}\"", xml_attribute(r.path), xml_attribute(step_name(s)),
                       s.duration_ms / 1000);
    out << (inside.empty() ? "/>\n" : ">\n" + inside + "    </testcase>\n");
}

// A test suite per file, named by it: a test case per step, and the file's own when needed.
void junit_file_suite(std::ostream &out, const FileResult &r, size_t &tests, size_t &failures) {
    bool own = needs_file_case(r);
    size_t file_failed = own && !r.passed() && r.not_started.empty();
    size_t file_skipped = own && (!r.not_started.empty() || r.was_skipped());
    size_t n = r.step_records.size() + own, failed = count_cases(r, CaseVerdict::failed) + file_failed;
    out << fmt::format("  <testsuite name=\"{}\" tests=\"{}\" failures=\"{}\" errors=\"0\" skipped=\"{}\" time=\"{:.3f}\">\n",
                       xml_attribute(r.path), n, failed, count_cases(r, CaseVerdict::skipped) + file_skipped, r.duration_ms / 1000);
    for (size_t i = 0; i < r.step_records.size(); ++i) junit_step_case(out, r, i);
    if (own) junit_file_case(out, r, r.path, r.path);
    out << "  </testsuite>\n";
    tests += n;
    failures += failed;
}

bool write_junit_steps(const std::string &path, const std::vector<FileResult> &results, double seconds) {
    std::ostringstream suites;
    size_t tests = 0, failures = 0;
    for (const auto &r : results) junit_file_suite(suites, r, tests, failures);
    std::ofstream out(path);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    out << fmt::format("<testsuites name=\"planecheck\" tests=\"{}\" failures=\"{}\" time=\"{:.3f}\">\n", tests, failures, seconds);
    out << suites.str() << "</testsuites>\n";
    return bool(out);
}

// A file's steps as a TAP subtest: "# Subtest: FILE", then, indented, its plan and a test point
// per step. A failed step that the next expect: accounted for is a TODO: it was meant to fail.
void print_tap_subtest(const FileResult &r, FILE *out) {
    fmt::print(out, "    # Subtest: {}\n    1..{}\n", tap_text(r.path, false), r.step_records.size());
    for (size_t i = 0; i < r.step_records.size(); ++i) {
        const StepRecord &s = r.step_records[i];
        std::string name = tap_text(step_name(s), true);
        CaseVerdict verdict = step_verdict(r, i);
        if (verdict == CaseVerdict::passed) fmt::print(out, "    ok {} - {}\n", i + 1, name);
        else if (verdict == CaseVerdict::skipped) fmt::print(out, "    ok {} - {} # SKIP nothing ran\n", i + 1, name);
        else if (verdict == CaseVerdict::accounted_for) fmt::print(out, "    not ok {} - {} # TODO accounted for by the next expect: step\n", i + 1, name);
        else fmt::print(out, "    not ok {} - {}\n", i + 1, name);
        if (verdict == CaseVerdict::failed || verdict == CaseVerdict::accounted_for)
            for (const std::string &line : step_findings(r, s.number)) fmt::print(out, "    # {}\n", tap_text(line, false));
    }
}

} // namespace

bool write_junit(const std::string &path, const std::vector<FileResult> &results, double seconds, bool steps) {
    if (steps) return write_junit_steps(path, results, seconds);
    Totals t = add_up(results);
    std::ofstream out(path);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    out << fmt::format("<testsuites name=\"planecheck\" tests=\"{}\" failures=\"{}\" time=\"{:.3f}\">\n", t.files, t.failed_files, seconds);
    out << fmt::format("  <testsuite name=\"planecheck\" tests=\"{}\" failures=\"{}\" errors=\"0\" skipped=\"{}\" time=\"{:.3f}\">\n",
                       t.files, t.failed_files, t.files_not_run + t.files_skipped, seconds);
    for (const auto &r : results) junit_file_case(out, r, "planecheck", r.path);
    out << "  </testsuite>\n</testsuites>\n";
    return bool(out);
}

void print_tap(const std::vector<FileResult> &results, FILE *out, bool steps) {
    fmt::print(out, "TAP version 13\n1..{}\n", results.size());
    for (size_t i = 0; i < results.size(); ++i) {
        const FileResult &r = results[i];
        if (steps && !r.step_records.empty()) print_tap_subtest(r, out);
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

void StepKeeper::file_start(const FileResult &file) {
    current_ = FileResult{};
    current_.path = file.path;
    step_findings_ = 0;
}

// At most kMaxFindings findings of a step are kept, as for the file's own list.
void StepKeeper::finding(const FileResult &, const Finding &finding) {
    if (step_findings_ < FileResult::kMaxFindings) current_.finding_records.push_back(finding);
    else if (step_findings_ == FileResult::kMaxFindings) {
        Finding more = finding;
        more.text = "... (more findings are left out)";
        more.line = more.column = 0;
        current_.finding_records.push_back(more);
    }
    ++step_findings_;
}

void StepKeeper::step(const FileResult &, const StepRecord &step) {
    current_.step_records.push_back(step);
    step_findings_ = 0;
}

void StepKeeper::file_end(const FileResult &) { told_.push_back(std::move(current_)); }

void StepKeeper::give_records(FileResult &file) {
    if (told_.empty() || told_.front().path != file.path) return;
    file.step_records = std::move(told_.front().step_records);
    file.finding_records = std::move(told_.front().finding_records);
    told_.pop_front();
}

} // namespace pc::runner
