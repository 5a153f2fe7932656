// The floor under the simulator: a server that makes the same system calls for a request, with the same number of
// bytes, and does nothing else. Nothing is parsed but the length of a packet and the type of a request, nothing is
// judged, and every answer is a run of bytes that was made before the first client came.
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "common/socket.h"
#include "engine/meo_layout.h"
#include "feed/dom_layout.h"
#include "feed/mach.h"
#include "session/esesm.h"

namespace kavo::benchmarks {

namespace {

volatile std::sig_atomic_t stop_requested = 0;

constexpr int longest_wait_ms = 5;
constexpr int backlog = 8;

// Which answers are pushed; the others are sent with MSG_MORE, and leave with the next one that is.
enum class Pushed {
    every_answer,
    last_to_request,
    as_the_simulator,  // the last to the first of the requests that came together, and the last of all
};

struct Settings {
    std::uint16_t port = 0;
    std::uint16_t feed_port = 0;
    Pushed pushed = Pushed::every_answer;
    std::string order_truth;  // path; empty is none
};

Bytes sequenced_answer(std::size_t message_size) {
    Bytes packet(esesm::sequenced_size(message_size));
    esesm::write_sequenced(packet, 1, Bytes(message_size));
    return packet;
}

Bytes line_of(std::size_t size) {
    Bytes line(size, 'x');
    line.back() = '\n';
    return line;
}

// What one kind of request is answered with, made once.
struct Script {
    std::vector<Bytes> packets;
    Bytes datagram;
    Bytes truth_line;
};

const Script& resting_order() {
    namespace to = meo::layout;
    static const Script script{{sequenced_answer(to::new_order_response::size),
                                sequenced_answer(to::order_accepted::size), sequenced_answer(to::order_resting::size)},
                               Bytes(mach::layout::header_size + dom::layout::add_order::size),
                               line_of(168)};
    return script;
}

const Script& cancelled_order() {
    namespace to = meo::layout;
    static const Script script{
        {sequenced_answer(to::cancel_response::size), sequenced_answer(to::order_cancelled::size)},
        Bytes(mach::layout::header_size + dom::layout::delete_order::size),
        line_of(177)};
    return script;
}

// As long as those of a venue with one product: the login's own answer, the session and the product.
const Script& login() {
    static const Script script{
        {esesm::build_login_response({{}}), sequenced_answer(meo::layout::start_of_session::size),
         sequenced_answer(meo::layout::symbol_update::size)},
        {},
        {}};
    return script;
}

class Floor {
public:
    explicit Floor(const Settings& settings)
        : settings_(settings),
          datagrams_(::socket(AF_INET, SOCK_DGRAM, 0)),
          polled_{{open_listener(settings.port, backlog, "floor_server: listen", Commentary()), POLLIN, 0}} {
        receiver_.sin_family = AF_INET;
        receiver_.sin_port = htons(settings.feed_port);
        receiver_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (settings.order_truth.empty()) return;
        truth_ = open(settings.order_truth.c_str(), O_WRONLY | O_APPEND);
    }

    bool listens() const { return polled_.front().fd != no_socket; }

    void run() {
        while (stop_requested == 0) {
            const int ready = poll(polled_.data(), polled_.size(), longest_wait_ms);
            if (ready <= 0) continue;
            if (polled_.front().revents != 0) accept_all();
            for (std::size_t i = 1; i < polled_.size(); ++i) {
                if (polled_[i].revents != 0) serve(i);
            }
        }
    }

private:
    // What a client has sent, as far as it has not been answered. Its place is that of its socket in the poll array.
    struct Received {
        std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(2 * read_bytes);
        std::size_t size = 0;
    };

    void accept_all() {
        bool exhausted = false;
        for (int fd = 0; (fd = accept_connection(polled_.front().fd, exhausted)) != no_socket;) {
            polled_.push_back({fd, POLLIN, 0});
            received_.resize(polled_.size());
        }
    }

