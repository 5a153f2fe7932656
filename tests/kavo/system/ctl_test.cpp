// Control words from the command line, and the moment at which books can be compared.
#include <set>

#include "kavo/system/moving_venue.h"

namespace kavo::test {
namespace {

Flags ctl(const Ports& ports, const Flags& words) {
    Flags all = {"ctl", "--control-port", text(ports.services.control.number())};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

TEST(Ctl, PrintsWhatTheBenchReplies) {
    const Ports ports;
    MovingVenue venue(ports.feed, ports.services);
    EXPECT_EQ(Verb(ctl(ports, {"pause"})).said, "ok pause\n");
    EXPECT_EQ(Verb(ctl(ports, {"rate", "-1"})).said, "ok rate -1\n");
    EXPECT_EQ(
        Verb({"ctl", "mark", "here"}, {{"KAVO_CONTROL", "127.0.0.1:" + text(ports.services.control.number())}}).said,
        "ok mark here\n");
    EXPECT_TRUE(venue.process.says("bench: mark here at seq "));

    const std::uint64_t next = venue.control.next_sequence();
    const auto statistics = json_lines(Verb(ctl(ports, {"stats", "--json"})).said);
    ASSERT_EQ(statistics.size(), 1U);
    EXPECT_EQ(statistics[0].at("next_seq"), next);
    EXPECT_EQ(statistics[0].at("session"), "down");
    const std::string metrics = Verb(ctl(ports, {"--openmetrics", "stats"})).said;
    EXPECT_NE(metrics.find("\nkavo_me_next_seq " + text(next) + "\n"), std::string::npos) << metrics;

    const Verb stop(ctl(ports, {"stop"}));
    EXPECT_EQ(stop.said, "ok stopping\n");
    EXPECT_EQ(stop.status, 0);
    EXPECT_EQ(venue.process.wait(), 0);
}

TEST(Ctl, SendsNothingThatTheBenchWouldNotUnderstand) {
    const ReservedPort nobody;
    const std::vector<std::pair<Flags, std::string>> mistakes = {
        {{"pasue"}, "there is no control word 'pasue'; is it pause?"},
        {{"drop", "three"}, "drop takes a number from 0 on, and 'three' is none"},
        {{"pause", "--json"}, "--json and --openmetrics go with stats alone, and --json with settle"},
        {{"stats", "--jsn"}, "there is no option --jsn: see kavo ctl --help"},
        {{}, "say a control word, such as pause: see kavo ctl --help"}};
    for (const auto& [words, reason] : mistakes) {
        Flags all = {"ctl", "--control-port", text(nobody.number())};
        all.insert(all.end(), words.begin(), words.end());
        const Verb refused(all);
        EXPECT_EQ(refused.status, 2);
        EXPECT_EQ(refused.said, "kavo: " + reason + "\n");
    }
    EXPECT_EQ(Verb({"ctl", "pause"}).status, 2);
}

TEST(Ctl, SaysWhenNobodyAnswers) {
    const ReservedPort nobody;
    const std::string answer = "kavo: nobody answers on 127.0.0.1:" + text(nobody.number()) +
                               ": is the bench running, and is this its --control-port?\n";
    for (const char* word : {"pause", "settle"}) {
        const Verb unheard({"ctl", "--control-port", text(nobody.number()), word});
        EXPECT_EQ(unheard.status, 3);
        EXPECT_EQ(unheard.said, answer);
    }
    // Somebody has the port, and keeps silent.
    const FeedReader silent("127.0.0.1", nobody.number(), "127.0.0.1");
    const Verb unanswered({"ctl", "--control-port", text(nobody.number()), "pause"});
    EXPECT_EQ(unanswered.status, 3);
    EXPECT_EQ(unanswered.said, answer);
}

// The feed reorders each second datagram, so whenever the market is stopped one may be held; nothing is ever lost to a
// receiver once that has come out.
TEST(Ctl, SettlesTheFeedOfAMarketThatMoves) {
    const Ports ports;
    const Flags group = {"--mcast", "239.77.11.5", "--port", text(ports.feed.number())};
    Flags receiver = ports.book_without_service();
    receiver.insert(receiver.end(), {"--mcast", "239.77.11.5"});
    FeedTool tool(ports.feed, receiver);
    MovingVenue venue(ports.feed, ports.services,
                      {"--mcast", "239.77.11.5", "--reorder-every", "2", "--dup-every", "3"});
    venue.move_on(200);
    Flags words = ctl(ports, {"settle"});
    words.insert(words.end(), group.begin(), group.end());
    const Verb settled(words);
    EXPECT_EQ(settled.status, 0) << settled.said;
    const std::uint64_t next = venue.control.next_sequence();
    EXPECT_EQ(settled.said, text(next) + "\n");
    EXPECT_TRUE(venue.process.says("bench: paused at seq " + text(next - 1)));
    EXPECT_EQ(venue.process.stop(), 0);
    EXPECT_TRUE(tool.process.says("heartbeat, last message " + text(next - 1) + "\n"));
    const ShownBooks shown(tool.finish());
    EXPECT_TRUE(shown.remarks.empty()) << shown.remarks.front();
    ASSERT_EQ(shown.messages.size(), next - 1);
    shown.expect(venue.truth);
}

// Whoever listens to a feed that goes to one address takes it from the receiver, so this is done without.
TEST(Ctl, SettlesTheFeedOfAMarketThatStandsStillAndGoesToOneReceiver) {
    const Ports ports;
    const ReservedPort orders;
    FeedTool tool(ports.feed, {});
    MovingVenue venue(ports.feed, ports.services, {"--interval-ms", "-1", "--meo-port", text(orders.number())});
    EXPECT_EQ(venue.control.ask("reorder"), "ok reorder\n");
    WireClient client(orders.number());
    client.log_in(login("alice"));
    client.send(buy("b1").at("180.00"));
    EXPECT_NE(client.next_with(" P1 ").find(" P1 b1 "), std::string::npos);
    const std::uint64_t held = venue.control.next_sequence() - 1;
    EXPECT_TRUE(venue.process.says("kavo_me fault: "));

    Flags words = ctl(ports, {"settle", "--json", "--mcast", "127.0.0.1"});
    const Verb settled(words);
    EXPECT_EQ(settled.status, 0) << settled.said;
    const std::uint64_t next = venue.control.next_sequence();
    EXPECT_GT(next - 1, held);
    EXPECT_EQ(settled.said,
              "kavo: the market had made no step for two seconds; `rate 1` made it, and `rate -1` holds it now\n"
              "{\"next_seq\":" +
                  text(next) + "}\n");
    client.disconnect();
    EXPECT_EQ(venue.process.stop(), 0);
    // A heartbeat had given the held datagram away before it came.
    EXPECT_TRUE(tool.process.says("\n" + text(held) + " add "));
    EXPECT_TRUE(tool.process.says("heartbeat, last message " + text(next - 1) + "\n"));
    const ShownBooks shown(tool.finish());
    EXPECT_EQ(shown.remarks, std::vector{"gap: " + text(held) + " is missing"});
    EXPECT_EQ(std::set(shown.messages.begin(), shown.messages.end()).size(), next - 1);
}

TEST(Ctl, DoesNotSettleByTheFeedOfAnotherBench) {
    const Ports ports;
    const ReservedPort nobodys_feed;
    MovingVenue venue(ports.feed, ports.services);
    const Verb unsettled(ctl(ports, {"settle", "--mcast", "239.77.11.5", "--port", text(nobodys_feed.number())}));
    EXPECT_EQ(unsettled.status, 3);
    EXPECT_EQ(unsettled.said,
              "kavo: nothing is heard of the feed: give its --group, --port and --iface, as the bench has them\n");
    EXPECT_EQ(venue.process.stop(), 0);
}

}  // namespace
}  // namespace kavo::test
