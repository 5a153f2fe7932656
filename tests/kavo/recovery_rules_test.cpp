#include "kavo/audit/recovery_rules.h"

#include <gtest/gtest.h>

#include <limits>

#include "client/recovery.h"
#include "feed/dom_messages.h"
#include "kavo/support/run_made_by_hand.h"

namespace kavo::companion::test {
namespace {

constexpr std::uint64_t all_there_is = std::numeric_limits<std::uint64_t>::max();

// A feed of one message a datagram, one each 100 ms from number 1 at 0 ms on, and receivers who recover. Whoever joins
// takes a refresh at 250 ms, as of number 3.
class FeedMadeByHand {
public:
    explicit FeedMadeByHand(std::uint64_t last = 40) : last_(last) {}

    static std::chrono::milliseconds time_of(std::uint64_t number) {
        return std::chrono::milliseconds{100 * (number - 1)};
    }

    FeedMadeByHand& drops(std::uint64_t first, std::uint64_t last) {
        for (std::uint64_t number = first; number <= last; ++number) {
            missing_.add({number, number});
            run.venue_says(time_of(number), "kavo_me fault: dropped seq " + std::to_string(number) + " (packet " +
                                                std::to_string(number) + ", 1 message(s))");
        }
        return *this;
    }
    // Comes right behind the next one, 20 microseconds later.
    FeedMadeByHand& holds(std::uint64_t number) {
        missing_.add({number, number});
        late_.push_back(number);
        run.venue_says(time_of(number),
                       "kavo_me fault: reordered seq " + std::to_string(number) + " (held behind the next packet)");
        return *this;
    }
    FeedMadeByHand& loses_for_kavo_alone(std::uint64_t number) {
        missing_.add({number, number});
        return *this;
    }
    // After the last message.
    FeedMadeByHand& beats(std::chrono::milliseconds at, std::uint64_t number) {
        beats_.emplace_back(at, number);
        return *this;
    }

    ConnectionMadeByHand& begins(std::chrono::nanoseconds at, Bytes request, esesm::PacketType type,
                                 std::uint64_t highest, std::string_view user = "recv") {
        ConnectionMadeByHand& connection = run.connection(at, Service::recovery);
        connection.logs_in(client::receiver_login(user)).says(type, request);
        return connection.after(1ms).is_let_in(highest);
    }
    ConnectionMadeByHand& begins(std::chrono::nanoseconds at, std::uint64_t first, std::uint64_t last,
                                 std::uint64_t highest, std::string_view user = "recv") {
        return begins(at, client::retransmission_payload(first, last), esesm::PacketType::retransmission_request,
                      highest, user);
    }
    // A whole conversation: what is there of the range, and the goodbye.
    FeedMadeByHand& asks(std::chrono::nanoseconds at, std::uint64_t first, std::uint64_t last,
                         std::string_view user = "recv") {
        const auto highest = static_cast<std::uint64_t>(at / 100ms) + 1;
        ConnectionMadeByHand& connection = begins(at, first, last, highest, user);
        for (std::uint64_t number = first; number <= std::min(last, highest); ++number) {
            connection.is_told(number, message());
        }
        connection.hears_goodbye('A', "retransmission complete").closes();
        return *this;
    }
    FeedMadeByHand& refreshes(std::chrono::nanoseconds at, std::string_view user = "recv") {
        const auto as_of = static_cast<std::uint64_t>(at / 100ms) + 1;
        ConnectionMadeByHand& connection =
            begins(at, client::refresh_payload('O'), esesm::PacketType::unsequenced_data, as_of, user);
        Bytes reply(9);
        reply[0] = 'r';
        for (std::size_t i = 0; i < 8; ++i) reply[1 + i] = static_cast<std::uint8_t>(as_of >> 8 * i);
        connection.hears(esesm::PacketType::unsequenced_data, reply);
        connection.hears_goodbye('A', "refresh complete").closes();
        return *this;
    }
    FeedMadeByHand& joins(std::string_view user = "recv") { return refreshes(250ms, user); }

