// The planecheck command line as users run it: exit codes, messages, the summary.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Result = pc::test::Outcome;
using pc::test::read_file;
using pc::test::text::count;
using pc::test::text::has;
constexpr auto run = pc::test::planecheck;

// Runs planecheck with variables set in its environment, standard error folded in.
Result run_with(const std::string &environment, const std::string &args) {
    return pc::test::run_command(environment + " " + PC_PLANECHECK + " " + args + " 2>&1");
}

std::string scenario(const char *name) { return std::string(PC_SCENARIOS) + "/" + name; }

// What a command says, each at its line, and its exit status.
TEST(Cli, EachCommandSaysWhatItFoundWhereAndExitsAsScriptsExpect) {
    const std::string s = std::string(PC_SCENARIOS) + "/", examples = std::string(PC_SOURCE_DIR) + "/examples/";
    const std::string three = s + "mismatch.yaml " + s + "inject.yaml " + s + "crud_client.yaml";
    pc::test::expect_says({
        {"run " + s + "crud_client.yaml", 0, {"planecheck: PASSED: 1 file, "}},
        {"run " + s + "crud_server.yaml", 0, {"planecheck: PASSED: 1 file, "}},
        {"run " + examples + "hello.yaml", 0, {}},
        // passes the check, and simplane holds its references: the group and a next hop in use are not deleted
        {"run --strict " + examples + "l3_ecmp.yaml", 0,
         {"(next_obj_ipnhgroup_refhdl); refused with EBUSY", "(next_obj_ipnh_refhdl); refused with EBUSY", "planecheck: PASSED: 1 file, "}},
        {"run " + examples + "catalogue_tour.yaml", 0, {"local_state: received \"init\" expected \"up\"\n", "0 value errors (1 expected)"}},
        {"run " + s + "mismatch.yaml", 1,
         {"mismatch.yaml:6: dpa_test_if_create: EEXIST, received 17 expected 0\n", "mismatch.yaml:9: attr_a1: received 5 expected 6\n",
          "planecheck: FAILED: 1 file, 3 steps, 2 mismatches, 0 value errors"}},
        {"run -q " + s + "expected_mismatch.yaml", 0, {"(2 expected)"}},
        {"run -q " + s + "wrong_expectation.yaml", 1, {"expect: FAILED (1 mismatch and 0 value errors since the last expect)"}},
        {"run " + s + "bad_yaml.yaml", 2,
         {"bad_yaml.yaml:6:9: did not find expected ',' or '}' while parsing a flow mapping that starts at line 5", "planecheck: INVALID"}},
        {"run " + s + "bad_step.yaml", 2, {"bad_step.yaml:6:11: unknown step kind 'sned'", "planecheck: INVALID"}},
        {"run " + s + "late_config.yaml", 2, {"late_config.yaml:6:1: config: must come before steps:", "planecheck: INVALID"}},
        {"run " + s + "bad_inject.yaml", 2, {"bad_inject.yaml:5:11: 'test_if creat' is not <object type> <operation>", "planecheck: INVALID"}},
        {"run " + s + "no_such_file.yaml", 2, {}},
        {"run " + s + "sdk_server.yaml", 2, {"sdk_server.yaml:5:11: sdk: answers client calls, and this file runs in server mode"}},
        // a bad value is one value error at its line, and the run goes on
        {"run " + s + "bad_values.yaml", 1,
         {"bad_values.yaml:7:20: attr_a1: expected a number, got the string \"five\"\n",
          "bad_values.yaml:8:44: rdesc_id_test1: unknown field 'slot' of rdesc_id_t",
          "bad_values.yaml:12:53: local_state: unknown value 'sideways' of dpa_bfdoff_local_state_en",
          "bad_values.yaml:17:21: acl_name: the string is 74 bytes long; at most 63 fit", "4 value errors", "step 2 send test_if: ok"}},
        {"run " + s + "unknown_keys.yaml", 1,
         {"unknown_keys.yaml:5:43: test_if has no 'atr_a1'; the key is ignored, so nothing checks it;",
          "unknown_keys.yaml:8:81: nhgroup has no 'forward_clas' in its members;"}},
        {"check " + s + "unknown_keys.yaml", 1, {"test_if has no 'atr_a1'"}},
        {"run " + s + "batch.yaml", 0,
         {"batch.yaml:9:78: nhgroup has no 'forward_clas' in its members;", "step 2 send batch_crud: 0 mismatches, 1 value error"}},
        // shards split the files without overlap: mismatch.yaml and crud_client.yaml, then inject.yaml
        {"run -q --shard 1/2 " + three, 1, {"FAILED: 2 files, 6 steps,"}},
        {"run -q --shard 2/2 " + three, 0, {"PASSED: 1 file, 3 steps,"}},
        {"run --shard 3/2 " + three, 2, {}},
        // an ungated type whose interface pair is gated
        {"catalogue --describe nhgroup", 0,
         {"nhgroup (type number 63)\n", "active while object_set is 0", "\"num_paths\"",
          "control fields: op rc hdl trans_id depth npu_result npu_mask ", "    nhgroup_id ", "    npu_bmap ", "read-only\n",
          "    next_obj_ipllnh_refhdl / next_obj_ipllnh_refkey  reference by handle / by key to ipllnh (active while object_set is 0)\n", "  in each element of \"members\":\n",
          "    forward_class "}},
        {"catalogue --describe pbrsbf", 0, {"    out_intf_obj_l3if_refhdl / out_intf_obj_l3if_refkey  reference by handle / by key to l3if (active while object_set is 0)\n"}},
        {"", 2, {}},
        {"frobnicate", 2, {}},
        {"run", 2, {}},
        {"--version", 0, {}},
    });
}

