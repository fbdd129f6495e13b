// Matches a record's members against a type's attribute and reference names by hash, then hands
// them back in catalogue order: the cost follows the record's size, not the catalogue's.
#pragma once

#include "descriptors.hpp"

#include <cstdint>

namespace pc::engine {

struct Member {
    enum What : uint8_t { Role, Attribute } what;
    bool key_form;        // roles: the _refkey member (else _refhdl)
    uint16_t index;       // into type.roles or type.attrs
    JSON_Value *value;
    uint32_t order() const { return (uint32_t(what) << 24) | (uint32_t(index) << 1) | key_form; }
};

// The control fields of a record, found in the same pass as its attributes.
enum class Control : uint8_t { Op, Rc, Hdl, TransId, Depth, Members, NpuMask, RetryMode, CreateOption, GetOption, Count };

// The index of one record (or one element of "members"), built once per record: the members that
// name roles or attributes, roles first, each group in catalogue order, a role's handle before its
// key; and the record's control fields.
class RecordMembers {
public:
    RecordMembers(const TypeDesc &type, const JSON_Object *record, bool element);
    const Member *begin() const { return items_; }
    const Member *end() const { return items_ + count_; }
    JSON_Value *control(Control c) const { return controls_[size_t(c)]; }

private:
    static constexpr uint32_t kInline = 128;
    Member inline_[kInline];
    Member *items_ = inline_;
    uint32_t count_ = 0;
    JSON_Value *controls_[size_t(Control::Count)] = {};
    struct Heap;
    Heap *heap_ = nullptr;

public:
    ~RecordMembers();
    RecordMembers(const RecordMembers &) = delete;
    RecordMembers &operator=(const RecordMembers &) = delete;
};

} // namespace pc::engine
