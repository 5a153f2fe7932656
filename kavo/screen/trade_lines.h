// What `kavo trade` prints: what is sent and what comes back, in plain words or as lines of JSON.
//
// A line of JSON says when ("t", wall-clock nanoseconds) and what ("ev"):
//   sent     "type" is one of login: user, from; new: id, side, quantity, price (0 for a market order), symbol, mpid;
//            replace: id, orig_id, quantity, price, mpid; cancel: id, orig_id, symbol, mpid; logout
//   heard    a packet, see packet_json in wire_json.h
//   refused  line, reason    a command that was not understood, and was not sent
#pragma once

#include <functional>
#include <string>

#include "client/requests.h"
#include "common/bytes.h"

namespace kavo::companion {

class TradeLines {
public:
    //   print  takes whole lines
    TradeLines(bool json, std::function<void(const std::string& lines)> print)
        : json_(json), print_(std::move(print)) {}

    // What was asked for, as it was written. JSON tells what was sent instead.
    void asked(const std::string& line);
    void sent(const client::Login& login);
    void sent(const client::NewOrder& order);
    void sent(const client::Replace& request);
    void sent(const client::Cancel& request);
    void sent_logout();
    void heard(ByteView packet);
    //   reason  for JSON
    //   words   for people
    void refused(const std::string& line, const std::string& reason, const std::string& words);

private:
    bool json_;
    std::function<void(const std::string&)> print_;
};

}  // namespace kavo::companion
