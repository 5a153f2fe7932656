#include "kavo/audit/user_streams.h"

#include <algorithm>

#include "client/packets.h"
#include "engine/meo.h"
#include "kavo/basics/now.h"

namespace kavo::companion {

namespace {

// A right client may take so long over a message, and lag behind as far as this, and no farther.
constexpr std::uint64_t slowest_message_ns = 50 * ns_per_ms;
constexpr std::uint64_t longest_lag_ns = 10'000 * ns_per_ms;

struct Collected {
    UserStream stream;
    std::map<std::uint64_t, ToldMessage> told;
    bool open = false;
};

class Collector {
public:
    explicit Collector(const Journal& journal) : journal_(journal) {
        for (const Conversation& conversation : journal.conversations) {
            if (conversation.service == Service::orders) take(conversation);
        }
    }

    std::vector<UserStream> end() {
        std::vector<UserStream> streams;
        for (auto& [user, collected] : users_) {
            if (user.empty() || user == journal_.facts.house) continue;
            collected.stream.user = user;
            if (collected.open) collected.stream.closed_ns = 0;
            for (auto& [sequence, message] : collected.told) collected.stream.told.push_back(message);
            streams.push_back(std::move(collected.stream));
        }
        return streams;
    }

private:
    void take(const Conversation& conversation) {
        std::string user = conversation.user;  // before any login is accepted, whatever is sent is its own
        std::string asking = user;
        std::uint64_t asked = 0;
        std::uint64_t read_ns = 0;
        for (const WirePacket& packet : conversation.with_client) {
            if (packet.by_client) {
                take_request(packet, users_[user], asking, asked);
            } else if (client::is_accepted_login(packet.bytes)) {
                user = asking;
                if (asked == 1 && !users_[user].told.empty()) {
                    users_[user].stream.from_nothing_ns.push_back(packet.at.ns);
                }
            } else if (const auto message = client::read_sequenced(packet.bytes)) {
                read_ns = std::min(std::max(read_ns, packet.at.ns) + slowest_message_ns, packet.at.ns + longest_lag_ns);
                const bool unread = conversation.closed.ns != 0 && conversation.closed.ns < read_ns;
                take_message({message->sequence, packet.at, unread ? 0 : read_ns, message->message}, users_[user]);
            }
        }
        Collected& last = users_[user];
        last.open = last.open || conversation.closed.ns == 0;
        last.stream.closed_ns = std::max(last.stream.closed_ns, conversation.closed.ns);
    }

    static void take_request(const WirePacket& packet, Collected& of_user, std::string& asking, std::uint64_t& asked) {
        const auto read = esesm::read_packet(packet.bytes);
        if (!read) return;
        if (read->type == esesm::PacketType::login_request) {
            const auto login = esesm::read_login_request(read->payload);
            if (!login || login->entries.empty()) return;
            asking = login->username;
            asked = login->entries.front().requested_sequence;
        } else if (read->type == esesm::PacketType::unsequenced_data) {
            if (const auto order = meo::read_new_order(read->payload))
                ++of_user.stream.sent[order->client_order_id.str()];
            if (const auto other = meo::read_replace(read->payload))
                ++of_user.stream.sent[other->client_order_id.str()];
        }
    }

    static void take_message(const ToldMessage& message, Collected& of_user) {
        const auto [known, is_new] = of_user.told.emplace(message.sequence, message);
        if (is_new) return;
        ToldMessage& before = known->second;
        if (!std::equal(before.message.begin(), before.message.end(), message.message.begin(), message.message.end())) {
            of_user.stream.began_again = true;
        }
        if (before.read_ns == 0) before.read_ns = message.read_ns;
    }

    const Journal& journal_;
    std::map<std::string, Collected> users_;
};

}  // namespace

std::vector<UserStream> user_streams(const Journal& journal) {
    return Collector(journal).end();
}

}  // namespace kavo::companion
