// The feed and the service behind it: the books, kept right whatever the network does to the datagrams.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>

#include "beliefs.h"
#include "client/feed_receiver.h"
#include "client/recovery.h"
#include "settings.h"
#include "sockets.h"

namespace trading {

class MarketData {
public:
    // Joins the feed, and begins with a refresh. Throws std::runtime_error when it cannot listen.
    MarketData(const Settings& settings, Beliefs& beliefs);

    // Reads all there is, and asks for what is missing. Never waits.
    void exchange(std::uint64_t now_ms);
    // Every book that has changed, but each not too often; or all of them.
    void tell(std::uint64_t now_ms, bool all = false);

    const kavo::client::ReceivedBook& books() const { return books_; }
    // The books are whole up to the last message that the feed has shown.
    bool complete() const { return synchronised_ && !receiver_.has_gap(); }

    const Socket& feed() const { return feed_; }
    // The connection to the service; nothing when none is open.
    const Socket* recovery() const { return asking_ ? &asking_->socket : nullptr; }
    bool wants_to_write() const { return asking_ && asking_->sent < asking_->opening.size(); }

private:
    // One request to the service, on a connection of its own.
    struct Asking {
        kavo::client::Recovery recovery;
        bool of_state = false;
        kavo::Bytes opening;  // all that is said
        Socket socket;
        std::size_t sent = 0;
        std::uint64_t heard_at_ms = 0;
    };

    void listen_to(kavo::client::FeedReceiver& receiver);
    void take(kavo::ByteView datagram, std::uint64_t now_ms);
    void start_over();
    bool should_ask(std::uint64_t now_ms) const;
    void ask(std::uint64_t now_ms);
    void converse(std::uint64_t now_ms);
    void finish(bool served, std::uint64_t now_ms);
    void take_state(const kavo::client::Snapshot& snapshot);
    void take_messages(const std::vector<kavo::client::NumberedMessage>& messages, bool served);
    bool stale(std::uint64_t now_ms) const;
    void misapply(kavo::ByteView datagram);

    Settings settings_;
    Beliefs& beliefs_;
    Socket feed_;
    kavo::client::FeedReceiver receiver_;
    kavo::client::ReceivedBook books_;  // what the receiver has put in order, applied
    std::optional<Asking> asking_;
    bool synchronised_ = false;  // a refresh has been had
    bool failed_ = false;        // the latest request was not served to its end
    std::uint64_t pause_ms_;
    std::uint64_t ask_at_ms_ = 0;
    std::uint64_t heard_at_ms_;
    unsigned feed_session_ = 0;

    struct Told {
        std::uint64_t at_ms = 0;
        std::uint64_t number = 0;
        bool stale = false;
    };
    std::map<std::uint32_t, Told> told_;
    std::set<std::uint64_t> misapplied_;  // numbers that a fault has applied out of their turn
};

}  // namespace trading
