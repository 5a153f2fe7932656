#include "kavo/bench/control_words.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

namespace kavo::companion {

namespace {

constexpr std::chrono::seconds longest_wait{2};
constexpr std::size_t longest_reply_bytes = 65'536;

std::string read_reply(int socket) {
    std::string reply(longest_reply_bytes, '\0');
    const ssize_t count = recv(socket, reply.data(), reply.size(), 0);
    reply.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (reply.ends_with('\n')) reply.pop_back();
    return reply;
}

}  // namespace

ControlWords::~ControlWords() {
    for (const auto& [socket, asked] : asked_) {
        loop_.forget(socket);
        loop_.cancel(asked.patience);
    }
}

void ControlWords::send(std::string_view word, std::function<void(std::string)> answered) {
    Descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    sockaddr_in venue{};
    venue.sin_family = AF_INET;
    venue.sin_port = htons(port_);
    venue.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int number = socket.get();
    const bool sent = connect(number, reinterpret_cast<const sockaddr*>(&venue), sizeof venue) == 0 &&
                      ::send(number, word.data(), word.size(), MSG_NOSIGNAL) >= 0;
    if (!sent) {
        loop_.after(std::chrono::nanoseconds{0}, [answered] { answered(""); });
        return;
    }
    const Loop::Timer patience = loop_.after(longest_wait, [this, number] { finish(number, ""); });
    asked_.emplace(number, Asked{std::move(socket), patience, std::move(answered)});
    loop_.watch(number, POLLIN, [this, number](short) { finish(number, read_reply(number)); });
}

// The socket is closed before anybody is called, who may ask again.
void ControlWords::finish(int socket, std::string reply) {
    auto asked = asked_.extract(socket);
    loop_.forget(socket);
    loop_.cancel(asked.mapped().patience);
    asked.mapped().socket.reset();
    asked.mapped().answered(std::move(reply));
}

}  // namespace kavo::companion
