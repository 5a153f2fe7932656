// An order-entry client on a real TCP connection, blocking, and in no hurry: a session with a socket. It gives out
// every packet as it came, and says whatever it is told to, right or wrong.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/requests.h"
#include "client/session.h"
#include "common/bytes.h"

namespace kavo::client {

class WireClient {
public:
    // Connects to 127.0.0.1; throws when nobody listens. While any client of this process waits for a packet, every one
    // of them sends its heartbeats, so that a scene loses none of its clients however slow the machine is.
    explicit WireClient(std::uint16_t port);
    ~WireClient();
    WireClient(const WireClient&) = delete;
    WireClient& operator=(const WireClient&) = delete;

    void send_bytes(ByteView bytes);
    void send_packet(char type, ByteView payload = {});
    void log_in(const Login& login);
    void send(const NewOrder& order);
    void send(const Replace& request);
    void send(const Cancel& request);
    void send_heartbeat();
    // From here on no heartbeats but those that the test sends.
    void keep_silent() { silent_ = true; }

    // Goes away: in good order, or with a reset, as a machine does that has lost its memory of the connection.
    void disconnect();
    void reset();

    // The next whole packet that is no heartbeat; nothing when the venue has closed the connection or keeps silent for
    // longer than the usual patience.
    std::optional<Bytes> next_packet();
    // The same as a line of text, see transcript.h: "closed" and "silence" for nothing.
    std::string next();
    // The next `count` lines, joined by " | ".
    std::string next(std::size_t count);
    // The first line that holds `part`; what comes before it is skipped. "closed" and "silence" when none does.
    std::string next_with(const std::string& part);

    // As next_packet, but the venue's heartbeats count.
    std::optional<Bytes> next_packet_or_heartbeat();
    // The next packet of any kind, heartbeats included, waiting as long as told while nobody sends anything.
    std::optional<Bytes> next_packet_of_any_kind(std::chrono::milliseconds longest);

    // The number of the latest sequenced message that was read; the next login asks for the one after it.
    std::uint64_t last_sequence() const { return last_sequence_; }
    // What the session has made of the packets that were read.
    const Session& session() const { return session_; }
    bool closed() const { return closed_; }
    int socket() const { return socket_; }

private:
    std::optional<Bytes> take_packet();
    void send_all();
    static void keep_all_alive();

    static std::vector<WireClient*> all_;

    int socket_;
    Session session_;
    bool closed_ = false;
    bool silent_ = false;
    std::uint64_t last_sequence_ = 0;
};

}  // namespace kavo::client
