// Connections that end gently: what is still owed to the peer goes out, then the sending side is shut, and the socket
// is closed when the peer closes too, or has taken nothing for two seconds. What arrives meanwhile is thrown away,
// because closing over it would answer the peer with a reset, which costs it what it has not read yet.
#pragma once

#include <vector>

#include "common/outgoing.h"
#include "common/round.h"

namespace kavo {

struct Farewell {
    int fd = no_socket;
    Outgoing outgoing;
    bool finished = false;    // the sending side is shut
    bool peer_ended = false;  // it sends nothing more, but may still be reading
    std::uint32_t turn = 0;   // see Round
};

class Farewells {
public:
    static constexpr std::uint64_t farewell_budget_ns = 20 * ns_per_ms;  // of a pass

    Farewells(const Transport& transport, const Clock& clock)
        : transport_(transport), clock_(clock), round_(clock, farewell_budget_ns) {}

    // Takes the connection over; it goes on at once.
    void add(int fd, Outgoing outgoing);
    // Its step of a pass.
    void serve();

    const std::vector<Farewell>& under_way() const { return farewells_; }

private:
    void take_turns();
    void serve(Farewell& farewell, std::uint64_t until_ns);
    bool send(Farewell& farewell, std::uint64_t until_ns);
    void discard(Farewell& farewell);
    void close(Farewell& farewell);

    const Transport& transport_;
    const Clock& clock_;
    Round round_;
    std::vector<Farewell> farewells_;
    Bytes discarded_;
};

}  // namespace kavo
