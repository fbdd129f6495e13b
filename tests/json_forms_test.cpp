// JSON and JSON Lines scenario files: the same values, results and recorder output as the YAML
// form of the same scenario, and messages that name the file, line and column.
#include "files.hpp"
#include "harness.hpp"
#include "loader.hpp"
#include "file_run.hpp"
#include "scenario.hpp"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <future>
#include <regex>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using pc::test::temp_file;

struct Outcome {
    pc::runner::FileResult result;
    std::string recording;
};

Outcome run(const std::string &suffix, const std::string &text) {
    std::string path = temp_file(suffix, text);
    Outcome out;
    pc::recorder::to_string(&out.recording);
    pc::runner::Options options;
    options.quiet = true;
    options.steps = stderr;
    out.result = pc::runner::run_file(path, options);
    pc::recorder::close();
    std::remove(path.c_str());
    out.recording = pc::test::mask_timestamps(out.recording);
    return out;
}

// "PATH:LINE:COL: message" without the temporary path.
std::string where(const std::string &message) { return message.substr(message.find(':') + 1); }

// The same scenario in the three forms: creates with members, an SDK-side answer, a get that
// finds one difference, an unknown key, a delete and the expect that accounts for it all.
const char *kYaml = R"(name: forms
config: { mode: client }
steps:
  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5, perf_test_enabled: true, rdesc_id_test1: { pool: 1, index: 2 } } ] }
    sdk: { test_if: [ { op: create, key_a: 1, attr_a1: 5, rc: 0 } ] }
  - send: { nhgroup: [ { op: create, nhgroup_id: 7, fec_id: "0x10", members: [ { is_protected: true, forward_class: 2 }, { forward_class: 3 } ] } ] }
  - send: { test_if: [ { op: get, key_a: 1, attr_a1: 6, no_such_key: 1 } ] }
  - send: { test_if: [ { op: delete, key_a: 1 } ] }
  - expect: { mismatches: 1, value_errors: 1 }
)";

const char *kJson = R"({"name": "forms", "config": {"mode": "client"}, "steps": [
  {"send": {"test_if": [{"op": "create", "key_a": 1, "attr_a1": 5, "perf_test_enabled": true, "rdesc_id_test1": {"pool": 1, "index": 2}}]},
   "sdk": {"test_if": [{"op": "create", "key_a": 1, "attr_a1": 5, "rc": 0}]}},
  {"send": {"nhgroup": [{"op": "create", "nhgroup_id": 7, "fec_id": "0x10", "members": [{"is_protected": true, "forward_class": 2}, {"forward_class": 3}]}]}},
  {"send": {"test_if": [{"op": "get", "key_a": 1, "attr_a1": 6, "no_such_key": 1}]}},
  {"send": {"test_if": [{"op": "delete", "key_a": 1}]}},
  {"expect": {"mismatches": 1, "value_errors": 1}}
]}
)";

const char *kJsonLines = "{\"name\": \"forms\", \"config\": {\"mode\": \"client\"}}\n"
    "{\"send\": {\"test_if\": [{\"op\": \"create\", \"key_a\": 1, \"attr_a1\": 5, \"perf_test_enabled\": true, \"rdesc_id_test1\": {\"pool\": 1, \"index\": 2}}]}, "
    "\"sdk\": {\"test_if\": [{\"op\": \"create\", \"key_a\": 1, \"attr_a1\": 5, \"rc\": 0}]}}\n"
    "\r\n" // a blank line (with a carriage return) is skipped
    "{\"send\": {\"nhgroup\": [{\"op\": \"create\", \"nhgroup_id\": 7, \"fec_id\": \"0x10\", \"members\": [{\"is_protected\": true, \"forward_class\": 2}, {\"forward_class\": 3}]}]}}\r\n"
    "{\"send\": {\"test_if\": [{\"op\": \"get\", \"key_a\": 1, \"attr_a1\": 6, \"no_such_key\": 1}]}}\n"
    "{\"send\": {\"test_if\": [{\"op\": \"delete\", \"key_a\": 1}]}}\n"
    "{\"expect\": {\"mismatches\": 1, \"value_errors\": 1}}"; // the last line without its newline

