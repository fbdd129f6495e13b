// YAML (and so JSON) reader into the JSON value model, on libyaml's event stream.
#pragma once

#include "arena.hpp"
#include "json_value.hpp"

#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>

namespace pc::yaml {

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

// Reads one YAML stream node by node. A document can be read whole (read_value after
// begin_document), or as a top-level mapping whose values are read one at a time, which lets the
// runner read a scenario's steps one by one into an arena that it resets between steps.
class Reader {
public:
    Reader();
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    bool open_file(const std::string &path, LoadError &error);
    bool open_string(std::string text, const std::string &name, LoadError &error);

    // Positions the reader inside the first document. `empty` is set for a stream without one.
    bool begin_document(bool &empty, LoadError &error);
    // The next event must start a mapping (or sequence); consumes it.
    bool begin_mapping(LoadError &error);
    bool begin_sequence(LoadError &error);
    // Reads the next key of the current mapping; `end` when the mapping is closed.
    bool next_key(std::string &key, json::Position &at, bool &end, LoadError &error);
    // True when the current sequence is closed (consumes the end event).
    bool at_sequence_end(bool &end, LoadError &error);
    // Reads one whole node (scalar, sequence, mapping or alias).
    JSON_Value *read_value(Arena &arena, LoadError &error);
    // After the document's top node: the end of the file must follow; a second document is refused.
    bool end_document(LoadError &error);

    // Anchors defined in values read into `arena` before its latest reset are forgotten.
    void forget_anchors_of(const Arena &arena);
    void reset_alias_budget() { alias_nodes_ = 0; }
    const std::string &name() const { return name_; }
    size_t bytes_read() const; // how far into the input the parser is
    void set_limits(const Limits &limits) { limits_ = limits; }

    struct Impl; // libyaml state; public so the reader's helpers can reach it

private:
    std::unique_ptr<Impl> impl_;
    std::string name_;
    Limits limits_;
    size_t alias_nodes_ = 0;
};

// Loads the document of a file whole. Returns null on error (error filled), a second document
// included; an empty file gives a JSON null.
JSON_Value *load_file(const std::string &path, Arena &arena, LoadError &error);
JSON_Value *load_string(const std::string &text, const std::string &name, Arena &arena, LoadError &error);

} // namespace pc::yaml
