#include "suggestions.hpp"

#include "engine.hpp"
#include "suggest.hpp"

#include <vector>

namespace pc::runner {

std::string table_suggestion(std::string_view name) {
    static const std::vector<std::string_view> names = [] {
        std::vector<std::string_view> all = {"ports", "vlan", "batch_crud", "route", "bundle", "get_then_update_test"};
        for (size_t i = 0; i < engine::kTypeCount; ++i) all.push_back(engine::kTypes[i]->name);
        return all;
    }();
    return support::did_you_mean(name, names);
}

std::string op_suggestion(std::string_view op) {
    static const std::vector<std::string_view> ops = {"create", "update", "delete", "get", "get_first", "get_next", "get_gt_eq",
                                                      "walk_by_key", "eod", "replay", "replay_start", "replay_end"};
    return support::did_you_mean(op, ops);
}

} // namespace pc::runner
