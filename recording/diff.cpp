#include "diff.hpp"

#include "descriptors.hpp"
#include "engine.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <unordered_map>
#include <unordered_set>

namespace pc::recording {
namespace {

// A field in comparison order; its shown name is made only when it is reported.
struct FlatField {
    const Field *field;
    int32_t entry;  // which entry of a record with several, else -1
    int32_t member; // which element of the members list, else -1
    bool same_place(const FlatField &o) const { return entry == o.entry && member == o.member && field->name == o.field->name; }
    std::string name() const {
        std::string prefix = entry >= 0 ? fmt::format("[{}].", entry) : "";
        return member >= 0 ? fmt::format("{}members[{}].{}", prefix, member, field->name) : prefix + field->name;
    }
};

// A record with what the comparison needs ready: its identity and its fields in order.
struct Item {
    Record record;
    std::string identity; // section, type, op and key fields: what makes two records the same operation
    std::string object;   // type and key fields: which object; empty when the record shows no key
    std::string op;
    std::vector<FlatField> fields;
};

const std::string &op_of(const Record &r) {
    static const std::string none;
    if (r.entries.empty()) return none;
    const Field *op = r.entries[0].find("op");
    return op ? op->value : none;
}

std::string unquoted(const std::string &text) {
    return text.size() >= 2 && text.front() == '"' && text.back() == '"' ? text.substr(1, text.size() - 2) : text;
}

void flatten(Item &item, const std::unordered_set<std::string> &ignore) {
    item.fields.clear();
    const bool several = item.record.entries.size() > 1;
    for (size_t e = 0; e < item.record.entries.size(); ++e) {
        const Entry &entry = item.record.entries[e];
        auto add = [&](int32_t member, const Field &f) {
            if (f.name == "recorder_timestamp" || (!ignore.empty() && ignore.count(f.name))) return;
            item.fields.push_back({&f, several ? int32_t(e) : -1, member});
        };
        for (size_t i = 0; i <= entry.fields.size(); ++i) {
            if (i == entry.members_at)
                for (size_t m = 0; m < entry.members.size(); ++m)
                    for (const Field &f : entry.members[m].fields) add(int32_t(m), f);
            if (i < entry.fields.size()) add(-1, entry.fields[i]);
        }
    }
}

void identify(Item &item) {
    const Record &r = item.record;
    item.op = unquoted(op_of(r));
    item.identity.assign(r.section).append(1, '\0').append(r.type).append(1, '\0').append(item.op);
    item.object.clear();
    const engine::TypeDesc *type = engine::find_type(r.type.c_str());
    if (!type || r.entries.empty()) return;
    for (const engine::AttrDesc &k : type->keys())
        if (const Field *f = r.entries[0].find(k.name)) item.object.append(1, '\0').append(f->value);
    if (item.object.empty()) return;
    item.identity.append(item.object);
    item.object.insert(0, r.type);
}

// Handle values: "handle 0x1a2b" in "hdl", "0x1a2b" in references. 0 when the text is none.
uint64_t handle_value(const Field &f) {
    bool is_handle = f.name == "hdl" || (f.name.size() > 7 && f.name.compare(f.name.size() - 7, 7, "_refhdl") == 0);
    if (!is_handle) return 0;
    std::string text = unquoted(f.value);
    if (text.rfind("handle ", 0) == 0) text = text.substr(7);
    if (text.rfind("0x", 0) != 0) return 0;
    char *end = nullptr;
    uint64_t v = std::strtoull(text.c_str() + 2, &end, 16);
    return end && *end == '\0' ? v : 0;
}

class Differ {
public:
    Differ(const std::string &a, const std::string &b, const DiffOptions &options, const DifferenceSink &difference,
           const ProblemSink &problem)
        : options_(options), ignore_(options.ignore.begin(), options.ignore.end()), difference_(difference),
          problem_(problem), a_name_(a), b_name_(b) {}

    DiffSummary run() {
        std::string error;
        bool ok_a = a_.open(a_name_, error);
        if (!ok_a) unopened(a_name_, error);
        bool ok_b = b_.open(b_name_, error);
        if (!ok_b) unopened(b_name_, error);
        if (!ok_a || !ok_b) {
            count_records(ok_a ? a_ : b_, ok_a ? summary_.records_a : summary_.records_b, ok_a || ok_b);
            return summary_;
        }
        probe_a_.open(a_name_, error); // a probe that cannot open finds nothing; the windows still align
        probe_b_.open(b_name_, error);
        a_.on_problem([this](const Problem &p) { problem(p); });
        b_.on_problem([this](const Problem &p) { problem(p); });
        align();
        summary_.records_a = a_.records_seen();
        summary_.records_b = b_.records_seen();
        return summary_;
    }

private:
    void unopened(const std::string &name, const std::string &why) {
        summary_.unopened.push_back(name);
        problem({name, 0, why});
    }

