// Every end of a run keeps its evidence: the library's exit and assertions, a stop signal, and
// files run in processes of their own, whose parts must all arrive and whose failures must show.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

std::string temp_path(const std::string &name) { return testing::TempDir() + "endings_" + std::to_string(getpid()) + "_" + name; }

std::string write_file(const std::string &name, const std::string &text) {
    std::string path = temp_path(name);
    std::ofstream(path) << text;
    return path;
}

using pc::test::read_file;

size_t count(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++n;
    return n;
}

std::string creates_then(const std::string &last_step, int creates = 100) {
    std::string text = "steps:\n";
    for (int i = 1; i <= creates; ++i) text += "  - send: { test_if: [ { op: create, key_a: " + std::to_string(i) + " } ] }\n";
    return text + last_step;
}

// Records that start and end: a record cut in half would leave an opening line without its end.
void expect_whole_records(const std::string &recorded, size_t records, const std::string &context) {
    EXPECT_EQ(count(recorded, "\n},\n"), records) << context;
    EXPECT_EQ(count("\n" + recorded, "\n{\n"), records) << context;
    ASSERT_GE(recorded.size(), 3u) << context;
    EXPECT_EQ(recorded.substr(recorded.size() - 3), "},\n") << context;
}

pc::test::Outcome planecheck(const std::string &args, const std::string &environment = "") {
    return pc::test::run_command(environment + (environment.empty() ? "" : " ") + PC_PLANECHECK + " " + args);
}

TEST(Endings, TheLibrarysExitAndAssertionKeepEveryRecordAndStepLine) {
    const std::pair<const char *, const char *> endings[] = {
        {"unknown", "  - send: { no_such_table: [ { op: create } ] }\n"},
        {"batch", "  - send: { batch_crud: [] }\n"},
    };
    std::string other = write_file("other.yaml", "steps:\n  - send: { test_if: [ { op: create, key_a: 7 } ] }\n"
                                                 "  - send: { test_if: [ { op: delete, key_a: 7 } ] }\n");
    for (const auto &[name, last] : endings) {
        std::string file = write_file(std::string(name) + ".yaml", creates_then(last)), rec = temp_path("ending.rec");
        // standard output is a pipe here, as in CI; standard error is dropped to see the step lines alone
        pc::test::Outcome alone = planecheck("run --recorder " + rec + " " + file + " 2>/dev/null");
        EXPECT_NE(alone.status, 0) << name;
        EXPECT_EQ(count(alone.output, " send test_if: ok\n"), 100u) << name << "\n" << alone.output;
        std::string recorded = read_file(rec);
        EXPECT_EQ(count(recorded, "\"op\": \"create\""), 100u) << name;
        expect_whole_records(recorded, 100, name);

        pc::test::Outcome jobs = planecheck("run -j 2 --recorder " + rec + " " + file + " " + other + " 2>&1");
        EXPECT_EQ(jobs.status, 1) << jobs.output;
        EXPECT_EQ(count(jobs.output, " send test_if: ok\n"), 102u) << name << "\n" << jobs.output;
        EXPECT_NE(jobs.output.find(file + ": the run ended early with"), std::string::npos) << jobs.output;
        recorded = read_file(rec);
        EXPECT_EQ(count(recorded, "\"op\": \"create\""), 101u) << name;
        EXPECT_EQ(count(recorded, "\"op\": \"delete\""), 1u) << name;
        expect_whole_records(recorded, 102, name);
    }
}

TEST(Endings, ParallelPartsAreJoinedPastAnEmptyOne) {
    std::string empty = write_file("empty.yaml", ""), rec = temp_path("join.rec");
    std::string other = write_file("join_other.yaml", "steps:\n  - send: { test_if: [ { op: create, key_a: 7 } ] }\n"
                                                      "  - send: { test_if: [ { op: delete, key_a: 7 } ] }\n");
    pc::test::Outcome r = planecheck("run -j 2 --recorder " + rec + " " + empty + " " + other + " " + other + " 2>&1");
    EXPECT_EQ(r.status, 2) << r.output; // the empty file has no steps
    EXPECT_NE(r.output.find(empty + ":1:1: the file has no steps"), std::string::npos) << r.output;
    std::string recorded = read_file(rec);
    EXPECT_EQ(count(recorded, "\"op\": \"create\""), 2u) << recorded;
    expect_whole_records(recorded, 4, "after an empty part");
}

TEST(Endings, FilesThatCannotRunFailWithTheirCause) {
    std::string file = write_file("cannot.yaml", "steps:\n  - send: { test_if: [ { op: create, key_a: 7 } ] }\n");
    pc::test::Outcome no_tmp = planecheck("run -j 2 " + file + " " + file + " 2>&1", "TMPDIR=/nonexistent/dir");
    EXPECT_EQ(no_tmp.status, 1) << no_tmp.output;
    EXPECT_EQ(count(no_tmp.output, file + ": not run: cannot create a temporary file in /nonexistent/dir: No such file"), 2u)
        << no_tmp.output;
    EXPECT_EQ(no_tmp.output.find("PASSED"), std::string::npos) << no_tmp.output;

    // temporary files that fill up (here: a file size limit) fail the file and the joined recorder
    std::string many = write_file("many.yaml", creates_then("")), rec = temp_path("limited.rec");
    pc::test::Outcome limited = planecheck("run -j 2 --recorder " + rec + " " + many + " " + file + " 2>&1",
                                           "trap '' XFSZ; ulimit -f 2; exec");
    EXPECT_EQ(limited.status, 2) << limited.output;
    for (const std::string &message : {many + ": its output could not be written in full to a temporary file in ",
                                      many + ": cannot write its recorder part: File too large",
                                      "planecheck: the recorder " + rec + " is incomplete: cannot write: File too large"})
        EXPECT_NE(limited.output.find(message), std::string::npos) << message << "\n" << limited.output;
    EXPECT_EQ(limited.output.find("PASSED"), std::string::npos) << limited.output;

    // an unwritable report is a usage error found before any file runs
    for (const std::string option : {"-j 2 --recorder", "--recorder", "-j 2 --junit", "--junit"}) {
        pc::test::Outcome r = planecheck("run " + option + " /nonexistent/dir/out " + file + " 2>&1");
        EXPECT_EQ(r.status, 2) << option << "\n" << r.output;
        EXPECT_NE(r.output.find("to /nonexistent/dir/out: No such file or directory"), std::string::npos) << r.output;
        EXPECT_EQ(r.output.find("step 1"), std::string::npos) << r.output;
    }
}

// A stop signal ends the run after the record being written: the file holds whole records only,
// and the process ends with the signal, as a script expects.
TEST(Endings, AStopSignalEndsTheRunAfterAWholeRecord) {
    std::string file = temp_path("long.yaml"), rec = temp_path("long.rec");
    write_file("long.yaml", creates_then("", 400000));
    pid_t child = fork();
    if (child == 0) {
        int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execl(PC_PLANECHECK, "planecheck", "run", "--recorder", rec.c_str(), file.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    struct stat st {};
    for (int i = 0; i < 3000 && (stat(rec.c_str(), &st) != 0 || st.st_size == 0); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // the first records are out
    kill(child, SIGTERM);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the run finished before the signal: status " << status;
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    std::string recorded = read_file(rec);
    size_t records = count(recorded, "\"op\": \"create\"");
    EXPECT_GT(records, 0u);
    EXPECT_LT(records, 400000u);
    expect_whole_records(recorded, records, "after SIGTERM");
    std::remove(file.c_str());
    std::remove(rec.c_str());
}

} // namespace
