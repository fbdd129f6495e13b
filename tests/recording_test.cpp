// The recording tools: the reader of the recorder format, diff and replay, and the round trip
// that proves replay faithful: run with a recorder, replay that recording with another, and the
// two recordings compare equal.
#include "files.hpp"
#include "descriptors.hpp"
#include "common.hpp"
#include "recorder_sink.hpp"
#include "recording/diff.hpp"
#include "recording/json_text.hpp"
#include "recording/reader.hpp"
#include "recording/replay.hpp"
#include "replay.hpp"
#include "file_run.hpp"
#include "samples.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <tuple>
#include <unistd.h>

namespace {

using namespace pc::recording;

std::string temp_path(const char *suffix) { return pc::test::temp_file(suffix); }
std::string write_temp(const std::string &text, const char *suffix) { return pc::test::temp_file(suffix, text); }
using pc::test::read_file;

// Runs a scenario with the recorder on; the run must pass.
void record_run(const std::string &scenario, const std::string &recording) {
    ASSERT_TRUE(pc::recorder::open_file(recording));
    pc::runner::Options options;
    options.quiet = true;
    pc::runner::FileResult result = pc::runner::run_file(scenario, options);
    pc::recorder::close();
    ASSERT_TRUE(result.passed()) << scenario << ": " << result.error << (result.findings.empty() ? "" : result.findings[0]);
}

std::vector<Problem> problems_of_replay(const std::string &recording, const std::string &scenario, ReplaySummary &summary) {
    std::vector<Problem> problems;
    FILE *out = std::fopen(scenario.c_str(), "w");
    summary = write_scenario(recording, out, {}, [&](const Problem &p) { problems.push_back(p); });
    std::fclose(out);
    return problems;
}

struct DiffOutcome {
    DiffSummary summary;
    std::vector<Difference> differences;
    std::vector<Problem> problems;
};

DiffOutcome diff(const std::string &a, const std::string &b, DiffOptions options = {}) {
    DiffOutcome o;
    o.summary = diff_recordings(a, b, options, [&](const Difference &d) { o.differences.push_back(d); },
                                [&](const Problem &p) { o.problems.push_back(p); });
    return o;
}

void expect_equal(const std::string &a, const std::string &b, const std::string &what) {
    DiffOutcome d = diff(a, b);
    EXPECT_GT(d.summary.records_a, 0u);
    EXPECT_EQ(d.summary.exit_code(), 0) << what << ": " << (d.differences.empty() ? "" : difference_text(d.differences[0], a, b));
}

// Run, replay, run the replay, and compare; returns the first recording. The replay runs both
// ways: straight from the recording, and through the scenario file it writes.
std::string round_trip(const std::string &scenario) {
    std::string a = temp_path(".rec"), b = temp_path(".rec"), c = temp_path(".rec"), replayed = temp_path(".yaml");
    record_run(scenario, a);
    ReplaySummary summary;
    std::vector<Problem> problems = problems_of_replay(a, replayed, summary);
    EXPECT_TRUE(problems.empty()) << problems[0].text();
    record_run(replayed, b);
    expect_equal(a, b, scenario + " replayed as " + replayed);

    EXPECT_TRUE(pc::recorder::open_file(c)) << c;
    pc::runner::Options options;
    options.quiet = true;
    pc::runner::FileResult direct = pc::runner::run_replayed(a, {}, options, summary);
    pc::recorder::close();
    EXPECT_TRUE(direct.passed()) << (direct.findings.empty() ? direct.error : direct.findings[0]);
    EXPECT_EQ(summary.problems, 0u);
    expect_equal(a, c, scenario + " replayed straight from " + a);
    return a;
}

TEST(RecordingReader, ReadsRecordsWithMembersTimeStampsAndEveryEntryField) {
    std::string text = read_file(std::string(PC_GOLDEN_DIR) + "/nhgroup.rec");
    // the goldens hold placeholders where times stand
    text = std::regex_replace(text, std::regex("\"tv_sec\": S"), "\"tv_sec\": 17");
    text = std::regex_replace(text, std::regex("\"tv_nsec\": N"), "\"tv_nsec\": 5");
    Reader reader;
    std::string error;
    ASSERT_TRUE(reader.open(write_temp(text, ".rec"), error));
    std::vector<Problem> problems;
    reader.on_problem([&](const Problem &p) { problems.push_back(p); });
    Record r;
    ASSERT_TRUE(reader.next(r));
    EXPECT_EQ(r.type, "lspnh");
    ASSERT_TRUE(reader.next(r));
    EXPECT_EQ(r.number, 2u);
    EXPECT_EQ(r.line, 17u);
    EXPECT_EQ(r.section, "send_object");
    ASSERT_EQ(r.entries.size(), 1u);
    const Entry &e = r.entries[0];
    ASSERT_EQ(e.members.size(), 2u);
    EXPECT_EQ(e.members[1].fields[1].name, "backup_next_obj_exceptionnh_refkey");
    EXPECT_EQ(e.find("pbts_tcminfo")->value, R"({"fc": 2, "dp": 0, "tc": 0, "valid": false})");
    EXPECT_EQ(e.find("recorder_timestamp")->value, R"({"tv_sec": 17, "tv_nsec": 5})");
    EXPECT_EQ(e.find("op")->value, "\"create\"");
    EXPECT_EQ(e.fields[e.members_at].name, "hdl"); // the members list stood before the handle
    while (reader.next(r)) {
    }
    EXPECT_TRUE(problems.empty()) << problems[0].text();
}

TEST(RecordingReader, ReportsWhatItCannotReadWithItsLineAndGoesOn) {
    auto record = [](const std::string &fields) {
        return "{\n \"send_object\": {\n    \"test_if\": [\n      {\n" + fields + "      \"op\": \"get\"\n      }\n    ]\n  }\n},\n";
    };
    std::string good = record("      \"key_a\": 1,\n");
    std::string text = good                                               // lines 1-10
                       + "garbage\n"                                      // 11
                       + record("      \"key_a\": 1x,\n")                 // 12-21: garbled at 16
                       + good                                             // 22-31
                       + "{\n \"send_object\": {\n    \"test_if\": [\n";  // 32-34: cut short
    Reader reader;
    std::string error;
    ASSERT_TRUE(reader.open(write_temp(text, ".rec"), error));
    std::vector<Problem> problems;
    reader.on_problem([&](const Problem &p) { problems.push_back(p); });
    std::vector<uint32_t> lines;
    for (Record r; reader.next(r);) lines.push_back(r.line);
    EXPECT_EQ(lines, (std::vector<uint32_t>{1, 22}));
    ASSERT_EQ(problems.size(), 3u);
    EXPECT_EQ(problems[0].line, 11u);
    EXPECT_EQ(problems[1].line, 16u);
    EXPECT_NE(problems[1].message.find("\"key_a\" is not a value"), std::string::npos) << problems[1].message;
    EXPECT_EQ(problems[2].line, 32u);
    EXPECT_NE(problems[2].message.find("truncated"), std::string::npos) << problems[2].message;
    EXPECT_EQ(reader.records_seen(), 4u);
}

TEST(RecordingReader, TellsJsonValuesFromGarbledText) {
    for (const char *ok : {"1", "-2", "\"a\\\"b\"", "{\"a\": [1, 2], \"b\": {}}", "[]", "true", "1.5e3"})
        EXPECT_TRUE(is_json_value(ok)) << ok;
    for (const char *bad : {"", "1x", "\"open", "{\"a\" 1}", "[1,]", "tru", "{", "1 2"}) EXPECT_FALSE(is_json_value(bad)) << bad;
}

TEST(RecordingReader, LongLinesWindowsLineEndsAndEmptyFiles) {
    std::string huge(3 << 20, 'x'); // longer than the reading buffer
    std::string text = "{\r\n \"send_object\": {\r\n    \"test_if\": [\r\n      {\r\n      \"name\": \"" + huge +
                       "\",\r\n      \"op\": \"get\"\r\n      }\r\n    ]\r\n  }\r\n},\r\n";
    Reader reader;
    std::string error;
    ASSERT_TRUE(reader.open(write_temp(text + text, ".rec"), error));
    Record r;
    ASSERT_TRUE(reader.next(r));
    EXPECT_EQ(r.entries[0].fields[0].value.size(), huge.size() + 2);
    ASSERT_TRUE(reader.next(r));
    EXPECT_EQ(r.line, 11u);
    EXPECT_FALSE(reader.next(r));
    EXPECT_EQ(reader.problems(), 0u);

    Reader empty;
    ASSERT_TRUE(empty.open(write_temp("", ".rec"), error));
    EXPECT_FALSE(empty.next(r));
    EXPECT_FALSE(Reader().open("/nonexistent/x.rec", error));
    EXPECT_NE(error.find("/nonexistent/x.rec: cannot read the recording"), std::string::npos) << error;

    std::vector<std::string> lines;
    ASSERT_TRUE(for_each_line(write_temp("a\n\nb", ".txt"), [&](std::string_view l) { lines.emplace_back(l); }));
    EXPECT_EQ(lines, (std::vector<std::string>{"a", "", "b"}));
}

TEST(RecordingJsonText, BuildsWhatTheRecorderWritesAndNothingElse) {
    pc::Arena arena;
    JSON_Value *v = parse_json(arena, R"({"a": [1, -2, 3.5], "b": "x\"y\u00e9", "c": {}, "d": null, "e": true})", 7);
    ASSERT_NE(v, nullptr);
    const JSON_Object *o = json_value_get_object(v);
    ASSERT_EQ(json_object_get_count(o), 5u);
    EXPECT_EQ(json_array_get_count(json_value_get_array(json_object_get_value(o, "a"))), 3u);
    EXPECT_EQ(json_value_get_number(json_array_get_value(json_value_get_array(json_object_get_value(o, "a")), 1)), -2);
    EXPECT_STREQ(json_value_get_string(json_object_get_value(o, "b")), "x\"y\xc3\xa9");
    EXPECT_EQ(json_value_get_type(json_object_get_value(o, "d")), JSONNull);
    EXPECT_EQ(pc_json_line(json_object_get_value(o, "e")), 7u);
    JSON_Value *big = parse_json(arena, "18446744073709551000", 1);
    uint64_t u = 0;
    ASSERT_NE(big, nullptr);
    EXPECT_TRUE(pc_json_get_uint64(big, &u));
    EXPECT_EQ(u, 18446744073709551000ull); // exact, not through a double
    // bare words are YAML, not JSON: a garbled value must not turn into a string
    for (const char *bad : {"banana", "\"open", "[1,", "{\"a\" 1}", "{a: 1}", "1 2", "Null"}) EXPECT_EQ(parse_json(arena, bad, 1), nullptr) << bad;
}

