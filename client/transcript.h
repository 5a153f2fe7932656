// Messages as short lines of text, so that a test compares what it reads and a failure shows its difference at once.
//
// Quantities and prices read "100@189.95", order ids "#1120". What is on a line is what the message says; timestamps
// and constant bytes are left out, they are the golden bytes' business.
#pragma once

#include <string>
#include <vector>

#include "common/bytes.h"
#include "common/price.h"

namespace kavo::client {

std::string price_text(WirePrice price);  // "189.95"

// An order-entry response:
//   NR b1 accepted #1120 100@189.95          NR b1 rejected 'A' 100@189.95
//   O1 b1 #1120 buy 100@189.95 tif D type 1  P1 b1 #1120 @189.95 touch | behind
//   E1 b1 100@189.95 buy added AC match 1 exec 1
//   XN b1 #1120 leaves 0 'U'                 CR xb1 of b1 accepted #1120 | rejected 'D'
//   MR b2 for b1 accepted #1120 leaves 150   MR b2 for b1 rejected 'A' #1120
//   MN b2 for b1 #1120 150@189.96 leaves 150 tif D
//   SN MEO2.7 session 1                      SU 1 AAPL Q
std::string meo_text(ByteView message);

// A feed message:
//   time 1700000000       state session 1    definition 1 AAPL Q    open 1    status 1
//   add 1 #1000 S 300@190.03 RTAL            modify 1 #1000 200@190.03 [lost priority]
//   delete 1 #1000                           executed 1 #1000 100@190.03 match 7 resting S
std::string dom_text(ByteView message);

// A whole packet from the venue to an order-entry client:
//   login accepted, engine 1, highest 12     login rejected 'N', engine 1, highest 12
//   3: NR b1 accepted ...                    (sequenced data: its number, then the message)
//   goodbye 'B' not logged in                heartbeat               replay complete
std::string packet_text(ByteView packet);

// A request, as a client sends it:
//   N1 b1 buy 100@189.95 of 1 tif D [market] [post-only]     M1 b2 for b1 150@189.96 tif D     CO xb1 of b1
std::string request_text(ByteView message);

// A whole packet from a client, to either service:
//   login alice, requested sequence 12       N1 b1 buy ...                    heartbeat
//   retransmission of 4711 to 4713           refresh 'O'                      logout
std::string sent_packet_text(ByteView packet);

// Lines joined by " | ", the way a scene expects them.
std::string joined(const std::vector<std::string>& lines);

}  // namespace kavo::client
