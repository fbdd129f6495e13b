// Reading scenario files: what makes one invalid, and where the message points.
#include "run.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace {

pc::runner::FileResult run_text(const std::string &text) {
    std::string path = testing::TempDir() + "scenario_XXXXXX.yaml"; // tests may run in parallel
    close(mkstemps(path.data(), 5));
    std::ofstream(path) << text;
    pc::runner::Options options;
    options.quiet = true;
    options.steps = stderr;
    pc::runner::FileResult r = pc::runner::run_file(path, options);
    std::remove(path.c_str());
    return r;
}

std::string error_after_file(const pc::runner::FileResult &r) { return r.error.substr(r.error.find(".yaml:") + 6); }

TEST(Scenario, ConfigValuesAreCheckedWhereTheyStand) {
    struct Case {
        const char *text, *error;
    } cases[] = {
        {"config:\n  mode: sideways\n", "2:9: mode: is client or server"},
        {"config:\n  npus: 0\n", "2:9: npus: is a number from 1 to 64"},
        {"config:\n  colour: blue\n", "2:11: unknown config key 'colour'"},
        {"config:\n  verbose: 1\n", "2:12: verbose: is true or false"},
        {"name: [a]\n", "1:7: name: is a text"},
        {"steps: {send: 1}\n", "1:8: expected a sequence"},
        {"- just a list\n", "1:1: a scenario is a mapping with name:, config: and steps:"},
    };
    for (const auto &c : cases) {
        pc::runner::FileResult r = run_text(c.text);
        EXPECT_TRUE(r.invalid) << c.text;
        EXPECT_EQ(error_after_file(r).rfind(c.error, 0), 0u) << r.error;
    }
}

TEST(Scenario, AnchorsLiveWithinAStepOrBeforeTheSteps) {
    pc::runner::FileResult shared = run_text("name: &n shared\nsteps:\n"
                                             "  - send: { test_if: [ &rec { op: create, key_a: 1 } ] }\n"
                                             "  - send: { test_if: [ *rec ] }\n");
    EXPECT_TRUE(shared.invalid);
    EXPECT_EQ(error_after_file(shared).rfind("4:24: anchor 'rec' was defined in an earlier step", 0), 0u) << shared.error;
    pc::runner::FileResult local = run_text("steps:\n  - send: { test_if: [ &r { op: create, key_a: 1 }, *r ] }\n"
                                            "  - expect: { mismatches: 1 }\n");
    EXPECT_FALSE(local.invalid) << local.error;
    EXPECT_TRUE(local.passed());
}

TEST(Scenario, AnEmptyFileIsAValidScenarioWithoutSteps) {
    pc::runner::FileResult r = run_text("");
    EXPECT_FALSE(r.invalid);
    EXPECT_EQ(r.steps, 0u);
    EXPECT_TRUE(r.passed());
}

TEST(Scenario, StepsMustHaveExactlyOneKind) {
    pc::runner::FileResult two = run_text("steps:\n  - send: { test_if: [] }\n    expect: { mismatches: 0 }\n");
    EXPECT_TRUE(two.invalid);
    EXPECT_NE(two.error.find("a step has one kind; 'send' and 'expect' are both here"), std::string::npos) << two.error;
    pc::runner::FileResult none = run_text("steps:\n  - name: only a name\n");
    EXPECT_NE(none.error.find("the step has no kind"), std::string::npos) << none.error;
}

} // namespace
