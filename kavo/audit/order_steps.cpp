#include "kavo/audit/order_steps.h"

#include <algorithm>

#include "client/responses.h"

namespace kavo::companion {

namespace {

using State = OrderStep::State;

struct Order {
    std::vector<std::string> ids;  // the last is the present one
    std::map<std::string, std::uint64_t> executed_as;
    std::uint64_t total = 0;
    std::uint64_t executed = 0;
    std::uint64_t leaves_told = 0;
    std::uint64_t told_at = 0;  // timestamp of that
    State state = State::working;
    bool sizes_known = true;

    std::uint64_t leaves() const { return total > executed ? total - executed : 0; }
    bool live() const { return state == State::working; }
};

class Teller {
public:
    void take(const ToldMessage& told) {
        told_ = &told;
        const ByteView message = told.message;
        if (const auto answer = client::read_new_order_response(message)) take(*answer);
        if (const auto accepted = client::read_order_accepted(message)) take(*accepted);
        if (const auto resting = client::read_order_resting(message)) tell(find(resting->client_order_id));
        if (const auto fill = client::read_execution(message)) take(*fill);
        if (const auto cancel = client::read_order_cancelled(message)) take(*cancel);
        if (const auto answer = client::read_replace_response(message)) take(*answer);
        if (const auto replace = client::read_replace_notification(message)) take(*replace);
        if (const auto answer = client::read_cancel_response(message)) take(*answer);
    }

    OrderSteps end() { return std::move(steps_); }

private:
    void take(const client::NewOrderResponse& answer) {
        const std::string id(answer.client_order_id);
        if (answer.accepted()) {
            Order& order = begin(id);
            order.total = order.leaves_told = answer.quantity;
            return tell(order, {.fresh = true});
        }
        ++lives_[id];
        Order* known = find(id);
        if (known != nullptr) return tell(*known, {.refused = true});
        Order rejected;
        rejected.ids = {id};
        rejected.state = State::rejected;
        tell(rejected);
    }

    void take(const client::OrderAccepted& accepted) {
        const std::string id(accepted.client_order_id);
        Order* known = find(id);
        const bool news = known == nullptr || !known->live();
        Order& order = news ? begin(id) : *known;
        if (news) order.total = order.leaves_told = accepted.quantity;
        tell(order, {.fresh = true});
    }

    void take(const client::Execution& fill) {
        const std::string id(fill.client_order_id);
        Order& order = known_or_new(id);
        order.executed += fill.quantity;
        order.executed_as[id] += fill.quantity;
        if (fill.timestamp >= order.told_at)
            order.leaves_told -= std::min<std::uint64_t>(order.leaves_told, fill.quantity);
        if (order.live() && order.sizes_known && order.leaves() == 0) order.state = State::filled;
        tell(order);
    }

    void take(const client::OrderCancelled& cancel) {
        Order& order = known_or_new(std::string(cancel.client_order_id));
        order.state = State::cancelled;
        order.leaves_told = cancel.leaves;  // all of it for one that was never let on the book
        tell(order);
    }

    void take(const client::ReplaceResponse& answer) {
        Order* order = find(answer.orig_client_order_id);
        if (order != nullptr && answer.accepted()) tell(*order, {.between = true});
    }

    void take(const client::ReplaceNotification& replace) {
        Order& order = known_or_new(std::string(replace.orig_client_order_id));
        const std::string id(replace.client_order_id);
        ++lives_[id];
        orders_by_id_[id] = orders_by_id_[std::string(replace.orig_client_order_id)];
        order.ids.push_back(id);
        order.total = replace.quantity;
        order.leaves_told = replace.leaves;
        order.told_at = replace.timestamp;
        if (!order.sizes_known && order.state == State::filled) order.state = State::working;
        tell(order);
    }

    void take(const client::CancelResponse& answer) {
        Order* order = find(answer.orig_client_order_id);
        if (order != nullptr && answer.accepted()) tell(*order, {.between = true});
    }

    Order* find(std::string_view id) {
        const auto it = orders_by_id_.find(std::string(id));
        return it == orders_by_id_.end() ? nullptr : &orders_[it->second];
    }

    Order& begin(const std::string& id) {
        ++lives_[id];
        orders_by_id_[id] = orders_.size();
        orders_.emplace_back().ids = {id};
        return orders_.back();
    }

    // One whose beginning the client was never given.
    Order& known_or_new(const std::string& id) {
        if (Order* known = find(id)) return *known;
        Order& order = begin(id);
        order.sizes_known = false;
        return order;
    }

    void tell(const Order* order) {
        if (order != nullptr) tell(*order);
    }

    struct How {
        bool fresh = false;
        bool between = false;
        bool refused = false;
    };
    void tell(const Order& order) { tell(order, How()); }
    void tell(const Order& order, How how) {
        for (const std::string& id : order.ids) {
            const bool means_another = order.state != State::rejected && find(id) != &order;
            if (means_another) continue;
            const auto as_this = order.executed_as.find(id);
            OrderStep step;
            step.sequence = told_->sequence;
            step.given = told_->given;
            step.read_ns = told_->read_ns;
            step.state = order.state;
            step.fresh = how.fresh;
            step.between = how.between;
            step.refused = how.refused;
            step.replaced = id != order.ids.back();
            step.executed = order.executed;
            step.executed_as_this = as_this == order.executed_as.end() ? 0 : as_this->second;
            step.leaves = order.live() ? order.leaves() : 0;
            step.leaves_told = order.state == State::filled ? 0 : order.leaves_told;
            step.all_executed = order.sizes_known && order.leaves() == 0;
            step.sizes_known = order.sizes_known;
            step.lives = lives_[id];
            steps_[id].push_back(step);
        }
    }

    const ToldMessage* told_ = nullptr;
    std::vector<Order> orders_;
    std::map<std::string, std::size_t> orders_by_id_;  // the latest under each id
    std::map<std::string, unsigned> lives_;
    OrderSteps steps_;
};

std::string_view name_of(State state) {
    switch (state) {
        case State::working: return "working";
        case State::filled: return "filled";
        case State::cancelled: return "cancelled";
        case State::rejected: return "rejected";
    }
    return "";
}

}  // namespace

OrderSteps order_steps(const std::vector<ToldMessage>& told) {
    Teller teller;
    for (const ToldMessage& message : told) teller.take(message);
    return teller.end();
}

OrderNames::OrderNames(const std::vector<ToldMessage>& told) {
    for (const ToldMessage& message : told) {
        const auto replace = client::read_replace_notification(message.message);
        if (!replace) continue;
        const std::string one = one_for(std::string(replace->orig_client_order_id));
        const std::string other = one_for(std::string(replace->client_order_id));
        if (one != other) earlier_[other] = one;
    }
}

std::string OrderNames::one_for(std::string id) const {
    for (auto it = earlier_.find(id); it != earlier_.end(); it = earlier_.find(id)) id = it->second;
    return id;
}

std::string text_of(const OrderStep& step) {
    std::string text(step.replaced ? "replaced, as its new id " : "");
    text += name_of(step.state);
    if (step.sizes_known) text += ", leaves " + std::to_string(step.leaves);
    text += ", executed " + std::to_string(step.executed) + ", after message " + std::to_string(step.sequence);
    return text;
}

}  // namespace kavo::companion
