// TCP as it was recorded, put together again: the two recorded conversations of each connection through the relay
// become one, and bytes become packets.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "kavo/journal/journal.h"

namespace kavo::companion {

// A recorded segment, as far as it matters here.
struct Segment {
    Moment at;
    std::uint16_t from = 0;  // ports
    std::uint16_t to = 0;
    std::uint32_t sequence = 0;
    bool opens = false;    // with SYN and without an acknowledgement, so by the client
    bool answers = false;  // SYN and acknowledged: the other side's consent
    bool closes = false;
    bool resets = false;
    ByteView bytes;
};

class Conversations {
public:
    explicit Conversations(const BenchFacts& facts) : facts_(facts) {}

    // In the order of the recording. Those to or from other ports are passed over.
    void take(const Segment& segment);

    // All of them, in the order of opening. The bytes go to `bytes`, which lends the views.
    //   holes  how many segments do not follow what was recorded before them
    std::deque<Conversation> finish(std::deque<Bytes>& bytes, std::size_t& holes);

private:
    // One direction of one recorded conversation.
    struct Stream {
        struct Piece {
            std::size_t at = 0;  // of its first byte, in bytes
            Moment moment;
        };
        Bytes bytes;
        std::vector<Piece> pieces;
        std::uint32_t next = 0;  // sequence number
        bool numbered = false;   // next is known
        bool broken = false;     // something is missing, so nothing more is cut
    };
    struct Closing {
        Moment at;
        bool by_client = false;
        bool reset = false;
    };
    struct Half {
        bool opened = false;
        Moment at;
        Stream from_client, from_server;
        std::vector<Closing> closings;  // at most one of each side, and one reset
    };
    struct Connection {
        Service service = Service::orders;
        Half front, behind;  // with the client, with the venue
    };
    struct Ends {
        Service service = Service::orders;
        bool front = true;
        bool by_client = true;
        std::uint16_t client = 0;
    };

    bool find_ends(const Segment& segment, Ends& ends) const;
    Connection& open(const Ends& ends);
    void append(Stream& stream, const Segment& segment);
    static void end(const Connection& connection, Conversation& conversation);
    static void cut(const Stream& stream, const Bytes& bytes, bool by_client, Conversation& conversation,
                    std::vector<WirePacket>& packets, ByteView& rest);

    const BenchFacts& facts_;
    std::deque<Connection> connections_;
    std::map<std::pair<Service, std::uint16_t>, Connection*> latest_;  // by the client's port
    std::size_t holes_ = 0;
};

}  // namespace kavo::companion