    // What is found, as lines "rule: grade", in the order of the findings.
    std::string judged(std::string_view beliefs = "") {
        send();
        Verdict verdict;
        judge_recovery(run.journal(), read_beliefs(beliefs), verdict);
        std::string text;
        static constexpr const char* grades[]{"remark", "finding", "inconclusive", "bench"};
        for (const Finding& finding : verdict.findings) {
            if (!text.empty()) text += " | ";
            text += std::string(finding.rule->name) + ": " + grades[static_cast<int>(finding.grade)];
            found = finding;
        }
        slack = verdict.slack;
        return text;
    }

    void send() {
        if (sent_) return;
        sent_ = true;
        for (std::uint64_t number = 1; number <= last_; ++number) {
            if (!missing_.holds(number)) datagram(time_of(number), mach::PacketType::application_data, number);
            for (const std::uint64_t held : late_) {
                if (held + 1 == number) datagram(time_of(number) + 20us, mach::PacketType::application_data, held);
            }
        }
        for (const auto& [at, number] : beats_) datagram(at, mach::PacketType::heartbeat, number);
    }

    RunMadeByHand run;
    Finding found;
    std::vector<Slack> slack;

private:
    static Bytes message() {
        const auto built = dom::build(dom::SystemTime{1});
        return {built.begin(), built.end()};
    }
    void datagram(std::chrono::nanoseconds at, mach::PacketType type, std::uint64_t number) {
        const bool data = type == mach::PacketType::application_data;
        mach::Header header{number, 12, type, 1};
        if (data) header.length = static_cast<std::uint16_t>(12 + message().size());
        const auto bytes = mach::build(header);
        Bytes datagram(bytes.begin(), bytes.end());
        if (data) {
            const Bytes content = message();
            datagram.insert(datagram.end(), content.begin(), content.end());
        }
        run.datagram(at, datagram);
    }

    std::uint64_t last_;
    NumberRanges missing_;
    std::vector<std::uint64_t> late_;
    std::vector<std::pair<std::chrono::milliseconds, std::uint64_t>> beats_;
    bool sent_ = false;
};

std::string book(std::uint64_t number, std::chrono::milliseconds at, bool stale = false) {
    const std::uint64_t t = RunMadeByHand::start_ns + static_cast<std::uint64_t>(at.count()) * 1'000'000;
    return "{\"t\":" + std::to_string(t) + ",\"ev\":\"book\",\"symbol\":\"AAPL\",\"seq\":" + std::to_string(number) +
           ",\"bids\":[],\"asks\":[],\"stale\":" + (stale ? "true" : "false") + "}\n";
}

std::string gaps_of(FeedMadeByHand& feed) {
    feed.send();
    std::string text;
    for (const LabelledGap& gap : labelled_gaps(feed.run.journal())) {
        text += (text.empty() ? "" : " | ") + text_of(gap.gap.numbers) + " " + gap.label();
    }
    return text;
}

// ---- numbers and gaps ----

TEST(NumberRanges, AreAddedTakenAwayAndSearched) {
    NumberRanges ranges;
    ranges.add({5, 7});
    ranges.add({8, 9});
    ranges.add({20, all_there_is});
    EXPECT_EQ(ranges.all(), (std::vector<SequenceRange>{{5, 9}, {20, all_there_is}}));
    ranges.remove({6, 6});
    EXPECT_EQ(ranges.missing_from({4, 22}), (std::vector<SequenceRange>{{4, 4}, {6, 6}, {10, 19}}));
    EXPECT_TRUE(ranges.covers({7, 9}));
    EXPECT_FALSE(ranges.covers({5, 7}));
    EXPECT_TRUE(ranges.touches({1, 5}));
    EXPECT_FALSE(ranges.touches({10, 19}));
}

TEST(Gaps, AreExplainedByWhatTheVenueSays) {
    FeedMadeByHand feed;
    feed.drops(10, 12).holds(20).loses_for_kavo_alone(30);
    EXPECT_EQ(gaps_of(feed),
              "10 to 12 planned: dropped by the bench, asked for by nobody | "
              "20 planned: late, held back behind the next datagram | 30 unexplained");
}

TEST(Gaps, OfKavosOwnSocketAreTheKernels) {
    FeedMadeByHand feed;
    feed.loses_for_kavo_alone(30).run.note(3s, "kernel_drop", "\"port\":1,\"socket\":\"kavo\",\"drops\":1");
    EXPECT_EQ(gaps_of(feed), "30 kernel");
}

TEST(Gaps, HeldDatagramThatIsOverwrittenIsLost) {
    FeedMadeByHand feed;
    feed.loses_for_kavo_alone(20).run.venue_says(1900ms,
                                                 "kavo_me fault: reordered seq 20 (held behind the next packet)");
    EXPECT_EQ(gaps_of(feed), "20 planned: held back by the bench and never released, asked for by nobody");
}

TEST(Gaps, TellWhetherTheyWereRecovered) {
    FeedMadeByHand feed;
    feed.drops(10, 10).drops(20, 20).joins().asks(1050ms, 10, 10);
    feed.begins(2050ms, 20, 20, 21).is_cut();
    EXPECT_EQ(gaps_of(feed), "10 planned: dropped by the bench | 20 planned: dropped by the bench, relay, unrecovered");
}

// ---- who asks rightly ----

TEST(Recovery, WhoAsksForExactlyWhatIsLostIsRight) {
    FeedMadeByHand feed;
    feed.drops(10, 12).drops(20, 20).joins().asks(1310ms, 10, 12).asks(2310ms, 20, 20);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "");
    ASSERT_EQ(feed.slack.size(), 1U);
    // 20 shows at 2.000 s and is beyond patience with the third datagram, at 2.200 s: due at 3.200 s.
    EXPECT_NEAR(feed.slack.front().least_ms, 890, 0.1);
    EXPECT_EQ(feed.slack.front().limit_ms, 1000);
}

TEST(Recovery, OneRequestForAllGapsToTheEndIsRight) {
    FeedMadeByHand feed;
    feed.drops(10, 12).drops(14, 14).joins().asks(1510ms, 10, all_there_is);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "");
}

