// The stage of the soak tests: the real program, however its standard streams and its limits are to be, and a client
// who trades all the while and times the venue's answers.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "client/control_client.h"
#include "client/feed_reader.h"
#include "client/peer.h"
#include "client/wire_client.h"
#include "support/figures.h"
#include "support/process.h"
#include "support/scene.h"

namespace kavo::test {

// Sanitizers slow the program down and keep memory back: there, the figures are only shown.
inline constexpr bool sanitized = KAVO_SANITIZED;

// How the shell starts the program, which stands with its flags in "$@". Many of these tests make the venue say a lot:
// they do not want to hear it.
inline const std::string unheard = "exec \"$@\" 2>/dev/null";
inline const std::string heard = "exec \"$@\"";  // as far as the test asks what was said, and else by nobody
inline std::string heard_by(const TemporaryFile& file) {
    return "exec \"$@\" 2>" + file.path();
}

// One symbol and a market that stands still, unless the flags say otherwise. Nothing is read off the feed.
class Stage {
public:
    using Flags = std::vector<std::string>;
    using Environment = std::map<std::string, std::string>;

    explicit Stage(const Flags& more_flags = {}, const std::string& shell = unheard,
                   const Environment& environment = {});

    std::uint16_t port() const { return order_entry_.number(); }
    std::uint16_t retransmission_port() const { return retransmission_.number(); }
    pid_t pid() const { return process.pid(); }

    // Waits until the report of the bench has come so far: " cancels=", 1000. The peer that has asked for it keeps its
    // connection up meanwhile.
    void await_counter(std::string_view counter, std::uint64_t count, Peer& peer) const;
    // Ends the program, which must have stayed healthy.
    void stop() { EXPECT_EQ(process.stop(), 0); }

    FeedReader feed;

private:
    Flags arguments(const std::string& shell, const Flags& more) const;

    ReservedPort order_entry_;
    ReservedPort retransmission_;
    ReservedPort control_port_;

public:
    Process process;
    ControlClient control;
};

// Trades through whatever the others do, and checks every answer: nothing may be missing.
class Trader {
public:
    explicit Trader(std::uint16_t port, const std::string& name = "bob");

    // An order that rests, and its cancel. The time of each answer is kept.
    void trade();
    // The same again and again for so long; what is between two times is `pause`.
    void trade_for(std::chrono::milliseconds time, std::chrono::milliseconds pause = {});

    std::uint64_t orders() const { return orders_; }  // so far, all of them cancelled
    const Durations& answers() const { return answers_; }
    void forget_answers() { answers_ = {}; }
    WireClient wire;

private:
    void expect(const std::string& start);

    std::uint64_t orders_ = 0;
    std::uint64_t next_number_ = 3;  // behind the session and the symbol
    Durations answers_;
};

// Packets one behind the other, to be sent in one piece.
void append(Bytes& bytes, ByteView more);
Bytes framed(const Bytes& message);  // a request as a packet
// The packet so many times.
Bytes repeated(const Bytes& packet, std::size_t times);

// Orders numbered from `first` on that rest, and are cancelled at once: each is worth five messages of the user's
// stream and two of the feed. The peer is logged in, and somebody reads what it sends.
inline constexpr std::size_t stream_messages_an_order = 5;
inline constexpr std::size_t feed_messages_an_order = 2;
void enter_and_cancel(Peer& peer, std::size_t first, std::size_t count);

// Something that happens on a thread of its own until this object goes away.
class Meanwhile {
public:
    template <typename Action>
    explicit Meanwhile(Action action)
        : thread_([this, action] {
              while (!stopped_) action();
          }) {}
    ~Meanwhile() {
        stopped_ = true;
        thread_.join();
    }
    Meanwhile(const Meanwhile&) = delete;
    Meanwhile& operator=(const Meanwhile&) = delete;

private:
    std::atomic<bool> stopped_{false};
    std::thread thread_;
};

// Lets this process, and the ones that it starts, have as many descriptors as the system allows; false when that is
// fewer than asked for.
bool allow_descriptors(std::size_t count);

// Gives up a connection as a machine does that loses its power: the other side is told nothing. False when the system
// does not let us.
bool vanish(WireClient& client);

}  // namespace kavo::test
