#include <gtest/gtest.h>

#include "support/process.h"
#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

using Lines = std::vector<std::string>;

// A venue whose book changes are written down.
class BookTruth : public testing::Test {
protected:
    BookTruth() { open(venue_); }

    void open(Venue& venue) { venue.engine.books.truth.open(file_.path()); }

    // The lines since the last call.
    Lines new_lines() {
        venue_.engine.books.truth.flush();
        const Lines all = file_.lines();
        const Lines lines(all.begin() + static_cast<std::ptrdiff_t>(read_), all.end());
        read_ = all.size();
        return lines;
    }

    TemporaryFile file_;
    std::size_t read_ = 0;
    Venue venue_{{.symbols = {"AAPL", "MSFT"}}};
};

// Number 1 of the feed is the announcement of the second, so the first change of a book is number 2.
TEST_F(BookTruth, ShowsTheBookAfterEachChangeWithTheNumberThatPublishedIt) {
    venue_.enter(buy("b1").shares(300).at("189.99"));
    venue_.enter(buy("b2").at("189.98"));
    venue_.enter(sell("s1").shares(200).at("190.01"), 1);
    EXPECT_EQ(new_lines(),
              (Lines{R"({"seq":2,"secid":1,"symbol":"AAPL","bid":[[189.9900,300]],"ask":[]})",
                     R"({"seq":3,"secid":1,"symbol":"AAPL","bid":[[189.9900,300],[189.9800,100]],"ask":[]})",
                     R"({"seq":4,"secid":1,"symbol":"AAPL","bid":[[189.9900,300],[189.9800,100]],)"
                     R"("ask":[[190.0100,200]]})"}));
    venue_.enter(sell("s2").shares(350).at("189.98"), 1);  // takes b1 and half of b2
    EXPECT_EQ(new_lines(),
              (Lines{R"({"seq":5,"secid":1,"symbol":"AAPL","bid":[[189.9800,100]],"ask":[[190.0100,200]]})",
                     R"({"seq":6,"secid":1,"symbol":"AAPL","bid":[[189.9800,50]],"ask":[[190.0100,200]]})"}));
    venue_.replace(replace("b2", "b3").shares(80).at("190.00"));
    EXPECT_EQ(new_lines(),
              (Lines{R"({"seq":7,"secid":1,"symbol":"AAPL","bid":[[190.0000,30]],"ask":[[190.0100,200]]})"}));
    venue_.cancel(cancel("s1"), 1);
    EXPECT_EQ(new_lines(), (Lines{R"({"seq":8,"secid":1,"symbol":"AAPL","bid":[[190.0000,30]],"ask":[]})"}));
}

TEST_F(BookTruth, AddsUpTheOrdersOfALevel) {
    venue_.enter(buy("b1").shares(300).at("190.00"));
    venue_.enter(buy("b2").shares(25).at("190.00"));
    EXPECT_EQ(new_lines().back(), R"({"seq":3,"secid":1,"symbol":"AAPL","bid":[[190.0000,325]],"ask":[]})");
}

TEST_F(BookTruth, ShowsTheProductThatChangedAlone) {
    venue_.enter(buy("b1").at("189.99"));
    venue_.enter(sell("s1").product(2).at("410.00"));
    EXPECT_EQ(new_lines(), (Lines{R"({"seq":2,"secid":1,"symbol":"AAPL","bid":[[189.9900,100]],"ask":[]})",
                                  R"({"seq":3,"secid":2,"symbol":"MSFT","bid":[],"ask":[[410.0000,100]]})"}));
}

TEST_F(BookTruth, ShowsTenLevelsOfASideAtMost) {
    for (int i = 0; i < 11; ++i) {
        const std::string id(1, static_cast<char>('a' + i));
        venue_.enter(buy(id).shares(1).at("1." + std::to_string(10 + i)));
        venue_.enter(sell(id + "s").shares(1).at("2." + std::to_string(10 + i)));
    }
    EXPECT_EQ(new_lines().back(),
              R"({"seq":23,"secid":1,"symbol":"AAPL","bid":[[1.2000,1],[1.1900,1],[1.1800,1],[1.1700,1],[1.1600,1],)"
              R"([1.1500,1],[1.1400,1],[1.1300,1],[1.1200,1],[1.1100,1]],"ask":[[2.1000,1],[2.1100,1],[2.1200,1],)"
              R"([2.1300,1],[2.1400,1],[2.1500,1],[2.1600,1],[2.1700,1],[2.1800,1],[2.1900,1]]})");
}

