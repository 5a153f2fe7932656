#include <gtest/gtest.h>

#include <set>

#include "support/said.h"
#include "support/venue.h"

namespace kavo::test {
namespace {

// A line written while the clock stands where it started.
std::string at_the_start(const std::string& rest) {
    return R"({"t":1700000000123456789,)" + rest;
}

using Lines = std::vector<std::string>;

TEST(OrderTruth, TellsOfAnAcceptedOrder) {
    Venue venue({.symbols = {"AAPL", "MSFT"}});
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.enter(sell("s1").product(2).at("410.00"));
    EXPECT_EQ(venue.truth(),
              (Lines{at_the_start(R"("ev":"new","cl":"b1","oid":1000,"symbol":"AAPL","side":"B","qty":300,"px":189.95,)"
                                  R"("cum":0,"leaves":0,"last_qty":0,"text":""})"),
                     at_the_start(R"("ev":"new","cl":"s1","oid":1001,"symbol":"MSFT","side":"S","qty":100,"px":410,)"
                                  R"("cum":0,"leaves":0,"last_qty":0,"text":""})")}));
}

TEST(OrderTruth, TellsOfAScriptedReject) {
    Venue venue;
    venue.bench.reject_next = 2;
    venue.enter(sell("s1").at("190.05"));
    venue.enter(buy("m1").market());
    EXPECT_EQ(venue.truth(),
              (Lines{at_the_start(R"("ev":"reject","cl":"s1","oid":0,"symbol":"AAPL","side":"S","qty":100,"px":190.05,)"
                                  R"("cum":0,"leaves":0,"last_qty":0,"text":"bench:scripted_reject"})"),
                     at_the_start(R"("ev":"reject","cl":"m1","oid":0,"symbol":"AAPL","side":"B","qty":100,"px":0,)"
                                  R"("cum":0,"leaves":0,"last_qty":0,"text":"bench:scripted_reject"})")}));
}

TEST(OrderTruth, TellsOfAFillTheMakersSideFirstEachAtItsOwnPrice) {
    Venue venue;
    venue.enter(sell("s1").shares(300).at("190.00"), second_client);
    venue.enter(sell("s2").shares(100).at("190.05"), second_client);
    venue.truth();
    venue.enter(buy("b1").shares(350).at("191.00"));
    EXPECT_EQ(
        venue.truth(),
        (Lines{at_the_start(R"("ev":"new","cl":"b1","oid":1002,"symbol":"AAPL","side":"B","qty":350,"px":191,)"
                            R"("cum":0,"leaves":0,"last_qty":0,"text":""})"),
               at_the_start(R"("ev":"fill","cl":"s1","oid":1000,"symbol":"AAPL","side":"S","qty":300,"px":190,)"
                            R"("cum":300,"leaves":0,"last_qty":300,"text":""})"),
               at_the_start(R"("ev":"fill","cl":"b1","oid":1002,"symbol":"AAPL","side":"B","qty":350,"px":191,)"
                            R"("cum":300,"leaves":50,"last_qty":300,"text":""})"),
               at_the_start(R"("ev":"fill","cl":"s2","oid":1001,"symbol":"AAPL","side":"S","qty":100,"px":190.05,)"
                            R"("cum":50,"leaves":50,"last_qty":50,"text":""})"),
               at_the_start(R"("ev":"fill","cl":"b1","oid":1002,"symbol":"AAPL","side":"B","qty":350,"px":191,)"
                            R"("cum":350,"leaves":0,"last_qty":50,"text":""})")}));
}

TEST(OrderTruth, TellsOfAMarketOrderAtThePriceZero) {
    Venue venue;
    venue.enter(sell("s1").shares(60).at("190.00"), second_client);
    venue.truth();
    venue.enter(buy("m1").market());
    const Lines lines = venue.truth();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], at_the_start(R"("ev":"new","cl":"m1","oid":1001,"symbol":"AAPL","side":"B","qty":100,"px":0,)"
                                     R"("cum":0,"leaves":0,"last_qty":0,"text":""})"));
    EXPECT_EQ(lines[2], at_the_start(R"("ev":"fill","cl":"m1","oid":1001,"symbol":"AAPL","side":"B","qty":100,"px":0,)"
                                     R"("cum":60,"leaves":40,"last_qty":60,"text":""})"));
    EXPECT_EQ(lines[3], at_the_start(R"("ev":"cancel","cl":"m1","oid":1001,"symbol":"AAPL","side":"B","qty":100,)"
                                     R"("px":0,"cum":60,"leaves":0,"last_qty":0,"text":"expired"})"));
}

