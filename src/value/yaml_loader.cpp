#include "yaml_loader.hpp"

#include "value_builder.hpp"

#include <yaml.h>

#include <cstring>
#include <unordered_map>
#include <unordered_set>

namespace pc::yaml {

struct Reader::Impl {
    yaml_parser_t parser{};
    bool parser_ready = false;
    FILE *file = nullptr;
    std::string text; // keeps an in-memory input alive
    yaml_event_t event{};
    bool have_event = false; // one event of look-ahead
    load::ValueBuilder values;

    struct Anchor {
        JSON_Value *value;
        size_t nodes;
        const Arena *arena;
        size_t generation;
    };
    std::unordered_map<std::string, Anchor> anchors;
    std::unordered_set<std::string> forgotten; // anchors of earlier steps, for a clear message
    static constexpr size_t kForgottenMax = 10000;

    ~Impl() {
        if (have_event) yaml_event_delete(&event);
        if (parser_ready) yaml_parser_delete(&parser);
        if (file) std::fclose(file);
    }
};

namespace {

json::Position position_of(const yaml_mark_t &mark) {
    return {static_cast<uint32_t>(mark.line + 1), static_cast<uint32_t>(mark.column + 1)};
}

const char *event_name(yaml_event_type_t type) {
    switch (type) {
    case YAML_SCALAR_EVENT: return "a scalar";
    case YAML_SEQUENCE_START_EVENT: return "a sequence";
    case YAML_MAPPING_START_EVENT: return "a mapping";
    case YAML_ALIAS_EVENT: return "an alias";
    case YAML_SEQUENCE_END_EVENT: return "the end of a sequence";
    case YAML_MAPPING_END_EVENT: return "the end of a mapping";
    case YAML_DOCUMENT_END_EVENT: return "the end of the document";
    case YAML_STREAM_END_EVENT: return "the end of the file";
    default: return "something else";
    }
}

} // namespace

Reader::Reader() : impl_(std::make_unique<Impl>()) {}
Reader::~Reader() = default;

bool Reader::open_file(const std::string &path, LoadError &error) {
    name_ = path;
    impl_->file = std::fopen(path.c_str(), "rb");
    if (!impl_->file) {
        error = {path, 0, 0, std::string("cannot open: ") + std::strerror(errno)};
        return false;
    }
    yaml_parser_initialize(&impl_->parser);
    impl_->parser_ready = true;
    yaml_parser_set_input_file(&impl_->parser, impl_->file);
    return true;
}

bool Reader::open_string(std::string text, const std::string &name, LoadError &) {
    name_ = name;
    impl_->text = std::move(text);
    yaml_parser_initialize(&impl_->parser);
    impl_->parser_ready = true;
    yaml_parser_set_input_string(&impl_->parser, reinterpret_cast<const unsigned char *>(impl_->text.data()),
                                 impl_->text.size());
    return true;
}

namespace {

// Fetches the next event into impl.event unless one is already waiting.
bool peek(Reader::Impl &impl, const std::string &name, LoadError &error) {
    if (impl.have_event) return true;
    if (!yaml_parser_parse(&impl.parser, &impl.event)) {
        const yaml_parser_t &p = impl.parser;
        json::Position at = position_of(p.problem_mark);
        std::string message = p.problem ? p.problem : "malformed YAML";
        if (p.context) {
            message += std::string(" ") + p.context;
            if (p.context_mark.line != p.problem_mark.line)
                message += " that starts at line " + std::to_string(p.context_mark.line + 1);
        }
        error = {name, at.line, at.column, message};
        return false;
    }
    impl.have_event = true;
    return true;
}

void consume(Reader::Impl &impl) {
    yaml_event_delete(&impl.event);
    impl.have_event = false;
}

} // namespace

bool Reader::begin_document(bool &empty, LoadError &error) {
    empty = false;
    for (;;) {
        if (!peek(*impl_, name_, error)) return false;
        switch (impl_->event.type) {
        case YAML_STREAM_START_EVENT: consume(*impl_); continue;
        case YAML_DOCUMENT_START_EVENT: consume(*impl_); return true;
        case YAML_STREAM_END_EVENT: empty = true; return true;
        default: {
            json::Position at = position_of(impl_->event.start_mark);
            error = {name_, at.line, at.column, "expected the start of a document"};
            return false;
        }
        }
    }
}

namespace {

bool expect_start(Reader::Impl &impl, const std::string &name, yaml_event_type_t type, const char *what,
                  LoadError &error) {
    if (!peek(impl, name, error)) return false;
    if (impl.event.type != type) {
        json::Position at = position_of(impl.event.start_mark);
        error = {name, at.line, at.column,
                 std::string("expected ") + what + ", found " + event_name(impl.event.type)};
        return false;
    }
    consume(impl);
    return true;
}

} // namespace

bool Reader::begin_mapping(LoadError &error) {
    return expect_start(*impl_, name_, YAML_MAPPING_START_EVENT, "a mapping", error);
}

bool Reader::begin_sequence(LoadError &error) {
    return expect_start(*impl_, name_, YAML_SEQUENCE_START_EVENT, "a sequence (a list of '- ' items)", error);
}

bool Reader::next_key(std::string &key, json::Position &at, bool &end, LoadError &error) {
    end = false;
    if (!peek(*impl_, name_, error)) return false;
    const yaml_event_t &e = impl_->event;
    at = position_of(e.start_mark);
    if (e.type == YAML_MAPPING_END_EVENT) {
        consume(*impl_);
        end = true;
        return true;
    }
    if (e.type != YAML_SCALAR_EVENT) {
        error = {name_, at.line, at.column, std::string("expected a key, found ") + event_name(e.type)};
        return false;
    }
    key.assign(reinterpret_cast<const char *>(e.data.scalar.value), e.data.scalar.length);
    consume(*impl_);
    return true;
}

bool Reader::at_sequence_end(bool &end, LoadError &error) {
    if (!peek(*impl_, name_, error)) return false;
    end = impl_->event.type == YAML_SEQUENCE_END_EVENT;
    if (end) consume(*impl_);
    return true;
}

namespace {

struct NodeBuilder {
    Reader::Impl &impl;
    const std::string &name;
    Arena &arena;
    LoadError &error;
    const Limits &limits;
    size_t &alias_nodes;
    size_t nodes = 0; // nodes built by the current top-level read

