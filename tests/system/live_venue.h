// The stage of the system tests: the real program on ports of its own, a receiver on its feed, and users on real
// connections.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/feed_reader.h"
#include "client/wire_client.h"
#include "support/process.h"
#include "support/scene.h"

namespace kavo::test {

inline constexpr std::uint64_t largest_number = 0xFFFFFFFFFFFFFFFF;

// Order ids start at 1000, and the forty quotes that open each symbol's day take the first ones.
class LiveVenue {
public:
    using Flags = std::vector<std::string>;
    using Environment = std::map<std::string, std::string>;

    // One symbol, a market that stands still and no service but order entry, unless the flags say otherwise: of a flag
    // that is given twice the later value counts. The start of the day has been read off the feed.
    explicit LiveVenue(const Flags& more_flags = {}, const Environment& more_environment = {})
        : process(KAVO_ME_PATH, flags(more_flags), environment(more_environment)) {
        EXPECT_TRUE(process.catches(SIGTERM)) << process.said();  // the last thing before the loop
        read_start_of_day();
    }
    ~LiveVenue() {
        if (!stopped_) stop();
    }
    LiveVenue(const LiveVenue&) = delete;
    LiveVenue& operator=(const LiveVenue&) = delete;

    std::uint16_t port() const { return meo_port_.number(); }
    std::uint32_t products() const { return products_; }
    // The quotes that opened the day, as lines of the feed.
    const std::vector<std::string>& quotes() const { return quotes_; }

    // Takes all quotes off the books, so that a scene knows every order it meets. For each symbol two market orders do
    // it, more than all that is there; with one symbol they are #1040 and #1041, and the scene goes on with order
    // #1042, match 41 and execution 41, since the forty quotes have no owner to be told of theirs.
    void empty_the_books();

    // Ends the program, as every scene does at last: it must have stayed healthy.
    void stop() {
        stopped_ = true;
        EXPECT_EQ(process.stop(), 0) << process.said();
    }

    // The order truth log so far, with "*" for the time, without what emptied the books.
    std::string truth() const;
    // What the test bench has said so far, without its counters and what emptied the books. Complete after stop().
    std::string commentary();

    FeedReader feed;

private:
    static constexpr std::size_t quotes_per_product = 40;
    static constexpr const char* sweeper = "sweep";

    Flags flags(const Flags& more) const;
    Environment environment(Environment more) const {
        more.emplace("BENCH_ORDER_TRUTH", order_truth_.path());
        return more;
    }
    void read_start_of_day();

    ReservedPort meo_port_;
    TemporaryFile order_truth_;
    std::uint32_t products_ = 0;
    std::vector<std::string> quotes_;
    bool stopped_ = false;

public:
    // Ends before the receiver goes: nobody else may get that port while the feed is still sent to it.
    Process process;
};

// A user at the first login, with everything read that this brings: the next message is number 3 for one symbol.
class User : public WireClient {
public:
    User(const LiveVenue& venue, const std::string& name) : WireClient(venue.port()) {
        log_in(login(name));
        for (std::uint32_t i = 0; i < 2 + venue.products(); ++i) next();  // the response, SN and one SU for each symbol
        EXPECT_EQ(last_sequence(), 1 + venue.products()) << "the welcome of " << name;
    }
};

// A port of 127.0.0.1 where somebody else is already.
//   type  SOCK_STREAM, and somebody listens there, or SOCK_DGRAM
class TakenPort {
public:
    explicit TakenPort(int type) : socket_(::socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_port = htons(port_.number());
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
        if (type == SOCK_STREAM) {
            EXPECT_EQ(listen(socket_, 1), 0);
        }
    }
    ~TakenPort() { close(socket_); }
    TakenPort(const TakenPort&) = delete;
    TakenPort& operator=(const TakenPort&) = delete;

    std::string number() const { return std::to_string(port_.number()); }

private:
    ReservedPort port_;
    int socket_;
};

// Several requests in one piece, so that the venue reads all of them before it answers any.
inline void send_together(WireClient& client, const std::vector<Bytes>& requests) {
    Bytes piece;
    for (const Bytes& request : requests) {
        const Bytes packet = esesm::build_packet(esesm::PacketType::unsequenced_data, request);
        piece.insert(piece.end(), packet.begin(), packet.end());
    }
    client.send_bytes(piece);
}

// Lines as they stand in a file, each of them ended.
inline std::string lines(const std::vector<std::string>& all) {
    std::string text;
    for (const std::string& line : all) text += line + "\n";
    return text;
}

inline LiveVenue::Flags LiveVenue::flags(const Flags& more) const {
    Flags all = {"--mcast",        "127.0.0.1", "--port",     std::to_string(feed.port()),
                 "--retrans-port", "0",         "--meo-port", std::to_string(port()),
                 "--interval-ms",  "-1",        "--symbols",  "AAPL:190.00"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

inline void LiveVenue::read_start_of_day() {
    while (products_ == 0 || quotes_.size() < quotes_per_product * products_) {
        const std::string line = feed.next();
        if (line == "silence") throw std::runtime_error("the day does not start: " + process.said());
        if (line.starts_with("definition ")) ++products_;
        if (line.starts_with("add ")) quotes_.push_back(line);
    }
}

inline void LiveVenue::empty_the_books() {
    User user(*this, sweeper);
    for (std::uint32_t id = 1; id <= products_; ++id) {
        for (const NewOrder& order : {buy(sweeper), sell(sweeper)}) {
            user.send(order.market().shares(25'000).product(id));
            user.next_with(" XN ");
        }
    }
    user.send_packet('X');
    EXPECT_EQ(user.next(), "closed");
    for (std::size_t i = 0; i < quotes_.size(); ++i) EXPECT_TRUE(feed.next().starts_with("executed "));
}

inline std::string LiveVenue::truth() const {
    std::string text;
    for (const std::string& line : order_truth_.lines()) {
        if (line.find("\"cl\":\"sweep\"") != std::string::npos) continue;
        const std::string start = "{\"t\":";
        const std::size_t end_of_time = line.find_first_not_of("0123456789", start.size());
        const bool timed = line.starts_with(start) && end_of_time != std::string::npos && end_of_time > start.size();
        text += (timed ? start + "*" + line.substr(end_of_time) : line) + "\n";
    }
    return text;
}

inline std::string LiveVenue::commentary() {
    std::string text;
    std::istringstream said(process.said());
    for (std::string line; std::getline(said, line);) {
        if (!line.starts_with("bench: ") || line.starts_with("bench: stats ")) continue;
        if (line.find(sweeper) == std::string::npos) text += line + "\n";
    }
    return text;
}

}  // namespace kavo::test
