// The receiver for the command line, beside the real program: the books that it shows are the true ones, and what it
// cannot know it does not show.
#include <optional>
#include <set>

#include "feed/dom_feed.h"
#include "feed/dom_messages.h"
#include "feed/multicast_sender.h"
#include "system/full_venue.h"
#include "system/shown_books.h"

namespace kavo::test {
namespace {

using Flags = std::vector<std::string>;

std::string text(std::uint64_t number) {
    return std::to_string(number);
}

// `kavo feed` on the feed that goes to a port of 127.0.0.1.
class Tool {
public:
    Tool(const ReservedPort& feed, const Flags& more) : process("/bin/sh", command(feed, more)) {
        EXPECT_TRUE(process.catches(SIGTERM)) << process.said();
    }

    // Waits until it has shown this message.
    void shows(std::uint64_t message) {
        EXPECT_TRUE(process.says("\n" + text(message) + " ")) << message << " in " << process.said();
    }
    // Ends it in good order; everything that it has printed.
    std::string finish() {
        process.signal(SIGTERM);
        EXPECT_EQ(process.wait(), 0);
        return process.said();
    }

    Process process;

private:
    static Flags command(const ReservedPort& feed, const Flags& more) {
        Flags flags = {"feed", "--mcast", "127.0.0.1", "--port", text(feed.number())};
        flags.insert(flags.end(), more.begin(), more.end());
        return overheard(KAVO_PATH, flags);
    }
};

// The simulator with a market that moves every few milliseconds, and nobody on its feed.
class MovingVenue {
public:
    MovingVenue(const ReservedPort& feed, const ServicePorts& services, const Flags& more = {})
        : process(KAVO_ME_PATH, flags(feed, services, more)), control(services.control.number()) {
        EXPECT_TRUE(process.catches(SIGTERM)) << process.said();
    }

    void move_on(std::uint64_t messages) {
        for (const std::uint64_t end = control.next_sequence() + messages; control.next_sequence() < end;) {
            process.said();  // or its pipe fills up
        }
    }
    // The market stands still from here on; the number of its last message.
    std::uint64_t pause() {
        EXPECT_EQ(control.ask("pause"), "ok pause\n");
        return control.next_sequence() - 1;
    }

    const TemporaryFile truth;

private:
    Flags flags(const ReservedPort& feed, const ServicePorts& services, const Flags& more) const {
        Flags all =
            services.flags({"--mcast", "127.0.0.1", "--port", text(feed.number()), "--meo-port", text(meo_.number()),
                            "--symbols", "AAPL:190.00,MSFT:410.00", "--interval-ms", "5", "--truth-out", truth.path()});
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    ReservedPort meo_;

public:
    Process process;
    ControlClient control;
};

struct Ports {
    ReservedPort feed;
    ServicePorts services;

