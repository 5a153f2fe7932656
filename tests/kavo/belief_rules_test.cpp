#include "kavo/audit/belief_rules.h"

#include <gtest/gtest.h>

#include "engine/meo.h"
#include "kavo/support/run_made_by_hand.h"

namespace kavo::companion::test {
namespace {

using client::buy;
using client::cancel;
using client::replace;

// An E1 with a price and a time of its own.
Bytes executed(std::string_view id, std::uint32_t quantity, std::uint64_t execution, Price price = 1'899'500,
               std::uint64_t timestamp = RunMadeByHand::start_ns) {
    const meo::ClientOrderId order(id);
    const meo::Message message = meo::build(meo::Execution{timestamp, meo::Mpid("TEST"), 1, order, execution, execution,
                                                           price, quantity, true, meo::Liquidity::added, 'Q'});
    return {message.bytes().begin(), message.bytes().end()};
}

std::string at(std::chrono::milliseconds since_start) {
    return "\"t\":" +
           std::to_string(RunMadeByHand::start_ns + static_cast<std::uint64_t>(since_start.count()) * 1'000'000);
}

// A line of a log: `text` with single quotes for double ones.
std::string line(std::string text) {
    for (char& letter : text) letter = letter == '\'' ? '"' : letter;
    return "{" + text + "}\n";
}

std::string order(const std::string& id, const std::string& rest) {
    return line("'ev':'order','id':'" + id + "'," + rest);
}
std::string fill(const std::string& id, const std::string& rest) {
    return line("'ev':'fill','id':'" + id + "'," + rest);
}
std::string book(std::uint64_t number, const std::string& rest) {
    return line("'ev':'book','symbol':'AAPL','seq':" + std::to_string(number) + "," + rest);
}

// What is found, as lines "rule: grade".
std::string verdict_on(const RunMadeByHand& run, const std::string& log, Finding* last = nullptr,
                       Verdict verdict = {}) {
    const std::size_t before = verdict.findings.size();
    judge_beliefs(run.journal(), read_beliefs(log), verdict);
    std::string text;
    static constexpr const char* grades[]{"remark", "finding", "inconclusive", "bench"};
    for (std::size_t i = before; i < verdict.findings.size(); ++i) {
        const Finding& finding = verdict.findings[i];
        text += (text.empty() ? "" : " | ") + std::string(finding.rule->name) + ": " +
                grades[static_cast<int>(finding.grade)];
        if (last != nullptr) *last = finding;
    }
    return text;
}

// Alice buys 300 at 189.95 under b1, which rests (NR 1, O1 2, P1 3 at 100 ms), and is hit for 100 (E1 4 at 200 ms).
struct Hit {
    Hit() {
        alice.logs_in("alice", 1).is_let_in(0).at(50ms).sends(b1);
        alice.at(100ms).is_told(1, taken(b1)).is_told(2, accepted(b1)).is_told(3, rests(b1));
        alice.at(200ms).is_told(4, executed("b1", 100, 41));
    }
    std::string judged(const std::string& log) { return verdict_on(run, log, &found); }

