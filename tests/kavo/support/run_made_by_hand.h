// A run that nobody ran: what each connection said and was given is put down line by line, and read as a Journal. So a
// judge can be tried on any client at all, without a socket or a second of waiting.
//
//     RunMadeByHand run;
//     auto& alice = run.connection();                             // order entry, from the beginning
//     alice.logs_in("alice", 1).is_let_in(0).is_told(1, started());
//     alice.at(200ms).sends(buy("b1").shares(100).at("189.95"));
//     alice.is_told(2, taken(buy("b1"))).at(4s).closes();
//     audit_sessions(run.journal(), verdict);
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "client/requests.h"
#include "kavo/journal/journal.h"
#include "session/esesm.h"

namespace kavo::companion::test {

using namespace std::chrono_literals;

// Messages of the venue about orders of product 1.
Bytes started();                             // SN
Bytes listed(std::uint32_t product_id = 1);  // SU
Bytes taken(const client::NewOrder& order);  // NR that accepts
Bytes refused(const client::NewOrder& order, char reason);
Bytes accepted(const client::NewOrder& order);                                                           // O1
Bytes rests(const client::NewOrder& order);                                                              // P1
Bytes filled(std::string_view client_order_id, std::uint32_t quantity, std::uint64_t execution_id = 1);  // E1
Bytes cancelled(std::string_view client_order_id, char reason = 'U', std::uint32_t leaves = 0);          // XN
Bytes answered(const client::Cancel& request, char reason = ' ');                                        // CR
Bytes answered(const client::Replace& request, std::uint32_t leaves, char reason = ' ');                 // MR
Bytes replaced(const client::Replace& request, std::uint32_t leaves);                                    // MN

class RunMadeByHand;

// One connection. Everything happens at the time that at() has set last, counted from the beginning of the run.
class ConnectionMadeByHand {
public:
    ConnectionMadeByHand(RunMadeByHand& run, Conversation& conversation) : run_(run), conversation_(conversation) {}

    ConnectionMadeByHand& at(std::chrono::nanoseconds since_start);
    ConnectionMadeByHand& after(std::chrono::nanoseconds longer) { return at(now_ + longer); }

    // The client's doing.
    ConnectionMadeByHand& logs_in(std::string_view user, std::uint64_t requested_sequence);
    ConnectionMadeByHand& logs_in(const client::Login& login);
    template <typename Request>
    ConnectionMadeByHand& sends(const Request& request) {
        return says(esesm::PacketType::unsequenced_data, request.bytes());
    }
    ConnectionMadeByHand& says(esesm::PacketType type, ByteView payload = {});
    ConnectionMadeByHand& says_half(ByteView bytes);  // and never the rest
    ConnectionMadeByHand& beats() { return says(esesm::PacketType::client_heartbeat); }
    ConnectionMadeByHand& logs_out() { return says(esesm::PacketType::logout_request); }
    ConnectionMadeByHand& closes() { return ends(EndedBy::client, false); }
    ConnectionMadeByHand& resets() { return ends(EndedBy::client, true); }

    // What happens to it.
    ConnectionMadeByHand& is_let_in(std::uint64_t highest_sequence) { return is_answered(' ', highest_sequence); }
    ConnectionMadeByHand& is_answered(char login_status, std::uint64_t highest_sequence);
    ConnectionMadeByHand& is_told(std::uint64_t sequence, ByteView message);
    ConnectionMadeByHand& is_told(std::uint64_t first, std::uint64_t last, ByteView message);  // each of these numbers
    ConnectionMadeByHand& has_heard_all();                                                     // replay complete
    ConnectionMadeByHand& hears_heartbeat() { return hears(esesm::PacketType::server_heartbeat); }
    ConnectionMadeByHand& hears_goodbye(char reason, std::string_view text);
    ConnectionMadeByHand& hears(esesm::PacketType type, ByteView payload = {});
    ConnectionMadeByHand& hears_half(ByteView bytes);  // and never the rest
    ConnectionMadeByHand& is_dropped() { return ends(EndedBy::venue, false); }
    ConnectionMadeByHand& is_cut() { return ends(EndedBy::relay, false); }
    ConnectionMadeByHand& is_reset() { return ends(EndedBy::relay, true); }

    // Until then the client sends a heartbeat each half second, and the venue one each second.
    ConnectionMadeByHand& lives_until(std::chrono::nanoseconds since_start);
    // The same for one of them alone.
    ConnectionMadeByHand& beats_until(std::chrono::nanoseconds since_start);
    ConnectionMadeByHand& hears_heartbeats_until(std::chrono::nanoseconds since_start);

private:
    ConnectionMadeByHand& passes(bool by_client, Bytes packet);
    ConnectionMadeByHand& ends(EndedBy who, bool reset);

    RunMadeByHand& run_;
    Conversation& conversation_;
    std::chrono::nanoseconds now_{0};
};

class RunMadeByHand {
public:
    static constexpr std::uint64_t start_ns = 1'700'000'000'000'000'000;

    RunMadeByHand();

    ConnectionMadeByHand& connection(std::chrono::nanoseconds opened = 0ms, Service service = Service::orders);
    void datagram(std::chrono::nanoseconds at, Bytes bytes);
    // A line of kavo.jsonl; `values` are further members, as they stand in the file: "\"ms\":400".
    void note(std::chrono::nanoseconds at, std::string_view event, std::string_view values = {});
    void venue_says(std::chrono::nanoseconds at, std::string_view line);
    // The machine let kavo wait so much longer than it had asked for, until now.
    void machine_is_late(std::chrono::nanoseconds at, std::chrono::milliseconds by);
    // The last that is known of the run: the venue was ended in good order.
    void ends(std::chrono::nanoseconds at);

    const Journal& journal() const { return journal_; }
    Journal& journal() { return journal_; }

    // What views in the journal may be lent by.
    ByteView keep(Bytes bytes);
    std::string_view keep(std::string_view text);
    Moment moment(std::chrono::nanoseconds at);

private:
    Journal journal_;
    std::deque<ConnectionMadeByHand> connections_;
    std::deque<Bytes> bytes_;
    std::deque<std::string> texts_;
    std::uint64_t packets_ = 0;
};

}  // namespace kavo::companion::test
