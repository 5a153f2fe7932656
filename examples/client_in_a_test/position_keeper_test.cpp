// The keeper against a whole venue: first one scene, then a thousand days that misbehave, each from a seed of its own.
// What the venue has written down about every order is what the keeper must believe.
#include "position_keeper.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "memory/memory_user.h"
#include "memory/venue_test.h"

using namespace std::chrono_literals;
using namespace kavo::client;

namespace {

// The number behind a key of a truth line.
std::int64_t number_in(std::string_view line, std::string_view key) {
    const std::size_t at = line.find(key);
    return at == std::string_view::npos ? 0 : std::stoll(std::string(line.substr(at + key.size())));
}

// The position that the venue has written down.
std::int64_t position_in(const std::vector<std::string>& truth) {
    std::int64_t position = 0;
    for (const std::string& line : truth) {
        if (line.find("\"ev\":\"fill\"") == std::string::npos) continue;
        const bool buy = line.find("\"side\":\"B\"") != std::string::npos;
        position += (buy ? 1 : -1) * number_in(line, "\"last_qty\":");
    }
    return position;
}

struct KeeperTest : kavo::VenueTest {
    // Time goes on by five milliseconds, with everybody saying and hearing what there is.
    static void step(kavo::MemoryVenue& venue, kavo::MemoryUser& user, PositionKeeper& keeper, bool act = true) {
        user.exchange();
        while (const auto arrival = user.session.next()) keeper.take(*arrival);
        if (act) keeper.act(user.session);
        venue.advance(5ms);
    }
};

TEST_F(KeeperTest, LearnsOfAFillThatHappenedWhileItWasAway) {
    kavo::MemoryVenue& venue = open({"--interval-ms", "-1"});
    PositionKeeper keeper(wire_price("189.00"), wire_price("191.00"));
    kavo::MemoryUser alice(venue, login("alice", 1));
    for (int i = 0; i < 4; ++i) step(venue, alice, keeper);
    EXPECT_EQ(keeper.open_shares(), 600u);

    alice.break_off();
    PositionKeeper nobody(0, 0);
    kavo::MemoryUser bob(venue, login("bob", 1));
    for (int i = 0; i < 2; ++i) step(venue, bob, nobody, false);
    bob.session.send(sell("x1").shares(25'000).at("189.00"));  // takes all that is bid, alice's order among it
    for (int i = 0; i < 2; ++i) step(venue, bob, nobody, false);
    EXPECT_EQ(keeper.position(), 0);

    for (int i = 0; i < 3; ++i) step(venue, alice, keeper, false);
    EXPECT_EQ(keeper.position(), 300);
}

// The venue drops it, falls silent, rejects, cancels on its own, and the keeper crashes now and then.
TEST_F(KeeperTest, KnowsItsPositionOnAThousandDays) {
    constexpr int days = 1'000;
    constexpr int steps = 400;  // two seconds
    std::uint64_t orders = 0;
    for (int day = 1; day <= days; ++day) {
        SCOPED_TRACE("day " + std::to_string(day));
        const std::string scenario =
            "reject_every=" + std::to_string(day % 7) + ",unsolicited_cancel_every=" + std::to_string(day % 5) +
            ",disconnect_after=" + std::to_string(1 + day % 4) + ",lapse_ms=" + std::to_string(day % 3 * 250);
        kavo::MemoryVenue& venue = open({"--seed", std::to_string(day), "--step-bps", "4", "--acod"}, {scenario});
        PositionKeeper keeper(wire_price("189.99"), wire_price("190.01"));
        kavo::MemoryUser user(venue, login("keeper", 1));
        for (int i = 1; i <= steps; ++i) {
            if (i % 150 == day % 150) user.break_off();
            step(venue, user, keeper);
        }
        venue.command("pause");
        for (int i = 0; i < 200; ++i) step(venue, user, keeper, false);
        ASSERT_EQ(keeper.position(), position_in(venue.take_order_truth()));
        orders += keeper.orders();
    }
    EXPECT_GT(orders, 10u * days);
}

}  // namespace
