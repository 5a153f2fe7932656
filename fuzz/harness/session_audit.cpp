#include "harness/session_audit.h"

#include <algorithm>

#include "client/feed_messages.h"
#include "harness/harness.h"

namespace kavo::fuzz {

namespace {

constexpr std::uint64_t heartbeat_after_ms = 1'000;
constexpr std::uint64_t silence_limit_ms = 3'000;
constexpr std::uint64_t login_limit_ms = 30'000;
const Bytes server_heartbeat{1, 0, '0'};

// How many messages there are of each type, and of each type with each of its reasons: "XN", "XN:U".
std::map<std::string, std::uint64_t> count_by_reason(const std::vector<Bytes>& messages) {
    static const std::map<std::string, std::size_t> reason_at{{"NR", 58}, {"XN", 50}, {"MR", 78}, {"CR", 70}};
    std::map<std::string, std::uint64_t> counts;
    for (const Bytes& message : messages) {
        const std::string type(as_text(ByteView(message).first(2)));
        ++counts[type];
        const auto at = reason_at.find(type);
        if (at != reason_at.end()) ++counts[type + ":" + static_cast<char>(message.at(at->second))];
    }
    return counts;
}

}  // namespace

MemoryPeer& SessionAudit::connection_of(const Peer& peer) {
    return venue_.connection(static_cast<ClientHandle>(&peer - peers_.data()));
}

void SessionAudit::connected(ClientHandle client) {
    require(static_cast<std::size_t>(client) == peers_.size(), "handles are given in order");
    peers_.push_back({});
    peers_.back().connected_ms = peers_.back().last_received_ms = peers_.back().last_sent_ms = now_ms();
    end_step();
}

void SessionAudit::before_receive() {
    disconnect_requested_ = venue_.bench.disconnect_requested;
    disconnect_done_ = venue_.bench.disconnect_done;
    requests_ = answers_owed_ = answers_heard_ = 0;
}

void SessionAudit::received(ClientHandle client, ByteView bytes) {
    Peer& peer = peers_[static_cast<std::size_t>(client)];
    const Bench& bench = venue_.bench;
    dropped_by_script_ = !disconnect_requested_ && bench.disconnect_done && !disconnect_done_;
    peer.arrived.insert(peer.arrived.end(), bytes.begin(), bytes.end());
    peer.last_received_ms = now_ms();
    while (peer.open) {
        const auto packet = peer.cutter.cut(peer.arrived);
        if (!packet) break;
        count_step();
        handle(peer, *packet);
    }
    take_live(peer);
    if (dropped_by_script_) {
        require(requests_ > 0 && bench.disconnect_after != 0, "the script drops a client at one of its requests");
        peer.open = false;
    } else {
        require(answers_heard_ >= answers_owed_, "every request is answered");
    }
    require(requests_ == 0 || !bench.disconnect_requested,
            "a disconnect that was asked for comes with the next request");
    const bool due = bench.disconnect_after != 0 && bench.counters.orders >= bench.disconnect_after;
    require(requests_ == 0 || bench.disconnect_done || !due, "the script drops the client that reaches its count");
    end_step();
}

void SessionAudit::lost(ClientHandle client) {
    peers_[static_cast<std::size_t>(client)].open = false;
    end_step();
}

// Of all peers, not only of the one that the step was about.
void SessionAudit::end_step() {
    for (Peer& peer : peers_) {
        const MemoryPeer& connection = connection_of(peer);
        require(peer.heard == connection.packets.size(), "nobody is sent what nothing called for");
        require(peer.open == !connection.closed, "connections end when they must, and only then");
        require(!connection.waiting, "nothing is left waiting behind a packet that was to follow");
    }
    require(venue_.peers.peers.empty() || venue_.peers.peers.begin()->first >= test::Venue::first_fd,
            "what is closed is not sent to or closed again");
}

void SessionAudit::before_pass() {
    venue_.engine.cancel_unsolicited();  // so that everything to be delivered is known; doing it twice changes nothing
    outbox_ = venue_.engine.outbox;
    dropped_by_script_ = false;
    requests_ = 0;
    silent_client_dropped_ = false;
}

void SessionAudit::passed() {
    for (const OutboundMessage& message : outbox_) route(message);
    run_timers();
    require(!in_lapse() || venue_.bench.lapse_announced, "a silence is announced");
    check_feed();
    end_step();
}

void SessionAudit::route(const OutboundMessage& message) {
    Peer& peer = peers_.at(static_cast<std::size_t>(message.client));
    if (peer.username.empty()) return;
    User& user = user_of(peer);
    const ByteView bytes = message.message.bytes();
    if (peer.open && !in_lapse()) {
        take_next_in_stream(peer);
        return require(std::ranges::equal(*user.messages.back(), bytes), "the engine's output is delivered in order");
    }
    if (user.more_unseen) return;  // how many it was will be known when the next one is heard
    user.messages.emplace_back(Bytes(bytes.begin(), bytes.end()));
}

void SessionAudit::run_timers() {
    for (Peer& peer : peers_) {
        if (!peer.open) continue;
        if (!peer.logged_in) {
            if (now_ms() - peer.connected_ms >= login_limit_ms) {
                expect_goodbye(peer, 'L', "timed out waiting for login");
            }
            continue;
        }
        if (now_ms() - peer.last_sent_ms >= heartbeat_after_ms && !in_lapse()) expect(peer, server_heartbeat);
        if (now_ms() - peer.last_received_ms < silence_limit_ms) continue;
        peer.open = false;
        silent_client_dropped_ = true;
    }
}

// A pass leaves no message of the feed unsent, except that the orders of a silent client may go right at its end.
void SessionAudit::check_feed() {
    for (; datagrams_read_ < venue_.datagrams.size(); ++datagrams_read_) {
        ByteView datagram = venue_.datagrams[datagrams_read_];
        require(datagram.size() <= 1400, "a datagram has at most 1400 bytes");
        while (const auto packet = client::read_feed_packet(datagram)) {
            if (packet->header.type == mach::PacketType::application_data) ++feed_sequence_;
            require(packet->header.sequence == feed_sequence_, "the numbers of the feed have no gaps");
        }
        require(datagram.empty(), "a datagram holds packets and nothing else");
    }
    require(feed_sequence_ == venue_.feed.last_sequence() || silent_client_dropped_,
            "a pass sends all that was published");
    require(venue_.feed.counters.messages == venue_.feed.last_sequence(), "published messages are counted");
}

std::vector<std::string> SessionAudit::users() const {
    std::vector<std::string> names;
    for (const auto& [name, user] : users_) {
        if (user.accepted) names.push_back(name);
    }
    return names;
}

void SessionAudit::compare_counters() const {
    std::vector<Bytes> messages;
    for (const auto& [name, user] : users_) {
        for (const Message& message : user.messages) {
            require(message.has_value(), "every message reaches its user in the end");
            messages.push_back(*message);
        }
    }
    auto told = count_by_reason(messages);
    const BenchCounters& counted = venue_.bench.counters;
    require(counted.accepts == told["O1"] && counted.accepts == told["NR: "], "accepts");
    require(counted.rejects == told["NR:R"] && counted.orders == counted.accepts + counted.rejects, "orders");
    require(counted.fills == told["E1"], "fills");
    require(counted.cancels == told["XN"] && counted.disconnect_cancels == told["XN:D"], "cancels");
    require(counted.unsolicited_cancels == told["XN:H"], "unsolicited_cancels");
    const std::uint64_t closed_by_replace = told["XN:U"] - told["CR: "];
    require(told["MN"] == told["MR: "] && counted.replaces + closed_by_replace == told["MN"], "replaces");
    require(counted.replace_rejects == told["MR:A"] + told["MR:Q"] + told["MR:J"] + told["MR:K"], "replace_rejects");
    require(counted.race_fills + counted.late_cancels + counted.stale_cancels == told["CR:D"], "cancels refused");
    require(counted.logins == logins_ && counted.rejected_logins == rejected_logins_, "logins");
    require(counted.replays == replays_ && counted.replayed == replayed_, "replays");
}

}  // namespace kavo::fuzz
