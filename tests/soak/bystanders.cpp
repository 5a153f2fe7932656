#include "soak/bystanders.h"

#include <poll.h>

#include <algorithm>

namespace kavo::test {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

bool is_answer(ByteView packet) {
    return sequence_of(packet) != 0 &&
           as_text(packet.subspan(esesm::layout::sequenced_packet::header_size)).starts_with("NR");
}

}  // namespace

// What she asks for is rejected, so that it leaves no trace but in her stream.
Asker::Asker(std::uint16_t port, milliseconds interval)
    : peer_(port), request_(framed(buy("ask").shares(0).at("1.00").bytes())), interval_(interval) {
    peer_.log_in(login("asker"));
    due_ = steady_clock::now();
    asking_ = std::make_unique<Meanwhile>([this] { ask_when_due(); });
}

void Asker::ask_when_due() {
    const auto now = steady_clock::now();
    if (now >= due_) {
        peer_.pour(request_);
        unanswered_.push_back(due_);
        due_ += interval_;
    }
    if (peer_.open()) {
        listen(std::chrono::ceil<milliseconds>(due_ - now));
    } else {
        poll(nullptr, 0, static_cast<int>(interval_.count()));
    }
}

void Asker::listen(milliseconds longest) {
    const auto packet = peer_.next_packet(longest);
    if (!packet || !is_answer(*packet)) return;
    waits_.add(steady_clock::now() - unanswered_.front());
    unanswered_.pop_front();
}

const Durations& Asker::stop(std::string_view what) {
    asking_.reset();
    for (const Moment& asked : unanswered_) waits_.add(steady_clock::now() - asked);
    unanswered_.clear();
    waits_.report(what);
    return waits_;
}

void expect_answers_within(milliseconds limit, Asker& asker, std::string_view what) {
    const Durations& waits = asker.stop(what);
    EXPECT_FALSE(asker.dropped());
    EXPECT_GT(waits.count(), 0u);
    if (!sanitized) {
        EXPECT_LT(waits.longest(), limit);
    }
}

QuietUser::QuietUser(std::uint16_t port, const std::string& name, milliseconds heartbeat_interval)
    : peer_(port), heartbeat_interval_(heartbeat_interval) {
    peer_.log_in(login(name));
}

void QuietUser::live() {
    if (!peer_.open()) return;
    const auto now = steady_clock::now();
    if (now - spoken_ >= heartbeat_interval_) {
        peer_.send_heartbeat();
        spoken_ = now;
    }
    longest_silence_ = std::max(longest_silence_, now - heard_);
    if (peer_.take() > 0) heard_ = now;
    while (peer_.next_packet()) continue;
}

void live_for(milliseconds time, std::deque<QuietUser>& users) {
    const auto end = steady_clock::now() + time;
    while (steady_clock::now() < end) {
        for (QuietUser& user : users) user.live();
        poll(nullptr, 0, 5);
    }
}

std::size_t dropped(const std::deque<QuietUser>& users) {
    return static_cast<std::size_t>(
        std::count_if(users.begin(), users.end(), [](const QuietUser& user) { return user.dropped(); }));
}

Durations::Duration longest_silence(const std::deque<QuietUser>& users) {
    Durations::Duration longest{};
    for (const QuietUser& user : users) longest = std::max(longest, user.longest_silence());
    return longest;
}

}  // namespace kavo::test
