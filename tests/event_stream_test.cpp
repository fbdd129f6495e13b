// A file's records carried between processes as events: what a worker writes is what its parent
// reads back, including texts that JSON must escape, a worker that ended before its file_end, and
// a stream cut in the middle of a line.
#include "event_stream.hpp"
#include "events.hpp"
#include "wire_text.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace pc::runner {
namespace {

StepRecord a_step(StepStatus status = StepStatus::failed) {
    StepRecord s;
    s.number = 3;
    s.line = 17;
    s.kind = "send";
    s.table = "test_if";
    s.label = "send test_if";
    s.status = status;
    s.mismatches = 2;
    s.value_errors = 1;
    s.duration_ms = 1.5;
    s.records_start = 100;
    s.records_end = 250;
    return s;
}

Finding a_finding() {
    Finding f;
    f.line = 18;
    f.column = 4;
    f.step = 3;
    f.warning = true;
    f.kind = FindingKind::mismatch;
    f.text = "name: received \"a\tb\" expected c\\nd\nline two";
    f.attribute = "name";
    f.expected = "c\\nd";
    f.received = "\"a\tb\"";
    f.type = "nhgroup";
    f.op = "get";
    f.element = 2;
    f.has_status = true;
    f.expected_status = 0;
    f.received_status = -17;
    return f;
}

FileResult a_file() {
    FileResult r;
    r.path = "f.yaml";
    r.name = "the \"name\"";
    r.steps = 3;
    r.failed_steps = 1;
    r.mismatches = 2;
    r.value_errors = 1;
    r.duration_ms = 12.25;
    return r;
}

// The lines a worker writes for `file`, through the writer it uses, read back from a pipe.
std::string written(const FileResult &file, const std::vector<StepRecord> &steps, const std::vector<Finding> &findings) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EventLineWriter writer(ends[1]);
    writer.file_start(file);
    for (const Finding &f : findings) writer.finding(file, f);
    for (const StepRecord &s : steps) writer.step(file, s);
    EXPECT_TRUE(writer.ok());
    close(ends[1]);
    std::string text;
    char buffer[1 << 16];
    for (ssize_t n; (n = read(ends[0], buffer, sizeof buffer)) > 0;) text.append(buffer, size_t(n));
    close(ends[0]);
    return text + writer.file_end_line(file) + "\n";
}

FileEvents read_back(const std::string &text, const std::string &path = "f.yaml") {
    EventDecoder decoder;
    FileEvents events;
    events.result.path = path;
    read_file_events(text, decoder, events);
    return events;
}

// Names and texts are whatever bytes files hold: each must come back byte for byte, while the
// line stays valid UTF-8 and an XML reader's forms carry no character XML refuses.
TEST(EventStream, AnyBytesOfANameOrTextComeBackAsWritten) {
    std::vector<std::string> texts = {
        "plain.yaml", "r\xc3\xa9seau \xe8\xb7\xaf\xe7\x94\xb1.yaml", // valid UTF-8 stays as it is
        "latin1 \xe9\xe8.yaml", "stray \x80 cut \xe8\xb7 end \xf4\x90\x80\x80",  // not UTF-8; past U+10FFFF
        "overlong \xc0\xaf surrogate \xed\xa0\x80", "controls \x01\x1b\x7f tab\tcr\rlf\n",
        "genuine \xee\xbe\x80 and \xee\xbc\x81 and \xee\xbd\x80", // U+EF80 and U+EF01 carry bytes; U+EF40 does not
        "not XML \xef\xbf\xbe\xef\xbf\xbf", std::string("nul \0 inside", 13), "</script>\"&<!--"};
    std::string every_byte;
    for (int b = 0; b < 256; ++b) every_byte += char(b);
    texts.push_back(every_byte);
    EXPECT_EQ(wire_text(texts[1], WireForm::json), "\"" + texts[1] + "\"");
    EXPECT_EQ(wire_text(texts[1], WireForm::xml_attribute), texts[1]);
    for (const std::string &text : texts) {
        SCOPED_TRACE(testing::PrintToString(text));
        FileResult file = a_file();
        file.path = text;
        file.name = text;
        Finding f = a_finding();
        f.text = text;
        std::string lines = written(file, {}, {f});
        FileEvents back = read_back(lines, text);
        ASSERT_TRUE(back.complete) << back.problem;
        EXPECT_EQ(back.result.name, text);
        ASSERT_EQ(back.result.finding_records.size(), 1u);
        EXPECT_EQ(back.result.finding_records[0].text, text);
        for (WireForm form : {WireForm::json, WireForm::json_in_html, WireForm::xml_text, WireForm::xml_attribute}) {
            std::string wire = wire_text(text, form);
            bool xml = form == WireForm::xml_text || form == WireForm::xml_attribute;
            for (unsigned char c : wire) {
                if (xml) EXPECT_TRUE(c >= 0x20 || c == '\n' || c == '\t') << "XML cannot carry byte " << int(c) << " in " << wire;
                else EXPECT_GE(c, 0x20) << "a raw control byte in a JSON string: " << wire;
            }
        }
    }
}

