#include "kavo/audit/bench_streams.h"

#include <algorithm>
#include <deque>

#include "client/packets.h"
#include "client/responses.h"
#include "client/transcript.h"

namespace kavo::companion {

namespace {

// Everything between a login that was accepted and the next one, or the end of the connection.
struct Sitting {
    std::string user;
    std::uint64_t requested = 0;
    std::uint64_t highest = 0;
    Moment at;
    std::vector<std::uint64_t> numbers;  // as they were sent
    std::size_t replayed = 0;            // how many of them before the replay was complete
    bool replay_completed = false;
};

class StreamAudit {
public:
    StreamAudit(const Journal& journal, const BenchLog& log, Verdict& verdict, BenchFindings& findings)
        : journal_(journal), log_(log), verdict_(verdict), findings_(findings) {}

    BenchStreams audit() {
        for (const Conversation& conversation : journal_.conversations) {
            if (conversation.service == Service::orders && !conversation.reframed) read(conversation);
        }
        for (auto& [user, sittings] : sittings_) judge(user, sittings);
        verdict_.counts.users = streams_.users.size();
        return std::move(streams_);
    }

private:
    void read(const Conversation& conversation) {
        asked_.clear();
        sitting_ = nullptr;
        for (const WirePacket& packet : conversation.with_venue) {
            if (packet.by_client) {
                read_request(packet);
            } else if (const auto response = client::read_login_response(packet.bytes)) {
                answer_login(*response, packet.at);
            } else if (sitting_ != nullptr) {
                read_answer(packet, conversation.number);
            }
        }
    }

    // A request that is read in the same turn as the end of its connection, or waits behind a replay, may be nobody's;
    // it counts as the user's who was logged in when it passed, and as the one's who was about to be.
    void read_request(const WirePacket& packet) {
        if (client::has_type(packet.bytes, esesm::PacketType::login_request)) {
            if (auto login = esesm::read_login_request(client::payload_of(packet.bytes))) {
                asked_.push_back(std::move(*login));
            }
        } else if (client::has_type(packet.bytes, esesm::PacketType::unsequenced_data)) {
            ++verdict_.counts.requests;
            const ByteView message = client::payload_of(packet.bytes);
            if (sitting_ != nullptr) streams_.requests.push_back({sitting_->user, message, packet.at});
            for (const esesm::LoginRequest& login : asked_) {
                streams_.requests.push_back({login.username, message, packet.at});
            }
        }
    }

    void answer_login(const esesm::LoginResponse::Entry& response, Moment at) {
        if (asked_.empty()) {
            return wrong("", at, 0, "no login response without a login",
                         "login response " + std::string(1, static_cast<char>(response.login_status)));
        }
        const esesm::LoginRequest login = std::move(asked_.front());
        asked_.pop_front();
        if (response.login_status != esesm::LoginStatus::successful) return;
        ++verdict_.counts.logins;
        if (sitting_ != nullptr && sitting_->user != login.username) streams_.orders_moved = true;
        streams_.users[login.username];
        sitting_ = &sittings_[login.username].emplace_back();
        sitting_->user = login.username;
        sitting_->requested = login.entries.empty() ? 0 : login.entries.front().requested_sequence;
        sitting_->highest = response.highest_sequence;
        sitting_->at = at;
    }

    void read_answer(const WirePacket& packet, std::size_t conversation) {
        if (client::has_type(packet.bytes, esesm::PacketType::replay_complete)) {
            sitting_->replay_completed = true;
            sitting_->replayed = sitting_->numbers.size();
            return;
        }
        const auto data = client::read_sequenced(packet.bytes);
        if (!data) return;
        ++verdict_.counts.responses;
        sitting_->numbers.push_back(data->sequence);
        const auto [known, is_new] = streams_.users[sitting_->user].messages.try_emplace(
            data->sequence, SentMessage{data->message, packet.at, conversation});
        if (is_new || std::ranges::equal(known->second.message, data->message)) return;
        wrong(sitting_->user, packet.at, data->sequence,
              "\"" + client::meo_text(known->second.message) + "\", which had this number before",
              "\"" + client::meo_text(data->message) + "\"");
    }

    // A user sits once at a time, so its sittings follow each other by the numbers that they begin behind.
    void judge(const std::string& user, std::deque<Sitting>& sittings) {
        std::vector<const Sitting*> in_order;
        for (const Sitting& sitting : sittings) in_order.push_back(&sitting);
        std::ranges::stable_sort(in_order, {}, [](const Sitting* sitting) { return sitting->highest; });
        for (std::size_t i = 0; i < in_order.size(); ++i) {
            judge_replay(*in_order[i]);
            const auto later = std::ranges::upper_bound(in_order, in_order[i]->highest, {}, &Sitting::highest);
            judge_live(*in_order[i], later == in_order.end() ? UINT64_MAX : (*later)->highest);
        }
        judge_beginning(user);
    }

