// The client for the command line, beside the real program: it says everything that it hears, and goes when the venue
// does.
#include <fstream>

#include "kavo/system/moving_venue.h"
#include "kavo/system/terminal.h"

namespace kavo::test {
namespace {

// A client that reads these commands, one a line.
class Tool {
public:
    Tool(std::uint16_t port, const std::string& commands, const std::vector<std::string>& more = {}) {
        std::ofstream(commands_.path()) << commands;
        std::vector<std::string> flags = {"trade", "--port", std::to_string(port)};
        flags.insert(flags.end(), more.begin(), more.end());
        process.emplace("/bin/sh", overheard(KAVO_PATH, flags, commands_.path()));
    }

    // Everything that it has said until its end, but for heartbeats, which come when the machine is slow.
    std::string finish() {
        process->wait();
        std::istringstream said(process->said());
        std::string rest;
        for (std::string line; std::getline(said, line);) {
            if (line != "  <- heartbeat") rest += line + "\n";
        }
        return rest;
    }

private:
    TemporaryFile commands_;

public:
    std::optional<Process> process;
};

TEST(Trade, ShowsItsConversation) {
    LiveVenue venue;
    Tool tool(venue.port(), "buy b1 100 180.00\ncancel b1\n");
    EXPECT_EQ(tool.process->wait(), 0);
    EXPECT_EQ(tool.finish(),
              "  -> login demo\n"
              "  <- login accepted, engine 1, highest 0\n"
              "  <- 1: SN MEO2.7 session 1\n"
              "  <- 2: SU 1 AAPL Q\n"
              "  -> buy b1 100 180.00\n"
              "  <- 3: NR b1 accepted #1040 100@180\n"
              "  <- 4: O1 b1 #1040 buy 100@180 tif D type 1\n"
              "  <- 5: P1 b1 #1040 @180 behind\n"
              "  -> cancel b1\n"
              "  <- 6: CR xb1 of b1 accepted #1040\n"
              "  <- 7: XN b1 #1040 leaves 0 'U'\n"
              "  -> logout\n");
}

TEST(Trade, EndsWhenItIsNotLetIn) {
    LiveVenue venue;
    const User alice(venue, "alice");
    Tool twice(venue.port(), "buy b1 100 180.00\n", {"--user", "alice"});
    EXPECT_EQ(twice.process->wait(), 2);
    EXPECT_EQ(twice.process->said(),
              "  -> login alice\n"
              "  <- login rejected 'L', engine 1, highest 2\n"
              "kavo: the venue has not let alice in: client already logged in\n");

    // The venue would wait for a better login.
    Tool ahead(venue.port(), "buy b1 100 180.00\n", {"--user", "bob", "--from", "99"});
    EXPECT_EQ(ahead.process->wait(), 2);
    EXPECT_EQ(ahead.process->said(),
              "  -> login bob\n"
              "  <- login rejected 'N', engine 1, highest 0\n"
              "kavo: the venue has not let bob in: invalid start sequence number requested\n");
}

TEST(Trade, SendsNothingMoreWhenTheVenueHasClosedTheConnection) {
    FullVenue venue;
    EXPECT_EQ(venue.control.ask("disconnect"), "ok disconnect\n");  // behind the next request
    Tool tool(venue.port(), "buy b1 100 180.00\nbuy b2 100 180.00\nwait 20\nbuy b3 100 180.00\n");
    EXPECT_EQ(tool.process->wait(), 3);
    const std::string said = tool.process->said();
    EXPECT_NE(said.find("  -> buy b1 100 180.00\n  <- 3: NR b1 accepted"), std::string::npos) << said;
    EXPECT_EQ(said.find("buy b2"), std::string::npos) << said;
    EXPECT_TRUE(said.ends_with("kavo: the venue has closed the connection\n")) << said;
}

TEST(Trade, EndsWhileItWaitsWhenTheVenueStops) {
    LiveVenue venue;
    Tool tool(venue.port(), "wait 60\nbuy b1 100 180.00\n");
    EXPECT_TRUE(tool.process->says("SU 1 AAPL Q\n"));
    venue.stop();
    EXPECT_EQ(tool.process->wait(), 3);
    EXPECT_TRUE(tool.process->said().ends_with("\nkavo: the venue has closed the connection\n"));
    EXPECT_EQ(tool.process->said().find("buy"), std::string::npos);
}

TEST(Trade, SaysWhenNobodyListens) {
    const ReservedPort port;
    Tool tool(port.number(), "");
    EXPECT_EQ(tool.process->wait(), 3);
    EXPECT_EQ(tool.process->said(), "kavo: nobody listens on port " + std::to_string(port.number()) +
                                        ": start a bench with `kavo run`, and name its port of order entry with "
                                        "--port\n");
}

// The lines of one kind, one after the other, without times.
std::vector<std::string> told(const std::string& said, const std::string& event) {
    std::vector<std::string> all;
    for (auto line : json_lines(said)) {
        if (line.at("ev") != event || line.value("type", "") == "heartbeat") continue;
        for (const char* key : {"t", "ev", "timestamp_ns"}) line.erase(key);
        all.push_back(line.dump());
    }
    return all;
}

TEST(Trade, TellsItsConversationInJson) {
    LiveVenue venue;
    venue.empty_the_books();
    User bob(venue, "bob");
    bob.send(sell("s1").shares(30).at("180.00"));
    bob.next_with(" P1 ");
    Tool tool(venue.port(), "buy b1 100 180.00 AAPL\nbuy\nreplace b1 b2 120 179\ncancel b2\nquit\n",
              {"--json", "--user", "alice", "--mpid", "MINE", "--computer", "here"});
    EXPECT_EQ(tool.process->wait(), 0);
    const std::string said = tool.process->said();
    EXPECT_EQ(told(said, "sent"),
              (std::vector<std::string>{
                  R"({"from":0,"type":"login","user":"alice"})",
                  R"({"id":"b1","mpid":"MINE","price":180.0,"quantity":100,"side":"B","symbol":1,"type":"new"})",
                  R"({"id":"b2","mpid":"MINE","orig_id":"b1","price":179.0,"quantity":120,"type":"replace"})",
                  R"({"id":"xb2","mpid":"MINE","orig_id":"b2","symbol":1,"type":"cancel"})", R"({"type":"logout"})"}));
    EXPECT_EQ(told(said, "refused"), (std::vector<std::string>{R"({"line":"buy","reason":"no such command"})"}));
    EXPECT_EQ(
        told(said, "heard"),
        (std::vector<std::string>{
            R"({"accepted":true,"engine":1,"highest":0,"status":" ","text":"successful","type":"login_response"})",
            R"({"seq":1,"session":1,"type":"SN","version":"MEO2.7"})",
            R"({"listing_market":"Q","name":"AAPL","seq":2,"symbol":1,"type":"SU"})",
            R"({"accepted":true,"id":"b1","mpid":"MINE","order_id":1043,"price":180.0,"quantity":100,"seq":3,"symbol":1,"type":"NR"})",
            R"({"expire_time_ms":0,"id":"b1","mpid":"MINE","order_id":1043,"order_type":"1","price":180.0,"quantity":100,"seq":4,"side":"B","symbol":1,"tif":"D","type":"O1"})",
            R"({"execution_id":42,"id":"b1","liquidity":"removed","market":"C","match_number":41,"mpid":"MINE","price":180.0,"quantity":30,"seq":5,"side":"B","symbol":1,"type":"E1"})",
            R"({"at_touch":true,"id":"b1","order_id":1043,"price":180.0,"seq":6,"symbol":1,"type":"P1"})",
            R"({"accepted":true,"id":"b2","leaves":90,"mpid":"MINE","order_id":1043,"orig_id":"b1","price":179.0,"seq":7,"symbol":1,"type":"MR"})",
            R"({"id":"b2","leaves":90,"mpid":"MINE","order_id":1043,"orig_id":"b1","price":179.0,"quantity":120,"seq":8,"symbol":1,"tif":"D","type":"MN"})",
            R"({"accepted":true,"id":"xb2","mpid":"MINE","order_id":1043,"orig_id":"b2","seq":9,"symbol":1,"type":"CR"})",
            R"({"id":"b2","leaves":0,"mpid":"MINE","order_id":1043,"reason":"U","seq":10,"symbol":1,"type":"XN"})"}));
}

TEST(Trade, TakesItsPortFromABenchAndNamesForSymbols) {
    LiveVenue venue({"--symbols", "AAPL:190.00,MSFT:410.00"});
    const TemporaryFile commands;
    std::ofstream(commands.path()) << "buy b1 100 400.00\nbuy b2 100 180.00 AAPL\nbuy b3 100 1 IBM";
    Process process("/bin/sh", overheard(KAVO_PATH, {"trade", "--symbol", "MSFT"}, commands.path()),
                    {{"KAVO_ORDERS", "127.0.0.1:" + std::to_string(venue.port())}});
    EXPECT_EQ(process.wait(), 0);
    const std::string said = process.said();
    EXPECT_NE(said.find("NR b1 accepted #1080 100@400\n"), std::string::npos) << said;
    EXPECT_NE(said.find("NR b2 accepted #1081 100@180\n"), std::string::npos) << said;
    EXPECT_NE(said.find("  -> buy b3 100 1 IBM\nno symbol IBM has been told so far: "), std::string::npos) << said;
    EXPECT_NE(venue.truth().find(R"("cl":"b1","oid":1080,"symbol":"MSFT")"), std::string::npos) << venue.truth();
}

// What arrives while somebody types goes above the line, and the line is still there.
TEST(Trade, KeepsTheLineThatIsTypedOnATerminal) {
    LiveVenue venue;
    venue.empty_the_books();
    Terminal terminal({KAVO_PATH, "trade", "--port", std::to_string(venue.port()), "--user", "alice"});
    EXPECT_TRUE(terminal.shows("alice> "));
    terminal.type("buy b1 100 180.00\r");
    EXPECT_TRUE(terminal.shows("  <- 5: P1 b1 #1042 @180 touch"));
    EXPECT_TRUE(terminal.shows("alice> "));
    terminal.type("canc");
    EXPECT_TRUE(terminal.shows("canc"));
    User bob(venue, "bob");
    bob.send(sell("s1").shares(30).at("180.00"));
    EXPECT_TRUE(terminal.shows("\r\x1b[J  <- 6: E1 b1 30@180 buy added "));
    EXPECT_TRUE(terminal.shows("alice> canc"));
    terminal.type("el b1\r");
    EXPECT_TRUE(terminal.shows("  <- 7: CR xb1 of b1 accepted #1042")) << terminal.shown();
    terminal.type("\x1b[A\r");  // the same line again
    EXPECT_TRUE(terminal.shows("  -> cancel b1\r\n")) << terminal.shown();
    EXPECT_TRUE(terminal.shows("CR xb1 of b1 rejected 'D'")) << terminal.shown();
    terminal.type("\x04");
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_NE(terminal.shown().find("  -> logout\r\n"), std::string::npos);
}

TEST(Trade, LeavesTheTerminalWhenTheVenueStops) {
    LiveVenue venue;
    Terminal terminal({KAVO_PATH, "trade", "--port", std::to_string(venue.port())});
    EXPECT_TRUE(terminal.shows("demo> "));
    terminal.type("buy b1 1");
    EXPECT_TRUE(terminal.shows("buy b1 1"));
    venue.stop();
    EXPECT_EQ(terminal.wait(), 3);
    EXPECT_NE(terminal.shown().find("kavo: the venue has closed the connection"), std::string::npos);
}

}  // namespace
}  // namespace kavo::test
