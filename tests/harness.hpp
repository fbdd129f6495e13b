// What the tests share: a scenario context whose log lines and recorder output are captured,
// simplane reset to a clean store, and YAML text turned into JSON values.
#pragma once

#include "arena.hpp"
#include "engine.hpp"
#include "planecheck/dpa_api.h"
#include "planecheck/planecheck.h"
#include "planecheck/platform_api.h"
#include "planecheck/session.hpp"
#include "planecheck/support.h"
#include "recorder_sink.hpp"
#include "store.hpp"
#include "yaml_loader.hpp"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

namespace pc::test {

class Harness {
public:
    explicit Harness(int32_t mode = 1) {
        simplane::reset();
        simplane::configure({});
        simplane::set_log([this](int, const std::string &text) { simplane_log.push_back(text); });
        pc::recorder::to_string(&recorder);
        context.session.log = [this](int level, const std::string &text, uint32_t) {
            log.push_back(text);
            levels.push_back(level);
        };
        context.process.mode = mode;
        std::snprintf(context.process.node_name, sizeof context.process.node_name, "node0");
    }
    ~Harness() {
        pc::recorder::discard();
        simplane::set_log(nullptr);
    }
    Harness(const Harness &) = delete;
    Harness &operator=(const Harness &) = delete;

    PROCESS *ctx() { return context.get(); }

    // Death tests read what a dying child wrote to standard error: log there instead.
    void log_to_stderr() {
        context.session.log = [](int, const std::string &text, uint32_t) { std::fputs(text.c_str(), stderr); };
    }

    JSON_Value *json(const std::string &yaml) {
        pc::yaml::LoadError error;
        JSON_Value *v = pc::yaml::load_string(yaml, "test.yaml", arena, error);
        if (!v) ADD_FAILURE() << error.text();
        return v;
    }
    JSON_Object *record(const std::string &yaml) { return json_value_get_object(json(yaml)); }

    // Runs one client step written as YAML.
    void send(const std::string &yaml) { json_send_object_client(json(yaml), ctx()); }
    // Runs records of one type, written as a YAML list; returns the send's result.
    int64_t send(const char *type_name, const std::string &records) {
        return engine::send(type(type_name), json(records), ctx());
    }

    uint64_t mismatches() const { return context.session.mismatches(); }
    uint64_t value_errors() const { return context.session.value_errors(); }
    size_t count_logged(const std::string &text) const {
        size_t n = 0;
        for (const auto &line : log) n += line.find(text) != std::string::npos;
        return n;
    }
    bool logged(const std::string &text) const { return count_logged(text) > 0; }
    std::string all_log() const {
        std::string s;
        for (const auto &line : log) s += line;
        return s;
    }
    size_t records_with_op(const std::string &op) const {
        size_t n = 0, at = 0;
        std::string needle = "\"op\": \"" + op + "\"";
        while ((at = recorder.find(needle, at)) != std::string::npos) ++n, ++at;
        return n;
    }

    const engine::TypeDesc &type(const char *name) {
        const engine::TypeDesc *t = engine::find_type(name);
        EXPECT_NE(t, nullptr) << name;
        return *t;
    }

    support::Context context;
    Arena arena;
    std::vector<std::string> log;
    std::vector<int> levels;
    std::vector<std::string> simplane_log;
    std::string recorder;
};

// An object as the SDK side receives it: an instance of `type`, filled from a record.
struct Received {
    Harness &h;
    const pc::engine::TypeDesc &type;
    ofa_client_obj_base_t obj;
    Received(Harness &harness, const char *name, const std::string &record, uint8_t op)
        : h(harness), type(h.type(name)), obj(type.ops->ctor(2)) {
        pc::engine::set_attributes(type, h.record(record), h.ctx(), obj);
        instance().op = op;
        h.ctx()->received_obj = reinterpret_cast<ofa_client_obj_base_t>(&instance());
    }
    ~Received() { type.ops->dtor(obj); }
    dpa_inst_hdr_t &instance() { return *static_cast<dpa_inst_hdr_t *>(obj->data); }
    int receive(const std::string &step) {
        h.ctx()->received_obj = reinterpret_cast<ofa_client_obj_base_t>(&instance());
        return json_receive_object_sdk(h.json(step), h.ctx());
    }
};

// Recorder output with the two time-stamp values replaced, so that it can be compared.
inline std::string mask_timestamps(const std::string &text) {
    static const std::regex sec("\"tv_sec\": [0-9]+"), nsec("\"tv_nsec\": [0-9]+");
    return std::regex_replace(std::regex_replace(text, sec, "\"tv_sec\": S"), nsec, "\"tv_nsec\": N");
}

// A value as text with each node's line, column and number kind, to compare what two readers read.
inline std::string value_text(const JSON_Value *v) {
    std::string at = std::to_string(pc_json_line(v)) + ":" + std::to_string(pc_json_column(v)) + "=";
    switch (json_value_get_type(v)) {
    case JSONObject: {
        const JSON_Object *o = json_value_get_object(v);
        for (size_t i = 0; i < json_object_get_count(o); ++i)
            at += std::string(i ? ", " : "{") + json_object_get_name(o, i) + ": " + value_text(json_object_get_value_at(o, i));
        return at + "}";
    }
    case JSONArray: {
        const JSON_Array *a = json_value_get_array(v);
        for (size_t i = 0; i < json_array_get_count(a); ++i) at += (i ? ", " : "[") + value_text(json_array_get_value(a, i));
        return at + "]";
    }
    case JSONString: return at + "'" + json_value_get_string(v) + "'";
    case JSONNumber: {
        char number[40];
        std::snprintf(number, sizeof number, "%.17g", json_value_get_number(v));
        if (v->integer_kind == v->kNotInteger) return at + number;
        return at + (v->integer_kind == v->kSigned ? "s" : "u") + std::to_string(v->num.u64);
    }
    case JSONBoolean: return at + (json_value_get_boolean(v) ? "true" : "false");
    default: return at + "null";
    }
}

} // namespace pc::test
