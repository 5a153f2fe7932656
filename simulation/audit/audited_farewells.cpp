#include "audit/audited_farewells.h"

#include <algorithm>
#include <utility>

namespace kavo::simulation {

namespace {

constexpr std::uint64_t patience_ms = 2'000;
constexpr std::size_t longest_send = 1'048'576;

}  // namespace

void AuditedDebt::add(const Bytes& bytes, std::uint64_t now_ms) {
    if (rest.empty()) last_taken_ms = now_ms;
    rest.insert(rest.end(), bytes.begin(), bytes.end());
}

bool AuditedDebt::expect_sent(Witness& witness, What sent, int fd) {
    const auto size = static_cast<std::ptrdiff_t>(std::min(rest.size(), longest_send));
    const Entry& entry = witness.expect_bytes(sent, fd, Bytes(rest.begin(), rest.begin() + size));
    rest.erase(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(entry.taken));
    taken_since = taken_since || entry.taken != 0;
    return entry.taken != 0;
}

bool AuditedDebt::stalled(std::uint64_t now_ms) {
    if (std::exchange(taken_since, false)) last_taken_ms = now_ms;
    return now_ms >= last_taken_ms + patience_ms;
}

void AuditedFarewells::add(int fd, AuditedDebt debt) {
    farewells_.push_back({.fd = fd, .debt = std::move(debt)});
    serve(farewells_.back(), witness_.now_ms() * AuditedTurns::ns_per_ms);
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
    while (goes_on && !farewell.debt.rest.empty()) {
        goes_on = farewell.debt.expect_sent(witness_, words_.sent, farewell.fd) &&
                  witness_.now_ms() * AuditedTurns::ns_per_ms < until_ns;
    }
    if (farewell.debt.rest.empty() && !farewell.finished) {
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
