#include "soak/trading_client.h"

#include <algorithm>
#include <functional>

#include "engine/meo_layout.h"

namespace kavo::test {

namespace {

namespace layout = meo::layout;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::string text(ByteView message, Text field) {
    return std::string(terminated_text(message, field));
}

}  // namespace

TradingClient::TradingClient(std::uint16_t port, const std::string& name, Ledger& ledger)
    : port_(port), name_(name), ledger_(ledger), random_(std::hash<std::string>()(name)) {
    connect();
}

void TradingClient::connect() {
    wire_ = std::make_unique<WireClient>(port_);
    wire_->keep_silent();  // its heartbeats come from here
    log_in();
}

void TradingClient::log_in() {
    wire_->log_in(login(name_, expected_));
    asked_ = expected_;
    last_sent_ = steady_clock::now();
    waits_for_login_ = true;
}

void TradingClient::reset() {
    wire_->reset();
}

void TradingClient::ask_again() {
    caught_up_ = false;
    if (!wire_->closed()) log_in();
}

void TradingClient::send_heartbeat() {
    if (steady_clock::now() - last_sent_ < milliseconds(500)) return;
    wire_->send_heartbeat();
    last_sent_ = steady_clock::now();
}

void TradingClient::listen() {
    while (const auto packet = wire_->next_packet_of_any_kind(milliseconds(0))) take(*packet);
    if (wire_->closed()) connect();
}

void TradingClient::take(ByteView packet) {
    namespace at = esesm::layout::packet;
    switch (static_cast<esesm::PacketType>(get(packet, at::type))) {
        case esesm::PacketType::login_response: return take_login_response(packet.subspan(at::header_size));
        case esesm::PacketType::sequenced_data: return take_sequenced(packet);
        default: return;
    }
}

// One that is rejected comes too early: the venue has not noticed yet that the connection before it has ended. It is
// closed, and the next one tries again.
void TradingClient::take_login_response(ByteView payload) {
    namespace at = esesm::layout::login_response;
    const ByteView entry = payload.subspan(at::min_size);
    if (get(entry, at::entry::login_status) != ' ') return;
    const std::uint64_t highest = get(entry, at::entry::highest_sequence);
    ++logins_;
    if (expected_ == 0) expected_ = highest + 1;
    waits_for_login_ = false;
    caught_up_ = highest + 1 == expected_;
}

void TradingClient::take_sequenced(ByteView packet) {
    namespace at = esesm::layout::sequenced_packet;
    const std::uint64_t sequence = get(packet, at::sequence);
    if (sequence > expected_) {  // the venue was silent for a while
        if (waits_for_login_) return;
        ++gaps_;
        return log_in();
    }
    if (sequence < expected_) {
        if (sequence < asked_) ++repeated_;  // a replay repeats what came while the venue was asked for it
        return;
    }
    ++expected_;
    ++messages_;
    stored_bytes_ += packet.size() + sizeof(std::uint32_t);  // and where it ends
    const ByteView message = packet.subspan(at::header_size);
    note(message);
    ledger_.told(message);
}

void TradingClient::note(ByteView m) {
    const std::string_view type = as_text(m.first(2));
    if (type == "P1") {
        namespace at = layout::order_resting;
        order_of_live_.push_back(text(m, at::client_order_id));
    } else if (type == "O1") {
        namespace at = layout::order_accepted;
        live_[text(m, at::client_order_id)] = {get(m, at::product_id), get(m, at::price), get(m, at::quantity)};
    } else if (type == "E1") {
        namespace at = layout::execution;
        const auto found = live_.find(text(m, at::client_order_id));
        if (found == live_.end()) return;
        found->second.leaves -= std::min(found->second.leaves, get(m, at::quantity));
        if (found->second.leaves == 0) live_.erase(found);
    } else if (type == "XN") {
        live_.erase(text(m, layout::order_cancelled::client_order_id));
    } else if (type == "MN") {
        namespace at = layout::modify_notification;
        live_.erase(text(m, at::orig_client_order_id));
        if (get(m, at::leaves) == 0) return;
        live_[text(m, at::client_order_id)] = {get(m, at::product_id), get(m, at::price), get(m, at::leaves)};
        order_of_live_.push_back(text(m, at::client_order_id));
    }
}

void TradingClient::act(const ReceivedBook& books, std::uint32_t products) {
    if (waits_for_login_ || wire_->closed()) return;
    last_sent_ = steady_clock::now();
    std::erase_if(order_of_live_, [this](const std::string& id) { return !live_.contains(id); });
    const std::uint32_t what = draw(100);
    if (order_of_live_.size() > most_live_orders || what < 25) {
        cancel_one();
    } else if (what < 45) {
        replace_one();
    } else {
        enter(books, products);
    }
}

// Around the touch of a random symbol; now and then through it.
void TradingClient::enter(const ReceivedBook& books, std::uint32_t products) {
    const std::uint32_t product = 1 + draw(products);
    const ReceivedBook::Book& book = books.book(product);
    const bool buying = draw(2) == 0;
    NewOrder order = buying ? buy(new_id()) : sell(new_id());
    order = order.product(product).shares(1 + draw(1000));
    const ReceivedBook::Levels& levels = buying ? book.bids : book.asks;
    if (levels.empty()) return;
    const WirePrice touch = buying ? levels.rbegin()->first : levels.begin()->first;
    constexpr WirePrice cent = 10'000;
    order.price = touch + cent * 6 - cent * draw(13);
    switch (draw(8)) {
        case 0: order = order.immediate(); break;
        case 1: order = order.all_or_nothing(); break;
        case 2: order = order.post_only(); break;
        case 3: order = order.market(); break;
        default: break;
    }
    wire_->send(order);
}

// Sometimes by less than has been executed, which closes the order.
void TradingClient::replace_one() {
    if (order_of_live_.empty()) return;
    const std::string& id = order_of_live_[draw(static_cast<std::uint32_t>(order_of_live_.size()))];
    const Live& order = live_.at(id);
    Replace request = replace(id, new_id());
    request.product_id = order.product_id;
    request.price = order.price + 10'000 * 2 - 10'000 * draw(5);
    request.quantity = 1 + draw(1200);
    wire_->send(request);
}

// The oldest as a rule, and sometimes one that nobody knows.
void TradingClient::cancel_one() {
    if (order_of_live_.empty() || draw(20) == 0) return wire_->send(cancel(name_ + "x0"));
    const std::string& id = order_of_live_.front();
    wire_->send(cancel(id).product(live_.at(id).product_id));
}

}  // namespace kavo::test
