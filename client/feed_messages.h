// The feed as a receiver reads it: datagrams taken apart into packets, and messages read back as the records from which
// they were built. Whatever has another type or another size reads as nothing.
#pragma once

#include <optional>
#include <variant>

#include "common/bytes.h"
#include "feed/dom_messages.h"
#include "feed/mach.h"

namespace kavo::client {

struct FeedPacket {
    mach::Header header;
    ByteView message;  // lent by the datagram; empty for start and heartbeat
};

// Reads the first packet of a datagram and takes it off, so that the next call reads the next one. Nothing, and nothing
// taken off, when what is left is no whole packet.
std::optional<FeedPacket> read_feed_packet(ByteView& datagram);

// Texts in the records are lent by the message.
std::optional<dom::SystemTime> read_system_time(ByteView message);
std::optional<dom::SystemState> read_system_state(ByteView message);
std::optional<dom::SeriesDefinition> read_series_definition(ByteView message);
std::optional<dom::SeriesOpen> read_series_open(ByteView message);
std::optional<dom::SeriesTradingStatus> read_series_trading_status(ByteView message);
std::optional<dom::AddOrder> read_add_order(ByteView message);
std::optional<dom::ModifyOrder> read_modify_order(ByteView message);
std::optional<dom::DeleteOrder> read_delete_order(ByteView message);
std::optional<dom::OrderExecuted> read_order_executed(ByteView message);

// Whichever of them it is; the first alternative when it is none.
using FeedMessage =
    std::variant<std::monostate, dom::SystemTime, dom::SystemState, dom::SeriesDefinition, dom::SeriesOpen,
                 dom::SeriesTradingStatus, dom::AddOrder, dom::ModifyOrder, dom::DeleteOrder, dom::OrderExecuted>;
FeedMessage read_feed_message(ByteView message);

}  // namespace kavo::client
