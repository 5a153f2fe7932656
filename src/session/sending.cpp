// Packets on their way to a client: whole or not at all, and what a login has asked for over as many passes as it
// takes.
#include <algorithm>

#include "session/order_entry.h"

namespace kavo {

void OrderEntry::send(MeoClient& client, ByteView packet) {
    send(client, packet, clock_.steady_ms(), false);
}

// A packet that finds the socket full is lost without a word.
void OrderEntry::send(MeoClient& client, ByteView packet, std::uint64_t now_ms, bool more_follows) {
    if (client.open()) hand_over(client, packet, more_follows);
    client.last_sent_ms = now_ms;
}

// False when the connection takes nothing of it. One that it takes in part is completed before any other.
bool OrderEntry::hand_over(MeoClient& client, ByteView packet, bool more_follows) {
    if (!complete_packet(client)) return false;
    const std::size_t taken = transport_.send(client.fd, packet, more_follows).value_or(0);
    if (taken == 0) return false;
    client.held_back = more_follows;
    if (taken == packet.size()) return true;
    if (client.owed == nullptr) client.owed = std::make_unique<Owed>();
    client.owed->unsent.assign(packet.begin() + static_cast<std::ptrdiff_t>(taken), packet.end());
    return true;
}

// False while some of the packet that was taken in part is left.
bool OrderEntry::complete_packet(MeoClient& client) {
    if (client.owed == nullptr || client.owed->unsent.empty()) return true;
    Bytes& unsent = client.owed->unsent;
    const std::size_t taken = transport_.send(client.fd, unsent, false).value_or(0);
    unsent.erase(unsent.begin(), unsent.begin() + static_cast<std::ptrdiff_t>(taken));
    if (taken != 0) client.held_back = false;
    return unsent.empty();
}

// Nothing may be left waiting: the last request of a batch may have had no answer.
void OrderEntry::push(MeoClient& client) {
    if (client.held_back) transport_.push(client.fd);
    client.held_back = false;
}

void OrderEntry::continue_sending() {
    take_sending_turns();
    farewells_.serve();
}

void OrderEntry::take_sending_turns() {
    const auto has_output = [this](ClientHandle handle) { return client(handle).has_output(); };
    const auto claimants = std::count_if(open_.begin(), open_.end(), has_output);
    if (claimants == 0) return;  // as nearly always
    sending_.begin(static_cast<std::size_t>(claimants));
    for (const ClientHandle handle : open_) {
        MeoClient& receiver = client(handle);
        if (!receiver.has_output() || !sending_.owes_turn(receiver.sending_turn)) continue;
        if (sending_.spent()) return;
        const std::uint64_t until_ns = sending_.give_turn(receiver.sending_turn);
        if (complete_packet(receiver)) continue_replay(receiver, until_ns);
        settle(receiver);
    }
    sending_.end();
}

void OrderEntry::continue_replay(MeoClient& client, std::uint64_t until_ns) {
    if (!client.is_replayed_to()) return;
    Replay& replay = client.owed->replay;
    client.last_sent_ms = clock_.steady_ms();
    while (!replay.over() && send_next_of(replay, client) && clock_.steady_ns() < until_ns) continue;
    push(client);
    client.stream->stored.keep_from(replay.oldest_needed());
    if (replay.over()) end_replay(client);
}

// False when the connection does not take the next packet of the replay now.
bool OrderEntry::send_next_of(Replay& replay, MeoClient& client) {
    if (!replay.response.empty()) {
        if (!hand_over(client, replay.response, replay.completion_due)) return false;
        replay.response.clear();
    } else if (!replay.missed.empty()) {
        return send_stored(client, replay.missed);
    } else if (replay.completion_due) {
        if (!hand_over(client, esesm::replay_complete, !replay.followers.empty())) return false;
        replay.completion_due = false;
    } else {
        if (!send_stored(client, replay.followers.front())) return false;
        if (replay.followers.front().empty()) replay.followers.erase(replay.followers.begin());
    }
    return true;
}

bool OrderEntry::send_stored(MeoClient& client, Replay::Stretch& stretch) {
    if (!hand_over(client, client.stream->stored.at(stretch.next), true)) return false;
    ++stretch.next;
    return true;
}

void OrderEntry::end_replay(MeoClient& client) {
    client.held = false;
    if (client.owed == nullptr) return;
    if (client.stream != nullptr) client.stream->stored.keep_from(0);
    client.owed->replay = {};
    settle(client);
}

// What is owed no longer takes no room.
void OrderEntry::settle(MeoClient& client) {
    if (client.owed != nullptr && client.owed->nothing()) client.owed.reset();
}

}  // namespace kavo
