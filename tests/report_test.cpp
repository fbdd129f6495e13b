// The HTML report's reading of event streams and the page it builds, from literal event lines.
#include "coverage_view.hpp"
#include "engine.hpp"
#include "events.hpp"
#include "excerpt.hpp"
#include "files.hpp"
#include "json_text.hpp"
#include "page.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace pc::report {
namespace {

// A run of two files: a.yaml fails in step 2 with a mismatch, b.yaml passes.
const char *const kFailingRun = R"({"schema":1,"event":"run_start","time":"2026-11-24T01:00:00.000Z","version":"0.1.0","catalogue":"0123456789abcdef","platform":"simplane","command":["planecheck","run","a.yaml","b.yaml"],"host":"ci7","options":{"check_only":false,"strict":false,"jobs":1,"coverage":null},"files":2}
{"schema":1,"event":"file_start","time":"2026-11-24T01:00:00.001Z","file":"a.yaml","index":0,"name":"bring-up"}
{"schema":1,"event":"step","time":"t","file":"a.yaml","step":1,"line":4,"kind":"send","table":"test_if","label":"send test_if","status":"passed","mismatches":0,"value_errors":0,"duration":0.5}
{"schema":1,"event":"finding","time":"t","file":"a.yaml","line":9,"step":2,"level":"error","kind":"mismatch","text":"attr_a1: received 6 expected 5","attribute":"attr_a1","expected":"5","received":"6"}
{"schema":1,"event":"finding","time":"t","file":"a.yaml","line":0,"step":0,"level":"warning","kind":"check","text":"about the whole file"}
{"schema":1,"event":"step","time":"t","file":"a.yaml","step":2,"line":7,"kind":"send","table":"test_if","label":"send test_if","status":"failed","mismatches":1,"value_errors":0,"duration":1.25,"a_member_added_later":[1,2]}
{"schema":1,"event":"file_end","time":"t","file":"a.yaml","status":"failed","steps":2,"failed_steps":1,"not_run":0,"mismatches":1,"value_errors":0,"expected":0,"duration":2}
{"schema":1,"event":"file_start","time":"t","file":"b.yaml","index":1,"name":null}
{"schema":1,"event":"step","time":"t","file":"b.yaml","step":1,"line":3,"kind":"expect","table":null,"label":"expect","status":"passed","mismatches":0,"value_errors":0,"duration":0.1}
{"schema":1,"event":"file_end","time":"t","file":"b.yaml","status":"passed","steps":1,"failed_steps":0,"not_run":0,"mismatches":0,"value_errors":0,"expected":0,"duration":1}
{"schema":1,"event":"run_end","time":"t","files":2,"failed_files":1,"steps":3,"not_run":0,"mismatches":1,"value_errors":0,"duration":12.5,"exit_status":1,"verdict":"failed"}
)";

Run read(std::initializer_list<std::pair<const char *, const char *>> streams) {
    report::Run run;
    EventReader reader(run);
    for (auto [source, text] : streams) {
        reader.begin_stream(source);
        std::istringstream lines(text);
        std::string line;
        for (size_t n = 1; std::getline(lines, line); ++n) reader.read_line(line, n);
        reader.end_stream();
    }
    return run;
}

TEST(ReportEvents, FindingsGoToTheirStepAndTheRunKeepsItsHeader) {
    report::Run run = read({{"run.events", kFailingRun}});
    ASSERT_EQ(run.files.size(), 2u);
    EXPECT_TRUE(run.problems.empty());
    const FileRecord &a = run.files[0];
    EXPECT_EQ(a.name, "bring-up");
    ASSERT_EQ(a.steps.size(), 2u);
    EXPECT_TRUE(a.steps[0].findings.empty());
    ASSERT_EQ(a.steps[1].findings.size(), 1u);
    const Finding &f = a.steps[1].findings[0];
    EXPECT_EQ(f.attribute, "attr_a1");
    EXPECT_EQ(f.line, 9u);
    ASSERT_EQ(a.findings.size(), 1u); // step 0: about the whole file
    EXPECT_EQ(a.findings[0].text, "about the whole file");
    EXPECT_EQ(a.steps[1].duration, 1.25);
    EXPECT_EQ(run.streams[0].host, "ci7");
    EXPECT_EQ(run.streams[0].command.size(), 4u);
    EXPECT_TRUE(run.streams[0].finished);
    EXPECT_EQ(run.verdict(), "failed");
    EXPECT_EQ(run.files[1].steps[0].table, ""); // null reads as none
}

