// Messages and packets as JSON objects, with typed fields. Prices are numbers of currency units, 190.03, exact up to
// fifteen digits; letters of the wire are texts of one letter; quantities are shares; "timestamp_ns" is the message's
// own, within the second on the feed, since the epoch on order entry.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "common/bytes.h"
#include "common/price.h"

namespace kavo::companion {

double price_number(WirePrice price);

// A feed message. "ev" is one of
//   time        seconds
//   state       timestamp_ns, session
//   definition  timestamp_ns, secid, symbol, listing_market
//   open        timestamp_ns, secid
//   status      timestamp_ns, secid
//   add         timestamp_ns, secid, order_id, side, quantity, price, attribution
//   modify      timestamp_ns, secid, order_id, quantity, price, lost_priority
//   delete      timestamp_ns, secid, order_id
//   executed    timestamp_ns, secid, order_id, quantity, price, match_number, resting_side
//   unknown     bytes: in hexadecimal digits
nlohmann::ordered_json feed_json(ByteView message);

// A packet from the venue on order entry. "type" is one of login_response, goodbye, heartbeat, replay_complete,
// unknown, or the two letters of a message, which has its number "seq" if it is sequenced:
//   login_response  accepted, status, text, engine, highest
//   goodbye         reason, text
//   NR  id, symbol, accepted, reason, order_id, quantity, price, mpid
//   O1  id, symbol, order_id, side, quantity, price, tif, order_type, mpid, expire_time_ms
//   P1  id, symbol, order_id, price, at_touch
//   E1  id, symbol, side, quantity, price, liquidity, market, match_number, execution_id, mpid
//   XN  id, symbol, order_id, leaves, reason, mpid
//   CR  id, orig_id, symbol, accepted, reason, order_id, mpid
//   MR  id, orig_id, symbol, accepted, reason, order_id, leaves, price, mpid
//   MN  id, orig_id, symbol, order_id, quantity, price, leaves, tif, mpid
//   SN  version, session
//   SU  symbol, name, listing_market
// "symbol" is the number of the product, as on the feed; "reason" is missing where a request was accepted.
nlohmann::ordered_json packet_json(ByteView packet);

}  // namespace kavo::companion
