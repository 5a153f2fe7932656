#include "common/round.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace kavo {
namespace {

// Four who always want a turn, and what a pass makes of them when each turn takes some time.
struct Table {
    Table() { clock.stand_at(1'000'000, 0); }

    std::string pass(std::uint64_t ms_a_turn) {
        std::string served;
        round.begin(turns.size());
        for (std::size_t i = 0; i < turns.size(); ++i) {
            if (!round.owes_turn(turns[i])) continue;
            if (round.spent()) return served;
            round.give_turn(turns[i]);
            served += static_cast<char>('a' + i);
            clock.advance_ms(ms_a_turn);
        }
        round.end();
        return served;
    }

    Clock clock;
    Round round{clock, 10 * ns_per_ms};
    std::array<std::uint32_t, 4> turns{};
};

TEST(Round, GivesEverybodyATurnInEveryPassWhileThereIsTime) {
    Table table;
    EXPECT_EQ(table.pass(0), "abcd");
    EXPECT_EQ(table.pass(3), "abcd");
    EXPECT_EQ(table.pass(3), "abcd");
}

TEST(Round, GoesOnInTheNextPassWithThoseWhoHaveHadNoTurn) {
    Table table;
    EXPECT_EQ(table.pass(5), "ab");
    EXPECT_EQ(table.pass(5), "cd");
    EXPECT_EQ(table.pass(5), "ab");
    EXPECT_EQ(table.pass(20), "c");
    EXPECT_EQ(table.pass(20), "d");
    EXPECT_EQ(table.pass(20), "a");
}

TEST(Round, LastsUntilEverybodyHasHadATurnWhoeverComesMeanwhile) {
    Table table;
    EXPECT_EQ(table.pass(5), "ab");
    table.turns[0] = 0;  // somebody new in the first place
    EXPECT_EQ(table.pass(5), "ac");
    EXPECT_EQ(table.pass(5), "d");
}

TEST(Round, SharesItsTimeAmongThoseWhoWantATurn) {
    Table table;
    std::uint32_t turn = 0;
    table.round.begin(5);
    EXPECT_EQ(table.round.give_turn(turn), table.clock.steady_ns() + 2 * ns_per_ms);
    table.round.begin(0);
    EXPECT_EQ(table.round.give_turn(turn), table.clock.steady_ns() + 10 * ns_per_ms);
}

}  // namespace
}  // namespace kavo
