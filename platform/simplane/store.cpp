#include "store.hpp"
#include "references.hpp"
#include "trace.hpp"

#include "planecheck/simplane.h"
#include "planecheck/vocabulary.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <unordered_map>

namespace simplane {
namespace {

[[noreturn]] void fail(const char *what, uint16_t type, const Obj obj) {
    std::fprintf(stderr, "simplane: %s (type %u, object %p)\n", what, unsigned(type), static_cast<void *>(obj));
    std::abort();
}

const Layout &layout(uint16_t type) {
    if (type >= kLayoutCount) fail("unknown type number", type, nullptr);
    return kLayouts[type];
}

// An instance is its header, its get state text, one presence byte per top-level slot, the value
// area, then the elements: each one presence byte per element slot followed by its values.
constexpr size_t kStateTextSize = 128;

struct Geometry {
    size_t presence, values, elements, element_stride, size;
};

size_t align8(size_t n) { return (n + 7) & ~size_t(7); }

Geometry geometry(const Layout &l, uint32_t elements) {
    Geometry g;
    g.presence = sizeof(dpa_inst_hdr_t) + kStateTextSize;
    g.values = g.presence + l.top_count;
    g.elements = g.values + l.value_size;
    g.element_stride = l.element_count + l.element_size;
    g.size = align8(g.elements + g.element_stride * elements);
    return g;
}

uint8_t *current(Obj obj) { return static_cast<uint8_t *>(obj->data) + size_t(obj->cur_inst) * obj->inst_size; }

uint8_t *checked(Obj obj, uint16_t type) {
    if (!obj || !obj->data) fail("null object", type, obj);
    uint8_t *inst = current(obj);
    auto *h = reinterpret_cast<dpa_inst_hdr_t *>(inst);
    if (h->type != type) fail("accessor of one type used on an object of another type", type, obj);
    return inst;
}

struct Stored {
    std::vector<uint8_t> body; // presence, values and elements, as in an instance
    uint32_t elements = 0;
    uint64_t hdl = 0;
};

struct KeyLess {
    const Layout *l;
    bool operator()(const std::string &a, const std::string &b) const;
};

int compare_field(const uint8_t *a, const uint8_t *b, const Slot &s) {
    if (s.order == KeyOrder::Bytes) return std::memcmp(a, b, s.width);
    if (s.order == KeyOrder::Signed && s.width <= 8) {
        int64_t x = 0, y = 0;
        std::memcpy(&x, a, s.width);
        std::memcpy(&y, b, s.width);
        int shift = 64 - 8 * int(s.width);
        x = (x << shift) >> shift;
        y = (y << shift) >> shift;
        return x < y ? -1 : x > y;
    }
    for (uint32_t i = s.width; i-- > 0;) // little-endian: the last byte is the most significant
        if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
    return 0;
}

bool KeyLess::operator()(const std::string &a, const std::string &b) const {
    auto *pa = reinterpret_cast<const uint8_t *>(a.data()), *pb = reinterpret_cast<const uint8_t *>(b.data());
    for (uint16_t i = 0; i < l->key_count; ++i) {
        int c = compare_field(pa + l->top[i].offset, pb + l->top[i].offset, l->top[i]);
        if (c) return c < 0;
    }
    return false;
}

using Store = std::map<std::string, Stored, KeyLess>;

struct Armed {
    std::string text;
    int32_t status;
    std::vector<uint32_t> results;
    uint32_t remaining;
};

} // namespace

struct State {
    Config config;
    std::vector<Store> stores;
    uint64_t next_handle = 0x1001;
    std::vector<Armed> injections, results;
    std::unordered_map<Obj, BatchOutcome> batch_outcomes; // of queued objects, until their list is destroyed
    LogSink log;
    SdkSide sdk;
    bool enforce_references = false;

