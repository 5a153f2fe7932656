// Clients that come and break off, by the hundred thousand: what the venue keeps of each is small, and its passes stay
// as short as they were.
#include "soak/stage.h"

namespace kavo::test {
namespace {

constexpr std::size_t connections = sanitized ? 20'000 : 200'000;
constexpr std::size_t names = 50;
constexpr std::size_t bytes_for_each = 200;

struct PassCost {
    Durations answers;
    double processor_us = 0;  // for each answer, and so for each pass
};

PassCost measure(const Stage& stage, Trader& trader) {
    trader.forget_answers();
    const auto before = processor_time(stage.pid());
    trader.trade_for(std::chrono::seconds(2));
    const auto spent = processor_time(stage.pid()) - before;
    return {trader.answers(), in_ms(spent) * 1000 / static_cast<double>(trader.answers().count())};
}

// Eight of them fit into the queue of the listener. Every fourth logs in, every eighth even trades, and its answer
// tells that the queue is empty again.
void break_off_eight(const Stage& stage, std::size_t batch) {
    for (int i = 0; i < 8; ++i) {
        WireClient client(stage.port());
        if (i == 3 || i == 7) {
            client.log_in(login("s" + std::to_string((2 * batch + (i == 7)) % names)));
            ASSERT_TRUE(client.next().starts_with("login accepted"));
        }
        if (i == 7) {
            client.send(buy("s" + std::to_string(batch)).immediate().at("1.00"));
            client.next_with(" XN ");
        }
        client.reset();
    }
}

TEST(ReconnectStorm, LeavesLittleOfEachConnectionAndPassesAsShortAsBefore) {
    Stage stage({"--quiet", "--acod"});
    Trader trader(stage.port());
    for (std::size_t batch = 0; batch < 250; ++batch) break_off_eight(stage, batch);  // buffers find their sizes
    const PassCost before = measure(stage, trader);
    const std::size_t memory = resident_bytes(stage.pid());
    const std::size_t descriptors = open_descriptors(stage.pid());
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t batch = 0; batch < connections / 8; ++batch) {
        break_off_eight(stage, 250 + batch);
        if (batch % 100 == 0) trader.trade();
    }
    const auto time = std::chrono::steady_clock::now() - start;
    const std::size_t more = resident_bytes(stage.pid()) - memory;
    const PassCost after = measure(stage, trader);

    report("connections broken off", connections);
    report("time", in_ms(time) / 1000, "s");
    report("resident bytes for each closed connection", more / connections);
    before.answers.report("a pass before");
    after.answers.report("a pass after");
    report("processor time of a pass before", before.processor_us, "us");
    report("processor time of a pass after", after.processor_us, "us");
    EXPECT_LE(open_descriptors(stage.pid()), descriptors);
    if (!sanitized) {
        EXPECT_LE(more / connections, bytes_for_each);
        EXPECT_LT(after.processor_us, before.processor_us * 1.5);
    }
    stage.stop();
}

}  // namespace
}  // namespace kavo::test
