#include "kavo/screen/wire_json.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "client/feed_messages.h"
#include "client/packets.h"
#include "client/responses.h"

namespace kavo::companion {

namespace {

using Json = nlohmann::ordered_json;

template <typename Code>
std::string letter(Code code) {
    return {static_cast<char>(code)};
}

std::string side_of(bool buy) {
    return buy ? "B" : "S";
}

std::string hexadecimal(ByteView bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

// Why a request was not accepted.
template <typename Response>
void add_verdict(Json& json, const Response& m) {
    json["accepted"] = m.accepted();
    if (!m.accepted()) json["reason"] = letter(m.reason);
}

Json json_of(const client::NewOrderResponse& m) {
    Json json{{"type", "NR"}, {"id", m.client_order_id}, {"symbol", m.product_id}};
    add_verdict(json, m);
    json.update({{"order_id", m.order_id},
                 {"quantity", m.quantity},
                 {"price", price_number(m.price)},
                 {"mpid", m.mpid},
                 {"timestamp_ns", m.timestamp}});
    return json;
}

Json json_of(const client::OrderAccepted& m) {
    return {{"type", "O1"},
            {"id", m.client_order_id},
            {"symbol", m.product_id},
            {"order_id", m.order_id},
            {"side", side_of(!m.flags.sell())},
            {"quantity", m.quantity},
            {"price", price_number(m.price)},
            {"tif", letter(m.tif)},
            {"order_type", letter(m.order_type)},
            {"mpid", m.mpid},
            {"expire_time_ms", m.expire_time},
            {"timestamp_ns", m.timestamp}};
}

Json json_of(const client::OrderResting& m) {
    return {{"type", "P1"},
            {"id", m.client_order_id},
            {"symbol", m.product_id},
            {"order_id", m.order_id},
            {"price", price_number(m.price)},
            {"at_touch", m.at_touch},
            {"timestamp_ns", m.timestamp}};
}

Json json_of(const client::Execution& m) {
    return {{"type", "E1"},
            {"id", m.client_order_id},
            {"symbol", m.product_id},
            {"side", side_of(m.buy)},
            {"quantity", m.quantity},
            {"price", price_number(m.price)},
            {"liquidity", m.liquidity == meo::Liquidity::added ? "added" : "removed"},
            {"market", letter(m.market)},
            {"match_number", m.match_number},
            {"execution_id", m.execution_id},
            {"mpid", m.mpid},
            {"timestamp_ns", m.timestamp}};
}

Json json_of(const client::OrderCancelled& m) {
    return {{"type", "XN"},           {"id", m.client_order_id},    {"symbol", m.product_id},
            {"order_id", m.order_id}, {"leaves", m.leaves},         {"reason", letter(m.reason)},
            {"mpid", m.mpid},         {"timestamp_ns", m.timestamp}};
}

Json json_of(const client::CancelResponse& m) {
    Json json{{"type", "CR"}, {"id", m.client_order_id}, {"orig_id", m.orig_client_order_id}, {"symbol", m.product_id}};
    add_verdict(json, m);
    json.update({{"order_id", m.order_id}, {"mpid", m.mpid}, {"timestamp_ns", m.timestamp}});
    return json;
}

Json json_of(const client::ReplaceResponse& m) {
    Json json{{"type", "MR"}, {"id", m.client_order_id}, {"orig_id", m.orig_client_order_id}, {"symbol", m.product_id}};
    add_verdict(json, m);
    json.update({{"order_id", m.order_id},
                 {"leaves", m.leaves},
                 {"price", price_number(m.price)},
                 {"mpid", m.mpid},
                 {"timestamp_ns", m.timestamp}});
    return json;
}

Json json_of(const client::ReplaceNotification& m) {
    return {{"type", "MN"},
            {"id", m.client_order_id},
            {"orig_id", m.orig_client_order_id},
            {"symbol", m.product_id},
            {"order_id", m.order_id},
            {"quantity", m.quantity},
            {"price", price_number(m.price)},
            {"leaves", m.leaves},
            {"tif", letter(m.tif)},
            {"mpid", m.mpid},
            {"timestamp_ns", m.timestamp}};
}

Json json_of(const client::StartOfSession& m) {
    return {{"type", "SN"}, {"version", m.version}, {"session", m.session}, {"timestamp_ns", m.timestamp}};
}

Json json_of(const client::SymbolUpdate& m) {
    return {{"type", "SU"},
            {"symbol", m.product_id},
            {"name", m.symbol},
            {"listing_market", letter(m.listing_market)},
            {"timestamp_ns", m.timestamp}};
}

Json unknown(ByteView bytes) {
    return {{"type", "unknown"}, {"bytes", hexadecimal(bytes)}};
}

Json message_json(ByteView message) {
    if (const auto m = client::read_new_order_response(message)) return json_of(*m);
    if (const auto m = client::read_order_accepted(message)) return json_of(*m);
    if (const auto m = client::read_order_resting(message)) return json_of(*m);
    if (const auto m = client::read_execution(message)) return json_of(*m);
    if (const auto m = client::read_order_cancelled(message)) return json_of(*m);
    if (const auto m = client::read_replace_response(message)) return json_of(*m);
    if (const auto m = client::read_replace_notification(message)) return json_of(*m);
    if (const auto m = client::read_cancel_response(message)) return json_of(*m);
    if (const auto m = client::read_start_of_session(message)) return json_of(*m);
    if (const auto m = client::read_symbol_update(message)) return json_of(*m);
    return unknown(message);
}

Json json_of(const esesm::LoginResponse::Entry& response) {
    return {{"type", "login_response"},
            {"accepted", response.login_status == esesm::LoginStatus::successful},
            {"status", letter(response.login_status)},
            {"text", esesm::login_status_text(response.login_status)},
            {"engine", response.matching_engine_id},
            {"highest", response.highest_sequence}};
}

// What most feed messages begin with.
template <typename Record>
Json feed_event(const char* event, const Record& m) {
    return {{"ev", event}, {"timestamp_ns", m.timestamp}, {"secid", m.secid}};
}

Json json_of(const dom::AddOrder& m) {
    Json json = feed_event("add", m);
    json.update({{"order_id", m.order_id},
                 {"side", letter(m.side)},
                 {"quantity", m.quantity},
                 {"price", price_number(m.price)},
                 {"attribution", m.attribution}});
    return json;
}

Json json_of(const dom::ModifyOrder& m) {
    Json json = feed_event("modify", m);
    json.update({{"order_id", m.order_id},
                 {"quantity", m.quantity},
                 {"price", price_number(m.price)},
                 {"lost_priority", m.lost_priority}});
    return json;
}

Json json_of(const dom::OrderExecuted& m) {
    Json json = feed_event("executed", m);
    json.update({{"order_id", m.order_id},
                 {"quantity", m.quantity},
                 {"price", price_number(m.price)},
                 {"match_number", m.match_number},
                 {"resting_side", m.resting_sell ? "S" : "B"}});
    return json;
}

}  // namespace

// The nearest double to the decimal, which is what a literal of it is as well.
double price_number(WirePrice price) {
    return static_cast<double>(price) / 1e6;
}

Json feed_json(ByteView message) {
    if (const auto m = client::read_add_order(message)) return json_of(*m);
    if (const auto m = client::read_modify_order(message)) return json_of(*m);
    if (const auto m = client::read_delete_order(message)) {
        Json json = feed_event("delete", *m);
        json["order_id"] = m->order_id;
        return json;
    }
    if (const auto m = client::read_order_executed(message)) return json_of(*m);
    if (const auto m = client::read_system_time(message)) return {{"ev", "time"}, {"seconds", m->seconds}};
    if (const auto m = client::read_system_state(message)) {
        return {{"ev", "state"}, {"timestamp_ns", m->timestamp}, {"session", m->session}};
    }
    if (const auto m = client::read_series_definition(message)) {
        Json json = feed_event("definition", *m);
        json.update({{"symbol", m->symbol}, {"listing_market", letter(m->listing_market)}});
        return json;
    }
    if (const auto m = client::read_series_open(message)) return feed_event("open", *m);
    if (const auto m = client::read_series_trading_status(message)) return feed_event("status", *m);
    return {{"ev", "unknown"}, {"bytes", hexadecimal(message)}};
}

Json packet_json(ByteView packet) {
    using esesm::PacketType;
    if (const auto response = client::read_login_response(packet)) return json_of(*response);
    if (const auto goodbye = client::read_goodbye(packet)) {
        return {{"type", "goodbye"}, {"reason", letter(goodbye->reason)}, {"text", goodbye->text}};
    }
    if (const auto data = client::read_sequenced(packet)) {
        Json json{{"seq", data->sequence}};
        json.update(message_json(data->message));
        return json;
    }
    if (client::has_type(packet, PacketType::unsequenced_data)) return message_json(client::payload_of(packet));
    if (client::has_type(packet, PacketType::server_heartbeat)) return {{"type", "heartbeat"}};
    if (client::has_type(packet, PacketType::replay_complete)) return {{"type", "replay_complete"}};
    return unknown(packet);
}

}  // namespace kavo::companion
