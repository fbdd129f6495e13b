#include "expected_findings.hpp"

#include "record_lint.hpp"
#include "report.hpp"
#include "suggest.hpp"

#include "planecheck/session.hpp"
#include "planecheck/support.h"
#include "planecheck/vocabulary.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace pc::runner {
namespace {

namespace v = pc::vocabulary;

std::string quoted(const std::string &text) {
    std::string out = "\"";
    for (char c : text) out += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
    return out + "\"";
}

std::string finding_keys() { return fmt::format("{}", fmt::join(std::begin(v::kFindingFields), std::end(v::kFindingFields), ", ")); }

std::string read_text(const JSON_Value *value, FindingEntry &entry) {
    const char *text = json_value_get_string(value);
    if (!text) return "text: is a regular expression, such as \"EBUSY\"";
    try {
        entry.text.emplace(text, std::regex::ECMAScript);
    } catch (const std::regex_error &e) {
        return fmt::format("text: '{}' is no regular expression: {}", text, e.what());
    }
    entry.shown += std::string(v::kFindingFieldText) + ": " + quoted(text);
    return "";
}

std::string read_key(const std::string &key, const JSON_Value *value, FindingEntry &entry) {
    if (!entry.shown.empty()) entry.shown += ", ";
    if (key == v::kFindingFieldAttribute) {
        const char *name = json_value_get_string(value);
        if (!name || json_value_get_type(value) != JSONString) return "attribute: is the name of an attribute";
        entry.attribute = name;
        entry.shown += key + ": " + name;
        return "";
    }
    if (key == v::kFindingFieldStatus) {
        StatusValue status;
        if (std::string problem = read_status(value, status); !problem.empty()) return problem;
        entry.status = status.value, entry.status_by_name = status.by_name;
        const char *text = json_value_get_string(value);
        entry.shown += key + ": " + (text ? std::string(text) : std::to_string(status.value));
        return "";
    }
    return read_text(value, entry);
}

std::string read_entry(const JSON_Value *value, FindingEntry &entry, const JSON_Value *&problem_at) {
    problem_at = value;
    const JSON_Object *o = json_value_get_object(value);
    if (!o) return "findings: each entry is a mapping with attribute:, status: or text:";
    if (json_object_get_count(o) == 0) return "findings: an entry names at least one of " + finding_keys();
    std::vector<std::string_view> keys(std::begin(v::kFindingFields), std::end(v::kFindingFields));
    for (size_t i = 0; i < json_object_get_count(o); ++i) {
        std::string key = json_object_get_name(o, i);
        problem_at = json_object_get_value_at(o, i);
        if (std::find(keys.begin(), keys.end(), key) == keys.end())
            return fmt::format("findings: an entry has no '{}' (expected {}){}", key, finding_keys(), pc::support::did_you_mean(key, keys));
        if (std::string problem = read_key(key, problem_at, entry); !problem.empty()) return problem;
    }
    entry.shown = "{ " + entry.shown + " }";
    return "";
}

bool names(const FindingEntry &entry, const CameFinding &came) {
    const Finding &f = came.finding;
    if (entry.attribute && f.attribute != *entry.attribute) return false;
    if (entry.status) {
        if (!f.has_status) return false;
        // a name matches the status class the line names (its low nine bits, as kerr_strerror reads them)
        bool same = entry.status_by_name ? (f.received_status & 0x1ff) == *entry.status : f.received_status == *entry.status;
        if (!same) return false;
    }
    return !entry.text || std::regex_search(came.line, *entry.text);
}

// Pairs entries with the findings they name so that as many as possible are paired: an entry that
// could name two findings must leave to another entry the one only that entry names.
class Pairing {
public:
    Pairing(const std::vector<FindingEntry> &entries, const std::vector<CameFinding> &came)
        : named_(entries.size()), finding_of_(entries.size(), kNone), entry_of_(came.size(), kNone) {
        for (size_t e = 0; e < entries.size(); ++e)
            for (size_t f = 0; f < came.size(); ++f)
                if (names(entries[e], came[f])) named_[e].push_back(f);
        for (size_t e = 0; e < entries.size(); ++e) {
            std::vector<bool> tried(came.size());
            pair(e, tried);
        }
    }
    static constexpr size_t kNone = SIZE_MAX;
    size_t finding_of(size_t entry) const { return finding_of_[entry]; }
    size_t entry_of(size_t finding) const { return entry_of_[finding]; }

private:
    bool pair(size_t entry, std::vector<bool> &tried) {
        for (size_t f : named_[entry]) {
            if (tried[f]) continue;
            tried[f] = true;
            if (entry_of_[f] == kNone || pair(entry_of_[f], tried)) {
                entry_of_[f] = entry, finding_of_[entry] = f;
                return true;
            }
        }
        return false;
    }
    std::vector<std::vector<size_t>> named_;
    std::vector<size_t> finding_of_, entry_of_;
};

} // namespace

