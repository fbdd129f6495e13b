// The YAML/JSON loader, whole and step by step as the runner reads scenarios: every input either
// gives a value tree that can be walked, or is refused with a message naming a line.
#include "arena.hpp"
#include "planecheck/json.h"
#include "yaml_loader.hpp"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void refused_without_message(const pc::yaml::LoadError &error) {
    if (!error.message.empty()) return;
    std::fprintf(stderr, "the loader refused the input without a message\n");
    std::abort();
}

// Reads every node, as the engine would; an arena slip or a bad node type shows here.
size_t walk(const JSON_Value *v, int depth = 0) {
    size_t nodes = 1;
    switch (json_value_get_type(v)) {
    case JSONObject: {
        const JSON_Object *o = json_value_get_object(v);
        for (size_t i = 0; i < json_object_get_count(o); ++i) {
            if (!json_object_get_name(o, i)) std::abort();
            nodes += walk(json_object_get_value_at(o, i), depth + 1);
        }
        break;
    }
    case JSONArray: {
        const JSON_Array *a = json_value_get_array(v);
        for (size_t i = 0; i < json_array_get_count(a); ++i) nodes += walk(json_array_get_value(a, i), depth + 1);
        break;
    }
    case JSONString:
        if (!json_value_get_string(v)) std::abort();
        break;
    case JSONNumber: (void)json_value_get_number(v); break;
    default: break;
    }
    return nodes;
}

// The runner's way: a top-level mapping whose values are read one at a time into an arena that
// is reset in between.
void read_streaming(const std::string &text) {
    pc::yaml::Reader reader;
    pc::yaml::LoadError error;
    bool empty = false;
    if (!reader.open_string(text, "fuzz.yaml", error) || !reader.begin_document(empty, error)) return refused_without_message(error);
    if (empty) return;
    if (!reader.begin_mapping(error)) return refused_without_message(error);
    pc::Arena arena;
    for (;;) {
        std::string key;
        pc::json::Position at;
        bool end = false;
        if (!reader.next_key(key, at, end, error)) return refused_without_message(error);
        if (end) return;
        const JSON_Value *value = reader.read_value(arena, error);
        if (!value) return refused_without_message(error);
        walk(value);
        arena.reset();
        reader.forget_anchors_of(arena);
        reader.reset_alias_budget();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    pc::Arena arena;
    pc::yaml::LoadError error;
    if (const JSON_Value *v = pc::yaml::load_string(text, "fuzz.yaml", arena, error)) walk(v);
    else refused_without_message(error);
    read_streaming(text);
    return 0;
}
