#include "file_source.hpp"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace pc::runner {

FileSource FileSource::of_list(std::vector<std::string> paths) {
    FileSource source;
    source.list_ = std::move(paths);
    return source;
}

FileSource FileSource::of_stream(std::vector<std::string> first, int fd) {
    FileSource source;
    source.list_ = std::move(first);
    source.fd_ = fd;
    return source;
}

FileSource::FileSource(FileSource &&other) noexcept
    : list_(std::move(other.list_)), listed_(other.listed_), fd_(std::exchange(other.fd_, -1)),
      buffer_(std::move(other.buffer_)), ended_(other.ended_) {}

FileSource::~FileSource() {
    if (fd_ > 0) ::close(fd_);
}

FileSource::Next FileSource::next(std::string &path, bool wait) {
    if (listed_ < list_.size()) {
        path = list_[listed_++];
        return Next::path;
    }
    if (fd_ < 0) return ended_ = true, Next::end;
    for (;;) {
        if (take_line(path)) return Next::path;
        if (ended_) return Next::end;
        if (!read_more(wait)) {
            ended_ = true;
            if (!buffer_.empty()) { // the last line, without its newline
                path = std::move(buffer_);
                buffer_.clear();
                return Next::path;
            }
            return Next::end;
        }
        if (!wait && buffer_.find('\n') == std::string::npos) return Next::later;
    }
}

bool FileSource::take_line(std::string &path) {
    for (size_t end; (end = buffer_.find('\n')) != std::string::npos;) {
        path = buffer_.substr(0, end);
        buffer_.erase(0, end + 1);
        if (!path.empty() && path.back() == '\r') path.pop_back();
        if (path.find_first_not_of(" \t") != std::string::npos) return true;
    }
    return false;
}

bool FileSource::read_more(bool wait) {
    if (!wait) {
        pollfd ready{fd_, POLLIN, 0};
        int n;
        while ((n = poll(&ready, 1, 0)) < 0 && errno == EINTR) {}
        if (n == 0) return true; // nothing yet: the stream is still open
    }
    char chunk[4096];
    ssize_t n;
    while ((n = ::read(fd_, chunk, sizeof chunk)) < 0 && errno == EINTR) {}
    if (n <= 0) return false; // a read error ends the list as its end would
    buffer_.append(chunk, size_t(n));
    return true;
}

} // namespace pc::runner
