#include "soak/stage.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

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

void Stage::await_counter(std::string_view counter, std::uint64_t count, Peer& peer) const {
    const auto deadline = steady_clock::now() + patience;
    while (number_behind(counter, control.ask("stats")) < count) {
        if (steady_clock::now() > deadline) throw std::runtime_error("too few" + std::string(counter));
        peer.send_heartbeat();
    }
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

void append(Bytes& bytes, ByteView more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes framed(const Bytes& message) {
    return esesm::build_packet(esesm::PacketType::unsequenced_data, message);
}

Bytes repeated(const Bytes& packet, std::size_t times) {
    Bytes packets;
    for (std::size_t i = 0; i < times; ++i) append(packets, packet);
    return packets;
}

void enter_and_cancel(Peer& peer, std::size_t first, std::size_t count) {
    constexpr std::size_t batch = 500;
    Bytes requests;
    for (std::size_t order = first; order < first + count; ++order) {
        const std::string id = "e" + std::to_string(order);
        append(requests, framed(buy(id).at("1.00").bytes()));
        append(requests, framed(cancel(id).bytes()));
        if ((order - first + 1) % batch != 0 && order + 1 != first + count) continue;
        peer.pour_all(requests);
        requests.clear();
    }
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
