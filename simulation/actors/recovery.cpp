// A receiver calls the recovery service: one connection for each request, and not always a proper one.
#include <algorithm>
#include <utility>

#include "actors/receiver.h"

namespace kavo::simulation {

namespace {

constexpr std::string_view session_protocol = "1.0";
constexpr std::string_view application_protocol = "DoM1.3";

Bytes numbers(std::uint64_t first, std::uint64_t last) {
    Bytes payload(16);
    put(payload, Number<std::uint64_t>{0}, first);
    put(payload, Number<std::uint64_t>{8}, last);
    return payload;
}

}  // namespace

void Receiver::recover() {
    if (peer_ != nullptr) {
        if (!settled_ && dice_.one_in(30)) return hang_up();
        change_pace();
        const bool in_two_parts = !settled_ && outgoing_.size() > 1 && dice_.one_in(4);
        const std::size_t size =
            in_two_parts ? static_cast<std::size_t>(dice_.below(outgoing_.size())) : outgoing_.size();
        const auto end = outgoing_.begin() + static_cast<std::ptrdiff_t>(size);
        peer_->to_venue.insert(peer_->to_venue.end(), outgoing_.begin(), end);
        outgoing_.erase(outgoing_.begin(), end);
        return read_reply();
    }
    const bool idle_curiosity = !settled_ && dice_.one_in(150);
    if (!misses_something() && !wants_snapshot_ && !idle_curiosity) return;
    if (patience_ > 0 && !settled_) {
        --patience_;
        return;
    }
    patience_ = static_cast<unsigned>(dice_.below(6));
    call();
}

// A slow one takes a little at a time, until it may be given up.
void Receiver::change_pace() {
    if (settled_) {
        peer_->room = Peer::unlimited;
    } else if (slow_) {
        if (dice_.one_in(2)) peer_->room += dice_.below(400);
    } else if (dice_.one_in(40)) {
        slow_ = true;
        peer_->room = 0;
    }
}

void Receiver::call() {
    peer_ = &stage_.connect_receiver();
    slow_ = !settled_ && dice_.one_in(5);
    if (slow_) peer_->room = static_cast<std::size_t>(dice_.below(600));
    outgoing_.clear();
    incoming_ = {};
    snapshot_.clear();
    sent_again_ = false;
    if (!settled_ && dice_.one_in(5)) return ask_badly();
    ask_properly();
}

void Receiver::ask_properly() {
    if (!settled_ && dice_.one_in(6)) say('1', {});
    if (!settled_ && dice_.one_in(10)) say('T', {});
    if (!settled_ && dice_.one_in(10)) log_in(session_protocol, application_protocol, 7, 1);  // it may try again
    log_in(session_protocol, application_protocol, 0, 1);
    if (wants_snapshot_) {
        const char types[] = {'R', 'O', 'x'};
        return say('U', as_bytes({types, dice_.one_in(2) ? 2U : 3U}));
    }
    if (!settled_ && dice_.one_in(12)) {
        const char types[] = {'R', dice_.pick({'S', 's', 't'})};
        return say('U', as_bytes({types, 2}));
    }
    if (settled_) return ask_for(next_, everything);
    const std::uint64_t last = early_.empty() ? last_known_ : early_.begin()->first - 1;
    if (dice_.one_in(4)) return ask_for(dice_.below(3), everything);
    ask_for(next_, last);
    if (dice_.one_in(8)) ask_for(next_, last);  // nobody reads a second request
}

void Receiver::ask_badly() {
    switch (dice_.below(12)) {
        case 0: return log_in("1.1", application_protocol, 0, 1);
        case 1: return log_in(session_protocol, "MEO2.7", 0, 1);
        case 2: return log_in(session_protocol, application_protocol, 0, 0);
        case 3: return log_in(session_protocol, application_protocol, 0, 2);
        case 4: return say('l', Bytes(9, 'x'));
        case 5: return ask_for(1, everything);  // before any login
        case 6: return say('U', as_bytes("RO"));
        case 7: return say('X', {});
        case 8: return say('?', {});
        case 9: return;  // says nothing, and waits for the login limit
        case 10: log_in(session_protocol, application_protocol, 0, 1); return say('a', Bytes(15));
        default:
            log_in(session_protocol, application_protocol, 0, 1);
            return say('U', as_bytes(dice_.pick<std::string_view>({"R", "Rz", "QO", ""})));
    }
}

void Receiver::say(char packet_type, ByteView payload) {
    const Bytes packet = esesm::build_packet(static_cast<esesm::PacketType>(packet_type), payload);
    outgoing_.insert(outgoing_.end(), packet.begin(), packet.end());
}

void Receiver::log_in(std::string_view session, std::string_view application, std::uint64_t sequence,
                      std::uint8_t engines) {
    client::Login login = client::login("recv", sequence);
    login.session_protocol = session;
    login.application_protocol = application;
    login.matching_engine_count = engines;
    say('l', login.payload());
}

void Receiver::ask_for(std::uint64_t first, std::uint64_t last) {
    say('a', numbers(first, last));
}

void Receiver::read_reply() {
    incoming_.arrive(std::exchange(peer_->inbox, {}));
    while (const auto packet = incoming_.cut()) take_packet(packet->type, packet->payload);
    if (!peer_->closed) return;
    if (incoming_.size() != 0 && !slow_) complain("a recovery ends in the middle of a packet");
    peer_->gone = !dice_.one_in(4);  // some never close, and are closed
    peer_ = nullptr;
}

void Receiver::take_packet(char type, ByteView payload) {
    if (type == 's') take_again(get(payload, Number<std::uint64_t>{0}), payload.subspan(9));
    if (type == 'U') take_snapshot_packet(payload);
    const bool complete = type == 'G' && std::ranges::equal(payload.subspan(1), as_bytes("retransmission complete"));
    if (complete && !sent_again_ && misses_something()) wants_snapshot_ = true;
}

// A reply that begins behind what is missing, or brings nothing of it, shows that the service has forgotten it.
void Receiver::take_again(std::uint64_t sequence, ByteView message) {
    if (!std::exchange(sent_again_, true) && sequence > next_) wants_snapshot_ = true;
    take(sequence, message);
}

void Receiver::take_snapshot_packet(ByteView payload) {
    if (get(payload, Letter{0}) == 'E') {
        if (wants_snapshot_ && get(payload, Letter{1}) == 'O') start_from_snapshot();
        return;
    }
    as_of_ = get(payload, Number<std::uint64_t>{1});
    const ByteView message = payload.subspan(9);
    snapshot_.emplace_back(message.begin(), message.end());
}

// Everything from before is forgotten, and the feed goes on behind the snapshot.
void Receiver::start_from_snapshot() {
    wants_snapshot_ = false;
    book_ = {};
    applied_.clear();
    for (const Bytes& message : snapshot_) book_.apply(message);
    first_ = next_ = as_of_ + 1;
    early_.erase(early_.begin(), early_.lower_bound(next_));
    while (!early_.empty() && early_.begin()->first == next_) {
        const Bytes due = std::move(early_.begin()->second);
        early_.erase(early_.begin());
        apply(next_, due);
    }
}

void Receiver::hang_up() {
    peer_->gone = true;
    peer_ = nullptr;
}

}  // namespace kavo::simulation
