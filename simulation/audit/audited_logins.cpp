// Logins under audit: the checks in their order, what a reject says, and what an accepted login brings.
#include <algorithm>

#include "audit/audited_sessions.h"

namespace kavo::simulation {

void AuditedSessions::log_in(Connection& connection, const Bytes& payload) {
    Login login;
    if (!read_login(payload, login)) return say_goodbye(connection, 'B', "malformed login");
    const char status = reject_status(connection, login);
    if (status != ' ') return reject(connection, login, status);
    accept(connection, login);
}

char AuditedSessions::reject_status(const Connection& connection, const Login& login) {
    if (login.session_protocol != "1.0") return 'I';
    if (!login.application_protocol.starts_with("MEO")) return 'A';
    if (login.engines != 1) return 'C';
    if (login.username.empty() || login.computer_id.empty()) return 'X';
    if (name_is_taken(login.username, connection)) return 'L';
    if (login.engine_id != 0 && login.engine_id != plan_.engine.session) return 'S';
    if (login.requested > streams_[login.username].size() + 1) return 'N';
    return ' ';
}

AuditedSessions::Connection* AuditedSessions::holder_of(const std::string& username, const Connection& asking) {
    for (Connection& other : connections_) {
        if (&other != &asking && other.open && other.logged_in && other.username == username) return &other;
    }
    return nullptr;
}

// Whoever holds the name may have left it by now.
bool AuditedSessions::name_is_taken(const std::string& username, const Connection& asking) {
    Connection* holder = holder_of(username, asking);
    if (holder == nullptr || looking_again_) return holder != nullptr;
    looking_again_ = true;
    look_again(*holder, 25);
    looking_again_ = false;
    return holder_of(username, asking) != nullptr;
}

void AuditedSessions::reject(Connection& connection, const Login& login, char status) {
    const std::string text(login_status_text(status));
    const std::uint64_t highest = streams_[login.username].size();
    witness_.expect_said("bench: login " + login.username + " REJECTED (" + status + ": " + text + "; requested seq " +
                         std::to_string(login.requested) + ", stream next " + std::to_string(highest + 1) + ")");
    expect_sent(connection, login_response(status, plan_.engine.session, highest));
    if (status != 'N' && status != 'S') say_goodbye(connection, 'A', text);
}

void AuditedSessions::accept(Connection& connection, const Login& login) {
    const Stream& stream = streams_[login.username];
    connection.username = login.username;
    connection.logged_in = true;
    ++bench_.logins;
    const std::uint64_t highest = stream.size();
    const std::uint64_t from = login.requested == 0 ? highest + 1 : login.requested;
    const std::uint64_t count = highest + 1 - from;
    witness_.expect_said("bench: login " + login.username + " requested seq " + std::to_string(login.requested) +
                         " (stream next " + std::to_string(highest + 1) + "): accepted at " + std::to_string(from) +
                         ", replaying " + std::to_string(count) + " message(s)");
    connection.replay = {.response = login_response(' ', plan_.engine.session, highest),
                         .missed = {},
                         .completion_due = count != 0,
                         .followers = {}};
    for (std::uint64_t number = from; number <= highest; ++number) connection.replay.missed.push_back(number);
    if (count != 0) {
        ++bench_.replays;
        bench_.replayed += count;
    }
    continue_replay(connection, (witness_.now_ms() + 1) * AuditedTurns::ns_per_ms);
    if (highest == 0) start_session(connection);
    if (bench_.scenario_lapse_ms > 0 && !bench_.scenario_lapse_started) {
        bench_.scenario_lapse_started = true;
        bench_.lapse_announced = false;
        bench_.lapse_until_ms = witness_.now_ms() + static_cast<std::uint64_t>(bench_.scenario_lapse_ms);
    }
    if (!plan_.engine.quiet) witness_.expect_said("[kavo_me] login " + login.username + " accepted");
}

// What a user hears first of all, once in a lifetime.
void AuditedSessions::start_session(Connection& connection) {
    for (const Bytes& message : orders_.venue.start_of_session()) deliver(connection, message);
}

}  // namespace kavo::simulation
