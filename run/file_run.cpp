#include "file_run.hpp"

#include "check.hpp"
#include "expected_findings.hpp"
#include "read_ahead.hpp"
#include "ending.hpp"
#include "platform.hpp"
#include "coverage.hpp"
#include "record_lint.hpp"
#include "report.hpp"
#include "suggestions.hpp"
#include "suggest.hpp"

#include "common.hpp"
#include "engine.hpp"
#include "planecheck/planecheck.h"
#include "planecheck/session.hpp"
#include "planecheck/support.h"
#include "recorder_sink.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <cstring>
#include <optional>
#include <sched.h>
#include <set>
#include <span>
#include <sys/stat.h>
#include <string_view>

namespace pc::runner {
namespace {

double ms_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

bool listed(std::span<const char *const> names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

class FileRun {
public:
    FileRun(const std::string &path, const Options &options, StepSource &source)
        : options_(options), platform_(linked_platform()), reader_(source), plane_(platform_) {
        result_.path = path;
    }

    FileResult run() {
        PlatformInstance::Bound bound(plane_); // the file's own data plane, for every call this run makes
        ending::set_pending_output(write_pending_of_running);
        running_ = this;
        trail_file(trail());
        yaml::LoadError error;
        bool opened = reader_.open(result_.path, error) && reader_.read_header(error);
        result_.name = opened ? reader_.scenario_name() : "";
        if (observer()) observer()->file_start(result_);
        if (!opened) return invalid(error);
        if (options_.check_only) check_.emplace(reader_.config().object_set, reader_.config().router_type, reader_.config().mode);
        else set_up(reader_.config());
        trail().timeout_ms = reader_.config().timeout_ms; // the parent of a worker holds the file to it
        EndWatch watch(result_.path, options_.steps, trail(), options_.progress);
        watch_ = &watch;
        for (;;) {
            Step step;
            bool done = false;
            if (!reader_.next_step(step, done, error)) return invalid(error);
            if (done) break;
            ending::stop_if_requested();
            ++result_.steps;
            show_progress();
            current_line_ = step.line;
            context_.session.record_line = 0;
            trail_step(trail(), step.number, step.line, pc::recorder::enabled() ? int64_t(pc::recorder::position()) : -1);
            current_step_ = &step;
            step_passed_ = false;
            begin_record(step);
            std::string problem = run_step(step);
            print_dump_document(step);
            trail_done(trail(), result_.steps, mismatches(), value_errors());
            if (!problem.empty()) {
                error = {result_.path, pc_json_line(problem_at_), pc_json_column(problem_at_), problem};
                return invalid(error);
            }
            end_record();
            current_step_ = nullptr;
        }
        if (check_) {
            check_->finish();
            print_findings();
        }
        if (result_.steps == 0) // like a test runner that collected nothing: not a pass
            return invalid({result_.path, reader_.steps_at().line, reader_.steps_at().column,
                            "the file has no steps; a scenario runs at least one step under steps:"});
        finish();
        return result_;
    }

    // At an end of the process in the middle of a step: what the step has received so far.
    static void write_pending_of_running() {
        FileRun *run = running_;
        if (!run || !run->current_step_) return;
        run->clear_progress();
        run->print_dump_document(*run->current_step_);
    }
    // At an end of the process in the middle of a file: its running step and the file ended.
    FileResult report_end(const std::string &how) {
        if (ending_reported_) return result_;
        ending_reported_ = true;
        int64_t records_end = pc::recorder::enabled() ? int64_t(pc::recorder::position()) : -1;
        std::optional<StepRecord> step = account_ending(result_, trail(), how, records_end);
        if (step && observer()) observer()->step(result_, *step);
        finish_observing();
        return result_;
    }

    static inline FileRun *running_ = nullptr; // the file being run, for the end-of-process handlers
    const Step *current_step_ = nullptr;

private:
    RunObserver *observer() const { return options_.observer; }

    // A step's record begins before it runs; its outcome is added as the step ends.
    void begin_record(const Step &step) {
        record_ = {};
        step_m_ = mismatches();
        step_v_ = value_errors();
        record_.number = step.number;
        record_.line = step.line;
        if (!observer()) return;
        record_.kind = "unknown";
        record_start_ = std::chrono::steady_clock::now();
        if (pc::recorder::enabled()) record_.records_start = int64_t(pc::recorder::position());
    }

    void name_record(const std::string &kind, const std::string &table, const std::string &label) {
        record_.kind = kind;
        record_.table = table;
        record_.label = label;
        trail_name(trail(), kind, table, label);
    }

    // The step's outcome; a status set while it ran (failed expect, nothing ran) stands.
    void end_record(std::optional<StepStatus> status = std::nullopt) {
        record_.mismatches = mismatches() - step_m_;
        record_.value_errors = value_errors() - step_v_;
        if (status) record_.status = *status;
        else if (record_.status == StepStatus::passed && record_.mismatches + record_.value_errors + step_problems_ > 0)
            record_.status = StepStatus::failed;
        step_problems_ = 0;
        count_step(result_, record_);
        if (!observer()) return;
        record_.duration_ms = ms_since(record_start_);
        if (record_.records_start >= 0) record_.records_end = int64_t(pc::recorder::position());
        if (observer()) observer()->step(result_, record_);
    }

    void observe_finding(Finding finding) {
        finding.step = current_step_ ? current_step_->number : 0;
        if (observer()) observer()->finding(result_, finding);
    }

    void finish_observing() {
        if (observer()) observer()->file_end(result_);
        running_ = nullptr;
    }

    FileResult invalid(const yaml::LoadError &error) {
        // a stop signal that broke off opening or reading (EINTR) ends the run, not the file
        ending::stop_if_requested();
        result_.invalid = true;
        result_.error = error.text();
        result_.add_finding(result_.error);
        Finding f;
        f.line = error.line;
        f.column = error.column;
        f.kind = FindingKind::check;
        f.text = without_location(result_.path, result_.error);
        observe_finding(f);
        if (current_step_) end_record(StepStatus::invalid);
        current_step_ = nullptr;
        finish();
        return result_;
    }

    void set_label(const std::string &label) {
        label_ = label;
        trail_label(trail(), label);
    }

    Trail &trail() { return options_.trail ? *options_.trail : own_trail_; }

    void set_up(const Config &c) {
        if (auto reset = platform_.offered(&pc_platform_services::reset)) reset();
        if (auto configure = platform_.offered(&pc_platform_services::configure)) configure(c.npus, c.router_type, c.node.c_str());
        if (auto set_log = platform_.offered(&pc_platform_services::set_log)) set_log(log_of_platform, this);
        if (auto enforce = platform_.offered(&pc_platform_services::enforce_references)) enforce(c.enforce_references);
        PROCESS &p = context_.process;
        p.mode = c.mode;
        p.object_set = c.object_set;
        p.router_type = c.router_type;
        p.wait = c.wait;
        p.recorder_off = c.recorder_off;
        p.verbose = verbose();
        std::snprintf(p.node_name, sizeof p.node_name, "%s", c.node.c_str());
        context_.session.log = [this](int level, const std::string &text, uint32_t line) { print_log(text, line, level); };
        context_.session.on_finding = [this](const pc_finding &finding, const std::string &text) { take_finding(finding, text); };
        context_.session.on_record = [this](const JSON_Value *record) { check_handle_read(record); };
        if (options_.coverage) measure_coverage(*options_.coverage);
        if (!options_.trace) return;
        if (auto set_trace = platform_.offered(&pc_platform_services::set_trace)) set_trace(trace_of_platform, this);
        else fmt::print(stderr, "planecheck: --trace: {} offers no call trace; no calls are written\n", platform_.library);
    }

    static void log_of_platform(void *user, int level, const char *text) {
        FileRun *run = static_cast<FileRun *>(user);
        if (level == 0 && !run->verbose()) return;
        if (level == 1) { // the platform's own complaint about what the record asked of it
            pc_finding f = pc::support::message(pc_finding::Kind::value_error, pc_finding::Text::detail, text);
            f.line = run->context_.session.record_line;
            return pc::support::report_finding(&run->context_.process, std::move(f));
        }
        run->print_log(std::string(text) + "\n", run->context_.session.record_line, level);
    }

    static void trace_of_platform(void *user, const char *call) {
        FileRun *run = static_cast<FileRun *>(user);
        run->print_log(std::string(call) + "\n", run->context_.session.record_line, 0);
    }

    // The library lets an update or delete go without a handle when its hdl: names none; a name
    // no earlier record stored is almost always a misspelling, so it is a value error here.
    void check_handle_read(const JSON_Value *record) {
        const auto &handles = context_.session.handles;
        const JSON_Value *hdl = unstored_handle(json_value_get_object(record), [&](const char *name) { return handles.count(name) != 0; });
        if (!hdl) return;
        pc::support::report_value_error(&context_.process, hdl, "hdl",
                                        fmt::format("unknown handle name '{}' (no earlier record stored a handle under it with "
                                                    "\"hdl\"); the operation runs without a handle",
                                                    json_value_get_string(hdl)));
    }

    // The engine tells the session about each operation record it ran; sdk: and dump: records
    // are counted where those steps run them.
    void measure_coverage(coverage::Report &report) {
        report.note_file();
        coverage::count_into(context_.session, context_.process, report);
    }

    // Every record under the first type of `by_type`, as one operation of the step's kind, as far
    // as that kind reads it: the SDK side checks creates and updates and fills gets; a dump sets
    // everything for creates, updates and deletes, and only the key otherwise.
    void note_records(const JSON_Object *by_type, coverage::Op op) {
        using Reach = coverage::Report::Reach;
        JSON_Value *records = nullptr;
        const engine::TypeDesc *type = engine::first_type(by_type, records);
        const JSON_Array *list = json_value_get_array(records);
        for (size_t i = 0; type && list && i < json_array_get_count(list); ++i) {
            const JSON_Object *record = json_value_get_object(json_array_get_value(list, i));
            if (!record) continue;
            const char *text = engine::string_member(record, "op");
            std::string_view what = text ? text : "";
            bool changes = what == "create" || what == "update", get = what.substr(0, 3) == "get";
            Reach reach = op == coverage::kSdkAnswer ? (changes || get ? Reach::All : Reach::Nothing)
                                                     : (changes || what == "delete" ? Reach::All : Reach::KeyFields);
            options_.coverage->note(*type, record, op, context_.process, reach);
        }
    }

    bool verbose() const { return options_.verbose || reader_.config().verbose; }

    // A line on the terminal that says how far a long file has got, redrawn a few times a second.
    void show_progress() {
        if (!options_.progress) return;
        auto now = std::chrono::steady_clock::now();
        if (now - last_progress_ < std::chrono::milliseconds(250)) return;
        last_progress_ = now;
        if (!file_size_) {
            struct stat st {};
            file_size_ = stat(result_.path.c_str(), &st) == 0 && st.st_size > 0 ? size_t(st.st_size) : 1;
        }
        int percent = int(100.0 * double(reader_.bytes_read()) / double(file_size_));
        fmt::print(stderr, "\r\033[K{}: {}% (step {}, {})", result_.path, std::min(percent, 100), result_.steps,
                   plural(mismatches(), "mismatch"));
        progress_shown_ = true;
    }

    // What the JSON dump converters wrote during the step, printed as one JSON object.
    void print_dump_document(const Step &step) {
        std::string &doc = context_.session.dump_document;
        if (doc.empty()) return;
        if (options_.quiet && step_passed_) return doc.clear(); // -q prints only the steps that did not pass
        doc.erase(doc.size() - 2, 1); // the last member's comma
        fmt::print(options_.steps, "{}:{}: step {} received:\n{{\n{}}}\n", result_.path, step.line, step.number, doc);
        doc.clear();
    }

    void clear_progress() {
        if (!progress_shown_) return;
        std::fputs("\r\033[K", stderr);
        progress_shown_ = false;
    }

    // A line of the library or the platform that is no finding of theirs: level-1 lines fail the
    // step all the same; level-0 lines are information.
    void print_log(const std::string &text, uint32_t line, int level) {
        std::string out = write_located(text, line, 0);
        if (level != 1) return;
        Finding f;
        f.kind = FindingKind::log;
        f.text = without_newline(text);
        note_finding(out, std::move(f), line, 0);
    }

    // A finding of the library, the platform or this run's own lint, with its line.
    void take_finding(const pc_finding &record, const std::string &text) {
        std::string out = write_located(text, record.line, record.column);
        // The library's own "unknown table NAME" line stays as it is, printed once; the closest
        // name goes with it where the run's account quotes it (the ending, JUnit, TAP, the page).
        if (record.text == pc_finding::Text::unknown_table) out = without_newline(out) + table_suggestion(record.attribute);
        note_finding(out, finding_of(record, text), record.line, record.column);
    }

    static Finding finding_of(const pc_finding &record, const std::string &text) {
        static const FindingKind kinds[] = {FindingKind::mismatch, FindingKind::value_error, FindingKind::log};
        Finding f;
        f.kind = kinds[int(record.kind)];
        f.text = without_newline(text);
        f.type = record.type, f.op = record.op, f.attribute = record.attribute, f.element = record.element;
        f.expected = record.expected, f.received = record.received;
        f.has_status = record.has_status, f.expected_status = record.expected_status, f.received_status = record.received_status;
        return f;
    }

    static std::string without_newline(const std::string &text) {
        return text.substr(0, text.size() - (!text.empty() && text.back() == '\n'));
    }

    // Writes a line at its place: a value's own column follows its line, as check writes it; other
    // lines name the record's line, or the step's. Returns the line as written.
    std::string write_located(const std::string &text, uint32_t line, uint32_t column) {
        std::string out = line && column ? fmt::format("{}:{}:{}: {}", result_.path, line, column, text)
                                         : fmt::format("{}:{}: {}", result_.path, line ? line : current_line_, text);
        clear_progress();
        std::fputs(out.c_str(), stderr);
        return out;
    }

    void note_finding(const std::string &out, Finding f, uint32_t line, uint32_t column) {
        std::string finding = without_newline(out);
        result_.add_finding(finding);
        trail_error(trail(), finding);
        since_expect_.add(f, finding);
        if (f.kind == FindingKind::mismatch) ++mismatch_findings_;
        if (!observer()) return;
        f.line = line ? line : current_line_;
        if (line) f.column = column;
        observe_finding(f);
        // a comparison's mismatch is counted only after its line: the trail has it already
        trail().mismatches = std::max(mismatches(), mismatch_findings_);
        trail().value_errors = value_errors();
    }

    // A table at the level of its send: (or dump:) is almost always an indentation slip.
    static std::string two_kinds(const char *kind, const char *other) {
        namespace v = pc::vocabulary;
        std::string text = fmt::format("a step has one kind; '{}' and '{}' are both here", kind, other);
        bool other_is_kind = std::find_if(std::begin(v::kStepKinds), std::end(v::kStepKinds),
                                          [&](const char *k) { return !std::strcmp(k, other); }) != std::end(v::kStepKinds);
        bool takes_table = !std::strcmp(kind, v::kStepSend) || !std::strcmp(kind, v::kStepDump);
        if (other_is_kind || !takes_table) return text;
        return text + fmt::format(": is the table {} meant to be indented under {}:?", other, kind);
    }

    std::string fail_at(const JSON_Value *at, std::string message) {
        problem_at_ = at;
        return message;
    }

    // The step kinds as messages list them: "send:, dump:, ... or expect:" (`last` before the last).
    static std::string step_kinds(const char *suffix, const char *last) {
        namespace v = pc::vocabulary;
        std::string out;
        size_t n = std::size(v::kStepKinds);
        for (size_t i = 0; i < n; ++i) out += (i == 0 ? "" : i + 1 == n ? last : ", ") + std::string(v::kStepKinds[i]) + suffix;
        return out;
    }

    // Runs or checks one step; returns a description of what makes it invalid, or "".
    std::string run_step(const Step &step) {
        namespace v = pc::vocabulary;
        const JSON_Object *o = json_value_get_object(step.value);
        if (!o || json_object_get_count(o) == 0)
            return fail_at(step.value, "a step is a mapping with one of " + step_kinds(":", ", "));
        const char *kind = nullptr;
        JSON_Value *body = nullptr, *sdk = nullptr;
        for (size_t i = 0; i < json_object_get_count(o); ++i) {
            const char *k = json_object_get_name(o, i);
            if (!std::strcmp(k, v::kMemberName)) continue;
            if (!std::strcmp(k, v::kMemberSdk)) { // the SDK side's answer to the step's send
                sdk = json_object_get_value_at(o, i);
                continue;
            }
            if (kind) return fail_at(json_object_get_value_at(o, i), two_kinds(kind, k));
            kind = k;
            body = json_object_get_value_at(o, i);
        }
        if (!kind) return fail_at(sdk ? sdk : step.value, sdk ? "sdk: answers a send: in the same step, and there is none"
                                                             : "the step has no kind (" + step_kinds(":", " or ") + ")");
        std::string k = kind;
        if (sdk && k != v::kStepSend) return fail_at(sdk, "sdk: answers a send: in the same step, not a " + k + ":");
        if (std::string p = refuse_unserved(kind, body, sdk); !p.empty()) return p;
        if (observer()) name_step(k, body); // without one, a big file's steps cost nothing more
        else record_.kind = k;              // but a file is skipped by its steps' kinds
        if (k == v::kStepSend) return send(step, body, sdk);
        if (k == v::kStepDump) return dump(step, body);
        if (k == v::kStepInject || k == v::kStepNpuResult) return arm(step, k, body);
        if (k == v::kStepExpect) return expect(step, body);
        return fail_at(body, fmt::format("unknown step kind '{}' (expected {})", k, step_kinds("", " or ")));
    }

    // A step that needs a service the platform lacks: a finding of the check; in a run, files with
    // such steps are refused before they start, so meeting one here ends the file as invalid.
    std::string refuse_unserved(const char *kind, JSON_Value *body, JSON_Value *sdk) {
        for (auto [what, at] : {std::pair<const char *, JSON_Value *>{kind, body}, {pc::vocabulary::kMemberSdk, sdk}}) {
            std::string refusal = at ? platform_.refusal(what) : "";
            if (refusal.empty()) continue;
            if (!options_.check_only) return fail_at(at, refusal);
            ++result_.problems;
            std::string line = yaml::LoadError{result_.path, pc_json_line(at), pc_json_column(at), refusal}.text();
            std::fputs((line + "\n").c_str(), stderr);
            result_.add_finding(line);
        }
        return "";
    }

    // The step's kind, table and label as its line names it.
    void name_step(const std::string &kind, const JSON_Value *body) {
        namespace v = pc::vocabulary;
        if (std::find(std::begin(v::kStepKinds), std::end(v::kStepKinds), kind) == std::end(v::kStepKinds)) return;
        const JSON_Object *o = json_value_get_object(body);
        bool names_table = kind == v::kStepSend || kind == v::kStepDump, names_op = kind == v::kStepInject || kind == v::kStepNpuResult;
        std::string table;
        if (names_table && o && json_object_get_count(o)) table = json_object_get_name(o, 0);
        const char *op = o ? json_value_get_string(json_object_get_value(o, v::kFieldOp)) : nullptr;
        if (names_op && op) table = std::string(op).substr(0, std::string(op).find(' '));
        std::string label = kind == v::kStepExpect ? kind : kind + " " + (op && !names_table ? op : table);
        name_record(kind, table, label);
    }

    std::string send(const Step &step, JSON_Value *body, JSON_Value *sdk) {
        const JSON_Object *o = json_value_get_object(body);
        if (!o) return fail_at(body, "send: takes a mapping such as { test_if: [ { op: create, ... } ] }");
        if (sdk && !json_value_get_object(sdk)) return fail_at(sdk, "sdk: takes a mapping such as { test_if: [ { op: create, rc: 0 } ] }");
        if (sdk && reader_.config().mode != 1)
            return fail_at(sdk, "sdk: answers client calls, and this file runs in server mode (config: mode: server)");
        if (std::string p = refuse_unreadable_numbers(o, false); !p.empty()) return p;
        if (std::string p = sdk ? refuse_unreadable_numbers(json_value_get_object(sdk), true) : ""; !p.empty()) return p;
        if (options_.check_only) {
            check_->send(body, sdk);
            print_findings();
            return "";
        }
        uint64_t before_m = mismatches(), before_v = value_errors();
        lint(o);
        if (sdk) lint_type(json_value_get_object(sdk));
        if (sdk) answer_from(sdk);
        set_label(fmt::format("send {}", json_object_get_name(o, 0) ? json_object_get_name(o, 0) : ""));
        bool batch = json_object_get_value(o, pc::vocabulary::kKeyBatchCrud) != nullptr;
        if (batch) watch_->arm_abort();
        json_send_object_client(body, &context_.process);
        if (batch) watch_->disarm_abort();
        if (sdk) platform_.services->set_sdk_side(nullptr, nullptr);
        if (const engine::TypeDesc *type = inactive_send_type(o)) return not_run(step, type->name);
        report(step, label_, mismatches() - before_m, value_errors() - before_v);
        return "";
    }

    // The type a send step goes to, when the object-set flag makes it do nothing.
    const engine::TypeDesc *inactive_send_type(const JSON_Object *step) const {
        const engine::TypeDesc *type = send_type(step);
        return type && !active_under(type->gate, context_.process.object_set) ? type : nullptr;
    }

    std::string not_run(const Step &step, const char *type) {
        ++result_.not_run;
        std::string line = fmt::format("{}:{}: step {} {} {}: {}: nothing ran", result_.path, step.line, step.number,
                                       label_.substr(0, label_.find(' ')), type, inactive_text(context_.process.object_set));
        record_.status = StepStatus::not_run;
        note_idle(without_location(result_.path, line));
        if (options_.strict) {
            ++result_.failures;
            result_.add_finding(line + " (--strict)");
            record_.status = StepStatus::failed;
            observe_failure(line + " (--strict)");
        }
        clear_progress(); // shown even with -q: a step that ran nothing did not pass
        fmt::print(options_.steps, "{}\n", line);
        return "";
    }

    // A step that failed as a whole (an expect that does not hold, a step that ran nothing).
    void observe_failure(const std::string &line) {
        Finding f;
        f.line = current_line_;
        f.text = without_location(result_.path, line);
        observe_finding(f);
    }

    void print_findings() {
        for (const CheckFinding &f : check_->take()) {
            std::string line = fmt::format("{}:{}:{}: {}{}", result_.path, f.line, f.column, f.warning ? "warning: " : "", f.message);
            ++(f.warning ? result_.warnings : result_.problems);
            std::fputs((line + "\n").c_str(), stderr);
            result_.add_finding(line);
            if (!f.warning) ++step_problems_;
            Finding finding;
            finding.line = f.line;
            finding.column = f.column;
            finding.warning = f.warning;
            finding.kind = FindingKind::check;
            finding.text = f.message;
            observe_finding(finding);
        }
    }

    // Reports record keys the type does not have, where the step (or a batch element) goes to an
    // object type.
    void lint(const JSON_Object *step) {
        const char *special = special_key(step); // the dispatch takes the first special key before any type
        if (!special) return lint_type(step, Gated::Yes, true);
        if (std::strcmp(special, pc::vocabulary::kKeyBatchCrud)) return; // the support library's steps have no records here
        const JSON_Array *batch = json_value_get_array(json_object_get_value(step, special));
        for (size_t i = 1; i < json_array_get_count(batch); ++i)
            if (const JSON_Object *element = json_value_get_object(json_array_get_value(batch, i)))
                lint_type(element, Gated::No); // the batch enqueue has no object-set gate
    }

    // Values that the library reads as whole numbers without a check of its own are refused
    // before the step runs, rather than read as something the file did not say.
    std::string refuse_unreadable_numbers(const JSON_Object *step, bool sdk_side) {
        auto check_type = [sdk_side](const JSON_Object *by_type) {
            JSON_Value *records = nullptr;
            const engine::TypeDesc *type = engine::first_type(by_type, records);
            return type ? unreadable_number(*type, records, sdk_side) : ValueProblem{};
        };
        ValueProblem p;
        if (const JSON_Array *batch = json_value_get_array(json_object_get_value(step, pc::vocabulary::kKeyBatchCrud))) {
            for (size_t i = 1; i < json_array_get_count(batch) && !p.at; ++i)
                p = check_type(json_value_get_object(json_array_get_value(batch, i)));
        } else {
            p = check_type(step);
        }
        return p.at ? fail_at(p.at, p.message) : "";
    }

    enum class Gated { Yes, No, Dump };

    // A step of an inactive type does nothing, so its records are not looked at (as check does).
    void lint_type(const JSON_Object *records_by_type, Gated gated = Gated::Yes, bool sent = false) {
        JSON_Value *records = nullptr;
        const engine::TypeDesc *type = engine::first_type(records_by_type, records);
        if (!type) return;
        bool gate_applies = gated == Gated::Yes || (gated == Gated::Dump && !type->has(engine::kDumpWithoutGate));
        if (gate_applies && !active_under(type->gate, context_.process.object_set)) return;
        auto report_value = [this](const JSON_Value *at, const std::string &message) {
            pc_finding f = pc::support::message(pc_finding::Kind::value_error, pc_finding::Text::detail, message);
            f.line = pc_json_line(at), f.column = pc_json_column(at);
            pc::support::report_finding(&context_.process, std::move(f));
        };
        lint_records(*type, records, report_value);
        if (sent) lint_ops(*type, records, report_value);
    }

    // An op that no branch of the type's send runs: the library builds the object and runs nothing.
    void lint_ops(const engine::TypeDesc &type, const JSON_Value *records, const UnknownKey &report_value) {
        const JSON_Array *list = json_value_get_array(records);
        for (size_t i = 0; list && i < json_array_get_count(list); ++i) {
            const JSON_Value *op = json_object_get_value(json_value_get_object(json_array_get_value(list, i)), "op");
            const char *text = json_value_get_string(op);
            std::string problem = text ? op_problem(type, text, i, context_.process.mode) : "";
            if (!problem.empty()) report_value(op, problem);
        }
    }

    // While the step's send runs, every client call reaches the SDK side: the received object is
    // checked or filled from `sdk`, written out, and the records' "rc" is the status answered.
    void answer_from(JSON_Value *sdk) {
        answering_ = sdk;
        platform_.services->set_sdk_side(answer_of_sdk_side, this);
    }

    static int answer_of_sdk_side(void *user, uint16_t, dpa_inst_hdr_t *instance, int32_t *status) {
        FileRun *run = static_cast<FileRun *>(user);
        PROCESS *p = &run->context_.process;
        p->received_obj = reinterpret_cast<ofa_client_obj_base_t>(instance);
        *status = json_receive_object_sdk(run->answering_, p);
        if (run->options_.coverage && run->received_by_sdk_side(run->answering_, instance))
            run->note_records(json_value_get_object(run->answering_), coverage::kSdkAnswer);
        p->received_obj = reinterpret_cast<ofa_client_obj_base_t>(instance); // receive left its freed view there
        json_dump_object_received_sdk(p);
        return 1;
    }

    // The SDK side takes an object of an active type that its records name; else it answers -1
    // without looking at them.
    bool received_by_sdk_side(JSON_Value *sdk, const dpa_inst_hdr_t *instance) const {
        JSON_Value *records = nullptr;
        const engine::TypeDesc *type = engine::first_type(json_value_get_object(sdk), records);
        return type && type->number == instance->type && engine::active(type->gate, &context_.process);
    }

    // dump: { test_if: [ { op: get, key_a: 1 } ] } builds objects and checks their keys' round trip.
    std::string dump(const Step &step, JSON_Value *body) {
        const JSON_Object *o = json_value_get_object(body);
        if (!o) return fail_at(body, "dump: takes a mapping such as { test_if: [ { op: get, key_a: 1 } ] }");
        if (std::string p = refuse_unreadable_numbers(o, false); !p.empty()) return p;
        if (options_.check_only) {
            check_->dump(body);
            print_findings();
            return "";
        }
        lint_type(o, Gated::Dump);
        uint64_t before_m = mismatches(), before_v = value_errors();
        set_label(fmt::format("dump {}", json_object_get_name(o, 0) ? json_object_get_name(o, 0) : ""));
        int result = json_dump_object_sdk(body, &context_.process);
        JSON_Value *records = nullptr;
        const engine::TypeDesc *type = engine::first_type(o, records);
        if (result == -1 && type && !type->has(engine::kDumpWithoutGate) && !active_under(type->gate, context_.process.object_set))
            return not_run(step, type->name);
        std::string label = label_;
        if (result == -1) {
            label += " (not run: another router type)";
            ++result_.not_run;
            record_.status = StepStatus::not_run;
            note_idle(fmt::format("step {} {}", step.number, label));
        }
        if (result != -1 && options_.coverage) note_records(o, coverage::kDump);
        report(step, label, mismatches() - before_m, value_errors() - before_v);
        return "";
    }

    // inject: { op: "test_if create", status: ENOMEM, times: 2 }
    // npu_result: { op: "test_if create", results: [0, 5], times: 1 }
    std::string arm(const Step &step, const std::string &kind, JSON_Value *body) {
        namespace v = pc::vocabulary;
        const JSON_Object *o = json_value_get_object(body);
        if (!o) return fail_at(body, kind + ": takes a mapping with op:");
        const JSON_Value *op = json_object_get_value(o, v::kStepFieldOp);
        std::string problem = check_op_text(op, body);
        if (!problem.empty()) return problem;
        const JSON_Value *times = json_object_get_value(o, v::kStepFieldTimes);
        int64_t n = 1;
        // a bound, because a retry loop re-issues an injected operation for as long as it fails
        if (times && (!pc_json_get_int64(times, &n) || n < 1 || n > 1000000))
            return fail_at(times, "times: is a whole number from 1 to 1000000");
        bool inject = kind == v::kStepInject;
        std::span<const char *const> fields = inject ? std::span(v::kInjectFields) : std::span(v::kNpuResultFields);
        for (size_t i = 0; i < json_object_get_count(o); ++i)
            if (!listed(fields, json_object_get_name(o, i)))
                return fail_at(json_object_get_value_at(o, i), fmt::format("{}: has no '{}'", kind, json_object_get_name(o, i)));
        if (inject) {
            const JSON_Value *status = json_object_get_value(o, v::kStepFieldStatus);
            if (!status) return fail_at(body, "inject: needs status: (a number or a name such as ENOMEM)");
            StatusValue s;
            if (std::string p = read_status(status, s); !p.empty()) return fail_at(status, p);
            if (!options_.check_only) platform_.services->arm_injection(json_value_get_string(op), s.value, uint32_t(n));
        } else {
            const JSON_Array *list = json_value_get_array(json_object_get_value(o, v::kStepFieldResults));
            if (!list || json_array_get_count(list) > PC_MAX_NPUS)
                return fail_at(body, "npu_result: needs results: a list of at most 64 per-NPU results");
            std::vector<uint32_t> results;
            for (size_t i = 0; i < json_array_get_count(list); ++i) {
                const JSON_Value *result = json_array_get_value(list, i);
                if (std::string p = whole_number_problem(result, INT32_MIN, UINT32_MAX); !p.empty())
                    return fail_at(result, "results: the value " + p);
                results.push_back(uint32_t(json_value_get_constant(result)));
            }
            if (!options_.check_only)
                platform_.services->arm_npu_results(json_value_get_string(op), results.data(), results.size(), uint32_t(n));
        }
        if (options_.check_only) {
            check_->arm(kind, op);
            print_findings();
            return "";
        }
        report(step, kind + " " + json_value_get_string(op), 0, 0);
        return "";
    }

    // "test_iff create" -> "; did you mean test_if create?", from the closest type and operation.
    static std::string arm_suggestion(const std::string &text, const std::set<std::string> &ops) {
        size_t space = text.find(' ');
        if (space == std::string::npos) return "";
        std::string type = text.substr(0, space), op = text.substr(space + 1);
        if (!pc::engine::find_type(type.c_str())) type = pc::support::closest_name(type, type_names());
        if (!ops.count(op)) op = pc::support::closest_name(op, std::vector<std::string_view>(ops.begin(), ops.end()));
        return type.empty() || op.empty() ? "" : fmt::format("; did you mean {} {}?", type, op);
    }

    static const std::vector<std::string_view> &type_names() {
        static const std::vector<std::string_view> names = [] {
            std::vector<std::string_view> all;
            for (size_t i = 0; i < engine::kTypeCount; ++i) all.push_back(engine::kTypes[i]->name);
            return all;
        }();
        return names;
    }

    std::string check_op_text(const JSON_Value *op, JSON_Value *body) {
        // the ops the platform can inject into or answer per NPU: those with a code, and the replays
        static const std::set<std::string> ops = [] {
            std::set<std::string> names;
            for (const pc::vocabulary::Op &o : pc::vocabulary::kOps)
                if (o.code || o.has(pc::vocabulary::kFlagReplay)) names.insert(o.name);
            return names;
        }();
        const char *s = json_value_get_string(op);
        if (!s) return fail_at(op ? op : body, "op: names the type and the operation, such as \"test_if create\"");
        std::string text = s;
        size_t space = text.find(' ');
        if (space == std::string::npos || !pc::engine::find_type(text.substr(0, space).c_str()) || !ops.count(text.substr(space + 1)))
            return fail_at(op, fmt::format("'{}' is not <object type> <operation>, such as \"test_if create\"{}", text, arm_suggestion(text, ops)));
        return "";
    }

    // expect: { mismatches: N, value_errors: N, findings: [ ... ] } accounts for what happened since
    // the last expect: the counts given, and with findings: each finding, named by an entry of its own.
    struct Expectation {
        std::optional<int64_t> mismatches, value_errors;
        std::optional<std::vector<FindingEntry>> findings;
    };

    std::string read_expectation(JSON_Value *body, Expectation &want) {
        namespace v = pc::vocabulary;
        const JSON_Object *o = json_value_get_object(body);
        if (!o) return fail_at(body, "expect: takes a mapping such as { mismatches: 2 }");
        for (size_t i = 0; i < json_object_get_count(o); ++i) {
            std::string key = json_object_get_name(o, i);
            const JSON_Value *value = json_object_get_value_at(o, i);
            if (key == v::kStepFieldFindings) {
                const JSON_Value *at = nullptr;
                std::string problem = read_finding_entries(value, want.findings.emplace(), at);
                if (!problem.empty()) return fail_at(at, problem);
                continue;
            }
            int64_t n;
            if (!pc_json_get_int64(value, &n) || n < 0) return fail_at(value, key + ": is a whole number");
            if (!listed(v::kExpectFields, key))
                return fail_at(value, fmt::format("expect: has no '{}' (expected {})", key, fmt::join(std::begin(v::kExpectFields), std::end(v::kExpectFields), ", ")));
            (key == v::kStepFieldMismatches ? want.mismatches : want.value_errors) = n;
        }
        return "";
    }

    // "; expected 2 mismatches and 0 value errors" when the counts differ; with findings: a count
    // not given is not judged, as the findings name what came.
    static std::string counts_missed(const Expectation &want, uint64_t got_m, uint64_t got_v) {
        bool named = want.findings.has_value();
        std::optional<int64_t> m = want.mismatches, v = want.value_errors;
        if (!named) m = m.value_or(0), v = v.value_or(0);
        if ((!m || uint64_t(*m) == got_m) && (!v || uint64_t(*v) == got_v)) return "";
        std::vector<std::string> counts;
        if (m) counts.push_back(plural(uint64_t(*m), "mismatch"));
        if (v) counts.push_back(plural(uint64_t(*v), "value error"));
        return fmt::format("; expected {}", fmt::join(counts, " and "));
    }

    std::string expect(const Step &step, JSON_Value *body) {
        Expectation want;
        if (std::string problem = read_expectation(body, want); !problem.empty()) return problem;
        if (options_.check_only) return "";
        uint64_t got_m = mismatches() - accounted_m_, got_v = value_errors() - accounted_v_;
        accounted_m_ = mismatches();
        accounted_v_ = value_errors();
        std::string missed = counts_missed(want, got_m, got_v);
        std::string unpaired = want.findings ? unpaired_findings(*want.findings, since_expect_) : "";
        since_expect_.clear();
        if (!unpaired.empty()) missed += "; the findings named are not those that came" + unpaired;
        bool ok = missed.empty();
        if (ok) result_.expected += got_m + got_v;
        else ++result_.failures;
        std::string what = fmt::format("{} and {} since the last expect", plural(got_m, "mismatch"), plural(got_v, "value error"));
        std::string line = fmt::format("{}:{}: step {} expect: {} ({}){}", result_.path, step.line, step.number, ok ? "ok" : "FAILED", what, missed);
        if (!ok) result_.add_finding(line), record_.status = StepStatus::failed, observe_failure(line);
        clear_progress();
        if (!ok || !options_.quiet) fmt::print(options_.steps, "{}\n", line);
        return "";
    }

    // The first step that stood aside says why, should the whole file have tested nothing.
    void note_idle(const std::string &why) {
        if (record_.label.empty()) record_.label = label_; // named here too when no observer named the step
        if (first_idle_.empty()) first_idle_ = why;
    }

    void note_skipped() {
        if (options_.check_only || result_.acting_steps || !result_.passed()) return;
        result_.skipped = first_idle_.empty() ? "no step sent or dumped anything" : first_idle_;
    }

    void report(const Step &step, const std::string &label, uint64_t m, uint64_t v) {
        step_passed_ = m + v == 0;
        if (options_.quiet && m + v == 0) return;
        clear_progress(); // the progress line and the step lines share the terminal
        std::string outcome = m + v == 0 ? "ok" : fmt::format("{}, {}", plural(m, "mismatch"), plural(v, "value error"));
        fmt::print(options_.steps, "{}:{}: step {} {}: {}\n", result_.path, step.line, step.number, label, outcome);
    }

    void finish() {
        ending::set_pending_output(nullptr);
        // the platform may outlive this run: it keeps no pointer to it
        if (auto set_trace = platform_.offered(&pc_platform_services::set_trace); set_trace && options_.trace) set_trace(nullptr, nullptr);
        if (auto set_log = platform_.offered(&pc_platform_services::set_log)) set_log(nullptr, nullptr);
        result_.mismatches = mismatches();
        result_.value_errors = value_errors();
        result_.duration_ms = ms_since(started_);
        note_skipped();
        clear_progress();
        std::fflush(options_.steps);
        finish_observing();
    }

    uint64_t mismatches() const { return context_.session.mismatches(); }
    uint64_t value_errors() const { return context_.session.value_errors(); }

    const Options &options_;
    const Platform &platform_;
    FileResult result_;
    std::optional<StepCheck> check_;
    std::string label_;
    Trail own_trail_;           // where the run stands, when no parent process reads it
    EndWatch *watch_ = nullptr;
    StepSource &reader_;
    PlatformInstance plane_; // objects, handles, injections and NPU results of this file only
    JSON_Value *answering_ = nullptr; // the sdk: records of the step being sent
    pc::support::Context context_;
    uint32_t current_line_ = 0;
    const JSON_Value *problem_at_ = nullptr;
    uint64_t accounted_m_ = 0, accounted_v_ = 0;
    std::string first_idle_;    // the first step that ran nothing, as its line says it
    FindingsSince since_expect_; // the mismatches and value errors since the last expect
    StepRecord record_;         // the step running now
    std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now(), record_start_;
    uint64_t step_m_ = 0, step_v_ = 0;
    uint64_t mismatch_findings_ = 0; // mismatches whose lines were written, counted or not yet
    size_t step_problems_ = 0;  // check problems found in the step running now
    bool ending_reported_ = false;
    std::chrono::steady_clock::time_point last_progress_ = std::chrono::steady_clock::now();
    size_t file_size_ = 0;
    bool progress_shown_ = false;
    bool step_passed_ = false; // the step being run has reported and passed
};

// A file --strict refused ran no step: its events are what the check found, about the whole file,
// and the refusal; the reports list the same lines.
void tell_refused(const FileResult &refused, std::vector<Finding> found, RunObserver *observer) {
    if (!observer) return;
    FileResult told = refused;
    for (Finding &f : found) f.step = 0; // no step of the file ran
    Finding f;
    f.kind = FindingKind::check;
    f.text = without_location(refused.path, refused.error);
    found.push_back(f);
    told.finding_records = std::move(found);
    told.step_records.clear();
    replay_records(told, *observer);
}

// The check's findings of a file, kept to be told when the file is refused.
struct CheckFindings : RunObserver {
    std::vector<Finding> found;
    void finding(const FileResult &, const Finding &f) override { found.push_back(f); }
};

// A file smaller than this is read on the running thread: starting a thread would cost more than
// it saves.
constexpr off_t kReadAheadBytes = 1 << 20;

bool reads_ahead(const std::string &path, const Options &options) {
    if (options.threads == 1 || options.check_only) return false;
    if (options.threads >= 2) return true;
    cpu_set_t cores;
    if (sched_getaffinity(0, sizeof cores, &cores) != 0 || CPU_COUNT(&cores) < 2) return false;
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && st.st_size >= kReadAheadBytes;
}

} // namespace

FileResult run_file(const std::string &path, const Options &options) {
    if (options.strict && !options.check_only) {
        Options check = options;
        check.check_only = true;
        check.trail = nullptr;
        CheckFindings found;
        check.observer = &found;
        ScenarioReader check_reader;
        FileResult checked = FileRun(path, check, check_reader).run();
        if (!checked.passed()) {
            ending::stop_if_requested();
            FileResult refused = checked;
            refused.invalid = true;
            refused.steps = refused.failed_steps = 0; // none of them ran
            if (!checked.invalid)
                refused.error = fmt::format("{}: --strict refuses the file: the check found {} (listed above; planecheck check shows them)",
                                            path, plural(checked.problems, "problem"));
            refused.add_finding(refused.error);
            tell_refused(refused, std::move(found.found), options.observer);
            return refused;
        }
    }
    if (!options.check_only) {
        ScenarioReader scan;
        if (std::optional<FileResult> refused = refuse_unserved_steps(linked_platform(), path, scan)) {
            ending::stop_if_requested();
            tell_refused(*refused, {}, options.observer);
            return *refused;
        }
    }
    ScenarioReader reader;
    if (!reads_ahead(path, options)) return FileRun(path, options, reader).run();
    ReadAhead ahead(reader);
    return FileRun(path, options, ahead).run();
}

FileResult run_steps(const std::string &path, StepSource &source, const Options &options) {
    return FileRun(path, options, source).run();
}

std::optional<FileResult> end_running_file(const std::string &how) {
    if (!FileRun::running_) return std::nullopt;
    return FileRun::running_->report_end(how);
}

const char *status_name(StepStatus status) {
    static const char *const names[] = {"passed", "failed", "not_run", "invalid", "ended"};
    return names[int(status)];
}

void count_step(FileResult &file, const StepRecord &step) {
    file.failed_steps += step.status == StepStatus::failed || step.status == StepStatus::ended;
    bool sends = step.kind == pc::vocabulary::kStepSend || step.kind == pc::vocabulary::kStepDump;
    file.acting_steps += sends && step.status != StepStatus::not_run;
    if (step.status == StepStatus::not_run && file.idle_steps.size() < FileResult::kMaxFindings)
        file.idle_steps.push_back(fmt::format("step {} (line {}) {}", step.number, step.line, step.label));
}

const char *kind_name(FindingKind kind) {
    static const char *const names[] = {"mismatch", "value_error", "check", "log"};
    return names[int(kind)];
}

void replay_records(const FileResult &result, RunObserver &observer) {
    observer.file_start(result);
    size_t next_finding = 0;
    auto findings_up_to = [&](size_t step) {
        for (; next_finding < result.finding_records.size() && result.finding_records[next_finding].step <= step; ++next_finding)
            observer.finding(result, result.finding_records[next_finding]);
    };
    for (const StepRecord &step : result.step_records) {
        findings_up_to(step.number);
        observer.step(result, step);
    }
    findings_up_to(SIZE_MAX);
    observer.file_end(result);
}

} // namespace pc::runner
