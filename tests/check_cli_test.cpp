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

TEST(Check, StrictRefusesWhatTheCheckFailsAndRunsTheRest) {
    Result refused = run("run --strict " + scenario("traps.yaml"));
    EXPECT_EQ(refused.status, 2) << refused.output;
    EXPECT_TRUE(has(refused.output, "--strict refuses the file: the check found 24 problems")) << refused.output;
    EXPECT_FALSE(has(refused.output, "step 1 send")) << refused.output; // nothing of it ran
    Result clean = run("run --strict " + scenario("clean.yaml"));
    EXPECT_EQ(clean.status, 0) << clean.output;
    EXPECT_TRUE(has(clean.output, "planecheck: PASSED: 1 file, 10 steps, 0 mismatches, 0 value errors")) << clean.output;
}

TEST(Check, WarningsAloneDoNotFail) {
    std::string file = testing::TempDir() + "warning.yaml";
    std::ofstream(file) << "steps:\n  - send: { bfdoff: [ { op: create, local_disc: 1, local_state: 9 } ] }\n";
    Result r = run("check " + file);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(has(r.output, "planecheck: VALID: 1 file, 1 step, 1 warning")) << r.output;
    EXPECT_EQ(run("run --strict " + file).status, 0);
}

TEST(Run, AStepOfAnInactiveTypeSaysNothingRanNeverOk) {
    std::string examples = std::string(PC_SOURCE_DIR) + "/examples/*.yaml";
    Result r = run("run " + examples + " " + scenario("inactive.yaml"));
    EXPECT_TRUE(has(r.output, "inactive.yaml:4: step 2 send ipnh: inactive while object_set is 0: nothing ran\n")) << r.output;
    EXPECT_TRUE(has(r.output, "inactive.yaml:5: step 3 dump ipvrf: inactive while object_set is 0: nothing ran\n")) << r.output;
    EXPECT_FALSE(has(r.output, "send ipnh: ok")) << r.output;
    EXPECT_TRUE(has(r.output, "steps (2 not run)")) << r.output;
    Result quiet = run("run -q " + scenario("inactive.yaml"));
    EXPECT_TRUE(has(quiet.output, "step 2 send ipnh: inactive while object_set is 0: nothing ran\n")) << quiet.output;
    EXPECT_FALSE(has(quiet.output, "step 1 send test_if")) << quiet.output;
    // under --strict the check already refuses a file with such a step
    Result strict = run("run -q --strict " + scenario("inactive.yaml"));
    EXPECT_EQ(strict.status, 2) << strict.output; // the check already refuses the file
}

TEST(Run, AnUpdateOrDeleteReadingAHandleNoRecordStoredIsAValueError) {
    Result r = run("run " + scenario("inactive.yaml"));
    EXPECT_EQ(r.status, 1) << r.output;
    EXPECT_TRUE(has(r.output, "inactive.yaml:8:52: hdl: unknown handle name 'iff1'")) << r.output;
    EXPECT_FALSE(has(r.output, "'seen'")) << r.output; // a get may name a new handle
    EXPECT_FALSE(has(r.output, "'if1'")) << r.output;  // stored by the create of step 1
    EXPECT_TRUE(has(r.output, "step 4 send test_if: 0 mismatches, 1 value error")) << r.output;
}

} // namespace