// Two runs of one scenario, the second as if on another machine: other handles, other times.
class RecordingDiff : public testing::Test {
protected:
    void SetUp() override {
        std::string scenario = write_temp(R"(
config: { mode: server }
steps:
  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5, hdl: one }, { op: create, key_a: 2, attr_a1: 6, testethport_refhdl: one } ] }
  - send: { test_if: [ { op: get, key_a: 1 }, { op: get, key_a: 2 }, { op: delete, key_a: 1 }, { op: delete, key_a: 2 } ] }
)", ".yaml");
        a_ = temp_path(".rec");
        record_run(scenario, a_);
        std::string b = temp_path(".rec");
        record_run(scenario, b);
        b_text_ = std::regex_replace(read_file(b), std::regex("0x100"), "0x7a0");
    }

    // B after an edit of its text.
    std::string b_with(const std::string &from, const std::string &to, int nth = 1) {
        std::string text = b_text_;
        size_t at = std::string::npos;
        for (int i = 0; i < nth; ++i) at = text.find(from, at == std::string::npos ? 0 : at + 1);
        EXPECT_NE(at, std::string::npos) << from;
        if (at != std::string::npos) text.replace(at, from.size(), to);
        return write_temp(text, ".rec");
    }

    std::string a_, b_text_;
};

