#include "replay.hpp"

#include "descriptors.hpp"
#include "engine.hpp"
#include "planecheck/session.hpp"
#include "planecheck/vocabulary.hpp"
#include "json_text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <optional>
#include <span>
#include <unordered_set>
#include <unordered_map>
#include <vector>

namespace pc::recording {
namespace v = pc::vocabulary;
namespace {

using engine::AttrDesc;
using engine::RoleDesc;
using engine::TypeDesc;

constexpr int kInjectedClass = 12;

std::string unquoted(const std::string &text) {
    return text.size() >= 2 && text.front() == '"' && text.back() == '"' ? text.substr(1, text.size() - 2) : text;
}

bool ends_with(const std::string &s, const char *tail) {
    size_t n = std::strlen(tail);
    return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

uint64_t hex_value(std::string text, bool &ok) {
    text = unquoted(text);
    if (text.rfind("handle ", 0) == 0) text = text.substr(7);
    ok = text.rfind("0x", 0) == 0;
    if (!ok) return 0;
    char *end = nullptr;
    uint64_t v = std::strtoull(text.c_str() + 2, &end, 16);
    ok = end && *end == '\0';
    return v;
}

int status_of(const Entry &e) {
    const Field *err = e.find("err");
    return err ? std::atoi(err->value.c_str()) : 0;
}

std::string op_of(const Entry &e) {
    const Field *op = e.find("op");
    return op ? unquoted(op->value) : std::string();
}

// Fields the recorder writes about the operation rather than the object; they are turned back
// into control keys one by one, or dropped where the data plane gives them again.
bool is_control(const std::string &name) {
    static const char *const names[] = {"npu_id", "recorder_timestamp", "get_option", "npd_state", "update_option", "err",
                                        "npu_result", "op", "hdl", "retry_mode", "create_option", "npu_mask"};
    for (const char *n : names)
        if (name == n) return true;
    return false;
}

// What a record key names in a type: an attribute, or one side of a reference pair.
struct Target {
    const AttrDesc *attr = nullptr;
    const RoleDesc *role = nullptr;
    bool key_form = false;
};

class TypeIndex {
public:
    explicit TypeIndex(const TypeDesc &type) {
        for (const AttrDesc &a : type.top()) top_[a.name] = {&a, nullptr, false};
        for (const AttrDesc &a : type.elements()) element_[a.name] = {&a, nullptr, false};
        for (const RoleDesc &r : type.top_roles()) add_role(top_, r);
        for (const RoleDesc &r : type.element_roles()) add_role(element_, r);
    }
    const Target *find(const std::string &name, bool element) const {
        const auto &m = element ? element_ : top_;
        auto it = m.find(name);
        return it == m.end() ? nullptr : &it->second;
    }

private:
    static void add_role(std::unordered_map<std::string, Target> &m, const RoleDesc &r) {
        m[r.hdl_key] = {nullptr, &r, false};
        m[r.key_key] = {nullptr, &r, true};
    }
    std::unordered_map<std::string, Target> top_, element_;
};

// One "send_object" record turned into an operation record, or the reason it cannot be.
struct Operation {
    const TypeDesc *type = nullptr;
    const Record *record = nullptr;
    std::string op;      // the scenario's op text
    int status = 0;      // the recorded status class
    ReplayRecord body;
    std::string problem;
    uint32_t problem_line = 0; // the line of the field at fault, else the record's
};

} // namespace

struct Replayer::Impl {
    Impl(const std::string &path, const ReplayOptions &options, ProblemSink sink)
        : path_(path), options_(options), sink_(std::move(sink)) {
        scratch_.session.log = [this](int, const std::string &text, uint32_t) { refused_ = text; };
    }

    bool open() {
        std::string error;
        if (!reader_.open(path_, error)) {
            problem({path_, 0, error});
            return false;
        }
        reader_.on_problem([this](const Problem &p) { problem(p); });
        read_settings();
        return true;
    }

