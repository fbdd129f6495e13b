// Choosing what a run runs from the command line: -k over paths and scenario names, and
// --last-failed over what the last runs in the folder kept.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using pc::test::text::has;

const char *kPassing = "name: NAME\nsteps:\n  - send: { test_if: [ { op: create, key_a: 1 }, { op: delete, key_a: 1 } ] }\n";
const char *kFailing = "name: NAME\nsteps:\n  - send: { test_if: [ { op: create, key_a: 1 }, { op: create, key_a: 1 } ] }\n";

// A folder of its own holding suite/bgp_v4.yaml (passes), suite/bgp_v6.yaml (fails) and
// suite/ospf.yaml (passes, named "ospf over bgp peers"); the runs start in it.
class Select : public testing::Test {
protected:
    void SetUp() override {
        dir_ = testing::TempDir() + "select_" + std::to_string(getpid()) + "_" + testing::UnitTest::GetInstance()->current_test_info()->name();
        fs::remove_all(dir_);
        fs::create_directories(dir_ + "/suite");
        write("bgp_v4", kPassing, "bgp v4");
        write("bgp_v6", kFailing, "bgp v6");
        write("ospf", kPassing, "ospf over bgp peers");
    }

    void write(const std::string &file, std::string text, const std::string &name) {
        text.replace(text.find("NAME"), 4, name);
        pc::test::write_file(dir_ + "/suite/" + file + ".yaml", text);
    }

    // planecheck ARGS, started in the folder, standard error folded in.
    pc::test::Outcome run(const std::string &args) const {
        return pc::test::run_command("cd '" + dir_ + "' && " + PC_PLANECHECK + " " + args + " 2>&1");
    }

    // Which of the three files the run's step lines name.
    static std::string ran(const pc::test::Outcome &r) {
        std::string files;
        for (const char *name : {"bgp_v4", "bgp_v6", "ospf"})
            if (has(r, std::string("suite/") + name + ".yaml:")) files += std::string(files.empty() ? "" : " ") + name;
        return files;
    }

    std::string dir_;
};

TEST_F(Select, KeywordsChooseByPathOrScenarioNameBeforeTheShard) {
    struct Row {
        std::string args;
        int status;
        std::string ran, said;
    } rows[] = {
        {"run -k 'bgp and not v6' suite", 0, "bgp_v4 ospf", "PASSED: 2 files, 2 steps, 0 mismatches, 0 value errors, 1 file deselected"},
        {"run -k 'v4 or V6' suite", 1, "bgp_v4 bgp_v6", "FAILED: 2 files, 2 steps, 1 mismatch, 0 value errors, 1 file deselected"},
        {"run -k 'peers' suite", 0, "ospf", "2 files deselected"},              // by its scenario name alone
        {"run -k 'not (bgp and v6)' --shard 2/2 suite", 0, "ospf", "PASSED: 1 file,"}, // the shard of what -k chose
        {"run -k 'isis' suite", 1, "", "SKIPPED: 0 files, 0 steps, 0 mismatches, 0 value errors, 3 files deselected"},
        {"run -k 'isis' --allow-skipped suite", 0, "", "-k 'isis' selects none of the 3 files"},
        {"run -k 'bgp and' suite", 2, "", "planecheck: -k 'bgp and': at column 8: expected a word, not or (; found the end of the expression"},
        {"run -k 'bgp' --files-from /dev/null", 2, "", "-k and --last-failed do not go with --files-from"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.args);
        pc::test::Outcome r = run(row.args);
        EXPECT_EQ(r.status, row.status) << r.output;
        EXPECT_EQ(ran(r), row.ran) << r.output;
        EXPECT_TRUE(has(r, row.said)) << row.said << "\n" << r.output;
    }
}

