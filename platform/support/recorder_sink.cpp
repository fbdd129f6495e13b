#include "recorder_sink.hpp"

#include "planecheck/support.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace pc::recorder {
namespace {

constexpr size_t kWriteSize = 1 << 20;
// Every record ends with this line. A value line may end the same way ("key": {...},) but never
// starts with it, so a record is complete when the text ends with a whole line of it.
constexpr std::string_view kRecordEnd = "\n},\n";

struct Sink {
    int fd = -1;
    std::string pending;   // records not written yet, the last one perhaps still being composed
    size_t complete = 0;   // how much of `pending` is complete records
    int write_error = 0; // the first errno a write met
    uint64_t written = 0;  // bytes handed to the file since it was opened
    std::string *buffer = nullptr;
    void (*record_end_hook)() = nullptr;
};

// The capture is the calling thread's own: contexts on two threads may print values at once.
thread_local std::string *capture = nullptr;

// Never destroyed: exit handlers and signal handlers flush it after static destructors ran.
Sink &sink() {
    static Sink *s = new Sink;
    return *s;
}

bool write_all(int fd, const char *data, size_t size, int &error) {
    while (size) {
        ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (!error) error = n < 0 ? errno : EIO;
            return false;
        }
        data += n;
        size -= size_t(n);
    }
    return true;
}

void append(Sink &s, const char *text, size_t size) {
    s.pending.append(text, size);
    if (!std::string_view(s.pending).ends_with(kRecordEnd)) return;
    s.complete = s.pending.size();
    if (s.complete >= kWriteSize) flush();
    if (s.record_end_hook) s.record_end_hook();
}

} // namespace

void discard() { close(); }

bool open_file(const std::string &path) {
    close();
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    to_descriptor(fd);
    return true;
}

void to_descriptor(int fd) {
    close();
    auto &s = sink();
    s.fd = fd;
    s.write_error = 0;
    s.written = 0;
    s.pending.reserve(kWriteSize + kWriteSize / 4);
}

void to_string(std::string *buffer) {
    close();
    sink().buffer = buffer;
}

bool flush() {
    auto &s = sink();
    if (s.fd < 0 || !s.complete) return s.write_error == 0;
    write_all(s.fd, s.pending.data(), s.complete, s.write_error);
    s.written += s.complete;
    s.pending.erase(0, s.complete);
    s.complete = 0;
    errno = s.write_error;
    return s.write_error == 0;
}

bool close() {
    auto &s = sink();
    bool ok = true;
    if (s.fd >= 0) {
        s.complete = s.pending.size(); // a record still open at a normal close is written as it stands
        ok = flush();
        int error = s.write_error;
        if (::close(s.fd) != 0 && ok) ok = false, error = errno;
        errno = error;
    }
    s.fd = -1;
    s.pending.clear();
    s.complete = 0;
    s.buffer = nullptr;
    return ok;
}

bool enabled() { return sink().fd >= 0 || sink().buffer; }

uint64_t position() {
    const Sink &s = sink();
    if (s.buffer) return s.buffer->size();
    return s.fd >= 0 ? s.written + s.pending.size() : 0;
}
bool active() { return enabled() || capture; }

void on_record_end(void (*hook)()) { sink().record_end_hook = hook; }

void write_field(const char *name, const std::string &value_text) {
    if (capture) {
        capture->append(value_text);
        return;
    }
    if (!enabled()) return;
    // the line is composed once and written whole: no format string to parse, no lock to take
    static std::string line; // the sink is one per process, so is its line
    line.assign("      \"");
    line += name ? name : "";
    line += "\": ";
    line += value_text;
    line += ",\n";
    recorder_write(line.data(), line.size());
}

Capture::Capture() : previous_(capture) { capture = &text_; }
Capture::~Capture() { capture = previous_; }

} // namespace pc::recorder

extern "C" void recorder_log(const char *format, ...) {
    auto &s = pc::recorder::sink();
    if (s.fd < 0 && !s.buffer) return;
    va_list args;
    va_start(args, format);
    char text[1024];
    int n = std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (n < 0) return;
    std::string big;
    const char *out = text;
    if (n >= int(sizeof text)) {
        big.resize(size_t(n) + 1);
        va_start(args, format);
        std::vsnprintf(big.data(), big.size(), format, args);
        va_end(args);
        out = big.data();
    }
    if (s.buffer) s.buffer->append(out, size_t(n));
    else pc::recorder::append(s, out, size_t(n));
}

// One copy into the sink's buffer, no format to parse and no lock: the recorder is written from
// one thread, and whole records go to the file when the buffer is full.
extern "C" void recorder_write(const char *text, size_t length) {
    auto &s = pc::recorder::sink();
    if (s.buffer) s.buffer->append(text, length);
    else if (s.fd >= 0) pc::recorder::append(s, text, length);
}

extern "C" int recorder_is_enabled(void) { return pc::recorder::enabled(); }
