// The C interface of the value loader and the scenario reader.
#include "planecheck/loader.h"

#include "arena.hpp"
#include "loader.hpp"
#include "scenario.hpp"
#include "yaml_loader.hpp"

#include <cstdio>
#include <optional>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

struct pc_document {
    pc::Arena arena;
    JSON_Value *root = nullptr;
    // A JSON Lines reader keeps its header line in an arena of its own: it lives as long as the values.
    std::unique_ptr<pc::load::DocumentReader> reader;
};

struct pc_scenario {
    pc::runner::ScenarioReader reader;
    pc_scenario_config config{};
    std::optional<pc::yaml::LoadError> failed; // the reader stops at its first error
};

namespace {

void fill(pc_load_error *out, const pc::yaml::LoadError &error) {
    if (!out) return;
    out->line = error.line;
    out->column = error.column;
    std::snprintf(out->text, sizeof out->text, "%s", error.text().c_str());
}

pc_document *keep_root(pc_document *document, JSON_Value *root, pc_load_error *out, const pc::yaml::LoadError &error) {
    if (!root) {
        fill(out, error);
        delete document;
        return nullptr;
    }
    document->root = root;
    return document;
}

// A JSON Lines file read whole: its header's members and its steps, one per line, as the mapping
// a YAML or JSON scenario is.
JSON_Value *load_json_lines(pc::load::DocumentReader &reader, pc::Arena &arena, pc::yaml::LoadError &error) {
    std::vector<const char *> names;
    std::vector<JSON_Value *> values;
    if (!reader.begin_mapping(error)) return nullptr;
    for (;;) {
        std::string key;
        pc::json::Position at;
        bool end = false;
        if (!reader.next_key(key, at, end, error)) return nullptr;
        if (end) break;
        names.push_back(arena.copy_string(key));
        if (key != "steps") {
            values.push_back(reader.read_value(arena, error));
            if (!values.back()) return nullptr;
            continue;
        }
        std::vector<JSON_Value *> steps;
        if (!reader.begin_sequence(error)) return nullptr;
        for (bool done = false;;) {
            if (!reader.at_sequence_end(done, error)) return nullptr;
            if (done) break;
            steps.push_back(reader.read_value(arena, error));
            if (!steps.back()) return nullptr;
        }
        values.push_back(pc::json::make_array(arena, steps.data(), steps.size(), at));
    }
    return pc::json::make_object(arena, names.data(), values.data(), names.size(), {1, 1});
}

// The form by the file's name, as the scenario reader picks it: ".json" is JSON, ".jsonl" JSON
// Lines, anything else YAML.
JSON_Value *load_by_name(const std::string &path, pc_document &document, pc::yaml::LoadError &error) {
    std::string_view name = path;
    pc::Arena &arena = document.arena;
    if (!name.ends_with(".json") && !name.ends_with(".jsonl")) return pc::yaml::load_file(path, arena, error);
    std::unique_ptr<pc::load::DocumentReader> &reader = document.reader;
    reader = pc::load::open_document(path, error);
    bool empty = false;
    if (!reader || !reader->begin_document(empty, error)) return nullptr;
    if (empty) return pc::json::make_null(arena, {1, 1});
    JSON_Value *root = name.ends_with(".jsonl") ? load_json_lines(*reader, arena, error) : reader->read_value(arena, error);
    return root && reader->end_document(error) ? root : nullptr;
}

} // namespace

extern "C" {

pc_document *pc_load_file(const char *path, pc_load_error *error) {
    auto *document = new (std::nothrow) pc_document;
    if (!document) return nullptr;
    pc::yaml::LoadError e;
    return keep_root(document, load_by_name(path ? path : "", *document, e), error, e);
}

pc_document *pc_load_string(const char *text, const char *name, pc_load_error *error) {
    auto *document = new (std::nothrow) pc_document;
    if (!document) return nullptr;
    pc::yaml::LoadError e;
    return keep_root(document, pc::yaml::load_string(text ? text : "", name ? name : "<string>", document->arena, e), error, e);
}

JSON_Value *pc_document_root(const pc_document *document) { return document ? document->root : nullptr; }

void pc_document_free(pc_document *document) { delete document; }

pc_scenario *pc_scenario_open(const char *path, pc_load_error *error) {
    auto *scenario = new (std::nothrow) pc_scenario;
    if (!scenario) return nullptr;
    pc::yaml::LoadError e;
    if (!scenario->reader.open(path ? path : "", e) || !scenario->reader.read_header(e)) {
        fill(error, e);
        delete scenario;
        return nullptr;
    }
    const pc::runner::Config &c = scenario->reader.config();
    scenario->config = {c.mode, c.object_set, c.router_type, c.npus, c.node.c_str(), c.verbose, c.wait, c.recorder_off};
    return scenario;
}

const char *pc_scenario_name(const pc_scenario *scenario) { return scenario->reader.name().c_str(); }

const pc_scenario_config *pc_scenario_get_config(const pc_scenario *scenario) { return &scenario->config; }

int pc_scenario_next(pc_scenario *scenario, pc_step *step, pc_load_error *error) {
    pc::runner::Step s;
    bool done = false;
    pc::yaml::LoadError e;
    if (!scenario->failed && !scenario->reader.next_step(s, done, e)) scenario->failed = e;
    if (scenario->failed) {
        fill(error, *scenario->failed);
        return -1;
    }
    if (done) return 0;
    *step = pc_step{nullptr, nullptr, nullptr, s.value, s.line, s.number};
    // the kind is the step's key other than its name and the SDK side's answer
    if (const JSON_Object *o = json_value_get_object(s.value)) {
        for (size_t i = 0; i < json_object_get_count(o); ++i) {
            const char *key = json_object_get_name(o, i);
            if (!std::strcmp(key, "sdk")) step->sdk = json_object_get_value_at(o, i);
            else if (std::strcmp(key, "name") && !step->kind) {
                step->kind = key;
                step->value = json_object_get_value_at(o, i);
            }
        }
    }
    return 1;
}

void pc_scenario_free(pc_scenario *scenario) { delete scenario; }

} // extern "C"