TEST_F(BookTruth, FollowsAReplaceThatCrossesMessageByMessage) {
    venue_.enter(buy("b1").at("189.95"));
    venue_.enter(sell("s1").shares(30).at("190.00"), 1);
    venue_.enter(sell("s2").shares(30).at("190.00"), 1);
    new_lines();
    venue_.replace(replace("b1", "b2").at("190.00"));
    EXPECT_EQ(new_lines(), (Lines{R"({"seq":5,"secid":1,"symbol":"AAPL","bid":[[190.0000,100]],"ask":[[190.0000,60]]})",
                                  R"({"seq":6,"secid":1,"symbol":"AAPL","bid":[],"ask":[[190.0000,60]]})",
                                  R"({"seq":7,"secid":1,"symbol":"AAPL","bid":[],"ask":[[190.0000,30]]})",
                                  R"({"seq":8,"secid":1,"symbol":"AAPL","bid":[],"ask":[]})",
                                  R"({"seq":9,"secid":1,"symbol":"AAPL","bid":[[190.0000,40]],"ask":[]})"}));
}

TEST_F(BookTruth, IsSilentWhileNoBookChanges) {
    venue_.bench.reject_next = 1;
    venue_.enter(buy("b1").at("1.00"));                // rejected
    venue_.enter(buy("b1").immediate().at("1.00"));    // expires
    venue_.enter(buy("b1").market());                  // expires
    venue_.cancel(cancel("b1"));                       // too late
    venue_.replace(replace("b1", "b2").at("190.00"));  // too late
    EXPECT_TRUE(new_lines().empty());
}

TEST_F(BookTruth, ShowsTheSeedingOfEachBook) {
    venue_.engine.start_day();
    const Lines lines = new_lines();
    ASSERT_EQ(lines.size(), 80u);
    // In front of the first quote stand the announcement of the second, the state, and three messages for each product.
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string product = i < 40 ? R"("secid":1,"symbol":"AAPL",)" : R"("secid":2,"symbol":"MSFT",)";
        EXPECT_TRUE(lines[i].starts_with(R"({"seq":)" + std::to_string(9 + i) + "," + product)) << lines[i];
    }
}

TEST_F(BookTruth, FollowsTheSyntheticMarketMessageByMessage) {
    venue_.engine.start_day();
    venue_.published();
    new_lines();
    const std::uint64_t before = venue_.feed.last_sequence();
    for (int i = 0; i < 10; ++i) venue_.engine.tick();
    const Lines lines = new_lines();
    ASSERT_EQ(lines.size(), venue_.feed.last_sequence() - before);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(lines[i].starts_with(R"({"seq":)" + std::to_string(before + 1 + i) + ",")) << lines[i];
    }
}

TEST_F(BookTruth, IsAppendedToWhatTheFileHolds) {
    venue_.enter(buy("b1").at("189.99"));
    new_lines();
    Venue again;
    open(again);
    again.enter(buy("b1").at("189.98"));
    again.engine.books.truth.flush();
    EXPECT_EQ(file_.lines(), (Lines{R"({"seq":2,"secid":1,"symbol":"AAPL","bid":[[189.9900,100]],"ask":[]})",
                                    R"({"seq":2,"secid":1,"symbol":"AAPL","bid":[[189.9800,100]],"ask":[]})"}));
}

TEST_F(BookTruth, ReachesTheFileWhenTheEngineEnds) {
    TemporaryFile file;
    {
        Venue venue;
        venue.engine.books.truth.open(file.path());
        venue.enter(buy("b1").at("189.99"));
    }
    EXPECT_EQ(file.lines().size(), 1u);
}

TEST_F(BookTruth, StopsSilentlyWhenTheFileFails) {
    Venue venue;
    venue.engine.books.truth.open("/dev/full");
    EXPECT_EQ(said_during([&] {
                  venue.enter(buy("b1").at("189.99"));
                  venue.engine.books.truth.flush();
                  venue.enter(buy("b2").at("189.99"));
              }),
              "");
    EXPECT_FALSE(venue.engine.books.truth.is_on());
    EXPECT_EQ(venue.bids(), "200@189.99");
}

TEST_F(BookTruth, StaysSilentWhenItsFileCannotBeOpened) {
    Venue venue;
    EXPECT_EQ(said_during([&] {
                  venue.engine.books.truth.open(file_.path() + "/nowhere");
                  venue.enter(buy("b1").at("189.99"));
              }),
              "");
    EXPECT_EQ(venue.bids(), "100@189.99");
}

}  // namespace
}  // namespace kavo::test
