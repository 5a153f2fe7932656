// The requests of a client, most of them sensible.
#include <algorithm>
#include <cmath>

#include "actors/client.h"
#include "engine/meo_layout.h"

namespace kavo::simulation {

namespace {

constexpr std::uint64_t unit = 1'000'000;                   // of wire prices
constexpr WirePrice wraps_to_nothing = 10'737'418'240'000;  // whole cents that 32 bits of ten-thousandths do not hold

const std::string& key_at(const auto& orders, std::uint64_t position) {
    return std::next(orders.begin(), static_cast<std::ptrdiff_t>(position))->first;
}

}  // namespace

void Client::request_something() {
    const std::uint64_t choice = dice_.below(100);
    const bool nothing_open = open_.empty() && !dice_.one_in(6);
    if (choice < 55 || nothing_open || (open_.empty() && ended_.empty())) return say('U', new_order());
    if (choice < 77) return say('U', replacement(some_id()));
    say('U', cancellation(some_id()));
}

Bytes Client::new_order() {
    namespace at = meo::layout::new_order;
    const std::size_t products = stage_.plan().symbols.size();
    client::NewOrder order = dice_.one_in(2) ? client::buy(new_id()) : client::sell(new_id());
    const bool buy = (order.order_flags & 1) == 0;
    order.mpid = participant();
    order.product_id = static_cast<std::uint32_t>(dice_.between(1, products));
    if (dice_.one_in(80)) order.product_id = dice_.pick<std::uint32_t>({0, static_cast<std::uint32_t>(products) + 1});
    order.quantity = size();
    order.price = price_near(order.product_id, buy);
    if (dice_.one_in(8)) order = order.market();
    if (dice_.one_in(8)) order = order.post_only();
    order.order_flags = static_cast<std::uint16_t>(order.order_flags | dice_.below(4) << 8);
    if (dice_.one_in(80)) order.order_flags ^= 1 << 1;  // a short sale that is none, or the other way round
    if (dice_.one_in(100)) order.order_type = '3';
    order.tif = dice_.one_in(2) ? 'D' : dice_.pick({'E', 'F', 'F', 'I', 'I', 'R', 'T', 'T'});
    if (dice_.one_in(100)) order.tif = 'X';
    order.expire_time = expire_time(order.tif);
    Bytes message = order.bytes();
    // The client's own fields are given back as they are.
    for (std::size_t i = at::echo.a.at; i < at::expire_time.at; ++i) {
        message[i] = static_cast<std::uint8_t>(dice_.one_in(9) ? 0 : dice_.between(' ', 'z'));
    }
    return message;
}

Bytes Client::replacement(const std::string& orig) {
    client::Replace replacement = client::replace(orig, dice_.one_in(30) ? orig : new_id());
    replacement.mpid = participant();
    replacement.product_id = static_cast<std::uint32_t>(dice_.between(1, stage_.plan().symbols.size()));
    replacement.quantity = size();
    replacement.price = price_near(replacement.product_id, dice_.one_in(2));
    if (const auto order = open_.find(orig); order != open_.end()) {
        const OpenOrder& open = order->second;
        replacement.product_id = open.product_id;
        replacement.price = dice_.one_in(3) && open.price != 0 ? open.price : price_near(open.product_id, open.buy);
        if (dice_.one_in(2)) {
            replacement.quantity =
                open.executed + static_cast<std::uint32_t>(dice_.below(open.leaves + std::uint64_t{2}));
        }
    }
    replacement.echo = static_cast<char>(dice_.between('A', 'Z'));
    replacement.tif = dice_.pick({'D', 'D', 'I', 'F', 'R', '?'});
    return replacement.bytes();
}

Bytes Client::cancellation(const std::string& orig) {
    client::Cancel cancellation = client::cancel(orig);
    cancellation.mpid = participant();
    if (const auto order = open_.find(orig); order != open_.end()) cancellation.product_id = order->second.product_id;
    if (dice_.one_in(40)) cancellation.product_id = static_cast<std::uint32_t>(dice_.below(5));
    return cancellation.bytes();
}

// Mostly a new one, sometimes one that has been used, so that it is a duplicate or has a second life.
std::string Client::new_id() {
    if (dice_.one_in(200)) return {};
    if (dice_.one_in(12) && !ended_.empty()) return ended_[dice_.below(ended_.size())];
    if (dice_.one_in(30) && !open_.empty()) return key_at(open_, dice_.below(open_.size()));
    std::string id = identity_.id_prefix + std::to_string(++ids_used_);
    if (dice_.one_in(60)) id += " of 20 characters---";
    return id.substr(0, meo::client_order_id_size);
}

// Mostly of an open order, sometimes of one that has ended, of another client or of nobody.
std::string Client::some_id() {
    if (!open_.empty() && !dice_.one_in(8)) return key_at(open_, dice_.below(open_.size()));
    if (!ended_.empty() && !dice_.one_in(5)) return ended_[dice_.below(ended_.size())];
    const std::string prefix = dice_.pick({"a", "b", "c", "d"});
    return prefix + std::to_string(dice_.between(1, ids_used_ + 5));
}

std::string Client::participant() {
    if (dice_.one_in(150)) return dice_.pick({"", "AB", "ABC", "ABCD"});
    return identity_.mpid;
}

// Around the touch as this client sees it: from some cents behind it to some cents through it.
WirePrice Client::price_near(std::uint32_t product_id, bool buy) {
    const std::vector<Symbol>& symbols = stage_.plan().symbols;
    const std::size_t index = product_id == 0 || product_id > symbols.size() ? 0 : product_id - 1;
    if (dice_.one_in(100)) return dice_.pick<WirePrice>({0, unit / 3, 500 * unit, wraps_to_nothing, wire_cent});
    const Receiver::Touch touch = market_.touch(static_cast<std::uint32_t>(index + 1));
    WirePrice base = buy == dice_.one_in(3) ? touch.ask : touch.bid;
    if (base == 0) base = static_cast<WirePrice>(std::llround(symbols[index].reference * 100)) * wire_cent;
    const std::int64_t behind = static_cast<std::int64_t>(dice_.below(12)) - 3;
    const std::int64_t price = static_cast<std::int64_t>(base / wire_cent) + (buy ? -behind : behind);
    return static_cast<WirePrice>(std::max<std::int64_t>(price, 1)) * wire_cent;
}

std::uint32_t Client::size() {
    if (dice_.one_in(80)) return dice_.pick<std::uint32_t>({0, 25'000, 25'001, 0xffffffff});
    return dice_.pick<std::uint32_t>({1, 2, 3, 50, 99, 100, 100, 150, 200, 250, 300, 400, 700, 1000, 2500});
}

std::uint64_t Client::expire_time(char tif) {
    const std::uint64_t now = stage_.wall_ns() / ns_per_ms;
    if (tif != 'T') return dice_.one_in(150) ? now + 1000 : 0;
    return dice_.one_in(8) ? dice_.pick<std::uint64_t>({0, now - 1, now}) : now + 1 + dice_.below(1000);
}

}  // namespace kavo::simulation
