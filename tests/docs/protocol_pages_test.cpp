// The offset tables and the vocabularies of the protocol pages are those of the code.
#include <gtest/gtest.h>

#include <algorithm>

#include "engine/meo.h"
#include "feed/dom_layout.h"
#include "feed/mach.h"
#include "feed/retransmission.h"
#include "page.h"
#include "session/esesm.h"

namespace kavo::docs {
namespace {

// A message, as a page describes it and as the code lays it out.
struct Field {
    std::string name;
    std::size_t offset = 0;
    std::size_t width = 0;
};
struct Layout {
    std::string message;
    std::size_t size = 0;
    std::vector<Field> fields;
};
using Layouts = std::vector<Layout>;

//   names  "type, at::mpid, at::echo.a": what stands before the last colon is not part of a name
template <typename... LayoutFields>
std::vector<Field> named(std::string_view names, LayoutFields... layout_fields) {
    std::vector<Field> fields{{"", layout_fields.at, layout_fields.size}...};
    for (Field& field : fields) {
        std::string_view name = names.substr(0, names.find(", "));
        names.remove_prefix(std::min(name.size() + 2, names.size()));
        field.name = name.substr(name.rfind(':') + 1);
    }
    return fields;
}
// A macro, because nothing else knows what a field is called in the code, and the pages call it the same.
#define FIELDS(...) named(#__VA_ARGS__, __VA_ARGS__)

// A line for each message and for each field, so that a failure shows the very line that differs.
std::string text_of(const Layouts& layouts) {
    std::string text;
    for (const Layout& layout : layouts) {
        text += layout.message + ", " + std::to_string(layout.size) + " bytes\n";
        for (const Field& field : layout.fields) {
            text += "    " + std::to_string(field.offset) + " " + std::to_string(field.width) + " " + field.name + "\n";
        }
    }
    return text;
}

// The number that a text ends with; 0 when it ends otherwise.
std::size_t number_at_end(std::string_view text) {
    const std::size_t start = text.find_last_not_of("0123456789") + 1;
    return start == text.size() ? 0 : std::stoul(std::string(text.substr(start)));
}

// Every table of a page whose first column is the offset.
Layouts layouts_on(const std::string& page) {
    Layouts layouts;
    for (const std::vector<Table> tables = tables_on(page); const Table& table : tables) {
        const std::vector<std::string> offsets = table.column("Offset");
        if (offsets.empty()) continue;
        const std::vector<std::string> widths = table.column("Width");
        const std::vector<std::string> names = table.column("Field");
        Layout& layout = layouts.emplace_back();
        layout.message = unquoted(table.heading);
        layout.size = number_at_end(table.heading.substr(0, table.heading.find(" byte")));
        for (std::size_t i = 0; i < offsets.size(); ++i) {
            layout.fields.push_back({names.at(i), number_at_end(offsets[i]), number_at_end(widths.at(i))});
        }
    }
    return layouts;
}

// The characters that `known` recognises, in ascending order and quoted as the pages quote them.
template <typename Letter>
std::vector<std::string> letters(bool (*known)(Letter)) {
    std::vector<std::string> quoted;
    for (char c = 0; c < 127; ++c) {
        if (known(static_cast<Letter>(c))) quoted.push_back(std::string("'") + c + "'");
    }
    return quoted;
}

std::vector<std::string> sorted(std::vector<std::string> words) {
    std::sort(words.begin(), words.end());
    return words;
}

// Switches over an enumeration name all of it, or they do not compile.
bool is_packet_type(esesm::PacketType type) {
    switch (type) {
        case esesm::PacketType::login_request:
        case esesm::PacketType::login_response:
        case esesm::PacketType::logout_request:
        case esesm::PacketType::goodbye:
        case esesm::PacketType::server_heartbeat:
        case esesm::PacketType::client_heartbeat:
        case esesm::PacketType::client_test:
        case esesm::PacketType::sequenced_data:
        case esesm::PacketType::unsequenced_data:
        case esesm::PacketType::replay_complete:
        case esesm::PacketType::retransmission_request: return true;
    }
    return false;
}

bool is_new_order_reason(meo::NewOrderReason reason) {
    switch (reason) {
        case meo::NewOrderReason::accepted:
        case meo::NewOrderReason::unknown_product:
        case meo::NewOrderReason::no_client_order_id:
        case meo::NewOrderReason::invalid_mpid:
        case meo::NewOrderReason::no_quantity:
        case meo::NewOrderReason::quantity_above_maximum:
        case meo::NewOrderReason::invalid_order_type:
        case meo::NewOrderReason::invalid_price:
        case meo::NewOrderReason::invalid_tif:
        case meo::NewOrderReason::invalid_expire_time:
        case meo::NewOrderReason::invalid_short_sale:
        case meo::NewOrderReason::duplicate_client_order_id:
        case meo::NewOrderReason::scripted: return true;
    }
    return false;
}

bool is_replace_reason(meo::ReplaceReason reason) {
    switch (reason) {
        case meo::ReplaceReason::accepted:
        case meo::ReplaceReason::duplicate_client_order_id:
        case meo::ReplaceReason::mpid_mismatch:
        case meo::ReplaceReason::invalid_price:
        case meo::ReplaceReason::no_quantity:
        case meo::ReplaceReason::scripted:
        case meo::ReplaceReason::unknown_or_late: return true;
    }
    return false;
}

bool is_cancel_reason(meo::CancelReason reason) {
    switch (reason) {
        case meo::CancelReason::accepted:
        case meo::CancelReason::mpid_mismatch:
        case meo::CancelReason::product_mismatch:
        case meo::CancelReason::unknown_or_late: return true;
    }
    return false;
}

bool is_system_cancel_reason(meo::SystemCancelReason reason) {
    switch (reason) {
        case meo::SystemCancelReason::post_only:
        case meo::SystemCancelReason::expired:
        case meo::SystemCancelReason::client_request:
        case meo::SystemCancelReason::disconnect:
        case meo::SystemCancelReason::unsolicited: return true;
    }
    return false;
}

bool is_refresh_type(RefreshType type) {
    switch (type) {
        case RefreshType::all:
        case RefreshType::definitions:
        case RefreshType::system_state:
        case RefreshType::trading_status: return true;
    }
    return false;
}

Layouts esesm_layouts() {
    namespace at = esesm::layout;
    namespace request = at::login_request;
    namespace response = at::login_response;
    return {
        {"packet", at::packet::header_size, FIELDS(at::packet::length, at::packet::type)},
        {"sequenced_packet", at::sequenced_packet::header_size,
         FIELDS(at::packet::length, at::packet::type, at::sequenced_packet::sequence,
                at::sequenced_packet::matching_engine_id)},
        {"login_request", request::min_size,
         FIELDS(request::session_protocol_version, request::username, request::computer_id,
                request::application_protocol_version, request::matching_engine_count)},
        {"login_request entry", request::entry::size,
         FIELDS(request::entry::matching_engine_id, request::entry::requested_sequence)},
        {"login_response", response::min_size, FIELDS(response::entry_count)},
        {"login_response entry", response::entry::size,
         FIELDS(response::entry::login_status, response::entry::matching_engine_id, response::entry::highest_sequence)},
        {"goodbye", at::goodbye::min_size, FIELDS(at::goodbye::goodbye_reason)},
    };
}

using meo::layout::timestamp;
using meo::layout::type;

Layout new_order() {
    namespace at = meo::layout::new_order;
    return {"N1", at::min_size,
            FIELDS(type, at::unread, at::mpid, at::client_order_id, at::product_id, at::price, at::quantity,
                   at::order_flags, at::tif, at::order_type, at::echo.a, at::echo.b, at::echo.c, at::echo.text_a,
                   at::echo.text_b, at::echo.d, at::echo.e, at::echo.f, at::echo.text_c, at::echo.g, at::expire_time,
                   at::tail)};
}

Layout replace() {
    namespace at = meo::layout::replace;
    return {"M1", at::min_size,
            FIELDS(type, at::unread, at::mpid, at::client_order_id, at::orig_client_order_id, at::product_id, at::price,
                   at::quantity, at::echo, at::not_interpreted, at::tif, at::tail)};
}

Layout cancel() {
    namespace at = meo::layout::cancel;
    return {
        "CO", at::min_size,
        FIELDS(type, at::unread, at::mpid, at::client_order_id, at::orig_client_order_id, at::product_id, at::tail)};
}

Layout new_order_response() {
    namespace at = meo::layout::new_order_response;
    return {"NR", at::size,
            FIELDS(type, timestamp, at::mpid, at::client_order_id, at::product_id, at::order_id, at::price,
                   at::quantity, at::reason, at::reserved)};
}

Layout order_accepted() {
    namespace at = meo::layout::order_accepted;
    return {"O1", at::size,
            FIELDS(type, timestamp, at::mpid, at::order_id, at::client_order_id, at::product_id, at::price,
                   at::quantity, at::order_flags, at::tif, at::order_type, at::echo.a, at::echo.b, at::echo.c,
                   at::echo.text_a, at::echo.text_b, at::echo.d, at::echo.e, at::echo.f, at::echo.text_c, at::echo.g,
                   at::echo_c_again, at::expire_time, at::reserved)};
}

Layout order_resting() {
    namespace at = meo::layout::order_resting;
    return {"P1", at::size,
            FIELDS(type, timestamp, at::product_id, at::order_id, at::client_order_id, at::price, at::at_touch,
                   at::reserved)};
}

Layout execution() {
    namespace at = meo::layout::execution;
    return {"E1", at::size,
            FIELDS(type, timestamp, at::mpid, at::product_id, at::client_order_id, at::match_number, at::execution_id,
                   at::zero_a, at::constant_e, at::price, at::quantity, at::side, at::zero_b, at::constant_h,
                   at::zero_c, at::liquidity, at::market, at::zero_d, at::constant_p, at::reserved)};
}

Layout order_cancelled() {
    namespace at = meo::layout::order_cancelled;
    return {"XN", at::size,
            FIELDS(type, timestamp, at::mpid, at::client_order_id, at::product_id, at::order_id, at::leaves, at::reason,
                   at::zero, at::blanks, at::reserved)};
}

Layout replace_response() {
    namespace at = meo::layout::replace_response;
    return {"MR", at::size,
            FIELDS(type, timestamp, at::mpid, at::client_order_id, at::orig_client_order_id, at::product_id,
                   at::order_id, at::leaves, at::price, at::reason, at::reserved)};
}

Layout replace_notification() {
    namespace at = meo::layout::replace_notification;
    return {"MN", at::size,
            FIELDS(type, timestamp, at::mpid, at::client_order_id, at::orig_client_order_id, at::product_id,
                   at::order_id, at::price, at::quantity, at::leaves, at::echo, at::zero_a, at::blanks, at::zero_b,
                   at::tif, at::reserved)};
}

Layout cancel_response() {
    namespace at = meo::layout::cancel_response;
    return {"CR", at::size,
            FIELDS(type, timestamp, at::mpid, at::client_order_id, at::orig_client_order_id, at::product_id,
                   at::order_id, at::zero, at::reason, at::reserved)};
}

Layout start_of_session() {
    namespace at = meo::layout::start_of_session;
    return {"SN", at::size, FIELDS(type, timestamp, at::version, at::session, at::system_status, at::zero)};
}

Layout symbol_update() {
    namespace at = meo::layout::symbol_update;
    return {"SU", at::size,
            FIELDS(type, timestamp, at::product_id, at::symbol, at::zero_a, at::constant_n, at::zero_b,
                   at::constant_100, at::opens, at::closes, at::listing_market, at::zero_c)};
}

Layouts meo_layouts() {
    return {new_order(),       replace(),          cancel(),          new_order_response(), order_accepted(),
            order_resting(),   execution(),        order_cancelled(), replace_response(),   replace_notification(),
            cancel_response(), start_of_session(), symbol_update()};
}

// "0x14"
std::string type_name(dom::MessageType message_type) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto byte = static_cast<std::size_t>(message_type);
    return std::string("0x") + digits[byte / 16] + digits[byte % 16];
}

Layouts feed_messages() {
    namespace at = dom::layout;
    using dom::MessageType;
    return {
        {type_name(MessageType::system_time), at::system_time::size, FIELDS(at::type, at::system_time::seconds)},
        {type_name(MessageType::system_state), at::system_state::size,
         FIELDS(at::type, at::timestamp, at::system_state::version, at::system_state::session,
                at::system_state::state)},
        {type_name(MessageType::series_definition), at::series_definition::size,
         FIELDS(at::type, at::timestamp, at::series_definition::secid, at::series_definition::symbol,
                at::series_definition::constant_a, at::series_definition::constant_b, at::series_definition::constant_c,
                at::series_definition::constant_d, at::series_definition::opens, at::series_definition::closes,
                at::series_definition::listing_market)},
        {type_name(MessageType::series_open), at::series_open::size,
         FIELDS(at::type, at::timestamp, at::series_open::secid)},
        {type_name(MessageType::series_trading_status), at::series_trading_status::size,
         FIELDS(at::type, at::timestamp, at::series_trading_status::secid, at::series_trading_status::constant_a,
                at::series_trading_status::constant_b, at::series_trading_status::constant_c)},
        {type_name(MessageType::add_order), at::add_order::size,
         FIELDS(at::type, at::timestamp, at::add_order::secid, at::add_order::order_id, at::add_order::side,
                at::add_order::price, at::add_order::quantity, at::add_order::attribution)},
        {type_name(MessageType::modify_order), at::modify_order::size,
         FIELDS(at::type, at::timestamp, at::modify_order::secid, at::modify_order::order_id, at::modify_order::price,
                at::modify_order::quantity, at::modify_order::flag)},
        {type_name(MessageType::delete_order), at::delete_order::size,
         FIELDS(at::type, at::timestamp, at::delete_order::secid, at::delete_order::order_id)},
        {type_name(MessageType::order_executed), at::order_executed::size,
         FIELDS(at::type, at::timestamp, at::order_executed::secid, at::order_executed::order_id,
                at::order_executed::match_number, at::order_executed::price, at::order_executed::quantity,
                at::order_executed::resting_sell)},
    };
}

Layouts recovery_payloads() {
    namespace range = layout::retransmission_request;
    namespace request = layout::refresh_request;
    namespace message = layout::refresh_message;
    namespace end = layout::refresh_end;
    return {
        {"retransmission_request", range::min_size, FIELDS(range::first, range::last)},
        {"refresh_request", request::min_size, FIELDS(request::request, request::refresh_type)},
        {"refresh_message", message::header_size, FIELDS(message::reply, message::as_of)},
        {"refresh_end", end::size, FIELDS(end::end, end::refresh_type)},
    };
}

Layouts dom_layouts() {
    namespace at = mach::layout;
    Layouts layouts{{"mach", at::header_size, FIELDS(at::sequence, at::length, at::type, at::session)}};
    for (const Layouts& more : {feed_messages(), recovery_payloads()}) {
        layouts.insert(layouts.end(), more.begin(), more.end());
    }
    return layouts;
}

TEST(ProtocolPages, LayOutEveryEsesmRecordAsTheCodeDoes) {
    EXPECT_EQ(text_of(layouts_on("protocol_esesm.md")), text_of(esesm_layouts()));
}

TEST(ProtocolPages, LayOutEveryOrderEntryMessageAsTheCodeDoes) {
    EXPECT_EQ(text_of(layouts_on("protocol_meo.md")), text_of(meo_layouts()));
}

TEST(ProtocolPages, LayOutEveryFeedMessageAsTheCodeDoes) {
    EXPECT_EQ(text_of(layouts_on("protocol_dom.md")), text_of(dom_layouts()));
}

// Were a field left out above, the page could leave it out too.
TEST(ProtocolPages, AreHeldAgainstLayoutsWithoutGaps) {
    for (const Layouts& layouts : {meo_layouts(), dom_layouts(), esesm_layouts()}) {
        for (const Layout& layout : layouts) {
            std::size_t next = 0;
            for (const Field& field : layout.fields) {
                EXPECT_EQ(field.offset, next) << layout.message << " " << field.name;
                next = field.offset + field.width;
            }
            EXPECT_EQ(next, layout.size) << layout.message;
        }
    }
}

TEST(ProtocolPages, NameEveryPacketType) {
    EXPECT_EQ(sorted(words_on("protocol_esesm.md", "Type")), letters(is_packet_type));
}

TEST(ProtocolPages, GiveEveryLoginStatusItsText) {
    Pairs texts;
    for (char status = 0; status < 127; ++status) {
        const std::string_view text = login_status_text(static_cast<esesm::LoginStatus>(status));
        if (text == "unknown status") continue;
        texts.emplace_back(std::string("'") + status + "'", "\"" + std::string(text) + "\"");
    }
    Pairs on_page = pairs_on("protocol_esesm.md", "Status", "Text");
    std::sort(on_page.begin(), on_page.end());
    EXPECT_EQ(on_page, texts);
}

TEST(ProtocolPages, ExplainEveryReason) {
    const auto on_page = [](std::string_view column) { return sorted(words_on("protocol_meo.md", column)); };
    EXPECT_EQ(on_page("NR reason"), letters(is_new_order_reason));
    EXPECT_EQ(on_page("MR reason"), letters(is_replace_reason));
    EXPECT_EQ(on_page("CR reason"), letters(is_cancel_reason));
    EXPECT_EQ(on_page("XN reason"), letters(is_system_cancel_reason));
}

TEST(ProtocolPages, ListEveryRefreshType) {
    EXPECT_EQ(sorted(words_on("protocol_dom.md", "Refresh type")), letters(is_refresh_type));
}

}  // namespace
}  // namespace kavo::docs
