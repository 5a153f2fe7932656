// The stages of the tests about the bench itself: the real program with its control port and its recovery service open
// as well.
#pragma once

#include <string>
#include <vector>

#include "client/control_client.h"
#include "client/recovery_client.h"
#include "support/scene.h"
#include "system/live_venue.h"

namespace kavo::test {

// A symbol list of one letter over and over: each of them brings forty quotes and three more messages to the start of
// the day, and about six messages to every tick.
inline std::string many_symbols(int count) {
    std::string list;
    while (count-- > 0) list += "A,";
    return list;
}

// Two more ports of its own, and the flags that tell the program so.
struct ServicePorts {
    ReservedPort retransmission;
    ReservedPort control;

    std::vector<std::string> flags(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> all = {"--retrans-port", std::to_string(retransmission.number()), "--control-port",
                                        std::to_string(control.number())};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
};

// One symbol and a market that stands still, unless the flags say otherwise. The start of the day has been read.
class FullVenue : private ServicePorts, public LiveVenue {
public:
    explicit FullVenue(const Flags& more_flags = {}, const Environment& more_environment = {})
        : LiveVenue(ServicePorts::flags(more_flags), more_environment), control(control_port()) {}

    std::uint16_t control_port() const { return ServicePorts::control.number(); }
    std::uint16_t retransmission_port() const { return retransmission.number(); }

    ControlClient control;
};

// The same with nothing read off the feed: for a feed that is damaged from its first packet on, for one that is too
// fast to be read, and for receivers that come when they want to.
class UnreadVenue {
public:
    explicit UnreadVenue(const std::vector<std::string>& more_flags, const LiveVenue::Environment& environment = {})
        : process(KAVO_ME_PATH, flags(more_flags), environment), control(ports_.control.number()) {
        EXPECT_TRUE(process.catches(SIGTERM)) << process.said();
    }
    ~UnreadVenue() { EXPECT_EQ(process.stop(), 0) << process.said(); }
    UnreadVenue(const UnreadVenue&) = delete;
    UnreadVenue& operator=(const UnreadVenue&) = delete;

    std::uint16_t port() const { return meo_port_.number(); }
    std::uint16_t retransmission_port() const { return ports_.retransmission.number(); }

    FeedReader feed;

private:
    std::vector<std::string> flags(const std::vector<std::string>& more) const {
        std::vector<std::string> all =
            ports_.flags({"--mcast", "127.0.0.1", "--port", std::to_string(feed.port()), "--meo-port",
                          std::to_string(port()), "--interval-ms", "-1", "--symbols", "AAPL:190.00"});
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    ServicePorts ports_;
    ReservedPort meo_port_;

public:
    Process process;
    ControlClient control;
};

}  // namespace kavo::test