TEST(JsonForms, GiveTheResultsAndTheRecordingOfTheYamlForm) {
    Outcome yaml = run(".yaml", kYaml), json = run(".json", kJson), lines = run(".jsonl", kJsonLines);
    ASSERT_FALSE(yaml.result.invalid) << yaml.result.error;
    EXPECT_TRUE(yaml.result.passed());
    EXPECT_NE(yaml.recording.find("\"nhgroup\""), std::string::npos); // the comparison below compares something
    for (const Outcome *o : {&json, &lines}) {
        ASSERT_FALSE(o->result.invalid) << o->result.error;
        EXPECT_EQ(o->result.steps, 5u);
        EXPECT_EQ(o->result.mismatches, 1u);
        EXPECT_EQ(o->result.value_errors, 1u);
        EXPECT_TRUE(o->result.passed());
        EXPECT_EQ(o->recording, yaml.recording);
    }
    // findings name the line of the record in each form; a value error adds the value's column
    ASSERT_FALSE(lines.result.findings.empty());
    const std::regex on_line_5("^5(:[0-9]+)?: ");
    for (const std::string &f : lines.result.findings) EXPECT_TRUE(std::regex_search(where(f), on_line_5)) << f;
    for (const std::string &f : json.result.findings) EXPECT_TRUE(std::regex_search(where(f), on_line_5)) << f;
}

// JSON is YAML: the same text read by either reader gives the same values, down to each
// value's line and column and to how each number was written.
JSON_Value *read_whole(const std::string &path, pc::Arena &arena, pc::load::LoadError &error) {
    auto reader = pc::load::open_document(path, error);
    bool empty = false;
    JSON_Value *v = reader && reader->begin_document(empty, error) ? reader->read_value(arena, error) : nullptr;
    std::remove(path.c_str());
    return v;
}

TEST(JsonForms, ValuesMatchTheYamlReadersDownToLinesColumnsAndNumberKinds) {
    const std::string text = "{\"a\": [1, -2, 18446744073709551615, -9223372036854775808, 1.5, 2e3],\n"
                             "  \"s\": \"caf\\u00e9 \\\"q\\\" \\n\", \"t\": true, \"f\": false, \"n\": null,\n"
                             "  \"deep\": {\"x\": {\"y\": []}, \"z\": {}}, \"hex\": \"0x10\"}\n";
    pc::Arena arena;
    pc::load::LoadError error;
    JSON_Value *from_yaml = read_whole(temp_file(".yaml", text), arena, error);
    ASSERT_TRUE(from_yaml) << error.text();
    JSON_Value *from_json = read_whole(temp_file(".json", text), arena, error);
    ASSERT_TRUE(from_json) << error.text();
    EXPECT_EQ(pc::test::value_text(from_json), pc::test::value_text(from_yaml));
}

// The loader's refusal of an integer literal beyond 64 bits, as each form words it.
std::string too_wide(const std::string &literal) {
    return "the integer " + literal + " does not fit in 64 bits (-9223372036854775808 to 18446744073709551615)";
}

