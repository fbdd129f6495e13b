// The closest-name helper behind every "did you mean NAME?".
#include "suggest.hpp"

#include <gtest/gtest.h>

namespace {

using pc::support::closest_name;
using pc::support::did_you_mean;
using pc::support::edit_distance;

TEST(EditDistance, CountsInsertionsDeletionsChangesAndSwapsOnce) {
    EXPECT_EQ(edit_distance("test_if", "test_if"), 0u);
    EXPECT_EQ(edit_distance("test_iff", "test_if"), 1u);  // one letter too many
    EXPECT_EQ(edit_distance("atr_a1", "attr_a1"), 1u);    // one missing
    EXPECT_EQ(edit_distance("creat", "create"), 1u);
    EXPECT_EQ(edit_distance("cerate", "create"), 1u);     // two neighbours swapped
    EXPECT_EQ(edit_distance("EEXISTS", "eexist"), 1u);    // case is no edit
    EXPECT_EQ(edit_distance("", "abc"), 3u);
    EXPECT_EQ(edit_distance("kitten", "sitting"), 3u);
}

TEST(ClosestName, TakesTheNearestWithinAThirdOfTheNameOrAnAbbreviation) {
    std::vector<std::string_view> types = {"test_if", "test_nh", "nhgroup", "nhgroup_member", "ipnh"};
    EXPECT_EQ(closest_name("test_iff", types), "test_if");
    EXPECT_EQ(closest_name("test_nhh", types), "test_nh");
    EXPECT_EQ(closest_name("nhg", types), "nhgroup");     // the shortest name it begins
    EXPECT_EQ(closest_name("route_xyz", types), "");      // nothing near
    EXPECT_EQ(closest_name("ipv6", types), "");           // 2 edits is too many for 4 letters
    EXPECT_EQ(closest_name("test_if", types), "");        // a known name needs no suggestion
    EXPECT_EQ(closest_name("xx", {}), "");
}

TEST(DidYouMean, IsTheEndOfAMessageOrNothing) {
    EXPECT_EQ(did_you_mean("creat", {"create", "update"}), "; did you mean create?");
    EXPECT_EQ(did_you_mean("frobnicate", {"create", "update"}), "");
}

} // namespace
