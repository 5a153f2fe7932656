#include <gtest/gtest.h>

#include "kavo/audit/audit.h"
#include "kavo/support/found.h"
#include "kavo/support/run_made_by_hand.h"

namespace kavo::companion {
namespace {

using namespace test;
using client::buy;
using client::cancel;
using client::replace;
using client::sell;

// Both audits: what one convicts, the other must not.
Verdict judged(const RunMadeByHand& run) {
    Verdict verdict;
    audit_sessions(run.journal(), verdict);
    audit_orders(run.journal(), verdict);
    return verdict;
}

std::string found_in(const RunMadeByHand& run) {
    return found(judged(run));
}

// Has been told number 1, and goes on with 2.
ConnectionMadeByHand& logged_in(RunMadeByHand& run, std::string_view user = "alice") {
    return run.connection().logs_in(user, 1).is_let_in(0).is_told(1, started());
}

// b1 rests, told by 2 to 4.
ConnectionMadeByHand& with_an_order(RunMadeByHand& run) {
    auto& alice = logged_in(run).sends(buy("b1"));
    return alice.is_told(2, taken(buy("b1"))).is_told(3, accepted(buy("b1"))).is_told(4, rests(buy("b1")));
}

// --- ids -----------------------------------------------------------------------------------------------------------

TEST(Ids, OneForEachOrderAndEachReplaceIsRight) {
    RunMadeByHand run;
    auto& alice = with_an_order(run);
    alice.sends(replace("b1", "b2").shares(300)).is_told(5, answered(replace("b1", "b2"), 300));
    alice.is_told(6, replaced(replace("b1", "b2"), 300)).sends(cancel("b2")).is_told(7, answered(cancel("b2")));
    alice.is_told(8, cancelled("b2")).sends(buy("b3")).is_told(9, taken(buy("b3"))).after(1s).closes();
    EXPECT_EQ(found_in(run), "nothing");
}

TEST(Ids, ThatOfALiveOrderConvictsOnce) {
    RunMadeByHand run;
    with_an_order(run).after(1s).sends(buy("b1")).is_told(5, refused(buy("b1"), 'A')).after(1s).closes();
    const Verdict verdict = judged(run);
    ASSERT_EQ(found(verdict), "finding order.id-unique");
    EXPECT_EQ(verdict.findings[0].got, "an order with the id \"b1\" once more");
    EXPECT_EQ(verdict.findings[0].truth,
              "the client has given this id before, at +0.000 s, and was not told of its end");
    EXPECT_EQ(verdict.findings[0].where.order, "b1");
    EXPECT_EQ(verdict.findings[0].where.user, "alice");
}

TEST(Ids, OfWhatHasEndedOnThisConnectionConvicts) {
    RunMadeByHand run;
    auto& alice = with_an_order(run).is_told(5, filled("b1", 100));
    alice.after(1s).sends(buy("b1")).is_told(6, taken(buy("b1"))).after(1s).closes();
    EXPECT_EQ(found_in(run), "finding order.id-unique");
}

TEST(Ids, OfWhatHasEndedOnAnEarlierConnectionAreARemark) {
    RunMadeByHand run;
    with_an_order(run).is_told(5, filled("b1", 100)).after(1s).closes();
    auto& second = run.connection(2s);
    second.logs_in("alice", 6).is_let_in(5).sends(buy("b1")).is_told(6, taken(buy("b1"))).after(1s).closes();
    EXPECT_EQ(found_in(run), "remark order.id-unique");
}

TEST(Ids, OfWhatWasRejectedMayBeUsedAgain) {
    RunMadeByHand run;
    auto& alice = logged_in(run).sends(buy("b1")).is_told(2, refused(buy("b1"), 'R')).after(10ms).sends(buy("b1"));
    alice.is_told(3, taken(buy("b1"))).after(1s).closes();
    EXPECT_EQ(found_in(run), "nothing");
}

TEST(Ids, OfWhatNeverArrivedMayBeUsedAgain) {
    RunMadeByHand run;
    logged_in(run).after(1s).sends(buy("b1")).is_cut();
    auto& second = run.connection(2s);
    second.logs_in("alice", 2).is_let_in(1).sends(buy("b1")).is_told(2, taken(buy("b1"))).after(1s).closes();
    EXPECT_EQ(found_in(run), "nothing");
}

TEST(Ids, AnOrderThatIsSentAgainThoughTheReplayTellsOfItConvicts) {
    RunMadeByHand run;
    logged_in(run).after(1s).sends(buy("b1")).is_cut();
    auto& second = run.connection(2s);
    second.logs_in("alice", 2).is_let_in(3).is_told(2, taken(buy("b1"))).is_told(3, accepted(buy("b1")));
    second.has_heard_all().after(500ms).sends(buy("b1")).is_told(4, refused(buy("b1"), 'A')).closes();
    EXPECT_EQ(found_in(run), "finding order.id-unique");
}

TEST(Ids, ThatSomebodyElseHasAreARemark) {
    RunMadeByHand run;
    logged_in(run).sends(buy("b1")).is_told(2, refused(buy("b1"), 'A')).after(1s).closes();
    EXPECT_EQ(found_in(run), "remark order.id-unique");
}

TEST(Ids, AReplaceThatKeepsItsIdConvicts) {
    RunMadeByHand run;
    auto& alice = with_an_order(run).after(1s).sends(replace("b1", "b1"));
    alice.is_told(5, answered(replace("b1", "b1"), 0, 'A')).after(1s).closes();
    EXPECT_EQ(found_in(run), "finding order.id-unique");
}

TEST(Ids, MayHoldAnyByte) {
    RunMadeByHand run;
    const std::string id = "\"><\x1b\n'";
    auto& alice = logged_in(run).sends(buy(id)).is_told(2, taken(buy(id))).sends(buy(id));
    alice.is_told(3, refused(buy(id), 'A')).after(1s).closes();
    const Verdict verdict = judged(run);
    ASSERT_EQ(found(verdict), "finding order.id-unique");
    EXPECT_EQ(verdict.findings[0].got, R"(an order with the id "\x22><\x1b\x0a'" once more)");
    EXPECT_EQ(verdict.findings[0].where.order, id);
}

// --- cancels -------------------------------------------------------------------------------------------------------

TEST(Cancels, OfWhatWasFilledLongBeforeConvict) {
    RunMadeByHand run;
    auto& alice = with_an_order(run).is_told(5, filled("b1", 60)).is_told(6, filled("b1", 40, 2));
    alice.after(1s).sends(cancel("b1")).is_told(7, answered(cancel("b1"), 'D')).after(1s).closes();
    const Verdict verdict = judged(run);
    ASSERT_EQ(found(verdict), "finding order.cancel-of-ended");
    EXPECT_EQ(verdict.findings[0].got, "a cancel of \"b1\"");
    EXPECT_EQ(verdict.findings[0].truth, "the client was told that it was filled, 700 ms before");
}

TEST(Cancels, OfEveryKindOfEndConvict) {
    for (const auto& end : {cancelled("b1", 'H'), cancelled("b1", 'E', 100)}) {
        RunMadeByHand run;
        auto& alice = with_an_order(run).is_told(5, end).after(1s).sends(replace("b1", "b2"));
        alice.is_told(6, answered(replace("b1", "b2"), 0, 'D')).closes();
        EXPECT_EQ(found_in(run), "finding order.cancel-of-ended");
    }
    RunMadeByHand run;
    auto& alice = logged_in(run).sends(buy("b1")).is_told(2, refused(buy("b1"), 'R')).after(1s).sends(cancel("b1"));
    alice.closes();
    EXPECT_EQ(found_in(run), "finding order.cancel-of-ended");
}

TEST(Cancels, UnderAnIdThatWasReplacedConvict) {
    RunMadeByHand run;
    auto& alice = with_an_order(run).sends(replace("b1", "b2")).is_told(5, answered(replace("b1", "b2"), 100));
    alice.is_told(6, replaced(replace("b1", "b2"), 100)).after(1s).sends(cancel("b1")).closes();
    EXPECT_EQ(found_in(run), "finding order.cancel-of-ended");
}

TEST(Cancels, ThatCrossWithTheEndAreInnocent) {
    RunMadeByHand run;
    with_an_order(run).is_told(5, filled("b1", 100)).after(200ms).sends(cancel("b1")).after(1s).closes();
    EXPECT_EQ(found_in(run), "nothing");
}

TEST(Cancels, OfASlowReaderAreInnocent) {
    RunMadeByHand run;
    auto& alice = with_an_order(run);
    for (std::uint64_t number = 5; number < 45; ++number) alice.is_told(number, filled("b1", 1, number));
    alice.is_told(45, cancelled("b1", 'H')).after(2s).sends(cancel("b1")).closes();  // it reads for 2.2 s
    EXPECT_EQ(found_in(run), "nothing");
}

TEST(Cancels, OnALateMachineProveNothing) {
    RunMadeByHand run;
    auto& alice = with_an_order(run).is_told(5, filled("b1", 100)).after(1s).sends(cancel("b1"));
    alice.after(1s).closes();
    run.machine_is_late(800ms, 60ms);
    EXPECT_EQ(found_in(run), "inconclusive order.cancel-of-ended");
}

TEST(Cancels, OfAnOrderOfAnEarlierConnectionAreInnocent) {
    RunMadeByHand run;
    with_an_order(run).is_told(5, filled("b1", 100)).after(1s).closes();
    auto& second = run.connection(2s);
    second.logs_in("alice", 6).is_let_in(5).after(1s).sends(cancel("b1")).is_told(6, answered(cancel("b1"), 'D'));
    second.closes();
    EXPECT_EQ(found_in(run), "nothing");
}

TEST(Cancels, OfWhatAReplayHasToldAnewConvict) {
    RunMadeByHand run;
    with_an_order(run).is_told(5, filled("b1", 100)).after(500ms).resets();
    auto& second = run.connection(2s);
    second.logs_in("alice", 5).is_let_in(5).is_told(5, filled("b1", 100)).has_heard_all();
    second.after(1s).sends(cancel("b1")).closes();
    EXPECT_EQ(found_in(run), "finding order.cancel-of-ended");
}

TEST(Cancels, OfAPartlyFilledOrderAreRight) {
    RunMadeByHand run;
    with_an_order(run).is_told(5, filled("b1", 60)).after(1s).sends(cancel("b1")).closes();
    EXPECT_EQ(found_in(run), "nothing");
}

TEST(Cancels, OfAnOrderThatAPendingReplaceMayHaveMadeLargerAreRight) {
    RunMadeByHand run;
    auto& alice = with_an_order(run).sends(replace("b1", "b2").shares(300)).is_told(5, filled("b1", 100));
    alice.after(1s).sends(cancel("b2")).closes();
    EXPECT_EQ(found_in(run), "nothing");
}

TEST(Cancels, OfAReplacedOrderCountWhatExecutedUnderBothIds) {
    RunMadeByHand run;
    auto& alice = with_an_order(run).is_told(5, filled("b1", 60)).sends(replace("b1", "b2").shares(150));
    alice.is_told(6, answered(replace("b1", "b2"), 90)).is_told(7, replaced(replace("b1", "b2").shares(150), 90));
    alice.after(1s).sends(cancel("b2")).is_told(8, answered(cancel("b2"), 'D'));  // lost its race
    EXPECT_EQ(found_in(run), "nothing");
    alice.is_told(9, filled("b2", 90, 2)).after(1s).sends(cancel("b2")).closes();
    EXPECT_EQ(found_in(run), "finding order.cancel-of-ended");
}

TEST(Cancels, OfALiveOrderWhoseNamesakeWasRejectedAreRight) {
    RunMadeByHand run;
    auto& alice = with_an_order(run).sends(buy("b1")).is_told(5, refused(buy("b1"), 'A'));
    alice.after(1s).sends(cancel("b1")).is_told(6, answered(cancel("b1"))).closes();
    EXPECT_EQ(found_in(run), "finding order.id-unique");
}

TEST(Cancels, OfWhatWasNeverSentConvict) {
    RunMadeByHand run;
    with_an_order(run).after(1s).sends(cancel("b7")).is_told(5, answered(cancel("b7"), 'D')).closes();
    const Verdict verdict = judged(run);
    ASSERT_EQ(found(verdict), "finding order.cancel-of-unknown");
    EXPECT_EQ(verdict.findings[0].truth, "this user has never sent an order with that id");
}

TEST(Cancels, OfAnotherUsersOrderConvict) {
    RunMadeByHand run;
    with_an_order(run).after(1s).closes();
    logged_in(run, "bob").sends(cancel("b1")).is_told(2, answered(cancel("b1"), 'D')).closes();
    EXPECT_EQ(found_in(run), "finding order.cancel-of-unknown");
}

TEST(Cancels, BeforeAnyAnswerAreRight) {
    RunMadeByHand run;
    logged_in(run).sends(buy("b1")).sends(replace("b1", "b2")).sends(cancel("b2")).sends(cancel("b1")).closes();
    EXPECT_EQ(found_in(run), "nothing");
}

TEST(Cancels, OfAnOrderThatTheConnectionTookAlongToAnotherNameAreRight) {
    RunMadeByHand run;
    auto& both = with_an_order(run).after(1s).logs_in("bob", 1).is_let_in(0).is_told(1, started());
    both.sends(cancel("b1")).is_told(2, answered(cancel("b1"))).closes();
    EXPECT_EQ(found_in(run), "nothing");
}

TEST(Cancels, OutsideOfASessionAreOtherRulesBusiness) {
    RunMadeByHand early;
    early.connection().sends(cancel("b7")).logs_in("alice", 1).hears_goodbye('B', "not logged in").is_dropped();
    EXPECT_EQ(found_in(early), "finding session.nothing-before-login");

    RunMadeByHand late;
    with_an_order(late).after(1s).logs_out().sends(cancel("b7")).is_dropped();
    EXPECT_EQ(found_in(late), "finding session.nothing-after-goodbye");
}

TEST(Cancels, AfterARestartOfTheVenueTheOldOrdersAreForgotten) {
    RunMadeByHand run;
    with_an_order(run).after(1s).is_dropped();
    auto& second = run.connection(2s);
    second.logs_in("alice", 5).is_answered('N', 0).logs_in("alice", 1).is_let_in(0).is_told(1, started());
    second.sends(buy("b1")).is_told(2, taken(buy("b1"))).after(1s).sends(cancel("b1")).closes();
    EXPECT_EQ(found_in(run), "nothing");
}

// --- refusals ------------------------------------------------------------------------------------------------------

TEST(Refusals, AreRemarksByReason) {
    RunMadeByHand run;
    auto& alice = logged_in(run);
    for (std::uint64_t i = 0; i < 3; ++i) {
        const auto order = buy("k" + std::to_string(i)).shares(0);
        alice.sends(order).is_told(2 + i, refused(order, 'K'));
    }
    alice.sends(sell("m1").shares(999'999)).is_told(5, refused(sell("m1").shares(999'999), 'M')).after(1s).closes();
    const Verdict verdict = judged(run);
    ASSERT_EQ(found(verdict), "remark order.refused-by-check | remark order.refused-by-check");
    EXPECT_EQ(verdict.findings[0].got, "3 orders with a quantity of 0, the first \"k0\"");
    EXPECT_EQ(verdict.findings[0].truth, "answered with reason \"K\"");
    EXPECT_EQ(verdict.findings[1].got, "1 order with a quantity above --max-order-size, the first \"m1\"");
}

TEST(Refusals, ByScriptAndByRaceAreNobodysFault) {
    RunMadeByHand run;
    auto& alice = with_an_order(run).sends(replace("b1", "b2")).is_told(5, answered(replace("b1", "b2"), 0, 'H'));
    alice.sends(cancel("b1")).is_told(6, filled("b1", 100)).is_told(7, answered(cancel("b1"), 'D'));
    alice.sends(buy("b3")).is_told(8, refused(buy("b3"), 'R')).after(1s).closes();
    EXPECT_EQ(found_in(run), "nothing");
}

TEST(Refusals, ToldAgainByAReplayAreNotCountedTwice) {
    RunMadeByHand run;
    const auto order = buy("k1").shares(0);
    logged_in(run).sends(order).is_told(2, refused(order, 'K')).after(1s).resets();
    auto& second = run.connection(3s);
    second.logs_in("alice", 2).is_let_in(2).is_told(2, refused(order, 'K')).has_heard_all().after(1s).closes();
    const Verdict verdict = judged(run);
    ASSERT_EQ(found(verdict), "remark order.refused-by-check");
    EXPECT_EQ(verdict.findings[0].got, "1 order with a quantity of 0, the first \"k1\"");
}

}  // namespace
}  // namespace kavo::companion