    Flags book() const { return {"--book", "--retrans-port", text(services.retransmission.number())}; }
    Flags book_without_service() const { return {"--book", "--retrans-port", "0"}; }
};

void expect_consecutive(const std::vector<std::uint64_t>& messages) {
    for (std::size_t i = 1; i < messages.size(); ++i) EXPECT_EQ(messages[i], messages[i - 1] + 1);
}

TEST(Feed, ThatComesLateShowsTheTrueBooksFromARefreshOn) {
    const Ports ports;
    MovingVenue venue(ports.feed, ports.services);
    venue.move_on(300);
    Tool tool(ports.feed, ports.book());
    EXPECT_TRUE(tool.process.says("--- refresh: the books as of message "));
    venue.move_on(300);
    tool.shows(venue.pause());
    EXPECT_EQ(venue.process.stop(), 0);

    const ShownBooks shown(tool.finish());
    shown.expect(venue.truth);
    expect_consecutive(shown.messages);
    EXPECT_EQ(shown.refreshed.size(), 1U);
    EXPECT_EQ(shown.remarks.size(), 1U);
    EXPECT_EQ(shown.messages.front(), shown.refreshed.begin()->first + 1);
    EXPECT_GT(shown.messages.size(), 200U);
}

TEST(Feed, MarksWhatIsMissingAndFetchesIt) {
    const Ports ports;
    MovingVenue venue(ports.feed, ports.services, {"--drop-every", "4", "--dup-every", "3", "--reorder-every", "5"});
    Tool tool(ports.feed, ports.book());
    EXPECT_TRUE(tool.process.says("--- refresh: the books as of message "));
    venue.move_on(300);
    tool.shows(venue.pause());
    EXPECT_EQ(venue.process.stop(), 0);

    const std::string said = tool.finish();
    const ShownBooks shown(said);
    shown.expect(venue.truth);
    expect_consecutive(shown.messages);
    EXPECT_EQ(shown.refreshed.size(), 1U);
    EXPECT_NE(said.find("\n--- gap: "), std::string::npos);
    EXPECT_NE(said.find(" (fetched again)\n"), std::string::npos);
    EXPECT_EQ(said.find("out of order"), std::string::npos);
}

TEST(Feed, KnowsTheBooksOfADayThatItHasSeenFromTheStart) {
    const Ports ports;
    Tool tool(ports.feed, ports.book_without_service());
    MovingVenue venue(ports.feed, ports.services);
    venue.move_on(300);
    tool.shows(venue.pause());
    EXPECT_EQ(venue.process.stop(), 0);

    const std::string said = tool.finish();
    EXPECT_TRUE(said.starts_with("start of session 1\n")) << said.substr(0, 100);
    const ShownBooks shown(said);
    shown.expect(venue.truth);
    expect_consecutive(shown.messages);
    EXPECT_EQ(shown.messages.front(), 1U);
    EXPECT_EQ(shown.remarks.size(), 0U);
}

TEST(Feed, ShowsNoBookThatItCannotKnow) {
    const Ports ports;
    const ReservedPort nobody;
    MovingVenue venue(ports.feed, ports.services);
    for (const auto& [service, reason] :
         {std::pair{std::string("0"), std::string("without a service they are known from message 1 on only")},
          {text(nobody.number()), "nobody listens on port " + text(nobody.number())}}) {
        Tool tool(ports.feed, {"--book", "--retrans-port", service});
        EXPECT_TRUE(tool.process.says("--- no books: "));
        venue.move_on(300);
        tool.shows(venue.pause());
        const ShownBooks shown(tool.finish());
        EXPECT_EQ(shown.remarks, std::vector{"no books: " + reason});
        EXPECT_EQ(shown.books.size(), 0U);
        expect_consecutive(shown.messages);
        EXPECT_EQ(venue.control.ask("resume"), "ok resume\n");
    }
    EXPECT_EQ(venue.process.stop(), 0);
}

TEST(Feed, ShowsNoBookBehindAGapThatItCannotFill) {
    const Ports ports;
    Tool tool(ports.feed, ports.book_without_service());
    MovingVenue venue(ports.feed, ports.services, {"--drop-burst", "20:2"});
    venue.move_on(300);
    tool.shows(venue.pause());
    EXPECT_EQ(venue.process.stop(), 0);

    ShownBooks shown(tool.finish());
    ASSERT_EQ(shown.remarks.size(), 2U);
    EXPECT_EQ(shown.remarks[1], "no books: without a service they are known from message 1 on only");
    const std::uint64_t first_missing = number_behind("gap: ", shown.remarks[0]);
    EXPECT_EQ(std::count(shown.messages.begin(), shown.messages.end(), first_missing - 1), 1);
    EXPECT_EQ(std::count(shown.messages.begin(), shown.messages.end(), first_missing), 0);
    std::erase_if(shown.messages, [&](std::uint64_t message) { return message >= first_missing; });
    shown.expect(venue.truth);
}

TEST(Feed, BeginsAnewWithTheNextProcess) {
    const Ports ports;
    std::optional<MovingVenue> venue(std::in_place, ports.feed, ports.services);
    venue->move_on(300);
    Tool tool(ports.feed, ports.book());
    EXPECT_TRUE(tool.process.says("--- refresh: the books as of message "));
    EXPECT_EQ(venue->process.stop(), 0);
    venue.emplace(ports.feed, ports.services);
    EXPECT_TRUE(tool.process.says("start of session 1\n1 "));
    const std::size_t start = tool.process.said().find("start of session 1\n1 ");
    venue->move_on(300);
    tool.shows(venue->pause());
    EXPECT_EQ(venue->process.stop(), 0);

    const ShownBooks shown(tool.finish().substr(start));
    shown.expect(venue->truth);
    expect_consecutive(shown.messages);
    EXPECT_EQ(shown.messages.front(), 1U);
}

TEST(Feed, TakesNoBookFromAnotherSimulator) {
    const Ports ports;
    const Ports others;
    MovingVenue venue(ports.feed, ports.services);
    MovingVenue other(others.feed, others.services, {"--seed", "7"});
    other.move_on(300);
    const std::string service = text(others.services.retransmission.number());
    const std::string reason = "no books: the service on port " + service + " serves another feed";
    Tool late(ports.feed, {"--book", "--retrans-port", service});
    EXPECT_TRUE(late.process.says("--- " + reason));
    const ShownBooks shown(late.finish());
    EXPECT_EQ(shown.books.size(), 0U);
    EXPECT_EQ(shown.refreshed.size(), 0U);
    EXPECT_EQ(venue.process.stop(), 0);

    // One that has seen the start knows the books until it has missed something.
    Tool punctual(ports.feed, {"--book", "--retrans-port", service});
    MovingVenue next(ports.feed, ports.services, {"--drop-burst", "20"});
    EXPECT_TRUE(punctual.process.says("--- " + reason));
    EXPECT_EQ(next.process.stop(), 0);
    ShownBooks before(punctual.finish());
    EXPECT_EQ(before.refreshed.size(), 0U);
    const std::uint64_t first_missing = number_behind("gap: ", before.remarks[0]);
    std::erase_if(before.messages, [&](std::uint64_t message) { return message >= first_missing; });
    EXPECT_GT(before.books.size(), 80U);
    before.expect(next.truth);
    EXPECT_EQ(other.process.stop(), 0);
}

TEST(Feed, WithoutBooksShowsWhatArrivesAndMarksWhatDoesNot) {
    const Ports ports;
    Tool tool(ports.feed, {});
    MovingVenue venue(ports.feed, ports.services, {"--drop-every", "4", "--reorder-every", "6"});
    venue.move_on(300);
    EXPECT_TRUE(tool.process.says("heartbeat, last message " + text(venue.pause())));
    EXPECT_EQ(venue.process.stop(), 0);

    const std::string said = tool.finish();
    EXPECT_NE(said.find(" (out of order)\n"), std::string::npos);
    const ShownBooks shown(said);
    EXPECT_EQ(shown.books.size(), 0U);
    // Every number is shown, marked as missing, or both, when it comes late.
    std::set<std::uint64_t> known(shown.messages.begin(), shown.messages.end());
    EXPECT_LT(known.size(), *known.rbegin());
    for (const std::string& remark : shown.remarks) {
        const std::uint64_t first = number_behind("gap: ", remark);
        const std::uint64_t last = remark.find("..") == std::string::npos ? first : number_behind("..", remark);
        for (std::uint64_t number = first; number <= last; ++number) known.insert(number);
    }
    EXPECT_EQ(known.size(), *known.rbegin());
}

TEST(Feed, SaysWhatMayBeTheMatterWhenNothingIsHeard) {
    const Ports ports;
    Tool tool(ports.feed, {});
    EXPECT_TRUE(tool.process.says("--- silence: "));
    EXPECT_EQ(ShownBooks(tool.finish()).remarks.size(), 1U);
}

// A simulator that nobody has heard starting.
class UnheardStart {
public:
    explicit UnheardStart(const ReservedPort& port)
        : sender_("127.0.0.1", port.number(), "127.0.0.1"),
          feed_(
              1, clock_, [this](ByteView datagram) { sender_.send(datagram); }, commentary_) {}

