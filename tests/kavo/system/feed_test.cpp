// The receiver for the command line, beside the real program: the books that it shows are the true ones, and what it
// cannot know it does not show.
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>

#include "feed/dom_feed.h"
#include "feed/dom_messages.h"
#include "feed/multicast_sender.h"
#include "kavo/basics/folder.h"
#include "kavo/system/moving_venue.h"
#include "kavo/wire/recording.h"

namespace kavo::test {
namespace {

void expect_consecutive(const std::vector<std::uint64_t>& messages) {
    for (std::size_t i = 1; i < messages.size(); ++i) EXPECT_EQ(messages[i], messages[i - 1] + 1);
}

TEST(Feed, ThatComesLateShowsTheTrueBooksFromARefreshOn) {
    const Ports ports;
    MovingVenue venue(ports.feed, ports.services);
    venue.move_on(300);
    FeedTool tool(ports.feed, ports.book());
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
    FeedTool tool(ports.feed, ports.book());
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
    FeedTool tool(ports.feed, ports.book_without_service());
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
        FeedTool tool(ports.feed, {"--book", "--retrans-port", service});
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
    FeedTool tool(ports.feed, ports.book_without_service());
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
    FeedTool tool(ports.feed, ports.book());
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
    FeedTool late(ports.feed, {"--book", "--retrans-port", service});
    EXPECT_TRUE(late.process.says("--- " + reason));
    const ShownBooks shown(late.finish());
    EXPECT_EQ(shown.books.size(), 0U);
    EXPECT_EQ(shown.refreshed.size(), 0U);
    EXPECT_EQ(venue.process.stop(), 0);

    // One that has seen the start knows the books until it has missed something.
    FeedTool punctual(ports.feed, {"--book", "--retrans-port", service});
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
    FeedTool tool(ports.feed, {});
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
    FeedTool tool(ports.feed, {});
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
    FeedTool tool{ports.feed, ports.book_without_service()};
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

TEST(Feed, TellsTheSameInJson) {
    const Ports ports;
    MovingVenue venue(ports.feed, ports.services, {"--drop-every", "4"});
    Flags flags = ports.book();
    flags.push_back("--json");
    FeedTool tool(ports.feed, flags);
    EXPECT_TRUE(tool.process.says("\"ev\":\"refresh\""));
    venue.move_on(300);
    EXPECT_TRUE(tool.process.says("\"seq\":" + text(venue.pause()) + ","));
    EXPECT_EQ(venue.process.stop(), 0);

    std::map<std::uint64_t, nlohmann::json> truth;
    for (const std::string& line : venue.truth.lines()) {
        const auto book = nlohmann::json::parse(line);
        truth[book.at("seq")] = book;
    }
    std::vector<std::uint64_t> messages;
    std::map<std::string, int> heard;
    std::uint64_t latest_t = 0;
    for (const auto& line : json_lines(tool.finish())) {
        ++heard[line.at("ev")];
        EXPECT_GE(line.at("t"), latest_t);
        latest_t = line.at("t");
        if (line.contains("note")) ++heard[line.at("note")];
        if (line.contains("seq") && line.at("ev") != "book") messages.push_back(line.at("seq"));
        if (line.at("ev") != "book" || messages.empty()) continue;
        const auto& book = truth.at(line.at("seq"));
        EXPECT_EQ(line.at("seq"), messages.back());
        EXPECT_EQ(line.at("symbol"), book.at("symbol"));
        EXPECT_EQ(line.at("bids"), book.at("bid"));
        EXPECT_EQ(line.at("asks"), book.at("ask"));
    }
    expect_consecutive(messages);
    for (const char* event : {"refresh", "book", "add", "delete", "executed", "gap", "fetched again"}) {
        EXPECT_GT(heard[event], 0) << event;
    }
    EXPECT_EQ(heard["no_books"], 0);
}

TEST(Feed, EndsWhenItHasShownWhatWasAskedFor) {
    const Ports ports;
    MovingVenue venue(ports.feed, ports.services);
    const std::uint64_t from = venue.pause() + 20;
    Flags some = ports.book();
    some.insert(some.end(), {"--from", text(from), "--count", "3"});
    FeedTool tool(ports.feed, some);
    EXPECT_TRUE(tool.process.says("--- refresh: "));
    EXPECT_EQ(venue.control.ask("resume"), "ok resume\n");
    EXPECT_EQ(tool.process.wait(), 0);
    const ShownBooks shown(tool.process.said());
    EXPECT_EQ(shown.messages, (std::vector{from, from + 1, from + 2})) << tool.process.said();

    // The environment of a bench says where, and the time ends it.
    const Verb soon({"feed", "--seconds", "0.2"},
                    {{"KAVO_FEED", "127.0.0.1:" + text(ports.feed.number())}, {"KAVO_IFACE", "127.0.0.1"}});
    EXPECT_EQ(soon.status, 0);
    EXPECT_GT(ShownBooks(soon.said).messages.size(), 0U);
    EXPECT_EQ(venue.process.stop(), 0);
}

TEST(Feed, SaysWhereItCannotListen) {
    const Verb nowhere({"feed", "--group", "192.0.2.1", "--port", "1"});
    EXPECT_EQ(nowhere.status, 3);
    EXPECT_TRUE(nowhere.said.starts_with("kavo: cannot listen on 192.0.2.1:1: ")) << nowhere.said;
    const Verb nobody({"feed"}, {{"KAVO_FEED", "here"}});
    EXPECT_EQ(nobody.status, 2);
    EXPECT_EQ(nobody.said,
              "kavo: the environment has KAVO_FEED=here, which is no ADDRESS:PORT: unset it, or correct it\n");
}

// A feed of one product in a recording: each datagram has one message, and comes a millisecond behind the one before.
class RecordedFeed {
public:
    static constexpr std::uint32_t group = 0xef0a0b0c;  // 239.10.11.12
    static constexpr std::uint16_t port = 4000;

    explicit RecordedFeed(const std::string& file) : recording_(file) {}

    void add(std::uint64_t sequence, WirePrice price) {
        dom::AddOrder record;
        record.secid = 1;
        record.order_id = 999 + sequence;
        record.price = price;
        record.quantity = 100;
        const auto message = dom::build(record);
        const auto length = static_cast<std::uint16_t>(mach::layout::header_size + message.size());
        const auto header = mach::build(
            {.sequence = sequence, .length = length, .type = mach::PacketType::application_data, .session = 1});
        Bytes datagram(header.begin(), header.end());
        datagram.insert(datagram.end(), message.begin(), message.end());
        send(datagram);
    }
    void start() { send(mach::build({.type = mach::PacketType::start, .session = 1})); }
    void send(ByteView datagram, std::uint16_t to_port = port) {
        recording_.datagram(now_ns_ += 1'000'000, group, to_port, datagram);
    }
    void save() { EXPECT_TRUE(recording_.flush()); }

private:
    companion::Recording recording_;
    std::uint64_t now_ns_ = 1'700'000'000'000'000'000;
};

TEST(Feed, OfARecordingIsShownLikeALiveOne) {
    const TemporaryFolder folder;
    const std::string file = folder.path("wire.pcapng");
    RecordedFeed feed(file);
    feed.send(Bytes{'s', 't', 'a', 't', 's'}, 4003);  // of no feed
    feed.start();
    feed.add(1, 190'000'000);
    feed.add(3, 188'000'000);  // overtakes
    feed.add(2, 189'000'000);
    feed.add(5, 187'000'000);  // and behind a gap that nobody fills
    feed.save();
    const std::string books =
        "start of session 1\n"
        "1 add 1 #1000 B 100@190\n"
        "      100@190 |\n"
        "2 add 1 #1001 B 100@189\n"
        "      100@189 100@190 |\n"
        "3 add 1 #1002 B 100@188\n"
        "      100@188 100@189 100@190 |\n"
        "--- gap: 4 is missing\n"
        "--- no books: without a service they are known from message 1 on only\n"
        "5 add 1 #1004 B 100@187\n";
    const Verb shown({"feed", "--book", file});
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.said, books);
    EXPECT_EQ(Verb({"feed", "--book", folder.path("")}).said, books);
    EXPECT_EQ(Verb({"feed", file}).said,
              "start of session 1\n"
              "1 add 1 #1000 B 100@190\n"
              "--- gap: 2 is missing\n"
              "3 add 1 #1002 B 100@188\n"
              "2 add 1 #1001 B 100@189 (out of order)\n"
              "--- gap: 4 is missing\n"
              "5 add 1 #1004 B 100@187\n");
    const auto first = json_lines(Verb({"feed", "--json", "--count", "1", file}).said).at(1);
    EXPECT_EQ(first.at("t"), 1'700'000'000'003'000'000U);
    EXPECT_EQ(first.at("price"), 190.0);
}

TEST(Feed, OfARecordingIsTheOneThatTheBenchNamesOrTheCommandLine) {
    const TemporaryFolder folder;
    const std::string file = folder.path("wire.pcapng");
    RecordedFeed feed(file);
    const auto other = mach::build({.sequence = 77, .session = 2});
    feed.send(other, 4444);
    feed.start();
    feed.save();
    EXPECT_EQ(Verb({"feed", file}).said, "heartbeat, last message 77\n");
    EXPECT_EQ(Verb({"feed", file, "--port", "4000"}).said, "start of session 1\n");
    EXPECT_EQ(Verb({"feed", file, "--group", "239.1.1.1"}).status, 2);
    companion::BenchFacts facts;
    facts.group = "239.10.11.12";
    facts.feed_port = RecordedFeed::port;
    facts.interface_address = "127.0.0.1";
    companion::write_facts(facts, folder.path("bench.json"));
    EXPECT_EQ(Verb({"feed", folder.path("")}).said, "start of session 1\n");
}

TEST(Feed, OfARecordingThatIsCutShortIsShownAsFarAsItGoes) {
    const TemporaryFolder folder;
    const std::string file = folder.path("cut.pcapng");
    RecordedFeed feed(file);
    feed.start();
    feed.add(1, 190'000'000);
    feed.save();
    std::filesystem::resize_file(file, std::filesystem::file_size(file) - 10);
    const Verb cut({"feed", file});
    EXPECT_EQ(cut.status, 4);
    EXPECT_EQ(cut.said,
              "start of session 1\nkavo: " + file + " ends in the middle of a packet: what was whole was shown\n");
    EXPECT_EQ(Verb({"feed", folder.path("none.pcapng")}).status, 2);
}

}  // namespace
}  // namespace kavo::test
