// The book truth of a running venue: one line for each change of a book, tied to the feed by a number.
#include <algorithm>
#include <fstream>

#include "client/feed_messages.h"
#include "client/received_book.h"
#include "feed/dom_messages.h"
#include "support/scene.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

constexpr std::uint64_t largest = 0xFFFFFFFFFFFFFFFF;

// The lines that the messages of the whole day call for, by the book that a receiver rebuilds from them.
std::vector<std::string> lines_by_the_feed(std::uint16_t retransmission_port) {
    std::vector<std::string> lines;
    ReceivedBook books;
    for (const NumberedMessage& message : fetch_range(1, largest, retransmission_port)) {
        const std::uint32_t changed = books.apply(message.message);
        if (changed != 0) lines.push_back(books.truth_line(message.sequence, changed));
    }
    return lines;
}

// The lines without their numbers and what is the same in all of them: a scene writes down what remains by hand.
std::vector<std::string> books_in(const std::vector<std::string>& lines) {
    std::vector<std::string> books;
    for (const std::string& line : lines) {
        const std::size_t start = line.find("\"bid\":");
        if (line.find(",\"secid\":1,\"symbol\":\"AAPL\",\"bid\":") + 27 != start) {
            books.push_back("unknown line: " + line);
        } else {
            books.push_back(line.substr(start, line.size() - start - 1));
        }
    }
    return books;
}

// A venue whose books are empty, and whose truth has been marked there.
struct EmptiedVenue {
    EmptiedVenue() {
        venue.empty_the_books();
        EXPECT_EQ(venue.control.ask("mark empty"), "ok mark empty\n");
    }
    // The lines behind the mark. Each must carry the number of a message about an order, and each such message has one.
    std::vector<std::string> lines() {
        EXPECT_EQ(venue.control.ask("mark now"), "ok mark now\n");
        std::vector<std::string> all = truth.lines();
        EXPECT_TRUE(all.back().starts_with("{\"mark\":\"now\",\"seq\":"));
        all.pop_back();
        const auto is_mark = [](const std::string& line) { return line.starts_with("{\"mark\":\"empty\",\"seq\":"); };
        const auto mark = std::find_if(all.begin(), all.end(), is_mark);
        EXPECT_NE(mark, all.end());
        std::vector<std::string> behind(mark + 1, all.end());
        all.erase(mark);
        EXPECT_EQ(all, lines_by_the_feed(venue.retransmission_port()));
        return behind;
    }

    TemporaryFile truth;
    FullVenue venue{{"--truth-out", truth.path()}};
    User alice{venue, "alice"};
};

using Lines = std::vector<std::string>;

TEST(BookTruth, BeginsWithFortyLinesForEachSymbol) {
    const TemporaryFile truth;
    FullVenue venue({"--truth-out", truth.path(), "--symbols", "AAPL:190.00,MSFT:410.00,SPY:520.00"});
    EXPECT_EQ(venue.control.ask("mark start"), "ok mark start\n");
    Lines lines = truth.lines();
    ASSERT_EQ(lines.size(), 3 * 40 + 1u);
    EXPECT_EQ(lines.back(), "{\"mark\":\"start\",\"seq\":" + std::to_string(venue.feed.last_sequence()) + "}");
    lines.pop_back();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string secid = std::to_string(i / 40 + 1);
        EXPECT_NE(lines[i].find(",\"secid\":" + secid + ",\"symbol\":\"" +
                                (i < 40   ? "AAPL"
                                 : i < 80 ? "MSFT"
                                          : "SPY") +
                                "\",\"bid\":["),
                  std::string::npos)
            << lines[i];
    }
    EXPECT_EQ(lines, lines_by_the_feed(venue.retransmission_port()));
}

