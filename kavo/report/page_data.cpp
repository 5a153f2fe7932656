#include "kavo/report/page_data.h"

#include "client/packets.h"
#include "client/transcript.h"
#include "common/text.h"
#include "kavo/basics/printable.h"

namespace kavo::companion {

namespace {

constexpr std::size_t most_points = 2'000;  // of a line that is a thousand pixels long
constexpr std::size_t most_events = 3'000;  // in a lane; what is more says so

Json event(const char* lane, double t, std::string_view label) {
    return Json{{"lane", lane}, {"t", t}, {"label", printable(label)}};
}

// Adds events of one lane until there are too many to be told apart.
class Lane {
public:
    Lane(Json& events, const char* name) : events_(events), name_(name) {}

    void add(double t, std::string_view label) {
        if (++count_ < most_events) events_.push_back(event(name_, t, label));
        if (count_ == most_events) events_.push_back(event(name_, t, "and more, which are not shown"));
    }

private:
    Json& events_;
    const char* name_;
    std::size_t count_ = 0;
};

bool begins_with(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

void add_what_the_venue_said(const Picture& picture, Json& events) {
    Lane faults(events, "faults"), marks(events, "marks");
    for (const VenueLine& line : picture.journal.venue) {
        if (begins_with(line.text, "bench: mark ")) marks.add(picture.ms(line.t_ns), line.text);
        const bool scripted =
            begins_with(line.text, "bench: partial fill") || begins_with(line.text, "bench: cancel of") ||
            begins_with(line.text, "bench: unsolicited") || begins_with(line.text, "bench: scripted") ||
            begins_with(line.text, "bench: going silent") || begins_with(line.text, "bench: dropping the connection");
        if (scripted || begins_with(line.text, "kavo_me fault:")) faults.add(picture.ms(line.t_ns), line.text);
    }
}

void add_what_kavo_noted(const Picture& picture, Json& events) {
    Lane faults(events, "faults"), marks(events, "marks");
    for (const Note& note : picture.journal.notes) {
        if (note.event == "relay_did" || note.event == "kernel_drop" || note.event == "late") {
            faults.add(picture.ms(note.t_ns), note.json);
        }
        if (note.event == "script" || note.event == "control" || note.event == "command" ||
            note.event == "command_end") {
            marks.add(picture.ms(note.t_ns), note.json);
        }
    }
}

void add_sessions(const Picture& picture, Json& events) {
    Lane logins(events, "logins");
    for (const Conversation& conversation : picture.journal.conversations) {
        for (const WirePacket& packet : conversation.with_client) {
            const bool login = packet.by_client && client::has_type(packet.bytes, esesm::PacketType::login_request);
            if (login) logins.add(picture.ms(packet.at.ns), client::sent_packet_text(packet.bytes));
            const bool answer = !packet.by_client && client::read_login_response(packet.bytes);
            if (answer || (!packet.by_client && client::read_goodbye(packet.bytes))) {
                logins.add(picture.ms(packet.at.ns), conversation.user + ": " + client::packet_text(packet.bytes));
            }
        }
        if (conversation.ended_by != EndedBy::nobody) {
            logins.add(picture.ms(conversation.closed.ns), conversation.user + ": connection closed");
        }
    }
}

}  // namespace

Json feed_points(const Picture& picture) {
    const auto& arrivals = picture.feed.arrivals;
    Json points = Json::array();
    const std::size_t step = arrivals.size() / most_points + 1;
    for (std::size_t i = 0; i < arrivals.size(); i += step) {
        points.push_back({picture.ms(arrivals[i].ns), arrivals[i].numbers.last});
    }
    if (!arrivals.empty()) points.push_back({picture.ms(arrivals.back().ns), arrivals.back().numbers.last});
    return points;
}

Json gap_spans(const Picture& picture) {
    Json spans = Json::array();
    for (const Gap& gap : picture.feed.gaps) {
        if (spans.size() == most_events) break;
        const std::uint64_t end = std::max({gap.shown.ns, gap.settled_ns, gap.came.ns});
        spans.push_back(Json{{"from", picture.ms(gap.shown.ns)},
                             {"to", picture.ms(end)},
                             {"label", std::to_string(gap.numbers.first) + " to " + std::to_string(gap.numbers.last) +
                                           ": " + std::string(name_of(gap.loss))}});
    }
    return spans;
}

Json run_events(const Picture& picture) {
    Json events = Json::array();
    add_what_the_venue_said(picture, events);
    add_what_kavo_noted(picture, events);
    add_sessions(picture, events);
    Lane beliefs(events, "beliefs");
    for (const BookBelief& book : picture.beliefs.books) {
        if (book.said.t_ns != 0) beliefs.add(picture.ms(book.said.t_ns), "a book of " + book.symbol);
    }
    for (const OrderBelief& order : picture.beliefs.orders) {
        if (order.said.t_ns != 0) beliefs.add(picture.ms(order.said.t_ns), order.id + " " + order.state);
    }
    Lane findings(events, "findings");
    for (const Finding& finding : picture.report.verdict.findings) {
        if (finding.where.moment.ns == 0) continue;
        findings.add(picture.ms(finding.where.moment.ns), std::string(finding.rule->name) + ": " + finding.got);
    }
    return events;
}

}  // namespace kavo::companion
