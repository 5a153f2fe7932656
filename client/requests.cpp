#include "client/requests.h"

#include <cmath>

#include "engine/meo_layout.h"
#include "session/esesm.h"

namespace kavo::client {

namespace {

// One request with one thing changed, so that scenes read as sentences.
template <typename Request, typename Change>
Request with(Request request, Change change) {
    change(request);
    return request;
}

constexpr std::uint16_t sell_bit = 1;
constexpr std::uint16_t short_sale_bits = 1 << 1;
constexpr std::uint16_t post_only_bit = 1 << 4;

}  // namespace

WirePrice wire_price(std::string_view text) {
    return static_cast<WirePrice>(std::llround(std::stod(std::string(text)) * 1'000'000));
}

NewOrder buy(std::string_view client_order_id) {
    return with(NewOrder{}, [&](NewOrder& o) { o.client_order_id = client_order_id; });
}
NewOrder sell(std::string_view client_order_id) {
    return buy(client_order_id).flags(sell_bit | short_sale_bits);
}
NewOrder NewOrder::shares(std::uint32_t count) const {
    return with(*this, [&](NewOrder& o) { o.quantity = count; });
}
NewOrder NewOrder::at(std::string_view limit) const {
    return with(*this, [&](NewOrder& o) { o.price = wire_price(limit); });
}
NewOrder NewOrder::market() const {
    return with(*this, [](NewOrder& o) {
        o.order_type = '2';
        o.price = 0;
    });
}
NewOrder NewOrder::immediate() const {
    return time_in_force('I');
}
NewOrder NewOrder::all_or_nothing() const {
    return time_in_force('F');
}
NewOrder NewOrder::post_only() const {
    return flags(post_only_bit);
}
NewOrder NewOrder::product(std::uint32_t id) const {
    return with(*this, [&](NewOrder& o) { o.product_id = id; });
}
NewOrder NewOrder::participant(std::string_view code) const {
    return with(*this, [&](NewOrder& o) { o.mpid = code; });
}
NewOrder NewOrder::flags(std::uint16_t more) const {
    return with(*this, [&](NewOrder& o) { o.order_flags = static_cast<std::uint16_t>(o.order_flags | more); });
}
NewOrder NewOrder::time_in_force(char letter) const {
    return with(*this, [&](NewOrder& o) { o.tif = letter; });
}
NewOrder NewOrder::expires(std::uint64_t ms) const {
    return with(*this, [&](NewOrder& o) { o.expire_time = ms; });
}

Bytes NewOrder::bytes() const {
    namespace at = meo::layout::new_order;
    Bytes message(at::min_size);
    put_text(message, meo::layout::type, "N1", '\0');
    put_text(message, at::mpid, mpid, ' ');
    put_text(message, at::client_order_id, client_order_id, ' ');
    put(message, at::product_id, product_id);
    put(message, at::price, price);
    put(message, at::quantity, quantity);
    put(message, at::order_flags, order_flags);
    put(message, at::tif, tif);
    put(message, at::order_type, order_type);
    put(message, at::expire_time, expire_time);
    return message;
}

Replace replace(std::string_view orig_client_order_id, std::string_view client_order_id) {
    return with(Replace{}, [&](Replace& r) {
        r.orig_client_order_id = orig_client_order_id;
        r.client_order_id = client_order_id;
    });
}
Replace Replace::shares(std::uint32_t total) const {
    return with(*this, [&](Replace& r) { r.quantity = total; });
}
Replace Replace::at(std::string_view limit) const {
    return with(*this, [&](Replace& r) { r.price = wire_price(limit); });
}
Replace Replace::participant(std::string_view code) const {
    return with(*this, [&](Replace& r) { r.mpid = code; });
}
Replace Replace::time_in_force(char letter) const {
    return with(*this, [&](Replace& r) { r.tif = letter; });
}

Bytes Replace::bytes() const {
    namespace at = meo::layout::replace;
    Bytes message(at::min_size);
    put_text(message, meo::layout::type, "M1", '\0');
    put_text(message, at::mpid, mpid, ' ');
    put_text(message, at::client_order_id, client_order_id, ' ');
    put_text(message, at::orig_client_order_id, orig_client_order_id, ' ');
    put(message, at::product_id, product_id);
    put(message, at::price, price);
    put(message, at::quantity, quantity);
    put(message, at::echo, echo);
    put(message, at::tif, tif);
    return message;
}

Cancel cancel(std::string_view orig_client_order_id) {
    return with(Cancel{}, [&](Cancel& c) {
        c.orig_client_order_id = orig_client_order_id;
        c.client_order_id = "x" + std::string(orig_client_order_id);
    });
}
Cancel Cancel::product(std::uint32_t id) const {
    return with(*this, [&](Cancel& c) { c.product_id = id; });
}
Cancel Cancel::participant(std::string_view code) const {
    return with(*this, [&](Cancel& c) { c.mpid = code; });
}

Bytes Cancel::bytes() const {
    namespace at = meo::layout::cancel;
    Bytes message(at::min_size);
    put_text(message, meo::layout::type, "CO", '\0');
    put_text(message, at::mpid, mpid, ' ');
    put_text(message, at::client_order_id, client_order_id, '\0');
    put_text(message, at::orig_client_order_id, orig_client_order_id, '\0');
    put(message, at::product_id, product_id);
    return message;
}

Login login(std::string_view username, std::uint64_t requested_sequence) {
    return with(Login{}, [&](Login& l) {
        l.username = username;
        l.requested_sequence = requested_sequence;
    });
}

Bytes Login::payload() const {
    namespace at = esesm::layout::login_request;
    Bytes payload(at::min_size + matching_engine_count * at::entry::size);
    put_text(payload, at::session_protocol_version, session_protocol, ' ');
    put_text(payload, at::username, username, ' ');
    put_text(payload, at::computer_id, computer_id, ' ');
    put_text(payload, at::application_protocol_version, application_protocol, ' ');
    put(payload, at::matching_engine_count, matching_engine_count);
    if (matching_engine_count == 0) return payload;
    const MutableBytes entry = MutableBytes(payload).subspan(at::min_size, at::entry::size);
    put(entry, at::entry::matching_engine_id, matching_engine_id);
    put(entry, at::entry::requested_sequence, requested_sequence);
    return payload;
}

}  // namespace kavo::client
