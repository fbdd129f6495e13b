// One simplane instance per scenario context: objects, handles, injections, NPU results and
// configuration of one context are never seen by another, in sequence or on two threads.
#include "harness.hpp"

#include "planecheck/simplane.h"

#include <thread>

namespace {

using pc::test::Harness;

TEST(Instances, ContextsInSequenceKeepTheirOwnObjectsHandlesAndArmedInjections) {
    simplane::Instance first, second;
    Harness h; // its log and recorder capture serve both instances
    {
        simplane::Binding bound(first);
        simplane::configure({4, 16, "node0"});
        h.send("test_if", "[ {op: create, key_a: 1, attr_a1: 5, hdl: a} ]");
        simplane::arm_injection("test_if create", 12, 1);
        simplane::arm_npu_results("test_if get", {0, 9}, 1);
        EXPECT_EQ(syspro_config_get_max_num_npus(), 4u);
    }
    {
        simplane::Binding bound(second);
        simplane::configure({8, 16, "node0"});
        EXPECT_EQ(syspro_config_get_max_num_npus(), 8u);
        // the first instance's object, injection and NPU results are not here
        h.send("test_if", "[ {op: get, key_a: 1, rc: ENOENT}, {op: create, key_a: 1, attr_a1: 7, rc: 0, hdl: b},"
                          "  {op: get, key_a: 1, attr_a1: 7, npu_result: [0, 0]} ]");
    }
    {
        simplane::Binding bound(first);
        EXPECT_EQ(syspro_config_get_max_num_npus(), 4u);
        h.send("test_if", "[ {op: get, key_a: 1, attr_a1: 5, npu_result: [0, 9]}, {op: create, key_a: 2, rc: ENOMEM} ]");
    }
    EXPECT_EQ(h.mismatches(), 0u) << h.all_log();
    EXPECT_EQ(h.context.session.handles["a"], 0x1001u);
    EXPECT_EQ(h.context.session.handles["b"], 0x1001u); // each instance numbers its own handles
}

TEST(Instances, BindingsNestAndTheCInterfaceRestoresTheOneBoundBefore) {
    simplane::reset(); // the default instance, used while nothing is bound
    simplane_instance *own = simplane_instance_new();
    EXPECT_EQ(simplane_bind(own), nullptr);
    {
        simplane::Instance inner;
        simplane::Binding bound(inner);
        Harness h;
        h.send("test_if", "[ {op: create, key_a: 3} ]");
        EXPECT_EQ(simplane::stored_count(0), 1u);
    }
    EXPECT_EQ(simplane::stored_count(0), 0u); // back in `own`, which saw nothing
    EXPECT_EQ(simplane_bind(nullptr), own);
    EXPECT_EQ(simplane::stored_count(0), 0u);
    simplane_instance_free(own);
}

// One context on its own thread: creates, compared gets and deletes of the same keys the other
// thread uses, with values of its own. Shared objects would show as EEXIST, ENOENT or a value
// mismatch. A get may expect another value than was created, to provoke a mismatch per get.
struct ThreadRun {
    uint64_t mismatches = 0, value_errors = 0;
    size_t left_in_store = 0;
    std::string log;

    void operator()(int value, int expected, int rounds) {
        simplane::Instance plane;
        simplane::Binding bound(plane);
        pc::support::Context context;
        context.process.recorder_off = 1; // the recorder output is one per process
        context.session.log = [this](int, const std::string &text, uint32_t) { log += text; };
        std::string v = std::to_string(value), e = std::to_string(expected);
        std::string create = "{test_if: [ {op: create, key_a: 1, attr_a1: " + v + "}, {op: create, key_a: 2, attr_a1: " + v + "} ]}";
        std::string get = "{test_if: [ {op: get, key_a: 1, attr_a1: " + e + "}, {op: get, key_a: 2, attr_a1: " + e + "} ]}";
        std::string remove = "{test_if: [ {op: delete, key_a: 1}, {op: delete, key_a: 2} ]}";
        auto run = [&](const std::string &step) {
            pc::Arena arena;
            pc::yaml::LoadError error;
            json_send_object_client(pc::yaml::load_string(step, "thread.yaml", arena, error), context.get());
        };
        for (int round = 0; round < rounds; ++round)
            for (const std::string *step : {&create, &get, &remove}) run(*step);
        run(create);
        mismatches = context.session.mismatches();
        value_errors = context.session.value_errors();
        left_in_store = simplane::stored_count(0);
    }
};

// Each thread's store holds its own objects; and the values of a mismatch are printed through the
// recorder converters: each thread's lines carry its own values, whatever the other thread prints
// at the same time. A shared store or a shared print-out shows as a line of another kind.
TEST(Instances, TwoContextsOnTwoThreadsKeepTheirObjectsAndEachPrintTheirOwnValues) {
    ThreadRun a, b;
    std::thread first([&] { a(5, 6, 4000); }), second([&] { b(70000, 80000, 4000); });
    first.join();
    second.join();
    auto expect_only = [](const ThreadRun &run, const std::string &line) {
        EXPECT_EQ(run.mismatches, 8000u);
        EXPECT_EQ(run.value_errors, 0u);
        EXPECT_EQ(run.left_in_store, 2u);
        size_t lines = 0, at = 0;
        for (size_t end; (end = run.log.find('\n', at)) != std::string::npos; at = end + 1, ++lines)
            if (run.log.compare(at, end + 1 - at, line) != 0) {
                ADD_FAILURE() << "line " << lines << ": " << run.log.substr(at, end - at);
                return;
            }
        EXPECT_EQ(lines, 8000u);
    };
    expect_only(a, "attr_a1: received 5 expected 6\n");
    expect_only(b, "attr_a1: received 70000 expected 80000\n");
}

} // namespace
