#include "order_packets.h"

#include "client/requests.h"
#include "common/price.h"
#include "engine/meo_layout.h"
#include "ids.h"
#include "session/esesm.h"

namespace kavo::benchmarks {

namespace {

constexpr WirePrice best_bid = 180'000'000;
constexpr WirePrice best_ask = 200'000'000;
constexpr std::uint64_t levels_a_side = 20;
constexpr std::uint16_t sell_short = 0x0003;
constexpr std::size_t header_size = esesm::layout::packet::header_size;

Bytes request_packet(ByteView message) {
    return esesm::build_packet(esesm::PacketType::unsequenced_data, message);
}

}  // namespace

OrderPackets::OrderPackets(std::string_view four_letters)
    : letters_(four_letters),
      new_order_(request_packet(client::buy("").bytes())),
      cancel_(request_packet(client::cancel("").bytes())) {}

// Side and level change from one order to the next, so that neighbours in time are no neighbours on the book.
ByteView OrderPackets::new_order(std::uint64_t number) {
    namespace at = meo::layout::new_order;
    const MutableBytes message = MutableBytes(new_order_).subspan(header_size);
    const bool buy = number % 2 == 0;
    const WirePrice distance = number / 2 * 7 % levels_a_side * wire_cent;
    put_text(message, at::client_order_id, text_of(make_id(letters_, number)), ' ');
    put(message, at::price, buy ? best_bid - distance : best_ask + distance);
    put(message, at::order_flags, buy ? std::uint16_t{0} : sell_short);
    return new_order_;
}

ByteView OrderPackets::cancel(std::uint64_t number) {
    namespace at = meo::layout::cancel;
    const MutableBytes message = MutableBytes(cancel_).subspan(header_size);
    put_text(message, at::orig_client_order_id, text_of(make_id(letters_, number)), ' ');
    put_text(message, at::client_order_id, text_of(make_id("CNCL", number)), ' ');
    return cancel_;
}

}  // namespace kavo::benchmarks
