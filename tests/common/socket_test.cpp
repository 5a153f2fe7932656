#include "common/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <utility>

#include "support/said.h"

namespace kavo {
namespace {

using test::said_during;
using test::standard_error;

constexpr int longest_wait_ms = 5000;

class Socket {
public:
    explicit Socket(int fd) : fd_(fd) {}
    Socket(Socket&& other) noexcept : fd_(other.release()) {}
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    Socket& operator=(Socket&&) = delete;
    ~Socket() { close_socket(fd_); }

    int fd() const { return fd_; }
    int release() {
        const int fd = fd_;
        fd_ = no_socket;
        return fd;
    }
    bool readable() const {
        pollfd waiting{fd_, POLLIN, 0};
        return poll(&waiting, 1, longest_wait_ms) == 1;
    }

private:
    int fd_;
};

std::uint16_t port_of(int socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

int connect_to(std::uint16_t port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return socket;
}

bool blocks(int socket) {
    return (fcntl(socket, F_GETFL) & O_NONBLOCK) == 0;
}

// One connection on loopback, seen from both its ends.
struct Connection {
    // It must not block; should it, then not for ever.
    Connection() {
        EXPECT_GE(server.fd(), 0);
        const timeval limit{0, 20'000};
        for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
            setsockopt(server.fd(), SOL_SOCKET, option, &limit, sizeof limit);
        }
    }

    Socket listener{open_listener(0, 4, "listen", standard_error)};
    Socket client{connect_to(port_of(listener.fd()))};
    bool exhausted = true;
    Socket server{listener.readable() ? accept_connection(listener.fd(), exhausted) : no_socket};

    std::array<std::uint8_t, 16> scratch{};
    Bytes received;
    bool arrived = false;
    bool end_possible = true;
    ReadEnd read() { return read_available(server.fd(), scratch, received, arrived, end_possible); }
    // Reads until `size` bytes are there: loopback may deliver them in pieces.
    ReadEnd read_up_to(std::size_t size) {
        ReadEnd end = ReadEnd::open;
        while (received.size() < size && end != ReadEnd::gone && server.readable()) end = read();
        return end;
    }
    // The peer is gone without a proper end.
    void break_off() {
        const linger at_once{1, 0};
        setsockopt(client.fd(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        close_socket(client.release());
        EXPECT_TRUE(server.readable());
    }
    void say(const std::string& text) { EXPECT_EQ(write(client.fd(), text.data(), text.size()), std::ssize(text)); }
};

TEST(DottedQuad, IsReadFromADottedQuad) {
    EXPECT_EQ(ntohl(to_address("233.54.28.111").s_addr), 0xE9361C6Fu);
    EXPECT_EQ(ntohl(to_address("127.0.0.1").s_addr), 0x7F000001u);
}

TEST(DottedQuad, IsAllZerosForATextThatIsNone) {
    for (const char* text : {"", "localhost", "1.2.3", "1.2.3.4.5", "256.0.0.1", " 1.2.3.4"}) {
        EXPECT_EQ(to_address(text).s_addr, 0u) << text;
    }
}

TEST(OpenListener, NeverBlocks) {
    const Socket listener(open_listener(0, 4, "listen", standard_error));
    ASSERT_GE(listener.fd(), 0);
    EXPECT_FALSE(blocks(listener.fd()));
    bool exhausted = true;
    EXPECT_EQ(accept_connection(listener.fd(), exhausted), no_socket);
    EXPECT_FALSE(exhausted);
}

TEST(OpenListener, HasAnAddressThatCanBeUsedAgain) {
    const Socket listener(open_listener(0, 4, "listen", standard_error));
    int on = 0;
    socklen_t size = sizeof on;
    ASSERT_EQ(getsockopt(listener.fd(), SOL_SOCKET, SO_REUSEADDR, &on, &size), 0);
    EXPECT_NE(on, 0);
}

TEST(OpenListener, OnAPortThatIsTakenSaysWhatFailedAndWhy) {
    const Socket first(open_listener(0, 4, "first", standard_error));
    int second = 0;
    EXPECT_EQ(
        said_during([&] { second = open_listener(port_of(first.fd()), 4, "kavo_me: MEO listen", standard_error); }),
        "kavo_me: MEO listen: Address already in use\n");
    EXPECT_EQ(second, no_socket);
}

// As long as it lives, no descriptor above those that are open can be had.
class NoDescriptorLeft {
public:
    NoDescriptorLeft() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const int lowest_free = dup(STDERR_FILENO);
        close(lowest_free);
        rlimit none_left = before_;
        none_left.rlim_cur = static_cast<rlim_t>(lowest_free);
        setrlimit(RLIMIT_NOFILE, &none_left);
    }
    ~NoDescriptorLeft() { setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};

TEST(OpenListener, SaysSoWhenDescriptorsHaveRunOut) {
    int listener = 0;
    EXPECT_EQ(said_during([&] {
                  const NoDescriptorLeft none;
                  listener = open_listener(0, 4, "kavo_me: MEO listen", standard_error);
              }),
              "kavo_me: MEO listen: Too many open files\n");
    EXPECT_EQ(listener, no_socket);
}

TEST(AcceptedConnection, NeverBlocksAndSendsSmallPacketsAtOnce) {
    Connection connection;
    EXPECT_FALSE(connection.exhausted);
    EXPECT_FALSE(blocks(connection.server.fd()));
    int on = 0;
    socklen_t size = sizeof on;
    ASSERT_EQ(getsockopt(connection.server.fd(), IPPROTO_TCP, TCP_NODELAY, &on, &size), 0);
    EXPECT_NE(on, 0);
}

TEST(AcceptedConnection, IsMissingAndSaysSoWhenDescriptorsHaveRunOut) {
    const Socket listener(open_listener(0, 4, "listen", standard_error));
    const Socket client(connect_to(port_of(listener.fd())));
    ASSERT_TRUE(listener.readable());

    bool exhausted = false;
    {
        const NoDescriptorLeft none;
        EXPECT_EQ(accept_connection(listener.fd(), exhausted), no_socket);
    }
    EXPECT_TRUE(exhausted);

    const Socket accepted(accept_connection(listener.fd(), exhausted));
    EXPECT_GE(accepted.fd(), 0);
    EXPECT_FALSE(exhausted);
}

TEST(ReadAvailable, FindsNothingOnAQuietConnection) {
    Connection connection;
    connection.arrived = true;
    EXPECT_EQ(connection.read(), ReadEnd::open);
    EXPECT_FALSE(connection.arrived);
    EXPECT_TRUE(connection.received.empty());
}

TEST(ReadAvailable, AppendsEverythingThatHasArrivedHoweverSmallItsScratch) {
    Connection connection;
    connection.received = {'>'};
    connection.say("0123456789abcdefghijklmnopqrstuvwxyz");
    EXPECT_NE(connection.read_up_to(37), ReadEnd::gone);
    EXPECT_TRUE(connection.arrived);
    EXPECT_EQ(as_text(connection.received), ">0123456789abcdefghijklmnopqrstuvwxyz");
}

TEST(ReadAvailable, LeavesTheRestOfAFloodForTheNextTurn) {
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
    const Socket venue(ends[0]);
    const Socket peer(ends[1]);
    const Bytes flood(20'000, 'x');
    ASSERT_EQ(write(peer.fd(), flood.data(), flood.size()), std::ssize(flood));

    Bytes scratch(1'000);
    Bytes received;
    bool arrived = false;
    EXPECT_EQ(read_available(venue.fd(), scratch, received, arrived, true), ReadEnd::more);
    EXPECT_TRUE(arrived);
    EXPECT_EQ(received.size(), 1'000U);
    for (int turns = 0; turns < 19; ++turns) {
        EXPECT_EQ(read_available(venue.fd(), scratch, received, arrived, true), ReadEnd::more);
    }
    EXPECT_EQ(read_available(venue.fd(), scratch, received, arrived, true), ReadEnd::open);
    EXPECT_FALSE(arrived);
    EXPECT_EQ(received, flood);
}

TEST(ReadAvailable, TellsThatThePeerIsGone) {
    Connection connection;
    close_socket(connection.client.release());
    ASSERT_TRUE(connection.server.readable());
    EXPECT_EQ(connection.read(), ReadEnd::gone);
    EXPECT_FALSE(connection.arrived);
}

TEST(ReadAvailable, TellsThatThePeerIsGoneBehindItsLastBytes) {
    Connection connection;
    connection.say("bye");
    shutdown(connection.client.fd(), SHUT_WR);
    EXPECT_EQ(connection.read_up_to(4), ReadEnd::gone);
    EXPECT_EQ(as_text(connection.received), "bye");
}

TEST(ReadAvailable, DoesNotLookForAnEndThatIsNotPossible) {
    Connection connection;
    connection.end_possible = false;
    connection.say("abc");
    close_socket(connection.client.release());
    ASSERT_TRUE(connection.server.readable());
    EXPECT_EQ(connection.read(), ReadEnd::open);
    EXPECT_EQ(as_text(connection.received), "abc");
    connection.end_possible = true;
    EXPECT_EQ(connection.read(), ReadEnd::gone);
}

TEST(ReadAvailable, TellsThatThePeerIsGoneWhenItBrokeOff) {
    Connection connection;
    connection.break_off();
    EXPECT_EQ(connection.read(), ReadEnd::gone);
}

TEST(SendPacket, GivesThePeerTheWholePacket) {
    Connection connection;
    send_packet(connection.server.fd(), as_bytes("first "), true);
    send_packet(connection.server.fd(), as_bytes("second"), false);
    std::string heard;
    while (heard.size() < 12 && connection.client.readable()) {
        std::array<char, 64> text{};
        const ssize_t count = read(connection.client.fd(), text.data(), text.size());
        ASSERT_GT(count, 0);
        heard.append(text.data(), static_cast<std::size_t>(count));
    }
    EXPECT_EQ(heard, "first second");
}

TEST(SendPacket, ToADeadPeerRaisesNoSignal) {
    Connection connection;
    connection.break_off();

    static volatile std::sig_atomic_t signals;
    signals = 0;
    const auto before = std::signal(SIGPIPE, [](int) { signals = signals + 1; });
    for (int i = 0; i < 3; ++i) send_packet(connection.server.fd(), as_bytes("anyone there?"), false);
    std::signal(SIGPIPE, before);
    EXPECT_EQ(signals, 0);
}

TEST(SendPacket, LosesWhatThePeerDoesNotTake) {
    Connection connection;
    Bytes large(1'000'000, 'x');
    for (int i = 0; i < 50; ++i) send_packet(connection.server.fd(), large, false);  // nobody reads, nothing waits
    EXPECT_EQ(connection.read(), ReadEnd::open);

    close_socket(connection.server.release());
    std::size_t taken = 0;
    for (ssize_t count = 0; (count = read(connection.client.fd(), large.data(), large.size())) > 0;) {
        taken += static_cast<std::size_t>(count);
    }
    EXPECT_GT(taken, 0u);
    EXPECT_LT(taken, 50'000'000u);
}

// How many bytes the kernel still keeps back.
int unsent(int socket) {
    int count = -1;
    ioctl(socket, SIOCOUTQNSD, &count);
    return count;
}

TEST(SendPacket, MayWaitForTheOneThatFollowsItUntilItIsPushed) {
    Connection connection;
    send_packet(connection.server.fd(), as_bytes("waits"), true);
    EXPECT_EQ(unsent(connection.server.fd()), 5);
    push_packets(connection.server.fd());
    EXPECT_EQ(unsent(connection.server.fd()), 0);
    EXPECT_TRUE(connection.client.readable());
}

TEST(SendPacket, ThatNothingFollowsIsNotKeptBack) {
    Connection connection;
    send_packet(connection.server.fd(), as_bytes("goes"), false);
    EXPECT_EQ(unsent(connection.server.fd()), 0);
}

TEST(SendPacket, TellsHowMuchOfItWasTaken) {
    Connection connection;
    EXPECT_EQ(send_packet(connection.server.fd(), as_bytes("whole"), false), 5u);
    const Bytes large(100'000'000, 'x');  // more than any socket holds
    const auto part = send_packet(connection.server.fd(), large, false);
    ASSERT_TRUE(part.has_value());
    EXPECT_GT(*part, 0u);
    EXPECT_LT(*part, large.size());
}

TEST(SendPacket, ToAFullSocketTakesNothing) {
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
    const Socket venue(ends[0]);
    const Socket peer(ends[1]);
    const Bytes large(1'000'000, 'x');
    std::size_t packets = 0;
    while (packets < 1'000 && send_packet(venue.fd(), large, false) != 0u) ++packets;
    EXPECT_LT(packets, 1'000u);
    EXPECT_EQ(send_packet(venue.fd(), as_bytes("x"), false), 0u);
}

TEST(SendPacket, ToAPeerThatIsGoneSaysSo) {
    Connection connection;
    connection.break_off();
    EXPECT_EQ(send_packet(connection.server.fd(), as_bytes("anyone there?"), false), std::nullopt);
}

TEST(UnacknowledgedBytes, AreThoseThatThePeersSideHasNotTaken) {
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
    const Socket venue(ends[0]);
    const Socket peer(ends[1]);
    EXPECT_EQ(unacknowledged_bytes(venue.fd()), 0u);
    send_packet(venue.fd(), as_bytes("something"), false);
    EXPECT_GE(unacknowledged_bytes(venue.fd()), 9u);
    std::array<char, 16> text{};
    ASSERT_EQ(read(peer.fd(), text.data(), text.size()), 9);
    EXPECT_EQ(unacknowledged_bytes(venue.fd()), 0u);
}

TEST(FinishSending, ShowsThePeerTheEndAndLeavesItFreeToSpeak) {
    Connection connection;
    send_packet(connection.server.fd(), as_bytes("bye"), false);
    finish_sending(connection.server.fd());
    std::array<char, 16> text{};
    ASSERT_TRUE(connection.client.readable());
    EXPECT_EQ(read(connection.client.fd(), text.data(), text.size()), 3);
    EXPECT_EQ(read(connection.client.fd(), text.data(), text.size()), 0);
    connection.say("wait");
    EXPECT_EQ(connection.read_up_to(4), ReadEnd::open);
    EXPECT_EQ(as_text(connection.received), "wait");
}

TEST(SocketTransport, WithoutAListenerAcceptsNobody) {
    bool exhausted = true;
    EXPECT_EQ(socket_transport(no_socket).accept(exhausted), no_socket);
    EXPECT_FALSE(exhausted);
}

TEST(LocalDatagrams, NeverBlockAndAreHeardOnThisHostAlone) {
    const Socket datagrams(open_local_datagrams(0, "datagrams", standard_error));
    ASSERT_GE(datagrams.fd(), 0);
    EXPECT_FALSE(blocks(datagrams.fd()));
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(datagrams.fd(), reinterpret_cast<sockaddr*>(&address), &size);
    EXPECT_EQ(ntohl(address.sin_addr.s_addr), INADDR_LOOPBACK);
    std::array<char, 16> text{};
    EXPECT_EQ(recv(datagrams.fd(), text.data(), text.size(), 0), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(LocalDatagrams, SaySoWhenDescriptorsHaveRunOut) {
    int datagrams = 0;
    EXPECT_EQ(said_during([&] {
                  const NoDescriptorLeft none;
                  datagrams = open_local_datagrams(0, "kavo_me: control port", standard_error);
              }),
              "kavo_me: control port: Too many open files\n");
    EXPECT_EQ(datagrams, no_socket);
}

TEST(LocalDatagrams, OnAPortThatIsTakenSayWhatFailedAndWhy) {
    const Socket taken(::socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(taken.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    int second = 0;
    EXPECT_EQ(said_during(
                  [&] { second = open_local_datagrams(port_of(taken.fd()), "kavo_me: control port", standard_error); }),
              "kavo_me: control port: Address already in use\n");
    EXPECT_EQ(second, no_socket);
}

TEST(CloseSocket, LeavesAMissingSocketAlone) {
    const Socket listener(open_listener(0, 4, "listen", standard_error));
    close_socket(no_socket);
    EXPECT_NE(fcntl(listener.fd(), F_GETFL), -1);
}

}  // namespace
}  // namespace kavo