    // Works through records until a step is ready; false at the end.
    bool next(ReplayStep &step) {
        while (ready_.empty()) {
            if (!fill(2)) {
                flush_group();
                if (ready_.empty()) {
                    summary_.records = reader_.records_seen();
                    return false;
                }
                break;
            }
            Record &r = ahead_.front();
            if (r.section == "receive_call") receive_call();
            else if (r.section == "send_object") send_object();
            else {
                problem({path_, r.line, fmt::format("record {} has the section \"{}\", which is neither send_object nor receive_call; it is left out", r.number, r.section)});
                ahead_.pop_front();
            }
        }
        step = std::move(ready_.front());
        ready_.pop_front();
        summary_.records = reader_.records_seen();
        return true;
    }

    void problem(const Problem &p) {
        ++summary_.problems;
        if (sink_) sink_(p);
    }

    bool fill(size_t n) {
        while (ahead_.size() < n) {
            Record r;
            if (!reader_.next(r)) break;
            ahead_.push_back(std::move(r));
        }
        return !ahead_.empty();
    }

    // The settings a recording does not carry are read from what it shows: a flag-gated type or
    // reference pair tells the object set, a state text the node and the number of NPUs. The same
    // look ahead notes which handles later records refer to: only those are given names.
    void read_settings() {
        int object_set = -1, npus = 4;
        bool state_seen = false;
        const TypeDesc *type = nullptr;
        for_each_line(path_, [&](std::string_view line) {
            size_t quote = line.find('"');
            if (quote == std::string_view::npos) return;
            std::string_view text = line.substr(quote);
            if (quote == 4 && text.size() > 5 && text.substr(text.size() - 4) == "\": [") { // the type line
                type = engine::find_type(std::string(text.substr(1, text.size() - 5)).c_str());
                if (type && object_set < 0 && type->gate != engine::Gate::None) object_set = type->gate == engine::Gate::Nonzero ? 1 : 0;
                return;
            }
            size_t close = text.find("\": ");
            if (close == std::string_view::npos) return;
            std::string_view name = text.substr(1, close - 1), value = text.substr(close + 3);
            if (!value.empty() && value.back() == ',') value.remove_suffix(1);
            if (name.size() > 7 && name.substr(name.size() - 7) == "_refhdl") {
                bool ok = false;
                uint64_t h = hex_value(std::string(value), ok);
                if (ok) referenced_.insert(h);
                if (type && object_set < 0) object_set = reference_gate(*type, name);
            } else if (name.size() > 7 && name.substr(name.size() - 7) == "_refkey") {
                if (type && object_set < 0) object_set = reference_gate(*type, name);
            } else if (name == "hdl") {
                // a handle written again after its create is one that a later operation names
                bool ok = false;
                uint64_t h = hex_value(std::string(value), ok);
                if (ok && !handles_seen_.insert(h).second) referenced_.insert(h);
            } else if (name == "npd_state" && !state_seen) {
                state_seen = read_state(std::string(value), config_.node, npus);
            }
        });
        config_.object_set = options_.object_set.value_or(std::max(object_set, 0));
        config_.mode = options_.mode.value_or(1);
        config_.npus = uint32_t(npus);
    }

    // A reference pair to a flag-gated type is written only while its target is active.
    static int reference_gate(const TypeDesc &t, std::string_view name) {
        for (const RoleDesc &r : t.roles)
            if (r.gate != engine::Gate::None && (name == r.hdl_key || name == r.key_key)) return r.gate == engine::Gate::Nonzero ? 1 : 0;
        return -1;
    }

    // {"node0": "state=programmed hdl=0x1002 npus=4"}
    static bool read_state(const std::string &text, std::string &node, int &npus) {
        size_t q1 = text.find('"'), q2 = q1 == std::string::npos ? q1 : text.find('"', q1 + 1);
        if (q2 == std::string::npos) return false;
        node = text.substr(q1 + 1, q2 - q1 - 1);
        size_t at = text.find("npus=");
        if (at != std::string::npos) npus = std::max(1, std::atoi(text.c_str() + at + 5));
        return true;
    }

