// The service behind the feed: what a receiver has missed is sent again from the history, and one that comes late gets
// a snapshot of the present state. One connection, one request.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "common/bytes.h"
#include "common/clock.h"
#include "feed/dom_feed.h"
#include "session/esesm.h"

namespace kavo {

namespace layout::retransmission_request {  // payload of a retransmission request packet
inline constexpr Number<std::uint64_t> first{0};
inline constexpr Number<std::uint64_t> last{8};  // inclusive
inline constexpr std::size_t min_size = end_of(last);
static_assert(adjoin(first, last));
}  // namespace layout::retransmission_request

namespace layout::refresh_request {  // payload of an unsequenced packet from the receiver
inline constexpr Letter request{0};  // 'R'
inline constexpr Letter refresh_type{1};
inline constexpr std::size_t min_size = end_of(refresh_type);
static_assert(adjoin(request, refresh_type));
}  // namespace layout::refresh_request

namespace layout::refresh_message {  // payload of an unsequenced packet to the receiver; the message follows
inline constexpr Letter reply{0};    // 'r'
inline constexpr Number<std::uint64_t> as_of{1};
inline constexpr std::size_t header_size = end_of(as_of);
static_assert(adjoin(reply, as_of));
}  // namespace layout::refresh_message

namespace layout::refresh_end {
inline constexpr Letter end{0};  // 'E'
inline constexpr Letter refresh_type{1};
inline constexpr std::size_t size = end_of(refresh_type);
static_assert(adjoin(end, refresh_type));
}  // namespace layout::refresh_end

enum class RefreshType : char { all = 'O', definitions = 'S', system_state = 's', trading_status = 't' };

// One receiver's connection.
struct RConn {
    int fd = -1;  // -1 once closed
    esesm::ReceiveBuffer received;
    bool logged_in = false;
    bool readable = true;  // worth a read in this pass; a new connection always is
    std::uint64_t connected_ms = 0;

    bool open() const { return fd >= 0; }
};

// The way out to the receivers; a test puts its own in.
struct ReceiverWire {
    // Sends everything, and waits for it; false when the receiver is gone or has stopped reading.
    std::function<bool(int fd, ByteView bytes)> send_all;
    std::function<void(int fd)> close;
};

class Retransmission {
public:
    //   session  1..255, carried in login responses
    Retransmission(DomFeed& feed, const Clock& clock, ReceiverWire wire, std::uint8_t session);

    // Its step of a pass: accepts, reads, answers, and ends the connections that never log in.
    //   listener  -1 when the service is off
    void serve(int listener);

    // What serve does for one connection, for whoever has bytes from elsewhere. The record stays in its place until the
    // next one is opened or served.
    RConn& open_connection(int fd);
    void receive(RConn& connection, ByteView bytes);
    void run_timer(RConn& connection);

    std::vector<RConn>& connections() { return connections_; }
    bool accept_exhausted() const { return accept_exhausted_; }
    bool connections_waiting = true;  // at the listener

private:
    // retransmission.cpp
    void accept_connections(int listener);
    void read(RConn& connection);
    void cut_packets(RConn& connection);
    void on_rconn_packet(RConn& connection, const esesm::ReceiveBuffer::Packet& packet);
    void log_in(RConn& connection, ByteView payload);
    void retransmit(RConn& connection, ByteView payload);
    void send(RConn& connection, ByteView bytes);
    void say_goodbye(RConn& connection, esesm::GoodbyeReason reason, std::string_view text);
    void close(RConn& connection);

    // refresh.cpp
    void refresh(RConn& connection, ByteView payload);

    DomFeed& feed_;
    const Clock& clock_;
    ReceiverWire wire_;
    std::uint8_t session_;
    std::vector<RConn> connections_;
    bool accept_exhausted_ = false;
    Bytes scratch_;
};

}  // namespace kavo
