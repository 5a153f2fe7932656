// The snapshot files: what is in them for which books, and how one takes the place of another.
#include "feed/snapshot_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

constexpr std::uint64_t some_ns = 1'700'000'000'123'456'789;

std::string book(const Venue& venue) {
    return book_snapshot(venue.engine.books.views(), some_ns);
}
std::string bbo(const Venue& venue) {
    return bbo_snapshot(venue.engine.books.views());
}

TEST(BookSnapshot, OfEmptyBooksHasEveryProductWithNothingInIt) {
    const Venue venue({.symbols = {"AAPL", "MSFT"}});
    EXPECT_EQ(book(venue),
              "{\"ts_ns\":1700000000123456789,\"symbols\":{"
              "\"AAPL\":{\"bid\":[],\"ask\":[],\"last\":0,\"volume\":0},"
              "\"MSFT\":{\"bid\":[],\"ask\":[],\"last\":0,\"volume\":0}}}\n");
}

TEST(BookSnapshot, WithoutProductsIsAnEmptyObject) {
    const Venue venue({.symbols = {}});
    EXPECT_EQ(book(venue), "{\"ts_ns\":1700000000123456789,\"symbols\":{}}\n");
}

TEST(BookSnapshot, ShowsLevelsTheLastTradeAndTheVolume) {
    Venue venue;
    venue.enter(sell("s1").shares(500).at("190.00"));
    venue.enter(buy("b1").shares(500).at("190.00"));
    venue.enter(buy("b2").shares(300).at("189.99"));
    venue.enter(sell("s2").shares(200).at("190.01"));
    EXPECT_EQ(book(venue),
              "{\"ts_ns\":1700000000123456789,\"symbols\":{\"AAPL\":{\"bid\":[[189.99,300]],\"ask\":[[190.01,200]],"
              "\"last\":190,\"volume\":500}}}\n");
}

TEST(BookSnapshot, ShowsTheFirstFiveLevelsOfEachSide) {
    Venue venue;
    for (const std::string cents : {"1", "2", "3", "4", "5", "6"}) {
        venue.enter(buy("b" + cents).shares(100).at("189.9" + cents));
        venue.enter(sell("s" + cents).shares(200).at("190.0" + cents));
    }
    EXPECT_EQ(book(venue),
              "{\"ts_ns\":1700000000123456789,\"symbols\":{\"AAPL\":{"
              "\"bid\":[[189.96,100],[189.95,100],[189.94,100],[189.93,100],[189.92,100]],"
              "\"ask\":[[190.01,200],[190.02,200],[190.03,200],[190.04,200],[190.05,200]],"
              "\"last\":0,\"volume\":0}}}\n");
}

