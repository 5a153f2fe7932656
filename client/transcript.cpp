#include "client/transcript.h"

#include "common/text.h"
#include "engine/meo_layout.h"
#include "feed/dom_messages.h"
#include "session/esesm.h"

namespace kavo::client {

namespace {

namespace layout = meo::layout;

// One line that grows by words.
class Line {
public:
    explicit Line(std::string_view start) : text_(start) {}
    Line& operator<<(std::string_view word) {
        text_.append(" ").append(word);
        return *this;
    }
    template <std::unsigned_integral Integer>
    Line& operator<<(Integer number) {
        return *this << std::string_view(std::to_string(number));
    }
    Line& operator<<(char letter) { return *this << std::string_view(&letter, 1); }
    std::string text() const { return text_; }

private:
    std::string text_;
};

std::string amount(std::uint64_t quantity, WirePrice price) {
    return std::to_string(quantity) + "@" + price_text(price);
}
std::string order(std::uint64_t id) {
    return "#" + std::to_string(id);
}
std::string quoted(char letter) {
    return std::string("'") + letter + "'";
}

std::string new_order_response_text(ByteView m) {
    namespace at = layout::new_order_response;
    Line line("NR");
    line << terminated_text(m, at::client_order_id);
    if (get(m, at::reason) == ' ') {
        line << "accepted" << order(get(m, at::order_id));
    } else {
        line << "rejected" << quoted(get(m, at::reason));
    }
    return (line << amount(get(m, at::quantity), get(m, at::price))).text();
}

std::string order_accepted_text(ByteView m) {
    namespace at = layout::order_accepted;
    Line line("O1");
    line << terminated_text(m, at::client_order_id) << order(get(m, at::order_id))
         << ((get(m, at::order_flags) & 1) != 0 ? "sell" : "buy") << amount(get(m, at::quantity), get(m, at::price))
         << "tif" << get(m, at::tif) << "type" << get(m, at::order_type);
    return line.text();
}

std::string order_resting_text(ByteView m) {
    namespace at = layout::order_resting;
    Line line("P1");
    line << terminated_text(m, at::client_order_id) << order(get(m, at::order_id))
         << "@" + price_text(get(m, at::price)) << (get(m, at::at_touch) == 'Y' ? "touch" : "behind");
    return line.text();
}

std::string execution_text(ByteView m) {
    namespace at = layout::execution;
    Line line("E1");
    line << terminated_text(m, at::client_order_id) << amount(get(m, at::quantity), get(m, at::price))
         << (get(m, at::side) == 0 ? "buy" : "sell") << (get(m, at::liquidity) == 'A' ? "added" : "removed")
         << std::string{get(m, at::liquidity), get(m, at::market)} << "match" << get(m, at::match_number) << "exec"
         << get(m, at::execution_id);
    return line.text();
}

std::string order_cancelled_text(ByteView m) {
    namespace at = layout::order_cancelled;
    Line line("XN");
    line << terminated_text(m, at::client_order_id) << order(get(m, at::order_id)) << "leaves" << get(m, at::leaves)
         << quoted(get(m, at::reason));
    return line.text();
}

std::string modify_response_text(ByteView m) {
    namespace at = layout::modify_response;
    Line line("MR");
    line << terminated_text(m, at::client_order_id) << "for" << terminated_text(m, at::orig_client_order_id);
    if (get(m, at::reason) == ' ') {
        line << "accepted" << order(get(m, at::order_id)) << "leaves" << get(m, at::leaves);
    } else {
        line << "rejected" << quoted(get(m, at::reason)) << order(get(m, at::order_id));
    }
    return line.text();
}

std::string modify_notification_text(ByteView m) {
    namespace at = layout::modify_notification;
    Line line("MN");
    line << terminated_text(m, at::client_order_id) << "for" << terminated_text(m, at::orig_client_order_id)
         << order(get(m, at::order_id)) << amount(get(m, at::quantity), get(m, at::price)) << "leaves"
         << get(m, at::leaves) << "tif" << get(m, at::tif);
    return line.text();
}

std::string cancel_response_text(ByteView m) {
    namespace at = layout::cancel_response;
    Line line("CR");
    line << terminated_text(m, at::client_order_id) << "of" << terminated_text(m, at::orig_client_order_id);
    if (get(m, at::reason) == ' ') {
        line << "accepted" << order(get(m, at::order_id));
    } else {
        line << "rejected" << quoted(get(m, at::reason));
        if (get(m, at::order_id) != 0) line << order(get(m, at::order_id));
    }
    return line.text();
}

std::string start_of_session_text(ByteView m) {
    namespace at = layout::start_of_session;
    return (Line("SN") << padded_text(m, at::version) << "session" << get(m, at::session)).text();
}

std::string symbol_update_text(ByteView m) {
    namespace at = layout::symbol_update;
    return (Line("SU") << get(m, at::product_id) << padded_text(m, at::symbol) << get(m, at::listing_market)).text();
}

struct Response {
    std::string_view type;
    std::size_t size;
    std::string (*text)(ByteView message);
};
constexpr Response responses[] = {
    {"NR", layout::new_order_response::size, new_order_response_text},
    {"O1", layout::order_accepted::size, order_accepted_text},
    {"P1", layout::order_resting::size, order_resting_text},
    {"E1", layout::execution::size, execution_text},
    {"XN", layout::order_cancelled::size, order_cancelled_text},
    {"MR", layout::modify_response::size, modify_response_text},
    {"MN", layout::modify_notification::size, modify_notification_text},
    {"CR", layout::cancel_response::size, cancel_response_text},
    {"SN", layout::start_of_session::size, start_of_session_text},
    {"SU", layout::symbol_update::size, symbol_update_text},
};

std::string login_response_text(ByteView payload) {
    namespace at = esesm::layout::login_response;
    const ByteView entry = payload.subspan(at::min_size, at::entry::size);
    const char status = get(entry, at::entry::login_status);
    return "login " + (status == ' ' ? "accepted" : "rejected " + quoted(status)) + ", engine " +
           std::to_string(get(entry, at::entry::matching_engine_id)) + ", highest " +
           std::to_string(get(entry, at::entry::highest_sequence));
}

std::string unknown(ByteView message) {
    return "unknown message of " + std::to_string(message.size()) + " bytes";
}

}  // namespace

std::string price_text(WirePrice price) {
    std::string text;
    append_short_price(text, from_wire(price));
    return text;
}

std::string meo_text(ByteView message) {
    for (const Response& response : responses) {
        if (message.size() == response.size && as_text(message.first(layout::type.size)) == response.type) {
            return response.text(message);
        }
    }
    return unknown(message);
}

std::string dom_text(ByteView message) {
    if (dom::SystemTime m; read(message, m)) return (Line("time") << m.seconds).text();
    if (dom::SystemState m; read(message, m)) return (Line("state") << "session" << m.session).text();
    if (dom::SeriesDefinition m; read(message, m)) {
        return (Line("definition") << m.secid << m.symbol << m.listing_market).text();
    }
    if (dom::SeriesOpen m; read(message, m)) return (Line("open") << m.secid).text();
    if (dom::SeriesTradingStatus m; read(message, m)) return (Line("status") << m.secid).text();
    if (dom::AddOrder m; read(message, m)) {
        Line line("add");
        line << m.secid << order(m.order_id) << m.side << amount(m.quantity, m.price);
        if (!m.attribution.empty()) line << m.attribution;
        return line.text();
    }
    if (dom::ModifyOrder m; read(message, m)) {
        Line line("modify");
        line << m.secid << order(m.order_id) << amount(m.quantity, m.price);
        if (m.lost_priority) line << "lost priority";
        return line.text();
    }
    if (dom::DeleteOrder m; read(message, m)) return (Line("delete") << m.secid << order(m.order_id)).text();
    if (dom::OrderExecuted m; read(message, m)) {
        Line line("executed");
        line << m.secid << order(m.order_id) << amount(m.quantity, m.price) << "match" << m.match_number << "resting"
             << (m.resting_sell ? 'S' : 'B');
        return line.text();
    }
    return unknown(message);
}

std::string packet_text(ByteView packet) {
    namespace sequenced = esesm::layout::sequenced_packet;
    const ByteView payload = packet.subspan(esesm::layout::packet::header_size);
    switch (static_cast<esesm::PacketType>(get(packet, esesm::layout::packet::type))) {
        case esesm::PacketType::login_response: return login_response_text(payload);
        case esesm::PacketType::goodbye: {
            const std::string_view text = as_text(payload.subspan(esesm::layout::goodbye::min_size));
            return "goodbye " + quoted(get(payload, esesm::layout::goodbye::goodbye_reason)) + " " + std::string(text);
        }
        case esesm::PacketType::server_heartbeat: return "heartbeat";
        case esesm::PacketType::replay_complete: return "replay complete";
        case esesm::PacketType::sequenced_data:
            return std::to_string(get(packet, sequenced::sequence)) + ": " +
                   meo_text(packet.subspan(sequenced::header_size));
        case esesm::PacketType::unsequenced_data: return "unsequenced: " + meo_text(payload);
        default: return "unknown packet";
    }
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        if (!text.empty()) text += " | ";
        text += line;
    }
    return text;
}

}  // namespace kavo::client
