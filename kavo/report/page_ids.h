// Which orders a message is about, and whose an order is.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "common/bytes.h"

namespace kavo::companion {

// A replace and its answers are about two.
std::vector<std::string> ids_of_request(ByteView message);

struct Named {
    std::vector<std::string> ids;
    std::uint64_t order_id = 0;   // the venue's own; 0 when the message tells none
    std::uint64_t execution = 0;  // of an execution
};
Named named_by_response(ByteView message);

// A line of the truth names no user, and two users may give their orders the same id. The venue's own number of an
// order tells them apart; a refused order has none, and belongs to whoever has sent one of that id last.
class Owners {
public:
    void sent(const std::string& id, std::uint64_t ns, const std::string& user) { senders_[id].emplace(ns, user); }
    void answered(std::uint64_t order_id, const std::string& user) {
        if (order_id != 0) by_number_[order_id] = user;
    }
    // Null for nobody's. `order_id` may be 0.
    const std::string* of(const std::string& id, std::uint64_t ns, std::uint64_t order_id) const;

private:
    std::map<std::uint64_t, std::string> by_number_;
    std::map<std::string, std::multimap<std::uint64_t, std::string>> senders_;
};

}  // namespace kavo::companion