TEST(OrderTruth, TellsOfAPartialFillWhatEachSideIsTold) {
    Venue venue;
    venue.bench.partial_next = 1;
    venue.enter(sell("s1").shares(300).at("190.00"), second_client);
    venue.truth();
    venue.enter(buy("b1").shares(300).at("190.00"));
    const Lines lines = venue.truth();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1],
              at_the_start(R"("ev":"fill","cl":"s1","oid":1000,"symbol":"AAPL","side":"S","qty":300,"px":190,)"
                           R"("cum":100,"leaves":200,"last_qty":100,"text":""})"));
    EXPECT_EQ(lines[2],
              at_the_start(R"("ev":"fill","cl":"b1","oid":1001,"symbol":"AAPL","side":"B","qty":300,"px":190,)"
                           R"("cum":300,"leaves":0,"last_qty":300,"text":""})"));
}

TEST(OrderTruth, TellsOfAPostOnlyOrderWithItsWholeSizeAsLeaves) {
    Venue venue;
    venue.enter(sell("s1").at("190.00"), second_client);
    venue.truth();
    venue.enter(buy("p1").post_only().at("190.00"));
    const Lines lines = venue.truth();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], at_the_start(R"("ev":"cancel","cl":"p1","oid":1001,"symbol":"AAPL","side":"B","qty":100,)"
                                     R"("px":190,"cum":0,"leaves":100,"last_qty":0,"text":"post_only"})"));
}

TEST(OrderTruth, TellsOfAnAllOrNothingOrderThatExpires) {
    Venue venue;
    venue.enter(sell("f1").all_or_nothing().at("190.00"));
    const Lines lines = venue.truth();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], at_the_start(R"("ev":"cancel","cl":"f1","oid":1000,"symbol":"AAPL","side":"S","qty":100,)"
                                     R"("px":190,"cum":0,"leaves":0,"last_qty":0,"text":"expired"})"));
}

TEST(OrderTruth, TellsOfACancelWithWhatHadExecuted) {
    Venue venue;
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.enter(sell("s1").shares(100).at("189.95"), second_client);
    venue.truth();
    venue.cancel(cancel("b1"));
    EXPECT_EQ(venue.truth(),
              (Lines{at_the_start(R"("ev":"cancel","cl":"b1","oid":1000,"symbol":"AAPL","side":"B","qty":300,)"
                                  R"("px":189.95,"cum":100,"leaves":0,"last_qty":0,"text":"cancel"})")}));
}

TEST(OrderTruth, TellsOfALateAndOfAStaleCancel) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.cancel(cancel("b1"));
    venue.truth();
    venue.cancel(cancel("b1"));
    venue.cancel(cancel("none"));
    venue.cancel(cancel("none").product(2));
    EXPECT_EQ(
        venue.truth(),
        (Lines{at_the_start(R"("ev":"cancel_reject","cl":"b1","oid":0,"symbol":"AAPL","side":" ","qty":0,"px":0,)"
                            R"("cum":0,"leaves":0,"last_qty":0,"text":"late"})"),
               at_the_start(R"("ev":"cancel_reject","cl":"none","oid":0,"symbol":"AAPL","side":" ","qty":0,"px":0,)"
                            R"("cum":0,"leaves":0,"last_qty":0,"text":"stale"})"),
               at_the_start(R"("ev":"cancel_reject","cl":"none","oid":0,"symbol":"","side":" ","qty":0,"px":0,)"
                            R"("cum":0,"leaves":0,"last_qty":0,"text":"stale"})")}));
}

