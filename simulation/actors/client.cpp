#include "actors/client.h"

#include <algorithm>
#include <utility>

namespace kavo::simulation {

namespace {

constexpr std::uint64_t heartbeat_after_ms = 900;
constexpr std::uint64_t silence_limit_ms = 3000;
constexpr std::uint64_t heartbeat_limit_ms = 1000;
constexpr std::uint64_t login_limit_ms = 30'000;

}  // namespace

Client::Client(Stage& stage, Agenda& agenda, const Receiver& market, Identity identity, std::uint64_t dice_seed)
    : stage_(stage), agenda_(agenda), market_(market), identity_(std::move(identity)), dice_(dice_seed) {}

void Client::act() {
    if (silent_passes_ > 0 && peer_ != nullptr && !peer_->closed) {
        --silent_passes_;
        return;
    }
    silent_passes_ = 0;
    read();
    if (peer_ == nullptr) {
        if (dice_.one_in(6)) connect();
        return;
    }
    if (dice_.one_in(identity_.clumsy ? 60 : 250)) return leave();
    if (dice_.one_in(120)) return come_back_at_once();
    change_pace();
    if (dice_.one_in(120)) {
        silent_passes_ = static_cast<unsigned>(dice_.between(1, 60));
        agenda_.add(last_said_ms_ + silence_limit_ms - dice_.below(2));
        return;
    }
    if (logged_in_) {
        say_something();
    } else {
        come_in();
    }
    send_out();
}

void Client::connect() {
    peer_ = &stage_.connect_client();
    logged_in_ = impostor_ = false;
    outgoing_.clear();
    incoming_ = {};
    last_said_ms_ = stage_.now_ms();
    // The venue no longer takes its earlier orders for its own. Not every client knows.
    if (!dice_.one_in(4)) {
        for (const auto& [id, order] : open_) ended_.push_back(id);
        open_.clear();
    }
    if (dice_.one_in(20)) agenda_.add(stage_.now_ms() + login_limit_ms - dice_.below(2));
}

// Closes, and logs in again before anybody has looked. Who has its name to itself is right.
void Client::come_back_at_once() {
    leave();
    connect();
    log_in(next_);
    send_out();
}

// Now and then it reads a little at a time, or nothing.
void Client::change_pace() {
    const bool slow = peer_->room != Peer::unlimited;
    if (slow && dice_.one_in(2)) peer_->room += dice_.below(120);
    if (!dice_.one_in(slow ? 12 : 100)) return;
    peer_->room =
        slow ? Peer::unlimited : static_cast<std::size_t>(dice_.below(dice_.pick<std::uint64_t>({1, 60, 2000})));
}

void Client::leave() {
    if (peer_ != nullptr) peer_->gone = true;
    peer_ = nullptr;
    logged_in_ = false;
}

// Often in one piece, sometimes cut anywhere: the rest follows in a later pass, or never.
void Client::send_out() {
    if (peer_ == nullptr || outgoing_.empty()) return;
    const bool cut = !proper_ && dice_.one_in(8);
    const std::size_t size = cut ? static_cast<std::size_t>(dice_.below(outgoing_.size())) : outgoing_.size();
    if (size == 0) return;
    const auto end = outgoing_.begin() + static_cast<std::ptrdiff_t>(size);
    peer_->to_venue.insert(peer_->to_venue.end(), outgoing_.begin(), end);
    outgoing_.erase(outgoing_.begin(), end);
    last_said_ms_ = stage_.now_ms();
}

void Client::say(char packet_type, ByteView payload) {
    const Bytes packet = esesm::build_packet(static_cast<esesm::PacketType>(packet_type), payload);
    outgoing_.insert(outgoing_.end(), packet.begin(), packet.end());
}

void Client::say_something() {
    keep_appointments();
    if (dice_.one_in(identity_.clumsy ? 30 : 300)) return say_nonsense();
    if (!dice_.one_in(3)) {
        const std::uint64_t count =
            dice_.one_in(40) ? dice_.pick<std::uint64_t>({25, 25, 25, 250}) : dice_.between(1, 3);
        for (std::uint64_t i = 0; i < count; ++i) request_something();
    }
    if (stage_.now_ms() - last_said_ms_ > heartbeat_after_ms) say(dice_.one_in(4) ? 'T' : '1');
    if (dice_.one_in(40)) agenda_.add(stage_.now_ms() + heartbeat_limit_ms - dice_.below(2));
}

void Client::say_nonsense() {
    switch (dice_.below(8)) {
        case 0: return say('Q');  // no packet of this protocol
        case 1: return say('U', Bytes(dice_.below(2)));
        case 2: return say('U', as_bytes("N1 cut short"));
        case 3: return say('U', as_bytes(dice_.pick<std::string_view>({"ZZ", "CO", "M1 too", "n1"})));
        case 4: return say('X');
        case 5: outgoing_.insert(outgoing_.end(), {0, 0, 1, 0, '1'}); return;  // the venue throws all of it away
        case 6: return log_in(dice_.pick<std::uint64_t>({0, 1, next_, next_ + 1}));
        default: return log_in_badly();
    }
}

void Client::keep_appointments() {
    const auto is_due = [this](const Appointment& appointment) { return appointment.ms <= stage_.now_ms(); };
    for (const Appointment& due : appointments_) {
        if (is_due(due)) say('U', dice_.one_in(3) ? replacement(due.id) : cancellation(due.id));
    }
    std::erase_if(appointments_, is_due);
}

}  // namespace kavo::simulation
