// Files run by a pool of worker processes: when the library ends a worker in the middle of a
// long run, that file is reported where it stood, a new worker takes over, and every other file's
// results, output and records arrive whole and in the files' order.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
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

using pc::test::text::count;
using pc::test::planecheck;

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

TEST(WorkerPool, AWorkerTheLibraryEndsIsReplacedAndEveryOtherFileArrivesInOrder) {
    std::vector<std::string> files = write_files();
    std::string list;
    for (const auto &f : files) list += " " + f;
    std::string rec = temp_path("run.rec");
    for (const std::string jobs : {"-j 1", "-j 2", "-j 3"}) {
        pc::test::Outcome r = planecheck("run " + jobs + " --recorder " + rec + list);
        EXPECT_EQ(r.status, 1) << jobs << "\n" << r.output;
        EXPECT_EQ(count(r.output, " send test_if: ok\n"), size_t(2 * kFiles - 2)) << jobs << "\n" << r.output;
        expect_outputs_in_order(r.output, files, jobs);
        expect_records_in_order(pc::test::read_file(rec), jobs);
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
}

// Each file runs on a fresh data plane, though its worker ran files before it: a handle or an
// object an earlier file left behind is not seen by the next one.
TEST(WorkerPool, AFileDoesNotSeeWhatAnEarlierFileOfItsWorkerLeft) {
    std::string leaves = temp_path("leaves.yaml"), expects_empty = temp_path("fresh.yaml");
    std::ofstream(leaves) << "steps:\n  - send: { test_if: [ { op: create, key_a: 9, hdl: kept } ] }\n";
    // a create of the same key succeeds only on a data plane that does not hold it yet
    std::ofstream(expects_empty) << "steps:\n  - send: { test_if: [ { op: create, key_a: 9, rc: 0 } ] }\n"
                                    "  - send: { test_if: [ { op: get, key_a: 9 } ] }\n";
    pc::test::Outcome r = planecheck("run -j 1 " + leaves + " " + expects_empty + " " + leaves + " " + expects_empty);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(count(r.output, ": ok\n"), 6u) << r.output;
    std::remove(leaves.c_str());
    std::remove(expects_empty.c_str());
}

} // namespace
