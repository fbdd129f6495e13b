// Choosing a run's files: -k expressions, and the list of files that failed kept between runs.
#include "files.hpp"
#include "keyword_expression.hpp"
#include "last_failed.hpp"
#include "selection.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace {

using pc::runner::KeywordExpression;
using pc::runner::LastFailed;

// Whether `expression` holds for a file that goes by `names`.
bool holds(const std::string &expression, const std::vector<std::string> &names) {
    std::string error;
    auto parsed = KeywordExpression::parse(expression, error);
    EXPECT_TRUE(parsed) << expression << ": " << error;
    return parsed && parsed->holds([&](std::string_view word) {
        for (const std::string &name : names)
            if (KeywordExpression::part_of(word, name)) return true;
        return false;
    });
}

TEST(KeywordExpression, WordsJoinAsPytestJoinsThem) {
    struct Row {
        const char *expression;
        std::vector<std::string> names;
        bool holds;
    } rows[] = {
        {"bgp and not v6", {"suite/bgp_v4.yaml"}, true},
        {"bgp and not v6", {"suite/bgp_v6.yaml"}, false},
        {"bgp and not v6", {"suite/ospf.yaml", "ospf areas"}, false},
        {"BGP", {"Bgp_v4.yaml"}, true},                   // letters without regard to case
        {"peering", {"a.yaml", "BGP Peering"}, true},      // the scenario's name counts as the path does
        {"a or b and c", {"a"}, true},                     // and binds tighter than or
        {"(a or b) and c", {"a"}, false},
        {"not a and b", {"b"}, true},                      // not binds tightest
        {"not (a and b)", {"a b"}, false},
        {"not not a", {"a"}, true},
        {"AND", {"x_and_y"}, true},                        // the operators are lower case; AND is a word
        {"tests/bgp_v4.yaml", {"tests/bgp_v4.yaml"}, true},
        {"[x] or a:b+c-d\\e", {"a:b+c-d\\e"}, true},
        {"  ", {"anything"}, true},                        // blanks only: every file
    };
    for (const Row &row : rows) EXPECT_EQ(holds(row.expression, row.names), row.holds) << row.expression;
}

TEST(KeywordExpression, AWordIsLookedForOnlyWhenTheAnswerNeedsIt) {
    std::string error;
    auto parsed = KeywordExpression::parse("a or (b and c)", error);
    ASSERT_TRUE(parsed);
    std::vector<std::string> asked;
    auto has = [&](std::string_view word) {
        asked.emplace_back(word);
        return word == "a";
    };
    EXPECT_TRUE(parsed->holds(has));
    EXPECT_EQ(asked, std::vector<std::string>{"a"}) << "a scenario's header is read only for a word its path does not hold";
}

TEST(KeywordExpression, AnExpressionThatCannotBeReadNamesItsColumn) {
    struct Row {
        const char *expression, *error;
    } rows[] = {
        {"bgp and", "at column 8: expected a word, not or (; found the end of the expression"},
        {"bgp ospf", "at column 5: expected and, or or the end of the expression; found the word 'ospf'"},
        {"(bgp or ospf", "at column 13: expected ); found the end of the expression"},
        {")", "at column 1: expected a word, not or (; found )"},
        {"bgp & ospf", "at column 5: expected and, or or the end of the expression; found the character '&', which no word holds"},
        {"not", "at column 4: expected a word, not or (; found the end of the expression"},
        {"a and or b", "at column 7: expected a word, not or (; found or"},
        {"()", "at column 2: expected a word, not or (; found )"},
    };
    for (const Row &row : rows) {
        std::string error;
        EXPECT_FALSE(KeywordExpression::parse(row.expression, error)) << row.expression;
        EXPECT_EQ(error, row.error) << row.expression;
    }
}

// A scratch folder for a run's kept list, of this test alone.
std::string state_folder(const std::string &name) {
    std::string folder = testing::TempDir() + "last_failed_" + name + "_" + std::to_string(getpid());
    std::filesystem::remove_all(folder);
    return folder;
}

