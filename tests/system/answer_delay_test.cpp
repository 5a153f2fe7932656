// How long a client waits for an answer when nothing else is going on: nothing may linger in the kernel, waiting for
// company that does not come.
#include <algorithm>
#include <chrono>

#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// What is held back waits 200 ms, and what is not takes one: half of that tells them apart on the slowest machine, and
// the median forgives it a bad moment.
constexpr milliseconds limit{100};

template <typename Action>
steady_clock::duration median_of_twenty(Action action) {
    std::vector<steady_clock::duration> times;
    for (int i = 0; i < 20; ++i) {
        const auto start = steady_clock::now();
        action();
        times.push_back(steady_clock::now() - start);
    }
    std::nth_element(times.begin(), times.begin() + 10, times.end());
    return times[10];
}

TEST(LiveAnswer, ThatIsAloneComesAtOnce) {
    LiveVenue venue;
    User alice(venue, "alice");
    const auto median = median_of_twenty([&] {
        alice.send(cancel("b1"));
        alice.next();
    });
    EXPECT_EQ(alice.last_sequence(), 22U);
    EXPECT_LT(median, limit);
}

TEST(LiveAnswer, OfSeveralMessagesComesWholeAtOnce) {
    LiveVenue venue;
    User alice(venue, "alice");
    const auto median = median_of_twenty([&] {
        alice.send(buy("b1").at("100.00"));
        alice.next(3);
        alice.send(cancel("b1"));
        alice.next(2);
    });
    EXPECT_EQ(alice.last_sequence(), 102U);
    EXPECT_LT(median, limit);
}

TEST(LiveAnswer, ToAnotherClientsOrderComesAtOnce) {
    LiveVenue venue;
    venue.empty_the_books();
    User alice(venue, "alice");
    User bob(venue, "bob");
    alice.send(buy("a1").shares(2'000).at("190.00"));
    alice.next(3);
    const auto median = median_of_twenty([&] {
        bob.send(sell("b1").shares(100).at("190.00"));
        alice.next();
        bob.next(3);
    });
    EXPECT_EQ(alice.last_sequence(), 25U);
    EXPECT_LT(median, limit);
}

TEST(LiveAnswer, ToALoginComesAtOnceWithItsReplay) {
    LiveVenue venue;
    User alice(venue, "alice");
    for (const std::uint64_t from : {3U, 1U}) {  // without a replay and with one
        std::string answer;
        const auto median = median_of_twenty([&] {
            alice.log_in(login("alice", from));
            answer = alice.next(from == 1 ? 4 : 1);
        });
        EXPECT_EQ(answer, from == 1 ? "login accepted, engine 1, highest 2 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q | "
                                      "replay complete"
                                    : "login accepted, engine 1, highest 2");
        EXPECT_LT(median, limit);
    }
}

}  // namespace
}  // namespace kavo::test
