#include "kavo/report/page_data.h"

#include <algorithm>
#include <array>
#include <map>

#include "client/packets.h"
#include "client/transcript.h"
#include "kavo/basics/printable.h"

namespace kavo::companion {

namespace {

constexpr std::size_t most_points = 1'500;  // of a line that is a thousand pixels long
constexpr std::size_t most_spans = 3'000;
constexpr double events_in_a_lane = 800;  // that can be told apart
constexpr std::size_t texts_of_an_event = 4;
constexpr std::size_t most_short_bytes = 240;

// One event of a lane, or several of them that nobody could tell apart.
struct Mark {
    double t = 0;
    std::vector<std::string> texts;
    std::size_t count = 0;
};

class Lanes {
public:
    explicit Lanes(const Picture& picture) : picture_(picture) {
        for (const char* name : {"faults", "sessions", "marks", "beliefs", "findings"}) lanes_[name] = {};
    }

    void add(const char* lane, std::uint64_t ns, std::string shown) {
        lanes_[lane].push_back({picture_.ms(ns), {std::move(shown)}, 1});
    }

    Json json() {
        Json lanes = Json::object();
        for (auto& [name, marks] : lanes_) {
            Json list = Json::array();
            for (const Mark& mark : told_apart(marks)) list.push_back({mark.t, mark.texts, mark.count});
            lanes[name] = std::move(list);
        }
        return lanes;
    }

private:
    std::vector<Mark> told_apart(std::vector<Mark>& marks) const {
        std::stable_sort(marks.begin(), marks.end(), [](const Mark& a, const Mark& b) { return a.t < b.t; });
        const double least = picture_.ms(picture_.report.ended_ns) / events_in_a_lane;
        std::vector<Mark> apart;
        for (Mark& mark : marks) {
            if (apart.empty() || mark.t - apart.back().t >= least) {
                apart.push_back(std::move(mark));
                continue;
            }
            if (++apart.back().count <= texts_of_an_event) apart.back().texts.push_back(std::move(mark.texts.front()));
        }
        return apart;
    }

