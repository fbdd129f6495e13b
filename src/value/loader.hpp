// One interface over the scenario file forms: YAML (libyaml, streaming), JSON and JSON Lines
// (simdjson). Whichever form a file is in, the reader hands out the same values with the same
// lines and columns, so the runner does not care which one read a step.
#pragma once

#include "arena.hpp"
#include "json_value.hpp"

#include <memory>
#include <string>

namespace pc::load {

struct LoadError {
    std::string file;
    uint32_t line = 0;   // 1-based; 0 when unknown
    uint32_t column = 0; // 1-based
    std::string message;
    // "FILE:LINE:COL: message"
    std::string text() const;
};

struct Limits {
    size_t max_depth = 200;              // nesting of sequences and mappings
    size_t max_alias_nodes = 1u << 22;   // nodes an alias may expand to, per document or step
};

// Reads one document node by node: whole (read_value after begin_document), or as a top-level
// mapping whose values are read one at a time, which lets the runner read a scenario's steps one
// by one into an arena that it resets between steps.
class DocumentReader {
public:
    virtual ~DocumentReader() = default;

    // Positions the reader inside the first document. `empty` is set for an input without one.
    virtual bool begin_document(bool &empty, LoadError &error) = 0;
    // The next node must start a mapping (or sequence); consumes its start.
    virtual bool begin_mapping(LoadError &error) = 0;
    virtual bool begin_sequence(LoadError &error) = 0;
    // Reads the next key of the current mapping; `end` when the mapping is closed.
    virtual bool next_key(std::string &key, json::Position &at, bool &end, LoadError &error) = 0;
    // True when the current sequence is closed (consumes its end).
    virtual bool at_sequence_end(bool &end, LoadError &error) = 0;
    // Reads one whole node.
    virtual JSON_Value *read_value(Arena &arena, LoadError &error) = 0;

    // Anchors defined in values read into `arena` before its latest reset are forgotten.
    virtual void forget_anchors_of(const Arena &) {}
    // Every anchor defined in a value not read into `kept` is forgotten.
    virtual void forget_anchors_except(const Arena &kept) {}
    virtual void reset_alias_budget() {}
    virtual size_t bytes_read() const = 0; // how far into the input the reader is
    // After the document's top node: nothing else may follow in the input.
    virtual bool end_document(LoadError &) { return true; }
};

// The reader for a scenario file, by its name: ".jsonl" is JSON Lines, ".json" is JSON, anything
// else YAML. Null (error filled) when the file cannot be opened.
std::unique_ptr<DocumentReader> open_document(const std::string &path, LoadError &error);

} // namespace pc::load
