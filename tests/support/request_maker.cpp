#include "support/request_maker.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "model/fields.h"

namespace kavo::model {
namespace {

constexpr std::uint64_t ids_of_a_seat = 120;  // few enough that ids are used again and again
constexpr int tries_for_an_id = 12;
constexpr std::uint64_t nanoseconds_in_a_millisecond = 1'000'000;

// Whole cents all the same, but more than 32 bits of ten-thousandths.
constexpr std::uint64_t wraps_to_nothing = 10'737'418'240'000;
constexpr std::uint64_t wraps_between_cents = 429'496'730'000;
constexpr std::uint64_t most_cents = 42'949'672;  // that 32 bits of ten-thousandths hold

template <typename... Values>
std::string format(const char* pattern, Values... values) {
    char text[256];
    std::snprintf(text, sizeof text, pattern, values...);
    return text;
}

}  // namespace

Request RequestMaker::next() {
    const std::uint64_t choice = below(100);
    Request request = choice < 55 ? new_order() : choice < 77 ? replace() : cancel();
    if (one_in(400)) spoil(request);
    return request;
}

int RequestMaker::drop_client() {
    int& seat = seats_[below(seats_.size())];
    const int dropped = seat;
    seat = next_handle_++;
    return dropped;
}

Request RequestMaker::new_order() {
    const std::size_t seat = below(seats_.size());
    const auto product_id = static_cast<std::uint32_t>(one_in(100) ? pick<std::uint64_t>({0, 4, 0xffffffff})
                                                                   : 1 + below(venue_.books.products.size()));
    const bool sell = one_in(2);
    const char order_type = one_in(150) ? pick<char>({'0', '3', '\0'}) : one_in(8) ? '2' : '1';
    std::uint64_t price = order_type == '2' ? 0 : price_near(product_id, !sell);
    if (one_in(wraps_prices ? 10 : 60)) price = odd_price(price);
    const std::uint32_t shares = wraps_prices && one_in(8) ? 25000 : size();  // enough to empty a side
    const std::uint16_t order_flags = flags(sell);
    const char time_in_force = tif();
    const std::string id = new_id(seat);
    const std::string participant = mpid(seat);

    Bytes message = random_bytes(131 + (one_in(10) ? below(9) : 0));
    put_text(message, 0, "N1");
    put_text(message, 10, participant);
    put_id(message, 14, id);
    put(message, 34, 4, product_id);
    put(message, 38, 8, price);
    put(message, 46, 4, shares);
    put(message, 50, 2, order_flags);
    put(message, 52, 1, static_cast<std::uint8_t>(time_in_force));
    put(message, 53, 1, static_cast<std::uint8_t>(order_type));
    put_echo_texts(message);
    put(message, 112, 8, expire_time(time_in_force));
    return {seats_[seat], message,
            format("N1 client %d id '%s' mpid '%s' product %u %s %u @ %llu flags %#x tif %c type %c", seats_[seat],
                   id.c_str(), participant.c_str(), product_id, sell ? "sell" : "buy", shares,
                   static_cast<unsigned long long>(price), order_flags, time_in_force, order_type)};
}

Request RequestMaker::replace() {
    const std::size_t seat = below(seats_.size());
    const std::string orig = id_to_change(seat);
    const std::string id = one_in(40) ? orig : one_in(60) ? std::string() : new_id(seat);
    const std::string participant = mpid(seat);
    std::uint32_t product_id = static_cast<std::uint32_t>(1 + below(venue_.books.products.size()));
    std::uint64_t price = price_near(product_id, one_in(2));
    std::uint32_t shares = size();
    if (const auto live = venue_.live_ids.find(orig); live != venue_.live_ids.end()) {
        const Order& order = venue_.books.resting.at(live->second);
        product_id = order.product_id;
        price = one_in(3) ? static_cast<std::uint64_t>(order.price) * 100 : price_near(product_id, order.buy);
        const std::uint32_t done = order.executed;
        if (one_in(3)) shares = done + static_cast<std::uint32_t>(below(order.leaves + 2));
        if (one_in(12)) shares = done;
    }
    if (one_in(wraps_prices ? 10 : 60)) price = odd_price(price);
    const char time_in_force = one_in(100) ? '?' : tif();

    Bytes message = random_bytes(111 + (one_in(10) ? below(9) : 0));
    put_text(message, 0, "M1");
    put_text(message, 10, participant);
    put_id(message, 14, id);
    put_id(message, 34, orig);
    if (one_in(2)) put(message, 54, 4, product_id);
    put(message, 58, 8, price);
    put(message, 66, 4, shares);
    put(message, 83, 1, static_cast<std::uint8_t>(time_in_force));
    return {seats_[seat], message,
            format("M1 client %d id '%s' for '%s' mpid '%s' %u @ %llu tif %c", seats_[seat], id.c_str(), orig.c_str(),
                   participant.c_str(), shares, static_cast<unsigned long long>(price), time_in_force)};
}

Request RequestMaker::cancel() {
    const std::size_t seat = below(seats_.size());
    const std::string orig = id_to_change(seat);
    const std::string participant = mpid(seat);
    auto product_id = static_cast<std::uint32_t>(below(venue_.books.products.size() + 2));
    if (const auto live = venue_.live_ids.find(orig); live != venue_.live_ids.end() && !one_in(40)) {
        product_id = venue_.books.resting.at(live->second).product_id;
    }

    Bytes message = random_bytes(68 + (one_in(10) ? below(9) : 0));
    put_text(message, 0, "CO");
    put_text(message, 10, participant);
    put_id(message, 14, any_id(seat));
    put_id(message, 34, orig);
    put(message, 54, 4, product_id);
    return {seats_[seat], message,
            format("CO client %d for '%s' mpid '%s' product %u", seats_[seat], orig.c_str(), participant.c_str(),
                   product_id)};
}

// Bytes that mean nothing to the venue must not move it, so what a request does not fill in is noise.
Bytes RequestMaker::random_bytes(std::size_t size) {
    Bytes bytes(size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random_());
    return bytes;
}

// Padding comes as blanks, as NULs, as blanks and then NULs, or as one NUL and then whatever was in the memory.
void RequestMaker::put_id(Bytes& message, std::size_t at, const std::string& id) {
    const std::uint64_t padding = below(4);
    for (std::size_t i = id.size(); i < 20 && padding < 3; ++i) {
        const bool blank = padding == 0 || (padding == 2 && i < 17);
        message.at(at + i) = blank ? ' ' : '\0';
    }
    if (padding == 3 && id.size() < 20) message.at(at + id.size()) = '\0';
    put_text(message, at, id);
}

// Texts that the acceptance gives back, cut at their first NUL and without their trailing blanks.
void RequestMaker::put_echo_texts(Bytes& message) {
    const std::string cut_short("x\0yyyyyyyyyyyyyy", 16);
    if (one_in(2)) put_text(message, 67, pick<std::string>({"account  7      ", std::string(16, '\0'), cut_short}));
    if (one_in(2)) put_text(message, 83, pick<std::string>({"ab  ", std::string(4, '\0'), "    "}));
    if (one_in(2)) put_text(message, 107, pick<std::string>({" abc", std::string("a\0bc", 4), "abcd"}));
}

// Cut short or of a type that is nobody's: the venue must not even begin to handle it.
void RequestMaker::spoil(Request& request) {
    if (one_in(2)) {
        const std::size_t smallest = request.message[0] == 'N' ? 131 : request.message[0] == 'M' ? 111 : 68;
        request.message.resize(smallest - 1);
    } else {
        request.message[1] = '?';
    }
    request.text = "spoiled " + request.text;
}

std::string RequestMaker::any_id(std::size_t seat) {
    if (one_in(60)) return odd_id();
    return format("c%zu-%llu", seat, static_cast<unsigned long long>(below(ids_of_a_seat)));
}

std::string RequestMaker::odd_id() {
    return pick<std::string>({"", "twenty-characters-id", "twenty-characters-ID", " leading blank", "inner blank",
                              "quote\"quote", "\\", "\xff\xfe", "z"});
}

std::string RequestMaker::new_id(std::size_t seat) {
    if (one_in(30)) return any_id(seat);
    std::string id = any_id(seat);
    for (int i = 0; i < tries_for_an_id && venue_.live_ids.contains(id); ++i) id = any_id(seat);
    return id;
}

// The id of an order that a request wants to change: mostly the sender's own, now and then somebody else's or nobody's.
std::string RequestMaker::id_to_change(std::size_t seat) {
    if (one_in(10)) return any_id(seat);
    const int owner = seats_[one_in(20) ? below(seats_.size()) : seat];
    std::string id = any_id(seat);
    for (int i = 0; i < tries_for_an_id && !is_open_order_of(owner, id); ++i) id = any_id(seat);
    return id;
}

bool RequestMaker::is_open_order_of(int owner, const std::string& id) const {
    const auto live = venue_.live_ids.find(id);
    return live != venue_.live_ids.end() && venue_.books.resting.at(live->second).owner == owner;
}

std::string RequestMaker::mpid(std::size_t seat) {
    if (one_in(80)) return pick<std::string>({"AB  ", std::string("A\0B ", 4), std::string(4, '\0'), "    ", "ABC "});
    if (one_in(60)) return std::string("A\0CD", 4);
    return std::string("FRM").append(std::to_string(one_in(40) ? below(seats_.size()) : seat));
}

std::uint64_t RequestMaker::price_near(std::uint32_t product_id, bool buy) {
    const std::size_t index = product_id == 0 || product_id > venue_.books.products.size() ? 0 : product_id - 1;
    const std::int64_t mid_cents = std::llround(venue_.books.products[index].reference * 100.0);
    std::int64_t through = static_cast<std::int64_t>(below(10)) - 4;  // cents beyond the mid; mostly behind it
    through -= static_cast<std::int64_t>(below(8));
    const std::int64_t cents = std::max<std::int64_t>(1, buy ? mid_cents + through : mid_cents - through);
    return static_cast<std::uint64_t>(cents) * 10000;
}

// Prices that are none, prices that sweep the book, and prices with more digits than a truth line writes out.
std::uint64_t RequestMaker::odd_price(std::uint64_t price) {
    if (wraps_prices && one_in(2)) {
        return pick<std::uint64_t>({wraps_to_nothing, wraps_to_nothing + price, wraps_between_cents + price});
    }
    if (one_in(2)) return pick<std::uint64_t>({0, price + 500, price + 1, ~std::uint64_t{0}});
    return one_in(2) ? pick<std::uint64_t>({10'000, 100'000'500'000, 429'496'720'000})
                     : 10'000 * (1 + below(most_cents));
}

std::uint32_t RequestMaker::size() {
    if (one_in(60)) return pick<std::uint32_t>({0, 25000, 25001, 0xffffffff});
    if (one_in(4)) return static_cast<std::uint32_t>(1 + below(700));
    return pick<std::uint32_t>({1, 2, 3, 50, 100, 100, 150, 200, 250, 300, 400, 1000, 2500});
}

std::uint16_t RequestMaker::flags(bool sell) {
    std::uint64_t bits = sell ? 1 : 0;
    if (sell != one_in(60)) bits |= (1 + below(3)) << 1;
    if (one_in(8)) bits |= 0x10;
    bits |= below(4) << 8;
    if (one_in(4)) bits |= random_() & 0xfce8;  // bits that mean nothing here
    return static_cast<std::uint16_t>(bits);
}

char RequestMaker::tif() {
    if (one_in(100)) return pick<char>({'X', ' ', '\0', 'd'});
    return one_in(2) ? 'D' : pick<char>({'E', 'F', 'F', 'I', 'I', 'R', 'T'});
}

std::uint64_t RequestMaker::expire_time(char tif) {
    const std::uint64_t now = world_.wall_ns / nanoseconds_in_a_millisecond;
    if (tif != 'T') return one_in(100) ? now + 1000 : 0;
    return one_in(6) ? pick<std::uint64_t>({0, now - 1, now}) : now + 1 + below(1000);
}

}  // namespace kavo::model
