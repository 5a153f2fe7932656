#include "kavo/audit/order_lives.h"

#include <charconv>
#include <string>
#include <unordered_map>

namespace kavo::companion {

namespace {

// An order as the lines so far have it.
struct Life {
    std::string_view client_order_id;
    std::string_view symbol;
    char side = ' ';
    std::uint32_t quantity = 0;
    double price = 0;
    std::uint32_t executed = 0;
    bool open = true;
};

std::string price_of(double price) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, price, std::chars_format::general, 6).ptr};
}

class Lives {
public:
    explicit Lives(BenchFindings& findings) : findings_(findings) {}

    void take(const OrderLine& line) {
        if (line.event == "new") return begin(line);
        if (line.event == "reject" || line.event == "cancel_reject") return without_order(line);
        if (line.order_id == 0) return without_order(line);
        const auto found = orders_.find(line.order_id);
        if (found == orders_.end()) return wrong(line, "an order that a line \"new\" has begun");
        if (!found->second.open) return wrong(line, "no line behind the end of the order");
        if (line.event == "fill") return fill(line, found->second);
        if (line.event == "cancel") return cancel(line, found->second);
        if (line.event == "replace") return replace(line, found->second);
    }

private:
    void begin(const OrderLine& line) {
        if (line.order_id <= last_id_) return wrong(line, "an order id above " + std::to_string(last_id_));
        last_id_ = line.order_id;
        orders_[line.order_id] = {line.client_order_id, line.symbol, line.side, line.quantity, line.price};
        if (line.executed != 0 || line.leaves != 0 || line.last_quantity != 0)
            wrong(line, "cum, leaves and last_qty 0");
    }

    void without_order(const OrderLine& line) {
        const bool zero = line.order_id == 0 && line.executed == 0 && line.leaves == 0 && line.last_quantity == 0;
        if (!zero) wrong(line, "oid, cum, leaves and last_qty 0");
    }

    bool is_of(const OrderLine& line, const Life& life, std::string_view id) {
        if (id == life.client_order_id && line.symbol == life.symbol && line.side == life.side) return true;
        wrong(line, "order " + std::string(life.client_order_id) + " " + std::string(life.symbol) + " " +
                        std::string(1, life.side));
        return false;
    }

    bool has_terms(const OrderLine& line, const Life& life) {
        if (line.quantity == life.quantity && line.price == life.price) return true;
        wrong(line, "the terms of the order, " + std::to_string(life.quantity) + "@" + price_of(life.price));
        return false;
    }

    void fill(const OrderLine& line, Life& life) {
        if (!is_of(line, life, line.client_order_id) || !has_terms(line, life)) return;
        const std::uint64_t executed = std::uint64_t{life.executed} + line.last_quantity;
        const bool adds_up = line.executed == executed && executed <= life.quantity &&
                             line.leaves == life.quantity - executed && line.last_quantity != 0;
        if (!adds_up) {
            wrong(line, "cum " + std::to_string(executed) + " behind cum " + std::to_string(life.executed) +
                            ", and leaves the rest of " + std::to_string(life.quantity));
        }
        life.executed = line.executed;
        life.open = line.leaves != 0;
    }

    // What is post-only and would have taken liquidity ends with all of it open, as its user is told.
    void cancel(const OrderLine& line, Life& life) {
        life.open = false;
        if (!is_of(line, life, line.client_order_id) || !has_terms(line, life)) return;
        const std::uint32_t leaves = line.text == "post_only" ? life.quantity : 0;
        const bool right = line.executed == life.executed && line.leaves == leaves && line.last_quantity == 0;
        if (!right) wrong(line, "cum " + std::to_string(life.executed) + " leaves " + std::to_string(leaves));
    }

    void replace(const OrderLine& line, Life& life) {
        if (!is_of(line, life, line.original)) return;
        const bool right = line.executed == life.executed && line.quantity > life.executed &&
                           line.leaves == line.quantity - life.executed && line.last_quantity == 0;
        if (!right) wrong(line, "cum " + std::to_string(life.executed) + ", and leaves the rest of the new total");
        life.client_order_id = line.client_order_id;
        life.quantity = line.quantity;
        life.price = line.price;
    }

    void wrong(const OrderLine& line, const std::string& expected) {
        findings_.contradiction(bench_rule::order_life,
                                {.expected = expected,
                                 .got = line_text(line) + " in line " + std::to_string(line.line) + " of orders.jsonl",
                                 .where = {.moment = {line.t_ns, 0}, .order = std::string(line.client_order_id)}});
    }

    BenchFindings& findings_;
    std::unordered_map<std::uint64_t, Life> orders_;
    std::uint64_t last_id_ = 0;
};

}  // namespace

std::string line_text(const OrderLine& line) {
    std::string text = std::string(line.event) + " " + std::string(line.client_order_id);
    if (line.order_id != 0) text += " #" + std::to_string(line.order_id);
    text += " " + std::string(line.symbol) + " " + std::string(1, line.side) + " " + std::to_string(line.quantity) +
            "@" + price_of(line.price) + " cum " + std::to_string(line.executed) + " leaves " +
            std::to_string(line.leaves) + " last " + std::to_string(line.last_quantity);
    if (!line.text.empty()) text += " (" + std::string(line.text) + ")";
    if (!line.original.empty()) text += " for " + std::string(line.original);
    return text;
}

// An ambiguous line may be about any order, so nothing is said of lives from there on.
void audit_order_lives(const Journal& journal, BenchFindings& findings) {
    Lives lives(findings);
    for (const OrderLine& line : journal.orders) {
        if (line.ambiguous) return;
        lives.take(line);
    }
}

}  // namespace kavo::companion
