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

} // namespace pc::runner
