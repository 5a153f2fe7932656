// A venue that stands still because nobody reads its standard error: when somebody does again, its clients have had
// nothing from it for a while, but it has had their heartbeats, and drops none of them.
#include <deque>

#include "soak/bystanders.h"

namespace kavo::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds standstill{4500};
constexpr milliseconds stands_still_after{300};  // without an answer
constexpr int most_talk = 10'000;

// Each is worth some of the commentary, and true when the venue has answered.
using Talk = bool (*)(const Stage& stage, int number);

bool mark(const Stage& stage, int number) {
    stage.control.send("mark " + std::string(400, 'm') + std::to_string(number));
    return stage.control.next_reply(stands_still_after) != "silence";
}

bool visit(const Stage& stage, int number) {
    Peer visitor(stage.port());
    const Bytes payload = login("v" + std::to_string(number)).payload();
    visitor.pour(esesm::build_packet(esesm::PacketType::login_request, payload));
    return visitor.next_packet(stands_still_after).has_value();
}

// The clients send a heartbeat every 250 ms to every second.
void expect_nobody_to_be_dropped(Talk talk) {
    Stage stage(Stage::Flags{}, heard);
    std::deque<QuietUser> users;
    for (int i = 0; i < 12; ++i) {
        users.emplace_back(stage.port(), "u" + std::to_string(i), milliseconds(250) * (1 + i % 4));
    }
    stage.process.said();
    int talked = 0;
    while (talk(stage, talked++) && talked < most_talk) {
        for (QuietUser& user : users) user.live();
    }
    ASSERT_LT(talked, most_talk) << "the venue never stands still";
    live_for(standstill, users);

    const auto end = steady_clock::now() + seconds(2);
    while (steady_clock::now() < end) {
        stage.process.said();
        live_for(milliseconds(10), users);
    }
    report("clients", users.size());
    report("of which are dropped", dropped(users));
    report("silence of the venue", in_ms(longest_silence(users)) / 1000, "s");
    EXPECT_EQ(dropped(users), 0u);
    EXPECT_GE(longest_silence(users), standstill);
    EXPECT_EQ(stage.process.said().find("timed out"), std::string::npos);
    Trader(stage.port()).trade();
    stage.stop();
}

TEST(Standstill, InTheMiddleOfCommandsDropsNobody) {
    expect_nobody_to_be_dropped(mark);
}

TEST(Standstill, InTheMiddleOfLoginsDropsNobody) {
    expect_nobody_to_be_dropped(visit);
}

}  // namespace
}  // namespace kavo::test
