// A file read ahead on a second thread prints and records what it prints and records when it is
// read on the running thread: the same step lines, messages and recorder records, in the same order.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

std::string temp_path(const std::string &name) { return testing::TempDir() + "threads_" + std::to_string(getpid()) + "_" + name; }

// The recorder without its time stamps, which differ from run to run.
std::string without_times(const std::string &recorded) {
    std::istringstream lines(recorded);
    std::string out;
    for (std::string line; std::getline(lines, line);)
        if (line.find("\"tv_sec\"") == std::string::npos && line.find("\"tv_nsec\"") == std::string::npos) out += line + "\n";
    return out;
}

TEST(ReadAheadCli, ThreadsOneAndTwoPrintAndRecordTheSame) {
    std::string scenario = temp_path("steps.yaml");
    {
        std::ofstream text(scenario);
        text << "name: &n threads\nsteps:\n";
        for (int i = 1; i <= 400; ++i) {
            std::string key = std::to_string(i);
            text << "  - send: { test_if: [ { op: create, key_a: " << key << ", attr_a1: 5 } ] }\n"
                 << "  - send: { test_if: [ { op: get, key_a: " << key << ", attr_a1: " << (i % 7 ? "5" : "6") << " } ] }\n"
                 << "  - dump: { test_if: [ { op: get, key_a: " << key << " } ] }\n"
                 << "  - send: { test_if: [ { op: delete, key_a: " << key << " } ] }\n";
        }
        text << "  - expect: { mismatches: 57 }\n  - send: { test_if: [ ] ] }\n"; // a parse error ends the file
    }
    std::string outputs[2], records[2];
    for (int threads : {1, 2}) {
        std::string rec = temp_path("run.rec");
        pc::test::Outcome r = pc::test::run_command(std::string(PC_PLANECHECK) + " run -v --threads " + std::to_string(threads) +
                                                    " --recorder " + rec + " " + scenario + " 2>&1");
        EXPECT_EQ(r.status, 2) << r.output.substr(r.output.size() > 3000 ? r.output.size() - 3000 : 0);
        outputs[threads - 1] = r.output;
        records[threads - 1] = without_times(pc::test::read_file(rec));
        std::remove(rec.c_str());
    }
    EXPECT_EQ(outputs[1], outputs[0]);
    EXPECT_EQ(records[1], records[0]);
    EXPECT_NE(outputs[0].find(":1603:"), std::string::npos) << "the expect step's line";
    EXPECT_NE(outputs[0].find(":1604:"), std::string::npos) << "the parse error's line";
    std::remove(scenario.c_str());
}

} // namespace
