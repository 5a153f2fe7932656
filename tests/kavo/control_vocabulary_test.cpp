// The companion's table of control words and counters is the page's, and a line that the simulator would misread is
// found out before it is sent.
#include "kavo/screen/control_vocabulary.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "docs/page.h"

namespace kavo::companion {
namespace {

std::vector<std::string> known(const auto& table, auto name) {
    std::vector<std::string> names;
    for (const auto& entry : table) names.emplace_back(entry.*name);
    return names;
}

// "`drop N`" on the page is a word with a count, and so on.
TEST(ControlVocabulary, AreThoseOfThePage) {
    std::vector<std::string> on_the_page;
    for (std::string cell : docs::words_on("bench.md", "Command")) {
        const std::string argument = cell.find(' ') == std::string::npos ? "" : cell.substr(cell.find(' ') + 1);
        const std::string word = cell.substr(0, cell.find(' '));
        on_the_page.push_back(word);
        const auto entry = std::ranges::find(control_words(), word, &ControlWord::word);
        ASSERT_NE(entry, control_words().end()) << word;
        EXPECT_EQ(argument.empty(), entry->argument == ControlWord::Argument::none) << word;
        EXPECT_EQ(argument == "LABEL", entry->argument == ControlWord::Argument::label) << word;
    }
    EXPECT_EQ(on_the_page, known(control_words(), &ControlWord::word));
}

TEST(ControlVocabulary, AreNotSentWithWhatTheSimulatorWouldPassOver) {
    for (const char* line : {"pause", "drop", "drop 3", "rate -1", "rate 0", "mark here", "mark", "stats", " stop "}) {
        EXPECT_EQ(objection_to(line), "") << line;
    }
    EXPECT_EQ(objection_to("pause now"), "pause takes no argument");
    EXPECT_EQ(objection_to("drop three"), "drop takes a number from 0 on, and 'three' is none");
    EXPECT_EQ(objection_to("drop 3x"), "drop takes a number from 0 on, and '3x' is none");
    EXPECT_EQ(objection_to("lapse -1"), "lapse takes a number from 0 on, and '-1' is none");
    EXPECT_EQ(objection_to("rate -2"), "rate takes a number from -1 on, and '-2' is none");
    EXPECT_EQ(objection_to("reject 2147483648"), "reject takes a number from 0 on, and '2147483648' is none");
    EXPECT_EQ(objection_to("mark a b"), "mark takes one argument, and 'b' would be passed over");
    EXPECT_EQ(objection_to("mark " + std::string(506, 'x')), "");
    EXPECT_EQ(objection_to("mark " + std::string(507, 'x')), "a command has at most 511 bytes");
}

TEST(ControlVocabulary, ThatNobodyKnowsAreAnsweredByTheNearest) {
    EXPECT_EQ(objection_to("pasue"), "there is no control word 'pasue'; is it pause?");
    EXPECT_EQ(objection_to("drop-every 3"), "there is no control word 'drop-every'; is it drop_every?");
    EXPECT_EQ(objection_to("PAUSE"), "there is no control word 'PAUSE'");
    EXPECT_EQ(objection_to("fill_on_cancle"), "there is no control word 'fill_on_cancle'; is it fill_on_cancel?");
}

const std::string reply =
    "ok orders=12 accepts=11 fills=3 partials=1 cancels=4 replaces=2 rejects=1 replace_rejects=5 "
    "unsolicited_cancels=6 race_fills=7 late_cancels=8 stale_cancels=9 logins=10 replays=13 replayed=14 next_seq=5121 "
    "kavo_me faults: sent 728 dropped 3 duplicated 15 reordered 16 session=up\n";

TEST(ControlVocabulary, CountersAreThoseOfThePage) {
    std::vector<std::string> counters = known(known_counters(), &Counter::name);
    const std::vector<std::string> behind(counters.end() - 5, counters.end());
    EXPECT_EQ(behind, (std::vector<std::string>{"next_seq", "sent", "dropped", "duplicated", "reordered"}));
    counters.resize(counters.size() - 5);
    EXPECT_EQ(counters, docs::words_on("bench.md", "Counter"));
}

TEST(ControlVocabulary, StatisticsAreReadWholeOrNotAtAll) {
    const auto statistics = read_statistics(reply);
    ASSERT_TRUE(statistics);
    EXPECT_EQ(statistics->at("orders"), 12U);
    EXPECT_EQ(statistics->at("next_seq"), 5121U);
    EXPECT_EQ(statistics->at("reordered"), 16U);
    EXPECT_TRUE(statistics->session_up);
    EXPECT_FALSE(read_statistics("err unknown command 'stats'\n"));
    EXPECT_FALSE(read_statistics(reply.substr(0, reply.find(" reordered"))));
    EXPECT_FALSE(read_statistics("ok orders=x"));
}

TEST(ControlVocabulary, StatisticsAsJsonAreOneObject) {
    const auto json = nlohmann::json::parse(statistics_json(*read_statistics(reply)));
    EXPECT_EQ(json.size(), known_counters().size() + 1);
    EXPECT_EQ(json.at("fills"), 3);
    EXPECT_EQ(json.at("duplicated"), 15);
    EXPECT_EQ(json.at("session"), "up");
}

TEST(ControlVocabulary, StatisticsForScrapersEndAsTheyMust) {
    const std::string text = statistics_openmetrics(*read_statistics(reply));
    EXPECT_TRUE(
        text.starts_with("# TYPE kavo_me_orders counter\n"
                         "# HELP kavo_me_orders New orders that passed every check, scripted rejects included.\n"
                         "kavo_me_orders_total 12\n"));
    EXPECT_NE(text.find("\n# TYPE kavo_me_next_seq gauge\n"), std::string::npos);
    EXPECT_NE(text.find("\nkavo_me_next_seq 5121\n"), std::string::npos);
    EXPECT_NE(text.find("\nkavo_me_session_up 1\n"), std::string::npos);
    EXPECT_TRUE(text.ends_with("\n# EOF\n"));
}

}  // namespace
}  // namespace kavo::companion
