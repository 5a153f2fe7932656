// What a run says about itself: how the command ended, whether anybody came, and whether the scene was played.
#include <gtest/gtest.h>

#include "kavo/audit/audit.h"
#include "kavo/support/found.h"
#include "kavo/support/run_made_by_hand.h"

namespace kavo::companion::test {
namespace {

std::string judged(const RunMadeByHand& run) {
    Verdict verdict;
    audit_run(run.journal(), verdict);
    return found(verdict);
}

// A command that has logged in as this user, and ended well.
struct RunOf : RunMadeByHand {
    explicit RunOf(std::string_view user) {
        connection().logs_in(user, 1).is_let_in(0).at(1s).closes();
        note(2s, "command_end", "\"status\":0,\"signal\":0,\"timed_out\":false");
    }
};

TEST(RunRules, CommandThatComesAndEndsWellIsRight) {
    EXPECT_EQ(judged(RunOf("c01")), "nothing");
}

TEST(RunRules, CommandThatEndsBadlyIsAFinding) {
    for (const char* end :
         {"\"status\":1,\"signal\":0", "\"status\":0,\"signal\":9", "\"status\":0,\"signal\":0,\"timed_out\":true"}) {
        RunMadeByHand run;
        run.connection().logs_in("c01", 1);
        run.note(2s, "command_end", end);
        EXPECT_EQ(judged(run), "finding command.succeeds") << end;
    }
}

TEST(RunRules, NobodyWhoComesIsNoRightClient) {
    RunMadeByHand run;
    run.note(2s, "command_end", "\"status\":0,\"signal\":0");
    EXPECT_EQ(judged(run), "inconclusive command.takes-part");
}

// A receiver that loses nothing says nothing to anybody.
TEST(RunRules, WhoListensHasCome) {
    RunMadeByHand run;
    run.note(1s, "feed_socket", "\"socket\":7,\"open\":true,\"ms\":100");
    run.note(2s, "command_end", "\"status\":0,\"signal\":0");
    EXPECT_EQ(judged(run), "nothing");
}

// A bench that was run by hand has no command that could have come.
TEST(RunRules, BenchWithoutACommandMayBeAlone) {
    EXPECT_EQ(judged(RunMadeByHand()), "nothing");
}

TEST(RunRules, HouseIsNobodysNameUnlessTheScriptHasOne) {
    EXPECT_EQ(judged(RunOf("HOUSE")), "inconclusive command.own-name | inconclusive command.takes-part");
    RunOf run("HOUSE");
    run.connection().logs_in("c01", 1);
    run.note(1s, "script", "\"line\":1,\"text\":\"house buy h1 100 150.00 AAPL\"");
    EXPECT_EQ(judged(run), "nothing");
}

TEST(RunRules, HouseOfABenchByHandIsWhoeverIsJudgedByNobody) {
    RunMadeByHand run;
    run.connection().logs_in("HOUSE", 1).is_let_in(0).at(1s).closes();
    EXPECT_EQ(judged(run), "nothing");
}

TEST(RunRules, WhatStrangersSendToTheFeedIsToldOnce) {
    RunOf run("c01");
    run.note(1s, "stranger", "\"port\":4000");
    run.note(1s, "stranger", "\"port\":4000");
    EXPECT_EQ(judged(run), "inconclusive command.leaves-feed-alone");
}

TEST(RunRules, SceneThatWasNotPlayedProvesNothing) {
    RunOf run("c01");
    run.note(2s, "script_left", "\"line\":3,\"text\":\"when c01 rests b9: control drop 1\"");
    EXPECT_EQ(judged(run), "inconclusive script.played");
}

}  // namespace
}  // namespace kavo::companion::test