// Every difference as the diff prints it, without the line numbers.
std::string differences_of(const DiffOutcome &d) {
    std::string out;
    for (const Difference &x : d.differences) out += std::regex_replace(difference_text(x, "a", "b"), std::regex("([ab]):[0-9]+ "), "$1:L ") + "\n";
    return out;
}

TEST_F(RecordingDiff, FindsEachKindOfDifferenceWithBothRecordNumbers) {
    // B without its third record (the get of key 1)
    size_t third = 0;
    for (int i = 0; i < 3; ++i) third = b_text_.find("{\n \"", third + (i ? 1 : 0));
    size_t fourth = b_text_.find("{\n \"", third + 1);
    std::string without_third = write_temp(b_text_.substr(0, third) + b_text_.substr(fourth), ".rec");
    const struct {
        const char *what;
        std::string a, b;
        int exit;
        std::string differences;
    } rows[] = {
        {"two runs of one scenario, despite handles and times", a_, write_temp(b_text_, ".rec"), 0, ""},
        // the second create's reference names the first object in A, the second object in B
        {"handles that do not correspond", a_, b_with("\"testethport_refhdl\": \"0x7a01\"", "\"testethport_refhdl\": \"0x7a02\""), 1,
         "a:L (record 2) / b:L (record 2): send_object test_if create: testethport_refhdl: \"0x1001\" | \"0x7a02\"\n"},
        {"a changed value", a_, b_with("\"attr_a1\": 6", "\"attr_a1\": 60", 2), 1, // in the get of key 2
         "a:L (record 4) / b:L (record 4): send_object test_if get: attr_a1: 6 | 60\n"},
        {"a changed status", a_, b_with("\"op\": \"delete\"", "\"err\": 2,\n      \"op\": \"delete\""), 1,
         "a:L (record 5) / b:L (record 5): send_object test_if delete: err: (absent) | 2\n"},
        // a gap, not a cascade; B's number says where it would stand in B
        {"a missing record", a_, without_third, 1, "a:L (record 3) / b:L (record 3): send_object test_if get: only in a\n"},
        {"an extra record", without_third, a_, 1, "a:L (record 3) / b:L (record 3): send_object test_if get: only in b\n"},
        {"an extra record at the end", a_, write_temp(b_text_ + b_text_.substr(b_text_.rfind("{\n \"")), ".rec"), 1,
         "a:L (record 7) / b:L (record 7): send_object test_if delete: only in b\n"},
    };
    for (const auto &row : rows) {
        DiffOutcome d = diff(row.a, row.b);
        EXPECT_EQ(d.summary.exit_code(), row.exit) << row.what;
        EXPECT_EQ(differences_of(d), row.differences) << row.what;
    }
    EXPECT_NE(read_file(a_), b_text_);
    EXPECT_EQ(diff(a_, a_).summary.records_a, 6u);
}

