#include <algorithm>
#include <map>

#include "client/packets.h"
#include "client/responses.h"
#include "client/transcript.h"
#include "kavo/basics/printable.h"
#include "kavo/report/page_data.h"
#include "kavo/report/page_ids.h"

namespace kavo::companion {

namespace {

constexpr std::size_t most_orders = 2'000;
constexpr std::size_t most_events = 12'000;  // of all orders together, a hundred bytes each
constexpr std::size_t most_events_of_an_order = 500;

struct LifeEvent {
    Moment at;
    const char* who = "";
    std::string text;
    std::optional<std::uint64_t> executed = {};  // as the truth or the client has it
    std::uint64_t number = 0;                    // of the stream: of this message, or the last that was believed
    std::uint64_t execution = 0;                 // the same of an execution
    std::string_view rule = {};                  // of a finding about this event
    std::uint64_t sorted_ns = 0;
};

struct Life {
    std::string side, symbol, state;
    std::vector<LifeEvent> events;
    std::vector<std::string_view> findings;  // their rules
    bool diverges = false;                   // one of them is about a belief
    std::size_t cut = 0;                     // events that are not kept
};

using Name = std::pair<std::string, std::string>;  // user, client order id

class Lives {
public:
    explicit Lives(const Picture& picture) : picture_(picture) {
        for (const Conversation& conversation : picture.journal.conversations) {
            if (conversation.service == Service::orders) add_wire(conversation);
        }
        add_truth();
        add_beliefs();
        for (const Finding& finding : picture.report.verdict.findings) mark(finding);
        for (auto& [name, life] : lives_) {
            sort(life.events);
        }
    }

    Json json(LeftOut& left_out) const {
        Json list = Json::array();
        std::size_t events = 0;
        for (const auto& [name, life] : in_order()) {
            events += life->events.size();
            if (list.size() == most_orders || events > most_events) break;
            list.push_back(told(*name, *life));
        }
        if (list.size() < lives_.size()) {
            left_out.push_back("Of " + std::to_string(lives_.size()) + " orders " + std::to_string(list.size()) +
                               " are here: those with findings, then those of the beginning. `kavo show DIR --order "
                               "ID` tells the life of any other.");
        }
        return list;
    }

private:
    void add(const Name& name, LifeEvent event) {
        Life& life = lives_[name];
        if (life.events.size() == most_events_of_an_order) {
            ++life.cut;
            return;
        }
        event.text = short_text(event.text);
        life.events.push_back(std::move(event));
    }

    void add_wire(const Conversation& conversation) {
        for (const WirePacket& packet : conversation.with_client) {
            if (packet.by_client) {
                for (const std::string& id : ids_of_request(client::payload_of(packet.bytes))) {
                    owners_.sent(id, packet.at.ns, conversation.user);
                    add({conversation.user, id}, {packet.at, "client", client::sent_packet_text(packet.bytes)});
                }
            } else if (const auto response = client::read_sequenced(packet.bytes)) {
                const Named named = named_by_response(response->message);
                owners_.answered(named.order_id, conversation.user);
                for (const std::string& id : named.ids) {
                    LifeEvent event{packet.at, "venue", client::packet_text(packet.bytes)};
                    event.number = response->sequence;
                    event.execution = named.execution;
                    add({conversation.user, id}, std::move(event));
                }
            }
        }
    }

    // By time; but what is believed after a message stands behind it. A client can act on a message before the relay
    // has looked at the clock behind its own write, so the two times may be the wrong way round by some microseconds.
    // A belief that tells no time is put there as well, or at the end.
    void sort(std::vector<LifeEvent>& events) const {
        std::uint64_t latest = picture_.journal.facts.started_ns;
        for (const LifeEvent& event : events) latest = std::max(latest, event.at.ns);
        for (LifeEvent& event : events) {
            const std::uint64_t cause = cause_of(event, events);
            if (event.at.ns == 0) {
                event.at.ns = cause == 0 ? latest : cause;
                event.text += " (tells no time)";
            }
            constexpr std::uint64_t most_ns = 20'000'000;
            event.sorted_ns = cause < event.at.ns + most_ns ? std::max(event.at.ns, cause) : event.at.ns;
        }
        std::stable_sort(events.begin(), events.end(),
                         [](const auto& a, const auto& b) { return a.sorted_ns < b.sorted_ns; });
    }

    // When the client was told what it believes here; 0 when it says no number, or that of a message about others.
    static std::uint64_t cause_of(const LifeEvent& belief, const std::vector<LifeEvent>& events) {
        if (std::string_view(belief.who) != "belief" || (belief.number == 0 && belief.execution == 0)) return 0;
        for (const LifeEvent& event : events) {
            if (std::string_view(event.who) != "venue") continue;
            if (belief.number != 0 ? event.number == belief.number : event.execution == belief.execution) {
                return event.at.ns;
            }
        }
        return 0;
    }