TEST(JsonForms, MessagesNameLineAndColumn) {
    struct Case {
        const char *suffix;
        std::string text;
        std::string error;
    } cases[] = {
        {".jsonl", "{\"config\": {\"mode\": \"client\"}}\n{\"send\": {\"test_if\": [{\"op\": \"create\", \"op\": \"get\"}]}}\n",
         "2:40: duplicate key 'op'"},
        {".jsonl", "{\"config\": {\"colour\": 1}}\n", "1:23: unknown config key 'colour'"},
        {".jsonl", "{\"config\": {}, \"steps\": []}\n", "1:25: the first line holds only name and config; 'steps' belongs to a step"},
        {".jsonl", "{\"name\": \"x\"}\n\n[1, 2]\n", "3:1: each line is one JSON object"},
        {".jsonl", "{\"expect\": {}} {\"expect\": {}}\n", "1:16: more than one JSON value"},
        {".jsonl", "{\"expect\": {}}\n{\"expect\": {\"mismatches\": tru}}\n", "2:27: malformed JSON"},
        {".jsonl", "{\"expect\": {}}\n{\"send\": \"text\n", "2:1: a string is not closed"},
        {".jsonl", "{\"expect\": {}}\n{\"bogus\": 1}\n", "2:11: unknown step kind 'bogus'"},
        {".jsonl", "{\"expect\": {\"mismatches\": 00}}\n", "1:27: malformed number"},
        {".jsonl", std::string("{\"expect\": {}}\n\0\0\n", 18), "2:1: "}, // a line of NUL bytes is not blank
        {".json", "{\"steps\": [\n  {\"expect\": {\"mismatches\": 1, \"mismatches\": 2}}\n]}\n", "2:32: duplicate key 'mismatches'"},
        {".json", "{\"colour\": 1, \"steps\": []}\n", "1:2: unknown top-level key 'colour'"},
        {".json", "{\"steps\": {\"send\": 1}}\n", "1:11: expected a sequence"},
        {".json", "{\"steps\": [], \"config\": {}}\n", "1:15: config: must come before steps:"},
        {".json", "{\"steps\": []}\n{}\n", "2:1: more than one JSON value"},
        {".json", "[1]\n", "1:1: a scenario is a mapping"},
        {".json", "{\"steps\": [\n  {\"expect\": {\"mismatches\": -1}}\n]}\n", "2:29: mismatches: is a whole number"},
        {".yaml", "steps:\n  - expect:\n      mismatches: 1\n      mismatches: 2\n", "4:7: duplicate key 'mismatches'"},
        {".yaml", "steps:\n  - expect: *nowhere\n", "2:13: unknown anchor 'nowhere'"},
        {".yaml", "steps:\n  - send: { test_if: [ { op: get }\n", "3:1: did not find expected ',' or ']'"},
        {".yaml", "steps: " + std::string(300, '[') + std::string(300, ']') + "\n", "1:210: nesting deeper than 200 levels"},
        // integers beyond 64 bits, in each form and each way YAML writes one
        {".yaml", "steps:\n  - expect: { mismatches: 0x1ffffffffffffffff }\n", "2:27: " + too_wide("0x1ffffffffffffffff")},
        {".yaml", "steps:\n  - expect: { mismatches: 18446744073709551616 }\n", "2:27: " + too_wide("18446744073709551616")},
        {".yaml", "steps:\n  - expect: { mismatches: -9223372036854775809 }\n", "2:27: " + too_wide("-9223372036854775809")},
        {".yaml", "steps:\n  - expect: { mismatches: 0o2000000000000000000000 }\n", "2:27: " + too_wide("0o2000000000000000000000")},
        {".json", "{\"steps\": [{\"expect\": {\"mismatches\": 99999999999999999999999}}]}\n", "1:38: " + too_wide("99999999999999999999999")},
        {".jsonl", "{\"expect\": {\"mismatches\": 99999999999999999999999}}\n",
         "1:27: " + too_wide("99999999999999999999999") + "; a field wider than 64 bits takes its value quoted, as text: \"99999999999999999999999\""},
    };
    for (const Case &c : cases) {
        Outcome o = run(c.suffix, c.text);
        EXPECT_TRUE(o.result.invalid) << c.text;
        EXPECT_EQ(where(o.result.error).rfind(c.error, 0), 0u) << c.text << " gave " << o.result.error;
    }
}

// Lines cut by the window's edge are carried into the next fill, and a line longer than the window
// is read whole: every step is read once and the line numbers stay exact over several megabytes.
TEST(JsonForms, JsonLinesReadsLongLinesAndCountsLinesAcrossWindowRefills) {
    // one step of 20000 records: a line of more than a megabyte, beyond the reader's first window
    std::string line = "{\"send\": {\"test_if\": [";
    for (int i = 0; i < 20000; ++i) line += (i ? ", " : "") + std::string("{\"op\": \"create\", \"key_a\": ") + std::to_string(i) + ", \"attr_a1\": 12345678}";
    line += "]}}\n";
    ASSERT_GT(line.size(), size_t(1) << 20);
    std::string text = "{\"config\": {\"mode\": \"server\"}}\n" + line;
    const int steps = 60000; // about 2.5 MB more: several fills of a 1 MiB window
    for (int i = 0; i < steps; ++i) text += "{\"expect\": {\"mismatches\": " + std::string(i % 7 ? "0" : " 0") + "}}\n";
    text += "{\"expect\": {\"mismatches\": 0, \"bogus\": 1}}\n";
    Outcome o = run(".jsonl", text);
    EXPECT_TRUE(o.result.invalid);
    EXPECT_EQ(o.result.steps, size_t(steps) + 2);
    EXPECT_EQ(o.result.mismatches + o.result.value_errors, 0u);
    EXPECT_EQ(where(o.result.error).rfind(std::to_string(steps + 3) + ":39: expect: has no 'bogus'", 0), 0u) << o.result.error;

    for (const char *empty : {"", "\n  \n"}) { // like a test runner that collected nothing: not a pass
        Outcome e = run(".jsonl", empty);
        EXPECT_TRUE(e.result.invalid);
        EXPECT_NE(e.result.error.find("the file has no steps"), std::string::npos) << e.result.error;
    }
}