    State() { reset_stores(); }
    void reset_stores() {
        stores.clear();
        stores.reserve(kLayoutCount);
        for (uint32_t t = 0; t < kLayoutCount; ++t) stores.emplace_back(KeyLess{&kLayouts[t]});
        next_handle = 0x1001;
    }
};

namespace {

// Calls on a thread that has no instance bound use this one: a program that never binds sees one
// data plane per process, as it would with a real platform library.
Instance &default_instance() {
    static Instance instance;
    return instance;
}

thread_local Instance *bound = nullptr;

State &state() { return (bound ? *bound : default_instance()).state(); }

void log(int level, const std::string &text) {
    if (state().log) state().log(level, text);
}

std::string key_of(const uint8_t *inst, const Layout &l) {
    return std::string(reinterpret_cast<const char *>(inst + geometry(l, 0).values), l.key_width);
}

// The first armed entry for `text`, used up once; spent entries leave the list.
Armed *take(std::vector<Armed> &list, const std::string &text) {
    static thread_local Armed taken;
    for (auto it = list.begin(); it != list.end(); ++it)
        if (it->text == text) {
            taken = *it;
            if (--it->remaining == 0) list.erase(it);
            taken.remaining--;
            return &taken;
        }
    return nullptr;
}

void save(Stored &s, const uint8_t *inst, const Layout &l, const dpa_inst_hdr_t &h) {
    Geometry g = geometry(l, h.elem_count);
    s.body.assign(inst + g.presence, inst + g.elements + g.element_stride * h.elem_count);
    s.elements = h.elem_count;
}

// Copies what is set on the object over the stored copy.
void merge(Stored &s, const uint8_t *inst, const Layout &l, const dpa_inst_hdr_t &h) {
    Geometry g = geometry(l, 0);
    uint8_t *body = s.body.data();
    size_t base = g.presence;
    for (uint16_t i = 0; i < l.top_count; ++i)
        if (inst[g.presence + i]) {
            body[i] = 1;
            std::memcpy(body + (g.values - base) + l.top[i].offset, inst + g.values + l.top[i].offset, l.top[i].width);
        }
    for (uint32_t e = 0; e < std::min(s.elements, h.elem_count); ++e) {
        const uint8_t *src = inst + g.elements + g.element_stride * e;
        uint8_t *dst = body + (g.elements - base) + g.element_stride * e;
        for (uint16_t i = 0; i < l.element_count; ++i)
            if (src[i]) {
                dst[i] = 1;
                std::memcpy(dst + l.element_count + l.elements[i].offset, src + l.element_count + l.elements[i].offset,
                            l.elements[i].width);
            }
    }
}

void load(const Stored &s, uint8_t *inst, const Layout &l, dpa_inst_hdr_t &h) {
    Geometry g = geometry(l, 0);
    size_t top = g.elements - g.presence;
    std::memcpy(inst + g.presence, s.body.data(), top);
    uint32_t n = std::min(s.elements, h.elem_count);
    std::memcpy(inst + g.elements, s.body.data() + top, g.element_stride * n);
    h.hdl = s.hdl;
    // the text lives in the object itself, so it is valid for exactly as long as the object
    char *text = reinterpret_cast<char *>(inst + sizeof(dpa_inst_hdr_t));
    std::snprintf(text, kStateTextSize, "{\"%s\": \"state=programmed hdl=0x%llx npus=%u\"}", state().config.node.c_str(),
                  static_cast<unsigned long long>(s.hdl), state().config.npus);
    h.get_state = text;
}

// ---- references, when the configuration enforces them ------------------------------------------
// A reference slot's bytes in an instance or stored body: `values` and `elements` are where the
// value area and the first element start, `count` the number of elements.
struct Body {
    const uint8_t *presence, *values, *elements;
    uint32_t count;
    size_t stride;
};

Body body_of_instance(const uint8_t *inst, const Layout &l, uint32_t count) {
    Geometry g = geometry(l, 0);
    return {inst + g.presence, inst + g.values, inst + g.elements, count, g.element_stride};
}

Body body_of_stored(const Stored &s, const Layout &l) {
    Geometry g = geometry(l, 0);
    const uint8_t *b = s.body.data();
    return {b, b + (g.values - g.presence), b + (g.elements - g.presence), s.elements, g.element_stride};
}

// Calls `each(bytes)` for every place the reference is set: once at top level, per element else.
template <typename Each> void each_set(const Body &b, const Layout &l, const Reference &r, Each each) {
    if (!r.element) {
        if (b.presence[r.slot]) each(b.values + l.top[r.slot].offset);
        return;
    }
    for (uint32_t e = 0; e < b.count; ++e) {
        const uint8_t *element = b.elements + b.stride * e;
        if (element[r.slot]) each(element + l.element_count + l.elements[r.slot].offset);
    }
}

std::string hex(uint64_t v) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(v));
    return text;
}

