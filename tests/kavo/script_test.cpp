#include "kavo/scene/script.h"

#include <gtest/gtest.h>

#include "client/requests.h"
#include "kavo/basics/problem.h"
#include "kavo/scene/sightings.h"
#include "session/esesm.h"

namespace kavo::companion {
namespace {

using namespace std::chrono_literals;
using Trigger = ScriptStep::Trigger;
using EventKind = SceneEvent::Kind;

// What is wrong with a script, in the words of the refusal; empty when nothing is.
std::string refusal(std::string_view text) {
    try {
        read_script(text);
        return "";
    } catch (const Problem& problem) {
        EXPECT_EQ(problem.status, Status::usage);
        return problem.what();
    }
}

TEST(Script, IsReadStepByStepWithItsLines) {
    const auto steps = read_script(
        "# a rough day\n"
        "\n"
        "at 1.5s: control drop 1     # the second datagram\n"
        "when c01 rests b:1: house take 300 of it\n"
        "whenever c01 cancels any: control fill_on_cancel 1\n"
        "after 200ms: relay c01 orders down latency 20ms\r\n"
        "note half time\n");
    ASSERT_EQ(steps.size(), 5u);
    EXPECT_EQ(steps[0].line, 3u);
    EXPECT_EQ(steps[0].trigger, Trigger::at);
    EXPECT_EQ(steps[0].time, 1500ms);
    EXPECT_EQ(steps[0].action, (std::vector<std::string>{"control", "drop", "1"}));
    EXPECT_EQ(steps[1].trigger, Trigger::when);
    EXPECT_EQ(steps[1].event.kind, EventKind::rests);
    EXPECT_EQ(steps[1].event.user, "c01");
    EXPECT_EQ(steps[1].event.order, "b:1");
    EXPECT_EQ(steps[2].trigger, Trigger::whenever);
    EXPECT_EQ(steps[3].trigger, Trigger::after);
    EXPECT_EQ(steps[3].action.back(), "20ms");
    EXPECT_EQ(steps[4].trigger, Trigger::at_once);
    EXPECT_EQ(steps[4].line, 7u);
}

TEST(Script, RefusesWhatItDoesNotKnowAndSaysWhere) {
    EXPECT_EQ(refusal("note a\ncontrol"),
              "line 2 of the script: no such action 'control'; these are known: control WORD..., "
              "house ..., relay ..., note TEXT");
    EXPECT_EQ(refusal("at 5: note"), "line 1 of the script: '5' is no time: write 200ms or 1.5s");
    EXPECT_EQ(refusal("at -1s: note"), "line 1 of the script: '-1s' is no time: write 200ms or 1.5s");
    EXPECT_EQ(refusal("after 1s"),
              "line 1 of the script: a trigger ends with a colon and a blank, and then the action follows");
    EXPECT_NE(refusal("when c01 sleeps: note").find("no such event"), std::string::npos);
    EXPECT_NE(refusal("when c01 rests: note").find("no such event"), std::string::npos);
    EXPECT_NE(refusal("house buy h1 many 1.00 AAPL").find("no whole number"), std::string::npos);
    EXPECT_NE(refusal("house buy h1 100 cheap AAPL").find("'cheap' is no price"), std::string::npos);
    EXPECT_NE(refusal("house buy h1 100 1.00 AAPL gtc").find("ioc, fok, post"), std::string::npos);
    EXPECT_NE(refusal("house waits").find("the house can"), std::string::npos);
    EXPECT_NE(refusal("relay c01 feed cut").find("the relay can"), std::string::npos);
    EXPECT_NE(refusal("relay c01 orders latency").find("the relay can"), std::string::npos);
}

// Each event of a trigger is told of by the packet in which it shows.
TEST(Sightings, TellOfWhatPassesTheRelay) {
    Sightings sightings;
    std::vector<std::pair<EventKind, std::string>> told;
    sightings.on_event = [&](const SceneEvent& event) {
        EXPECT_EQ(event.user, "c01");
        told.emplace_back(event.kind, event.order);
    };
    const auto asks = [&](const Bytes& message) {
        sightings.see("c01", true, esesm::build_packet(esesm::PacketType::unsequenced_data, message));
    };
    asks(client::buy("b1").bytes());
    asks(client::cancel("b1").bytes());
    asks(client::replace("b1", "b2").bytes());
    sightings.see("c01", true, esesm::build_packet(esesm::PacketType::client_heartbeat, {}));
    sightings.see("c01", true, esesm::build_packet(esesm::PacketType::logout_request, {}));
    sightings.see("c01", false, esesm::build(esesm::LoginResponse{{{esesm::LoginStatus::successful, 1, 0}}}));
    sightings.see("c01", false, esesm::build(esesm::LoginResponse{{{esesm::LoginStatus::already_logged_in, 1, 0}}}));
    EXPECT_EQ(told, (std::vector<std::pair<EventKind, std::string>>{{EventKind::enters, "b1"},
                                                                    {EventKind::cancels, "b1"},
                                                                    {EventKind::replaces, "b1"},
                                                                    {EventKind::leaves, ""},
                                                                    {EventKind::logs_in, ""}}));
    EXPECT_TRUE(sightings.has_seen({EventKind::enters, "c01", "any"}));
    EXPECT_TRUE(sightings.has_seen({EventKind::enters, "c01", "b1"}));
    EXPECT_FALSE(sightings.has_seen({EventKind::enters, "c01", "b2"}));
    EXPECT_FALSE(sightings.has_seen({EventKind::enters, "c02", "b1"}));
    EXPECT_FALSE(sightings.order("b1"));  // asked for, and not yet confirmed
}

}  // namespace
}  // namespace kavo::companion