TEST_F(Select, LastFailedRunsWhatFailedLastAndCacheClearForgetsIt) {
    pc::test::Outcome first = run("run --last-failed suite");
    EXPECT_EQ(first.status, 1) << first.output;
    EXPECT_EQ(ran(first), "bgp_v4 bgp_v6 ospf") << "nothing failed before: everything runs";
    EXPECT_TRUE(has(first, "planecheck: --last-failed: none of the 3 files failed when it last ran here; all of them run")) << first.output;
    EXPECT_TRUE(has(pc::test::read_file(dir_ + "/.planecheck/lastfailed.json"), "\"suite/bgp_v6.yaml\": true"));

    pc::test::Outcome again = run("run --lf suite");
    EXPECT_EQ(ran(again), "bgp_v6") << again.output;
    EXPECT_TRUE(has(again, "FAILED: 1 file, 1 step, 1 mismatch, 0 value errors, 2 files deselected")) << again.output;
    EXPECT_EQ(ran(run("run --last-failed")), "bgp_v6") << "without files: the files that failed";
    EXPECT_EQ(ran(run("run --last-failed ./suite/bgp_v6.yaml suite/ospf.yaml")), "bgp_v6") << "another spelling of the path";

    pc::test::Outcome check = run("check suite/bgp_v6.yaml");
    EXPECT_EQ(check.status, 0) << "the check passes the file, and keeps nothing\n" << check.output;
    write("bgp_v6", kPassing, "bgp v6 mended");
    pc::test::Outcome listed = pc::test::run_command("cd '" + dir_ + "' && echo suite/bgp_v6.yaml | " + PC_PLANECHECK + " run --files-from - 2>&1");
    EXPECT_EQ(ran(listed), "bgp_v6") << listed.output;
    EXPECT_EQ(run("run -k ospf suite").status, 0);
    EXPECT_EQ(ran(run("run --lf suite")), "bgp_v6")
        << "neither a check, nor a run fed by a list (its writer keeps its own record), nor a run without the file changes its entry";
    EXPECT_EQ(ran(run("run --lf suite")), "bgp_v4 bgp_v6 ospf") << "it passed last time: nothing is left to narrow to";

    write("ospf", kFailing, "ospf broken");
    EXPECT_EQ(run("run suite").status, 1);
    EXPECT_EQ(ran(run("run --lf suite")), "ospf");
    pc::test::Outcome cleared = run("run --lf --cache-clear suite");
    EXPECT_EQ(ran(cleared), "bgp_v4 bgp_v6 ospf") << cleared.output;
    EXPECT_EQ(ran(run("run --lf suite")), "ospf") << "the cleared run kept its own failure";
}

TEST_F(Select, EveryFailureCountsAndAFileNotStartedKeepsItsEntry) {
    write("ospf", kFailing, "ospf broken");
    EXPECT_EQ(run("run suite/ospf.yaml").status, 1);
    write("ospf", kPassing, "ospf mended");
    pc::test::write_file(dir_ + "/suite/broken.yaml", "steps: [\n");
    pc::test::write_file(dir_ + "/suite/ends.yaml", "steps:\n  - send: { no_such_table: [ { op: create } ] }\n");
    pc::test::Outcome ended = run("run suite"); // bgp_v4, bgp_v6, broken, ends; the library ends the run before ospf
    EXPECT_TRUE(has(ended, "1 file ended early (suite/ends.yaml:2: unknown table no_such_table), 1 file not run")) << ended.output;
    pc::test::Outcome again = run("run --lf -j 2 suite");
    EXPECT_TRUE(has(again, "suite/broken.yaml")) << "an invalid file failed\n" << again.output;
    EXPECT_TRUE(has(again, "suite/ends.yaml: the run ended early")) << "an ended file failed\n" << again.output;
    EXPECT_EQ(ran(again), "bgp_v6 ospf") << "ospf never started: its failure of the run before stands\n" << again.output;
    EXPECT_TRUE(has(again, "1 file deselected")) << again.output;
}

} // namespace
