#include "record_lint.hpp"

#include "planecheck/session.hpp"
#include "suggest.hpp"
#include "planecheck/vocabulary.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace pc::runner {
namespace {

struct Names {
    std::unordered_set<std::string_view> top, element;
    // what a user may mean: the type's own names, without the control fields
    std::vector<std::string_view> own_top, own_element;
};

const Names &names_of(const engine::TypeDesc &t) {
    static std::vector<std::unique_ptr<Names>> cache(engine::kTypeCount);
    auto &slot = cache[t.number];
    if (slot) return *slot;
    slot = std::make_unique<Names>();
    for (const auto &control : vocabulary::kControlFields) slot->top.insert(control.name);
    for (const char *other : {"members", "npd_state"}) slot->top.insert(other); // the elements, and the SDK side's state
    if (t.count_key) slot->top.insert(t.count_key);
    for (const auto &a : t.top()) slot->own_top.push_back(a.name);
    for (const auto &a : t.elements()) slot->own_element.push_back(a.name);
    for (const auto &r : t.top_roles()) slot->own_top.insert(slot->own_top.end(), {r.hdl_key, r.key_key});
    for (const auto &r : t.element_roles()) slot->own_element.insert(slot->own_element.end(), {r.hdl_key, r.key_key});
    slot->top.insert(slot->own_top.begin(), slot->own_top.end());
    slot->element.insert(slot->own_element.begin(), slot->own_element.end());
    return *slot;
}

// The names the type has where the key stood, when they are few enough to read in a line, and
// the one the key was probably meant to be.
std::string known_names(const engine::TypeDesc &t, bool element, const char *key) {
    const Names &names = names_of(t);
    const auto &own = element ? names.own_element : names.own_top;
    std::vector<std::string_view> candidates = own;
    candidates.insert(candidates.end(), names.top.begin(), names.top.end()); // control fields too
    std::string text;
    constexpr size_t kFew = 24;
    if (own.size() <= kFew) {
        for (std::string_view n : own) text += (text.empty() ? "" : ", ") + std::string(n);
        text = element ? fmt::format("; {}'s members have: {}", t.name, text) : fmt::format("; {} has: {}", t.name, text);
    } else {
        text = fmt::format("; planecheck catalogue --describe {} lists its {} names", t.name, own.size());
    }
    return text + pc::support::did_you_mean(key, element ? own : candidates);
}

void lint_object(const engine::TypeDesc &t, const JSON_Object *o, bool element, const UnknownKey &report) {
    const Names &names = names_of(t);
    const auto &known = element ? names.element : names.top;
    for (size_t i = 0; i < json_object_get_count(o); ++i) {
        const char *key = json_object_get_name(o, i);
        if (known.count(key)) continue;
        std::string where = element ? " in its members" : "";
        report(json_object_get_value_at(o, i), std::string(t.name) + " has no '" + key + "'" + where +
                                                   "; the key is ignored, so nothing checks it" + known_names(t, element, key));
    }
}

std::string text_number_problem(const char *text, int64_t min, uint64_t max) {
    int32_t status;
    if (pc::support::status_from_name(text, status)) return "";
    char *end = nullptr;
    errno = 0;
    bool negative = text[0] == '-';
    long long s = negative ? std::strtoll(text, &end, 0) : 0;
    unsigned long long u = negative ? 0 : std::strtoull(text, &end, 0);
    if (end == text || !end || *end) return "is not a number or a status name" + pc::support::did_you_mean(text, pc::support::status_name_list());
    if (errno == ERANGE) return "does not fit in 64 bits";
    return negative ? (s < min ? "is out of range" : "") : (u > max ? "is out of range" : "");
}

} // namespace

std::string whole_number_problem(const JSON_Value *v, int64_t min, uint64_t max) {
    std::string problem;
    int64_t i;
    uint64_t u;
    switch (json_value_get_type(v)) {
    case JSONBoolean: return "";
    case JSONString: problem = text_number_problem(json_value_get_string(v), min, max); break;
    case JSONNumber:
        if (pc_json_get_uint64(v, &u)) problem = u > max ? "is out of range" : "";
        else if (pc_json_get_int64(v, &i)) problem = i < min ? "is out of range" : "";
        else if (double d = json_value_get_number(v); !std::isfinite(d)) problem = "is not a finite number";
        else if (std::trunc(d) < double(min) || std::trunc(d) >= double(max) + 1.0) problem = "is out of range";
        break;
    default: problem = "is not a number"; break;
    }
    if (problem.empty()) return "";
    if (problem == "is out of range") problem = fmt::format("is out of range ({} to {})", min, max);
    return problem;
}

ValueProblem unreadable_number(const engine::TypeDesc &type, const JSON_Value *records, bool sdk_side) {
    const JSON_Array *list = json_value_get_array(records);
    auto check = [](const JSON_Value *v, const char *key, uint64_t max) -> ValueProblem {
        std::string problem = whole_number_problem(v, max == UINT32_MAX ? INT32_MIN : INT64_MIN, max);
        if (problem.empty()) return {};
        return {v, fmt::format("{}: the value {}", key, problem)};
    };
    for (size_t i = 0; list && i < json_array_get_count(list); ++i) {
        const JSON_Object *record = json_value_get_object(json_array_get_value(list, i));
        if (type.count_key)
            if (const JSON_Value *v = json_object_get_value(record, type.count_key))
                if (auto p = check(v, type.count_key, UINT32_MAX); p.at) return p;
        if (const JSON_Value *v = json_object_get_value(record, "router"))
            if (auto p = check(v, "router", UINT64_MAX); p.at) return p;
        if (const JSON_Value *v = json_object_get_value(record, "rc"); v && sdk_side)
            if (auto p = check(v, "rc", UINT32_MAX); p.at) return p;
        const JSON_Array *results = json_value_get_array(json_object_get_value(record, vocabulary::kFieldNpuResult));
        for (size_t n = 0; n < json_array_get_count(results); ++n)
            if (auto p = check(json_array_get_value(results, n), vocabulary::kFieldNpuResult, UINT32_MAX); p.at) return p;
    }
    return {};
}

void lint_records(const engine::TypeDesc &type, const JSON_Value *records, const UnknownKey &report) {
    const JSON_Array *list = json_value_get_array(records);
    for (size_t i = 0; list && i < json_array_get_count(list); ++i) {
        const JSON_Object *record = json_value_get_object(json_array_get_value(list, i));
        if (!record) continue;
        lint_object(type, record, false, report);
        const JSON_Array *members = json_value_get_array(json_object_get_value(record, "members"));
        for (size_t j = 0; members && j < json_array_get_count(members); ++j)
            if (const JSON_Object *element = json_value_get_object(json_array_get_value(members, j)))
                lint_object(type, element, true, report);
    }
}

} // namespace pc::runner