TEST(OrderTruth, TellsOfALostRaceByTheFillAlone) {
    Venue venue;
    venue.bench.fill_on_cancel_next = 1;
    venue.enter(buy("b1").at("189.95"));
    venue.truth();
    venue.cancel(cancel("b1"));
    EXPECT_EQ(venue.truth(),
              (Lines{at_the_start(R"("ev":"fill","cl":"b1","oid":1000,"symbol":"AAPL","side":"B","qty":100,)"
                                  R"("px":189.95,"cum":100,"leaves":0,"last_qty":100,"text":""})")}));
}

TEST(OrderTruth, TellsOfAReplaceWithTheOriginalIdAsReference) {
    Venue venue;
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.enter(sell("s1").shares(100).at("189.95"), second_client);
    venue.truth();
    venue.replace(replace("b1", "b2").shares(250).at("189.96"));
    EXPECT_EQ(venue.truth(),
              (Lines{at_the_start(R"("ev":"replace","cl":"b2","oid":1000,"symbol":"AAPL","side":"B","qty":250,)"
                                  R"("px":189.96,"cum":100,"leaves":150,"last_qty":0,"text":"","ref":"b1"})")}));
    venue.cancel(cancel("b2"));
    EXPECT_EQ(venue.truth(),
              (Lines{at_the_start(R"("ev":"cancel","cl":"b2","oid":1000,"symbol":"AAPL","side":"B","qty":250,)"
                                  R"("px":189.96,"cum":100,"leaves":0,"last_qty":0,"text":"cancel"})")}));
}

TEST(OrderTruth, TellsOfAReplaceBeforeTheFillsThatItBrings) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.enter(sell("s1").shares(60).at("190.00"), second_client);
    venue.truth();
    venue.replace(replace("b1", "b2").at("190.00"));
    EXPECT_EQ(
        venue.truth(),
        (Lines{at_the_start(R"("ev":"replace","cl":"b2","oid":1000,"symbol":"AAPL","side":"B","qty":100,"px":190,)"
                            R"("cum":0,"leaves":100,"last_qty":0,"text":"","ref":"b1"})"),
               at_the_start(R"("ev":"fill","cl":"s1","oid":1001,"symbol":"AAPL","side":"S","qty":60,"px":190,)"
                            R"("cum":60,"leaves":0,"last_qty":60,"text":""})"),
               at_the_start(R"("ev":"fill","cl":"b2","oid":1000,"symbol":"AAPL","side":"B","qty":100,"px":190,)"
                            R"("cum":60,"leaves":40,"last_qty":60,"text":""})")}));
}

TEST(OrderTruth, TellsOfAReplaceThatClosesAsOfACancel) {
    Venue venue;
    venue.enter(buy("b1").shares(300).at("189.95"));
    venue.enter(sell("s1").shares(100).at("189.95"), second_client);
    venue.truth();
    venue.replace(replace("b1", "b2").shares(100).at("190.00"));
    EXPECT_EQ(venue.truth(),
              (Lines{at_the_start(R"("ev":"cancel","cl":"b1","oid":1000,"symbol":"AAPL","side":"B","qty":300,)"
                                  R"("px":189.95,"cum":100,"leaves":0,"last_qty":0,"text":"modify_closed"})")}));
}

