#include "kavo/scene/house.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exception>

#include "client/dial.h"

namespace kavo::companion {

namespace {

std::uint64_t steady_ms() {
    const auto since_boot = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since_boot).count());
}

constexpr std::chrono::milliseconds life_sign{200};  // how often heartbeats are thought of, and a broken connection

}  // namespace

House::House(Loop& loop, const std::string& user, std::uint16_t port)
    : loop_(loop), port_(port), session_(client::login(user, 1)) {}

House::~House() {
    loop_.cancel(timer_);
    hang_up();
}

void House::enter(const client::NewOrder& order) {
    const Bytes packet = esesm::build_packet(esesm::PacketType::unsequenced_data, order.bytes());
    waiting_.insert(waiting_.end(), packet.begin(), packet.end());
    if (timer_ == 0) live();
    write_what_waits();
}

void House::cancel(const client::Cancel& request) {
    const Bytes packet = esesm::build_packet(esesm::PacketType::unsequenced_data, request.bytes());
    waiting_.insert(waiting_.end(), packet.begin(), packet.end());
    write_what_waits();
}

// The mark in front keeps the ids of the house apart from those of the clients, which live in the same venue.
std::string House::fresh_id() {
    return "h~" + std::to_string(++ids_);
}

void House::connect() {
    try {
        socket_ = client::dial(port_);
    } catch (const std::exception&) {
        return;  // the venue is not there, or no more; it is tried again
    }
    fcntl(socket_, F_SETFL, O_NONBLOCK);
    session_.connected(steady_ms());
    session_.log_in();
    loop_.watch(socket_, POLLIN, [this](short) { exchange(); });
    write_what_waits();
}

void House::hang_up() {
    if (socket_ < 0) return;
    loop_.forget(socket_);
    close(socket_);
    socket_ = -1;
    session_.disconnected();
}

// Runs for as long as the house lives.
void House::live() {
    if (socket_ < 0) connect();
    session_.check_time(steady_ms());
    write_what_waits();
    if (session_.end() != client::Session::End::none) hang_up();
    timer_ = loop_.after(life_sign, [this] { live(); });
}

void House::exchange() {
    std::array<std::uint8_t, 65536> bytes;
    const ssize_t count = recv(socket_, bytes.data(), bytes.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) return hang_up();
    session_.receive({bytes.data(), static_cast<std::size_t>(count)}, steady_ms());
    while (session_.next()) {
    }
    write_what_waits();
    if (session_.end() == client::Session::End::hole) session_.log_in();
    if (session_.end() != client::Session::End::none) hang_up();
}

void House::write_what_waits() {
    if (socket_ < 0) return;
    if (session_.logged_in() && !waiting_.empty()) {
        session_.say_bytes(waiting_);
        waiting_.clear();
    }
    const ByteView bytes = session_.to_send();
    if (bytes.empty()) return;
    const ssize_t count = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count > 0) session_.sent(static_cast<std::size_t>(count), steady_ms());
    if (count < 0 && errno != EAGAIN && errno != EINTR) hang_up();
}

}  // namespace kavo::companion
