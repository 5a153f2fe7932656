// Connections that end gently, under audit: what is owed goes out first, then the end is said, and the socket is closed
// when the peer closes too or has taken nothing for two seconds.
#pragma once

#include <vector>

#include "audit/witness.h"
#include "model/debt.h"
#include "model/turns.h"

namespace kavo::simulation {

// Expects one handing-over of what is owed; true when the peer took something.
bool expect_sent(model::Debt& debt, Witness& witness, What sent, int fd);

class AuditedFarewells {
public:
    struct Words {
        What sent, bytes, gone, finished, closed;
    };
    AuditedFarewells(Witness& witness, Words words) : witness_(witness), words_(words) {}

    void add(int fd, model::Debt debt);
    void serve();

private:
    struct Farewell {
        int fd = -1;
        model::Debt debt;
        bool finished = false;
        bool peer_ended = false;
        bool closed = false;
        std::uint64_t turn = 0;
    };
    void take_turns();
    void serve(Farewell& farewell, std::uint64_t until_ns);

    Witness& witness_;
    Words words_;
    model::Turns turns_{20};
    std::vector<Farewell> farewells_;
};

}  // namespace kavo::simulation
