// What every fuzz target starts each input from: a fresh simplane instance bound to the thread, a
// fresh scenario context whose log lines are counted, and the recorder writing into a string, so
// that the converters of the recorder run too. With PC_FUZZ_LOG set in the environment the log
// lines are printed, which shows what a replayed input did.
#pragma once

#include "arena.hpp"
#include "descriptors.hpp"
#include "planecheck/planecheck.h"
#include "planecheck/session.hpp"
#include "recorder_sink.hpp"
#include "store.hpp"
#include "yaml_loader.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace pc::fuzz {

class Fixture {
public:
    explicit Fixture(FuzzedDataProvider &in) : bound_(plane_), show_(std::getenv("PC_FUZZ_LOG") != nullptr) {
        simplane::configure({});
        simplane::set_log([this](int level, const std::string &text) {
            if (show_) std::fprintf(stderr, "simplane %d: %s\n", level, text.c_str());
            if (level == 1) ++errors_logged, context.session.stats[PC_STAT_VALUE_ERROR]++; // as the runner counts it
        });
        context.session.log = [this](int level, const std::string &text, uint32_t line) {
            if (show_) std::fprintf(stderr, "%u %d: %s", line, level, text.c_str());
            errors_logged += level == 1;
        };
        context.process.mode = in.ConsumeBool() ? 1 : 0;
        context.process.object_set = in.ConsumeBool();
        context.process.verbose = in.ConsumeBool();
        context.process.router_type = in.ConsumeBool() ? 16 : 17;
        std::snprintf(context.process.node_name, sizeof context.process.node_name, "node0");
        pc::recorder::to_string(&recorder_);
    }
    ~Fixture() { pc::recorder::discard(); }
    Fixture(const Fixture &) = delete;
    Fixture &operator=(const Fixture &) = delete;

    PROCESS *ctx() { return context.get(); }

    // A finding of the library, counted as a mismatch or a value error, always comes with its line:
    // a count without a message is a silent refusal.
    void expect_every_count_has_a_message(const char *where) const {
        uint64_t counted = context.session.mismatches() + context.session.value_errors();
        if (counted > errors_logged) {
            std::fprintf(stderr, "%s: %llu findings counted but only %llu lines logged\n", where,
                         static_cast<unsigned long long>(counted), static_cast<unsigned long long>(errors_logged));
            std::abort();
        }
    }

    support::Context context;
    uint64_t errors_logged = 0;

private:
    simplane::Instance plane_;
    simplane::Binding bound_;
    bool show_; // PC_FUZZ_LOG set: log lines go to standard error, to follow a replayed input
    std::string recorder_;
};

// An object type chosen by the input.
inline const engine::TypeDesc &pick_type(FuzzedDataProvider &in) {
    return *engine::kTypes[in.ConsumeIntegralInRange<size_t>(0, engine::kTypeCount - 1)];
}

// The rest of the input read as a YAML (or JSON) value; null when it does not load, which is
// refused with a message by the loader and is not what these targets look at.
inline JSON_Value *load_rest(FuzzedDataProvider &in, Arena &arena) {
    std::string text = in.ConsumeRemainingBytesAsString();
    yaml::LoadError error;
    return yaml::load_string(text, "fuzz.yaml", arena, error);
}

// { TYPE: value }, the shape of a step for one type.
inline JSON_Value *step_for(const engine::TypeDesc &type, JSON_Value *value, Arena &arena) {
    const char *names[] = {type.name};
    return json::make_object(arena, names, &value, 1, json::Position{1, 1});
}

} // namespace pc::fuzz
