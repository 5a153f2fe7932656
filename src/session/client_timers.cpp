// Heartbeats, and the limits of a client's silence.
#include <optional>

#include "common/text.h"
#include "session/order_entry.h"

namespace kavo {

// During a lapse the venue keeps silent, but it goes on counting the client's silence. Nobody is dropped for what the
// venue itself has not read yet.
void OrderEntry::run_timers(std::uint64_t now_ms) {
    for (const ClientHandle handle : open_) {
        MeoClient& timed = client(handle);
        if (!timed.open()) continue;
        if (!timed.logged_in) {
            if (elapsed_ms(now_ms, timed.connected_ms) < esesm::login_limit_ms) continue;
            look_again(handle, shortest_turn_ns);
            if (!timed.open() || timed.logged_in) continue;
            say_goodbye(timed, esesm::GoodbyeReason::login_timeout, esesm::login_timeout_text);
            continue;
        }
        // The pass may have taken a while by now, so the lapse is asked about at this moment.
        const bool idle = elapsed_ms(now_ms, timed.last_sent_ms) >= heartbeat_interval_ms;
        if (idle && !bench_.in_lapse(clock_.steady_ms())) send(timed, esesm::server_heartbeat);
        if (elapsed_ms(now_ms, timed.last_received_ms) < silence_limit_ms) continue;
        look_again(handle, shortest_turn_ns);
        if (!timed.open() || elapsed_ms(now_ms, timed.last_received_ms) < silence_limit_ms) continue;
        commentary_.say("[kavo_me] client %d (%s) timed out\n", timed.fd, timed.username.c_str());
        drop(handle, "3 heartbeat intervals of silence", Announce::yes);
    }
}

void OrderEntry::announce_lapse(std::uint64_t now_ms) {
    const std::optional<std::uint64_t> length_ms = bench_.lapse_to_announce(now_ms);
    if (!length_ms) return;
    commentary_.say(
        "bench: going silent for %llu ms (no heartbeats; the client should disconnect after 3 s and log in again with "
        "its next expected sequence)\n",
        printable(*length_ms));
}

}  // namespace kavo