    void add(std::uint64_t order, WirePrice price) {
        dom::AddOrder record;
        record.secid = 1;
        record.order_id = order;
        record.price = price;
        record.quantity = 100;
        feed_.publish(dom::build(record));
        feed_.flush();
    }
    void send_heartbeat() {
        clock_.advance_ms(DomFeed::heartbeat_after_ms);
        feed_.heartbeat_when_idle();
    }

private:
    static Clock standing_clock() {
        Clock clock;
        clock.stand_at(0, 0);
        return clock;
    }

    Clock clock_ = standing_clock();
    Commentary commentary_;
    MulticastSender sender_;
    DomFeed feed_;
};

const std::string two_orders =
    "1 add 1 #1000 B 100@190\n"
    "      100@190 |\n"
    "2 add 1 #1001 B 100@189\n"
    "      100@189 100@190 |\n";

// A simulator has published them, its start unheard, and the tool has shown them; then another one begins.
struct AfterTwoOrders {
    AfterTwoOrders() {
        UnheardStart first(ports.feed);
        first.add(1000, 190'000'000);
        first.add(1001, 189'000'000);
        tool.shows(2);
    }
    const Ports ports;
    Tool tool{ports.feed, ports.book_without_service()};
};

TEST(Feed, BeginsAnewWhenANumberStandsForAnotherMessage) {
    AfterTwoOrders scene;
    UnheardStart second(scene.ports.feed);
    second.add(2000, 50'000'000);
    EXPECT_TRUE(scene.tool.process.says("#2000"));
    EXPECT_EQ(scene.tool.finish(), two_orders +
                                       "--- the numbers have fallen back: the simulator has begun again\n"
                                       "1 add 1 #2000 B 100@50\n"
                                       "      100@50 |\n");
}

TEST(Feed, ForgetsItsBooksWhenAHeartbeatFallsBack) {
    AfterTwoOrders scene;
    UnheardStart second(scene.ports.feed);
    second.send_heartbeat();
    EXPECT_TRUE(scene.tool.process.says("heartbeat"));
    EXPECT_EQ(scene.tool.finish(), two_orders +
                                       "--- the numbers have fallen back: the simulator has begun again\n"
                                       "--- no books: without a service they are known from message 1 on only\n"
                                       "heartbeat, last message 0\n");
}

}  // namespace
}  // namespace kavo::test