    // With one side unreadable there is nothing to compare; the other is still read through, so
    // that its count and its own unreadable records are told.
    void count_records(Reader &reader, uint64_t &records, bool opened) {
        if (!opened) return;
        reader.on_problem([this](const Problem &p) { problem(p); });
        Record record;
        while (reader.next(record)) {
        }
        records = reader.records_seen();
    }

    void problem(const Problem &p) {
        ++summary_.problems;
        if (problem_) problem_(p);
    }

    // Keeps up to `n` records read ahead on a side.
    void fill(Reader &reader, std::deque<Item> &queue, bool &done, size_t n) {
        while (!done && queue.size() < n) {
            Item item = spare();
            if (!reader.next(item.record)) {
                done = true;
                spare_.push_back(std::move(item));
                break;
            }
            identify(item);
            flatten(item, ignore_);
            queue.push_back(std::move(item));
            if (options_.progress && &reader == &a_ && a_.records_seen() % 4096 == 0) options_.progress(a_.bytes_read());
        }
    }

    // Items are recycled, so that records of one shape are read into storage already there.
    Item spare() {
        if (spare_.empty()) return Item{};
        Item item = std::move(spare_.back());
        spare_.pop_back();
        return item;
    }

    void pop(std::deque<Item> &queue) {
        probe_budget_ += kProbeBudgetPerRecord;
        spare_.push_back(std::move(queue.front()));
        queue.pop_front();
    }

    // Where a record missing from the other side would stand there.
    static std::pair<uint64_t, uint32_t> position(const std::deque<Item> &queue, const Reader &reader) {
        if (!queue.empty()) return {queue.front().record.number, queue.front().record.line};
        return {reader.records_seen() + 1, reader.line() + 1};
    }

    void only_in(bool in_a, const Item &item) {
        Difference d;
        d.kind = in_a ? Difference::OnlyInA : Difference::OnlyInB;
        auto other = in_a ? position(qb_, b_) : position(qa_, a_);
        (in_a ? d.number_a : d.number_b) = item.record.number;
        (in_a ? d.line_a : d.line_b) = item.record.line;
        (in_a ? d.number_b : d.number_a) = other.first;
        (in_a ? d.line_b : d.line_a) = other.second;
        d.section = item.record.section;
        d.type = item.record.type;
        d.op = item.op;
        ++(in_a ? summary_.only_a : summary_.only_b);
        if (difference_) difference_(d);
    }

    static long find(const std::deque<Item> &queue, const std::string &identity) {
        for (size_t i = 1; i < queue.size(); ++i)
            if (queue[i].identity == identity) return long(i);
        return -1;
    }

    void align() {
        bool done_a = false, done_b = false;
        for (;;) {
            fill(a_, qa_, done_a, 1);
            fill(b_, qb_, done_b, 1);
            if (qa_.empty() && qb_.empty()) return;
            if (qa_.empty() || qb_.empty()) {
                pop_only(qb_.empty());
                continue;
            }
            if (qa_.front().identity != qb_.front().identity) {
                fill(a_, qa_, done_a, options_.window);
                fill(b_, qb_, done_b, options_.window);
                long j = find(qb_, qa_.front().identity), i = find(qa_, qb_.front().identity);
                if (j > 0 && (i < 0 || j <= i)) {
                    for (long k = 0; k < j; ++k) pop_only(false);
                    continue;
                }
                if (i > 0) {
                    for (long k = 0; k < i; ++k) pop_only(true);
                    continue;
                }
                // neither front reappears within the look-ahead: look further on both sides; what
                // is found nowhere is a gap on each side, never a pair of unrelated records
                auto [side_a, distance] = probe_beyond_window(done_a, done_b);
                if (distance > 0) {
                    while (distance-- > 0) {
                        fill(side_a ? a_ : b_, side_a ? qa_ : qb_, side_a ? done_a : done_b, 1);
                        pop_only(side_a);
                    }
                    continue;
                }
                pop_only(true);
                pop_only(false);
                continue;
            }
            compare(qa_.front(), qb_.front());
            pop(qa_);
            pop(qb_);
        }
    }

