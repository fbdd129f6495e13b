#include "suggestions.hpp"

#include "engine.hpp"
#include "suggest.hpp"

#include <fmt/format.h>

namespace pc::runner {

std::string table_suggestion(std::string_view name) {
    static const std::vector<std::string_view> names = [] {
        std::vector<std::string_view> all;
        for (const auto &special : vocabulary::kSpecialKeys) all.push_back(special.key);
        for (size_t i = 0; i < engine::kTypeCount; ++i) all.push_back(engine::kTypes[i]->name);
        return all;
    }();
    return support::did_you_mean(name, names);
}

std::vector<std::string_view> ops_of(const engine::TypeDesc &type) {
    std::vector<std::string_view> ops;
    for (const vocabulary::Op &op : vocabulary::kOps)
        if (!op.has(vocabulary::kFlagNeedsEod) || type.eod) ops.push_back(op.name);
    return ops;
}

std::string ops_text(const engine::TypeDesc &type) { return fmt::format("{}", fmt::join(ops_of(type), ", ")); }

std::string op_suggestion(const engine::TypeDesc &type, std::string_view op) { return support::did_you_mean(op, ops_of(type)); }

} // namespace pc::runner
