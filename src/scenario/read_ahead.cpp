#include "read_ahead.hpp"

namespace pc::runner {
namespace {

// A batch ends after this many steps or after the step that passes this many bytes of the file.
constexpr size_t kBatchSteps = 64;
constexpr size_t kBatchBytes = 64 * 1024;

} // namespace

ReadAhead::ReadAhead(ScenarioReader &reader, size_t depth) : reader_(reader) {
    // one more slot than the depth: the batch the engine runs from holds one
    for (size_t i = 0; i < std::max<size_t>(depth, 1) + 1; ++i) {
        slots_.push_back(std::make_unique<Slot>());
        free_.push_back(slots_.back().get());
    }
}

ReadAhead::~ReadAhead() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

bool ReadAhead::read_header(yaml::LoadError &error) {
    if (!reader_.read_header(error)) return false;
    thread_ = std::thread([this] { read_steps(); });
    return true;
}

void ReadAhead::read_steps() {
    for (;;) {
        Slot *slot = nullptr;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] { return stopping_ || !free_.empty(); });
            if (stopping_) return;
            slot = free_.front();
            free_.pop_front();
        }
        fill(*slot);
        bool last = !slot->ok || slot->done;
        {
            std::lock_guard lock(mutex_);
            ready_.push_back(slot);
        }
        changed_.notify_all();
        if (last) return;
    }
}

// Steps until the batch holds enough to be worth a meeting of the threads, or the file ends.
void ReadAhead::fill(Slot &slot) {
    slot.arena.reset();
    slot.steps.clear();
    slot.taken = 0;
    slot.ok = true;
    slot.done = false;
    size_t start = reader_.bytes_read();
    while (slot.steps.size() < kBatchSteps && reader_.bytes_read() - start < kBatchBytes) {
        Step step;
        slot.ok = reader_.next_step_into(slot.arena, step, slot.done, slot.error);
        if (!slot.ok || slot.done) break;
        slot.steps.push_back(step);
    }
    bytes_read_.store(reader_.bytes_read(), std::memory_order_relaxed);
}

// Gives the batch the engine is done with back to the reading thread and waits for the next one.
ReadAhead::Slot *ReadAhead::next_batch() {
    std::unique_lock lock(mutex_);
    if (in_use_) free_.push_back(in_use_);
    changed_.notify_all();
    changed_.wait(lock, [&] { return !ready_.empty(); });
    Slot *slot = ready_.front();
    ready_.pop_front();
    return slot;
}

bool ReadAhead::next_step(Step &step, bool &done, yaml::LoadError &error) {
    if (!thread_.joinable()) return reader_.next_step(step, done, error); // the header was not read
    done = false;
    if (finished_) {
        done = true;
        return true;
    }
    if (!in_use_ || (in_use_->taken == in_use_->steps.size() && in_use_->ok && !in_use_->done)) in_use_ = next_batch();
    if (in_use_->taken < in_use_->steps.size()) {
        step = in_use_->steps[in_use_->taken++];
        return true;
    }
    finished_ = true;
    done = in_use_->done;
    if (!in_use_->ok) error = in_use_->error;
    return in_use_->ok;
}

} // namespace pc::runner
