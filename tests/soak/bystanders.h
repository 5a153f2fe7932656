// Those who have done nothing, and notice what the venue's worst peers cost them.
#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "soak/stage.h"

namespace kavo::test {

// A user who asks something at every turn of a clock of her own, whether or not the answers keep up with her.
class Asker {
public:
    explicit Asker(std::uint16_t port, std::chrono::milliseconds interval = std::chrono::milliseconds(20));

    // Ends the asking and shows the waits; what is still unanswered has waited until now.
    const Durations& stop(std::string_view what);
    bool dropped() const { return !peer_.open(); }  // once she has stopped

private:
    using Moment = std::chrono::steady_clock::time_point;

    void ask_when_due();
    void listen(std::chrono::milliseconds longest);

    Peer peer_;
    Bytes request_;
    std::chrono::milliseconds interval_;
    Moment due_ = std::chrono::steady_clock::now();
    std::deque<Moment> unanswered_;
    Durations waits_;
    std::unique_ptr<Meanwhile> asking_;
};

// Stops her, who must have been answered within the limit and may not have been dropped.
void expect_answers_within(std::chrono::milliseconds limit, Asker& asker, std::string_view what);

// A user who has nothing to ask, and only keeps the connection up.
class QuietUser {
public:
    QuietUser(std::uint16_t port, const std::string& name, std::chrono::milliseconds heartbeat_interval);

    // Sends the heartbeat that is due, and takes what has come.
    void live();

    bool dropped() const { return !peer_.open(); }
    Durations::Duration longest_silence() const { return longest_silence_; }  // of the venue, while it has not ended

private:
    Peer peer_;
    std::chrono::milliseconds heartbeat_interval_;
    std::chrono::steady_clock::time_point spoken_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point heard_ = spoken_;
    Durations::Duration longest_silence_{};
};

// Lets all of them live for so long.
void live_for(std::chrono::milliseconds time, std::deque<QuietUser>& users);
std::size_t dropped(const std::deque<QuietUser>& users);
Durations::Duration longest_silence(const std::deque<QuietUser>& users);

// So many bytes a second, as they fall due.
class Pace {
public:
    explicit Pace(std::size_t bytes_per_second) : bytes_per_second_(bytes_per_second) {}

    std::size_t due() const {
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start_;
        return static_cast<std::size_t>(time.count() * static_cast<double>(bytes_per_second_)) - used_;
    }
    void use(std::size_t bytes) { used_ += bytes; }

private:
    std::size_t bytes_per_second_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::size_t used_ = 0;
};

}  // namespace kavo::test
