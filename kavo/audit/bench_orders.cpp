#include "kavo/audit/bench_orders.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <span>
#include <tuple>
#include <unordered_map>

#include "client/responses.h"
#include "client/transcript.h"
#include "engine/meo_layout.h"
#include "kavo/audit/order_lives.h"
#include "kavo/audit/told_events.h"

namespace kavo::companion {

namespace {

constexpr std::uint64_t certainly_later_ns = 1'000'000'000;  // far beyond the pass in which an event is numbered

class OrderAudit {
public:
    OrderAudit(const Journal& journal, const BenchLog& log, const RecordedFeed& feed, const std::vector<Trade>& trades,
               const BenchStreams& streams, BenchFindings& findings)
        : journal_(journal), log_(log), feed_(feed), trades_(trades), streams_(streams), findings_(findings) {}

    void audit() {
        sort_lines();
        for (const UserRequest& request : streams_.requests) note_request(request);
        for (const auto& [user, stream] : streams_.users) {
            for (const auto& [number, message] : stream.messages) {
                take(message.message, {.moment = message.at, .user = user, .stream_number = number});
            }
            latest_known_[user] = latest_known(stream);
        }
        for (std::size_t i = 0; i < journal_.orders.size(); ++i) {
            if (!taken_[i] && !journal_.orders[i].ambiguous) judge_untold(journal_.orders[i]);
        }
    }

private:
    using Key = std::tuple<std::uint64_t, std::string_view, std::string_view>;
    static Key key_of(const OrderLine& line) { return {line.t_ns, line.event, line.client_order_id}; }

    void sort_lines() {
        taken_.resize(journal_.orders.size());
        by_key_.resize(journal_.orders.size());
        std::iota(by_key_.begin(), by_key_.end(), std::size_t{0});
        std::ranges::stable_sort(by_key_, {}, [this](std::size_t i) { return key_of(journal_.orders[i]); });
        for (const OrderLine& line : journal_.orders) {
            if (line.ambiguous) doubtful_times_.insert(line.t_ns);
        }
    }

    std::span<const std::size_t> lines_of(const Key& key) const {
        const auto found =
            std::ranges::equal_range(by_key_, key, {}, [this](std::size_t i) { return key_of(journal_.orders[i]); });
        return {found.begin(), found.end()};
    }

    void take(ByteView message, Where where) {
        const auto told = told_event(message);
        if (!told || doubtful_times_.contains(told->t_ns)) return;
        where.order = told->client_order_id;
        if (told->event == "new" && told->owns_line) owner_of_[*told->order_id] = where.user;
        const OrderLine* line = nullptr;
        std::string other;
        for (const std::size_t i : lines_of({told->t_ns, told->event, told->client_order_id})) {
            if (told->owns_line && taken_[i]) continue;
            const std::string differs = difference(*told, journal_.orders[i], journal_.facts.symbols);
            if (differs.empty()) {
                line = &journal_.orders[i];
                if (told->owns_line) taken_[i] = true;
                break;
            }
            other = differs + " in line " + std::to_string(journal_.orders[i].line) +
                    " of orders.jsonl: " + line_text(journal_.orders[i]);
        }
        if (line == nullptr && told->may_be_race && was_race(*told)) return;
        if (line == nullptr) return without_line(message, where, other);
        if (const auto fill = client::read_execution(message)) audit_trade(*fill, *line, where);
    }

    // A cancel that has lost its race leaves the fill alone.
    bool was_race(const ToldEvent& told) const {
        if (log_.lost_races == 0) return false;
        const auto fills = lines_of({told.t_ns, "fill", told.client_order_id});
        return std::ranges::any_of(fills, [this](std::size_t i) { return journal_.orders[i].leaves == 0; });
    }

    void without_line(ByteView message, const Where& where, const std::string& other) {
        findings_.contradiction_unless(other.empty() ? log_.orders_incomplete : "", bench_rule::order_line,
                                       {.expected = "a line for \"" + client::meo_text(message) + "\" in orders.jsonl",
                                        .got = other.empty() ? "none" : other,
                                        .where = where});
    }

    void audit_trade(const client::Execution& fill, const OrderLine& line, const Where& where) {
        const auto wrong = [&](const std::string& expected) {
            findings_.contradiction(bench_rule::trade,
                                    {.expected = expected, .got = "\"" + fill_text(fill) + "\"", .where = where});
        };
        const auto trade = std::ranges::lower_bound(trades_, fill.match_number, {}, &Trade::match_number);
        if (trade == trades_.end() || trade->match_number != fill.match_number) {
            const bool feed_is_whole = feed_.gaps.empty() && !trades_.empty() && trade != trades_.end();
            if (feed_is_whole) wrong("an execution on the feed with its match number");
            return;
        }
        const std::string told = "on the feed, in message " + std::to_string(trade->sequence) + ", " +
                                 std::to_string(trade->quantity) + "@" + client::price_text(trade->price) +
                                 " of order " + std::to_string(trade->order_id);
        if (trade->price != fill.price) return wrong("the price as " + told);
        if (fill.liquidity == meo::Liquidity::added) {
            if (trade->quantity != fill.quantity) return wrong("the quantity as " + told);
            if (trade->order_id != line.order_id) return wrong("the order as " + told);
        } else if (trade->quantity != fill.quantity) {
            // The partial-fill fault cuts the maker alone.
            const bool cut = log_.partial_fills != 0 && trade->quantity < fill.quantity;
            if (!cut) return wrong("the quantity as " + told);
        }
    }

