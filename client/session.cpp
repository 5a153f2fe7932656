#include "client/session.h"

#include <algorithm>

#include "client/packets.h"
#include "common/clock.h"

namespace kavo::client {

namespace {

ByteView whole(const esesm::Packet& packet) {
    constexpr std::size_t header = esesm::layout::packet::header_size;
    return {packet.payload.data() - header, packet.payload.size() + header};
}

}  // namespace

void Session::connected(std::uint64_t now_ms) {
    received_ = {};
    outgoing_.clear();
    last_sent_ms_ = last_heard_ms_ = now_ms;
    replay_end_ = 0;
    connected_ = true;
    answer_due_ = logged_in_ = false;
    end_ = End::none;
}

void Session::disconnected() {
    connected_ = logged_in_ = false;
    if (end_ == End::none) end_ = End::disconnected;
}

void Session::log_in() {
    Login login = login_;
    login.requested_sequence = next_;
    log_in(login);
}

void Session::log_in(const Login& login) {
    requested_ = login.requested_sequence;
    answer_due_ = true;
    if (connected_) end_ = End::none;
    say(esesm::PacketType::login_request, login.payload());
}

void Session::say(esesm::PacketType type, ByteView payload) {
    say_bytes(esesm::build_packet(type, payload));
}

void Session::say_bytes(ByteView bytes) {
    outgoing_.insert(outgoing_.end(), bytes.begin(), bytes.end());
}

void Session::sent(std::size_t count, std::uint64_t now_ms) {
    if (count == 0) return;
    outgoing_.erase(outgoing_.begin(), outgoing_.begin() + static_cast<std::ptrdiff_t>(count));
    last_sent_ms_ = now_ms;
}

// What waits to be sent is a sign of life as good as a heartbeat. Heartbeats go on behind a hole and a refusal, since
// the caller may log in again.
void Session::check_time(std::uint64_t now_ms) {
    if (!connected_) return;
    const bool silent = elapsed_ms(now_ms, last_heard_ms_) >= timing_.silence_limit_ms;
    if (silent && end_ == End::none) end_ = End::silence;
    const bool due = elapsed_ms(now_ms, last_sent_ms_) >= timing_.heartbeat_after_ms;
    if (due && outgoing_.empty()) say(esesm::PacketType::client_heartbeat);
}

void Session::receive(ByteView bytes, std::uint64_t now_ms) {
    if (bytes.empty()) return;
    Bytes& incoming = received_.incoming();
    incoming.insert(incoming.end(), bytes.begin(), bytes.end());
    last_heard_ms_ = now_ms;
}

std::optional<Session::Arrival> Session::next() {
    const auto packet = received_.cut();
    if (!packet) return std::nullopt;
    Arrival arrival;
    arrival.packet = whole(*packet);
    switch (packet->type) {
        case esesm::PacketType::login_response: return take_login_response(arrival);
        case esesm::PacketType::sequenced_data: return take_message(arrival);
        case esesm::PacketType::replay_complete: arrival.kind = Arrival::Kind::replay_complete; break;
        case esesm::PacketType::server_heartbeat: arrival.kind = Arrival::Kind::heartbeat; break;
        case esesm::PacketType::goodbye:
            arrival.kind = Arrival::Kind::goodbye;
            logged_in_ = false;
            if (end_ == End::none) end_ = End::goodbye;
            break;
        default: break;
    }
    return arrival;
}

// Behind an acceptance everything from the requested number on is to come, or, where that is 0, everything new.
Session::Arrival Session::take_login_response(Arrival arrival) {
    const auto response = read_login_response(arrival.packet);
    if (!response) return arrival;
    answer_due_ = false;
    refusal_ = response->login_status;
    if (response->login_status != esesm::LoginStatus::successful) {
        arrival.kind = Arrival::Kind::refused;
        end_ = End::refused;
        return arrival;
    }
    arrival.kind = Arrival::Kind::accepted;
    logged_in_ = true;
    const std::uint64_t from = requested_ == 0 ? response->highest_sequence + 1 : requested_;
    replay_end_ = from <= response->highest_sequence ? response->highest_sequence : 0;
    next_ = std::max(next_, from);
    return arrival;
}

// The venue moves a number that it no longer has up to the oldest that it has, so what a replay begins behind is gone.
// Nothing else that is missing is lost for good.
Session::Arrival Session::take_message(Arrival arrival) {
    const auto read = read_sequenced(arrival.packet);
    if (!read) return arrival;
    arrival.sequence = read->sequence;
    arrival.message = read->message;
    const bool begins_replay = read->sequence <= replay_end_;
    replay_end_ = 0;
    if (read->sequence < next_) {
        arrival.kind = Arrival::Kind::repeated;
    } else if (read->sequence == next_ || begins_replay) {
        arrival.kind = Arrival::Kind::message;
        arrival.missed = read->sequence - next_;
        next_ = read->sequence + 1;
    } else {
        arrival.kind = Arrival::Kind::hole;
        if (!answer_due_ && end_ == End::none) end_ = End::hole;
    }
    return arrival;
}

}  // namespace kavo::client
