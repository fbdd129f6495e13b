// A file's results carried between processes: what the child saved is what the parent reads,
// including texts with the separators in them and a child that ended before its totals.
#include "result_io.hpp"

#include <gtest/gtest.h>

namespace pc::runner {
namespace {

StepRecord a_step() {
    StepRecord s;
    s.number = 3;
    s.line = 17;
    s.kind = "send";
    s.table = "test_if";
    s.label = "send test_if";
    s.status = StepStatus::failed;
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
    f.text = "name: received a\tb expected c\\nd\nline two";
    f.attribute = "name";
    f.expected = "c\\nd";
    f.received = "a\tb";
    f.type = "nhgroup";
    f.op = "get";
    f.element = 2;
    f.has_status = true;
    f.expected_status = 53450;
    f.received_status = -22;
    return f;
}

TEST(ResultIo, StepsFindingsAndTotalsComeBackAsSaved) {
    FileResult saved;
    saved.steps = 3;
    saved.failed_steps = 1;
    saved.mismatches = 2;
    saved.invalid = true;
    saved.error = "f.yaml:1:2: bad\tthing";
    saved.duration_ms = 12.25;
    saved.add_finding("f.yaml:18: a finding");
    saved.add_finding("f.yaml: cannot write its recorder part");
    std::string text = saved_name("the\tname") + saved_finding(a_finding()) + saved_step(a_step()) + saved_totals(saved, 1);

    FileResult back;
    bool complete = false;
    size_t late = 0;
    ASSERT_TRUE(load_saved(text, back, complete, late));
    EXPECT_TRUE(complete);
    EXPECT_EQ(late, 1u);
    EXPECT_EQ(back.name, "the\tname");
    ASSERT_EQ(back.step_records.size(), 1u);
    const StepRecord &s = back.step_records[0];
    EXPECT_EQ(s.number, 3u);
    EXPECT_EQ(s.line, 17u);
    EXPECT_EQ(s.label, "send test_if");
    EXPECT_EQ(s.status, StepStatus::failed);
    EXPECT_EQ(s.mismatches, 2u);
    EXPECT_EQ(s.records_start, 100);
    EXPECT_EQ(s.records_end, 250);
    ASSERT_EQ(back.finding_records.size(), 1u);
    const Finding &f = back.finding_records[0];
    EXPECT_EQ(f.text, a_finding().text);
    EXPECT_EQ(f.expected, "c\\nd");
    EXPECT_EQ(f.received, "a\tb");
    EXPECT_EQ(f.type, "nhgroup");
    EXPECT_EQ(f.op, "get");
    EXPECT_EQ(f.element, 2);
    EXPECT_TRUE(f.has_status);
    EXPECT_EQ(f.expected_status, 53450);
    EXPECT_EQ(f.received_status, -22);
    EXPECT_TRUE(f.warning);
    EXPECT_EQ(f.kind, FindingKind::mismatch);
    EXPECT_EQ(back.error, saved.error);
    EXPECT_TRUE(back.invalid);
    EXPECT_EQ(back.findings, saved.findings);
    EXPECT_DOUBLE_EQ(back.duration_ms, 12.25);
}

TEST(ResultIo, AChildThatEndedLeavesItsRecordsWithoutTotals) {
    StepRecord not_recorded = a_step();
    not_recorded.records_start = not_recorded.records_end = -1;
    std::string text = saved_name("") + saved_step(not_recorded) + saved_finding(a_finding());
    FileResult back;
    bool complete = true;
    size_t late = 0;
    ASSERT_TRUE(load_saved(text, back, complete, late));
    EXPECT_FALSE(complete);
    EXPECT_EQ(back.step_records.size(), 1u);
    EXPECT_EQ(back.step_records[0].records_start, -1);
    EXPECT_EQ(back.finding_records.size(), 1u);
}

TEST(ResultIo, DamagedTextIsRefused) {
    std::string step = saved_step(a_step());
    FileResult back;
    bool complete = false;
    size_t late = 0;
    EXPECT_FALSE(load_saved(step.substr(0, step.size() / 2) + "\n", back, complete, late)); // fields missing
    EXPECT_FALSE(load_saved("S\t1\t2\tsend\tt\tl\t9\t0\t0\t0\t-1\t-1\n", back, complete, late)); // no such status
    FileResult totals;
    totals.add_finding("x");
    EXPECT_FALSE(load_saved(saved_totals(totals, 2), back, complete, late)); // more late findings than findings
    EXPECT_FALSE(load_saved("end\n", back, complete, late)); // an end without totals

    FileResult cut;
    std::string whole = saved_step(a_step());
    EXPECT_FALSE(load_saved(whole + whole.substr(0, 12), cut, complete, late));
    EXPECT_EQ(cut.step_records.size(), 1u); // the whole line before the cut is kept, the cut one is not
    EXPECT_EQ(cut.step_records[0].records_end, 250);
}

} // namespace
} // namespace pc::runner
