// Reading a scenario ahead on a second thread gives what reading it step by step gives: the same
// steps with the same lines, the same error at the same step, the same end; and a run that stops
// early leaves no thread behind. (Run under ThreadSanitizer by `make tsan`.)
#include "files.hpp"
#include "harness.hpp"
#include "read_ahead.hpp"
#include "file_run.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

std::string write_scenario(const std::string &text) { return pc::test::temp_file(".yaml", text); }

// Everything a source hands out, one line per call, up to the end or the first error.
std::vector<std::string> read_all(pc::runner::StepSource &source, const std::string &path) {
    std::vector<std::string> seen;
    pc::yaml::LoadError error;
    if (!source.open(path, error) || !source.read_header(error)) return {"header: " + error.text()};
    for (;;) {
        pc::runner::Step step;
        bool done = false;
        if (!source.next_step(step, done, error)) {
            seen.push_back("error: " + error.text());
            return seen;
        }
        if (done) {
            seen.push_back("done");
            return seen;
        }
        seen.push_back(std::to_string(step.number) + " at " + std::to_string(step.line) + ": " + pc::test::value_text(step.value));
    }
}

std::string steps(int count, const std::string &each) {
    std::string text;
    for (int i = 1; i <= count; ++i) {
        std::string step = each;
        for (size_t at; (at = step.find("$")) != std::string::npos;) step.replace(at, 1, std::to_string(i));
        text += step;
    }
    return text;
}

TEST(ReadAhead, GivesTheStepsErrorsAndEndThatReadingInTurnGives) {
    const std::string plain = "  - send: { test_if: [ { op: create, key_a: $, attr_a1: [ $, { deep: $ } ] } ] }\n";
    const std::pair<const char *, std::string> files[] = {
        {"many steps", "name: &n shared\nconfig: { mode: server }\nsteps:\n" + steps(300, plain) + "  - expect: { label: *n }\n"},
        {"a broken step in the middle", "steps:\n" + steps(150, plain) + "  - send: { test_if: [ }\n" + steps(100, plain)},
        {"an anchor of an earlier step", "steps:\n" + steps(20, plain) + "  - send: &s { x: 1 }\n" + steps(5, plain) + "  - send: *s\n"},
        {"an anchor within its step", "steps:\n" + steps(20, "  - send: { a: &a$ [ $ ], b: *a$ }\n")},
        {"a key after the steps", "steps:\n" + steps(10, plain) + "config: { mode: server }\n"},
        {"no steps", "steps: []\n"},
        {"a broken header", "config: { mode: [ }\nsteps:\n" + steps(3, plain)},
    };
    for (const auto &[name, text] : files) {
        std::string path = write_scenario(text);
        pc::runner::ScenarioReader in_turn_reader;
        std::vector<std::string> in_turn = read_all(in_turn_reader, path);
        for (size_t depth : {1, 2, 8}) {
            pc::runner::ScenarioReader reader;
            pc::runner::ReadAhead ahead(reader, depth);
            EXPECT_EQ(read_all(ahead, path), in_turn) << name << ", depth " << depth;
        }
        EXPECT_GE(in_turn.size(), 1u) << name;
        std::remove(path.c_str());
    }
}

// The run stops taking steps (an invalid step, a stop signal) while the second thread still reads.
TEST(ReadAhead, ARunThatStopsEarlyEndsTheReadingThread) {
    std::string path = write_scenario("steps:\n" + steps(2000, "  - send: { test_if: [ { op: create, key_a: $ } ] }\n"));
    for (int taken : {0, 1, 5}) {
        pc::runner::ScenarioReader reader;
        pc::runner::ReadAhead ahead(reader, 2);
        pc::yaml::LoadError error;
        ASSERT_TRUE(ahead.open(path, error) && ahead.read_header(error)) << error.text();
        for (int i = 0; i < taken; ++i) {
            pc::runner::Step step;
            bool done = false;
            ASSERT_TRUE(ahead.next_step(step, done, error));
            EXPECT_EQ(step.number, size_t(i + 1));
        }
    } // the destructor stops and joins the reading thread, which may be waiting for a free arena
    std::remove(path.c_str());
}

// A whole run reads the same either way: the counts and the findings at their lines.
TEST(ReadAhead, ARunReadAheadCountsAndReportsAsARunReadInTurn) {
    std::string path = write_scenario("steps:\n" + steps(200, "  - send: { test_if: [ { op: create, key_a: $, attr_a1: 1 } ] }\n"
                                                                "  - send: { test_if: [ { op: get, key_a: $, attr_a1: 2 } ] }\n"
                                                                "  - send: { test_if: [ { op: delete, key_a: $ } ] }\n") +
                                      "  - nothing_like_a_step: 1\n");
    auto run = [&](unsigned threads) {
        pc::runner::Options options;
        options.quiet = true;
        options.steps = stderr;
        options.threads = threads;
        return pc::runner::run_file(path, options);
    };
    pc::runner::FileResult in_turn = run(1), ahead = run(2);
    EXPECT_EQ(ahead.steps, in_turn.steps);
    EXPECT_EQ(ahead.mismatches, in_turn.mismatches);
    EXPECT_GT(in_turn.mismatches, 0u);
    EXPECT_EQ(ahead.failed_steps, in_turn.failed_steps);
    EXPECT_EQ(ahead.findings, in_turn.findings);
    EXPECT_EQ(ahead.invalid, in_turn.invalid);
    EXPECT_EQ(ahead.error, in_turn.error);
    std::remove(path.c_str());
}

} // namespace