TEST(LastFailed, AFileLeavesTheListWhenItPassesAndOnlyAChangeIsWritten) {
    std::string folder = state_folder("roundtrip"), error;
    LastFailed first(folder);
    ASSERT_TRUE(first.load(error)) << "no list yet is an empty list";
    first.ran("ok.yaml", false);
    ASSERT_TRUE(first.save(error)) << error;
    EXPECT_FALSE(std::filesystem::exists(folder)) << "a run that changed nothing writes nothing, not even the folder";

    first.ran("./suite/../bad.yaml", true);
    first.ran("odd\n\xff.yaml", true);
    ASSERT_TRUE(first.save(error)) << error;
    LastFailed second(folder);
    ASSERT_TRUE(second.load(error)) << error;
    EXPECT_EQ(second.files(), (std::vector<std::string>{"bad.yaml", "odd\n\xff.yaml"})) << "names of any bytes read back as written";
    EXPECT_TRUE(second.failed("bad.yaml"));
    EXPECT_TRUE(second.failed(std::filesystem::current_path().string() + "/bad.yaml")) << "an absolute spelling finds the entry";
    second.ran("bad.yaml", false);
    ASSERT_TRUE(second.save(error)) << error;
    EXPECT_EQ(pc::test::read_file(folder + "/lastfailed.json").find("bad.yaml"), std::string::npos);
    std::set<std::string> left;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) left.insert(entry.path().filename().string());
    EXPECT_EQ(left, (std::set<std::string>{".gitignore", "lastfailed.json"})) << "no temporary file is left beside the list";

    pc::test::write_file(folder + "/lastfailed.json", "[not an object");
    LastFailed broken(folder);
    EXPECT_FALSE(broken.load(error));
    EXPECT_TRUE(broken.files().empty()) << "a list that cannot be read is started afresh";
    ASSERT_TRUE(broken.save(error)) << error;
    EXPECT_EQ(pc::test::read_file(folder + "/lastfailed.json"), "{}\n") << "and written anew, though nothing failed";
    EXPECT_TRUE(broken.clear());
    EXPECT_FALSE(std::filesystem::exists(folder + "/lastfailed.json"));
}

TEST(Selection, KeywordsMatchPathsOrScenarioNamesAndLastFailedNarrowsWhatIsLeft) {
    std::string dir = testing::TempDir(), folder = state_folder("select");
    std::string v4 = pc::test::write_file(dir + "sel_bgp_v4.yaml", "name: peering v4\nsteps: []\n");
    std::string v6 = pc::test::write_file(dir + "sel_bgp_v6.yaml", "name: peering v6\nsteps: []\n");
    std::string ospf = pc::test::write_file(dir + "sel_ospf.yaml", "name: areas\nsteps: []\n");
    std::string json = pc::test::write_file(dir + "sel_isis.json", R"({"name": "Peering over ISIS", "steps": []})");
    const std::vector<std::string> all = {v4, v6, ospf, json};

    auto chosen = [&](const std::string &keyword, bool last_failed, bool cache_clear, pc::runner::Selected &selected,
                      std::vector<std::string> &notes) {
        std::vector<std::string> files = all;
        std::string error;
        pc::runner::SelectRequest request;
        request.keyword = keyword;
        request.last_failed = last_failed;
        request.cache_clear = cache_clear;
        request.state_dir = folder;
        EXPECT_TRUE(pc::runner::select_files(files, request, selected, error, notes)) << error;
        return files;
    };
    pc::runner::Selected selected;
    std::vector<std::string> notes;
    EXPECT_EQ(chosen("bgp and not v6", false, false, selected, notes), std::vector<std::string>{v4});
    EXPECT_EQ(selected.deselected, 3u);
    EXPECT_EQ(chosen("peering and not v4", false, false, selected, notes), (std::vector<std::string>{v6, json})) << "by the scenario's name, JSON too";
    EXPECT_EQ(chosen("nothing_like_it", false, false, selected, notes), std::vector<std::string>{});
    EXPECT_TRUE(selected.none_left);
    EXPECT_EQ(notes.back(), "-k 'nothing_like_it' selects none of the 4 files");

    notes.clear();
    EXPECT_EQ(chosen("", true, false, selected, notes), all) << "nothing failed before: every file runs";
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0], "--last-failed: none of the 4 files failed when it last ran here; all of them run");
    EXPECT_EQ(selected.deselected, 0u);

    LastFailed state(folder);
    std::string error;
    state.ran(v6, true);
    state.ran(ospf, true);
    ASSERT_TRUE(state.save(error)) << error;
    notes.clear();
    EXPECT_EQ(chosen("", true, false, selected, notes), (std::vector<std::string>{v6, ospf}));
    EXPECT_TRUE(notes.empty());
    EXPECT_EQ(chosen("bgp", true, false, selected, notes), std::vector<std::string>{v6}) << "-k first, then what failed among what it left";
    EXPECT_EQ(selected.deselected, 3u);
    EXPECT_EQ(chosen("", true, true, selected, notes), all) << "--cache-clear forgets the failures first";
}

TEST(Selection, ANameIsReadFromTheHeaderOnly) {
    std::string dir = testing::TempDir();
    EXPECT_EQ(pc::runner::scenario_name_of(pc::test::write_file(dir + "named.yaml", "name: 'it''s bgp'\nconfig: {mode: client}\nsteps:\n  - [\n")),
              "it's bgp") << "a file whose steps are broken still has its name";
    EXPECT_EQ(pc::runner::scenario_name_of(pc::test::write_file(dir + "late.yaml", "steps: []\nname: late\n")), "")
        << "a name after the steps is no header's";
    EXPECT_EQ(pc::runner::scenario_name_of(dir + "no_such.yaml"), "");
    EXPECT_EQ(pc::runner::scenario_name_of(dir), "") << "a folder is no file";
}

} // namespace
