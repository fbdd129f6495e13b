// planecheck check and run --strict as users run them, and the step lines of steps that ran nothing.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>

namespace {

using Result = pc::test::Outcome;
using pc::test::text::has;
constexpr auto run = pc::test::planecheck;

std::string scenario(const char *name) { return std::string(PC_SCENARIOS) + "/" + name; }

using pc::test::read_file;

TEST(Check, EveryTrapGetsOneFindingAtItsLineAndACleanFileNone) {
    std::map<int, int> traps; // line -> findings there
    std::istringstream lines(read_file(scenario("traps.yaml")));
    int n = 0;
    for (std::string line; std::getline(lines, line);)
        if (++n, has(line, "# trap")) traps[n] = 0;
    ASSERT_GE(traps.size(), 20u);

    Result r = run("check " + scenario("traps.yaml"));
    EXPECT_EQ(r.status, 1) << r.output;
    static const std::regex finding("traps\\.yaml:([0-9]+):[0-9]+: (.*)");
    std::istringstream out(r.output);
    for (std::string line; std::getline(out, line);) {
        std::smatch m;
        if (!std::regex_search(line, m, finding)) continue;
        int at = std::stoi(m[1]);
        EXPECT_TRUE(traps.count(at)) << "a finding on an unmarked line: " << line;
        ++traps[at];
    }
    for (const auto &[line, count] : traps) EXPECT_EQ(count, 1) << "line " << line << "\n" << r.output;
    EXPECT_TRUE(has(r.output, "planecheck: FAILED: 1 file, ")) << r.output;
    EXPECT_TRUE(has(r.output, ":34:65: warning: local_state: 9 is not a value")) << r.output;

    Result clean = run("check " + scenario("clean.yaml"));
    EXPECT_EQ(clean.status, 0) << clean.output;
    EXPECT_FALSE(has(clean.output, "clean.yaml:")) << clean.output;
}

// --strict, warnings, and the steps of an inactive type, which say that nothing ran and never "ok".
TEST(Check, StrictRefusesWhatTheCheckFailsAndStepsThatRanNothingSaySo) {
    std::string warning = pc::test::write_file(testing::TempDir() + "warning.yaml",
                                               "steps:\n  - send: { bfdoff: [ { op: create, local_disc: 1, local_state: 9 } ] }\n");
    std::string examples = std::string(PC_SOURCE_DIR) + "/examples/*.yaml", inactive = scenario("inactive.yaml");
    pc::test::expect_says({
        {"run --strict " + scenario("traps.yaml"), 2, {"--strict refuses the file: the check found 24 problems"}, {"step 1 send"}},
        {"run --strict " + scenario("clean.yaml"), 0, {"planecheck: PASSED: 1 file, 10 steps, 0 mismatches, 0 value errors"}},
        {"check " + warning, 0, {"planecheck: VALID: 1 file, 1 step, 1 warning"}}, // warnings alone do not fail
        {"run --strict " + warning, 0, {}},
        {"run " + examples + " " + inactive, 1,
         {"inactive.yaml:4: step 2 send ipnh: inactive while object_set is 0: nothing ran\n",
          "inactive.yaml:5: step 3 dump ipvrf: inactive while object_set is 0: nothing ran\n", "steps (2 not run)"},
         {"inactive.yaml:4: step 2 send ipnh: ok"}}, // examples/l3_ecmp.yaml sends ipnh under object_set 1
        {"run -q " + inactive, 1, {"step 2 send ipnh: inactive while object_set is 0: nothing ran\n"}, {"step 1 send test_if"}},
        {"run -q --strict " + inactive, 2, {}}, // the check already refuses a file with such a step
        // an update or delete reading a handle no record stored is a value error; a get may name a new
        // handle, and 'if1' was stored by the create of step 1
        {"run " + inactive, 1,
         {"inactive.yaml:8:52: hdl: unknown handle name 'iff1'", "step 4 send test_if: 0 mismatches, 1 value error"}, {"'seen'", "'if1'"}},
    });
}

// A route over a next-hop group, the group's reference given as `route_reference`.
std::string route_over_group(const std::string &name, const std::string &route_reference) {
    return pc::test::write_file(testing::TempDir() + name, R"(config: { object_set: 1, references: enforce }
steps:
  - send: { ipnh: [ { op: create, intf: "0x100", nh_addr: 10.0.1.2, hdl: nh_a } ] }
  - send: { ipnhgroup: [ { op: create, nhgroup_id: 10, hdl: ecmp, members: [ { next_obj_ipnh_refhdl: nh_a } ] } ] }
  - send: { iproute: [ { op: create, vrf_id: 1, prefix: 192.0.2.0, prefix_len: 24, )" + route_reference + R"(: ecmp } ] }
  # the group is deleted only once no route holds it
  - send: { ipnhgroup: [ { op: delete, nhgroup_id: 10, rc: EBUSY } ] }
)");
}

// The route given its group by the reference meant for the other object set's group: check and
// --strict stop it before simplane refuses it at run time; the reference it names runs.
TEST(Check, AHandleOfAnotherTypeIsFoundWithTheReferenceThatTakesIt) {
    std::string wrong = route_over_group("wrong_reference.yaml", "nhgroup_refhdl");
    std::string right = route_over_group("right_reference.yaml", "next_obj_ipnhgroup_refhdl");
    std::string inactive = pc::test::write_file(testing::TempDir() + "inactive_reference.yaml", R"(config: { object_set: 1 }
steps:
  - send: { nhgroup: [ { op: create, nhgroup_id: 10, hdl: grp } ] }
  - send: { iproute: [ { op: create, vrf_id: 1, prefix: 192.0.2.0, prefix_len: 24, nhgroup_refhdl: grp } ] }
)");
    const std::string finding = "wrong_reference.yaml:5:100: iproute nhgroup_refhdl takes the handle of an object of type nhgroup "
                                "(active while object_set is 0); ecmp is the handle of an object of type ipnhgroup (stored with hdl: "
                                "at line 4): did you mean next_obj_ipnhgroup_refhdl?\n";
    pc::test::expect_says({
        {"check " + wrong, 1, {finding, "planecheck: FAILED: 1 file, 4 steps, 1 problem"}},
        {"run --strict " + wrong, 2, {finding, "--strict refuses the file: the check found 1 problem"}, {"step 1 send"}},
        // what it saves the user from: the route is refused, so the group's delete is not
        {"run -q " + wrong, 1, {"names no live nhgroup; refused with ENOENT"}},
        {"check " + right, 0, {"planecheck: VALID: 1 file, 4 steps"}, {"right_reference.yaml:"}},
        {"run --strict " + right, 0,
         {"is still referred to by iproute 0x1003 (next_obj_ipnhgroup_refhdl); refused with EBUSY", "planecheck: PASSED: 1 file, 4 steps"}},
        {"check " + inactive, 1,
         {"inactive_reference.yaml:4:100: iproute nhgroup_refhdl takes the handle of an object of type nhgroup (active while object_set is 0); "
          "grp would be the handle of an object of type nhgroup (hdl: at line 3), but that record ran nothing: nhgroup is inactive while "
          "object_set is 1\n"}},
    });
}

} // namespace
