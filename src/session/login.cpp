// A login: the checks in their order, the reject, and the acceptance with everything the user has missed.
#include <algorithm>
#include <utility>

#include "common/text.h"
#include "session/order_entry.h"

namespace kavo {

using esesm::LoginStatus;

namespace {

constexpr std::string_view application_protocol = "MEO";  // whatever follows it passes
constexpr std::uint8_t any_engine = 0;

// Whatever is wrong with the place in the stream, the client may ask again on the same connection.
bool may_try_again(LoginStatus status) {
    return status == LoginStatus::invalid_start_sequence || status == LoginStatus::invalid_session ||
           status == LoginStatus::engine_unavailable;
}

}  // namespace

void OrderEntry::log_in(ClientHandle handle, ByteView payload) {
    esesm::LoginRequest request;
    if (!esesm::parse_login_request(payload, request)) {
        return say_goodbye(client(handle), esesm::GoodbyeReason::bad_packet, esesm::malformed_login_text);
    }
    // Even a login that is rejected leaves a stream for its name, deliberately before the checks.
    SessionStream& stream = streams_[request.username];
    const LoginStatus status = check(handle, request, stream);
    if (status != LoginStatus::successful) return reject(client(handle), request, stream, status);
    accept(handle, request, stream);
}

LoginStatus OrderEntry::check(ClientHandle handle, const esesm::LoginRequest& request, const SessionStream& stream) {
    if (request.session_protocol_version != esesm::session_protocol) return LoginStatus::incompatible_session;
    if (!request.application_protocol_version.starts_with(application_protocol)) {
        return LoginStatus::incompatible_application;
    }
    if (request.entries.size() != 1) return LoginStatus::invalid_engine_count;
    if (request.username.empty() || request.computer_id.empty()) return LoginStatus::invalid_user;
    if (name_is_taken(handle, request.username)) return LoginStatus::already_logged_in;
    const esesm::LoginRequest::Entry& entry = request.entries.front();
    if (entry.matching_engine_id != any_engine && entry.matching_engine_id != session_) {
        return LoginStatus::invalid_session;
    }
    if (entry.requested_sequence > stream.next_sequence()) return LoginStatus::invalid_start_sequence;
    return LoginStatus::successful;
}

// What a client says behind its login waits until all that the login brings is on its way, as if that had gone out in
// one piece: whatever ends the connection would cut it short. Heartbeats do not wait, and a further login takes the
// replay's place, unless it would be rejected.
bool OrderEntry::waits_for_replay(ClientHandle handle) {
    const MeoClient& user = client(handle);
    if (!user.is_replayed_to()) return false;
    const auto packet = user.received.next();
    if (!packet) return false;
    switch (packet->type) {
        case esesm::PacketType::client_heartbeat:
        case esesm::PacketType::client_test: return false;
        case esesm::PacketType::login_request: {
            esesm::LoginRequest request;
            if (!esesm::parse_login_request(packet->payload, request)) return true;
            return check(handle, request, streams_[request.username]) != LoginStatus::successful;
        }
        default: return true;
    }
}

// The client that is logged in under this name on another connection.
ClientHandle OrderEntry::holder_of(ClientHandle asking, const std::string& username) const {
    const auto holds_name = [&](ClientHandle other) {
        const MeoClient& client = clients_[static_cast<std::size_t>(other)];
        return other != asking && client.open() && client.logged_in && client.username == username;
    };
    const auto holder = std::find_if(open_.begin(), open_.end(), holds_name);
    return holder == open_.end() ? no_client : *holder;
}

// Whoever has the name may have gone since the last poll, or have said so: a user who closes and comes back at once is
// right, and only a second look can tell.
bool OrderEntry::name_is_taken(ClientHandle asking, const std::string& username) {
    const ClientHandle holder = holder_of(asking, username);
    if (holder == no_client || looking_again_) return holder != no_client;
    looking_again_ = true;
    look_again(holder, reading_budget_ns);
    looking_again_ = false;
    return holder_of(asking, username) != no_client;
}

void OrderEntry::reject(MeoClient& client, const esesm::LoginRequest& request, const SessionStream& stream,
                        LoginStatus status) {
    const std::string_view text = login_status_text(status);
    const std::uint64_t requested = request.entries.empty() ? 0 : request.entries.front().requested_sequence;
    ++bench_.counters.rejected_logins;
    commentary_.say("bench: login %s REJECTED (%c: %s; requested seq %llu, stream next %llu)\n",
                    request.username.c_str(), static_cast<char>(status), std::string(text).c_str(),
                    printable(requested), printable(stream.next_sequence()));
    send(client, esesm::build_login_response({{status, session_, stream.next_sequence() - 1}}));
    if (!may_try_again(status)) say_goodbye(client, esesm::GoodbyeReason::done, text);
}

void OrderEntry::accept(ClientHandle handle, const esesm::LoginRequest& request, SessionStream& stream) {
    MeoClient& user = client(handle);
    end_replay(user);  // a further login takes the place of what an earlier one has set in motion
    user.username = request.username;
    user.stream = &stream;
    user.logged_in = true;

    const std::uint64_t requested = request.entries.front().requested_sequence;
    const std::uint64_t next = stream.next_sequence();
    const std::uint64_t accepted = std::max(stream.stored.oldest(), requested == 0 ? next : requested);
    commentary_.say(
        "bench: login %s requested seq %llu (stream next %llu): accepted at %llu, replaying %llu message(s)\n",
        user.username.c_str(), printable(requested), printable(next), printable(accepted), printable(next - accepted));
    start_replay(user, esesm::build_login_response({{LoginStatus::successful, session_, next - 1}}), accepted);

    if (stream.stored.size() == 0) {
        answers_.clear();
        engine_.start_session(handle, answers_);
        deliver(user, answers_);
    }
    bench_.client_logged_in(clock_.steady_ms());
    if (!quiet_) commentary_.say("[kavo_me] login %s accepted\n", user.username.c_str());
}

// The response, then everything stored from `from` on; what does not go out at once goes on in later passes. A lapse
// silences what is new, not this: it is how a client gets over a lapse.
void OrderEntry::start_replay(MeoClient& client, Bytes response, std::uint64_t from) {
    const std::uint64_t next = client.stream->next_sequence();
    if (from < next) {
        ++bench_.counters.replays;
        bench_.counters.replayed += next - from;
    }
    if (client.owed == nullptr) client.owed = std::make_unique<Owed>();
    client.owed->replay = {
        .response = std::move(response), .missed = {from, next}, .completion_due = from < next, .followers = {}};
    continue_replay(client, clock_.steady_ns() + shortest_turn_ns);
}

}  // namespace kavo
