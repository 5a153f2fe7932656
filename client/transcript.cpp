#include "client/transcript.h"

#include "client/feed_messages.h"
#include "client/packets.h"
#include "client/responses.h"
#include "common/text.h"
#include "feed/recovery_layout.h"

namespace kavo::client {

namespace {

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
template <typename Code>
char letter(Code code) {
    return static_cast<char>(code);
}
std::string quoted(char code) {
    return std::string("'") + code + "'";
}

std::string text(const NewOrderResponse& m) {
    Line line("NR");
    line << m.client_order_id;
    if (m.accepted()) {
        line << "accepted" << order(m.order_id);
    } else {
        line << "rejected" << quoted(letter(m.reason));
    }
    return (line << amount(m.quantity, m.price)).text();
}

std::string text(const OrderAccepted& m) {
    Line line("O1");
    line << m.client_order_id << order(m.order_id) << (m.flags.sell() ? "sell" : "buy") << amount(m.quantity, m.price)
         << "tif" << letter(m.tif) << "type" << letter(m.order_type);
    return line.text();
}

std::string text(const OrderResting& m) {
    Line line("P1");
    line << m.client_order_id << order(m.order_id) << "@" + price_text(m.price) << (m.at_touch ? "touch" : "behind");
    return line.text();
}

std::string text(const Execution& m) {
    Line line("E1");
    line << m.client_order_id << amount(m.quantity, m.price) << (m.buy ? "buy" : "sell")
         << (m.liquidity == meo::Liquidity::added ? "added" : "removed") << std::string{letter(m.liquidity), m.market}
         << "match" << m.match_number << "exec" << m.execution_id;
    return line.text();
}

std::string text(const OrderCancelled& m) {
    Line line("XN");
    line << m.client_order_id << order(m.order_id) << "leaves" << m.leaves << quoted(letter(m.reason));
    return line.text();
}

std::string text(const ReplaceResponse& m) {
    Line line("MR");
    line << m.client_order_id << "for" << m.orig_client_order_id;
    if (m.accepted()) {
        line << "accepted" << order(m.order_id) << "leaves" << m.leaves;
    } else {
        line << "rejected" << quoted(letter(m.reason)) << order(m.order_id);
    }
    return line.text();
}

std::string text(const ReplaceNotification& m) {
    Line line("MN");
    line << m.client_order_id << "for" << m.orig_client_order_id << order(m.order_id) << amount(m.quantity, m.price)
         << "leaves" << m.leaves << "tif" << letter(m.tif);
    return line.text();
}

std::string text(const CancelResponse& m) {
    Line line("CR");
    line << m.client_order_id << "of" << m.orig_client_order_id;
    if (m.accepted()) {
        line << "accepted" << order(m.order_id);
    } else {
        line << "rejected" << quoted(letter(m.reason));
        if (m.order_id != 0) line << order(m.order_id);
    }
    return line.text();
}

std::string text(const StartOfSession& m) {
    return (Line("SN") << m.version << "session" << m.session).text();
}

std::string text(const SymbolUpdate& m) {
    return (Line("SU") << m.product_id << m.symbol << m.listing_market).text();
}

std::string text(const dom::AddOrder& m) {
    Line line("add");
    line << m.secid << order(m.order_id) << m.side << amount(m.quantity, m.price);
    if (!m.attribution.empty()) line << m.attribution;
    return line.text();
}

std::string text(const dom::ModifyOrder& m) {
    Line line("modify");
    line << m.secid << order(m.order_id) << amount(m.quantity, m.price);
    if (m.lost_priority) line << "lost priority";
    return line.text();
}

std::string text(const dom::OrderExecuted& m) {
    Line line("executed");
    line << m.secid << order(m.order_id) << amount(m.quantity, m.price) << "match" << m.match_number << "resting"
         << (m.resting_sell ? 'S' : 'B');
    return line.text();
}

std::string text(const esesm::LoginResponse::Entry& response) {
    const bool accepted = response.login_status == esesm::LoginStatus::successful;
    return "login " + (accepted ? "accepted" : "rejected " + quoted(letter(response.login_status))) + ", engine " +
           std::to_string(response.matching_engine_id) + ", highest " + std::to_string(response.highest_sequence);
}

std::string unknown(ByteView message) {
    return "unknown message of " + std::to_string(message.size()) + " bytes";
}

std::string text(const meo::NewOrderRequest& m) {
    Line line("N1");
    const bool market = m.order_type == meo::OrderType::market;
    line << m.client_order_id.view() << (m.flags.sell() ? "sell" : "buy");
    line << (market ? std::to_string(m.quantity) : amount(m.quantity, m.price)) << "of" << m.product_id;
    line << "tif" << letter(m.tif);
    if (market) line << "market";
    if (m.flags.post_only()) line << "post-only";
    return line.text();
}

std::string text(const meo::ReplaceRequest& m) {
    Line line("M1");
    line << m.client_order_id.view() << "for" << m.orig_client_order_id.view() << amount(m.quantity, m.price);
    return (line << "tif" << letter(m.tif)).text();
}

// What a client asks of the service behind the feed.
std::string recovery_text(ByteView packet) {
    namespace at = layout;
    const ByteView payload = payload_of(packet);
    if (has_type(packet, esesm::PacketType::retransmission_request) &&
        payload.size() >= at::retransmission_request::min_size) {
        return "retransmission of " + std::to_string(get(payload, at::retransmission_request::first)) + " to " +
               std::to_string(get(payload, at::retransmission_request::last));
    }
    if (payload.size() >= at::refresh_request::min_size && get(payload, at::refresh_request::request) == 'R') {
        return "refresh " + quoted(get(payload, at::refresh_request::refresh_type));
    }
    return "unknown packet";
}

}  // namespace

std::string request_text(ByteView message) {
    if (const auto m = meo::read_new_order(message)) return text(*m);
    if (const auto m = meo::read_replace(message)) return text(*m);
    if (const auto m = meo::read_cancel(message)) {
        return (Line("CO") << m->client_order_id.view() << "of" << m->orig_client_order_id.view()).text();
    }
    return {};
}

std::string sent_packet_text(ByteView packet) {
    if (has_type(packet, esesm::PacketType::login_request)) {
        const auto login = esesm::read_login_request(payload_of(packet));
        if (!login || login->entries.empty()) return "malformed login";
        return "login " + login->username + ", requested sequence " +
               std::to_string(login->entries[0].requested_sequence);
    }
    if (has_type(packet, esesm::PacketType::client_heartbeat)) return "heartbeat";
    if (has_type(packet, esesm::PacketType::client_test)) return "test";
    if (has_type(packet, esesm::PacketType::logout_request)) return "logout";
    if (has_type(packet, esesm::PacketType::unsequenced_data)) {
        std::string request = request_text(payload_of(packet));
        if (!request.empty()) return request;
    }
    return recovery_text(packet);
}

std::string price_text(WirePrice price) {
    std::string text;
    append_short_price(text, from_wire(price));
    return text;
}

std::string meo_text(ByteView message) {
    if (const auto m = read_new_order_response(message)) return text(*m);
    if (const auto m = read_order_accepted(message)) return text(*m);
    if (const auto m = read_order_resting(message)) return text(*m);
    if (const auto m = read_execution(message)) return text(*m);
    if (const auto m = read_order_cancelled(message)) return text(*m);
    if (const auto m = read_replace_response(message)) return text(*m);
    if (const auto m = read_replace_notification(message)) return text(*m);
    if (const auto m = read_cancel_response(message)) return text(*m);
    if (const auto m = read_start_of_session(message)) return text(*m);
    if (const auto m = read_symbol_update(message)) return text(*m);
    return unknown(message);
}

std::string dom_text(ByteView message) {
    if (const auto m = read_system_time(message)) return (Line("time") << m->seconds).text();
    if (const auto m = read_system_state(message)) return (Line("state") << "session" << m->session).text();
    if (const auto m = read_series_definition(message)) {
        return (Line("definition") << m->secid << m->symbol << m->listing_market).text();
    }
    if (const auto m = read_series_open(message)) return (Line("open") << m->secid).text();
    if (const auto m = read_series_trading_status(message)) return (Line("status") << m->secid).text();
    if (const auto m = read_add_order(message)) return text(*m);
    if (const auto m = read_modify_order(message)) return text(*m);
    if (const auto m = read_delete_order(message)) return (Line("delete") << m->secid << order(m->order_id)).text();
    if (const auto m = read_order_executed(message)) return text(*m);
    return unknown(message);
}

std::string packet_text(ByteView packet) {
    if (const auto response = read_login_response(packet)) return text(*response);
    if (const auto goodbye = read_goodbye(packet)) {
        return "goodbye " + quoted(letter(goodbye->reason)) + " " + std::string(goodbye->text);
    }
    if (const auto data = read_sequenced(packet)) {
        return std::to_string(data->sequence) + ": " + meo_text(data->message);
    }
    if (has_type(packet, esesm::PacketType::unsequenced_data)) return "unsequenced: " + meo_text(payload_of(packet));
    if (has_type(packet, esesm::PacketType::server_heartbeat)) return "heartbeat";
    if (has_type(packet, esesm::PacketType::replay_complete)) return "replay complete";
    return "unknown packet";
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