TEST(Recovery, NeighboursOfAGapAreNobodysBusiness) {
    FeedMadeByHand feed;
    feed.drops(10, 12).joins().asks(1310ms, 9, 13);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "");
}

TEST(Recovery, RefreshAtEachGapIsRight) {
    FeedMadeByHand feed;
    feed.drops(10, 12).drops(20, 20).joins().refreshes(1310ms).refreshes(2110ms);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "");
}

TEST(Recovery, LateJoinerMayAskForEverything) {
    FeedMadeByHand feed;
    feed.drops(10, 12).asks(2000ms, 1, all_there_is);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "");
}

TEST(Recovery, LateJoinerMayAskPageByPage) {
    FeedMadeByHand feed;
    feed.drops(10, 12).asks(2000ms, 1, 8).asks(2010ms, 9, 16).asks(2020ms, 17, 21);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "");
}

TEST(Recovery, ClientThatDoesNotUseTheFeedIsNotJudged) {
    FeedMadeByHand feed;
    feed.drops(10, 12);
    feed.run.connection().logs_in("alice", 1).is_let_in(0).lives_until(4s);
    EXPECT_EQ(feed.judged(), "");
}

TEST(Recovery, OneThatMayHaveStoppedListeningIsNotConvicted) {
    FeedMadeByHand feed;
    feed.drops(10, 12).joins();
    EXPECT_EQ(feed.judged(), "recovery.asks-for-what-was-lost: remark");
    EXPECT_EQ(feed.found.because, "nothing tells whether it was still listening");
}

TEST(Recovery, FreshProcessesUnderOneNameAreNotOneThatForgets) {
    FeedMadeByHand feed;
    feed.drops(10, 10).drops(20, 20).asks(300ms, 1, all_there_is).asks(1500ms, 1, all_there_is);
    feed.asks(2800ms, 1, all_there_is);
    EXPECT_EQ(feed.judged(), "");
}

TEST(Recovery, TwoReceiversUnderOneNameMayEachAskForTheSame) {
    FeedMadeByHand feed;
    feed.drops(20, 20).joins().refreshes(450ms).asks(2011ms, 20, 20).asks(2201ms, 20, 20);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "");
}

// ---- asks for what was lost ----