    void add_truth() {
        for (const OrderLine& line : picture_.journal.orders) {
            const std::string id{line.client_order_id};
            const std::string* user = owners_.of(id, line.t_ns, line.order_id);
            if (user == nullptr) continue;  // of the synthetic market
            add({*user, id}, {{line.t_ns, 0}, "truth", text_of(line), line.executed});
            Life& life = lives_[{*user, id}];
            life.state = printable(line.event);
            if (life.symbol.empty()) life.symbol = printable(line.symbol);
            if (life.side.empty()) life.side = line.side == 'B' ? "buy" : line.side == 'S' ? "sell" : "";
        }
    }

    static std::string text_of(const OrderLine& line) {
        std::string text{line.event};
        if (line.event == "new")
            return text + ": quantity " + std::to_string(line.quantity);  // its leaves are always 0
        if (line.last_quantity != 0) text += " of " + std::to_string(line.last_quantity);
        text += ": executed " + std::to_string(line.executed) + " of " + std::to_string(line.quantity) + ", leaves " +
                std::to_string(line.leaves);
        return line.text.empty() || line.text == line.event ? text : text + " (" + std::string(line.text) + ")";
    }

    // Whose order a belief or a finding is about, which may leave its user out.
    Name name_of(const std::string& user, const std::string& id, std::uint64_t ns) const {
        if (!user.empty()) return {user, id};
        const std::string* owner = owners_.of(id, ns, 0);
        return {owner == nullptr ? "" : *owner, id};
    }

    void add_beliefs() {
        const auto number = [](const std::optional<std::uint64_t>& it) { return it ? std::to_string(*it) : "?"; };
        for (const OrderBelief& it : picture_.beliefs.orders) {
            add(name_of(it.said.user, it.id, it.said.t_ns),
                {{it.said.t_ns, 0},
                 "belief",
                 it.state + ": executed " + number(it.executed) + ", leaves " + number(it.leaves) +
                     (it.sequence ? ", after number " + std::to_string(*it.sequence) : ""),
                 it.executed,
                 it.sequence.value_or(0)});
        }
        for (const FillBelief& it : picture_.beliefs.fills) {
            add(name_of(it.said.user, it.id, it.said.t_ns),
                {{it.said.t_ns, 0},
                 "belief",
                 "filled " + std::to_string(it.quantity) + "@" + client::price_text(it.price),
                 {},
                 0,
                 it.execution.value_or(0)});
        }
    }

    // The event that a finding speaks of is the one nearest to its moment: a belief when it is about a belief, what the
    // client sent when it is not, and any other when there is none of these.
    void mark(const Finding& finding) {
        if (finding.where.order.empty() || finding.grade != Grade::finding) return;
        const std::uint64_t at = finding.where.moment.ns;
        const auto life = lives_.find(name_of(finding.where.user, finding.where.order, at));
        if (life == lives_.end()) return;
        const std::string_view who = finding.belief.empty() ? "client" : "belief";
        life->second.findings.push_back(finding.rule->name);
        life->second.diverges = life->second.diverges || !finding.belief.empty();
        const auto distance = [&](const LifeEvent& event) {
            const std::uint64_t ns = event.at.ns;
            return std::pair{who != event.who, ns > at ? ns - at : at - ns};
        };
        auto& events = life->second.events;
        const auto nearest = std::min_element(events.begin(), events.end(),
                                              [&](const auto& a, const auto& b) { return distance(a) < distance(b); });
        if (nearest != events.end()) nearest->rule = finding.rule->name;
    }

    std::vector<std::pair<const Name*, const Life*>> in_order() const {
        std::vector<std::pair<const Name*, const Life*>> order;
        for (const auto& [name, life] : lives_) order.emplace_back(&name, &life);
        const auto place = [](const auto& it) {
            const Life& life = *it.second;
            return std::tuple{!life.diverges, life.findings.empty(), life.events.empty() ? 0 : life.events[0].at.ns};
        };
        std::stable_sort(order.begin(), order.end(), [&](const auto& a, const auto& b) { return place(a) < place(b); });
        return order;
    }

    Json told(const Name& name, const Life& life) const {
        Json events = Json::array();
        for (const LifeEvent& event : life.events) {
            events.push_back({picture_.ms(event.at.ns), event.who, event.text, event.at.packet,
                              event.executed ? Json(*event.executed) : Json(), event.rule});
        }
        return Json{{"user", printable(name.first)},
                    {"id", short_text(name.second)},
                    {"side", life.side},
                    {"symbol", life.symbol},
                    {"state", life.state},
                    {"findings", life.findings},
                    {"diverges", life.diverges},
                    {"cut", life.cut},
                    {"events", std::move(events)}};
    }

    const Picture& picture_;
    std::map<Name, Life> lives_;
    Owners owners_;
};

}  // namespace

Json order_lives(const Picture& picture, LeftOut& left_out) {
    return Lives(picture).json(left_out);
}

}  // namespace kavo::companion
