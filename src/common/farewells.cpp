#include "common/farewells.h"

#include <utility>

namespace kavo {

void Farewells::add(int fd, Outgoing outgoing) {
    farewells_.push_back({.fd = fd, .outgoing = std::move(outgoing)});
    serve(farewells_.back(), clock_.steady_ns());
    if (farewells_.back().fd == no_socket) farewells_.pop_back();
}

void Farewells::serve() {
    take_turns();
    std::erase_if(farewells_, [](const Farewell& farewell) { return farewell.fd == no_socket; });
}

void Farewells::take_turns() {
    round_.begin(farewells_.size());
    for (Farewell& farewell : farewells_) {
        if (!round_.owes_turn(farewell.turn)) continue;
        if (round_.spent()) return;
        serve(farewell, round_.give_turn(farewell.turn));
    }
    round_.end();
}

void Farewells::serve(Farewell& farewell, std::uint64_t until_ns) {
    if (!send(farewell, until_ns)) return close(farewell);
    if (farewell.outgoing.empty() && !std::exchange(farewell.finished, true)) transport_.finish(farewell.fd);
    if (!farewell.peer_ended) discard(farewell);
    const bool both_ended = farewell.finished && farewell.peer_ended;
    if (both_ended || farewell.outgoing.stalled(transport_, farewell.fd, clock_.steady_ms())) close(farewell);
}

// As much as the peer takes in its turn. False when it is gone.
bool Farewells::send(Farewell& farewell, std::uint64_t until_ns) {
    while (!farewell.outgoing.empty()) {
        const std::size_t left = farewell.outgoing.size();
        if (!farewell.outgoing.send(transport_, farewell.fd)) return false;
        if (farewell.outgoing.size() == left || clock_.steady_ns() >= until_ns) break;
    }
    return true;
}

void Farewells::discard(Farewell& farewell) {
    bool arrived = false;
    farewell.peer_ended = transport_.read(farewell.fd, discarded_, arrived, true) == ReadEnd::gone;
    discarded_.clear();
}

void Farewells::close(Farewell& farewell) {
    transport_.close(std::exchange(farewell.fd, no_socket));
}

}  // namespace kavo
