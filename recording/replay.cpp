#include "replay.hpp"

#include "descriptors.hpp"
#include "engine.hpp"
#include "planecheck/session.hpp"
#include "yaml_loader.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <unordered_map>
#include <vector>

namespace pc::recording {
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
    std::string body;    // the record's members, without braces
    std::string npu_results; // "5, 7" when the record carries results
    std::string problem;
    uint32_t problem_line = 0; // the line of the field at fault, else the record's
};

class Replayer {
public:
    Replayer(const std::string &path, FILE *out, const ReplayOptions &options, const ProblemSink &sink)
        : path_(path), out_(out), options_(options), sink_(sink) {
        scratch_.session.log = [this](int, const std::string &text, uint32_t) { refused_ = text; };
    }

    ReplaySummary run() {
        std::string error;
        if (!reader_.open(path_, error)) {
            problem({path_, 0, error});
            return summary_;
        }
        reader_.on_problem([this](const Problem &p) { problem(p); });
        write_header();
        for (;;) {
            if (!fill(2)) break;
            Record &r = ahead_.front();
            if (r.section == "receive_call") receive_call();
            else if (r.section == "send_object") send_object();
            else {
                problem({path_, r.line, fmt::format("record {} has the section \"{}\", which is neither send_object nor receive_call; it is left out", r.number, r.section)});
                ahead_.pop_front();
            }
        }
        flush_group();
        summary_.records = reader_.records_seen();
        return summary_;
    }

private:
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
    // reference pair tells the object set, a state text the node and the number of NPUs.
    void write_header() {
        int object_set = -1, npus = 4;
        std::string node = "node0";
        bool state_seen = false;
        Reader scan;
        std::string error;
        if (scan.open(path_, error)) {
            Record r;
            while ((object_set < 0 || !state_seen) && scan.next(r)) {
                const TypeDesc *t = engine::find_type(r.type.c_str());
                if (!t || r.entries.empty()) continue;
                if (object_set < 0) object_set = gate_shown(*t, r.entries[0]);
                if (const Field *state = r.entries[0].find("npd_state"); state && !state_seen) state_seen = read_state(state->value, node, npus);
            }
        }
        if (options_.object_set) object_set = *options_.object_set;
        fmt::print(out_, "# The operations of {}, replayed by planecheck replay.\n", path_);
        fmt::print(out_, "name: {}\n", yaml_string("replay of " + path_));
        fmt::print(out_, "config: {{ mode: {}, object_set: {}, npus: {}, node: {} }}\nsteps:\n",
                   options_.mode.value_or(1) ? "client" : "server", std::max(object_set, 0), npus, yaml_string(node));
    }

