#include "replay.hpp"

#include "platform.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

namespace pc::runner {

bool write_replayed_scenario(const std::string &recording, const std::string &path,
                             const recording::ReplayOptions &options, recording::ReplaySummary &summary) {
    FILE *out = std::fopen(path.c_str(), "w");
    if (!out) {
        fmt::print(stderr, "planecheck: cannot write the scenario to {}: {}\n", path, std::strerror(errno));
        return false;
    }
    auto problem = [](const recording::Problem &p) { fmt::print(stderr, "{}\n", p.text()); };
    summary = recording::write_scenario(recording, out, options, problem);
    bool written = std::fclose(out) == 0;
    if (!written) fmt::print(stderr, "planecheck: cannot write the scenario to {}: {}\n", path, std::strerror(errno));
    if (summary.problems)
        fmt::print(stderr, "planecheck replay: {} of {} records left out (see above)\n", summary.problems, summary.records);
    return written;
}

namespace {

// The steps of a replay, made from the recording one at a time into an arena reset between steps.
class ReplaySource : public StepSource {
public:
    ReplaySource(const std::string &recording, const recording::ReplayOptions &options, bool quiet = false)
        : replayer_(recording, options, [quiet](const recording::Problem &p) {
              if (!quiet) fmt::print(stderr, "{}\n", p.text());
          }) {}

    bool open(const std::string &path, yaml::LoadError &error) override {
        if (replayer_.open()) return true;
        error = {path, 0, 0, "the recording cannot be read"};
        return false;
    }
    bool read_header(yaml::LoadError &) override {
        const recording::ReplayConfig &c = replayer_.config();
        config_.mode = c.mode;
        config_.object_set = c.object_set;
        config_.npus = c.npus;
        config_.node = c.node;
        return true;
    }
    bool next_step(Step &step, bool &done, yaml::LoadError &) override {
        arena_.reset();
        recording::ReplayStep next;
        done = !replayer_.next(next);
        if (done) return true;
        step.value = recording::step_value(arena_, next);
        step.line = next.records.empty() ? 0 : next.records[0].line;
        step.number = ++steps_;
        return true;
    }
    const Config &config() const override { return config_; }
    size_t bytes_read() const override { return replayer_.bytes_read(); }
    recording::ReplaySummary summary() const { return replayer_.summary(); }

private:
    recording::Replayer replayer_;
    Config config_;
    Arena arena_;
    size_t steps_ = 0;
};

} // namespace

FileResult run_replayed(const std::string &recording, const recording::ReplayOptions &replay, const Options &options,
                        recording::ReplaySummary &summary) {
    ReplaySource scan(recording, replay, true); // its problems are told once, by the run
    if (std::optional<FileResult> refused = refuse_unserved_steps(linked_platform(), recording, scan)) return *refused;
    ReplaySource source(recording, replay);
    FileResult result = run_steps(recording, source, options);
    summary = source.summary();
    if (summary.problems)
        fmt::print(stderr, "planecheck replay: {} of {} records left out (see above)\n", summary.problems, summary.records);
    return result;
}

} // namespace pc::runner
