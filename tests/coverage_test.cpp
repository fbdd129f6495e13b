// Coverage: what counts as exercised (only what ran), and reports written, read back and merged.
#include "coverage.hpp"
#include "engine.hpp"
#include "file_run.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string_view>
#include <unistd.h>

namespace {

using pc::coverage::Report;
using pc::coverage::TypeCoverage;

std::string temp_path(const char *suffix) {
    std::string path = testing::TempDir() + "coverage_XXXXXX" + suffix; // tests may run in parallel
    close(mkstemps(path.data(), int(std::strlen(suffix))));
    return path;
}

Report run_text(const std::string &text) {
    std::string path = temp_path(".yaml");
    std::ofstream(path) << text;
    Report report;
    pc::runner::Options options;
    options.quiet = true;
    options.steps = stderr;
    options.coverage = &report;
    pc::runner::FileResult r = pc::runner::run_file(path, options);
    EXPECT_FALSE(r.invalid) << r.error;
    std::remove(path.c_str());
    return report;
}

const pc::engine::TypeDesc &type(const char *name) { return *pc::engine::find_type(name); }

const TypeCoverage *of(const Report &r, const char *name) { return r.type(type(name).number); }

// Whether a record set or compared the attribute (in `members` when `element`).
bool attribute_covered(const Report &r, const char *type_name, std::string_view attr, bool element = false) {
    const auto &t = type(type_name);
    const TypeCoverage *c = of(r, type_name);
    auto rows = element ? t.elements() : t.top();
    size_t base = element ? t.top_count : 0;
    for (size_t i = 0; i < rows.size(); ++i)
        if (rows[i].name == attr) return c && c->attrs[base + i];
    ADD_FAILURE() << type_name << " has no " << attr;
    return false;
}

bool pair_covered(const Report &r, const char *type_name, std::string_view pair, bool element = false) {
    const auto &t = type(type_name);
    const TypeCoverage *c = of(r, type_name);
    size_t from = element ? t.top_role_count : 0, to = element ? t.roles.size() : t.top_role_count;
    for (size_t i = from; i < to; ++i)
        if (pc::coverage::pair_name(t.roles[i]) == pair) return c && c->roles[i];
    ADD_FAILURE() << type_name << " has no pair " << pair;
    return false;
}

TEST(Coverage, StepsOfInactiveTypesAndPairsToInactiveTargetsDoNotCount) {
    // nhgroup and ethport belong to the set active while object_set is 0; ipnh to the other
    Report r = run_text("config: { object_set: 1 }\nsteps:\n"
                        "  - send: { nhgroup: [ { op: create, nhgroup_id: 7, fec_id: 1 } ] }\n"
                        "    sdk: { nhgroup: [ { op: create, rc: 0 } ] }\n"
                        "  - dump: { nhgroup: [ { op: create, nhgroup_id: 7 } ] }\n"
                        "  - send: { ipnh: [ { op: create, intf: 1, alloc_sz: 2 } ] }\n"
                        "  - send: { ethportstats: [ { op: create, ether_port: 3, next_obj_ethport_refhdl: 5 } ] }\n");
    EXPECT_TRUE(of(r, "nhgroup") == nullptr || of(r, "nhgroup")->records() == 0);
    ASSERT_NE(of(r, "ipnh"), nullptr);
    EXPECT_EQ(of(r, "ipnh")->ops[pc::coverage::kCreate], 1u);
    EXPECT_TRUE(attribute_covered(r, "ipnh", "alloc_sz"));
    EXPECT_TRUE(attribute_covered(r, "ethportstats", "ether_port"));
    EXPECT_FALSE(pair_covered(r, "ethportstats", "next_obj_ethport"));

    Report active = run_text("steps:\n"
                             "  - send: { nhgroup: [ { op: create, nhgroup_id: 7 } ] }\n"
                             "    sdk: { nhgroup: [ { op: create, rc: 0 } ] }\n"
                             "  - dump: { nhgroup: [ { op: create, nhgroup_id: 7 } ] }\n"
                             "  - send: { ethportstats: [ { op: create, next_obj_ethport_refhdl: 5 } ] }\n");
    ASSERT_NE(of(active, "nhgroup"), nullptr);
    EXPECT_EQ(of(active, "nhgroup")->ops[pc::coverage::kCreate], 1u);
    EXPECT_EQ(of(active, "nhgroup")->ops[pc::coverage::kSdkAnswer], 1u);
    EXPECT_EQ(of(active, "nhgroup")->ops[pc::coverage::kDump], 1u);
    EXPECT_TRUE(pair_covered(active, "ethportstats", "next_obj_ethport"));
    EXPECT_FALSE(attribute_covered(active, "ethportstats", "ether_port"));
}

TEST(Coverage, SdkAndDumpRecordsCountAsFarAsTheirStepReadsThem) {
    Report r = run_text("steps:\n"
                        "  - send: { test_if: [ { op: create, key_a: 1 } ] }\n"
                        "    sdk: { test_if: [ { op: create, attr_a1: 0 }, { op: delete, attr_a2: 1, rc: 0 } ] }\n"
                        "  - dump: { test_if: [ { op: get, key_a: 1, attr_a3: 1 }, { op: update, key_a: 1, attr_a4: 1 } ] }\n");
    ASSERT_NE(of(r, "test_if"), nullptr);
    EXPECT_EQ(of(r, "test_if")->ops[pc::coverage::kSdkAnswer], 2u);
    EXPECT_EQ(of(r, "test_if")->ops[pc::coverage::kDump], 2u);
    EXPECT_TRUE(attribute_covered(r, "test_if", "attr_a1"));  // checked on the SDK side
    EXPECT_FALSE(attribute_covered(r, "test_if", "attr_a2")); // a delete's answer gives only its rc
    EXPECT_FALSE(attribute_covered(r, "test_if", "attr_a3")); // a dump of a get builds the key alone
    EXPECT_TRUE(attribute_covered(r, "test_if", "attr_a4"));
    EXPECT_TRUE(attribute_covered(r, "test_if", "key_a"));
}

TEST(Coverage, OnlyOperationsThatRanCountAndTheirStatusesAreKept) {
    Report r = run_text("steps:\n"
                        "  - send: { test_if: [ { op: create, key_a: 1 } ] }\n"
                        "  - send:\n"
                        "      batch_crud:\n"
                        "        - batch_params: { batch_rc_expect: EEXIST }\n"
                        "        - test_if: [ { op: create, key_a: 2 } ]\n"
                        "        - test_if: [ { op: create, key_a: 1, rc: EEXIST } ]\n"
                        "        - test_if: [ { op: get, key_a: 2, attr_a3: 1, expect_did_not_run: true } ]\n"
                        "  - send:\n"
                        "      test_if:\n"
                        "        - { op: get, key_a: 9, rc: ENOENT }\n"
                        "        - { op: get, key_a: 8, attr_a4: 1 }\n" // expects ENOENT too: rc carries over
                        "        - { op: get, key_a: 7, rc: 0 }\n"      // returns ENOENT, expects EOK
                        "        - { op: frobnicate, key_a: 1, attr_a5: 1 }\n"
                        "        - { op: walk_by_key, key_a: 1 }\n"
                        "  - send: { test_if: [ { op: replay } ] }\n");
    const TypeCoverage *c = of(r, "test_if");
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->ops[pc::coverage::kCreate], 3u);
    EXPECT_EQ(c->ops[pc::coverage::kGet], 3u); // not the batch entry that did not run
    EXPECT_EQ(c->ops[pc::coverage::kWalkByKey], 1u);
    EXPECT_EQ(c->ops[pc::coverage::kReplay], 1u);
    EXPECT_EQ(c->records(), 8u);
    EXPECT_FALSE(attribute_covered(r, "test_if", "attr_a3"));
    EXPECT_FALSE(attribute_covered(r, "test_if", "attr_a5"));
    EXPECT_TRUE(attribute_covered(r, "test_if", "attr_a4"));
    // walks and replays have no judged status
    std::map<int32_t, uint64_t> returned = {{0, 2}, {2, 3}, {17, 1}}, expected = {{0, 3}, {2, 2}, {17, 1}};
    EXPECT_EQ(r.returned(), returned);
    EXPECT_EQ(r.expected(), expected);
}

