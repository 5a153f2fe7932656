#include "common/price.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <locale>
#include <sstream>

namespace kavo {
namespace {

std::string short_price(Price price) {
    std::string text;
    append_short_price(text, price);
    return text;
}

std::string fixed_price(Price price) {
    std::string text;
    append_fixed_price(text, price);
    return text;
}

TEST(WirePrice, IsAHundredTimesThePriceInside) {
    EXPECT_EQ(to_wire(1'900'500), 190'050'000u);
    EXPECT_EQ(to_wire(0), 0u);
    EXPECT_EQ(to_wire(4'294'967'295), 429'496'729'500u);
}

TEST(WirePrice, LosesWhatIsSmallerThanATenThousandthOnTheWayIn) {
    EXPECT_EQ(from_wire(190'050'000), 1'900'500u);
    EXPECT_EQ(from_wire(190'050'099), 1'900'500u);
    EXPECT_EQ(from_wire(99), 0u);
}

TEST(WirePrice, IsKeptToThirtyTwoBitsOnTheWayIn) {
    EXPECT_EQ(from_wire(429'496'729'500), 4'294'967'295u);
    EXPECT_EQ(from_wire(429'496'729'600), 0u);
    EXPECT_EQ(from_wire(429'496'730'000), 4u);
    EXPECT_EQ(from_wire(0xFFFFFFFFFFFFFFFF), 0xF5C28F5Cu);  // 2^64 / 100 is 0x028F5C28'F5C28F5C
}

TEST(WirePrice, OfACentIsTheSameCentInside) {
    EXPECT_EQ(from_wire(wire_cent), price_cent);
    EXPECT_EQ(to_wire(price_cent), wire_cent);
    EXPECT_EQ(price_unit, 100 * price_cent);
}

TEST(ShortPrice, HasNoTrailingZeros) {
    EXPECT_EQ(short_price(0), "0");
    EXPECT_EQ(short_price(1), "0.0001");
    EXPECT_EQ(short_price(500), "0.05");
    EXPECT_EQ(short_price(10'000), "1");
    EXPECT_EQ(short_price(1'900'000), "190");
    EXPECT_EQ(short_price(1'900'500), "190.05");
    EXPECT_EQ(short_price(1'901'000), "190.1");
    EXPECT_EQ(short_price(100'000'000), "10000");
}

TEST(ShortPrice, IsRoundedToSixDigits) {
    EXPECT_EQ(short_price(999'999), "99.9999");
    EXPECT_EQ(short_price(1'000'001), "100");
    EXPECT_EQ(short_price(1'234'567), "123.457");
    EXPECT_EQ(short_price(9'999'996), "1000");
    EXPECT_EQ(short_price(12'345'678), "1234.57");
    EXPECT_EQ(short_price(123'456'700), "12345.7");
    EXPECT_EQ(short_price(4'294'967'295), "429497");
}

TEST(ShortPrice, IsAppended) {
    std::string text = "px=";
    append_short_price(text, 1'900'500);
    EXPECT_EQ(text, "px=190.05");
}

// What a price reads like when it is put on a stream as a number of currency units.
class Streamed {
public:
    Streamed() { stream_.imbue(std::locale::classic()); }
    std::string operator()(Price price) {
        stream_.str("");
        stream_ << price / 10'000.0;
        return stream_.str();
    }

private:
    std::ostringstream stream_;
};

// Compares every `step`th price from `first` to `last`; stops at the first one that differs.
void expect_streamed(std::uint64_t first, std::uint64_t last, std::uint64_t step) {
    Streamed streamed;
    for (std::uint64_t price = first; price <= last; price += step) {
        ASSERT_EQ(short_price(static_cast<Price>(price)), streamed(static_cast<Price>(price))) << price;
    }
}

constexpr Price thousand = 1'000 * price_unit;
constexpr std::uint64_t highest = 0xFFFFFFFF;

TEST(ShortPrice, ReadsLikeAStreamedNumberForEveryCentUpToAThousand) {
    expect_streamed(0, thousand, price_cent);
}

TEST(ShortPrice, ReadsLikeAStreamedNumberAllOverItsRange) {
    expect_streamed(0, highest, 20'011);
    expect_streamed(0, 20'000, 1);
    expect_streamed(highest - 20'000, highest, 1);
    for (const std::uint64_t power : {1'000'000u, 10'000'000u, 100'000'000u, 1'000'000'000u}) {
        expect_streamed(power - 1000, power + 1000, 1);
    }
}

// Half of the sixth digit is where a decimal rounding and that of the nearest double may part.
TEST(ShortPrice, ReadsLikeAStreamedNumberWhereItsSixthDigitIsATie) {
    expect_streamed(1'000'005, 9'999'995, 10 * 97);
    expect_streamed(10'000'050, 99'999'950, 100 * 97);
    expect_streamed(100'000'500, 999'999'500, 1'000 * 97);
    expect_streamed(1'000'005'000, highest, 10'000 * 29);
}

TEST(FixedPrice, HasFourDecimals) {
    EXPECT_EQ(fixed_price(0), "0.0000");
    EXPECT_EQ(fixed_price(1), "0.0001");
    EXPECT_EQ(fixed_price(1'900'000), "190.0000");
    EXPECT_EQ(fixed_price(1'900'500), "190.0500");
    EXPECT_EQ(fixed_price(4'294'967'295), "429496.7295");
}

TEST(FixedPrice, ReadsLikeAPrintedNumberAllOverItsRange) {
    const auto expect_printed = [](std::uint64_t first, std::uint64_t last, std::uint64_t step) {
        for (std::uint64_t price = first; price <= last; price += step) {
            char printed[32];
            std::snprintf(printed, sizeof printed, "%.4f", static_cast<double>(price) / 10'000.0);
            ASSERT_EQ(fixed_price(static_cast<Price>(price)), printed) << price;
        }
    };
    expect_printed(0, highest, 20'011);
    expect_printed(0, 20'000, 1);
    expect_printed(highest - 20'000, highest, 1);
}

TEST(FixedPrice, IsAppended) {
    std::string text = "px=";
    append_fixed_price(text, 1'900'500);
    EXPECT_EQ(text, "px=190.0500");
}

}  // namespace
}  // namespace kavo