    static int gate_shown(const TypeDesc &t, const Entry &e) {
        if (t.gate != engine::Gate::None) return t.gate == engine::Gate::Nonzero ? 1 : 0;
        for (const RoleDesc &r : t.roles)
            if (r.gate != engine::Gate::None && (e.find(r.hdl_key) || e.find(r.key_key)))
                return r.gate == engine::Gate::Nonzero ? 1 : 0;
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

    static std::string yaml_string(const std::string &s) {
        std::string out = "\"";
        for (char c : s) {
            if (c == '"' || c == '\\') out += '\\';
            out += c;
        }
        return out + '"';
    }

    const TypeIndex &index_of(const TypeDesc &t) {
        auto it = indexes_.find(t.number);
        if (it == indexes_.end()) it = indexes_.emplace(t.number, TypeIndex(t)).first;
        return it->second;
    }

    // A value the type's converter refuses is a problem of the record.
    bool converts(const AttrDesc *attr, const RoleDesc *role, const Field &f, std::string &why) {
        uint16_t value_type = attr ? attr->value_type : role->key_value_type;
        std::vector<uint8_t> buffer(std::max<size_t>(attr ? attr->width : role->key_width, 16) + 64);
        Arena arena(4096);
        JSON_Value *value = nullptr;
        if (f.value[0] == '"') {
            yaml::LoadError error;
            value = yaml::load_string(f.value, path_, arena, error);
        } else if (f.value[0] == '{' || f.value[0] == '[') {
            yaml::LoadError error;
            value = yaml::load_string(f.value, path_, arena, error);
        } else {
            value = json::resolve_plain_scalar(arena, f.value, {f.line, 1});
        }
        refused_.clear();
        int rc = value ? engine::kValueTypes[value_type].convert(&scratch_.process, buffer.data(), value, f.name.c_str()) : -1;
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
        return it != handle_names_.end() ? it->second : std::to_string(h);
    }

    bool fields_text(const TypeDesc &t, const std::vector<Field> &fields, bool element, std::string &out, std::string &why) {
        const TypeIndex &index = index_of(t);
        bool count_seen = false;
        for (const Field &f : fields) {
            // the NPU id line opens the entry of a type without an NPU mask; a type may also have
            // an attribute of that name, further down
            if (!element && &f == &fields.front() && f.name == "npu_id" && !t.npu_mask) continue;
            if (!element && is_control(f.name) && !index.find(f.name, false)) continue;
            if (!element && t.count_key && f.name == t.count_key) {
                // the count line follows the attributes (a type may have an attribute of its name
                // too): the members list is padded to the count instead, which sizes the object
                // without setting anything
                // the count line is always written, so the name stands twice where the attribute is set
                bool attribute = !count_seen && std::count_if(fields.begin(), fields.end(), [&](const Field &g) { return g.name == f.name; }) > 1;
                count_seen = true;
                if (!attribute) continue;
            }
            const Target *target = index.find(f.name, element);
            if (!target && !element && !t.sized()) {
                // an element attribute of a type without a members list is recorded at the top
                if ((target = index.find(f.name, true))) {
                    if (!check(*target, f, why)) return false;
                    append(loose_element_, f.name, f.name.size() > 7 && ends_with(f.name, "_refhdl") ? handle_text(f.value) : f.value);
                    continue;
                }
            }
            if (!target) {
                why = fmt::format("\"{}\" is no {}attribute of {}", f.name, element ? "member " : "", t.name);
                why_line_ = f.line;
                return false;
            }
            bool handle = ends_with(f.name, "_refhdl");
            if (handle) {
                append(out, f.name, handle_text(f.value));
                continue;
            }
            if (target->attr && target->attr->kind == engine::Kind::ReadOnly) continue; // the data plane fills it
            if (!check(*target, f, why)) return false;
            append(out, f.name, f.value);
        }
        return true;
    }

    bool check(const Target &target, const Field &f, std::string &why) {
        if (ends_with(f.name, "_refhdl") || converts(target.attr, target.role, f, why)) return true;
        why_line_ = f.line;
        return false;
    }

    static void append(std::string &out, const std::string &name, const std::string &value) {
        if (!out.empty()) out += ", ";
        out += name;
        out += ": ";
        out += value;
    }

    bool members_text(const TypeDesc &t, const Entry &e, std::string &out, std::string &why) {
        size_t count = std::max<size_t>(e.members.size(), loose_element_.empty() ? 0 : 1);
        if (t.count_key)
            for (const Field &c : e.fields) // the count line is the last field of the name
                if (c.name == t.count_key) count = std::max<size_t>(e.members.size(), std::strtoul(c.value.c_str(), nullptr, 10));
        if (count == 0) return true;
        std::string list;
        for (size_t i = 0; i < count; ++i) {
            std::string element;
            if (i < e.members.size() && !fields_text(t, e.members[i].fields, true, element, why)) return false;
            if (i == 0 && e.members.empty()) element = loose_element_;
            list += (i ? ", {" : "{") + element + "}";
        }
        append(out, "members", "[" + list + "]");
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

    Operation operation(Record &r) {
        Operation o;
        o.record = &r;
        o.type = engine::find_type(r.type.c_str());
        if (!o.type) {
            o.problem = fmt::format("record {} is of the unknown object type \"{}\"; it is left out", r.number, r.type);
            return o;
        }
        if (r.entries.empty()) {
            o.problem = fmt::format("record {} has no entry; it is left out", r.number);
            return o;
        }
        Entry e = r.entries[0]; // the instances of a batch record repeat the same attribute values
        std::string recorded_op = op_of(e);
        o.op = recorded_op == "walk_bykey" ? "walk_by_key" : recorded_op; // the recorder spells the walk so
        o.status = status_of(e);
        const TypeDesc &t = *o.type;
        if (o.op == "get_next" && o.status == 0) start_key_of_get_next(t, e);
        remember_key(t, r.entries[0]);
        std::string why, body = "op: " + o.op;
        if (o.op == "replay" || o.op == "replay_start" || o.op == "replay_end") {
            o.body = body;
            return o;
        }
        std::string fields;
        loose_element_.clear();
        why_line_ = 0;
        if (!fields_text(t, e.fields, false, fields, why) || !members_text(t, e, fields, why)) {
            o.problem = fmt::format("record {} cannot be replayed: {}; it is left out", r.number, why);
            o.problem_line = why_line_;
            return o;
        }
        if (!fields.empty()) body += ", " + fields;
        if (e.find("retry_mode")) append(body, "retry_mode", "1");
        if (const Field *f = e.find("create_option")) append(body, "create_option", f->value);
        if (const Field *f = e.find("npu_mask")) append(body, "npu_mask", f->value);
        if (const Field *f = e.find("npu_result")) {
            std::string list = f->value;
            o.npu_results = list.substr(1, list.size() - 2);
            append(body, "npu_result", list);
        }
        if (const Field *f = e.find("hdl"); f && o.op == "create") {
            bool ok = false;
            uint64_t h = hex_value(f->value, ok);
            if (ok) append(body, "hdl", name_handle(h));
        }
        if (o.op != "walk_by_key") append(body, "rc", std::to_string(o.status));
        o.body = body;
        return o;
    }

    std::string name_handle(uint64_t h) {
        std::string name = fmt::format("h{:x}", h);
        if (unsigned n = ++handle_uses_[h]; n > 1) name += fmt::format("_{}", n); // the value was given out again
        handle_names_[h] = name;
        return name;
    }

    // Whether a record is the same operation again: what a retry after an injected error writes.
    static bool same_operation(const Record &a, const Record &b) {
        if (a.section != b.section || a.type != b.type || a.entries.empty() || b.entries.empty()) return false;
        const Entry &x = a.entries[0], &y = b.entries[0];
        if (op_of(x) != op_of(y) || x.members.size() != y.members.size()) return false;
        auto plain = [](const Entry &e) {
            std::vector<const Field *> v;
            for (const Field &f : e.fields)
                if (f.name != "recorder_timestamp" && f.name != "err" && f.name != "hdl") v.push_back(&f);
            return v;
        };
        auto fx = plain(x), fy = plain(y);
        if (fx.size() != fy.size()) return false;
        for (size_t i = 0; i < fx.size(); ++i)
            if (fx[i]->name != fy[i]->name || fx[i]->value != fy[i]->value) return false;
        return true;
    }

    void send_object() {
        Record first = std::move(ahead_.front());
        ahead_.pop_front();
        const std::string op = first.entries.empty() ? "" : op_of(first.entries[0]);
        size_t injected = 0;
        Record *last = &first;
        std::vector<Record> chain;
        if ((op == "create" || op == "update") && status_of(first.entries[0]) == kInjectedClass) {
            // the retry loop re-issues the operation while the injected error lasts: one record each
            injected = 1;
            while (fill(1) && ahead_.front().section == "send_object" && same_operation(first, ahead_.front())) {
                chain.push_back(std::move(ahead_.front()));
                ahead_.pop_front();
                if (status_of(chain.back().entries[0]) != kInjectedClass) break;
                ++injected;
            }
            if (!chain.empty()) last = &chain.back();
            if (status_of(last->entries[0]) == kInjectedClass) {
                // nothing ended the loop: each failure was expected, so each stands alone
                emit_standalone_injections(first, chain);
                return;
            }
        }
        Operation o = operation(*last);
        if (!o.problem.empty()) {
            problem({path_, o.problem_line ? o.problem_line : last->line, o.problem});
            return;
        }
        if (injected) arm("inject", o, fmt::format("status: {}, times: {}", kInjectedClass, injected));
        else if (o.status == kInjectedClass) arm("inject", o, fmt::format("status: {}, times: 1", kInjectedClass));
        if (!o.npu_results.empty()) arm("npu_result", o, fmt::format("results: [{}], times: 1", o.npu_results));
        add(o, nullptr);
    }

    void emit_standalone_injections(Record &first, std::vector<Record> &chain) {
        auto one = [this](Record &r) {
            Operation o = operation(r);
            if (!o.problem.empty()) return problem({path_, o.problem_line ? o.problem_line : r.line, o.problem});
            arm("inject", o, fmt::format("status: {}, times: 1", kInjectedClass));
            add(o, nullptr);
        };
        one(first);
        for (Record &r : chain) one(r);
    }

    // A received object belongs to the client operation that follows it: the SDK side wrote it
    // while that operation was under way.
    void receive_call() {
        Record received = std::move(ahead_.front());
        ahead_.pop_front();
        const TypeDesc *t = engine::find_type(received.type.c_str());
        bool paired = t && !received.entries.empty() && fill(1) && ahead_.front().section == "send_object" &&
                      ahead_.front().type == received.type && !ahead_.front().entries.empty() &&
                      receive_op(op_of(ahead_.front().entries[0])) == op_of(received.entries[0]);
        if (!paired) {
            problem({path_, received.line, fmt::format("receive_call record {} is not followed by a client operation of its type and op; it is left out", received.number)});
            return;
        }
        Record sent = std::move(ahead_.front());
        ahead_.pop_front();
        Operation o = operation(sent);
        if (!o.problem.empty()) return problem({path_, o.problem_line ? o.problem_line : sent.line, o.problem});
        std::string why, answer = "op: " + op_of(received.entries[0]);
        std::string fields;
        loose_element_.clear();
        if (!fields_text(*t, received.entries[0].fields, false, fields, why) || !members_text(*t, received.entries[0], fields, why))
            return problem({path_, received.line, fmt::format("receive_call record {} cannot be replayed: {}; it is left out", received.number, why)});
        if (!fields.empty()) answer += ", " + fields;
        append(answer, "rc", std::to_string(o.status));
        if (!o.npu_results.empty()) arm("npu_result", o, fmt::format("results: [{}], times: 1", o.npu_results));
        add(o, &answer);
    }

    // The op a received object reports for a client operation.
    static std::string receive_op(const std::string &op) {
        if (op == "create" || op == "delete" || op == "update" || op == "get" || op == "get_first" || op == "get_next") return op;
        return "";
    }

    void arm(const char *kind, const Operation &o, const std::string &what) {
        flush_group();
        fmt::print(out_, "  - {}: {{ op: \"{} {}\", {} }}\n", kind, o.type->name, o.op, what);
    }

    // Consecutive records of one type share a step. A walk records the status its array's last
    // operation left, so it joins the group only where that status is the one it recorded.
    void add(const Operation &o, const std::string *answer) {
        bool walk = o.op == "walk_by_key";
        bool replay = o.op.rfind("replay", 0) == 0;
        if (answer || replay || group_type_ != o.type || group_.size() >= options_.records_per_step ||
            (walk && group_status_ != o.status))
            flush_group();
        if (walk && o.status != group_status_)
            problem({path_, o.record->line, fmt::format("record {}: the walk recorded status {}, which no operation before it in the replay leaves; replayed with status {}", o.record->number, o.status, group_status_)});
        group_type_ = o.type;
        group_.push_back(fmt::format("{{ {} }}", o.body));
        group_lines_.push_back(o.record->line);
        ++summary_.operations;
        if (!walk && !replay && (o.op != "eod" || o.type->eod)) group_status_ = o.status;
        if (answer) {
            fmt::print(out_, "  - send: {{ {}: [ {} ] }}   # {}:{}\n", o.type->name, group_.front(), path_, o.record->line);
            fmt::print(out_, "    sdk: {{ {}: [ {{ {} }} ] }}\n", o.type->name, *answer);
            group_.clear();
            group_lines_.clear();
            group_type_ = nullptr;
            group_status_ = 0;
        } else if (replay) {
            flush_group(); // a replay op acts only as the first record of its array
        }
    }

    void flush_group() {
        if (group_.empty()) {
            group_type_ = nullptr;
            group_status_ = 0;
            return;
        }
        fmt::print(out_, "  - send:\n      {}:\n", group_type_->name);
        for (size_t i = 0; i < group_.size(); ++i) fmt::print(out_, "        - {}   # {}:{}\n", group_[i], path_, group_lines_[i]);
        group_.clear();
        group_lines_.clear();
        group_type_ = nullptr;
        group_status_ = 0;
    }

    std::string path_;
    FILE *out_;
    const ReplayOptions &options_;
    const ProblemSink &sink_;
    Reader reader_;
    std::deque<Record> ahead_;
    ReplaySummary summary_;
    pc::support::Context scratch_; // converters check values against it; nothing runs
    std::string refused_;
    std::string loose_element_; // element attributes recorded at the top, for element 0
    uint32_t why_line_ = 0;
    std::unordered_map<uint16_t, TypeIndex> indexes_;
    std::unordered_map<uint64_t, std::string> handle_names_;
    std::unordered_map<uint64_t, unsigned> handle_uses_;
    std::unordered_map<uint16_t, std::vector<Field>> last_keys_;
    const TypeDesc *group_type_ = nullptr;
    int group_status_ = 0;
    std::vector<std::string> group_;
    std::vector<uint32_t> group_lines_;
};

} // namespace

ReplaySummary write_scenario(const std::string &recording, FILE *out, const ReplayOptions &options,
                             const ProblemSink &problem) {
    return Replayer(recording, out, options, problem).run();
}

} // namespace pc::recording
