#include "model/texts.h"

#include <limits>

namespace kavo::model {

namespace {

struct Number {
    bool negative = false;
    std::uint64_t magnitude = 0;
};

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

std::optional<Number> leading_number(std::string_view text) {
    Number number;
    while (!text.empty() && (text[0] == ' ' || (text[0] >= '\t' && text[0] <= '\r'))) text.remove_prefix(1);
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
        number.negative = text[0] == '-';
        text.remove_prefix(1);
    }
    if (text.empty() || !is_digit(text[0])) return std::nullopt;
    for (; !text.empty() && is_digit(text[0]); text.remove_prefix(1)) {
        const auto digit = static_cast<std::uint64_t>(text[0] - '0');
        if (number.magnitude > (std::numeric_limits<std::uint64_t>::max() - digit) / 10) return std::nullopt;
        number.magnitude = number.magnitude * 10 + digit;
    }
    return number;
}

}  // namespace

std::vector<std::string_view> comma_list(std::string_view text) {
    std::vector<std::string_view> items(1);
    std::size_t start = 0;
    for (std::size_t at = 0; at <= text.size(); ++at) {
        if (at < text.size() && text[at] != ',') continue;
        items.back() = text.substr(start, at - start);
        items.emplace_back();
        start = at + 1;
    }
    items.pop_back();
    if (items.back().empty()) items.pop_back();
    return items;
}

std::optional<std::uint64_t> leading_unsigned(std::string_view text) {
    const std::optional<Number> number = leading_number(text);
    if (!number) return std::nullopt;
    return number->negative ? 0 - number->magnitude : number->magnitude;
}

std::optional<std::int32_t> leading_int(std::string_view text) {
    const std::optional<Number> number = leading_number(text);
    constexpr std::uint64_t half = std::uint64_t{1} << 31;
    if (!number || number->magnitude > half || (number->magnitude == half && !number->negative)) return std::nullopt;
    const auto magnitude = static_cast<std::int64_t>(number->magnitude);
    return static_cast<std::int32_t>(number->negative ? -magnitude : magnitude);
}

}  // namespace kavo::model
