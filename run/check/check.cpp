#include "check.hpp"

#include "engine.hpp"
#include "record_lint.hpp"
#include "reference_text.hpp"
#include "references.hpp"
#include "suggestions.hpp"
#include "planecheck/support.h"
#include "value_forms.hpp"
#include "planecheck/vocabulary.hpp"

#include <fmt/format.h>

#include <array>
#include <cstring>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace pc::runner {
namespace {

using engine::AttrDesc;
using engine::Kind;
using engine::RoleDesc;
using engine::TypeDesc;

namespace vocab = pc::vocabulary;

bool is_replay(const char *op) {
    const vocab::Op *found = vocab::find_op(op);
    return found && found->has(vocab::kFlagReplay);
}

// A batch entry carries an operation code; the batch list refuses every other op.
bool is_batch_op(const char *op) {
    const vocab::Op *found = vocab::find_op(op);
    return found && found->code;
}

std::string batch_ops_text() {
    std::vector<std::string_view> ops;
    for (const vocab::Op &op : vocab::kOps)
        if (op.code) ops.push_back(op.name);
    return fmt::format("{}", fmt::join(ops, ", "));
}

const char *kind_of(const JSON_Value *v) {
    switch (json_value_get_type(v)) {
    case JSONObject: return "mapping";
    case JSONArray: return "list";
    case JSONString: return "text";
    case JSONNumber: return "number";
    case JSONBoolean: return "true/false";
    default: return "null";
    }
}

const char *op_of(const JSON_Object *record) { return json_value_get_string(json_object_get_value(record, vocab::kFieldOp)); }

uint16_t value_type_named(const char *name) {
    static const auto index = [] {
        std::unordered_map<std::string_view, uint16_t> m;
        for (size_t i = 0; i < engine::kValueTypeCount; ++i) m.emplace(engine::kValueTypes[i].name, uint16_t(i));
        return m;
    }();
    auto it = index.find(name);
    return it == index.end() ? UINT16_MAX : it->second;
}

// What a record key of a type is: an attribute, or one side of a reference pair.
struct KeyInfo {
    const AttrDesc *attr = nullptr;
    const RoleDesc *role = nullptr;
    bool handle_side = false;
};

struct TypeKeys {
    std::unordered_map<std::string_view, KeyInfo> top, element;
};

const TypeKeys &keys_of(const TypeDesc &t) {
    static std::vector<std::unique_ptr<TypeKeys>> cache(engine::kTypeCount);
    auto &slot = cache[t.number];
    if (slot) return *slot;
    slot = std::make_unique<TypeKeys>();
    for (const auto &a : t.top()) slot->top[a.name].attr = &a;
    for (const auto &a : t.elements()) slot->element[a.name].attr = &a;
    auto add_roles = [](auto &map, std::span<const RoleDesc> roles) {
        for (const auto &r : roles) {
            map[r.hdl_key] = {nullptr, &r, true};
            map[r.key_key] = {nullptr, &r, false};
        }
    };
    add_roles(slot->top, t.top_roles());
    add_roles(slot->element, t.element_roles());
    return *slot;
}

// Control fields whose values go through a converter, with the value type they are read as.
const char *control_value_type(std::string_view key) {
    for (const vocab::ControlField &field : vocab::kControlFields)
        if (key == field.name) return field.value_type;
    return nullptr;
}

std::string enum_values(const support::ValueForm &form) {
    std::string out;
    for (uint32_t i = 0; i < form.value_count && i < 8; ++i)
        out += fmt::format("{}{} {}", i ? ", " : "", form.values[i].name, form.values[i].value);
    if (form.value_count > 8) out += ", ...";
    return out;
}

} // namespace

const char *special_key(const JSON_Object *step) {
    for (const vocab::SpecialKey &special : vocab::kSpecialKeys)
        if (json_object_get_value(step, special.key)) return special.key;
    return nullptr;
}

const engine::TypeDesc *send_type(const JSON_Object *step) {
    JSON_Value *records = nullptr;
    return special_key(step) ? nullptr : engine::first_type(step, records);
}

bool handle_number(const char *text) {
    if (!text || !*text || *text == '-') return false;
    char *end = nullptr;
    std::strtoull(text, &end, 0);
    return *end == '\0';
}

