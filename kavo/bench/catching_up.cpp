#include "kavo/bench/catching_up.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <exception>
#include <limits>

#include "client/dial.h"
#include "client/recovery.h"
#include "kavo/bench/descriptor.h"

namespace kavo::companion {

namespace {

using FetchClock = std::chrono::steady_clock;

constexpr std::chrono::seconds longest_fetch{2};  // all of it
constexpr std::uint64_t messages_worth_a_connection = 1'000;
constexpr std::size_t fetched_at_once_bytes = 65'536;

Bytes login_and_request(SequenceRange numbers, const std::string& user) {
    Bytes packets = esesm::build_packet(esesm::PacketType::login_request, client::receiver_login(user).payload());
    const Bytes request = esesm::build_packet(esesm::PacketType::retransmission_request,
                                              client::retransmission_payload(numbers.first, numbers.last));
    packets.insert(packets.end(), request.begin(), request.end());
    return packets;
}

// The relay, which turns by the same loop, has the other end of the connection.
class Fetch {
public:
    Fetch(Loop& loop, SequenceRange numbers, const std::string& user, std::uint16_t port)
        : loop_(loop), recovery_(client::Recovery::of_messages(numbers.first, numbers.last)) {
        if (!ask(login_and_request(numbers, user), port)) recovery_.disconnected();
    }
    ~Fetch() {
        if (!socket_.open()) return;
        loop_.forget(socket_.get());
        // With a reset: behind an end in good order the system would keep the ports of the bench for a minute.
        const linger at_once{1, 0};
        setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }
    Fetch(const Fetch&) = delete;
    Fetch& operator=(const Fetch&) = delete;

    bool over() const { return recovery_.over(); }
    bool complete() const { return recovery_.over() && recovery_.problem().empty(); }

private:
    bool ask(const Bytes& opening, std::uint16_t port) {
        try {
            socket_ = Descriptor(client::dial(port));
        } catch (const std::exception&) {
            return false;
        }
        fcntl(socket_.get(), F_SETFL, O_NONBLOCK);
        loop_.watch(socket_.get(), POLLIN, [this](short) { read(); });
        return send(socket_.get(), opening.data(), opening.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(opening.size());
    }

    void read() {
        std::array<std::uint8_t, fetched_at_once_bytes> bytes;
        const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), 0);
        if (count > 0) return recovery_.receive({bytes.data(), static_cast<std::size_t>(count)});
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
        recovery_.disconnected();
        loop_.forget(socket_.get());
    }

    Loop& loop_;
    client::Recovery recovery_;
    Descriptor socket_;
};

}  // namespace

std::vector<SequenceRange> requests_for_missing(const NumberRanges& received) {
    constexpr std::uint64_t all_there_is = std::numeric_limits<std::uint64_t>::max();
    std::vector<SequenceRange> requests;
    for (const SequenceRange missing : received.missing_from({1, all_there_is})) {
        if (!requests.empty() && missing.first - requests.back().last <= messages_worth_a_connection) {
            requests.back().last = missing.last;
        } else {
            requests.push_back(missing);
        }
    }
    return requests;
}

void fetch_missing(Loop& loop, const NumberRanges& received, const std::string& user, std::uint16_t port) {
    const auto deadline = FetchClock::now() + longest_fetch;
    for (const SequenceRange numbers : requests_for_missing(received)) {
        const Fetch fetch(loop, numbers, user, port);
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - FetchClock::now());
        if (left.count() <= 0 || !loop.turn_until([&] { return fetch.over(); }, left) || !fetch.complete()) return;
    }
}

}  // namespace kavo::companion