    bool fail(json::Position at, std::string message) {
        error = {name, at.line, at.column, std::move(message)};
        return false;
    }

    void remember_anchor(const yaml_char_t *anchor, JSON_Value *value, size_t node_count) {
        if (!anchor) return;
        impl.anchors[reinterpret_cast<const char *>(anchor)] = {value, node_count, &arena, arena.generation()};
    }

    bool build(JSON_Value *&out, size_t depth) {
        if (!peek(impl, name, error)) return false;
        yaml_event_t &e = impl.event;
        json::Position at = position_of(e.start_mark);
        if (depth > limits.max_depth)
            return fail(at, "nesting deeper than " + std::to_string(limits.max_depth) + " levels");
        switch (e.type) {
        case YAML_SCALAR_EVENT: return scalar(out, at);
        case YAML_ALIAS_EVENT: return alias(out, at);
        case YAML_SEQUENCE_START_EVENT: return sequence(out, at, depth);
        case YAML_MAPPING_START_EVENT: return mapping(out, at, depth);
        default: return fail(at, std::string("expected a value, found ") + event_name(e.type));
        }
    }

    bool scalar(JSON_Value *&out, json::Position at) {
        yaml_event_t &e = impl.event;
        std::string_view text(reinterpret_cast<const char *>(e.data.scalar.value), e.data.scalar.length);
        const char *tag = reinterpret_cast<const char *>(e.data.scalar.tag);
        if (json::holds_nul(text)) return fail(at, json::kNulInText);
        bool as_string = !e.data.scalar.plain_implicit || (tag && std::strcmp(tag, YAML_STR_TAG) == 0);
        out = as_string ? json::make_string(arena, text, at) : json::resolve_plain_scalar(arena, text, at);
        if (!out)
            return fail(at, "the integer " + std::string(text) +
                                " does not fit in 64 bits (-9223372036854775808 to 18446744073709551615)");
        ++nodes;
        remember_anchor(e.data.scalar.anchor, out, 1);
        consume(impl);
        return true;
    }

    bool alias(JSON_Value *&out, json::Position at) {
        std::string anchor(reinterpret_cast<const char *>(impl.event.data.alias.anchor));
        consume(impl);
        auto it = impl.anchors.find(anchor);
        if (it == impl.anchors.end() && impl.forgotten.count(anchor))
            return fail(at, "anchor '" + anchor +
                                "' was defined in an earlier step; steps are read one at a time, so define "
                                "shared values before 'steps:' or within the step");
        if (it == impl.anchors.end()) return fail(at, "unknown anchor '" + anchor + "'");
        const auto &a = it->second;
        alias_nodes += a.nodes;
        if (alias_nodes > limits.max_alias_nodes)
            return fail(at, "aliases expand to more than " + std::to_string(limits.max_alias_nodes) + " values");
        // values are read-only, so the aliased subtree is shared rather than copied
        out = a.value;
        nodes += a.nodes;
        return true;
    }

