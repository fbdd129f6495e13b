// Reading a scenario on a second thread: while the engine runs one step, the steps after it are
// parsed into arenas of their own. Steps are handed over in batches (a few dozen small steps, or
// one big one), so that the two threads meet seldom; at most `depth` batches are read ahead, so
// memory stays flat whatever the file's length. Steps, errors and the end arrive in the order of
// the file.
#pragma once

#include "scenario.hpp"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace pc::runner {

class ReadAhead final : public StepSource {
public:
    explicit ReadAhead(ScenarioReader &reader, size_t depth = 4);
    ~ReadAhead() override;
    ReadAhead(const ReadAhead &) = delete;
    ReadAhead &operator=(const ReadAhead &) = delete;

    bool open(const std::string &path, yaml::LoadError &error) override { return reader_.open(path, error); }
    // Reads the header on the caller's thread, then starts reading the steps on the second one.
    bool read_header(yaml::LoadError &error) override;
    // The next step in the file's order. The step lives until the next call.
    bool next_step(Step &step, bool &done, yaml::LoadError &error) override;
    const Config &config() const override { return reader_.config(); }
    size_t bytes_read() const override { return bytes_read_.load(std::memory_order_relaxed); }
    json::Position steps_at() const override { return reader_.steps_at(); }

private:
    // A batch of steps read into one arena, then the end or an error when one came after them.
    struct Slot {
        Arena arena;
        std::vector<Step> steps;
        size_t taken = 0; // steps handed out so far
        bool ok = true, done = false;
        yaml::LoadError error;
    };
    void read_steps();
    void fill(Slot &slot);
    Slot *next_batch();

    ScenarioReader &reader_;
    std::vector<std::unique_ptr<Slot>> slots_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Slot *> free_, ready_; // guarded by mutex_
    bool stopping_ = false;           // guarded by mutex_
    Slot *in_use_ = nullptr;          // the step the engine runs; only the engine's thread touches it
    bool finished_ = false;           // the end or an error was handed out
    std::atomic<size_t> bytes_read_{0};
    std::thread thread_;
};

} // namespace pc::runner