TEST(OrderTruth, TellsOfARejectedReplaceWhatWasAskedFor) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.bench.replace_reject_next = 1;
    venue.truth();
    venue.replace(replace("b1", "b1").shares(200).at("190.05"));
    venue.replace(replace("b1", "b2").shares(200).participant("FIRM").at("190.05"));  // says nothing
    venue.replace(replace("b1", "b3").shares(200).at("0"));
    venue.replace(replace("b1", "b4").shares(0).at("190.05"));
    venue.replace(replace("b1", "b5").shares(200).at("190.05"));
    const std::string order = R"("oid":1000,"symbol":"AAPL","side":"B",)";
    const std::string nothing = R"("cum":0,"leaves":0,"last_qty":0,)";
    EXPECT_EQ(venue.truth(),
              (Lines{at_the_start(R"("ev":"replace_reject","cl":"b1",)" + order + R"("qty":200,"px":190.05,)" +
                                  nothing + R"("text":"duplicate","ref":"b1"})"),
                     at_the_start(R"("ev":"replace_reject","cl":"b3",)" + order + R"("qty":200,"px":0,)" + nothing +
                                  R"("text":"invalid","ref":"b1"})"),
                     at_the_start(R"("ev":"replace_reject","cl":"b4",)" + order + R"("qty":0,"px":190.05,)" + nothing +
                                  R"("text":"invalid","ref":"b1"})"),
                     at_the_start(R"("ev":"replace_reject","cl":"b5",)" + order + R"("qty":200,"px":190.05,)" +
                                  nothing + R"("text":"bench:scripted_replace_reject","ref":"b1"})")}));
}

TEST(OrderTruth, TellsOfALateAndOfAnUnknownReplace) {
    Venue venue;
    venue.enter(buy("b1").at("189.95"));
    venue.cancel(cancel("b1"));
    venue.truth();
    venue.replace(replace("b1", "b2").shares(200).at("190.05"));
    venue.replace(replace("none", "b2").shares(200).at("190.05"));
    const std::string rest = R"("oid":0,"symbol":"","side":" ","qty":200,"px":190.05,"cum":0,"leaves":0,"last_qty":0,)";
    EXPECT_EQ(venue.truth(),
              (Lines{at_the_start(R"("ev":"replace_reject","cl":"b2",)" + rest + R"("text":"late","ref":"b1"})"),
                     at_the_start(R"("ev":"replace_reject","cl":"b2",)" + rest +
                                  R"("text":"unknown_order","ref":"none"})")}));
}

TEST(OrderTruth, LeavesTheReferenceOutWhenItIsEmpty) {
    Venue venue;
    venue.replace(replace("", "b2").shares(200).at("190.05"));
    EXPECT_EQ(venue.truth(),
              (Lines{at_the_start(R"("ev":"replace_reject","cl":"b2","oid":0,"symbol":"","side":" ","qty":200,)"
                                  R"("px":190.05,"cum":0,"leaves":0,"last_qty":0,"text":"unknown_order"})")}));
}

TEST(OrderTruth, TellsOfADisconnectAndOfAnUnsolicitedCancel) {
    VenueSettings settings;
    settings.engine.acod = true;
    Venue venue(settings);
    venue.bench.unsolicited_cancel_next = 1;
    venue.enter(buy("b1").at("189.95"));
    venue.enter(sell("s1").at("190.00"));
    venue.clock.advance_ms(300);
    venue.truth();
    venue.engine.cancel_unsolicited();
    venue.engine.client_dropped(0, "alice");
    EXPECT_EQ(venue.truth(),
              (Lines{R"({"t":1700000000423456789,"ev":"cancel","cl":"b1","oid":1000,"symbol":"AAPL","side":"B",)"
                     R"("qty":100,"px":189.95,"cum":0,"leaves":0,"last_qty":0,"text":"unsolicited"})",
                     R"({"t":1700000000423456789,"ev":"cancel","cl":"s1","oid":1001,"symbol":"AAPL","side":"S",)"
                     R"("qty":100,"px":190,"cum":0,"leaves":0,"last_qty":0,"text":"disconnect"})"}));
}

// A venue whose clock runs, so that no two readings of it are the same: whatever carries one time was stamped by one
// reading.
class RunningVenue : public Venue {
public:
    explicit RunningVenue(const VenueSettings& settings = {}) : Venue(settings) { clock = Clock(); }

