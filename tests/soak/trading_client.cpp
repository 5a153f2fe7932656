#include "soak/trading_client.h"

#include <algorithm>
#include <functional>

#include "client/packets.h"
#include "client/responses.h"

namespace kavo::test {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

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
    if (const auto response = read_login_response(packet)) return take_login_response(*response);
    if (const auto data = read_sequenced(packet)) return take_sequenced(*data, packet.size());
}

// One that is rejected comes too early: the venue has not noticed yet that the connection before it has ended. It is
// closed, and the next one tries again.
void TradingClient::take_login_response(const esesm::LoginResponse::Entry& response) {
    if (response.login_status != esesm::LoginStatus::successful) return;
    ++logins_;
    if (expected_ == 0) expected_ = response.highest_sequence + 1;
    waits_for_login_ = false;
    caught_up_ = response.highest_sequence + 1 == expected_;
}

void TradingClient::take_sequenced(const SequencedMessage& data, std::size_t packet_size) {
    if (data.sequence > expected_) {  // the venue was silent for a while
        if (waits_for_login_) return;
        ++gaps_;
        return log_in();
    }
    if (data.sequence < expected_) {
        if (data.sequence < asked_) ++repeated_;  // a replay repeats what came while the venue was asked for it
        return;
    }
    ++expected_;
    ++messages_;
    stored_bytes_ += packet_size + sizeof(std::uint32_t);  // and where it ends
    note(data.message);
    ledger_.told(data.message);
}

void TradingClient::note(ByteView message) {
    if (const auto resting = read_order_resting(message)) {
        order_of_live_.emplace_back(resting->client_order_id);
    } else if (const auto order = read_order_accepted(message)) {
        live_[std::string(order->client_order_id)] = {order->product_id, order->price, order->quantity};
    } else if (const auto fill = read_execution(message)) {
        const auto found = live_.find(std::string(fill->client_order_id));
        if (found == live_.end()) return;
        found->second.leaves -= std::min(found->second.leaves, fill->quantity);
        if (found->second.leaves == 0) live_.erase(found);
    } else if (const auto gone = read_order_cancelled(message)) {
        live_.erase(std::string(gone->client_order_id));
    } else if (const auto replaced = read_replace_notification(message)) {
        live_.erase(std::string(replaced->orig_client_order_id));
        if (replaced->leaves == 0) return;
        live_[std::string(replaced->client_order_id)] = {replaced->product_id, replaced->price, replaced->leaves};
        order_of_live_.emplace_back(replaced->client_order_id);
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
