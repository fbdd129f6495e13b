#include "scenario.hpp"
#include "suggest.hpp"

#include "planecheck/platform_types.h"

#include <fmt/format.h>

#include <cstring>
#include <map>

namespace pc::runner {

namespace {

// An integer literal wider than 64 bits is refused where it is read; a field wider than that (a
// 96-bit id) takes its value as text, which the message says how to write.
bool with_wide_integer_hint(yaml::LoadError &error) {
    const std::string lead = "the integer ", tail = " does not fit in 64 bits";
    size_t end = error.message.find(tail);
    if (error.message.rfind(lead, 0) != 0 || end == std::string::npos) return false;
    std::string literal = error.message.substr(lead.size(), end - lead.size());
    error.message += fmt::format("; a field wider than 64 bits takes its value quoted, as text: \"{}\"", literal);
    return false;
}

} // namespace

bool ScenarioReader::fail(yaml::LoadError &error, const JSON_Value *at, const std::string &message) {
    error = {path_, pc_json_line(at), pc_json_column(at), message};
    return false;
}

bool ScenarioReader::open(const std::string &path, yaml::LoadError &error) {
    path_ = path;
    reader_ = load::open_document(path, error);
    return reader_ != nullptr;
}

bool ScenarioReader::read_header(yaml::LoadError &error) {
    bool empty = false;
    if (!reader_->begin_document(empty, error)) return with_wide_integer_hint(error); // a first line of JSON Lines is read here
    if (empty) {
        finished_ = true;
        return true;
    }
    if (!reader_->begin_mapping(error)) {
        error.message = "a scenario is a mapping with name:, config: and steps: (" + error.message + ")";
        return false;
    }
    std::map<std::string, uint32_t> seen; // key -> its line: a repeated key would silently win
    for (;;) {
        std::string key;
        json::Position at;
        bool end = false;
        if (!reader_->next_key(key, at, end, error)) return false;
        if (end) {
            finished_ = true;
            return reader_->end_document(error);
        }
        if (auto [it, first] = seen.emplace(key, at.line); !first) {
            error = {path_, at.line, at.column,
                     fmt::format("'{}' is given twice (first at line {}); a key may appear once", key, it->second)};
            return false;
        }
        if (key == "steps") {
            steps_at_ = at;
            if (!reader_->begin_sequence(error)) return false;
            in_steps_ = true;
            return true;
        }
        JSON_Value *value = reader_->read_value(header_arena_, error);
        if (!value) return with_wide_integer_hint(error);
        if (key == "name") {
            const char *s = json_value_get_string(value);
            if (!s) return fail(error, value, "name: is a text");
            name_ = s;
        } else if (key == "config") {
            if (!read_config(value, error)) return false;
        } else {
            error = {path_, at.line, at.column, "unknown top-level key '" + key + "' (expected name, config or steps)"};
            return false;
        }
    }
}

bool ScenarioReader::read_config(const JSON_Value *value, yaml::LoadError &error) {
    const JSON_Object *o = json_value_get_object(value);
    if (!o) return fail(error, value, "config: is a mapping");
    for (size_t i = 0; i < json_object_get_count(o); ++i) {
        std::string key = json_object_get_name(o, i);
        const JSON_Value *v = json_object_get_value_at(o, i);
        int64_t n = 0;
        bool is_int = pc_json_get_int64(v, &n) == 1;
        bool is_bool = json_value_get_type(v) == JSONBoolean;
        if (key == "mode") {
            const char *s = json_value_get_string(v);
            if (!s || (std::strcmp(s, "client") && std::strcmp(s, "server")))
                return fail(error, v, "mode: is client or server");
            config_.mode = std::strcmp(s, "client") == 0 ? 1 : 0;
        } else if (key == "object_set" || key == "wait") {
            if (!is_int && !is_bool) return fail(error, v, key + ": is a number or true/false");
            (key == "wait" ? config_.wait : config_.object_set) = is_bool ? json_value_get_boolean(v) : int32_t(n);
        } else if (key == "router_type") {
            if (!is_int || n < 0 || n > UINT32_MAX) return fail(error, v, "router_type: is a whole number");
            config_.router_type = uint32_t(n);
        } else if (key == "npus") {
            if (!is_int || n < 1 || n > PC_MAX_NPUS) return fail(error, v, "npus: is a number from 1 to 64");
            config_.npus = uint32_t(n);
        } else if (key == "node") {
            const char *s = json_value_get_string(v);
            if (!s || std::strlen(s) >= 64) return fail(error, v, "node: is a name shorter than 64 characters");
            config_.node = s;
        } else if (key == "verbose" || key == "recorder_off") {
            if (!is_bool) return fail(error, v, key + ": is true or false");
            (key == "verbose" ? config_.verbose : config_.recorder_off) = json_value_get_boolean(v) == 1;
        } else if (key == "references") {
            const char *s = json_value_get_string(v);
            if (!s || (std::strcmp(s, "enforce") && std::strcmp(s, "ignore"))) return fail(error, v, "references: is enforce or ignore");
            config_.enforce_references = std::strcmp(s, "enforce") == 0;
        } else if (key == "timeout") {
            double seconds = json_value_get_number(v);
            if (json_value_get_type(v) != JSONNumber || !(seconds >= 0) || seconds > 1e6)
                return fail(error, v, "timeout: is a number of seconds from 0 (no limit) to 1000000");
            config_.timeout_ms = int64_t(seconds * 1000 + 0.5);
        } else {
            static const std::vector<std::string_view> keys = {"mode", "object_set", "router_type", "npus", "node",
                                                               "verbose", "wait", "recorder_off", "references", "timeout"};
            return fail(error, v,
                        "unknown config key '" + key + "' (expected mode, object_set, router_type, npus, node, verbose, wait, recorder_off, "
                        "references, timeout)" + pc::support::did_you_mean(key, keys));
        }
    }
    return true;
}

bool ScenarioReader::after_steps(bool &done, yaml::LoadError &error) {
    // only the end of the mapping may follow the steps
    std::string key;
    json::Position at;
    bool end = false;
    if (!reader_->next_key(key, at, end, error)) return false;
    if (!end) {
        error = {path_, at.line, at.column,
                 key == "config" ? "config: must come before steps: (the steps are run as they are read)"
                                 : "'" + key + "' after steps: is not allowed; steps: comes last"};
        return false;
    }
    finished_ = true;
    done = true;
    return reader_->end_document(error);
}

bool ScenarioReader::next_step(Step &step, bool &done, yaml::LoadError &error) {
    step_arena_.reset();
    return next_step_into(step_arena_, step, done, error);
}

bool ScenarioReader::next_step_into(Arena &arena, Step &step, bool &done, yaml::LoadError &error) {
    done = false;
    if (finished_ || !in_steps_) {
        done = true;
        return true;
    }
    reader_->forget_anchors_except(header_arena_);
    reader_->reset_alias_budget();
    bool end = false;
    if (!reader_->at_sequence_end(end, error)) return false;
    if (end) {
        in_steps_ = false;
        return after_steps(done, error);
    }
    step.value = reader_->read_value(arena, error);
    if (!step.value) return with_wide_integer_hint(error);
    step.line = pc_json_line(step.value);
    step.number = ++steps_read_;
    return true;
}

} // namespace pc::runner
