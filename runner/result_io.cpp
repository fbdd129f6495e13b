#include "result_io.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace pc::runner {
namespace {

// Fields are separated by tabs; a tab, a newline or a backslash in a text is escaped.
std::string escaped(const std::string &text) {
    std::string out;
    for (char c : text) {
        if (c == '\\') out += "\\\\";
        else if (c == '\t') out += "\\t";
        else if (c == '\n') out += "\\n";
        else out += c;
    }
    return out;
}

std::string unescaped(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        char c = text[++i];
        out += c == 't' ? '\t' : c == 'n' ? '\n' : c;
    }
    return out;
}

std::vector<std::string> fields_of(const std::string &line) {
    std::vector<std::string> fields;
    size_t start = 0;
    for (size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1) fields.push_back(unescaped(line.substr(start, tab - start)));
    fields.push_back(unescaped(line.substr(start)));
    return fields;
}

template <class T> bool number(const std::string &text, T &value) {
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

bool read_step(const std::vector<std::string> &f, StepRecord &s) {
    int status = 0;
    if (f.size() != 12) return false;
    s.kind = f[3], s.table = f[4], s.label = f[5];
    s.duration_ms = std::strtod(f[9].c_str(), nullptr);
    return number(f[1], s.number) && number(f[2], s.line) && number(f[6], status) && status >= 0 && status <= int(StepStatus::ended) &&
           (s.status = StepStatus(status), true) && number(f[7], s.mismatches) && number(f[8], s.value_errors) &&
           number(f[10], s.records_start) && number(f[11], s.records_end);
}

bool read_finding(const std::vector<std::string> &f, Finding &g) {
    int kind = 0, warning = 0;
    if (f.size() != 16) return false;
    g.text = f[6], g.attribute = f[7], g.expected = f[8], g.received = f[9], g.type = f[10], g.op = f[11];
    int has_status = 0;
    return number(f[1], g.line) && number(f[2], g.column) && number(f[3], g.step) && number(f[4], warning) && number(f[5], kind) &&
           kind >= 0 && kind <= int(FindingKind::log) && (g.kind = FindingKind(kind), g.warning = warning != 0, true) &&
           number(f[12], g.element) && number(f[13], has_status) && (g.has_status = has_status != 0, true) &&
           number(f[14], g.expected_status) && number(f[15], g.received_status);
}

bool read_totals(const std::vector<std::string> &f, FileResult &r) {
    int invalid = 0;
    if (f.size() != 12) return false;
    r.duration_ms = std::strtod(f[10].c_str(), nullptr);
    r.error = f[11];
    return number(f[1], r.steps) && number(f[2], r.failed_steps) && number(f[3], r.mismatches) && number(f[4], r.value_errors) &&
           number(f[5], r.expected) && number(f[6], invalid) && (r.invalid = invalid != 0, true) && number(f[7], r.not_run) &&
           number(f[8], r.problems) && number(f[9], r.warnings);
}

} // namespace

bool write_all(int fd, const std::string &text) {
    for (size_t done = 0; done < text.size();) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += size_t(n);
    }
    return true;
}

std::string saved_name(const std::string &name) { return "N\t" + escaped(name) + "\n"; }

std::string saved_step(const StepRecord &s) {
    return fmt::format("S\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{:.3f}\t{}\t{}\n", s.number, s.line, escaped(s.kind), escaped(s.table),
                       escaped(s.label), int(s.status), s.mismatches, s.value_errors, s.duration_ms, s.records_start, s.records_end);
}

std::string saved_finding(const Finding &f) {
    return fmt::format("F\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\n", f.line, f.column, f.step, int(f.warning),
                       int(f.kind), escaped(f.text), escaped(f.attribute), escaped(f.expected), escaped(f.received), escaped(f.type),
                       escaped(f.op), f.element, int(f.has_status), f.expected_status, f.received_status);
}

std::string saved_totals(const FileResult &r, size_t late) {
    std::string out = fmt::format("T\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{:.3f}\t{}\n", r.steps, r.failed_steps, r.mismatches,
                                  r.value_errors, r.expected, int(r.invalid), r.not_run, r.problems, r.warnings, r.duration_ms,
                                  escaped(r.error));
    for (const auto &f : r.findings) out += "L\t" + escaped(f) + "\n";
    return out + fmt::format("late\t{}\nend\n", late);
}

bool load_saved(const std::string &text, FileResult &r, bool &complete, size_t &late) {
    complete = false;
    late = 0;
    std::istringstream in(text);
    bool totals = false;
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> f = fields_of(line);
        const std::string &tag = f[0];
        if (tag == "N" && f.size() == 2) {
            r.name = f[1];
        } else if (tag == "S") {
            if (!read_step(f, r.step_records.emplace_back())) return r.step_records.pop_back(), false;
        } else if (tag == "F") {
            if (!read_finding(f, r.finding_records.emplace_back())) return r.finding_records.pop_back(), false;
        } else if (tag == "T") {
            if (!read_totals(f, r)) return false;
            totals = true;
        } else if (tag == "L" && f.size() == 2) {
            r.findings.push_back(f[1]);
        } else if (tag == "late" && f.size() == 2) {
            if (!number(f[1], late) || late > r.findings.size()) return false;
        } else if (tag == "end" && totals) {
            complete = true;
        } else {
            return false;
        }
    }
    return true;
}

void SavingObserver::put(const std::string &text) {
    if (ok_ && !write_all(fd_, text)) ok_ = false, error_ = errno ? errno : EIO;
}
void SavingObserver::file_start(const FileResult &file) { put(saved_name(file.name)); }
void SavingObserver::finding(const FileResult &, const Finding &finding) { put(saved_finding(finding)); }
void SavingObserver::step(const FileResult &, const StepRecord &step) { put(saved_step(step)); }

} // namespace pc::runner
