#include "kavo/audit/flat_book.h"

#include <algorithm>
#include <set>

#include "client/feed_messages.h"
#include "client/transcript.h"

namespace kavo::companion {

namespace {

constexpr std::size_t shown_levels = 10;

}  // namespace

// The best levels are where things happen, so the search begins there.
std::vector<BookLevel>::iterator FlatSide::find(std::uint32_t price) {
    auto level = levels_.end();
    while (level != levels_.begin()) {
        const std::uint32_t better = (level - 1)->price;
        if (better == price || (buy_ ? better < price : better > price)) break;
        --level;
    }
    return level;  // one behind the level of this price, or where it would be
}

void FlatSide::add(std::uint32_t price, std::uint32_t quantity) {
    const auto behind = find(price);
    if (behind != levels_.begin() && (behind - 1)->price == price) {
        (behind - 1)->quantity += quantity;
    } else {
        levels_.insert(behind, {price, quantity});
    }
}

void FlatSide::take(std::uint32_t price, std::uint32_t quantity) {
    const auto behind = find(price);
    if (behind == levels_.begin() || (behind - 1)->price != price) return;
    BookLevel& level = *(behind - 1);
    level.quantity -= std::min<std::uint64_t>(level.quantity, quantity);
    if (level.quantity == 0) levels_.erase(behind - 1);
}

bool FlatSide::shows(const std::vector<BookLevel>& best) const {
    if (best.size() != std::min(levels_.size(), shown_levels)) return false;
    return std::equal(best.begin(), best.end(), levels_.rbegin());
}

std::string FlatSide::text() const {
    std::string text;
    for (std::size_t i = 0; i < std::min(levels_.size(), shown_levels); ++i) {
        const BookLevel& level = levels_[levels_.size() - 1 - i];
        if (i != 0) text += " ";
        text += std::to_string(level.quantity) + "@" + client::price_text(to_wire(level.price));
    }
    return text.empty() ? "nothing" : text;
}

FlatBooks::Product& FlatBooks::product(std::uint32_t id) {
    const auto [product, is_new] = products_.try_emplace(id);
    if (is_new) product->second.uncertain = unknown_beginning_;
    return product->second;
}

FlatBooks::Change FlatBooks::apply(ByteView message) {
    if (message.empty()) return {};
    switch (static_cast<dom::MessageType>(message[0])) {
        case dom::MessageType::add_order: return add(message);
        case dom::MessageType::modify_order: return modify(message);
        case dom::MessageType::delete_order: return remove(message);
        case dom::MessageType::order_executed: return execute(message);
        default: break;
    }
    if (const auto m = client::read_series_definition(message)) product(m->secid).symbol = m->symbol;
    return {};
}

FlatBooks::Change FlatBooks::add(ByteView message) {
    const auto m = client::read_add_order(message);
    if (!m) return {};
    Change change{.product_id = m->secid, .order_id = m->order_id};
    if (const auto found = orders_.find(m->order_id); found != orders_.end()) {
        if (!product(found->second.product_id).uncertain) change.wrong = "adds an order that rests already";
        take_off(found->second);
        orders_.erase(found);
    }
    put(m->order_id, {m->secid, from_wire(m->price), m->quantity, m->side == 'B'});
    return change;
}

FlatBooks::Orders::iterator FlatBooks::find(ByteView message, Change& change) {
    change.product_id =
        get(message, dom::layout::delete_order::secid);  // in all that speak of an order it stands there
    change.order_id = get(message, dom::layout::delete_order::order_id);
    const auto found = orders_.find(change.order_id);
    if (product(change.product_id).uncertain) return found;
    if (found == orders_.end()) {
        change.wrong = "is about an order that does not rest";
    } else if (found->second.product_id != change.product_id) {
        change.wrong = "is about an order of another product";
    }
    return found;
}

FlatBooks::Change FlatBooks::modify(ByteView message) {
    const auto m = client::read_modify_order(message);
    Change change;
    if (!m) return change;
    const auto found = find(message, change);
    if (found == orders_.end()) return change;
    Resting order = found->second;
    take_off(order);
    orders_.erase(found);
    order.price = from_wire(m->price);
    order.quantity = m->quantity;
    if (order.quantity != 0) put(m->order_id, order);
    return change;
}

FlatBooks::Change FlatBooks::remove(ByteView message) {
    Change change;
    if (!client::read_delete_order(message)) return change;
    const auto found = find(message, change);
    if (found == orders_.end()) return change;
    take_off(found->second);
    orders_.erase(found);
    return change;
}

FlatBooks::Change FlatBooks::execute(ByteView message) {
    const auto m = client::read_order_executed(message);
    Change change;
    if (!m) return change;
    const auto found = find(message, change);
    change.match_number = m->match_number;
    change.quantity = m->quantity;
    change.price = m->price;
    if (found == orders_.end()) return change;
    Resting& order = found->second;
    if (!product(change.product_id).uncertain) {
        if (m->quantity > order.quantity) change.wrong = "executes more than rests";
        if (from_wire(m->price) != order.price) change.wrong = "executes at another price than the order's";
        if (m->resting_sell == order.buy) change.wrong = "executes an order of the other side";
    }
    const std::uint32_t quantity = std::min(m->quantity, order.quantity);
    Product& book = product(order.product_id);
    book.side(order.buy).take(order.price, quantity);
    order.quantity -= quantity;
    if (order.quantity != 0) return change;
    --book.resting;
    orders_.erase(found);
    return change;
}

void FlatBooks::put(std::uint64_t id, const Resting& order) {
    Product& book = product(order.product_id);
    orders_[id] = order;
    ++book.resting;
    book.side(order.buy).add(order.price, order.quantity);
}

void FlatBooks::take_off(const Resting& order) {
    Product& book = product(order.product_id);
    --book.resting;
    book.side(order.buy).take(order.price, order.quantity);
}

void FlatBooks::make_all_uncertain() {
    unknown_beginning_ = true;
    for (auto& [id, product] : products_) product.uncertain = true;
}

bool FlatBooks::rests(const std::vector<ByteView>& orders) const {
    std::unordered_map<std::uint32_t, std::uint64_t> counted;
    for (const ByteView message : orders) {
        const auto m = client::read_add_order(message);
        if (!m) return false;
        const auto product = products_.find(m->secid);
        if (product != products_.end() && product->second.uncertain) continue;
        const auto found = orders_.find(m->order_id);
        if (found == orders_.end()) return false;
        const Resting& order = found->second;
        if (order.product_id != m->secid || order.price != from_wire(m->price) || order.quantity != m->quantity ||
            order.buy != (m->side == 'B')) {
            return false;
        }
        ++counted[m->secid];
    }
    return std::ranges::all_of(products_, [&counted](const auto& entry) {
        return entry.second.uncertain || entry.second.resting == counted[entry.first];
    });
}

void FlatBooks::learn(const std::vector<ByteView>& orders) {
    std::set<std::uint32_t> learned;
    for (const ByteView message : orders) {
        if (const auto m = client::read_add_order(message)) product(m->secid);
    }
    unknown_beginning_ = false;
    for (auto& [id, product] : products_) {
        if (!product.uncertain) continue;
        learned.insert(id);
        product.bids.clear();
        product.asks.clear();
        product.resting = 0;
    }
    std::erase_if(orders_, [&learned](const auto& entry) { return learned.contains(entry.second.product_id); });
    for (const ByteView message : orders) {
        const auto m = client::read_add_order(message);
        if (m && learned.contains(m->secid)) {
            put(m->order_id, {m->secid, from_wire(m->price), m->quantity, m->side == 'B'});
        }
    }
    for (const std::uint32_t id : learned) product(id).uncertain = false;
}

}  // namespace kavo::companion