TEST(BookSnapshot, AddsUpWhatIsLeftOfTheOrdersAtAPrice) {
    Venue venue;
    venue.enter(buy("b1").shares(300).at("189.99"));
    venue.enter(buy("b2").shares(25'000).at("189.99"));
    venue.enter(buy("b3").shares(400).at("189.99"));
    venue.enter(sell("s1").shares(120).at("189.99").immediate());
    venue.cancel(cancel("b3"));
    EXPECT_EQ(book(venue),
              "{\"ts_ns\":1700000000123456789,\"symbols\":{\"AAPL\":{\"bid\":[[189.99,25180]],\"ask\":[],"
              "\"last\":189.99,\"volume\":120}}}\n");
}

TEST(BookSnapshot, AddsUpMoreThanThirtyTwoBits) {
    VenueSettings settings;
    settings.engine.max_order_size = 4'294'967'295;
    Venue venue(settings);
    venue.enter(buy("b1").shares(4'294'967'295).at("189.99"));
    venue.enter(buy("b2").shares(4'294'967'295).at("189.99"));
    venue.enter(sell("s1").shares(4'294'967'295).at("189.99").immediate());
    venue.enter(buy("b3").shares(4'294'967'295).at("189.99"));
    venue.enter(sell("s2").shares(4'294'967'295).at("189.99").immediate());
    venue.enter(buy("b4").shares(4'294'967'295).at("189.99"));
    EXPECT_EQ(book(venue),
              "{\"ts_ns\":1700000000123456789,\"symbols\":{\"AAPL\":{\"bid\":[[189.99,8589934590]],\"ask\":[],"
              "\"last\":189.99,\"volume\":8589934590}}}\n");
}

TEST(BookSnapshot, WritesPricesWithSixSignificantDigitsAndNoTrailingZeros) {
    Venue venue;
    for (const std::string price : {"190.00", "190.50", "0.01", "9999.99", "1234.56"}) {
        venue.enter(buy("b" + price).shares(100).at(price));
    }
    EXPECT_EQ(book(venue),
              "{\"ts_ns\":1700000000123456789,\"symbols\":{\"AAPL\":{"
              "\"bid\":[[9999.99,100],[1234.56,100],[190.5,100],[190,100],[0.01,100]],\"ask\":[],"
              "\"last\":0,\"volume\":0}}}\n");
}

TEST(BookSnapshot, RoundsPricesOfMoreThanSixDigits) {
    Venue venue;
    for (const std::string price : {"12345.67", "12345.64", "123456.78", "400000.00", "99999.96"}) {
        venue.enter(sell("s" + price).shares(100).at(price));
    }
    EXPECT_EQ(book(venue),
              "{\"ts_ns\":1700000000123456789,\"symbols\":{\"AAPL\":{\"bid\":[],"
              "\"ask\":[[12345.6,100],[12345.7,100],[100000,100],[123457,100],[400000,100]],"
              "\"last\":0,\"volume\":0}}}\n");
}

TEST(BookSnapshot, KeepsEachProductsTradesApart) {
    Venue venue({.symbols = {"AAPL", "MSFT"}});
    venue.enter(buy("b1").shares(300).at("410.25").product(2));
    venue.enter(sell("s1").shares(100).at("410.20").product(2));
    venue.enter(sell("s2").shares(50).market().product(2));
    EXPECT_EQ(book(venue),
              "{\"ts_ns\":1700000000123456789,\"symbols\":{"
              "\"AAPL\":{\"bid\":[],\"ask\":[],\"last\":0,\"volume\":0},"
              "\"MSFT\":{\"bid\":[[410.25,150]],\"ask\":[],\"last\":410.25,\"volume\":150}}}\n");
}

TEST(BboSnapshot, IsOneLineAProductWithTheBestOfBothSides) {
    Venue venue({.symbols = {"AAPL", "MSFT", "SPY"}});
    venue.enter(buy("b1").at("189.98"));
    venue.enter(buy("b2").at("189.99"));
    venue.enter(sell("s1").at("190.02"));
    venue.enter(sell("s2").at("190.01"));
    venue.enter(buy("m1").at("409.00").product(2));
    venue.enter(sell("y1").at("520.50").product(3));
    EXPECT_EQ(bbo(venue), "AAPL 189.99 190.01\nMSFT 409 0\nSPY 0 520.5\n");
}

TEST(BboSnapshot, ShowsZeroForEmptySides) {
    EXPECT_EQ(bbo(Venue({.symbols = {"AAPL", ""}})), "AAPL 0 0\n 0 0\n");
    EXPECT_EQ(bbo(Venue({.symbols = {}})), "");
}

TEST(ReplacedFile, HasTheNewContentAndLeavesNothingBeside) {
    const TemporaryFolder folder;
    const std::string path = folder.path("book.json");
    replace_file(path, "first content, which is long\n");
    EXPECT_EQ(content_of(path), "first content, which is long\n");
    replace_file(path, "second\n");
    EXPECT_EQ(content_of(path), "second\n");
    replace_file(path, "");
    EXPECT_EQ(content_of(path), "");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"book.json"});
}

TEST(ReplacedFile, IsAnotherFileSoThatOneWhoReadsTheOldSeesItToTheEnd) {
    const TemporaryFolder folder;
    const std::string path = folder.path("book.json");
    replace_file(path, "old content\n");
    std::ifstream reader(path);
    replace_file(path, "new\n");
    std::string line;
    std::getline(reader, line);
    EXPECT_EQ(line, "old content");
}

TEST(ReplacedFile, IsNotDisturbedByWhatAnEarlierRunLeftBehind) {
    const TemporaryFolder folder;
    std::ofstream(folder.path("bbo.txt.tmp")) << "half a file that was never finished, longer than the next one";
    replace_file(folder.path("bbo.txt"), "AAPL 0 0\n");
    EXPECT_EQ(content_of(folder.path("bbo.txt")), "AAPL 0 0\n");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"bbo.txt"});
}

TEST(ReplacedFile, StaysWhenTheNewOneCannotBeOpened) {
    const TemporaryFolder folder;
    const std::string path = folder.path("book.json");
    replace_file(path, "old\n");
    mkdir((path + ".tmp").c_str(), 0700);  // nobody opens a folder for writing
    replace_file(path, "new\n");
    EXPECT_EQ(content_of(path), "old\n");
}

TEST(ReplacedFile, IsNotMadeInAFolderThatIsNotThere) {
    const TemporaryFolder folder;
    replace_file(folder.path("missing/book.json"), "content\n");
    EXPECT_EQ(folder.names(), std::vector<std::string>{});
}

// A device on which no byte finds room stands for a full disk.
TEST(ReplacedFile, StaysWhenThereIsNoRoomForTheNewOne) {
    for (const std::size_t size : {1u, 100u, 100'000u}) {
        const TemporaryFolder folder;
        const std::string path = folder.path("book.json");
        replace_file(path, "old\n");
        ASSERT_EQ(symlink("/dev/full", (path + ".tmp").c_str()), 0);
        replace_file(path, std::string(size, 'x'));
        EXPECT_EQ(content_of(path), "old\n") << size;
    }
}

TEST(ReplacedFile, ComesBackOnceThereIsRoomAgain) {
    const TemporaryFolder folder;
    const std::string path = folder.path("book.json");
    ASSERT_EQ(symlink("/dev/full", (path + ".tmp").c_str()), 0);
    replace_file(path, "first\n");
    EXPECT_EQ(content_of(path), "");
    unlink((path + ".tmp").c_str());
    replace_file(path, "second\n");
    EXPECT_EQ(content_of(path), "second\n");
}

}  // namespace
}  // namespace kavo::test
