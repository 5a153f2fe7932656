// Order entry as plain records: the requests that clients send, the responses that the venue gives, and the letters
// that explain them. What the bytes look like is the layout's business.
#pragma once

#include <array>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "common/price.h"
#include "engine/id_hash.h"
#include "engine/meo_layout.h"

namespace kavo::meo {

// A client order id: at most 20 characters, never with a NUL inside, unique among live orders.
struct ClientOrderId {
    std::array<char, client_order_id_size> text{};  // filled up with NULs
    std::uint32_t hash = 0;                         // of the text

    ClientOrderId() = default;
    explicit ClientOrderId(std::string_view id) {
        id.copy(text.data(), text.size());
        hash = id_hash(words());
    }
    std::string_view view() const { return {text.data(), strnlen(text.data(), text.size())}; }
    std::string str() const { return std::string(view()); }
    bool empty() const { return text[0] == '\0'; }
    bool operator==(const ClientOrderId& other) const { return words() == other.words(); }

private:
    // Each word is read by itself. Copied as a whole, they would be read back across the seam of two writes, for which
    // the processor waits until both have reached the cache: behind every write before them, however long that takes.
    IdHash::Words words() const {
        std::uint64_t first = 0;
        std::uint64_t second = 0;
        std::uint32_t last = 0;
        std::memcpy(&first, text.data(), sizeof(first));
        std::memcpy(&second, text.data() + 8, sizeof(second));
        std::memcpy(&last, text.data() + 16, sizeof(last));
        return {first, second, last};
    }
};

// A participant code.
struct Mpid {
    std::array<char, mpid_size> text{' ', ' ', ' ', ' '};  // filled up with blanks

    Mpid() = default;
    explicit Mpid(std::string_view mpid) { mpid.copy(text.data(), text.size()); }
    std::string_view view() const { return {text.data(), text.size()}; }
    bool complete() const { return text.back() != ' '; }  // exactly four characters
    bool operator==(const Mpid&) const = default;
};

enum class TimeInForce : char {
    day = 'D',
    extended = 'E',
    fill_or_kill = 'F',
    immediate = 'I',
    regular = 'R',
    timed = 'T'
};
enum class OrderType : char { limit = '1', market = '2' };

// The bits of `order_flags` that mean something here.
struct OrderFlags {
    std::uint16_t bits = 0;

