// Record keys that no attribute, reference pair or control field of the type has. The library
// passes over such keys, so a misspelled attribute would make a test pass without checking
// anything; the runner reports them instead.
#pragma once

#include "descriptors.hpp"

#include <functional>
#include <string>

namespace pc::runner {

using UnknownKey = std::function<void(const JSON_Value *at, const std::string &message)>;

// Looks at a send step's records (the value under the type's key) and reports each unknown key.
void lint_records(const engine::TypeDesc &type, const JSON_Value *records, const UnknownKey &report);

// Why `v` cannot be read as a whole number from `min` to `max`, or "" when it can. A number with a
// fraction reads truncated, as the library reads it; a status name reads as its number.
std::string whole_number_problem(const JSON_Value *v, int64_t min, uint64_t max);

struct ValueProblem {
    const JSON_Value *at = nullptr; // null: no problem
    std::string message;
};

// The first value of the records that the library reads as a whole number without a check of its
// own (the count key, "npu_result" entries, "router", and "rc" on the SDK side) and cannot read.
ValueProblem unreadable_number(const engine::TypeDesc &type, const JSON_Value *records, bool sdk_side);

} // namespace pc::runner
