#include "coverage.hpp"

#include "common.hpp"
#include "engine.hpp"
#include "planecheck/session.hpp"
#include "record_index.hpp"
#include "yaml_loader.hpp"

#include <fmt/format.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

namespace pc::coverage {

using engine::AttrDesc;
using engine::Kind;
using engine::RoleDesc;
using engine::TypeDesc;

namespace {

// The record ops in the catalogue's order, then the two step kinds.
constexpr std::array<const char *, kOpCount> op_names() {
    std::array<const char *, kOpCount> names{};
    size_t i = 0;
    for (const vocabulary::Op &op : vocabulary::kOps) names[i++] = op.name;
    names[kSdkAnswer] = "sdk_answer";
    names[kDump] = "dump";
    return names;
}

constexpr bool named(Op op, std::string_view name) { return op_names()[op] == name; }
static_assert(vocabulary::kOpCount == kSdkAnswer, "every catalogue op has a coverage counter");
namespace v = vocabulary;
static_assert(named(kCreate, v::kOpCreate) && named(kUpdate, v::kOpUpdate) && named(kDelete, v::kOpDelete) &&
                  named(kGet, v::kOpGet) && named(kGetFirst, v::kOpGetFirst) && named(kGetNext, v::kOpGetNext) &&
                  named(kGetGtEq, v::kOpGetGtEq) && named(kEod, v::kOpEod) && named(kWalkByKey, v::kOpWalkByKey) &&
                  named(kReplay, v::kOpReplay) && named(kReplayStart, v::kOpReplayStart) && named(kReplayEnd, v::kOpReplayEnd),
              "the counters follow the catalogue's order of ops");

} // namespace

const std::array<const char *, kOpCount> kOpNames = op_names();

int op_from_text(const char *text) {
    for (size_t i = 0; text && i < kOpNames.size(); ++i)
        if (!std::strcmp(text, kOpNames[i])) return int(i);
    return -1;
}

uint64_t TypeCoverage::records() const {
    uint64_t n = 0;
    for (uint64_t c : ops) n += c;
    return n;
}

std::string status_text(int32_t status) {
    if (status == engine::kDontCare) return "DONT_CARE";
    if (status >= 0 && status <= 0x1ff)
        if (const char *name = support::status_name(status)) return name;
    return fmt::format("{:#x}", uint32_t(status));
}

std::string pair_name(const RoleDesc &role) {
    std::string name = role.hdl_key;
    const std::string suffix = "_refhdl";
    if (name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
        name.resize(name.size() - suffix.size());
    return name;
}

Report::Report() : types_(engine::kTypeCount) {}
Report::~Report() = default;
Report::Report(Report &&) noexcept = default;
Report &Report::operator=(Report &&) noexcept = default;

TypeCoverage &Report::touch(const TypeDesc &type) {
    auto &s = types_[type.number];
    if (!s) {
        s = std::make_unique<TypeCoverage>();
        s->attrs.assign(type.attrs.size(), 0);
        s->roles.assign(type.roles.size(), 0);
    }
    return *s;
}

namespace {

void mark(const TypeDesc &type, TypeCoverage &c, const JSON_Object *object, bool element, const PROCESS &context,
          bool key_fields_only) {
    for (const engine::Member &m : engine::RecordMembers(type, object, element)) {
        if (m.what == engine::Member::Attribute) c.attrs[m.index] |= !key_fields_only || m.index < type.key_count;
        else if (key_fields_only) continue;
        else if (engine::active(type.roles[m.index].gate, &context)) c.roles[m.index] = 1; // set and compared only then
    }
}

} // namespace

void Report::note(const TypeDesc &type, const JSON_Object *record, Op op, const PROCESS &context, Reach reach) {
    TypeCoverage &c = touch(type);
    ++c.ops[op];
    if (!record || reach == Reach::Nothing) return;
    mark(type, c, record, false, context, reach == Reach::KeyFields);
    if (reach == Reach::KeyFields || (type.elements().empty() && type.element_roles().empty())) return;
    const JSON_Array *members = json_value_get_array(json_object_get_value(record, "members"));
    for (size_t i = 0; members && i < json_array_get_count(members); ++i)
        if (const JSON_Object *element = json_value_get_object(json_array_get_value(members, i)))
            mark(type, c, element, true, context, false);
}

void Report::note_status(int32_t returned, int32_t expected) {
    ++returned_[returned];
    ++expected_[expected];
}

void Report::merge(const Report &other) {
    for (size_t t = 0; t < types_.size(); ++t) {
        const TypeCoverage *from = other.types_[t].get();
        if (!from) continue;
        TypeCoverage &to = touch(*engine::kTypes[t]);
        for (size_t i = 0; i < to.ops.size(); ++i) to.ops[i] += from->ops[i];
        for (size_t i = 0; i < to.attrs.size(); ++i) to.attrs[i] |= from->attrs[i];
        for (size_t i = 0; i < to.roles.size(); ++i) to.roles[i] |= from->roles[i];
    }
    for (const auto &[status, n] : other.returned_) returned_[status] += n;
    for (const auto &[status, n] : other.expected_) expected_[status] += n;
    files_ += other.files_;
}

// ---- the JSON form -------------------------------------------------------------------------

namespace {

// The name lists of a type's report, each over one span of descriptor rows.
struct NameList {
    const char *key;
    bool roles;     // rows of type.roles, else of type.attrs
    bool elements;  // the element rows
    bool keys_only; // attrs: key fields (true) or the other top-level rows (false)
};
constexpr NameList kLists[] = {{"key_fields", false, false, true},
                               {"attributes", false, false, false},
                               {"element_attributes", false, true, false},
                               {"reference_pairs", true, false, false},
                               {"element_reference_pairs", true, true, false}};

// Descriptor row indexes a list spans.
std::pair<size_t, size_t> rows_of(const TypeDesc &t, const NameList &l) {
    if (l.roles) return l.elements ? std::pair<size_t, size_t>{t.top_role_count, t.roles.size()}
                                   : std::pair<size_t, size_t>{0, t.top_role_count};
    if (l.elements) return {t.top_count, t.attrs.size()};
    return l.keys_only ? std::pair<size_t, size_t>{0, t.key_count} : std::pair<size_t, size_t>{t.key_count, t.top_count};
}

std::string row_name(const TypeDesc &t, const NameList &l, size_t row) {
    return l.roles ? pair_name(t.roles[row]) : std::string(t.attrs[row].name);
}

void write_counts(std::string &out, const char *name, const std::map<int32_t, uint64_t> &counts) {
    fmt::format_to(std::back_inserter(out), "    \"{}\": {{", name);
    const char *sep = "";
    for (const auto &[status, n] : counts) {
        fmt::format_to(std::back_inserter(out), "{}\"{}\": {}", sep, status, n);
        sep = ", ";
    }
    out += "}";
}

} // namespace

std::string Report::to_json() const {
    std::string out = fmt::format("{{\n  \"planecheck_coverage\": 1,\n  \"files\": {},\n  \"types\": {{", files_);
    const char *type_sep = "\n";
    for (size_t n = 0; n < types_.size(); ++n) {
        const TypeCoverage *c = types_[n].get();
        if (!c) continue;
        const TypeDesc &t = *engine::kTypes[n];
        fmt::format_to(std::back_inserter(out), "{}    \"{}\": {{\n      \"ops\": {{", type_sep, t.name);
        type_sep = ",\n";
        const char *sep = "";
        for (size_t op = 0; op < kOpCount; ++op)
            if (c->ops[op]) fmt::format_to(std::back_inserter(out), "{}\"{}\": {}", std::exchange(sep, ", "), kOpNames[op], c->ops[op]);
        out += "}";
        for (const NameList &l : kLists) {
            auto [from, to] = rows_of(t, l);
            const auto &flags = l.roles ? c->roles : c->attrs;
            std::string names;
            for (size_t row = from; row < to; ++row)
                if (flags[row]) fmt::format_to(std::back_inserter(names), "{}\"{}\"", names.empty() ? "" : ", ", row_name(t, l, row));
            if (!names.empty()) fmt::format_to(std::back_inserter(out), ",\n      \"{}\": [{}]", l.key, names);
        }
        out += "\n    }";
    }
    out += "\n  },\n  \"statuses\": {\n";
    write_counts(out, "returned", returned_);
    out += ",\n";
    write_counts(out, "expected", expected_);
    out += "\n  }\n}\n";
    return out;
}

namespace {

class ReportReader {
public:
    ReportReader(Report &into, const std::string &path, std::vector<std::string> &problems)
        : into_(into), path_(path), problems_(problems) {}

    bool read() {
        Arena arena;
        yaml::LoadError error;
        JSON_Value *root = yaml::load_file(path_, arena, error);
        if (!root) return fail(error.text());
        const JSON_Object *o = json_value_get_object(root);
        int64_t version = 0;
        if (!o || !pc_json_get_int64(json_object_get_value(o, "planecheck_coverage"), &version) || version != 1)
            return fail(fmt::format("{}:{}: not a planecheck coverage report (written by run --coverage)", path_, pc_json_line(root)));
        Report part;
        uint64_t files = 0;
        if (const JSON_Value *f = json_object_get_value(o, "files"))
            pc_json_get_uint64(f, &files) ? part.add_files(files) : problem(f, "files: is a whole number");
        read_types(part, object_member(o, "types"));
        const JSON_Object *statuses = object_member(o, "statuses");
        read_statuses(part, object_member(statuses, "returned"), true);
        read_statuses(part, object_member(statuses, "expected"), false);
        into_.merge(part);
        return true;
    }

private:
    bool fail(const std::string &text) {
        problems_.push_back(text);
        return false;
    }

    void problem(const JSON_Value *at, const std::string &text) {
        problems_.push_back(fmt::format("{}:{}: {}; left out", path_, pc_json_line(at), text));
    }

    // The member `key` of `o` when it is a mapping; null when absent, and reported when it is
    // something else.
    const JSON_Object *object_member(const JSON_Object *o, const char *key) {
        const JSON_Value *v = json_object_get_value(o, key);
        if (v && !json_value_get_object(v)) problem(v, fmt::format("{}: is a mapping", key));
        return json_value_get_object(v);
    }

    const JSON_Array *list_member(const JSON_Object *o, const char *key) {
        const JSON_Value *v = json_object_get_value(o, key);
        if (v && !json_value_get_array(v)) problem(v, fmt::format("{}: is a list of names", key));
        return json_value_get_array(v);
    }

    void read_types(Report &part, const JSON_Object *types) {
        for (size_t i = 0; types && i < json_object_get_count(types); ++i) {
            const char *name = json_object_get_name(types, i);
            const JSON_Value *value = json_object_get_value_at(types, i);
            const TypeDesc *t = engine::find_type(name);
            if (!t) {
                problem(value, fmt::format("there is no object type '{}' in this catalogue", name));
                continue;
            }
            if (!json_value_get_object(value)) problem(value, fmt::format("{}: is a mapping", name));
            else read_type(part, *t, json_value_get_object(value));
        }
    }

    void read_type(Report &part, const TypeDesc &t, const JSON_Object *o) {
        TypeCoverage &c = part.touch(t);
        const JSON_Object *ops = object_member(o, "ops");
        for (size_t i = 0; ops && i < json_object_get_count(ops); ++i) {
            const char *name = json_object_get_name(ops, i);
            int op = op_from_text(name);
            uint64_t n = 0;
            if (op < 0) problem(json_object_get_value_at(ops, i), fmt::format("'{}' is no operation", name));
            else if (!pc_json_get_uint64(json_object_get_value_at(ops, i), &n))
                problem(json_object_get_value_at(ops, i), fmt::format("the count of '{}' is not a whole number", name));
            else c.ops[size_t(op)] += n;
        }
        for (const NameList &l : kLists) {
            const JSON_Array *names = list_member(o, l.key);
            for (size_t i = 0; names && i < json_array_get_count(names); ++i) {
                const JSON_Value *v = json_array_get_value(names, i);
                const char *name = json_value_get_string(v);
                if (!name) problem(v, fmt::format("{}: is a list of names", l.key));
                else if (!mark_name(t, c, l, name)) problem(v, fmt::format("{} has no {} '{}'", t.name, l.key, name));
            }
        }
    }

    static bool mark_name(const TypeDesc &t, TypeCoverage &c, const NameList &l, const char *name) {
        if (!name) return false;
        auto [from, to] = rows_of(t, l);
        for (size_t row = from; row < to; ++row)
            if (row_name(t, l, row) == name) {
                (l.roles ? c.roles : c.attrs)[row] = 1;
                return true;
            }
        return false;
    }

    void read_statuses(Report &part, const JSON_Object *counts, bool returned) {
        for (size_t i = 0; counts && i < json_object_get_count(counts); ++i) {
            const char *key = json_object_get_name(counts, i);
            char *end = nullptr;
            long long status = std::strtoll(key, &end, 10);
            uint64_t n = 0;
            if (!*key || *end || status < INT32_MIN || status > INT32_MAX ||
                !pc_json_get_uint64(json_object_get_value_at(counts, i), &n)) {
                problem(json_object_get_value_at(counts, i), fmt::format("status '{}' is no number with a count", key));
                continue;
            }
            part.add_status(returned, int32_t(status), n);
        }
    }

    Report &into_;
    const std::string &path_;
    std::vector<std::string> &problems_;
};

} // namespace

void count_into(pc_session &session, const PROCESS &process, Report &report) {
    session.ran = [&process, &report](uint16_t type, const JSON_Object *record, bool judged, int32_t returned, int32_t expected) {
        int op = op_from_text(json_value_get_string(json_object_get_value(record, "op")));
        if (op >= 0) report.note(*engine::kTypes[type], record, Op(op), process);
        if (judged) report.note_status(returned, expected);
    };
}

bool write_file(const Report &report, const std::string &path) {
    FILE *out = std::fopen(path.c_str(), "w");
    if (!out) return false;
    std::string text = report.to_json();
    bool ok = std::fwrite(text.data(), 1, text.size(), out) == text.size();
    return std::fclose(out) == 0 && ok;
}

namespace {
struct ExitTarget {
    const Report *report = nullptr;
    std::string path;
};
ExitTarget exit_target;
} // namespace

void write_before_hard_end() {
    if (exit_target.report) write_file(*exit_target.report, exit_target.path);
    exit_target = {};
}

void write_at_exit(const Report *report, const std::string &path) {
    static bool registered = false;
    if (!registered) std::atexit([] {
        if (exit_target.report) write_file(*exit_target.report, exit_target.path);
    });
    registered = true;
    exit_target = {report, path};
}

bool Report::merge_file(const std::string &path, std::vector<std::string> &problems) {
    return ReportReader(*this, path, problems).read();
}

} // namespace pc::coverage
