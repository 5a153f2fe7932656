// Lines of JSON have the fields that the page names, no others, and their values are the message's.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "client/requests.h"
#include "docs/page.h"
#include "engine/meo.h"
#include "feed/dom_messages.h"
#include "kavo/screen/feed_lines.h"
#include "kavo/screen/trade_lines.h"
#include "kavo/screen/wire_json.h"
#include "session/esesm.h"

namespace kavo::companion {
namespace {

using Json = nlohmann::json;
using Keys = std::set<std::string>;

constexpr const char* page = "by_hand.md";

// What is in backquotes, but for values.
Keys quoted_words(const std::string& cell) {
    Keys words;
    std::istringstream rest(cell);
    for (std::string outside, word; std::getline(rest, outside, '`') && std::getline(rest, word, '`');) {
        if (word != "added" && word != "removed" && word != "[price, quantity]") words.insert(word);
    }
    return words;
}

// The fields of each event that the tables of the page name, or of each type of an event.
std::map<std::string, Keys> fields_on_page(const std::string& heading, const std::string& event) {
    std::map<std::string, Keys> fields;
    for (const docs::Table& table : docs::tables_on(page)) {
        if (table.heading != heading) continue;
        std::string latest;
        for (const auto& row : table.rows) {
            if (!row[0].empty()) latest = docs::unquoted(row[0]);
            for (const std::string& name : quoted_words(row[table.columns.size() - 2])) {
                if (event.empty() || latest == event) fields[name] = quoted_words(row.back());
            }
        }
    }
    return fields;
}

Keys keys_of(const Json& json) {
    Keys keys;
    for (const auto& [key, value] : json.items()) keys.insert(key);
    return keys;
}

std::vector<Json> parsed(const std::string& text) {
    std::vector<Json> all;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) all.push_back(Json::parse(line));
    return all;
}

client::ReceivedBook some_books() {
    client::ReceivedBook books;
    books.apply(dom::build(dom::SeriesDefinition{0, 1, "A\"B\\", 'Q'}));
    for (std::uint32_t i = 0; i < 12; ++i) {
        dom::AddOrder order;
        order.secid = 1;
        order.order_id = 1000 + i;
        order.price = 190'000'000 + i * 10'000;
        order.quantity = 1;
        books.apply(dom::build(order));
    }
    return books;
}

// Everything that the feed can bring, and every remark.
std::vector<Json> all_of_the_feed() {
    testing::internal::CaptureStdout();
    FeedLines lines(true, {});
    lines.heard_at(42);
    lines.bare({.type = mach::PacketType::start, .session = 3});
    lines.bare({.sequence = 9, .type = mach::PacketType::heartbeat});
    std::uint64_t sequence = 0;
    const auto add = [&](const auto& record) { lines.message(++sequence, dom::build(record)); };
    add(dom::SystemTime{1'700'000'000});
    add(dom::SystemState{5, 3});
    add(dom::SeriesDefinition{5, 1, "A\"\n\xff", 'Q'});
    add(dom::SeriesOpen{5, 1});
    add(dom::SeriesTradingStatus{5, 1});
    add(dom::AddOrder{5, 1, 1000, 'S', 190'030'000, 300, "RTAL"});
    add(dom::ModifyOrder{5, 1, 1000, 190'040'000, 200, true});
    add(dom::DeleteOrder{5, 1, 1000});
    add(dom::OrderExecuted{5, 1, 1000, 7, 190'040'000, 100, true});
    lines.message(++sequence, Bytes{0xfe, 0x01});
    lines.book(sequence, 1, some_books());
    lines.gap(11, 12);
    lines.refresh(12);
    lines.no_books("reason");
    lines.fallen_back();
    lines.silence();
    std::fflush(stdout);
    return parsed(testing::internal::GetCapturedStdout());
}

TEST(JsonLines, OfTheFeedHaveTheFieldsOfThePage) {
    std::map<std::string, Keys> fields = fields_on_page("The feed", "");
    for (const Json& line : all_of_the_feed()) {
        Keys keys = keys_of(line);
        EXPECT_EQ(keys.erase("t") + keys.erase("ev"), 2U) << line;
        const auto on_page = fields.extract(line.at("ev").get<std::string>());
        ASSERT_FALSE(on_page.empty()) << line;
        EXPECT_EQ(keys, on_page.mapped()) << line;
    }
    // A restart has a sentence, and no fields.
    EXPECT_TRUE(fields.empty()) << fields.begin()->first;
}

TEST(JsonLines, OfTheFeedTellWhatTheMessageSays) {
    const std::vector<Json> lines = all_of_the_feed();
    EXPECT_EQ(lines[4].at("symbol"), "A\"\n\xEF\xBF\xBD");
    EXPECT_EQ(lines[7], Json::parse(R"({"t":42,"ev":"add","seq":6,"timestamp_ns":5,"secid":1,"order_id":1000,"side":"S",
                                        "quantity":300,"price":190.03,"attribution":"RTAL"})"));
    EXPECT_EQ(lines[8], Json::parse(R"({"t":42,"ev":"modify","seq":7,"timestamp_ns":5,"secid":1,"order_id":1000,
                                        "quantity":200,"price":190.04,"lost_priority":true})"));
    EXPECT_EQ(lines[10], Json::parse(R"({"t":42,"ev":"executed","seq":9,"timestamp_ns":5,"secid":1,"order_id":1000,
                                         "quantity":100,"price":190.04,"match_number":7,"resting_side":"S"})"));
    EXPECT_EQ(lines[11].at("bytes"), "fe01");
    const Json& book = lines[12];
    EXPECT_EQ(book.at("symbol"), "A\"B\\");
    ASSERT_EQ(book.at("bids").size(), 10U);
    EXPECT_EQ(book.at("bids")[0], Json::parse("[190.11,1]"));
    EXPECT_EQ(book.at("asks"), Json::array());
}

TEST(JsonLines, OfTheFeedKeepToTheWindow) {
    testing::internal::CaptureStdout();
    FeedLines lines(false, {.from = 3, .count = 1});
    const auto time = dom::build(dom::SystemTime{7});
    lines.gap(1, 2);
    for (std::uint64_t sequence = 1; sequence <= 4; ++sequence) {
        EXPECT_EQ(lines.done(), sequence > 3);
        lines.message(sequence, time);
        lines.book(sequence, 1, some_books());
    }
    lines.gap(5, 6);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "3 time 7\n    A\"B\\  1@190.09 1@190.1 1@190.11 |\n");
}

// Every message of order entry, and every packet around them.
std::vector<Bytes> packets_of_order_entry() {
    const Bytes order_bytes = client::buy("b1").at("190.03").bytes();
    const Bytes replace_bytes = client::replace("b1", "b2").at("190.04").bytes();
    const Bytes cancel_bytes = client::cancel("b2").bytes();
    const auto order = *meo::read_new_order(order_bytes);
    const auto replace = *meo::read_replace(replace_bytes);
    const auto cancel = *meo::read_cancel(cancel_bytes);
    std::vector<meo::Message> messages = {
        build(meo::NewOrderResponse{9, order, 0, meo::NewOrderReason::scripted}),
        build(meo::OrderAccepted{9, order, 1000}),
        build(meo::OrderResting{9, 1, 1000, order.client_order_id, 1'900'300, true}),
        build(meo::Execution{9, order.mpid, 1, order.client_order_id, 7, 8, 1'900'300, 100, true, meo::Liquidity::added,
                             'Q'}),
        build(meo::OrderCancelled{9, order.mpid, order.client_order_id, 1, 1000, 0, meo::SystemCancelReason::expired}),
        build(meo::CancelResponse{9, cancel, 0, meo::CancelReason::unknown_or_late}),
        build(meo::ReplaceResponse{9, replace, 0, 0, meo::ReplaceReason::unknown_or_late}),
        build(meo::ReplaceNotification{9, replace, 1, 1000, 100}),
        build(meo::StartOfSession{9, 1}),
        build(meo::SymbolUpdate{9, 1, "AAPL", 'Q'})};
    std::vector<Bytes> packets;
    for (const meo::Message& message : messages) {
        packets.emplace_back(esesm::sequenced_size(message.bytes().size()));
        esesm::build_sequenced(packets.back(), packets.size(), message.bytes());
    }
    packets.push_back(esesm::build(esesm::LoginResponse{{{esesm::LoginStatus::already_logged_in, 1, 12}}}));
    packets.push_back(esesm::build(esesm::Goodbye{esesm::GoodbyeReason::bad_packet, "not logged in"}));
    packets.emplace_back(esesm::server_heartbeat.begin(), esesm::server_heartbeat.end());
    packets.emplace_back(esesm::replay_complete.begin(), esesm::replay_complete.end());
    packets.push_back(Bytes{1, 0, 'z'});
    return packets;
}

TEST(JsonLines, OfOrderEntryHaveTheFieldsOfThePage) {
    std::map<std::string, Keys> fields = fields_on_page("Orders", "heard");
    for (const Bytes& packet : packets_of_order_entry()) {
        const Json json = packet_json(packet);
        Keys keys = keys_of(json);
        EXPECT_EQ(keys.erase("type"), 1U) << json;
        const auto on_page = fields.extract(json.at("type").get<std::string>());
        ASSERT_FALSE(on_page.empty()) << json;
        // Of all messages, and said once for all of them.
        EXPECT_EQ(keys.erase("timestamp_ns"), on_page.mapped().contains("seq") ? 1U : 0U) << json;
        EXPECT_EQ(keys, on_page.mapped()) << json;
    }
    EXPECT_TRUE(fields.empty()) << fields.begin()->first;
}

TEST(JsonLines, OfOrderEntryTellWhatThePacketSays) {
    const std::vector<Bytes> packets = packets_of_order_entry();
    EXPECT_EQ(Json(packet_json(packets[0])),
              Json::parse(R"({"seq":1,"type":"NR","id":"b1","symbol":1,"accepted":false,"reason":"R","order_id":0,
                              "quantity":100,"price":190.03,"mpid":"TEST","timestamp_ns":9})"));
    EXPECT_EQ(Json(packet_json(packets[3])),
              Json::parse(R"({"seq":4,"type":"E1","id":"b1","symbol":1,"side":"B","quantity":100,"price":190.03,
                              "liquidity":"added","market":"C","match_number":7,"execution_id":8,"mpid":"TEST",
                              "timestamp_ns":9})"));
    EXPECT_EQ(Json(packet_json(packets[10])), Json::parse(R"({"type":"login_response","accepted":false,"status":"L",
                                                        "text":"client already logged in","engine":1,"highest":12})"));
    EXPECT_EQ(Json(packet_json(packets[11])), Json::parse(R"({"type":"goodbye","reason":"B","text":"not logged in"})"));
    EXPECT_EQ(Json(packet_json(packets[14])), Json::parse(R"({"type":"unknown","bytes":"01007a"})"));
}

TEST(JsonLines, OfRequestsHaveTheFieldsOfThePage) {
    std::string printed;
    TradeLines lines(true, [&](const std::string& text) { printed += text; });
    lines.sent(client::login("alice", 1));
    lines.sent(client::sell("s1").shares(7).at("190.03").product(2));
    lines.sent(client::replace("s1", "s2").at("190.04"));
    lines.sent(client::cancel("s2"));
    lines.sent_logout();
    std::map<std::string, Keys> fields = fields_on_page("Orders", "sent");
    for (const Json& line : parsed(printed)) {
        Keys keys = keys_of(line);
        for (const char* common : {"t", "ev", "type"}) EXPECT_EQ(keys.erase(common), 1U) << line;
        EXPECT_EQ(line.at("ev"), "sent");
        const auto on_page = fields.extract(line.at("type").get<std::string>());
        ASSERT_FALSE(on_page.empty()) << line;
        EXPECT_EQ(keys, on_page.mapped()) << line;
    }
    EXPECT_TRUE(fields.empty()) << fields.begin()->first;
    EXPECT_EQ(parsed(printed)[1].at("side"), "S");
    EXPECT_EQ(parsed(printed)[1].at("symbol"), 2);
}

}  // namespace
}  // namespace kavo::companion
