// A venue that has run out of descriptors: it neither spins nor forgets those whom it has, and takes the next client as
// soon as one has left.
#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <deque>
#include <set>

#include "client/recovery_client.h"
#include "soak/bystanders.h"
#include "support/scene.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

const std::string with_64_descriptors = "ulimit -n 64; " + unheard;

// The first of them, apart from some, that is sent anything; their number when nobody is.
std::size_t first_readable(std::deque<WireClient>& clients, const std::set<std::size_t>& apart) {
    std::vector<pollfd> polled;
    for (std::size_t i = 0; i < clients.size(); ++i) {
        polled.push_back({apart.contains(i) ? -1 : clients[i].socket(), POLLIN, 0});
    }
    poll(polled.data(), polled.size(), 2000);
    const auto found = std::find_if(polled.begin(), polled.end(), [](const pollfd& one) { return one.revents != 0; });
    return static_cast<std::size_t>(found - polled.begin());
}

TEST(DescriptorsUsedUp, LeaveTheClientsServedAndTheProcessorIdle) {
    Stage stage({"--quiet"}, with_64_descriptors);
    Trader trader(stage.port());
    std::deque<WireClient> clients;
    for (int i = 0; open_descriptors(stage.pid()) < 64; ++i) {
        ASSERT_LT(i, 64);
        clients.emplace_back(stage.port()).log_in(login("c" + std::to_string(i)));
        ASSERT_TRUE(clients.back().next(3).starts_with("login accepted"));
    }
    report("clients that found a place", clients.size() + 1);
    // These wait in the queues of both listeners.
    std::deque<WireClient> waiting;
    for (int i = 0; i < 3; ++i) {
        waiting.emplace_back(stage.port()).log_in(login("w" + std::to_string(i)));
        waiting.emplace_back(stage.retransmission_port()).log_in(receiver_login());
    }

    const auto before = processor_time(stage.pid());
    const auto start = steady_clock::now();
    while (steady_clock::now() - start < seconds(4)) {
        ASSERT_FALSE(trader.wire.next_packet_of_any_kind(milliseconds(100)) && trader.wire.closed());
        for (WireClient& client : clients) {
            client.send_heartbeat();
            while (client.next_packet_of_any_kind(milliseconds(0))) continue;
            ASSERT_FALSE(client.closed());
        }
        trader.wire.send_heartbeat();
    }
    const double share = in_ms(processor_time(stage.pid()) - before) / in_ms(steady_clock::now() - start) * 100;
    report("processor time of the venue without descriptors", share, "% of a core");
    EXPECT_LT(share, sanitized ? 30.0 : 10.0);
    trader.trade_for(seconds(1));
    trader.answers().report("an answer without descriptors");
    EXPECT_LT(trader.answers().percentile(99), milliseconds(sanitized ? 100 : 10));

    // Each that leaves makes room for one that waits, whoever that is.
    Durations recovery;
    std::set<std::size_t> answered;
    for (std::size_t served = 0; served < 6; ++served) {
        const auto left = steady_clock::now();
        clients.pop_back();
        const std::size_t next = first_readable(waiting, answered);
        recovery.add(steady_clock::now() - left);
        ASSERT_LT(next, waiting.size()) << "nobody is served";
        EXPECT_TRUE(waiting[next].next().starts_with("login accepted"));
        answered.insert(next);
    }
    recovery.report("a free descriptor is taken after");
    EXPECT_LT(recovery.percentile(50), milliseconds(sanitized ? 200 : 20));
    trader.trade();
    stage.stop();
}

// Lets the process have so many descriptors; what is open above that stays open.
void allow_descriptors(pid_t process, rlim_t count) {
    rlimit limit{};
    ASSERT_EQ(prlimit(process, RLIMIT_NOFILE, nullptr, &limit), 0);
    limit.rlim_cur = std::min(count, limit.rlim_max);
    ASSERT_EQ(prlimit(process, RLIMIT_NOFILE, &limit, nullptr), 0);
}

// With more sockets than the limit allows there is no waiting for them any more: each attempt fails at once.
TEST(DescriptorsUsedUp, ByALimitThatSinksBelowTheirNumberLeaveTheClientsServed) {
    constexpr rlim_t limit = 10;
    Stage stage({"--quiet"});
    std::deque<QuietUser> users;
    for (rlim_t i = 0; i < 2 * limit; ++i) {
        users.emplace_back(stage.port(), "u" + std::to_string(i), milliseconds(250) * (1 + i % 4));
    }
    Asker asker(stage.port());
    RecoveryClient receiver(stage.retransmission_port());
    receiver.log_in();
    ASSERT_TRUE(receiver.next().starts_with("login accepted"));
    ASSERT_NO_FATAL_FAILURE(allow_descriptors(stage.pid(), limit));

    const auto before = processor_time(stage.pid());
    live_for(seconds(5), users);
    report("processor time of the venue below its limit", in_ms(processor_time(stage.pid()) - before) / 50,
           "% of a core");
    report("clients", users.size());
    report("of which are dropped", dropped(users));
    EXPECT_EQ(dropped(users), 0u);
    report("longest silence of the venue", in_ms(longest_silence(users)) / 1000, "s");
    EXPECT_LT(longest_silence(users), milliseconds(sanitized ? 2500 : 1500));
    receiver.request(1, 10);
    EXPECT_TRUE(receiver.rest().ends_with("goodbye 'A' retransmission complete | closed"));
    expect_answers_within(milliseconds(250), asker, "an answer below the limit");

    ASSERT_NO_FATAL_FAILURE(allow_descriptors(stage.pid(), RLIM_INFINITY));
    Trader(stage.port(), "late").trade();
    stage.stop();
}

}  // namespace
}  // namespace kavo::test
