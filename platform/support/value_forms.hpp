// Descriptions of value types for the generic converters: generated from the catalogue, one
// per value type. The converters json_convert_<type>, json_dump_convert_<type> and
// recorder_dump_convert_<type> are generated one-line wrappers over convert() and the dumps.
#pragma once

#include "planecheck/process.h"

#include <cstdint>
#include <string>

namespace pc::support {

enum class Form : uint8_t { Uint, Int, Hex, Bool, Status, Refhdl, HandleName, Ip4, Ip6, Mac, Bytes, String, Enum, Record, Array, KeyRecord };

struct ValueForm;

struct FieldForm {
    const char *name;
    uint32_t offset;
    const ValueForm *type;
};

struct EnumValue {
    const char *name;
    int64_t value;
};

struct ValueForm {
    const char *name;
    Form form;
    uint32_t width;
    const EnumValue *values;    // enums
    uint32_t value_count;
    const char *constant_prefix; // enums: prefix of the C constant names, e.g. DPA_BFDOFF_LOCAL_STATE_
    const FieldForm *fields;    // records and key records
    uint32_t field_count;
    const ValueForm *element;   // arrays
    uint32_t bound;
};

// Every value type's form, in catalogue order (generated).
extern const ValueForm *const kValueForms[];
extern const unsigned kValueFormCount;

// An address attribute of an object type and the attribute that holds its prefix length
// ("test_rt", "prefix", "prefix_len"); generated, ended by a row of nulls.
struct AddressPrefixLength {
    const char *type, *address, *length;
};
extern const AddressPrefixLength kPrefixLengths[];

// The value as JSON text, as the dumps write it and convert() reads it back.
std::string format_value(const ValueForm &form, const void *value);
// JSON -> native. Returns 0, or -1 after reporting a problem through the context's log.
int convert(PROCESS *context, const ValueForm &form, void *out, JSON_Value *value, const char *name);
// native -> the JSON dump document kept in the context's session.
int json_dump(PROCESS *context, const ValueForm &form, const void *value, const char *name);
// native -> "name": value text in the current recorder line (or in a message, see recorder_sink.hpp).
int recorder_dump(PROCESS *context, const ValueForm &form, const void *value, const char *name);

} // namespace pc::support
