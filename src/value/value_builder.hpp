// Where the loaders collect a mapping's or a sequence's members until it closes, then copy them
// into the arena in one piece. The scratch stacks are reused from node to node, so a warm loader
// allocates nothing per node; duplicate keys are found by a scan of the open mapping, or through a
// reused hash table once the mapping is large.
#pragma once

#include "json_value.hpp"

#include <cstdint>
#include <vector>

namespace pc::load {

class ValueBuilder {
public:
    struct Frame {
        size_t base;
        size_t serial;
    };
    Frame open() { return {names_.size(), ++serial_}; }
    // Sequences keep their items on the same stack; their names stay null.
    void add(const char *name, JSON_Value *value) {
        names_.push_back(name);
        values_.push_back(value);
    }
    // True when `name` is already a key of the mapping opened as `frame` at nesting `depth`.
    bool has_key(const Frame &frame, size_t depth, std::string_view name);
    JSON_Value *close_object(Arena &arena, const Frame &frame, json::Position at);
    JSON_Value *close_array(Arena &arena, const Frame &frame, json::Position at);
    // After an error: forget every open frame.
    void clear() { names_.clear(), values_.clear(); }

private:
    static constexpr size_t kScanAtMost = 24;
    struct Table {
        size_t serial = 0;
        size_t indexed = 0;           // members of the frame already in `slots`
        std::vector<uint32_t> slots;  // 0 empty, else member offset + 1
    };
    void index(Table &table, const Frame &frame);

    std::vector<const char *> names_;
    std::vector<JSON_Value *> values_;
    std::vector<Table> tables_; // by nesting depth
    size_t serial_ = 0;
};

} // namespace pc::load