TEST(ReportEvents, ShardsMergeWithTheWorstVerdictAndTheLongestDuration) {
    const char *passing = R"({"schema":1,"event":"run_start","time":"t","version":"0.1.0","catalogue":"0123456789abcdef","platform":"simplane","command":[],"host":"h","options":{"check_only":false,"strict":false,"jobs":1},"files":1}
{"schema":1,"event":"file_start","time":"t","file":"c.yaml","index":0}
{"schema":1,"event":"file_end","time":"t","file":"c.yaml","status":"passed","steps":4,"failed_steps":0,"not_run":1,"mismatches":0,"value_errors":0,"expected":2,"duration":3}
{"schema":1,"event":"run_end","time":"t","files":1,"failed_files":0,"steps":4,"not_run":1,"mismatches":0,"value_errors":0,"duration":40,"exit_status":0,"verdict":"passed"})";
    report::Run alone = read({{"2.events", passing}});
    EXPECT_EQ(alone.verdict(), "passed");
    report::Run run = read({{"1.events", kFailingRun}, {"2.events", passing}});
    EXPECT_EQ(run.files.size(), 3u);
    EXPECT_EQ(run.verdict(), "failed");
    EXPECT_EQ(run.totals().steps, 7u);
    EXPECT_EQ(run.totals().not_run, 1u);
    EXPECT_EQ(run.totals().expected, 2u);
    EXPECT_EQ(run.duration(), 40);
}

TEST(ReportEvents, AStreamCutShortCountsWhatItReportedAndFails) {
    std::string text = kFailingRun;
    text.resize(text.find("{\"schema\":1,\"event\":\"file_end\"")); // stops in the middle of a.yaml
    report::Run run = read({{"cut.events", text.c_str()}});
    ASSERT_EQ(run.files.size(), 1u);
    EXPECT_FALSE(run.files[0].finished);
    EXPECT_EQ(run.files[0].status, "ended");
    EXPECT_FALSE(run.streams[0].finished);
    EXPECT_EQ(run.verdict(), "failed");
    Counts counted = run.totals();
    EXPECT_EQ(counted.steps, 2u);
    EXPECT_EQ(counted.failed_steps, 1u);
    EXPECT_EQ(counted.mismatches, 1u);
}

TEST(ReportEvents, FindingsOfAStepThatNeverCameStayWithTheirFile) {
    const char *text = R"({"schema":1,"event":"file_start","time":"t","file":"x.yaml","index":0}
{"schema":1,"event":"finding","time":"t","file":"x.yaml","line":5,"step":3,"level":"error","kind":"log","text":"unknown table test_iff"}
{"schema":1,"event":"file_end","time":"t","file":"x.yaml","status":"ended","steps":2,"failed_steps":0,"not_run":0,"mismatches":0,"value_errors":0,"expected":0,"duration":1,"ended":{"how":"exit status 1","at":"x.yaml:5","step":3,"last_error":"x.yaml:5: unknown table test_iff"}})";
    report::Run run = read({{"e.events", text}});
    ASSERT_EQ(run.files.size(), 1u);
    ASSERT_EQ(run.files[0].findings.size(), 1u);
    EXPECT_EQ(run.files[0].findings[0].text, "unknown table test_iff");
    EXPECT_EQ(run.files[0].ended_how, "exit status 1");
    EXPECT_EQ(run.files[0].ended_at, "x.yaml:5");
    EXPECT_EQ(run.verdict(), "failed"); // ended, and no run_end
}

