// The HTML report of a real run, loaded in headless Chromium: the examples beside a failing, an
// invalid and an ended file. The DOM after the scripts ran is read back (--dump-dom); any script
// error fails the test. Skipped, with a message, where Chromium is not installed.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using pc::test::Outcome;

// The browser: PC_CHROMIUM when it is set (a path that does not exist runs the tests as where
// there is none), or Debian's.
std::string chromium() {
    if (const char *chosen = std::getenv("PC_CHROMIUM")) return access(chosen, X_OK) == 0 ? chosen : "";
    for (const char *path : {"/usr/bin/chromium", "/usr/bin/chromium-browser"})
        if (access(path, X_OK) == 0) return path;
    return "";
}

struct Page {
    std::string dom, console; // what --dump-dom printed, and the browser's own log
};

// Loads `url` in a fresh headless Chromium with a new empty profile; `action` is --dump-dom or
// --screenshot=FILE. Timers run ahead in virtual time, so what the page does after its load is in.
Page browse(const std::string &url, const std::string &action, const fs::path &dir) {
    fs::path profile = dir / "profile", log = dir / "chromium.log";
    fs::remove_all(profile);
    std::string command = chromium() + " --headless --no-sandbox --disable-gpu --disable-quic --no-first-run"
                          " --disable-background-networking --disable-component-update --disable-sync --user-data-dir=" +
                          profile.string() + " --enable-logging=stderr --v=0 --virtual-time-budget=5000 --window-size=1280,1000 " +
                          action + " '" + url + "' 2>" + log.string();
    Page page{pc::test::run_command(command).output, pc::test::read_file(log)};
    fs::remove_all(profile);
    return page;
}

// Script errors and console errors, as the browser logs them
// ("[...:INFO:CONSOLE:1] "Uncaught ReferenceError: ...", source: file:///... (1)", "ERROR:CONSOLE:...").
std::string script_errors(const Page &page) {
    std::string errors;
    std::regex console(R"([^\n]*(ERROR:CONSOLE|Uncaught)[^\n]*)");
    for (std::sregex_iterator it(page.console.begin(), page.console.end(), console), end; it != end; ++it) errors += it->str() + "\n";
    return errors;
}

std::string inner(const std::string &dom, const std::string &open_tag) {
    size_t at = dom.rfind(open_tag);
    if (at == std::string::npos) return "";
    size_t start = dom.find('>', at + open_tag.size()) + 1;
    return dom.substr(start, dom.find('<', start) - start);
}

// The scenario files of examples/, which the run takes as examples/*.yaml.
size_t examples_count() {
    size_t n = 0;
    for (const auto &entry : fs::directory_iterator(fs::path(PC_SOURCE_DIR) / "examples"))
        n += entry.path().extension() == ".yaml";
    return n;
}

// The opening tags of the elements that have `attribute`, such as the files' <details data-file=...>.
std::vector<std::string> tags_with(const std::string &dom, const std::string &attribute) {
    std::vector<std::string> tags;
    for (size_t at = dom.find(attribute); at != std::string::npos; at = dom.find(attribute, at + 1)) {
        size_t open = dom.rfind('<', at);
        tags.push_back(dom.substr(open, dom.find('>', at) - open + 1));
    }
    return tags;
}

// The run's files that do not pass: mismatch, bad_values, bad_step and unknown_table.
constexpr size_t kFailingFiles = 4;

class ReportInBrowser : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (chromium().empty()) return;
        dir_ = new fs::path(fs::temp_directory_path() / ("report_browser_" + std::to_string(getpid())));
        fs::create_directories(*dir_);
        std::string scenarios = PC_SCENARIOS;
        run_ = new Outcome(pc::test::run_command(
            std::string(PC_PLANECHECK) + " run -q -j 2 --events " + (*dir_ / "run.events").string() + " --coverage " +
            (*dir_ / "coverage.json").string() + " --html " + page() + " " + PC_SOURCE_DIR + "/examples/*.yaml " + scenarios +
            "/mismatch.yaml " + scenarios + "/bad_values.yaml " + scenarios + "/bad_step.yaml " + scenarios +
            "/unknown_table.yaml 2>/dev/null"));
    }
    static void TearDownTestSuite() {
        if (dir_) fs::remove_all(*dir_);
        delete dir_;
        delete run_;
    }
    void SetUp() override {
        if (chromium().empty()) GTEST_SKIP() << "Chromium is not installed (apt-get install chromium); the report is not loaded in a browser";
        ASSERT_EQ(run_->status, 2) << run_->output; // the invalid file makes the run INVALID
        ASSERT_TRUE(fs::exists(page())) << run_->output;
    }
    static std::string page() { return (*dir_ / "report.html").string(); }
    static std::string url(const std::string &fragment = "") { return "file://" + page() + fragment; }
    static fs::path *dir_;
    static Outcome *run_;
};
fs::path *ReportInBrowser::dir_;
Outcome *ReportInBrowser::run_;