TEST_F(RecordingDiff, IgnoredFieldsAndAnUnreadableRecord) {
    DiffOptions ignore;
    ignore.ignore = {"attr_a1"};
    EXPECT_EQ(diff(a_, b_with("\"attr_a1\": 6", "\"attr_a1\": 60", 2), ignore).summary.exit_code(), 0);
    std::string b = b_with("\"attr_a1\": 6", "\"attr_a1\": 6 6");
    DiffOutcome d = diff(a_, b);
    EXPECT_EQ(d.summary.exit_code(), 2);
    ASSERT_EQ(d.problems.size(), 1u);
    EXPECT_EQ(d.problems[0].file, b);
    EXPECT_GT(d.problems[0].line, 0u);
}

TEST(RecordingReplay, ReplaysEverythingElseAndReportsEachBadRecordWithItsLine) {
    std::string scenario = write_temp(R"(
config: { mode: server }
steps:
  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5 }, { op: create, key_a: 2 }, { op: get, key_a: 1 }, { op: delete, key_a: 2 } ] }
)", ".yaml");
    std::string a = temp_path(".rec");
    record_run(scenario, a);
    std::string text = read_file(a);
    text.replace(text.find("\"attr_a1\": 5"), 12, "\"attr_a1\": \"banana\""); // the first record's value
    size_t second = text.find("{\n \"", 1);
    text.replace(text.find("\"test_if\"", second), 9, "\"no_such_type\"");
    text.resize(text.rfind("\"op\"")); // the last record cut short
    std::string broken = write_temp(text, ".rec");
    ReplaySummary summary;
    std::vector<Problem> problems = problems_of_replay(broken, temp_path(".yaml"), summary);
    ASSERT_EQ(problems.size(), 3u);
    EXPECT_EQ(problems[0].line, 6u); // the refused value's own line
    EXPECT_NE(problems[0].message.find("attr_a1"), std::string::npos) << problems[0].message;
    EXPECT_EQ(problems[1].line, 17u); // the second record
    EXPECT_NE(problems[1].message.find("no_such_type"), std::string::npos) << problems[1].message;
    EXPECT_NE(problems[2].message.find("truncated"), std::string::npos) << problems[2].message;
    EXPECT_EQ(summary.records, 4u);
    EXPECT_EQ(summary.operations, 1u); // the get is all that is left
}

// A recording written by hand: what replay makes of records a run of planecheck rarely writes.
std::string replayed_text(const std::string &recording, std::vector<Problem> &problems) {
    std::string out = temp_path(".yaml");
    ReplaySummary summary;
    problems = problems_of_replay(write_temp(recording, ".rec"), out, summary);
    return read_file(out);
}

std::string rec(const std::string &section, const std::string &type, const std::string &fields) {
    return "{\n \"" + section + "\": {\n    \"" + type + "\": [\n      {\n" + fields + "      }\n    ]\n  }\n},\n";
}