// --describe's TYPE may stand anywhere among the options; each order prints the same document.
TEST(Cli, CatalogueOptionsComeInAnyOrder) {
    Result canonical = run("catalogue --describe iproute --json");
    ASSERT_EQ(canonical.status, 0) << canonical.output;
    ASSERT_TRUE(has(canonical, "{\"object_type\": \"iproute\"")) << canonical.output;
    for (const char *order : {"--describe --json iproute", "--json --describe iproute", "iproute --describe --json", "--describe=iproute --json"}) {
        Result r = run(std::string("catalogue ") + order);
        EXPECT_EQ(r.status, 0) << order << "\n" << r.output;
        EXPECT_EQ(r.output, canonical.output) << order;
    }
    EXPECT_EQ(run("catalogue iproute --describe").output, run("catalogue --describe iproute").output);
    pc::test::expect_says({
        {"catalogue --describe", 2, {"--describe: needs a TYPE"}},
        {"catalogue --describe iproute nhgroup", 2, {"takes one TYPE, and iproute and nhgroup are two"}},
        {"catalogue iproute", 2, {"iproute: a type name goes with --describe"}},
        {"catalogue --list iproute", 2, {"a type name goes with --describe"}},
    });
}

TEST(Cli, TheSdkSideChecksFillsAndAnswers) {
    std::string rec = testing::TempDir() + "sdk.rec";
    Result r = run("run --recorder " + rec + " " + std::string(PC_SOURCE_DIR) + "/examples/sdk_side.yaml");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(has(r, "sdk_side.yaml:10: step 2 received:\n{\n  \"key_a\": 1,\n  \"attr_a2\": 42\n}\n")) << r.output;
    std::string recorded = read_file(rec);
    EXPECT_EQ(count(recorded, "\"receive_call\""), 3u); // create, get and the refused update; the delete had no sdk answer
}

TEST(Cli, InjectedErrorsAreRetriedAndRecorded) {
    std::string rec = testing::TempDir() + "inject.rec";
    Result r = run("run -v --recorder " + rec + " " + scenario("inject.yaml"));
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(has(r, "inject.yaml:6: simplane: error injection start: test_if create")) << r.output;
    std::string recorded = read_file(rec);
    EXPECT_EQ(count(recorded, "\"op\": \"create\""), 3u);
    EXPECT_NE(recorded.find("\"err\": 12,"), std::string::npos);
}

