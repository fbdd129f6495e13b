// planecheck report and run --html as users run them: what they refuse and what they still write.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using pc::test::text::has;
using pc::test::Outcome;
using pc::test::planecheck;

class ReportCommand : public testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("report_cli_" + std::to_string(getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }
    std::string at(const std::string &name) const { return (dir_ / name).string(); }
    fs::path dir_;
};

TEST_F(ReportCommand, UnusableEventLinesAreNamedAndThePageIsStillWritten) {
    ASSERT_EQ(planecheck("run -q --events " + at("run.events") + " " + PC_SCENARIOS + "/clean.yaml").status, 0);
    std::ofstream(at("run.events"), std::ios::app) << "this is no event\n";
    Outcome r = planecheck("report " + at("run.events") + " " + at("missing.events") + " --html " + at("report.html"));
    EXPECT_EQ(r.status, 2) << r.output;
    EXPECT_NE(r.output.find(at("run.events") + ":"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find(": not an event: "), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("cannot read the events file " + at("missing.events")), std::string::npos) << r.output;
    std::string page = pc::test::read_file(at("report.html"));
    EXPECT_NE(page.find("\"verdict\":\"failed\""), std::string::npos); // lines were lost: not a pass
    EXPECT_NE(page.find("clean.yaml"), std::string::npos);
}

// A file given by mistake (the JUnit or TAP file of the same run, the page, the scenario) is
// refused in one line that says what it seems to be, not in one line per line of it.
TEST_F(ReportCommand, AFileThatHoldsNoEventsIsNamedOnceForWhatItSeemsToBe) {
    const std::string scenario = std::string(PC_SCENARIOS) + "/mismatch.yaml";
    planecheck("run -q --junit " + at("run.xml") + " " + scenario);
    std::ofstream(at("run.tap")) << planecheck("run -q --tap " + scenario).output;
    planecheck("run -q --html " + at("run.html") + " " + scenario);
    std::ofstream(at("notes.txt")) << "\n\nsome notes\nmore notes\n";
    const std::pair<std::string, std::string> files[] = {
        {at("run.xml"), "JUnit XML"}, {at("run.tap"), "TAP"}, {at("run.html"), "an HTML page"},
        {scenario, "a YAML scenario"}, {at("notes.txt"), "text with no JSON event in its first line"}};
    for (const auto &[file, seems] : files) {
        Outcome r = planecheck("report " + file + " --html " + at("report.html"));
        EXPECT_EQ(r.status, 2) << r.output;
        EXPECT_EQ(r.output, "planecheck: " + file + " holds no events: it seems to be " + seems +
                                " (planecheck run --events FILE writes events)\n") << file;
    }
    // an events file after blank lines is read as ever
    ASSERT_EQ(planecheck("run -q --events " + at("run.events") + " " + PC_SCENARIOS + "/clean.yaml").status, 0);
    std::ofstream(at("spaced.events")) << "\n  \n" << pc::test::read_file(at("run.events"));
    Outcome spaced = planecheck("report " + at("spaced.events") + " --html " + at("report.html"));
    EXPECT_EQ(spaced.status, 0) << spaced.output;
}

// A stream is merged once, and one without its start or end is named; the page's verdict is the status.
TEST_F(ReportCommand, StreamsGivenTwiceEmptyOrCutAreNamedAndTheStatusIsThePages) {
    std::string failing = at("failing.events"), empty = at("empty.events"), cut = at("cut.events");
    ASSERT_EQ(planecheck("run -q --events " + failing + " " + PC_SCENARIOS + "/mismatch.yaml").status, 1);
    Outcome once = planecheck("report " + failing + " --html " + at("once.html"));
    EXPECT_EQ(once.status, 1) << once.output; // as the page: failed
    fs::create_symlink(failing, at("again.events"));
    Outcome twice = planecheck("report " + failing + " " + at("again.events") + " --html " + at("twice.html"));
    EXPECT_EQ(twice.status, 2) << twice.output;
    EXPECT_TRUE(has(twice, "the events file " + at("again.events") + " is " + failing + " given again")) << twice.output;
    const std::string drawn = "mismatch.yaml\",\"name\":\"mismatch\",\"status\"";
    EXPECT_EQ(pc::test::text::count(pc::test::read_file(at("twice.html")), drawn), pc::test::text::count(pc::test::read_file(at("once.html")), drawn));
    EXPECT_EQ(pc::test::text::count(pc::test::read_file(at("once.html")), drawn), 1u);
    // a copy of a shard's stream is the same run and shard, though another file; the other shard merges
    const std::string files = std::string(PC_SCENARIOS) + "/mismatch.yaml " + PC_SCENARIOS + "/clean.yaml";
    ASSERT_EQ(planecheck("run -q --run-id job7 --shard 1/2 --events " + at("s1.events") + " " + files).status, 1);
    ASSERT_EQ(planecheck("run -q --run-id job7 --shard 2/2 --events " + at("s2.events") + " " + files).status, 0);
    fs::copy_file(at("s1.events"), at("s1-copy.events"));
    Outcome shards = planecheck("report " + at("s1.events") + " " + at("s2.events") + " --html " + at("shards.html"));
    EXPECT_EQ(shards.status, 1) << shards.output;
    Outcome copied = planecheck("report " + at("s1.events") + " " + at("s2.events") + " " + at("s1-copy.events") + " --html " + at("copied.html"));
    EXPECT_EQ(copied.status, 2) << copied.output;
    EXPECT_TRUE(has(copied, "the events files " + at("s1.events") + " and " + at("s1-copy.events") + " hold the same run (job7, shard 1/2)"))
        << copied.output;
    EXPECT_EQ(pc::test::text::count(pc::test::read_file(at("copied.html")), drawn), 1u);
    std::ofstream(empty).flush();
    std::string text = pc::test::read_file(failing);
    std::ofstream(cut) << text.substr(0, text.find("{\"schema\":1,\"event\":\"run_end\""));
    Outcome partial = planecheck("report " + empty + " " + cut + " --html " + at("partial.html"));
    EXPECT_EQ(partial.status, 1) << partial.output;
    EXPECT_TRUE(has(partial, "the events file " + empty + " holds no run (no run_start event)")) << partial.output;
    EXPECT_TRUE(has(partial, "the events file " + cut + " is cut short (no run_end event)")) << partial.output;
}

// The page is written, and the temporary events file removed, when the run ends and when the library
// ends the process; the run's own status stands.
TEST_F(ReportCommand, RunHtmlWritesThePageAndLeavesNoEventsBehind) {
    const std::string s = std::string(PC_SCENARIOS) + "/";
    struct Ending {
        std::string files, page_has;
        int status;
    };
    const Ending endings[] = {{s + "clean.yaml " + s + "mismatch.yaml", "mismatch.yaml", 1},
                              {s + "unknown_table.yaml", "\"ended_how\":\"exit", 1},
                              {s + "empty_batch.yaml", "\"ended_how\":\"signal 6", 134}};
    int i = 0;
    for (const Ending &e : endings) {
        std::string tmp = at("tmp" + std::to_string(++i)), page_path = at(std::to_string(i) + ".html");
        fs::create_directories(tmp);
        Outcome r = pc::test::run_command("TMPDIR=" + tmp + " " + PC_PLANECHECK + " run -q --html " + page_path + " " + e.files + " 2>&1");
        EXPECT_EQ(r.status, e.status) << r.output;
        std::string page = pc::test::read_file(page_path);
        EXPECT_TRUE(has(page, "\"verdict\":\"failed\"")) << e.files;
        EXPECT_TRUE(has(page, e.page_has)) << e.files;
        EXPECT_TRUE(fs::is_empty(tmp)) << e.files;
    }
}

TEST_F(ReportCommand, PagesThatCannotBeWrittenAndEventsOnStandardOutputAreRefused) {
    const std::string clean = std::string(" ") + PC_SCENARIOS + "/clean.yaml";
    pc::test::expect_says({
        // refused before any file ran
        {"run -q --html " + at("no/such/dir/report.html") + clean, 2, {"cannot write the HTML report to " + at("no/such/dir/report.html")},
         {"step 1"}},
        {"run -q --events - --html " + at("report.html") + clean, 2, {"--html reads the run's events back; give --events a file, not -"}},
    });
}

} // namespace