    const TypeIndex &index_of(const TypeDesc &t) {
        auto it = indexes_.find(t.number);
        if (it == indexes_.end()) it = indexes_.emplace(t.number, TypeIndex(t)).first;
        return it->second;
    }

    // A value the type's converter refuses is a problem of the record.
    bool converts(const AttrDesc *attr, const RoleDesc *role, const Field &f, std::string &why) {
        uint16_t value_type = attr ? attr->value_type : role->key_value_type;
        buffer_.assign(std::max<size_t>(attr ? attr->width : role->key_width, 16) + 64, 0);
        arena_.reset();
        JSON_Value *value = parse_json(arena_, f.value, f.line);
        refused_.clear();
        int rc = value ? engine::kValueTypes[value_type].convert(&scratch_.process, buffer_.data(), value, f.name.c_str()) : -1;
        if (rc == 0 && refused_.empty()) return true;
        why = fmt::format("the value {} of \"{}\" is refused ({})", f.value, f.name,
                          refused_.empty() ? "not a value" : refused_.substr(0, refused_.find('\n')));
        return false;
    }

    // A recorded handle value: the name given to it at its create, else the number itself.
    std::string handle_text(const std::string &value) {
        bool ok = false;
        uint64_t h = hex_value(value, ok);
        if (!ok) return value;
        auto it = handle_names_.find(h);
        return it != handle_names_.end() ? "\"" + it->second + "\"" : std::to_string(h);
    }

    using Values = std::vector<Field>;

    static void add_value(Values &out, const std::string &key, std::string json, uint32_t line) {
        out.push_back({key, std::move(json), line});
    }

    bool fields_of(const TypeDesc &t, const std::vector<Field> &fields, bool element, Values &out, std::string &why) {
        const TypeIndex &index = index_of(t);
        bool count_seen = false;
        for (const Field &f : fields) {
            // the NPU id line opens the entry of a type without an NPU mask; a type may also have
            // an attribute of that name, further down
            if (!element && &f == &fields.front() && f.name == "npu_id" && !t.npu_mask) continue;
            const Target *target = index.find(f.name, element);
            if (!element && !target && is_control(f.name)) continue;
            if (!element && t.count_key && f.name == t.count_key) {
                // the count line follows the attributes and is always written, so the name
                // stands twice where a type's attribute of that name is set; the members list
                // is padded to the count instead, which sizes the object and sets nothing
                bool attribute = !count_seen && std::count_if(fields.begin(), fields.end(), [&](const Field &g) { return g.name == f.name; }) > 1;
                count_seen = true;
                if (!attribute) continue;
            }
            Values *into = &out;
            if (!target && !element && !t.sized() && (target = index.find(f.name, true)))
                into = &loose_element_; // an element attribute of a type without a members list is recorded at the top
            if (!target) {
                why = fmt::format("\"{}\" is no {}attribute of {}", f.name, element ? "member " : "", t.name);
                why_line_ = f.line;
                return false;
            }
            if (ends_with(f.name, "_refhdl")) {
                add_value(*into, f.name, handle_text(f.value), f.line);
                continue;
            }
            if (target->attr && target->attr->kind == engine::Kind::ReadOnly) continue; // the data plane fills it
            if (!check(*target, f, why)) return false;
            add_value(*into, f.name, f.value, f.line);
        }
        return true;
    }

    bool check(const Target &target, const Field &f, std::string &why) {
        if (converts(target.attr, target.role, f, why)) return true;
        why_line_ = f.line;
        return false;
    }

    bool members_of(const TypeDesc &t, const Entry &e, ReplayRecord &out, std::string &why) {
        size_t count = std::max<size_t>(e.members.size(), loose_element_.empty() ? 0 : 1);
        if (t.count_key)
            for (const Field &c : e.fields) // the count line is the last field of the name
                if (c.name == t.count_key) count = std::max<size_t>(e.members.size(), std::strtoul(c.value.c_str(), nullptr, 10));
        out.members.assign(count, {});
        for (size_t i = 0; i < e.members.size(); ++i)
            if (!fields_of(t, e.members[i].fields, true, out.members[i], why)) return false;
        if (e.members.empty() && count) out.members[0] = std::move(loose_element_);
        return true;
    }