TEST(ReportEvents, UnusableLinesAreNamedAndTheRestIsRead) {
    const char *text = R"({"schema":1,"event":"file_start","time":"t","file":"a.yaml","index":0}
not json at all
{"schema":2,"event":"step","time":"t","file":"a.yaml"}
{"event":"step"}
{"schema":1,"event":"step","time":"t","step":1}
{"schema":1,"event":"a_kind_added_later","time":"t"}

{"schema":1,"event":"file_end","time":"t","file":"a.yaml","status":"passed","steps":0,"failed_steps":0,"not_run":0,"mismatches":0,"value_errors":0,"expected":0,"duration":1})";
    report::Run run = read({{"bad.events", text}});
    ASSERT_EQ(run.problems.size(), 4u);
    EXPECT_EQ(run.problems[0].rfind("bad.events:2: not an event", 0), 0u) << run.problems[0];
    EXPECT_EQ(run.problems[1], "bad.events:3: event schema 2 is not one this planecheck reads (schema 1)");
    EXPECT_EQ(run.problems[2], "bad.events:4: not an event: it has no \"schema\" number");
    EXPECT_EQ(run.problems[3], "bad.events:5: a step event without its \"file\"");
    ASSERT_EQ(run.files.size(), 1u);
    EXPECT_TRUE(run.files[0].finished);
    EXPECT_EQ(run.verdict(), "failed"); // lines were lost: the page must not say passed
}

TEST(ReportEvents, TheSameFileNamedTwiceIsTwoFiles) {
    const char *once = R"({"schema":1,"event":"file_start","time":"t","file":"a.yaml","index":0}
{"schema":1,"event":"file_end","time":"t","file":"a.yaml","status":"passed","steps":1,"failed_steps":0,"not_run":0,"mismatches":0,"value_errors":0,"expected":0,"duration":1}
)";
    std::string twice = std::string(once) + once;
    report::Run run = read({{"twice.events", twice.c_str()}});
    EXPECT_EQ(run.files.size(), 2u);
    EXPECT_EQ(run.totals().steps, 2u);
}

TEST(ReportJson, TextCannotEndTheScriptElementThatHoldsIt) {
    EXPECT_EQ(json_string("</script><!--&\"\\\n\x01"), "\"\\u003c/script\\u003e\\u003c!--\\u0026\\\"\\\\\\n\\u0001\"");
    EXPECT_EQ(json_string("nhgroup · ü"), "\"nhgroup · ü\""); // UTF-8 passes as it is
}

TEST(ReportPage, DataAndScriptsGoInlineAndMarkersInTheDataStayText) {
    report::Run run = read({{"run.events", kFailingRun}});
    run.files[0].steps[1].findings[0].text = "</script><script>alert(1)</script> /*@planecheck:script*/";
    std::string page = build_page(run, "", "2026-11-24T02:00:00Z");
    size_t scripts = 0;
    for (size_t at = page.find("</script>"); at != std::string::npos; at = page.find("</script>", at + 1)) ++scripts;
    size_t in_template = 0;
    for (size_t at = page::kHtml.find("</script>"); at != std::string::npos; at = page::kHtml.find("</script>", at + 1)) ++in_template;
    EXPECT_EQ(scripts, in_template);
    EXPECT_NE(page.find(std::string(page::kJs.substr(0, 200))), std::string::npos);
    EXPECT_NE(page.find(std::string(page::kCss.substr(0, 200))), std::string::npos);
    EXPECT_NE(page.find("/*@planecheck:script*/\""), std::string::npos); // the marker in the finding's text stays text
    EXPECT_EQ(page.find("/*@planecheck:style*/"), std::string::npos);
    EXPECT_EQ(page.find("/*@planecheck:data*/"), std::string::npos);
    EXPECT_EQ(page.find("http://"), std::string::npos); // nothing loads from the network
    EXPECT_EQ(page.find("https://"), std::string::npos);
    EXPECT_NE(page.find("\"coverage\":null}"), std::string::npos);
}

StepRecord step(uint32_t number, uint32_t line, const char *status) {
    StepRecord s;
    s.number = number;
    s.line = line;
    s.status = status;
    return s;
}

