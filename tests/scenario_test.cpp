// Reading scenario files: what makes one invalid, and where the message points.
#include "file_run.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace {

pc::runner::FileResult run_text(const std::string &text, pc::runner::RunObserver *observer = nullptr) {
    std::string path = testing::TempDir() + "scenario_XXXXXX.yaml"; // tests may run in parallel
    close(mkstemps(path.data(), 5));
    std::ofstream(path) << text;
    pc::runner::Options options;
    options.quiet = true;
    options.steps = stderr;
    options.observer = observer;
    pc::runner::FileResult r = pc::runner::run_file(path, options);
    std::remove(path.c_str());
    return r;
}

std::string error_after_file(const pc::runner::FileResult &r) { return r.error.substr(r.error.find(".yaml:") + 6); }

// Each of these was once dropped or read as something else; the file is refused at the value.
TEST(Scenario, InputThatCannotBeHonouredIsRefusedWhereItStands) {
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
        // a file that runs nothing must not pass, like a test runner that collected nothing
        {"name: nothing\n", "1:1: the file has no steps"},
        {"name: nothing\nsteps: []\n", "2:1: the file has no steps"},
        {"steps:\n  - send: { test_if: [] }\n    expect: { mismatches: 0 }\n",
         "3:13: a step has one kind; 'send' and 'expect' are both here"},
        {"steps:\n  - name: only a name\n", "2:5: the step has no kind"},
        {"name: &n shared\nsteps:\n  - send: { test_if: [ &rec { op: create, key_a: 1 } ] }\n  - send: { test_if: [ *rec ] }\n",
         "4:24: anchor 'rec' was defined in an earlier step"},
        {"steps:\n  - expect: { mismatches: 0 }\n---\nsteps:\n  - expect: { mismatches: 9 }\n",
         "3:1: a second YAML document starts here"},
        {"config: { npus: 2 }\nconfig: { npus: 8 }\nsteps:\n  - expect: { mismatches: 0 }\n",
         "2:1: 'config' is given twice (first at line 1)"},
        {"steps:\n  - send: { test_if: [ { op: create, key_a: 0x1ffffffffffffffff } ] }\n",
         "2:45: the integer 0x1ffffffffffffffff does not fit in 64 bits"},
        {"steps:\n  - send: { test_if: [ { op: create, key_a: -9223372036854775809 } ] }\n",
         "2:45: the integer -9223372036854775809 does not fit in 64 bits"},
        {"steps:\n  - inject: { op: \"test_if create\", status: .nan }\n", "2:45: status: the value is not a finite number"},
        {"steps:\n  - inject: { op: \"test_if create\", status: 0x100000000 }\n", "2:45: status: the value is out of range (-2147483648 to 4294967295)"},
        {"steps:\n  - npu_result: { op: \"test_if get\", results: [0, -.inf] }\n",
         "2:51: results: the value is not a finite number"},
        {"steps:\n  - send: { nhgroup: [ { op: create, nhgroup_id: 1, num_paths: 1e400 } ] }\n",
         "2:64: num_paths: the value is not a finite number"},
        {"steps:\n  - send: { nhgroup: [ { op: create, nhgroup_id: 1, num_paths: \"0x1ffffffffffffffff\" } ] }\n",
         "2:64: num_paths: the value does not fit in 64 bits"},
        {"steps:\n  - send: { test_if: [ { op: get, key_a: 1, npu_result: [ 0, 1e30 ] } ] }\n",
         "2:62: npu_result: the value is out of range"},
        {"steps:\n  - dump: { test_if: [ { op: get, router: .inf, key_a: 1 } ] }\n",
         "2:43: router: the value is not a finite number"},
        {"steps:\n  - send:\n      batch_crud:\n        - batch_params: {}\n"
         "        - nhgroup: [ { op: create, nhgroup_id: 1, num_paths: -1e300 } ]\n",
         "5:62: num_paths: the value is out of range"},
    };
    for (const auto &c : cases) {
        pc::runner::FileResult r = run_text(c.text);
        EXPECT_TRUE(r.invalid) << c.text;
        EXPECT_FALSE(r.passed()) << c.text;
        EXPECT_EQ(error_after_file(r).rfind(c.error, 0), 0u) << r.error;
    }
}

// Two kinds in one step: a table beside its send: or dump: is an indentation slip, and the message
// asks about it; two step kinds side by side are not, and it does not.
TEST(Scenario, TwoKindsInAStepAskAboutIndentationOnlyWhereATableSlipped) {
    struct Case {
        const char *text, *error;
    } cases[] = {
        {"steps:\n  - send:\n    test_if:\n      - { op: create, key_a: 1 }\n",
         "4:7: a step has one kind; 'send' and 'test_if' are both here: is the table test_if meant to be indented under send:?"},
        {"steps:\n  - dump:\n    nhgroup: [ { op: get, nhgroup_id: 7 } ]\n",
         "3:14: a step has one kind; 'dump' and 'nhgroup' are both here: is the table nhgroup meant to be indented under dump:?"},
        {"steps:\n  - send: { test_if: [] }\n    expect: { mismatches: 0 }\n", "3:13: a step has one kind; 'send' and 'expect' are both here"},
        {"steps:\n  - expect: { mismatches: 0 }\n    test_if: []\n", "3:14: a step has one kind; 'expect' and 'test_if' are both here"},
    };
    for (const auto &c : cases) EXPECT_EQ(error_after_file(run_text(c.text)), c.error) << c.text;
}

// What each step did, as the run's observers are told it.
struct StepStatuses : pc::runner::RunObserver {
    std::vector<pc::runner::StepStatus> seen;
    void step(const pc::runner::FileResult &, const pc::runner::StepRecord &s) override { seen.push_back(s.status); }
};

TEST(Scenario, AnExpectJudgesTheStepsSinceTheLastOneAndAnInactiveStepRunsNothing) {
    StepStatuses steps;
    pc::runner::FileResult r = run_text("config: { object_set: 1 }\nsteps:\n"
                                        "  - send: { test_if: [ &r { op: create, key_a: 1 }, *r ] }\n" // an anchor within its step
                                        "  - expect: { mismatches: 1 }\n"
                                        "  - send: { nhgroup: [ { op: create, nhgroup_id: 1 } ] }\n"
                                        "  - expect: { mismatches: 1 }\n",
                                        &steps);
    EXPECT_FALSE(r.invalid) << r.error;
    EXPECT_EQ(r.failed_steps, 2u); // the mismatch's step, though an expect: accounted for it, and the failed expect
    EXPECT_EQ(r.failures, 1u);     // the failed expect: fails the file
    EXPECT_FALSE(r.passed());
    using pc::runner::StepStatus;
    EXPECT_EQ(steps.seen, (std::vector<StepStatus>{StepStatus::failed, StepStatus::passed, StepStatus::not_run, StepStatus::failed}));
}

TEST(Scenario, TheWidestIntegersAndAStatusNameStillRead) {
    pc::runner::FileResult r =
        run_text("steps:\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\n"
                 "  - inject: { op: \"test_if create\", status: 0xffffffff }\n"
                 "  - npu_result: { op: \"test_if get\", results: [4294967295, ENOENT] }\n"
                 "  - dump: { test_if: [ { op: get, router: 18446744073709551615, key_a: -9223372036854775808 } ] }\n");
    EXPECT_FALSE(r.invalid) << r.error;
    EXPECT_EQ(r.steps, 4u);
}

} // namespace
