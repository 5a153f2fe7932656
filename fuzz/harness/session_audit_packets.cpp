// What each packet of a client calls for, and what it hears.
#include <algorithm>

#include "harness/harness.h"
#include "harness/session_audit.h"

namespace kavo::fuzz {

namespace {

constexpr std::size_t sequenced_header = 12;
const Bytes replay_complete{2, 0, 'c', 1};

char type_of(const Bytes& packet) {
    return static_cast<char>(packet.at(2));
}

Bytes framed(char type, std::string_view payload) {
    const std::size_t length = payload.size() + 1;
    Bytes packet(2 + length);
    packet[0] = static_cast<std::uint8_t>(length);
    packet[1] = static_cast<std::uint8_t>(length >> 8);
    packet[2] = static_cast<std::uint8_t>(type);
    std::ranges::copy(payload, packet.begin() + 3);
    return packet;
}

Bytes sequenced(std::uint64_t number, ByteView message) {
    std::string payload;
    for (int i = 0; i < 8; ++i) payload += static_cast<char>(number >> (8 * i));
    return framed('s', payload + '\1' + std::string(as_text(message)));
}

std::string_view status_text(char status) {
    switch (status) {
        case 'A': return "incompatible application protocol version";
        case 'C': return "invalid number of matching engines";
        case 'I': return "incompatible session protocol version";
        case 'L': return "client already logged in";
        default: return "invalid username/computer ID";
    }
}

bool is_request(ByteView message) {
    const std::string_view type = as_text(message.first(2));
    return (type == "N1" && message.size() >= 131) || (type == "M1" && message.size() >= 111) ||
           (type == "CO" && message.size() >= 68);
}

}  // namespace

void SessionAudit::handle(Peer& peer, const LiteralCutter::Packet& packet) {
    if (packet.type == 'l') return log_in(peer, packet.payload);
    if (packet.type == '1' || packet.type == 'T') return;
    if (packet.type == 'X') {
        peer.open = false;
    } else if (!peer.logged_in) {
        expect_goodbye(peer, 'B', "not logged in");
    } else if (packet.type == 'U' && packet.payload.size() >= 2) {
        request(peer, packet.payload);
    }
}

void SessionAudit::log_in(Peer& peer, ByteView payload) {
    const std::optional<LiteralLogin> login = literal_login(payload);
    if (!login) return expect_goodbye(peer, 'B', "malformed login");
    const Bytes* response = take(peer);
    if (response == nullptr) return;
    require(type_of(*response) == 'r' && response->size() == 14 && response->at(3) == 1, "a login is answered");
    require(response->at(5) == session_, "a login response names the session");

    const std::uint64_t highest = little_endian(ByteView(*response).subspan(6, 8));
    User& user = users_[std::string(login->username)];
    require(user.more_unseen ? highest >= user.messages.size() : highest == user.messages.size(),
            "a login response tells the last number of the stream");
    user.messages.resize(highest);
    user.more_unseen = false;

    const char status = static_cast<char>(response->at(4));
    require(status == status_of(peer, *login, highest), "the first failing test of a login decides");
    if (status == ' ') return accept(peer, *login, highest);
    ++rejected_logins_;
    if (status != 'N' && status != 'S') expect_goodbye(peer, 'A', status_text(status));
}

char SessionAudit::status_of(const Peer& peer, const LiteralLogin& login, std::uint64_t highest) const {
    const auto has_user = [&](const Peer& other) {
        return &other != &peer && other.open && other.logged_in && other.username == login.username;
    };
    if (login.session_protocol != "1.0") return 'I';
    if (login.application_protocol.substr(0, 3) != "MEO") return 'A';
    if (login.entries.size() != 1) return 'C';
    if (login.username.empty() || login.computer_id.empty()) return 'X';
    if (std::any_of(peers_.begin(), peers_.end(), has_user)) return 'L';
    if (login.entries[0].engine != 0 && login.entries[0].engine != session_) return 'S';
    return login.entries[0].sequence > highest + 1 ? 'N' : ' ';
}

void SessionAudit::accept(Peer& peer, const LiteralLogin& login, std::uint64_t highest) {
    ++logins_;
    peer.logged_in = true;
    peer.username = login.username;
    user_of(peer).accepted = true;
    const std::uint64_t requested = login.entries[0].sequence;
    if (requested != 0 && requested <= highest) replay(peer, requested, highest);
    if (highest == 0) start_session(peer);
    if (venue_.bench.lapse_ms <= 0 || scenario_lapse_started_) return;
    scenario_lapse_started_ = true;
    lapse_until_ms_ = now_ms() + static_cast<std::uint64_t>(venue_.bench.lapse_ms);
}

void SessionAudit::replay(Peer& peer, std::uint64_t from, std::uint64_t highest) {
    ++replays_;
    replayed_ += highest - from + 1;
    for (std::uint64_t number = from; number <= highest; ++number) take_sequenced(peer, number);
    const Bytes* end = next_packet(peer);
    require(end != nullptr && *end == replay_complete, "a replay is complete, and says so");
}

void SessionAudit::start_session(Peer& peer) {
    User& user = user_of(peer);
    const std::size_t messages = 1 + venue_.engine.books.products().size();
    user.messages.resize(messages);
    if (in_lapse()) return;
    for (std::uint64_t number = 1; number <= messages; ++number) {
        take_sequenced(peer, number);
        const std::string_view type = as_text(ByteView(*user.messages[number - 1]).first(2));
        require(type == (number == 1 ? "SN" : "SU"), "a user hears of the session first, then of every product");
    }
}

void SessionAudit::request(Peer& peer, ByteView message) {
    if (!is_request(message)) return expect_goodbye(peer, 'B', "unknown or malformed application message");
    ++requests_;
    if (in_lapse()) {
        user_of(peer).more_unseen = true;
    } else {
        ++answers_owed_;
    }
    if (disconnect_requested_) {
        take_live(peer);
        peer.open = false;
        disconnect_requested_ = false;
    }
}

// The next packet, whatever it is; nothing when there is none.
const Bytes* SessionAudit::next_packet(Peer& peer) {
    const std::vector<Bytes>& packets = connection_of(peer).packets;
    if (peer.heard == packets.size()) return nullptr;
    peer.last_sent_ms = now_ms();
    return &packets[peer.heard++];
}

// The next packet behind the answers to the requests so far. A client that the script has dropped hears nothing more.
const Bytes* SessionAudit::take(Peer& peer) {
    take_live(peer);
    const Bytes* packet = next_packet(peer);
    if (packet == nullptr) {
        require(dropped_by_script_ && requests_ > 0, "what is called for is sent");
        peer.open = false;
    }
    return packet;
}

void SessionAudit::expect(Peer& peer, const Bytes& expected) {
    const Bytes* packet = take(peer);
    require(packet == nullptr || *packet == expected, "a packet is what stands on paper");
}

void SessionAudit::expect_goodbye(Peer& peer, char reason, std::string_view text) {
    expect(peer, framed('G', reason + std::string(text)));
    peer.open = false;
}

// The answers of the engine to the requests so far.
void SessionAudit::take_live(Peer& peer) {
    const std::vector<Bytes>& packets = connection_of(peer).packets;
    while (requests_ > 0 && peer.heard < packets.size() && type_of(packets[peer.heard]) == 's') {
        take_next_in_stream(peer);
        ++answers_heard_;
    }
}

// A new message, which takes the next number of the stream.
void SessionAudit::take_next_in_stream(Peer& peer) {
    const std::vector<Bytes>& packets = connection_of(peer).packets;
    require(peer.heard < packets.size() && type_of(packets[peer.heard]) == 's', "a new message is sent");
    require(peer.logged_in && !in_lapse(), "nothing new is sent before a login, or while the venue is silent");
    User& user = user_of(peer);
    const std::uint64_t number = little_endian(ByteView(packets[peer.heard]).subspan(3, 8));
    const std::uint64_t next = user.messages.size() + 1;
    require(user.more_unseen ? number >= next : number == next, "the numbers of a stream have no gaps");
    user.messages.resize(number);
    user.more_unseen = false;
    take_sequenced(peer, number);
}

void SessionAudit::take_sequenced(Peer& peer, std::uint64_t number) {
    const Bytes* packet = next_packet(peer);
    require(packet != nullptr && packet->size() > sequenced_header, "a numbered message is sent");
    const ByteView message = ByteView(*packet).subspan(sequenced_header);
    require(*packet == sequenced(number, message), "a numbered message is framed with its number");
    Message& known = user_of(peer).messages[number - 1];
    require(!known || std::ranges::equal(*known, message), "a number means one message for ever");
    known = Bytes(message.begin(), message.end());
}

}  // namespace kavo::fuzz
