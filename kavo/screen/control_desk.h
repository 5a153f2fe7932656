// Whoever sits at the control port: asks, and knows what to say when nobody answers.
#pragma once

#include <cstdint>
#include <string>

#include "client/control_client.h"
#include "client/feed_reader.h"
#include "kavo/screen/control_vocabulary.h"

namespace kavo::companion {

class ControlDesk {
public:
    //   port  of the control port on 127.0.0.1
    explicit ControlDesk(std::uint16_t port) : port_(port), client_(port) {}

    // The reply as it came. Throws Problem when there is none within two seconds.
    std::string ask(const std::string& line) const;
    Statistics statistics() const;

private:
    std::uint16_t port_;
    client::ControlClient client_;
};

// Brings the bench to a moment at which books can be compared: no fault of the feed is set any more, a datagram that
// was held back has left, the market is paused, and a heartbeat has told everybody the number of the last message.
struct Settled {
    std::uint64_t next_sequence = 0;  // of the feed
    bool interval_changed = false;    // see below
};

// A held datagram leaves only behind another, so if any was ever held the market takes another step. One that does not
// for two seconds, its interval being long or negative, is made to by `rate 1`, and `rate -1` follows: then it stands
// still until somebody sets a rate, whether it is paused or not.
//   feed  of this bench, already listening. Null when it goes to one address alone, where whoever listens takes it away
//         from the client: then the bench is watched until it must have sent its heartbeat
// Throws Problem when the feed is not heard, or does not come to rest.
Settled settle(const ControlDesk& desk, client::FeedReader* feed);

}  // namespace kavo::companion
