#include "support/side_by_side.h"

#include <algorithm>
#include <initializer_list>
#include <sstream>
#include <string_view>
#include <utility>

#include "model/literal_fields.h"
#include "model/literal_wire.h"

namespace kavo::model {
namespace {

constexpr std::uint64_t opening_steady_ms = 5'000'000;
constexpr std::uint64_t opening_wall_ns = 1'700'000'000'123'456'789;

Bytes to_bytes(ByteView view) {
    return {view.begin(), view.end()};
}

std::string in_words(const std::vector<Bytes>& messages) {
    std::ostringstream text;
    for (const Bytes& message : messages) text << "    " << hex(message) << '\n';
    return text.str();
}

std::string in_words(const std::vector<std::string>& lines) {
    std::ostringstream text;
    for (const std::string& line : lines) text << "    " << line << '\n';
    return text.str();
}

std::string in_words(const std::vector<Level>& levels) {
    std::ostringstream text;
    for (const Level& level : levels) text << "    " << level.total << " at " << level.price << '\n';
    return text.str();
}

std::string in_words(const std::vector<Outbound>& outbox) {
    std::ostringstream text;
    for (const Outbound& outbound : outbox) {
        text << "    for client " << outbound.client << ": " << hex(outbound.message) << '\n';
    }
    return text.str();
}

// Nothing when both are equal.
template <typename T>
std::string difference(const std::string& what, const T& engine, const T& model) {
    if (engine == model) return {};
    return what + " of the engine:\n" + in_words(engine) + what + " of the model:\n" + in_words(model);
}

struct Number {
    std::string_view what;
    std::uint64_t engine;
    std::uint64_t model;
};

std::string differences_of(std::initializer_list<Number> numbers) {
    std::ostringstream text;
    for (const Number& number : numbers) {
        if (number.engine == number.model) continue;
        text << number.what << ": engine " << number.engine << ", model " << number.model << '\n';
    }
    return text.str();
}

EngineSettings engine_settings(const Settings& settings) {
    EngineSettings result;
    result.step_bps = settings.step_bps;
    result.touch_hit = settings.touch_hit;
    result.session = settings.session;
    result.acod = settings.acod;
    result.max_order_size = settings.max_order_size;
    return result;
}

std::vector<Outbound> to_outbound(const OutboundMessages& messages) {
    std::vector<Outbound> result;
    for (const OutboundMessage& message : messages) {
        result.push_back({message.client, to_bytes(message.message.bytes())});
    }
    return result;
}

std::vector<Outbound> addressed(int client, const Answers& answers) {
    std::vector<Outbound> result;
    for (const Bytes& answer : answers) result.push_back({client, answer});
    return result;
}

bool all_sequenced(const OutboundMessages& messages) {
    return std::all_of(messages.begin(), messages.end(), [](const OutboundMessage& m) { return m.sequenced; });
}

// As a refresh would give them out.
std::vector<Bytes> messages_of(const DomFeed& feed, const DomFeed::StateBuilder& build) {
    std::vector<Bytes> messages;
    build([&](ByteView message) { feed.stamp(messages.emplace_back(to_bytes(message))); });
    return messages;
}

LineLog::Listener lines_into(std::vector<std::string>& lines) {
    return [&lines](std::string_view line) { lines.emplace_back(line.substr(0, line.size() - 1)); };
}

// The product that a feed message is about; 0 when it is about none.
std::uint32_t product_touched_by(const Bytes& message) {
    const std::uint8_t type = message.at(0);
    if (type < 0x14 || type > 0x18) return 0;
    return get32(message, 5);
}

}  // namespace

SideBySide::SideBySide(const Settings& settings)
    : venue(settings),
      feed_(
          settings.session, clock_, [](ByteView) {}, commentary_),
      generator_(settings.seed),
      engine_(feed_, generator_, engine_settings(settings), bench_, clock_, commentary_) {
    engine_.order_truth.log.write_to(lines_into(order_truth_));
    engine_.books.truth.write_to(lines_into(book_truth_));
    for (const Symbol& symbol : settings.symbols) engine_.books.add_product(symbol.name, symbol.reference);
    venue.steady_ms = opening_steady_ms;
    venue.wall_ns = opening_wall_ns;
    let_pass(0);
}

void SideBySide::let_pass(std::uint64_t ms, std::uint64_t ns) {
    venue.steady_ms += ms;
    venue.wall_ns += ms * ns_per_ms + ns;
    clock_.stand_at(venue.steady_ms, venue.wall_ns);
}

void SideBySide::arm(const Faults& faults) {
    const auto set = [&faults](auto& side) {
        side.reject_every = faults.reject_every;
        side.reject_next = faults.reject_next;
        side.partial_fill_every = faults.partial_fill_every;
        side.partial_next = faults.partial_next;
        side.fill_on_cancel_every = faults.fill_on_cancel_every;
        side.fill_on_cancel_next = faults.fill_on_cancel_next;
        side.unsolicited_cancel_every = faults.unsolicited_cancel_every;
        side.unsolicited_cancel_next = faults.unsolicited_cancel_next;
        side.replace_reject_every = faults.replace_reject_every;
        side.replace_reject_next = faults.replace_reject_next;
    };
    set(venue);
    set(bench_);
}

void SideBySide::pause(bool paused) {
    venue.paused = paused;
    engine_.market.paused = paused;
}

std::string SideBySide::start_day() {
    venue.start_of_day();
    engine_.start_day();
    std::string differences = compare({});
    differences += compare_all_books();
    return differences.append(compare_refreshed_definitions());
}

std::string SideBySide::start_session() {
    OutboundMessages answers;
    engine_.start_session(3, answers);
    return compare(difference("answers", to_outbound(answers), addressed(3, venue.start_of_session())));
}

std::string SideBySide::handle(const Request& request) {
    bool handled = false;
    OutboundMessages answers;
    std::optional<Answers> expected;
    if (request.kind == Request::Kind::new_order) {
        meo::NewOrderRequest parsed;
        handled = meo::parse_new_order(request.message, parsed);
        if (handled) engine_.new_order(request.client, parsed, answers);
        expected = venue.new_order(request.client, request.message);
    } else if (request.kind == Request::Kind::modify) {
        meo::ModifyRequest parsed;
        handled = meo::parse_modify(request.message, parsed);
        if (handled) engine_.modify(request.client, parsed, answers);
        expected = venue.modify(request.client, request.message);
    } else {
        meo::CancelRequest parsed;
        handled = meo::parse_cancel(request.message, parsed);
        if (handled) engine_.cancel(request.client, parsed, answers);
        expected = venue.cancel(request.client, request.message);
    }
    if (handled != expected.has_value()) return "one side takes this for a request and the other does not\n";
    if (!all_sequenced(answers)) return "an answer that would never be replayed\n";
    return compare(
        difference("answers", to_outbound(answers), addressed(request.client, expected.value_or(Answers{}))));
}

std::string SideBySide::drop(int client) {
    venue.client_dropped(client);
    engine_.client_dropped(client, "someone");
    return compare({});
}

std::string SideBySide::cancel_unsolicited() {
    venue.unsolicited_cancels_due();
    engine_.cancel_unsolicited();
    return compare({});
}

std::string SideBySide::tick() {
    venue.tick();
    engine_.tick();
    return compare({});
}

void SideBySide::deliver() {
    venue.outbox.clear();
    engine_.outbox.clear();
}

// The feeds come before the books, which are rebuilt from what is found there.
std::string SideBySide::compare(const std::string& found) {
    std::string differences = found;
    differences += compare_outboxes();
    differences += compare_feeds();
    differences += compare_truths();
    differences += compare_counters();
    for (const std::uint32_t product_id : std::exchange(touched_products_, {})) {
        differences += compare_book(product_id);
    }
    return differences;
}

std::string SideBySide::compare_outboxes() {
    if (!all_sequenced(engine_.outbox)) return "something in the outbox that would never be replayed\n";
    return difference("outbox", to_outbound(engine_.outbox), venue.outbox);
}

// The book is rebuilt from the engine's messages, so a feed on which both sides agree but no receiver could build upon
// is found out as well.
std::string SideBySide::compare_feeds() {
    std::vector<Bytes> published;
    while (compared_sequence_ < feed_.last_sequence()) {
        published.push_back(to_bytes(feed_.message(++compared_sequence_)));
        feed_book_.apply(published.back());
        const std::uint32_t touched = product_touched_by(published.back());
        if (touched != 0 && std::ranges::count(touched_products_, touched) == 0) touched_products_.push_back(touched);
    }
    const std::vector<Bytes> expected = std::exchange(venue.feed, {});
    return difference("feed", published, expected) +
           differences_of({{"feed sequence", feed_.last_sequence(), venue.feed_sequence}});
}

std::string SideBySide::compare_truths() {
    return difference("order truth", std::exchange(order_truth_, {}), std::exchange(venue.order_truth, {})) +
           difference("book truth", std::exchange(book_truth_, {}), std::exchange(venue.book_truth, {}));
}

std::string SideBySide::compare_counters() const {
    const BenchCounters& counters = bench_.counters;
    return differences_of({
        {"orders", counters.orders, venue.orders},
        {"accepts", counters.accepts, venue.accepts},
        {"fills", counters.fills, venue.fills},
        {"partials", counters.partials, venue.partials},
        {"cancels", counters.cancels, venue.cancels},
        {"replaces", counters.replaces, venue.replaces},
        {"rejects", counters.rejects, venue.rejects},
        {"replace_rejects", counters.replace_rejects, venue.replace_rejects},
        {"unsolicited_cancels", counters.unsolicited_cancels, venue.unsolicited_cancels},
        {"race_fills", counters.race_fills, venue.race_fills},
        {"late_cancels", counters.late_cancels, venue.late_cancels},
        {"stale_cancels", counters.stale_cancels, venue.stale_cancels},
        {"disconnect_cancels", counters.disconnect_cancels, venue.disconnect_cancels},
        {"reject_next", bench_.reject_next, venue.reject_next},
        {"partial_next", bench_.partial_next, venue.partial_next},
        {"fill_on_cancel_next", bench_.fill_on_cancel_next, venue.fill_on_cancel_next},
        {"unsolicited_cancel_next", bench_.unsolicited_cancel_next, venue.unsolicited_cancel_next},
        {"replace_reject_next", bench_.replace_reject_next, venue.replace_reject_next},
    });
}

std::string SideBySide::compare_book(std::uint32_t product_id) const {
    const kavo::Product& product = engine_.books.products().at(product_id - 1);
    const Product& expected = venue.products.at(product_id - 1);
    std::string differences =
        differences_of({{"last price", product.last, expected.last}, {"volume", product.volume, expected.volume}});
    if (product.reference != expected.reference) differences += product.symbol + " reference prices differ\n";
    for (const bool buy : {true, false}) {
        const std::string side = product.symbol + (buy ? " bids" : " asks");
        std::vector<Level> levels;
        for (const auto& [rank, level] : (buy ? product.bids : product.asks).levels()) {
            levels.push_back({level.price, level.total});
        }
        differences += difference(side, levels, venue.levels(expected, buy));
        differences += difference(side + ", rebuilt from the feed,", levels, feed_book_.levels(product_id, buy));
    }
    return differences;
}

std::string SideBySide::compare_all_books() {
    std::string differences = compare_queues();
    for (const Product& product : venue.products) differences += compare_book(product.product_id);
    return differences;
}

// A refresh tells the orders one by one in the order in which they would trade: the engine's must be the model's, byte
// by byte, and the one that the feed led to.
std::string SideBySide::compare_queues() {
    const std::vector<Bytes> refresh = messages_of(feed_, feed_.state.resting_orders);
    std::vector<Bytes> expected;
    for (const Product& product : venue.products) {
        for (const bool buy : {true, false}) {
            for (const auto& [price, queue] : product.side(buy)) {
                for (const std::uint64_t id : queue) {
                    expected.push_back(add_order(venue.wall_ns, venue.live_orders.at(id)));
                }
            }
        }
    }
    std::vector<FeedBook::Resting> resting;
    for (const Bytes& message : refresh) resting.push_back(read_add_order(message));
    std::string differences = difference("resting orders", refresh, expected);
    if (resting != feed_book_.resting_orders()) differences += "the refresh is not where the feed led to\n";
    return differences;
}

std::string SideBySide::compare_refreshed_definitions() {
    std::vector<Bytes> definitions;
    std::vector<Bytes> statuses;
    for (const Product& product : venue.products) {
        definitions.push_back(series_definition(venue.wall_ns, product));
        statuses.push_back(series_status(venue.wall_ns, product));
    }
    std::string differences =
        difference("refreshed definitions", messages_of(feed_, feed_.state.series_definitions), definitions);
    return differences.append(
        difference("refreshed statuses", messages_of(feed_, feed_.state.series_trading_status), statuses));
}

}  // namespace kavo::model
