#include "kavo/wire/relay_connection.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "kavo/basics/now.h"

namespace kavo::companion {

namespace {

using Clock = std::chrono::steady_clock;

// So much is read of one side beyond what the other has taken.
constexpr std::size_t waiting_limit_bytes = 128 * 1024;
constexpr std::size_t read_bytes = 64 * 1024;
// A side that has been told that it is over, or that does not take what stands before a reset, has so long.
constexpr std::chrono::seconds patience{2};
constexpr std::chrono::milliseconds before_reset{1};

// What the system buffers on top of it, at each of the two sockets and in each direction. Little, or whoever does not
// read would be found out by the venue much later than without a relay.
constexpr int socket_buffer_bytes = 128 * 1024;

void prepare(int socket) {
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &socket_buffer_bytes, sizeof socket_buffer_bytes);
    setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &socket_buffer_bytes, sizeof socket_buffer_bytes);
}

bool would_block() {
    return errno == EAGAIN || errno == EINTR;
}

// On loopback what is sent has arrived; what is not would be lost by a reset.
bool has_unsent(int socket) {
    int count = 0;
    return ioctl(socket, SIOCOUTQNSD, &count) == 0 && count > 0;
}

int error_of(int socket) {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

}  // namespace

RelayConnection::RelayConnection(const RelayParts& parts, int client, Recording::Ends ports, std::uint16_t behind)
    : parts_(parts), number_(parts.recording.number_connection()) {
    client_.is_client = true;
    client_.socket = client;
    prepare(client);
    client_.ends = ports;
    venue_.ends = {ports.client, behind};
    client_.said.did = [this](std::string_view what, std::size_t bytes) { note(what, "up", bytes); };
    venue_.said.did = [this](std::string_view what, std::size_t bytes) { note(what, "down", bytes); };
    parts_.recording.opened(now_ns(), client_.ends);
    connect_to_venue();
    update();
}

RelayConnection::~RelayConnection() {
    parts_.loop.cancel(look_);
    close_socket(client_);
    close_socket(venue_);
}

