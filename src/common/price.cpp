#include "common/price.h"

#include <charconv>

#include "common/text.h"

namespace kavo {

namespace {

constexpr Price largest_six_digits = 999'999;

// Exactly as many decimals as asked for; the fraction is given in units of the last of them.
void append_decimals(std::string& out, Price whole, Price fraction, int decimals) {
    append_number(out, whole);
    if (decimals == 0) return;
    out += '.';
    const std::size_t end = out.size() + static_cast<std::size_t>(decimals);
    out.resize(end);
    for (std::size_t at = end; decimals-- > 0; fraction /= 10) out[--at] = static_cast<char>('0' + fraction % 10);
}

}  // namespace

void append_short_price(std::string& out, Price price) {
    Price digits = price;
    Price unit = price_unit;
    int decimals = 4;
    while (decimals > 0 && digits % 10 == 0) {
        digits /= 10;
        unit /= 10;
        --decimals;
    }
    if (digits <= largest_six_digits) return append_decimals(out, digits / unit, digits % unit, decimals);
    // More than six digits must be rounded, and a half rounds as the nearest double does: left to the library.
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, price / double{price_unit}, std::chars_format::general, 6);
    out.append(text, end.ptr);
}

void append_fixed_price(std::string& out, Price price) {
    append_decimals(out, price / price_unit, price % price_unit, 4);
}

}  // namespace kavo
