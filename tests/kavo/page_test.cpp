#include "kavo/report/page.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "kavo/basics/problem.h"
#include "kavo/recorded_run.h"
#include "kavo/report/page_ids.h"
#include "kavo/report/page_verdict.h"
#include "kavo/support/run_made_by_hand.h"
#include "kavo/verbs/judge.h"
#include "support/process.h"

namespace kavo::companion::test {
namespace {

using client::buy;
using nlohmann::json;

constexpr Rule order_rule{"belief.order", "An order stands as the client was told.", "docs/beliefs.md#orders"};

// A run in which "alice" logs in and is told number 1, with whatever the test lets happen, find and believe.
struct PagedRun {
    RunMadeByHand run;
    ConnectionMadeByHand& alice = run.connection().logs_in("alice", 1).is_let_in(0).is_told(1, started());
    Verdict verdict;
    std::vector<std::string> defects;
    std::vector<std::string> command{"./client"};
    kavo::test::TemporaryFolder temporary;

    void believes(const std::string& line) {
        std::ofstream(run.journal().folder.beliefs(), std::ios::app) << line << "\n";
    }
    void truth(std::chrono::milliseconds at, std::string_view event, std::string_view id, std::uint32_t executed) {
        OrderLine line;
        line.t_ns = run.moment(at).ns;
        line.event = event;
        line.client_order_id = id;
        line.order_id = 1042;
        line.quantity = 300;
        line.executed = executed;
        line.leaves = 300 - executed;
        run.journal().orders.push_back(line);
    }
    Finding& found(std::chrono::milliseconds at, const std::string& order) {
        Finding finding;
        finding.rule = &order_rule;
        finding.where.moment = run.moment(at);
        finding.where.user = "alice";
        finding.where.order = order;
        verdict.findings.push_back(finding);
        return verdict.findings.back();
    }
    PagedRun() { run.journal().folder.path = temporary.path(""); }
    std::string text() {
        const Journal& journal = run.journal();
        return page({journal.folder,
                     journal.facts,
                     verdict,
                     defects,
                     command,
                     {&order_rule},
                     RunMadeByHand::start_ns + 1'000'000'000},
                    journal);
    }
    json data() {
        const std::string all = text(), start = "<script type=\"application/json\" id=\"data\">";
        const auto from = all.find(start) + start.size();
        return json::parse(all.substr(from, all.find("</script>", from) - from));
    }
};

std::size_t times(const std::string& text, std::string_view part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

TEST(Page, ReachesForNothingOutsideItself) {
    const std::string page{page_template};
    for (const char* part : {"http:", "https:", "src=", "url(", "@import", "fetch(", "XMLHttpRequest", "<link"}) {
        EXPECT_EQ(times(page, part), 0u) << part;
    }
    EXPECT_EQ(times(page, "href="), times(page, "href=\"#"));
    EXPECT_EQ(times(page, "default-src 'none'"), 1u);
}

TEST(Page, IsEndedByNoTextThatAClientMadeUp) {
    const std::string hostile =
        "\"'</script><b>]]>\n\x1b\xff\xe2\x80\xae";  // the last three turn the direction of writing
    PagedRun paged;
    paged.alice.sends(buy("</script><b>\"'\x1b\xff"));
    paged.run.connection().logs_in("<b>\"'", 1);
    paged.command = {hostile};
    paged.defects = {hostile};
    Finding& finding = paged.found(10ms, hostile);
    finding.expected = finding.got = finding.truth = finding.belief = finding.because = hostile;
    finding.where.user = hostile;
    paged.run.note(20ms, "script", R"("text":"</script><b>\u202e")");
    paged.believes(R"({"ev":"order","user":"<b>","id":"</script>","state":"working","leaves":0,"executed":0})");
    const std::string page = paged.text(), plain{page_template};
    EXPECT_EQ(times(page, "</script"), times(plain, "</script"));
    EXPECT_EQ(times(page, "<b>"), times(plain, "<b>"));
    EXPECT_EQ(times(page, "\x1b") + times(page, "\xff") + times(page, "\xe2\x80\xae"), 0u);
    EXPECT_EQ(times(page, "&quot;&#39;&lt;/script&gt;&lt;b&gt;]]&gt;\\x0a\\x1b\\xff\\xe2\\x80\\xae</dd>"),
              4u);  // missing, expected, got, because
    const json orders = paged.data()["orders"];
    ASSERT_EQ(orders.size(), 2u);
    EXPECT_EQ(orders[0]["user"], "<b>");
    EXPECT_EQ(orders[0]["id"], "</script>");
    EXPECT_EQ(orders[1]["id"], "</script><b>\"'\\x1b\\xff");
}

TEST(Page, MarksTheBeliefAtWhichAnOrdersTruthAndBeliefPart) {
    PagedRun paged;
    paged.alice.at(100ms).sends(buy("b0").shares(300)).at(110ms).sends(buy("b1").shares(300));
    paged.truth(111ms, "new", "b1", 0);
    paged.truth(150ms, "fill", "b1", 100);
    const auto belief = [](const char* ms, const char* executed) {
        return std::string(R"({"ev":"order","user":"alice","id":"b1","state":"working","leaves":200,"t":1700000000)") +
               ms + R"(000000,"executed":)" + executed + "}";
    };
    paged.believes(belief("120", "0"));
    paged.believes(belief("160", "200"));
    paged.believes(belief("170", "200"));
    paged.found(160ms, "b1").belief = "executed 200";
    const json orders = paged.data()["orders"];
    ASSERT_EQ(orders.size(), 2u);
    EXPECT_EQ(orders[0]["id"], "b1");  // before the earlier one, about which nothing was found
    EXPECT_EQ(orders[0]["diverges"], true);
    EXPECT_EQ(orders[1]["diverges"], false);
    std::string rows;
    for (const json& event : orders[0]["events"]) {
        rows += std::to_string(event[0].get<int>()) + " " + event[1].get<std::string>() + " " + event[4].dump() + " " +
                event[5].get<std::string>() + "|";
    }
    EXPECT_EQ(rows,
              "110 client null |111 truth 0 |120 belief 0 |150 truth 100 |160 belief 200 belief.order|"
              "170 belief 200 |");
}

TEST(Page, PutsABeliefBehindTheMessageThatItFollowsFrom) {
    PagedRun paged;
    paged.alice.at(100ms).sends(buy("b1")).at(105ms).is_told(2, taken(buy("b1")));
    paged.believes(
        R"({"ev":"order","user":"alice","id":"b1","state":"pending","leaves":1,"executed":0,"t":1700000000104000000,"seq":2})");
    const json events = paged.data()["orders"][0]["events"];
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[1][1], "venue");
    EXPECT_EQ(events[2][1], "belief");
    EXPECT_EQ(events[2][0], 104.0);  // its own time all the same
}

TEST(Page, SaysWhatItLeavesOut) {
    PagedRun paged;
    for (int i = 0; i < 2'001; ++i) paged.alice.sends(buy("b" + std::to_string(i)));
    const json data = paged.data();
    EXPECT_EQ(data["orders"].size(), 2'000u);
    ASSERT_EQ(data["left_out"].size(), 1u);
    EXPECT_EQ(data["left_out"][0].get<std::string>().substr(0, 34), "Of 2001 orders 2000 are here: thos");
}

TEST(Page, TellsEventsOfOneMomentTogether) {
    PagedRun paged;  // a second long, so what is less than 1.25 ms apart is one
    for (int i = 0; i < 6; ++i) paged.run.venue_says(500ms, "bench: mark m" + std::to_string(i));
    paged.run.venue_says(502ms, "bench: mark late");
    EXPECT_EQ(paged.data()["lanes"]["marks"].dump(),
              R"([[500.0,["bench: mark m0","bench: mark m1","bench: mark m2","bench: mark m3"],6],)"
              R"([502.0,["bench: mark late"],1]])");
}

TEST(Page, MarksTheWordsInWhichTwoBooksDiffer) {
    EXPECT_EQ(with_differences("line 3: AAPL at 7: bids 1.00x100 0.99x200 | asks -",
                               "AAPL at 7: bids 1.00x300 0.99x200 | asks -, since 5"),
              "line 3: AAPL at 7: bids <mark>1.00x100</mark> 0.99x200 | asks -");
    EXPECT_EQ(with_differences("nothing of the kind <b>", "9 was expected here"), "nothing of the kind &lt;b&gt;");
}

TEST(Judge, PutsCopiesOfThePageAndOfTheXmlWhereTheyAreWishedFor) {
    kavo::test::RecordedRun run;
    run.steps(3);
    run.write();
    const kavo::test::TemporaryFolder wished;
    Telling telling;
    telling.quiet = true;
    telling.html = wished.path("run.html");
    telling.junit = wished.path("run.xml");
    testing::internal::CaptureStdout();
    judge(run.folder, telling);
    testing::internal::GetCapturedStdout();
    for (const char* ending : {"html", "xml"}) {
        const std::string kept = kavo::test::content_of(run.folder.verdict(ending));
        EXPECT_GT(kept.size(), 1'000u);
        EXPECT_EQ(kavo::test::content_of(wished.path(std::string("run.") + ending)), kept);
    }
}

TEST(Judge, RefusesAPlaceForACopyThatIsNoneAndLeavesNothingWhereOneIs) {
    const kavo::test::TemporaryFolder wished;
    Telling telling;
    telling.html = wished.path("run.html");
    telling.junit = wished.path("nowhere/run.xml");
    try {
        check_files(telling);
        ADD_FAILURE() << "a file in a folder that is not there";
    } catch (const Problem& problem) {
        EXPECT_EQ(problem.status, Status::usage);
        EXPECT_EQ(std::string(problem.what()), "cannot write --junit " + telling.junit.string() +
                                                   " (No such file or directory): name a file in a folder that is "
                                                   "there");
    }
    EXPECT_TRUE(wished.names().empty());
}

TEST(Owners, TellTwoOrdersOfOneIdApartByTheVenuesNumberElseByTime) {
    Owners owners;
    owners.sent("b1", 100, "alice");
    owners.sent("b1", 200, "bob");
    owners.answered(1042, "alice");
    EXPECT_EQ(*owners.of("b1", 300, 1042), "alice");
    EXPECT_EQ(*owners.of("b1", 300, 0), "bob");
    EXPECT_EQ(*owners.of("b1", 150, 0), "alice");
    EXPECT_EQ(owners.of("b2", 150, 0), nullptr);
}

}  // namespace
}  // namespace kavo::companion::test
