#include <gtest/gtest.h>

#include "support/venue.h"

namespace kavo::test {
namespace {

TEST(NewOrder, ThatMeetsNobodyRestsAndShowsOnTheFeed) {
    Venue venue;
    EXPECT_EQ(venue.enter(buy("b1").shares(100).at("189.95")),
              "NR b1 accepted #1000 100@189.95 | O1 b1 #1000 buy 100@189.95 tif D type 1 | P1 b1 #1000 @189.95 touch");
    EXPECT_EQ(venue.published(), "add 1 #1000 B 100@189.95");
    EXPECT_EQ(venue.bids(), "100@189.95");
}

}  // namespace
}  // namespace kavo::test