TEST(RecordingReplay, SettingsAndStartKeysComeFromWhatTheRecordingShows) {
    std::vector<Problem> problems;
    // l3intf is active only in object set 1; a get_next shows the object it found
    std::string text = replayed_text(rec("send_object", "test_if", "      \"key_a\": 1,\n      \"op\": \"get_first\"\n") +
                                         rec("send_object", "test_if", "      \"key_a\": 5,\n      \"op\": \"get_next\"\n") +
                                         rec("send_object", "test_if", "      \"key_a\": 7,\n      \"err\": 2,\n      \"op\": \"get_next\"\n") +
                                         rec("send_object", "l3intf", "      \"npu_id\": 0,\n      \"op\": \"delete\"\n"),
                                     problems);
    EXPECT_TRUE(problems.empty()) << problems[0].text();
    EXPECT_NE(text.find("object_set: 1"), std::string::npos) << text;
    EXPECT_NE(text.find(R"({ op: "get_next", key_a: 1, rc: 0 })"), std::string::npos) << text; // from the key before it
    EXPECT_NE(text.find(R"({ op: "get_next", key_a: 7, rc: 2 })"), std::string::npos) << text; // a failed one shows its own
}

TEST(RecordingReplay, UnpairedReceivesAndUnreproducibleWalksAreReported) {
    std::vector<Problem> problems;
    replayed_text(rec("receive_call", "test_if", "      \"key_a\": 1,\n      \"op\": \"create\"\n") +
                      rec("send_object", "test_if", "      \"key_a\": 1,\n      \"op\": \"delete\"\n") +
                      rec("send_object", "test_if", "      \"key_a\": 1,\n      \"err\": 17,\n      \"op\": \"walk_bykey\"\n") +
                      rec("send_object", "test_if", "      \"no_such_key\": 1,\n      \"op\": \"delete\"\n"),
                  problems);
    ASSERT_EQ(problems.size(), 3u);
    EXPECT_EQ(problems[0].line, 1u);
    EXPECT_NE(problems[0].message.find("not followed by a client operation of its type and op"), std::string::npos);
    EXPECT_EQ(problems[1].line, 21u);
    EXPECT_NE(problems[1].message.find("the walk recorded status 17"), std::string::npos) << problems[1].message;
    EXPECT_EQ(problems[2].line, 36u); // the key's own line
    EXPECT_NE(problems[2].message.find("\"no_such_key\" is no attribute of test_if"), std::string::npos) << problems[2].message;
}

