// A price inside the books is an unsigned count of ten-thousandths of the currency unit; on the wire it is a count of
// millionths. The step between the two is here and nowhere else, and so is the decimal that people read.
#pragma once

#include <cstdint>
#include <string>

namespace kavo {

using Price = std::uint32_t;      // ten-thousandths; 0 is no price (a market order)
using WirePrice = std::uint64_t;  // millionths

inline constexpr Price price_unit = 10'000;                      // one currency unit
inline constexpr Price price_cent = 100;                         // one cent
inline constexpr WirePrice wire_scale = 100;                     // millionths in a ten-thousandth
inline constexpr WirePrice wire_cent = price_cent * wire_scale;  // limit prices are whole multiples of it

constexpr WirePrice to_wire(Price price) {
    return WirePrice{price} * wire_scale;
}
// Kept to 32 bits: a wire price beyond 429,496.7295 wraps.
constexpr Price from_wire(WirePrice price) {
    return static_cast<Price>(price / wire_scale);
}

// Appends price / 10000 as a decimal number.
//   append_short_price  at most six significant digits, no trailing zeros: 190.05, 190, 0
//   append_fixed_price  exactly four decimals: 190.0500
void append_short_price(std::string& out, Price price);
void append_fixed_price(std::string& out, Price price);

}  // namespace kavo