    bool sell() const { return (bits & 1) != 0; }
    unsigned short_sale() const { return bits >> 1 & 3; }  // not zero for a sell, zero for a buy
    bool post_only() const { return (bits >> 4 & 1) != 0; }
    unsigned attribution() const { return bits >> 8 & 3; }
};
inline constexpr unsigned attributed_to_participant = 1;
inline constexpr unsigned attributed_to_retail = 2;
inline constexpr std::string_view retail_attribution = "RTAL";

struct EchoFields {
    std::uint32_t a = 0;
    std::uint64_t b = 0;
    char c = 0;
    std::string_view text_a;
    std::string_view text_b;
    std::uint64_t d = 0;
    std::uint32_t e = 0;
    std::uint64_t f = 0;
    std::string_view text_c;
    char g = 0;
};

struct NewOrderRequest {
    Mpid mpid;
    ClientOrderId client_order_id;
    std::uint32_t product_id = 0;
    WirePrice price = 0;
    std::uint32_t quantity = 0;
    OrderFlags flags;
    TimeInForce tif = TimeInForce::day;
    OrderType order_type = OrderType::limit;
    EchoFields echo;                // its texts are views into the message
    std::uint64_t expire_time = 0;  // milliseconds since the Unix epoch
};

struct ReplaceRequest {
    Mpid mpid;
    ClientOrderId client_order_id;  // of the replacement
    ClientOrderId orig_client_order_id;
    std::uint32_t product_id = 0;
    WirePrice price = 0;
    std::uint32_t quantity = 0;  // new total size, what has executed included
    char echo = 0;
    TimeInForce tif = TimeInForce::day;
};

struct CancelRequest {
    Mpid mpid;
    ClientOrderId client_order_id;  // of the request itself
    ClientOrderId orig_client_order_id;
    std::uint32_t product_id = 0;
};

// The texts are lent by the message.
EchoFields read_echo(ByteView message, const layout::Echo& at);

// Nothing for another type and for a message that is too short; content is the engine's to judge. What lies behind the
// smallest size is ignored.
std::optional<NewOrderRequest> read_new_order(ByteView message);
std::optional<ReplaceRequest> read_replace(ByteView message);
std::optional<CancelRequest> read_cancel(ByteView message);

enum class NewOrderReason : char {
    accepted = ' ',
    unknown_product = 'S',
    no_client_order_id = 'O',
    invalid_mpid = 'I',
    no_quantity = 'K',
    quantity_above_maximum = 'M',
    invalid_order_type = 'T',
    invalid_price = 'J',
    invalid_tif = 'b',
    invalid_expire_time = '@',
    invalid_short_sale = 'V',
    duplicate_client_order_id = 'A',
    scripted = 'R',
};
enum class ReplaceReason : char {
    accepted = ' ',
    duplicate_client_order_id = 'A',
    mpid_mismatch = 'Q',
    invalid_price = 'J',
    no_quantity = 'K',
    scripted = 'H',
    unknown_or_late = 'D',
};
enum class CancelReason : char { accepted = ' ', mpid_mismatch = 'Q', product_mismatch = 'S', unknown_or_late = 'D' };
enum class SystemCancelReason : char {
    post_only = 'E',
    expired = 'C',
    client_request = 'U',
    disconnect = 'D',
    unsolicited = 'H',
};
enum class Liquidity : char { added = 'A', removed = 'R' };

// One response in bytes, with room for the longest; it lies in place, so that a list of them allocates nothing.
class Message {
public:
    explicit Message(std::size_t size) : size_(static_cast<std::uint8_t>(size)) { assert(size <= bytes_.size()); }
    MutableBytes bytes() { return MutableBytes(bytes_).first(size_); }
    ByteView bytes() const { return ByteView(bytes_).first(size_); }

private:
    std::array<std::uint8_t, longest_response> bytes_{};
    std::uint8_t size_;
    static_assert(longest_response <= 255);
};

// Timestamps are wall-clock nanoseconds since the Unix epoch. Prices given back as received may be any number; all
// others are inside prices, and leave as millionths.

struct NewOrderResponse {
    std::uint64_t timestamp;
    const NewOrderRequest& request;
    std::uint64_t order_id;  // 0 on a reject
    NewOrderReason reason;
};
struct OrderAccepted {
    std::uint64_t timestamp;
    const NewOrderRequest& request;
    std::uint64_t order_id;
};
struct OrderResting {
    std::uint64_t timestamp;
    std::uint32_t product_id;
    std::uint64_t order_id;
    const ClientOrderId& client_order_id;
    Price price;
    bool at_touch;  // no order of its side is better
};
struct Execution {
    std::uint64_t timestamp;
    Mpid mpid;
    std::uint32_t product_id;
    const ClientOrderId& client_order_id;
    std::uint64_t match_number;  // shared by both sides
    std::uint64_t execution_id;  // of this side alone
    Price price;
    std::uint32_t quantity;
    bool buy;
    Liquidity liquidity;
    char listing_market;
};
struct OrderCancelled {
    std::uint64_t timestamp;
    Mpid mpid;
    const ClientOrderId& client_order_id;
    std::uint32_t product_id;
    std::uint64_t order_id;
    std::uint32_t leaves;
    SystemCancelReason reason;
};
struct ReplaceResponse {
    std::uint64_t timestamp;
    const ReplaceRequest& request;
    std::uint64_t order_id;
    std::uint32_t leaves;
    ReplaceReason reason;
};
struct ReplaceNotification {
    std::uint64_t timestamp;
    const ReplaceRequest& request;
    std::uint32_t product_id;  // the order's own, whatever the request says
    std::uint64_t order_id;
    std::uint32_t leaves;
};
struct CancelResponse {
    std::uint64_t timestamp;
    const CancelRequest& request;
    std::uint64_t order_id;
    CancelReason reason;
};
struct StartOfSession {
    std::uint64_t timestamp;
    std::uint8_t session;
};
struct SymbolUpdate {
    std::uint64_t timestamp;
    std::uint32_t product_id;
    std::string_view symbol;  // cut at 11 characters
    char listing_market;
};

Message build(const NewOrderResponse& record);
Message build(const OrderAccepted& record);
Message build(const OrderResting& record);
Message build(const Execution& record);
Message build(const OrderCancelled& record);
Message build(const ReplaceResponse& record);
Message build(const ReplaceNotification& record);
Message build(const CancelResponse& record);
Message build(const StartOfSession& record);
Message build(const SymbolUpdate& record);

}  // namespace kavo::meo
