// The YAML loader and the parson-style reading interface.
#include "arena.hpp"
#include "yaml_loader.hpp"

#include <gtest/gtest.h>

namespace {

struct Loaded {
    pc::Arena arena;
    pc::yaml::LoadError error;
    JSON_Value *root = nullptr;
    explicit Loaded(const std::string &text, pc::yaml::Limits limits = {}) {
        pc::yaml::Reader reader;
        reader.set_limits(limits);
        reader.open_string(text, "t.yaml", error);
        bool empty = false;
        if (reader.begin_document(empty, error)) root = reader.read_value(arena, error);
    }
    JSON_Value *at(const char *key) { return json_object_get_value(json_value_get_object(root), key); }
};

TEST(ValueModel, PlainScalarsResolveLikeTheYamlCoreSchemaAndQuotedOnesStayText) {
    Loaded d("a: 12\nb: \"12\"\nc: 0x1f\nd: true\ne: ~\nf: 1.5\ng: 18446744073709551615\nh: -9223372036854775808\ni: yes\n");
    ASSERT_NE(d.root, nullptr) << d.error.text();
    EXPECT_EQ(json_value_get_number(d.at("a")), 12);
    EXPECT_STREQ(json_value_get_string(d.at("b")), "12");
    EXPECT_EQ(json_value_get_number(d.at("c")), 31);
    EXPECT_EQ(json_value_get_type(d.at("d")), JSONBoolean);
    EXPECT_EQ(json_value_get_type(d.at("e")), JSONNull);
    EXPECT_EQ(json_value_get_number(d.at("f")), 1.5);
    uint64_t u = 0;
    int64_t i = 0;
    ASSERT_TRUE(pc_json_get_uint64(d.at("g"), &u)); // exact, beyond what a double holds
    EXPECT_EQ(u, UINT64_MAX);
    ASSERT_TRUE(pc_json_get_int64(d.at("h"), &i));
    EXPECT_EQ(i, INT64_MIN);
    EXPECT_STREQ(json_value_get_string(d.at("i")), "yes"); // YAML 1.1 booleans are text
}

TEST(ValueModel, EveryNodeKnowsItsLineAndObjectsKeepInsertionOrder) {
    Loaded d("first: 1\nlist:\n  - x: 1\n    y: [2, 3]\nzeta: 0\nalpha: 0\n");
    ASSERT_NE(d.root, nullptr);
    const JSON_Object *o = json_value_get_object(d.root);
    EXPECT_STREQ(json_object_get_name(o, 2), "zeta");
    EXPECT_STREQ(json_object_get_name(o, 3), "alpha");
    const JSON_Value *item = json_array_get_value(json_value_get_array(d.at("list")), 0);
    EXPECT_EQ(pc_json_line(item), 3u);
    const JSON_Value *y = json_object_get_value(json_value_get_object(item), "y");
    EXPECT_EQ(pc_json_line(json_array_get_value(json_value_get_array(y), 1)), 4u);
}

TEST(ValueModel, ReadersOfTheWrongTypeOrOutOfRangeGiveNothing) {
    Loaded d("o: {}\ns: text\n");
    const JSON_Object *empty = json_value_get_object(d.at("o"));
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(json_object_get_name(empty, 0), nullptr);
    EXPECT_EQ(json_object_get_value(empty, "x"), nullptr);
    EXPECT_EQ(json_value_get_number(d.at("s")), 0);
    EXPECT_EQ(json_value_get_object(d.at("s")), nullptr);
    EXPECT_EQ(json_array_get_value(json_value_get_array(d.at("s")), 0), nullptr);
    EXPECT_EQ(json_value_get_type(nullptr), JSONError);
}

TEST(ValueModel, AliasesAreSharedButTheirExpansionIsBounded) {
    Loaded ok("base: &b {x: 1, y: [1, 2]}\ncopy: *b\n");
    ASSERT_NE(ok.root, nullptr);
    EXPECT_EQ(json_value_get_number(json_object_get_value(json_value_get_object(ok.at("copy")), "x")), 1);

    // each level doubles the expansion: a small file that would expand to millions of nodes
    std::string bomb = "l0: &l0 [1, 1, 1, 1, 1, 1, 1, 1]\n";
    for (int i = 1; i < 12; ++i)
        bomb += "l" + std::to_string(i) + ": &l" + std::to_string(i) + " [*l" + std::to_string(i - 1) + ", *l" +
                std::to_string(i - 1) + ", *l" + std::to_string(i - 1) + ", *l" + std::to_string(i - 1) + "]\n";
    pc::yaml::Limits limits;
    limits.max_alias_nodes = 100000;
    Loaded blown(bomb, limits);
    EXPECT_EQ(blown.root, nullptr);
    EXPECT_NE(blown.error.message.find("aliases expand to more than 100000 values"), std::string::npos);
}

// A literal that fits in 64 bits keeps its value; one that does not is refused where it stands (the
// messages are checked with the other forms' in json_forms_test).
TEST(ValueModel, IntegersAtThe64BitEdgeAndASecondDocument) {
    Loaded edge("a: 0xffffffffffffffff\nb: \"0x1ffffffffffffffff\"\n");
    uint64_t u = 0;
    ASSERT_TRUE(pc_json_get_uint64(edge.at("a"), &u));
    EXPECT_EQ(u, UINT64_MAX);
    EXPECT_STREQ(json_value_get_string(edge.at("b")), "0x1ffffffffffffffff"); // quoted: text, read where it is used

    pc::Arena arena;
    pc::yaml::LoadError error;
    EXPECT_EQ(pc::yaml::load_string("a: 1\n---\nb: 2\n", "t.yaml", arena, error), nullptr);
    EXPECT_EQ(error.text().rfind("t.yaml:2:1: a second YAML document starts here", 0), 0u) << error.text();
    EXPECT_NE(pc::yaml::load_string("a: 1\n...\n", "t.yaml", arena, error), nullptr) << error.text();
}

} // namespace
