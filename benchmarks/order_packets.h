// The packets of a client that enters orders which rest, and cancels them: made once, and sent again with another
// number. Orders lie on twenty levels a side, ten dollars off a market around 190, so that none of them trades.
#pragma once

#include <cstdint>
#include <string_view>

#include "common/bytes.h"

namespace kavo::benchmarks {

inline constexpr double reference_price = 190.0;  // of the products, currency units

class OrderPackets {
public:
    // Every client needs letters of its own.
    explicit OrderPackets(std::string_view four_letters);

    // Whole packets, valid until the next call of the same function.
    ByteView new_order(std::uint64_t number);
    ByteView cancel(std::uint64_t number);

private:
    std::string_view letters_;
    Bytes new_order_;
    Bytes cancel_;
};

}  // namespace kavo::benchmarks
