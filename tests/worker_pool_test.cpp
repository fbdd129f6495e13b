// Files run by a pool of worker processes: when the library ends a worker in the middle of a
// long run, that file is reported where it stood, a new worker takes over, and every other file's
// results, output and records arrive whole and in the files' order.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sys/wait.h>
#include <thread>
#include <regex>
#include <string>
#include <vector>
#include <unistd.h>

namespace {

constexpr int kFiles = 50;
constexpr int kEndsByExit = 20;      // an unknown table: the library's exit status 1
constexpr int kEndsByAssertion = 35; // an empty batch: the library's assertion

std::string temp_path(const std::string &name) { return testing::TempDir() + "pool_" + std::to_string(getpid()) + "_" + name; }

std::string file_name(int i) { return temp_path((i < 10 ? "0" : "") + std::to_string(i) + ".yaml"); }

std::string create(int key) { return "  - send: { test_if: [ { op: create, key_a: " + std::to_string(key) + " } ] }\n"; }

// File i creates and deletes key i; the two ending files create key i and then end.
std::vector<std::string> write_files() {
    std::vector<std::string> files;
    for (int i = 1; i <= kFiles; ++i) {
        std::string text = "steps:\n" + create(i);
        if (i == kEndsByExit) text += "  - send: { no_such_table: [ { op: create } ] }\n";
        else if (i == kEndsByAssertion) text += "  - send: { batch_crud: [] }\n";
        else text += "  - send: { test_if: [ { op: delete, key_a: " + std::to_string(i) + " } ] }\n";
        std::ofstream(file_name(i)) << text;
        files.push_back(file_name(i));
    }
    return files;
}

size_t count(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++n;
    return n;
}

// Every line that names file i comes after every line that names file i-1 (up to the summary,
// which names the files that ended).
void expect_outputs_in_order(const std::string &all_output, const std::vector<std::string> &files, const std::string &how) {
    std::string output = all_output.substr(0, all_output.rfind("\nplanecheck: FAILED"));
    size_t last_of_previous = 0;
    for (size_t i = 0; i < files.size(); ++i) {
        std::string name = files[i] + ":";
        size_t first = output.find(name), last = output.rfind(name);
        ASSERT_NE(first, std::string::npos) << how << ": nothing of " << files[i] << "\n" << output;
        EXPECT_GE(first, last_of_previous) << how << ": " << files[i] << " is not in its place\n" << output;
        last_of_previous = last;
    }
}

// The recorder holds, in file order, each file's records: create and delete of its key, only the
// create for the files that ended.
void expect_records_in_order(const std::string &recorded, const std::string &how) {
    std::vector<std::string> expected, got;
    for (int i = 1; i <= kFiles; ++i) {
        expected.push_back(std::to_string(i) + " create");
        if (i != kEndsByExit && i != kEndsByAssertion) expected.push_back(std::to_string(i) + " delete");
    }
    static const std::regex record(R"re("key_a": (\d+),[\s\S]*?"op": "(\w+)")re");
    for (std::sregex_iterator it(recorded.begin(), recorded.end(), record), end; it != end; ++it)
        got.push_back((*it)[1].str() + " " + (*it)[2].str());
    EXPECT_EQ(got, expected) << how;
    EXPECT_EQ(count("\n" + recorded, "\n{\n"), expected.size()) << how << ": a record was cut";
    EXPECT_EQ(count(recorded, "\n},\n"), expected.size()) << how << ": a record was cut";
}

// JUnit: one test case per file, in file order; the two ending files fail and name their end.
void expect_junit(const std::string &xml, const std::vector<std::string> &files, const std::string &how) {
    EXPECT_NE(xml.find("tests=\"50\" failures=\"2\""), std::string::npos) << how << "\n" << xml;
    size_t at = 0;
    for (int i = 1; i <= kFiles; ++i) {
        size_t testcase = xml.find("<testcase classname=\"planecheck\" name=\"" + files[i - 1] + "\"", at);
        ASSERT_NE(testcase, std::string::npos) << how << ": test case " << i << " missing or out of order";
        size_t next = xml.find("</testcase>", testcase);
        bool failed = xml.substr(testcase, next - testcase).find("<failure") != std::string::npos;
        EXPECT_EQ(failed, i == kEndsByExit || i == kEndsByAssertion) << how << ": test case " << i;
        at = next;
    }
}

TEST(WorkerPool, AWorkerTheLibraryEndsIsReplacedAndEveryOtherFileArrivesInOrder) {
    std::vector<std::string> files = write_files();
    std::string list;
    for (const auto &f : files) list += " " + f;
    std::string rec = temp_path("run.rec"), xml = temp_path("run.xml");
    for (const std::string jobs : {"-j 1", "-j 2", "-j 3"}) {
        pc::test::Outcome r =
            pc::test::run_command(std::string(PC_PLANECHECK) + " run " + jobs + " --recorder " + rec + " --junit " + xml + list + " 2>&1");
        EXPECT_EQ(r.status, 1) << jobs << "\n" << r.output;
        EXPECT_EQ(count(r.output, " send test_if: ok\n"), size_t(2 * kFiles - 2)) << jobs << "\n" << r.output;
        EXPECT_NE(r.output.find(files[kEndsByExit - 1] + ": the run ended early with exit status 1 in step 2"), std::string::npos)
            << jobs << "\n" << r.output;
        EXPECT_NE(r.output.find(files[kEndsByAssertion - 1] + ": the run ended early with signal 6"), std::string::npos)
            << jobs << "\n" << r.output;
        EXPECT_NE(r.output.find("unknown table no_such_table"), std::string::npos) << jobs << "\n" << r.output;
        expect_outputs_in_order(r.output, files, jobs);
        expect_records_in_order(pc::test::read_file(rec), jobs);
        expect_junit(pc::test::read_file(xml), files, jobs);
    }

    // TAP numbers the same files in the same order from a single worker, replaced twice
    pc::test::Outcome tap = pc::test::run_command(std::string(PC_PLANECHECK) + " run --tap" + list + " 2>/dev/null");
    EXPECT_EQ(tap.status, 1) << tap.output;
    for (int i = 1; i <= kFiles; ++i) {
        bool fails = i == kEndsByExit || i == kEndsByAssertion;
        std::string point = std::string("\n") + (fails ? "not ok " : "ok ") + std::to_string(i) + " - " + files[i - 1] + " (";
        EXPECT_NE(("\n" + tap.output).find(point), std::string::npos) << point << "\n" << tap.output;
    }
    for (const auto &f : files) std::remove(f.c_str());
    std::remove(rec.c_str());
    std::remove(xml.c_str());
}

// Each file runs on a fresh data plane, though its worker ran files before it: a handle or an
// object an earlier file left behind is not seen by the next one.
TEST(WorkerPool, AFileDoesNotSeeWhatAnEarlierFileOfItsWorkerLeft) {
    std::string leaves = temp_path("leaves.yaml"), expects_empty = temp_path("fresh.yaml");
    std::ofstream(leaves) << "steps:\n  - send: { test_if: [ { op: create, key_a: 9, hdl: kept } ] }\n";
    // a create of the same key succeeds only on a data plane that does not hold it yet
    std::ofstream(expects_empty) << "steps:\n  - send: { test_if: [ { op: create, key_a: 9, rc: 0 } ] }\n"
                                    "  - send: { test_if: [ { op: get, key_a: 9 } ] }\n";
    pc::test::Outcome r = pc::test::run_command(std::string(PC_PLANECHECK) + " run -j 1 " + leaves + " " + expects_empty + " " +
                                                leaves + " " + expects_empty + " 2>&1");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(count(r.output, ": ok\n"), 6u) << r.output;
    std::remove(leaves.c_str());
    std::remove(expects_empty.c_str());
}

// A stop signal to the parent stops the files its workers run at their next safe point: the
// recorder holds the finished files' records and then whole records of the stopped one, the
// stopped file is reported, and the parent ends with the signal.
TEST(WorkerPool, AStopSignalEndsTheWorkersFilesAfterWholeRecords) {
    std::string small = temp_path("stop_small.yaml"), long_file = temp_path("stop_long.yaml");
    std::string rec = temp_path("stop.rec"), out = temp_path("stop.out");
    std::ofstream(small) << "steps:\n" << create(999999);
    {
        std::ofstream text(long_file);
        text << "steps:\n";
        for (int i = 1; i <= 300000; ++i) text << create(i);
    }
    pid_t child = fork();
    if (child == 0) {
        int output = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        execl(PC_PLANECHECK, "planecheck", "run", "-j", "2", "--recorder", rec.c_str(), small.c_str(), long_file.c_str(),
              static_cast<char *>(nullptr));
        _exit(127);
    }
    // the small file's output is printed as soon as it is done, while the long one runs
    for (int i = 0; i < 3000 && pc::test::read_file(out).find(small + ":2: step 1") == std::string::npos; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    kill(child, SIGTERM);
    int status = 0;
    waitpid(child, &status, 0);
    std::string output = pc::test::read_file(out), recorded = pc::test::read_file(rec);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the run finished before the signal: status " << status << "\n" << output.substr(0, 2000);
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_NE(output.find(long_file + ": the run ended early with signal 15"), std::string::npos) << output.substr(output.size() - 2000);
    size_t records = count(recorded, "\"op\": \"create\"");
    EXPECT_GT(records, 1u);
    EXPECT_LT(records, 300001u);
    EXPECT_EQ(recorded.find("\"key_a\": 999999,"), recorded.find("\"key_a\"")) << "the small file's record comes first";
    EXPECT_EQ(count("\n" + recorded, "\n{\n"), records) << "a record was cut";
    EXPECT_EQ(count(recorded, "\n},\n"), records) << "a record was cut";
    for (const auto &f : {small, long_file, rec, out}) std::remove(f.c_str());
}

} // namespace
