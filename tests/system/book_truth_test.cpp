// The book truth of a running venue: one line for each change of a book, tied to the feed by a number.
#include "client/feed_messages.h"
#include "client/received_book.h"
#include "support/scene.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

// The lines that the messages of the whole day call for, by the book that a receiver rebuilds from them.
std::vector<std::string> lines_by_the_feed(std::uint16_t retransmission_port) {
    std::vector<std::string> lines;
    ReceivedBook books;
    for (const NumberedMessage& message : fetch_range(1, largest_number, retransmission_port)) {
        const std::uint32_t changed = books.apply(message.message);
        if (changed != 0) lines.push_back(books.truth_line(message.sequence, changed));
    }
    return lines;
}

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

TEST(BookTruth, IsCompleteAfterAnOrderlyEnd) {
    const TemporaryFile truth;
    FullVenue venue({"--truth-out", truth.path(), "--interval-ms", "1"});
    while (venue.control.next_sequence() < 1000) continue;
    venue.control.ask("pause");
    const Lines expected = lines_by_the_feed(venue.retransmission_port());
    venue.stop();
    EXPECT_EQ(truth.lines(), expected);
}

}  // namespace
}  // namespace kavo::test