    // Reads on past both windows at once, record for record, for the other side's front: the
    // first found tells which side has the gap and how long it is ({true, n}: the next n records
    // of A are only in A). {_, 0} when neither is found before both ends or the reading budget
    // runs out. The budget grows with every record compared, so that probing adds at most a
    // constant factor to the comparison of files that have nothing in common.
    std::pair<bool, size_t> probe_beyond_window(bool done_a, bool done_b) {
        if (!a_.seekable() || !b_.seekable() || probe_budget_ < kProbeMinimum) return {true, 0};
        bool more_a = !done_a && probe_a_.seek_to(a_.next_record_offset());
        bool more_b = !done_b && probe_b_.seek_to(b_.next_record_offset());
        const std::string &front_a = qa_.front().identity, &front_b = qb_.front().identity;
        for (size_t k = 0; (more_a || more_b) && probe_budget_ > 0; ++k) {
            if (more_b && (more_b = probe_b_.next(probe_.record))) {
                --probe_budget_;
                identify(probe_);
                if (probe_.identity == front_a) return {false, qb_.size() + k};
            }
            if (more_a && (more_a = probe_a_.next(probe_.record))) {
                --probe_budget_;
                identify(probe_);
                if (probe_.identity == front_b) return {true, qa_.size() + k};
            }
        }
        return {true, 0};
    }

    void pop_only(bool in_a) {
        std::deque<Item> &q = in_a ? qa_ : qb_;
        only_in(in_a, q.front());
        pop(q);
    }

    // Handles correspond when they first meet at the same place; afterwards they must agree.
    bool same_handle(uint64_t a, uint64_t b) {
        auto ia = a_to_b_.find(a);
        if (ia != a_to_b_.end()) return ia->second == b;
        if (b_to_a_.count(b)) return false;
        a_to_b_.emplace(a, b);
        b_to_a_.emplace(b, a);
        return true;
    }

    // The data plane's state text may name handles too: those known to correspond are read as
    // their partners before the texts are compared.
    std::string with_partners(const std::string &text) const {
        std::string out;
        size_t i = 0;
        while (i < text.size()) {
            size_t at = text.find("0x", i);
            if (at == std::string::npos) break;
            size_t end = at + 2;
            while (end < text.size() && std::isxdigit(static_cast<unsigned char>(text[end]))) ++end;
            out.append(text, i, at - i);
            auto it = end > at + 2 ? a_to_b_.find(std::strtoull(text.c_str() + at + 2, nullptr, 16)) : a_to_b_.end();
            out += it != a_to_b_.end() ? fmt::format("0x{:x}", it->second) : text.substr(at, end - at);
            i = end;
        }
        out.append(text, std::min(i, text.size()), std::string::npos);
        return out;
    }

    bool same_value(const Field &a, const Field &b) {
        if (a.name == "npd_state" && a.value != b.value) return with_partners(a.value) == b.value;
        if (a.value == b.value) {
            if (uint64_t h = handle_value(a)) return same_handle(h, h);
            return true;
        }
        uint64_t ha = handle_value(a), hb = handle_value(b);
        return ha && hb && same_handle(ha, hb);
    }

    void changed(const Item &a, const Item &b, const FlatField &at, const Field *fa, const Field *fb) {
        Difference d;
        d.number_a = a.record.number;
        d.number_b = b.record.number;
        d.line_a = a.record.line;
        d.line_b = b.record.line;
        d.section = a.record.section;
        d.type = a.record.type;
        d.op = a.op == b.op ? a.op : a.op + "|" + b.op;
        d.field = at.name();
        if (fa) d.value_a = fa->value, d.field_line_a = fa->line;
        if (fb) d.value_b = fb->value, d.field_line_b = fb->line;
        if (difference_) difference_(d);
    }

    void compare(const Item &a, const Item &b) {
        bool differs = false;
        used_.assign(b.fields.size(), false);
        for (size_t i = 0; i < a.fields.size(); ++i) {
            const FlatField &fa = a.fields[i];
            // the fields are nearly always in the same order: look at the same place first
            size_t at = i < b.fields.size() && !used_[i] && b.fields[i].same_place(fa) ? i : b.fields.size();
            for (size_t k = 0; at == b.fields.size() && k < b.fields.size(); ++k)
                if (!used_[k] && b.fields[k].same_place(fa)) at = k;
            if (at == b.fields.size()) {
                changed(a, b, fa, fa.field, nullptr);
                differs = true;
                continue;
            }
            used_[at] = true;
            if (!same_value(*fa.field, *b.fields[at].field)) {
                changed(a, b, fa, fa.field, b.fields[at].field);
                differs = true;
            }
        }
        for (size_t k = 0; k < b.fields.size(); ++k)
            if (!used_[k]) {
                changed(a, b, b.fields[k], nullptr, b.fields[k].field);
                differs = true;
            }
        if (differs) ++summary_.changed;
        forget_deleted(a, b);
    }

