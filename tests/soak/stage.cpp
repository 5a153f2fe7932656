#include "soak/stage.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>

namespace kavo::test {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

Stage::Stage(const Flags& more_flags, const std::string& shell, const Environment& environment)
    : process("/bin/sh", arguments(shell, more_flags), environment), control(control_port_.number()) {
    EXPECT_TRUE(process.catches(SIGTERM)) << process.said();  // the last thing before the loop
}

Stage::Flags Stage::arguments(const std::string& shell, const Flags& more) const {
    Flags all = {"-c",
                 shell,
                 "sh",
                 KAVO_ME_PATH,
                 "--mcast",
                 "127.0.0.1",
                 "--port",
                 std::to_string(feed.port()),
                 "--meo-port",
                 std::to_string(order_entry_.number()),
                 "--retrans-port",
                 std::to_string(retransmission_.number()),
                 "--control-port",
                 std::to_string(control_port_.number()),
                 "--interval-ms",
                 "-1",
                 "--symbols",
                 "AAPL:190.00"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

Trader::Trader(std::uint16_t port, const std::string& name) : wire(port) {
    wire.log_in(login(name));
    EXPECT_EQ(wire.next(3), "login accepted, engine 1, highest 0 | 1: SN MEO2.7 session 1 | 2: SU 1 AAPL Q");
}

void Trader::trade() {
    const std::string id = "t" + std::to_string(++orders_);
    auto sent = steady_clock::now();
    wire.send(buy(id).at("1.00"));
    expect("NR " + id + " accepted ");
    answers_.add(steady_clock::now() - sent);
    expect("O1 " + id);
    expect("P1 " + id);
    sent = steady_clock::now();
    wire.send(cancel(id));
    expect("CR x" + id + " of " + id + " accepted ");
    answers_.add(steady_clock::now() - sent);
    expect("XN " + id);
}

void Trader::expect(const std::string& start) {
    const std::string line = wire.next();
    const std::string expected = std::to_string(next_number_++) + ": " + start;
    if (!line.starts_with(expected)) throw std::runtime_error("instead of " + expected + ": " + line);
}

void Trader::trade_for(milliseconds time, milliseconds pause) {
    const auto end = steady_clock::now() + time;
    while (steady_clock::now() < end) {
        trade();
        if (pause.count() > 0) poll(nullptr, 0, static_cast<int>(pause.count()));
    }
}

BlindPeer::BlindPeer(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int small = 4096;
    setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    sockaddr_in venue{};
    venue.sin_family = AF_INET;
    venue.sin_port = htons(port);
    venue.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&venue), sizeof venue), 0);
    const timeval moment{0, 20'000};
    setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &moment, sizeof moment);
}

BlindPeer::~BlindPeer() {
    close(socket_);
}

std::size_t BlindPeer::pour(ByteView bytes) const {
    const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return sent > 0 ? static_cast<std::size_t>(sent) : 0;
}

void BlindPeer::pour_all(ByteView bytes) const {
    const auto deadline = steady_clock::now() + patience;
    while (!bytes.empty() && steady_clock::now() < deadline) bytes = bytes.subspan(pour(bytes));
    EXPECT_TRUE(bytes.empty());
}

void BlindPeer::break_off() const {
    const linger at_once{1, 0};
    setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

bool allow_descriptors(std::size_t count) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur >= count;
}

// A connection under repair is closed without a word.
bool vanish(WireClient& client) {
    const int on = 1;
    if (setsockopt(client.socket(), IPPROTO_TCP, TCP_REPAIR, &on, sizeof on) != 0) return false;
    client.disconnect();
    return true;
}

}  // namespace kavo::test
