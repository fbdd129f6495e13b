// Descriptor tables, generated from the catalogue: one TypeDesc per object type, in catalogue
// order. The engine reads these and never names a type; what differs between types is data.
#pragma once

#include "planecheck/vocabulary.hpp"
#include "planecheck/platform_types.h"
#include "planecheck/process.h"

#include <cstddef>
#include <cstdint>
#include <span>

// The generated descriptor rows are reached only from inside the library: hidden, they are bound
// when the library is linked, not looked up by name every time it is loaded.
#define PC_HIDDEN __attribute__((visibility("hidden")))

namespace pc::engine {

using Obj = ofa_client_obj_base_t;

// Accessors of the platform, type-erased; `index` is the element index (0 for top-level values).
using SetFn = void (*)(Obj, uint32_t index, const void *value);
using GetFn = void (*)(Obj, uint32_t index, void *out);
using IsSetFn = bool (*)(Obj, uint32_t index);

using ConvertFn = int (*)(PROCESS *, void *, JSON_Value *, const char *);
using DumpFn = int (*)(PROCESS *, const void *, const char *);

enum class Kind : uint8_t { Key, Scalar, Struct, Array, DirectRefhdl, DirectRefkey, ReadOnly, Element };
enum class Gate : uint8_t { None, Nonzero, Zero };

// Irregularities of single types, named so the engine never tests a type's name for them.
enum Quirk : uint32_t {
    kNoRecorderUpdateGet = 1u << 0,   // result check records create and delete only
    kWaitAfterUpdate = 1u << 1,       // 100 ms wait after an update when the wait flag is 1
    kRouterGate = 1u << 2,            // object dump needs router type 16
    kDumpWithoutGate = 1u << 3,       // object dump ignores the object-set gate
    kDumpWithoutKeyCheck = 1u << 4,   // object dump compares no key after a get
    kCountLineOnly = 1u << 5,         // recorder writes the count line, never the members list
    kSendCountsMembersOnly = 1u << 6, // send and retry size the object from "members" alone
};

struct ValueTypeDesc {
    const char *name;
    uint32_t width;
    ConvertFn convert;       // json_convert_<type>
    DumpFn json_dump;        // json_dump_convert_<type>, null where it does not exist
    DumpFn recorder_dump;    // recorder_dump_convert_<type>, null where it does not exist
};

struct AttrDesc {
    const char *name;
    Kind kind;
    bool compared;           // element attributes: compared and dumped on the SDK side
    uint16_t value_type;
    uint32_t width;
    SetFn set;               // null for read-only attributes
    GetFn get;
    IsSetFn is_set;
};

// A role reference pair: <role>_<target>_refhdl and <role>_<target>_refkey.
struct RoleDesc {
    const char *hdl_key;     // JSON key of the handle form
    const char *key_key;     // JSON key of the key form
    const char *hdl_name;    // name given to converters: <target>_refhdl
    const char *key_name;    // <target>_refkey
    uint16_t target;         // type number of the target
    uint16_t key_value_type; // dpa_<target>_key_t
    uint32_t key_width;
    Gate gate;               // the target's object-set gate
    SetFn set_hdl;
    GetFn get_hdl;
    IsSetFn is_set_hdl;
    SetFn set_key;
    GetFn get_key;
    IsSetFn is_set_key;
};

using OpFn = int32_t (*)(Obj);

struct TypeOps {
    Obj (*ctor)(uint32_t elements);
    void (*dtor)(Obj);
    void (*set_key)(Obj, const void *key);
    void (*get_key)(Obj, void *key);
    OpFn client[vocabulary::kMaxOpCode]; // indexed by dpa_op_code - 1; null where the type has no such op
    OpFn server[vocabulary::kMaxOpCode];
    int32_t (*replay)();
    int32_t (*replay_start)();
    int32_t (*replay_end)();
    void (*set_hdl)(Obj, uint64_t);
    uint64_t (*get_hdl)(Obj);
    void (*set_create_opt)(Obj, uint8_t);
    void (*set_getopt)(Obj, uint8_t);
    void (*set_retry_mode)(Obj, uint8_t);
    uint32_t (*get_npu_result)(Obj, uint32_t);
    void (*set_npu_mask)(Obj, uint64_t);   // null for types without an NPU mask
    uint64_t (*get_npu_mask)(Obj);
    int32_t (*chain_walk)(const void *key, dpa_walk_opts_t);
    void (*print_self)(Obj, dpa_print_opts_t, int);
    Obj (*obj_from_base)(Obj, JSON_Value *, PROCESS *);
    dpa_inst_hdr_t *(*inst_from_batch)(Obj, uint32_t);
    int32_t (*batch_enq)(ofa_batch_list_t, Obj, uint8_t);
    uint8_t (*get_presence_flag)(Obj, uint32_t attribute); // the object's own flag, by index in attrs
};

struct TypeDesc {
    const char *name;
    uint16_t number;
    Gate gate;
    bool eod;
    bool npu_mask;
    const char *count_key;   // sized types: the count key, also the name of the recorder count line
    uint32_t quirks;
    uint32_t key_width;
    std::span<const AttrDesc> attrs;     // key fields, then attributes, then element attributes
    uint16_t key_count;
    uint16_t top_count;                  // key fields + attributes
    std::span<const RoleDesc> roles;     // top-level pairs, then element pairs
    uint16_t top_role_count;
    uint32_t value_buffer;               // largest value of the type, for stack buffers
    const TypeOps *ops;

    bool sized() const { return count_key != nullptr; }
    bool has(Quirk q) const { return (quirks & q) != 0; }
    std::span<const AttrDesc> keys() const { return attrs.subspan(0, key_count); }
    std::span<const AttrDesc> top() const { return attrs.subspan(0, top_count); }
    std::span<const AttrDesc> elements() const { return attrs.subspan(top_count); }
    std::span<const RoleDesc> top_roles() const { return roles.subspan(0, top_role_count); }
    std::span<const RoleDesc> element_roles() const { return roles.subspan(top_role_count); }
};

// The catalogue, generated: types by number, value types by id.
extern const TypeDesc *const kTypes[];
extern const size_t kTypeCount;
extern const ValueTypeDesc kValueTypes[];
extern const size_t kValueTypeCount;

} // namespace pc::engine
