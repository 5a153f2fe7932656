// The first sight of the program: right whenever it is started, and nothing of it stays behind.
#include <filesystem>
#include <fstream>

#include "common/socket.h"
#include "support/said.h"
#include "system/full_venue.h"
#include "system/shown_books.h"

namespace kavo::test {
namespace {

using Flags = std::vector<std::string>;

constexpr const char* demo = KAVO_TOOLS_DIR "/demo";
const LiveVenue::Environment quickly = {{"KAVO_DEMO_SECOND", "0.1"}};

// The arguments of bash that wait until the last process of the demo has let go of its output.
Flags with_all_its_processes(const std::string& program, const Flags& flags) {
    Flags all = {"-c", R"(set -o pipefail; "$@" 2>&1 | cat >&2)", "bash", program};
    all.insert(all.end(), flags.begin(), flags.end());
    return all;
}

TEST(Demo, ShowsTheTrueBooksAndTheWholeConversation) {
    for (int run = 0; run < 3; ++run) {
        const TemporaryFile truth;
        Process process("/bin/bash", with_all_its_processes(demo, {"--truth-out", truth.path()}), quickly);
        EXPECT_EQ(process.wait(), 0);
        const std::string said = process.said();
        const ShownBooks shown(said, "feed  | ");
        shown.expect(truth);
        EXPECT_EQ(shown.refreshed.size(), 1U);
        EXPECT_GT(shown.books.size(), 50U);
        for (const char* part : {"venue | [kavo_me] DoM/MACH ", "order |   <- login accepted", "NR first accepted",
                                 "E1 second ", "NR fourth accepted", "order |   -> logout\n", "[kavo_me] stopped\n"}) {
            EXPECT_NE(said.find(part), std::string::npos) << part << " in " << said;
        }
    }
}

TEST(Demo, SaysInOneLineWhyItCannotStart) {
    const ReservedPort port;
    const int taken = open_listener(port.number(), 1, "a port that is to be taken", standard_error);
    const std::string number = std::to_string(port.number());
    const std::vector<std::pair<Flags, std::string>> reasons = {
        {{"--meo-port", number}, "kavo_me: MEO listen: Address already in use"},
        {{"--retrans-port", number}, "kavo_me: retransmission listen: Address already in use"},
        {{"--nonsense"}, "unknown flag --nonsense"}};
    for (const auto& [flags, reason] : reasons) {
        Process process("/bin/bash", with_all_its_processes(demo, flags));
        EXPECT_EQ(process.wait(), 1);
        EXPECT_EQ(process.said(), "demo: the simulator does not start: " + reason + "\n");
    }
    close_socket(taken);
}

TEST(Demo, LeavesNothingRunningWhenItIsEnded) {
    Process process("/bin/sh", overheard(demo, {}));
    EXPECT_TRUE(process.says("order |   -> buy first"));
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 1);
    const auto port = static_cast<std::uint16_t>(number_behind("MEO/ESesM :", process.said()));
    EXPECT_THROW(WireClient{port}, std::runtime_error) << "the simulator still runs";
}

// The demo among programs that only play their parts: nothing is heard of a feed that goes to the group.
class DemoOnAStage {
public:
    explicit DemoOnAStage(const std::string& heard_group) {
        const std::string stay = "trap 'kill $!; exit 0' TERM; sleep 60 & wait\n";
        const std::string group =
            "while [[ $1 != --mcast ]] && (($# > 0)); do shift; done; group=${2:-233.54.28.111}\n";
        std::filesystem::create_directory(folder_.path("tools"));
        std::filesystem::copy_file(demo, folder_.path("tools/demo"));
        write("kavo_me", group +
                             "echo \"[kavo_me] DoM/MACH $group:1 (iface 127.0.0.1, session 1, retransmission "
                             "ESesM/TCP :2) · MEO/ESesM :3 · and so on\" >&2\n" +
                             stay);
        write("kavo", "if [[ $1 == trade ]]; then exec cat >/dev/null; fi\n" + group +
                          "if [[ $group == " + heard_group +
                          " ]]; then echo 'heartbeat'; echo '--- heard'; else echo '--- silence'; fi\n" + stay);
    }
    std::string path() const { return folder_.path("tools/demo"); }

private:
    void write(const std::string& name, const std::string& script) {
        std::ofstream(folder_.path(name)) << "#!/bin/bash\n" << script;
        std::filesystem::permissions(folder_.path(name), std::filesystem::perms::owner_all);
    }

    TemporaryFolder folder_;
};

const std::string silent_group =
    "venue | [kavo_me] DoM/MACH 233.54.28.111:1 (iface 127.0.0.1, session 1, retransmission ESesM/TCP :2) · "
    "MEO/ESesM :3 · and so on\n"
    "feed  | --- silence\n"
    "demo: multicast does not get through here; once more with a feed to 127.0.0.1 alone (--mcast 127.0.0.1)\n"
    "venue | [kavo_me] DoM/MACH 127.0.0.1:1 (iface 127.0.0.1, session 1, retransmission ESesM/TCP :2) · "
    "MEO/ESesM :3 · and so on\n";

TEST(Demo, DoesWithoutMulticastAndSaysSo) {
    const DemoOnAStage stage("127.0.0.1");
    Process process("/bin/bash", with_all_its_processes(stage.path(), {}));
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(process.said(), silent_group + "feed  | heartbeat\nfeed  | --- heard\n");
}

TEST(Demo, GivesUpWhenNoFeedGetsThrough) {
    const DemoOnAStage stage("nobody");
    Process process("/bin/bash", with_all_its_processes(stage.path(), {}));
    EXPECT_EQ(process.wait(), 1);
    EXPECT_EQ(process.said(), silent_group + "feed  | --- silence\ndemo: its feed does not get through either\n");
}

}  // namespace
}  // namespace kavo::test
