// Crowds that say more than the venue can hear: everybody has a turn, and so have those who say little.
#include <poll.h>

#include <deque>

#include "client/recovery_client.h"
#include "soak/bystanders.h"
#include "support/scene.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

// As much as keeps a venue busy for a while, and leaves the system the memory that everybody's connection needs.
constexpr std::size_t most_unread = 200'000'000;

// Peers that say the same thing over and over, as fast as the venue reads it, and do not care for the answers.
class Flood {
public:
    //   most  bytes, after which it dries up
    Flood(std::uint16_t port, const Bytes& packet, std::size_t most)
        : port_(port), many_(repeated(packet, 16'384 / packet.size())), most_(most) {}

    void join(const Login& login) {
        peers_.push_back({std::make_unique<Peer>(port_), 0});
        peers_.back().peer->log_in(login);
    }
    // From here on until this object goes away. The venue has plenty to read by then.
    void begin() {
        top_up();
        pouring_ = std::make_unique<Meanwhile>([this] {
            poll(nullptr, 0, 5);
            top_up();
        });
    }
    std::size_t poured() const { return poured_; }  // bytes

private:
    struct Pouring {
        std::unique_ptr<Peer> peer;
        std::size_t at;  // in the bytes that it repeats
    };

    // Everybody in turn, until enough waits to be read, or nobody has room for more.
    void top_up() {
        const std::size_t unread = unread_bytes(port_);
        std::size_t room = std::min(most_unread - std::min(unread, most_unread), most_ - poured_);
        for (std::size_t before = room + 1; room > 0 && before != room;) {
            before = room;
            for (Pouring& one : peers_) room -= pour(one, room);
        }
    }
    std::size_t pour(Pouring& one, std::size_t most) {
        one.peer->discard();
        const ByteView rest = ByteView(many_).subspan(one.at);
        const std::size_t count = one.peer->pour(rest.first(std::min(most, rest.size())));
        one.at = (one.at + count) % many_.size();
        poured_ += count;
        return count;
    }

    std::uint16_t port_;
    Bytes many_;
    std::size_t most_;
    std::deque<Pouring> peers_;
    std::atomic<std::size_t> poured_{0};
    std::unique_ptr<Meanwhile> pouring_;
};

TEST(Floods, OfHeartbeatsFromReceiversLeaveAnHonestOneItsReply) {
    constexpr std::size_t crowd = 120;
    allow_descriptors(crowd + 50);
    Stage stage;
    constexpr std::size_t most = 100'000'000'000;
    Flood flood(stage.retransmission_port(), esesm::build_packet(esesm::PacketType::client_heartbeat, {}), most);
    for (std::size_t i = 0; i < crowd; ++i) flood.join(receiver_login());
    Asker asker(stage.port());
    flood.begin();
    Durations replies;
    bool served = true;
    const auto end = steady_clock::now() + seconds(10);
    while (served && steady_clock::now() < end) {
        const auto start = steady_clock::now();
        RecoveryClient receiver(stage.retransmission_port());
        receiver.log_in();
        receiver.request(1, 10);
        served = receiver.rest().ends_with("goodbye 'A' retransmission complete | closed");
        replies.add(steady_clock::now() - start);
    }
    report("flood of heartbeats from receivers", static_cast<double>(flood.poured()) / 1e6, "MB");
    replies.report("an honest receiver has its reply after");
    EXPECT_TRUE(served);
    EXPECT_LT(replies.longest(), seconds(sanitized ? 5 : 1));
    expect_answers_within(milliseconds(1500), asker, "an answer beside them");
    stage.stop();
}

TEST(Floods, OfRequestsFromHundredsOfClientsLeaveTheOthersTheirAnswersAndTheirSessions) {
    constexpr std::size_t crowd = 300;
    if (!allow_descriptors(crowd + 50)) GTEST_SKIP() << "not enough descriptors for three hundred connections";
    Stage stage({"--quiet"});
    constexpr std::size_t most = 2'500'000'000;  // the venue keeps an answer to each of these requests, in 1.6 GB
    Flood flood(stage.port(), framed(buy("a1").shares(0).at("100.00").bytes()), most);
    for (std::size_t i = 0; i < crowd; ++i) flood.join(login("p" + std::to_string(i)));
    std::deque<QuietUser> users;
    for (int i = 0; i < 4; ++i) users.emplace_back(stage.port(), "u" + std::to_string(i), milliseconds(250));
    flood.begin();
    live_for(seconds(1), users);  // until it is in full course
    Asker asker(stage.port(), milliseconds(100));
    live_for(seconds(9), users);
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
