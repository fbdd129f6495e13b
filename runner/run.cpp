#include "run.hpp"

#include "check.hpp"
#include "read_ahead.hpp"
#include "ending.hpp"
#include "coverage.hpp"
#include "record_lint.hpp"
#include "report.hpp"

#include "common.hpp"
#include "engine.hpp"
#include "planecheck/planecheck.h"
#include "planecheck/session.hpp"
#include "planecheck/support.h"
#include "store.hpp"
#include "trace.hpp"

#include <fmt/format.h>

#include <chrono>
#include <cstring>
#include <optional>
#include <sched.h>
#include <set>
#include <sys/stat.h>
#include <string_view>

namespace pc::runner {
namespace {

class FileRun {
public:
    FileRun(const std::string &path, const Options &options, StepSource &source) : options_(options), reader_(source) {
        result_.path = path;
    }

    FileResult run() {
        simplane::Binding bound(plane_); // the file's own data plane, for every call this run makes
        ending::set_pending_output(write_pending_of_running);
        yaml::LoadError error;
        if (!reader_.open(result_.path, error) || !reader_.read_header(error)) return invalid(error);
        if (options_.check_only) check_.emplace(reader_.config().object_set, reader_.config().router_type, reader_.config().mode);
        else set_up(reader_.config());
        EndWatch watch(result_.path, options_.steps, trail(), options_.progress);
        watch_ = &watch;
        running_ = this;
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
            trail_step(trail(), step.number, step.line);
            current_step_ = &step;
            std::string problem = run_step(step);
            print_dump_document(step);
            current_step_ = nullptr;
            trail_done(trail(), result_.steps, mismatches(), value_errors());
            if (!problem.empty()) {
                error = {result_.path, pc_json_line(problem_at_), pc_json_column(problem_at_), problem};
                return invalid(error);
            }
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
    static inline FileRun *running_ = nullptr; // the file being run, for the end-of-process handlers
    const Step *current_step_ = nullptr;

private:
    FileResult invalid(const yaml::LoadError &error) {
        result_.invalid = true;
        result_.error = error.text();
        result_.add_finding(result_.error);
        finish();
        return result_;
    }

    void set_label(const std::string &label) {
        label_ = label;
        trail_label(trail(), label);
    }

    Trail &trail() { return options_.trail ? *options_.trail : own_trail_; }

    void set_up(const Config &c) {
        simplane::reset();
        simplane::configure({c.npus, c.router_type, c.node});
        simplane::set_log([this](int level, const std::string &text) {
            if (level == 0 && !verbose()) return;
            if (level == 1) context_.session.stats[PC_STAT_VALUE_ERROR]++;
            print_log(text + "\n", context_.session.record_line, level);
        });
        PROCESS &p = context_.process;
        p.mode = c.mode;
        p.object_set = c.object_set;
        p.router_type = c.router_type;
        p.wait = c.wait;
        p.recorder_off = c.recorder_off;
        p.verbose = verbose();
        std::snprintf(p.node_name, sizeof p.node_name, "%s", c.node.c_str());
        context_.session.log = [this](int level, const std::string &text, uint32_t line) { print_log(text, line, level); };
        context_.session.on_record = [this](const JSON_Value *record) { check_handle_read(record); };
        if (options_.coverage) measure_coverage(*options_.coverage);
        if (options_.trace)
            simplane::set_trace([this](const std::string &call) { print_log(call + "\n", context_.session.record_line, 0); });
    }

    // The library lets an update or delete go without a handle when its hdl: names none; a name
    // no earlier record stored is almost always a misspelling, so it is a value error here.
    void check_handle_read(const JSON_Value *record) {
        const auto &handles = context_.session.handles;
        const JSON_Value *hdl = unstored_handle(json_value_get_object(record), [&](const char *name) { return handles.count(name) != 0; });
        if (!hdl) return;
        pc::support::report_value_error(&context_.process, hdl,
                                        fmt::format("hdl: unknown handle name '{}' (no earlier record stored a handle under it with "
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
        doc.erase(doc.size() - 2, 1); // the last member's comma
        fmt::print(options_.steps, "{}:{}: step {} received:\n{{\n{}}}\n", result_.path, step.line, step.number, doc);
        doc.clear();
    }

    void clear_progress() {
        if (!progress_shown_) return;
        std::fputs("\r\033[K", stderr);
        progress_shown_ = false;
    }

    // Level-1 lines are findings; level-0 lines are information.
    void print_log(const std::string &text, uint32_t line, int level = 1) {
        std::string out = fmt::format("{}:{}: {}", result_.path, line ? line : current_line_, text);
        clear_progress();
        std::fputs(out.c_str(), stderr);
        if (level != 1) return;
        std::string finding = out.substr(0, out.size() - (out.back() == '\n'));
        result_.add_finding(finding);
        trail_error(trail(), finding);
    }

    std::string fail_at(const JSON_Value *at, std::string message) {
        problem_at_ = at;
        return message;
    }

    // Runs or checks one step; returns a description of what makes it invalid, or "".
    std::string run_step(const Step &step) {
        const JSON_Object *o = json_value_get_object(step.value);
        if (!o || json_object_get_count(o) == 0)
            return fail_at(step.value, "a step is a mapping with one of send:, dump:, inject:, npu_result:, expect:");
        const char *kind = nullptr;
        JSON_Value *body = nullptr, *sdk = nullptr;
        for (size_t i = 0; i < json_object_get_count(o); ++i) {
            const char *k = json_object_get_name(o, i);
            if (!std::strcmp(k, "name")) continue;
            if (!std::strcmp(k, "sdk")) { // the SDK side's answer to the step's send
                sdk = json_object_get_value_at(o, i);
                continue;
            }
            if (kind) return fail_at(json_object_get_value_at(o, i), fmt::format("a step has one kind; '{}' and '{}' are both here", kind, k));
            kind = k;
            body = json_object_get_value_at(o, i);
        }
        if (!kind) return fail_at(sdk ? sdk : step.value, sdk ? "sdk: answers a send: in the same step, and there is none"
                                                             : "the step has no kind (send:, dump:, inject:, npu_result: or expect:)");
        std::string k = kind;
        if (sdk && k != "send") return fail_at(sdk, "sdk: answers a send: in the same step, not a " + k + ":");
        if (k == "send") return send(step, body, sdk);
        if (k == "dump") return dump(step, body);
        if (k == "inject" || k == "npu_result") return arm(step, k, body);
        if (k == "expect") return expect(step, body);
        return fail_at(body, fmt::format("unknown step kind '{}' (expected send, dump, inject, npu_result or expect)", k));
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
        bool batch = json_object_get_value(o, "batch_crud") != nullptr;
        if (batch) watch_->arm_abort();
        json_send_object_client(body, &context_.process);
        if (batch) watch_->disarm_abort();
        simplane::set_sdk_side(nullptr);
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
        if (options_.strict) {
            ++result_.failed_steps;
            result_.add_finding(line + " (--strict)");
        }
        clear_progress(); // shown even with -q: a step that ran nothing did not pass
        fmt::print(options_.steps, "{}\n", line);
        return "";
    }

    void print_findings() {
        for (const CheckFinding &f : check_->take()) {
            std::string line = fmt::format("{}:{}:{}: {}{}", result_.path, f.line, f.column, f.warning ? "warning: " : "", f.message);
            ++(f.warning ? result_.warnings : result_.problems);
            std::fputs((line + "\n").c_str(), stderr);
            result_.add_finding(line);
        }
    }

    // Reports record keys the type does not have, where the step (or a batch element) goes to an
    // object type.
    void lint(const JSON_Object *step) {
        static const char *const specials[] = {"ports", "vlan", "route", "bundle", "get_then_update_test"};
        for (const char *s : specials)
            if (json_object_get_value(step, s)) return;
        if (const JSON_Array *batch = json_value_get_array(json_object_get_value(step, "batch_crud"))) {
            for (size_t i = 1; i < json_array_get_count(batch); ++i)
                if (const JSON_Object *element = json_value_get_object(json_array_get_value(batch, i))) lint_type(element);
            return;
        }
        if (!json_object_get_value(step, "batch_crud")) lint_type(step);
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
        if (const JSON_Array *batch = json_value_get_array(json_object_get_value(step, "batch_crud"))) {
            for (size_t i = 1; i < json_array_get_count(batch) && !p.at; ++i)
                p = check_type(json_value_get_object(json_array_get_value(batch, i)));
        } else {
            p = check_type(step);
        }
        return p.at ? fail_at(p.at, p.message) : "";
    }

    void lint_type(const JSON_Object *records_by_type) {
        JSON_Value *records = nullptr;
        const engine::TypeDesc *type = engine::first_type(records_by_type, records);
        if (!type) return;
        lint_records(*type, records, [this](const JSON_Value *at, const std::string &message) {
            context_.session.stats[PC_STAT_VALUE_ERROR]++;
            print_log(message + "\n", pc_json_line(at));
        });
    }

    // While the step's send runs, every client call reaches the SDK side: the received object is
    // checked or filled from `sdk`, written out, and the records' "rc" is the status answered.
    void answer_from(JSON_Value *sdk) {
        simplane::set_sdk_side([this, sdk](uint16_t, dpa_inst_hdr_t *instance) -> std::optional<int32_t> {
            PROCESS *p = &context_.process;
            p->received_obj = reinterpret_cast<ofa_client_obj_base_t>(instance);
            int32_t status = json_receive_object_sdk(sdk, p);
            if (options_.coverage && received_by_sdk_side(sdk, instance)) note_records(json_value_get_object(sdk), coverage::kSdkAnswer);
            p->received_obj = reinterpret_cast<ofa_client_obj_base_t>(instance); // receive left its freed view there
            json_dump_object_received_sdk(p);
            return status;
        });
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
        lint_type(o);
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
        }
        if (result != -1 && options_.coverage) note_records(o, coverage::kDump);
        report(step, label, mismatches() - before_m, value_errors() - before_v);
        return "";
    }

    // inject: { op: "test_if create", status: ENOMEM, times: 2 }
    // npu_result: { op: "test_if create", results: [0, 5], times: 1 }
    std::string arm(const Step &step, const std::string &kind, JSON_Value *body) {
        const JSON_Object *o = json_value_get_object(body);
        if (!o) return fail_at(body, kind + ": takes a mapping with op:");
        const JSON_Value *op = json_object_get_value(o, "op");
        std::string problem = check_op_text(op, body);
        if (!problem.empty()) return problem;
        const JSON_Value *times = json_object_get_value(o, "times");
        int64_t n = 1;
        // a bound, because a retry loop re-issues an injected operation for as long as it fails
        if (times && (!pc_json_get_int64(times, &n) || n < 1 || n > 1000000))
            return fail_at(times, "times: is a whole number from 1 to 1000000");
        for (size_t i = 0; i < json_object_get_count(o); ++i) {
            std::string key = json_object_get_name(o, i);
            if (key != "op" && key != "times" && key != (kind == "inject" ? "status" : "results"))
                return fail_at(json_object_get_value_at(o, i), fmt::format("{}: has no '{}'", kind, key));
        }
        if (kind == "inject") {
            const JSON_Value *status = json_object_get_value(o, "status");
            if (!status) return fail_at(body, "inject: needs status: (a number or a name such as ENOMEM)");
            int32_t s = 0;
            const char *text = json_value_get_string(status);
            bool numeric = text && text[0] && std::strspn(text, "0123456789abcdefxABCDEFX") == std::strlen(text);
            if (json_value_get_type(status) == JSONString && !pc::support::status_from_name(text, s) && !numeric)
                return fail_at(status, fmt::format("unknown status '{}' (a number or a name such as ENOMEM)", text));
            if (json_value_get_type(status) != JSONString && json_value_get_type(status) != JSONNumber)
                return fail_at(status, "status: is a number or a name such as ENOMEM");
            if (std::string p = whole_number_problem(status, INT32_MIN, UINT32_MAX); !p.empty())
                return fail_at(status, "status: the value " + p);
            if (!options_.check_only)
                simplane::arm_injection(json_value_get_string(op), int32_t(json_value_get_constant(status)), uint32_t(n));
        } else {
            const JSON_Array *list = json_value_get_array(json_object_get_value(o, "results"));
            if (!list || json_array_get_count(list) > PC_MAX_NPUS)
                return fail_at(body, "npu_result: needs results: a list of at most 64 per-NPU results");
            std::vector<uint32_t> results;
            for (size_t i = 0; i < json_array_get_count(list); ++i) {
                const JSON_Value *result = json_array_get_value(list, i);
                if (std::string p = whole_number_problem(result, INT32_MIN, UINT32_MAX); !p.empty())
                    return fail_at(result, "results: the value " + p);
                results.push_back(uint32_t(json_value_get_constant(result)));
            }
            if (!options_.check_only) simplane::arm_npu_results(json_value_get_string(op), results, uint32_t(n));
        }
        if (options_.check_only) {
            check_->arm(kind, op);
            print_findings();
            return "";
        }
        report(step, kind + " " + json_value_get_string(op), 0, 0);
        return "";
    }

    std::string check_op_text(const JSON_Value *op, JSON_Value *body) {
        static const std::set<std::string> ops = {"create", "delete", "eod", "update", "get", "get_first", "get_gt_eq",
                                                  "get_next", "replay", "replay_start", "replay_end"};
        const char *s = json_value_get_string(op);
        if (!s) return fail_at(op ? op : body, "op: names the type and the operation, such as \"test_if create\"");
        std::string text = s;
        size_t space = text.find(' ');
        if (space == std::string::npos || !pc::engine::find_type(text.substr(0, space).c_str()) || !ops.count(text.substr(space + 1)))
            return fail_at(op, fmt::format("'{}' is not <object type> <operation>, such as \"test_if create\"", text));
        return "";
    }

    // expect: { mismatches: N, value_errors: N } accounts for what happened since the last expect.
    std::string expect(const Step &step, JSON_Value *body) {
        const JSON_Object *o = json_value_get_object(body);
        if (!o) return fail_at(body, "expect: takes a mapping such as { mismatches: 2 }");
        int64_t want_m = 0, want_v = 0;
        for (size_t i = 0; i < json_object_get_count(o); ++i) {
            std::string key = json_object_get_name(o, i);
            const JSON_Value *v = json_object_get_value_at(o, i);
            int64_t n;
            if (!pc_json_get_int64(v, &n) || n < 0) return fail_at(v, key + ": is a whole number");
            if (key == "mismatches") want_m = n;
            else if (key == "value_errors") want_v = n;
            else return fail_at(v, fmt::format("expect: has no '{}' (expected mismatches, value_errors)", key));
        }
        if (options_.check_only) return "";
        uint64_t got_m = mismatches() - accounted_m_, got_v = value_errors() - accounted_v_;
        accounted_m_ = mismatches();
        accounted_v_ = value_errors();
        bool ok = got_m == uint64_t(want_m) && got_v == uint64_t(want_v);
        if (ok) result_.expected += got_m + got_v;
        else ++result_.failed_steps;
        std::string what = fmt::format("{} and {} since the last expect", plural(got_m, "mismatch"), plural(got_v, "value error"));
        std::string line = fmt::format("{}:{}: step {} expect: {} ({})", result_.path, step.line, step.number, ok ? "ok" : "FAILED", what);
        if (!ok) result_.add_finding(line);
        clear_progress();
        if (!ok || !options_.quiet) fmt::print(options_.steps, "{}\n", line);
        return "";
    }

    void report(const Step &step, const std::string &label, uint64_t m, uint64_t v) {
        if (options_.quiet && m + v == 0) return;
        clear_progress(); // the progress line and the step lines share the terminal
        std::string outcome = m + v == 0 ? "ok" : fmt::format("{}, {}", plural(m, "mismatch"), plural(v, "value error"));
        fmt::print(options_.steps, "{}:{}: step {} {}: {}\n", result_.path, step.line, step.number, label, outcome);
    }

    void finish() {
        ending::set_pending_output(nullptr);
        if (options_.trace) simplane::set_trace(nullptr);
        result_.mismatches = mismatches();
        result_.value_errors = value_errors();
        clear_progress();
        std::fflush(options_.steps);
    }

    uint64_t mismatches() const { return context_.session.mismatches(); }
    uint64_t value_errors() const { return context_.session.value_errors(); }

    const Options &options_;
    FileResult result_;
    std::optional<StepCheck> check_;
    std::string label_;
    Trail own_trail_;           // where the run stands, when no parent process reads it
    EndWatch *watch_ = nullptr;
    StepSource &reader_;
    simplane::Instance plane_; // objects, handles, injections and NPU results of this file only
    pc::support::Context context_;
    uint32_t current_line_ = 0;
    const JSON_Value *problem_at_ = nullptr;
    uint64_t accounted_m_ = 0, accounted_v_ = 0;
    std::chrono::steady_clock::time_point last_progress_ = std::chrono::steady_clock::now();
    size_t file_size_ = 0;
    bool progress_shown_ = false;
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
        ScenarioReader check_reader;
        FileResult checked = FileRun(path, check, check_reader).run();
        if (!checked.passed()) {
            FileResult refused = checked;
            refused.invalid = true;
            refused.steps = 0; // none of them ran
            if (!checked.invalid)
                refused.error = fmt::format("{}: --strict refuses the file: the check found {} (listed above; planecheck check shows them)",
                                            path, plural(checked.problems, "problem"));
            refused.add_finding(refused.error);
            return refused;
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

} // namespace pc::runner
