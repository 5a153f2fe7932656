// The books of all products, rebuilt from the feed, for millions of messages: levels in plain vectors, and no price but
// the books' own.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/bytes.h"
#include "kavo/journal/journal.h"

namespace kavo::companion {

// One side of a book, best level last.
class FlatSide {
public:
    explicit FlatSide(bool buy) : buy_(buy) {}

    void add(std::uint32_t price, std::uint32_t quantity);
    void take(std::uint32_t price, std::uint32_t quantity);
    void clear() { levels_.clear(); }

    // True when these are the best levels, ten at most, best first.
    bool shows(const std::vector<BookLevel>& best) const;
    std::string text() const;  // of the best ten

private:
    std::vector<BookLevel>::iterator find(std::uint32_t price);

    bool buy_;
    std::vector<BookLevel> levels_;
};

class FlatBooks {
public:
    struct Product {
        FlatSide bids{true};
        FlatSide asks{false};
        std::uint64_t resting = 0;
        std::string symbol;  // as the feed defines it
        // Something about it is missing from the recording, so nothing is known of it until it has been learned anew.
        bool uncertain = false;

        FlatSide& side(bool buy) { return buy ? bids : asks; }
    };

    // What a message did. A message that does not fit the book is told as `wrong`, in words.
    struct Change {
        std::uint32_t product_id = 0;  // 0: of none
        std::uint64_t match_number = 0;
        std::uint32_t quantity = 0;  // of a trade
        std::uint64_t price = 0;     // millionths
        std::uint64_t order_id = 0;
        const char* wrong = nullptr;
    };
    Change apply(ByteView message);

    Product& product(std::uint32_t id);
    void make_all_uncertain();

    // True when these Add Orders are exactly what rests, uncertain products left out.
    bool rests(const std::vector<ByteView>& orders) const;
    // Takes the uncertain products from there.
    void learn(const std::vector<ByteView>& orders);

private:
    struct Resting {
        std::uint32_t product_id = 0;
        std::uint32_t price = 0;
        std::uint32_t quantity = 0;
        bool buy = false;
    };
    using Orders = std::unordered_map<std::uint64_t, Resting>;

    Change add(ByteView message);
    Change modify(ByteView message);
    Change remove(ByteView message);
    Change execute(ByteView message);
    // The order of a message; none leaves the words in `change`.
    Orders::iterator find(ByteView message, Change& change);
    void put(std::uint64_t id, const Resting& order);
    void take_off(const Resting& order);

    Orders orders_;
    std::unordered_map<std::uint32_t, Product> products_;
    bool unknown_beginning_ = false;  // a product that is heard of for the first time is uncertain
};

}  // namespace kavo::companion