Finding finding_at(uint32_t line, uint32_t step) {
    Finding f;
    f.line = line;
    f.step = step;
    return f;
}

FileRecord file_of(const std::string &path, const char *status) {
    FileRecord f;
    f.path = path;
    f.status = status;
    return f;
}

std::string scenario_of(int lines) {
    std::string path = testing::TempDir() + "report_excerpt_XXXXXX";
    close(mkstemp(path.data()));
    std::ofstream out(path);
    for (int i = 1; i <= lines; ++i) out << "line " << i << "\n";
    return path;
}

TEST(ReportExcerpt, AFailingStepShowsItsLinesThroughItsLastFinding) {
    std::string path = scenario_of(100);
    report::Run run;
    run.files.push_back({});
    FileRecord &file = run.files[0];
    file.path = path;
    file.steps.resize(3);
    file.steps[0] = step(1, 2, "passed");
    file.steps[1] = step(2, 10, "failed");
    file.steps[1].findings.push_back(finding_at(13, 2));
    file.steps[2] = step(3, 40, "passed");
    file.steps[2].findings.push_back(finding_at(90, 3)); // far below: the excerpt is capped
    read_excerpts(run);
    EXPECT_TRUE(file.steps[0].excerpt.lines.empty());
    EXPECT_EQ(file.steps[1].excerpt.first, 8u);
    ASSERT_EQ(file.steps[1].excerpt.lines.size(), 8u); // 8 .. 15
    EXPECT_EQ(file.steps[1].excerpt.lines.front(), "line 8");
    EXPECT_EQ(file.steps[1].excerpt.lines.back(), "line 15");
    EXPECT_EQ(file.steps[2].excerpt.first, 38u);
    EXPECT_EQ(file.steps[2].excerpt.lines.size(), size_t(kMaxExcerptLines));
    std::remove(path.c_str());
}

TEST(ReportExcerpt, InvalidAndEndedFilesShowTheLineNamedAndAMissingFileShowsNothing) {
    std::string path = scenario_of(3);
    report::Run run;
    run.files.resize(3);
    run.files[0] = file_of(path, "invalid");
    run.files[0].error = path + ":1:5: a step is a mapping";
    run.files[1] = file_of(path, "ended");
    run.files[1].ended_at = path + ":3";
    run.files[2] = file_of(path + ".gone", "failed");
    run.files[2].steps.push_back(step(1, 1, "failed"));
    read_excerpts(run);
    EXPECT_EQ(run.files[0].excerpt.first, 1u);
    EXPECT_EQ(run.files[0].excerpt.lines.size(), 3u);
    EXPECT_EQ(run.files[1].excerpt.first, 1u); // from line 1: two before 3
    EXPECT_EQ(run.files[2].steps[0].excerpt.first, 0u);
    EXPECT_EQ(line_in(path + ":12:3: text", path), 12u);
    EXPECT_EQ(line_in("other.yaml:12", path), 0u);
    EXPECT_EQ(line_in(path + "x:12", path), 0u);
    std::remove(path.c_str());
}

TEST(ReportCoverage, EveryCatalogueTypeHasARowWithItsRecordsPerOperation) {
    coverage::Report report;
    const engine::TypeDesc &type = *engine::kTypes[1];
    report.touch(type).ops[coverage::kGet] = 3;
    report.touch(type).attrs[0] = 1;
    report.note_file();
    std::string json = coverage_json(report);
    size_t rows = 0;
    for (size_t at = json.find("\n["); at != std::string::npos; at = json.find("\n[", at + 1)) ++rows;
    EXPECT_EQ(rows, engine::kTypeCount);
    std::string row = fmt::format("[\"{}\", [0,0,0,3,0,0,0,0,0,0,0,0,0,0], 1, {}, 0, {}]", type.name, type.attrs.size(), type.roles.size());
    EXPECT_NE(json.find(row), std::string::npos) << json.substr(0, 600);
    EXPECT_NE(json.find("{\"family\": \"key fields\", \"covered\": 1, \"of\": "), std::string::npos);
}

} // namespace
} // namespace pc::report
