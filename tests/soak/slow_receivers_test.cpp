// Receivers that take the history more slowly than it can be sent, down to those that never read: each waits for
// itself alone.
#include <poll.h>

#include <csignal>
#include <deque>
#include <memory>

#include "feed/dom_feed.h"
#include "soak/bystanders.h"
#include "soak/receiver.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::size_t fast = 650'000;  // bytes a second; the others are not expected to get to the end
constexpr int small_buffer = 16'384;

// By then the venue has given up whoever takes nothing, who cannot be told as long as nothing more fits his connection.
constexpr milliseconds given_up_after{2500};

// As many as make a market that, once it moves, goes through the history in seconds.
std::string symbols() {
    std::string all = "AAPL:190.00";
    for (int i = 1; i < 30; ++i) all += ",A:100.00";
    return all;
}

// A receiver that asks for all these messages, and again when the venue has given it up.
class SlowReceiver {
public:
    SlowReceiver(const Stage& stage, const Bytes& request, const Bytes& expected, std::size_t bytes_per_second)
        : stage_(stage), request_(request), expected_(expected), bytes_per_second_(bytes_per_second) {
        ask();
    }

    void ask() {
        pace_ = Pace(bytes_per_second_);
        receiver_ = std::make_unique<Receiver>(stage_.retransmission_port(), expected_,
                                               bytes_per_second_ == fast ? small_buffer : Peer::little);
        receiver_->peer.pour(request_);
        asked_at_ = steady_clock::now();
        ++asked;
    }

    // Takes what is due.
    void live() {
        const std::size_t due = pace_.due();
        if (due > 0) pace_.use(receiver_->take(due));
    }

    bool given_up() const {
        const bool takes_nothing = bytes_per_second_ == 0;
        return !receiver_->open() || (takes_nothing && steady_clock::now() - asked_at_ > given_up_after);
    }
    const Receiver& receiver() const { return *receiver_; }
    bool is_fast() const { return bytes_per_second_ == fast; }
    std::size_t asked = 0;

private:
    const Stage& stage_;
    const Bytes& request_;
    const Bytes& expected_;
    std::size_t bytes_per_second_;
    Pace pace_{0};
    steady_clock::time_point asked_at_;
    std::unique_ptr<Receiver> receiver_;
};

class SlowReceivers : public testing::Test {
protected:
    SlowReceivers() {
        Peer user(stage_.port(), Peer::little);
        user.log_in(login("mill"));
        constexpr std::size_t orders = DomFeed::history_limit_messages / feed_messages_an_order;
        enter_and_cancel(user, 0, orders);
        stage_.await_counter(" cancels=", orders, user);
        last_ = stage_.control.next_sequence() - 1;
        first_ = last_ - DomFeed::history_limit_messages + 1;
        request_ = login_and_request(first_, last_);
        expected_ = whole_reply(stage_.retransmission_port(), first_, last_);
    }

    void come(std::size_t count, std::size_t bytes_per_second) {
        for (std::size_t i = 0; i < count; ++i) receivers_.emplace_back(stage_, request_, expected_, bytes_per_second);
    }

    // All of them take what is due, until something has come about or so much time has passed.
    template <typename Condition>
    void live_until(Condition condition, milliseconds longest) {
        const auto end = steady_clock::now() + longest;
        while (!condition() && steady_clock::now() < end) {
            for (SlowReceiver& slow : receivers_) {
                slow.live();
                if (!slow.is_fast() && slow.given_up()) slow.ask();
            }
            poll(nullptr, 0, 2);
        }
    }
    template <typename Condition>
    bool all_fast(Condition condition) const {
        return std::all_of(receivers_.begin(), receivers_.end(),
                           [&](const SlowReceiver& slow) { return !slow.is_fast() || condition(slow.receiver()); });
    }

    Stage stage_{{"--symbols", symbols()}};
    std::uint64_t first_ = 0;
    std::uint64_t last_ = 0;
    Bytes request_;
    Bytes expected_;
    std::deque<SlowReceiver> receivers_;
};

// The market moves all the while: before the fast ones are at the end, the history holds nothing any more of what they
// have asked for.
TEST_F(SlowReceivers, HoldUpNobodyAndNoStopAndGetWhatTheyAskedFor) {
    report("bytes of the reply", expected_.size());
    Asker asker(stage_.port());
    come(2, fast);
    come(4, 12'000);
    come(4, 2'000);
    come(4, 0);
    live_until([this] { return all_fast([](const Receiver& receiver) { return receiver.taken() > 1000; }); },
               seconds(1));
    EXPECT_EQ(stage_.control.ask("rate 1"), "ok rate 1\n");
    live_until([this] { return all_fast([](const Receiver& receiver) { return !receiver.open(); }); }, seconds(30));
    expect_answers_within(milliseconds(250), asker, "an answer beside slow receivers");
    EXPECT_GT(stage_.control.next_sequence(), last_ + DomFeed::history_limit_messages);
    for (SlowReceiver& slow : receivers_) {
        if (!slow.is_fast()) continue;
        EXPECT_TRUE(slow.receiver().served()) << slow.receiver().story();
        slow.ask();
    }
    live_until([] { return false; }, milliseconds(500));
    std::size_t asked = 0;
    for (const SlowReceiver& slow : receivers_) asked += slow.asked;
    report("receivers that came, or came again", asked);

    const auto stopped = steady_clock::now();
    stage_.process.signal(SIGTERM);
    EXPECT_EQ(stage_.process.wait(), 0);
    const auto time = steady_clock::now() - stopped;
    report("a stop in the middle of it takes", in_ms(time), "ms");
    if (!sanitized) {
        EXPECT_LT(time, milliseconds(500));
    }
}

}  // namespace
}  // namespace kavo::test