    // The key a successful get_next started from is not in its record (which shows the object
    // found): it is taken from the type's record just before, as a walk of get_first and
    // get_next goes.
    void start_key_of_get_next(const TypeDesc &t, Entry &e) {
        auto it = last_keys_.find(t.number);
        if (it == last_keys_.end()) return;
        for (Field &f : e.fields)
            for (const Field &k : it->second)
                if (f.name == k.name) f.value = k.value;
    }

    void remember_key(const TypeDesc &t, const Entry &e) {
        std::vector<Field> &keys = last_keys_[t.number];
        keys.clear();
        for (const AttrDesc &k : t.keys())
            if (const Field *f = e.find(k.name)) keys.push_back(*f);
    }

    // The object's own values of an entry: attributes, references, members.
    bool object_values(const TypeDesc &t, const Entry &e, ReplayRecord &out, std::string &why) {
        loose_element_.clear();
        why_line_ = 0;
        return fields_of(t, e.fields, false, out.fields, why) && members_of(t, e, out, why);
    }

    // An operation re-issued after injected errors is replayed as its first attempt, the object that
    // the scenario's record built: its handle, options and NPU results are that attempt's. Only what
    // ended the re-issues comes from the last attempt, `outcome`: the status judged, and on a create
    // the handle returned, which later records name.
    Operation operation(Record &r, const Record &outcome) {
        Operation o;
        o.record = &r;
        o.body.line = r.line;
        o.type = engine::find_type(r.type.c_str());
        if (!o.type) {
            o.problem = fmt::format("record {} is of the unknown object type \"{}\"; it is left out", r.number, r.type);
            return o;
        }
        if (r.entries.empty()) {
            o.problem = fmt::format("record {} has no entry; it is left out", r.number);
            return o;
        }
        const Entry &recorded = r.entries[0]; // the instances of a batch record repeat the same attribute values
        std::string recorded_op = op_of(recorded);
        o.op = recorded_op == "walk_bykey" ? "walk_by_key" : recorded_op; // the recorder spells the walk so
        o.status = outcome.entries.empty() ? status_of(recorded) : status_of(outcome.entries[0]);
        const TypeDesc &t = *o.type;
        const Field *op_field = recorded.find("op");
        Values &v = o.body.fields;
        add_value(v, "op", "\"" + o.op + "\"", op_field ? op_field->line : r.line);
        if (o.op == "replay" || o.op == "replay_start" || o.op == "replay_end") return o;
        std::string why;
        bool readable;
        if (o.op == "get_next" && o.status == 0) {
            Entry e = recorded;
            start_key_of_get_next(t, e);
            readable = object_values(t, e, o.body, why);
        } else {
            readable = object_values(t, recorded, o.body, why);
        }
        remember_key(t, recorded);
        if (!readable) {
            o.problem = fmt::format("record {} cannot be replayed: {}; it is left out", r.number, why);
            o.problem_line = why_line_;
            return o;
        }
        bool retry = false;
        for (const Field &f : recorded.fields) {
            if (f.name.empty() || !std::strchr("rcnh", f.name[0])) continue; // none of the control keys below
            if (f.name == "retry_mode" && !index_of(t).find(f.name, false)) {
                if (!retry) add_value(v, "retry_mode", "1", f.line); // an update writes it twice
                retry = true;
            } else if ((f.name == "create_option" || f.name == "npu_mask") && !index_of(t).find(f.name, false)) {
                add_value(v, f.name, f.value, f.line);
            } else if (f.name == "npu_result") {
                add_value(v, f.name, f.value, f.line);
            } else if (f.name == "hdl" && o.op != "create") {
                add_value(v, "hdl", handle_text(f.value), f.line); // the operation names its object by handle
            }
        }
        if (o.op == "create" && !outcome.entries.empty()) name_returned_handle(outcome.entries[0], v);
        if (o.op != "walk_by_key") add_value(v, "rc", std::to_string(o.status), op_field ? op_field->line : r.line);
        return o;
    }