    // How many different times something leaves behind: on the answers, on what others are told of it, and on the lines
    // of truth.
    //   lines  how many of these there must be
    template <typename Action>
    std::size_t times_of(std::size_t lines, Action action) {
        truth();
        engine.outbox.clear();
        OutboundMessages answers;
        action(answers);
        answers.insert(answers.end(), engine.outbox.begin(), engine.outbox.end());
        std::set<std::uint64_t> times;
        for (const OutboundMessage& answer : answers) times.insert(get(answer.message.bytes(), meo::layout::timestamp));
        const Lines written = truth();
        for (const std::string& line : written) times.insert(std::stoull(line.substr(line.find(':') + 1)));
        EXPECT_EQ(written.size(), lines);
        EXPECT_FALSE(answers.empty());
        return times.size();
    }
    std::size_t times_of(std::size_t lines, const NewOrder& order) {
        const Bytes message = order.bytes();
        const auto request = meo::read_new_order(message);
        EXPECT_TRUE(request);
        return times_of(lines, [&](OutboundMessages& answers) { engine.new_order(0, *request, answers); });
    }
    std::size_t times_of(std::size_t lines, const Replace& replacement) {
        const auto request = meo::read_replace(replacement.bytes());
        EXPECT_TRUE(request);
        return times_of(lines, [&](OutboundMessages& answers) { engine.replace(0, *request, answers); });
    }
    std::size_t times_of(std::size_t lines, const Cancel& cancellation) {
        const auto request = meo::read_cancel(cancellation.bytes());
        EXPECT_TRUE(request);
        return times_of(lines, [&](OutboundMessages& answers) { engine.cancel(0, *request, answers); });
    }
};

TEST(OrderTruth, HasTheTimeOfTheAnswersToANewOrder) {
    RunningVenue venue;
    EXPECT_EQ(venue.times_of(1, sell("s1").at("190.00")), 1u);
    venue.enter(sell("s2").at("190.01"), second_client);
    EXPECT_EQ(venue.times_of(1, buy("p1").post_only().at("189.99")), 1u);
    EXPECT_EQ(venue.times_of(2, buy("p2").post_only().at("190.00")), 1u);
    EXPECT_EQ(venue.times_of(2, buy("f1").all_or_nothing().shares(300).at("190.01")), 1u);
    EXPECT_EQ(venue.times_of(6, buy("i1").immediate().shares(300).at("190.01")), 1u);  // two trades, and it expires
    venue.bench.reject_next = 1;
    EXPECT_EQ(venue.times_of(1, buy("b1").at("190.00")), 1u);
}

TEST(OrderTruth, HasTheTimeOfTheAnswersToAReplace) {
    RunningVenue venue;
    venue.enter(buy("b1").shares(300).at("189.00"));
    venue.enter(sell("s1").at("190.00"), second_client);
    EXPECT_EQ(venue.times_of(1, replace("b1", "b2").shares(300).at("189.01")), 1u);
    EXPECT_EQ(venue.times_of(3, replace("b2", "b3").shares(300).at("190.00")), 1u);  // one trade
    EXPECT_EQ(venue.times_of(1, replace("b3", "b3").at("189.00")), 1u);
    EXPECT_EQ(venue.times_of(1, replace("b3", "b4").at("0")), 1u);
    venue.bench.replace_reject_next = 1;
    EXPECT_EQ(venue.times_of(1, replace("b3", "b4").at("189.00")), 1u);
    EXPECT_EQ(venue.times_of(1, replace("b3", "b4").shares(100).at("189.00")), 1u);  // closes it
    EXPECT_EQ(venue.times_of(1, replace("b3", "b4").at("189.00")), 1u);              // late
    EXPECT_EQ(venue.times_of(1, replace("none", "b4").at("189.00")), 1u);
}