bool refers_to(const Reference &r, const uint8_t *bytes, const std::string &key, uint64_t hdl) {
    if (r.by_key) return std::memcmp(bytes, key.data(), key.size()) == 0;
    uint64_t h;
    std::memcpy(&h, bytes, sizeof h);
    return h == hdl;
}

// The live object of `target` that a reference's bytes name, or null.
const Stored *referred(const Reference &r, const uint8_t *bytes) {
    const Store &store = state().stores[r.target];
    if (r.by_key) {
        auto it = store.find(std::string(reinterpret_cast<const char *>(bytes), kLayouts[r.target].key_width));
        return it == store.end() ? nullptr : &it->second;
    }
    uint64_t h;
    std::memcpy(&h, bytes, sizeof h);
    for (const auto &[k, stored] : store)
        if (stored.hdl == h && h) return &stored;
    return nullptr;
}

// ENOENT, with a line naming both objects, when a reference the operation sets names nothing live.
int32_t dangling_reference(const uint8_t *inst, const Layout &l, const dpa_inst_hdr_t &h, const char *op) {
    Body b = body_of_instance(inst, l, h.elem_count);
    for (uint16_t i = 0; i < kTypeReferences[l.number].count; ++i) {
        const Reference &r = kTypeReferences[l.number].list[i];
        std::string missing;
        each_set(b, l, r, [&](const uint8_t *bytes) {
            if (missing.empty() && !referred(r, bytes)) {
                uint64_t h64 = 0;
                std::memcpy(&h64, bytes, r.by_key ? 0 : sizeof h64);
                missing = r.by_key ? "its key" : hex(h64);
            }
        });
        if (missing.empty()) continue;
        log(kRefusalLevel, std::string("simplane: ") + l.name + " " + op + ": " + r.name + " (" + missing + ") names no live " +
                   kLayouts[r.target].name + "; refused with ENOENT");
        return kEnoent;
    }
    return kEok;
}

// EBUSY, with a line naming both objects, when a live object still refers to the one to delete.
int32_t still_referred(const Layout &target, const std::string &key, uint64_t hdl) {
    auto &st = state();
    for (uint32_t t = 0; t < kLayoutCount; ++t) {
        const Layout &l = kLayouts[t];
        for (uint16_t i = 0; i < kTypeReferences[l.number].count; ++i) {
            const Reference &r = kTypeReferences[l.number].list[i];
            if (r.target != target.number) continue;
            for (const auto &[k, stored] : st.stores[t]) {
                bool found = false;
                each_set(body_of_stored(stored, l), l, r, [&](const uint8_t *bytes) { found |= refers_to(r, bytes, key, hdl); });
                if (!found) continue;
                log(kRefusalLevel, std::string("simplane: ") + target.name + " delete: " + target.name + " " + hex(hdl) + " is still referred to by " +
                           l.name + " " + hex(stored.hdl) + " (" + r.name + "); refused with EBUSY");
                return kEbusy;
            }
        }
    }
    return kEok;
}

} // namespace

const char *op_name(uint8_t op) {
    if (op == 0) return "none";
    return op <= pc::vocabulary::kMaxOpCode ? pc::vocabulary::kOpByCode[op] : "unknown";
}