const JSON_Value *unstored_handle(const JSON_Object *record, const std::function<bool(const char *)> &stored) {
    const char *op = op_of(record);
    if (!op || (std::strcmp(op, vocab::kOpUpdate) && std::strcmp(op, vocab::kOpDelete))) return nullptr;
    const JSON_Value *hdl = json_object_get_value(record, vocab::kFieldHdl);
    const char *name = json_value_get_string(hdl);
    return name && !handle_number(name) && !stored(name) ? hdl : nullptr;
}

bool active_under(engine::Gate gate, int32_t object_set) {
    return gate == engine::Gate::None || (gate == engine::Gate::Nonzero) == (object_set != 0);
}

std::string inactive_text(int32_t object_set) { return fmt::format("inactive while object_set is {}", object_set); }

StepCheck::StepCheck(int32_t object_set, uint32_t router_type, int32_t mode)
    : object_set_(object_set), router_type_(router_type), mode_(mode) {
    scratch_.session.log = [this](int level, const std::string &text, uint32_t) {
        if (level == 1 && converting_) add(converting_, text.substr(0, text.find_last_not_of('\n') + 1));
    };
    // a value error names the value itself, as run does, not the attribute that holds it
    scratch_.session.log_value_error = [this](const std::string &text, uint32_t line, uint32_t column) {
        if (converting_) findings_.push_back({line, column, text.substr(0, text.find_last_not_of('\n') + 1), false});
    };
}

std::vector<CheckFinding> StepCheck::take() { return std::exchange(findings_, {}); }

void StepCheck::add(const JSON_Value *at, std::string message, bool warning) {
    findings_.push_back({pc_json_line(at), pc_json_column(at), std::move(message), warning});
}

void StepCheck::send(const JSON_Value *body, const JSON_Value *sdk) {
    if (const JSON_Object *o = json_value_get_object(body)) {
        const char *special = special_key(o);
        JSON_Value *list = nullptr;
        if (special) {
            passed_over(o, special);
            if (!std::strcmp(special, vocab::kKeyBatchCrud)) batch(json_object_get_value(o, special));
        } else if (const TypeDesc *type = table(o, body, list, "run")) {
            if (type_active(*type, list, false)) records(*type, list, Use::Sent);
            else unrun_handles(*type, list);
        }
    }
    if (const JSON_Object *answer = json_value_get_object(sdk)) {
        JSON_Value *list = nullptr;
        if (const TypeDesc *type = table(answer, sdk, list, "the SDK side"); type && type_active(*type, list, false))
            records(*type, list, Use::Received);
    }
}

void StepCheck::dump(const JSON_Value *body) {
    JSON_Value *list = nullptr;
    if (const JSON_Object *o = json_value_get_object(body))
        if (const TypeDesc *type = table(o, body, list, "the dump"); type && type_active(*type, list, true) && router_matches(*type, list))
            records(*type, list, Use::Dumped);
}

// The dump runs only for the router type its first record names, and some types only for 16.
bool StepCheck::router_matches(const TypeDesc &type, const JSON_Value *list) {
    if (type.has(engine::kRouterGate) && router_type_ != 16) {
        add(list, fmt::format("{}'s dump runs only while router_type is 16, and this file's is {}: the step does nothing", type.name, router_type_));
        return false;
    }
    const JSON_Value *first = json_array_get_value(json_value_get_array(list), 0);
    const JSON_Value *router = json_object_get_value(json_value_get_object(first), "router");
    if (!router || uint64_t(json_value_get_constant(router)) == uint64_t(router_type_)) return true;
    add(router, fmt::format("the dump runs only for router type {}, and this file's router_type is {}: the step does nothing",
                            json_value_get_constant(router), router_type_));
    return false;
}

// An injection or NPU result waits for its operation; one that can never come waits forever.
void StepCheck::arm(const std::string &kind, const JSON_Value *op) {
    std::string text = json_value_get_string(op);
    size_t space = text.find(' ');
    const TypeDesc *type = engine::find_type(text.substr(0, space).c_str());
    if (!type) return;
    if (!active_under(type->gate, object_set_))
        add(op, fmt::format("{}: {} waits for '{}', and {} is {}: it never comes", kind, kind == vocabulary::kStepInject ? "the injection" : "the result",
                            text, type->name, inactive_text(object_set_)));
    else if (text.substr(space + 1) == vocab::kOpEod && !type->eod)
        add(op, fmt::format("{}: '{}' never comes: {} has no end-of-data operation", kind, text, type->name));
    else
        armed_.push_back({kind, text, pc_json_line(op), pc_json_column(op)});
}

void StepCheck::note_operation(const TypeDesc &type, const char *op) {
    std::string text = std::string(type.name) + " " + op;
    std::erase_if(armed_, [&](const Armed &a) { return a.text == text; });
}

