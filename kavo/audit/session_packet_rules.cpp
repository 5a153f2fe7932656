// What a client sends, packet by packet: what it may say when, and whether it can be read.
#include "client/packets.h"
#include "engine/meo.h"
#include "kavo/audit/session_rules.h"
#include "kavo/audit/wording.h"

namespace kavo::companion {

namespace {

using Kind = ClientEvent::Kind;

std::string type_of(const ClientEvent& event) {
    const std::string_view text = as_text(event.packet->bytes);
    constexpr std::size_t at = esesm::layout::packet::type.at;
    return text.size() > at ? in_quotes(text.substr(at, 1)) : "without a type";
}

// Nothing of what the venue takes as a sign of life, or as the end.
bool needs_login(Kind kind) {
    return kind == Kind::request || kind == Kind::unknown;
}

// Whether this client may take itself to be logged in. What it sends right behind a login waits there for the answer;
// only a refusal that it has heard of takes that away, and what follows a goodbye is another rule's.
class Permission {
public:
    void take(const ClientEvent& event) {
        if (event.kind == Kind::login) ++asked_;
        if (event.kind == Kind::malformed || event.kind == Kind::goodbye || event.logged_in) ever_ = true;
        if (event.kind != Kind::answer || asked_ == 0) return;
        --asked_;
        heard_ns_ = event.read_ns;
    }
    bool given(const ClientEvent& event) const {
        return ever_ || asked_ > 0 || (heard_ns_ != 0 && event.at.ns <= heard_ns_ + crossing_ns);
    }

private:
    bool ever_ = false;
    unsigned asked_ = 0;  // and not answered
    std::uint64_t heard_ns_ = 0;
};

void audit_before_login(const EventList& connection, Verdict& verdict) {
    Permission permission;
    for (const ClientEvent* event : connection) {
        permission.take(*event);
        if (!needs_login(event->kind) || permission.given(*event)) continue;
        Finding found = finding_at(rule(SessionRule::nothing_before_login), *event);
        found.expected = "a login first";
        found.got = "a packet " + type_of(*event) + " while not logged in";
        return verdict.findings.push_back(found);
    }
}

void audit_after_goodbye(const EventList& connection, const Circumstances& circumstances, Verdict& verdict) {
    const ClientEvent* goodbye = nullptr;
    for (const ClientEvent* event : connection) {
        if (event->kind == Kind::goodbye && goodbye == nullptr) goodbye = event;
        if (goodbye == nullptr || !event->by_client() || event->packet->begun.ns <= goodbye->read_ns + crossing_ns) {
            continue;
        }
        Finding found = finding_at(rule(SessionRule::nothing_after_goodbye), *event);
        found.expected = "nothing after the goodbye at " + circumstances.at(goodbye->at.ns);
        found.got = "a packet " + type_of(*event) + " " + ms_text(event->at.ns - goodbye->at.ns) + " later";
        found.because = circumstances.machine(goodbye->at.ns, event->at.ns, ns_per_ms);
        if (!found.because.empty()) found.grade = Grade::inconclusive;
        return verdict.findings.push_back(found);
    }
}

// The refusals that only the login itself can have brought about.
std::string what_was_wrong(char status) {
    switch (static_cast<esesm::LoginStatus>(status)) {
        case esesm::LoginStatus::incompatible_session:
        case esesm::LoginStatus::incompatible_application:
        case esesm::LoginStatus::invalid_engine_count:
        case esesm::LoginStatus::invalid_session:
        case esesm::LoginStatus::invalid_user:
            return std::string(esesm::login_status_text(static_cast<esesm::LoginStatus>(status)));
        default: return {};
    }
}

void audit_login_fields(const ClientEvent& event, Verdict& verdict) {
    const bool cut_short =
        event.kind == Kind::malformed && client::has_type(event.packet->bytes, esesm::PacketType::login_request);
    const std::string wrong = event.kind == Kind::answer ? what_was_wrong(event.status) : "";
    if (!cut_short && wrong.empty()) return;
    Finding found = finding_at(rule(SessionRule::login_fields), event);
    found.expected = "a login that the venue can accept";
    found.got = cut_short ? "a login of " + counted(event.packet->bytes.size(), "byte") + ", which is cut short"
                          : "a login that was refused: " + wrong;
    found.truth = cut_short ? "" : "the venue answered with status " + in_quotes(std::string_view(&event.status, 1));
    verdict.findings.push_back(found);
}

// What is wrong with the bytes of a packet, in words; empty when they can be read.
std::string what_cannot_be_read(const ClientEvent& event) {
    if (event.kind == Kind::malformed) {
        const bool login = client::has_type(event.packet->bytes, esesm::PacketType::login_request);
        return login ? "" : "a packet of length 0, which makes the rest unreadable";
    }
    if (event.kind != Kind::request) return {};
    const ByteView message = client::payload_of(event.packet->bytes);
    if (meo::read_new_order(message) || meo::read_replace(message) || meo::read_cancel(message)) return {};
    const std::string_view type = as_text(message).substr(0, meo::layout::type.size);
    return "a request " + in_quotes(type) + " of " + counted(message.size(), "byte");
}

void audit_well_formed(const ClientEvent& event, Verdict& verdict) {
    const bool ignored = event.kind == Kind::unknown;
    const std::string wrong =
        ignored ? "a packet " + type_of(event) + ", which the venue ignores" : what_cannot_be_read(event);
    if (wrong.empty()) return;
    Finding found = finding_at(rule(SessionRule::well_formed), event);
    found.grade = ignored ? Grade::remark : Grade::finding;
    found.expected = "a packet that the venue can read";
    found.got = wrong;
    verdict.findings.push_back(found);
}

// Its own logout is a client's last word, of which it needs no telling; only a heartbeat may still be under way.
void audit_after_logout(const EventList& connection, const Circumstances& circumstances, Verdict& verdict) {
    const ClientEvent* logout = nullptr;
    for (const ClientEvent* event : connection) {
        if (event->kind == Kind::goodbye) return;
        if (event->kind == Kind::logout && logout == nullptr) logout = event;
        if (logout == nullptr || (event->kind != Kind::login && !needs_login(event->kind))) continue;
        Finding found = finding_at(rule(SessionRule::nothing_after_goodbye), *event);
        found.expected = "nothing after its own logout at " + circumstances.at(logout->at.ns);
        found.got = "a packet " + type_of(*event);
        return verdict.findings.push_back(found);
    }
}

// What follows a packet of length 0 nobody reads as the client meant it.
void audit_framing(const EventList& connection, Verdict& verdict) {
    const Conversation& conversation = *connection.front()->conversation;
    const ByteView rest = conversation.rest_of_client;
    namespace at = esesm::layout::packet;
    const bool left_over = rest.size() >= end_of(at::length) && get(rest, at::length) == 0;
    if (!conversation.reframed && !left_over) return;
    Finding found = finding_at(rule(SessionRule::well_formed), *connection.back());
    found.expected = "packets that the venue can read";
    found.got = "a packet of length 0, which makes the rest unreadable";
    verdict.findings.push_back(found);
}

}  // namespace

void audit_packets(const EventList& connection, const Circumstances& circumstances, Verdict& verdict) {
    audit_before_login(connection, verdict);
    audit_after_goodbye(connection, circumstances, verdict);
    audit_after_logout(connection, circumstances, verdict);
    Permission permission;
    for (const ClientEvent* event : connection) {
        permission.take(*event);
        audit_login_fields(*event, verdict);
        // What comes too early is one fault, and whether it could have been read is nobody's business.
        if (!needs_login(event->kind) || permission.given(*event)) audit_well_formed(*event, verdict);
    }
    audit_framing(connection, verdict);
}

}  // namespace kavo::companion
