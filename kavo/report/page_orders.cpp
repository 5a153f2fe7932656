#include <algorithm>
#include <map>

#include "client/packets.h"
#include "client/responses.h"
#include "client/transcript.h"
#include "kavo/basics/printable.h"
#include "kavo/report/page_data.h"

namespace kavo::companion {

namespace {

struct LifeEvent {
    std::uint64_t ns = 0;
    std::uint64_t packet = 0;
    const char* who = "";
    std::string text;
    bool diverges = false;
};

struct Life {
    std::string side, symbol, state;
    std::vector<LifeEvent> events;
    bool diverges = false;
};

using Name = std::pair<std::string, std::string>;  // user, client order id

constexpr std::size_t most_orders = 5'000;
constexpr std::size_t most_events_of_an_order = 2'000;

// Which orders a message is about: a replace is about two.
std::vector<std::string> ids_of_request(ByteView message) {
    if (const auto m = meo::read_new_order(message)) return {m->client_order_id.str()};
    if (const auto m = meo::read_cancel(message)) return {m->orig_client_order_id.str()};
    if (const auto m = meo::read_replace(message)) return {m->orig_client_order_id.str(), m->client_order_id.str()};
    return {};
}

std::vector<std::string> ids_of_response(ByteView message) {
    const auto one = [](std::string_view id) { return std::vector<std::string>{std::string(id)}; };
    const auto two = [](std::string_view a, std::string_view b) {
        return std::vector<std::string>{std::string(a), std::string(b)};
    };
    if (const auto m = client::read_new_order_response(message)) return one(m->client_order_id);
    if (const auto m = client::read_order_accepted(message)) return one(m->client_order_id);
    if (const auto m = client::read_order_resting(message)) return one(m->client_order_id);
    if (const auto m = client::read_execution(message)) return one(m->client_order_id);
    if (const auto m = client::read_order_cancelled(message)) return one(m->client_order_id);
    if (const auto m = client::read_cancel_response(message)) return one(m->orig_client_order_id);
    if (const auto m = client::read_replace_response(message)) return two(m->orig_client_order_id, m->client_order_id);
    if (const auto m = client::read_replace_notification(message)) {
        return two(m->orig_client_order_id, m->client_order_id);
    }
    return {};
}

class Lives {
public:
    explicit Lives(const Picture& picture) : picture_(picture) {
        for (const Conversation& conversation : picture.journal.conversations) {
            if (conversation.service == Service::orders) add_wire(conversation);
        }
        add_truth();
        add_beliefs();
        mark_divergences();
    }

    Json json() const {
        std::vector<std::pair<const Name*, const Life*>> order;
        for (const auto& [name, life] : lives_) order.emplace_back(&name, &life);
        std::stable_sort(order.begin(), order.end(),
                         [](const auto& a, const auto& b) { return a.second->diverges > b.second->diverges; });
        Json list = Json::array();
        for (const auto& [name, life] : order) {
            if (list.size() == most_orders) break;
            list.push_back(told(*name, *life));
        }
        return list;
    }

private:
    void add(const Name& name, const char* who, Moment at, std::string_view text) {
        Life& life = lives_[name];
        if (life.events.size() < most_events_of_an_order)
            life.events.push_back({at.ns, at.packet, who, printable(text), false});
    }

    void add_wire(const Conversation& conversation) {
        for (const WirePacket& packet : conversation.with_client) {
            const auto response = packet.by_client ? std::nullopt : client::read_sequenced(packet.bytes);
            const auto ids = packet.by_client ? ids_of_request(client::payload_of(packet.bytes))
                             : response       ? ids_of_response(response->message)
                                              : std::vector<std::string>{};
            const std::string text =
                packet.by_client ? client::sent_packet_text(packet.bytes) : client::packet_text(packet.bytes);
            for (const std::string& id : ids) {
                add({conversation.user, id}, packet.by_client ? "client" : "venue", packet.at, text);
                users_[id] = conversation.user;
            }
        }
    }