void StepCheck::finish() {
    for (const Armed &a : armed_)
        findings_.push_back({a.line, a.column,
                             fmt::format("{}: no operation after this step is '{}', so the {} is never used", a.kind, a.text,
                                         a.kind == vocabulary::kStepInject ? "injection" : "result"),
                             false});
    armed_.clear();
}

// The type a dispatch chain takes for the step, with its records; a step that names none ends
// the process, deliberately, and is a finding here.
const TypeDesc *StepCheck::table(const JSON_Object *o, const JSON_Value *at, JSON_Value *&list, const char *who) {
    if (const TypeDesc *type = engine::first_type(o, list)) {
        passed_over(o, type->name);
        return type;
    }
    const char *name = json_object_get_name(o, 0);
    add(name ? json_object_get_value_at(o, 0) : at, fmt::format("unknown table {}: {} ends the process here (exit status 1){}",
                                                                name ? name : "(the mapping is empty)", who,
                                                                name ? table_suggestion(name) : ""));
    return nullptr;
}

// Steps of an inactive type do nothing at all: the type's send, receive and dump return at once.
bool StepCheck::type_active(const TypeDesc &type, const JSON_Value *at, bool dump) {
    if (dump && type.has(engine::kDumpWithoutGate)) return true;
    if (active_under(type.gate, object_set_)) return true;
    add(at, fmt::format("{} is {}: the step does nothing (config: object_set chooses the active types)", type.name,
                        inactive_text(object_set_)));
    return false;
}

void StepCheck::batch(const JSON_Value *batch_value) {
    const JSON_Array *list = json_value_get_array(batch_value);
    if (!list) {
        add(batch_value, fmt::format("batch_crud takes a list ([ {{ batch_params: ... }}, {{ test_if: [...] }} ]); this {} is passed over without a word",
                               kind_of(batch_value)));
        return;
    }
    size_t n = json_array_get_count(list);
    if (n == 0) {
        add(batch_value, "an empty batch_crud list ends the process: the batch's entry count check fails (assertion)");
        return;
    }
    batch_params(json_array_get_value(list, 0));
    for (size_t i = 1; i < n; ++i) {
        const JSON_Value *element = json_array_get_value(list, i);
        JSON_Value *records_value = nullptr;
        const TypeDesc *type = engine::first_type(json_value_get_object(element), records_value);
        if (!type) {
            add(element, fmt::format("batch element {} names no object type: nothing is queued for it, and the process ends "
                                     "(the batch's entry count check fails)", i));
            continue;
        }
        passed_over(json_value_get_object(element), type->name);
        records(*type, records_value, Use::Batch);
    }
}

void StepCheck::batch_params(const JSON_Value *first) {
    const JSON_Value *params = json_object_get_value(json_value_get_object(first), "batch_params");
    if (!params) {
        add(first, "the first element of batch_crud must be { batch_params: { ... } }; without it the run counts a mismatch, "
                   "and this element is never queued");
    } else if (!json_value_get_object(params)) {
        add(params, fmt::format("batch_params takes a mapping ({{ batch_rc_expect: 0, continue_on_error: false }}); this {} is read as "
                                "neither", kind_of(params)));
    } else {
        const JSON_Object *p = json_value_get_object(params);
        for (size_t i = 0; i < json_object_get_count(p); ++i) {
            std::string_view key = json_object_get_name(p, i);
            JSON_Value *v = json_object_get_value_at(p, i);
            if (key == "batch_rc_expect") value(value_type_named("rc"), v, "rc");
            else if (key == "continue_on_error") value(value_type_named("bool"), v, "continue_on_error");
            else add(v, fmt::format("batch_params has no '{}' (batch_rc_expect, continue_on_error); the key is ignored", key));
        }
    }
}

