// Reading scenario files: the header (name, config) whole, then the steps one at a time into an
// arena that is reset between steps, so memory stays flat whatever the file's length.
#pragma once

#include "arena.hpp"
#include "loader.hpp"
#include "yaml_loader.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace pc::runner {

struct Config {
    int32_t mode = 1; // 1 client, 0 server
    int32_t object_set = 0;
    uint32_t router_type = 16;
    uint32_t npus = 4;
    std::string node = "node0";
    bool verbose = false;
    int32_t wait = 0;
    bool recorder_off = false;
    bool enforce_references = false; // references: enforce (simplane refuses dangling and busy references)
    int64_t timeout_ms = -1;  // timeout: SECONDS, the file's own limit over --timeout (0: none); -1: not given
};

struct Step {
    JSON_Value *value = nullptr; // the step mapping
    uint32_t line = 0;
    size_t number = 0;           // 1-based
};

// Where a run's steps come from: a scenario file, or a recording being replayed.
class StepSource {
public:
    virtual ~StepSource() = default;
    virtual bool open(const std::string &path, yaml::LoadError &error) = 0;
    // Reads what comes before the steps: the config.
    virtual bool read_header(yaml::LoadError &error) = 0;
    // The next step; `done` after the last. The step lives until the next call.
    virtual bool next_step(Step &step, bool &done, yaml::LoadError &error) = 0;
    virtual const Config &config() const = 0;
    virtual size_t bytes_read() const = 0; // how far into the file, for the progress line
    // Where the steps begin, for the message of a source without any.
    virtual json::Position steps_at() const { return {1, 1}; }
    // The scenario's name:, once the header was read; "" when it has none.
    virtual std::string scenario_name() const { return {}; }
};

class ScenarioReader : public StepSource {
public:
    bool open(const std::string &path, yaml::LoadError &error) override;
    // Reads everything before "steps:". The config must come before the steps.
    bool read_header(yaml::LoadError &error) override;
    // Reads the next step; `done` at the end of the file. The step lives until the next call.
    bool next_step(Step &step, bool &done, yaml::LoadError &error) override;
    // Reads the next step into `arena`, which the caller keeps as long as the step is used; the
    // anchors of earlier steps are forgotten, wherever those were read.
    bool next_step_into(Arena &arena, Step &step, bool &done, yaml::LoadError &error);

    const std::string &name() const { return name_; }
    std::string scenario_name() const override { return name_; }
    const Config &config() const override { return config_; }
    const std::string &path() const { return path_; }
    size_t bytes_read() const override { return reader_ ? reader_->bytes_read() : 0; }
    // Where "steps:" is, or the file's start when it has none.
    json::Position steps_at() const override { return steps_at_; }

private:
    bool read_config(const JSON_Value *value, yaml::LoadError &error);
    bool fail(yaml::LoadError &error, const JSON_Value *at, const std::string &message);
    bool after_steps(bool &done, yaml::LoadError &error);

    std::string path_, name_;
    Config config_;
    std::unique_ptr<load::DocumentReader> reader_; // YAML, JSON or JSON Lines, by the file's name
    Arena header_arena_{4096};
    Arena step_arena_;
    json::Position steps_at_{1, 1};
    bool in_steps_ = false;
    bool finished_ = false;
    size_t steps_read_ = 0;
};

} // namespace pc::runner
