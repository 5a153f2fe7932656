#include <gtest/gtest.h>

#include "kavo/audit/audit.h"
#include "kavo/support/found.h"
#include "kavo/support/run_made_by_hand.h"

namespace kavo::companion {
namespace {

using namespace test;
using client::buy;
using client::login;
using esesm::PacketType;

Verdict session_verdict(const RunMadeByHand& run) {
    Verdict verdict;
    audit_sessions(run.journal(), verdict);
    return verdict;
}

std::string found_of_session(const RunMadeByHand& run) {
    return found(session_verdict(run));
}

// Logged in as alice, who has been told 1 to 5 and has had a second to read them.
ConnectionMadeByHand& connected_for_long(RunMadeByHand& run) {
    auto& first = run.connection();
    first.logs_in("alice", 1).is_let_in(0).is_told(1, started()).is_told(2, listed());
    first.at(100ms).sends(buy("b1").at("189.95")).is_told(3, taken(buy("b1"))).is_told(4, accepted(buy("b1")));
    first.is_told(5, rests(buy("b1")));
    return first.lives_until(4s);
}

// Comes back after that and asks for this number.
ConnectionMadeByHand& comes_back_asking(RunMadeByHand& run, std::uint64_t number, std::uint64_t highest = 5) {
    connected_for_long(run).is_dropped();
    auto& second = run.connection(4200ms);
    second.logs_in("alice", number).is_let_in(highest);
    return second;
}

// --- next number ---------------------------------------------------------------------------------------------------

TEST(NextNumber, TheNumberBehindTheLastIsRight) {
    RunMadeByHand run;
    comes_back_asking(run, 6).lives_until(8s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(NextNumber, TooHighANumberLosesWhatIsBeforeIt) {
    RunMadeByHand run;
    comes_back_asking(run, 7, 8).is_told(7, filled("b1", 50)).lives_until(8s).closes();
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "finding session.next-number");
    const Finding& finding = verdict.findings.front();
    EXPECT_EQ(finding.expected, "a login that asks for 6");
    EXPECT_EQ(finding.got, "a login that asks for 7: what comes before it is never heard");
    EXPECT_EQ(finding.truth, "the last number given to the client was 5");
    EXPECT_EQ(finding.where.user, "alice");
    EXPECT_EQ(finding.where.moment.ns, RunMadeByHand::start_ns + 4'200'000'000);
}

TEST(NextNumber, TheLastNumberOnceMoreIsWrong) {
    RunMadeByHand run;
    comes_back_asking(run, 5).is_told(5, rests(buy("b1"))).has_heard_all().lives_until(8s).closes();
    EXPECT_EQ(found_of_session(run), "finding session.next-number");
}

TEST(NextNumber, TheEndOfTheStreamGivesUpTheFillsOfWhoeverHasTraded) {
    RunMadeByHand run;
    comes_back_asking(run, 0).lives_until(8s).closes();
    EXPECT_EQ(found_of_session(run), "finding session.next-number");
}

TEST(NextNumber, TheEndOfTheStreamIsARemarkForWhoeverHasNeverTraded) {
    RunMadeByHand run;
    auto& first = run.connection();
    first.logs_in("alice", 0).is_let_in(0).is_told(1, started()).is_told(2, listed()).lives_until(3s).logs_out();
    first.is_dropped();
    run.connection(4s).logs_in("alice", 0).is_let_in(2).lives_until(6s).closes();
    EXPECT_EQ(found_of_session(run), "remark session.next-number");
}

TEST(NextNumber, EverythingAgainIsRemarkedOnceHoweverOften) {
    RunMadeByHand run;
    connected_for_long(run).is_dropped();
    for (const auto at : {5s, 10s, 15s}) {
        auto& again = run.connection(at);
        again.logs_in("alice", 1).is_let_in(5).is_told(1, 5, listed()).has_heard_all().lives_until(at + 3s).closes();
    }
    EXPECT_EQ(found_of_session(run), "remark session.next-number");
}

TEST(NextNumber, WhatWasGivenInTheLastSecondMayNotHaveBeenRead) {
    for (const std::uint64_t asked : {6u, 7u, 8u}) {
        RunMadeByHand run;
        connected_for_long(run).is_told(6, 7, filled("b1", 1)).after(300ms).is_reset();
        run.connection(5s).logs_in("alice", asked).is_let_in(7).lives_until(8s).closes();
        EXPECT_EQ(found_of_session(run), "nothing") << asked;
    }
}

TEST(NextNumber, ASlowReaderIsNotHeldToABurst) {
    for (const std::uint64_t asked : {33u, 45u, 61u}) {
        RunMadeByHand run;
        auto& first = run.connection();
        first.logs_in("alice", 1).is_let_in(0).is_told(1, 60, started());  // three seconds of reading, at 50 ms each
        first.lives_until(2600ms).resets();                                // 32 were read a second before
        run.connection(4s).logs_in("alice", asked).is_let_in(60);
        EXPECT_EQ(found_of_session(run), "nothing") << asked;
    }
}

TEST(NextNumber, WhoeverClosesInGoodOrderHasReadAll) {
    RunMadeByHand run;
    connected_for_long(run).is_told(6, filled("b1", 100)).after(100ms).is_cut();
    run.connection(4300ms).logs_in("alice", 6).is_let_in(6).is_told(6, filled("b1", 100)).has_heard_all();
    EXPECT_EQ(found_of_session(run), "finding session.next-number");
}

TEST(NextNumber, HalfAPacketIsNothing) {
    RunMadeByHand run;
    connected_for_long(run).hears_half(Bytes{50, 0, 's', 6}).is_cut();
    run.connection(5s).logs_in("alice", 6).is_let_in(6).is_told(6, filled("b1", 1)).has_heard_all();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(NextNumber, AfterARefusedNumberTheStreamMayBeAnother) {
    RunMadeByHand run;
    connected_for_long(run).is_dropped();
    auto& second = run.connection(5s);
    second.logs_in("alice", 6).is_answered('N', 0).logs_in("alice", 1).is_let_in(0).is_told(1, started());
    second.is_told(2, listed()).lives_until(8s).closes();
    run.connection(9s).logs_in("alice", 3).is_let_in(2).lives_until(11s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(NextNumber, AReplayThatWasCutShortIsAskedForFromWhereItStopped) {
    RunMadeByHand run;
    comes_back_asking(run, 6, 20).is_told(6, 9, listed()).is_cut();
    run.connection(5s).logs_in("alice", 10).is_let_in(20).is_told(10, 20, listed()).has_heard_all();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(NextNumber, ANewProcessMayStandBehindTheOneBefore) {
    RunMadeByHand run;
    connected_for_long(run).resets();
    run.connection(5s).logs_in("alice", 1).is_let_in(5).is_told(1, 3, listed()).lives_until(7s).is_cut();
    run.connection(8s).logs_in("alice", 4).is_let_in(5).is_told(4, 5, listed()).has_heard_all();
    EXPECT_EQ(found_of_session(run), "remark session.next-number");
}

TEST(NextNumber, UsersHaveTheirOwnStreams) {
    RunMadeByHand run;
    connected_for_long(run).is_dropped();
    run.connection(5s).logs_in("bob", 1).is_let_in(0).is_told(1, started()).lives_until(7s).closes();
    run.connection(8s).logs_in("alice", 6).is_let_in(5).lives_until(10s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(NextNumber, NobodyJudgesTheBenchItself) {
    RunMadeByHand run;
    run.journal().facts.house = "alice";
    comes_back_asking(run, 0).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

// --- holes ---------------------------------------------------------------------------------------------------------

// An order of the connection before was filled as number 6, which nobody was sent.
ConnectionMadeByHand& sees_a_hole(RunMadeByHand& run) {
    auto& second = comes_back_asking(run, 6);
    return second.at(5s).sends(buy("b2").at("189.95")).is_told(7, taken(buy("b2"))).is_told(8, accepted(buy("b2")));
}

TEST(Hole, IsHealedOnTheSameConnection) {
    RunMadeByHand run;
    auto& second = sees_a_hole(run);
    second.after(20ms).logs_in("alice", 6).is_let_in(8).is_told(6, 8, listed()).has_heard_all().lives_until(12s);
    second.closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Hole, IsHealedOnANewConnection) {
    RunMadeByHand run;
    sees_a_hole(run).after(20ms).closes();
    auto& third = run.connection(12s);
    third.logs_in("alice", 6).is_let_in(8).is_told(6, 8, listed()).has_heard_all().lives_until(20s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Hole, ThatNobodyCaresAboutConvicts) {
    RunMadeByHand run;
    sees_a_hole(run).lives_until(14s).closes();
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "finding session.hole");
    EXPECT_EQ(verdict.findings[0].expected, "a login that asks for 6 within 5,000 ms of number 7 at +5.000 s");
    EXPECT_EQ(verdict.findings[0].truth, "number 6 was never given to the client");
    EXPECT_EQ(verdict.findings[0].where.stream_number, 7u);
}

TEST(Hole, IsNotHealedFromBehind) {
    RunMadeByHand run;
    sees_a_hole(run).after(3s).closes();
    run.connection(9s).logs_in("alice", 9).is_let_in(8).lives_until(20s).closes();
    EXPECT_EQ(found_of_session(run), "finding session.hole");
}

TEST(Hole, IsNobodysWhenTheConnectionEndsInTime) {
    RunMadeByHand run;
    sees_a_hole(run).lives_until(7s).closes();
    run.ends(60s);
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Hole, AtTheVeryEndLeavesNoTime) {
    RunMadeByHand run;
    sees_a_hole(run).after(500ms);
    run.ends(5500ms);
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Hole, CannotBeJudgedWhenTheRunEndsBeforeTheLimit) {
    RunMadeByHand run;
    sees_a_hole(run).lives_until(8s);
    run.ends(8s);
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "inconclusive session.hole");
    EXPECT_EQ(verdict.findings[0].because, "the run was over 2950 ms later");
}

TEST(Hole, CannotBeJudgedOnALateMachine) {
    RunMadeByHand run;
    sees_a_hole(run).lives_until(14s).closes();
    run.machine_is_late(9s, 700ms);
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "inconclusive session.hole");
    EXPECT_EQ(verdict.findings[0].because, "the machine was late by 700 ms at +9.000 s");
}

TEST(Hole, IsNoneWhenTheLoginThatAsksForItIsUnderWay) {
    RunMadeByHand run;
    auto& second = comes_back_asking(run, 6);
    second.lives_until(5s).logs_in("alice", 6).is_told(7, listed()).is_let_in(7).is_told(6, 7, listed());
    second.has_heard_all().lives_until(12s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Hole, IsNoneWhenTheVenueNoLongerHasTheBeginningOfAReplay) {
    RunMadeByHand run;
    auto& second = comes_back_asking(run, 6, 900'000);
    second.is_told(400'001, 400'003, listed()).lives_until(12s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Hole, WhatWasKeptFromBehindItNeedNotBeAskedForTwice) {
    for (const std::uint64_t asked : {7u, 9u}) {
        RunMadeByHand run;
        auto& second = sees_a_hole(run);
        second.after(20ms).logs_in("alice", 6).is_let_in(8).is_told(6, listed()).is_cut();
        run.connection(6s).logs_in("alice", asked).is_let_in(8).lives_until(12s).closes();
        EXPECT_EQ(found_of_session(run), "nothing") << asked;
    }
}

// --- the clock -----------------------------------------------------------------------------------------------------

TEST(Heartbeats, ThreeSecondsOfNothingAreTooLong) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.logs_in("alice", 1).is_let_in(0).is_told(1, started()).hears_heartbeats_until(3s).after(10ms).is_dropped();
    run.ends(10s);
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "finding session.heartbeats");
    EXPECT_EQ(verdict.findings[0].got, "nothing until the connection ended, 3010 ms later");
    EXPECT_EQ(verdict.findings[0].truth, "the venue closed the connection at +3.010 s");
    ASSERT_EQ(verdict.slack.size(), 1u);
    EXPECT_EQ(verdict.slack[0].least_ms, 0);
}

TEST(Heartbeats, AreNeededHoweverMuchIsHeard) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.logs_in("alice", 1).is_let_in(0);
    for (std::uint64_t number = 1; number <= 35; ++number) alice.after(100ms).is_told(number, filled("b1", 1));
    alice.sends(buy("b2")).lives_until(8s).closes();
    EXPECT_EQ(found_of_session(run), "finding session.heartbeats");
}

TEST(Heartbeats, AnyPacketIsOne) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.logs_in("alice", 1).is_let_in(0).is_told(1, started());
    alice.hears_heartbeats_until(2s).sends(buy("b1")).hears_heartbeats_until(4s).says(PacketType::client_test);
    alice.hears_heartbeats_until(6500ms).beats().hears_heartbeats_until(7s).closes();
    const Verdict verdict = session_verdict(run);
    EXPECT_EQ(found(verdict), "nothing");
    ASSERT_EQ(verdict.slack.size(), 1u);
    EXPECT_EQ(verdict.slack[0].rule->name, "session.heartbeats");
    EXPECT_EQ(verdict.slack[0].least_ms, 500);
    EXPECT_EQ(verdict.slack[0].limit_ms, 3000);
}

TEST(Heartbeats, AreNotDueBeforeTheLoginIsAnswered) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.at(4s).logs_in("alice", 1).at(8s).is_let_in(0).is_told(1, started()).lives_until(12s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Heartbeats, AreNotDueFromWhoeverHasGone) {
    RunMadeByHand logged_out;
    logged_out.connection().logs_in("alice", 1).is_let_in(0).beats().logs_out().at(9s).is_dropped();
    EXPECT_EQ(found_of_session(logged_out), "nothing");

    RunMadeByHand ended;
    ended.connection().logs_in("alice", 1).is_let_in(0).hears_heartbeats_until(2500ms);
    ended.note(2s, "command_end", "\"status\":0,\"signal\":0");
    ended.ends(9s);
    EXPECT_EQ(found_of_session(ended), "nothing");
}

TEST(Heartbeats, OfALateMachineProveNothing) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.logs_in("alice", 1).is_let_in(0).is_told(1, started()).hears_heartbeats_until(3s).is_dropped();
    run.ends(10s);
    run.machine_is_late(2s, 900ms);
    EXPECT_EQ(found_of_session(run), "inconclusive session.heartbeats");
}

TEST(Silence, IsLeftAfterThreeSeconds) {
    for (const auto leaves : {2600ms, 3000ms, 4900ms}) {
        RunMadeByHand run;
        connected_for_long(run).hears_heartbeat().beats_until(4s + leaves).closes();
        run.connection(9s).logs_in("alice", 6).is_let_in(5).lives_until(12s).closes();
        EXPECT_EQ(found_of_session(run), "nothing") << leaves.count();
    }
}

TEST(Silence, IsLeftByANewLoginOnTheSameConnection) {
    RunMadeByHand run;
    auto& alice = connected_for_long(run).hears_heartbeat().beats_until(7s).logs_in("alice", 6);
    alice.is_let_in(5).lives_until(12s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Silence, ThatIsEnduredForEverConvicts) {
    RunMadeByHand run;
    connected_for_long(run).hears_heartbeat().beats_until(14s).closes();
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "finding session.leaves-silence");
    EXPECT_EQ(verdict.findings[0].got, "nothing was heard from +4.000 s on, and the client stayed for 10000 ms");
}

TEST(Silence, ThatIsEnduredToTheEndOfTheRunConvicts) {
    RunMadeByHand run;
    connected_for_long(run).hears_heartbeat().beats_until(14s);
    run.ends(14s);
    EXPECT_EQ(found_of_session(run), "finding session.leaves-silence");
}

TEST(Silence, ThatEndsInTimeNeedNotBeLeft) {
    RunMadeByHand run;
    connected_for_long(run).hears_heartbeat().beats_until(7500ms).hears_heartbeat().lives_until(12s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Silence, ThatEndsByItselfShouldHaveBeenLeft) {
    RunMadeByHand run;
    connected_for_long(run).hears_heartbeat().beats_until(8500ms).hears_heartbeat().lives_until(12s).closes();
    EXPECT_EQ(found_of_session(run), "remark session.leaves-silence");
}

TEST(Silence, LeftTooEarlyIsARemarkForWhoeverComesBack) {
    RunMadeByHand run;
    connected_for_long(run).hears_heartbeat().beats_until(6s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
    run.connection(7s).logs_in("alice", 6).is_let_in(5).lives_until(9s).closes();
    EXPECT_EQ(found_of_session(run), "remark session.leaves-silence");
}

TEST(Silence, OnALateMachineProvesNothing) {
    RunMadeByHand run;
    connected_for_long(run).hears_heartbeat().beats_until(14s).closes();
    run.machine_is_late(8s, 300ms);
    EXPECT_EQ(found_of_session(run), "inconclusive session.leaves-silence");
}

TEST(LoginInTime, ThirtySecondsWithoutALoginConvict) {
    RunMadeByHand run;
    run.connection().at(30s).hears_goodbye('L', "timed out waiting for login").is_dropped();
    EXPECT_EQ(found_of_session(run), "finding session.login-in-time");
}

TEST(LoginInTime, ALoginThatTheRelayHoldsIsNotMissing) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.at(1s).logs_in("alice", 1).at(30s).hears_goodbye('L', "timed out waiting for login").is_dropped();
    EXPECT_EQ(found_of_session(run), "nothing");
}

// --- the packets ---------------------------------------------------------------------------------------------------

TEST(BeforeLogin, AnOrderConvicts) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.sends(buy("b1")).logs_in("alice", 1).hears_goodbye('B', "not logged in").is_dropped();
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "finding session.nothing-before-login");
    EXPECT_EQ(verdict.findings[0].got, "a packet \"U\" while not logged in");
    EXPECT_EQ(verdict.findings[0].where.user, "alice");
}

TEST(BeforeLogin, HeartbeatsAndWhatFollowsTheLoginAtOnceAreRight) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.beats().says(PacketType::client_test).logs_in("alice", 1).sends(buy("b1")).is_let_in(0);
    alice.is_told(1, started()).lives_until(2s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(BeforeLogin, WhatCrossesWithARefusalIsInnocent) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.logs_in("alice", 7).is_answered('N', 0).after(200ms).sends(buy("b1"));
    alice.hears_goodbye('B', "not logged in").is_dropped();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(BeforeLogin, AnOrderLongAfterARefusalConvicts) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.logs_in("alice", 7).is_answered('N', 0).after(1s).sends(buy("b1"));
    alice.hears_goodbye('B', "not logged in").is_dropped();
    EXPECT_EQ(found_of_session(run), "finding session.nothing-before-login");
}

TEST(AfterGoodbye, WhatIsSentLongAfterItConvicts) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.logs_in("alice", 1).is_let_in(0).is_told(1, started()).lives_until(2s);
    alice.hears_goodbye('A', "done").after(800ms).sends(buy("b1")).after(100ms).beats().is_dropped();
    EXPECT_EQ(found_of_session(run), "finding session.nothing-after-goodbye");
    run.machine_is_late(2500ms, 200ms);
    EXPECT_EQ(found_of_session(run), "inconclusive session.nothing-after-goodbye");
}

TEST(AfterGoodbye, WhatCrossesWithItIsInnocent) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.logs_in("alice", 1).is_let_in(0).is_told(1, started()).lives_until(2s);
    alice.hears_goodbye('A', "done").after(200ms).sends(buy("b1")).after(40ms).beats().is_dropped();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(AfterGoodbye, ARequestBehindItsOwnLogoutConvicts) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.logs_in("alice", 1)
        .is_let_in(0)
        .is_told(1, started())
        .lives_until(2s)
        .logs_out()
        .sends(buy("b1"))
        .is_dropped();
    EXPECT_EQ(found_of_session(run), "finding session.nothing-after-goodbye");
}

TEST(AfterGoodbye, AHeartbeatBehindItsOwnLogoutIsInnocent) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.logs_in("alice", 1).is_let_in(0).is_told(1, started()).lives_until(2s).logs_out().after(2ms).beats();
    alice.is_dropped();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(LoginFields, EachRefusalForThemConvicts) {
    for (const char status : {'I', 'A', 'C', 'X', 'S'}) {
        RunMadeByHand run;
        run.connection().logs_in("alice", 1).is_answered(status, 0).is_dropped();
        EXPECT_EQ(found_of_session(run), "finding session.login-fields") << status;
    }
}

TEST(LoginFields, ALoginThatIsCutShortConvicts) {
    RunMadeByHand run;
    Bytes payload = login("alice", 1).payload();
    payload.pop_back();
    auto& alice = run.connection();
    alice.says(PacketType::login_request, payload).hears_goodbye('B', "malformed login").is_dropped();
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "finding session.login-fields");
    EXPECT_EQ(verdict.findings[0].got, "a login of 38 bytes, which is cut short");
}

TEST(WellFormed, ARequestThatIsTooShortOrUnknownConvicts) {
    Bytes shortened = buy("b1").bytes();
    shortened.resize(130);
    for (const Bytes& message : {shortened, Bytes{'Z', '9'}, Bytes{'N'}, Bytes{}}) {
        RunMadeByHand run;
        auto& alice = run.connection();
        alice.logs_in("alice", 1).is_let_in(0).says(PacketType::unsequenced_data, message);
        alice.hears_goodbye('B', "unknown or malformed application message").is_dropped();
        EXPECT_EQ(found_of_session(run), "finding session.well-formed") << message.size();
    }
}

TEST(WellFormed, WhatLiesBehindTheSmallestSizeIsRight) {
    RunMadeByHand run;
    Bytes longer = buy("b1").bytes();
    longer.resize(300);
    run.connection().logs_in("alice", 1).is_let_in(0).says(PacketType::unsequenced_data, longer).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(WellFormed, ATypeThatNobodyReadsIsARemark) {
    RunMadeByHand run;
    run.connection().logs_in("alice", 1).is_let_in(0).says(static_cast<PacketType>('\x1b')).closes();
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "remark session.well-formed");
    EXPECT_EQ(verdict.findings[0].got, "a packet \"\\x1b\", which the venue ignores");
}

TEST(WellFormed, ALengthOfNothingConvicts) {
    RunMadeByHand run;
    run.connection().logs_in("alice", 1).is_let_in(0).says_half(Bytes{0, 0, 'U'}).closes();
    EXPECT_EQ(found_of_session(run), "finding session.well-formed");
}

TEST(WellFormed, ALengthOfNothingConvictsAlsoInTheMiddle) {
    RunMadeByHand run;
    run.connection().logs_in("alice", 1).is_let_in(0).beats().closes();
    run.journal().conversations.front().reframed = true;
    EXPECT_EQ(found_of_session(run), "finding session.well-formed");
}

TEST(WellFormed, HalfAPacketAtTheEndIsNobodysFault) {
    RunMadeByHand run;
    run.connection().logs_in("alice", 1).is_let_in(0).says_half(Bytes{132, 0, 'U', 'N'}).resets();
    EXPECT_EQ(found_of_session(run), "nothing");
}

// --- while a ghost is logged in ------------------------------------------------------------------------------------

// The relay has reset the client's side at 4 s, and the venue's stands.
void refused_at(RunMadeByHand& run, std::chrono::milliseconds at, std::uint64_t times = 1,
                std::chrono::milliseconds apart = 500ms) {
    for (std::uint64_t i = 0; i < times; ++i) {
        auto& again = run.connection(at + static_cast<int>(i) * apart);
        again.logs_in("alice", 6).is_answered('L', 5).hears_goodbye('A', "client already logged in").is_dropped();
    }
}

TEST(Retry, WhoeverGivesUpIsConvicted) {
    RunMadeByHand run;
    connected_for_long(run).is_reset();
    refused_at(run, 4100ms, 2);
    run.ends(20s);
    EXPECT_EQ(found_of_session(run), "finding session.tries-again");
}

TEST(Retry, WhoeverTriesUntilItIsInIsRight) {
    RunMadeByHand run;
    connected_for_long(run).is_reset();
    refused_at(run, 4100ms, 6);
    run.connection(7200ms).logs_in("alice", 6).is_let_in(5).lives_until(20s).closes();
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Retry, WhoeverHasNoTimeLeftIsRight) {
    RunMadeByHand run;
    connected_for_long(run).is_reset();
    refused_at(run, 4100ms);
    run.ends(9s);
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Retry, WhoeverIsInOnAnotherConnectionNeedNotTryAgain) {
    RunMadeByHand run;
    connected_for_long(run).lives_until(20s).closes();
    refused_at(run, 4100ms);
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Retry, ManyTriesAreARemarkAndAHailOfThemConvicts) {
    RunMadeByHand eager;
    connected_for_long(eager).is_reset();
    refused_at(eager, 4100ms, 12, 250ms);
    eager.connection(7200ms).logs_in("alice", 6).is_let_in(5).lives_until(20s).closes();
    EXPECT_EQ(found_of_session(eager), "remark session.not-too-often");

    RunMadeByHand hammering;
    connected_for_long(hammering).is_reset();
    refused_at(hammering, 4100ms, 300, 10ms);
    hammering.connection(7200ms).logs_in("alice", 6).is_let_in(5).lives_until(20s).closes();
    const Verdict verdict = session_verdict(hammering);
    ASSERT_EQ(found(verdict), "finding session.not-too-often");
    EXPECT_EQ(verdict.findings[0].got, "300 logins that were refused");
}

TEST(Retry, LoginsThatCanBringNothingConvictWhenTheyHail) {
    RunMadeByHand patient;
    auto& asks = connected_for_long(patient);
    for (int i = 0; i < 20; ++i) asks.logs_in("alice", 6).is_let_in(5).lives_until(5s + i * 1s);
    EXPECT_EQ(found_of_session(patient), "nothing");

    RunMadeByHand hammering;
    auto& hammers = connected_for_long(hammering);
    for (int i = 0; i < 60; ++i) hammers.after(10ms).logs_in("alice", 6).is_let_in(5);
    const Verdict verdict = session_verdict(hammering);
    ASSERT_EQ(found(verdict), "finding session.not-too-often");
    EXPECT_EQ(verdict.findings[0].got, "60 logins that brought nothing");
}

TEST(Retry, ManyConnectionsOneAfterTheOtherAreRight) {
    RunMadeByHand run;
    for (int i = 0; i < 100; ++i) {
        auto& again = run.connection(i * 50ms);
        again.logs_in("alice", i == 0 ? 1 : 2).is_let_in(i == 0 ? 0 : 1);
        if (i == 0) again.is_told(1, started());
        again.after(20ms).logs_out().is_dropped();
    }
    EXPECT_EQ(found_of_session(run), "nothing");
}

TEST(Judging, ARecordingWithHolesProvesNothing) {
    RunMadeByHand run;
    comes_back_asking(run, 7).lives_until(8s).closes();
    run.journal().defects.push_back("12 bytes are missing");
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "inconclusive session.next-number");
    EXPECT_EQ(verdict.findings[0].because, "the recording is not whole: 12 bytes are missing");
}

TEST(Judging, ASlightlyLateMachineExplainsNoSecondsOfWaiting) {
    RunMadeByHand run;
    sees_a_hole(run).lives_until(14s).closes();
    run.machine_is_late(9s, 120ms);
    EXPECT_EQ(found_of_session(run), "finding session.hole");
    run.machine_is_late(9500ms, 150ms);
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "inconclusive session.hole");
    EXPECT_EQ(verdict.findings[0].because, "the machine was late by 270 ms in all, most of it at +9.500 s");
}

TEST(Judging, ARelayThatReadsNothingExplainsASilence) {
    RunMadeByHand run;
    auto& alice = run.connection();
    alice.logs_in("alice", 1).is_let_in(0).is_told(1, started()).hears_heartbeats_until(3s).is_dropped();
    run.ends(10s);
    run.note(500ms, "relay_did", R"("user":"alice","what":"held","direction":"down","bytes":9)");
    run.note(500ms, "relay_did", R"("user":"bob","what":"held","direction":"up","bytes":9)");
    EXPECT_EQ(found_of_session(run), "finding session.heartbeats");
    run.note(600ms, "relay_did", R"("user":"alice","what":"slowed","direction":"up","bytes":300000)");
    const Verdict verdict = session_verdict(run);
    ASSERT_EQ(found(verdict), "inconclusive session.heartbeats");
    EXPECT_EQ(verdict.findings[0].because, "the relay kept back what the client said: \"slowed\" at +0.600 s");
}

}  // namespace
}  // namespace kavo::companion