TEST(EventStream, AFilesRecordsComeBackAsWritten) {
    FileResult file = a_file();
    FileEvents back = read_back(written(file, {a_step()}, {a_finding()}));
    ASSERT_TRUE(back.complete) << back.problem;
    const FileResult &r = back.result;
    EXPECT_EQ(r.name, file.name);
    EXPECT_EQ(r.steps, 3u);
    EXPECT_EQ(r.mismatches, 2u);
    EXPECT_EQ(r.failed_steps, 1u);
    EXPECT_DOUBLE_EQ(r.duration_ms, 12.25);
    ASSERT_EQ(r.step_records.size(), 1u);
    const StepRecord &s = r.step_records[0];
    EXPECT_EQ(s.number, 3u);
    EXPECT_EQ(s.line, 17u);
    EXPECT_EQ(s.table, "test_if");
    EXPECT_EQ(s.status, StepStatus::failed);
    EXPECT_EQ(s.value_errors, 1u);
    EXPECT_DOUBLE_EQ(s.duration_ms, 1.5);
    EXPECT_EQ(s.records_start, 100);
    EXPECT_EQ(s.records_end, 250);
    ASSERT_EQ(r.finding_records.size(), 1u);
    const Finding &f = r.finding_records[0];
    EXPECT_EQ(f.text, a_finding().text);
    EXPECT_EQ(f.received, a_finding().received);
    EXPECT_EQ(f.expected, "c\\nd");
    EXPECT_TRUE(f.warning);
    EXPECT_EQ(f.kind, FindingKind::mismatch);
    EXPECT_EQ(f.column, 4u);
    EXPECT_EQ(f.type, "nhgroup");
    EXPECT_EQ(f.op, "get");
    EXPECT_EQ(f.element, 2);
    EXPECT_TRUE(f.has_status);
    EXPECT_EQ(f.received_status, -17);
    EXPECT_EQ(r.findings, std::vector<std::string>{"f.yaml:18:4: warning: " + a_finding().text}); // as JUnit and TAP list it
}

TEST(EventStream, StatusesAndEndingsSurviveTheTrip) {
    // mismatches that an expect: accounted for leave their step failed and the file passed
    FileResult accounted = a_file();
    accounted.failed_steps = 0;
    accounted.expected = 3;
    StepRecord unrecorded = a_step(); // a step that wrote no record still has its (empty) range
    unrecorded.records_start = unrecorded.records_end = 40;
    FileEvents passed = read_back(written(accounted, {unrecorded}, {}));
    EXPECT_TRUE(passed.result.passed());
    EXPECT_EQ(passed.result.step_records.at(0).records_start, 40);

    FileResult invalid = a_file();
    invalid.invalid = true;
    invalid.error = "f.yaml:1:2: bad\tthing";
    EXPECT_EQ(read_back(written(invalid, {}, {})).result.error, invalid.error);
    EXPECT_TRUE(read_back(written(invalid, {}, {})).result.invalid);

    FileResult ended = a_file();
    ended.ended = true;
    ended.ended_how = "signal 6 (Aborted)";
    ended.ended_at = "f.yaml:17";
    ended.ended_step = 3;
    ended.last_error = "planecheck: unit:1: f: Assertion `x' failed.";
    FileResult back = read_back(written(ended, {a_step(StepStatus::ended)}, {})).result;
    EXPECT_TRUE(back.ended);
    EXPECT_EQ(back.ended_how, ended.ended_how);
    EXPECT_EQ(back.ended_at, ended.ended_at);
    EXPECT_EQ(back.ended_step, 3u);
    EXPECT_EQ(back.last_error, ended.last_error);
    EXPECT_EQ(back.step_records.at(0).status, StepStatus::ended);
}

TEST(EventStream, AStreamCutShortKeepsWhatCameWhole) {
    std::string text = written(a_file(), {a_step(), a_step()}, {a_finding()});
    std::string without_end = text.substr(0, text.rfind("{\"schema\""));
    FileEvents ended = read_back(without_end);
    EXPECT_FALSE(ended.complete);
    EXPECT_TRUE(ended.problem.empty()) << ended.problem;
    EXPECT_EQ(ended.result.step_records.size(), 2u);

    std::string second_step = R"({"schema":1,"event":"step")";
    std::string cut = without_end.substr(0, without_end.rfind(second_step) + second_step.size() + 5);
    FileEvents damaged = read_back(cut);
    EXPECT_FALSE(damaged.complete);
    EXPECT_NE(damaged.problem.find("not an event"), std::string::npos) << damaged.problem;
    EXPECT_EQ(damaged.result.step_records.size(), 1u); // the whole line before the cut is kept
    EXPECT_EQ(damaged.result.finding_records.size(), 1u);
}

TEST(EventStream, LinesThatAreNotThisFilesEventsAreRefused) {
    EventDecoder decoder;
    Event e;
    std::string problem;
    EXPECT_FALSE(decoder.decode(R"({"schema":2,"event":"step","file":"f.yaml"})", e, problem));
    EXPECT_NE(problem.find("schema 2"), std::string::npos) << problem;
    EXPECT_FALSE(decoder.decode(R"({"schema":1,"event":"step"})", e, problem));
    EXPECT_NE(problem.find("without its \"file\""), std::string::npos) << problem;
    EXPECT_TRUE(decoder.decode(R"({"schema":1,"event":"coffee","file":"f.yaml"})", e, problem)); // a kind added later
    EXPECT_EQ(e.kind, EventKind::other);

    FileEvents other = read_back(written(a_file(), {a_step()}, {}), "g.yaml");
    EXPECT_FALSE(other.complete);
    EXPECT_NE(other.problem.find("an event of f.yaml among those of g.yaml"), std::string::npos) << other.problem;
}

TEST(EventStream, AFindingIsListedWhereItIs) {
    Finding f;
    f.text = "cannot write its recorder part: No space left on device";
    EXPECT_EQ(finding_line("f.yaml", f), "f.yaml: cannot write its recorder part: No space left on device");
    f.line = 4;
    EXPECT_EQ(finding_line("f.yaml", f), "f.yaml:4: cannot write its recorder part: No space left on device");
    f.column = 9;
    EXPECT_EQ(finding_line("f.yaml", f), "f.yaml:4:9: cannot write its recorder part: No space left on device");
}

} // namespace
} // namespace pc::runner
