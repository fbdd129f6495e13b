#include "worker_channel.hpp"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace pc::runner::channel {
namespace {

// A file's temporary files: output, and the recorder and coverage parts when those are written.
constexpr size_t kMaxDescriptors = 4;

// A frame is its length as 8 bytes in the machine's order (both ends are the same program), then the payload.
constexpr size_t kLengthBytes = sizeof(uint64_t);

bool write_all(int socket, const char *data, size_t size) {
    for (size_t done = 0; done < size;) {
        ssize_t n = ::send(socket, data + done, size - done, MSG_NOSIGNAL); // a gone peer is an error, not SIGPIPE
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += size_t(n);
    }
    return true;
}

bool read_exactly(int socket, char *data, size_t size) {
    for (size_t done = 0; done < size;) {
        ssize_t n = ::recv(socket, data + done, size - done, MSG_WAITALL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += size_t(n);
    }
    return true;
}

// An assignment: the file's number and the length of its path, then the path. Workers are started
// before later paths are known (a list read as it arrives), so the path travels with the file.
struct AssignmentHeader {
    uint64_t file, path_bytes;
};
constexpr uint64_t kMaxPathBytes = 1 << 20;

} // namespace

bool make_pair(int ends[2]) { return socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0; }

bool send_assignment(int socket, uint64_t file, const std::string &path, const std::vector<int> &descriptors) {
    if (descriptors.size() > kMaxDescriptors) {
        errno = EINVAL;
        return false;
    }
    AssignmentHeader head{file, path.size()};
    iovec data{&head, sizeof head};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * kMaxDescriptors)] = {};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    if (!descriptors.empty()) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(sizeof(int) * descriptors.size());
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(int) * descriptors.size());
        std::memcpy(CMSG_DATA(header), descriptors.data(), sizeof(int) * descriptors.size());
    }
    for (;;) {
        ssize_t n = ::sendmsg(socket, &message, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        // a few bytes on an empty local stream go out whole
        return n == ssize_t(sizeof head) && write_all(socket, path.data(), path.size());
    }
}

bool receive_assignment(int socket, uint64_t &file, std::string &path, std::vector<int> &descriptors) {
    descriptors.clear();
    AssignmentHeader head{};
    iovec data{&head, sizeof head};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * kMaxDescriptors)] = {};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t n;
    do n = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    while (n < 0 && errno == EINTR);
    for (cmsghdr *h = CMSG_FIRSTHDR(&message); n > 0 && h; h = CMSG_NXTHDR(&message, h)) {
        if (h->cmsg_level != SOL_SOCKET || h->cmsg_type != SCM_RIGHTS) continue;
        size_t count = (h->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        const unsigned char *at = CMSG_DATA(h);
        for (size_t i = 0; i < count; ++i) {
            int fd;
            std::memcpy(&fd, at + i * sizeof(int), sizeof fd);
            descriptors.push_back(fd);
        }
    }
    if (n != ssize_t(sizeof head) || head.path_bytes > kMaxPathBytes) return false;
    file = head.file;
    path.resize(head.path_bytes);
    return read_exactly(socket, path.data(), path.size());
}

bool send_frame(int socket, const std::string &payload) {
    uint64_t length = payload.size();
    return write_all(socket, reinterpret_cast<const char *>(&length), sizeof length) && write_all(socket, payload.data(), payload.size());
}

bool FrameReader::read_from(int socket) {
    char chunk[1 << 16];
    ssize_t n;
    do n = ::read(socket, chunk, sizeof chunk);
    while (n < 0 && errno == EINTR);
    if (n <= 0) return false;
    buffer_.append(chunk, size_t(n));
    return true;
}

bool FrameReader::take(std::string &payload) {
    if (buffer_.size() < kLengthBytes) return false;
    uint64_t length;
    std::memcpy(&length, buffer_.data(), sizeof length);
    if (buffer_.size() - kLengthBytes < length) return false;
    payload.assign(buffer_, kLengthBytes, length);
    buffer_.erase(0, kLengthBytes + length);
    return true;
}

} // namespace pc::runner::channel
