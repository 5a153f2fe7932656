// The snapshot files of a running venue, as a reader finds them who knows nothing of when they are written.
#include <algorithm>
#include <ctime>
#include <set>
#include <sstream>

#include "client/received_book.h"
#include "support/scene.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::uint64_t wall_ns() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(now.tv_nsec);
}

// A price as any stream writes it.
std::string short_price(WirePrice price) {
    std::ostringstream text;
    text << static_cast<double>(price) / 1'000'000;
    return text.str();
}

template <typename Level>
std::string levels_text(Level level, Level end) {
    std::string text;
    for (int left = 5; level != end && left > 0; ++level, --left) {
        if (!text.empty()) text += ",";
        text += "[" + short_price(level->first) + "," + std::to_string(level->second) + "]";
    }
    return "[" + text + "]";
}

// What the files must say about a book that has not traded.
std::string member(const ReceivedBook::Book& book) {
    return "\"" + book.symbol + "\":{\"bid\":" + levels_text(book.bids.rbegin(), book.bids.rend()) +
           ",\"ask\":" + levels_text(book.asks.begin(), book.asks.end()) + ",\"last\":0,\"volume\":0}";
}
std::string bbo_line(const ReceivedBook::Book& book) {
    return book.symbol + " " + short_price(book.bids.rbegin()->first) + " " + short_price(book.asks.begin()->first) +
           "\n";
}

std::string without_time(const std::string& snapshot) {
    const std::string start = "{\"ts_ns\":";
    if (!snapshot.starts_with(start)) return snapshot;
    return start + "*" + snapshot.substr(std::min(snapshot.find(',', start.size()), snapshot.size()));
}

TEST(SnapshotFiles, AreThereAtOnceAndShowTheBooksOfTheFeed) {
    const TemporaryFolder folder;
    const std::uint64_t before_ns = wall_ns();
    FullVenue venue({"--book-out", folder.path("book.json"), "--bbo-out", folder.path("bbo.txt"), "--symbols",
                     "AAPL:190.00,MSFT:410.00"});
    // Two conversations after each other: the pass in which the first one ended has written the files.
    fetch_range(1, 1, venue.retransmission_port());
    ReceivedBook books;
    for (const NumberedMessage& message : fetch_range(1, 1000, venue.retransmission_port())) {
        books.apply(message.message);
    }
    const std::string snapshot = content_of(folder.path("book.json"));
    EXPECT_EQ(without_time(snapshot),
              "{\"ts_ns\":*,\"symbols\":{" + member(books.book(1)) + "," + member(books.book(2)) + "}}\n");
    EXPECT_EQ(content_of(folder.path("bbo.txt")), bbo_line(books.book(1)) + bbo_line(books.book(2)));
    EXPECT_GE(number_behind("{\"ts_ns\":", snapshot), before_ns);
    EXPECT_LE(number_behind("{\"ts_ns\":", snapshot), wall_ns());

    venue.stop();
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"bbo.txt", "book.json"}));
}

TEST(SnapshotFiles, AreNeverMetHalfWrittenAndRewrittenFourTimesASecondAtMost) {
    const TemporaryFolder folder;
    const auto start = steady_clock::now();
    UnreadVenue venue({"--book-out", folder.path("book.json"), "--bbo-out", folder.path("bbo.txt"), "--interval-ms",
                       "1", "--symbols", "AAPL:190.00,MSFT:410.00,SPY:520.00"});
    std::set<std::uint64_t> moments;
    const auto deadline = start + patience;
    while (moments.size() < 5 && steady_clock::now() < deadline) {
        const std::string book = content_of(folder.path("book.json"));
        const std::string bbo = content_of(folder.path("bbo.txt"));
        if (book.empty() || bbo.empty()) continue;  // the first pass is still to come
        ASSERT_TRUE(book.starts_with("{\"ts_ns\":") && book.ends_with("}}}\n")) << book;
        ASSERT_EQ(std::count(book.begin(), book.end(), '\n'), 1) << book;
        ASSERT_EQ(std::count(bbo.begin(), bbo.end(), '\n'), 3) << bbo;
        ASSERT_TRUE(bbo.starts_with("AAPL ") && bbo.ends_with("\n")) << bbo;
        moments.insert(number_behind("{\"ts_ns\":", book));
    }
    EXPECT_GE(moments.size(), 5u);
    EXPECT_GE(steady_clock::now() - start, milliseconds(4 * 250));
}

TEST(SnapshotFiles, AreWrittenOnlyWhereTheyAreAskedFor) {
    const TemporaryFolder folder;
    FullVenue venue({"--bbo-out", folder.path("bbo.txt")});
    venue.control.ask("stats");
    venue.control.ask("stats");  // the pass of the first one has written all that there is
    venue.stop();
    EXPECT_EQ(folder.names(), std::vector<std::string>{"bbo.txt"});
}

}  // namespace
}  // namespace kavo::test
