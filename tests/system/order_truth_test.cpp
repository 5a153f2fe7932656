// The order truth of a running venue: what it writes down about an order, and what it tells the order's owner, is of
// one moment.
#include <string_view>

#include "support/ledger.h"
#include "support/scene.h"
#include "system/full_venue.h"

namespace kavo::test {
namespace {

// Two users, every message of theirs on one side of the account and every line on the other.
struct Account {
    // Takes what comes up to the first line that holds `part`.
    void hear(WireClient& user, std::string_view part) {
        namespace at = esesm::layout::sequenced_packet;
        while (const auto packet = user.next_packet()) {
            const bool sequenced = get(*packet, esesm::layout::packet::type) == 's';
            if (sequenced) ledger.told(ByteView(*packet).subspan(at::header_size));
            if (packet_text(*packet).find(part) != std::string::npos) return;
        }
        ADD_FAILURE() << "never heard: " << part;
    }
    template <typename Request>
    void send(WireClient& user, const Request& request, std::string_view last_answer) {
        user.send(request);
        hear(user, last_answer);
    }
    void arm(const std::string& fault) { EXPECT_EQ(venue.control.ask(fault), "ok " + fault + "\n"); }

    // All that the users have still to hear is on its way, and before the answer to one more request.
    void close(std::initializer_list<WireClient*> users) {
        venue.control.ask("stats");
        for (WireClient* user : users) send(*user, cancel("the end"), "CR xthe end");
        for (const std::string& line : truth.lines()) ledger.written(line);
    }

    TemporaryFile truth;
    FullVenue venue{{"--acod", "--max-order-size", "1000000"}, {{"BENCH_ORDER_TRUTH", truth.path()}}};
    Ledger ledger;
};

using Unmatched = std::map<std::string, std::size_t>;

TEST(LiveOrderTruth, IsOfTheVeryNanosecondOfTheAnswersToARequest) {
    Account account;
    User alice(account.venue, "alice");
    User bob(account.venue, "bob");
    account.send(alice, buy("a1").shares(25'000).at("195.00"), "P1 a1");  // takes every offer of the market's
    account.send(bob, sell("b1").shares(100).at("195.00"), "E1 b1");
    account.hear(alice, "added");
    account.send(bob, sell("b2").post_only().at("195.00"), "XN b2 #1042 leaves 100 'E'");
    account.send(bob, buy("b3").all_or_nothing().at("100.00"), "XN b3 #1043 leaves 0 'C'");
    account.arm("reject 1");
    account.send(bob, buy("b4").at("100.00"), "NR b4 rejected 'R'");

    account.send(bob, buy("b5").at("100.00"), "P1 b5");
    account.send(bob, replace("b5", "b6").shares(200).at("101.00"), "MN b6");
    account.send(bob, sell("b7").at("200.00"), "P1 b7");
    account.send(bob, replace("b7", "b8").at("195.00"), "E1 b8");  // trades
    account.hear(alice, "added");
    account.send(bob, replace("b6", "b6").at("101.00"), "MR b6 for b6 rejected 'A'");
    account.send(bob, replace("b6", "b9").at("0"), "MR b9 for b6 rejected 'J'");
    account.send(bob, replace("b5", "b9").at("101.00"), "MR b9 for b5 rejected 'D'");
    account.send(bob, replace("none", "b9").at("101.00"), "MR b9 for none rejected 'D'");
    account.arm("replace_reject 1");
    account.send(bob, replace("b6", "b9").at("101.00"), "MR b9 for b6 rejected 'H'");
    account.send(alice, replace("a1", "a2").shares(100).at("195.00"), "MN a2");  // has executed more, so it is closed

    account.arm("fill_on_cancel 1");
    account.send(bob, cancel("b6"), "CR xb6 of b6 rejected 'D'");
    account.send(bob, buy("b10").at("100.00"), "P1 b10");
    account.send(bob, cancel("b10"), "XN b10");
    account.send(bob, cancel("b10"), "CR xb10 of b10 rejected 'D'");
    account.send(bob, cancel("none"), "CR xnone of none rejected 'D'");

    account.close({&alice, &bob});
    // A cancel that loses its race leaves no line but its fill's.
    EXPECT_EQ(account.ledger.unmatched(), (Unmatched{{"cancel_reject told", 1}})) << account.ledger.examples();
}

TEST(LiveOrderTruth, IsOfTheVeryNanosecondOfWhatNobodyAskedFor) {
    Account account;
    User alice(account.venue, "alice");
    account.arm("unsolicited_cancel 1");
    account.send(alice, buy("a1").at("100.00"), "P1 a1");
    account.hear(alice, "XN a1 #1040 leaves 0 'H'");
    account.send(alice, buy("a2").shares(1'000'000).at("195.00"), "P1 a2");
    account.arm("rate 20");
    account.hear(alice, "E1 a2 ");  // whoever of the market sells, sells to this order
    account.arm("pause");
    account.close({&alice});

    const std::uint64_t heard = alice.last_sequence();
    alice.disconnect();
    ASSERT_TRUE(account.venue.process.says("of alice on disconnect"));
    WireClient again(account.venue.port());
    again.log_in(login("alice", heard + 1));
    account.hear(again, "XN a2 #1041 leaves 0 'D'");
    for (const std::string& line : account.truth.lines()) {
        if (line.find("\"text\":\"disconnect\"") != std::string::npos) account.ledger.written(line);
    }
    EXPECT_EQ(account.ledger.unmatched(), Unmatched{}) << account.ledger.examples();
}

}  // namespace
}  // namespace kavo::test
