#include "coverage_command.hpp"

#include "engine.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace pc::coverage {

using engine::Kind;
using engine::TypeDesc;

namespace {

// Families of attributes, by the kind their descriptor row gives them.
enum Family : uint8_t {
    kKeyFields, kScalars, kRecords, kLists, kRefByHandle, kRefByKey, kReadOnly, kElements, kPairs, kElementPairs,
    kFamilyCount
};
constexpr const char *kFamilyNames[kFamilyCount] = {
    "key fields", "scalar attributes", "record attributes", "list attributes", "direct references by handle",
    "direct references by key", "read-only attributes", "element attributes", "reference pairs",
    "element reference pairs"};

Family family_of(const TypeDesc &t, size_t row) {
    if (row >= t.top_count) return kElements;
    switch (t.attrs[row].kind) {
    case Kind::Key: return kKeyFields;
    case Kind::Struct: return kRecords;
    case Kind::Array: return kLists;
    case Kind::DirectRefhdl: return kRefByHandle;
    case Kind::DirectRefkey: return kRefByKey;
    case Kind::ReadOnly: return kReadOnly;
    case Kind::Element: return kElements;
    default: return kScalars;
    }
}

struct Share {
    size_t covered = 0, total = 0;
    void add(bool hit) { covered += hit, ++total; }
    std::string text() const {
        return fmt::format("{} of {} ({:.1f}%)", covered, total, total ? 100.0 * double(covered) / double(total) : 0.0);
    }
};

// Everything the table shows, counted over the whole catalogue.
struct Figures {
    Share types, attributes, pairs;
    std::array<Share, kFamilyCount> families;
    std::array<uint64_t, kOpCount> records{}, types_per_op{};
};

Figures count(const Report &report) {
    Figures f;
    for (size_t n = 0; n < engine::kTypeCount; ++n) {
        const TypeDesc &t = *engine::kTypes[n];
        const TypeCoverage *c = report.type(n);
        f.types.add(c && c->records());
        for (size_t row = 0; row < t.attrs.size(); ++row) {
            bool hit = c && c->attrs[row];
            f.attributes.add(hit);
            f.families[family_of(t, row)].add(hit);
        }
        for (size_t row = 0; row < t.roles.size(); ++row) {
            bool hit = c && c->roles[row];
            f.pairs.add(hit);
            f.families[row < t.top_role_count ? kPairs : kElementPairs].add(hit);
        }
        for (size_t op = 0; c && op < kOpCount; ++op) {
            f.records[op] += c->ops[op];
            f.types_per_op[op] += c->ops[op] != 0;
        }
    }
    return f;
}

// Families with the smallest share covered first.
std::vector<Family> least_covered_first(const Figures &f) {
    std::vector<Family> order;
    for (uint8_t i = 0; i < kFamilyCount; ++i)
        if (f.families[i].total) order.push_back(Family(i));
    auto share = [&](Family x) { return double(f.families[x].covered) / double(f.families[x].total); };
    std::stable_sort(order.begin(), order.end(), [&](Family a, Family b) { return share(a) < share(b); });
    return order;
}

std::string status_list(const std::map<int32_t, uint64_t> &counts) {
    std::string out;
    for (const auto &[status, n] : counts) fmt::format_to(std::back_inserter(out), "{}{} {}", out.empty() ? "" : ", ", status_text(status), n);
    return out.empty() ? "none" : out;
}

std::string ops_list(const TypeCoverage &c) {
    std::string out;
    for (size_t op = 0; op < kOpCount; ++op)
        if (c.ops[op]) fmt::format_to(std::back_inserter(out), "{}{} {}", out.empty() ? "" : ", ", kOpNames[op], c.ops[op]);
    return out;
}

std::string json_names(const std::vector<std::string> &names) {
    std::string out = "[";
    for (const auto &n : names) fmt::format_to(std::back_inserter(out), "{}\"{}\"", out.size() > 1 ? ", " : "", n);
    return out + "]";
}

} // namespace

std::string table(const Report &report, size_t reports) {
    Figures f = count(report);
    std::string out = fmt::format("planecheck coverage: {} report{}, {} scenario file{}\n", reports, reports == 1 ? "" : "s",
                                  report.files(), report.files() == 1 ? "" : "s");
    fmt::format_to(std::back_inserter(out), "types covered:       {}\n", f.types.text());
    fmt::format_to(std::back_inserter(out), "attributes covered:  {}  (key fields, attributes, read-only and element attributes)\n",
                   f.attributes.text());
    fmt::format_to(std::back_inserter(out), "reference pairs:     {}\n", f.pairs.text());
    fmt::format_to(std::back_inserter(out), "statuses returned:   {}\n", status_list(report.returned()));
    fmt::format_to(std::back_inserter(out), "statuses expected:   {}\n\n", status_list(report.expected()));
    fmt::format_to(std::back_inserter(out), "{:<14} {:>9} {:>6}\n", "operation", "records", "types");
    for (size_t op = 0; op < kOpCount; ++op)
        fmt::format_to(std::back_inserter(out), "{:<14} {:>9} {:>6}\n", kOpNames[op], f.records[op], f.types_per_op[op]);
    out += "\nleast-covered families (attribute kinds, over the whole catalogue)\n";
    for (Family x : least_covered_first(f)) fmt::format_to(std::back_inserter(out), "  {:<28} {}\n", kFamilyNames[x], f.families[x].text());
    out += "\ncovered types (catalogue order)\n";
    fmt::format_to(std::back_inserter(out), "  {:<24} {:>8}  {:<16} {:<12} {}\n", "type", "records", "attributes", "pairs", "operations");
    for (size_t n = 0; n < engine::kTypeCount; ++n) {
        const TypeCoverage *c = report.type(n);
        if (!c || !c->records()) continue;
        const TypeDesc &t = *engine::kTypes[n];
        size_t attrs = size_t(std::count(c->attrs.begin(), c->attrs.end(), 1));
        size_t pairs = size_t(std::count(c->roles.begin(), c->roles.end(), 1));
        fmt::format_to(std::back_inserter(out), "  {:<24} {:>8}  {:<16} {:<12} {}\n", t.name, c->records(),
                       fmt::format("{} of {}", attrs, t.attrs.size()), fmt::format("{} of {}", pairs, t.roles.size()), ops_list(*c));
    }
    return out;
}

