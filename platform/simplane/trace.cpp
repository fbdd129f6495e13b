#include "trace.hpp"

#include <cstring>
#include <unordered_map>

namespace simplane {
namespace {

struct Trace {
    TraceSink sink;
    std::unordered_map<const void *, uint64_t> names;
    uint64_t next = 1;
};

Trace &state() {
    static Trace t;
    return t;
}

std::string object_name(const void *obj) {
    if (!obj) return "null";
    auto [it, fresh] = state().names.try_emplace(obj, state().next);
    if (fresh) ++state().next;
    return "obj" + std::to_string(it->second);
}

std::string bytes(const void *data, size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string out = "{";
    const auto *p = static_cast<const uint8_t *>(data);
    for (size_t i = 0; i < size; ++i) {
        if (i) out += ' ';
        out += digits[p[i] >> 4];
        out += digits[p[i] & 15];
    }
    return out + '}';
}

} // namespace

namespace trace {

bool on = false;

std::string text(const Arg &arg) {
    switch (arg.kind) {
    case Arg::Object: return object_name(arg.data);
    case Arg::Signed: return std::to_string(int64_t(arg.bits));
    case Arg::Unsigned: return std::to_string(arg.bits);
    case Arg::Text: {
        if (!arg.data) return "null";
        const char *p = static_cast<const char *>(arg.data);
        return "\"" + std::string(p, arg.size ? strnlen(p, arg.size) : std::strlen(p)) + "\"";
    }
    case Arg::Bytes: return arg.data ? bytes(arg.data, arg.size) : "null";
    case Arg::Header: return arg.data ? "header" : "null";
    case Arg::None: break;
    }
    return "";
}

void call(const char *name, std::initializer_list<Arg> args, const Arg &result) {
    if (!state().sink) return;
    std::string line = name;
    line += '(';
    for (const Arg &a : args) {
        if (&a != args.begin()) line += ", ";
        line += text(a);
    }
    line += ')';
    if (result.kind != Arg::None) line += " = " + text(result);
    state().sink(line);
}

void forget(ofa_client_obj_base_t obj) {
    if (on) state().names.erase(obj);
}

} // namespace trace

void set_trace(TraceSink sink) {
    Trace &t = state();
    t.sink = std::move(sink);
    t.names.clear();
    t.next = 1;
    trace::on = bool(t.sink);
}

} // namespace simplane
