// What a receiver of the feed asks for when it has lost its way: the present state, and the history.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <thread>

#include "client/requests.h"
#include "common/socket.h"
#include "feed/retransmission.h"
#include "market.h"
#include "timing.h"

namespace kavo::benchmarks {

namespace {

constexpr int runs = 7;

Bytes login_packet() {
    client::Login login = client::login("rcvr");
    login.application_protocol = "DoM1.3";
    return esesm::build_packet(esesm::PacketType::login_request, login.payload());
}

// One request of a receiver that has logged in, until the reply has left; processor seconds.
double request_seconds(Retransmission& retransmission, int fd, ByteView packet) {
    RConn& connection = retransmission.open_connection(fd);
    retransmission.receive(connection, login_packet());
    const double seconds = processor_seconds_of([&] {
        retransmission.receive(connection, packet);
        while (!retransmission.farewells().empty() && !retransmission.farewells().back().finished) {
            pollfd writable{fd, POLLOUT, 0};
            poll(&writable, 1, -1);
            retransmission.serve();
        }
    });
    retransmission.connections().clear();
    return seconds;
}

// Everything that rests, built and framed, and sent nowhere.
void refresh(benchmark::State& state) {
    Market& market = market_with(static_cast<std::size_t>(state.range(0)));
    std::size_t bytes_sent = 0;
    Transport counting = nowhere();
    counting.send = [&](int, ByteView bytes, bool) {
        bytes_sent += bytes.size();
        return bytes.size();
    };
    counting.read = [](int, Bytes&, bool&, bool) { return ReadEnd::gone; };  // closes as soon as it is told the end
    Retransmission retransmission(market.feed, market.clock, counting, 1, market.commentary);
    const auto everything = std::to_array<std::uint8_t>({'R', 'O'});
    const Bytes packet = esesm::build_packet(esesm::PacketType::unsequenced_data, everything);
    std::vector<double> seconds;
    for (auto _ : state) {
        for (int i = 0; i < runs; ++i) {
            bytes_sent = 0;
            seconds.push_back(request_seconds(retransmission, 0, packet));
        }
        state.SetIterationTime(median(seconds));
    }
    state.counters["ns_an_order"] = median(seconds) * 1e9 / static_cast<double>(market.engine.books.resting_orders());
    state.counters["MB"] = static_cast<double>(bytes_sent) / 1e6;
}
BENCHMARK(refresh)->ArgName("resting")->Arg(0)->Arg(100'000)->Arg(1'000'000)->Iterations(1)->UseManualTime();

// A receiver in a thread of its own, which reads and forgets until the connection is closed.
class Reader {
public:
    Reader() {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) std::abort();
        server_end_ = ends[0];
        fcntl(server_end_, F_SETFL, O_NONBLOCK);
        thread_ = std::thread([fd = ends[1]] {
            Bytes scratch(1 << 20);
            while (recv(fd, scratch.data(), scratch.size(), 0) > 0) continue;
            close_socket(fd);
        });
    }
    ~Reader() { thread_.join(); }  // the service has closed the other end
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    int server_end() const { return server_end_; }

private:
    int server_end_;
    std::thread thread_;
};

// All the history holds, sends included.
void retransmission(benchmark::State& state) {
    Market& market = market_with(0);
    const int no_listener = no_socket;
    Retransmission retransmission(market.feed, market.clock, socket_transport(no_listener), 1, market.commentary);
    Bytes range(layout::retransmission_request::min_size);
    put(range, layout::retransmission_request::last, market.feed.last_sequence());
    const Bytes packet = esesm::build_packet(esesm::PacketType::retransmission_request, range);
    std::vector<double> seconds;
    for (auto _ : state) {
        for (int i = 0; i < runs; ++i) {
            const Reader reader;
            seconds.push_back(request_seconds(retransmission, reader.server_end(), packet));
        }
        state.SetIterationTime(median(seconds));
    }
    state.counters["ns_a_message"] = median(seconds) * 1e9 / static_cast<double>(market.feed.history.size());
}
BENCHMARK(retransmission)->Iterations(1)->UseManualTime();

}  // namespace
}  // namespace kavo::benchmarks
