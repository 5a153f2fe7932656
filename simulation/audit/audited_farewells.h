// Connections that end gently, under audit: what is owed goes out first, then the end is said, and the socket is closed
// when the peer closes too or has taken nothing for two seconds.
#pragma once

#include <vector>

#include "audit/audited_turns.h"
#include "audit/witness.h"

namespace kavo::simulation {

// What is owed to one peer.
struct AuditedDebt {
    Bytes rest;
    std::uint64_t last_taken_ms = 0;
    bool taken_since = false;  // something, since it was last asked whether the peer still takes anything

    void add(const Bytes& bytes, std::uint64_t now_ms);
    // Expects one handing-over of it; true when the peer took something.
    bool expect_sent(Witness& witness, What sent, int fd);
    bool stalled(std::uint64_t now_ms);
};

class AuditedFarewells {
public:
    struct Words {
        What sent, bytes, gone, finished, closed;
    };
    AuditedFarewells(Witness& witness, Words words) : witness_(witness), words_(words) {}

    void add(int fd, AuditedDebt debt);
    void serve();

private:
    struct Farewell {
        int fd = -1;
        AuditedDebt debt;
        bool finished = false;
        bool peer_ended = false;
        bool closed = false;
        std::uint64_t turn = 0;
    };
    void take_turns();
    void serve(Farewell& farewell, std::uint64_t until_ns);

    Witness& witness_;
    Words words_;
    AuditedTurns turns_{20};
    std::vector<Farewell> farewells_;
};

}  // namespace kavo::simulation
