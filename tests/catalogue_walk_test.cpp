// A walk over the whole catalogue: every type is created with every settable attribute, element
// and reference pair, read back and compared. It reaches every generated accessor and converter.
#include "harness.hpp"
#include "samples.hpp"
#include "common.hpp"

namespace {

using namespace pc::engine;
using pc::test::Harness;
using pc::test::sample;

std::string value_of(uint16_t value_type) { return sample(*pc::support::kValueForms[value_type]); }

// The members of a record: keys and settable attributes, and the active reference pairs.
std::string members(const TypeDesc &t, const PROCESS *ctx, bool element, bool with_attributes) {
    std::string s;
    for (const AttrDesc &a : element ? t.elements() : t.top()) {
        if (a.kind == Kind::ReadOnly || (!with_attributes && a.kind != Kind::Key)) continue;
        s += std::string(", ") + a.name + ": " + value_of(a.value_type);
    }
    for (const RoleDesc &r : element ? t.element_roles() : t.top_roles()) {
        if (!with_attributes || !active(r.gate, ctx)) continue;
        s += std::string(", ") + r.hdl_key + ": 4660, " + r.key_key + ": " + value_of(r.key_value_type);
    }
    return s;
}

std::string record(const TypeDesc &t, const PROCESS *ctx, const char *op, bool with_attributes) {
    std::string s = std::string("{op: ") + op + members(t, ctx, false, with_attributes);
    if (with_attributes && !t.elements().empty()) {
        std::string fields = members(t, ctx, true, true);
        std::string element = "{" + fields.substr(std::min<size_t>(2, fields.size())) + "}";
        s += ", members: [" + element + (t.sized() ? ", " + element : "") + "]";
    }
    return s + "}";
}

TEST(CatalogueWalk, EveryTypeStoresAndReturnsEveryAttribute) {
    Harness h(0); // server form: the store answers directly
    size_t attributes = 0;
    for (size_t i = 0; i < kTypeCount; ++i) {
        const TypeDesc &t = *kTypes[i];
        SCOPED_TRACE(t.name);
        h.context.process.object_set = t.gate == Gate::Nonzero ? 1 : 0;
        std::string step = std::string("[") + record(t, h.ctx(), "create", true) + ", " + record(t, h.ctx(), "get", true) +
                           ", " + record(t, h.ctx(), "delete", false) + "]";
        EXPECT_EQ(send(t, h.json(step), h.ctx()), 0);
        EXPECT_EQ(simplane::stored_count(t.number), 0u);
        attributes += t.attrs.size();
    }
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log();
    EXPECT_EQ(h.value_errors(), 0u) << h.all_log();
    EXPECT_EQ(attributes, 5981u);
}

TEST(CatalogueWalk, AChangedValueOfAnyKindIsNoticed) {
    Harness h(0);
    // one wrong value per value form: the comparison must see each of them
    h.send("{scaleacl: [ {op: create, acl_id: 1, seq_num: 2, acl_name: edge, src_prefix6: \"2001:db8::1\", tcp_flags: 0x12} ]}");
    h.send("{scaleacl: [ {op: get, acl_id: 1, seq_num: 2, acl_name: edges, src_prefix6: \"2001:db8::2\", tcp_flags: 0x13} ]}");
    EXPECT_EQ(h.mismatches(), 3u) << h.all_log();
    EXPECT_TRUE(h.logged("acl_name: received \"edge\" expected \"edges\"\n"));
    EXPECT_TRUE(h.logged("src_prefix6: received \"2001:db8::1\" expected \"2001:db8::2\"\n"));
    EXPECT_TRUE(h.logged("tcp_flags: received \"0x12\" expected \"0x13\"\n"));
}

} // namespace