// Mappings beyond a short scan find duplicates through a hash table kept per nesting level; a
// large mapping inside a large one must not confuse the two, and distinct keys never collide.
TEST(JsonForms, DuplicateKeysAreFoundInLargeAndNestedMappingsOfEveryForm) {
    auto mapping = [](int n, const std::string &inner, int duplicate_at) {
        std::string text = "{";
        for (int i = 0; i < n; ++i) {
            std::string key = i == duplicate_at ? "k3" : "k" + std::to_string(i);
            text += (i ? ", \"" : "\"") + key + "\": " + (i == 30 && !inner.empty() ? inner : std::to_string(i));
        }
        return text + "}";
    };
    std::string inner_clean = mapping(60, "", -1), inner_dup = mapping(60, "", 50);
    struct Case {
        std::string text;
        bool duplicate;
    } cases[] = {
        {mapping(100, inner_clean, -1), false},
        {mapping(100, inner_clean, 80), true}, // in the outer mapping, after the inner one closed
        {mapping(100, inner_dup, -1), true},   // in the inner mapping
        {mapping(20, "", 19), true},           // a short mapping, found by the scan
    };
    for (const Case &c : cases)
        for (const char *suffix : {".yaml", ".json"}) {
            pc::Arena arena;
            pc::load::LoadError error;
            JSON_Value *v = read_whole(temp_file(suffix, c.text + "\n"), arena, error);
            EXPECT_EQ(v == nullptr, c.duplicate) << suffix << ": " << error.text();
            if (c.duplicate) {
                EXPECT_NE(error.message.find("duplicate key 'k3'"), std::string::npos) << error.text();
            }
        }
}

TEST(JsonForms, AFirstLineWithAStepKindIsAStepEvenWithAName) {
    Outcome o = run(".jsonl", "{\"name\": \"first\", \"send\": {\"test_if\": [{\"op\": \"create\", \"key_a\": 1}]}}\n"
                              "{\"expect\": {\"mismatches\": 0}}\n");
    EXPECT_FALSE(o.result.invalid) << o.result.error;
    EXPECT_EQ(o.result.steps, 2u);
    EXPECT_NE(o.recording.find("\"op\": \"create\""), std::string::npos);
}

// A generator feeding a JSON Lines file through a pipe: each complete line is read at once,
// while the generator keeps the pipe open for more.
TEST(JsonForms, JsonLinesFromAPipeGivesEachLineAsSoonAsItIsComplete) {
    std::string fifo = testing::TempDir() + "forms_fifo_" + std::to_string(getpid()) + ".jsonl";
    std::remove(fifo.c_str());
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    int writer = open(fifo.c_str(), O_RDWR); // holds the pipe open, as a generator that is not done
    ASSERT_GE(writer, 0);
    const std::string lines = "{\"name\": \"fed\"}\n{\"expect\": {\"mismatches\": 0}}\n";
    ASSERT_EQ(write(writer, lines.data(), lines.size()), ssize_t(lines.size()));
    auto first_step = std::async(std::launch::async, [&fifo] {
        pc::runner::ScenarioReader reader;
        pc::yaml::LoadError error;
        pc::runner::Step step;
        bool done = false;
        bool ok = reader.open(fifo, error) && reader.read_header(error) && reader.next_step(step, done, error);
        return ok && !done ? step.line : 0u;
    });
    bool in_time = first_step.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    close(writer); // the end of the input frees a reader that is still waiting
    EXPECT_TRUE(in_time) << "the complete line waited for more input";
    EXPECT_EQ(first_step.get(), 2u);
    std::remove(fifo.c_str());
}

} // namespace