Obj construct(uint16_t type, uint32_t elements) {
    const Layout &l = layout(type);
    // element attributes of plain types are per-NPU values
    if (!(l.flags & kSized)) elements = l.element_count ? PC_MAX_NPUS : 0;
    if (elements > kMaxElements) {
        log(1, std::string("simplane: ") + l.name + ": element count " + std::to_string(elements) + " is above " +
                   std::to_string(kMaxElements) + "; the object is built with " + std::to_string(kMaxElements));
        elements = kMaxElements;
    }
    Geometry g = geometry(l, elements);
    auto *obj = static_cast<ofa_client_obj_base_s *>(std::calloc(1, sizeof(ofa_client_obj_base_s) + g.size));
    if (!obj) fail("out of memory", type, nullptr);
    obj->inst_count = 1;
    obj->inst_size = uint32_t(g.size);
    obj->data = obj + 1;
    auto *h = static_cast<dpa_inst_hdr_t *>(obj->data);
    h->type = type;
    h->elem_count = elements;
    h->inst_size = uint32_t(g.size);
    return obj;
}

void destroy(Obj obj, uint16_t type) {
    if (!obj) return;
    checked(obj, type);
    std::free(obj);
}

dpa_inst_hdr_t &header(Obj obj, uint16_t type) { return *reinterpret_cast<dpa_inst_hdr_t *>(checked(obj, type)); }

void set_key(Obj obj, uint16_t type, const void *key) {
    const Layout &l = layout(type);
    std::memcpy(checked(obj, type) + geometry(l, 0).values, key, l.key_count ? l.key_width : 0);
}

void get_key(Obj obj, uint16_t type, void *key) {
    const Layout &l = layout(type);
    std::memset(key, 0, l.key_width);
    std::memcpy(key, checked(obj, type) + geometry(l, 0).values, l.key_count ? l.key_width : 0);
}

void set(Obj obj, uint16_t type, uint16_t slot, const void *value) {
    const Layout &l = layout(type);
    uint8_t *inst = checked(obj, type);
    Geometry g = geometry(l, 0);
    inst[g.presence + slot] = 1;
    std::memcpy(inst + g.values + l.top[slot].offset, value, l.top[slot].width);
}

void get(Obj obj, uint16_t type, uint16_t slot, void *out) {
    const Layout &l = layout(type);
    std::memcpy(out, checked(obj, type) + geometry(l, 0).values + l.top[slot].offset, l.top[slot].width);
}

namespace {
std::optional<uint8_t> forced_is_set; // the test hook's answer
} // namespace

void force_is_set_answer(std::optional<uint8_t> answer) { forced_is_set = answer; }

uint8_t is_set(Obj obj, uint16_t type, uint16_t slot) {
    uint8_t present = checked(obj, type)[geometry(layout(type), 0).presence + slot];
    return forced_is_set.value_or(present);
}

namespace {
constexpr uint32_t kWarnedBeyondElements = 1; // in the header's reserved word: said once per object

uint8_t *element(Obj obj, uint16_t type, uint32_t index, const Geometry &g, bool writing) {
    uint8_t *inst = checked(obj, type);
    auto &h = *reinterpret_cast<dpa_inst_hdr_t *>(inst);
    if (index >= h.elem_count) {
        if (writing && !(h.reserved & kWarnedBeyondElements)) {
            h.reserved |= kWarnedBeyondElements;
            log(1, std::string("simplane: ") + layout(type).name + ": member " + std::to_string(index) +
                       " is beyond the object's " + std::to_string(h.elem_count) +
                       " element(s); it and any later ones are ignored");
        }
        return nullptr;
    }
    return inst + g.elements + g.element_stride * index;
}
} // namespace

void set_at(Obj obj, uint16_t type, uint16_t slot, uint32_t index, const void *value) {
    const Layout &l = layout(type);
    Geometry g = geometry(l, 0);
    uint8_t *e = element(obj, type, index, g, true);
    if (!e) return;
    e[slot] = 1;
    std::memcpy(e + l.element_count + l.elements[slot].offset, value, l.elements[slot].width);
}

void get_at(Obj obj, uint16_t type, uint16_t slot, uint32_t index, void *out) {
    const Layout &l = layout(type);
    Geometry g = geometry(l, 0);
    uint8_t *e = element(obj, type, index, g, false);
    if (e) std::memcpy(out, e + l.element_count + l.elements[slot].offset, l.elements[slot].width);
    else std::memset(out, 0, l.elements[slot].width);
}

uint8_t is_set_at(Obj obj, uint16_t type, uint16_t slot, uint32_t index) {
    const Layout &l = layout(type);
    uint8_t *e = element(obj, type, index, geometry(l, 0), false);
    return forced_is_set.value_or(e ? e[slot] : 0);
}