// The examples, and a table of recordings whose operations are the hard ones to turn back:
// re-issues after injected errors (whose first attempt is what the scenario's record built), per-NPU
// results, SDK-side answers and batches, and every operation that names its object by handle.
TEST(RecordingRoundTrip, ExamplesRetriesNpuResultsSdkAnswersBatchesAndHandles) {
    for (const char *example : {"hello.yaml", "sdk_side.yaml", "catalogue_tour.yaml"}) {
        SCOPED_TRACE(example);
        round_trip(std::string(PC_SOURCE_DIR) + "/examples/" + example);
    }
    // `shows`: what the recording must hold for the row to test what it says
    const struct {
        const char *what, *scenario;
        std::vector<std::string> shows;
    } rows[] = {
        {"created and read with injected errors and NPU results", R"(
config: { mode: client, npus: 4 }
steps:
  - inject: { op: "test_if create", status: ENOMEM, times: 2 }
  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5, hdl: a } ] }
  - inject: { op: "test_if create", status: ENOMEM, times: 1 }
  - send: { test_if: [ { op: create, key_a: 2, rc: ENOMEM } ] }
  - npu_result: { op: "test_if get", results: [0, 5, 0, 7], times: 1 }
  - send: { test_if: [ { op: get, key_a: 1 }, { op: get, key_a: 9, rc: ENOENT }, { op: walk_by_key, key_a: 1 } ] }
  - send: { test_if: [ { op: replay } ] }
  - send: { test_if: [ { op: update, key_a: 1, attr_a3: 4, retry_mode: 1 }, { op: delete, key_a: 1 }, { op: delete, key_a: 1, rc: ENOENT } ] }
)", {}},
        // the data plane hands the handle back only to the attempt that succeeds: the name a later
        // get uses is the created one's, and the update's first attempt has none
        {"a create and an update by key re-issued after injected errors", R"(
config: { mode: server }
steps:
  - inject: { op: "test_if create", status: ENOMEM, times: 1 }
  - send: { test_if: [ { op: create, key_a: 2, attr_a1: 1, hdl: two } ] }
  - inject: { op: "test_if update", status: ENOMEM, times: 2 }
  - send: { test_if: [ { op: update, key_a: 2, attr_a1: 7 } ] }
  - send: { test_if: [ { op: get, hdl: two, key_a: 2 }, { op: delete, key_a: 2 } ] }
)", {R"("attr_a1": 1,\n      "err": 12,)", R"("attr_a1": 7,\n      "err": 12,)", R"("hdl": "handle 0x[0-9a-f]+",(.*\n){0,6}.*"op": "get")"}},
        {"NPU results on the attempts that met an injected error, and on a re-issue only", R"(
config: { mode: client, npus: 4 }
steps:
  - send: { test_if: [ { op: create, key_a: 2, attr_a1: 1 } ] }
  - inject: { op: "test_if update", status: ENOMEM, times: 1 }
  - npu_result: { op: "test_if update", results: [0, 5, 0, 7], times: 1 }
  - send: { test_if: [ { op: update, key_a: 2, attr_a1: 7, npu_result: [0, 5, 0, 7] } ] }
  - inject: { op: "test_if create", status: ENOMEM, times: 2 }
  - npu_result: { op: "test_if create", results: [4], times: 2 }
  - send: { test_if: [ { op: create, key_a: 3, npu_result: [4] } ] }
  - inject: { op: "test_if update", status: ENOMEM, times: 1 }
  - npu_result: { op: "test_if update", results: [0], times: 1 }
  - npu_result: { op: "test_if update", results: [6], times: 1 }
  - send: { test_if: [ { op: update, key_a: 3, attr_a1: 2 } ] }
  - send: { test_if: [ { op: delete, key_a: 2 }, { op: delete, key_a: 3 } ] }
)", {R"("err": 12,\n      "npu_result": \[ 5,7 \])", R"("hdl": "handle 0x[0-9a-f]+",\n      "npu_result": \[ 6 \])"}},
        {"an SDK-side answer to the attempt that ended the injected errors", R"(
config: { mode: client }
steps:
  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5, hdl: if1 } ] }
    sdk:  { test_if: [ { op: create, key_a: 1, attr_a1: 5, rc: 0 } ] }
  - inject: { op: "test_if update", status: ENOMEM, times: 2 }
  - send: { test_if: [ { op: update, key_a: 1, attr_a1: 6 } ] }
    sdk:  { test_if: [ { op: update, attr_a1: 6, rc: 0 } ] }
  - inject: { op: "test_if update", status: ENOMEM, times: 1 }
  - send: { test_if: [ { op: update, key_a: 1, attr_a1: 7, rc: EBUSY } ] }
    sdk:  { test_if: [ { op: update, attr_a1: 7, rc: EBUSY } ] }
  - send: { test_if: [ { op: delete, key_a: 1 } ] }
)", {R"("attr_a1": 6,\n      "err": 12,)", R"("receive_call")"}},
        {"batches, two of them re-issuing their entry after injected errors", R"(
config: { mode: client }
steps:
  - send:
      batch_crud:
        - batch_params: { batch_rc_expect: 0 }
        - test_if: [ { op: create, key_a: 2, attr_a1: 3 } ]
        - nhgroup: [ { op: create, nhgroup_id: 7, members: [ { forward_class: 1 } ] } ]
        - test_if: [ { op: get, key_a: 2 } ]
  - inject: { op: "test_if update", status: ENOMEM, times: 1 }
  - send:
      batch_crud:
        - batch_params: { batch_rc_expect: ENOMEM }
        - test_if: [ { op: update, key_a: 2, attr_a1: 4 } ]
  - inject: { op: "test_if create", status: ENOMEM, times: 2 }
  - send:
      batch_crud:
        - batch_params: { batch_rc_expect: ENOMEM }
        - test_if: [ { op: create, key_a: 3, attr_a1: 4 } ]
  - send:
      batch_crud:
        - batch_params: { batch_rc_expect: 0 }
        - test_if: [ { op: delete, key_a: 2 } ]
        - test_if: [ { op: delete, key_a: 3 } ]
        - nhgroup: [ { op: delete, nhgroup_id: 7 } ]
)", {R"("attr_a1": 4,\n      "err": 12,)", R"("key_a": 3,\n      "attr_a1": 4,\n      "err": 12,)"}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        std::string recorded = read_file(round_trip(write_temp(row.scenario, ".yaml")));
        for (const std::string &shown : row.shows) EXPECT_TRUE(std::regex_search(recorded, std::regex(shown))) << shown;
    }
    std::string a = round_trip(write_temp(R"(
config: { mode: server }
steps:
  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5, hdl: one }, { op: create, key_a: 2, hdl: two } ] }
  - send: { test_if: [ { op: update, hdl: one, key_a: 1, attr_a1: 6 }, { op: get, hdl: one, key_a: 1 } ] }
  - inject: { op: "test_if update", status: ENOMEM, times: 2 }
  - send: { test_if: [ { op: update, hdl: two, key_a: 2, attr_a1: 7 } ] }
  - send: { test_if: [ { op: get_first, hdl: one }, { op: delete, hdl: one, key_a: 1 }, { op: delete, hdl: two, key_a: 2 } ] }
  - send: { test_if: [ { op: create, key_a: 3, hdl: three }, { op: delete, hdl: three, key_a: 3 } ] }
)", ".yaml"));
    std::string text = read_file(a);
    for (const char *op : {"update", "delete", "get"}) // the recording does carry handles on these
        EXPECT_TRUE(std::regex_search(text, std::regex(std::string("\"hdl\": \"handle 0x[0-9a-f]+\",\n(.*\n){0,6}.*\"op\": \"") + op + "\"")))
            << op;
}

