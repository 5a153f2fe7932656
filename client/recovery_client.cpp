#include "client/recovery_client.h"

#include <stdexcept>

#include "client/transcript.h"

namespace kavo::client {

namespace {

Recovery carried_out(Recovery recovery, std::uint16_t port) {
    WireClient wire(port);
    wire.keep_silent();
    wire.send_bytes(recovery.opening());
    while (!recovery.over()) {
        if (const auto packet = wire.next_packet()) {
            recovery.receive(*packet);
        } else {
            recovery.disconnected();
        }
    }
    if (!recovery.problem().empty()) throw std::runtime_error(recovery.problem());
    return recovery;
}

}  // namespace

RecoveryClient::RecoveryClient(std::uint16_t port) : wire(port) {
    wire.keep_silent();
}

void RecoveryClient::request(std::uint64_t first, std::uint64_t last) {
    wire.send_packet('a', retransmission_payload(first, last));
}

void RecoveryClient::request_refresh(char type) {
    wire.send_packet('U', refresh_payload(type));
}

std::string RecoveryClient::next() {
    if (const auto packet = wire.next_packet()) return recovery_text(*packet);
    return wire.closed() ? "closed" : "silence";
}

std::string RecoveryClient::next(std::size_t count) {
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < count; ++i) lines.push_back(next());
    return joined(lines);
}

std::string RecoveryClient::rest() {
    std::vector<std::string> lines;
    do {
        lines.push_back(next());
    } while (lines.back() != "closed" && lines.back() != "silence");
    return joined(lines);
}

std::vector<NumberedMessage> fetch_range(std::uint64_t first, std::uint64_t last, std::uint16_t port) {
    return carried_out(Recovery::of_messages(first, last), port).messages;
}

Snapshot fetch_snapshot(char type, std::uint16_t port) {
    return carried_out(Recovery::of_state(type), port).snapshot;
}

}  // namespace kavo::client
