// What the service behind a feed says to one receiver: a login, then one request, then goodbye. Bytes alone, no socket.
#pragma once

#include <cstdint>
#include <string_view>

#include "common/bytes.h"
#include "kavo/wire/packet_cutter.h"
#include "kavo/wire/published_feed.h"
#include "session/esesm.h"

namespace kavo::companion {

class RecoveryTalk {
public:
    enum class Served { nothing, messages, state };

    // Takes what the receiver says, and gives the answer. After the goodbye, or a logout, nothing is taken any more.
    Bytes take(ByteView bytes, PublishedFeed& feed);
    // The goodbye to one who has not logged in for too long.
    Bytes time_out();

    bool logged_in() const { return logged_in_; }
    bool over() const { return over_; }
    bool logged_out() const { return logged_out_; }  // nothing is answered, not even goodbye
    Served served() const { return served_; }

private:
    void take_packet(const esesm::Packet& packet, PublishedFeed& feed);
    void log_in(ByteView payload, const PublishedFeed& feed);
    void send_again(ByteView payload, const PublishedFeed& feed);
    void refresh(ByteView payload, PublishedFeed& feed);
    void tell_state(RefreshType type, PublishedFeed& feed);
    void add(ByteView packet) { answer_.insert(answer_.end(), packet.begin(), packet.end()); }
    void say_goodbye(esesm::GoodbyeReason reason, std::string_view text);

    PacketCutter said_;
    Bytes answer_;
    bool logged_in_ = false;
    bool over_ = false;
    bool logged_out_ = false;
    Served served_ = Served::nothing;
};

}  // namespace kavo::companion
