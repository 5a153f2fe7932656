// How long the engine remembers that an order has ended, at the very edges of that memory.
#include <gtest/gtest.h>

#include "model/fields.h"
#include "support/side_by_side.h"

namespace kavo::model {
namespace {

constexpr std::uint64_t remembered_ids = 50'000;

std::string number(std::uint64_t n) {
    return std::string("n").append(std::to_string(n));
}

class EndedOrders : public testing::Test {
protected:
    EndedOrders() { EXPECT_EQ(sides_.start_day(), ""); }

    // An immediate order far from the market: accepted, expired and closed within one request.
    void open_and_close(const std::string& id) {
        Bytes message(131, 0);
        put_text(message, 0, "N1");
        put_text(message, 10, "FIRM");
        put_text(message, 14, id);
        put(message, 34, 4, 1);
        put(message, 38, 8, 1'000'000);
        put(message, 46, 4, 100);
        put_text(message, 52, "I1");
        ASSERT_EQ(sides_.handle({0, message, id}), "") << id;
    }

    void cancel(const std::string& id) {
        Bytes message(68, 0);
        put_text(message, 0, "CO");
        put_text(message, 10, "FIRM");
        put_text(message, 14, "cancel");
        put_text(message, 34, id);
        put(message, 54, 4, 1);
        ASSERT_EQ(sides_.handle({0, message, id}), "") << id;
    }

    void replace(const std::string& id) {
        Bytes message(111, 0);
        put_text(message, 0, "M1");
        put_text(message, 10, "FIRM");
        put_text(message, 14, "replacement");
        put_text(message, 34, id);
        put(message, 58, 8, 1'000'000);
        put(message, 66, 4, 100);
        put_text(message, 83, "D");
        ASSERT_EQ(sides_.handle({0, message, id}), "") << id;
    }

    void expect_cancels(std::uint64_t late, std::uint64_t stale) {
        EXPECT_EQ(sides_.venue.bench.late_cancels, late);
        EXPECT_EQ(sides_.venue.bench.stale_cancels, stale);
    }

    SideBySide sides_{Settings{}};
};

TEST_F(EndedOrders, AreLateForLessThanTwoSecondsAndThenStale) {
    open_and_close("early");
    sides_.let_pass(1999);
    cancel("early");
    replace("early");
    expect_cancels(1, 0);
    sides_.let_pass(1);
    cancel("early");
    replace("early");
    expect_cancels(1, 1);
}

TEST_F(EndedOrders, AreAllForgottenWithTheOneThatIsTooMany) {
    for (std::uint64_t n = 1; n <= remembered_ids; ++n) open_and_close(number(n));
    open_and_close(number(7));  // ends a second time, which is no further id
    cancel(number(1));
    cancel(number(remembered_ids));
    expect_cancels(2, 0);

    open_and_close("too many");
    cancel("too many");
    cancel(number(1));
    cancel(number(remembered_ids));
    expect_cancels(2, 3);

    open_and_close("next");
    cancel("next");
    cancel("too many");
    expect_cancels(3, 4);
}

}  // namespace
}  // namespace kavo::model
