// run --coverage and planecheck coverage as users run them, on the examples.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

using pc::test::text::has;
using pc::test::Outcome;
using pc::test::planecheck;

std::string examples() { return std::string(PC_SOURCE_DIR) + "/examples/*.yaml"; }

std::string temp_path() {
    std::string path = testing::TempDir() + "coverage_cli_XXXXXX";
    close(mkstemp(path.data()));
    return path;
}

using pc::test::read_file;

// The examples' coverage, written once by a serial run and once by a run in two processes.
class CoverageOfExamples : public testing::Test {
protected:
    static void SetUpTestSuite() {
        serial_ = new std::string(temp_path());
        parallel_ = new std::string(temp_path());
        ran_serial_ = planecheck("run -q --coverage " + *serial_ + " " + examples()).status;
        ran_parallel_ = planecheck("run -q -j 2 --coverage " + *parallel_ + " " + examples()).status;
    }
    static void TearDownTestSuite() {
        std::remove(serial_->c_str());
        std::remove(parallel_->c_str());
        delete serial_;
        delete parallel_;
    }
    static std::string *serial_, *parallel_;
    static int ran_serial_, ran_parallel_;
};
std::string *CoverageOfExamples::serial_, *CoverageOfExamples::parallel_;
int CoverageOfExamples::ran_serial_, CoverageOfExamples::ran_parallel_;

TEST_F(CoverageOfExamples, TheTableNamesTheCoveredTypesAgainstTheWholeCatalogue) {
    ASSERT_NE(ran_serial_, 2); // the report is written whether or not the examples pass
    pc::test::expect_says({{"coverage " + *serial_, 0,
                            {" of 315 (", "attributes covered:  ", " of 5981 (", "\n  test_if ", "\n  nhgroup ", "least-covered families"}}});
}

TEST_F(CoverageOfExamples, UncoveredListsWhatTheRecordsNeverTouched) {
    Outcome r = planecheck("coverage --uncovered nhgroup " + *serial_);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(r.output.rfind("nhgroup: ", 0), 0u) << r.output;
    size_t read_only = r.output.find("  read-only attributes:\n");
    ASSERT_NE(read_only, std::string::npos) << r.output;
    EXPECT_NE(r.output.find("    npu_bmap\n", read_only), std::string::npos) << r.output;
    EXPECT_FALSE(has(r, "    fec_id\n")) << r.output; // hello.yaml sets it
}

TEST_F(CoverageOfExamples, PartsOfAParallelRunMergeToTheSerialReport) {
    ASSERT_EQ(ran_parallel_, ran_serial_);
    EXPECT_EQ(read_file(*parallel_), read_file(*serial_));
    Outcome twice = planecheck("coverage --json " + *serial_ + " " + *parallel_);
    EXPECT_EQ(twice.status, 0) << twice.output;
    Outcome once = planecheck("coverage --json " + *serial_);
    // the same types and attributes, twice the records
    EXPECT_EQ(twice.output.substr(0, twice.output.find("\"operations\"")), once.output.substr(0, once.output.find("\"operations\"")));
    EXPECT_NE(twice.output, once.output);
}

TEST(CoverageCommand, ReadsWhatItCanAndExitsWithStatus2ForTheRest) {
    std::string garbled = temp_path(), crud = temp_path();
    std::ofstream(garbled) << "{ \"planecheck_coverage\": 1,\n  \"types\": [\n";
    ASSERT_EQ(planecheck("run -q --coverage " + crud + " " + PC_SCENARIOS + "/crud_client.yaml").status, 0);
    pc::test::expect_says({
        {"coverage " + garbled, 2, {garbled + ":", "types covered:       0 of 315"}}, // the readable rest is still shown
        {"coverage --uncovered no_such_type " + garbled, 2, {"there is no object type 'no_such_type'"}},
        {"coverage " + crud + " /nonexistent/missing.json", 2, {"missing.json", "planecheck coverage: 1 report, 1 scenario file", "\n  test_if "}},
        {"coverage --uncovered ipnh " + crud, 0, {"ipnh: no record of this type ran\n", "  key fields:\n    intf\n    nh_addr\n"}},
        {"run -q --coverage /nonexistent/dir/c.json " + std::string(PC_SOURCE_DIR) + "/examples/hello.yaml", 2,
         {"cannot write the coverage report to /nonexistent/dir/c.json"}},
    });
    std::remove(garbled.c_str());
    std::remove(crud.c_str());
}

} // namespace
