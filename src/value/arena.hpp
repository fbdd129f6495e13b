// Bump allocator for JSON values: a scenario step's values live in one arena that is reset
// once the step has run, so memory stays flat however long the scenario file is.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace pc {

class Arena {
public:
    explicit Arena(size_t chunk_size = 64 * 1024) : chunk_size_(chunk_size) {}
    Arena(const Arena &) = delete;
    Arena &operator=(const Arena &) = delete;

    void *allocate(size_t size, size_t align = alignof(std::max_align_t)) {
        size_t offset = (used_ + align - 1) & ~(align - 1);
        if (chunks_.empty() || offset + size > current_size_) {
            add_chunk(size + align);
            offset = 0;
        }
        used_ = offset + size;
        return chunks_[current_].get() + offset;
    }

    template <class T> T *make_array(size_t n) {
        if (n == 0) return nullptr;
        return static_cast<T *>(allocate(sizeof(T) * n, alignof(T)));
    }

    const char *copy_string(std::string_view s) {
        char *p = static_cast<char *>(allocate(s.size() + 1, 1));
        std::memcpy(p, s.data(), s.size());
        p[s.size()] = '\0';
        return p;
    }

    // Keeps its chunks so that a steady stream of similar steps allocates nothing; only an
    // unusually large step's memory is given back.
    void reset() {
        if (bytes_reserved() > kKeepAtMost && chunks_.size() > 1) {
            chunks_.resize(1);
            sizes_.resize(1);
        }
        current_ = 0;
        current_size_ = sizes_.empty() ? 0 : sizes_[0];
        used_ = 0;
        ++generation_;
    }

    size_t generation() const { return generation_; }
    size_t bytes_reserved() const {
        size_t total = 0;
        for (size_t s : sizes_) total += s;
        return total;
    }

private:
    static constexpr size_t kKeepAtMost = 16u << 20;

    void add_chunk(size_t at_least) {
        if (current_ + 1 < chunks_.size() && sizes_[current_ + 1] >= at_least) {
            ++current_;
        } else {
            size_t size = at_least > chunk_size_ ? at_least : chunk_size_;
            chunks_.push_back(std::make_unique<char[]>(size));
            sizes_.push_back(size);
            current_ = chunks_.size() - 1;
        }
        current_size_ = sizes_[current_];
        used_ = 0;
    }

    size_t chunk_size_;
    std::vector<std::unique_ptr<char[]>> chunks_;
    std::vector<size_t> sizes_;
    size_t current_ = 0;
    size_t current_size_ = 0;
    size_t used_ = 0;
    size_t generation_ = 0;
};

} // namespace pc
