#include "record_lint.hpp"

#include <memory>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace pc::runner {
namespace {

struct Names {
    std::unordered_set<std::string_view> top, element;
};

const Names &names_of(const engine::TypeDesc &t) {
    static std::vector<std::unique_ptr<Names>> cache(engine::kTypeCount);
    auto &slot = cache[t.number];
    if (slot) return *slot;
    slot = std::make_unique<Names>();
    for (const char *control : {"op", "rc", "hdl", "trans_id", "depth", "npu_result", "npu_mask", "create_option",
                                "get_option", "retry_mode", "router", "members", "npd_state", "expect_did_not_run"})
        slot->top.insert(control);
    if (t.count_key) slot->top.insert(t.count_key);
    for (const auto &a : t.top()) slot->top.insert(a.name);
    for (const auto &a : t.elements()) slot->element.insert(a.name);
    for (const auto &r : t.top_roles()) slot->top.insert({r.hdl_key, r.key_key});
    for (const auto &r : t.element_roles()) slot->element.insert({r.hdl_key, r.key_key});
    return *slot;
}

void lint_object(const engine::TypeDesc &t, const JSON_Object *o, bool element, const UnknownKey &report) {
    const Names &names = names_of(t);
    const auto &known = element ? names.element : names.top;
    for (size_t i = 0; i < json_object_get_count(o); ++i) {
        const char *key = json_object_get_name(o, i);
        if (known.count(key)) continue;
        std::string where = element ? " in its members" : "";
        report(json_object_get_value_at(o, i),
               std::string(t.name) + " has no '" + key + "'" + where + "; the key is ignored, so nothing checks it");
    }
}

} // namespace

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
