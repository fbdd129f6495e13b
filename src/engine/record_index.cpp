#include "record_index.hpp"

#include <algorithm>
#include <memory>
#include <mutex>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace pc::engine {
namespace {

struct TypeIndex {
    std::unordered_map<std::string_view, Member> top, element;
};

TypeIndex build(const TypeDesc &t) {
    TypeIndex ix;
    for (uint16_t i = 0; i < t.attrs.size(); ++i) {
        auto &map = i < t.top_count ? ix.top : ix.element;
        map.emplace(t.attrs[i].name, Member{Member::Attribute, false, i, nullptr});
    }
    for (uint16_t i = 0; i < t.roles.size(); ++i) {
        auto &map = i < t.top_role_count ? ix.top : ix.element;
        map.emplace(t.roles[i].hdl_key, Member{Member::Role, false, i, nullptr});
        map.emplace(t.roles[i].key_key, Member{Member::Role, true, i, nullptr});
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
        Member m = it->second;
        m.value = json_object_get_value_at(record, i);
        items_[count_++] = m;
    }
    std::sort(items_, items_ + count_, [](const Member &a, const Member &b) { return a.order() < b.order(); });
}

RecordMembers::~RecordMembers() { delete heap_; }

} // namespace pc::engine