void StepCheck::records(const TypeDesc &type, const JSON_Value *value, Use use) {
    const JSON_Array *list = json_value_get_array(value);
    if (!list) {
        add(value, fmt::format("{} takes a list of operation records, such as [ {{ op: create, ... }} ]; this {} is passed over without a word",
                               type.name, kind_of(value)));
        return;
    }
    lint_records(type, value, [this](const JSON_Value *at, const std::string &message) { add(at, message); });
    size_t n = json_array_get_count(list);
    if (n == 0) {
        add(value, use == Use::Batch ? fmt::format("a batch element with no {} record: the batch refuses it and the process ends "
                                                   "(assertion rc == EOK)", type.name)
                                     : fmt::format("{}: [] holds no record: the step runs nothing", type.name));
        return;
    }
    if (use == Use::Batch && n > 1)
        add(json_array_get_value(list, 1), fmt::format("a batch element queues its first record only; the {} after it {} passed over",
                                                       n - 1 == 1 ? "record" : fmt::format("{} records", n - 1), n - 1 == 1 ? "is" : "are"));
    for (size_t i = 0; i < (use == Use::Batch ? std::min<size_t>(n, 1) : n); ++i) {
        const JSON_Value *v = json_array_get_value(list, i);
        const JSON_Object *record = json_value_get_object(v);
        if (!record) {
            add(v, fmt::format("an operation record is a mapping such as {{ op: create, ... }}; this {} is passed over without a word", kind_of(v)));
            continue;
        }
        values(type, record, false);
        if (use == Use::Received || use == Use::Dumped) continue;
        if (use == Use::Batch) {
            queued_op(v);
            if (const char *op = op_of(record)) note_operation(type, op);
        }
        else sent_op(type, v, i);
        handles(type, record);
        if (use == Use::Sent && i == 0 && is_replay(op_of(record)) && n > 1) {
            add(json_array_get_value(list, 1), fmt::format("the records after a first {} record are never run", op_of(record)));
            break;
        }
    }
}

// Whether a branch of the type's send performs `op` in the record at `index`: the operations come
// from the type's descriptor (an end-of-data operation exists for a few types only).
static bool performs(const TypeDesc &type, const char *op, size_t index, int32_t mode) {
    if (!std::strcmp(op, vocab::kOpWalkByKey)) return type.ops->chain_walk != nullptr;
    if (is_replay(op)) return index == 0;
    const vocab::Op *found = vocab::find_op(op);
    return found && found->code && (mode == 1 ? type.ops->client : type.ops->server)[found->code - 1] != nullptr;
}

// Which branch of the send handles the record's op; a record no branch handles is built and
// checked, but no operation runs.
void StepCheck::sent_op(const TypeDesc &type, const JSON_Value *value, size_t index) {
    const JSON_Value *op_value = json_object_get_value(json_value_get_object(value), vocab::kFieldOp);
    const char *op = json_value_get_string(op_value);
    if (!op) {
        add(op_value ? op_value : value, "the record has no op: text (create, update, delete, get, ...)");
        return;
    }
    std::string problem = op_problem(type, op, index, mode_);
    if (!problem.empty()) add(op_value, problem);
    else note_operation(type, op);
}

std::string op_problem(const TypeDesc &type, const char *op, size_t index, int32_t mode) {
    if (performs(type, op, index, mode)) return "";
    const vocab::Op *found = vocab::find_op(op);
    if (found && found->has(vocab::kFlagNeedsEod))
        return fmt::format("{} has no end-of-data operation: op: {} runs nothing", type.name, op);
    if (is_replay(op)) return fmt::format("op: {} runs only as the first record of a list; here it runs nothing", op);
    return fmt::format("op: '{}' is no operation of {} ({}): the record runs nothing{}", op, type.name, ops_text(type),
                       op_suggestion(type, op));
}

// The batch list takes the operation codes of create to get_next; it refuses any other, and the
// refusal ends the process.
void StepCheck::queued_op(const JSON_Value *value) {
    const JSON_Value *op_value = json_object_get_value(json_value_get_object(value), vocab::kFieldOp);
    const char *op = json_value_get_string(op_value);
    if (is_batch_op(op)) return;
    add(op_value ? op_value : value,
        fmt::format("the batch refuses {} and the process ends (assertion rc == EOK): a batch entry is one of {}",
                    op ? fmt::format("op '{}'", op) : std::string("a record without op:"), batch_ops_text()));
}

// The "hdl" value under which a create or a get stores the handle it returns, or null.
static const JSON_Value *storing_name(const JSON_Object *record) {
    const char *op = op_of(record);
    const vocab::Op *found = vocab::find_op(op);
    if (!found || (std::strcmp(op, vocab::kOpCreate) && !found->has(vocab::kFlagGet))) return nullptr;
    const JSON_Value *hdl = json_object_get_value(record, vocab::kFieldHdl);
    const char *name = json_value_get_string(hdl);
    return name && !handle_number(name) ? hdl : nullptr;
}

