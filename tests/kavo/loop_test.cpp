#include "kavo/basics/loop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

namespace kavo::companion {
namespace {

using namespace std::chrono_literals;

TEST(Loop, CallsTimersInTheOrderInWhichTheyAreDue) {
    Loop loop;
    std::string called;
    loop.after(2ms, [&] { called += "b"; });
    loop.after(0ms, [&] { called += "a"; });
    loop.after(2ms, [&] { called += "c"; });
    ASSERT_TRUE(loop.turn_until([&] { return called.size() == 3; }, 20s));
    EXPECT_EQ(called, "abc");
}

TEST(Loop, LeavesATimerThatIsSetByATimerForTheNextTurn) {
    Loop loop;
    int called = 0;
    std::function<void()> again = [&] {
        ++called;
        loop.after(0ms, again);
    };
    again();
    loop.turn(20s);
    EXPECT_EQ(called, 2);
    loop.turn(20s);
    EXPECT_EQ(called, 3);
}

TEST(Loop, ForgetsATimerThatIsCancelled) {
    Loop loop;
    bool called = false;
    const auto timer = loop.after(0ms, [&] { called = true; });
    loop.cancel(timer);
    loop.turn(1ms);
    EXPECT_FALSE(called);
}

TEST(Loop, TellsWhatCanBeReadUntilItIsForgotten) {
    Loop loop;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    int told = 0;
    loop.watch(ends[0], POLLIN, [&](short events) {
        EXPECT_EQ(events, POLLIN);
        ++told;
        loop.forget(ends[0]);
    });
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    loop.turn(20s);
    loop.turn(1ms);
    EXPECT_EQ(told, 1);
    close(ends[0]);
    close(ends[1]);
}

// A number that was closed and opened again in one turn is another descriptor, and what was heard of the first is not
// told to the second.
TEST(Loop, KeepsADescriptorApartFromAnEarlierOneOfTheSameNumber) {
    Loop loop;
    int first[2], second[2];
    ASSERT_EQ(pipe(first), 0);
    ASSERT_EQ(pipe(second), 0);
    bool told = false;
    loop.watch(first[0], POLLIN, [&](short) {
        loop.forget(second[0]);
        loop.watch(second[0], POLLIN, [&](short) { told = true; });
        loop.forget(first[0]);
    });
    loop.watch(second[0], POLLIN, [&](short) {});
    ASSERT_EQ(write(first[1], "x", 1), 1);
    ASSERT_EQ(write(second[1], "x", 1), 1);
    loop.turn(20s);
    EXPECT_FALSE(told);
    loop.turn(20s);
    EXPECT_TRUE(told);
    for (const int end : {first[0], first[1], second[0], second[1]}) close(end);
}

}  // namespace
}  // namespace kavo::companion
