// The call trace: with a sink set, every call into simplane's C interface is written as one line,
// `dpa_test_if_set_attr_a1(obj1, 5)` or `dpa_test_if_create(obj1) = 0`, after the call returned,
// so out-parameters and results show what simplane answered.
#pragma once

#include "planecheck/dpa_api.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <type_traits>

namespace simplane {

using TraceSink = std::function<void(const std::string &line)>;
// An empty sink turns the trace off. Object names restart at obj1.
void set_trace(TraceSink sink);

namespace trace {

extern bool on; // read on every call: the trace costs one test while it is off

// One argument or result as it is written: an object by name, a number in decimal, a text in
// quotes, any other record as its bytes. It only points at the value, which outlives the call.
struct Arg {
    enum Kind : uint8_t { None, Object, Signed, Unsigned, Text, Bytes, Header } kind = None;
    uint64_t bits = 0;
    const void *data = nullptr;
    size_t size = 0;

    Arg() = default;
    Arg(ofa_client_obj_base_t obj) : kind(Object), data(obj) {}
    Arg(const char *text) : kind(Text), data(text) {}
    Arg(dpa_inst_hdr_t *header) : kind(Header), data(header) {}
    Arg(const pc_string64_t *s) : kind(Text), data(s ? s->text : nullptr), size(sizeof s->text) {}
    Arg(const pc_string256_t *s) : kind(Text), data(s ? s->text : nullptr), size(sizeof s->text) {}
    Arg(pc_string64_t *s) : Arg(static_cast<const pc_string64_t *>(s)) {}
    Arg(pc_string256_t *s) : Arg(static_cast<const pc_string256_t *>(s)) {}
    template <class T> Arg(const T &value) {
        if constexpr (std::is_integral_v<T>) {
            kind = std::is_signed_v<T> ? Signed : Unsigned;
            bits = uint64_t(value);
        } else if constexpr (std::is_pointer_v<T>) {
            kind = Bytes;
            data = value;
            size = sizeof *value;
        } else {
            kind = Bytes;
            data = &value;
            size = sizeof value;
        }
    }
};

void call(const char *name, std::initializer_list<Arg> args, const Arg &result = {});
void forget(ofa_client_obj_base_t obj); // its name is not reused
std::string text(const Arg &arg);

} // namespace trace
} // namespace simplane
