// Receivers on the retransmission service who know beforehand, byte for byte, what they must be sent.
#pragma once

#include <cstdint>

#include "client/peer.h"
#include "soak/bystanders.h"
#include "support/scene.h"

namespace kavo::test {

// A login and a request for these messages, in one piece.
Bytes login_and_request(std::uint64_t first, std::uint64_t last);

// Everything that a receiver is sent in answer, from the login to the goodbye, to one who does nothing but read. Throws
// unless it is a reply with these messages, all of them and in their order.
Bytes whole_reply(std::uint16_t port, std::uint64_t first, std::uint64_t last);

// Compares what comes with what must come.
class Receiver {
public:
    //   expected        whole_reply; must outlive this object
    //   receive_buffer  of the connection, see Peer
    Receiver(std::uint16_t port, const Bytes& expected, int receive_buffer = 0);

    // Takes what has come, so many bytes of it at most; tells how much that was.
    std::size_t take(std::size_t most);

    bool open() const { return peer.open(); }
    std::size_t taken() const { return taken_; }  // bytes, all of them right unless wrong()
    bool wrong() const { return wrong_; }
    // True when everything has come, and the connection then ended in good order.
    bool served() const { return !wrong_ && taken_ == expected_.size() && peer.end() == Peer::End::orderly; }
    // How it went, for a test that fails.
    std::string story() const;

    Peer peer;

private:
    const Bytes& expected_;
    std::size_t taken_ = 0;
    bool wrong_ = false;
};

}  // namespace kavo::test