    void serve(std::size_t client) {
        Received& received = received_[client];
        while (true) {
            const std::size_t room = received.bytes.size() - received.size;
            const ssize_t count = recv(polled_[client].fd, received.bytes.data() + received.size, room, 0);
            if (count < 0 && errno == EAGAIN) break;
            if (count <= 0) return forget(client);
            received.size += static_cast<std::size_t>(count);
        }
        answer_all(polled_[client].fd, received);
    }

    void forget(std::size_t client) {
        close_socket(polled_[client].fd);
        polled_[client].fd = no_socket;
    }

    static std::size_t packet_size(const Received& received, std::size_t at) {
        constexpr auto length = esesm::layout::packet::length;
        const ByteView rest = ByteView(received.bytes).first(received.size).subspan(at);
        if (rest.size() < end_of(length)) return 0;
        const std::size_t size = end_of(length) + get(rest, length);
        return size <= rest.size() ? size : 0;
    }

    void answer_all(int fd, Received& received) {
        std::size_t at = 0;
        while (const std::size_t size = packet_size(received, at)) {
            const bool first = at == 0;
            const std::uint8_t* packet = received.bytes.data() + at;
            at += size;
            const bool joins_next =
                settings_.pushed == Pushed::as_the_simulator && !first && packet_size(received, at) != 0;
            answer(fd, packet, joins_next);
        }
        std::memmove(received.bytes.data(), received.bytes.data() + at, received.size - at);
        received.size -= at;
    }

    void answer(int fd, const std::uint8_t* packet, bool joins_next) {
        const auto type = static_cast<esesm::PacketType>(packet[esesm::layout::packet::type.at]);
        if (type == esesm::PacketType::login_request) return play(login(), fd, joins_next);
        if (type != esesm::PacketType::unsequenced_data) return;
        const bool is_new_order = packet[esesm::layout::packet::header_size] == 'N';
        play(is_new_order ? resting_order() : cancelled_order(), fd, joins_next);
    }

    void play(const Script& script, int fd, bool joins_next) {
        if (truth_ != -1) {
            [[maybe_unused]] const ssize_t ignored = write(truth_, script.truth_line.data(), script.truth_line.size());
        }
        for (const Bytes& packet : script.packets) {
            const bool last = &packet == &script.packets.back();
            const bool more_follows = last ? joins_next : settings_.pushed != Pushed::every_answer;
            send_packet(fd, packet, more_follows);
        }
        if (script.datagram.empty()) return;
        sendto(datagrams_, script.datagram.data(), script.datagram.size(), 0,
               reinterpret_cast<const sockaddr*>(&receiver_), sizeof receiver_);
    }

    Settings settings_;
    int datagrams_;
    sockaddr_in receiver_{};
    int truth_ = -1;
    std::vector<pollfd> polled_;  // the listener, then the clients
    std::vector<Received> received_;
};

}  // namespace
}  // namespace kavo::benchmarks

// floor_server <port> <feed port> <plain | request | batches> [order truth file]
int main(int argc, char** argv) {
    using namespace kavo::benchmarks;
    if (argc < 4) {
        std::fprintf(stderr, "usage: floor_server <port> <feed port> <plain | request | batches> [order truth file]\n");
        return 2;
    }
    Settings settings;
    settings.port = static_cast<std::uint16_t>(std::atoi(argv[1]));
    settings.feed_port = static_cast<std::uint16_t>(std::atoi(argv[2]));
    if (argv[3] == std::string_view("request")) settings.pushed = Pushed::last_to_request;
    if (argv[3] == std::string_view("batches")) settings.pushed = Pushed::as_the_simulator;
    if (argc > 4) settings.order_truth = argv[4];
    Floor floor(settings);
    if (!floor.listens()) return EXIT_FAILURE;
    std::signal(SIGINT, [](int) { stop_requested = 1; });
    std::fprintf(stderr, "floor_server listens\n");
    floor.run();
}
