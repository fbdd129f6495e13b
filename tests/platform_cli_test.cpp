// The command built on another platform library: the scripted C platform, which offers fault
// injection (its scripted answers) and the call trace but no NPU results and no SDK side, and the
// same library bare, with no runner services at all.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>
#include <unistd.h>

namespace {

using pc::test::Outcome;
using pc::test::read_file;

const std::string calls_dir = std::string(PC_SOURCE_DIR) + "/tests/scripted_platform/";

Outcome scripted(const std::string &args) { return pc::test::run_command(std::string(PC_PLANECHECK_SCRIPTED) + " " + args + " 2>&1"); }
// The same command with the bare libscripted.so found first.
Outcome bare(const std::string &args) {
    return pc::test::run_command(std::string("LD_LIBRARY_PATH=") + PC_SCRIPTED_BARE_DIR + " " + PC_PLANECHECK_SCRIPTED + " " + args + " 2>&1");
}
Outcome simplane(const std::string &args) { return pc::test::run_command(std::string(PC_PLANECHECK) + " " + args + " 2>&1"); }

using pc::test::text::has;

class ScriptedCommand : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "pc_platform_XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::system(("rm -rf " + dir_).c_str()); }

    std::string write(const std::string &name, const std::string &text) {
        std::string path = dir_ + "/" + name;
        std::ofstream(path) << text;
        return path;
    }

    std::string dir_;
};

// A scenario whose steps 2 and 3 need services only the reference data plane offers.
const char *const unserved_steps = R"(steps:
  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5 } ] }
  - npu_result: { op: "test_if get", results: [0, 5] }
  - send: { test_if: [ { op: get, key_a: 1, attr_a1: 5 } ] }
    sdk:  { test_if: [ { op: get, attr_a1: 5, rc: 0 } ] }
  - inject: { op: "test_if create", status: ENOMEM }
  - send: { test_if: [ { op: create, key_a: 2, rc: ENOMEM } ] }
)";

// A device call that never returns: the stop at the time limit cannot take effect, so the worker is
// killed after the grace period; the file is timed out at the hanging step's line, and the run goes on.
TEST_F(ScriptedCommand, AFileWhoseCallNeverReturnsIsKilledAfterTheGraceAndTimedOut) {
    std::string hangs = write("hangs.yaml", "steps:\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\n"
                                            "  - send: { test_if: [ { op: delete, key_a: 1 } ] }\n");
    std::string after = write("after.yaml", "steps:\n  - send: { test_if: [ { op: create, key_a: 2 } ] }\n");
    for (const char *jobs : {"", "-j 2 "}) {
        auto started = std::chrono::steady_clock::now();
        Outcome r = pc::test::run_command("SCRIPTED_HANG='test_if delete' " + std::string(PC_PLANECHECK_SCRIPTED) + " run --timeout 0.5 " +
                                          jobs + "--events " + dir_ + "/hang.jsonl " + hangs + " " + after + " 2>&1");
        double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        EXPECT_EQ(r.status, 1) << r.output;
        EXPECT_LT(took, 0.5 + 2 + 3) << jobs; // the limit, the grace period, and time to spare on a busy machine
        EXPECT_GE(took, 0.5 + 2) << "killed only after the grace period";
        EXPECT_TRUE(has(r, hangs + ": timed out after 2.")) << r.output;
        EXPECT_TRUE(has(r, "(timeout of 0.5 s) in step 2 (send test_if) at line 3, after 1 step ran")) << r.output;
        EXPECT_TRUE(has(r, after + ":2: step 1 send test_if: ok")) << r.output;
        std::ifstream events(dir_ + "/hang.jsonl");
        std::string text((std::istreambuf_iterator<char>(events)), {});
        EXPECT_TRUE(has(Outcome{0, text}, R"("status":"timed_out")")) << text;
        EXPECT_TRUE(has(Outcome{0, text}, R"("how":"timeout of 0.5 s","at":")" + hangs + R"(:3","step":2)")) << text;
    }
}

// The trace lines of standard error, FILE: taken off: "LINE: call".
std::string calls_of(const std::string &stderr_text, const std::string &file) {
    std::istringstream in(stderr_text);
    std::string calls;
    for (std::string line; std::getline(in, line);)
        calls += (line.rfind(file + ":", 0) == 0 ? line.substr(file.size() + 1) : "not a trace line: " + line) + "\n";
    return calls;
}

TEST_F(ScriptedCommand, RunsTheScriptedScenarioWithExactlyTheExpectedPlatformCalls) {
    std::string file = calls_dir + "calls.yaml", trace = dir_ + "/trace";
    Outcome r = pc::test::run_command(std::string(PC_PLANECHECK_SCRIPTED) + " run --trace " + file + " 2>" + trace);
    EXPECT_EQ(r.status, 0) << r.output << read_file(trace);
    EXPECT_TRUE(has(r, "planecheck: PASSED: 1 file, 6 steps")) << r.output;
    EXPECT_EQ(calls_of(read_file(trace), file), read_file(calls_dir + "calls.expected"));
}

