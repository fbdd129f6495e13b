// The pre-flight check: everything `run` would stop on (an unknown table, a batch that aborts) or
// pass over without a word (a record that is not a mapping, an op no branch handles, a step of an
// inactive type, a handle name nobody stored, or one stored for another type than the reference
// takes...), found without running anything. Catalogue facts (ops, end of data, gates, enums,
// reference pairs) come from the generated descriptors.
#pragma once

#include "descriptors.hpp"
#include "planecheck/session.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace pc::runner {

struct CheckFinding {
    uint32_t line = 0, column = 0;
    std::string message;
    bool warning = false; // reported, but does not fail the check
};

// Whether the object-set flag lets a type (or a reference pair, by its target) do anything.
bool active_under(engine::Gate gate, int32_t object_set);
// "inactive while object_set is 0"
std::string inactive_text(int32_t object_set);

// The special key a send step goes to first, or null.
const char *special_key(const JSON_Object *step);
// The object type a send step goes to: null for a special key or an unknown table.
const engine::TypeDesc *send_type(const JSON_Object *step);

// Why the record's op runs nothing in a type's send ("" when a branch performs it), with the
// closest operation suggested for an unknown one.
std::string op_problem(const engine::TypeDesc &type, const char *op, size_t index, int32_t mode);

// A handle number written as text ("0x1001"), not a name.
bool handle_number(const char *text);
// The "hdl" value of an update or delete record that names a handle `stored` does not know, or null.
const JSON_Value *unstored_handle(const JSON_Object *record, const std::function<bool(const char *)> &stored);

// Checks the steps of one file in order; handle names stored by earlier records carry over.
class StepCheck {
public:
    explicit StepCheck(int32_t object_set, uint32_t router_type = 16, int32_t mode = 1); // mode 1: client calls
    StepCheck(const StepCheck &) = delete;
    StepCheck &operator=(const StepCheck &) = delete;

    void send(const JSON_Value *body, const JSON_Value *sdk); // a send: step and its sdk: answer (or null)
    void dump(const JSON_Value *body);
    // inject: or npu_result: for `op` ("test_if create"), already known to name a type and an operation
    void arm(const std::string &kind, const JSON_Value *op);
    // At the end of the file: the injections and NPU results that no later operation takes.
    void finish();
    // The findings since the last call.
    std::vector<CheckFinding> take();

private:
    void add(const JSON_Value *at, std::string message, bool warning = false);
    enum class Use { Sent, Batch, Received, Dumped };
    const engine::TypeDesc *table(const JSON_Object *o, const JSON_Value *at, JSON_Value *&list, const char *who);
    void batch(const JSON_Value *list);
    void batch_params(const JSON_Value *first);
    void records(const engine::TypeDesc &type, const JSON_Value *list, Use use);
    void sent_op(const engine::TypeDesc &type, const JSON_Value *record, size_t index);
    void queued_op(const JSON_Value *record);
    void handles(const engine::TypeDesc &type, const JSON_Object *record);
    void unrun_handles(const engine::TypeDesc &type, const JSON_Value *list);
    void passed_over(const JSON_Object *o, const char *taken);
    void members(const engine::TypeDesc &type, const JSON_Object *record);
    void values(const engine::TypeDesc &type, const JSON_Object *o, bool element);
    void value(uint16_t value_type, JSON_Value *v, const char *name);
    void enum_range(uint16_t value_type, const JSON_Value *v, const char *name);
    void handle_read(JSON_Value *v, const char *what, const engine::TypeDesc &owner, const engine::TypeDesc *target, bool element);
    void wrong_handle(const JSON_Value *v, const char *what, const engine::TypeDesc &owner, const engine::TypeDesc &target,
                                bool element, const char *name, bool ran);
    void note_operation(const engine::TypeDesc &type, const char *op);
    bool router_matches(const engine::TypeDesc &type, const JSON_Value *list);
    bool type_active(const engine::TypeDesc &type, const JSON_Value *at, bool dump);

    int32_t object_set_;
    uint32_t router_type_;
    int32_t mode_;
    // A handle name with the type of the object it names (the type of the record that stored it
    // with "hdl") and where it was stored.
    struct Handle {
        const engine::TypeDesc *type;
        uint32_t line;
    };
    std::unordered_map<std::string, Handle> stored_; // handle names that earlier records store with "hdl"
    std::unordered_map<std::string, Handle> unrun_;  // names whose storing record ran nothing: its type is inactive
    std::vector<CheckFinding> findings_;
    struct Armed {
        std::string kind, text; // "inject", "test_if create"
        uint32_t line, column;
    };
    std::vector<Armed> armed_; // armed, and no operation after them has taken them yet
    pc::support::Context scratch_;          // converters report refused values through its log
    const JSON_Value *converting_ = nullptr;
};

} // namespace pc::runner
