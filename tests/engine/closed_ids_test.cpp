#include "engine/closed_ids.h"

#include <gtest/gtest.h>

#include <string>

#include "support/ids_of_one_hash.h"

namespace kavo {
namespace {

using meo::ClientOrderId;

std::string nth_id(int n) {
    return "id-" + std::to_string(n);
}

void close(ClosedIds& closed, int first, int last, std::uint64_t now_ms) {
    for (int n = first; n <= last; ++n) closed.close(ClientOrderId(nth_id(n)), now_ms);
}

TEST(ClosedIds, RememberWhenAnOrderEnded) {
    ClosedIds closed;
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("a")), std::nullopt);
    closed.close(ClientOrderId("a"), 1234);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("a")), 1234u);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("b")), std::nullopt);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("")), std::nullopt);
}

TEST(ClosedIds, TellIdsApartWhoseHashesAreTheSame) {
    const auto [one_text, other_text] = test::two_ids_of_one_hash();
    const ClientOrderId one(one_text);
    const ClientOrderId other(other_text);
    ClosedIds closed;
    closed.close(one, 1);
    EXPECT_EQ(closed.closed_at_ms(other), std::nullopt);
    closed.close(other, 2);
    EXPECT_EQ(closed.closed_at_ms(one), 1u);
    EXPECT_EQ(closed.closed_at_ms(other), 2u);
}

TEST(ClosedIds, RememberAnOrderThatEndedAtTimeZero) {
    ClosedIds closed;
    closed.close(ClientOrderId("a"), 0);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("a")), 0u);
}

TEST(ClosedIds, RememberTheLatestEndOfAnId) {
    ClosedIds closed;
    closed.close(ClientOrderId("a"), 1000);
    closed.close(ClientOrderId("a"), 2000);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId("a")), 2000u);
}

TEST(ClosedIds, RememberFiftyThousand) {
    ClosedIds closed;
    for (int n = 1; n <= 50'000; ++n) closed.close(ClientOrderId(nth_id(n)), static_cast<std::uint64_t>(n));
    for (int n = 1; n <= 50'000; ++n) {
        ASSERT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(n))), static_cast<std::uint64_t>(n)) << n;
    }
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(50'001))), std::nullopt);
}

TEST(ClosedIds, ForgetThemAllWithTheOneThatIsTooMuch) {
    ClosedIds closed;
    close(closed, 1, 50'001, 7);
    for (int n = 1; n <= 50'001; ++n) ASSERT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(n))), std::nullopt) << n;
}

TEST(ClosedIds, DoNotCountAnIdTwice) {
    ClosedIds closed;
    close(closed, 1, 50'000, 7);
    close(closed, 1, 50'000, 8);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(1))), 8u);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(50'000))), 8u);
    close(closed, 50'001, 50'001, 9);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(1))), std::nullopt);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(50'001))), std::nullopt);
}

TEST(ClosedIds, BeginAfreshOnceTheyHaveForgotten) {
    ClosedIds closed;
    close(closed, 1, 50'001, 7);
    close(closed, 40'001, 90'000, 8);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(40'000))), std::nullopt);
    for (int n = 40'001; n <= 90'000; ++n) ASSERT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(n))), 8u) << n;
    close(closed, 1, 1, 9);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(1))), std::nullopt);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(90'000))), std::nullopt);
    close(closed, 1, 1, 10);
    EXPECT_EQ(closed.closed_at_ms(ClientOrderId(nth_id(1))), 10u);
}

}  // namespace
}  // namespace kavo