TEST_F(ReportInBrowser, ShowsTheVerdictTheCountsAndAFailingStepsValues) {
    Page page = browse(url(), "--dump-dom", *dir_);
    EXPECT_EQ(script_errors(page), "");
    EXPECT_NE(page.dom.find("data-ready=\"true\""), std::string::npos) << page.dom.substr(0, 2000);
    EXPECT_NE(page.dom.find("<pre id=\"script-errors\" class=\"script-errors\" role=\"alert\" hidden=\"\"></pre>"), std::string::npos);
    EXPECT_EQ(inner(page.dom, "<span id=\"verdict\""), "INVALID");
    // the totals the page shows are the run's own summary line
    std::smatch summary;
    ASSERT_TRUE(std::regex_search(run_->output, summary, std::regex(R"(planecheck: INVALID: (\d+) files, (\d+) steps.*?, (\d+) mismatches, (\d+) value errors)")))
        << run_->output;
    EXPECT_EQ(inner(page.dom, "<div data-total=\"files\"><dt>files</dt><dd"), summary[1].str() + " (4 failed)");
    EXPECT_EQ(inner(page.dom, "<div data-total=\"steps\"><dt>steps</dt><dd"), summary[2].str());
    EXPECT_EQ(inner(page.dom, "<div data-total=\"mismatches\"><dt>mismatches</dt><dd"), summary[3].str());
    EXPECT_EQ(inner(page.dom, "<div data-total=\"value_errors\"><dt>value errors</dt><dd"), summary[4].str());
    // mismatch.yaml's get expects attr_a1: 6 and receives 5; both are shown, the difference marked
    EXPECT_NE(page.dom.find("<dd class=\"expected\"><code><mark>6</mark></code></dd>"), std::string::npos);
    EXPECT_NE(page.dom.find("<dd class=\"received\"><code><mark>5</mark></code></dd>"), std::string::npos);
    EXPECT_NE(page.dom.find("attr_a1: 6 }"), std::string::npos); // the scenario's own line, around the step
    // a value error is placed at its value's column, as the command does; a mismatch at its record's line
    std::string values = std::string(PC_SCENARIOS) + "/bad_values.yaml";
    EXPECT_NE(page.dom.find(">" + values + ":7:20: </span>"), std::string::npos);
    EXPECT_NE(page.dom.find(">" + values + ":17:21: </span>"), std::string::npos);
    EXPECT_NE(page.dom.find(">" + std::string(PC_SCENARIOS) + "/mismatch.yaml:9: </span>"), std::string::npos);
    // failed files first: the invalid, the ended and the failing files come before the examples
    std::vector<std::string> files = tags_with(page.dom, "data-file=");
    ASSERT_EQ(files.size(), examples_count() + kFailingFiles);
    for (size_t i = 0; i < files.size(); ++i)
        EXPECT_EQ(files[i].find("data-status=\"passed\"") == std::string::npos, i < kFailingFiles) << files[i];
    EXPECT_NE(page.dom.find("exit status 1"), std::string::npos);            // how the ended file ended
    EXPECT_NE(page.dom.find("unknown step kind 'sned'"), std::string::npos); // the invalid file's error
    EXPECT_NE(page.dom.find("<section id=\"coverage\" class=\"coverage\" aria-labelledby"), std::string::npos); // not hidden
    EXPECT_NE(page.dom.find("of 315 types"), std::string::npos);
}

// The page as shown, without the run's data and the scripts, which hold every text once more.
std::string shown(const std::string &dom) {
    std::string out;
    size_t from = 0;
    for (size_t at; (at = dom.find("<script", from)) != std::string::npos; from = dom.find("</script>", at) + 9) out += dom.substr(from, at - from);
    return out + dom.substr(from);
}

// The text of the first element that opens with `open_tag`, its inner tags left out.
std::string text_of(const std::string &dom, const std::string &open_tag) {
    size_t at = dom.find(open_tag);
    if (at == std::string::npos) return "";
    size_t start = at + open_tag.size();
    std::string inside = dom.substr(start, dom.find("</dd>", start) - start);
    return std::regex_replace(inside, std::regex("<[^>]*>"), "");
}

TEST_F(ReportInBrowser, FilesThatEndedOrAreInvalidAndStatusesReadOnce) {
    Page page = browse(url(), "--dump-dom", *dir_);
    EXPECT_EQ(script_errors(page), "");
    std::string dom = shown(page.dom);
    // the ended file's banner: its place once, the library's message with the name meant
    std::string ended = std::string(PC_SCENARIOS) + "/unknown_table.yaml";
    EXPECT_NE(dom.find("The library ended the run with exit status 1 at " + ended + ":4: unknown table test_iff; did you mean test_if?<"),
              std::string::npos) << dom;
    // the invalid file's error and its lines stand once, at the step it stopped at
    std::string invalid = std::string(PC_SCENARIOS) + "/bad_step.yaml";
    EXPECT_EQ(pc::test::text::count(dom, "unknown step kind 'sned'"), 1u);
    size_t file = dom.find("data-file=\"" + invalid + "\""), next = dom.find("data-file=", file + 1);
    ASSERT_NE(file, std::string::npos);
    EXPECT_EQ(pc::test::text::count(dom.substr(file, next - file), "sned: { test_if: [] }"), 1u);
    // mismatch.yaml's create meets EEXIST where it expects EOK: names with the numbers beside them
    EXPECT_EQ(text_of(dom, "<dd class=\"expected\">"), "EOK (0)");
    EXPECT_EQ(text_of(dom, "<dd class=\"received\">"), "EEXIST (17)");
}