    // A deleted object's handle may be given out again: its pairing ends with the delete, which
    // also keeps the map as small as the set of live objects.
    // A delete by key carries no handle: the object's handle is the one its key was last seen with.
    void forget_deleted(const Item &a, const Item &b) {
        uint64_t ha = object_handle(a, handles_a_), hb = object_handle(b, handles_b_);
        if (a.op != "delete" || a.record.entries.empty() || b.record.entries.empty()) return;
        if (ha) a_to_b_.erase(ha);
        if (hb) b_to_a_.erase(hb);
    }

    // The handle a record names, or for one without, the handle its object's key was seen with;
    // keeps the key's handle up to date, and forgets it on a delete.
    static uint64_t object_handle(const Item &item, std::unordered_map<std::string, uint64_t> &handles) {
        if (item.record.entries.empty()) return 0;
        const Field *hdl = item.record.entries[0].find("hdl");
        uint64_t h = hdl ? handle_value(*hdl) : 0;
        if (item.object.empty()) return h;
        if (item.op == "delete") {
            auto it = handles.find(item.object);
            if (!h && it != handles.end()) h = it->second;
            if (it != handles.end()) handles.erase(it);
        } else if (h) {
            handles[item.object] = h;
        }
        return h;
    }

    const DiffOptions &options_;
    std::unordered_set<std::string> ignore_;
    const DifferenceSink &difference_;
    const ProblemSink &problem_;
    std::string a_name_, b_name_;
    Reader a_, b_;
    std::deque<Item> qa_, qb_;
    std::vector<Item> spare_;
    std::vector<bool> used_;
    std::unordered_map<uint64_t, uint64_t> a_to_b_, b_to_a_;
    std::unordered_map<std::string, uint64_t> handles_a_, handles_b_; // live objects' handles by key
    // a probe reads at most twice the records compared; it waits until it may read a good many,
    // as each one starts a read of its own
    static constexpr size_t kProbeBudgetPerRecord = 2, kProbeMinimum = 4096;
    Reader probe_a_, probe_b_;
    Item probe_;
    size_t probe_budget_ = size_t(1) << 16;
    DiffSummary summary_;
};

std::string json_string(const std::string &s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\', out += c;
        else if (static_cast<unsigned char>(c) < 0x20) out += fmt::format("\\u{:04x}", unsigned(c));
        else out += c;
    }
    return out + '"';
}

} // namespace

DiffSummary diff_recordings(const std::string &a, const std::string &b, const DiffOptions &options,
                            const DifferenceSink &difference, const ProblemSink &problem) {
    return Differ(a, b, options, difference, problem).run();
}

std::string difference_text(const Difference &d, const std::string &a, const std::string &b) {
    std::string where = fmt::format("{}:{} (record {}) / {}:{} (record {})", a, d.line_a, d.number_a, b, d.line_b, d.number_b);
    std::string what = fmt::format("{} {} {}", d.section, d.type, d.op);
    switch (d.kind) {
    case Difference::OnlyInA: return fmt::format("{}: {}: only in {}", where, what, a);
    case Difference::OnlyInB: return fmt::format("{}: {}: only in {}", where, what, b);
    case Difference::Changed: break;
    }
    auto shown = [](const std::string &v) { return v.empty() ? std::string("(absent)") : v; };
    return fmt::format("{}: {}: {}: {} | {}", where, what, d.field, shown(d.value_a), shown(d.value_b));
}

std::string difference_json(const Difference &d) {
    static const char *const kinds[] = {"changed", "only_in_a", "only_in_b"};
    std::string out = fmt::format(R"({{"kind": "{}", "a": {{"record": {}, "line": {}}}, "b": {{"record": {}, "line": {}}}, )"
                                  R"("section": {}, "type": {}, "op": {})",
                                  kinds[d.kind], d.number_a, d.line_a, d.number_b, d.line_b, json_string(d.section),
                                  json_string(d.type), json_string(d.op));
    if (d.kind == Difference::Changed) {
        out += fmt::format(R"(, "field": {})", json_string(d.field));
        out += d.value_a.empty() ? R"(, "value_a": null)" : fmt::format(R"(, "value_a": {})", json_string(d.value_a));
        out += d.value_b.empty() ? R"(, "value_b": null)" : fmt::format(R"(, "value_b": {})", json_string(d.value_b));
    }
    return out + "}";
}

} // namespace pc::recording
