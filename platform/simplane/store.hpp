// simplane: the reference data plane. A generic in-memory object store keyed by each type's key
// record; the generated per-type C functions (api_macros.hpp) forward here.
#pragma once

#include "layout.hpp"
#include "planecheck/platform_types.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace simplane {

using Obj = ofa_client_obj_base_t;

// Status codes: the class is the low 9 bits, numbered like errno.
enum Status : int32_t { kEok = 0, kEnoent = 2, kEnomem = 12, kEexist = 17, kEinval = 22 };

constexpr uint32_t kMaxElements = 65536;

enum class Replay { Replay, Start, End };

Obj construct(uint16_t type, uint32_t elements);
void destroy(Obj obj, uint16_t type);
dpa_inst_hdr_t &header(Obj obj, uint16_t type);
void set_key(Obj obj, uint16_t type, const void *key);
void get_key(Obj obj, uint16_t type, void *key);
void set(Obj obj, uint16_t type, uint16_t slot, const void *value);
void get(Obj obj, uint16_t type, uint16_t slot, void *out);
uint8_t is_set(Obj obj, uint16_t type, uint16_t slot);
void set_at(Obj obj, uint16_t type, uint16_t slot, uint32_t index, const void *value);
void get_at(Obj obj, uint16_t type, uint16_t slot, uint32_t index, void *out);
uint8_t is_set_at(Obj obj, uint16_t type, uint16_t slot, uint32_t index);
// The instance's own presence flag of an attribute, read without the is-set accessors. Below
// `top_attributes` it is the attribute's presence byte; an element attribute has one flag for all
// elements, set when any element carries the value.
uint8_t presence_flag(Obj obj, uint16_t type, uint32_t attribute, uint32_t top_attributes);
void set_retry_mode(Obj obj, uint16_t type, uint8_t retry);
uint32_t npu_result(Obj obj, uint16_t type, uint32_t npu);

int32_t run(Obj obj, uint16_t type, uint8_t op, bool server);
int32_t replay(uint16_t type, Replay which);
int32_t chain_walk(uint16_t type, const void *key, dpa_walk_opts_t options);
void print_self(Obj obj, uint16_t type, dpa_print_opts_t options, int flags);
Obj typed(Obj base, uint16_t type);
dpa_inst_hdr_t *instance(Obj obj, uint16_t type, uint32_t index);
int32_t batch_enqueue(ofa_batch_list_t list, Obj obj, uint16_t type, uint8_t op);

// ---- instances ------------------------------------------------------------------------------
// One data plane: its stores, handle counter, armed injections and NPU results, queued batch
// outcomes, configuration, log and SDK side. Runners make one per scenario context and bind it
// to the thread that makes the context's calls, because the platform's C functions take no
// context. Everything below (and every dpa_ function) works on the calling thread's instance.
struct State;
class Instance {
public:
    Instance();
    ~Instance();
    Instance(const Instance &) = delete;
    Instance &operator=(const Instance &) = delete;
    State &state() { return *state_; }

private:
    std::unique_ptr<State> state_;
};

// Binds an instance to the calling thread for the binding's lifetime; bindings nest. A thread
// with no binding uses the process's default instance.
class Binding {
public:
    explicit Binding(Instance &instance);
    ~Binding();
    Binding(const Binding &) = delete;
    Binding &operator=(const Binding &) = delete;

private:
    Instance *previous_;
};

// What a batch send left for a queued object, kept until the batch list is destroyed.
struct BatchOutcome {
    int32_t rc = 0;
    bool did_not_run = true;
};
BatchOutcome &batch_outcome(Obj obj);
void forget_batch_outcome(Obj obj);

// ---- set-up by the runner and by tests -------------------------------------------------
struct Config {
    uint32_t npus = 4;
    uint32_t router_type = 16;
    std::string node = "node0";
};
void configure(const Config &config);
const Config &config();
// Empties every store and forgets armed injections and results; handles restart at 0x1001.
void reset();

// The next `times` operations named by `op_text` ("test_if create") return `status`.
void arm_injection(const std::string &op_text, int32_t status, uint32_t times);
// The next `times` operations named by `op_text` report these per-NPU results.
void arm_npu_results(const std::string &op_text, const std::vector<uint32_t> &results, uint32_t times);

// The SDK side of client calls: given the instance an operation carries, it returns the status
// the SDK side answers with, or nothing when it has no answer (the store answers then). With an
// answer of 0 a create, update or delete also reaches the store; a get returns the instance as
// the SDK side filled it.
using SdkSide = std::function<std::optional<int32_t>(uint16_t type, dpa_inst_hdr_t *instance)>;
void set_sdk_side(SdkSide side);

// Test hook: every is-set accessor answers `answer` whatever the presence bytes hold, as on a
// platform whose accessors and presence bytes disagree; nullopt restores the normal answers.
void force_is_set_answer(std::optional<uint8_t> answer);

// Lines simplane writes about what it does: level 0 information, 1 errors.
using LogSink = std::function<void(int level, const std::string &text)>;
void set_log(LogSink sink);

// Store introspection for tests.
size_t stored_count(uint16_t type);
const char *op_name(uint8_t op);

} // namespace simplane