// A run that passes with the mismatches its expect: accounts for says so beside the verdict.
TEST_F(ReportInBrowser, ExpectedMismatchesStandBesideThePass) {
    std::string passing = (*dir_ / "passing.html").string();
    ASSERT_EQ(pc::test::run_command(std::string(PC_PLANECHECK) + " run -q --html " + passing + " " + PC_SCENARIOS +
                                    "/expected_mismatch.yaml 2>&1").status, 0);
    Page page = browse("file://" + passing, "--dump-dom", *dir_);
    EXPECT_EQ(script_errors(page), "");
    EXPECT_EQ(inner(page.dom, "<span id=\"verdict\""), "PASSED");
    EXPECT_EQ(inner(page.dom, "<span id=\"verdict-note\""), " · 2 expected mismatches");
    EXPECT_NE(page.dom.find("<title>PASSED · 2 expected mismatches: "), std::string::npos);
}

TEST_F(ReportInBrowser, TheFragmentChoosesTheView) {
    Page failed = browse(url("#failed"), "--dump-dom", *dir_);
    EXPECT_EQ(script_errors(failed), "");
    EXPECT_NE(failed.dom.find("data-view=\"failed\""), std::string::npos);
    std::vector<std::string> files = tags_with(failed.dom, "data-file=");
    ASSERT_EQ(files.size(), examples_count() + kFailingFiles);
    for (const std::string &tag : files)
        EXPECT_EQ(tag.find("hidden") != std::string::npos, tag.find("data-status=\"passed\"") != std::string::npos) << tag;
    EXPECT_NE(failed.dom.find(std::to_string(kFailingFiles) + " of " + std::to_string(files.size()) + " files shown"), std::string::npos);

    // the search looks at files, steps and findings: a file is shown when one of its events names nhgroup
    Page search = browse(url("#search=nhgroup"), "--dump-dom", *dir_);
    EXPECT_EQ(script_errors(search), "");
    std::string events = pc::test::read_file((*dir_ / "run.events").string());
    size_t shown = 0;
    for (const std::string &tag : tags_with(search.dom, "data-file=")) {
        std::string path = tag.substr(tag.find("data-file=\"") + 11);
        path = path.substr(0, path.find('"'));
        bool named = std::regex_search(events, std::regex("\"file\":\"" + path + "\"[^\n]*nhgroup"));
        EXPECT_EQ(tag.find("hidden") == std::string::npos, named) << tag;
        shown += named;
    }
    EXPECT_GT(shown, 0u);
}

TEST_F(ReportInBrowser, ContrastAndKeyboardHoldOnTheRenderedPage) {
    // a copy of the page with the checks appended, every file opened by them
    std::string html = pc::test::read_file(page());
    std::string checks = pc::test::read_file(std::string(PC_SOURCE_DIR) + "/tests/report_page_checks.js");
    ASSERT_FALSE(checks.empty());
    html.insert(html.rfind("</body>"), "<script>" + checks + "</script>\n");
    fs::path checked = *dir_ / "checked.html";
    {
        std::ofstream(checked) << html;
    }
    Page result = browse("file://" + checked.string(), "--dump-dom", *dir_);
    EXPECT_EQ(script_errors(result), "");
    std::string json = inner(result.dom, "<pre id=\"page-checks\"");
    ASSERT_FALSE(json.empty()) << result.dom.substr(result.dom.size() > 3000 ? result.dom.size() - 3000 : 0);
    EXPECT_NE(json.find("\"failures\":[]},\"keyboard\":{\"failures\":[]}"), std::string::npos) << json;
    std::smatch checked_count;
    ASSERT_TRUE(std::regex_search(json, checked_count, std::regex(R"("checked":(\d+))")));
    EXPECT_GT(std::stoi(checked_count[1]), 200) << json; // the rows of every file were measured, not an empty page
}

TEST_F(ReportInBrowser, AScreenshotIsTaken) {
    std::string shot = PC_REPORT_SCREENSHOT;
    fs::remove(shot);
    Page page = browse(url(), "--screenshot=" + shot, *dir_);
    EXPECT_EQ(script_errors(page), "");
    ASSERT_TRUE(fs::exists(shot));
    EXPECT_GT(fs::file_size(shot), 20000u); // a page, not a blank picture
}

} // namespace
