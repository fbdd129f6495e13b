// What a run, a check and a diff are given and what they say back, as users meet it: folders as
// suites, input refused rather than cut short, and the same message in every form.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Result = pc::test::Outcome;
using pc::test::text::has;
using pc::test::planecheck;
using pc::test::read_file;

// A fresh directory of its own for each test.
class Scratch : public testing::Test {
protected:
    void SetUp() override {
        dir_ = testing::TempDir() + "evidence_" + std::to_string(getpid()) + "_" +
               testing::UnitTest::GetInstance()->current_test_info()->name();
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string write(const std::string &name, const std::string &text) {
        std::string path = dir_ + "/" + name;
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

    std::string dir_;
};

std::string creates(int key) {
    return "steps:\n  - send: { test_if: [ { op: create, key_a: " + std::to_string(key) + " } ] }\n";
}

// The files a run went through, in the order of its step lines.
std::vector<std::string> files_run(const Result &r, const std::string &dir) {
    std::vector<std::string> files;
    std::istringstream lines(r.output);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(dir + "/", 0) == 0 && line.find(": step 1 ") != std::string::npos)
            files.push_back(line.substr(dir.size() + 1, line.find(':') - dir.size() - 1));
    return files;
}

using Folders = Scratch;

TEST_F(Folders, ADirectoryIsASuiteOfItsScenarioFilesInSortedOrder) {
    write("b.yaml", creates(1));
    write("a/z.yml", creates(2));
    write("a/c.json", R"({"steps": [{"send": {"test_if": [{"op": "create", "key_a": 3}]}}]})");
    write("d.jsonl", "{\"send\": {\"test_if\": [{\"op\": \"create\", \"key_a\": 4}]}}\n");
    write("notes.txt", "not a scenario");
    write(".hidden/x.yaml", "steps: [ oops");
    Result r = planecheck("run " + dir_);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(has(r, "PASSED: 4 files")) << r.output;
    EXPECT_EQ(files_run(r, dir_), (std::vector<std::string>{"a/c.json", "a/z.yml", "b.yaml", "d.jsonl"})) << r.output;

    Result check = planecheck("check " + dir_);
    EXPECT_EQ(check.status, 0) << check.output;
    EXPECT_TRUE(has(check, "4 files")) << check.output;

    // the shard applies to the expanded list: every second file of the four
    Result shard = planecheck("run --shard 2/2 " + dir_);
    EXPECT_EQ(files_run(shard, dir_), (std::vector<std::string>{"a/z.yml", "d.jsonl"})) << shard.output;
}

TEST_F(Folders, AFolderWithoutScenariosIsAnErrorAndFilesBesideFoldersKeepTheirPlace) {
    write("empty/.hidden/x.yaml", creates(1));
    write("empty/readme.txt", "");
    Result r = planecheck("run " + dir_ + "/empty");
    EXPECT_EQ(r.status, 2) << r.output;
    EXPECT_TRUE(has(r, dir_ + "/empty: no scenario file (*.yaml, *.yml, *.json, *.jsonl) in this directory")) << r.output;
    EXPECT_FALSE(has(r, "step 1")) << r.output;

    std::string first = write("first.yaml", creates(1));
    write("suite/s.yaml", creates(2));
    Result mixed = planecheck("run -j 2 " + first + " " + dir_ + "/suite " + first);
    EXPECT_EQ(mixed.status, 0) << mixed.output;
    EXPECT_EQ(files_run(mixed, dir_), (std::vector<std::string>{"first.yaml", "suite/s.yaml", "first.yaml"})) << mixed.output;

    fs::create_symlink(dir_ + "/gone.yaml", dir_ + "/suite/dangling.yaml"); // a suite file that cannot be read is no pass
    Result dangling = planecheck("run " + dir_ + "/suite");
    EXPECT_EQ(dangling.status, 2) << dangling.output;
    EXPECT_TRUE(has(dangling, dir_ + "/suite/dangling.yaml: cannot open")) << dangling.output;
    EXPECT_TRUE(has(dangling, "INVALID: 2 files")) << dangling.output;

    // a file and a folder that cannot be read stay in the suite by their paths; root reads
    // anything, so the run then drops to nobody
    write("suite/locked/inner.yaml", creates(3));
    write("suite/secret.yaml", creates(4));
    fs::permissions(dir_ + "/suite/locked", fs::perms::none);
    fs::permissions(dir_ + "/suite/secret.yaml", fs::perms::none);
    std::string as_user = geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
    Result locked = pc::test::run_command(as_user + PC_PLANECHECK + " run " + dir_ + "/suite 2>&1");
    fs::permissions(dir_ + "/suite/locked", fs::perms::owner_all);
    EXPECT_EQ(locked.status, 2) << locked.output;
    EXPECT_TRUE(has(locked, dir_ + "/suite/locked: cannot open: Permission denied")) << locked.output;
    EXPECT_TRUE(has(locked, dir_ + "/suite/secret.yaml: cannot open: Permission denied")) << locked.output;
    EXPECT_TRUE(has(locked, "INVALID: 4 files")) << locked.output;
}

using Refusals = Scratch;

// A NUL inside a text would reach the library cut short at it: refused at the text, in every form.
TEST_F(Refusals, ANulInsideATextIsRefusedAtTheTextInEveryForm) {
    struct Case {
        const char *name;
        std::string text;
        const char *where;
    } cases[] = {
        {"op.yaml", "steps:\n  - send: { test_if: [ { op: \"create\\0junk\", key_a: 1 } ] }\n", ":2:30: "},
        {"value.yaml", "steps:\n  - send: { opticsport: [ { op: create, optics_ifh: 1, ifname: \"ab\\0cd\" } ] }\n", ":2:64: "},
        {"key.yaml", "steps:\n  - send: { test_if: [ { op: create, \"key_a\\0x\": 1 } ] }\n", ":2:38: "},
        {"value.json", "{\"steps\": [{\"send\": {\"opticsport\": [{\"op\": \"create\", \"optics_ifh\": 1, \"ifname\": \"ab\\u0000cd\"}]}}]}\n",
         ":1:81: "},
        {"op.jsonl", "{\"send\": {\"test_if\": [{\"op\": \"create\\u0000junk\", \"key_a\": 1}]}}\n", ":1:30: "},
        {"key.jsonl", "{\"send\": {\"test_if\": [{\"op\": \"create\", \"key_a\\u0000x\": 1}]}}\n", ":1:40: "},
    };
    for (const Case &c : cases) {
        std::string file = write(c.name, c.text), rec = dir_ + "/nul.rec";
        Result run = planecheck("run --recorder " + rec + " " + file);
        EXPECT_EQ(run.status, 2) << c.name << "\n" << run.output;
        EXPECT_TRUE(has(run, file + c.where + "a NUL character")) << c.name << "\n" << run.output;
        EXPECT_EQ(read_file(rec), "") << c.name; // nothing ran
        Result check = planecheck("check " + file);
        EXPECT_EQ(check.status, 2) << c.name << "\n" << check.output;
        EXPECT_TRUE(has(check, file + c.where + "a NUL character")) << c.name << "\n" << check.output;
    }
}

// The message of a refusal, without the file, line and column in front of it.
std::string refusal(const Result &r, const std::string &file) {
    size_t at = r.output.find(file + ":");
    if (at == std::string::npos) return "(no message for " + file + ")";
    size_t line = r.output.find(": ", at + file.size() + 1);
    size_t end = r.output.find('\n', line);
    return r.output.substr(line + 2, end - line - 2);
}

// Each kind of refusal that the scenario forms share gives one message, whichever the form.
TEST_F(Refusals, TheJsonFormsGiveTheYamlFormsMessageForEveryLimit) {
    struct Row {
        const char *name, *yaml, *json, *jsonl;
        const char *message; // how the message begins
    } rows[] = {
        {"twice", "name: a\nname: b\nsteps:\n  - expect: { mismatches: 0 }\n",
         "{\"name\": \"a\", \"name\": \"b\", \"steps\": [{\"expect\": {\"mismatches\": 0}}]}\n",
         "{\"name\": \"a\", \"name\": \"b\"}\n{\"expect\": {\"mismatches\": 0}}\n", "'name' is given twice"},
        {"infinite", "steps:\n  - inject: { op: \"test_if create\", status: 1e400 }\n",
         "{\"steps\": [{\"inject\": {\"op\": \"test_if create\", \"status\": 1e400}}]}\n",
         "{\"inject\": {\"op\": \"test_if create\", \"status\": -1e400}}\n", "status: the value is not a finite number"},
        {"range", "steps:\n  - send: { nhgroup: [ { op: create, nhgroup_id: 1, num_paths: 4294967296 } ] }\n",
         "{\"steps\": [{\"send\": {\"nhgroup\": [{\"op\": \"create\", \"nhgroup_id\": 1, \"num_paths\": 4294967296}]}}]}\n",
         "{\"send\": {\"nhgroup\": [{\"op\": \"create\", \"nhgroup_id\": 1, \"num_paths\": 4294967296}]}}\n",
         "num_paths: the value is out of range (-2147483648 to 4294967295)"},
        {"sdk_rc", "steps:\n  - send: { test_if: [ { op: get, key_a: 1 } ] }\n    sdk: { test_if: [ { op: get, rc: 1e400 } ] }\n",
         "{\"steps\": [{\"send\": {\"test_if\": [{\"op\": \"get\", \"key_a\": 1}]}, \"sdk\": {\"test_if\": [{\"op\": \"get\", \"rc\": 1.5e999}]}}]}\n",
         "{\"send\": {\"test_if\": [{\"op\": \"get\", \"key_a\": 1}]}, \"sdk\": {\"test_if\": [{\"op\": \"get\", \"rc\": 1e400}]}}\n",
         "rc: the value is not a finite number"},
        {"no_steps", "steps: []\n", "{\"steps\": []}\n", "{\"name\": \"only a name\"}\n",
         "the file has no steps; a scenario runs at least one step under steps:"},
        {"empty", "", "", "", "the file has no steps; a scenario runs at least one step under steps:"},
    };
    for (const Row &row : rows) {
        std::string messages[3];
        const char *texts[3] = {row.yaml, row.json, row.jsonl};
        const char *suffixes[3] = {".yaml", ".json", ".jsonl"};
        for (int form = 0; form < 3; ++form) {
            std::string file = write(std::string(row.name) + suffixes[form], texts[form]);
            Result r = planecheck("run " + file);
            EXPECT_EQ(r.status, 2) << file << "\n" << r.output;
            messages[form] = refusal(r, file);
            EXPECT_EQ(messages[form].rfind(row.message, 0), 0u) << file << " said: " << messages[form];
        }
        EXPECT_EQ(messages[1], messages[0]) << row.name;
        EXPECT_EQ(messages[2], messages[0]) << row.name;
    }
}

TEST_F(Refusals, AnIdWiderThan64BitsIsRefusedWithHowToWriteItAsText) {
    std::string wide = write("wide.yaml", "steps:\n  - send: { nhgroup: [ { op: create, nhgroup_id: 0x0102030405060708090a0b0c } ] }\n");
    Result r = planecheck("run " + wide);
    EXPECT_EQ(r.status, 2) << r.output;
    EXPECT_TRUE(has(r, wide + ":2:50: the integer 0x0102030405060708090a0b0c does not fit in 64 bits")) << r.output;
    EXPECT_TRUE(has(r, "a field wider than 64 bits takes its value quoted, as text: \"0x0102030405060708090a0b0c\"")) << r.output;
}

using Diffs = Scratch;

TEST_F(Diffs, AMissingFileOrADirectoryIsUnreadableNotAnEmptyRecording) {
    std::string scenario = write("s.yaml", creates(1)), rec = dir_ + "/before.rec";
    ASSERT_EQ(planecheck("run -q --recorder " + rec + " " + scenario).status, 0);
    const std::string directory = dir_ + ": cannot read the recording: it is a directory";
    pc::test::expect_says({
        {"diff " + rec + " " + dir_ + "/nosuch.rec", 2,
         {"nosuch.rec: cannot read the recording: No such file or directory",
          "planecheck diff: cannot compare: " + dir_ + "/nosuch.rec could not be read (1 record read from " + rec + ")"},
         {"(0 and 0 records)"}},
        {"diff " + dir_ + " " + dir_, 2, {directory}, {"equal"}},
        {"diff " + dir_ + " " + rec, 2, {directory}, {"equal"}},
        {"diff " + rec + " " + dir_, 2, {directory}, {"equal"}},
    });
}

} // namespace