// Create and the gets store a handle under the name in "hdl"; update and delete read it.
void StepCheck::handles(const TypeDesc &type, const JSON_Object *record) {
    if (const JSON_Value *hdl = unstored_handle(record, [this](const char *name) { return stored_.count(name) != 0; })) {
        const char *name = json_value_get_string(hdl);
        add(hdl, fmt::format("hdl: '{}' is read before any earlier record stores it (a create or get with hdl: {})", name, name));
        return;
    }
    if (const JSON_Value *hdl = storing_name(record)) {
        std::string name = json_value_get_string(hdl);
        stored_[name] = {&type, pc_json_line(hdl)};
        unrun_.erase(name);
    }
}

// The names that records of an inactive type would store: nothing is stored under them, and a
// reference that reads one is told why.
void StepCheck::unrun_handles(const TypeDesc &type, const JSON_Value *list) {
    const JSON_Array *records = json_value_get_array(list);
    for (size_t i = 0; i < json_array_get_count(records); ++i)
        if (const JSON_Value *hdl = storing_name(json_value_get_object(json_array_get_value(records, i))))
            if (!stored_.count(json_value_get_string(hdl))) unrun_[json_value_get_string(hdl)] = {&type, pc_json_line(hdl)};
}

// The members of a step other than the one the library takes are never looked at.
void StepCheck::passed_over(const JSON_Object *o, const char *taken) {
    for (size_t i = 0; i < json_object_get_count(o); ++i) {
        const char *key = json_object_get_name(o, i);
        if (std::strcmp(key, taken))
            add(json_object_get_value_at(o, i),
                fmt::format("'{}' is passed over: the step goes to {} (the first special key or catalogue type among its keys)", key, taken));
    }
}

void StepCheck::members(const TypeDesc &type, const JSON_Object *record) {
    const JSON_Value *value = json_object_get_value(record, "members");
    const JSON_Array *list = json_value_get_array(value);
    if (!list) {
        add(value, fmt::format("members takes a list of element mappings; this {} is passed over without a word", kind_of(value)));
        return;
    }
    for (size_t j = 0; j < json_array_get_count(list); ++j) {
        const JSON_Value *v = json_array_get_value(list, j);
        if (const JSON_Object *element = json_value_get_object(v)) values(type, element, true);
        else add(v, fmt::format("an element of members is a mapping of element attributes; this {} is passed over without a word", kind_of(v)));
    }
}

void StepCheck::values(const TypeDesc &type, const JSON_Object *o, bool element) {
    const TypeKeys &keys = keys_of(type);
    const auto &map = element ? keys.element : keys.top;
    for (size_t i = 0; i < json_object_get_count(o); ++i) {
        const char *key = json_object_get_name(o, i);
        JSON_Value *v = json_object_get_value_at(o, i);
        if (json_expect_not_set(v)) continue;
        auto it = map.find(key);
        if (it == map.end()) {
            if (element) continue;
            if (!std::strcmp(key, "members")) members(type, o);
            else if (!std::strcmp(key, "hdl") && !json_value_get_string(v)) value(value_type_named("ulong"), v, "hdl");
            else if (const char *vt = control_value_type(key)) value(value_type_named(vt), v, key);
            continue;
        }
        const KeyInfo &info = it->second;
        if (info.role) {
            if (!active_under(info.role->gate, object_set_))
                add(v, fmt::format("{}'s {} pair is {}: it is never set, compared or dumped", type.name, key, inactive_text(object_set_)));
            else if (info.handle_side) handle_read(v, key, type, engine::kTypes[info.role->target], element);
            else value(info.role->key_value_type, v, info.role->key_name);
        } else if (info.attr->kind == Kind::DirectRefhdl) {
            handle_read(v, key, type, direct_target(*info.attr), element);
        } else {
            value(info.attr->value_type, v, info.attr->name);
        }
    }
}

// A refhdl value names a handle that an earlier record stored with "hdl", or is a number (which
// has no type to follow). A stored name is of the type of the record that stored it: one of
// another type, or of a type the object_set leaves inactive, names nothing the reference takes.
void StepCheck::handle_read(JSON_Value *v, const char *what, const TypeDesc &owner, const TypeDesc *target, bool element) {
    const char *name = json_value_get_string(v);
    if (!name) return value(value_type_named("refhdl"), v, what);
    if (handle_number(name)) return;
    if (auto found = stored_.find(name); found != stored_.end()) {
        const TypeDesc &named = *found->second.type;
        if (target && (&named != target || !active_under(named.gate, object_set_)))
            wrong_handle(v, what, owner, *target, element, name, true);
        return;
    }
    if (target && unrun_.count(name)) return wrong_handle(v, what, owner, *target, element, name, false);
    add(v, fmt::format("{}: handle name '{}' is read before any earlier record stores it (a create or get with hdl: {})", what, name, name));
}

