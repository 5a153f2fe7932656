#include "model/recovery.h"

#include <algorithm>

#include "model/logins.h"
#include "model/wire.h"

namespace kavo::model {

namespace {

using Then = Recovery::Answer::Then;

Recovery::Answer goodbye(char reason, std::string_view text, Bytes before = {}, std::string said = {}) {
    append(before, goodbye_packet(reason, text));
    return {std::move(before), std::move(said), Then::ends};
}

}  // namespace

Recovery::Answer Recovery::handle(Receiver& receiver, const Packet& packet, std::uint64_t now_ns) {
    switch (packet.type) {
        case 'l': return log_in(receiver, packet.payload);
        case '1':
        case 'T': return {};
        case 'U': return refresh(receiver, packet.payload, now_ns);
        case 'a': return retransmit(receiver, packet.payload);
        case 'X': return {{}, {}, Then::closes_at_once};
        default: return goodbye('B', "unknown packet type");
    }
}

bool Recovery::is_late(const Receiver& receiver, std::uint64_t now_ms) {
    return !receiver.logged_in && now_ms > receiver.connected_ms + login_limit_ms;
}

Recovery::Answer Recovery::end_of_patience() {
    return goodbye('L', "timed out waiting for login");
}

Recovery::Answer Recovery::log_in(Receiver& receiver, ByteView payload) const {
    const auto login = read_login(payload);
    if (!login) return goodbye('B', "malformed login");
    const char status = recovery_status(*login);
    const Bytes response = login_response(status, session_, feed_.last_number());
    if (status == ' ') {
        receiver.logged_in = true;
        return {response, {}};
    }
    const std::string text(login_status_text(status));
    const std::string name = login->username.c_str();  // as standard error has it: up to a NUL
    const std::string said = "bench: retransmission login " + name + " REJECTED (" + status + ": " + text + ")";
    return may_try_again(status) ? Answer{response, said} : goodbye('A', text, response, said);
}

// What is not kept any more is left out without a word.
Recovery::Answer Recovery::retransmit(const Receiver& receiver, ByteView payload) {
    if (!receiver.logged_in) return goodbye('B', "not logged in");
    if (payload.size() < 16) return goodbye('B', "malformed retransmission request");
    const std::uint64_t first = std::max(little_endian(payload.first(8)), feed_.oldest());
    const std::uint64_t last = std::min(little_endian(payload.subspan(8, 8)), feed_.last_number());
    Bytes reply;
    for (std::uint64_t number = first; number <= last; ++number) {
        append(reply, sequenced_packet(number, feed_.message(number)));
    }
    ++retransmissions;
    return goodbye('A', "retransmission complete", std::move(reply));
}

Recovery::Answer Recovery::refresh(const Receiver& receiver, ByteView payload, std::uint64_t now_ns) {
    if (!receiver.logged_in || payload.size() < 2 || payload[0] != 'R') return goodbye('B', "unknown request");
    const auto type = static_cast<char>(payload[1]);
    if (std::string_view("OSst").find(type) == std::string_view::npos) return goodbye('B', "unknown refresh type");
    Bytes reply = snapshot(type, now_ns);
    const std::string said = std::string("bench: refresh '") + type + "' served as of seq " +
                             std::to_string(feed_.last_number()) + " (" + std::to_string(reply.size()) + " bytes)";
    ++refreshes;
    return goodbye('A', "refresh complete", std::move(reply), said);
}

Bytes Recovery::snapshot(char type, std::uint64_t now_ns) const {
    const State state = state_();
    Bytes reply;
    const auto add = [&](const Bytes& message) {
        Bytes payload{'r'};
        append_number(payload, feed_.last_number(), 8);
        append(payload, message);
        append(reply, session_packet('U', payload));
    };
    const bool all = type == 'O';
    add(system_time(now_ns));
    if (all || type == 's') add(system_state(now_ns, session_));
    if (all || type == 'S') std::for_each(state.definitions.begin(), state.definitions.end(), add);
    if (all || type == 't') std::for_each(state.trading_statuses.begin(), state.trading_statuses.end(), add);
    if (all) std::for_each(state.resting_orders.begin(), state.resting_orders.end(), add);
    append(reply, session_packet('U', Bytes{'E', static_cast<std::uint8_t>(type)}));
    return reply;
}

}  // namespace kavo::model