TEST(Cli, TheCatalogueIsListedInItsPublishedOrder) {
    Result r = run("catalogue --list");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.output, read_file(scenario("catalogue_order.txt")));
}

TEST(Cli, TheBuiltTablesHaveTheCataloguesTotals) {
    Result built = run("catalogue --stats");
    std::string catgen = std::string(PC_CATGEN) + " --stats --objects " + PC_SOURCE_DIR + "/catalogue/objects.yaml --value-types " +
                         PC_SOURCE_DIR + "/catalogue/value_types.yaml";
    EXPECT_EQ(built.output, pc::test::run_command(catgen).output);
    for (const char *line : {"types: 315\n", "attributes with an is-set accessor: 5981\n", "read-only attributes: 337\n",
                             "role-reference pairs: 326\n", "types with role references: 116\n",
                             "types with object-set gated reference pairs: 68\n", "direct reference handles: 328\n",
                             "types with an NPU mask: 167\n", "sized types: 34\n", "eod types: 14\n",
                             "object-set gated types: 32\n", "key converters: 116\n", "value types: 332\n",
                             "attributes per type: 2 to 102 (scaleacl)\n"})
        EXPECT_NE(built.output.find(line), std::string::npos) << line;
}

// The number on a line "NAME: N" of --stats.
size_t stat(const std::string &stats, const std::string &name) {
    size_t at = stats.find(name + ": ");
    return at == std::string::npos ? SIZE_MAX : std::stoul(stats.substr(at + name.size() + 2));
}

