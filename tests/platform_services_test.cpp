// What the runner takes from a platform's service table: only the members it offers, within the
// size the platform was built with. (The refusals themselves are tested through the command built
// on the scripted platform.)
#include "platform.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

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

} // namespace
