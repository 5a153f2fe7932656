#include "kavo/report/report.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "docs/page.h"
#include "kavo/audit/audit.h"

namespace kavo::companion {
namespace {

constexpr Rule next_number{"session.next-number", "A client asks for the next number.",
                           "docs/protocol_esesm.md#streams"};
constexpr Rule books{"belief.book", "A book is the venue's.", "docs/beliefs.md"};
constexpr Rule quiet{"order.id-unique", "An id is used once.", "docs/protocol_meo.md"};

// A run of three and a half seconds with these findings.
struct JudgedRun {
    RunFolder folder{"kavo-test"};
    BenchFacts facts;
    Verdict verdict;
    std::vector<std::string> defects;

    JudgedRun() {
        facts.started_ns = 1'000'000'000'000;
        facts.seed = 7;
        facts.scenario = "reject_every=7";
        verdict.counts.feed_messages = 1;
    }
    Finding& found(const Rule& rule, Grade grade) {
        Finding finding;
        finding.rule = &rule;
        finding.grade = grade;
        finding.expected = "9";
        finding.got = "10";
        verdict.findings.push_back(finding);
        return verdict.findings.back();
    }
    Report report() const {
        return {folder,           facts, verdict, defects, {"./client", "a b"}, {&next_number, &books, &quiet},
                1'003'500'000'000};
    }
};

TEST(Verdict, IsTheBenchsBeforeItIsTheClientsBeforeItIsOpen) {
    JudgedRun run;
    EXPECT_EQ(run.verdict.status(), Status::right);
    run.found(quiet, Grade::remark);
    EXPECT_EQ(run.verdict.status(), Status::right);
    run.found(quiet, Grade::inconclusive);
    EXPECT_EQ(run.verdict.status(), Status::inconclusive);
    run.found(quiet, Grade::finding);
    EXPECT_EQ(run.verdict.status(), Status::findings);
    run.found(quiet, Grade::bench);
    EXPECT_EQ(run.verdict.status(), Status::bench);
}

TEST(Rules, AreToldOnThePageOfTheCompanion) {
    docs::Pairs told;
    for (const Rule* rule : all_rules()) told.emplace_back(rule->name, rule->sentence);
    EXPECT_EQ(docs::pairs_on("kavo.md", "Every rule", "Sentence"), told);
}

TEST(TextReport, TellsTheFirstFindingOfEachRuleAndHowOftenItWasBroken) {
    JudgedRun run;
    Finding& finding = run.found(next_number, Grade::finding);
    finding.where = {{1'001'203'000'000, 812}, "c01", "b\n1", 0, 9};
    finding.truth = "9 was given at +1.1 s";
    run.found(next_number, Grade::finding);
    const std::string text = text_report(run.report());
    EXPECT_EQ(text.substr(0, text.find('\n')), "FINDINGS: the client is wrong  (3.50 s)");
    const auto from = text.find("FINDING  ");
    ASSERT_NE(from, std::string::npos);
    EXPECT_EQ(text.substr(from),
              "FINDING  session.next-number  (2 times; the first:)\n"
              "  where     +1.203 s  user c01  order b\\x0a1  stream number 9  packet 812\n"
              "  rule      A client asks for the next number.  docs/protocol_esesm.md#streams\n"
              "  expected  9\n"
              "  got       10\n"
              "  truth     9 was given at +1.1 s\n"
              "\n");
    EXPECT_NE(text.find("  feed      1 message in 0 datagrams; gaps: none\n"), std::string::npos);
}

TEST(TextReport, TellsNoMoreRulesThanItIsAskedFor) {
    JudgedRun run;
    run.found(quiet, Grade::remark);
    run.found(books, Grade::finding);
    const std::string text = text_report(run.report(), 1);
    EXPECT_NE(text.find("FINDING  belief.book"), std::string::npos);
    EXPECT_EQ(text.find("REMARK"), std::string::npos);
    EXPECT_NE(text.find("and 1 rule more in kavo-test/verdict.txt"), std::string::npos);
}

TEST(JsonReport, HoldsEveryFindingWithItsPlace) {
    JudgedRun run;
    run.found(books, Grade::inconclusive).because = "the machine was late";
    run.found(next_number, Grade::finding).where = {{1'001'500'000'000, 3}, "\xff", "", 4711, 0};
    const auto json = nlohmann::json::parse(json_report(run.report()));
    EXPECT_EQ(json["status"], "findings");
    EXPECT_EQ(json["exit"], 1);
    EXPECT_EQ(json["command"], (std::vector<std::string>{"./client", "a b"}));
    ASSERT_EQ(json["findings"].size(), 2u);
    EXPECT_EQ(json["findings"][0]["rule"], "session.next-number");  // the gravest first
    EXPECT_EQ(json["findings"][0]["where"]["user"], "\\xff");
    EXPECT_EQ(json["findings"][0]["where"]["since_start_s"], 1.5);
    EXPECT_EQ(json["findings"][0]["where"]["feed_number"], 4711);
    EXPECT_FALSE(json["findings"][0]["where"].contains("order"));
    EXPECT_EQ(json["findings"][1]["grade"], "inconclusive");
    EXPECT_EQ(json["findings"][1]["because"], "the machine was late");
    EXPECT_EQ(json["rules"].size(), 3u);
}

TEST(JunitReport, IsACaseForEachRuleWithWhatBecameOfIt) {
    JudgedRun run;
    run.found(next_number, Grade::finding).got = "]]></failure>\x1b\"";
    run.found(next_number, Grade::finding);
    run.found(books, Grade::inconclusive);
    run.found(quiet, Grade::remark);
    const std::string xml = junit_report(run.report());
    EXPECT_NE(xml.find("tests=\"3\" failures=\"1\" errors=\"1\" skipped=\"0\" time=\"3.500\""), std::string::npos)
        << xml;
    EXPECT_NE(xml.find("got: ]]&gt;&lt;/failure&gt;\\x1b&quot;\n"), std::string::npos);
    EXPECT_NE(xml.find("<testcase classname=\"kavo.order\" name=\"order.id-unique\" time=\"0\"/>"), std::string::npos);
    EXPECT_NE(xml.find("<property name=\"status\" value=\"findings\"/>"), std::string::npos);
}

}  // namespace
}  // namespace kavo::companion