void RelayConnection::connect_to_venue() {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(venue_.ends.server);
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    venue_.socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    prepare(venue_.socket);
    const bool well = connect(venue_.socket, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
    venue_.connecting = !well && errno == EINPROGRESS;
    if (!venue_.connecting) connected(well);
}

// By now the venue may have accepted, spoken, and reset the connection. Asking for the error takes it away, so it is
// dealt with here.
void RelayConnection::find_connected() {
    const int error = error_of(venue_.socket);
    const bool reset_since = error == ECONNRESET || error == EPIPE;
    connected(error == 0 || reset_since);
    if (reset_since) hear_the_rest(venue_);
}

// Nobody there: the client is reset, which is the nearest to being refused that is left.
void RelayConnection::connected(bool well) {
    venue_.connecting = false;
    if (well) return parts_.recording.opened(now_ns(), venue_.ends);
    close_socket(venue_);
    reset(client_);
    end();
}

void RelayConnection::on_events(Side& side, short events) {
    if (over()) return;
    if (side.connecting) find_connected();
    if (over() || side.socket == -1) return pass_on();
    if ((events & POLLOUT) != 0) side.full = false;
    const bool ended = (events & (POLLHUP | POLLERR)) != 0;
    if (side.heard_all && ended) {
        was_reset(side);
    } else if (!side.heard_all && (ended || (events & POLLIN) != 0)) {
        hear(side);
    }
    pass_on();
}

// Reads once; the next turn reads on, after everybody else.
void RelayConnection::hear(Side& side) {
    std::array<std::uint8_t, read_bytes> room;
    const ssize_t count = recv(side.socket, room.data(), room.size(), 0);
    if (count > 0) {
        heard(side, ByteView(room.data(), static_cast<std::size_t>(count)));
    } else if (count == 0) {
        finished(side);
    } else if (!would_block()) {
        was_reset(side);
    }
}

void RelayConnection::heard(Side& side, ByteView bytes) {
    parts_.recording.said(now_ns(), side.ends, side.is_client, bytes);
    if (mode_ != Mode::relaying) return;
    if (side.is_client && user_.empty()) recognise(bytes);
    side.said.take(Clock::now(), bytes);
}

void RelayConnection::recognise(ByteView bytes) {
    before_login_.take(bytes);
    while (const auto packet = before_login_.next()) {
        if (!client::has_type(*packet, esesm::PacketType::login_request)) continue;
        const auto login = esesm::read_login_request(client::payload_of(*packet));
        if (!login || login->username.empty()) continue;
        user_ = login->username;
        RelayFaults& faults = parts_.faults_of(user_);
        client_.said.suffer(faults.up);
        venue_.said.suffer(faults.down);
        return;
    }
}

void RelayConnection::finished(Side& side) {
    side.heard_all = true;
    parts_.recording.closed(now_ns(), side.ends, side.is_client, false);
    if (mode_ == Mode::relaying) return side.said.end(Clock::now(), Flow::End::finish);
    end_when_heard();
}

void RelayConnection::was_reset(Side& side) {
    if (side.socket == -1) return;
    const bool recorded = side.heard_all && side.told_all;
    if (!recorded) parts_.recording.closed(now_ns(), side.ends, side.is_client, true);
    close_socket(side);
    if (mode_ != Mode::relaying) return end_when_heard();
    if (other(side).socket == -1) return end();
    // What the other one still says reaches nobody; it learns of it behind what it is still owed.
    other(side).heard_all = true;
    other(side).said.forget_everything();
    side.said.end(Clock::now(), Flow::End::reset);
    give_up_at_ = Clock::now() + patience;
}

void RelayConnection::apply() {
    pass_on();
}

void RelayConnection::pass_on() {
    if (passing_) return;
    passing_ = true;
    pump(client_);
    pump(venue_);
    passing_ = false;
    update();
}

void RelayConnection::pump(Side& from) {
    const Side& to = other(from);
    if (venue_.connecting) return;
    while (mode_ == Mode::relaying && !to.told_all && !to.full && hand_over(from, Clock::now())) {
    }
    if (mode_ == Mode::relaying && !to.told_all) pass_end(from, Clock::now());
}

// Hands over what is ready. False when there is nothing more to do for now.
bool RelayConnection::hand_over(Side& from, Flow::Time now) {
    Side& to = other(from);
    const ByteView bytes = from.said.ready(now);
    if (bytes.empty()) return false;
    const ssize_t taken = send(to.socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (taken < 0 && !would_block()) hear_the_rest(to);
    to.full = taken < static_cast<ssize_t>(bytes.size());
    if (taken <= 0) return false;
    const auto count = static_cast<std::size_t>(taken);
    parts_.recording.said(now_ns(), to.ends, from.is_client, bytes.first(count));
    from.told.take(bytes.first(count));
    from.said.passed(now, count);
    tell_packets(from);
    return !from.said.in_pieces();
}

void RelayConnection::tell_packets(Side& from) {
    while (const auto packet = from.told.next()) {
        if (parts_.on_packet) parts_.on_packet(user_, from.is_client, *packet);
    }
}

// Whoever has reset the connection may have said something before, such as a goodbye.
void RelayConnection::hear_the_rest(Side& side) {
    std::array<std::uint8_t, read_bytes> room;
    while (!side.heard_all) {
        const ssize_t count = recv(side.socket, room.data(), room.size(), 0);
        if (count <= 0) break;
        heard(side, ByteView(room.data(), static_cast<std::size_t>(count)));
    }
    was_reset(side);
}

void RelayConnection::pass_end(Side& from, Flow::Time now) {
    Side& to = other(from);
    switch (from.said.end_ready(now)) {
        case Flow::End::none: return;
        case Flow::End::cut: note("cut", from.is_client ? "up" : "down", 0); return cut();
        case Flow::End::reset:
            if (has_unsent(to.socket) && now < give_up_at_) return;
            reset(to);
            return end();
        case Flow::End::finish:
            finish(to);
            if (from.told_all) end();
    }
}

void RelayConnection::finish(Side& side) {
    shutdown(side.socket, SHUT_WR);
    side.told_all = true;
    parts_.recording.closed(now_ns(), side.ends, !side.is_client, false);
}

void RelayConnection::reset(Side& side) {
    if (side.socket == -1) return;
    const linger at_once{1, 0};
    setsockopt(side.socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    const bool recorded = (side.heard_all && side.told_all) || side.connecting;
    if (!recorded) parts_.recording.closed(now_ns(), side.ends, !side.is_client, true);
    close_socket(side);
}

void RelayConnection::break_now(Breaking how) {
    if (broken()) return;
    if (how == Breaking::cut && !venue_.connecting) {
        note("cut", "both", client_.said.size() + venue_.said.size());
        cut();
    } else if (how == Breaking::abandon && !venue_.connecting) {
        note("abandoned", "both", client_.said.size() + venue_.said.size());
        reset(client_);
        mode_ = Mode::vanished;
        end_when_heard();
    } else {
        note("reset", "both", client_.said.size() + venue_.said.size());
        reset(client_);
        reset(venue_);
        end();
    }
    if (!passing_) update();
}

// In good order, so nothing may be left unread: that would make a reset of it.
void RelayConnection::cut() {
    mode_ = Mode::ending;
    for (Side* side : {&client_, &venue_}) {
        if (side->socket != -1 && !side->told_all) finish(*side);
    }
    give_up_at_ = Clock::now() + patience;
    end_when_heard();
}

void RelayConnection::end_when_heard() {
    const auto heard = [](const Side& side) { return side.socket == -1 || side.heard_all; };
    if (!heard(client_) || !heard(venue_)) return;
    if (mode_ == Mode::vanished && venue_.socket != -1 && !venue_.told_all) finish(venue_);
    end();
}

void RelayConnection::end() {
    mode_ = Mode::over;
    close_socket(client_);
    close_socket(venue_);
    parts_.loop.cancel(look_);
    parts_.on_end();
}

void RelayConnection::update() {
    if (over()) return;
    watch(client_);
    watch(venue_);
    look_again();
}

void RelayConnection::watch(Side& side) {
    if (side.socket == -1) return;
    int events = 0;
    if (!side.heard_all && (broken() || side.said.size() < waiting_limit_bytes)) events |= POLLIN;
    if (side.full || side.connecting) events |= POLLOUT;
    // With nothing left to hear or to tell, a socket would report its end for ever.
    if (side.heard_all && side.told_all) events = -1;
    if (events == std::exchange(side.watched, events)) return;
    if (events == -1) return parts_.loop.forget(side.socket);
    parts_.loop.watch(side.socket, static_cast<short>(events),
                      [this, &side](short happened) { on_events(side, happened); });
}

void RelayConnection::look_again() {
    if (look_ != 0) parts_.loop.cancel(std::exchange(look_, 0));
    Flow::Time next = Flow::Time::max();
    const auto now = Clock::now();
    for (Side* side : {&client_, &venue_}) {
        if (broken() || other(*side).full || other(*side).told_all) continue;
        if (side->said.in_pieces() && !side->said.ready(now).empty()) next = now;
        if (const auto look = side->said.next_look()) next = std::min(next, *look);
        if (side->said.end_ready(now) == Flow::End::reset) next = std::min(next, now + before_reset);
    }
    if (mode_ == Mode::ending) next = give_up_at_;
    if (next == Flow::Time::max()) return;
    look_ = parts_.loop.after(std::max(next - now, Clock::duration::zero()), [this] {
        look_ = 0;
        if (mode_ == Mode::ending) return end();
        pass_on();
    });
}

void RelayConnection::close_socket(Side& side) {
    if (side.socket == -1) return;
    parts_.loop.forget(side.socket);
    close(std::exchange(side.socket, -1));
    side.heard_all = side.told_all = true;
}

void RelayConnection::note(std::string_view what, std::string_view direction, std::size_t bytes) {
    parts_.log.write(now_ns(), "relay_did",
                     {{"user", std::string_view(user_)},
                      {"conversation", static_cast<std::int64_t>(number_)},
                      {"what", what},
                      {"direction", direction},
                      {"bytes", static_cast<std::int64_t>(bytes)}});
}

}  // namespace kavo::companion
