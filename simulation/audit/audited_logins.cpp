// Logins under audit: the checks in their order, what a reject says, and what an accepted login brings.
#include <algorithm>

#include "audit/audited_sessions.h"

namespace kavo::simulation {

void AuditedSessions::log_in(Connection& connection, const Bytes& payload) {
    const auto login = model::read_login(payload);
    if (!login) return say_goodbye(connection, 'B', "malformed login");
    const char status = status_of(connection, *login);
    if (status != ' ') return reject(connection, *login, status);
    accept(connection, *login);
}

char AuditedSessions::status_of(const Connection& connection, const model::Login& login) {
    return model::order_entry_status(login, plan_.engine.session, streams_[login.username],
                                     [&] { return name_is_taken(login.username, connection); });
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

void AuditedSessions::reject(Connection& connection, const model::Login& login, char status) {
    const std::string name = login.username.c_str();
    const std::string text(model::login_status_text(status));
    const std::uint64_t highest = streams_[login.username].last_number();
    witness_.expect_said("bench: login " + name + " REJECTED (" + status + ": " + text + "; requested seq " +
                         std::to_string(login.requested()) + ", stream next " + std::to_string(highest + 1) + ")");
    expect_sent(connection, model::login_response(status, plan_.engine.session, highest));
    if (!model::may_try_again(status)) say_goodbye(connection, 'A', text);
}

void AuditedSessions::accept(Connection& connection, const model::Login& login) {
    connection.username = login.username;
    connection.logged_in = true;
    ++bench_.logins;
    const model::Stream& stream = streams_[login.username];
    const std::uint64_t highest = stream.last_number();
    const std::uint64_t from = login.requested() == 0 ? highest + 1 : std::max(login.requested(), stream.oldest);
    const std::uint64_t count = highest + 1 - from;
    witness_.expect_said("bench: login " + connection.name() + " requested seq " + std::to_string(login.requested()) +
                         " (stream next " + std::to_string(highest + 1) + "): accepted at " + std::to_string(from) +
                         ", replaying " + std::to_string(count) + " message(s)");
    connection.replay = {model::login_response(' ', plan_.engine.session, highest), from, highest};
    if (count != 0) {
        ++bench_.replays;
        bench_.replayed += count;
    }
    continue_replay(connection, (witness_.now_ms() + 1) * model::Turns::ns_in_a_ms);
    if (highest == 0) start_session(connection);
    if (bench_.scenario_lapse_ms > 0 && !bench_.scenario_lapse_started) {
        bench_.scenario_lapse_started = true;
        bench_.lapse_announced = false;
        bench_.lapse_until_ms = witness_.now_ms() + static_cast<std::uint64_t>(bench_.scenario_lapse_ms);
    }
    if (!plan_.engine.quiet) witness_.expect_said("[kavo_me] login " + connection.name() + " accepted");
}

// What a user hears first of all, once in a lifetime.
void AuditedSessions::start_session(Connection& connection) {
    for (const Bytes& message : orders_.venue.start_of_session()) deliver(connection, message);
}

}  // namespace kavo::simulation