    bool sequence(JSON_Value *&out, json::Position at, size_t depth) {
        const yaml_char_t *anchor_raw = impl.event.data.sequence_start.anchor;
        std::string anchor = anchor_raw ? reinterpret_cast<const char *>(anchor_raw) : "";
        consume(impl);
        size_t first = nodes;
        auto frame = impl.values.open();
        for (;;) {
            if (!peek(impl, name, error)) return false;
            if (impl.event.type == YAML_SEQUENCE_END_EVENT) break;
            JSON_Value *item = nullptr;
            if (!build(item, depth + 1)) return false;
            impl.values.add(nullptr, item);
        }
        consume(impl);
        out = impl.values.close_array(arena, frame, at);
        ++nodes;
        if (!anchor.empty())
            remember_anchor(reinterpret_cast<const yaml_char_t *>(anchor.c_str()), out, nodes - first);
        return true;
    }

    bool mapping(JSON_Value *&out, json::Position at, size_t depth) {
        const yaml_char_t *anchor_raw = impl.event.data.mapping_start.anchor;
        std::string anchor = anchor_raw ? reinterpret_cast<const char *>(anchor_raw) : "";
        consume(impl);
        size_t first = nodes;
        auto frame = impl.values.open();
        for (;;) {
            if (!peek(impl, name, error)) return false;
            yaml_event_t &e = impl.event;
            if (e.type == YAML_MAPPING_END_EVENT) break;
            json::Position key_at = position_of(e.start_mark);
            if (e.type != YAML_SCALAR_EVENT)
                return fail(key_at, std::string("a key must be a plain name, found ") + event_name(e.type));
            std::string_view key_text(reinterpret_cast<const char *>(e.data.scalar.value), e.data.scalar.length);
            if (json::holds_nul(key_text)) return fail(key_at, json::kNulInText);
            if (impl.values.has_key(frame, depth, key_text))
                return fail(key_at, "duplicate key '" + std::string(key_text) + "'");
            const char *key = arena.copy_string(key_text);
            consume(impl);
            JSON_Value *value = nullptr;
            if (!build(value, depth + 1)) return false;
            impl.values.add(key, value);
        }
        consume(impl);
        out = impl.values.close_object(arena, frame, at);
        ++nodes;
        if (!anchor.empty())
            remember_anchor(reinterpret_cast<const yaml_char_t *>(anchor.c_str()), out, nodes - first);
        return true;
    }
};

} // namespace

JSON_Value *Reader::read_value(Arena &arena, LoadError &error) {
    NodeBuilder builder{*impl_, name_, arena, error, limits_, alias_nodes_};
    JSON_Value *out = nullptr;
    if (builder.build(out, 0)) return out;
    impl_->values.clear();
    return nullptr;
}

bool Reader::end_document(LoadError &error) {
    for (;;) {
        if (!peek(*impl_, name_, error)) return false;
        const yaml_event_t &e = impl_->event;
        if (e.type == YAML_STREAM_END_EVENT) return true;
        json::Position at = position_of(e.start_mark);
        if (e.type == YAML_DOCUMENT_END_EVENT) {
            consume(*impl_);
            continue;
        }
        if (e.type == YAML_DOCUMENT_START_EVENT)
            error = {name_, at.line, at.column, "a second YAML document starts here; a file holds one document, "
                                                "and nothing after the first would be read"};
        else
            error = {name_, at.line, at.column, std::string("expected the end of the document, found ") + event_name(e.type)};
        return false;
    }
}

size_t Reader::bytes_read() const { return impl_->parser_ready ? impl_->parser.mark.index : 0; }

void Reader::forget_anchors_of(const Arena &arena) {
    forget_anchors_where([&](const Impl::Anchor &a) { return a.arena == &arena && a.generation != arena.generation(); });
}

void Reader::forget_anchors_except(const Arena &kept) {
    forget_anchors_where([&](const Impl::Anchor &a) { return a.arena != &kept; });
}

template <class Forget> void Reader::forget_anchors_where(Forget forget) {
    for (auto it = impl_->anchors.begin(); it != impl_->anchors.end();) {
        if (forget(it->second)) {
            if (impl_->forgotten.size() < Impl::kForgottenMax) impl_->forgotten.insert(it->first);
            it = impl_->anchors.erase(it);
        }
        else
            ++it;
    }
}

namespace {

JSON_Value *load_with(Reader &reader, Arena &arena, LoadError &error) {
    bool empty = false;
    if (!reader.begin_document(empty, error)) return nullptr;
    if (empty) return json::make_null(arena, {1, 1});
    JSON_Value *value = reader.read_value(arena, error);
    return value && reader.end_document(error) ? value : nullptr;
}

} // namespace

JSON_Value *load_file(const std::string &path, Arena &arena, LoadError &error) {
    Reader reader;
    if (!reader.open_file(path, error)) return nullptr;
    return load_with(reader, arena, error);
}

JSON_Value *load_string(const std::string &text, const std::string &name, Arena &arena, LoadError &error) {
    Reader reader;
    if (!reader.open_string(text, name, error)) return nullptr;
    return load_with(reader, arena, error);
}

} // namespace pc::yaml
