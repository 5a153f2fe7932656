// The service behind the feed: what a receiver has missed is sent again from the history, and one that comes late gets
// a snapshot of the present state. One connection, one request.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "common/farewells.h"
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

// One receiver's connection, until it has been told goodbye.
struct RConn {
    int fd = -1;  // -1 once closed
    esesm::ReceiveBuffer received;
    Outgoing outgoing;  // nothing more is handled before the receiver has taken it
    bool logged_in = false;
    bool readable = true;  // worth a read in this pass; a new connection always is
    bool backlog = false;  // its turn ended before everything that it has sent was handled
    std::uint64_t connected_ms = 0;
    std::uint32_t turn = 0;  // see Round

    bool open() const { return fd >= 0; }
};

class Retransmission {
public:
    static constexpr std::uint64_t receivers_budget_ns = 25 * ns_per_ms;  // of a pass, for the turns of all receivers

    //   session  1..255, carried in login responses
    Retransmission(DomFeed& feed, const Clock& clock, Transport transport, std::uint8_t session,
                   const Commentary& commentary);
    Retransmission(const Retransmission&) = delete;  // what it says farewell to refers to its transport
    Retransmission& operator=(const Retransmission&) = delete;

    // Its step of a pass: accepts, reads, answers, and ends the connections that never log in. Nobody is waited for:
    // what a receiver does not take now goes on in later passes.
    void serve();

    // What serve does for one connection, for whoever has bytes from elsewhere. The record stays in its place until the
    // next one is opened or served.
    RConn& open_connection(int fd);
    void receive(RConn& connection, ByteView bytes);
    void run_timer(RConn& connection);

    std::vector<RConn>& connections() { return connections_; }
    const std::vector<Farewell>& farewells() const { return farewells_.under_way(); }
    bool accept_exhausted() const { return accept_exhausted_; }
    bool connections_waiting = true;  // at the listener

private:
    static constexpr std::uint64_t last_look_ns = ns_per_ms;

    // retransmission.cpp
    void accept_connections();
    void take_turns();
    void take_turn(RConn& connection, std::uint64_t until_ns);
    void read(RConn& connection);
    void cut_packets(RConn& connection, std::uint64_t until_ns);
    void on_rconn_packet(RConn& connection, const esesm::ReceiveBuffer::Packet& packet);
    void log_in(RConn& connection, ByteView payload);
    void retransmit(RConn& connection, ByteView payload);
    void send(RConn& connection, ByteView bytes);
    bool send_rest(RConn& connection);
    void say_goodbye(RConn& connection, esesm::GoodbyeReason reason, std::string_view text);
    void close(RConn& connection);

    // refresh.cpp
    void refresh(RConn& connection, ByteView payload);

    DomFeed& feed_;
    const Clock& clock_;
    Transport transport_;
    std::uint8_t session_;
    const Commentary& commentary_;
    std::vector<RConn> connections_;
    Farewells farewells_;
    Round round_;
    bool accept_exhausted_ = false;
};

}  // namespace kavo
