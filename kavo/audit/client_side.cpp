#include "kavo/audit/client_side.h"

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "client/packets.h"
#include "kavo/audit/finding_list.h"
#include "session/esesm.h"

namespace kavo::companion {

namespace {

using Kind = ClientEvent::Kind;

struct AskedLogin {
    std::string_view user;
    std::uint64_t number = 0;
};

// Takes a login request apart; nothing when it is cut short. The first entry counts, and without one it asks for 0.
std::optional<AskedLogin> read_login(ByteView payload) {
    namespace at = esesm::layout::login_request;
    const auto request = esesm::read_login_request(payload);
    if (!request) return std::nullopt;
    const std::uint64_t number = request->entries.empty() ? 0 : request->entries.front().requested_sequence;
    return AskedLogin{padded_text(payload, at::username), number};
}

// The packets of one connection, one after the other.
class ConnectionReader {
public:
    ConnectionReader(const Conversation& conversation, std::vector<ClientEvent>& events)
        : conversation_(conversation), events_(events), user_(conversation.user) {}

    void read() {
        add(Kind::opened, conversation_.opened, nullptr);
        for (const WirePacket& packet : conversation_.with_client) {
            if (packet.by_client) {
                take_from_client(packet);
            } else {
                take_for_client(packet);
            }
        }
        if (conversation_.closed.ns == 0) return;
        logged_in_ = false;
        add(Kind::closed, conversation_.closed, nullptr);
    }

private:
    ClientEvent& add(Kind kind, Moment at, const WirePacket* packet) {
        ClientEvent& event = events_.emplace_back();
        event.kind = kind;
        event.at = at;
        event.conversation = &conversation_;
        event.packet = packet;
        event.user = user_;
        event.logged_in = logged_in_;
        event.in_session = !over_ && (logged_in_ || !asked_.empty());
        return event;
    }

    void take_from_client(const WirePacket& packet) {
        if (packet.bytes.size() < esesm::layout::packet::header_size) {
            add(Kind::malformed, packet.at, &packet);
            return;
        }
        switch (static_cast<esesm::PacketType>(get(packet.bytes, esesm::layout::packet::type))) {
            case esesm::PacketType::login_request: return take_login(packet);
            case esesm::PacketType::unsequenced_data: add(Kind::request, packet.at, &packet); return;
            case esesm::PacketType::logout_request: return take_logout(packet);
            case esesm::PacketType::client_heartbeat:
            case esesm::PacketType::client_test: add(Kind::sign_of_life, packet.at, &packet); return;
            default: add(Kind::unknown, packet.at, &packet);
        }
    }

    void take_logout(const WirePacket& packet) {
        add(Kind::logout, packet.at, &packet);
        over_ = true;
    }

    void take_login(const WirePacket& packet) {
        const auto login = read_login(client::payload_of(packet.bytes));
        if (!login) {
            add(Kind::malformed, packet.at, &packet);
            return;
        }
        asked_.push_back(*login);
        if (!logged_in_) user_ = login->user;
        ClientEvent& event = add(Kind::login, packet.at, &packet);
        event.user = login->user;
        event.number = login->number;
    }

    void take_for_client(const WirePacket& packet) {
        const auto message = client::read_sequenced(packet.bytes);
        const auto answer = client::read_login_response(packet.bytes);
        const std::uint64_t least = std::max(read_ns_, packet.at.ns) + (message ? slow_reader_ns : 0);
        read_ns_ = std::min(least, packet.at.ns + longest_lag_ns);
        if (answer) return take_answer(packet, *answer);
        const bool goodbye = client::has_type(packet.bytes, esesm::PacketType::goodbye);
        ClientEvent& event = add(message ? Kind::message : goodbye ? Kind::goodbye : Kind::heard, packet.at, &packet);
        event.number = message ? message->sequence : 0;
        event.read_ns = read_ns_;
        if (!goodbye) return;
        event.logged_in = logged_in_ = false;
        over_ = true;
    }

    // Logins are answered in their order.
    void take_answer(const WirePacket& packet, const esesm::LoginResponse::Entry& answer) {
        AskedLogin asked{user_, 0};
        if (!asked_.empty()) {
            asked = asked_.front();
            asked_.pop_front();
        }
        if (answer.login_status == esesm::LoginStatus::successful) {
            user_ = asked.user;
            logged_in_ = true;
        }
        ClientEvent& event = add(Kind::answer, packet.at, &packet);
        event.user = asked.user;
        event.number = answer.highest_sequence;
        event.asked = asked.number;
        event.status = static_cast<char>(answer.login_status);
        event.read_ns = read_ns_;
    }

    const Conversation& conversation_;
    std::vector<ClientEvent>& events_;
    std::string_view user_;
    bool logged_in_ = false;
    bool over_ = false;             // somebody has said the last word
    std::deque<AskedLogin> asked_;  // and not answered
    std::uint64_t read_ns_ = 0;
};

template <typename Key, typename KeyOf>
std::vector<EventList> apart(const std::vector<ClientEvent>& events, KeyOf key_of) {
    std::map<Key, EventList> lists;
    for (const ClientEvent& event : events) lists[key_of(event)].push_back(&event);
    std::vector<EventList> found;
    for (auto& [key, list] : lists) found.push_back(std::move(list));
    return found;
}

}  // namespace

std::vector<ClientEvent> client_events(const Journal& journal) {
    std::vector<ClientEvent> events;
    for (const Conversation& conversation : journal.conversations) {
        if (conversation.service != Service::orders || conversation.user == journal.facts.house) continue;
        ConnectionReader(conversation, events).read();
    }
    std::stable_sort(events.begin(), events.end(),
                     [](const ClientEvent& a, const ClientEvent& b) { return a.at.ns < b.at.ns; });
    return events;
}

std::vector<EventList> by_connection(const std::vector<ClientEvent>& events) {
    return apart<std::size_t>(events, [](const ClientEvent& event) { return event.conversation->number; });
}

std::vector<EventList> by_user(const std::vector<ClientEvent>& events) {
    return apart<std::string_view>(events, [](const ClientEvent& event) { return event.user; });
}

void hand_over(const Journal& journal, Verdict found, Verdict& verdict) {
    const FeedCircumstances around = feed_circumstances(journal);
    FindingList list(journal, around, verdict);
    for (Finding& finding : found.findings) {
        switch (finding.grade) {
            case Grade::remark: list.remark(std::move(finding)); break;
            case Grade::inconclusive: list.doubtful(finding, finding.because); break;
            default: list.content(std::move(finding));
        }
    }
    list.finish();
    verdict.slack.insert(verdict.slack.end(), found.slack.begin(), found.slack.end());
}

Finding finding_at(const Rule& rule, const ClientEvent& event) {
    Finding found;
    found.rule = &rule;
    found.where.moment = event.at;
    found.where.user = event.user;
    if (event.kind == Kind::message) found.where.stream_number = event.number;
    return found;
}

}  // namespace kavo::companion
