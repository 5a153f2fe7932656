// Tells what the client believes, one JSON object a line, so that it can be held against the truth.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

#include "client/received_book.h"
#include "common/price.h"

namespace trading {

class Beliefs {
public:
    // Appends to the file a line at a time, so that several clients can share it; an empty path says nothing. Throws
    // std::runtime_error when the file cannot be opened.
    Beliefs(const std::string& path, std::string user);

    struct OrderBelief {
        std::string_view id;
        std::string_view state;
        std::uint32_t leaves = 0;
        std::uint32_t executed = 0;
        std::uint64_t number = 0;  // of the last message of the stream that was applied
    };
    void tell(const OrderBelief& order);
    void tell_fill(std::string_view id, std::uint32_t quantity, kavo::WirePrice price, std::uint64_t execution);
    // The best ten levels, as they are behind the feed's message with this number.
    void tell_book(const kavo::client::ReceivedBook::Book& book, std::uint64_t number, bool stale);

private:
    void write(const std::string& rest);

    std::ofstream file_;
    std::string user_;
};

// 189950000 is "189.95": never less than two decimals, never a zero too many.
std::string decimal(kavo::WirePrice price);

}  // namespace trading