    // A create's "hdl" sets nothing on the object: it names the handle returned, where a later
    // record refers to it.
    void name_returned_handle(const Entry &outcome, Values &v) {
        const Field *returned = outcome.find("hdl");
        bool ok = false;
        uint64_t h = returned ? hex_value(returned->value, ok) : 0;
        if (ok && referenced_.count(h)) add_value(v, "hdl", "\"" + name_handle(h) + "\"", returned->line);
    }

    std::string name_handle(uint64_t h) {
        std::string name = fmt::format("h{:x}", h);
        if (unsigned n = ++handle_uses_[h]; n > 1) name += fmt::format("_{}", n); // the value was given out again
        handle_names_[h] = name;
        return name;
    }

    // Whether a record is the same operation again: what a retry after an injected error writes.
    // The status, the handle and the per-NPU results are the data plane's answer to each attempt.
    static bool same_operation(const Record &a, const Record &b) {
        if (a.section != b.section || a.type != b.type || a.entries.empty() || b.entries.empty()) return false;
        const Entry &x = a.entries[0], &y = b.entries[0];
        if (op_of(x) != op_of(y) || x.members.size() != y.members.size()) return false;
        auto plain = [](const Entry &e) {
            std::vector<const Field *> v;
            for (const Field &f : e.fields)
                if (f.name != "recorder_timestamp" && f.name != "err" && f.name != "hdl" && f.name != "npu_result") v.push_back(&f);
            return v;
        };
        auto fx = plain(x), fy = plain(y);
        if (fx.size() != fy.size()) return false;
        for (size_t i = 0; i < fx.size(); ++i)
            if (fx[i]->name != fy[i]->name || fx[i]->value != fy[i]->value) return false;
        return true;
    }

    void report(const Operation &o, const Record &r) { problem({path_, o.problem_line ? o.problem_line : r.line, o.problem}); }

    Record take_ahead() {
        Record r = std::move(ahead_.front());
        ahead_.pop_front();
        return r;
    }

    static bool reissued_after_injection(const Record &r) {
        if (r.entries.empty()) return false;
        std::string op = op_of(r.entries[0]);
        return (op == "create" || op == "update") && status_of(r.entries[0]) == kInjectedClass;
    }

    // The next attempt of an operation being re-issued: the same record again or, where the SDK
    // side answered the attempt, its received object first. An injected error returns before the
    // SDK side is asked, so only the attempt that ends the re-issues can have been answered.
    bool next_attempt(std::vector<Record> &attempts, std::optional<Record> &received) {
        fill(2);
        if (!ahead_.empty() && ahead_[0].section == "send_object" && same_operation(attempts.front(), ahead_[0])) {
            attempts.push_back(take_ahead());
            return true;
        }
        if (ahead_.size() < 2 || !answers(ahead_[0], ahead_[1]) || !same_operation(attempts.front(), ahead_[1]) ||
            status_of(ahead_[1].entries[0]) == kInjectedClass)
            return false;
        received = take_ahead();
        attempts.push_back(take_ahead());
        return true;
    }

    void send_object() {
        std::vector<Record> &attempts = attempts_; // kept between records: no allocation per record
        attempts.clear();
        attempts.push_back(take_ahead());
        std::optional<Record> received;
        size_t injected = 0;
        if (reissued_after_injection(attempts[0])) {
            // the retry loop re-issues the operation while the injected error lasts: one record each
            injected = 1;
            while (next_attempt(attempts, received) && status_of(attempts.back().entries[0]) == kInjectedClass) ++injected;
            if (status_of(attempts.back().entries[0]) == kInjectedClass) {
                // nothing ended the loop: each failure was expected, so each stands alone
                standalone_injections(attempts);
                return;
            }
        }
        Operation o = operation(attempts.front(), attempts.back());
        if (!o.problem.empty()) return report(o, attempts.front());
        ReplayRecord answer;
        if (received && !answer_of(*received, o.status, answer)) return;
        if (injected || o.status == kInjectedClass) arm_injection(o, injected ? injected : 1);
        arm_npu_results(o, attempts);
        add(std::move(o), received ? &answer : nullptr);
    }