    // The history of a stream is cut at its old end only, so a replay may begin late, but not end early.
    void judge_replay(const Sitting& sitting) {
        const bool asks = sitting.requested != 0 && sitting.requested <= sitting.highest;
        if (!asks && sitting.replay_completed) {
            return wrong(sitting.user, sitting.at, 0, "nothing to replay", "a replay");
        }
        if (!asks) return;
        constexpr std::uint64_t stream_messages = 500'000;
        const std::size_t count = sitting.replay_completed ? sitting.replayed : sitting.numbers.size();
        const std::uint64_t first = sitting.requested;
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint64_t number = sitting.numbers[i];
            const std::uint64_t expected = i == 0 ? first : sitting.numbers[i - 1] + 1;
            const bool cut = i == 0 && sitting.highest > stream_messages && number > first;
            if (number == expected || cut) continue;
            return wrong(sitting.user, sitting.at, number, "number " + std::to_string(expected) + " in the replay",
                         "number " + std::to_string(number));
        }
        if (!sitting.replay_completed) return;
        const std::uint64_t end = count == 0 ? first - 1 : sitting.numbers[count - 1];
        if (end == sitting.highest) return;
        wrong(sitting.user, sitting.at, end, "a replay up to number " + std::to_string(sitting.highest),
              "a replay that is complete at " + std::to_string(end));
    }

    // Behind the replay numbers ascend; one that was not sent leaves a gap.
    void judge_live(const Sitting& sitting, std::uint64_t next_highest) {
        const bool asks = sitting.requested != 0 && sitting.requested <= sitting.highest;
        if (asks && !sitting.replay_completed) return;
        std::uint64_t before = sitting.highest;
        for (std::size_t i = asks ? sitting.replayed : 0; i < sitting.numbers.size(); ++i) {
            const std::uint64_t number = sitting.numbers[i];
            if (number <= before) {
                return wrong(sitting.user, sitting.at, number, "a number above " + std::to_string(before),
                             "number " + std::to_string(number));
            }
            if (number > next_highest) {
                return wrong(sitting.user, sitting.at, number,
                             "number " + std::to_string(next_highest) + " at most, the highest of a later login",
                             "number " + std::to_string(number));
            }
            before = number;
        }
    }

    // The start of the session comes first, a symbol for each product behind it, and neither of them again.
    void judge_beginning(const std::string& user) {
        bool greeted = false;
        for (const auto& [number, message] : streams_.users[user].messages) {
            const bool is_start = client::read_start_of_session(message.message).has_value();
            const auto symbol = client::read_symbol_update(message.message);
            const bool right = is_start ? number == 1
                               : symbol ? !greeted && symbol->product_id + 1 == number
                                        : number > 1;
            greeted = greeted || (!is_start && !symbol);
            if (right) continue;
            wrong(user, message.at, number, "the start of the session and its symbols first, and once",
                  "\"" + client::meo_text(message.message) + "\" under number " + std::to_string(number));
        }
    }

    void wrong(const std::string& user, Moment at, std::uint64_t number, const std::string& expected,
               const std::string& got) {
        findings_.contradiction_unless(
            log_.wire_incomplete, bench_rule::stream,
            {.expected = expected, .got = got, .where = {.moment = at, .user = user, .stream_number = number}});
    }

    const Journal& journal_;
    const BenchLog& log_;
    Verdict& verdict_;
    BenchFindings& findings_;
    BenchStreams streams_;
    std::map<std::string, std::deque<Sitting>> sittings_;
    std::deque<esesm::LoginRequest> asked_;  // logins of this connection that are not answered yet
    Sitting* sitting_ = nullptr;
};

// What one side of the relay heard and the other said: the same, or its beginning, since a connection may end on the
// way.
void audit_passage(const Conversation& conversation, bool by_client, BenchFindings& findings) {
    const auto said_by = [by_client](const std::vector<WirePacket>& packets) {
        std::vector<const WirePacket*> chosen;
        for (const WirePacket& packet : packets) {
            if (packet.by_client == by_client) chosen.push_back(&packet);
        }
        return chosen;
    };
    const auto said = said_by(by_client ? conversation.with_client : conversation.with_venue);
    const auto heard = said_by(by_client ? conversation.with_venue : conversation.with_client);
    for (std::size_t i = 0; i < heard.size(); ++i) {
        if (i < said.size() && std::ranges::equal(said[i]->bytes, heard[i]->bytes)) continue;
        findings.contradiction(
            bench_rule::relay,
            {.expected = i < said.size() ? "the " + std::to_string(said[i]->bytes.size()) + " bytes that were said"
                                         : "nothing more",
             .got = std::to_string(heard[i]->bytes.size()) + " other bytes " +
                    (by_client ? "to the venue" : "to the client"),
             .where = {.moment = heard[i]->at, .user = conversation.user}});
        return;
    }
}

}  // namespace

std::uint64_t SentStream::known_up_to() const {
    std::uint64_t known = 0;
    for (const auto& [number, message] : messages) {
        if (number != known + 1) break;
        known = number;
    }
    return known;
}

BenchStreams audit_streams(const Journal& journal, const BenchLog& log, Verdict& verdict, BenchFindings& findings) {
    if (log.relay_meddled.empty() && log.wire_incomplete.empty()) {
        for (const Conversation& conversation : journal.conversations) {
            if (conversation.reframed) continue;
            audit_passage(conversation, true, findings);
            audit_passage(conversation, false, findings);
        }
    }
    return StreamAudit(journal, log, verdict, findings).audit();
}

}  // namespace kavo::companion