uint8_t presence_flag(Obj obj, uint16_t type, uint32_t attribute, uint32_t top_attributes) {
    const Layout &l = layout(type);
    uint8_t *inst = checked(obj, type);
    Geometry g = geometry(l, 0);
    if (attribute < top_attributes) return inst[g.presence + attribute];
    uint32_t slot = attribute - top_attributes;
    if (slot >= l.element_count) fail("presence flag of an attribute the type does not have", type, obj);
    uint32_t count = reinterpret_cast<dpa_inst_hdr_t *>(inst)->elem_count;
    for (uint32_t i = 0; i < count; ++i)
        if (inst[g.elements + g.element_stride * i + slot]) return 1;
    return 0;
}

void set_retry_mode(Obj obj, uint16_t type, uint8_t retry) {
    dpa_inst_hdr_t &h = header(obj, type);
    h.flags = retry ? (h.flags | DPA_FLAG_RETRY_MODE) : (h.flags & ~DPA_FLAG_RETRY_MODE);
}

uint32_t npu_result(Obj obj, uint16_t type, uint32_t npu) {
    return npu < PC_MAX_NPUS ? header(obj, type).npu_result[npu] : 0;
}

int32_t run(Obj obj, uint16_t type, uint8_t op, bool server) {
    const Layout &l = layout(type);
    uint8_t *inst = checked(obj, type);
    auto &h = *reinterpret_cast<dpa_inst_hdr_t *>(inst);
    h.op = op;
    auto &st = state();
    std::memset(h.npu_result, 0, sizeof h.npu_result);
    if (!st.results.empty() || !st.injections.empty()) {
        std::string text = std::string(l.name) + " " + op_name(op);
        if (Armed *r = take(st.results, text))
            for (size_t i = 0; i < r->results.size() && i < PC_MAX_NPUS; ++i) h.npu_result[i] = r->results[i];
        if (Armed *inj = take(st.injections, text)) {
            log(0, "simplane: injected status " + std::to_string(inj->status) + " into " + text + " (" +
                       std::to_string(inj->remaining) + " more armed)");
            return inj->status;
        }
    }
    if (!server && st.sdk)
        if (std::optional<int32_t> answer = st.sdk(type, &h)) {
            bool changes_store = op == DPA_OP_CREATE || op == DPA_OP_UPDATE || op == DPA_OP_DELETE;
            if (*answer != kEok || !changes_store) return *answer;
        }
    Store &store = st.stores[type];
    std::string key = key_of(inst, l);
    bool enforce = st.enforce_references;
    if (enforce && (op == DPA_OP_CREATE || op == DPA_OP_UPDATE) && (op == DPA_OP_UPDATE || !store.count(key)))
        if (int32_t refused = dangling_reference(inst, l, h, op_name(op))) return refused;
    switch (op) {
    case DPA_OP_CREATE: {
        auto [it, fresh] = store.try_emplace(key);
        if (!fresh) return kEexist;
        save(it->second, inst, l, h);
        it->second.hdl = h.hdl = st.next_handle++;
        return kEok;
    }
    case DPA_OP_UPDATE: {
        auto it = store.find(key);
        if (it == store.end()) return kEnoent;
        merge(it->second, inst, l, h);
        h.hdl = it->second.hdl;
        return kEok;
    }
    case DPA_OP_DELETE: {
        auto it = store.find(key);
        if (it == store.end()) return kEnoent;
        if (enforce)
            if (int32_t refused = still_referred(l, key, it->second.hdl)) return refused;
        store.erase(it);
        return kEok;
    }
    case DPA_OP_EOD: return kEok;
    default: break;
    }
    Store::iterator it = store.end();
    if (op == DPA_OP_GET) it = store.find(key);
    else if (op == DPA_OP_GET_FIRST) it = store.begin();
    else if (op == DPA_OP_GET_NEXT) it = store.upper_bound(key);
    else if (op == DPA_OP_GET_GT_EQ) it = store.lower_bound(key);
    if (it == store.end()) return kEnoent;
    load(it->second, inst, l, h);
    return kEok;
}

