#include "record_index.hpp"

#include <algorithm>
#include <iterator>
#include <memory>
#include <mutex>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace pc::engine {
namespace {

// What a record key names: a role or an attribute of the type, a control field, or both when an
// attribute has a control field's name.
struct Entry {
    Member member{Member::Attribute, false, 0, nullptr};
    bool is_member = false;
    int8_t control = -1;
};

struct TypeIndex {
    std::unordered_map<std::string_view, Entry> top, element;
};

namespace v = pc::vocabulary;
// "members" is no control field, but it is found in the same pass as they are
constexpr const char *kControlNames[] = {v::kFieldOp, v::kFieldRc, v::kFieldHdl, v::kFieldTransId, v::kFieldDepth, "members",
                                         v::kFieldNpuMask, v::kFieldRetryMode, v::kFieldCreateOption, v::kFieldGetOption};
static_assert(std::size(kControlNames) == size_t(Control::Count));

void add(std::unordered_map<std::string_view, Entry> &map, const char *name, Member m) {
    Entry &e = map[name];
    if (e.is_member) return; // the first definition stands, as a hash map's emplace keeps it
    e.member = m;
    e.is_member = true;
}

TypeIndex build(const TypeDesc &t) {
    TypeIndex ix;
    for (size_t c = 0; c < size_t(Control::Count); ++c) {
        ix.top[kControlNames[c]].control = int8_t(c);
        ix.element[kControlNames[c]].control = int8_t(c);
    }
    for (uint16_t i = 0; i < t.attrs.size(); ++i) {
        auto &map = i < t.top_count ? ix.top : ix.element;
        add(map, t.attrs[i].name, Member{Member::Attribute, false, i, nullptr});
    }
    for (uint16_t i = 0; i < t.roles.size(); ++i) {
        auto &map = i < t.top_role_count ? ix.top : ix.element;
        add(map, t.roles[i].hdl_key, Member{Member::Role, false, i, nullptr});
        add(map, t.roles[i].key_key, Member{Member::Role, true, i, nullptr});
    }
    return ix;
}

const TypeIndex &index_of(const TypeDesc &t) {
    // built on first use; contexts may run on several threads at once
    static std::vector<std::unique_ptr<TypeIndex>> indexes(kTypeCount);
    static std::unique_ptr<std::once_flag[]> built(new std::once_flag[kTypeCount]);
    std::call_once(built[t.number], [&] { indexes[t.number] = std::make_unique<TypeIndex>(build(t)); });
    return *indexes[t.number];
}

} // namespace

struct RecordMembers::Heap {
    std::vector<Member> items;
};

RecordMembers::RecordMembers(const TypeDesc &type, const JSON_Object *record, bool element) {
    const TypeIndex &ix = index_of(type);
    const auto &map = element ? ix.element : ix.top;
    size_t n = json_object_get_count(record);
    if (n > kInline) {
        heap_ = new Heap;
        heap_->items.reserve(n);
        items_ = heap_->items.data();
    }
    for (size_t i = 0; i < n; ++i) {
        auto it = map.find(json_object_get_name(record, i));
        if (it == map.end()) continue;
        const Entry &e = it->second;
        JSON_Value *value = json_object_get_value_at(record, i);
        if (e.control >= 0 && !controls_[e.control]) controls_[e.control] = value;
        if (!e.is_member) continue;
        Member m = e.member;
        m.value = value;
        items_[count_++] = m;
    }
    std::sort(items_, items_ + count_, [](const Member &a, const Member &b) { return a.order() < b.order(); });
}

RecordMembers::~RecordMembers() { delete heap_; }

} // namespace pc::engine