    client::NewOrder b1 = buy("b1").shares(300).at("189.95");
    RunMadeByHand run;
    ConnectionMadeByHand& alice = run.connection();
    Finding found;
};

const std::string pending = order("b1", "'state':'pending','leaves':300,'executed':0,'seq':0");
const std::string working = order("b1", "'state':'working','leaves':300,'executed':0,'seq':3");
const std::string hit = order("b1", "'state':'working','leaves':200,'executed':100,'seq':4");
const std::string fill_41 = fill("b1", "'quantity':100,'price':'189.95','execution':41");

// ---- the log ----

TEST(BeliefLog, IsReadWithAllItsWaysToWriteANumber) {
    const Beliefs read = read_beliefs(
        line("'ev':'fill','user':'alice','id':'b1','quantity':'100','price':189.95") +
        line("'ev':'book','symbol':'AAPL','seq':4711.0,'bids':[['189.950000',300],[189,'7']],'asks':[],'depth':2") +
        line("'ev':'book','symbol':'AAPL','seq':'-','stale':true") + "\n" + line("'ev':'note','text':'anything'"));
    EXPECT_TRUE(read.defects.empty());
    EXPECT_EQ(read.lines, 3U);
    ASSERT_EQ(read.fills.size(), 1U);
    EXPECT_EQ(read.fills[0].price, 189'950'000U);
    EXPECT_EQ(read.fills[0].quantity, 100U);
    ASSERT_EQ(read.books.size(), 2U);
    EXPECT_EQ(read.books[0].sequence, 4711U);
    EXPECT_EQ(read.books[0].bids->at(0).price, 189'950'000U);
    EXPECT_EQ(read.books[0].bids->at(1).quantity, 7U);
    EXPECT_EQ(read.books[0].depth, 2U);
    EXPECT_FALSE(read.books[1].sequence);
    EXPECT_TRUE(read.books[1].stale);
}

TEST(BeliefLog, LinesThatAreNoneAreNamedAndReadOn) {
    const std::string garbage = std::string("\0\xff\x1b[2J", 6) + "\n" + "[1,2]\n" + line("'ev':'order','id':7") +
                                line("'ev':'order','id':'b1','state':'happy'") +
                                line("'ev':'fill','id':'b1','quantity':-1,'price':1") +
                                line("'ev':'book','symbol':'AAPL','seq':1,'bids':[[1]]") +
                                line("'ev':'order','id':'b1','state':'working','t':1700000000") + hit;
    const Beliefs read = read_beliefs(garbage);
    ASSERT_EQ(read.defects.size(), 6U);
    EXPECT_EQ(read.defects[0], "the client's log has a line that is none: line 1");
    EXPECT_EQ(read.defects[2], "the client's log has a line that is none: line 3: its id is no text");
    EXPECT_EQ(read.defects[3], "the client's log has a line that is none: line 4: there is no such state");
    EXPECT_EQ(read.defects[5], "and 2 more lines that are none");
    EXPECT_EQ(read.orders.size(), 1U);
}

TEST(BeliefLog, HalfALineAtTheEndIsWhatAKilledClientLeaves) {
    EXPECT_TRUE(read_beliefs(hit + R"({"ev":"order","id":)").defects.empty());
}

TEST(BeliefLog, DeepNestingIsALineLikeAnyOther) {
    EXPECT_EQ(read_beliefs(std::string(50'000, '[') + "\n" + hit).defects.size(), 1U);
}

TEST(BeliefLog, GarbageIsInconclusiveAndNothingMore) {
    Hit run;
    EXPECT_EQ(run.judged("what is this\n" + working), "belief.log: inconclusive");
    EXPECT_EQ(run.judged(line("'ev':'thought'") + working), "belief.log: remark");
}

TEST(BeliefLog, StrangersBeliefsCannotBeJudged) {
    Hit run;
    EXPECT_EQ(run.judged(line("'ev':'order','user':'bob','id':'b1','state':'filled'")), "belief.log: inconclusive");
    run.run.connection().logs_in("bob", 1).is_let_in(0);
    EXPECT_EQ(run.judged(order("b1", "'state':'filled'")), "belief.log: inconclusive");
}

// ---- orders ----

TEST(OrderBelief, ThatFollowsTheStreamIsRight) {
    Hit run;
    EXPECT_EQ(run.judged(pending + working + hit + fill_41), "");
}

TEST(OrderBelief, IsHeldAgainstExactlyItsNumber) {
    Hit run;
    EXPECT_EQ(run.judged(order("b1", "'state':'working','leaves':300,'executed':0,'seq':4")), "belief.order: finding");
    EXPECT_EQ(run.found.belief, "line 1: working, leaves 300, executed 0, after message 4");
    EXPECT_EQ(run.found.truth, "working, leaves 200, executed 100, after message 4");
    EXPECT_EQ(run.found.where.order, "b1");
    EXPECT_EQ(run.found.where.stream_number, 4U);
}

TEST(OrderBelief, HitIsNotFilled) {
    Hit run;
    EXPECT_EQ(run.judged(working + order("b1", "'state':'filled','leaves':0,'executed':300,'seq':4") + fill_41),
              "belief.order: finding");
    EXPECT_EQ(run.judged(order("b1", "'state':'filled','seq':4") + fill_41), "belief.order: finding");
}

TEST(OrderBelief, WithoutNumbersGoesFromStateToState) {
    Hit run;
    const auto without = [](const char* state, int leaves, int executed) {
        return order("b1", std::string("'state':'") + state + "','leaves':" + std::to_string(leaves) +
                               ",'executed':" + std::to_string(executed));
    };
    EXPECT_EQ(run.judged(without("pending", 300, 0) + without("working", 300, 0) + without("working", 200, 100)), "");
    EXPECT_EQ(run.judged(without("working", 200, 100) + without("working", 300, 0)), "belief.order: finding");
    EXPECT_EQ(run.judged(without("cancelled", 0, 0)), "belief.order: finding");
}

TEST(OrderBelief, LastOneHoldsToTheEndOfTheLog) {
    Hit run;
    run.alice.lives_until(5s).closes();
    const std::string early =
        line("'ev':'order'," + at(110ms) + ",'id':'b1','state':'working','leaves':300,'executed':0");
    EXPECT_EQ(run.judged(early + line("'ev':'fill'," + at(300ms) + ",'id':'b1','quantity':100,'price':'189.95'")), "")
        << "the log ends 100 ms behind the hit";
    EXPECT_EQ(run.judged(early + line("'ev':'fill'," + at(900ms) + ",'id':'b1','quantity':100,'price':'189.95'")),
              "belief.order: finding");
}

TEST(OrderBelief, LateMachineExcusesWhoWasToldShortlyBefore) {
    Hit run;
    run.run.machine_is_late(600ms, 300ms);
    const std::string early = line("'ev':'order'," + at(110ms) + ",'id':'b1','state':'working'");
    const std::string wrong = line("'ev':'order'," + at(110ms) + ",'id':'b1','state':'working','leaves':300");
    const std::string end = line("'ev':'fill'," + at(900ms) + ",'id':'b1','quantity':100,'price':'189.95'");
    EXPECT_EQ(run.judged(early + end), "");
    EXPECT_EQ(run.judged(wrong + end), "belief.order: inconclusive");
}

TEST(OrderBelief, NumberOfAnotherOrderShowsWhatWasRead) {
    Hit run;
    const auto b2 = buy("b2").shares(10).at("189.90");
    run.alice.sends(b2).is_told(5, refused(b2, 'R'));
    const std::string rejected = order("b2", "'state':'rejected','leaves':0,'executed':0,'seq':5");
    EXPECT_EQ(run.judged(working + rejected), "belief.order: finding");
    EXPECT_EQ(run.judged(hit + rejected), "");
}

TEST(OrderBelief, RejectedIsNotWorking) {
    Hit run;
    const auto b2 = buy("b2").shares(10).at("189.90");
    run.alice.sends(b2).is_told(5, refused(b2, 'R'));
    EXPECT_EQ(run.judged(hit + order("b2", "'state':'working','seq':5")), "belief.order: finding");
    EXPECT_EQ(run.judged(hit + order("b2", "'state':'working','leaves':10")), "belief.order: finding");
}

TEST(OrderBelief, RejectOfANamesakeLeavesTheLiveOrderAlone) {
    Hit run;
    run.alice.sends(run.b1).is_told(5, refused(run.b1, 'A'));
    EXPECT_EQ(run.judged(hit + order("b1", "'state':'rejected','leaves':0,'executed':0,'seq':5")), "");
    run.alice.is_told(6, executed("b1", 50, 43));
    EXPECT_EQ(run.judged(hit + order("b1", "'state':'rejected','leaves':0,'executed':0,'seq':6")),
              "belief.order: finding");
}

TEST(OrderBelief, OfWhatWasNeverAnsweredIsWhatWasSent) {
    Hit run;
    run.alice.sends(buy("b2").shares(10).at("189.90"));
    EXPECT_EQ(run.judged(hit + order("b2", "'state':'pending'") + order("b2", "'state':'lost'")), "");
    EXPECT_EQ(run.judged(hit + order("b2", "'state':'working','leaves':10")), "belief.order: finding");
}

TEST(OrderBelief, CancelThatLostItsRaceCancelsNothing) {
    Hit run;
    const auto request = cancel("b1");
    run.alice.sends(request).is_told(5, executed("b1", 200, 42)).is_told(6, answered(request, 'D'));
    EXPECT_EQ(run.judged(order("b1", "'state':'filled','leaves':0,'executed':300,'seq':6")), "");
    EXPECT_EQ(run.judged(order("b1", "'state':'cancelled','leaves':0,'executed':300,'seq':6")),
              "belief.order: finding");
}

TEST(OrderBelief, LateExecutionMayCountOnEitherSideOfACancel) {
    Hit run;
    const auto request = cancel("b1");
    run.alice.sends(request)
        .is_told(5, answered(request))
        .is_told(6, cancelled("b1"))
        .is_told(7, executed("b1", 50, 42));
    EXPECT_EQ(run.judged(order("b1", "'state':'cancelled','leaves':0,'executed':100,'seq':6") +
                         order("b1", "'state':'cancelled','leaves':0,'executed':150,'seq':7")),
              "");
    EXPECT_EQ(run.judged(order("b1", "'state':'cancelled','leaves':150,'executed':150,'seq':7")),
              "belief.order: finding");
}

TEST(OrderBelief, ReplaceIsATotal) {
    Hit run;
    const auto request = replace("b1", "b2").shares(250).at("189.96");
    run.alice.sends(request).is_told(5, answered(request, 150)).is_told(6, replaced(request, 150));
    EXPECT_EQ(run.judged(order("b1", "'state':'replaced','leaves':0,'executed':100,'seq':6") +
                         order("b2", "'state':'working','leaves':150,'executed':100,'seq':6")),
              "");
    EXPECT_EQ(run.judged(order("b2", "'state':'working','leaves':250,'executed':100,'seq':6")),
              "belief.order: finding");
    EXPECT_EQ(run.judged(hit + order("b2", "'state':'working','leaves':150,'executed':100,'seq':6")), "")
        << "nobody has to say that an id was replaced";
}

TEST(OrderBelief, RejectedReplaceBegetsNothing) {
    Hit run;
    const auto request = replace("b1", "b2").shares(250).at("189.96");
    run.alice.sends(request).is_told(5, answered(request, 0, 'H'));
    EXPECT_EQ(run.judged(hit + order("b2", "'state':'rejected','seq':5")), "");
    EXPECT_EQ(run.judged(hit + order("b2", "'state':'working','leaves':150,'seq':5")), "belief.order: finding");
}

TEST(OrderBelief, SecondLifeOfAnIdBeginsAtNothing) {
    Hit run;
    run.alice.is_told(5, executed("b1", 200, 42)).at(400ms).sends(run.b1).is_told(6, taken(run.b1));
    run.alice.is_told(7, accepted(run.b1)).is_told(8, rests(run.b1));
    const std::string filled = order("b1", "'state':'filled','leaves':0,'executed':300,'seq':5");
    EXPECT_EQ(run.judged(filled + order("b1", "'state':'pending','leaves':300,'executed':0,'seq':5") +
                         order("b1", "'state':'working','leaves':300,'executed':0,'seq':8")),
              "");
    EXPECT_EQ(run.judged(filled + order("b1", "'state':'working','leaves':0,'executed':300,'seq':8")),
              "belief.order: finding");
}

TEST(OrderBelief, WhatCameLaterThroughAHoleNeedNotBeKnownBefore) {
    Hit run;
    const auto b2 = buy("b2").shares(10).at("189.90");
    run.alice.at(300ms).sends(b2).is_told(6, taken(b2)).is_told(7, accepted(b2)).is_told(8, rests(b2));
    run.alice.at(400ms).logs_in("alice", 5).is_let_in(8).is_told(5, executed("b1", 200, 42)).is_told(6, taken(b2));
    EXPECT_EQ(run.judged(order("b1", "'state':'working','leaves':200,'executed':100,'seq':8") +
                         order("b1", "'state':'filled','leaves':0,'executed':300,'seq':8")),
              "");
}

TEST(OrderBelief, IdsMayHoldAnyByte) {
    RunMadeByHand run;
    const auto hostile = buy(std::string("\"\n\xe9\x1b]]>")).shares(300).at("189.95");
    run.connection()
        .logs_in("alice", 1)
        .is_let_in(0)
        .sends(hostile)
        .is_told(1, taken(hostile))
        .is_told(2, rests(hostile));
    const std::string id = R"(\"\n\u00e9\u001b]]>)";
    const auto told = [&](const char* state) {
        return R"({"ev":"order","id":")" + id + R"(","state":")" + state + R"(","seq":2})" + "\n";
    };
    EXPECT_EQ(verdict_on(run, told("working")), "");
    Finding found;
    EXPECT_EQ(verdict_on(run, told("filled"), &found), "belief.order: finding");
    EXPECT_EQ(found.expected.find('\n'), std::string::npos);
    EXPECT_EQ(found.expected.find('\x1b'), std::string::npos);
}

// ---- fills ----

TEST(FillBelief, EachExecutionCountsOnce) {
    Hit run;
    EXPECT_EQ(run.judged(hit + fill_41), "");
    EXPECT_EQ(run.judged(hit + fill_41 + fill_41), "belief.fill: finding");
    EXPECT_EQ(run.judged(fill("b1", "'quantity':100,'price':189.95") + fill("b1", "'quantity':100,'price':189.95")),
              "belief.fill: finding");
}

TEST(FillBelief, WrongInAnythingIsConvicted) {
    Hit run;
    EXPECT_EQ(run.judged(fill("b1", "'quantity':100,'price':'190.00','execution':41")), "belief.fill: finding");
    EXPECT_EQ(run.found.expected, "100 at 189.95");
    EXPECT_EQ(run.judged(fill("b1", "'quantity':300,'price':'189.95'")), "belief.fill: finding");
    EXPECT_EQ(run.judged(fill("b1", "'quantity':100,'price':'189.95','execution':40")), "belief.fill: finding");
    EXPECT_EQ(run.judged(fill("b7", "'quantity':100,'price':'189.95','execution':41")), "belief.fill: finding");
}

TEST(FillBelief, ForgottenOneIsConvictedWhereItMustBeKnown) {
    Hit run;
    run.alice.at(300ms).is_told(5, executed("b1", 50, 42)).lives_until(5s);
    const std::string both = order("b1", "'state':'working','leaves':150,'executed':150,'seq':5");
    EXPECT_EQ(run.judged(hit + fill_41), "") << "what follows is not known to have been read";
    EXPECT_EQ(run.judged(both + fill_41), "belief.fill: finding");
    EXPECT_EQ(run.found.truth, "50 at 189.95 of \"b1\", execution 42, message 5 at +0.300 s");
    EXPECT_EQ(run.judged(both), "") << "a client that writes no fills at all forgets none";
}

TEST(FillBelief, WrongSumOfAnOrderFollowsFromItsFills) {
    Hit run;
    EXPECT_EQ(run.judged(order("b1", "'state':'working','leaves':100,'executed':200,'seq':4") + fill_41 + fill_41),
              "belief.fill: finding | belief.order: remark");
}

TEST(FillBelief, TwinsAreTwoFills) {
    Hit run;
    run.alice.is_told(5, executed("b1", 100, 42));
    const std::string one = fill("b1", "'quantity':100,'price':'189.95'");
    EXPECT_EQ(run.judged(one + one + order("b1", "'state':'working','executed':200,'seq':5")), "");
    EXPECT_EQ(run.judged(one + order("b1", "'state':'working','executed':100,'seq':5")),
              "belief.fill: finding | belief.order: remark");
}

TEST(FillBelief, OldAndNewIdMeanOneOrder) {
    Hit run;
    const auto request = replace("b1", "b2").shares(250).at("189.96");
    run.alice.sends(request).is_told(5, answered(request, 150)).is_told(6, replaced(request, 150));
    EXPECT_EQ(run.judged(fill("b2", "'quantity':100,'price':'189.95','execution':41")), "");
}

TEST(FillBelief, ProcessThatBeginsAnewCountsAnew) {
    Hit run;
    run.alice.lives_until(1s).closes();
    auto& again = run.run.connection(2s);
    again.logs_in("alice", 1)
        .is_let_in(4)
        .is_told(1, taken(run.b1))
        .is_told(2, accepted(run.b1))
        .is_told(3, rests(run.b1));
    again.is_told(4, executed("b1", 100, 41)).lives_until(6s);
    EXPECT_EQ(run.judged(hit + fill_41 + line("'ev':'start'") + hit + fill_41), "");
    EXPECT_EQ(run.judged(hit + fill_41 + line("'ev':'start'") + hit + fill_41 + fill_41), "belief.fill: finding");
    EXPECT_EQ(run.judged(line("'ev':'start'") + hit + fill("b1", "'quantity':1,'price':1")), "belief.fill: finding");
    EXPECT_EQ(run.judged(hit + fill_41 + hit + fill_41), "belief.fill: inconclusive");
}

// ---- books ----

struct Books {
    Books() {
        run.journal().book_truth =
            R"({"seq":5,"secid":1,"symbol":"AAPL","bid":[[189.9500,300]],"ask":[]})"
            "\n"
            R"({"seq":8,"secid":1,"symbol":"AAPL","bid":[[189.9500,300],[189.9400,100]],"ask":[[190.0100,50]]})"
            "\n"
            R"({"mark":"m","seq":9})"
            "\n"
            R"({"seq":11,"secid":1,"symbol":"AAPL","bid":[[189.9400,100]],"ask":[[190.0100,50]]})"
            "\n";
        run.venue_says(5s, "[kavo_me] stopped");
    }
    std::string judged(const std::string& log, Verdict so_far = {}) { return verdict_on(run, log, &found, so_far); }

    RunMadeByHand run;
    Finding found;
};

const std::string at_8 = "'bids':[['189.95',300],['189.94',100]],'asks':[[190.01,50]]";

TEST(BookBelief, IsHeldAgainstTheBookBehindExactlyItsNumber) {
    Books run;
    EXPECT_EQ(run.judged(book(3, "'bids':[],'asks':[]") + book(5, "'bids':[['189.95',300]],'asks':[]") +
                         book(7, "'bids':[['189.95',300]],'asks':[]") + book(8, at_8) + book(10, at_8) +
                         book(11, "'bids':[['189.94',100]],'asks':[[190.01,50]]")),
              "");
    EXPECT_EQ(run.judged(book(7, at_8)), "belief.book: finding");
    EXPECT_EQ(run.judged(book(11, at_8)), "belief.book: finding");
    EXPECT_EQ(run.found.truth, "AAPL at 11: bids 189.94x100 | asks 190.01x50");
    EXPECT_EQ(run.found.belief, "AAPL at 11: bids 189.95x300 189.94x100 | asks 190.01x50");
}

TEST(BookBelief, StaleOrWithoutANumberIsNotHeldAgainstAnything) {
    Books run;
    EXPECT_EQ(run.judged(book(11, at_8 + ",'stale':true") + book(0, at_8) +
                         line("'ev':'book','symbol':'AAPL','seq':'-','bids':[],'asks':[]")),
              "");
}

TEST(BookBelief, QuantityPriceAndLevelsCount) {
    Books run;
    EXPECT_EQ(run.judged(book(8, "'bids':[['189.95',200],['189.94',100]],'asks':[[190.01,50]]")),
              "belief.book: finding");
    EXPECT_EQ(run.judged(book(8, "'bids':[['189.96',300],['189.94',100]],'asks':[[190.01,50]]")),
              "belief.book: finding");
    EXPECT_EQ(run.judged(book(8, "'bids':[['189.95',300],['189.94',100],['189.93',1]],'asks':[[190.01,50]]")),
              "belief.book: finding");
    EXPECT_EQ(run.judged(book(8, "'bids':[['189.95',300],['189.94',100]],'asks':[]")), "belief.book: finding");
}

TEST(BookBelief, FewerLevelsAreRightForWhoNeverGivesMore) {
    Books run;
    const std::string best = "'bids':[['189.95',300]],'asks':[[190.01,50]]";
    EXPECT_EQ(run.judged(book(8, best)), "");
    EXPECT_EQ(run.judged(book(8, best + ",'depth':1")), "");
    EXPECT_EQ(run.judged(book(8, best + ",'depth':10")), "belief.book: finding");
    EXPECT_EQ(run.judged(book(8, "'bids':[['189.95',300]]")), "") << "a side that is left out is not told";
}

TEST(BookBelief, OrderByOrderOrTheOtherWayRoundIsTheSameBook) {
    Books run;
    EXPECT_EQ(run.judged(book(8, "'bids':[[189.94,60],['189.95',300],[189.94,40]],'asks':[['190.010',50]]")), "");
}

TEST(BookBelief, NumberThatWasNeverPublishedIsNoNumber) {
    Books run;
    EXPECT_EQ(run.judged(book(4711, at_8)), "belief.book: finding");
    EXPECT_EQ(run.found.expected, "a number that has been published: the last one is 11");
    Books killed;
    killed.run.journal().venue.clear();
    EXPECT_EQ(killed.judged(book(4711, at_8)), "belief.book: inconclusive");
}

TEST(BookBelief, TruthThatMayBeCutConvictsNobodyBehindItsEnd) {
    Books run;
    run.run.journal().venue.clear();
    EXPECT_EQ(run.judged(book(11, at_8)), "belief.book: inconclusive");
    EXPECT_EQ(run.judged(book(10, "'bids':[],'asks':[]")), "belief.book: finding");
}

TEST(BookBelief, WhatFollowsFromAGapThatWasFoundIsNoFindingOfItsOwn) {
    Books run;
    Verdict so_far;
    static const Rule skipped{"recovery.asks-for-what-was-lost", "", ""};
    Finding before;
    before.rule = &skipped;
    before.where.feed_number = 7;
    so_far.findings.push_back(before);
    EXPECT_EQ(run.judged(book(11, at_8), so_far), "belief.book: remark");
    EXPECT_EQ(run.judged(book(5, at_8), so_far), "belief.book: finding");
}

TEST(BookBelief, UnknownProductIsTheLogsFault) {
    Books run;
    EXPECT_EQ(run.judged(line("'ev':'book','symbol':'MSFT','seq':8,'bids':[],'asks':[]")), "belief.book: inconclusive");
}

}  // namespace
}  // namespace kavo::companion::test