TEST(Recovery, WhoSkipsAGapIsConvicted) {
    FeedMadeByHand feed;
    feed.drops(10, 12).joins();
    EXPECT_EQ(feed.judged(book(30, 3000ms)), "recovery.asks-for-what-was-lost: finding");
    EXPECT_EQ(feed.found.expected,
              "a request that covers 10 to 12, or a refresh, for the gap shows by the datagram of +1.200 s");
    EXPECT_EQ(feed.found.got, "nothing: no request since; it went on listening: line 1 of its log has a book at 30");
    EXPECT_EQ(feed.found.truth, "10 to 12 planned: dropped by the bench");
    EXPECT_EQ(feed.found.where.feed_number, 10U);
}

TEST(Recovery, WhoAsksForTheNextGapAloneIsConvictedByThat) {
    FeedMadeByHand feed(60);
    feed.drops(10, 10).drops(40, 40).joins().asks(4010ms, 40, 40);
    EXPECT_EQ(feed.judged(), "recovery.asks-for-what-was-lost: finding");
    EXPECT_EQ(feed.found.where.feed_number, 10U);
}

TEST(Recovery, WhoAsksFromOneBehindTheFirstIsConvicted) {
    FeedMadeByHand feed;
    feed.drops(10, 12).joins().asks(1310ms, 11, 12);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "recovery.asks-for-what-was-lost: finding");
    EXPECT_EQ(feed.found.where.feed_number, 10U);
}

TEST(Recovery, WhoNeverRecoversAndTellsBooksOnBothSidesOfAGapIsConvicted) {
    FeedMadeByHand feed;
    feed.drops(10, 12);
    EXPECT_EQ(feed.judged(book(5, 500ms) + book(20, 2000ms)), "recovery.asks-for-what-was-lost: finding");
}

TEST(Recovery, WhoKnowsThatItDoesNotKnowIsNotTakenToHaveSkippedAGap) {
    FeedMadeByHand feed;
    feed.drops(10, 12);
    EXPECT_EQ(feed.judged(book(5, 500ms) + book(20, 2000ms, true)), "");
}

TEST(Recovery, RunThatEndsSoonBehindTheGapProvesNothing) {
    FeedMadeByHand feed(22);
    feed.drops(18, 18).joins();
    EXPECT_EQ(feed.judged(book(22, 2150ms)), "");
}

// ---- in time ----

TEST(Recovery, WhoWaitsTooLongIsConvictedOfThatAlone) {
    FeedMadeByHand feed;
    feed.drops(10, 10).joins().asks(2500ms, 10, 10);  // shows at 1.000 s, due at 2.200 s
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "recovery.in-time: finding");
}

TEST(Recovery, LateMachineMakesFindingsOfTimeInconclusive) {
    FeedMadeByHand feed;
    feed.drops(10, 10).joins().asks(2500ms, 10, 10).run.machine_is_late(2400ms, 900ms);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "recovery.in-time: inconclusive");
    EXPECT_EQ(feed.found.because, "the machine was late meanwhile");
}

TEST(Recovery, HeartbeatThatShowsAGapIsEnough) {
    FeedMadeByHand feed(20);
    feed.drops(20, 20).joins().beats(2900ms, 20).beats(3900ms, 20).beats(9000ms, 20);
    EXPECT_EQ(feed.judged(book(19, 8000ms)), "recovery.asks-for-what-was-lost: finding");
    FeedMadeByHand right(20);
    right.drops(20, 20).joins().beats(2900ms, 20).asks(2950ms, 20, 20).beats(9000ms, 20);
    EXPECT_EQ(right.judged(book(20, 8000ms)), "");
}

TEST(Recovery, WhoIsBusyWithAnotherConversationIsNotLate) {
    FeedMadeByHand feed;
    feed.drops(10, 10).drops(13, 13).joins();
    auto& slow = feed.begins(1050ms, 10, 10, 11);
    slow.at(3s).hears_goodbye('A', "retransmission complete").closes();
    feed.asks(3100ms, 10, 13);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "");
}

// ---- exact, once, not for late ----

TEST(Recovery, WhoAsksForWhatHasComeIsConvicted) {
    FeedMadeByHand feed;
    feed.joins().asks(3000ms, 20, 22);
    EXPECT_EQ(feed.judged(), "recovery.exact: finding");
}