// A tour of the whole catalogue: every active type created with every settable attribute,
// members and active reference pairs, read back, updated, walked and deleted, by key or by handle.
std::string tour(int mode, int object_set, bool by_handle) {
    PROCESS ctx{};
    ctx.object_set = object_set;
    std::string text = "config: { mode: " + std::string(mode ? "client" : "server") + ", object_set: " + std::to_string(object_set) + " }\nsteps:\n";
    std::string previous = "4660"; // the handle name of the object created before, once there is one
    for (size_t i = 0; i < pc::engine::kTypeCount; ++i) {
        const pc::engine::TypeDesc &t = *pc::engine::kTypes[i];
        if (!pc::engine::active(t.gate, &ctx)) continue;
        std::string name = std::string("h_") + t.name, own = by_handle ? ", hdl: " + name : "";
        text += "  - send:\n      " + std::string(t.name) + ":\n";
        for (const auto &[op, keys_only, extra] : {std::tuple<const char *, bool, std::string>{"create", false, ", hdl: " + name},
                                                   {"get", false, ""}, {"update", false, own}, {"walk_by_key", true, ", depth: 1"},
                                                   {"delete", true, own}})
            text += "        - " + pc::test::catalogue_record(t, &ctx, op, keys_only, extra, previous) + "\n";
        previous = name;
    }
    return text;
}

TEST(RecordingRoundTrip, TourOfEveryTypeInBothObjectSetsAndBothModesByKeyAndByHandle) {
    struct Row {
        int mode, object_set;
        bool by_handle;
    } rows[] = {{0, 0, false}, {0, 1, false}, {1, 0, false}, {1, 1, false}, {0, 0, true}, {0, 1, true}};
    std::set<std::string> created, deleted_by_handle;
    for (const Row &row : rows) {
        SCOPED_TRACE("mode " + std::to_string(row.mode) + ", object set " + std::to_string(row.object_set) + (row.by_handle ? ", by handle" : ""));
        Reader reader;
        std::string error;
        ASSERT_TRUE(reader.open(round_trip(write_temp(tour(row.mode, row.object_set, row.by_handle), ".yaml")), error));
        for (Record r; reader.next(r);) {
            const std::string &op = r.entries[0].find("op")->value;
            if (op == "\"create\"") created.insert(r.type);
            if (row.by_handle && op == "\"delete\"" && r.entries[0].find("hdl")) deleted_by_handle.insert(r.type);
        }
    }
    EXPECT_EQ(created.size(), 315u);
    EXPECT_EQ(deleted_by_handle.size(), 315u);
}

// A recording written by hand, one test_if record per entry: {op, key_a, extra fields}.
struct Op {
    const char *op;
    int key;
    std::string extra = "";
};

std::string recording_of(const std::vector<Op> &ops) {
    std::string text;
    for (const Op &o : ops)
        text += rec("send_object", "test_if", "      \"key_a\": " + std::to_string(o.key) + ",\n" + o.extra + "      \"op\": \"" + o.op + "\"\n");
    return text;
}

std::vector<Op> gets(int from, int to) {
    std::vector<Op> ops;
    for (int k = from; k <= to; ++k) ops.push_back({"get", k});
    return ops;
}

