#include "traffic.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "client/requests.h"
#include "common/socket.h"

namespace kavo::benchmarks {

namespace {

constexpr std::chrono::milliseconds heartbeat_interval{500};
constexpr std::chrono::seconds longest_run{1};
constexpr timeval longest_wait{5, 0};
constexpr std::size_t filling_window = 256;
constexpr std::size_t login_answers = 2;  // the session and its one product
constexpr std::size_t new_order_answers = 3;
constexpr std::size_t cancel_answers = 2;

// Every connection there is, for a venue drops who is silent for long, also while another server has its turn.
std::vector<Connection*> all;

void keep_all_alive(Steady::time_point now) {
    static Steady::time_point last;
    if (now - last < heartbeat_interval) return;
    last = now;
    for (Connection* connection : all) connection->send_heartbeat();
}

std::string letters_of(unsigned number) {
    char letters[8];
    std::snprintf(letters, sizeof letters, "L%03u", number % 1000);
    return letters;
}

int connect_to(std::uint16_t port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(port);
    server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0) {
        throw std::runtime_error("nobody listens on port " + std::to_string(port));
    }
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &longest_wait, sizeof longest_wait);
    return fd;
}

double microseconds(Steady::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

}  // namespace

Connection::Connection(std::uint16_t port, unsigned number)
    : socket_(connect_to(port)), letters_(letters_of(number)), packets_(letters_) {
    log_in(number);
    all.push_back(this);
}

Connection::~Connection() {
    std::erase(all, this);
    close_socket(socket_);
}

void Connection::log_in(unsigned number) {
    const client::Login login = client::login("u" + std::to_string(number));
    batch_ = esesm::build_packet(esesm::PacketType::login_request, login.payload());
    awaited_ = login_answers;
    send_batch();
    while (is_owed_answers()) collect();
}

void Connection::ask_new_orders(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) append_new_order();
    send_batch();
}

void Connection::ask_in_turn(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (cancel_is_next_) {
            append_cancel();
        } else {
            append_new_order();
        }
        cancel_is_next_ = !cancel_is_next_;
    }
    send_batch();
}

void Connection::append_new_order() {
    const ByteView packet = packets_.new_order(next_number_);
    batch_.insert(batch_.end(), packet.begin(), packet.end());
    resting_.push_back(next_number_++);
    awaited_ += new_order_answers;
}

void Connection::append_cancel() {
    std::swap(resting_[choice_() % resting_.size()], resting_.back());
    const ByteView packet = packets_.cancel(resting_.back());
    batch_.insert(batch_.end(), packet.begin(), packet.end());
    resting_.pop_back();
    awaited_ += cancel_answers;
}

void Connection::send_batch() {
    first_answer_due_ = true;
    asked_at_ = Steady::now();
    for (ByteView rest = batch_; !rest.empty();) {  // the socket blocks
        const auto sent = send_packet(socket_, rest, false);
        if (!sent) throw std::runtime_error("the server has closed a connection");
        rest = rest.subspan(*sent);
    }
    batch_.clear();
}

void Connection::send_heartbeat() {
    constexpr auto heartbeat = std::to_array<std::uint8_t>({1, 0, '1'});
    send_packet(socket_, heartbeat, false);
}

bool Connection::collect() {
    static Bytes scratch(1 << 20);
    const ssize_t count = recv(socket_, scratch.data(), scratch.size(), 0);
    if (count <= 0) throw std::runtime_error("a server gives no answer");
    Bytes& incoming = received_.incoming();
    incoming.insert(incoming.end(), scratch.begin(), scratch.begin() + count);
    std::size_t answers = 0;
    while (const auto packet = received_.cut()) {
        if (packet->type == esesm::PacketType::sequenced_data) ++answers;
    }
    if (answers > awaited_) throw std::runtime_error("a server gives more answers than it should");
    awaited_ -= answers;
    const bool first = first_answer_due_ && answers != 0;
    if (first) first_answer_due_ = false;
    return first;
}

Traffic::Traffic(std::uint16_t port, const Pattern& pattern) : pattern_(pattern) {
    unsigned number = 0;
    for (std::size_t i = 0; i < pattern.idle_clients; ++i) {
        idle_.push_back(std::make_unique<Connection>(port, number++));
        keep_all_alive(Steady::now());
    }
    for (std::size_t i = 0; i < pattern.busy_clients; ++i) {
        busy_.push_back(std::make_unique<Connection>(port, number++));
        keep_all_alive(Steady::now());
    }
}

void Traffic::rest_orders(std::size_t count) {
    fill(count, &Connection::ask_new_orders);
}

void Traffic::exchange_orders(std::size_t requests) {
    fill(requests, &Connection::ask_in_turn);
}

void Traffic::fill(std::size_t requests, void (Connection::*ask)(std::size_t)) {
    Connection& connection = *busy_.front();
    for (std::size_t made = 0; made < requests;) {
        const std::size_t batch = std::min(filling_window, requests - made);
        (connection.*ask)(batch);
        while (connection.is_owed_answers()) connection.collect();
        made += batch;
        keep_all_alive(Steady::now());
    }
}

Traffic::Run Traffic::run(std::size_t requests) {
    Run run;
    const Steady::time_point start = Steady::now();
    Steady::time_point now = start;
    for (; run.requests < requests && now - start < longest_run; now = Steady::now()) {
        for (const auto& client : busy_) client->ask_in_turn(pattern_.window);
        collect_all(run);
        run.requests += busy_.size() * pattern_.window;
        keep_all_alive(now);
    }
    run.seconds = std::chrono::duration<double>(now - start).count();
    return run;
}

void Traffic::collect_all(Run& run) {
    for (wait_for_answers(); !ready_.empty(); wait_for_answers()) {
        for (Connection* client : ready_) {
            if (client->collect()) run.first_answers_us.push_back(microseconds(Steady::now() - client->asked_at()));
        }
    }
}

// A single client waits in its read, as a trading system would; several wait together.
void Traffic::wait_for_answers() {
    ready_.clear();
    std::vector<Connection*> waiting;
    std::vector<pollfd> polled;
    for (const auto& client : busy_) {
        if (!client->is_owed_answers()) continue;
        waiting.push_back(client.get());
        polled.push_back({client->socket(), POLLIN, 0});
    }
    if (busy_.size() == 1 || waiting.empty()) return ready_.swap(waiting);
    if (poll(polled.data(), polled.size(), static_cast<int>(longest_wait.tv_sec * 1000)) <= 0) {
        throw std::runtime_error("a server gives no answer");
    }
    for (std::size_t i = 0; i < polled.size(); ++i) {
        if (polled[i].revents != 0) ready_.push_back(waiting[i]);
    }
}

}  // namespace kavo::benchmarks