// Steps that need a service the platform library lacks are refused at their line before anything
// runs, and listed by check; what needs no service still runs. run_start names the platform: its
// own name when its services give one, else its library's file name.
TEST_F(ScriptedCommand, EachPlatformRunsWhatItServesAndRefusesTheRestAtItsLine) {
    std::string unserved = write("unserved.yaml", unserved_steps), calls = calls_dir + "calls.yaml";
    std::string served = write("served.yaml", "steps:\n  - inject: { op: \"test_if create\", status: ENOMEM }\n"
                                              "  - send: { test_if: [ { op: create, key_a: 1, rc: ENOMEM } ] }\n");
    std::string sdk = write("sdk.yaml", "steps:\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\n"
                                        "    sdk: { test_if: [ { op: create, rc: 0 } ] }\n");
    std::string plain = write("plain.yaml", "steps:\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\n");
    const std::string needs = " needs the reference data plane; this planecheck runs on libscripted.so";
    const std::string first_event = " --events - " + calls + " 2>/dev/null | head -1";
    struct Row {
        Outcome (*command)(const std::string &);
        std::string args;
        int status;
        std::vector<std::string> said, not_said = {};
    } rows[] = {
        {scripted, "run --trace " + unserved, 2,
         {unserved + ":3:17: npu_result: per-NPU results need the reference data plane; this planecheck runs on "
                     "libscripted.so (and 1 more steps this platform cannot run; planecheck check lists them)\n"},
         {"dpa_test_if_ctor", "step 1"}},
        {scripted, "run " + served, 0, {}}, // the injection alone is served
        {scripted, "run " + sdk, 2, {sdk + ":3:10: sdk: the SDK side's answers need the reference data plane; this planecheck runs on libscripted.so\n", "INVALID"}},
        {bare, "run " + calls, 2, {calls + ":8:13: inject: fault injection" + needs + "\n"}, {": step 1 "}},
        {bare, "run --trace " + plain, 0, {"planecheck: --trace: libscripted.so offers no call trace; no calls are written\n"},
         {"dpa_test_if_create"}},
        {scripted, "check " + unserved, 1,
         {unserved + ":3:17: npu_result: per-NPU results need the reference data plane",
          unserved + ":5:11: sdk: the SDK side's answers need the reference data plane"},
         {"inject: fault injection"}},
        {bare, "check " + unserved, 1, {unserved + ":6:13: inject: fault injection needs the reference data plane"}},
        {simplane, "check " + unserved, 0, {}},
        {scripted, "run -q" + first_event, 0, {R"("platform":"scripted")"}},
        {bare, "check" + first_event, 0, {R"("platform":"scripted")"}},
        {simplane, "run -q" + first_event, 0, {R"("platform":"simplane")"}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.args);
        Outcome r = row.command(row.args);
        EXPECT_EQ(r.status, row.status) << r.output;
        for (const std::string &text : row.said) EXPECT_TRUE(has(r, text)) << text << "\n" << r.output;
        for (const std::string &text : row.not_said) EXPECT_FALSE(has(r, text)) << text << "\n" << r.output;
    }
}

// replay makes inject:, npu_result: and sdk: steps from a recording: they meet the same refusal.
TEST_F(ScriptedCommand, ReplayDiffAndCoverageWorkOnThePlatformLibrary) {
    std::string recording = dir_ + "/calls.rec", again = dir_ + "/again.rec", coverage = dir_ + "/coverage.json";
    Outcome ran = scripted("run --recorder " + recording + " --coverage " + coverage + " " + calls_dir + "calls.yaml");
    ASSERT_EQ(ran.status, 0) << ran.output;
    Outcome replayed = scripted("replay --recorder " + again + " " + recording);
    EXPECT_EQ(replayed.status, 0) << replayed.output;
    EXPECT_EQ(scripted("diff " + recording + " " + again).status, 0) << read_file(recording) << read_file(again);
    Outcome covered = scripted("coverage " + coverage);
    EXPECT_EQ(covered.status, 0) << covered.output;
    EXPECT_TRUE(has(covered, "test_if")) << covered.output;

    std::string with_results = dir_ + "/results.rec";
    std::string scenario = write("results.yaml", "steps:\n  - npu_result: { op: \"test_if create\", results: [0, 5] }\n"
                                                 "  - send: { test_if: [ { op: create, key_a: 1, npu_result: [0, 5] } ] }\n");
    ASSERT_EQ(simplane("run --recorder " + with_results + " " + scenario).status, 0);
    Outcome refused = scripted("replay " + with_results);
    EXPECT_EQ(refused.status, 2) << refused.output;
    EXPECT_TRUE(has(refused, with_results + ":")) << refused.output;
    EXPECT_TRUE(has(refused, ": npu_result: per-NPU results need the reference data plane")) << refused.output;
}

} // namespace