std::vector<Op> operator+(std::vector<Op> a, const std::vector<Op> &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

std::string kinds_of(const DiffOutcome &d) {
    std::string out;
    for (const Difference &x : d.differences) out += "CAB"[x.kind];
    return out;
}

TEST(RecordingDiffAlignment, RecordsWhoseKeysDifferAreNeverPaired) {
    std::string a = write_temp(recording_of({{"create", 1}, {"create", 2}, {"create", 3}}), ".rec");
    std::string b = write_temp(recording_of({{"create", 77}, {"create", 2}, {"create", 3}}), ".rec");
    DiffOutcome d = diff(a, b);
    EXPECT_EQ(d.summary.changed, 0u);
    ASSERT_EQ(kinds_of(d), "AB");
    EXPECT_EQ(d.differences[0].number_a, 1u);
    EXPECT_EQ(d.differences[1].number_b, 1u);
    // every record differs: each is a gap, A's record before the B record beside it
    std::string c = write_temp(recording_of(gets(100, 103)), ".rec");
    EXPECT_EQ(kinds_of(diff(a, c)), "ABABABB");
}

TEST(RecordingDiffAlignment, GapsLongerThanTheLookAheadRealignWithoutPairing) {
    std::string whole = write_temp(recording_of(gets(1, 1000)), ".rec");
    std::string missing = write_temp(recording_of(gets(1, 10) + gets(311, 1000)), ".rec");
    DiffOutcome d = diff(whole, missing);
    EXPECT_EQ(d.summary.changed, 0u);
    EXPECT_EQ(d.summary.only_a, 300u);
    EXPECT_EQ(d.summary.only_b, 0u);
    ASSERT_FALSE(d.differences.empty());
    EXPECT_EQ(d.differences.front().number_a, 11u);
    EXPECT_EQ(d.differences.back().number_a, 310u);
    EXPECT_EQ(d.differences.front().number_b, 11u); // where the gap stands in B
    DiffOutcome r = diff(missing, whole);
    EXPECT_EQ(r.summary.only_b, 300u);
    EXPECT_EQ(r.summary.only_a + r.summary.changed, 0u);

    // 400 records replaced by 300 others: a gap on each side, then the rest aligns again
    std::string replaced = write_temp(recording_of(gets(1, 10) + gets(5001, 5300) + gets(411, 1000)), ".rec");
    DiffOutcome both = diff(whole, replaced);
    EXPECT_EQ(both.summary.changed, 0u);
    EXPECT_EQ(both.summary.only_a, 400u);
    EXPECT_EQ(both.summary.only_b, 300u);
    EXPECT_EQ(both.summary.records_a, 1000u);
}

TEST(RecordingDiffAlignment, ADeleteByKeyEndsItsHandlePair) {
    auto recording = [](const char *second_handle) {
        return write_temp(recording_of({{"create", 1, "      \"hdl\": \"handle 0x1001\",\n"},
                                        {"delete", 1},
                                        {"create", 2, std::string("      \"hdl\": \"handle ") + second_handle + "\",\n"},
                                        {"get", 2, "      \"testethport_refhdl\": \"" + std::string(second_handle) + "\",\n"}}),
                          ".rec");
    };
    // B gives the freed handle value out again: the runs are the same
    std::string a = recording("0x1002"), b = recording("0x1001");
    DiffOutcome d = diff(a, b);
    EXPECT_EQ(d.summary.exit_code(), 0) << (d.differences.empty() ? "" : difference_text(d.differences[0], "a", "b"));
    // without the delete, the object lives on and its handle cannot name another
    std::string live_a = write_temp(recording_of({{"create", 1, "      \"hdl\": \"handle 0x1001\",\n"},
                                                  {"create", 2, "      \"hdl\": \"handle 0x1002\",\n"}}), ".rec");
    std::string live_b = write_temp(recording_of({{"create", 1, "      \"hdl\": \"handle 0x1001\",\n"},
                                                  {"create", 2, "      \"hdl\": \"handle 0x1001\",\n"}}), ".rec");
    EXPECT_EQ(diff(live_a, live_b).summary.exit_code(), 1);
}

TEST(RecordingDiffAlignment, AFileThatCannotBeReadIsNamedAndTheOtherStillCounted) {
    std::string a = write_temp(recording_of(gets(1, 3)), ".rec");
    DiffOutcome missing = diff(a, "/nonexistent/b.rec");
    EXPECT_EQ(missing.summary.exit_code(), 2);
    EXPECT_EQ(missing.summary.unopened, std::vector<std::string>{"/nonexistent/b.rec"});
    EXPECT_EQ(missing.summary.records_a, 3u);
    DiffOutcome directory = diff(testing::TempDir(), a);
    EXPECT_EQ(directory.summary.exit_code(), 2);
    ASSERT_FALSE(directory.problems.empty());
    EXPECT_NE(directory.problems[0].message.find("it is a directory"), std::string::npos) << directory.problems[0].message;
    EXPECT_EQ(directory.summary.records_b, 3u);
}

} // namespace