    void standalone_injections(std::vector<Record> &attempts) {
        for (Record &r : attempts) {
            Operation o = operation(r, r);
            if (!o.problem.empty()) {
                report(o, r);
                continue;
            }
            arm_injection(o, 1);
            arm_npu_results(o, std::span<const Record>(&r, 1));
            add(std::move(o), nullptr);
        }
    }

    // A received object belongs to the client operation that follows it: the SDK side wrote it
    // while that operation was under way.
    static bool answers(const Record &received, const Record &sent) {
        return engine::find_type(received.type.c_str()) && !received.entries.empty() && sent.section == "send_object" &&
               sent.type == received.type && !sent.entries.empty() &&
               receive_op(op_of(sent.entries[0])) == op_of(received.entries[0]);
    }

    void receive_call() {
        fill(2);
        if (ahead_.size() < 2 || !answers(ahead_[0], ahead_[1])) {
            const Record &received = ahead_.front();
            problem({path_, received.line, fmt::format("receive_call record {} is not followed by a client operation of its type and op; it is left out", received.number)});
            ahead_.pop_front();
            return;
        }
        Record received = take_ahead();
        Record sent = take_ahead();
        Operation o = operation(sent, sent);
        if (!o.problem.empty()) return report(o, sent);
        ReplayRecord answer;
        if (!answer_of(received, o.status, answer)) return;
        arm_npu_results(o, std::span<const Record>(&sent, 1));
        add(std::move(o), &answer);
    }

    // The SDK side's answer: the object as it received it, and the status the operation met.
    bool answer_of(const Record &received, int status, ReplayRecord &answer) {
        answer.line = received.line;
        add_value(answer.fields, "op", "\"" + op_of(received.entries[0]) + "\"", received.line);
        std::string why;
        if (!object_values(*engine::find_type(received.type.c_str()), received.entries[0], answer, why)) {
            problem({path_, why_line_ ? why_line_ : received.line, fmt::format("receive_call record {} cannot be replayed: {}; it is left out", received.number, why)});
            return false;
        }
        add_value(answer.fields, "rc", std::to_string(status), received.line);
        return true;
    }

    // The op a received object reports for a client operation.
    static std::string receive_op(const std::string &op) {
        if (op == "create" || op == "delete" || op == "update" || op == "get" || op == "get_first" || op == "get_next") return op;
        return "";
    }

    void arm(const char *kind, const Operation &o, Values values) {
        flush_group();
        ReplayStep step;
        step.kind = kind;
        ReplayRecord &r = step.records.emplace_back();
        r.line = o.record->line;
        r.fields.push_back({v::kStepFieldOp, fmt::format("\"{} {}\"", o.type->name, o.op), o.record->line});
        for (Field &v : values) r.fields.push_back(std::move(v));
        ready_.push_back(std::move(step));
    }

    void arm_injection(const Operation &o, size_t times) {
        uint32_t line = o.record->line;
        arm(v::kStepInject, o, {{v::kStepFieldStatus, std::to_string(kInjectedClass), line}, {v::kStepFieldTimes, std::to_string(times), line}});
    }

    // Each attempt of an operation takes the results armed next for it, in order: one step per run
    // of attempts that showed the same results. An attempt that showed none before one that did
    // takes zeros, which the recorder leaves out as it left out the original's none.
    void arm_npu_results(const Operation &o, std::span<const Record> attempts) {
        auto shows_results = [](const Record &a) { return !a.entries.empty() && a.entries[0].find("npu_result"); };
        if (std::none_of(attempts.begin(), attempts.end(), shows_results)) return;
        std::vector<std::string> shown;
        for (const Record &a : attempts) {
            const Field *results = a.entries.empty() ? nullptr : a.entries[0].find("npu_result");
            shown.push_back(results ? results->value : "");
        }
        while (!shown.empty() && shown.back().empty()) shown.pop_back();
        for (size_t i = 0, run_end; i < shown.size(); i = run_end) {
            for (run_end = i + 1; run_end < shown.size() && shown[run_end] == shown[i];) ++run_end;
            uint32_t line = attempts[i].line;
            arm(v::kStepNpuResult, o, {{v::kStepFieldResults, shown[i].empty() ? "[ 0 ]" : shown[i], line},
                                       {v::kStepFieldTimes, std::to_string(run_end - i), line}});
        }
    }