TEST(Recovery, WhatTheKernelDroppedForTheClientMayBeAskedFor) {
    FeedMadeByHand feed;
    feed.joins().asks(3000ms, 20, 22);
    feed.run.note(2s, "kernel_drop", "\"port\":1,\"socket\":\"client\",\"drops\":3");
    EXPECT_EQ(feed.judged(), "recovery.exact: inconclusive");
}

TEST(Recovery, WhoAsksFromFarBackIsRemarkedUpon) {
    FeedMadeByHand feed;
    feed.drops(30, 30).joins().asks(3010ms, 8, 30);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "recovery.exact: remark");
}

TEST(Recovery, WhoAsksForEverythingAgainAtEachGapIsConvicted) {
    FeedMadeByHand feed;
    feed.drops(20, 20).drops(30, 30).asks(250ms, 1, all_there_is);
    feed.asks(2010ms, 1, all_there_is).asks(3010ms, 1, all_there_is);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "recovery.exact: finding | recovery.exact: finding");
    EXPECT_EQ(feed.found.got, "asks for everything again: asked for everything from 1 on at +3.010 s");
}

TEST(Recovery, WhoHasARefreshAndAsksForEverythingAtAGapIsConvicted) {
    FeedMadeByHand feed;
    feed.drops(20, 20).joins().asks(2210ms, 1, all_there_is);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "recovery.exact: finding");
}

TEST(Recovery, OneRequestForEverythingMayBeAnotherProcesss) {
    FeedMadeByHand feed;
    feed.drops(20, 20).asks(250ms, 1, all_there_is).asks(2010ms, 1, all_there_is);
    EXPECT_EQ(feed.judged(), "recovery.exact: inconclusive");
    FeedMadeByHand with_login;
    with_login.drops(20, 20).asks(250ms, 1, all_there_is).asks(2010ms, 1, all_there_is);
    with_login.run.connection(1500ms).logs_in("alice", 1).is_let_in(0);
    EXPECT_EQ(with_login.judged(), "");
}

TEST(Recovery, WhoAsksTwiceForTheSameIsConvicted) {
    FeedMadeByHand feed;
    feed.drops(20, 20).joins().asks(2010ms, 20, 20).asks(2210ms, 20, 20);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "recovery.once: finding");
}

TEST(Recovery, WhatWasNotConfirmedMayBeAskedForAgain) {
    FeedMadeByHand feed;
    feed.drops(20, 20).joins();
    const auto built = dom::build(dom::SystemTime{1});
    feed.begins(2010ms, 20, 20, 21).is_told(20, built).is_cut();
    feed.asks(2210ms, 20, 20);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "");
}

TEST(Recovery, WhoAsksAtOnceForWhatIsOnlyLateIsConvicted) {
    FeedMadeByHand feed;
    feed.holds(20).joins().asks(2000ms + 400us, 20, 20);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "recovery.not-for-late: finding");
}

TEST(Recovery, WhoAsksLongAfterTheLateOneCameIsConvicted) {
    FeedMadeByHand feed;
    feed.holds(20).joins().asks(2150ms, 20, 20);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "recovery.not-for-late: finding");
}

TEST(Recovery, WhosePatienceRanOutBeforeItReadTheLateOneIsRight) {
    FeedMadeByHand feed;
    feed.holds(20).joins().asks(2012ms, 20, 20);
    EXPECT_EQ(feed.judged(book(39, 3900ms)), "");
}

// ---- again ----

TEST(Recovery, WhoGivesUpWhenItIsCutIsConvicted) {
    FeedMadeByHand feed(90);
    feed.drops(20, 20).joins();
    feed.begins(2010ms, 20, 20, 21).is_cut();
    EXPECT_EQ(feed.judged(book(19, 7900ms, true)), "recovery.again-when-cut: finding");
}

TEST(Recovery, WhatFollowsFromGivingUpIsNotToldAgain) {
    FeedMadeByHand feed(90);
    feed.drops(20, 20).drops(25, 25).drops(30, 30).joins();
    feed.begins(2010ms, 20, 20, 21).is_cut();
    EXPECT_EQ(feed.judged(book(19, 7900ms, true)), "recovery.again-when-cut: finding");
}