    static std::string fill_text(const client::Execution& fill) {
        return "E1 " + std::string(fill.client_order_id) + " " + std::to_string(fill.quantity) + "@" +
               client::price_text(fill.price) + " match " + std::to_string(fill.match_number);
    }

    // The time of the latest message with no unknown one before it.
    static std::uint64_t latest_known(const SentStream& stream) {
        const std::uint64_t known = stream.known_up_to();
        std::uint64_t latest = 0;
        for (const auto& [number, message] : stream.messages) {
            if (number > known) break;
            if (message.message.size() < end_of(meo::layout::timestamp)) continue;
            latest = std::max(latest, get(message.message, meo::layout::timestamp));
        }
        return latest;
    }

    // A line of which no message tells. Messages to whoever is away are numbered and wait, perhaps for ever; so it is
    // only a contradiction when all that was numbered for its user well beyond that moment is known.
    void judge_untold(const OrderLine& line) {
        const std::set<std::string> users = who_should_know(line);
        const bool all_is_known = !users.empty() && std::ranges::all_of(users, [&](const std::string& user) {
            const auto found = latest_known_.find(user);
            return found != latest_known_.end() && found->second >= line.t_ns + certainly_later_ns;
        });
        if (!all_is_known) return;
        findings_.contradiction_unless(
            log_.wire_incomplete.empty() ? machine_was_late(line.t_ns) : log_.wire_incomplete, bench_rule::order_line,
            {.expected = "a message to " + *users.begin() + " that tells of line " + std::to_string(line.line) +
                         " of orders.jsonl: " + line_text(line),
             .got = "none, and its stream lacks no number before and after that moment",
             .where = {.moment = {line.t_ns, 0}, .user = *users.begin(), .order = std::string(line.client_order_id)}});
    }

    std::set<std::string> who_should_know(const OrderLine& line) const {
        std::set<std::string> users;
        const auto owner = owner_of_.find(line.order_id);
        if (owner != owner_of_.end()) users.insert(owner->second);
        if (owner == owner_of_.end()) {
            const auto asked = asked_.find({line.event, std::string(line.client_order_id)});
            if (asked != asked_.end()) users = asked->second;
        }
        if (users.empty() || !streams_.orders_moved) return users;
        for (const auto& [user, stream] : streams_.users) users.insert(user);
        return users;
    }

    // The lines that a request may have caused, as long as no order has it as its owner.
    void note_request(const UserRequest& request) {
        const auto may_cause = [&](std::string_view event, std::string_view id) {
            asked_[{event, std::string(id)}].insert(request.user);
        };
        if (const auto m = meo::read_new_order(request.message)) {
            may_cause("new", m->client_order_id.view());
            may_cause("reject", m->client_order_id.view());
        }
        if (const auto m = meo::read_replace(request.message)) may_cause("replace_reject", m->client_order_id.view());
        if (const auto m = meo::read_cancel(request.message))
            may_cause("cancel_reject", m->orig_client_order_id.view());
    }

    std::string machine_was_late(std::uint64_t t_ns) const {
        for (const Note& note : journal_.notes) {
            if (note.event != "late") continue;
            const bool near = note.t_ns + certainly_later_ns >= t_ns && note.t_ns <= t_ns + 2 * certainly_later_ns;
            if (near) return "the machine was late at that moment";
        }
        return {};
    }

    const Journal& journal_;
    const BenchLog& log_;
    const RecordedFeed& feed_;
    const std::vector<Trade>& trades_;
    const BenchStreams& streams_;
    BenchFindings& findings_;
    std::vector<std::size_t> by_key_;  // lines, in the order of their keys
    std::vector<bool> taken_;          // lines of which a message has told
    std::set<std::uint64_t> doubtful_times_;
    std::unordered_map<std::uint64_t, std::string> owner_of_;                          // users, by order id
    std::map<std::string, std::uint64_t> latest_known_;                                // by user
    std::map<std::pair<std::string_view, std::string>, std::set<std::string>> asked_;  // users, by event and id
};

}  // namespace

void audit_orders_of_bench(const Journal& journal, const BenchLog& log, const RecordedFeed& feed,
                           const std::vector<Trade>& trades, const BenchStreams& streams, BenchFindings& findings) {
    audit_order_lives(journal, findings);
    OrderAudit(journal, log, feed, trades, streams, findings).audit();
}

}  // namespace kavo::companion
