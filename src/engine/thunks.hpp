// Small adapters from the platform's typed accessors to the engine's type-erased ones. The
// generated descriptor rows name only the accessors; these templates do the rest.
#pragma once

#include "descriptors.hpp"

#include <cstring>

// The thunks are reached only through the descriptor rows of this library: hidden, their addresses
// are bound when the library is linked instead of looked up by name at every start.
#pragma GCC visibility push(hidden)
namespace pc::engine::thunk {

template <class T> T load(const void *p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class T> void store(void *p, const T &v) { std::memcpy(p, &v, sizeof v); }

// setters: by value, by pointer, and their element forms
template <class T, void (*F)(Obj, T)> void set_value(Obj o, uint32_t, const void *p) { F(o, load<T>(p)); }
template <class T, void (*F)(Obj, const T *)> void set_pointer(Obj o, uint32_t, const void *p) {
    F(o, static_cast<const T *>(p));
}
template <class T, void (*F)(Obj, uint32_t, T)> void set_value_at(Obj o, uint32_t i, const void *p) {
    F(o, i, load<T>(p));
}
template <class T, void (*F)(Obj, uint32_t, const T *)> void set_pointer_at(Obj o, uint32_t i, const void *p) {
    F(o, i, static_cast<const T *>(p));
}

// getters: returning the value, or filling a caller buffer given first
template <class T, T (*F)(Obj)> void get_value(Obj o, uint32_t, void *out) { store(out, F(o)); }
template <class T, void (*F)(T *, Obj)> void get_into(Obj o, uint32_t, void *out) { F(static_cast<T *>(out), o); }
template <class T, T (*F)(Obj, uint32_t)> void get_value_at(Obj o, uint32_t i, void *out) { store(out, F(o, i)); }
template <class T, void (*F)(T *, Obj, uint32_t)> void get_into_at(Obj o, uint32_t i, void *out) {
    F(static_cast<T *>(out), o, i);
}

template <uint8_t (*F)(Obj)> bool is_set(Obj o, uint32_t) { return F(o) != 0; }
template <uint8_t (*F)(Obj, uint32_t)> bool is_set_at(Obj o, uint32_t i) { return F(o, i) != 0; }

// whole-object forms
template <Obj (*F)()> Obj ctor_plain(uint32_t) { return F(); }
template <class K, void (*F)(Obj, K)> void set_key(Obj o, const void *p) { F(o, load<K>(p)); }
template <class K, K (*F)(Obj)> void get_key(Obj o, void *out) { store(out, F(o)); }
template <class K, int32_t (*F)(K, dpa_walk_opts_t)> int32_t chain_walk(const void *key, dpa_walk_opts_t opts) {
    return F(load<K>(key), opts);
}

} // namespace pc::engine::thunk
#pragma GCC visibility pop
