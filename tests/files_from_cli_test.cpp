// A long-lived run that another program feeds one path at a time (`run --files-from`): each file's
// events are out before the next path is read, and a file that the library ends does not end the run.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <unistd.h>

namespace {

const std::string kScenarios = PC_SCENARIOS;

std::string scenario(const std::string &name) { return kScenarios + "/" + name + ".yaml"; }


// The file_end event of `path`, as a line of the stream, or "" when there is none.
std::string file_end_line(const std::string &events, const std::string &path) {
    for (size_t at = 0, end; (end = events.find('\n', at)) != std::string::npos; at = end + 1) {
        std::string line = events.substr(at, end - at);
        if (line.find(R"("event":"file_end")") != std::string::npos && line.find(R"("file":")" + path + "\"") != std::string::npos)
            return line;
    }
    return "";
}

std::string scratch_list(const std::string &text) {
    std::string path = testing::TempDir() + "files_from_" + std::to_string(getpid()) + ".txt";
    std::ofstream(path) << text;
    return path;
}

TEST(FilesFrom, EachFileIsReportedBeforeTheNextPathIsRead) {
    pc::test::PipedCommand run({PC_PLANECHECK, "run", "--files-from", "-", "--events", "-"});
    ASSERT_TRUE(run.read_until(R"("event":"run_start")")) << "the run starts before any path arrives";
    for (const char *name : {"clean", "mismatch"}) {
        // a run that waited for the next path (or for the end of the list) before it reported this
        // file would never get here: the next path is only written below
        ASSERT_TRUE(run.write_line(scenario(name)));
        ASSERT_TRUE(run.read_until(R"("file":")" + scenario(name) + R"(","status")")) << run.output();
    }
    EXPECT_EQ(run.finish(), 1);
    EXPECT_NE(file_end_line(run.output(), scenario("clean")).find(R"("status":"passed")"), std::string::npos);
    EXPECT_NE(file_end_line(run.output(), scenario("mismatch")).find(R"("status":"failed")"), std::string::npos);
    EXPECT_NE(run.output().find(R"("event":"run_end")"), std::string::npos);
    EXPECT_NE(run.output().find(R"("files":2,)"), std::string::npos) << "run_end counts the files that came";
}

// A list file: blank lines passed over, a last line without its newline, a missing file, a file
// the library ends; each alone is that file's result, and every other file still runs.
TEST(FilesFrom, AFileThatEndsOrCannotBeReadDoesNotEndTheRun) {
    for (const char *jobs : {"", " -j 2"}) {
        std::string list = scratch_list("\n" + scenario("unknown_table") + "\n\n" + kScenarios + "/no_such.yaml\n" +
                                        scenario("clean") + "\n" + scenario("expected_mismatch"));
        auto out = pc::test::run_command(std::string(PC_PLANECHECK) + " run --events - --files-from " + list + jobs + " 2>/dev/null");
        SCOPED_TRACE(jobs);
        EXPECT_EQ(out.status, 2) << "the unreadable file makes the run's status 2\n" << out.output;
        // the last line counts without its newline
        for (const auto &[path, status] : {std::pair{scenario("unknown_table"), "ended"}, {kScenarios + "/no_such.yaml", "invalid"},
                                           {scenario("clean"), "passed"}, {scenario("expected_mismatch"), "passed"}})
            EXPECT_NE(file_end_line(out.output, path).find(R"("status":")" + std::string(status)), std::string::npos) << path << out.output;
        // the files in the order of their lines, whatever worker ran them
        EXPECT_LT(out.output.find("unknown_table.yaml"), out.output.find("no_such.yaml"));
        EXPECT_LT(out.output.find("no_such.yaml"), out.output.find("clean.yaml"));
    }
}

TEST(FilesFrom, NamedFilesRunFirstAndAListCannotBeSharded) {
    std::string list = scratch_list(scenario("clean") + "\n"), tmp = testing::TempDir();
    auto both = pc::test::planecheck("run -q --files-from " + list + " " + scenario("mismatch"));
    EXPECT_EQ(both.status, 1);
    EXPECT_LT(both.output.find("mismatch.yaml"), both.output.find("planecheck: FAILED: 2 files")) << both.output;
    pc::test::expect_says({
        {"run --shard 1/2 --files-from " + list, 2, {"--shard and --files-from"}},
        {"run --files-from /no/such/list", 2, {"cannot read the file list /no/such/list"}},
        {"run --recorder-dir " + tmp + " --recorder " + tmp + "one.rec " + scenario("clean"), 2, {"--recorder and --recorder-dir"}},
    });
}

// A recorder that cannot be written fails its own file only, and says so in the file's events.
TEST(FilesFrom, ARecorderFolderGivesEachFileItsOwnRecorder) {
    std::string dir = testing::TempDir() + "recorders_" + std::to_string(getpid());
    std::string clean = scenario("clean"), inject = scenario("inject");
    // the folder's names: each '/' of these paths made '_'
    auto recorder_of = [&](std::string path) {
        for (char &c : path)
            if (c == '/') c = '_';
        return dir + "/" + path + ".rec";
    };
    ASSERT_EQ(pc::test::run_command("mkdir -p '" + recorder_of(clean) + "'").status, 0); // a folder where clean's recorder goes
    std::string list = scratch_list(clean + "\n" + inject + "\n");
    auto out = pc::test::run_command(std::string(PC_PLANECHECK) + " run --events - --files-from " + list + " --recorder-dir " + dir + " 2>/dev/null");
    EXPECT_EQ(out.status, 1) << out.output;
    EXPECT_NE(file_end_line(out.output, clean).find(R"("status":"failed")"), std::string::npos) << out.output;
    EXPECT_NE(out.output.find("cannot write its recorder to " + recorder_of(clean)), std::string::npos) << out.output;
    EXPECT_NE(file_end_line(out.output, inject).find(R"("status":"passed")"), std::string::npos);
    EXPECT_NE(pc::test::read_file(recorder_of(inject)).find("test_if"), std::string::npos) << "inject's own records, in a file of its own";
    EXPECT_NE(out.output.find(R"("records":{"start":0,)"), std::string::npos) << "its steps' ranges are in its own file";
}

} // namespace
