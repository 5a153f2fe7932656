// The client for the command line, beside the real program: it says everything that it hears, and goes when the venue
// does.
#include <fstream>

#include "system/full_venue.h"
#include "system/shown_books.h"

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

}  // namespace
}  // namespace kavo::test
