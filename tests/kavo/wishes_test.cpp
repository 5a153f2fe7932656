#include "kavo/bench/wishes.h"

#include <gtest/gtest.h>

#include "kavo/basics/problem.h"
#include "kavo/bench/vocabulary.h"

namespace kavo::companion {
namespace {

// How a wish is refused; "" when it is not.
template <typename Check>
std::string refusal(Check check) {
    try {
        check();
        return "";
    } catch (const Problem& problem) {
        EXPECT_EQ(problem.status, Status::usage);
        return problem.what();
    }
}

std::string of_flags(const std::vector<std::string>& flags) {
    return refusal([&flags] {
        BenchFacts facts;
        read_flags(flags, facts);
    });
}

std::string of_scenario(const std::string& scenario) {
    return refusal([&scenario] { check_scenario(scenario); });
}

TEST(Flags, ThatAreRightAreKeptAsFacts) {
    BenchFacts facts;
    read_flags({"--mcast",          "239.1.2.3", "--iface",       "127.0.0.2", "--seed",       "4294967295",
                "--session",        "255",       "--acod",        "--symbols", "X:1,Y,Z:2.5,", "--quiet",
                "--max-order-size", "7",         "--interval-ms", "-1",        "--drop-burst", "3:2",
                "--touch-hit",      "1",         "--step-bps",    "0.25",      "--bbo-out",    "",
                "--seed",           "9"},
               facts);
    EXPECT_EQ(facts.group, "239.1.2.3");
    EXPECT_EQ(facts.interface_address, "127.0.0.2");
    EXPECT_EQ(facts.seed, 9U);
    EXPECT_EQ(facts.session, 255);
    EXPECT_TRUE(facts.acod);
    EXPECT_EQ(facts.symbols, (std::vector<std::string>{"X", "Y", "Z"}));
    EXPECT_EQ(facts.max_order_size, 7U);
}

TEST(Flags, ThatThereAreNotAreRefusedWithTheOneThatIsMeant) {
    EXPECT_EQ(of_flags({"--sed", "7"}),
              "kavo_me has no flag --sed. Did you mean '--seed'? A flag and its value are two words, and docs/bench.md "
              "lists all flags.");
    EXPECT_EQ(of_flags({"--colour"}),
              "kavo_me has no flag --colour. A flag and its value are two words, and "
              "docs/bench.md lists all flags.");
    EXPECT_EQ(of_flags({"--acod", "--seed"}), "--seed needs a value: write it as the next word.");
}

TEST(Flags, ThatAreTheBenchsOwnAreRefused) {
    for (const char* flag : {"--port", "--meo-port", "--retrans-port", "--control-port", "--truth-out"}) {
        EXPECT_TRUE(of_flags({flag, "1"}).starts_with(std::string(flag) + " is the bench's own: ")) << flag;
    }
}

// Whatever the simulator would take for another value, in silence, or end for.
TEST(Flags, AreRefusedWithValuesThatCannotBeMeant) {
    const std::string count = " is no whole number from 0 to 4294967295.";
    EXPECT_EQ(of_flags({"--seed", "7x"}), "--seed: '7x'" + count);
    EXPECT_EQ(of_flags({"--seed", " 7"}), "--seed: ' 7'" + count);
    EXPECT_EQ(of_flags({"--seed", "-1"}), "--seed: '-1'" + count);
    EXPECT_EQ(of_flags({"--seed", ""}), "--seed: ''" + count);
    EXPECT_EQ(of_flags({"--drop-every", "4294967296"}), "--drop-every: '4294967296'" + count);
    EXPECT_EQ(of_flags({"--session", "256"}), "--session: '256' is no whole number from 1 to 255.");
    EXPECT_EQ(of_flags({"--session", "0"}), "--session: '0' is no whole number from 1 to 255.");
    EXPECT_EQ(of_flags({"--interval-ms", "2147483648"}),
              "--interval-ms: '2147483648' is no whole number from -2147483648 to 2147483647.");
    EXPECT_EQ(of_flags({"--step-bps", "nan"}), "--step-bps: 'nan' is no number of at least 0.");
    EXPECT_EQ(of_flags({"--touch-hit", "1.5"}), "--touch-hit: '1.5' is no number from 0 to 1.");
    EXPECT_EQ(of_flags({"--mcast", "233.54.28"}),
              "--mcast: '233.54.28' is no address of four numbers, as 233.54.28.111 is.");
    EXPECT_TRUE(of_flags({"--mcast", "127.0.0.1"}).starts_with("--mcast: '127.0.0.1' is no multicast group"));
    EXPECT_EQ(of_flags({"--iface", "eth0"}), "--iface: 'eth0' is no address of four numbers, as 127.0.0.1 is.");
    for (const char* burst : {"0", "3:", "3:0", "x:1", ":1"}) {
        EXPECT_NE(of_flags({"--drop-burst", burst}), "") << burst;
    }
    EXPECT_EQ(of_flags({"--book-out", "/nowhere/at/all"}),
              "--book-out: '/nowhere/at/all' cannot be written: there is no folder /nowhere/at, or nobody may write in "
              "it.");
    EXPECT_EQ(of_flags({"--bbo-out", "/"}), "--bbo-out: '/' is a folder, and must name a file.");
}

TEST(Symbols, AreRefusedThatTheSimulatorWouldBend) {
    EXPECT_EQ(of_flags({"--symbols", "A:1,,B:2"}),
              "--symbols: 'A:1,,B:2' has a product without a name, '': write NAME:PRICE.");
    EXPECT_EQ(of_flags({"--symbols", ":5"}), "--symbols: ':5' has a product without a name, ':5': write NAME:PRICE.");
    EXPECT_EQ(of_flags({"--symbols", "ABCDEFGHIJKL"}),
              "--symbols: 'ABCDEFGHIJKL' has the name 'ABCDEFGHIJKL', longer than 11 bytes.");
    EXPECT_EQ(of_flags({"--symbols", "A:1,A:2"}), "--symbols: 'A:1,A:2' has the name 'A' twice.");
    for (const char* price : {"", "x", "0", "0.1", "-5", "1e9", "inf", "5 "}) {
        const std::string item = std::string("A:") + price;
        EXPECT_EQ(of_flags({"--symbols", item}),
                  "--symbols: '" + item + "' has '" + item + "', whose price is no number from 0.2 to 400000.");
    }
}

TEST(Scenario, ThatIsRightPasses) {
    EXPECT_EQ(of_scenario(""), "");
    EXPECT_EQ(of_scenario("name=rough,disconnect_after=3,lapse_ms=-5,reject_every=7,partial_fill_every=5,"
                          "fill_on_cancel_every=3,unsolicited_cancel_every=2,replace_reject_every=4294967295"),
              "");
}

TEST(Scenario, IsRefusedWhereTheSimulatorWouldSkip) {
    EXPECT_EQ(of_scenario("reject_evry=7"),
              "scenario: there is no key 'reject_evry'. Did you mean 'reject_every'? "
              "docs/bench.md lists all keys.");
    EXPECT_EQ(of_scenario("reject=7"),
              "scenario: there is no key 'reject'. Did you mean 'reject_every'? docs/bench.md "
              "lists all keys.");
    EXPECT_EQ(of_scenario("x=1"), "scenario: there is no key 'x'. docs/bench.md lists all keys.");
    EXPECT_EQ(of_scenario("name=a,rough"),
              "scenario: 'rough' has no '='. Write a list as in name=rough,reject_every=7.");
    EXPECT_EQ(of_scenario("reject_every=1,reject_every=2"), "scenario: 'reject_every' is given twice. Leave one out.");
    EXPECT_EQ(of_scenario("reject_every="), "scenario: reject_every: '' is no whole number from 0 to 4294967295.");
    EXPECT_EQ(of_scenario("lapse_ms=2s"),
              "scenario: lapse_ms: '2s' is no whole number from -2147483648 to 2147483647.");
}

TEST(Interface, MustBeThereAndUp) {
    EXPECT_NO_THROW(check_interface("127.0.0.1"));
    try {
        check_interface("203.0.113.77");
        FAIL();
    } catch (const Problem& problem) {
        EXPECT_EQ(problem.status, Status::bench);
        const std::string said = problem.what();
        EXPECT_TRUE(
            said.starts_with("no interface of this machine has the address 203.0.113.77, which --iface names: "
                             "there are "))
            << said;
        EXPECT_NE(said.find("127.0.0.1 (lo)"), std::string::npos) << said;
    }
}

}  // namespace
}  // namespace kavo::companion