    // Consecutive records of one type share a step. A walk records the status its array's last
    // operation left, so it joins the group only where that status is the one it recorded.
    void add(Operation o, ReplayRecord *answer) {
        bool walk = o.op == "walk_by_key";
        bool replay = o.op.rfind("replay", 0) == 0;
        if (answer || replay || group_.type != o.type->name || group_.records.size() >= options_.records_per_step ||
            (walk && group_status_ != o.status))
            flush_group();
        if (walk && o.status != group_status_)
            problem({path_, o.record->line, fmt::format("record {}: the walk recorded status {}, which no operation before it in the replay leaves; replayed with status {}", o.record->number, o.status, group_status_)});
        group_.kind = v::kStepSend;
        group_.type = o.type->name;
        group_.records.push_back(std::move(o.body));
        ++summary_.operations;
        if (!walk && !replay && (o.op != "eod" || o.type->eod)) group_status_ = o.status;
        if (answer) group_.sdk = std::move(*answer);
        if (answer || replay) flush_group(); // a replay op acts only as the first record of its array
    }

    void flush_group() {
        if (!group_.records.empty()) ready_.push_back(std::move(group_));
        group_ = ReplayStep{};
        group_status_ = 0;
    }

    std::string path_;
    const ReplayOptions options_;
    ProblemSink sink_;
    ReplayConfig config_;
    Reader reader_;
    std::deque<Record> ahead_;
    std::vector<Record> attempts_; // of the operation being turned back
    std::deque<ReplayStep> ready_;
    ReplaySummary summary_;
    pc::support::Context scratch_; // converters check values against it; nothing runs
    Arena arena_{4096};
    std::vector<uint8_t> buffer_;
    std::string refused_;
    Values loose_element_; // element attributes recorded at the top, for element 0
    uint32_t why_line_ = 0;
    std::unordered_map<uint16_t, TypeIndex> indexes_;
    std::unordered_set<uint64_t> referenced_, handles_seen_;
    std::unordered_map<uint64_t, std::string> handle_names_;
    std::unordered_map<uint64_t, unsigned> handle_uses_;
    std::unordered_map<uint16_t, std::vector<Field>> last_keys_;
    ReplayStep group_;
    int group_status_ = 0;
};

Replayer::Replayer(const std::string &recording, const ReplayOptions &options, ProblemSink problem)
    : impl_(std::make_unique<Impl>(recording, options, std::move(problem))) {}
Replayer::~Replayer() = default;
bool Replayer::open() { return impl_->open(); }
const ReplayConfig &Replayer::config() const { return impl_->config_; }
bool Replayer::next(ReplayStep &step) { return impl_->next(step); }
ReplaySummary Replayer::summary() const { return impl_->summary_; }
size_t Replayer::bytes_read() const { return impl_->reader_.bytes_read(); }

namespace {

std::string yaml_string(const std::string &s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + '"';
}

void print_values(FILE *out, const std::vector<Field> &values) {
    for (size_t i = 0; i < values.size(); ++i) fmt::print(out, "{}{}: {}", i ? ", " : "", values[i].name, values[i].value);
}

void print_record(FILE *out, const ReplayRecord &r) {
    std::fputs("{ ", out);
    print_values(out, r.fields);
    if (!r.members.empty()) {
        std::fputs(", members: [", out);
        for (size_t i = 0; i < r.members.size(); ++i) {
            std::fputs(i ? ", {" : "{", out);
            print_values(out, r.members[i]);
            std::fputs("}", out);
        }
        std::fputs("]", out);
    }
    std::fputs(" }", out);
}

void print_step(FILE *out, const ReplayStep &step, const std::string &path) {
    if (step.kind != v::kStepSend) {
        fmt::print(out, "  - {}: ", step.kind);
        print_record(out, step.records[0]);
        std::fputs("\n", out);
    } else if (step.sdk) {
        fmt::print(out, "  - send: {{ {}: [ ", step.type);
        print_record(out, step.records[0]);
        fmt::print(out, " ] }}   # {}:{}\n    sdk: {{ {}: [ ", path, step.records[0].line, step.type);
        print_record(out, *step.sdk);
        std::fputs(" ] }\n", out);
    } else {
        fmt::print(out, "  - send:\n      {}:\n", step.type);
        for (const ReplayRecord &r : step.records) {
            std::fputs("        - ", out);
            print_record(out, r);
            fmt::print(out, "   # {}:{}\n", path, r.line);
        }
    }
}

const char *name_at(Arena &arena, const std::string &s) { return arena.copy_string(s); }

JSON_Value *object_of(Arena &arena, const std::vector<Field> &values, const std::vector<std::vector<Field>> *members,
                      uint32_t line) {
    size_t n = values.size() + (members && !members->empty() ? 1 : 0);
    const char **names = arena.make_array<const char *>(n);
    JSON_Value **items = arena.make_array<JSON_Value *>(n);
    for (size_t i = 0; i < values.size(); ++i) {
        names[i] = name_at(arena, values[i].name);
        items[i] = parse_json(arena, values[i].value, values[i].line);
        if (!items[i]) items[i] = json::make_null(arena, {values[i].line, 1});
    }
    if (n > values.size()) {
        std::vector<JSON_Value *> elements;
        for (const auto &m : *members) elements.push_back(object_of(arena, m, nullptr, line));
        names[n - 1] = "members";
        items[n - 1] = json::make_array(arena, elements.data(), elements.size(), {line, 1});
    }
    return json::make_object(arena, names, items, n, {line, 1});
}

JSON_Value *by_type(Arena &arena, const std::string &type, const std::vector<ReplayRecord> &records) {
    std::vector<JSON_Value *> list;
    for (const ReplayRecord &r : records) list.push_back(object_of(arena, r.fields, &r.members, r.line));
    uint32_t line = records.empty() ? 0 : records[0].line;
    const char *name = name_at(arena, type);
    JSON_Value *array = json::make_array(arena, list.data(), list.size(), {line, 1});
    return json::make_object(arena, &name, &array, 1, {line, 1});
}

} // namespace

JSON_Value *step_value(Arena &arena, const ReplayStep &step) {
    uint32_t line = step.records.empty() ? 0 : step.records[0].line;
    const char *names[2] = {name_at(arena, step.kind), v::kMemberSdk};
    JSON_Value *values[2];
    if (step.kind == v::kStepSend) {
        values[0] = by_type(arena, step.type, step.records);
        if (step.sdk) values[1] = by_type(arena, step.type, {*step.sdk});
    } else {
        values[0] = object_of(arena, step.records[0].fields, nullptr, line);
    }
    return json::make_object(arena, names, values, step.sdk ? 2 : 1, {line, 1});
}

ReplaySummary write_scenario(const std::string &recording, FILE *out, const ReplayOptions &options,
                             const ProblemSink &problem) {
    Replayer replayer(recording, options, problem);
    if (!replayer.open()) return replayer.summary();
    const ReplayConfig &c = replayer.config();
    fmt::print(out, "# The operations of {}, replayed by planecheck replay.\n", recording);
    fmt::print(out, "name: {}\n", yaml_string("replay of " + recording));
    fmt::print(out, "config: {{ mode: {}, object_set: {}, npus: {}, node: {} }}\nsteps:\n", c.mode ? "client" : "server",
               c.object_set, c.npus, yaml_string(c.node));
    for (ReplayStep step; replayer.next(step);) print_step(out, step, recording);
    return replayer.summary();
}

} // namespace pc::recording
