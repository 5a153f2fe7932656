// What can be meant by the value of a flag or of a key.
#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>

#include "kavo/bench/vocabulary.h"

namespace kavo::companion {

namespace {

constexpr std::size_t longest_symbol = 11;  // bytes on the wire; the simulator cuts what is longer
// Ten cents below the cheapest there are still prices; the dearest fit into ten-thousandths of 32 bits.
constexpr double lowest_price = 0.2;
constexpr double highest_price = 400'000;

// A number that is nothing but digits, and a minus where the type has one.
template <typename Number>
std::optional<Number> number(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::string unless_between(std::string_view value, std::int64_t lowest, std::int64_t highest) {
    const auto found = number<std::int64_t>(value);
    if (found && *found >= lowest && *found <= highest) return {};
    return "is no whole number from " + std::to_string(lowest) + " to " + std::to_string(highest);
}

std::string unless_decimal(std::string_view value, double highest, std::string_view otherwise) {
    const auto found = number<double>(value);
    return found && std::isfinite(*found) && *found >= 0 && *found <= highest ? "" : std::string(otherwise);
}

std::optional<std::uint32_t> ipv4(std::string_view text) {
    in_addr address{};
    if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) return std::nullopt;
    return ntohl(address.s_addr);
}

std::string unless_group(std::string_view value) {
    const auto address = ipv4(value);
    if (!address) return "is no address of four numbers, as 233.54.28.111 is";
    if (*address >> 28 == 14) return {};
    return "is no multicast group, 224.0.0.0 to 239.255.255.255: what is sent to one address is heard by one socket, "
           "and kavo listens beside the client";
}

std::string unless_burst(std::string_view value) {
    const std::size_t colon = value.find(':');
    const auto first = number<std::uint64_t>(value.substr(0, colon));
    const bool first_is_right = first && *first > 0;
    const auto length = colon == std::string_view::npos ? 1U : number<std::uint32_t>(value.substr(colon + 1));
    if (value.empty() || (first_is_right && length && *length > 0)) return {};
    return "is neither S nor S:L, the number of the first datagram to drop and how many, both from 1";
}

std::string unless_writable(std::string_view value) {
    if (value.empty()) return {};
    const std::filesystem::path file{value};
    const std::filesystem::path folder = std::filesystem::absolute(file).parent_path();
    std::error_code error;
    if (std::filesystem::is_directory(file, error)) return "is a folder, and must name a file";
    if (access(folder.c_str(), W_OK) == 0) return {};
    return "cannot be written: there is no folder " + folder.string() + ", or nobody may write in it";
}

std::string unless_symbol(std::string_view item) {
    const std::size_t colon = item.find(':');
    const std::string_view name = item.substr(0, colon);
    const std::string text(item);
    if (name.empty()) return "has a product without a name, '" + text + "': write NAME:PRICE";
    if (name.size() > longest_symbol) return "has the name '" + std::string(name) + "', longer than 11 bytes";
    if (colon == std::string_view::npos) return {};
    const auto price = number<double>(item.substr(colon + 1));
    if (price && *price >= lowest_price && *price <= highest_price) return {};
    return "has '" + text + "', whose price is no number from 0.2 to 400000";
}

// Item by item, as the simulator takes them: a comma at the end adds nothing.
template <typename Take>
void for_each_item(std::string_view list, Take take) {
    while (!list.empty()) {
        const std::size_t comma = std::min(list.find(','), list.size());
        take(list.substr(0, comma));
        list.remove_prefix(std::min(comma + 1, list.size()));
    }
}

std::string unless_symbols(std::string_view list) {
    std::string wrong;
    std::vector<std::string_view> names;
    for_each_item(list, [&](std::string_view item) {
        const std::string_view name = item.substr(0, item.find(':'));
        if (wrong.empty()) wrong = unless_symbol(item);
        const bool again = std::find(names.begin(), names.end(), name) != names.end();
        if (wrong.empty() && again) wrong = "has the name '" + std::string(name) + "' twice";
        names.push_back(name);
    });
    return wrong;
}

}  // namespace

std::string wrong_with(Kind kind, std::string_view value) {
    switch (kind) {
        case Kind::on_off:
        case Kind::word: return {};
        case Kind::group: return unless_group(value);
        case Kind::address: return ipv4(value) ? "" : "is no address of four numbers, as 127.0.0.1 is";
        case Kind::port: return unless_between(value, 0, std::numeric_limits<std::uint16_t>::max());
        case Kind::session: return unless_between(value, 1, std::numeric_limits<std::uint8_t>::max());
        case Kind::count: return unless_between(value, 0, std::numeric_limits<std::uint32_t>::max());
        case Kind::integer:
            return unless_between(value, std::numeric_limits<std::int32_t>::min(),
                                  std::numeric_limits<std::int32_t>::max());
        case Kind::scale:
            return unless_decimal(value, std::numeric_limits<double>::max(), "is no number of at least 0");
        case Kind::share: return unless_decimal(value, 1, "is no number from 0 to 1");
        case Kind::burst: return unless_burst(value);
        case Kind::path: return unless_writable(value);
        case Kind::symbols: return unless_symbols(value);
    }
    return {};
}

std::vector<std::string> symbol_names(std::string_view list) {
    std::vector<std::string> names;
    for_each_item(list, [&names](std::string_view item) { names.emplace_back(item.substr(0, item.find(':'))); });
    return names;
}

}  // namespace kavo::companion
