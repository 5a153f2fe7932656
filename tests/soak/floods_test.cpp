// Crowds that say more than the venue can hear: everybody has a turn, and so have those who say little.
#include <poll.h>

#include <deque>

#include "soak/bystanders.h"
#include "support/recovery_client.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::size_t as_fast_as_possible = 100'000'000'000;  // bytes a second

// Peers that say the same thing over and over, as fast as their connections take it or all together so many bytes a
// second, and never read.
class Flood {
public:
    Flood(const Bytes& packet, std::size_t bytes_per_second)
        : many_(repeated(packet, 65'536 / packet.size())), bytes_per_second_(bytes_per_second), pace_(0) {}

    void join(std::uint16_t port, const Login& login) {
        peers_.push_back({std::make_unique<Peer>(port, Peer::little), 0});
        peers_.back().peer->log_in(login);
    }
    // From here on until this object goes away.
    void begin() {
        pace_ = Pace(bytes_per_second_);
        pouring_ = std::make_unique<Meanwhile>([this] { pour(); });
    }
    std::size_t poured() const { return poured_; }  // bytes

private:
    struct Pouring {
        std::unique_ptr<Peer> peer;
        std::size_t at;  // in the bytes that it repeats
    };

    // Much at a time and then a pause, rather than a little all the time: it takes less of the system's memory.
    static constexpr std::size_t least_at_once = 8192;

    void pour() {
        const std::size_t share = pace_.due() / peers_.size();
        std::size_t taken = 0;
        if (share >= least_at_once) {
            for (Pouring& one : peers_) taken += pour(one, share);
        }
        pace_.use(taken);
        poured_ += taken;
        if (taken == 0) poll(nullptr, 0, 1);
    }
    std::size_t pour(Pouring& one, std::size_t most) const {
        const ByteView rest = ByteView(many_).subspan(one.at);
        const std::size_t count = one.peer->pour(rest.first(std::min(most, rest.size())));
        one.at = (one.at + count) % many_.size();
        return count;
    }

    Bytes many_;
    std::size_t bytes_per_second_;
    Pace pace_;
    std::deque<Pouring> peers_;
    std::atomic<std::size_t> poured_{0};
    std::unique_ptr<Meanwhile> pouring_;
};

TEST(Floods, OfHeartbeatsFromReceiversLeaveAnHonestOneItsReply) {
    constexpr std::size_t crowd = 120;
    constexpr std::size_t honest = 20;
    allow_descriptors(crowd + 50);
    Stage stage;
    Flood flood(esesm::build_packet(esesm::PacketType::client_heartbeat, {}), as_fast_as_possible);
    for (std::size_t i = 0; i < crowd; ++i) flood.join(stage.retransmission_port(), receiver_login());
    Asker asker(stage.port());
    flood.begin();
    Durations replies;
    for (bool served = true; served && replies.count() < honest;) {
        const auto start = steady_clock::now();
        RecoveryClient receiver(stage.retransmission_port());
        receiver.log_in();
        receiver.request(1, 10);
        served = receiver.rest().ends_with("goodbye 'A' retransmission complete | closed");
        replies.add(steady_clock::now() - start);
    }
    report("flood of heartbeats from receivers", static_cast<double>(flood.poured()) / 1e6, "MB");
    replies.report("an honest receiver has its reply after");
    EXPECT_EQ(replies.count(), honest);
    EXPECT_LT(replies.longest(), seconds(sanitized ? 5 : 1));
    expect_answers_within(milliseconds(1500), asker, "an answer beside them");
    stage.stop();
}

TEST(Floods, OfRequestsFromHundredsOfClientsLeaveTheOthersTheirAnswersAndTheirSessions) {
    constexpr std::size_t crowd = 300;
    // What is not answered at once waits in the system's memory, and there must be no lack of that.
    constexpr std::size_t more_than_is_answered = 120'000'000;
    if (!allow_descriptors(crowd + 50)) GTEST_SKIP() << "not enough descriptors for three hundred connections";
    Stage stage({"--quiet"});
    Flood flood(framed(buy("a1").shares(0).at("100.00").bytes()), more_than_is_answered);
    for (std::size_t i = 0; i < crowd; ++i) flood.join(stage.port(), login("p" + std::to_string(i)));
    std::deque<QuietUser> users;
    for (int i = 0; i < 4; ++i) users.emplace_back(stage.port(), "u" + std::to_string(i), milliseconds(250));
    Asker asker(stage.port());
    flood.begin();
    live_for(seconds(8), users);
    report("flood of requests from 300 clients", static_cast<double>(flood.poured()) / 1e6, "MB");
    const Durations& answers = asker.stop("an answer beside them");
    report("longest silence of the venue", in_ms(longest_silence(users)) / 1000, "s");
    EXPECT_FALSE(asker.dropped());
    EXPECT_EQ(dropped(users), 0u);
    if (!sanitized) {
        EXPECT_LT(answers.percentile(99), milliseconds(250));
        EXPECT_LT(answers.longest(), milliseconds(1500));
        EXPECT_LT(longest_silence(users), milliseconds(1500));
    }
    stage.stop();
}

}  // namespace
}  // namespace kavo::test
