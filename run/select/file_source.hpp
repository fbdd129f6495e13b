// Where a run takes its scenario files from: a list known at the start, or a stream of paths that
// another program writes one per line while the run goes on (`run --files-from`).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace pc::runner {

class FileSource {
public:
    enum class Next { path, later, end }; // later: no whole line has arrived yet

    static FileSource of_list(std::vector<std::string> paths);
    // `first`, then the paths read from `fd` as they arrive; the source owns `fd` and closes it
    // (0 stays open).
    static FileSource of_stream(std::vector<std::string> first, int fd);

    FileSource(FileSource &&other) noexcept;
    FileSource &operator=(FileSource &&) = delete;
    FileSource(const FileSource &) = delete;
    ~FileSource();

    // The next path. With `wait`, blocks until a line or the end arrives; without it, returns
    // `later` rather than wait. Blank lines are passed over; a last line without its newline counts.
    Next next(std::string &path, bool wait);
    // What to poll for the next line; -1 when the paths are all known.
    int descriptor() const { return ended_ ? -1 : fd_; }
    bool ended() const { return ended_; }

private:
    FileSource() = default;
    bool take_line(std::string &path);
    bool read_more(bool wait); // false at the end of the stream

    std::vector<std::string> list_;
    size_t listed_ = 0;
    int fd_ = -1;
    std::string buffer_;
    bool ended_ = false;
};

} // namespace pc::runner