int32_t replay(uint16_t type, Replay which) {
    static const char *const names[] = {pc::vocabulary::kOpReplay, pc::vocabulary::kOpReplayStart, pc::vocabulary::kOpReplayEnd};
    std::string text = std::string(layout(type).name) + " " + names[int(which)];
    if (Armed *inj = take(state().injections, text)) return inj->status;
    log(0, "simplane: " + text);
    return kEok;
}

int32_t chain_walk(uint16_t type, const void *, dpa_walk_opts_t options) {
    log(0, std::string("simplane: chain walk of ") + layout(type).name + " depth " + std::to_string(options.depth) +
               " trans_id " + std::to_string(options.trans_id));
    return kEok;
}

void print_self(Obj obj, uint16_t type, dpa_print_opts_t options, int) {
    log(0, std::string("simplane: ") + layout(type).name + " handle " + std::to_string(header(obj, type).hdl) +
               " trans_id " + std::to_string(options.trans_id));
}

Obj typed(Obj base, uint16_t type) {
    checked(base, type);
    return base;
}

dpa_inst_hdr_t *instance(Obj obj, uint16_t type, uint32_t index) {
    if (!obj || index >= obj->inst_count) fail("instance index out of range", type, obj);
    auto *h = reinterpret_cast<dpa_inst_hdr_t *>(static_cast<uint8_t *>(obj->data) + size_t(index) * obj->inst_size);
    if (h->type != type) fail("instance of another type", type, obj);
    return h;
}

Instance::Instance() : state_(std::make_unique<State>()) {}
Instance::~Instance() = default;

Binding::Binding(Instance &instance) : previous_(bound) { bound = &instance; }
Binding::~Binding() { bound = previous_; }

// C runners hold instances as an opaque type that is the C++ instance itself.
extern "C" simplane_instance *simplane_instance_new(void) { return reinterpret_cast<simplane_instance *>(new Instance); }
extern "C" void simplane_instance_free(simplane_instance *instance) { delete reinterpret_cast<Instance *>(instance); }
extern "C" simplane_instance *simplane_bind(simplane_instance *instance) {
    Instance *previous = bound;
    bound = reinterpret_cast<Instance *>(instance);
    return reinterpret_cast<simplane_instance *>(previous);
}

BatchOutcome &batch_outcome(Obj obj) { return state().batch_outcomes[obj]; }
void forget_batch_outcome(Obj obj) { state().batch_outcomes.erase(obj); }

void configure(const Config &c) { state().config = c; }
const Config &config() { return state().config; }

void reset() {
    auto &st = state();
    st.reset_stores();
    st.injections.clear();
    st.results.clear();
    st.sdk = nullptr;
    st.enforce_references = false;
}

void arm_injection(const std::string &op_text, int32_t status, uint32_t times) {
    if (times) state().injections.push_back({op_text, status, {}, times});
}

void arm_npu_results(const std::string &op_text, const std::vector<uint32_t> &results, uint32_t times) {
    if (times) state().results.push_back({op_text, 0, results, times});
}

void set_log(LogSink sink) { state().log = std::move(sink); }
void enforce_references(bool on) { state().enforce_references = on; }
void set_sdk_side(SdkSide side) { state().sdk = std::move(side); }
size_t stored_count(uint16_t type) { return state().stores[type].size(); }

} // namespace simplane

extern "C" {

void dpa_error_inject_start(const char *text) {
    simplane::log(0, std::string("simplane: error injection start: ") + text);
    simplane::trace::call("dpa_error_inject_start", {text});
}
void dpa_error_inject_end(const char *text) {
    simplane::log(0, std::string("simplane: error injection end: ") + text);
    simplane::trace::call("dpa_error_inject_end", {text});
}
uint32_t syspro_config_get_max_num_npus(void) {
    simplane::trace::call("syspro_config_get_max_num_npus", {}, simplane::config().npus);
    return simplane::config().npus;
}
uint32_t platform_get_router_type(void) {
    simplane::trace::call("platform_get_router_type", {}, simplane::config().router_type);
    return simplane::config().router_type;
}

}