std::string table_json(const Report &report) {
    Figures f = count(report);
    auto share = [](const Share &s) { return fmt::format("{{\"covered\": {}, \"of\": {}}}", s.covered, s.total); };
    std::string out = fmt::format("{{\n  \"types\": {},\n  \"attributes\": {},\n  \"reference_pairs\": {},\n  \"operations\": {{",
                                  share(f.types), share(f.attributes), share(f.pairs));
    for (size_t op = 0; op < kOpCount; ++op)
        fmt::format_to(std::back_inserter(out), "{}\"{}\": {{\"records\": {}, \"types\": {}}}", op ? ", " : "", kOpNames[op],
                       f.records[op], f.types_per_op[op]);
    out += "},\n  \"families\": [";
    const char *sep = "";
    for (Family x : least_covered_first(f))
        fmt::format_to(std::back_inserter(out), "{}{{\"family\": \"{}\", \"covered\": {}, \"of\": {}}}", std::exchange(sep, ", "),
                       kFamilyNames[x], f.families[x].covered, f.families[x].total);
    out += "],\n  \"report\": ";
    std::string merged = report.to_json();
    merged.pop_back(); // its final newline
    for (char ch : merged) { // indented one level, to nest
        out += ch;
        if (ch == '\n') out += "  ";
    }
    return out + "\n}\n";
}

std::vector<FamilyShare> families(const Report &report) {
    Figures f = count(report);
    std::vector<FamilyShare> shares;
    for (Family x : least_covered_first(f)) shares.push_back({kFamilyNames[x], f.families[x].covered, f.families[x].total});
    return shares;
}

std::string uncovered(const Report &report, const std::string &type_name, bool json) {
    const TypeDesc *t = engine::find_type(type_name.c_str());
    if (!t) return "";
    const TypeCoverage *c = report.type(t->number);
    std::array<std::vector<std::string>, kFamilyCount> missing;
    for (size_t row = 0; row < t->attrs.size(); ++row)
        if (!c || !c->attrs[row]) missing[family_of(*t, row)].push_back(t->attrs[row].name);
    for (size_t row = 0; row < t->roles.size(); ++row)
        if (!c || !c->roles[row]) missing[row < t->top_role_count ? kPairs : kElementPairs].push_back(pair_name(t->roles[row]));
    uint64_t records = c ? c->records() : 0;
    std::string out;
    if (json) {
        out = fmt::format("{{\n  \"type\": \"{}\",\n  \"records\": {},\n  \"uncovered\": {{", t->name, records);
        const char *sep = "\n";
        for (uint8_t x = 0; x < kFamilyCount; ++x)
            if (!missing[x].empty())
                fmt::format_to(std::back_inserter(out), "{}    \"{}\": {}", std::exchange(sep, ",\n"), kFamilyNames[x], json_names(missing[x]));
        return out + "\n  }\n}\n";
    }
    size_t attrs = 0, pairs = 0;
    for (uint8_t x = 0; x < kFamilyCount; ++x) (x == kPairs || x == kElementPairs ? pairs : attrs) += missing[x].size();
    out = records ? fmt::format("{}: {} record{} ran ({})\n", t->name, records, records == 1 ? "" : "s", ops_list(*c))
                  : fmt::format("{}: no record of this type ran\n", t->name);
    fmt::format_to(std::back_inserter(out), "never set or compared: {} of {} attributes, {} of {} reference pairs\n", attrs,
                   t->attrs.size(), pairs, t->roles.size());
    for (uint8_t x = 0; x < kFamilyCount; ++x) {
        if (missing[x].empty()) continue;
        fmt::format_to(std::back_inserter(out), "  {}:\n", kFamilyNames[x]);
        for (const auto &name : missing[x]) fmt::format_to(std::back_inserter(out), "    {}\n", name);
    }
    return out;
}

int run_command(const std::vector<std::string> &files, const std::string &uncovered_type, bool json) {
    if (!uncovered_type.empty() && !engine::find_type(uncovered_type.c_str())) {
        fmt::print(stderr, "planecheck: there is no object type '{}' (planecheck catalogue --list shows them)\n", uncovered_type);
        return 2;
    }
    Report report;
    std::vector<std::string> problems;
    size_t read = 0;
    for (const auto &file : files) read += report.merge_file(file, problems);
    for (const auto &p : problems) fmt::print(stderr, "{}\n", p);
    if (!uncovered_type.empty()) fmt::print("{}", uncovered(report, uncovered_type, json));
    else fmt::print("{}", json ? table_json(report) : table(report, read));
    return read == files.size() ? 0 : 2;
}

} // namespace pc::coverage
