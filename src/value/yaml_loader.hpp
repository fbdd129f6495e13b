// YAML (and so JSON) reader into the JSON value model, on libyaml's event stream.
#pragma once

#include "arena.hpp"
#include "json_value.hpp"
#include "loader.hpp"

#include <cstdio>
#include <memory>
#include <string>

namespace pc::yaml {

using LoadError = load::LoadError;
using Limits = load::Limits;

// Reads one YAML stream node by node. A document can be read whole (read_value after
// begin_document), or as a top-level mapping whose values are read one at a time, which lets the
// runner read a scenario's steps one by one into an arena that it resets between steps.
class Reader final : public load::DocumentReader {
public:
    Reader();
    ~Reader() override;
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    bool open_file(const std::string &path, LoadError &error);
    bool open_string(std::string text, const std::string &name, LoadError &error);

    // Positions the reader inside the first document. `empty` is set for a stream without one.
    bool begin_document(bool &empty, LoadError &error) override;
    // The next event must start a mapping (or sequence); consumes it.
    bool begin_mapping(LoadError &error) override;
    bool begin_sequence(LoadError &error) override;
    // Reads the next key of the current mapping; `end` when the mapping is closed.
    bool next_key(std::string &key, json::Position &at, bool &end, LoadError &error) override;
    // True when the current sequence is closed (consumes the end event).
    bool at_sequence_end(bool &end, LoadError &error) override;
    // Reads one whole node (scalar, sequence, mapping or alias).
    JSON_Value *read_value(Arena &arena, LoadError &error) override;
    // After the document's top node: the end of the file must follow; a second document is refused.
    bool end_document(LoadError &error) override;

    // Anchors defined in values read into `arena` before its latest reset are forgotten.
    void forget_anchors_of(const Arena &arena) override;
    void forget_anchors_except(const Arena &kept) override;
    void reset_alias_budget() override { alias_nodes_ = 0; }
    const std::string &name() const { return name_; }
    size_t bytes_read() const override; // how far into the input the parser is
    void set_limits(const Limits &limits) { limits_ = limits; }

    struct Impl; // libyaml state; public so the reader's helpers can reach it

private:
    template <class Forget> void forget_anchors_where(Forget forget);

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
