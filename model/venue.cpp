#include "model/venue.h"

#include <utility>

namespace kavo::model {
namespace {

constexpr std::uint64_t late_ms = 2000;  // an order that ended less than this ago was missed, any other is unknown

}  // namespace

Venue::Venue(const Settings& settings, World world)
    : books(settings.symbols), settings_(settings), world_(std::move(world)), draws_(settings.seed) {}

Answers Venue::start_of_session() const {
    Answers answers{start_of_session_message(world_.wall_ns(), settings_.session)};
    for (const Product& product : books.products) answers.push_back(symbol_update(world_.wall_ns(), product));
    return answers;
}

std::optional<Answers> Venue::handle(int client, const Bytes& message) {
    Answers answers;
    now_ns_ = world_.wall_ns();
    if (const auto order = read_new_order(message)) {
        new_order(client, *order, answers);
    } else if (const auto cancellation = read_cancel(message)) {
        cancel(client, *cancellation, answers);
    } else if (const auto replacement = read_replace(message)) {
        replace(client, *replacement, answers);
    } else {
        return std::nullopt;
    }
    return answers;
}

std::vector<Bytes> Venue::definitions() const {
    std::vector<Bytes> messages;
    for (const Product& product : books.products) messages.push_back(series_definition(world_.wall_ns(), product));
    return messages;
}

std::vector<Bytes> Venue::trading_statuses() const {
    std::vector<Bytes> messages;
    for (const Product& product : books.products) messages.push_back(series_status(world_.wall_ns(), product));
    return messages;
}

std::vector<Bytes> Venue::resting_orders() const {
    std::vector<Bytes> messages;
    for (const Order& order : books.resting_orders()) messages.push_back(add_order(world_.wall_ns(), order));
    return messages;
}

// Nothing for an order of somebody else.
const Order* Venue::find_own(int client, const std::string& client_order_id) const {
    const auto live = live_ids.find(client_order_id);
    if (live == live_ids.end()) return nullptr;
    const Order& order = books.resting.at(live->second);
    return order.owner == client ? &order : nullptr;
}

// Deliberately crude: the entry that is one too many clears them all, itself included.
void Venue::close(const std::string& client_order_id) {
    live_ids.erase(client_order_id);
    closed_ms_[client_order_id] = world_.steady_ms();
    if (closed_ms_.size() > settings_.limits.closed_ids) closed_ms_.clear();
}

bool Venue::closed_lately(const std::string& client_order_id) const {
    const auto closed = closed_ms_.find(client_order_id);
    return closed != closed_ms_.end() && world_.steady_ms() - closed->second < late_ms;
}

// Every change of a book is published, and followed by a line that shows the book.
void Venue::book_changed(std::uint32_t product_id) {
    world_.book_truth(books.change_line(last_number_, product_id));
}

void Venue::come_to_rest(const Order& order) {
    publish(add_order(world_.stamp_ns(), order));
    books.add(order);
    book_changed(order.product_id);
}

// Takes a whole order off without a trade.
void Venue::withdraw(std::uint64_t order_id) {
    const Order order = books.resting.at(order_id);
    publish(delete_order(world_.stamp_ns(), order));
    books.remove(order_id);
    book_changed(order.product_id);
}

Venue::Truth Venue::truth_of(std::string_view event, const Order& order) const {
    return {.event = event,
            .client_order_id = order.client_order_id,
            .order_id = order.id,
            .symbol = books.product(order.product_id).name,
            .side = order.buy ? 'B' : 'S',
            .quantity = order.size,
            .price = order.price,
            .executed = order.executed};
}

// Whatever time goes by before a line is written, it carries that of the answers which it belongs to.
void Venue::write(const Truth& truth) {
    std::string line = "{\"t\":" + std::to_string(now_ns_) + ",\"ev\":\"" + std::string(truth.event) + "\",\"cl\":\"" +
                       truth.client_order_id + "\",\"oid\":" + std::to_string(truth.order_id) + ",\"symbol\":\"" +
                       truth.symbol + "\",\"side\":\"" + truth.side + "\",\"qty\":" + std::to_string(truth.quantity) +
                       ",\"px\":" + short_price(truth.price) + ",\"cum\":" + std::to_string(truth.executed) +
                       ",\"leaves\":" + std::to_string(truth.leaves) +
                       ",\"last_qty\":" + std::to_string(truth.last_quantity) + ",\"text\":\"" +
                       std::string(truth.text) + "\"";
    if (!truth.reference.empty()) line += ",\"ref\":\"" + truth.reference + "\"";
    world_.order_truth(line + "}");
}

}  // namespace kavo::model
