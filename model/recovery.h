// The service behind the feed, as each receiver meets it: what it is owed for every packet that it sends, from the
// messages that are still kept and from the books as they stand.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "model/feed.h"
#include "model/packets.h"

namespace kavo::model {

class Recovery {
public:
    // The venue's present state as feed messages.
    struct State {
        std::vector<Bytes> definitions;
        std::vector<Bytes> trading_statuses;
        std::vector<Bytes> resting_orders;
    };
    Recovery(const Feed& feed, std::uint8_t session, std::function<State()> state)
        : feed_(feed), session_(session), state_(std::move(state)) {}

    struct Receiver {
        bool logged_in = false;
        std::uint64_t connected_ms = 0;
    };
    struct Answer {
        Bytes bytes;       // the goodbye among them
        std::string said;  // a line on standard error; mostly none
        enum class Then { goes_on, ends, closes_at_once } then = Then::goes_on;
    };
    Answer handle(Receiver& receiver, const Packet& packet, std::uint64_t now_ns);

    static bool is_late(const Receiver& receiver, std::uint64_t now_ms);
    static Answer end_of_patience();

    std::uint64_t retransmissions = 0;
    std::uint64_t refreshes = 0;

private:
    Answer log_in(Receiver& receiver, ByteView payload) const;
    Answer retransmit(const Receiver& receiver, ByteView payload);
    Answer refresh(const Receiver& receiver, ByteView payload, std::uint64_t now_ns);
    Bytes snapshot(char type, std::uint64_t now_ns) const;

    const Feed& feed_;
    std::uint8_t session_;
    std::function<State()> state_;
};

}  // namespace kavo::model
