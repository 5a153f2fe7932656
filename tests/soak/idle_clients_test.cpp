// A thousand clients who are logged in and have nothing to say: what they cost the venue, and whether anybody notices.
#include <poll.h>

#include <deque>

#include "soak/stage.h"
#include "support/scene.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::size_t idle_clients = 1000;
constexpr milliseconds heartbeat_interval{1000};

// Each of them sends its own heartbeats, and notes how late the venue's are.
class Crowd {
public:
    Crowd(Stage& stage, Trader& trader, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            WireClient& client = clients_.emplace_back(stage.port());
            client.log_in(login("i" + std::to_string(i)));
            client.next(3);
            heard_.push_back(steady_clock::now());
            polled_.push_back({client.socket(), POLLIN, 0});
            if (i % 8 == 7) trader.trade();
        }
    }

    // Waits for at most so long, and takes what has come.
    void listen(milliseconds longest) {
        const auto now = steady_clock::now();
        if (now - spoken_ > milliseconds(500)) {
            spoken_ = now;
            for (WireClient& client : clients_) client.send_heartbeat();
        }
        if (poll(polled_.data(), polled_.size(), static_cast<int>(longest.count())) <= 0) return;
        for (std::size_t i = 0; i < clients_.size(); ++i) {
            if (polled_[i].revents != 0) take(i);
        }
    }
    void forget() { late_ = {}; }

    const Durations& late() const { return late_; }
    std::size_t closed() const { return closed_; }

private:
    void take(std::size_t i) {
        while (const auto packet = clients_[i].next_packet_of_any_kind(milliseconds(0))) {
            EXPECT_EQ(packet_text(*packet), "heartbeat");
            const auto now = steady_clock::now();
            late_.add(now - heard_[i] - heartbeat_interval);
            heard_[i] = now;
        }
        if (!clients_[i].closed()) return;
        ++closed_;
        polled_[i].fd = -1;
    }

    std::deque<WireClient> clients_;
    std::vector<pollfd> polled_;
    std::vector<steady_clock::time_point> heard_;
    steady_clock::time_point spoken_ = steady_clock::now();
    Durations late_;
    std::size_t closed_ = 0;
};

TEST(IdleClients, AThousandAreServedInTimeAndCostLittle) {
    if (!allow_descriptors(idle_clients + 100)) GTEST_SKIP() << "not enough descriptors for a thousand connections";
    Stage stage;
    Trader trader(stage.port());
    const std::size_t memory = resident_bytes(stage.pid());
    const auto alone = processor_time(stage.pid());
    poll(nullptr, 0, 2000);
    report("processor time of an idle venue with one client", in_ms(processor_time(stage.pid()) - alone) / 20,
           "% of a core");
    trader.trade();
    Crowd crowd(stage, trader, idle_clients);
    report("resident bytes for each client", (resident_bytes(stage.pid()) - memory) / idle_clients);

    const auto listen_for = [&](seconds time) {
        const auto end = steady_clock::now() + time;
        for (int i = 1; steady_clock::now() < end; ++i) {
            crowd.listen(milliseconds(2));
            if (i % 100 == 0) trader.trade();  // or the venue would think that she has gone
        }
    };
    listen_for(seconds(2));
    crowd.forget();
    const auto before = processor_time(stage.pid());
    listen_for(seconds(8));
    const double share = in_ms(processor_time(stage.pid()) - before) / 80;
    report("processor time of the venue with a thousand idle clients", share, "% of a core");
    crowd.late().report("a heartbeat of the venue comes late by");
    EXPECT_GE(crowd.late().percentile(0), milliseconds(-50));
    EXPECT_GE(crowd.late().count(), idle_clients * 7);

    // The next answer comes in the next pass, so an answer takes as long as a pass.
    trader.forget_answers();
    const auto busy = processor_time(stage.pid());
    const auto end = steady_clock::now() + seconds(4);
    while (steady_clock::now() < end) {
        for (int i = 0; i < 50; ++i) trader.trade();
        crowd.listen(milliseconds(0));
    }
    trader.answers().report("a pass with a thousand idle clients");
    report("processor time of a pass",
           in_ms(processor_time(stage.pid()) - busy) * 1000 / static_cast<double>(trader.answers().count()), "us");
    EXPECT_EQ(crowd.closed(), 0u);
    if (!sanitized) {
        EXPECT_LT(crowd.late().longest(), milliseconds(250));
        EXPECT_LT(trader.answers().percentile(99), milliseconds(10));
        EXPECT_LT(share, 25.0);
    }
    stage.stop();
}

}  // namespace
}  // namespace kavo::test
