// A receiver that comes in the middle of the day: the snapshot says where the books stand and as of which message, and
// from the next one on the feed does the rest.
#include <map>

#include "client/feed_handler.h"
#include "support/scene.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// The book truth's lines of one product, by number.
using TrueBooks = std::map<std::uint64_t, std::string>;
std::map<std::uint32_t, TrueBooks> true_books(const TemporaryFile& truth) {
    std::map<std::uint32_t, TrueBooks> books;
    for (const std::string& line : truth.lines()) {
        const auto secid = static_cast<std::uint32_t>(number_behind(",\"secid\":", line));
        books[secid].emplace(number_behind("{\"seq\":", line), line);
    }
    return books;
}
// The latest line up to a message, with that message's number in it.
std::string true_book(const TrueBooks& books, std::uint64_t sequence) {
    const std::string& line = std::prev(books.upper_bound(sequence))->second;
    return "{\"seq\":" + std::to_string(sequence) + line.substr(line.find(','));
}

void join_late(const std::vector<std::string>& damage) {
    constexpr std::uint32_t products = 3;
    const TemporaryFile truth;
    std::vector<std::string> flags = {
        "--symbols", "AAPL:190.00,MSFT:410.00,SPY:520.00", "--interval-ms", "1", "--truth-out", truth.path()};
    flags.insert(flags.end(), damage.begin(), damage.end());
    UnreadVenue venue(flags);
    while (venue.control.next_sequence() < 2000) {
        while (venue.feed.next_datagram(milliseconds(0))) continue;
    }

    // It listens before it asks, or it would miss what comes between the snapshot and its first datagram.
    FeedHandler handler(venue.feed, venue.retransmission_port());
    handler.start_from_snapshot();
    const std::uint64_t as_of = handler.receiver.next_sequence() - 1;
    EXPECT_GE(as_of, 1999u);
    std::map<std::uint64_t, std::string> seen;  // the book after each change, and all books as of the snapshot
    std::map<std::uint32_t, std::string> joined_at;
    for (std::uint32_t secid = 1; secid <= products; ++secid) {
        joined_at[secid] = handler.receiver.book().truth_line(as_of, secid);
    }
    handler.receiver.on_applied = [&](std::uint64_t sequence, std::uint32_t changed) {
        if (changed != 0) seen[sequence] = handler.receiver.book().truth_line(sequence, changed);
    };
    EXPECT_TRUE(handler.follow_to(as_of + 2000));
    ASSERT_EQ(venue.control.ask("pause"), "ok pause\n");
    const std::uint64_t last = venue.control.next_sequence() - 1;
    EXPECT_TRUE(handler.follow_to(last));
    EXPECT_EQ(handler.receiver.counters.refreshes, 1u);
    EXPECT_EQ(handler.receiver.counters.unconnected, 0u);
    EXPECT_EQ(venue.process.stop(), 0);

    const auto books = true_books(truth);
    ASSERT_EQ(books.size(), products);
    std::size_t compared = 0;
    for (const auto& [secid, lines] : books) {
        EXPECT_EQ(joined_at[secid], true_book(lines, as_of));
        EXPECT_EQ(handler.receiver.book().truth_line(last, secid), true_book(lines, last));
        for (auto line = lines.upper_bound(as_of); line != lines.end(); ++line, ++compared) {
            ASSERT_EQ(seen[line->first], line->second);
        }
    }
    EXPECT_EQ(compared, seen.size());
    EXPECT_GT(compared, 1000u);
}

TEST(LateJoiner, HoldsTheTrueBooksFromItsSnapshotOn) {
    join_late({});
}

TEST(LateJoiner, HoldsTheTrueBooksOfADamagedFeedToo) {
    join_late({"--drop-every", "5", "--dup-every", "3", "--reorder-every", "4"});
}

TEST(LateJoiner, OfAQuietMarketNeedsTheSnapshotAlone) {
    FullVenue venue;
    User alice(venue, "alice");
    alice.send(buy("b1").shares(700).at("180.00"));
    alice.next(3);
    FeedHandler handler(venue.feed, venue.retransmission_port());
    handler.start_from_snapshot();
    EXPECT_EQ(handler.receiver.next_sequence(), venue.control.next_sequence());
    EXPECT_TRUE(handler.receiver.book().text(1, 1000).starts_with("AAPL  700@180 "))
        << handler.receiver.book().text(1, 1000);
    // The order's own datagram is still to come, and is nothing new.
    EXPECT_TRUE(handler.take_datagram(std::chrono::duration_cast<milliseconds>(patience)));
    EXPECT_GE(handler.receiver.counters.duplicates, 1u);
    EXPECT_TRUE(handler.receiver.book().text(1, 1000).starts_with("AAPL  700@180 "))
        << handler.receiver.book().text(1, 1000);

    alice.send(cancel("b1"));
    EXPECT_TRUE(handler.follow_to(handler.receiver.next_sequence()));
    while (handler.receiver.book().text(1, 1000).find("700@180") != std::string::npos) {
        ASSERT_TRUE(handler.take_datagram(std::chrono::duration_cast<milliseconds>(patience)));
    }
    EXPECT_EQ(handler.receiver.counters.unconnected, 0u);
}

}  // namespace
}  // namespace kavo::test
