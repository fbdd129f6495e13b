// The stream between the parent of a -j run and one of its worker processes: the parent hands a
// worker a file's number and path with the descriptors of that file's temporary files; the worker
// answers with one frame when it has run the file: the events that close it (its file_end), while
// the events made during the run went to the file's records file as they were made.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pc::runner::channel {

// A connected pair of stream sockets: [0] stays with the parent, [1] goes to the worker.
bool make_pair(int ends[2]);

// False (errno set) when the worker is gone.
bool send_assignment(int socket, uint64_t file, const std::string &path, const std::vector<int> &descriptors);
// Blocks until an assignment arrives; false when the parent closed the stream (or it broke).
// The received descriptors are the caller's to close.
bool receive_assignment(int socket, uint64_t &file, std::string &path, std::vector<int> &descriptors);

// Sends `payload` as one frame; false (errno set) when it could not be sent in full.
bool send_frame(int socket, const std::string &payload);

// Collects frames from bytes that arrive in pieces.
class FrameReader {
public:
    // Reads what the socket holds now (one read). False at the end of the stream or on an error.
    bool read_from(int socket);
    // Takes the next complete frame out, when one has arrived.
    bool take(std::string &payload);
    // Bytes of a frame that started but did not end.
    bool holds_partial() const { return !buffer_.empty(); }
    void clear() { buffer_.clear(); }

private:
    std::string buffer_;
};

} // namespace pc::runner::channel
