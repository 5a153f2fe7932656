// Snapshots of a running venue: what each type brings over a real connection, and that the books in it are the books.
#include <algorithm>

#include "client/received_book.h"
#include "support/scene.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

// The messages of a snapshot as lines; the time in front of them is checked here, it comes first in each.
std::vector<std::string> lines_of(const Snapshot& snapshot) {
    std::vector<std::string> lines;
    for (const Bytes& message : snapshot.messages) lines.push_back(dom_text(message));
    EXPECT_FALSE(lines.empty());
    EXPECT_TRUE(lines[0].starts_with("time ")) << lines[0];
    lines.erase(lines.begin());
    return lines;
}

std::string served(char type, const Snapshot& snapshot) {
    return std::string("bench: refresh '") + type + "' served as of seq " + std::to_string(snapshot.as_of) + " (" +
           std::to_string(snapshot.bytes) + " bytes)\n";
}

TEST(RefreshService, BringsWhatEachTypeAsksFor) {
    FullVenue venue({"--symbols", "AAPL:190.00,SPY:520.00", "--session", "7"});
    const std::uint64_t last = venue.feed.last_sequence();
    // Packets: 17 bytes for the time, 27 for the state, 54 for a definition, 24 for a status, 46 for an order, 5 at the
    // end.
    struct Scene {
        char type;
        std::size_t bytes;
        std::string lines;
    };
    const std::vector<Scene> scenes = {
        {'S', 17 + 2 * 54 + 5, "definition 1 AAPL Q | definition 2 SPY P"},
        {'s', 17 + 27 + 5, "state session 7"},
        {'t', 17 + 2 * 24 + 5, "status 1 | status 2"},
    };
    for (const Scene& scene : scenes) {
        const Snapshot snapshot = fetch_snapshot(scene.type, venue.retransmission_port());
        EXPECT_EQ(snapshot.as_of, last);
        EXPECT_EQ(joined(lines_of(snapshot)), scene.lines);
        EXPECT_EQ(snapshot.bytes, scene.bytes);
        EXPECT_TRUE(venue.process.says(served(scene.type, snapshot)));
    }
    const Snapshot everything = fetch_snapshot('O', venue.retransmission_port());
    EXPECT_EQ(everything.as_of, last);
    EXPECT_EQ(everything.bytes, 17u + 27 + 2 * 54 + 2 * 24 + 80 * 46 + 5);
    EXPECT_TRUE(venue.process.says(served('O', everything)));
    std::vector<std::string> lines = lines_of(everything);
    ASSERT_EQ(lines.size(), 85u);
    EXPECT_EQ(joined({lines.begin(), lines.begin() + 5}),
              "state session 7 | definition 1 AAPL Q | definition 2 SPY P | status 1 | status 2");
    std::vector<std::string> quotes = venue.quotes();
    std::sort(quotes.begin(), quotes.end());
    std::sort(lines.begin() + 5, lines.end());
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 5, lines.end()), quotes);
    EXPECT_EQ(venue.control.next_sequence(), last + 1);
}

TEST(RefreshService, BringsTheVeryBooksThatTheFeedHasBuilt) {
    FullVenue venue({"--interval-ms", "1", "--symbols", "AAPL:190.00,MSFT:410.00,SPY:520.00"});
    while (venue.control.next_sequence() < 1000) continue;
    for (int round = 0; round < 5; ++round) {
        const Snapshot snapshot = fetch_snapshot('O', venue.retransmission_port());
        ReceivedBook from_snapshot;
        for (const Bytes& message : snapshot.messages) from_snapshot.apply(message);
        ReceivedBook from_feed;
        for (const NumberedMessage& message : fetch_range(1, snapshot.as_of, venue.retransmission_port())) {
            from_feed.apply(message.message);
        }
        for (std::uint32_t secid = 1; secid <= 3; ++secid) {
            EXPECT_EQ(from_snapshot.text(secid, 1000), from_feed.text(secid, 1000)) << "as of " << snapshot.as_of;
        }
    }
}

}  // namespace
}  // namespace kavo::test
