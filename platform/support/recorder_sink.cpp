#include "recorder_sink.hpp"

#include "planecheck/support.h"

#include <cstdarg>
#include <memory>

namespace pc::recorder {
namespace {

struct Sink {
    FILE *file = nullptr;
    std::unique_ptr<char[]> file_buffer;
    std::string *buffer = nullptr;
    std::string *capture = nullptr;
};

Sink &sink() {
    static Sink s;
    return s;
}

} // namespace

void discard() { close(); }

bool open_file(const std::string &path) {
    close();
    FILE *f = std::fopen(path.c_str(), "w");
    if (!f) return false;
    auto &s = sink();
    s.file = f;
    s.file_buffer = std::make_unique<char[]>(1 << 20);
    std::setvbuf(f, s.file_buffer.get(), _IOFBF, 1 << 20);
    return true;
}

void to_string(std::string *buffer) {
    close();
    sink().buffer = buffer;
}

void flush() {
    if (sink().file) std::fflush(sink().file);
}

void close() {
    auto &s = sink();
    if (s.file) std::fclose(s.file);
    s.file = nullptr;
    s.file_buffer.reset();
    s.buffer = nullptr;
}

bool enabled() { return sink().file || sink().buffer; }
bool active() { return enabled() || sink().capture; }

void write_field(const char *name, const std::string &value_text) {
    auto &s = sink();
    if (s.capture) {
        s.capture->append(value_text);
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

Capture::Capture() : previous_(sink().capture) { sink().capture = &text_; }
Capture::~Capture() { sink().capture = previous_; }

} // namespace pc::recorder

extern "C" void recorder_log(const char *format, ...) {
    auto &s = pc::recorder::sink();
    if (!s.file && !s.buffer) return;
    va_list args;
    va_start(args, format);
    if (s.file) {
        std::vfprintf(s.file, format, args);
    } else {
        char text[1024];
        int n = std::vsnprintf(text, sizeof text, format, args);
        if (n >= int(sizeof text)) {
            va_end(args);
            va_start(args, format);
            std::string big(size_t(n) + 1, '\0');
            std::vsnprintf(big.data(), big.size(), format, args);
            s.buffer->append(big.data(), size_t(n));
        } else if (n > 0) {
            s.buffer->append(text, size_t(n));
        }
    }
    va_end(args);
}

// One unlocked copy into the file's buffer: the recorder is written from one thread, and the
// buffer goes to the file when it is full.
extern "C" void recorder_write(const char *text, size_t length) {
    auto &s = pc::recorder::sink();
    if (s.file) fwrite_unlocked(text, 1, length, s.file);
    else if (s.buffer) s.buffer->append(text, length);
}

extern "C" int recorder_is_enabled(void) { return pc::recorder::enabled(); }