TEST(Recovery, WhoIsStillWaitingForItsReplyHasNotGivenUp) {
    FeedMadeByHand feed(90);
    feed.drops(20, 20).joins();
    feed.begins(2010ms, 20, 20, 21);
    EXPECT_EQ(feed.judged(book(19, 7900ms, true)), "");
}

TEST(Recovery, WhoseFirstRequestIsCutAsksAgain) {
    FeedMadeByHand feed(90);
    feed.begins(250ms, client::refresh_payload('O'), esesm::PacketType::unsequenced_data, 3).is_cut();
    EXPECT_EQ(feed.judged(book(0, 7900ms, true)), "recovery.again-when-cut: finding");
    FeedMadeByHand right(90);
    right.begins(250ms, client::refresh_payload('O'), esesm::PacketType::unsequenced_data, 3).is_cut();
    right.refreshes(350ms);
    EXPECT_EQ(right.judged(book(70, 7900ms)), "");
}

TEST(Recovery, SocketThatStaysOpenShowsThatItsOwnerListens) {
    FeedMadeByHand feed;
    feed.drops(20, 20).joins();
    feed.run.note(100ms, "feed_socket", "\"socket\":\"1234\",\"open\":true");
    EXPECT_EQ(feed.judged(), "recovery.asks-for-what-was-lost: finding");
    FeedMadeByHand closed;
    closed.drops(20, 20).joins();
    closed.run.note(100ms, "feed_socket", "\"socket\":\"1234\",\"open\":true");
    closed.run.note(1500ms, "feed_socket", "\"socket\":\"1234\",\"open\":false");
    EXPECT_EQ(closed.judged(), "recovery.asks-for-what-was-lost: remark");
}

// One of the two may be anybody's, a test's own receiver say.
TEST(Recovery, SocketBesideAnotherShowsNothing) {
    FeedMadeByHand feed;
    feed.drops(20, 20).joins();
    feed.run.note(100ms, "feed_socket", "\"socket\":1234,\"open\":true,\"ms\":100");
    feed.run.note(3s, "feed_socket", "\"socket\":1235,\"open\":true,\"ms\":100");
    EXPECT_EQ(feed.judged(), "recovery.asks-for-what-was-lost: remark");
}

// The gap of message 20 shows at 2 s, and is due when the client has had a second and more.
TEST(Recovery, SocketIsThereNoLongerThanKavoSawIt) {
    FeedMadeByHand feed;
    feed.drops(20, 20).joins();
    feed.run.note(100ms, "feed_socket", "\"socket\":1234,\"open\":true,\"ms\":100");
    feed.run.note(3900ms, "feed_socket", "\"socket\":1234,\"open\":false,\"ms\":1900");
    EXPECT_EQ(feed.judged(), "recovery.asks-for-what-was-lost: remark");
}

TEST(Recovery, WhoTriesAgainWhenItIsCutIsRight) {
    FeedMadeByHand feed(90);
    feed.drops(20, 20).joins();
    feed.begins(2010ms, 20, 20, 21).is_cut();
    feed.asks(2100ms, 20, 20);
    EXPECT_EQ(feed.judged(book(80, 7900ms)), "");
}

TEST(Recovery, WhoTakesARefreshWhenTheReplyIsEmptyIsRight) {
    FeedMadeByHand feed(90);
    feed.drops(20, 20).joins();
    feed.begins(2010ms, 20, 20, 21).hears_goodbye('A', "retransmission complete").closes();
    feed.refreshes(2200ms);
    EXPECT_EQ(feed.judged(book(80, 7900ms)), "");
}

TEST(Recovery, FeedThatBeganAgainConvictsNobody) {
    FeedMadeByHand feed;
    feed.drops(10, 12).joins().beats(4s, 7);
    EXPECT_EQ(feed.judged(book(30, 3000ms)), "recovery.asks-for-what-was-lost: inconclusive");
}

TEST(Recovery, RecordingThatIsNotWholeConvictsNobody) {
    FeedMadeByHand feed;
    feed.drops(10, 12).joins().run.journal().defects.push_back("wire.pcapng ends in the middle of a packet");
    EXPECT_EQ(feed.judged(book(30, 3000ms)), "recovery.asks-for-what-was-lost: inconclusive");
}

}  // namespace
}  // namespace kavo::companion::test