    // A line of the truth names no user: it belongs to whoever sent an order of that name.
    void add_truth() {
        for (const OrderLine& line : picture_.journal.orders) {
            const auto user = users_.find(std::string(line.client_order_id));
            if (user == users_.end()) continue;
            const Name name{user->second, std::string(line.client_order_id)};
            add(name, "truth", {line.t_ns, 0},
                std::string(line.event) + " quantity " + std::to_string(line.quantity) + " executed " +
                    std::to_string(line.executed) + " leaves " + std::to_string(line.leaves) +
                    (line.last_quantity == 0 ? "" : " this time " + std::to_string(line.last_quantity)) +
                    (line.text.empty() ? "" : " (" + std::string(line.text) + ")"));
            Life& life = lives_[name];
            life.state = printable(line.event);
            if (life.symbol.empty()) life.symbol = printable(line.symbol);
            if (life.side.empty()) life.side = line.side == 'B' ? "buy" : line.side == 'S' ? "sell" : "";
        }
    }

    std::string user_of(const Said& said, const std::string& id) const {
        if (!said.user.empty()) return said.user;
        const auto user = users_.find(id);
        return user == users_.end() ? "" : user->second;
    }

    void add_beliefs() {
        const auto number = [](const std::optional<std::uint64_t>& it) { return it ? std::to_string(*it) : "?"; };
        for (const OrderBelief& it : picture_.beliefs.orders) {
            add({user_of(it.said, it.id), it.id}, "belief", {it.said.t_ns, 0},
                it.state + " executed " + number(it.executed) + " leaves " + number(it.leaves) +
                    (it.sequence ? " after " + std::to_string(*it.sequence) : ""));
        }
        for (const FillBelief& it : picture_.beliefs.fills) {
            add({user_of(it.said, it.id), it.id}, "belief", {it.said.t_ns, 0},
                "filled " + std::to_string(it.quantity) + "@" + client::price_text(it.price));
        }
    }

    // The row that a finding speaks of is the belief that is nearest to its moment; without one, any row that is.
    void mark_divergences() {
        for (const Finding& finding : picture_.report.verdict.findings) {
            if (finding.where.order.empty() || finding.grade != Grade::finding) continue;
            const auto life = lives_.find({finding.where.user, finding.where.order});
            if (life == lives_.end()) continue;
            const bool of_belief = !finding.belief.empty();
            life->second.diverges = life->second.diverges || of_belief;
            const auto distance = [&](const LifeEvent& event) {
                const bool other = of_belief != (std::string_view(event.who) == "belief");
                const std::uint64_t at = finding.where.moment.ns;
                return std::pair{other, event.ns > at ? event.ns - at : at - event.ns};
            };
            auto& events = life->second.events;
            const auto nearest = std::min_element(
                events.begin(), events.end(), [&](const auto& a, const auto& b) { return distance(a) < distance(b); });
            if (nearest != events.end()) nearest->diverges = true;
        }
    }

    Json told(const Name& name, const Life& life) const {
        std::vector<LifeEvent> events = life.events;
        std::stable_sort(events.begin(), events.end(), [](const auto& a, const auto& b) { return a.ns < b.ns; });
        Json rows = Json::array();
        for (const LifeEvent& event : events) {
            Json row{{"t", picture_.ms(event.ns)}, {"who", event.who}, {"text", event.text}};
            if (event.packet != 0) row["packet"] = event.packet;
            if (event.diverges) row["diverges"] = true;
            rows.push_back(row);
        }
        return Json{{"user", printable(name.first)},
                    {"id", printable(name.second)},
                    {"side", life.side},
                    {"symbol", life.symbol},
                    {"state", life.state},
                    {"diverges", life.diverges},
                    {"events", rows}};
    }

    const Picture& picture_;
    std::map<Name, Life> lives_;
    std::map<std::string, std::string> users_;  // whose an id is
};

}  // namespace

Json order_lives(const Picture& picture) {
    return Lives(picture).json();
}

}  // namespace kavo::companion