namespace {

// "a or b", "a, b or c"
std::string either(const std::vector<std::string_view> &names) {
    if (names.size() < 2) return names.empty() ? "" : std::string(names[0]);
    std::vector<std::string_view> head(names.begin(), names.end() - 1);
    return fmt::format("{} or {}", fmt::join(head, ", "), names.back());
}

// The references of `owner` at the same level (top level, or in each element of "members") that take
// handles of `type`.
std::vector<std::string_view> references_taking(const TypeDesc &owner, const TypeDesc &type, bool element) {
    std::vector<std::string_view> keys;
    for (const Reference &r : references_of(owner))
        if (r.target == &type && !r.by_key && r.element == element) keys.push_back(r.key);
    return keys;
}

} // namespace

// A reference given a stored name of another type than it takes, or of an inactive type.
void StepCheck::wrong_handle(const JSON_Value *v, const char *what, const TypeDesc &owner, const TypeDesc &target,
                                       bool element, const char *name, bool ran) {
    const Handle &h = ran ? stored_.at(name) : unrun_.at(name);
    const TypeDesc &named = *h.type;
    std::string text = fmt::format("{} {} takes {}; {} ", owner.name, what, reference_target_phrase(target.name, false, target.gate), name);
    if (!ran) {
        add(v, text + fmt::format("would be the handle of an object of type {} (hdl: at line {}), but that record ran nothing: {} is {}",
                                  named.name, h.line, named.name, inactive_text(object_set_)));
        return;
    }
    text += fmt::format("is the handle of an object of type {} (stored with hdl: at line {})", named.name, h.line);
    if (&named == &target) { // a batch queues records of an inactive type too
        add(v, text + fmt::format(", and {} is {}", named.name, inactive_text(object_set_)));
        return;
    }
    std::vector<std::string_view> instead = references_taking(owner, named, element);
    add(v, text + (instead.empty() ? fmt::format(", and {}{} no reference that takes one", owner.name, element ? "'s members have" : " has")
                                   : fmt::format(": did you mean {}?", either(instead))));
}

// Runs the value's converter on scratch storage; what it refuses becomes a finding.
void StepCheck::value(uint16_t value_type, JSON_Value *v, const char *name) {
    if (value_type >= engine::kValueTypeCount) return;
    const engine::ValueTypeDesc &desc = engine::kValueTypes[value_type];
    std::vector<unsigned char> scratch(desc.width + 16, 0);
    converting_ = v;
    desc.convert(scratch_.get(), scratch.data(), v, name);
    converting_ = nullptr;
    enum_range(value_type, v, name);
}

void StepCheck::enum_range(uint16_t value_type, const JSON_Value *v, const char *name) {
    if (value_type >= support::kValueFormCount) return;
    const support::ValueForm &top = *support::kValueForms[value_type];
    if (std::strcmp(top.name, engine::kValueTypes[value_type].name)) return; // the two tables disagree: say nothing
    auto walk = [&](auto &self, const support::ValueForm &form, const JSON_Value *at, const std::string &path) -> void {
        if (form.form == support::Form::Record || form.form == support::Form::KeyRecord) {
            const JSON_Object *o = json_value_get_object(at);
            for (uint32_t i = 0; o && i < form.field_count; ++i)
                if (const JSON_Value *f = json_object_get_value(o, form.fields[i].name))
                    self(self, *form.fields[i].type, f, path + "." + form.fields[i].name);
        } else if (form.form == support::Form::Array && form.element) {
            const JSON_Array *list = json_value_get_array(at);
            for (size_t i = 0; list && i < json_array_get_count(list); ++i) self(self, *form.element, json_array_get_value(list, i), path);
        } else if (form.form == support::Form::Enum) {
            int64_t n = 0;
            const char *text = json_value_get_string(at);
            if (!pc_json_get_int64(at, &n) && !(handle_number(text) && (n = std::strtoll(text, nullptr, 0), true))) return;
            for (uint32_t i = 0; i < form.value_count; ++i)
                if (form.values[i].value == n) return;
            add(at, fmt::format("{}: {} is not a value of {} ({}); it is sent as it is", path, n, form.name, enum_values(form)), true);
        }
    };
    walk(walk, top, v, name);
}

} // namespace pc::runner
