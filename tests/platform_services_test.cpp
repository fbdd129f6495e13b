// What the runner takes from a platform's service table: only the members it offers, within the
// size the platform was built with, and the steps that need a missing one refused or reported.
#include "platform.hpp"
#include "run.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

using pc::runner::Platform;

void arm_nothing(const char *, int32_t, uint32_t) {}
void results_nothing(const char *, const uint32_t *, size_t, uint32_t) {}
void sdk_nothing(pc_platform_sdk_fn, void *) {}

pc_platform_services full_table() {
    pc_platform_services table{};
    table.size = sizeof table;
    table.arm_injection = arm_nothing;
    table.arm_npu_results = results_nothing;
    table.set_sdk_side = sdk_nothing;
    return table;
}

TEST(PlatformServices, OnlyMembersWithinTheTablesSizeAreOffered) {
    pc_platform_services table = full_table();
    Platform platform{&table, "libvendor.so"};
    for (const char *kind : {"inject", "npu_result", "sdk"}) EXPECT_EQ(platform.refusal(kind), "") << kind;

    // a platform built before the last members existed: what lies beyond its size is not read
    table.size = offsetof(pc_platform_services, arm_npu_results);
    EXPECT_EQ(platform.refusal("inject"), "");
    EXPECT_EQ(platform.refusal("npu_result"), "npu_result: per-NPU results need the reference data plane; this planecheck runs on libvendor.so");
    EXPECT_NE(platform.refusal("sdk"), "");

    table = full_table();
    table.set_sdk_side = nullptr;
    EXPECT_EQ(platform.refusal("sdk"), "sdk: the SDK side's answers need the reference data plane; this planecheck runs on libvendor.so");
    EXPECT_EQ(platform.refusal("send"), "") << "a step kind every platform serves";

    Platform none{nullptr, "libbare.so"};
    EXPECT_EQ(none.refusal("inject"), "inject: fault injection needs the reference data plane; this planecheck runs on libbare.so");
}

TEST(PlatformServices, TheReferenceDataPlaneOffersEveryService) {
    const Platform &linked = pc::runner::linked_platform();
    ASSERT_NE(linked.services, nullptr);
    for (const char *kind : {"inject", "npu_result", "sdk"}) EXPECT_EQ(linked.refusal(kind), "") << kind;
}

class UnservedFile : public ::testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/pc_unserved_XXXXXX.yaml";
        int fd = mkstemps(name, 5);
        ASSERT_GE(fd, 0);
        close(fd);
        path_ = name;
        std::ofstream(path_) << "steps:\n"
                                "  - send: { test_if: [ { op: create, key_a: 1 } ] }\n"
                                "    sdk: { test_if: [ { op: create, rc: 0 } ] }\n"
                                "  - send: { test_if: [ { op: delete, key_a: 1 } ] }\n"
                                "    sdk: { test_if: [ { op: delete, rc: 0 } ] }\n";
        table_ = full_table();
        table_.set_sdk_side = nullptr;
        options_.platform = &platform_;
        options_.steps = std::fopen("/dev/null", "w");
    }
    void TearDown() override {
        std::fclose(options_.steps);
        std::remove(path_.c_str());
    }

    std::string path_;
    pc_platform_services table_{};
    Platform platform_{&table_, "libvendor.so"};
    pc::runner::Options options_;
};

TEST_F(UnservedFile, RunRefusesTheWholeFileAtTheFirstUnservedStep) {
    pc::runner::FileResult r = pc::runner::run_file(path_, options_);
    EXPECT_TRUE(r.invalid);
    EXPECT_EQ(r.steps, 0u) << "nothing ran";
    EXPECT_EQ(r.error, path_ + ":3:10: sdk: the SDK side's answers need the reference data plane; this planecheck runs on libvendor.so"
                               " (and 1 more steps this platform cannot run; planecheck check lists them)");
}

TEST_F(UnservedFile, CheckFindsEveryUnservedStep) {
    options_.check_only = true;
    pc::runner::FileResult r = pc::runner::run_file(path_, options_);
    EXPECT_FALSE(r.invalid);
    EXPECT_EQ(r.problems, 2u);
    ASSERT_EQ(r.findings.size(), 2u);
    EXPECT_EQ(r.findings[1].substr(0, path_.size() + 6), path_ + ":5:10:");
    EXPECT_FALSE(r.passed());
}

} // namespace
