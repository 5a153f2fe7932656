// Order entry as the clients saw it: every packet on their side of the relay, of all connections together and in the
// order of the run, with what it says and who is meant. The bench's own user is left out.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "kavo/audit/finding.h"
#include "kavo/basics/now.h"
#include "kavo/journal/journal.h"

namespace kavo::companion {

struct ClientEvent {
    enum class Kind {
        opened,
        login,
        malformed,  // a login that is cut short, or a packet without a type
        request,    // unsequenced data
        logout,
        sign_of_life,  // heartbeat or test
        unknown,       // any other type, sent by the client
        answer,        // to a login
        message,       // of the stream
        goodbye,
        heard,  // heartbeat, replay complete and whatever else the client was given
        closed,
    };
    Kind kind = Kind::opened;
    Moment at;
    const Conversation* conversation = nullptr;
    const WirePacket* packet = nullptr;  // none for opened and closed
    std::string_view user;               // who is logged in, else whoever asks or is going to ask; may be empty
    bool logged_in = false;              // after this event
    // Sent by the client while the venue would look at it, for all that the client can know: behind a login, not
    // refused, and neither behind a goodbye nor behind its own logout.
    bool in_session = false;
    std::uint64_t number = 0;   // message: its own; login: what is asked for; answer: the end of the stream
    std::uint64_t asked = 0;    // answer: what the login had asked for
    char status = 0;            // answer
    std::uint64_t read_ns = 0;  // when the client has read what it was given, however slow it is

    bool by_client() const { return packet != nullptr && packet->by_client; }
};

// A client may take so long over each message that it is given, and still be right.
inline constexpr std::uint64_t slow_reader_ns = 50 * ns_per_ms;
// But it never lags so far behind that nothing at all can be expected of it.
inline constexpr std::uint64_t longest_lag_ns = 10'000 * ns_per_ms;

// In the order of the run. Their views are lent by the journal.
std::vector<ClientEvent> client_events(const Journal& journal);

// The same events apart, each list in their order; lent by `events`.
using EventList = std::vector<const ClientEvent*>;
std::vector<EventList> by_connection(const std::vector<ClientEvent>& events);
std::vector<EventList> by_user(const std::vector<ClientEvent>& events);

// Puts what was found into a verdict: a few of a kind, and inconclusive what a recording with holes cannot prove.
void hand_over(const Journal& journal, Verdict found, Verdict& verdict);

// A finding about this event, whose sentences are still to be written.
Finding finding_at(const Rule& rule, const ClientEvent& event);

}  // namespace kavo::companion
