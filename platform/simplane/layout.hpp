// simplane's view of each object type: where every attribute lives in an instance. Generated
// from the catalogue; the store itself is generic over these layouts.
#pragma once

#include <cstdint>

namespace simplane {

enum class KeyOrder : uint8_t { Unsigned, Signed, Bytes }; // how a key field sorts

struct Slot {
    uint32_t offset; // in the value area (top-level) or in one element (element slots)
    uint32_t width;
    KeyOrder order;
};

enum LayoutFlag : uint32_t { kEod = 1, kSized = 2, kNpuMask = 4 };

struct Layout {
    const char *name;
    uint16_t number;
    uint16_t key_count;   // the first key_count top slots are the key fields, packed from offset 0
    uint32_t key_width;
    uint16_t top_count;
    uint16_t element_count;
    uint32_t value_size;
    uint32_t element_size;
    const Slot *top;
    const Slot *elements;
    uint32_t flags;
};

extern const Layout kLayouts[];
extern const uint32_t kLayoutCount;

} // namespace simplane
