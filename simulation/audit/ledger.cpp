// The auditor's books about the orders of clients: which are live, which have ended and when, and what the truth log
// must say about them.
#include "audit/audited_orders.h"
#include "audit/finding.h"

namespace kavo::simulation {

namespace {

constexpr std::uint64_t late_limit_ms = 2000;

}  // namespace

AuditedOrders::AuditedOrders(Witness& witness, AuditedFeed& feed, PublishedBooks& books, AuditedBench& bench,
                             const Plan& plan)
    : witness_(witness), feed_(feed), books_(books), bench_(bench), plan_(plan) {}

bool AuditedOrders::handle(int client, const Bytes& message, Answers& answers) {
    request_ns_ = witness_.now_ns();
    if (const auto request = model::read_new_order(message)) {
        new_order(client, *request, answers);
    } else if (const auto cancellation = model::read_cancel(message)) {
        cancel(client, *cancellation, answers);
    } else if (const auto replacement = model::read_modify(message)) {
        modify(client, *replacement, answers);
    } else {
        return false;
    }
    expect_uncrossed();
    return true;
}

// Whatever could trade has traded. Only behind an offer at price 0, with which nobody trades, may orders have come to
// rest that look crossed once it is gone.
void AuditedOrders::expect_uncrossed() {
    for (std::uint32_t id = 1; id <= books_.products(); ++id) {
        const BookOrder* offer = books_.best(id, false);
        if (offer != nullptr && offer->price == 0) {
            barred_.insert(id);
        } else if (!books_.crossed(id)) {
            barred_.erase(id);
        } else if (!barred_.contains(id)) {
            throw Finding("orders rest crossed in " + books_.symbol(id));
        }
    }
}

AuditedOrders::ClientOrder* AuditedOrders::find_own(int client, const std::string& id) {
    const auto live = live_ids_.find(id);
    if (live == live_ids_.end()) return nullptr;
    ClientOrder& order = orders_.at(live->second);
    return order.order.owner == client ? &order : nullptr;
}

void AuditedOrders::end(const ClientOrder& order) {
    const std::uint64_t id = order.order.id;
    live_ids_.erase(order.order.client_order_id);
    orders_.erase(id);
}

bool AuditedOrders::closed_lately(const std::string& id) const {
    const auto closed = closed_ms_.find(id);
    return closed != closed_ms_.end() && witness_.now_ms() < closed->second + late_limit_ms;
}

AuditedOrders::Truth AuditedOrders::truth_of(std::string_view event, const ClientOrder& order) const {
    Truth truth;
    truth.event = event;
    truth.id = order.order.client_order_id;
    truth.order_id = order.order.id;
    truth.symbol = books_.symbol(order.order.product_id);
    truth.side = order.order.buy ? 'B' : 'S';
    truth.quantity = order.size;
    truth.price = order.order.price;
    truth.executed = order.executed;
    return truth;
}

// Whatever time goes by before a line is written, it carries that of the report which it belongs to.
void AuditedOrders::expect_truth(const Truth& truth) {
    std::string line = "{\"t\":" + std::to_string(request_ns_) + ",\"ev\":\"" + std::string(truth.event) +
                       "\",\"cl\":\"" + truth.id + "\",\"oid\":" + std::to_string(truth.order_id) + ",\"symbol\":\"" +
                       truth.symbol + "\",\"side\":\"" + truth.side + "\",\"qty\":" + std::to_string(truth.quantity) +
                       printed(",\"px\":%g", truth.price / 10'000.0) + ",\"cum\":" + std::to_string(truth.executed) +
                       ",\"leaves\":" + std::to_string(truth.leaves) + ",\"last_qty\":" + std::to_string(truth.last) +
                       ",\"text\":\"" + truth.text + "\"";
    if (!truth.reference.empty()) line += ",\"ref\":\"" + truth.reference + "\"";
    witness_.expect_line(What::order_truth, line + "}");
}

model::Product AuditedOrders::product(std::uint32_t product_id) const {
    model::Product product;
    product.product_id = product_id;
    product.name = books_.symbol(product_id);
    product.listing = books_.listing(product_id);
    return product;
}

std::vector<Bytes> AuditedOrders::definitions() const {
    std::vector<Bytes> messages;
    for (std::uint32_t id = 1; id <= books_.products(); ++id) {
        messages.push_back(model::series_definition(witness_.now_ns(), product(id)));
    }
    return messages;
}

std::vector<Bytes> AuditedOrders::trading_statuses() const {
    std::vector<Bytes> messages;
    for (std::uint32_t id = 1; id <= books_.products(); ++id) {
        messages.push_back(model::series_status(witness_.now_ns(), product(id)));
    }
    return messages;
}

std::vector<Bytes> AuditedOrders::resting_orders() const {
    std::vector<Bytes> messages;
    for (const BookOrder& resting : books_.resting_orders()) {
        model::Order order;
        if (const auto client = orders_.find(resting.id); client != orders_.end()) order = client->second.order;
        order.id = resting.id;
        order.product_id = resting.product_id;
        order.buy = resting.buy;
        order.price = resting.price;
        order.leaves = resting.quantity;
        messages.push_back(model::add_order(witness_.now_ns(), order));
    }
    return messages;
}

}  // namespace kavo::simulation