TEST(Coverage, ElementRowsAreKeptApartFromTopLevelRowsOfTheSameName) {
    // nhgroup has a next_obj_lspnh pair at top level and one in each element
    std::string text = "steps:\n"
                       "  - send:\n"
                       "      nhgroup:\n"
                       "        - { op: create, nhgroup_id: 1, members: [ { forward_class: 1, next_obj_lspnh_refhdl: 0 } ] }\n";
    Report r = run_text(text);
    EXPECT_TRUE(pair_covered(r, "nhgroup", "next_obj_lspnh", true));
    EXPECT_FALSE(pair_covered(r, "nhgroup", "next_obj_lspnh", false));
    EXPECT_TRUE(attribute_covered(r, "nhgroup", "forward_class", true));

    std::string path = temp_path(".json");
    std::ofstream(path) << r.to_json();
    Report back;
    std::vector<std::string> problems;
    ASSERT_TRUE(back.merge_file(path, problems));
    EXPECT_TRUE(problems.empty());
    EXPECT_EQ(back.to_json(), r.to_json());
    std::remove(path.c_str());
}

TEST(CoverageReport, NamesThisCatalogueLacksAreReportedAtTheirLineAndTheRestIsKept) {
    std::string path = temp_path(".json");
    std::ofstream(path) << "{\n  \"planecheck_coverage\": 1,\n  \"files\": 1,\n  \"types\": {\n"
                           "    \"no_such_type\": { \"ops\": { \"create\": 1 } },\n"
                           "    \"test_if\": { \"ops\": { \"create\": 2, \"teleport\": 1 },\n"
                           "      \"attributes\": [\"attr_a1\", \"atr_a2\"] }\n"
                           "  },\n  \"statuses\": { \"returned\": { \"0\": 2, \"zero\": 1 } }\n}\n";
    Report r;
    std::vector<std::string> problems;
    EXPECT_TRUE(r.merge_file(path, problems));
    ASSERT_EQ(problems.size(), 4u);
    EXPECT_NE(problems[0].find(":5: there is no object type 'no_such_type'"), std::string::npos) << problems[0];
    EXPECT_NE(problems[1].find(":6: 'teleport' is no operation; left out"), std::string::npos) << problems[1];
    EXPECT_NE(problems[2].find(":7: test_if has no attributes 'atr_a2'"), std::string::npos) << problems[2];
    EXPECT_NE(problems[3].find(":9: status 'zero'"), std::string::npos) << problems[3];
    EXPECT_EQ(of(r, "test_if")->ops[pc::coverage::kCreate], 2u);
    EXPECT_TRUE(attribute_covered(r, "test_if", "attr_a1"));
    EXPECT_EQ(r.returned().at(0), 2u);

    // values of the wrong shape are reported too, never trusted
    std::ofstream(path) << "{\"planecheck_coverage\": 1, \"files\": -3,\n"
                           "\"types\": {\"test_if\": {\"ops\": {\"get\": -1}, \"attributes\": [1, \"attr_a1\"]},\n"
                           "  \"nhgroup\": 5},\n"
                           "\"statuses\": {\"returned\": {\"99999999999\": 1, \"-5\": 2}, \"expected\": 7}}\n";
    Report shapes;
    problems.clear();
    EXPECT_TRUE(shapes.merge_file(path, problems));
    EXPECT_EQ(problems.size(), 6u);
    EXPECT_EQ(shapes.files(), 0u);
    EXPECT_EQ(of(shapes, "test_if")->records(), 0u);
    EXPECT_TRUE(attribute_covered(shapes, "test_if", "attr_a1"));
    EXPECT_TRUE(of(shapes, "nhgroup") == nullptr);
    EXPECT_EQ(shapes.returned(), (std::map<int32_t, uint64_t>{{-5, 2}}));
    EXPECT_TRUE(shapes.expected().empty());

    for (const char *text : {"{ \"files\": 1 }\n", "[1, 2]\n", "{ \"planecheck_coverage\": 1, \"types\": [\n"}) {
        std::ofstream(path) << text;
        Report bad;
        problems.clear();
        EXPECT_FALSE(bad.merge_file(path, problems)) << text;
        ASSERT_EQ(problems.size(), 1u) << text;
        EXPECT_EQ(problems[0].rfind(path + ":", 0), 0u) << problems[0];
    }
    std::remove(path.c_str());
}

} // namespace
