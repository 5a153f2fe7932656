// kavo run: a bench that is ready when it says so, and of which nothing is left.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <deque>
#include <regex>

#include "client/control_client.h"
#include "kavo/basics/folder.h"
#include "kavo/bench/ports.h"
#include "kavo/bench/vocabulary.h"
#include "kavo_run.h"

namespace kavo::companion {
namespace {

using test::comes_true;
using test::content_of;
using test::KavoRun;
using test::TemporaryFile;
using test::TemporaryFolder;

bool block_is_free(const nlohmann::json& ready) {
    return lease_block(static_cast<std::uint16_t>(ready.at("orders_port").get<int>() - 1)).has_value();
}

// A program that stands for the simulator; /bin/sh reads it. $REAL is the simulator.
class Script {
public:
    explicit Script(const std::string& text) {
        std::ofstream(path()) << "#!/bin/sh\nREAL=" << KAVO_ME_PATH << "\n" << text << "\n";
        chmod(path().c_str(), 0700);
    }
    std::string path() const { return folder_.path("venue"); }

private:
    TemporaryFolder folder_;
};

TEST(Run, IsReadyWhenItSaysSoAndEndsInGoodOrder) {
    TemporaryFolder folder;
    KavoRun run(
        {"--dir", folder.path("new/run"), "--scenario", "name=calm", "--", "--seed", "7", "--symbols", "X:5,Y"});
    const auto ready = run.ready();
    ASSERT_FALSE(ready.is_null()) << run.process().said();
    EXPECT_EQ(ready.at("seed"), 7);
    EXPECT_EQ(ready.at("symbols"), (std::vector<std::string>{"X", "Y"}));
    EXPECT_EQ(ready.at("scenario"), "name=calm");
    EXPECT_EQ(ready.at("dir"), std::filesystem::canonical(folder.path("new/run")).string());
    EXPECT_EQ(test::name_of(ready.at("pid")), "kavo_me");
    EXPECT_FALSE(block_is_free(ready));
    for (const int number : {SIGINT, SIGTERM}) run.process().signal(number);
    EXPECT_EQ(run.process().wait(), 0) << run.process().said();
    EXPECT_TRUE(run.leaves_nothing());
    // For a while another bench of this machine may have it.
    EXPECT_TRUE(comes_true([&] { return block_is_free(ready); }));
    const BenchFacts facts = read_facts(RunFolder{folder.path("new/run")}.bench());
    EXPECT_EQ(facts.pid, ready.at("pid"));
    EXPECT_EQ(facts.control_port, ready.at("control_port"));
}

TEST(Run, WritesEveryLineOfTheVenueWithItsTime) {
    TemporaryFolder folder;
    KavoRun run({"--dir", folder.path("run")});
    ASSERT_FALSE(run.ready().is_null()) << run.process().said();
    run.process().signal(SIGHUP);
    EXPECT_EQ(run.process().wait(), 0) << run.process().said();
    std::istringstream log(content_of(folder.path("run/venue.log")));
    std::string last;
    const std::regex form("[0-9]+\\.[0-9]{9} .*");
    for (std::string line; std::getline(log, line); last = line) EXPECT_TRUE(std::regex_match(line, form)) << line;
    EXPECT_TRUE(last.ends_with(" [kavo_me] stopped")) << last;
    EXPECT_NE(content_of(folder.path("run/kavo.jsonl")).find("\"ev\":\"venue_end\",\"status\":0"), std::string::npos);
}

// Lines of the book truth are buffered, and a venue that ends in good order writes them.
TEST(Run, LosesNoLineOfTheBookTruth) {
    TemporaryFolder folder;
    KavoRun run({"--dir", folder.path("run"), "--", "--interval-ms", "1"});
    const auto ready = run.ready();
    ASSERT_FALSE(ready.is_null()) << run.process().said();
    const client::ControlClient control(ready.at("control_port").get<std::uint16_t>());
    const auto seen = control.next_sequence() + 100;
    EXPECT_TRUE(comes_true([&] { return control.next_sequence() > seen; }));
    EXPECT_EQ(run.process().stop(), 0) << run.process().said();
    const std::string truth = content_of(folder.path("run/books.jsonl"));
    EXPECT_TRUE(truth.ends_with("]}\n")) << truth.substr(truth.rfind('{'));
    EXPECT_GT(client::number_behind("\"seq\":", truth.substr(truth.rfind("{\"seq\":"))), seen - 100);
}

TEST(Run, RefusesInWordsWhatCannotBeMeant) {
    TemporaryFolder full;
    std::ofstream(full.path("something")) << "here";
    const std::string not_a_venue = full.path("something");
    const auto refused = [](const std::vector<std::string>& arguments, int ends_with, const std::string& words,
                            const test::Environment& environment = {}, const std::string& venue = KAVO_ME_PATH) {
        KavoRun run(arguments, environment, venue);
        EXPECT_EQ(run.process().wait(), ends_with) << words;
        EXPECT_NE(run.process().said().find(words), std::string::npos) << run.process().said();
        EXPECT_TRUE(run.leaves_nothing()) << words;
    };
    refused({"--", "--sed", "7"}, 2, "Did you mean '--seed'?");
    refused({"--seed", "7"}, 2, "--seed is no option of kavo run. Flags of kavo_me go behind --");
    refused({"--scenario", "reject_every=often"}, 2, "'often' is no whole number");
    refused({"--dir", full.path("")}, 2, "is not empty");
    refused({"--dir", "/proc/none/such"}, 3, "cannot make the folder /proc/none/such");
    refused({"--dir", full.path("something")}, 3, "Choose another with --dir.");
    refused({"--", "--iface", "203.0.113.77"}, 3, "no interface of this machine has the address 203.0.113.77");
    refused({}, 2, "the environment sets BENCH_ORDER_TRUTH", {{"BENCH_ORDER_TRUTH", "x"}});
    refused({}, 2, "the environment sets KAVO_ME_SCENARIO", {{"KAVO_ME_SCENARIO", "name=x"}});
    refused({}, 2, "there is no simulator at " + not_a_venue, {}, not_a_venue);
}

// Each fails softly, or in silence, when it is started by hand.
TEST(Run, TakesForAFailedStartWhatTheSimulatorGoesOnWithout) {
    const auto fails = [](const std::string& text, const std::string& words) {
        const Script venue(text);
        KavoRun run({}, {}, venue.path());
        EXPECT_EQ(run.process().wait(), 3);
        EXPECT_NE(run.process().said().find(words), std::string::npos) << run.process().said();
        EXPECT_TRUE(run.leaves_nothing());
    };
    // Flags are --port F --meo-port O --retrans-port R --control-port C ...; of one given twice the later counts.
    fails("exec $REAL \"$@\" --retrans-port $4", "kavo_me: MEO listen: Address already in use");
    fails("exec $REAL \"$@\" --retrans-port $(($4 - 1))", "kavo_me: retransmission listen: Address already in use");
    fails("exec $REAL \"$@\" --control-port 1 --meo-port x", "the venue has ended by itself, with signal 6 (Aborted)");
    fails("exec $REAL \"$@\" --truth", "with exit status 2. The last that it said:\n    unknown flag --truth");
}

// Another venue has the control port as well, and is given the commands.
TEST(Run, KnowsWhetherTheControlPortIsThatOfItsOwnVenue) {
    const Script venue(R"(SAID=$(dirname "$0")/said; $REAL "$@" 2> "$SAID" &
until grep -q MEO/ESesM "$SAID"; do kill -0 $! || exit; done
cat "$SAID" >&2; wait)");
    KavoRun run({}, {}, venue.path());
    EXPECT_EQ(run.process().wait(), 3);
    EXPECT_NE(run.process().said().find("another process answers on the control port of the bench"), std::string::npos)
        << run.process().said();
    EXPECT_TRUE(run.leaves_nothing());  // the simulator was a child of the script's
}

// A pipe holds 64 KiB.
TEST(Run, DrainsWhatTheVenueSays) {
    TemporaryFolder folder;
    const Script venue("head -c 300000 /dev/zero | tr '\\0' 'x' | fold -w 99 >&2; echo >&2; exec $REAL \"$@\"");
    KavoRun run({"--dir", folder.path("run")}, {}, venue.path());
    ASSERT_FALSE(run.ready().is_null()) << run.process().said();
    EXPECT_EQ(run.process().stop(), 0);
    EXPECT_GT(content_of(folder.path("run/venue.log")).size(), 300'000U);
}

TEST(Run, SaysSoWhenTheVenueEndsByItself) {
    KavoRun run;
    const auto ready = run.ready();
    ASSERT_FALSE(ready.is_null()) << run.process().said();
    kill(ready.at("pid"), SIGKILL);
    EXPECT_EQ(run.process().wait(), 3);
    EXPECT_NE(run.process().said().find("kavo: the venue has ended by itself, with signal 9 (Killed). The last that it "
                                        "said:\n    bench: control on 127.0.0.1:"),
              std::string::npos)
        << run.process().said();
    EXPECT_TRUE(run.leaves_nothing());
}

TEST(Run, EndsWithItsStandardInputWhenToldTo) {
    TemporaryFolder folder;
    ASSERT_EQ(mkfifo(folder.path("input").c_str(), 0600), 0);
    const int holder = open(folder.path("input").c_str(), O_RDWR | O_CLOEXEC);
    test::Mark mark;
    test::TemporaryFile output;
    test::Process run("/bin/sh",
                      {"-c", "exec \"$0\" run --while-stdin --venue \"$1\" < \"$2\" > \"$3\"", KAVO_PATH, KAVO_ME_PATH,
                       folder.path("input"), output.path()},
                      {{"KAVO_TEST_MARK", mark.value()}});
    ASSERT_TRUE(comes_true([&] { return !output.lines().empty(); })) << run.said();
    EXPECT_FALSE(mark.processes().empty());
    close(holder);
    EXPECT_EQ(run.wait(), 0);
    EXPECT_TRUE(mark.processes().empty());
}

TEST(Run, StandsSixteenTimesWithoutAClash) {
    for (int batch = 0; batch < 2; ++batch) {
        std::deque<KavoRun> runs(8);
        std::vector<int> ports;
        for (KavoRun& run : runs) {
            const auto ready = run.ready();
            ASSERT_FALSE(ready.is_null()) << run.process().said();
            ports.push_back(ready.at("feed_port"));
            client::ControlClient control(ready.at("control_port").get<std::uint16_t>());
            EXPECT_TRUE(control.ask("stats").starts_with("ok "));
        }
        std::sort(ports.begin(), ports.end());
        EXPECT_EQ(std::unique(ports.begin(), ports.end()), ports.end());
        for (KavoRun& run : runs) run.process().signal(SIGTERM);
        for (KavoRun& run : runs) EXPECT_EQ(run.process().wait(), 0) << run.process().said();
    }
}

// Two at once, each with the default ports. Where the system allows no such thing, words say so.
TEST(Run, HasANetworkOfItsOwnWhenIsolated) {
    std::deque<KavoRun> runs;
    for (int i = 0; i < 2; ++i) runs.emplace_back(std::vector<std::string>{"--isolated"});
    for (KavoRun& run : runs) {
        const auto ready = run.ready();
        if (ready.is_null()) {
            EXPECT_EQ(run.process().wait(), 3);
            EXPECT_NE(run.process().said().find("leave --isolated out"), std::string::npos) << run.process().said();
            continue;
        }
        EXPECT_EQ(ready.at("orders_port"), 28'700);
        EXPECT_EQ(ready.at("recovery_port"), 25'379);
        EXPECT_EQ(ready.at("feed_port"), 25'377);
        EXPECT_TRUE(ready.at("enter").get<std::string>().starts_with("nsenter -t " +
                                                                     std::to_string(run.process().pid()) + " "));
        const auto network = [](pid_t pid) {
            return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/ns/net");
        };
        EXPECT_EQ(network(ready.at("pid")), network(run.process().pid()));
        EXPECT_NE(network(ready.at("pid")), network(getpid()));
    }
    for (KavoRun& run : runs) {
        EXPECT_TRUE(run.process().stop() == 0 || run.process().wait() == 3);
        EXPECT_TRUE(run.leaves_nothing());
    }
}

// kavo stands still while the venue, which writes its best prices four times a second, goes on.
TEST(Run, NotesThatTheMachineLetItWait) {
    TemporaryFolder folder;
    KavoRun run({"--dir", folder.path("run"), "--", "--bbo-out", folder.path("best")});
    ASSERT_FALSE(run.ready().is_null()) << run.process().said();
    const auto inode = [&] {
        struct stat file {};
        return stat(folder.path("best").c_str(), &file) == 0 ? file.st_mtim.tv_nsec : -1;
    };
    const auto changes = [&] { return comes_true([&, before = inode()] { return inode() != before; }); };
    run.process().signal(SIGSTOP);
    EXPECT_TRUE(changes() && changes());
    run.process().signal(SIGCONT);
    EXPECT_TRUE(comes_true([&] {
        return content_of(folder.path("run/kavo.jsonl")).find("\"ev\":\"late\",\"ms\":") != std::string::npos;
    }));
    EXPECT_EQ(run.process().stop(), 0);
}

// A disk of a few pages, in a mount namespace where the system allows one.
TEST(Run, SaysSoWhenTheDiskIsFull) {
    TemporaryFolder folder;
    const std::string mount = "mount -t tmpfs -o size=256k none '" + folder.path("") + "' && ";
    test::Process allowed("/usr/bin/unshare", {"-rm", "/bin/sh", "-c", mount + "true"});
    if (allowed.wait() != 0) GTEST_SKIP() << "no mount namespace: " << allowed.said();
    test::Mark mark;
    test::Process run(
        "/usr/bin/unshare",
        {"-rm", "/bin/sh", "-c",
         mount + "exec \"$0\" run --venue \"$1\" --dir '" + folder.path("run") + "' -- --interval-ms 0 > /dev/null",
         KAVO_PATH, KAVO_ME_PATH},
        {{"KAVO_TEST_MARK", mark.value()}});
    EXPECT_EQ(run.wait(), 3);
    EXPECT_NE(run.said().find("the disk is full"), std::string::npos) << run.said();
    EXPECT_TRUE(comes_true([&] { return mark.processes().empty(); }));
}

// The words between backquotes that begin the rows of a table of docs/bench.md.
std::vector<std::string> words_below(const std::string& heading) {
    std::ifstream page(KAVO_SOURCE_DIR "/docs/bench.md");
    std::vector<std::string> words;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("| " + heading + " |")) inside = true;
        if (line.empty()) inside = false;
        if (!inside || !line.starts_with("| `")) continue;
        words.push_back(line.substr(3, line.find('`', 3) - 3));
    }
    return words;
}

std::vector<std::string> names(std::span<const Word> words) {
    std::vector<std::string> all;
    for (const Word& word : words) all.emplace_back(word.name);
    return all;
}

TEST(Vocabulary, IsThatOfThePage) {
    EXPECT_EQ(names(simulator_flags()), words_below("Flag"));
    EXPECT_EQ(names(scenario_keys()), words_below("Scenario key"));
}

}  // namespace
}  // namespace kavo::companion
