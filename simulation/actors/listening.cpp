// What a client makes of what it hears: its place in the stream, and which of its orders are open.
#include <algorithm>
#include <utility>

#include "actors/client.h"
#include "client/responses.h"
#include "common/clock.h"

namespace kavo::simulation {

namespace {

constexpr std::size_t ids_remembered = 30;
constexpr std::uint64_t late_limit_ms = 2000;
constexpr std::uint64_t unsolicited_cancel_delay_ms = 300;

}  // namespace

void Client::read() {
    if (peer_ == nullptr) return;
    incoming_.arrive(std::exchange(peer_->inbox, {}));
    for (const Peer* reading = peer_; const auto packet = incoming_.cut();) {
        take_packet(packet->type, packet->payload);
        if (peer_ != reading) return;
    }
    if (peer_->closed) leave();
}

void Client::take_packet(char type, ByteView payload) {
    if (type == 'r') return take_login_response(payload);
    if (type != 's' || impostor_) return;
    take_message(get(payload, Number<std::uint64_t>{0}), payload.subspan(9));
}

// One who asked for the present end of the stream knows that it misses something, and goes on from there.
void Client::take_login_response(ByteView payload) {
    if (get(payload, Letter{1}) == 'L' && identity_.only_one && !impostor_ && complaint_.empty()) {
        complaint_ =
            identity_.username + " is told that it is logged in already, though it has closed before it came back";
    }
    if (get(payload, Letter{1}) != ' ') return;
    logged_in_ = true;
    if (impostor_) return;
    const std::uint64_t highest = get(payload, Number<std::uint64_t>{3});
    if (requested_ == 0) next_ = std::max(next_, highest + 1);
    replay_begins_ = highest >= next_;
}

// A gap means that something was lost on the way, or that the venue was silent on purpose: whichever it was, the client
// goes away and comes back for what it expects next. In front of a replay it means that the venue has forgotten.
void Client::take_message(std::uint64_t sequence, ByteView message) {
    const Bytes copy(message.begin(), message.end());
    const auto known = heard_.find(sequence);
    if (known != heard_.end() && known->second != copy && complaint_.empty()) {
        complaint_ = identity_.username + printed(" hears that message %ju of the stream was replayed differently",
                                                  static_cast<std::uintmax_t>(sequence));
    }
    if (std::exchange(replay_begins_, false)) next_ = std::max(next_, sequence);
    if (sequence > next_) return leave();
    if (known == heard_.end()) {
        heard_[sequence] = copy;
        follow(message);
    }
    next_ = std::max(next_, sequence + 1);
}

void Client::follow(ByteView message) {
    if (const auto accepted = client::read_order_accepted(message)) {
        open_[std::string(accepted->client_order_id)] = {accepted->product_id, !accepted->flags.sell(), accepted->price,
                                                         accepted->quantity, 0};
    } else if (client::read_order_resting(message)) {
        agenda_.add(stage_.now_ms() + unsolicited_cancel_delay_ms - dice_.below(2));
    } else if (const auto fill = client::read_execution(message)) {
        const auto order = open_.find(std::string(fill->client_order_id));
        if (order == open_.end()) return;
        const std::uint32_t quantity = std::min(order->second.leaves, fill->quantity);
        order->second.leaves -= quantity;
        order->second.executed += quantity;
        if (order->second.leaves == 0) note_end(std::string(order->first), fill->timestamp);
    } else if (const auto gone = client::read_order_cancelled(message)) {
        note_end(std::string(gone->client_order_id), gone->timestamp);
    } else if (const auto replaced = client::read_replace_notification(message)) {
        auto order = open_.extract(std::string(replaced->orig_client_order_id));
        if (order.empty() || replaced->leaves == 0) return;
        note_end(order.key(), replaced->timestamp);
        order.key() = std::string(replaced->client_order_id);
        order.mapped().price = replaced->price;
        order.mapped().leaves = replaced->leaves;
        open_.insert(std::move(order));
    }
}

// Some clients come back to an order that has ended, at the very moment from which they are too late.
void Client::note_end(const std::string& id, std::uint64_t message_ns) {
    open_.erase(id);
    ended_.push_back(id);
    if (ended_.size() > ids_remembered) ended_.pop_front();
    if (!dice_.one_in(4) || message_ns > stage_.wall_ns()) return;
    const std::uint64_t age_ms = (stage_.wall_ns() - message_ns) / ns_per_ms;
    if (age_ms > late_limit_ms || age_ms > stage_.now_ms()) return;
    const std::uint64_t ms = stage_.now_ms() - age_ms + late_limit_ms - 2 + dice_.below(4);
    appointments_.push_back({ms, id});
    agenda_.add(ms);
}

}  // namespace kavo::simulation
