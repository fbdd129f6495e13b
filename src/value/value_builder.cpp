#include "value_builder.hpp"

#include <cstring>
#include <functional>
#include <string_view>

namespace pc::load {

bool ValueBuilder::has_key(const Frame &frame, size_t depth, std::string_view name) {
    size_t count = names_.size() - frame.base;
    if (count <= kScanAtMost) {
        for (size_t i = frame.base; i < names_.size(); ++i)
            if (name == names_[i]) return true;
        return false;
    }
    if (tables_.size() <= depth) tables_.resize(depth + 1);
    Table &table = tables_[depth];
    index(table, frame);
    size_t mask = table.slots.size() - 1;
    for (size_t h = std::hash<std::string_view>{}(name) & mask;; h = (h + 1) & mask) {
        uint32_t slot = table.slots[h];
        if (!slot) return false;
        if (name == names_[frame.base + slot - 1]) return true;
    }
}

// Brings the table up to the frame's members, at most half full.
void ValueBuilder::index(Table &table, const Frame &frame) {
    size_t count = names_.size() - frame.base;
    bool stale = table.serial != frame.serial;
    if (stale || table.slots.size() < 2 * (count + 1)) {
        size_t size = 64;
        while (size < 4 * (count + 1)) size *= 2;
        table.slots.assign(size, 0);
        table.serial = frame.serial;
        table.indexed = 0;
    }
    size_t mask = table.slots.size() - 1;
    for (; table.indexed < count; ++table.indexed) {
        size_t h = std::hash<std::string_view>{}(names_[frame.base + table.indexed]) & mask;
        while (table.slots[h]) h = (h + 1) & mask;
        table.slots[h] = uint32_t(table.indexed + 1);
    }
}

JSON_Value *ValueBuilder::close_object(Arena &arena, const Frame &frame, json::Position at) {
    size_t count = names_.size() - frame.base;
    JSON_Value *out = json::make_object(arena, names_.data() + frame.base, values_.data() + frame.base, count, at);
    names_.resize(frame.base);
    values_.resize(frame.base);
    return out;
}

JSON_Value *ValueBuilder::close_array(Arena &arena, const Frame &frame, json::Position at) {
    size_t count = values_.size() - frame.base;
    JSON_Value *out = json::make_array(arena, values_.data() + frame.base, count, at);
    names_.resize(frame.base);
    values_.resize(frame.base);
    return out;
}

} // namespace pc::load
