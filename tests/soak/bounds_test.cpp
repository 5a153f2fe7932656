// What must not pile up in a venue that runs for days: users who never trade, and orders that have ended.
#include "soak/stage.h"

namespace kavo::test {
namespace {

// One user after the other logs in and goes away.
TEST(Bounds, UsersWhoNeverTradeCostNextToNothing) {
    constexpr std::size_t users = 10'000;
    constexpr std::size_t bytes_for_each = 1000;  // the connection's record is a part of it
    Stage stage({"--quiet"});
    Trader trader(stage.port());
    const auto come_and_go = [&](std::size_t first, std::size_t count) {
        for (std::size_t user = first; user < first + count; ++user) {
            WireClient client(stage.port());
            client.log_in(login(std::to_string(10'000 + user)));
            ASSERT_EQ(client.next(3), "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");
            client.send_packet('X');
            ASSERT_EQ(client.next(), "closed");
        }
    };
    come_and_go(0, 1000);
    const std::size_t memory = resident_bytes(stage.pid());
    come_and_go(1000, users);
    const std::size_t each = (resident_bytes(stage.pid()) - memory) / users;
    report("resident bytes for each user who has only logged in", each);
    if (!sanitized) {
        EXPECT_LE(each, bytes_for_each);
    }
    trader.trade();
    stage.stop();
}

// Whatever has a limit is full after the first orders: the stream, the history, and the ids that have been closed.
TEST(Bounds, EndedOrdersLeaveNothing) {
    constexpr std::size_t until_full = sanitized ? 20'000 : 110'000;
    constexpr std::size_t orders = sanitized ? 20'000 : 400'000;
    constexpr std::size_t batch = 500;
    Stage stage({"--quiet"});
    Trader trader(stage.port());
    Peer peer(stage.port(), Peer::little);
    peer.log_in(login("busy"));
    std::size_t entered = 0;
    const auto enter_and_cancel_more = [&](std::size_t count) {
        for (const std::size_t end = entered + count; entered < end; entered += batch) {
            enter_and_cancel(peer, entered, batch);
            trader.trade();
        }
        stage.await_counter(" cancels=", entered + trader.orders(), peer);
    };
    const auto pass_us = [&] {
        trader.forget_answers();
        const auto before = processor_time(stage.pid());
        trader.trade_for(std::chrono::seconds(1));
        return in_ms(processor_time(stage.pid()) - before) * 1000 / static_cast<double>(trader.answers().count());
    };
    enter_and_cancel_more(until_full);
    const double before_us = pass_us();
    const std::size_t memory = resident_bytes(stage.pid());
    enter_and_cancel_more(orders);
    const std::size_t after = resident_bytes(stage.pid());
    const double after_us = pass_us();
    report("orders that have ended", orders);
    report("resident bytes before", memory);
    report("resident bytes after", after);
    report("processor time of a pass before", before_us, "us");
    report("processor time of a pass after", after_us, "us");
    if (!sanitized) {
        EXPECT_LT(after, memory + orders * 4);  // the trader's stream is not full yet
        EXPECT_LT(after_us, before_us * 1.5);
    }
    stage.stop();
}

}  // namespace
}  // namespace kavo::test
