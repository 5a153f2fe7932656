// Whoever of a bench is killed, and whenever: no process, port or temporary file is left.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>

#include "kavo/bench/bench.h"
#include "kavo/bench/ports.h"
#include "kavo_run.h"

namespace kavo::companion {
namespace {

using test::comes_true;
using test::KavoRun;
using test::TemporaryFolder;

std::set<pid_t> children_of(pid_t parent) {
    std::set<pid_t> found;
    const std::string number = std::to_string(parent);
    std::ifstream file("/proc/" + number + "/task/" + number + "/children");
    for (pid_t child; file >> child;) found.insert(child);
    return found;
}

std::set<pid_t> descendants_of(pid_t parent) {
    std::set<pid_t> all;
    for (const pid_t child : children_of(parent)) {
        all.insert(child);
        all.merge(descendants_of(child));
    }
    return all;
}

// Two that leave the session and the group of their parent, and one of them the family; both want to stay.
constexpr const char* stubborn = R"(trap '' TERM HUP
setsid sleep 1000 &
(setsid sh -c 'trap "" TERM HUP; sleep 1000 & sleep 1000' &)
echo up > "$KAVO_DIR/up"
wait)";

// A process that stands for kavo: it has a bench and a command of the user's, and lives until either ends.
[[noreturn]] void be_kavo(const std::string& temporary) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setenv("TMPDIR", temporary.c_str(), 1);
    try {
        Loop loop;
        bool ended = false;
        {
            Bench bench(loop, {.folder = {}, .venue = KAVO_ME_PATH, .scenario = {}, .flags = {}, .isolated = false});
            bench.start_command({"/bin/sh", "-c", stubborn}, [&ended](int) { ended = true; });
            // Last of all, so that whoever reads it finds everything else.
            std::ofstream(temporary + "/ready") << facts_line(bench.facts(), bench.folder()) << std::endl;
            while (bench.running() && !ended) loop.turn(std::chrono::seconds(20));
        }
        _exit(0);
    } catch (const std::exception& problem) {
        std::cerr << problem.what() << "\n";
        _exit(1);
    }
}

class Death : public testing::Test {
protected:
    Death() : kavo_(fork()) {
        if (kavo_ == 0) be_kavo(temporary_.path(""));
        EXPECT_TRUE(comes_true([this] { return test::content_of(temporary_.path("ready")).ends_with("}\n"); }));
        ready_ = nlohmann::json::parse(test::content_of(temporary_.path("ready")));
        const std::string dir = ready_.at("dir");
        EXPECT_TRUE(comes_true([&] { return test::content_of(dir + "/up") == "up\n" && everybody().size() >= 7; }));
        const std::string notes = test::content_of(dir + "/kavo.jsonl");
        const std::string before = "\"ev\":\"command\",\"pid\":";
        const std::size_t at = notes.find(before);
        if (at != std::string::npos) command_ = std::stoi(notes.substr(at + before.size()));
        everybody_ = everybody();
        std::filesystem::remove(temporary_.path("ready"));
    }
    void SetUp() override {
        ASSERT_EQ(test::name_of(keeper()), "bench-keeper");
        ASSERT_EQ(test::name_of(venue()), "kavo_me");
        ASSERT_EQ(test::name_of(command()), "sh");
    }
    void TearDown() override {
        if (HasFatalFailure()) kill(kavo_, SIGKILL);
        waitpid(kavo_, nullptr, 0);
        EXPECT_TRUE(comes_true([this] { return std::ranges::all_of(everybody_, test::gone); }));
        EXPECT_TRUE(comes_true([this] { return temporary_.names().empty(); }));
        // For a while another bench of this machine may have it.
        const auto block = static_cast<std::uint16_t>(ready_.at("orders_port").get<int>() - 1);
        EXPECT_TRUE(comes_true([block] { return lease_block(block).has_value(); }));
    }
    std::set<pid_t> everybody() const { return descendants_of(kavo_); }
    pid_t keeper() const { return *children_of(kavo_).begin(); }
    pid_t venue() const { return ready_.at("pid"); }
    pid_t command() const { return command_; }

    TemporaryFolder temporary_;
    pid_t kavo_;
    pid_t command_ = 0;
    nlohmann::json ready_;
    std::set<pid_t> everybody_;
};

TEST_F(Death, OfKavoEndsItsBenchAndAllThatItsCommandHasStarted) {
    kill(kavo_, SIGKILL);
}

TEST_F(Death, OfTheKeeperDoes) {
    kill(keeper(), SIGKILL);
}

TEST_F(Death, OfTheVenueDoes) {
    kill(venue(), SIGKILL);
}

TEST_F(Death, OfTheCommandDoes) {
    kill(command(), SIGKILL);
}

TEST_F(Death, OfTheVenueAndThenOfKavoDoes) {
    kill(venue(), SIGKILL);
    kill(kavo_, SIGKILL);
}

TEST_F(Death, OfAKeeperThatStandsStillDoes) {
    kill(keeper(), SIGSTOP);
    kill(command(), SIGKILL);
    kill(keeper(), SIGKILL);
}

TEST(Deaths, AtAnyMomentLeaveNothing) {
    std::mt19937 random(1);
    for (int round = 0; round < 12; ++round) {
        KavoRun run;
        poll(nullptr, 0, static_cast<int>(random() % 40));
        const pid_t keeper = run.keeper();
        const bool of_keeper = round % 2 == 0 && keeper > 0;
        kill(of_keeper ? keeper : run.process().pid(), SIGKILL);
        EXPECT_EQ(run.process().wait(), of_keeper ? 3 : -SIGKILL) << run.process().said();
        EXPECT_TRUE(run.leaves_nothing()) << round;
    }
}

}  // namespace
}  // namespace kavo::companion
