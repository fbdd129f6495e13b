#include "page.hpp"

#include "json_text.hpp"

#include <fmt/format.h>

#include <cstdio>
#include <initializer_list>
#include <utility>
#include <iterator>

namespace pc::report {
namespace {

using Out = std::string;

void add_text(Out &out, const char *key, std::string_view value) {
    fmt::format_to(std::back_inserter(out), "\"{}\":", key);
    append_json_string(out, value);
    out += ',';
}

// A JSON array of `items`, each written by `add_item`.
template <typename T, typename AddItem>
void add_list(Out &out, const std::vector<T> &items, AddItem add_item) {
    out += '[';
    for (size_t i = 0; i < items.size(); ++i) {
        if (i) out += ',';
        add_item(out, items[i]);
    }
    out += ']';
}

void add_texts(Out &out, const std::vector<std::string> &values) { add_list(out, values, append_json_string); }

void add_counts(Out &out, const Counts &c) {
    fmt::format_to(std::back_inserter(out), "\"steps\":{},\"failed_steps\":{},\"not_run\":{},\"mismatches\":{},\"value_errors\":{},\"expected\":{},",
                   c.steps, c.failed_steps, c.not_run, c.mismatches, c.value_errors, c.expected);
}

void add_finding(Out &out, const Finding &f) {
    fmt::format_to(std::back_inserter(out), "{{\"line\":{},", f.line);
    if (f.column) fmt::format_to(std::back_inserter(out), "\"column\":{},", f.column);
    add_text(out, "level", f.level);
    add_text(out, "kind", f.kind);
    if (f.has_values) {
        add_text(out, "attribute", f.attribute);
        add_text(out, "expected", f.expected);
        add_text(out, "received", f.received);
    }
    out += "\"text\":";
    append_json_string(out, f.text);
    out += '}';
}

void add_findings(Out &out, const std::vector<Finding> &findings) { add_list(out, findings, add_finding); }

// [first line, [lines]]
void add_excerpt(Out &out, const Excerpt &e) {
    fmt::format_to(std::back_inserter(out), "[{},", e.first);
    add_texts(out, e.lines);
    out += ']';
}

// A step as a row: [number, line, kind, table, label, status, mismatches, value errors, duration];
// rows are compact because a run may have a hundred thousand of them.
void add_row(Out &out, const StepRecord &s) {
    fmt::format_to(std::back_inserter(out), "[{},{},", s.number, s.line);
    for (const std::string *text : {&s.kind, &s.table, &s.label, &s.status}) {
        append_json_string(out, *text);
        out += ',';
    }
    fmt::format_to(std::back_inserter(out), "{},{},{:.3f}]", s.mismatches, s.value_errors, s.duration);
}

// The findings and scenario lines of the steps that show them, by row index.
void add_details(Out &out, const FileRecord &f) {
    out += "\"details\":{";
    const char *sep = "";
    for (size_t i = 0; i < f.steps.size(); ++i) {
        const StepRecord &s = f.steps[i];
        if (!s.failing()) continue;
        fmt::format_to(std::back_inserter(out), "{}\"{}\":{{\"findings\":", std::exchange(sep, ","), i);
        add_findings(out, s.findings);
        out += ",\"excerpt\":";
        add_excerpt(out, s.excerpt);
        out += '}';
    }
    out += "},";
}

void add_file(Out &out, const FileRecord &f) {
    out += '{';
    add_text(out, "path", f.path);
    add_text(out, "name", f.name);
    add_text(out, "status", f.status);
    add_counts(out, f.finished ? f.counts : counted_from_steps(f));
    fmt::format_to(std::back_inserter(out), "\"finished\":{},\"duration\":{:.3f},", f.finished, f.duration);
    add_text(out, "error", f.error);
    add_text(out, "ended_how", f.ended_how);
    add_text(out, "reason", f.reason);
    add_text(out, "ended_at", f.ended_at);
    add_text(out, "last_error", f.last_error);
    fmt::format_to(std::back_inserter(out), "\"attempts\":{},\"slow\":{},\"failed_attempts\":", f.attempts, f.slow);
    add_texts(out, f.failed_attempts);
    out += ",\"findings\":";
    add_findings(out, f.findings);
    out += ",\"excerpt\":";
    add_excerpt(out, f.excerpt);
    out += ',';
    add_details(out, f);
    out += "\"rows\":[";
    for (size_t i = 0; i < f.steps.size(); ++i) {
        if (i) out += ',';
        add_row(out, f.steps[i]);
    }
    out += "]}";
}

void add_stream(Out &out, const Stream &s) {
    out += '{';
    for (auto [key, value] : {std::pair{"source", &s.source}, {"version", &s.version}, {"platform", &s.platform},
                              {"host", &s.host}, {"started", &s.started}, {"verdict", &s.verdict}})
        add_text(out, key, *value);
    fmt::format_to(std::back_inserter(out), "\"finished\":{},\"exit_status\":{},\"duration\":{:.3f},\"command\":", s.finished,
                   s.exit_status, s.duration);
    add_texts(out, s.command);
    out += '}';
}

// Fills the markers in the order the page has them, each searched after what the one before put
// in, so a marker's text inside the data is left alone.
void fill(std::string &page, std::initializer_list<std::pair<std::string_view, std::string_view>> markers) {
    size_t from = 0;
    for (auto [marker, with] : markers) {
        size_t at = page.find(marker, from);
        if (at == std::string::npos) continue;
        page.replace(at, marker.size(), with);
        from = at + with.size();
    }
}

} // namespace

std::string run_json(const Run &run, const std::string &made_at) {
    Out out = "{\"run\":{";
    add_text(out, "verdict", run.verdict());
    add_text(out, "made", made_at);
    add_counts(out, run.totals());
    fmt::format_to(std::back_inserter(out), "\"files\":{},\"failed_files\":{},\"skipped_files\":{},\"duration\":{:.3f},\"problems\":",
                   run.files.size(), run.failed_files(), run.skipped_files(), run.duration());
    // what a merge of shards lacks is told where the lines that could not be read are
    std::vector<std::string> problems = run.missing;
    problems.insert(problems.end(), run.problems.begin(), run.problems.end());
    add_texts(out, problems);
    out += ",\"streams\":[";
    for (size_t i = 0; i < run.streams.size(); ++i) {
        if (i) out += ',';
        add_stream(out, run.streams[i]);
    }
    out += "]},\n\"files\":[";
    for (size_t i = 0; i < run.files.size(); ++i) {
        out += i ? ",\n" : "\n";
        add_file(out, run.files[i]);
    }
    return out + "]}";
}

std::string build_page(const Run &run, const std::string &coverage, const std::string &made_at) {
    std::string page(page::kHtml);
    std::string data = run_json(run, made_at);
    data.insert(data.size() - 1, ",\n\"coverage\":" + (coverage.empty() ? std::string("null") : coverage));
    // Inline, so the file opens from disk with no network; the data is text for the script, never markup.
    fill(page, {{"/*@planecheck:style*/", page::kCss}, {"/*@planecheck:data*/", data}, {"/*@planecheck:script*/", page::kJs}});
    return page;
}

bool write_page(const std::string &path, const std::string &page) {
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    bool written = std::fwrite(page.data(), 1, page.size(), f) == page.size();
    return std::fclose(f) == 0 && written;
}

} // namespace pc::report