    const Picture& picture_;
    std::map<std::string, std::vector<Mark>> lanes_;
};

bool begins_with(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool tells_of_a_fault(std::string_view text) {
    for (const char* start : {"kavo_me fault:", "bench: partial fill", "bench: cancel of", "bench: unsolicited",
                              "bench: scripted", "bench: going silent", "bench: dropping the connection"}) {
        if (begins_with(text, start)) return true;
    }
    return false;
}

void add_what_the_venue_said(const Picture& picture, Lanes& lanes) {
    for (const VenueLine& line : picture.journal.venue) {
        if (begins_with(line.text, "bench: mark ")) lanes.add("marks", line.t_ns, short_text(line.text));
        if (tells_of_a_fault(line.text)) lanes.add("faults", line.t_ns, short_text(line.text));
    }
}

// "script: line 3, after 1s: relay c01 orders cut".
std::string words_of(const Note& note) {
    std::string words = note.event;
    std::replace(words.begin(), words.end(), '_', ' ');
    const auto facts = Json::parse(note.json, nullptr, false);
    if (!facts.is_object()) return words;
    std::string_view between = ": ";
    for (const auto& [key, value] : facts.items()) {
        if (key == "t" || key == "ev") continue;
        words += between;
        words += value.is_string() ? value.get<std::string>()
                                   : key + " " + value.dump(-1, ' ', false, Json::error_handler_t::replace);
        between = ", ";
    }
    return words;
}

void add_what_kavo_noted(const Picture& picture, Lanes& lanes) {
    for (const Note& note : picture.journal.notes) {
        const auto is = [&note](std::initializer_list<std::string_view> names) {
            return std::find(names.begin(), names.end(), note.event) != names.end();
        };
        if (is({"relay_did", "kernel_drop", "late"})) lanes.add("faults", note.t_ns, short_text(words_of(note)));
        if (is({"script", "script_left", "control", "relay", "command", "command_end", "venue_end"})) {
            lanes.add("marks", note.t_ns, short_text(words_of(note)));
        }
    }
}

void add_session(const Conversation& conversation, Lanes& lanes) {
    const std::string who =
        (conversation.service == Service::orders ? "orders, " : "recovery, ") + printable(conversation.user) + ": ";
    for (const WirePacket& packet : conversation.with_client) {
        if (packet.by_client && client::has_type(packet.bytes, esesm::PacketType::login_request)) {
            lanes.add("sessions", packet.at.ns, who + short_text(client::sent_packet_text(packet.bytes)));
        }
        if (!packet.by_client && (client::read_login_response(packet.bytes) || client::read_goodbye(packet.bytes))) {
            lanes.add("sessions", packet.at.ns, who + short_text(client::packet_text(packet.bytes)));
        }
    }
    if (conversation.ended_by == EndedBy::nobody) return;
    constexpr std::array<const char*, 4> names{"nobody", "the client", "the venue", "the relay"};
    lanes.add("sessions", conversation.closed.ns,
              who + (conversation.reset ? "reset by " : "closed by ") +
                  names[static_cast<std::size_t>(conversation.ended_by)]);
}

void add_beliefs(const Picture& picture, Lanes& lanes) {
    const auto add = [&lanes](const Said& said, const std::string& text) {
        if (said.t_ns != 0) lanes.add("beliefs", said.t_ns, short_text(text));
    };
    for (const BookBelief& it : picture.beliefs.books) {
        add(it.said, "a book of " + it.symbol + (it.sequence ? " at " + std::to_string(*it.sequence) : ""));
    }
    for (const OrderBelief& it : picture.beliefs.orders) add(it.said, it.id + " " + it.state);
    for (const FillBelief& it : picture.beliefs.fills) {
        add(it.said, it.id + " filled " + std::to_string(it.quantity) + "@" + client::price_text(it.price));
    }
}

}  // namespace

std::string short_text(std::string_view text) {
    return text.size() > most_short_bytes ? printable(text.substr(0, most_short_bytes)) + " ..." : printable(text);
}

std::string short_sentence(std::string_view sentence) {
    return printable_sentence(sentence.substr(0, most_short_bytes)) +
           (sentence.size() > most_short_bytes ? " ..." : "");
}

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
    const auto& gaps = picture.feed.gaps;
    const double least = gaps.size() < most_spans ? 0 : picture.ms(picture.report.ended_ns) / most_spans;
    std::map<std::string, std::size_t> latest;  // of a kind
    for (const Gap& gap : gaps) {
        const double from = picture.ms(gap.shown.ns);
        const double to = picture.ms(std::max({gap.shown.ns, gap.settled_ns, gap.came.ns}));
        const std::string kind = gap.loss == Loss::late ? "late" : gap.lost() ? "lost" : "unexplained";
        const auto before = latest.find(kind);
        if (before != latest.end() && from - spans[before->second][1].get<double>() < least) {
            Json& span = spans[before->second];
            span[1] = std::max(to, span[1].get<double>());
            span[4] = span[4].get<std::size_t>() + 1;
            continue;
        }
        latest[kind] = spans.size();
        const std::string numbers = gap.numbers.first == gap.numbers.last
                                        ? std::to_string(gap.numbers.first)
                                        : std::to_string(gap.numbers.first) + " to " + std::to_string(gap.numbers.last);
        spans.push_back({from, to, kind, numbers + ": " + std::string(name_of(gap.loss)), 1});
    }
    return spans;
}

Json run_events(const Picture& picture) {
    Lanes lanes(picture);
    add_what_the_venue_said(picture, lanes);
    add_what_kavo_noted(picture, lanes);
    for (const Conversation& conversation : picture.journal.conversations) add_session(conversation, lanes);
    add_beliefs(picture, lanes);
    for (const Finding& finding : picture.report.verdict.findings) {
        if (finding.where.moment.ns == 0) continue;
        lanes.add("findings", finding.where.moment.ns,
                  std::string(grade_word(finding.grade)) + " " + std::string(finding.rule->name) + ": " +
                      short_sentence(finding.got));
    }
    return lanes.json();
}

}  // namespace kavo::companion