TEST(BookTruth, BeginsWithTheFirstQuoteAlone) {
    const TemporaryFile truth;
    FullVenue venue({"--truth-out", truth.path()});
    venue.control.ask("mark start");
    for (const NumberedMessage& message : fetch_range(1, largest, venue.retransmission_port())) {
        const auto first = read_add_order(message.message);
        if (!first) continue;
        const std::string cents = std::to_string(first->price / 10'000);  // five digits
        const std::string level =
            "[" + cents.substr(0, 3) + "." + cents.substr(3) + "00," + std::to_string(first->quantity) + "]";
        EXPECT_EQ(truth.lines().at(0),
                  "{\"seq\":" + std::to_string(message.sequence) + ",\"secid\":1,\"symbol\":\"AAPL\",\"bid\":[" +
                      (first->side == 'B' ? level : "") + "],\"ask\":[" + (first->side == 'S' ? level : "") + "]}");
        return;
    }
    FAIL() << "no quote";
}

TEST(BookTruth, HasALineForEachKindOfChange) {
    EmptiedVenue scene;
    User bob(scene.venue, "bob");
    scene.alice.send(buy("b1").shares(300).at("189.99"));
    scene.alice.send(buy("b2").shares(200).at("189.99"));
    scene.alice.send(sell("s1").shares(100).at("190.50"));
    scene.alice.next(9);
    bob.send(sell("s2").shares(100).at("189.99"));  // an execution that leaves something
    bob.next(3);
    scene.alice.next(1);
    scene.alice.send(replace("b2", "b3").shares(150).at("189.99"));  // in place
    scene.alice.send(replace("s1", "s3").shares(100).at("190.00"));  // to another price
    scene.alice.send(cancel("b3"));
    scene.alice.next(6);
    bob.send(sell("s4").shares(200).at("189.00"));  // an execution that leaves nothing
    bob.next(3);
    scene.alice.next(1);
    bob.send(sell("s5").shares(100).market());  // finds nobody, changes nothing
    bob.next(3);
    EXPECT_EQ(books_in(scene.lines()), (Lines{
                                           R"("bid":[[189.9900,300]],"ask":[])",
                                           R"("bid":[[189.9900,500]],"ask":[])",
                                           R"("bid":[[189.9900,500]],"ask":[[190.5000,100]])",
                                           R"("bid":[[189.9900,400]],"ask":[[190.5000,100]])",
                                           R"("bid":[[189.9900,350]],"ask":[[190.5000,100]])",
                                           R"("bid":[[189.9900,350]],"ask":[[190.0000,100]])",
                                           R"("bid":[[189.9900,200]],"ask":[[190.0000,100]])",
                                           R"("bid":[],"ask":[[190.0000,100]])",
                                       }));
}

TEST(BookTruth, FollowsAReplaceThatTradesStepByStep) {
    EmptiedVenue scene;
    scene.alice.send(sell("s1").shares(100).at("190.00"));
    scene.alice.send(sell("s2").shares(100).at("190.01"));
    scene.alice.send(buy("b1").shares(100).at("189.99"));
    scene.alice.send(replace("b1", "b2").shares(300).at("190.01"));
    scene.alice.next(9 + 7);
    EXPECT_EQ(books_in(scene.lines()), (Lines{
                                           R"("bid":[],"ask":[[190.0000,100]])",
                                           R"("bid":[],"ask":[[190.0000,100],[190.0100,100]])",
                                           R"("bid":[[189.9900,100]],"ask":[[190.0000,100],[190.0100,100]])",
                                           R"("bid":[[190.0100,300]],"ask":[[190.0000,100],[190.0100,100]])",
                                           R"("bid":[],"ask":[[190.0000,100],[190.0100,100]])",
                                           R"("bid":[],"ask":[[190.0100,100]])",
                                           R"("bid":[],"ask":[])",
                                           R"("bid":[[190.0100,100]],"ask":[])",
                                       }));
}

TEST(BookTruth, ShowsTenLevelsOfEachSideBestFirst) {
    EmptiedVenue scene;
    for (int i = 1; i <= 12; ++i) {
        const std::string cents = std::to_string(100 + i).substr(1);
        scene.alice.send(buy("b" + cents).shares(100).at("189." + cents));
        scene.alice.send(sell("s" + cents).shares(200).at("190." + cents));
    }
    scene.alice.next(12 * 6);
    const Lines books = books_in(scene.lines());
    ASSERT_EQ(books.size(), 24u);
    EXPECT_EQ(books.back(),
              R"("bid":[[189.1200,100],[189.1100,100],[189.1000,100],[189.0900,100],[189.0800,100],[189.0700,100],)"
              R"([189.0600,100],[189.0500,100],[189.0400,100],[189.0300,100]],)"
              R"("ask":[[190.0100,200],[190.0200,200],[190.0300,200],[190.0400,200],[190.0500,200],[190.0600,200],)"
              R"([190.0700,200],[190.0800,200],[190.0900,200],[190.1000,200]])");
    // The eleventh and the twelfth sell changed nothing that is shown, and have their lines all the same.
    EXPECT_EQ(books[21].substr(books[21].find("\"ask\"")), books[23].substr(books[23].find("\"ask\"")));
}

TEST(BookTruth, KeepsWhatAnEarlierRunHasWritten) {
    const TemporaryFile truth;
    std::ofstream(truth.path()) << "{\"mark\":\"yesterday\",\"seq\":9}\n";
    {
        FullVenue venue({"--truth-out", truth.path()});
        venue.control.ask("mark today");
    }
    const Lines lines = truth.lines();
    ASSERT_EQ(lines.size(), 42u);
    EXPECT_EQ(lines.front(), "{\"mark\":\"yesterday\",\"seq\":9}");
    EXPECT_TRUE(lines.back().starts_with("{\"mark\":\"today\",\"seq\":"));
}

TEST(BookTruth, IsCompleteAfterAnOrderlyEnd) {
    const TemporaryFile truth;
    FullVenue venue({"--truth-out", truth.path(), "--interval-ms", "1"});
    while (venue.control.next_sequence() < 1000) continue;
    venue.control.ask("pause");
    const Lines expected = lines_by_the_feed(venue.retransmission_port());
    venue.stop();
    EXPECT_EQ(truth.lines(), expected);
}

TEST(BookTruth, ThatCannotBeWrittenDoesNotStopTheVenue) {
    const TemporaryFolder folder;
    for (const std::string& path : {folder.path("missing/truth.jsonl"), std::string("/dev/full")}) {
        FullVenue venue({"--truth-out", path});
        EXPECT_EQ(venue.control.ask("mark one"), "ok mark one\n");
        EXPECT_EQ(venue.control.ask("mark two"), "ok mark two\n");
        User alice(venue, "alice");
        alice.send(buy("b1").at("180.00"));
        EXPECT_EQ(alice.next(), "3: NR b1 accepted #1040 100@180");
        venue.stop();
        const std::string said = venue.process.said();
        const std::string last = std::to_string(venue.feed.last_sequence());
        EXPECT_NE(
            said.find("bench: mark one at seq " + last + " orders 0\nbench: mark two at seq " + last + " orders 0\n"),
            std::string::npos)
            << said;
        EXPECT_EQ(said.find("truth"), std::string::npos) << said;
    }
    EXPECT_EQ(folder.names(), Lines{});
}

}  // namespace
}  // namespace kavo::test
