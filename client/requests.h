// Order-entry requests as a client writes them down: `buy("b1").shares(100).at("189.95")`. Tests and tools send these.
#pragma once

#include <string>
#include <string_view>

#include "common/bytes.h"
#include "common/price.h"

namespace kavo::client {

// "189.95" as millionths of the currency unit.
WirePrice wire_price(std::string_view text);

// A new order; without further words a limit day order for product 1 of participant "TEST".
struct NewOrder {
    std::string mpid = "TEST";
    std::string client_order_id;
    std::uint32_t product_id = 1;
    WirePrice price = 0;
    std::uint32_t quantity = 100;
    std::uint16_t order_flags = 0;
    char tif = 'D';
    char order_type = '1';
    std::uint64_t expire_time = 0;

    NewOrder shares(std::uint32_t count) const;
    NewOrder at(std::string_view limit) const;
    NewOrder market() const;  // any price
    NewOrder immediate() const;
    NewOrder all_or_nothing() const;
    NewOrder post_only() const;
    NewOrder product(std::uint32_t id) const;
    NewOrder participant(std::string_view code) const;
    NewOrder flags(std::uint16_t more) const;  // set in addition
    NewOrder time_in_force(char letter) const;
    NewOrder expires(std::uint64_t ms) const;

    Bytes bytes() const;  // an "N1" message
};
NewOrder buy(std::string_view client_order_id);
NewOrder sell(std::string_view client_order_id);  // as a short sale of the first kind

struct Replace {
    std::string mpid = "TEST";
    std::string client_order_id;
    std::string orig_client_order_id;
    std::uint32_t product_id = 1;
    WirePrice price = 0;
    std::uint32_t quantity = 100;
    char tif = 'D';
    char echo = 0;

    Replace shares(std::uint32_t total) const;
    Replace at(std::string_view limit) const;
    Replace participant(std::string_view code) const;
    Replace time_in_force(char letter) const;

    Bytes bytes() const;  // an "M1" message
};
Replace replace(std::string_view orig_client_order_id, std::string_view client_order_id);

struct Cancel {
    std::string mpid = "TEST";
    std::string client_order_id;
    std::string orig_client_order_id;
    std::uint32_t product_id = 1;

    Cancel product(std::uint32_t id) const;
    Cancel participant(std::string_view code) const;

    Bytes bytes() const;  // a "CO" message
};
Cancel cancel(std::string_view orig_client_order_id);  // its own id is the same with an "x" in front

// A login on order entry, asking for the stream from `requested_sequence` on.
struct Login {
    std::string session_protocol = "1.0";
    std::string username = "alice";
    std::string computer_id = "desk1";
    std::string application_protocol = "MEO2.7";
    std::uint8_t matching_engine_count = 1;
    std::uint8_t matching_engine_id = 0;
    std::uint64_t requested_sequence = 0;

    Bytes payload() const;
};
Login login(std::string_view username, std::uint64_t requested_sequence = 0);

}  // namespace kavo::client
