#include "support/side_by_side.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <tuple>
#include <utility>

#include "app/statistics.h"
#include "model/fields.h"

namespace kavo::model {
namespace {

static_assert(std::tuple_size_v<Faults> == scripted_faults.size());

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

std::string in_words(const std::vector<Venue::Outbound>& outbox) {
    std::ostringstream text;
    for (const Venue::Outbound& outbound : outbox) {
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

std::string numbers_differ(const std::string& what, std::uint64_t engine, std::uint64_t model) {
    if (engine == model) return {};
    return what + ": engine " + std::to_string(engine) + ", model " + std::to_string(model) + "\n";
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

std::vector<Venue::Outbound> to_outbound(const OutboundMessages& messages) {
    std::vector<Venue::Outbound> result;
    for (const OutboundMessage& message : messages) {
        result.push_back({message.client, to_bytes(message.message.bytes())});
    }
    return result;
}

std::vector<Venue::Outbound> addressed(int client, const Answers& answers) {
    std::vector<Venue::Outbound> result;
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

// Of a log or of the commentary: each text is one line.
std::function<void(std::string_view line)> lines_into(std::vector<std::string>& lines) {
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
    : venue(settings, world.around_venue()),
      commentary_(lines_into(commentary_lines_)),
      feed_(
          settings.session, clock_, [](ByteView) {}, commentary_),
      generator_(settings.seed),
      engine_(feed_, generator_, engine_settings(settings), bench_, clock_, commentary_),
      books_from_feed_(settings.symbols) {
    engine_.order_truth.log.write_to(lines_into(order_truth_));
    engine_.books.truth.write_to(lines_into(book_truth_));
    for (const Symbol& symbol : settings.symbols) engine_.books.add_product(symbol.name, symbol.reference);
    let_pass(0);
}

void SideBySide::let_pass(std::uint64_t ms, std::uint64_t ns) {
    world.steady_ms += ms;
    world.wall_ns += ms * ns_per_ms + ns;
    clock_.stand_at(world.steady_ms, world.wall_ns);
}

void SideBySide::arm(const Faults& faults) {
    for (std::size_t i = 0; i < faults.size(); ++i) {
        FaultScript& script = venue.bench.faults[i].script;
        bench_.*scripted_faults[i].every = script.every = faults[i].script.every;
        bench_.*scripted_faults[i].next = script.next = faults[i].script.next;
    }
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
    OutboundMessages answers;
    const bool handled = tell_engine(request, answers);
    const std::optional<Answers> expected = venue.handle(request.client, request.message);
    if (handled != expected.has_value()) return "one side takes this for a request and the other does not\n";
    if (!all_sequenced(answers)) return "an answer that would never be replayed\n";
    return compare(
        difference("answers", to_outbound(answers), addressed(request.client, expected.value_or(Answers{}))));
}

bool SideBySide::tell_engine(const Request& request, OutboundMessages& answers) {
    if (const auto order = meo::read_new_order(request.message)) {
        engine_.new_order(request.client, *order, answers);
    } else if (const auto replacement = meo::read_replace(request.message)) {
        engine_.replace(request.client, *replacement, answers);
    } else if (const auto cancellation = meo::read_cancel(request.message)) {
        engine_.cancel(request.client, *cancellation, answers);
    } else {
        return false;
    }
    return true;
}

std::string SideBySide::drop(int client) {
    venue.client_dropped(client, "someone");
    engine_.client_dropped(client, "someone");
    return compare({});
}

std::string SideBySide::cancel_unsolicited() {
    venue.cancel_unsolicited();
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
        books_from_feed_.follow(published.back());
        const std::uint32_t touched = product_touched_by(published.back());
        if (touched != 0 && std::ranges::count(touched_products_, touched) == 0) touched_products_.push_back(touched);
    }
    const std::vector<Bytes> expected = std::exchange(world.feed, {});
    return difference("feed", published, expected) +
           numbers_differ("feed sequence", feed_.last_sequence(), world.feed_sequence);
}

std::string SideBySide::compare_truths() {
    return difference("order truth", std::exchange(order_truth_, {}), std::exchange(world.order_truth, {})) +
           difference("book truth", std::exchange(book_truth_, {}), std::exchange(world.book_truth, {})) +
           difference("commentary", std::exchange(commentary_lines_, {}), std::exchange(world.commentary, {}));
}

std::string SideBySide::compare_counters() const {
    const std::string engine = bench_statistics(bench_.counters);
    const std::string model = venue.bench.statistics();
    std::string differences = engine == model ? "" : "engine: " + engine + "\nmodel:  " + model + "\n";
    differences +=
        numbers_differ("disconnect_cancels", bench_.counters.disconnect_cancels, venue.bench.disconnect_cancels);
    for (std::size_t i = 0; i < scripted_faults.size(); ++i) {
        const Bench::Fault& fault = venue.bench.faults[i];
        differences +=
            numbers_differ(std::string(fault.control_word), bench_.*scripted_faults[i].next, fault.script.next);
    }
    return differences;
}

std::string SideBySide::compare_book(std::uint32_t product_id) const {
    const kavo::Product& product = engine_.books.products().at(product_id - 1);
    const Product& expected = venue.books.product(product_id);
    const Product& from_feed = books_from_feed_.product(product_id);
    std::string differences = numbers_differ("last price", product.last, expected.last);
    differences += numbers_differ("last price on the feed", product.last, from_feed.last);
    differences += numbers_differ("volume", product.volume, expected.volume);
    differences += numbers_differ("volume on the feed", product.volume, from_feed.volume);
    if (product.reference != expected.reference) differences += product.symbol + " reference prices differ\n";
    for (const bool buy : {true, false}) {
        const std::string side = product.symbol + (buy ? " bids" : " asks");
        std::vector<Level> levels;
        for (const auto& [rank, level] : (buy ? product.bids : product.asks).levels()) {
            levels.push_back({level.price, level.total});
        }
        differences += difference(side, levels, venue.books.levels(product_id, buy));
        differences += difference(side + ", rebuilt from the feed,", levels, books_from_feed_.levels(product_id, buy));
    }
    return differences;
}

std::string SideBySide::compare_all_books() {
    std::string differences = compare_queues();
    for (const Product& product : venue.books.products) differences += compare_book(product.product_id);
    return differences;
}

// A refresh tells the orders one by one in the order in which they would trade: the engine's must be the model's, byte
// by byte, and the one that the feed led to.
std::string SideBySide::compare_queues() {
    const std::vector<Bytes> refresh = messages_of(feed_, feed_.state.resting_orders);
    std::string differences = difference("resting orders", refresh, venue.resting_orders());
    const std::vector<Order> led_to = books_from_feed_.resting_orders();
    const auto is_same = [](const Bytes& message, const Order& order) {
        const Order told = read_add_order(message);
        return told.id == order.id && told.product_id == order.product_id && told.buy == order.buy &&
               told.price == order.price && told.leaves == order.leaves;
    };
    if (!std::ranges::equal(refresh, led_to, is_same)) differences += "the refresh is not where the feed led to\n";
    return differences;
}

std::string SideBySide::compare_refreshed_definitions() {
    std::string differences =
        difference("refreshed definitions", messages_of(feed_, feed_.state.series_definitions), venue.definitions());
    return differences.append(difference("refreshed statuses", messages_of(feed_, feed_.state.series_trading_status),
                                         venue.trading_statuses()));
}

}  // namespace kavo::model
