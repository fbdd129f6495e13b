// The catalogue as the generator sees it: object types, their attributes and value types.
#pragma once

#include "catalogue_totals.hpp"
#include "planecheck/json.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace catgen {

struct Location {
    std::string file;
    uint32_t line = 0;
    uint32_t column = 0;
};

enum class Form { Uint, Int, Hex, Bool, Status, Refhdl, HandleName, Ip4, Ip6, Mac, Bytes, String, Enum, Record, Array, KeyRecord };

struct ValueType;

struct Field {
    std::string name;
    const ValueType *type = nullptr;
    std::string type_name;
    Location at;
};

struct ValueType {
    std::string name;
    Form form = Form::Uint;
    uint32_t width = 0;
    std::vector<std::pair<std::string, int64_t>> enum_values;
    std::vector<Field> fields;           // records and key records
    std::string element_name;            // arrays
    const ValueType *element = nullptr;
    uint32_t bound = 0;
    int key_of = -1;                     // key records: the object type
    Location at;
    bool used = false;
    bool json_dump = true;               // json_dump_convert_<type> exists
    bool recorder_dump = true;           // recorder_dump_convert_<type> exists
    int id = -1;                         // position in the generated value type table

    bool by_value() const;               // passed to setters and returned by getters by value
    std::string c_type() const;          // native C type name
};

enum class Kind { Key, Scalar, Struct, Array, DirectRefhdl, DirectRefkey, ReadOnly, Element };

struct Attribute {
    std::string name;
    std::string type_name;
    const ValueType *type = nullptr;
    Kind kind = Kind::Scalar;
    bool compared = true; // element attributes only
    Location at;
};

struct RolePair {
    std::string role;
    std::string target;
    int target_index = -1;
    bool element = false;
    bool gated = false;                  // target type has an object-set gate
    Location at;
    std::string hdl_key() const { return role + "_" + target + "_refhdl"; }
    std::string key_key() const { return role + "_" + target + "_refkey"; }
};

enum class Gate { None, Nonzero, Zero };

struct ObjectType {
    std::string name;
    std::string doc;
    int index = 0;
    std::string count_key;               // sized types
    Gate gate = Gate::None;
    bool npu_mask = false;
    bool eod = false;
    bool key_converter = false;
    std::vector<Attribute> key;
    std::vector<Attribute> attrs;        // top-level, non-key
    std::vector<Attribute> members;      // element attributes
    std::vector<RolePair> roles;         // top-level then element pairs
    std::set<std::string> quirks;
    Location at;

    bool sized() const { return !count_key.empty(); }
    bool has(const char *quirk) const { return quirks.count(quirk) != 0; }
    size_t attribute_count() const { return key.size() + attrs.size() + members.size(); }
    uint32_t key_width() const;
};

// The names a scenario uses besides types and attributes (vocabulary.yaml).
struct Op {
    std::string name;
    int code = 0;                        // dpa_op_code; 0 for an op the interface has no code for
    bool eod = false;                    // runs only for types with an end-of-data operation
    bool replay = false;                 // runs only as the first record of a list
    bool get = false;                    // a get: stores a handle, compares attributes
    Location at;
};

struct SpecialKey {
    std::string key;
    std::string handler;
    Location at;
};

struct ControlField {
    std::string name;
    std::string value_type;              // converted as this value type; empty when not converted
    Location at;
};

struct Vocabulary {
    std::vector<Op> ops;                 // in the order messages list them
    std::vector<SpecialKey> special_keys; // in dispatch order
    std::vector<ControlField> control_fields;
    std::vector<std::string> step_kinds;
    std::vector<std::string> step_members;
    std::vector<std::string> finding_fields; // the keys of an entry of an expect:'s findings: list
    // The keys a step kind's own mapping takes, by kind (kinds whose value is no mapping have none).
    std::vector<std::pair<std::string, std::vector<std::string>>> step_fields;
    bool loaded = false;

    std::vector<const Op *> coded_ops() const; // by code
};

struct Catalogue {
    std::vector<ObjectType> types;
    std::vector<ValueType> value_types;  // in definition order; key records last
    std::map<std::string, int> type_index;
    std::map<std::string, int> value_type_index;
    Vocabulary vocabulary;

    const ValueType *value_type(const std::string &name) const;
};

struct Diagnostics {
    std::vector<std::string> errors;
    void error(const Location &at, const std::string &message);
    bool ok() const { return errors.empty(); }
};

// Reads and checks objects.yaml, value_types.yaml and, when a path is given, vocabulary.yaml;
// problems go to diagnostics.
bool load_catalogue(const std::string &objects_path, const std::string &value_types_path,
                    const std::string &vocabulary_path, Catalogue &catalogue, Diagnostics &diagnostics);

// Reads and checks vocabulary.yaml against a loaded catalogue.
void load_vocabulary(const JSON_Value *root, const std::string &path, Catalogue &catalogue, Diagnostics &diagnostics);

pc::CatalogueTotals totals(const Catalogue &catalogue);

} // namespace catgen
