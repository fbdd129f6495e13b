// Files run in processes of their own: their parts must all arrive, and a file that cannot run,
// or whose output cannot be kept whole, must fail with its cause.
#include "files.hpp"
#include "process.hpp"

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>

namespace {

using pc::test::text::count;
using pc::test::text::has;
using pc::test::planecheck;

std::string scratch(const std::string &name, const std::string &text) {
    return pc::test::write_file(testing::TempDir() + "endings_" + std::to_string(getpid()) + "_" + name, text);
}

const std::string kCreateAndDelete = "steps:\n  - send: { test_if: [ { op: create, key_a: 7 } ] }\n"
                                     "  - send: { test_if: [ { op: delete, key_a: 7 } ] }\n";

TEST(Endings, ParallelPartsAreJoinedPastAnEmptyOne) {
    std::string empty = scratch("empty.yaml", ""), other = scratch("join_other.yaml", kCreateAndDelete);
    std::string rec = testing::TempDir() + "endings_join.rec";
    pc::test::Outcome r = planecheck("run -j 2 --recorder " + rec + " " + empty + " " + other + " " + other);
    EXPECT_EQ(r.status, 2) << r.output; // the empty file has no steps
    EXPECT_TRUE(has(r, empty + ":1:1: the file has no steps")) << r.output;
    std::string recorded = pc::test::read_file(rec);
    EXPECT_EQ(count(recorded, "\"op\": \"create\""), 2u) << recorded;
    // whole records: a record cut in half would leave an opening line without its end
    EXPECT_EQ(count("\n" + recorded, "\n{\n"), 4u) << recorded;
    EXPECT_EQ(count(recorded, "\n},\n"), 4u) << recorded;
}

TEST(Endings, FilesThatCannotRunFailWithTheirCause) {
    std::string file = scratch("cannot.yaml", "steps:\n  - send: { test_if: [ { op: create, key_a: 7 } ] }\n");
    pc::test::Outcome no_tmp = pc::test::run_command("TMPDIR=/nonexistent/dir " PC_PLANECHECK " run -j 2 " + file + " " + file + " 2>&1");
    EXPECT_EQ(no_tmp.status, 1) << no_tmp.output;
    EXPECT_EQ(count(no_tmp.output, file + ": not run: cannot create a temporary file in /nonexistent/dir: No such file"), 2u)
        << no_tmp.output;
    EXPECT_FALSE(has(no_tmp, "PASSED")) << no_tmp.output;

    // temporary files that fill up (here: a file size limit) fail the file and the joined recorder
    std::string steps = "steps:\n";
    for (int i = 1; i <= 100; ++i) steps += "  - send: { test_if: [ { op: create, key_a: " + std::to_string(i) + " } ] }\n";
    std::string many = scratch("many.yaml", steps), rec = testing::TempDir() + "endings_limited.rec";
    pc::test::Outcome limited = pc::test::run_command("trap '' XFSZ; ulimit -f 2; exec " PC_PLANECHECK " run -j 2 --recorder " + rec + " " +
                                                      many + " " + file + " 2>&1");
    EXPECT_EQ(limited.status, 2) << limited.output;
    for (const std::string &message : {many + ": its output could not be written in full to a temporary file in ",
                                      many + ": cannot write its recorder part: File too large",
                                      "planecheck: the recorder " + rec + " is incomplete: cannot write: File too large"})
        EXPECT_TRUE(has(limited, message)) << message << "\n" << limited.output;
    EXPECT_FALSE(has(limited, "PASSED")) << limited.output;

    // an unwritable report is a usage error found before any file runs
    for (const std::string option : {"-j 2 --recorder", "--recorder", "-j 2 --junit", "--junit"}) {
        pc::test::Outcome r = planecheck("run " + option + " /nonexistent/dir/out " + file);
        EXPECT_EQ(r.status, 2) << option << "\n" << r.output;
        EXPECT_TRUE(has(r, "to /nonexistent/dir/out: No such file or directory")) << r.output;
        EXPECT_FALSE(has(r, "step 1")) << r.output;
    }
}

} // namespace
