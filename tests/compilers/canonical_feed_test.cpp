// One seed is one market, whoever compiled it: optimised or not, with sanitizers or without. This program is built by
// every preset and every compiler, and each must find the same number.
#include "compilers/canonical_feed.h"

#include <gtest/gtest.h>

#include "app/bench.h"
#include "app/options.h"
#include "engine/engine.h"
#include "support/still_world.h"

namespace kavo::test {
namespace {

constexpr std::uint64_t messages = 100'000;
constexpr int most_ticks = 20'000;  // a few thousand are enough for any market that is alive

// Of the market that the simulator plays without any flags: its symbols, its seed, its settings.
constexpr std::uint64_t hash_of_the_default_market = 12'988'146'453'694'231'680u;

std::uint64_t hash_of(std::string_view text) {
    Hash hash;
    hash.take(as_bytes(text));
    return hash.value();
}

TEST(Hash, IsTheOneEverybodyKnows) {
    EXPECT_EQ(hash_of(""), 0xcbf29ce484222325);
    EXPECT_EQ(hash_of("a"), 0xaf63dc4c8601ec8c);
    EXPECT_EQ(hash_of("foobar"), 0x85944171f73967e8);
}

// A message as short as one can be: its type, its time, and one byte of content.
Bytes stamped(std::uint8_t type, std::uint8_t time, std::uint8_t content) {
    return {type, time, time, time, time, content};
}

std::uint64_t canonical_hash(const std::vector<Bytes>& feed, std::uint64_t limit) {
    CanonicalFeed canonical(limit);
    for (const Bytes& message : feed) canonical.take(message);
    return canonical.hash();
}

TEST(CanonicalFeed, ForgetsTheTimeAndNothingElse) {
    const std::uint64_t hash = canonical_hash({stamped(5, 1, 9), stamped(4, 1, 9)}, 9);
    EXPECT_EQ(canonical_hash({stamped(5, 2, 9), stamped('1', 7, 7), stamped(4, 3, 9)}, 9), hash);
    EXPECT_NE(canonical_hash({stamped(5, 1, 9), stamped(4, 1, 8)}, 9), hash);
    EXPECT_NE(canonical_hash({stamped(4, 1, 9), stamped(5, 1, 9)}, 9), hash);
    EXPECT_NE(canonical_hash({stamped(5, 1, 9)}, 9), hash);
}

TEST(CanonicalFeed, EndsWhenItIsComplete) {
    CanonicalFeed canonical(2);
    canonical.take(stamped(5, 1, 9));
    canonical.take(stamped('1', 1, 9));
    EXPECT_FALSE(canonical.complete());
    canonical.take(stamped(4, 1, 9));
    EXPECT_TRUE(canonical.complete());
    EXPECT_EQ(canonical_hash({stamped(5, 1, 9), stamped(4, 1, 9), stamped(4, 1, 9)}, 2), canonical.hash());
}

// The engine's own feed, on a clock that begins at `wall_ns` and goes on by `tick_ms` from tick to tick.
std::uint64_t hash_of_engine(std::uint64_t wall_ns, std::uint64_t tick_ms) {
    const Options defaults;
    Clock clock;
    clock.stand_at(0, wall_ns);
    Bench bench;
    Generator generator(defaults.seed);
    const Commentary commentary;
    DomFeed feed(
        1, clock, [](ByteView) {}, commentary);
    Engine engine(feed, generator, {}, bench, clock, commentary);
    for (const SymbolItem& item : parse_symbols(defaults.symbols)) engine.books.add_product(item.name, item.reference);

    CanonicalFeed canonical(messages);
    std::uint64_t taken = 0;
    engine.start_day();
    for (int tick = 0; tick < most_ticks && !canonical.complete(); ++tick) {
        while (taken < feed.last_sequence()) canonical.take(feed.message(++taken));
        clock.advance_ms(tick_ms);
        engine.tick();
    }
    EXPECT_TRUE(canonical.complete());
    return canonical.hash();
}

std::uint64_t hash_of_model() {
    model::StillWorld world;
    model::Venue venue({}, world.around_venue());
    CanonicalFeed canonical(messages);
    venue.start_of_day();
    for (int tick = 0; tick < most_ticks && !canonical.complete(); ++tick) {
        for (const Bytes& message : std::exchange(world.feed, {})) canonical.take(message);
        world.wall_ns += 40'000'000;
        venue.tick();
    }
    EXPECT_TRUE(canonical.complete());
    return canonical.hash();
}

TEST(OneSeed, GivesTheSameMarketFromEveryCompiler) {
    EXPECT_EQ(hash_of_engine(1'700'000'000'123'456'789, 40), hash_of_the_default_market);
}

TEST(OneSeed, GivesTheSameMarketAtAnyTimeAndPace) {
    EXPECT_EQ(hash_of_engine(1'234'567'890'999'999'999, 333), hash_of_the_default_market);
}

TEST(OneSeed, GivesTheMarketThatTheModelPredicts) {
    EXPECT_EQ(hash_of_model(), hash_of_the_default_market);
}

}  // namespace
}  // namespace kavo::test