// Every reference in every type's describe --json names the type it takes and that type's gate:
// as many as --stats counts, each gate the target's own.
TEST(Cli, EveryReferenceIsDescribedWithItsTargetAndTheTargetsGate) {
    const std::string pc = PC_PLANECHECK;
    Result described = pc::test::run_command("for t in $(" + pc + " catalogue --list); do " + pc + " catalogue --describe $t --json; done");
    ASSERT_EQ(described.status, 0);
    static const std::regex type_line(R"re(^\{"object_type": "(\w+)", "number": \d+, "gate": "([^"]*)")re");
    static const std::regex direct(R"re(\{"name": "(\w+)_refhdl", "value_type": "refhdl", "kind": "reference by handle", "target": "(\w+)", "target_gate": "([^"]*)"\})re");
    static const std::regex pair(R"re(\{"handle": "\w+_refhdl", "key": "\w+_refkey", "target": "(\w+)", "target_gate": "([^"]*)", )re");
    std::map<std::string, std::string> gate_of;
    std::vector<std::pair<std::string, std::string>> targets; // target, gate given with it
    size_t handles = 0, pairs = 0;
    std::istringstream lines(described.output);
    for (std::string line; std::getline(lines, line);) {
        std::smatch m;
        ASSERT_TRUE(std::regex_search(line, m, type_line)) << line;
        gate_of[m[1]] = m[2].str().empty() ? "always active" : m[2].str();
        for (std::sregex_iterator it(line.begin(), line.end(), direct), end; it != end; ++it, ++handles) {
            EXPECT_EQ((*it)[1], (*it)[2]) << "a direct reference's key names its target: " << it->str();
            targets.emplace_back((*it)[2], (*it)[3]);
        }
        for (std::sregex_iterator it(line.begin(), line.end(), pair), end; it != end; ++it, ++pairs) targets.emplace_back((*it)[1], (*it)[2]);
        // none left without a target
        EXPECT_EQ(count(line, "\"kind\": \"reference by handle\""), size_t(std::distance(std::sregex_iterator(line.begin(), line.end(), direct), {})));
    }
    EXPECT_EQ(gate_of.size(), 315u);
    for (const auto &[target, gate] : targets) {
        ASSERT_TRUE(gate_of.count(target)) << target;
        EXPECT_EQ(gate, gate_of[target]) << target;
    }
    std::string stats = run("catalogue --stats").output;
    EXPECT_EQ(handles, stat(stats, "direct reference handles"));
    EXPECT_EQ(pairs, stat(stats, "role-reference pairs"));
    EXPECT_EQ(handles, 328u);
    EXPECT_EQ(pairs, 326u);
}

// CI executors pass the shard through the environment, counting from 0; the summary says whose it is.
TEST(Cli, ExecutorShardVariablesChooseTheSameFilesAsShard) {
    std::string files = scenario("mismatch.yaml") + " " + scenario("inject.yaml") + " " + scenario("crud_client.yaml");
    std::string status = ::testing::TempDir() + "pc_shard_status", xml = ::testing::TempDir() + "pc_shard.xml";
    std::remove(status.c_str());
    std::remove(xml.c_str());
    Result by_option = run("run --shard 2/2 " + files);
    Result bazel = run_with("TEST_SHARD_INDEX=1 TEST_TOTAL_SHARDS=2 TEST_SHARD_STATUS_FILE=" + status + " XML_OUTPUT_FILE=" + xml,
                            "run " + files);
    auto without_source = [](std::string out) { return out.substr(0, out.rfind(" (shard 2/2 by")); };
    EXPECT_EQ(without_source(bazel.output), without_source(by_option.output));
    EXPECT_TRUE(has(bazel, "PASSED: 1 file, 3 steps, 0 mismatches, 0 value errors (shard 2/2 by Bazel (TEST_SHARD_INDEX, TEST_TOTAL_SHARDS))"))
        << bazel.output;
    EXPECT_TRUE(std::ifstream(status).good()) << "the shard status file was not touched";
    EXPECT_NE(read_file(xml).find("inject.yaml"), std::string::npos) << "no JUnit report in XML_OUTPUT_FILE";

    Result gtest = run_with("GTEST_SHARD_INDEX=0 GTEST_TOTAL_SHARDS=2", "run -q " + files);
    EXPECT_TRUE(has(gtest, "FAILED: 2 files, 6 steps,")) << gtest.output;
    // --shard and the environment may both be there when they agree
    Result agreeing = run_with("TEST_SHARD_INDEX=1 TEST_TOTAL_SHARDS=2", "run -q --shard 2/2 " + files);
    EXPECT_TRUE(has(agreeing, "PASSED: 1 file, 3 steps,")) << agreeing.output;
}

TEST(Cli, UnusableShardVariablesAreUsageErrorsNamingTheVariable) {
    std::string file = scenario("inject.yaml");
    struct Case { const char *env, *options, *message; };
    for (Case c : {Case{"TEST_SHARD_INDEX=2 TEST_TOTAL_SHARDS=2", "", "TEST_SHARD_INDEX=2 is not a shard index from 0 to 1"},
                   Case{"TEST_SHARD_INDEX=0", "", "TEST_SHARD_INDEX is set without TEST_TOTAL_SHARDS"},
                   Case{"GTEST_SHARD_INDEX=0 GTEST_TOTAL_SHARDS=0", "", "GTEST_TOTAL_SHARDS=0 is not a number of shards"},
                   Case{"TEST_SHARD_INDEX=-1 TEST_TOTAL_SHARDS=2", "", "TEST_SHARD_INDEX=-1 is not a shard index"},
                   Case{"TEST_SHARD_INDEX=0 TEST_TOTAL_SHARDS=1 TEST_SHARD_STATUS_FILE=/nonexistent/dir/status", "",
                        "cannot touch TEST_SHARD_STATUS_FILE /nonexistent/dir/status"},
                   // a variable that cannot be read is an error even beside --shard: the job is not what it seems
                   Case{"TEST_SHARD_INDEX=x TEST_TOTAL_SHARDS=2", "--shard 2/2", "TEST_SHARD_INDEX=x is not a shard index"},
                   Case{"TEST_SHARD_INDEX=0 TEST_TOTAL_SHARDS=2", "--shard 2/2",
                        "the shard is 2/2 by --shard but 1/2 by Bazel (TEST_SHARD_INDEX, TEST_TOTAL_SHARDS): two sources disagree"},
                   Case{"GTEST_SHARD_INDEX=0 GTEST_TOTAL_SHARDS=2 CI_NODE_INDEX=2 CI_NODE_TOTAL=2", "",
                        "the shard is 1/2 by GoogleTest (GTEST_SHARD_INDEX, GTEST_TOTAL_SHARDS) but 2/2 by GitLab (CI_NODE_INDEX, CI_NODE_TOTAL)"},
                   Case{"CI_NODE_INDEX=0 CI_NODE_TOTAL=2", "", "CI_NODE_INDEX=0 is not a shard index from 1 to 2"},
                   Case{"JOB_COMPLETION_INDEX=0", "", "JOB_COMPLETION_INDEX is set without the number of shards: give --shards N or PLANECHECK_SHARDS"},
                   Case{"", "--shard hash:0/2", "--shard hash:0/2: it takes I/N with 1 <= I <= N"}}) {
        Result r = run_with(c.env, std::string("run ") + c.options + " " + file);
        EXPECT_EQ(r.status, 2) << c.env;
        EXPECT_TRUE(has(r, c.message)) << c.env << "\n" << r.output;
    }
}

// The limits of a run against a device: values that cannot hold are refused before any file
// runs; a failed file runs again, an invalid one does not; -x leaves the rest not run.
TEST(Cli, RetriesRunAFailedFileAgainAndMaxFailStopsTheRun) {
    const std::string mismatch = scenario("mismatch.yaml"), clean = scenario("clean.yaml"), invalid = scenario("bad_step.yaml");
    for (const char *refused : {"--timeout 0", "--timeout -1", "--slow 0", "--retries -1", "--max-fail 0", "-x --max-fail 2"}) {
        Result r = run_with("", std::string("run ") + refused + " " + clean);
        EXPECT_EQ(r.status, 2) << refused << "\n" << r.output;
        EXPECT_FALSE(has(r, "planecheck: PASSED")) << refused;
    }
    Result retried = run_with("", "run -q --retries 2 " + mismatch + " " + invalid + " " + clean);
    EXPECT_EQ(retried.status, 2) << retried.output;
    EXPECT_EQ(count(retried.output, ": attempt "), 2u) << retried.output; // attempts 1 and 2 of the mismatch, none of the invalid file
    EXPECT_TRUE(has(retried, mismatch + ": attempt 2 of 3 failed: 3 steps, 2 mismatches, 0 value errors; it runs again on a fresh worker"));
    EXPECT_EQ(count(retried.output, "mismatch.yaml:6: dpa_test_if_create: EEXIST"), 3u) << "each attempt's own output is kept";
    for (const char *stop : {"-x", "--max-fail 1"}) {
        Result stopped = run_with("", std::string("run -q ") + stop + " " + mismatch + " " + clean + " " + clean);
        EXPECT_EQ(stopped.status, 1) << stop;
        EXPECT_TRUE(has(stopped, "planecheck: FAILED: 3 files, 3 steps, 2 mismatches, 0 value errors, 2 files not run")) << stopped.output;
    }
    Result enough = run_with("", "run -q --max-fail 2 " + mismatch + " " + clean + " " + clean);
    EXPECT_TRUE(has(enough, "planecheck: FAILED: 3 files, 23 steps, 2 mismatches, 0 value errors\n")) << enough.output;
}

// "LINE: function" of each platform call in `text`, whose lines are "PREFIXLINE: function(...)...".
std::vector<std::string> platform_calls(const std::string &text, const std::string &prefix) {
    std::vector<std::string> calls;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, prefix.size(), prefix) != 0) continue;
        size_t colon = line.find(": ", prefix.size()), paren = line.find('(', colon);
        if (colon == std::string::npos || paren == std::string::npos) continue;
        std::string name = line.substr(colon + 2, paren - colon - 2);
        if (name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") != std::string::npos) continue;
        calls.push_back(line.substr(prefix.size(), colon - prefix.size()) + ": " + name);
    }
    return calls;
}

// --trace shows the calls the scripted C platform receives for the same scenario, each at the
// line of its record, with what simplane answered.
TEST(Cli, TraceShowsEveryPlatformCallAtTheLineOfItsRecord) {
    std::string dir = std::string(PC_SOURCE_DIR) + "/tests/scripted_platform/", file = dir + "calls.yaml";
    Result traced = run("run --trace " + file);
    EXPECT_EQ(traced.status, 0) << traced.output;
    std::vector<std::string> calls = platform_calls(traced.output, file + ":");
    EXPECT_EQ(calls, platform_calls(read_file(dir + "calls.expected"), ""));
    for (const char *line : {":6: dpa_test_if_ctor() = obj1\n", ":6: dpa_test_if_set_attr_a1(obj1, 5)\n",
                             ":6: dpa_test_if_create(obj1) = 0\n", ":6: dpa_test_if_get_hdl(obj1) = 4097\n",
                             ":7: dpa_test_if_get_attr_a1(obj2) = 5\n", ":9: dpa_test_if_create(obj3) = 12\n",
                             ":9: dpa_error_inject_start(\"test_if create\")\n", ":10: ofa_client_test_if_batch_enq(obj6, 2) = 0\n"})
        EXPECT_TRUE(has(traced, file + line)) << line << "\n" << traced.output;
    EXPECT_TRUE(platform_calls(run("run " + file).output, file + ":").empty());
}

// diff and replay as scripts use them: exit codes, both output forms, the replayed scenario.
TEST(Cli, DiffAndReplayOfARecording) {
    std::string dir = testing::TempDir() + "cli_recording_" + std::to_string(getpid());
    std::string a = dir + ".a.rec", b = dir + ".b.rec", scenario_out = dir + ".yaml";
    ASSERT_EQ(run("run -q --recorder " + a + " " + PC_SOURCE_DIR + "/examples/hello.yaml").status, 0);
    ASSERT_EQ(run("replay -q --recorder " + b + " " + a).status, 0);
    std::string text = read_file(a);
    text.replace(text.find("\"attr_a1\": 6"), 12, "\"attr_a1\": 7");
    std::string one = pc::test::write_file(dir + ".one.rec", text);
    text.replace(text.find("\"attr_a3\": 9"), 12, "\"attr_a3\": 8");
    std::string two = pc::test::write_file(dir + ".two.rec", text);
    std::string cut = pc::test::write_file(dir + ".cut.rec", text.substr(0, 2000)); // cut inside a record
    pc::test::expect_says({ // in order: the check reads the scenario the replay writes
        {"replay --write-scenario " + scenario_out + " " + a, 0, {"15 operations of 15 records written to"}},
        {"check " + scenario_out, 0, {}},
        {"diff " + a + " " + b, 0, {"planecheck diff: equal (15 records)"}},
        {"diff " + a + " " + one, 1, {"(record 2) / " + one + ":19 (record 2): send_object test_if create: attr_a1: 6 | 7"}},
        {"diff --ignore attr_a1 " + a + " " + one, 0, {}},
        {"diff --ignore attr_a1 " + a + " " + two, 1, {}},
        {"diff --ignore attr_a1 " + a + " --ignore attr_a3 " + two, 0, {}}, // repeatable, anywhere
        {"diff " + a + " " + cut, 2, {cut + ":107: record 7 (from line 107) cannot be read: the file ends inside line 114 (truncated)"}},
        {"replay --write-scenario " + dir + ".cut.yaml " + cut, 1, {"1 of 7 records left out"}},
    });
    Result json = pc::test::run_command(std::string(PC_PLANECHECK) + " diff --json " + a + " " + one + " 2>/dev/null");
    EXPECT_TRUE(has(json, R"("field": "attr_a1", "value_a": "6", "value_b": "7"})")) << json.output;
    EXPECT_TRUE(has(json, R"("changed": 1, "only_in_a": 0, "only_in_b": 0, "unreadable": 0, "equal": false})")) << json.output;
}

} // namespace
