// A walk over the whole catalogue: every type is created with every settable attribute, element
// and reference pair, read back and compared. It reaches every generated accessor and converter.
#include "harness.hpp"
#include "samples.hpp"

namespace {

using namespace pc::engine;
using pc::test::Harness;
using pc::test::catalogue_record;

TEST(CatalogueWalk, EveryTypeStoresAndReturnsEveryAttribute) {
    Harness h(0); // server form: the store answers directly
    size_t attributes = 0;
    for (size_t i = 0; i < kTypeCount; ++i) {
        const TypeDesc &t = *kTypes[i];
        SCOPED_TRACE(t.name);
        h.context.process.object_set = t.gate == Gate::Nonzero ? 1 : 0;
        std::string step = "[" + catalogue_record(t, h.ctx(), "create", false) + ", " + catalogue_record(t, h.ctx(), "get", false) +
                           ", " + catalogue_record(t, h.ctx(), "delete", true) + "]";
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