TEST(OrderTruth, HasTheTimeOfTheAnswersToACancel) {
    RunningVenue venue;
    venue.enter(buy("b1").at("189.00"));
    venue.enter(buy("b2").at("189.00"));
    EXPECT_EQ(venue.times_of(1, cancel("b1")), 1u);
    EXPECT_EQ(venue.times_of(1, cancel("b1")), 1u);  // late
    EXPECT_EQ(venue.times_of(1, cancel("none")), 1u);
    venue.bench.fill_on_cancel_next = 1;
    EXPECT_EQ(venue.times_of(1, cancel("b2")), 1u);
}

TEST(OrderTruth, HasTheTimeOfTheReportsThatNobodyAskedFor) {
    VenueSettings settings;
    settings.engine.acod = true;
    RunningVenue venue(settings);
    for (const char* id : {"b1", "b2", "b3"}) venue.enter(buy(id).at("180.00"));
    EXPECT_EQ(venue.times_of(3, [&](OutboundMessages&) { venue.engine.client_dropped(0, "alice"); }), 1u);

    venue.bench.unsolicited_cancel_next = 2;
    venue.clock.stand_at(0, Venue::start_wall_ns);  // the machine has long been up
    venue.enter(buy("b4").at("180.00"));
    venue.enter(buy("b5").at("180.00"));
    venue.clock = Clock();
    EXPECT_EQ(venue.times_of(2, [&](OutboundMessages&) { venue.engine.cancel_unsolicited(); }), 1u);
}

// A tick bids for a symbol that nobody bids for.
TEST(OrderTruth, HasTheTimeOfTheReportsOfASyntheticTrade) {
    RunningVenue venue;
    venue.enter(sell("s1").shares(1).at("180.00"));
    venue.enter(sell("s2").shares(1).at("180.00"));
    EXPECT_EQ(venue.times_of(2, [&](OutboundMessages&) { venue.engine.tick(); }), 1u);
}

TEST(OrderTruth, WritesPricesInSixSignificantDigits) {
    Venue venue;
    const auto price = [&](const std::string& limit) {
        venue.enter(buy("b1").immediate().at(limit));
        const std::string line = venue.truth().front();
        const std::size_t start = line.find(R"("px":)") + 5;
        return line.substr(start, line.find(',', start) - start);
    };
    EXPECT_EQ(price("0.01"), "0.01");
    EXPECT_EQ(price("190.10"), "190.1");
    EXPECT_EQ(price("1234.56"), "1234.56");
    EXPECT_EQ(price("12345.67"), "12345.7");
    EXPECT_EQ(price("99999.94"), "99999.9");
    EXPECT_EQ(price("99999.96"), "100000");
    EXPECT_EQ(price("429496.72"), "429497");
}

TEST(OrderTruth, WritesTextsAsTheyAre) {
    Venue venue;
    venue.enter(buy(R"(a"b\c)").at("189.95"));
    EXPECT_EQ(venue.truth(),
              (Lines{at_the_start(R"("ev":"new","cl":"a"b\c","oid":1000,"symbol":"AAPL","side":"B","qty":100,)"
                                  R"("px":189.95,"cum":0,"leaves":0,"last_qty":0,"text":""})")}));
}

TEST(OrderTruth, CostsNothingWithoutAFile) {
    Venue venue;
    venue.engine.order_truth.log.write_to({});
    EXPECT_EQ(said_during([&] {
                  venue.enter(buy("b1").at("189.95"));
                  venue.enter(sell("s1").at("189.95"), second_client);
              }),
              "");
    EXPECT_TRUE(venue.truth().empty());
    EXPECT_EQ(venue.bench.counters.fills, 2u);
}

TEST(OrderTruth, StopsSilentlyWhenTheFileFails) {
    Venue venue;
    venue.engine.order_truth.log.write_to({});
    venue.engine.order_truth.log.open("/dev/full");
    EXPECT_EQ(said_during([&] {
                  venue.enter(buy("b1").at("189.95"));
                  venue.enter(buy("b2").at("189.95"));
              }),
              "");
    EXPECT_FALSE(venue.engine.order_truth.log.is_on());
    EXPECT_EQ(venue.bids(), "200@189.95");
}

}  // namespace
}  // namespace kavo::test
