// Small pieces every family shares: status rules, gates, op names, object construction.
#pragma once

#include "descriptors.hpp"
#include "planecheck/session.hpp"
#include "planecheck/support.h"

#include <cstring>

namespace pc::engine {

constexpr int32_t kDontCare = 53450;     // the expected status that accepts any received one
constexpr int32_t kInjectedClass = 12;   // the status class of an injected error
constexpr uint32_t kValueBufferMax = 4096;

inline int32_t status_class(int32_t status) { return status & 0x1ff; }
inline bool status_matches(int32_t received, int32_t expected) {
    return expected == kDontCare || status_class(received) == status_class(expected);
}

inline bool active(Gate gate, const PROCESS *context) {
    return gate == Gate::None || (gate == Gate::Nonzero) == (context->object_set != 0);
}

inline bool starts_with_get(const char *op) { return op && std::strncmp(op, "get", 3) == 0; }
inline bool is(const char *op, const char *word) { return op && std::strcmp(op, word) == 0; }

inline const char *string_member(const JSON_Object *record, const char *name) {
    return json_value_get_string(json_object_get_value(record, name));
}

// Tells the session that a record's operation ran (what coverage counts).
inline void note_ran(const TypeDesc &type, PROCESS *context, const JSON_Object *record, bool judged, int32_t returned,
                     int32_t expected) {
    if (context->session && context->session->ran) context->session->ran(type.number, record, judged, returned, expected);
}

// "unknown table NAME", NAME the record's first member; the caller ends the process.
void report_unknown_table(PROCESS *context, const JSON_Object *record);

// The operation code of an exact op text, counting "eod" only for types that have it.
uint8_t op_code(const TypeDesc &type, const char *op);
const char *op_text(uint8_t code);

// Builds the object a record describes: sized types get their element count from "members",
// overridden by the count key unless `members_only`.
Obj construct(const TypeDesc &type, const JSON_Object *record, bool members_only);

// Runs one operation in the context's mode (1: client call, otherwise server call).
int32_t perform(const TypeDesc &type, PROCESS *context, Obj obj, uint8_t code);

} // namespace pc::engine