void FindingsSince::add(const Finding &finding, const std::string &line) {
    if (finding.kind != FindingKind::mismatch && finding.kind != FindingKind::value_error) return; // what expect: counts
    if (kept.size() < kMaxNamedFindings) kept.push_back({finding, line});
    else ++left_out;
}

std::string read_status(const JSON_Value *status, StatusValue &out) {
    const char *text = json_value_get_string(status);
    bool numeric = text && text[0] && std::strspn(text, "0123456789abcdefxABCDEFX") == std::strlen(text);
    out.by_name = json_value_get_type(status) == JSONString && pc::support::status_from_name(text, out.value);
    if (json_value_get_type(status) == JSONString && !out.by_name && !numeric)
        return fmt::format("unknown status '{}' (a number or a name such as ENOMEM){}", text,
                           pc::support::did_you_mean(text, pc::support::status_name_list()));
    if (json_value_get_type(status) != JSONString && json_value_get_type(status) != JSONNumber)
        return "status: is a number or a name such as ENOMEM";
    if (std::string p = whole_number_problem(status, INT32_MIN, UINT32_MAX); !p.empty()) return "status: the value " + p;
    out.value = int32_t(json_value_get_constant(status));
    return "";
}

std::string read_finding_entries(const JSON_Value *list, std::vector<FindingEntry> &entries, const JSON_Value *&problem_at) {
    problem_at = list;
    const JSON_Array *a = json_value_get_array(list);
    if (!a) return "findings: is a list of findings such as [ { attribute: attr_a1 }, { status: EBUSY } ]";
    if (json_array_get_count(a) > kMaxNamedFindings) return fmt::format("findings: names at most {} findings", kMaxNamedFindings);
    entries.resize(json_array_get_count(a));
    for (size_t i = 0; i < entries.size(); ++i)
        if (std::string problem = read_entry(json_array_get_value(a, i), entries[i], problem_at); !problem.empty()) return problem;
    return "";
}

std::string unpaired_findings(const std::vector<FindingEntry> &entries, const FindingsSince &came) {
    Pairing pairing(entries, came.kept);
    std::string expected, arrived, left;
    for (size_t e = 0; e < entries.size(); ++e) {
        expected += "\n  expected: " + entries[e].shown;
        if (pairing.finding_of(e) == Pairing::kNone) left += "\n  left over: " + entries[e].shown + " matched no finding";
    }
    for (size_t f = 0; f < came.kept.size(); ++f) {
        arrived += "\n  came: " + came.kept[f].line;
        if (pairing.entry_of(f) == Pairing::kNone) left += "\n  left over: " + came.kept[f].line + " was named by no entry";
    }
    if (came.left_out) {
        std::string more = plural(came.left_out, "more finding") + ", left out";
        arrived += "\n  came: " + more;
        left += "\n  left over: " + more;
    }
    if (left.empty()) return "";
    return (expected.empty() ? "\n  expected: no finding" : expected) + (arrived.empty() ? "\n  came: no finding" : arrived) + left;
}

} // namespace pc::runner
