// One connection through the relay: a socket to the client, a socket to the venue, and a flow in each direction. It
// passes on what either says, and how it ends: a finish as a finish, a reset as a reset, each behind all that was said
// before it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "kavo/basics/loop.h"
#include "kavo/basics/run_log.h"
#include "kavo/wire/flow.h"
#include "kavo/wire/packet_cutter.h"
#include "kavo/wire/recording.h"
#include "kavo/wire/relay_faults.h"

namespace kavo::companion {

// What the connections of a relay share.
struct RelayParts {
    Loop& loop;
    Recording& recording;
    RunLog& log;
    std::function<RelayFaults&(const std::string& user)> faults_of;
    std::function<void(const std::string& user, bool by_client, ByteView packet)> on_packet;
    std::function<void()> on_end;  // some connection is over
};

class RelayConnection {
public:
    //   client  connected, not blocking; the connection closes it
    //   ports   of the client and of the relay
    //   behind  port of the venue on 127.0.0.1
    RelayConnection(const RelayParts& parts, int client, Recording::Ends ports, std::uint16_t behind);
    ~RelayConnection();
    RelayConnection(const RelayConnection&) = delete;
    RelayConnection& operator=(const RelayConnection&) = delete;

    const std::string& user() const { return user_; }  // empty before a login
    bool over() const { return mode_ == Mode::over; }
    // Ended by break_now, or by a fault, though its sockets may not be closed yet.
    bool broken() const { return mode_ != Mode::relaying; }
    // The faults of the user have changed.
    void apply();
    void break_now(Breaking how);

private:
    struct Side {
        bool is_client = false;
        int socket = -1;
        Recording::Ends ends;
        Flow said;          // by this side, on its way to the other
        PacketCutter told;  // the same once it is there
        bool connecting = false;
        bool full = false;       // takes nothing more for now
        bool heard_all = false;  // nothing more is read: it has ended, or the relay does not listen any more
        bool told_all = false;   // nothing more is written
        int watched = -1;        // events, or -1 for not at all
    };
    // In `ending`, both sides have been told that it is over, and what they still say is thrown away until they close.
    // In `vanished` there is no client any more, and the venue does not know.
    enum class Mode { relaying, ending, vanished, over };

    Side& other(const Side& side) { return side.is_client ? venue_ : client_; }
    void connect_to_venue();
    void find_connected();
    void connected(bool well);

    void on_events(Side& side, short events);
    void hear(Side& side);
    void hear_the_rest(Side& side);
    void heard(Side& side, ByteView bytes);
    void recognise(ByteView bytes);
    void finished(Side& side);
    void was_reset(Side& side);

    void pass_on();
    void pump(Side& from);
    bool hand_over(Side& from, Flow::Time now);
    void tell_packets(Side& from);
    void pass_end(Side& from, Flow::Time now);
    void finish(Side& side);
    void reset(Side& side);
    void cut();
    void end_when_heard();
    void end();

    void watch(Side& side);
    void update();
    void look_again();
    void close_socket(Side& side);
    void note(std::string_view what, std::string_view direction, std::size_t bytes);

    const RelayParts& parts_;
    std::size_t number_;
    Side client_;
    Side venue_;
    PacketCutter before_login_;
    std::string user_;
    Mode mode_ = Mode::relaying;
    bool passing_ = false;  // a callback may ask for what is under way
    Loop::Timer look_ = 0;
    Flow::Time give_up_at_ = Flow::Time::max();
};

}  // namespace kavo::companion
