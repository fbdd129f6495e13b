// The client entry point: picks the handler of a step by its keys.
#include "common.hpp"
#include "engine.hpp"
#include "planecheck/planecheck.h"

#include <cstdlib>
#include <string_view>
#include <unordered_map>

namespace pc::engine {

const TypeDesc *find_type(const char *name) {
    static const std::unordered_map<std::string_view, const TypeDesc *> by_name = [] {
        std::unordered_map<std::string_view, const TypeDesc *> map;
        for (size_t i = 0; i < kTypeCount; ++i) map.emplace(kTypes[i]->name, kTypes[i]);
        return map;
    }();
    auto it = name ? by_name.find(name) : by_name.end();
    return it == by_name.end() ? nullptr : it->second;
}

// The earliest catalogue type among the record's keys, and the value under that key.
const TypeDesc *first_type(const JSON_Object *record, JSON_Value *&value) {
    const TypeDesc *best = nullptr;
    for (size_t i = 0; i < json_object_get_count(record); ++i) {
        const TypeDesc *t = find_type(json_object_get_name(record, i));
        if (t && (!best || t->number < best->number)) best = t, value = json_object_get_value_at(record, i);
    }
    return best;
}

} // namespace pc::engine

extern "C" int json_send_object_client(JSON_Value *value, PROCESS *context) {
    using Handler = int (*)(JSON_Value *, PROCESS *);
#define PC_SPECIAL_KEY(key, handler) {key, handler},
    static const std::pair<const char *, Handler> specials[] = {PC_SPECIAL_KEY_HANDLERS(PC_SPECIAL_KEY)};
#undef PC_SPECIAL_KEY
    const JSON_Object *record = json_value_get_object(value);
    if (!record) return 0;
    for (const auto &[key, handler] : specials)
        if (JSON_Value *v = json_object_get_value(record, key)) {
            handler(v, context);
            return 0;
        }
    JSON_Value *records = nullptr;
    if (const pc::engine::TypeDesc *type = pc::engine::first_type(record, records)) {
        pc::engine::send(*type, records, context);
        return 0;
    }
    // a misspelled table must not let the scenario run on: the process ends here, deliberately
    pc::engine::report_unknown_table(context, record);
    std::exit(1);
}
