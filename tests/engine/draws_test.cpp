#include "engine/draws.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <initializer_list>
#include <sstream>

namespace kavo {
namespace {

constexpr std::uint64_t highest_draw = 0xFFFFFFFFFFFFFFFF;

// The word of the generator's state from which this draw is made: its tempering undone, last step first. What a shift
// moves out of reach of itself is undone at once, the rest a few more bits with each turn.
std::uint64_t word_behind(std::uint64_t draw) {
    std::uint64_t word = draw ^ draw >> 43;
    word ^= word << 37 & 0xFFF7EEE000000000;
    std::uint64_t before = word;
    for (int turn = 0; turn < 4; ++turn) before = word ^ (before << 17 & 0x71D67FFFEDA60000);
    word = before;
    for (int turn = 0; turn < 3; ++turn) before = word ^ (before >> 29 & 0x5555555555555555);
    return before;
}

// A Mersenne Twister whose next draws are exactly these, at most 155 of them. Among 312 words of state, each new one is
// made from its predecessors 312, 311 and 156 places before it; where the first two are zero it is the third.
Generator drawing(std::initializer_list<std::uint64_t> draws) {
    std::array<std::uint64_t, Generator::state_size> words{};
    std::size_t at = Generator::shift_size;
    for (const std::uint64_t draw : draws) words.at(at++) = word_behind(draw);
    std::stringstream state;
    for (const std::uint64_t word : words) state << word << ' ';
    state << words.size();  // the library also wants to know where it stands: behind the last word
    Generator generator;
    state >> generator;
    EXPECT_FALSE(state.fail());
    return generator;
}

TEST(Generator, IsTheMersenneTwisterOfSixtyFourBits) {
    Generator generator;
    generator.discard(9999);
    EXPECT_EQ(generator(), 9981545732273789042u);
}

TEST(Generator, DrawsInTheseScenesWhatItIsTold) {
    Generator generator = drawing({0, 1, highest_draw, 0x0123456789ABCDEF, 42});
    EXPECT_EQ(generator(), 0u);
    EXPECT_EQ(generator(), 1u);
    EXPECT_EQ(generator(), highest_draw);
    EXPECT_EQ(generator(), 0x0123456789ABCDEFu);
    EXPECT_EQ(generator(), 42u);
}

TEST(UniformDraw, IsTheDrawsShareOfTheWholeRange) {
    Generator generator = drawing({0, 1, 1ull << 62, 1ull << 63, 3ull << 62});
    EXPECT_EQ(draw_uniform(generator), 0.0);
    EXPECT_EQ(draw_uniform(generator), 5.421010862427522e-20);
    EXPECT_EQ(draw_uniform(generator), 0.25);
    EXPECT_EQ(draw_uniform(generator), 0.5);
    EXPECT_EQ(draw_uniform(generator), 0.75);
}

// A double has 53 bits, so the 64 bits of a draw are rounded, the topmost half thousand of them up to the whole range.
TEST(UniformDraw, IsNeverOne) {
    const double just_below_one = std::nextafter(1.0, 0.0);
    Generator generator =
        drawing({highest_draw, 0xFFFFFFFFFFFFFC00, 0xFFFFFFFFFFFFFBFF, 0xFFFFFFFFFFFFF800, 0xFFFFFFFFFFFFF000});
    EXPECT_EQ(draw_uniform(generator), just_below_one);
    EXPECT_EQ(draw_uniform(generator), just_below_one);
    EXPECT_EQ(draw_uniform(generator), just_below_one);
    EXPECT_EQ(draw_uniform(generator), just_below_one);
    EXPECT_EQ(draw_uniform(generator), std::nextafter(just_below_one, 0.0));
}

TEST(UniformDraw, TakesOneDraw) {
    Generator generator = drawing({1ull << 63, 77});
    draw_uniform(generator);
    EXPECT_EQ(generator(), 77u);
}

TEST(DrawBelow, IsTheHighHalfOfTheProduct) {
    // 2^64 / 10 is 1844674407370955161.6: the shares of the ten results begin at its multiples.
    Generator generator = drawing({1, 1844674407370955161, 1844674407370955163, 9223372036854775809u, highest_draw});
    EXPECT_EQ(draw_below(generator, 10), 0u);
    EXPECT_EQ(draw_below(generator, 10), 0u);
    EXPECT_EQ(draw_below(generator, 10), 1u);
    EXPECT_EQ(draw_below(generator, 10), 5u);
    EXPECT_EQ(draw_below(generator, 10), 9u);
}

TEST(DrawBelow, DrawsAgainWhileTheLowHalfIsUnfair) {
    // Unfair below 2^64 mod 10 = 6. The products with 10 have these low halves: 0, 0 (half the range), 4, then 10.
    Generator generator = drawing({0, 1ull << 63, 1844674407370955162, 9223372036854775809u, 77});
    EXPECT_EQ(draw_below(generator, 10), 5u);
    EXPECT_EQ(generator(), 77u);
}

TEST(DrawBelow, TakesADrawWhoseLowHalfIsJustFair) {
    // 10 x 7378697629483820647 = 4 x 2^64 + 6
    Generator generator = drawing({7378697629483820647, 77});
    EXPECT_EQ(draw_below(generator, 10), 4u);
    EXPECT_EQ(generator(), 77u);
}

TEST(DrawBelow, NeverDrawsAgainForAPowerOfTwo) {
    Generator generator = drawing({0, highest_draw, 1ull << 61, 77});
    EXPECT_EQ(draw_below(generator, 8), 0u);
    EXPECT_EQ(draw_below(generator, 8), 7u);
    EXPECT_EQ(draw_below(generator, 8), 1u);
    EXPECT_EQ(generator(), 77u);
}

TEST(DrawBelow, OneIsZeroAndStillTakesADraw) {
    Generator generator = drawing({highest_draw, 77});
    EXPECT_EQ(draw_below(generator, 1), 0u);
    EXPECT_EQ(generator(), 77u);
}

TEST(DrawBelow, TakesBoundsBeyondThirtyTwoBits) {
    // 2^64 mod (2^63 + 1) is 2^63 - 1. Twice the bound is 2^64 + 2: unfair. Three times it is 2^64 + 2^63 + 3.
    constexpr std::uint64_t bound = (1ull << 63) + 1;
    Generator generator = drawing({2, 3, highest_draw, 77});
    EXPECT_EQ(draw_below(generator, bound), 1u);
    EXPECT_EQ(draw_below(generator, bound), 1ull << 63);  // 2^64 x bound - bound: its low half is 2^63 - 1
    EXPECT_EQ(generator(), 77u);
}

TEST(DrawBelow, StaysBelowEveryBound) {
    Generator generator(8);
    for (std::uint64_t bound = 1; bound <= 2000; ++bound) ASSERT_LT(draw_below(generator, bound), bound);
}

TEST(DrawThreeBits, TakesTheTopOnesOfADraw) {
    Generator generator = drawing({0, 0x1FFFFFFFFFFFFFFF, 1ull << 61, 5ull << 61, highest_draw, 77});
    EXPECT_EQ(draw_three_bits(generator), 0u);
    EXPECT_EQ(draw_three_bits(generator), 0u);
    EXPECT_EQ(draw_three_bits(generator), 1u);
    EXPECT_EQ(draw_three_bits(generator), 5u);
    EXPECT_EQ(draw_three_bits(generator), 7u);
    EXPECT_EQ(generator(), 77u);
}

// Draws that become the coordinates of the polar method, from -1 up to 1.
constexpr std::uint64_t minus_one = 0;
constexpr std::uint64_t minus_half = 1ull << 62;
constexpr std::uint64_t zero = 1ull << 63;
constexpr std::uint64_t quarter = 5ull << 61;
constexpr std::uint64_t three_quarters = 7ull << 61;

TEST(NormalDraws, GiveTheSecondCoordinatesDeviateFirstAndKeepTheOther) {
    // x = -0.5, y = 0.25, s = 0.3125: the factor is sqrt(-2 ln(s) / s) = 2.728399747609642
    Generator generator = drawing({minus_half, quarter, 77});
    NormalDraws normal(generator);
    EXPECT_DOUBLE_EQ(normal.next(), 0.68209993690241047);
    EXPECT_DOUBLE_EQ(normal.next(), -1.3641998738048209);
    EXPECT_EQ(generator(), 77u);
}

TEST(NormalDraws, DrawAFreshPairOnceBothDeviatesAreGone) {
    // Then x = 0.75, y = -0.5, s = 0.8125: the factor is 0.7149211722498246
    Generator generator = drawing({minus_half, quarter, three_quarters, minus_half});
    NormalDraws normal(generator);
    normal.next();
    normal.next();
    EXPECT_DOUBLE_EQ(normal.next(), -0.35746058612491230);
    EXPECT_DOUBLE_EQ(normal.next(), 0.53619087918736846);
}

TEST(NormalDraws, RejectAPairOutsideTheCircle) {
    Generator generator = drawing({minus_one, minus_one, three_quarters, three_quarters, minus_half, quarter, 77});
    NormalDraws normal(generator);
    EXPECT_DOUBLE_EQ(normal.next(), 0.68209993690241047);
    EXPECT_EQ(generator(), 77u);
}

TEST(NormalDraws, RejectAPairAtTheCentre) {
    Generator generator = drawing({zero, zero, minus_half, quarter, 77});
    NormalDraws normal(generator);
    EXPECT_DOUBLE_EQ(normal.next(), 0.68209993690241047);
    EXPECT_EQ(generator(), 77u);
}

TEST(NormalDraws, TakeAPairOnTheCircleItself) {
    Generator generator = drawing({minus_one, zero, 77});
    NormalDraws normal(generator);
    EXPECT_EQ(normal.next(), 0.0);
    EXPECT_EQ(normal.next(), 0.0);
    EXPECT_EQ(generator(), 77u);
}

TEST(NormalDraws, TakeNothingFromTheGeneratorForAKeptDeviate) {
    Generator generator = drawing({minus_half, quarter, 77, 78});
    NormalDraws normal(generator);
    normal.next();
    EXPECT_EQ(generator(), 77u);
    EXPECT_DOUBLE_EQ(normal.next(), -1.3641998738048209);
    EXPECT_EQ(generator(), 78u);
}

TEST(NormalDraws, ForgetTheKeptDeviateWithThemselves) {
    Generator generator = drawing({minus_half, quarter, three_quarters, minus_half});
    EXPECT_DOUBLE_EQ(NormalDraws(generator).next(), 0.68209993690241047);
    EXPECT_DOUBLE_EQ(NormalDraws(generator).next(), -0.35746058612491230);
}

TEST(NormalDraws, HaveTheMeanAndTheSpreadOfAStandardNormal) {
    constexpr int count = 100'000;
    Generator generator(9);
    NormalDraws normal(generator);
    double sum = 0;
    double squares = 0;
    for (int i = 0; i < count; ++i) {
        const double deviate = normal.next();
        sum += deviate;
        squares += deviate * deviate;
    }
    EXPECT_NEAR(sum / count, 0.0, 0.02);
    EXPECT_NEAR(squares / count, 1.0, 0.03);
}

}  // namespace
}  // namespace kavo
