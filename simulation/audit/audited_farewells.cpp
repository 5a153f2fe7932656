#include "audit/audited_farewells.h"

#include <utility>

namespace kavo::simulation {

bool expect_sent(model::Debt& debt, Witness& witness, What sent, int fd) {
    const Entry& entry = witness.expect_bytes(sent, fd, debt.offer());
    debt.take(entry.taken);
    return entry.taken != 0;
}

void AuditedFarewells::add(int fd, model::Debt debt) {
    farewells_.push_back({.fd = fd, .debt = std::move(debt)});
    serve(farewells_.back(), witness_.now_ms() * model::Turns::ns_in_a_ms);
    if (farewells_.back().closed) farewells_.pop_back();
}

void AuditedFarewells::serve() {
    take_turns();
    std::erase_if(farewells_, [](const Farewell& farewell) { return farewell.closed; });
}

void AuditedFarewells::take_turns() {
    turns_.begin(witness_.now_ms(), farewells_.size());
    for (Farewell& farewell : farewells_) {
        if (!turns_.owes(farewell.turn)) continue;
        if (turns_.time_is_up(witness_.now_ms())) return;
        serve(farewell, turns_.give(farewell.turn, witness_.now_ms()));
    }
    turns_.end_round();
}

void AuditedFarewells::serve(Farewell& farewell, std::uint64_t until_ns) {
    bool goes_on = true;
    while (goes_on && !farewell.debt.paid()) {
        goes_on = expect_sent(farewell.debt, witness_, words_.sent, farewell.fd) &&
                  witness_.now_ms() * model::Turns::ns_in_a_ms < until_ns;
    }
    if (farewell.debt.paid() && !farewell.finished) {
        witness_.expect(words_.finished, farewell.fd);
        farewell.finished = true;
    }
    if (!farewell.peer_ended) {
        farewell.peer_ended = witness_.next_is(words_.gone);
        witness_.expect(farewell.peer_ended ? words_.gone : words_.bytes, farewell.fd);
    }
    if (!(farewell.finished && farewell.peer_ended) && !farewell.debt.stalled(witness_.now_ms())) return;
    witness_.expect(words_.closed, farewell.fd);
    farewell.closed = true;
}

}  // namespace kavo::simulation
